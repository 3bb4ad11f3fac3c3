// Replays fuzz inputs through a target's body outside libFuzzer: in the gcc and coverage
// builds, under a debugger, or over a corpus grown by long fuzz runs.
//   fuzz_replay TARGET PATH...    TARGET: config, format or runs; PATH: input files or folders
// Exits 1 when a check fails (each failing file is named), 2 on bad usage; a sanitizer
// report ends the process as it would end the fuzzer.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
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

}  // namespace

int main(int argc, char** argv) {
    void (*entry)(const uint8_t*, size_t) = nullptr;
    if (argc >= 2 && std::strcmp(argv[1], "config") == 0) entry = fv2fuzz::RunConfigInput;
    if (argc >= 2 && std::strcmp(argv[1], "format") == 0) entry = fv2fuzz::RunFormatInput;
    if (argc >= 2 && std::strcmp(argv[1], "runs") == 0) entry = fv2fuzz::RunRunsInput;
    if (entry == nullptr || argc < 3) {
        std::fprintf(stderr, "usage: fuzz_replay config|format|runs PATH...\n");
        return 2;
    }

    std::vector<fs::path> files;
    for (int i = 2; i < argc; ++i) {
        if (fs::is_directory(argv[i])) {
            for (const auto& e : fs::directory_iterator(argv[i])) {
                if (e.is_regular_file()) files.push_back(e.path());
            }
        } else {
            files.emplace_back(argv[i]);
        }
    }
    std::sort(files.begin(), files.end());

    fv2fuzz::SetFailHandler(ThrowCheck);
    int failed = 0;
    for (const fs::path& file : files) {
        std::ifstream in(file, std::ios::binary);
        if (!in) {
            std::fprintf(stderr, "%s: cannot be read\n", file.c_str());
            return 2;
        }
        const std::vector<char> bytes{std::istreambuf_iterator<char>(in),
                                      std::istreambuf_iterator<char>()};
        try {
            entry(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
        } catch (const CheckFailed& failure) {
            std::fprintf(stderr, "%s: %s\n", file.c_str(), failure.what());
            ++failed;
        }
    }
    std::printf("fuzz_replay %s: %zu inputs, %d failed\n", argv[1], files.size(), failed);
    return failed == 0 ? 0 : 1;
}
