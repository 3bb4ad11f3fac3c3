// General-notation float text for the display texts: printf's "%.*g" of the value widened to
// double, through std::to_chars, which gives the same characters several times faster.
#include <algorithm>
#include <charconv>
#include <cstdio>

#include "format/formatter.h"
#include "formatv2/formatv2.h"
#include "formatv2/guard.h"

namespace {

// The exact decimal value of any float has at most 112 significant digits (2^-149 has the
// most), and %g drops trailing zeros, so any larger precision gives the same text. Clamping
// keeps every text within a small stack buffer.
constexpr int kMaxUsefulPrecision = 120;

}  // namespace

std::string FloatToStringGeneral(float value, int precision) {
    if (precision < 0) precision = 6;
    precision = std::min(precision, kMaxUsefulPrecision);
    char text[192];
    const auto result = std::to_chars(text, text + sizeof text, static_cast<double>(value),
                                      std::chars_format::general, precision);
    std::string out;
    Guarded([&] {
        if (result.ec == std::errc()) {
            out.assign(text, result.ptr);
        } else {
            const int n =
                std::snprintf(text, sizeof text, "%.*g", precision, static_cast<double>(value));
            out.assign(text,
                       static_cast<size_t>(std::clamp(n, 0, static_cast<int>(sizeof text) - 1)));
        }
    });
    return out;
}

std::string CFormatV2Module::FloatToString(float value, int precision) {
    return FloatToStringGeneral(value, precision);
}
