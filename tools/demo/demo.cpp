// Loads libformatv2.so as the host does, initialises one module in a temporary working
// directory with the given configuration, and shows its log lines.
#include <dlfcn.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <string>

#include "host/algo.h"

using CreateFn = CAbstractUserModule* (*)();
using DestroyFn = void (*)(void*, CAbstractUserModule*);

int main(int argc, char** argv) {
    const char* config = argc > 1 ? argv[1] : nullptr;
    const char* library = argc > 2 ? argv[2] : FORMATV2_MODULE_PATH;

    void* handle = dlopen(library, RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) {
        std::fprintf(stderr, "cannot load %s: %s\n", library, dlerror());
        return 1;
    }
    auto create = reinterpret_cast<CreateFn>(dlsym(handle, "CreateModule"));
    auto destroy = reinterpret_cast<DestroyFn>(dlsym(handle, "DestroyModule"));
    if (create == nullptr || destroy == nullptr) {
        std::fprintf(stderr, "%s does not export CreateModule/DestroyModule\n", library);
        return 1;
    }

    char dir[] = "/tmp/formatv2-demo-XXXXXX";
    if (mkdtemp(dir) == nullptr) {
        std::perror("mkdtemp");
        return 1;
    }
    const std::string json = std::string(dir) + "/algo_private.json";
    if (config != nullptr) {
        std::ifstream in(config, std::ios::binary);
        std::ofstream out(json, std::ios::binary);
        out << in.rdbuf();
    }

    CAbstractUserModule* module = create();
    std::printf("working directory %s\n", dir);
    std::fflush(stdout);
    int ret = module->SetPwd(dir);
    if (ret == 0) ret = module->InitAlgoPrivate();
    std::printf("InitAlgoPrivate: 0x%x\n", static_cast<unsigned>(ret));
    std::printf("subscriptions: %d, publications: %d\n", module->GetDynamicSubScribeParamNum(),
                module->GetDynamicPublishParamNum());
    destroy(nullptr, module);

    unlink(json.c_str());
    rmdir(dir);
    dlclose(handle);
    return ret == 0 ? 0 : 2;
}
