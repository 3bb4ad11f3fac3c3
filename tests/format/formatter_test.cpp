#include <gtest/gtest.h>

#include <cfloat>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <new>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "format/formatter.h"
#include "format/reference_formatter.h"
#include "support/alloc_counter.h"

namespace {

float FromBits(uint32_t bits) {
    float f;
    std::memcpy(&f, &bits, sizeof f);
    return f;
}

TEST(Formatter, GivesTheDecidedTexts) {
    const std::string zeros(4095, '0');
    const struct {
        char kind;  // 'i' int, 'f' float
        const char* format;
        double value;
        std::string expected;
    } rows[] = {
        // Width only, always filled with '0'; blanks and a sign are read as sscanf reads them.
        {'i', "%5d", 42, "00042"},
        {'i', "%2d", 12345, "12345"},
        {'i', "", 42, "42"},
        {'i', "%-5d", 42, "42"},
        {'i', "%8x", 255, "00000255"},
        {'i', " % +3u", 7, "007"},
        {'i', "5d", 7, "7"},
        // A negative int: the sign leads and counts in the width.
        {'i', "%4d", -5, "-005"},
        {'i', "%12d", INT_MIN, "-02147483648"},
        // Floats: width of the integer part, precision rounded half to even, carries.
        {'f', "%8.3f", 3.14159, "00000003.142"},
        {'f', "%1.2f", -0.5, "-0.50"},
        {'f', "%3.1f", -12.3, "-012.3"},
        {'f', "%.2f", 1.25, "1."},
        {'f', "%8.3", 2.5, "00000002.500"},
        {'f', "%4.2f", 2.999, "0003.00"},
        {'f', "%3.0f", 7.6, "008."},
        {'f', "%2.3f", -0.0, "00.000"},
        {'f', "%1.1f", -0.01, "-0.0"},
        {'f', "%1.2f", 0.125, "0.12"},
        {'f', "%1.2f", 0.375, "0.38"},
        {'f', "%1.0f", 8.5, "8."},
        {'f', "%1.13f", 0.5, "0.5000000000000"},
        {'f', "%5.-1f", 2.75, "00003."},  // a negative precision counts as 0
        // nan and infinities unpadded; beyond 2^64 the exact whole digits.
        {'f', "%5.2f", NAN, "nan"},
        {'f', "%5.2f", INFINITY, "inf"},
        {'f', "%5.2f", -INFINITY, "-inf"},
        {'f', "%1.1f", 1e20, "100000002004087734272.0"},
        {'f', "%1.1f", -FLT_MAX, "-340282346638528859811704183484516925440.0"},
        {'f', "%24.0f", 1e20, "000100000002004087734272."},
        // Widths and precisions are bounded at 4096.
        {'i', "%999999999d", 1, zeros + "1"},
        {'f', "%1.2147483647f", 0.5, "0.5" + zeros},
        {'f', "%4097.0f", -1, "-" + zeros + "1."},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(row.kind == 'i' ? IntFormatter(row.value, row.format, "").format()
                                  : FloatFormatter(row.value, row.format, "").format(),
                  row.expected)
            << row.format;
    }
    StringFormatter text("ab", "%10s", ";");
    EXPECT_EQ(text.format() + text.m_strSeparator, "ab;");
}

// One of the '|'-separated pieces of list, picked at random.
std::string Pick(std::mt19937& rng, const std::string& list) {
    std::vector<std::string> pieces;
    std::istringstream all(list + "|");
    for (std::string piece; std::getline(all, piece, '|');) pieces.push_back(piece);
    return pieces[rng() % pieces.size()];
}

// Format texts from the pieces sscanf cares about, with the odd cases made common.
std::string RandomFormat(std::mt19937& rng) {
    const auto number = [&rng] {
        return rng() % 3 ? std::to_string(rng() % 20)
                         : Pick(rng,
                                "|0|05|-6|+4|- 2|+|-| 7|4096|4097|2147483647|2147483648|"
                                "4294967301|99999999999|-99999999999|99999999999999999999999|"
                                "-99999999999999999999999");
    };
    std::string text = Pick(rng, "||| |\t\n|\v\f\r|x") + (rng() % 16 ? "%" : "") + number();
    if (rng() % 4) text += (rng() % 8 ? "." : " .") + number();
    return text + Pick(rng, "|d|f|x|s");
}

// Any bit pattern or subnormal, the 2^23/2^63/2^64 edges, decimals, exact ties, near-carries.
float RandomFloat(std::mt19937& rng) {
    const auto below = [&rng](uint32_t bound) { return static_cast<float>(rng() % bound); };
    const float tie = std::ldexp(1.0f, -static_cast<int>(rng() % 40)),
                edges[] = {0x1p23f, 0x1p63f, 0x1p64f, 1};
    float edge = edges[rng() % 4];
    for (int steps = static_cast<int>(rng() % 5); steps > 0; --steps)
        edge = std::nextafter(edge, rng() & 1 ? 0.0f : HUGE_VALF);
    const float picks[] = {FromBits(static_cast<uint32_t>(rng()) >> (rng() % 2 * 8)), edge,
                           below(2000000) / 1000, below(100000) * tie, below(1000) + 1 - tie};
    return (rng() & 1 ? -1.0f : 1.0f) * picks[rng() % 5];
}

TEST(Formatter, MatchesThePlainScanAndStreamTexts) {
    std::mt19937 rng(20240601);
    const int extremes[] = {INT_MIN, INT_MIN + 1, -1, 0, 1, INT_MAX};
    for (int i = 0; i < 100000; ++i) {
        const std::string format = RandomFormat(rng);
        const int value = i % 10 ? static_cast<int>(rng()) >> (rng() % 32) : extremes[rng() % 6];
        ASSERT_EQ(IntFormatter(value, format, "").format(),
                  RefIntFormatter(value, format, "").format())
            << value << " \"" << format << "\"";
    }
    for (int i = 0; i < 220000; ++i) {
        std::string format = RandomFormat(rng);
        float value = RandomFloat(rng);
        if (i % 10 == 0) {  // tiny fractions with many digits
            value = FromBits(static_cast<uint32_t>(rng()) % 0x2D800000u);
            format = "%1." + std::to_string(8 + rng() % 160) + "f";
        }
        ASSERT_EQ(FloatFormatter(value, format, "").format(),
                  RefFloatFormatter(value, format, "").format())
            << std::hexfloat << value << " \"" << format << "\"";
    }
}

// Freed formatter blocks are kept for reuse only while a FormatterBlockScope lives on the
// thread, at most 8 of them, and go back to the heap when the outermost scope ends.
TEST(Formatter, BlocksAreReusedWithinAScopeUpToTheCap) {
    // Makes n formatters at once and drops them, twice; the heap blocks the second round took.
    // The texts are made once: with the old string ABI every new text is a heap block, while
    // copies of it share that block.
    const std::string format = "%d", none;
    const auto fromHeap = [&](int n) {
        std::vector<std::unique_ptr<CFormatter>> made;
        made.reserve(static_cast<size_t>(n));
        const long before = fv2test::AllocationCount();
        for (int i = 0; i < n; ++i) made.push_back(createFormatter<int>(i, format, none));
        return fv2test::AllocationCount() - before;
    };
    const auto secondRound = [&](int n) {
        fromHeap(n);
        return fromHeap(n);
    };
    EXPECT_EQ(secondRound(3), 3);  // no scope: every formatter from the heap
    {
        const FormatterBlockScope run;
        EXPECT_EQ(secondRound(3), 0);
        EXPECT_EQ(secondRound(12), 4);  // eight were kept
        { const FormatterBlockScope nested; }
        EXPECT_EQ(fromHeap(8), 0);  // the nested scope's end handed none of the eight back
    }
    EXPECT_EQ(secondRound(3), 3);  // the outermost scope's end emptied the spares
}

// Whatever was written before, Room(n) leaves n bytes and a block more writable behind them
// (Zeros fills whole blocks), and Take gives exactly what was committed. A builder's string
// is allocated to its size here, so in the sanitizer build a write past the room is a heap
// overflow.
TEST(Formatter, TextBuilderKeepsABlockOfRoomBehind) {
    for (size_t start : {0, 15, 16, 31, 32, 47, 64}) {
        for (size_t before = 0; before < 48; ++before) {
            for (size_t n = 1; n <= 33; ++n) {
                TextBuilder text(start);
                std::string expected;
                std::memset(text.Room(before), 'a', before + 16);
                text.Commit(before);
                expected.append(before, 'a');
                std::memset(text.Zeros(n) + n, 'b', 16);
                text.Commit(n);
                expected.append(n, '0');
                const std::string piece(n % 17, 'c');
                text.Append(piece);
                expected += piece;
                ASSERT_EQ(text.Take(), expected) << start << " " << before << " " << n;
            }
        }
    }
}

// Formatters made outside a scope, as here, live on the heap: one thread's may die in another
// (the sanitizer build checks for leaks).
TEST(Formatter, LivesAndDiesOnAnyThread) {
    std::vector<std::unique_ptr<CFormatter>> made;
    std::thread([&made] {
        for (int i = 0; i < 10000; ++i) made.push_back(createFormatter<int>(i, "%3d", ","));
    }).join();
    std::thread([&made] {
        for (int i = 0; i < 10000; ++i) {
            EXPECT_EQ(made[i]->format(), RefIntFormatter(i, "%3d", ",").format());
            made[i] = createFormatter<std::string>(std::string(40, 'x'), "%s", "");
        }
        made.clear();
    }).join();
}

}  // namespace
