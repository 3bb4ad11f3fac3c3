// The inverse of FuzzedDataProvider for the calls the fuzz targets make: writes the bytes
// from which a provider reads back exactly the given values, so that seed inputs can be
// written as values. Integers are read from the end of the data, strings from its start.
#pragma once

#include <climits>
#include <cstdint>
#include <limits>
#include <string>
#include <type_traits>

namespace fv2fuzz {

class FdpWriter {
  public:
    // As ConsumeIntegralInRange<T>(min, max) returns value (min <= value <= max).
    template <typename T>
    void IntegralInRange(T value, T min, T max) {
        static_assert(std::is_integral<T>::value, "integral types only");
        const uint64_t range = static_cast<uint64_t>(max) - static_cast<uint64_t>(min);
        const uint64_t offset = static_cast<uint64_t>(value) - static_cast<uint64_t>(min);
        size_t bytes = 0;
        for (size_t bits = 0; bits < sizeof(T) * CHAR_BIT && (range >> bits) > 0;
             bits += CHAR_BIT) {
            ++bytes;
        }
        // The provider shifts each byte it takes in from the right: the first taken is the
        // most significant.
        for (size_t i = bytes; i > 0; --i) {
            back_.push_back(static_cast<char>((offset >> ((i - 1) * CHAR_BIT)) & 0xFF));
        }
    }

    template <typename T>
    void Integral(T value) {
        IntegralInRange(value, std::numeric_limits<T>::min(), std::numeric_limits<T>::max());
    }

    void Bool(bool value) { Integral<uint8_t>(value ? 1 : 0); }

    // As ConsumeRandomLengthString(max) returns text (text.size() <= max): backslashes
    // doubled, then a backslash and another character end the string.
    void String(const std::string& text) {
        for (char c : text) {
            front_ += c;
            if (c == '\\') front_ += '\\';
        }
        front_ += "\\x";
    }

    // Bytes taken as they are from the start (ConsumeBytesAsString).
    void Raw(const std::string& bytes) { front_ += bytes; }

    std::string Bytes() const { return front_ + std::string(back_.rbegin(), back_.rend()); }

  private:
    std::string front_;
    std::string back_;  // in the order the provider takes the bytes
};

}  // namespace fv2fuzz
