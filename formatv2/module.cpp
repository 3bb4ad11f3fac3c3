// Entry points and lifecycle: creation, working directory, initialisation, trivial hooks.
#include <cstdio>
#include <cstring>
#include <new>

#include "formatv2/formatv2.h"
#include "formatv2/module_log.h"
#include "host/osal.h"

namespace {

constexpr int kErrCopyDefaultJson = kStatusCopyFailed;
constexpr int kErrBadArgument = kStatusBadArgument;
constexpr const char* kDefaultPrivJson = "/mnt/app/zrs_so/so/formatv2/json/algo_private.json";

}  // namespace

CAbstractUserModule* CreateModule() {
    return new CFormatV2Module();
}

void DestroyModule(void* /*reserved*/, CAbstractUserModule* module) {
    delete module;
}

CFormatV2Module::CFormatV2Module()
    : ImgMode(0), StrConcateEnable(0), DynamicSubList{}, DynamicPubList{} {}

CFormatV2Module::~CFormatV2Module() = default;

int CFormatV2Module::SetPwd(const char* path) {
    std::memcpy(AlgoModuleName, "formatv2", sizeof "formatv2");
    WorkDir.assign(path != nullptr ? path : "");
    return CAlgo::Init();
}

int CFormatV2Module::InitAlgoPrivate() {
    FV2_INFO_AT(951, "func init start\n");

    const algo::ModuleType type = algo::MODULE_TYPE_OUTPUT;
    int ret = ResultManage.SetModuleType(type);
    if (ret != 0) {
        FV2_ERR_AT(956, "resultManage SetModuleType failed, nErrCode = 0x%x\r\n", ret);
    } else if ((ret = InitPrivJson()) != 0) {
        FV2_ERR_AT(963, "init private json failed, nErrCode = 0x%x\r\n", ret);
    } else if ((ret = GetSubParamList()) != 0) {
        FV2_ERR_AT(970, "GetSubParamList failed, ret 0x%x\r\n", ret);
    }

    FV2_INFO_AT(975, "func init end\r\n");
    return ret;
}

int CFormatV2Module::InitPrivJson() {
    // 512 bytes as the host's path buffers are; a longer path is cut, never overrun.
    char path[512] = {0};
    std::snprintf(path, sizeof path, "%s/%s", WorkDir.c_str(), "algo_private.json");
    if (osal_is_file_exist(path) != 0) return 0;

    int ret = osal_copy(kDefaultPrivJson, path);
    if (ret == 0) return 0;
    FV2_ERR_AT(941, "copy default private json failed, nRet = %d\r\n", ret);
    return kErrCopyDefaultJson;
}

int CFormatV2Module::UpdatePwdPrivate(const char*) {
    return 0;
}

int CFormatV2Module::InitROI(int, std::string, std::string) {
    return 0;
}

int CFormatV2Module::SetProcedureName(const char*) {
    return 0;
}

int CFormatV2Module::SetLogLevel(eLOG_LEVEL, eLOG_CHANNEL) {
    return 0;
}

int CFormatV2Module::GetDebugInfo(MODULE_DEBUG_INFO* info) {
    return info == nullptr ? kErrBadArgument : 0;
}
