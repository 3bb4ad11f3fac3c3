// "00" to "99" in one table: the formatters write decimal digits two at a time.
#pragma once

#include <array>

namespace formatv2 {

constexpr std::array<char, 200> MakeDigitPairs() {
    std::array<char, 200> pairs{};
    for (int i = 0; i < 100; ++i) {
        pairs[2 * i] = static_cast<char>('0' + i / 10);
        pairs[2 * i + 1] = static_cast<char>('0' + i % 10);
    }
    return pairs;
}
inline constexpr std::array<char, 200> kDigitPairs = MakeDigitPairs();

}  // namespace formatv2
