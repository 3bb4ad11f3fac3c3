#include "fuzz/fuzz_support.h"

#include <stdlib.h>

#include <cstdio>
#include <filesystem>
#include <fstream>

#include "host/standin/standin.h"
#include "log/log.h"

namespace fv2fuzz {

namespace {

// Every line is formatted, so hostile texts reach the log formatting too, and dropped here.
int DiscardLine(int, int, int, const char*, int) {
    return 0;
}

void RemoveSandbox() {
    std::error_code ignored;
    std::filesystem::remove_all(SandboxRoot(), ignored);
}

// In memory when the system offers it: every input rewrites the configuration file, and
// a disk file system may start writing back each time a file is truncated and rewritten.
std::string MakeSandbox() {
    for (const char* base : {"/dev/shm", "/tmp"}) {
        std::string dir = std::string(base) + "/formatv2-fuzz.XXXXXX";
        if (mkdtemp(&dir[0]) == nullptr) continue;
        std::filesystem::create_directories(dir + kWorkDir);
        return dir;
    }
    Fail(__FILE__, __LINE__, "cannot create the sandbox directory");
}

}  // namespace

void Fail(const char* file, int line, const std::string& message) {
    throw CheckFailed(std::string(file) + ":" + std::to_string(line) + ": " + message);
}

const std::string& SandboxRoot() {
    static const std::string root = [] {
        std::string dir = MakeSandbox();
        // Logging is set up once per process, before the first module exists.
        log_prt_init(0, 0, nullptr);
        log_set_callbacker(LOG_LEVEL_INFO, DiscardLine);
        return dir;
    }();
    static const int registered = std::atexit(RemoveSandbox);
    (void)registered;
    return root;
}

void ResetHost() {
    const std::string& root = SandboxRoot();
    standin::Reset();
    standin::SetFsRoot(root);
    standin::DeclareParam("CommandFormatV2Ensure", PARAM_TYPE_STRING, {}, "");
}

void WriteDeviceFile(const std::string& path, const void* data, size_t size) {
    const std::string file = SandboxRoot() + path;
    std::remove(file.c_str());  // a new file rather than a truncated one
    std::ofstream out(file, std::ios::binary);
    out.write(static_cast<const char*>(data), static_cast<std::streamsize>(size));
    if (!out) Fail(__FILE__, __LINE__, "cannot write " + path + " in the sandbox");
}

void ModuleDeleter::operator()(CFormatV2Module* module) const {
    DestroyModule(nullptr, module);
}

ModulePtr PlacedModule() {
    ModulePtr module(static_cast<CFormatV2Module*>(CreateModule()));
    FV2_FUZZ_CHECK(module->SetPwd(kWorkDir) == 0, "SetPwd");
    return module;
}

std::string Hex(int status) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%x", static_cast<unsigned>(status));
    return text;
}

}  // namespace fv2fuzz
