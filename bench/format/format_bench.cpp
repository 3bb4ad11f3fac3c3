// The array workload: 1000 rows of two "%5d" int fields and two "%8.3f" float fields, laid
// out by the module's own array assembly (ArrayText, which a run calls once its field lists
// are read): one formatter per cell, made on the stack and written in turn. Peers producing the
// same text: the plain sscanf-and-stream formatters (one std::ostringstream per cell, the text
// joined from format() and the separators) and {fmt}'s runtime API writing every cell into one
// buffer. FloatToString is timed against snprintf("%.6g") and std::to_chars(general, 6)
// (libstdc++'s Ryu-based conversion), each making a std::string. Every text is checked against the
// module's before anything is timed.
#include <benchmark/benchmark.h>
#include <fmt/format.h>

#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "assembly/assembly.h"
#include "format/formatter.h"
#include "format/reference_formatter.h"

namespace {

constexpr int kRows = 1000;
constexpr int kFields = 4;
constexpr int kCells = kRows * kFields;

struct Field {
    bool isInt;
    std::string format;     // printf-like text, as configured
    std::string separator;  // after each of the field's cells
};

const std::vector<Field>& Fields() {
    static const std::vector<Field> fields = {
        {true, "%5d", ","}, {true, "%5d", ";"}, {false, "%8.3f", ","}, {false, "%8.3f", ";"}};
    return fields;
}

// Deterministic values, a third of them negative; some ints wider than 5 digits.
struct Values {
    std::vector<int> ints;      // row-major, fields 0 and 1
    std::vector<float> floats;  // row-major, fields 2 and 3
};

const Values& TheValues() {
    static const Values values = [] {
        Values v;
        std::mt19937 rng(12345);
        for (int i = 0; i < kRows * 2; ++i) {
            const int sign = rng() % 3 == 0 ? -1 : 1;
            v.ints.push_back(sign * static_cast<int>(rng() % (i % 10 == 0 ? 10000000 : 100000)));
            // Never -0.0, which {fmt} signs and the formatter does not.
            v.floats.push_back(static_cast<float>(sign) * static_cast<float>(rng() % 1000000 + 1) /
                               static_cast<float>(1 << (rng() % 12)));
        }
        return v;
    }();
    return values;
}

// The plain stream formatters, one per cell, row by row; then format() and the separators.
std::string BuildWithStreams() {
    const auto& fields = Fields();
    const Values& values = TheValues();
    static const std::string kNoSeparator;
    std::vector<std::unique_ptr<CFormatter>> cells;
    cells.reserve(kCells);
    for (int r = 0; r < kRows; ++r) {
        for (int j = 0; j < kFields; ++j) {
            const Field& field = fields[j];
            const bool last = r == kRows - 1 && j == kFields - 1;
            const std::string& separator = last ? kNoSeparator : field.separator;
            if (field.isInt) {
                cells.push_back(std::make_unique<RefIntFormatter>(values.ints[r * 2 + j],
                                                                  field.format, separator));
            } else {
                cells.push_back(std::make_unique<RefFloatFormatter>(values.floats[r * 2 + j - 2],
                                                                    field.format, separator));
            }
        }
    }
    std::string text;
    for (const auto& cell : cells) {
        text += cell->format();
        text += cell->m_strSeparator;
    }
    return text;
}

// The module's input: the item's fields and their lists, as a run holds them once read.
struct ModuleInput {
    std::vector<DataField> fields;
    std::vector<Any> lists;
};

const ModuleInput& TheModuleInput() {
    static const ModuleInput input = [] {
        ModuleInput in;
        const Values& values = TheValues();
        for (int j = 0; j < kFields; ++j) {
            const Field& field = Fields()[j];
            in.fields.emplace_back();
            in.fields.back().SubParam.type = field.format;
            in.fields.back().Separator = field.separator;
            IntList ints;
            FloatList floats;
            for (int r = 0; r < kRows; ++r) {
                if (field.isInt) {
                    ints.push_back(values.ints[r * 2 + j]);
                } else {
                    floats.push_back(values.floats[r * 2 + j - 2]);
                }
            }
            if (field.isInt) {
                in.lists.emplace_back(std::move(ints));
            } else {
                in.lists.emplace_back(std::move(floats));
            }
        }
        return in;
    }();
    return input;
}

// The module's array assembly, as a run calls it.
std::string BuildWithModule() {
    const ModuleInput& in = TheModuleInput();
    return formatv2::ArrayText(in.fields, in.lists, kRows);
}

// {fmt} with the equivalent runtime format texts: "%5d" is "{:05d}"; "%8.3f" counts integer
// digits only, so its {fmt} width is 8 + 1 + 3, one more for a sign.
std::string BuildWithFmt() {
    const auto& fields = Fields();
    const Values& values = TheValues();
    const std::string intSpec = "{:05d}";
    const std::string floatSpec = "{:0{}.3f}";
    fmt::memory_buffer out;
    for (int r = 0; r < kRows; ++r) {
        for (int j = 0; j < kFields; ++j) {
            const Field& field = fields[j];
            if (field.isInt) {
                fmt::format_to(std::back_inserter(out), fmt::runtime(intSpec),
                               values.ints[r * 2 + j]);
            } else {
                const float v = values.floats[r * 2 + j - 2];
                fmt::format_to(std::back_inserter(out), fmt::runtime(floatSpec), v,
                               v < 0 ? 13 : 12);
            }
            if (r != kRows - 1 || j != kFields - 1) out.append(field.separator);
        }
    }
    return fmt::to_string(out);
}

void SetPerCell(benchmark::State& state, int perIteration) {
    state.counters["per_item"] = benchmark::Counter(
        perIteration, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void BM_ArrayModule(benchmark::State& state) {
    for (auto _ : state) {
        benchmark::DoNotOptimize(BuildWithModule());
    }
    SetPerCell(state, kCells);
}
BENCHMARK(BM_ArrayModule);

void BM_ArrayStringStream(benchmark::State& state) {
    for (auto _ : state) {
        benchmark::DoNotOptimize(BuildWithStreams());
    }
    SetPerCell(state, kCells);
}
BENCHMARK(BM_ArrayStringStream);

void BM_ArrayFmt(benchmark::State& state) {
    for (auto _ : state) benchmark::DoNotOptimize(BuildWithFmt());
    SetPerCell(state, kCells);
}
BENCHMARK(BM_ArrayFmt);

// General-notation float texts: any magnitude, the exponent form included.
const std::vector<float>& GeneralValues() {
    static const std::vector<float> values = [] {
        std::vector<float> v;
        std::mt19937 rng(777);
        for (int i = 0; i < 1000; ++i) {
            const float mantissa = static_cast<float>(rng() % 2000001) / 1000.0f - 1000.0f;
            v.push_back(std::ldexp(mantissa, static_cast<int>(rng() % 60) - 30));
        }
        return v;
    }();
    return values;
}

std::string Printf6(float value) {
    char text[64];
    const int n = std::snprintf(text, sizeof text, "%.6g", static_cast<double>(value));
    return std::string(text, static_cast<size_t>(n));
}

std::string ToChars6(float value) {
    char text[64];
    const auto result = std::to_chars(text, text + sizeof text, static_cast<double>(value),
                                      std::chars_format::general, 6);
    return std::string(text, result.ptr);
}

void BM_FloatToString(benchmark::State& state) {
    for (auto _ : state) {
        for (float v : GeneralValues()) benchmark::DoNotOptimize(FloatToStringGeneral(v, 6));
    }
    SetPerCell(state, static_cast<int>(GeneralValues().size()));
}
BENCHMARK(BM_FloatToString);

void BM_SnprintfG6(benchmark::State& state) {
    for (auto _ : state) {
        for (float v : GeneralValues()) benchmark::DoNotOptimize(Printf6(v));
    }
    SetPerCell(state, static_cast<int>(GeneralValues().size()));
}
BENCHMARK(BM_SnprintfG6);

void BM_ToCharsG6(benchmark::State& state) {
    for (auto _ : state) {
        for (float v : GeneralValues()) benchmark::DoNotOptimize(ToChars6(v));
    }
    SetPerCell(state, static_cast<int>(GeneralValues().size()));
}
BENCHMARK(BM_ToCharsG6);

void RequireSame(const std::string& what, const std::string& expected, const std::string& got) {
    if (expected == got) return;
    size_t at = 0;
    while (at < expected.size() && at < got.size() && expected[at] == got[at]) ++at;
    std::fprintf(stderr, "%s differs from the module's text at %zu: \"%s\" vs \"%s\"\n",
                 what.c_str(), at, expected.substr(at, 40).c_str(), got.substr(at, 40).c_str());
    std::abort();
}

}  // namespace

int main(int argc, char** argv) {
    const std::string module = BuildWithModule();
    RequireSame("plain stream peer", module, BuildWithStreams());
    RequireSame("{fmt} peer", module, BuildWithFmt());
    for (float v : GeneralValues()) {
        RequireSame("FloatToString", Printf6(v), FloatToStringGeneral(v, 6));
        RequireSame("to_chars", Printf6(v), ToChars6(v));
    }
    std::printf("workload text: %zu characters, begins \"%s\"\n", module.size(),
                module.substr(0, 60).c_str());

    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
