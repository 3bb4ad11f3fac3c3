// The runner's JSON scanner against cJSON, the module's JSON reader: the same bytes read by
// both must be accepted or refused alike, and read into the same tree, each node placed where
// its value stands in the text.
#pragma once

#include <cstddef>
#include <cstdint>

namespace fv2fuzz {

// One fuzz input: the bytes as a configuration text.
void RunJsonInput(const uint8_t* data, size_t size);

}  // namespace fv2fuzz
