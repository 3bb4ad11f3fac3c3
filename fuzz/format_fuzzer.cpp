// libFuzzer target: formatters, FloatToString and the typed conversion.
#include <cstddef>
#include <cstdint>

#include "fuzz/format_entry.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fv2fuzz::RunFormatInput(data, size);
    return 0;
}
