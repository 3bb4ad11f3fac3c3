// The formatting rules written out the plain way: sscanf reads the numbers, a string stream
// per value builds the text, with this module's choices (sign before the fill, bounded
// widths, nan/inf, exact digits past 64 bits) added the obvious way. The differential tests
// and the fuzz target hold the real formatters to these texts; the benchmark times them as the
// plain peer.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <iomanip>
#include <sstream>
#include <string>

#include "format/formatter.h"

class RefIntFormatter : public CFormatter {
  public:
    RefIntFormatter(int value, const std::string& format, const std::string& separator)
        : CFormatter(format, separator), m_value(value) {}

    std::string format() override {
        int width = 0;
        std::sscanf(m_strFormat.c_str(), "%%%dd", &width);
        std::ostringstream out;
        out << std::setw(std::clamp(width, 0, kMaxFormatWidth)) << std::setfill('0')
            << std::internal << m_value;
        return out.str();
    }

    int m_value;
};

class RefFloatFormatter : public CFormatter {
  public:
    RefFloatFormatter(float value, const std::string& format, const std::string& separator)
        : CFormatter(format, separator), m_value(value) {}

    std::string format() override {
        int width = 0;
        int precision = 0;
        std::sscanf(m_strFormat.c_str(), "%%%d.%d", &width, &precision);
        if (std::isnan(m_value)) return "nan";
        if (std::isinf(m_value)) return m_value < 0 ? "-inf" : "inf";
        width = std::clamp(width, 0, kMaxFormatWidth);
        precision = std::clamp(precision, 0, kMaxFormatWidth);

        const float x = std::fabs(m_value);
        std::ostringstream integerText;
        integerText << std::setw(width) << std::setfill('0');
        std::string fractionDigits;
        if (x < 9223372036854775808.0f) {  // 2^63
            int64_t n = static_cast<int64_t>(x);
            const float f = x - static_cast<float>(n);
            std::ostringstream fractionText;
            fractionText << std::fixed << std::setprecision(precision) << static_cast<double>(f);
            const std::string text = fractionText.str();
            if (text[0] == '1') {
                ++n;
                fractionDigits.assign(static_cast<size_t>(precision), '0');
            } else if (precision > 0) {
                fractionDigits = text.substr(2);
            }
            integerText << n;
        } else {
            integerText << std::fixed << std::setprecision(0) << static_cast<double>(x);
            fractionDigits.assign(static_cast<size_t>(precision), '0');
        }
        return (m_value < 0 ? "-" : "") + integerText.str() + "." + fractionDigits;
    }

    float m_value;
};

// printf's "%.*g" of the value widened to double, which FloatToString must give. Precisions
// past the longest exact expansion of a float (112 digits) give the same text: 150 is plenty.
inline std::string RefGeneralText(float value, int precision) {
    char text[512];
    const int n = std::snprintf(text, sizeof text, "%.*g", std::min(precision, 150),
                                static_cast<double>(value));
    return std::string(text, static_cast<size_t>(std::clamp(n, 0, int{sizeof text} - 1)));
}
