// Whole runs under hostile input: a configuration as the host initialises the module with
// it, then up to four runs, each with its own input values (any type, scalar or list, any
// length, missing, unresolvable, with a count that lies), with or without an input frame, an
// image mode and an output frame, and a re-read through "CommandFormatV2Ensure" before any
// run (the same text, the text cut short, or a second text). Every run must end with a
// status of the module's own, the end-of-run calls and a verdict that matches its status.
#pragma once

#include <cstddef>
#include <cstdint>

namespace fv2fuzz {

// One fuzz input: the first configuration text, a NUL byte, the second text, a NUL byte,
// then the runs.
void RunRunsInput(const uint8_t* data, size_t size);
// Process calls made so far in this process: an input holds one to four runs, so the
// executions libFuzzer counts are not the number of whole runs.
uint64_t ProcessCalls();

}  // namespace fv2fuzz
