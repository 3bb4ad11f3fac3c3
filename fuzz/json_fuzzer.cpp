// libFuzzer target: any bytes as a configuration text, read by the runner's scanner and by cJSON.
#include <cstddef>
#include <cstdint>

#include "fuzz/json_entry.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fv2fuzz::RunJsonInput(data, size);
    return 0;
}
