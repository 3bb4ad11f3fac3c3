// The formatters build their texts by hand rather than through sscanf and string streams: an
// array item formats every cell of every run, and a string stream per cell costs more than ten
// times the whole cell built by hand. The texts are the ones the scan-and-stream rules give,
// character for character (the tests hold them to a plain scan-and-stream version).
#include "format/formatter.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "contract/guard.h"
#include "digits.h"

namespace {

using formatv2::kDigitPairs;

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
    // Nine digits fit any long; only longer numbers need the saturating steps.
    unsigned long magnitude = 0;
    for (const char* plain = s + 9; s < plain && *s >= '0' && *s <= '9'; ++s) {
        magnitude = magnitude * 10 + static_cast<unsigned long>(*s - '0');
    }
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
// read before the first mismatch stays in force. Returns how many numbers were read.
int ScanWidth(const char* s, int& width, int* precision) {
    while (IsScanSpace(*s)) ++s;
    if (*s != '%') return 0;
    ++s;
    if (!ScanInt(s, width)) return 0;
    if (precision == nullptr || *s != '.') return 1;
    ++s;
    return ScanInt(s, *precision) ? 2 : 1;
}

size_t BoundedWidth(int width) {
    return static_cast<size_t>(std::clamp(width, 0, kMaxFormatWidth));
}

constexpr uint64_t kPowersOfTen[] = {1ULL,
                                     10ULL,
                                     100ULL,
                                     1000ULL,
                                     10000ULL,
                                     100000ULL,
                                     1000000ULL,
                                     10000000ULL,
                                     100000000ULL,
                                     1000000000ULL,
                                     10000000000ULL,
                                     100000000000ULL,
                                     1000000000000ULL,
                                     10000000000000ULL,
                                     100000000000000ULL,
                                     1000000000000000ULL,
                                     10000000000000000ULL,
                                     100000000000000000ULL,
                                     1000000000000000000ULL,
                                     10000000000000000000ULL};
// Fractions rounded to at most this many digits take the one-multiplication path.
constexpr size_t kShortPrecision = 11;

// The number of decimal digits, without a loop whose length the branch predictor would have
// to guess: the bit length gives the digit count or one more, and one comparison settles it.
// (0 counts as one digit, as 1 does.)
size_t DecimalLength(uint64_t value) {
    value |= 1;
    const int bits = 64 - __builtin_clzll(value);
    const size_t guess = static_cast<size_t>((bits * 1233) >> 12);  // bits * log10(2), <= 19
    return guess + (value >= kPowersOfTen[guess] ? 1 : 0);
}

// Writes value's digits so that they end just before end, two at a time. Values that fit 32
// bits stay in 32-bit arithmetic: 64-bit division is a library call on the 32-bit device.
template <typename Unsigned>
void WriteDecimal(char* end, Unsigned value) {
    while (value >= 100) {
        const unsigned pair = static_cast<unsigned>(value % 100);
        value /= 100;
        end -= 2;
        end[0] = kDigitPairs[2 * pair];
        end[1] = kDigitPairs[2 * pair + 1];
    }
    if (value >= 10) {
        end[-2] = kDigitPairs[2 * value];
        end[-1] = kDigitPairs[2 * value + 1];
    } else {
        end[-1] = static_cast<char>('0' + value);
    }
}

void WriteDecimal64(char* end, uint64_t value) {
    if (value <= UINT32_MAX) {
        WriteDecimal(end, static_cast<uint32_t>(value));
    } else {
        WriteDecimal(end, value);
    }
}

// f (0 < f < 1) as mantissa / 2^shift exactly, with an odd mantissa below 2^24.
void Decompose(float f, uint64_t& mantissa, int& shift) {
    uint32_t bits;
    std::memcpy(&bits, &f, sizeof bits);
    const int exponent = static_cast<int>(bits >> 23);
    mantissa = bits & 0x7FFFFFu;
    shift = 149;
    if (exponent != 0) {
        mantissa |= 0x800000u;
        shift = 150 - exponent;
    }
    const int zeros = __builtin_ctzll(mantissa);
    mantissa >>= zeros;
    shift -= zeros;
}

// The fraction f (0 <= f < 1) times 10^precision (precision <= kShortPrecision), rounded as
// printf's "%.*f" rounds f: to nearest, an exact tie to the even last digit. A result of
// 10^precision means the rounding reached 1.
uint64_t RoundFractionShort(float f, size_t precision) {
    if (f == 0.0f) return 0;
    uint64_t mantissa;
    int shift;
    Decompose(f, mantissa, shift);
    // f < 2^-40 here: far below half a unit of the 11th digit.
    if (shift > 63) return 0;
    const uint64_t scaled = mantissa * kPowersOfTen[precision];  // < 2^24 * 10^11 < 2^61
    uint64_t digits = scaled >> shift;
    const uint64_t rest = scaled & ((uint64_t{1} << shift) - 1);
    const uint64_t half = uint64_t{1} << (shift - 1);
    // With precision 0 the tie goes to the even units digit of f, which is 0: digits is 0.
    if (rest > half || (rest == half && (digits & 1) != 0)) ++digits;
    return digits;
}

// The same for any precision, as digit characters written to digits; returns true when the
// rounding reaches 1, the digits then being all '0'.
bool RoundFractionLong(float f, size_t precision, char* digits) {
    std::memset(digits, '0', precision);
    if (f == 0.0f) return false;
    uint64_t mantissa;
    int shift;
    Decompose(f, mantissa, shift);

    if (shift > 60) {
        // Tiny fractions are rare enough to hand to printf itself; they cannot carry.
        std::string text(precision + 3, '\0');
        std::snprintf(&text[0], text.size(), "%.*f", static_cast<int>(precision),
                      static_cast<double>(f));
        std::memcpy(digits, text.data() + 2, precision);
        return false;
    }

    // Long division by 2^shift: each step multiplies the remainder by 10 (shift <= 60 keeps
    // it within 64 bits) and takes the integer part as the next digit. After shift steps the
    // remainder is 0, so the digits beyond stay '0'.
    const uint64_t mask = (uint64_t{1} << shift) - 1;
    uint64_t rest = mantissa;
    const size_t exact = std::min(precision, static_cast<size_t>(shift));
    for (size_t i = 0; i < exact; ++i) {
        rest *= 10;
        digits[i] = static_cast<char>('0' + (rest >> shift));
        rest &= mask;
    }
    const uint64_t half = uint64_t{1} << (shift - 1);
    const bool lastOdd = precision > 0 && ((digits[precision - 1] - '0') & 1) != 0;
    if (rest < half || (rest == half && !lastOdd)) return false;

    size_t i = precision;
    while (i > 0 && digits[i - 1] == '9') digits[--i] = '0';
    if (i == 0) return true;
    ++digits[i - 1];
    return false;
}

// Whether RoundFractionLong(f, precision) reaches 1, without writing the digits: it does when
// it rounds up and every digit is a 9.
bool FractionCarries(float f, size_t precision) {
    if (f == 0.0f) return false;
    uint64_t mantissa;
    int shift;
    Decompose(f, mantissa, shift);
    // Tiny fractions cannot carry, and digits beyond the exact ones are 0s.
    if (shift > 60 || precision > static_cast<size_t>(shift)) return false;
    const uint64_t mask = (uint64_t{1} << shift) - 1;
    uint64_t rest = mantissa;
    for (size_t i = 0; i < precision; ++i) {
        rest *= 10;
        if ((rest >> shift) != 9) return false;
        rest &= mask;
    }
    const uint64_t half = uint64_t{1} << (shift - 1);
    return rest > half || (rest == half && precision > 0);  // a last 9 is odd
}

// An int's text, laid out before a byte is written: the sign, zeros up to the width, the
// digits (the width counts the sign).
class IntText {
  public:
    IntText(int value, int width) {
        negative_ = value < 0;
        magnitude_ = negative_ ? 0u - static_cast<uint32_t>(value) : static_cast<uint32_t>(value);
        digits_ = DecimalLength(magnitude_);
        length_ = std::max(digits_ + negative_, BoundedWidth(width));
    }
    size_t length() const { return length_; }
    // out holds length() '0' characters, which the padding keeps.
    void Write(char* out) const {
        WriteDecimal(out + length_, magnitude_);
        if (negative_) out[0] = '-';
    }

