// A module library that crashes (or, with FORMATV2_TEST_HANG set, hangs; set to "quiet", after
// closing its standard output and error) as soon as the host creates it: what the preview
// server must survive.
#include <csignal>
#include <cstdlib>
#include <string>

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
    std::raise(SIGSEGV);
    return nullptr;
}
__attribute__((visibility("default"))) void DestroyModule(void*, void*) {}
__attribute__((visibility("default"))) int log_prt_init(int, unsigned, void*) {
    return 0;
}
__attribute__((visibility("default"))) void log_set_callbacker(int, void*) {}
}
