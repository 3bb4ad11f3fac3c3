// The value formatters, FloatToString and the typed conversion under hostile input: format
// texts, values, truncation numbers, prefixes, suffixes and delete texts, each result held
// to a plain reference (sscanf and string streams, printf, the conversion steps written out).
#pragma once

#include <cstddef>
#include <cstdint>

namespace fv2fuzz {

// One fuzz input.
void RunFormatInput(const uint8_t* data, size_t size);

}  // namespace fv2fuzz
