// What the fuzz targets share: a private file tree for the module's working directory, a
// stand-in host made fresh for every input, logging that formats every line and prints
// none, and the check that reports a broken expectation. A broken check throws CheckFailed:
// the fuzzers let it end the process (libFuzzer keeps the input as a crash, the message
// printed by std::terminate), the replay program reports it against the input's file.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>

#include "formatv2/formatv2.h"

namespace fv2fuzz {

struct CheckFailed : std::runtime_error {
    using std::runtime_error::runtime_error;
};
[[noreturn]] void Fail(const char* file, int line, const std::string& message);

#define FV2_FUZZ_CHECK(condition, message)                                               \
    do {                                                                                 \
        if (!(condition))                                                                \
            ::fv2fuzz::Fail(__FILE__, __LINE__, #condition ": " + std::string(message)); \
    } while (0)

// The process's sandbox: a temporary directory, removed at exit, whose "wd" folder is the
// module's working directory "/wd" (the stand-in host resolves absolute paths below it).
const std::string& SandboxRoot();
constexpr const char* kWorkDir = "/wd";
constexpr const char* kConfigPath = "/wd/algo_private.json";

// A fresh stand-in host: no forced failures, no recorded calls, no host publications, the
// sandbox as file root and "CommandFormatV2Ensure" declared (a text parameter).
void ResetHost();
// Writes bytes to a device path inside the sandbox, replacing the file.
void WriteDeviceFile(const std::string& path, const void* data, size_t size);

struct ModuleDeleter {
    void operator()(CFormatV2Module* module) const;
};
using ModulePtr = std::unique_ptr<CFormatV2Module, ModuleDeleter>;
// A module as the host makes it: CreateModule, then SetPwd("/wd").
ModulePtr PlacedModule();

// A float's bits and back: fuzz inputs carry floats as bits, so every float (NaN, infinities,
// subnormals) is reachable.
inline float FloatOf(uint32_t bits) {
    float value;
    std::memcpy(&value, &bits, sizeof value);
    return value;
}
inline uint32_t BitsOf(float value) {
    uint32_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    return bits;
}

// Text of a status for messages: "0x..." in hex.
std::string Hex(int status);

}  // namespace fv2fuzz
