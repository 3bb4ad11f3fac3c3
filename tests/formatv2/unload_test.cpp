// A host that unloads and reloads its plug-ins: load, create, place, initialise, run, destroy
// and unload the module 300 times in one process. Nothing may stay behind: no descriptor, no
// growth of resident memory after the first cycle (leaks are LeakSanitizer's to find in the
// asan build), and the library itself really leaves the process.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <climits>
#ifdef __SANITIZE_ADDRESS__
#include <sanitizer/lsan_interface.h>
#endif
#include <filesystem>
#include <fstream>

#include "host/algo.h"
#include "host/standin/standin.h"
#include "support/config_text.h"

namespace {

using namespace fv2test;

long OpenDescriptors() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

// The process's threads; ThreadSanitizer starts a thread of its own when it first sees one
// made, so under it only the threads made after that are counted apart.
long Threads() {
#ifdef __SANITIZE_THREAD__
    return 0;
#else
    return std::distance(std::filesystem::directory_iterator("/proc/self/task"), {});
#endif
}

// The threads once a joined thread has also left the kernel's list (it may stay there a
// moment after the join returns); a thread still running stays, and the count says so.
long ThreadsSettled(long want) {
    for (int i = 0; i < 200 && Threads() != want; ++i) usleep(5000);
    return Threads();
}

#ifdef __SANITIZE_THREAD__
constexpr long kWriter = 0;
#else
constexpr long kWriter = 1;  // a recorder's writer thread
#endif

long ResidentKiB() {
    long pages = 0, resident = 0;
    std::ifstream("/proc/self/statm") >> pages >> resident;
    return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

TEST(Unload, ThreeHundredLoadRunUnloadCycles) {
    char dir[] = "/tmp/fv2unload.XXXXXX";
    ASSERT_NE(mkdtemp(dir), nullptr);
    std::ofstream(dir + std::string("/algo_private.json"))
        << Config({Row("v", "1:p:q:*:%5.2f", 3), Row("t", "\\r\\n"),
                   ArrayRow("grid", {{"1:p:g:*:%d", ","}, {"1:p:s:*:%s", ";"}})});
    standin::InputHandle in;
    in.frame = std::make_shared<CScFrame>();
    in.frame->IntTable["SINGLE_img_mode"] = 0;
    auto source = std::make_shared<CScFrame>();
    source->FloatListTable["q"] = {1.5f, 2.25f};
    source->IntListTable["g"] = {1, 2, 3};
    source->StringListTable["s"] = {"a", "b"};
    for (const char* key : {"q", "g", "s"}) {
        in.Bind("input" + std::to_string(in.inputs.size()), source, key);
    }

    long descriptors = 0, resident = 0;
    const long threads = Threads();
    for (int cycle = 0; cycle < 300; ++cycle) {
        // Every other cycle records its runs, and is destroyed and unloaded with runs queued.
        const std::string settings = dir + std::string("/formatv2_record.json");
        if (cycle % 2 == 1) {
            std::ofstream(settings) << "{\"max_bytes\": 65536}";
        } else {
            std::filesystem::remove(settings);
        }
        void* library = dlopen(FORMATV2_MODULE_PATH, RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(library, nullptr) << dlerror();
        auto create = reinterpret_cast<CAbstractUserModule* (*)()>(dlsym(library, "CreateModule"));
        auto destroy = reinterpret_cast<void (*)(void*, CAbstractUserModule*)>(
            dlsym(library, "DestroyModule"));
        auto quiet = reinterpret_cast<void (*)(int, int)>(dlsym(library, "log_set_priority"));
        ASSERT_TRUE(create && destroy && quiet);
        quiet(-1, 8);  // every reload starts with fresh logging state; nothing printed

        CAbstractUserModule* module = create();
        ASSERT_EQ(module->SetPwd(dir), 0);
        ASSERT_EQ(module->InitAlgoPrivate(), 0);
        for (int run = 0; run < 10; ++run) {
            standin::OutputHandle out;
            ASSERT_EQ(module->Process(in.handle(), out.handle()), 0);
            ASSERT_EQ(out.frame->StringListTable["grid"][0], "1,a;2,b;3,");
        }
        destroy(nullptr, module);
        // The host drops what it kept of the module's runs (the module made objects inside
        // the recorded output frames) before it unloads the module.
        standin::Reset();
        ASSERT_EQ(dlclose(library), 0);
        // Gone from the process: loading it without permission to load finds nothing.
        ASSERT_EQ(dlopen(FORMATV2_MODULE_PATH, RTLD_NOW | RTLD_NOLOAD), nullptr) << cycle;
        EXPECT_EQ(ThreadsSettled(threads), threads) << "a recorder's writer outlived its module";
        if (cycle == 1) descriptors = OpenDescriptors(), resident = ResidentKiB();
    }
    EXPECT_TRUE(std::filesystem::exists(dir + std::string("/records")));
    std::filesystem::remove_all(dir);
    EXPECT_EQ(OpenDescriptors(), descriptors);
#ifdef FORMATV2_MEMORY_UNBOUNDED
    // ASan's quarantine holds freed memory on purpose, and an emulator keeps the code it
    // translated for each new mapping of the library: their memory says nothing of ours.
    const long allowedKiB = LONG_MAX;
#else
    const long allowedKiB = 1024;
#endif
    EXPECT_LT(ResidentKiB() - resident, allowedKiB);
}

// A host that unloads the library without destroying a module that is recording: unloading
// stops the writer thread, and the library still leaves the process.
TEST(Unload, UnloadingStopsARecorderWhoseModuleWasNeverDestroyed) {
    char dir[] = "/tmp/fv2unload.XXXXXX";
    ASSERT_NE(mkdtemp(dir), nullptr);
    std::ofstream(dir + std::string("/algo_private.json")) << Config({Row("t", "x", 3, 1)});
    std::ofstream(dir + std::string("/formatv2_record.json")) << "{}";
    const long threads = Threads();
    void* library = dlopen(FORMATV2_MODULE_PATH, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(library, nullptr) << dlerror();
    auto create = reinterpret_cast<CAbstractUserModule* (*)()>(dlsym(library, "CreateModule"));
    CAbstractUserModule* module = create();
#ifdef __SANITIZE_ADDRESS__
    __lsan_ignore_object(module);  // left behind on purpose, as such a host does
#endif
    ASSERT_EQ(module->SetPwd(dir), 0);
    ASSERT_EQ(module->InitAlgoPrivate(), 0);
    EXPECT_EQ(Threads(), threads + kWriter);
    {
        // The output frame holds objects the module made: it goes before the module's code.
        standin::InputHandle in;
        in.frame = std::make_shared<CScFrame>();
        in.frame->IntTable["SINGLE_img_mode"] = 0;
        standin::OutputHandle out;
        ASSERT_EQ(module->Process(in.handle(), out.handle()), 0);
    }
    standin::Reset();
    ASSERT_EQ(dlclose(library), 0);
    EXPECT_EQ(ThreadsSettled(threads), threads);
    EXPECT_EQ(dlopen(FORMATV2_MODULE_PATH, RTLD_NOW | RTLD_NOLOAD), nullptr);
    std::filesystem::remove_all(dir);
}

}  // namespace
