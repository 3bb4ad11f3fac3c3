#include <gtest/gtest.h>

#include <cfloat>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "format/formatter.h"
#include "format/reference_formatter.h"

namespace {

float FloatFromBits(uint32_t bits) {
    float f;
    std::memcpy(&f, &bits, sizeof f);
    return f;
}

struct Row {
    const char* kind;  // "int", "float" or "string"
    const char* format;
    double value;      // int and float rows
    const char* text;  // string rows: the value
    std::string expected;
};

TEST(Formatter, GivesTheDocumentedTexts) {
    const double nan = std::nan("");
    const double inf = HUGE_VAL;
    const std::vector<Row> rows = {
        {"int", "%5d", 42, "", "00042"},
        {"int", "%05d", 42, "", "00042"},
        {"int", "%2d", 12345, "", "12345"},
        {"int", "%d", 42, "", "42"},
        {"int", "", 42, "", "42"},
        {"int", "%-5d", 42, "", "42"},
        {"int", "%8x", 255, "", "00000255"},
        {"int", "%5", 7, "", "00007"},
        {"int", " % +3u", 7, "", "007"},  // blanks and a sign as sscanf takes them
        {"int", "5d", 7, "", "7"},        // no '%' first: no width
        {"int", "%4d", -5, "", "-005"},   // the sign leads and counts in the width
        {"int", "%12d", INT_MIN, "", "-02147483648"},
        {"float", "%8.3f", 3.14159, "", "00000003.142"},
        {"float", "%1.2f", -0.5, "", "-0.50"},
        {"float", "%3.1f", -12.3, "", "-012.3"},
        {"float", "%3.2f", 1234.5678, "", "1234.57"},
        {"float", "%.2f", 1.25, "", "1."},
        {"float", "%3.0f", 7.25, "", "007."},
        {"float", "%4.2f", 2.999, "", "0003.00"},
        {"float", "%3.0f", 7.6, "", "008."},
        {"float", "%2.3f", -0.0, "", "00.000"},
        {"float", "%1.1f", -0.01, "", "-0.0"},
        {"float", "%8f", 2.5, "", "00000002."},
        {"float", "%8.3", 2.5, "", "00000002.500"},
        {"float", "%1.2f", 0.125, "", "0.12"},  // a tie goes to the even digit
        {"float", "%1.2f", 0.375, "", "0.38"},
        {"float", "%1.0f", 8.5, "", "8."},  // the units digit of the fraction is 0
        {"float", "%1.3f", 16777216.0, "", "16777216.000"},
        {"float", "%5.-1f", 2.75, "", "00003."},  // a negative precision counts as 0
        {"float", "%1.1f", 1e20, "", "100000002004087734272.0"},
        {"float", "%1.1f", -3.4028234663852886e38, "",
         "-340282346638528859811704183484516925440.0"},
        {"float", "%5.2f", nan, "", "nan"},
        {"float", "%5.2f", inf, "", "inf"},
        {"float", "%5.2f", -inf, "", "-inf"},
        {"string", "%10s", 0, "ab", "ab"},
        {"string", "%s", 0, "", ""},
    };
    for (const Row& row : rows) {
        std::unique_ptr<CFormatter> formatter;
        if (std::string(row.kind) == "int") {
            formatter = createFormatter<int>(static_cast<int>(row.value), row.format, ";");
        } else if (std::string(row.kind) == "float") {
            formatter = createFormatter<float>(static_cast<float>(row.value), row.format, ";");
        } else {
            formatter = createFormatter<std::string>(row.text, row.format, ";");
        }
        EXPECT_EQ(formatter->format(), row.expected)
            << row.kind << " " << row.format << " " << row.value;
        EXPECT_EQ(formatter->m_strSeparator, ";");
    }
}

TEST(Formatter, BoundsHugeWidthsAndPrecisions) {
    EXPECT_EQ(IntFormatter(1, "%999999999d", "").format(), std::string(4095, '0') + "1");
    EXPECT_EQ(FloatFormatter(0.5f, "%1.2147483647f", "").format(), "0.5" + std::string(4095, '0'));
    EXPECT_EQ(FloatFormatter(-1.0f, "%4097.0f", "").format(), "-" + std::string(4095, '0') + "1.");
}

// Format texts built from the pieces sscanf cares about, with the odd cases made common.
std::string RandomFormat(std::mt19937& rng) {
    static const char* const kLead[] = {"", "", "", "", " ", "\t\n", "\v\f\r", "x"};
    static const char* const kNumber[] = {"",
                                          "0",
                                          "1",
                                          "3",
                                          "5",
                                          "8",
                                          "12",
                                          "05",
                                          "-6",
                                          "+4",
                                          "- 2",
                                          "+",
                                          "-",
                                          " 7",
                                          "4096",
                                          "4097",
                                          "9999",
                                          "2147483647",
                                          "2147483648",
                                          "4294967301",
                                          "99999999999",
                                          "-99999999999",
                                          "99999999999999999999999"};
    static const char* const kTail[] = {"", "d", "f", "x", "u", "s", "g"};
    auto pick = [&rng](const auto& list) {
        return std::string(list[rng() % (sizeof list / sizeof list[0])]);
    };
    std::string number = rng() % 3 != 0 ? std::to_string(rng() % 20) : pick(kNumber);
    std::string text = pick(kLead) + (rng() % 16 != 0 ? "%" : "") + number;
    if (rng() % 4 != 0)
        text += (rng() % 8 != 0 ? "." : " .") +
                (rng() % 3 != 0 ? std::to_string(rng() % 12) : pick(kNumber));
    return text + pick(kTail);
}

// Floats that reach every branch: any bit pattern, tenths, exact ties, near-carries,
// the 2^23/2^63/2^64 edges and the subnormals.
float RandomFloat(std::mt19937& rng) {
    const float sign = (rng() & 1) ? -1.0f : 1.0f;
    switch (rng() % 7) {
        case 0:
            return FloatFromBits(static_cast<uint32_t>(rng()));
        case 1:
            return sign * static_cast<float>(rng() % 2000000) / 1000.0f;
        case 2:
            return sign * std::ldexp(static_cast<float>(rng() % (1u << 20)),
                                     -static_cast<int>(rng() % 24));
        case 3:
            return sign * (static_cast<float>(rng() % 1000) + 1.0f -
                           std::ldexp(1.0f, -static_cast<int>(rng() % 20)));
        case 4: {
            const float edges[] = {8388608.0f, 9223372036854775808.0f, 18446744073709551616.0f,
                                   1.0f};
            float f = edges[rng() % 4];
            for (int steps = static_cast<int>(rng() % 5); steps > 0; --steps)
                f = std::nextafter(f, (rng() & 1) ? 0.0f : HUGE_VALF);
            return sign * f;
        }
        case 5:
            return sign * FloatFromBits(static_cast<uint32_t>(rng()) & 0x00FFFFFFu);
        default:
            return sign *
                   std::ldexp(static_cast<float>(rng() % 100000), -static_cast<int>(rng() % 40));
    }
}

TEST(Formatter, MatchesThePlainScanAndStreamTexts) {
    std::mt19937 rng(20240601);
    const int extremes[] = {INT_MIN, INT_MIN + 1, -1, 0, 1, INT_MAX};
    for (int i = 0; i < 100000; ++i) {
        const std::string format = RandomFormat(rng);
        const int value =
            i % 10 == 0 ? extremes[rng() % 6] : static_cast<int>(rng()) >> (rng() % 32);
        ASSERT_EQ(IntFormatter(value, format, "").format(),
                  RefIntFormatter(value, format, "").format())
            << "int " << value << " \"" << format << "\"";
    }
    for (int i = 0; i < 200000; ++i) {
        const std::string format = RandomFormat(rng);
        const float value = RandomFloat(rng);
        ASSERT_EQ(FloatFormatter(value, format, "").format(),
                  RefFloatFormatter(value, format, "").format())
            << "float " << std::hexfloat << value << " \"" << format << "\"";
    }
}

// Tiny fractions with many digits take the long-division fallback.
TEST(Formatter, MatchesThePlainTextsForTinyFractions) {
    std::mt19937 rng(7);
    for (int i = 0; i < 20000; ++i) {
        const float value = FloatFromBits(static_cast<uint32_t>(rng()) % 0x2D800000u);  // < 2^-36
        const std::string format = "%1." + std::to_string(8 + rng() % 160) + "f";
        ASSERT_EQ(FloatFormatter(value, format, "").format(),
                  RefFloatFormatter(value, format, "").format())
            << std::hexfloat << value << " " << format;
    }
}

// Formatter blocks are cached per thread: one thread's formatters may die in another, and
// every cache is handed back when its thread ends (the sanitizer build checks for leaks).
TEST(Formatter, LivesAndDiesOnAnyThread) {
    std::vector<std::unique_ptr<CFormatter>> made;
    std::thread maker([&made] {
        for (int i = 0; i < 10000; ++i) made.push_back(createFormatter<int>(i, "%3d", ","));
    });
    maker.join();
    std::thread user([&made] {
        for (int i = 0; i < 10000; ++i) {
            ASSERT_EQ(made[i]->format(), RefIntFormatter(i, "%3d", ",").format());
            made[i] = createFormatter<std::string>(std::string(40, 'x'), "%s", "");
        }
        made.clear();
    });
    user.join();
}

std::string Printf(float value, int precision) {
    char text[512];
    std::snprintf(text, sizeof text, "%.*g", precision, static_cast<double>(value));
    return text;
}

TEST(FloatToString, GivesGeneralNotation) {
    const std::pair<float, const char*> rows[] = {{12.5f, "12.5"},     {3.0f, "3"},
                                                  {0.1f, "0.1"},       {1234567.0f, "1.23457e+06"},
                                                  {0.00001f, "1e-05"}, {-2.0f, "-2"}};
    for (const auto& row : rows) EXPECT_EQ(FloatToStringGeneral(row.first, 6), row.second);
}

TEST(FloatToString, EqualsPrintfG6) {
    std::vector<float> values;
    std::mt19937 rng(99);
    for (int i = 0; i < 300000; ++i) values.push_back(FloatFromBits(static_cast<uint32_t>(rng())));
    for (uint32_t bits = 0; bits < 0x800000u; bits += 997) values.push_back(FloatFromBits(bits));
    for (int e = -46; e <= 39; ++e) {
        const float p = static_cast<float>(std::pow(10.0, e));
        values.insert(values.end(), {p, std::nextafter(p, 0.0f), std::nextafter(p, HUGE_VALF)});
    }
    // Odd mantissas scaled down end in a 5: exact ties at every digit position.
    for (int i = 0; i < 100000; ++i) {
        values.push_back(std::ldexp(static_cast<float>((rng() % (1u << 23)) | 1u),
                                    -static_cast<int>(rng() % 30)));
    }
    values.insert(values.end(), {FLT_MAX, FLT_MIN, FLT_TRUE_MIN, 0.0f, -0.0f, HUGE_VALF, -HUGE_VALF,
                                 std::numeric_limits<float>::quiet_NaN()});
    for (float v : values) {
        for (float x : {v, -v})
            ASSERT_EQ(FloatToStringGeneral(x, 6), Printf(x, 6)) << std::hexfloat << x;
    }
}

TEST(FloatToString, EqualsPrintfGForAnyPrecision) {
    std::mt19937 rng(5);
    for (int i = 0; i < 20000; ++i) {
        const float x = FloatFromBits(static_cast<uint32_t>(rng()));
        for (int precision : {-1, 0, 1, 2, 9, 17, 40, 112, 150, 400}) {
            ASSERT_EQ(FloatToStringGeneral(x, precision), Printf(x, precision))
                << std::hexfloat << x << " " << precision;
        }
    }
    EXPECT_EQ(FloatToStringGeneral(FLT_TRUE_MIN, INT_MAX), Printf(FLT_TRUE_MIN, 400));
}

}  // namespace
