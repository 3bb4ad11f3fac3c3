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

#include "formatv2/guard.h"

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
// read before the first mismatch stays in force.
void ScanWidth(const char* s, int& width, int* precision) {
    while (IsScanSpace(*s)) ++s;
    if (*s != '%') return;
    ++s;
    if (!ScanInt(s, width) || precision == nullptr || *s != '.') return;
    ++s;
    ScanInt(s, *precision);
}

// The numbers of the last format text a thread scanned, one memo for int formats and one for
// float formats: the cells of an array field share their format text, so most cells find
// their numbers here instead of scanning again. Plain data, so the thread-local storage needs
// no destructor (see the spare blocks below).
struct ScanMemo {
    char text[16];
    size_t length = sizeof text;  // no text memoised yet
    int width = 0;
    int precision = 0;
};
thread_local ScanMemo tIntScan, tFloatScan;

// A few bytes compared in line: a call to memcmp costs more than the comparison.
bool SameShort(const char* a, const char* b, size_t length) {
    for (size_t i = 0; i < length; ++i) {
        if (a[i] != b[i]) return false;
    }
    return true;
}

// ScanWidth, remembered in memo; format texts longer than the memo holds are always scanned.
__attribute__((noinline)) void ScanAndRemember(ScanMemo& memo, const std::string& format,
                                               int& width, int* precision) {
    ScanWidth(format.c_str(), width, precision);
    const size_t length = format.size();
    if (length < sizeof memo.text) {
        std::memcpy(memo.text, format.data(), length);
        memo.length = length;
        memo.width = width;
        memo.precision = precision != nullptr ? *precision : 0;
    }
}

// ScanWidth through the memo. The memo's answer is the common case and stays in line; a
// miss, once per field and run, goes out to the scan.
inline void ScanFormat(const std::string& format, int& width, int* precision) {
    ScanMemo& memo = precision == nullptr ? tIntScan : tFloatScan;
    const size_t length = format.size();
    if (length == memo.length && SameShort(format.data(), memo.text, length)) {
        width = memo.width;
        if (precision != nullptr) *precision = memo.precision;
        return;
    }
    ScanAndRemember(memo, format, width, precision);
}

size_t BoundedWidth(int width) {
    return static_cast<size_t>(std::clamp(width, 0, kFormatterMaxWidth));
}

constexpr uint64_t kPowersOfTen[] = {1,         10,         100,         1000,
                                     10000,     100000,     1000000,     10000000,
                                     100000000, 1000000000, 10000000000, 100000000000};
// Fractions rounded to at most this many digits take the one-multiplication path.
constexpr size_t kShortPrecision = 11;

size_t DecimalLength(uint64_t value) {
    size_t length = 1;
    for (uint64_t bound = 10; length < 20 && value >= bound; bound *= 10) ++length;
    return length;
}

