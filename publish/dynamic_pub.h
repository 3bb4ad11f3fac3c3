// The record of one output published in a run, listed in the output frame under
// "DynamicPub". Copied byte for byte: bytes after a terminator mean nothing.
#pragma once

#include <list>

struct DynamicPub {
    char param_name[48];
    char type[16];
};

static_assert(sizeof(DynamicPub) == 64, "DynamicPub is 64 bytes");

// The frame's list of the outputs published in a run.
using DynamicPubRecords = std::list<DynamicPub>;
