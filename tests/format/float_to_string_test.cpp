// FloatToString against the C library's "%.*g" of the value widened to double: edge values at
// every kind of precision, exact ties, and a spread of float bit patterns.
#include <gtest/gtest.h>

#include <cfloat>
#include <climits>
#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "format/formatter.h"
#include "format/reference_formatter.h"

namespace {

float FromBits(uint32_t bits) {
    float f;
    std::memcpy(&f, &bits, sizeof f);
    return f;
}

// Precisions 1 to 9 round in the module's own code, larger ones go to the C library.
void ExpectPrintf(const std::vector<float>& values, const std::vector<int>& precisions) {
    for (float v : values) {
        for (int precision : precisions) {
            ASSERT_EQ(FloatToStringGeneral(v, precision), RefGeneralText(v, precision))
                << std::hexfloat << v << " at precision " << precision;
        }
    }
}

TEST(FloatToString, GivesTheDecidedTexts) {
    const struct {
        float value;
        const char* expected;
    } rows[] = {
        // clang-format off
        {12.5f, "12.5"}, {3.0f, "3"}, {0.1f, "0.1"}, {1234567.0f, "1.23457e+06"},
        {0.00001f, "1e-05"}, {0.0001f, "0.0001"}, {-2.0f, "-2"}, {0.0f, "0"}, {-0.0f, "-0"},
        {HUGE_VALF, "inf"}, {-HUGE_VALF, "-inf"}, {FLT_MAX, "3.40282e+38"},
        {FLT_TRUE_MIN, "1.4013e-45"}, {999999.5f, "1e+06"}, {123456.0f, "123456"},
        // Exact ties go to the even digit.
        {1234.125f, "1234.12"}, {1234.375f, "1234.38"}, {1000005.0f, "1e+06"},
        {1000015.0f, "1.00002e+06"}, {0.5f, "0.5"},
        // clang-format on
    };
    for (const auto& row : rows) EXPECT_EQ(FloatToStringGeneral(row.value, 6), row.expected);
}

TEST(FloatToString, EqualsPrintfOnEdges) {
    std::vector<float> values = {
        0.0f, HUGE_VALF, NAN, FLT_MAX, FLT_MIN, FLT_TRUE_MIN, std::nextafter(FLT_MIN, 0.0f)};
    for (int e = -46; e <= 39; ++e) {
        const float p = static_cast<float>(std::pow(10.0, e));
        values.insert(values.end(), {p, std::nextafter(p, 0.0f), std::nextafter(p, HUGE_VALF)});
    }
    for (int e = -149; e <= 127; ++e) values.push_back(std::ldexp(1.0f, e));
    for (size_t i = 0, n = values.size(); i < n; ++i) values.push_back(-values[i]);
    std::vector<int> precisions = {INT_MIN, -1, 0, 17, 112, 119, 120, 121, 400, INT_MAX};
    for (int precision = 1; precision <= 12; ++precision) precisions.push_back(precision);
    ExpectPrintf(values, precisions);
}

// A tie needs a short exact expansion: odd numbers scaled by powers of two (halves of the last
// digit kept below the point), and large integers odd * 5^t * 2^(t-1) (halves above it).
TEST(FloatToString, EqualsPrintfOnTies) {
    std::vector<float> values;
    for (uint32_t odd = 1; odd < (1u << 24); odd += odd / 4 * 2 + 2) {
        for (int e = -30; e <= 4; ++e) values.push_back(std::ldexp(static_cast<float>(odd), e));
        int t = 1;
        for (uint32_t pow5 = 5; odd * pow5 < (1u << 24); pow5 *= 5, ++t) {
            for (int e = -3; e <= 12; ++e) {
                values.push_back(std::ldexp(static_cast<float>(odd * pow5), e + t - 1));
            }
        }
    }
    ExpectPrintf(values, {1, 2, 3, 4, 5, 6, 7, 8, 9});
}

// Every 9973rd bit pattern at the callers' precision (every sign, exponent and mantissa bit
// varies), fewer at the others.
TEST(FloatToString, EqualsPrintfOnBitPatterns) {
    std::vector<float> values;
    for (uint64_t bits = 0; bits <= UINT32_MAX; bits += 9973) {
        values.push_back(FromBits(static_cast<uint32_t>(bits)));
    }
    ExpectPrintf(values, {6});
    std::vector<float> fewer;
    for (size_t i = 0; i < values.size(); i += 31) fewer.push_back(values[i]);
    ExpectPrintf(fewer, {-1, 0, 1, 2, 3, 4, 5, 7, 8, 9, 10, 17});
}

}  // namespace
