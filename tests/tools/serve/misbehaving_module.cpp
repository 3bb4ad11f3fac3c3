// A module library that crashes (or, with FORMATV2_TEST_HANG set, hangs) as soon as the host
// creates it: what the preview server must survive.
#include <csignal>
#include <cstdlib>

#include <unistd.h>

extern "C" {
__attribute__((visibility("default"))) void* CreateModule() {
    if (std::getenv("FORMATV2_TEST_HANG") != nullptr) {
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
