// The configuration reader under hostile input: any bytes as "algo_private.json", read the
// way the host has it read, and what the read leaves behind checked against the rules of
// the file (item invariants, table contents, outcome by status), then read once more.
#pragma once

#include <cstddef>
#include <cstdint>

#include "formatv2/formatv2.h"

namespace fv2fuzz {

// Both dynamic tables as the module holds them. About 90 KiB: the targets keep their copies in
// static storage, since fresh heap blocks of that size cost page faults on every input.
struct Tables {
    DYNAMIC_SUBSCRIBE_PARAM_LIST sub;
    DYNAMIC_PUBLISH_PARAM_LIST pub;
};
void Snapshot(const CFormatV2Module& module, Tables& out);

// The type text an item of convert type 1, 2 or 3 is published under.
const char* TypeText(int convertType);

// Checks a read that ended with status (GetSubParamList, or the re-read command) against
// the tables before it: the status is one a readable file can give, the items obey the
// model's invariants, the tables are unchanged, cleared or rebuilt as the status says, and
// the host's view of both tables matches.
void CheckReadOutcome(CFormatV2Module& module, int status, const Tables& before);

// One fuzz input: the bytes as the configuration file of a new module, read twice.
void RunConfigInput(const uint8_t* data, size_t size);

}  // namespace fv2fuzz