  private:
    bool negative_;
    uint32_t magnitude_;
    size_t digits_;
    size_t length_;
};

// A float's text, laid out before a byte is written: the sign, the integer digits padded to
// the width, the point, the rounded fraction. The rounding is settled first, since a carry
// can lengthen the integer digits.
class FloatText {
  public:
    FloatText(float value, int width, int precision) {
        if (std::isnan(value)) {
            literal_ = "nan";
        } else if (std::isinf(value)) {
            literal_ = value < 0 ? "-inf" : "inf";
        }
        if (literal_ != nullptr) {
            length_ = std::strlen(literal_);
            return;
        }
        negative_ = value < 0;  // -0.0 is not, and gets no sign
        fractionLength_ = BoundedWidth(precision);
        const float magnitude = std::fabs(value);
        if (magnitude >= 18446744073709551616.0f) {  // 2^64
            LayOutHuge(magnitude);
        } else {
            LayOut(magnitude);
        }
        padded_ = std::max(integerLength_, BoundedWidth(width));
        length_ = negative_ + padded_ + 1 + fractionLength_;
    }
    size_t length() const { return length_; }
    // out holds length() '0' characters, which the padding and a zero fraction keep.
    void Write(char* out) const;

  private:
    // Below 2^64: the integer part and the fraction rounded on their own.
    void LayOut(float magnitude) {
        integer_ = static_cast<uint64_t>(magnitude);
        const float fraction = magnitude - static_cast<float>(integer_);
        if (fractionLength_ <= kShortPrecision) {
            shortDigits_ = RoundFractionShort(fraction, fractionLength_);
            if (shortDigits_ == kPowersOfTen[fractionLength_]) {
                shortDigits_ = 0;
                ++integer_;
            }
        } else {
            // The digits themselves are written with the text.
            longFraction_ = true;
            fraction_ = fraction;
            if (FractionCarries(fraction, fractionLength_)) ++integer_;
        }
        integerLength_ = DecimalLength(integer_);
    }
    // 2^64 or more: every such float is whole, and printf gives its exact digits (at most
    // 39); the fraction is all zeros.
    void LayOutHuge(float magnitude) {
        const int n = std::snprintf(whole_, sizeof whole_, "%.0f", static_cast<double>(magnitude));
        integerLength_ = static_cast<size_t>(std::clamp(n, 1, static_cast<int>(sizeof whole_) - 1));
        huge_ = true;
    }

