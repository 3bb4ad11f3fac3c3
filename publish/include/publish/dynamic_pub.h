// The record of one output published in a run, listed in the output frame under
// "DynamicPub". Copied byte for byte: bytes after a terminator mean nothing.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <list>

#include "contract/contract.h"

struct DynamicPub {
    char param_name[48];
    char type[16];
};

static_assert(sizeof(DynamicPub) == 64, "DynamicPub is 64 bytes");
static_assert(sizeof(DynamicPub::param_name) == kRunNameMax + 1, "the name kept in a run");

// The frame's list of the outputs published in a run.
using DynamicPubRecords = std::list<DynamicPub>;

// snprintf(field, N, "%s", text) for the texts of the publish records: the text up to its first
// NUL, cut to N - 1 bytes, then a terminator; the bytes after it are left as they were. Done
// by hand because it runs once per published value, and printf's machinery costs many times
// the copy.
template <size_t N>
void CopyCut(char (&field)[N], const char* text) {
    const size_t length = std::min(std::strlen(text), N - 1);
    std::memcpy(field, text, length);
    field[length] = '\0';
}
