// A module library that crashes (or, with FORMATV2_TEST_HANG set, hangs; set to "quiet", after
// closing its standard output and error; with FORMATV2_TEST_HOG set, takes memory until it
// gets none) as soon as the host creates it: what the preview server must survive.
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include <unistd.h>

extern "C" {
__attribute__((visibility("default"))) void* CreateModule() {
    if (const char* hang = std::getenv("FORMATV2_TEST_HANG")) {
        if (std::string(hang) == "quiet") {
            close(STDOUT_FILENO);
            close(STDERR_FILENO);
        }
        for (;;) pause();
    }
    if (std::getenv("FORMATV2_TEST_HOG") != nullptr) {
        // Up to 2 GiB in 16 MiB blocks, each touched so that it is really taken.
        std::vector<std::unique_ptr<char[]>> blocks;
        for (int i = 0; i < 128; ++i) {
            blocks.emplace_back(new char[16 << 20]);
            std::memset(blocks.back().get(), 1, 16 << 20);
        }
        return nullptr;
    }
    std::raise(SIGSEGV);
    return nullptr;
}
__attribute__((visibility("default"))) void DestroyModule(void*, void*) {}
__attribute__((visibility("default"))) int log_prt_init(int, unsigned, void*) {
    return 0;
}
__attribute__((visibility("default"))) void log_set_callbacker(int, void*) {}
}
