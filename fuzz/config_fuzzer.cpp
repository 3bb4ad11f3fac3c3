// libFuzzer target: any bytes as the configuration file.
#include <cstddef>
#include <cstdint>

#include "fuzz/config_entry.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fv2fuzz::RunConfigInput(data, size);
    return 0;
}
