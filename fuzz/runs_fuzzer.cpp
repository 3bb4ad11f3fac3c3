// libFuzzer target: a configuration and up to four runs with hostile input values.
#include <cstddef>
#include <cstdint>

#include "fuzz/runs_entry.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fv2fuzz::RunRunsInput(data, size);
    return 0;
}