    const char* literal_ = nullptr;  // "nan", "inf" or "-inf", unpadded
    bool negative_ = false;
    bool huge_ = false;
    uint64_t integer_ = 0;
    size_t integerLength_ = 0;
    size_t padded_ = 0;  // the integer digits with the width's zeros
    size_t fractionLength_ = 0;
    uint64_t shortDigits_ = 0;   // the fraction's digits up to kShortPrecision of them
    bool longFraction_ = false;  // or more of them, from fraction_
    float fraction_ = 0.0f;
    char whole_[48];  // a huge float's digits
    size_t length_ = 0;
};

void FloatText::Write(char* out) const {
    if (literal_ != nullptr) {
        std::memcpy(out, literal_, length_);
        return;
    }
    char* point = out + negative_ + padded_;
    if (huge_) {
        std::memcpy(point - integerLength_, whole_, integerLength_);
    } else {
        WriteDecimal64(point, integer_);
    }
    if (negative_) out[0] = '-';
    *point = '.';
    char* end = point + 1 + fractionLength_;
    if (longFraction_) {
        RoundFractionLong(fraction_, fractionLength_, point + 1);
    } else if (shortDigits_ != 0) {
        WriteDecimal64(end, shortDigits_);  // leading zeros stay
    }
}

// A laid-out text as a string of its own, made at its final length and returned as made.
template <typename Text>
std::string TextOf(const Text& text) {
    std::string made(text.length(), '0');
    text.Write(&made[0]);
    return made;
}

}  // namespace

