// Replays inputs through a fuzz target's body and checks outside libFuzzer. CTest runs it in
// every build over every kept finding and every seed; scripts/coverage.sh over grown corpora.
//   fuzz_replay TARGET PATH...   TARGET: config, format, runs or json; PATH: a file or a folder
// Folders are read recursively (notes ending in .md and hidden files are no inputs). Exits 1
// when a check fails, naming each failing file, and 2 on bad usage, a missing path or no input
// at all. A sanitizer report ends the process as it would end the fuzzer.
#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "fuzz/config_entry.h"
#include "fuzz/format_entry.h"
#include "fuzz/fuzz_support.h"
#include "fuzz/json_entry.h"
#include "fuzz/runs_entry.h"

namespace fs = std::filesystem;

namespace {

bool IsInput(const fs::path& file) {
    return file.filename().string()[0] != '.' && file.extension() != ".md";
}

}  // namespace

int main(int argc, char** argv) {
    const std::string target = argc >= 2 ? argv[1] : "";
    void (*entry)(const uint8_t*, size_t) = target == "config"   ? fv2fuzz::RunConfigInput
                                            : target == "format" ? fv2fuzz::RunFormatInput
                                            : target == "runs"   ? fv2fuzz::RunRunsInput
                                            : target == "json"   ? fv2fuzz::RunJsonInput
                                                                 : nullptr;
    if (entry == nullptr || argc < 3) {
        std::fprintf(stderr, "usage: fuzz_replay config|format|runs|json PATH...\n");
        return 2;
    }
    std::vector<fs::path> files;
    for (int i = 2; i < argc; ++i) {
        if (!fs::exists(argv[i])) {
            std::fprintf(stderr, "fuzz_replay: %s: %s\n", argv[i], std::strerror(ENOENT));
            return 2;
        }
        if (!fs::is_directory(argv[i])) {
            files.emplace_back(argv[i]);
            continue;
        }
        for (const auto& e : fs::recursive_directory_iterator(argv[i])) {
            if (e.is_regular_file() && IsInput(e.path())) files.push_back(e.path());
        }
    }
    std::sort(files.begin(), files.end());
    if (files.empty()) {
        std::fprintf(stderr, "fuzz_replay: no inputs\n");
        return 2;
    }

    int failed = 0;
    for (const fs::path& file : files) {
        std::ifstream in(file, std::ios::binary);
        if (!in) {
            std::fprintf(stderr, "fuzz_replay: %s: cannot be read\n", file.c_str());
            return 2;
        }
        const std::vector<char> bytes{std::istreambuf_iterator<char>(in), {}};
        try {
            entry(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
        } catch (const fv2fuzz::CheckFailed& failure) {
            std::fprintf(stderr, "%s: %s\n", file.c_str(), failure.what());
            ++failed;
        }
    }
    std::printf("fuzz_replay %s: %zu inputs, %d failed\n", argv[1], files.size(), failed);
    return failed == 0 ? 0 : 1;
}
