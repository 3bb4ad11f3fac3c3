// General-notation float text for the display texts: printf's "%.*g" of the value widened to
// double, byte for byte, without floating-point std::to_chars (which needs GCC 11's runtime).
//
// Precisions up to 9 (every caller passes 6) are rounded here: the value m * 2^e scaled to an
// integer of `precision` digits, q = m * 5^s * 2^(e+s) with s = precision - 1 - (decimal
// exponent), from a 24-bit by 64-bit product with a table of 5^s. For 0 <= s <= 27 the table
// entry is exact and so is everything after it, ties included. Otherwise the entry is 5^s
// rounded down and the product falls short of the true one by less than m < 2^24 units: the
// rounding is decided unless the fraction lies within that margin below one half, where an
// exact tie is recognised from m's factors. Anything else would go to snprintf, as larger
// precisions do; a run over every float found no such value at precisions 1 to 9. Only
// 32-bit multiplies, shifts and divisions by constants on the common path: a 64-bit division
// is a library call on 32-bit ARM.
#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "contract/guard.h"
#include "digits.h"
#include "format/formatter.h"

namespace {

using formatv2::kDigitPairs;

// The exact decimal value of any float has at most 112 significant digits (2^-149 has the
// most), and %g drops trailing zeros, so any larger precision gives the same text. Clamping
// keeps every text within a small stack buffer.
constexpr int kMaxUsefulPrecision = 120;

// q < 10^(precision + 1) must fit the product's top bits, and the digits a uint32_t.
constexpr int kMaxFastPrecision = 9;
constexpr uint32_t kPow10[kMaxFastPrecision + 1] = {
    1, 10, 100, 1000, 10000, 100000, 1000000, 10000000, 100000000, 1000000000};

// 5^s ~ mantissa * 2^exponent with the mantissa's top bit set, rounded down; exact says it
// is equal. s = precision - 1 - (decimal exponent) runs over 1 - 1 - 38 (FLT_MAX) to
// 9 - 1 + 45 (2^-149).
struct Pow5 {
    uint64_t mantissa;
    int exponent;
    bool exact;
};
constexpr int kMinPow5 = -38;
constexpr int kMaxPow5 = kMaxFastPrecision - 1 + 45;

// Built at compile time in 256 bits of 32-bit limbs: 5^s by repeated multiplication, 5^-t as
// 2^255 / 5^t by repeated division (floor(floor(a / 5) / 5) is floor(a / 25)).
constexpr Pow5 MakePow5(int s) {
    uint32_t limb[8] = {};
    limb[s >= 0 ? 0 : 7] = s >= 0 ? 1 : 0x80000000u;
    for (int i = 0; i < (s >= 0 ? s : -s); ++i) {
        uint64_t carry = 0;
        if (s >= 0) {
            for (int j = 0; j < 8; ++j) {
                carry += uint64_t{limb[j]} * 5;
                limb[j] = static_cast<uint32_t>(carry);
                carry >>= 32;
            }
        } else {
            for (int j = 7; j >= 0; --j) {
                carry = (carry << 32) | limb[j];
                limb[j] = static_cast<uint32_t>(carry / 5);
                carry %= 5;
            }
        }
    }
    int top = 255;  // the highest set bit
    while (!(limb[top / 32] >> (top % 32) & 1)) --top;
    Pow5 p{0, top - 63 - (s >= 0 ? 0 : 255), s >= 0};
    for (int bit = top; bit > top - 64; --bit) {
        const bool set = bit >= 0 && (limb[bit / 32] >> (bit % 32) & 1);
        p.mantissa = p.mantissa << 1 | (set ? 1 : 0);
    }
    for (int bit = top - 64; bit >= 0; --bit) {
        if (limb[bit / 32] >> (bit % 32) & 1) p.exact = false;
    }
    return p;
}

constexpr std::array<Pow5, kMaxPow5 - kMinPow5 + 1> MakePow5Table() {
    std::array<Pow5, kMaxPow5 - kMinPow5 + 1> table{};
    for (int s = kMinPow5; s <= kMaxPow5; ++s) table[s - kMinPow5] = MakePow5(s);
    return table;
}
constexpr auto kPow5 = MakePow5Table();
static_assert(kPow5[27 - kMinPow5].exact && !kPow5[28 - kMinPow5].exact);

// The value rounded to `precision` significant digits: digits * 10^(exponent - precision + 1)
// with 10^(precision-1) <= digits < 10^precision.
struct Rounded {
    uint32_t digits;
    int exponent;
};

// Whether m * 2^e * 10^s lies exactly halfway between two integers, for s < 0: with t = -s,
// that is m * 2^(e+1) = odd * 5^t * 2^t, so 5^t divides m (t <= 10, as m < 2^24) and leaves
// 2^(t-e-1) times an odd number.
bool IsTie(uint32_t m, int e, int s) {
    const int t = -s;
    if (t <= 0 || t > 10) return false;
    const Pow5& p = kPow5[static_cast<size_t>(t - kMinPow5)];  // exact for t <= 27
    const uint32_t pow5 = static_cast<uint32_t>(p.mantissa >> -p.exponent);
    if (m % pow5 != 0) return false;
    const int twos = t - e - 1;
    return twos >= 0 && twos < 32 && __builtin_ctz(m / pow5) == twos;
}

// Rounds m * 2^e (m in [2^23, 2^24)) half to even; false when the rounding is undecided.
bool RoundFast(uint32_t m, int e, int precision, Rounded& out) {
    // floor(log10(2) * E), exact for every float's binary exponent E; the decimal exponent is
    // this or one more.
    int k = ((e + 23) * 1233) >> 12;
    for (;;) {
        const int s = precision - 1 - k;
        const Pow5& p = kPow5[static_cast<size_t>(s - kMinPow5)];
        // m * mantissa = top * 2^32 + low (88 bits); q = that / 2^(shift + 32), shift in [21, 56].
        const uint64_t lowProduct = uint64_t{m} * static_cast<uint32_t>(p.mantissa);
        const uint64_t top =
            uint64_t{m} * static_cast<uint32_t>(p.mantissa >> 32) + (lowProduct >> 32);
        const uint32_t low = static_cast<uint32_t>(lowProduct);
        const int shift = -(p.exponent + e + s) - 32;
        const uint64_t q = top >> shift;
        if (q >= kPow10[precision]) {  // the decimal exponent is one more
            ++k;
            continue;
        }
        const uint64_t half = uint64_t{1} << (shift - 1);
        const uint64_t fraction = top & ((half << 1) - 1);
        bool up;
        if (p.exact) {
            up = fraction > half || (fraction == half && (low != 0 || (q & 1) != 0));
        } else {
            // 5^s rounded down: the true product is larger by 0 < d < m < 2^24 units of `low`.
            // From one half it rounds up (a carry past q rounds to the same q + 1); below,
            // down unless d can reach one half.
            up = fraction >= half;
            if (fraction == half - 1 && low > 0xFF000000u) {
                if (!IsTie(m, e, s)) return false;
                up = (q & 1) != 0;
            }
        }
        out.digits = static_cast<uint32_t>(q) + (up ? 1 : 0);
        out.exponent = k;
        if (out.digits == kPow10[precision]) {
            out.digits = kPow10[precision - 1];
            ++out.exponent;
        }
        return true;
    }
}

// The %g layout of the rounded digits: positional when -4 <= exponent < precision, else
// d.ddde+XX; trailing zeros and a trailing point go. Returns the end of the text, which
// needs 18 characters of room: the copies are of fixed size (a few moves, no call), and what
// they copy past the digits is cut or overwritten.
char* LayOut(const Rounded& r, int precision, char* out) {
    char digits[2 * kMaxFastPrecision] = {};
    uint32_t rest = r.digits;
    int left = precision;
    for (; left >= 2; left -= 2) {
        std::memcpy(digits + left - 2, &kDigitPairs[rest % 100 * 2], 2);
        rest /= 100;
    }
    if (left == 1) digits[0] = static_cast<char>('0' + rest);
    const int x = r.exponent;
    const bool scientific = x < -4 || x >= precision;
    const int whole = scientific ? 1 : x < 0 ? 0 : x + 1;  // digits before the point
    if (whole == 0) {                                      // "0." and -x - 1 zeros: at most three
        std::memcpy(out, "0.000", 5);
        out += 1 - x;
    }
    std::memcpy(out, digits, kMaxFastPrecision);
    char* end = out + precision;
    if (whole > 0 && whole < precision) {
        std::memcpy(out + whole + 1, digits + whole, kMaxFastPrecision - 1);
        out[whole] = '.';
        ++end;
    }
    if (whole < precision) {  // the text has a point
        while (end[-1] == '0') --end;
        if (end[-1] == '.') --end;
    }
    if (scientific) {
        const int magnitude = x < 0 ? -x : x;  // at most 45: two digits
        end[0] = 'e';
        end[1] = x < 0 ? '-' : '+';
        std::memcpy(end + 2, &kDigitPairs[magnitude * 2], 2);
        end += 4;
    }
    return end;
}

// Sign, at most 9 digits, a point and "e-45" make 15 characters, within the short-string
// buffer; the layout's fixed-size copies need room for 18 after the sign.
constexpr size_t kFastTextSize = 24;

// The text of any value at a precision of at most 9 (zero, infinities and NaN at any
// precision); 0 when that is not decided here.
size_t FastText(uint32_t bits, int precision, char* text) {
    char* out = text;
    if (bits >> 31) *out++ = '-';  // glibc signs NaN too
    uint32_t m = bits & 0x7FFFFFu;
    int e = static_cast<int>(bits >> 23 & 0xFF);
    if (e == 0xFF) {
        std::memcpy(out, m != 0 ? "nan" : "inf", 3);
        return static_cast<size_t>(out - text) + 3;
    }
    if (e == 0 && m == 0) {
        *out = '0';
        return static_cast<size_t>(out - text) + 1;
    }
    if (precision > kMaxFastPrecision) return 0;
    if (e == 0) {  // subnormal: normalise the mantissa
        const int lead = __builtin_clz(m) - 8;
        m <<= lead;
        e = 1 - lead;
    } else {
        m |= 0x800000u;
    }
    Rounded r{};
    if (!RoundFast(m, e - 150, precision, r)) return 0;
    return static_cast<size_t>(LayOut(r, precision, out) - text);
}

}  // namespace

std::string FloatToStringGeneral(float value, int precision) {
    if (precision < 0) precision = 6;
    precision = std::clamp(precision, 1, kMaxUsefulPrecision);
    uint32_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    char fast[kFastTextSize];
    const size_t length = FastText(bits, precision, fast);
    return GuardedOr(
        [&] {
            if (length != 0) return std::string(fast, length);
            // Large precisions and undecided roundings.
            char text[192];
            const int n =
                std::snprintf(text, sizeof text, "%.*g", precision, static_cast<double>(value));
            return std::string(
                text, static_cast<size_t>(std::clamp(n, 0, static_cast<int>(sizeof text) - 1)));
        },
        [] { return std::string(); });
}