// The one reader of format texts: the numbers the formatters read, and the printf facts that
// check tells users about.
ParsedFormat ReadFormat(const std::string& text) {
    ParsedFormat parsed;
    parsed.text = text;
    parsed.numbers.read = ScanWidth(text.c_str(), parsed.numbers.width, &parsed.numbers.precision);
    size_t i = text.find('%');
    if (i == std::string::npos) return parsed;
    for (++i; i < text.size() && std::strchr("-+ #0", text[i]) != nullptr; ++i) {
        parsed.flags += text[i];
    }
    for (; i < text.size() && text[i] >= '0' && text[i] <= '9'; ++i) parsed.widthWritten = true;
    parsed.precisionWritten = i < text.size() && text[i] == '.';
    return parsed;
}

namespace {

// The width as a formatter reads it: an int's scan stops after it, so it is the same number
// whether or not a precision follows.
IntText IntTextOf(int value, const ParsedFormat& parsed) {
    return IntText(value, parsed.numbers.width);
}
FloatText FloatTextOf(float value, const ParsedFormat& parsed) {
    return FloatText(value, parsed.numbers.width,
                     parsed.numbers.read >= 2 ? parsed.numbers.precision : 0);
}

template <typename Text>
void Append(TextBuilder& out, const Text& text) {
    text.Write(out.Zeros(text.length()));
    out.Commit(text.length());
}

}  // namespace

void AppendInt(TextBuilder& out, int value, const ParsedFormat& parsed) {
    Append(out, IntTextOf(value, parsed));
}

void AppendFloat(TextBuilder& out, float value, const ParsedFormat& parsed) {
    Append(out, FloatTextOf(value, parsed));
}

std::string FormatInt(int value, const ParsedFormat& parsed) {
    return GuardedOr([&] { return TextOf(IntTextOf(value, parsed)); },
                     [] { return std::string(); });
}

std::string FormatFloat(float value, const ParsedFormat& parsed) {
    return GuardedOr([&] { return TextOf(FloatTextOf(value, parsed)); },
                     [] { return std::string(); });
}

// A formatter reads its format text once, for its one value.
std::string IntFormatter::format() {
    return GuardedOr([&] { return FormatInt(m_value, ReadFormat(m_strFormat)); },
                     [] { return std::string(); });
}

std::string FloatFormatter::format() {
    return GuardedOr([&] { return FormatFloat(m_value, ReadFormat(m_strFormat)); },
                     [] { return std::string(); });
}

std::string StringFormatter::format() {
    return GuardedOr([&] { return m_value; }, [] { return std::string(); });
}

// The same texts written straight into a larger one. Only memory can run out here (out's
// growth, or the buffer printf writes a tiny fraction's digits into), and that ends the
// caller's work rather than giving an empty text.
void IntFormatter::AppendTo(TextBuilder& out) const {
    AppendInt(out, m_value, ReadFormat(m_strFormat));
}

void FloatFormatter::AppendTo(TextBuilder& out) const {
    AppendFloat(out, m_value, ReadFormat(m_strFormat));
}

void StringFormatter::AppendTo(TextBuilder& out) const {
    out.Append(m_value);
}

void TextBuilder::Grow(size_t n) {
    text_.resize(std::max(2 * text_.size(), used_ + n + kBlock));
}
