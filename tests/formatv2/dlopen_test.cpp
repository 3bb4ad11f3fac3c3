// The module as the host sees it: a shared library whose entry points resolve by their plain
// names, and nothing else it needs left undefined.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include "host/algo.h"

namespace {

using CreateFn = CAbstractUserModule* (*)();
using DestroyFn = void (*)(void*, CAbstractUserModule*);

TEST(ModuleLibrary, LoadsAndCreatesThroughPlainNames) {
    void* library = dlopen(FORMATV2_MODULE_PATH, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(library, nullptr) << dlerror();

    auto create = reinterpret_cast<CreateFn>(dlsym(library, "CreateModule"));
    auto destroy = reinterpret_cast<DestroyFn>(dlsym(library, "DestroyModule"));
    ASSERT_NE(create, nullptr);
    ASSERT_NE(destroy, nullptr);
    for (const char* name : {"log_print_mod", "log_prt_init", "log_buf_push_back",
                             "log_redirection_close", "log_get_loss_cnt"}) {
        EXPECT_NE(dlsym(library, name), nullptr) << name;
    }

    CAbstractUserModule* module = create();
    ASSERT_NE(module, nullptr);
    MODULE_DEBUG_INFO info{};
    EXPECT_EQ(module->GetDebugInfo(&info), 0);
    EXPECT_EQ(static_cast<unsigned>(module->GetDebugInfo(nullptr)), 0xE0000001u);
    destroy(nullptr, module);
    destroy(nullptr, nullptr);  // a null module is ignored
    dlclose(library);
}

}  // namespace
