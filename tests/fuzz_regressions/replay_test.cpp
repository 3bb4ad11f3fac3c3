// Replays the inputs kept for the fuzz targets: what a target once failed on must keep
// passing its checks, and so must every seed. A broken check becomes a test failure naming
// the file; a sanitizer report or a crash ends the test binary (in the sanitizer builds).
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

#include "fuzz/config_entry.h"
#include "fuzz/format_entry.h"
#include "fuzz/fuzz_support.h"
#include "fuzz/runs_entry.h"

namespace fs = std::filesystem;

namespace {

struct CheckFailed : std::runtime_error {
    using std::runtime_error::runtime_error;
};

[[noreturn]] void ThrowCheck(const std::string& message) {
    throw CheckFailed(message);
}

// The inputs of a folder in name order (notes such as README.md are not inputs).
std::vector<fs::path> Inputs(const fs::path& folder) {
    std::vector<fs::path> files;
    if (!fs::is_directory(folder)) return files;
    for (const auto& entry : fs::directory_iterator(folder)) {
        const std::string name = entry.path().filename().string();
        if (entry.is_regular_file() && name[0] != '.' && entry.path().extension() != ".md") {
            files.push_back(entry.path());
        }
    }
    std::sort(files.begin(), files.end());
    return files;
}

// Runs entry on every regression input and every seed of target; returns the seed count.
size_t Replay(const std::string& target, void (*entry)(const uint8_t*, size_t)) {
    fv2fuzz::SetFailHandler(ThrowCheck);
    const fs::path root = FORMATV2_FUZZ_DIR;
    size_t seeds = 0;
    for (const fs::path& folder : {root / "regressions" / target, root / "corpus" / target}) {
        for (const fs::path& file : Inputs(folder)) {
            std::ifstream in(file, std::ios::binary);
            const std::vector<char> bytes{std::istreambuf_iterator<char>(in),
                                          std::istreambuf_iterator<char>()};
            try {
                entry(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
            } catch (const CheckFailed& failure) {
                ADD_FAILURE() << file.string() << ": " << failure.what();
            }
            if (folder.filename() == target && folder.parent_path().filename() == "corpus") {
                ++seeds;
            }
        }
    }
    return seeds;
}

// Each target's seed corpus is far larger than this; fewer means the folders were not found.
constexpr size_t kMinimumSeeds = 10;

TEST(FuzzRegressions, ConfigurationReader) {
    EXPECT_GE(Replay("config", fv2fuzz::RunConfigInput), kMinimumSeeds);
}

TEST(FuzzRegressions, FormattersAndConversion) {
    EXPECT_GE(Replay("format", fv2fuzz::RunFormatInput), kMinimumSeeds);
}

TEST(FuzzRegressions, WholeRuns) {
    EXPECT_GE(Replay("runs", fv2fuzz::RunRunsInput), kMinimumSeeds);
}

}  // namespace