// Writes value's digits so that they end just before end, two at a time. Values that fit 32
// bits stay in 32-bit arithmetic: 64-bit division is a library call on the 32-bit device.
template <typename Unsigned>
void WriteDecimal(char* end, Unsigned value) {
    static constexpr char kPairs[] =
        "00010203040506070809101112131415161718192021222324252627282930313233343536373839"
        "40414243444546474849505152535455565758596061626364656667686970717273747576777879"
        "8081828384858687888990919293949596979899";
    while (value >= 100) {
        const unsigned pair = static_cast<unsigned>(value % 100);
        value /= 100;
        end -= 2;
        end[0] = kPairs[2 * pair];
        end[1] = kPairs[2 * pair + 1];
    }
    if (value >= 10) {
        end[-2] = kPairs[2 * value];
        end[-1] = kPairs[2 * value + 1];
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

// length zeros: a short text is copied from a constant, which the compiler does in line,
// rather than filled by the library's out-of-line constructor.
std::string Zeros(size_t length) {
    static constexpr char kZeros[] = "000000000000000";  // as long as the in-place buffer
    return length < sizeof kZeros ? std::string(kZeros, length) : std::string(length, '0');
}

// Each text is made at its final length and returned as made (no assignment into an existing
// string, which goes through the library's general replace).
std::string FormatInt(int value, const std::string& format) {
    int width = 0;
    ScanFormat(format, width, nullptr);

    const bool negative = value < 0;
    const uint32_t magnitude =
        negative ? 0u - static_cast<uint32_t>(value) : static_cast<uint32_t>(value);
    const size_t length = std::max(DecimalLength(magnitude) + negative, BoundedWidth(width));
    std::string text = Zeros(length);
    WriteDecimal(&text[0] + length, magnitude);
    if (negative) text[0] = '-';
    return text;
}

// A float of 2^64 or more: every such float is whole, and printf gives its exact digits (at
// most 39).
std::string LayOutHugeFloat(bool negative, float magnitude, size_t widthLength,
                            size_t fractionLength) {
    char whole[48];
    const int n = std::snprintf(whole, sizeof whole, "%.0f", static_cast<double>(magnitude));
    const size_t wholeLength =
        static_cast<size_t>(std::clamp(n, 1, static_cast<int>(sizeof whole) - 1));
    const size_t padded = std::max(wholeLength, widthLength);
    std::string text(negative + padded + 1 + fractionLength, '0');
    if (negative) text[0] = '-';
    std::memcpy(&text[negative + padded - wholeLength], whole, wholeLength);
    text[negative + padded] = '.';
    return text;
}

// A float below 2^64: integer digits padded to the width, the point, the rounded fraction.
std::string LayOutFloat(bool negative, float magnitude, size_t widthLength, size_t fractionLength) {
    uint64_t integer = static_cast<uint64_t>(magnitude);
    const float fraction = magnitude - static_cast<float>(integer);
    // The rounding is settled before the text is laid out, since a carry can lengthen
    // the integer digits.
    uint64_t shortDigits = 0;
    std::string longDigits;
    if (fractionLength <= kShortPrecision) {
        shortDigits = RoundFractionShort(fraction, fractionLength);
        if (shortDigits == kPowersOfTen[fractionLength]) {
            shortDigits = 0;
            ++integer;
        }
    } else {
        longDigits.resize(fractionLength);
        if (RoundFractionLong(fraction, fractionLength, &longDigits[0])) ++integer;
    }

    const size_t padded = std::max(DecimalLength(integer), widthLength);
    std::string text = Zeros(negative + padded + 1 + fractionLength);
    if (negative) text[0] = '-';
    char* point = &text[negative + padded];
    WriteDecimal64(point, integer);
    *point = '.';
    if (!longDigits.empty()) {
        std::memcpy(point + 1, longDigits.data(), fractionLength);
    } else if (shortDigits != 0) {
        WriteDecimal64(point + 1 + fractionLength, shortDigits);  // leading zeros stay
    }
    return text;
}

// The layouts are functions of their own so that each returns one named text, which the
// compiler then builds in the caller's place instead of moving it out.
std::string FormatFloat(float value, const std::string& format) {
    if (std::isnan(value)) return "nan";
    if (std::isinf(value)) return value < 0 ? "-inf" : "inf";

    int width = 0;
    int precision = 0;
    ScanFormat(format, width, &precision);
    const bool negative = value < 0;  // -0.0 is not, and gets no sign
    const float magnitude = std::fabs(value);
    if (magnitude >= 18446744073709551616.0f) {  // 2^64
        return LayOutHugeFloat(negative, magnitude, BoundedWidth(width), BoundedWidth(precision));
    }
    return LayOutFloat(negative, magnitude, BoundedWidth(width), BoundedWidth(precision));
}

// Every formatter class fits one block (the largest, StringFormatter, is 104 bytes on a 64-bit
// ABI). The spare blocks are plain thread-local pointers on purpose: thread-local storage with
// a destructor registers that destructor with the runtime, which then keeps the whole library
// loaded until the thread ends, so a host's dlclose would unload nothing. A run holds at most
// two formatters at a time, so a few spare blocks are all the reuse there is.
constexpr std::size_t kBlockSize = 128;
constexpr unsigned kMaxSpareBlocks = 8;

struct FreeBlock {
    FreeBlock* next;
};

thread_local FreeBlock* tSpare = nullptr;
thread_local unsigned tSpareCount = 0;
thread_local unsigned tScopes = 0;  // FormatterBlockScope objects alive on the thread

}  // namespace

void* CFormatter::operator new(std::size_t size) {
    if (size > kBlockSize) return ::operator new(size);
    if (tSpare == nullptr) return ::operator new(kBlockSize);
    FreeBlock* block = tSpare;
    tSpare = block->next;
    --tSpareCount;
    return block;
}

void CFormatter::operator delete(void* block, std::size_t size) noexcept {
    if (size > kBlockSize || tScopes == 0 || tSpareCount >= kMaxSpareBlocks) {
        ::operator delete(block);
        return;
    }
    FreeBlock* spare = static_cast<FreeBlock*>(block);
    spare->next = tSpare;
    tSpare = spare;
    ++tSpareCount;
}

FormatterBlockScope::FormatterBlockScope() noexcept {
    ++tScopes;
}

FormatterBlockScope::~FormatterBlockScope() {
    if (--tScopes != 0) return;
    while (tSpare != nullptr) {
        FreeBlock* block = tSpare;
        tSpare = block->next;
        ::operator delete(block);
    }
    tSpareCount = 0;
}

// format() never fails: memory exhausted while building a text gives "".
std::string IntFormatter::format() {
    return GuardedOr([&] { return FormatInt(m_value, m_strFormat); }, [] { return std::string(); });
}

std::string FloatFormatter::format() {
    return GuardedOr([&] { return FormatFloat(m_value, m_strFormat); },
                     [] { return std::string(); });
}

std::string StringFormatter::format() {
    return GuardedOr([&] { return m_value; }, [] { return std::string(); });
}
