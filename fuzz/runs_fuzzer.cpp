// libFuzzer target: a configuration and up to four runs with hostile input values. At exit it
// prints how many whole runs (Process calls) the inputs held, for scripts/fuzz.sh to report.
#include <cinttypes>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "fuzz/runs_entry.h"

namespace {

void PrintProcessCalls() {
    std::fprintf(stderr, "stat::formatv2_process_calls: %" PRIu64 "\n", fv2fuzz::ProcessCalls());
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    std::atexit(PrintProcessCalls);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fv2fuzz::RunRunsInput(data, size);
    return 0;
}
