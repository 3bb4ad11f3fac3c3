// The formatters build their texts by hand rather than through sscanf and string streams:
// an array item formats every cell of every run, and a stream per cell costs ten times the
// whole cell. The texts are the ones the scan-and-stream rules give, character for character.
#include "format/formatter.h"

#include <algorithm>
#include <charconv>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>

namespace {

// isspace in the C locale, which is what sscanf skips.
bool IsScanSpace(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

// One "%d" conversion as glibc's scanf performs it: blanks skipped, an optional sign, then the
// decimal digits, converted by strtol into a long (saturating at the long limits) and then
// narrowed to int. On a 64-bit ABI an over-long width therefore wraps, on the 32-bit device it
// saturates. Leaves out alone and returns false when no digit follows.
bool ScanInt(const char*& s, int& out) {
    while (IsScanSpace(*s)) ++s;
    bool negative = false;
    if (*s == '+' || *s == '-') {
        negative = *s == '-';
        ++s;
    }
    if (*s < '0' || *s > '9') return false;
    const unsigned long limit = negative ? static_cast<unsigned long>(LONG_MAX) + 1UL
                                         : static_cast<unsigned long>(LONG_MAX);
    unsigned long magnitude = 0;
    bool saturated = false;
    for (; *s >= '0' && *s <= '9'; ++s) {
        const unsigned long digit = static_cast<unsigned long>(*s - '0');
        if (saturated || magnitude > (limit - digit) / 10) {
            saturated = true;
        } else {
            magnitude = magnitude * 10 + digit;
        }
    }
    if (saturated) magnitude = limit;
    const long value = negative ? static_cast<long>(0UL - magnitude) : static_cast<long>(magnitude);
    out = static_cast<int>(value);
    return true;
}

// sscanf(text, "%%%d.%d", &width, &precision), or "%%%dd" when precision is null: whatever was
// read before the first mismatch stays in force.
void ScanWidth(const char* s, int& width, int* precision) {
    while (IsScanSpace(*s)) ++s;
    if (*s != '%') return;
    ++s;
    if (!ScanInt(s, width) || precision == nullptr || *s != '.') return;
    ++s;
    ScanInt(s, *precision);
}

size_t BoundedWidth(int width) {
    return static_cast<size_t>(std::clamp(width, 0, kFormatterMaxWidth));
}

// The fraction f (0 <= f < 1) rounded to precision digits as printf's "%.*f" rounds it: to
// nearest, a tie to the even last digit. digits receives the precision characters; returns
// true when the rounding reaches 1, in which case digits are all '0'.
bool FractionDigits(float f, size_t precision, char* digits) {
    std::memset(digits, '0', precision);
    if (f == 0.0f) return false;

    // f = mantissa / 2^shift exactly.
    uint32_t bits;
    std::memcpy(&bits, &f, sizeof bits);
    const int exponent = static_cast<int>(bits >> 23);
    uint64_t mantissa = bits & 0x7FFFFFu;
    int shift = 149;
    if (exponent != 0) {
        mantissa |= 0x800000u;
        shift = 150 - exponent;
    }
    while ((mantissa & 1u) == 0) {
        mantissa >>= 1;
        --shift;
    }

    if (shift > 60) {
        // f < 2^-37: below half a unit of the tenth digit, so short precisions round to zero;
        // longer ones are rare enough to hand to printf itself (which can not carry here).
        if (precision <= 10) return false;
        std::string text(precision + 3, '\0');
        std::snprintf(&text[0], text.size(), "%.*f", static_cast<int>(precision),
                      static_cast<double>(f));
        std::memcpy(digits, text.data() + 2, precision);
        return false;
    }

    // Long division by 2^shift: each step multiplies the remainder by 10 (shift <= 60 keeps
    // it within 64 bits) and takes the integer part as the next digit. After shift steps the
    // remainder is 0, so digits beyond that stay '0'.
    const uint64_t mask = (uint64_t{1} << shift) - 1;
    uint64_t rest = mantissa;
    const size_t exact = std::min(precision, static_cast<size_t>(shift));
    for (size_t i = 0; i < exact; ++i) {
        rest *= 10;
        digits[i] = static_cast<char>('0' + (rest >> shift));
        rest &= mask;
    }
    const uint64_t half = uint64_t{1} << (shift - 1);
    // With no digit kept the tie goes to the even units digit of f, which is 0.
    const bool lastOdd = precision > 0 && ((digits[precision - 1] - '0') & 1) != 0;
    if (rest < half || (rest == half && !lastOdd)) return false;

    size_t i = precision;
    while (i > 0 && digits[i - 1] == '9') digits[--i] = '0';
    if (i == 0) return true;
    ++digits[i - 1];
    return false;
}

}  // namespace

std::string IntFormatter::format() {
    try {
        int width = 0;
        ScanWidth(m_strFormat.c_str(), width, nullptr);

        const bool negative = m_value < 0;
        const unsigned magnitude =
            negative ? 0u - static_cast<unsigned>(m_value) : static_cast<unsigned>(m_value);
        char digits[16];
        const size_t count = static_cast<size_t>(
            std::to_chars(digits, digits + sizeof digits, magnitude).ptr - digits);

        std::string text(std::max(count + negative, BoundedWidth(width)), '0');
        if (negative) text[0] = '-';
        std::memcpy(&text[text.size() - count], digits, count);
        return text;
    } catch (...) {
        return std::string();
    }
}

std::string FloatFormatter::format() {
    try {
        if (std::isnan(m_value)) return "nan";
        if (std::isinf(m_value)) return m_value < 0 ? "-inf" : "inf";

        int width = 0;
        int precision = 0;
        ScanWidth(m_strFormat.c_str(), width, &precision);
        const size_t fractionLength = BoundedWidth(precision);
        const bool negative = m_value < 0;  // -0.0 is not, and gets no sign
        const float magnitude = std::fabs(m_value);

        char whole[48];  // any finite float's integer part has at most 39 digits
        size_t wholeLength;
        char fraction[32];
        std::string spill;
        char* fractionDigits = fraction;
        if (fractionLength > sizeof fraction) {
            spill.resize(fractionLength);
            fractionDigits = &spill[0];
        }
        if (magnitude < 18446744073709551616.0f) {  // 2^64
            uint64_t integer = static_cast<uint64_t>(magnitude);
            if (FractionDigits(magnitude - static_cast<float>(integer), fractionLength,
                               fractionDigits)) {
                ++integer;
            }
            wholeLength = static_cast<size_t>(
                std::to_chars(whole, whole + sizeof whole, integer).ptr - whole);
        } else {
            // Every float this large is whole; printf gives its exact digits.
            const int n =
                std::snprintf(whole, sizeof whole, "%.0f", static_cast<double>(magnitude));
            wholeLength = static_cast<size_t>(std::clamp(n, 0, static_cast<int>(sizeof whole) - 1));
            std::memset(fractionDigits, '0', fractionLength);
        }

        const size_t padded = std::max(wholeLength, BoundedWidth(width));
        std::string text(negative + padded + 1 + fractionLength, '0');
        char* out = &text[0];
        if (negative) *out++ = '-';
        out += padded - wholeLength;
        std::memcpy(out, whole, wholeLength);
        out += wholeLength;
        *out++ = '.';
        std::memcpy(out, fractionDigits, fractionLength);
        return text;
    } catch (...) {
        return std::string();
    }
}

std::string StringFormatter::format() {
    try {
        return m_value;
    } catch (...) {
        return std::string();
    }
}
