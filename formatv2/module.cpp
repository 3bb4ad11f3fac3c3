// Entry points and lifecycle: creation, working directory, initialisation, trivial hooks.
#include <cstdio>
#include <cstring>
#include <new>

#include "contract/guard.h"
#include "format/formatter.h"
#include "formatv2/formatv2.h"
#include "host/osal.h"
#include "publish/publish.h"
#include "record/recorder.h"

using formatv2::Msg;

CAbstractUserModule* CreateModule() {
    return new CFormatV2Module();
}

void DestroyModule(void* /*reserved*/, CAbstractUserModule* module) {
    delete module;
}

void FormatV2RecordRuns(CAbstractUserModule* module, int on) {
    if (auto* ours = dynamic_cast<CFormatV2Module*>(module)) ours->RecordRuns(on != 0);
}

const formatv2::RunResult* FormatV2LastRun(const CAbstractUserModule* module) {
    const auto* ours = dynamic_cast<const CFormatV2Module*>(module);
    return ours != nullptr ? ours->LastRun() : nullptr;
}

void FormatV2NameNextRun(CAbstractUserModule* module, const char* name) {
    if (auto* ours = dynamic_cast<CFormatV2Module*>(module)) {
        Guarded([&] { ours->NameNextRun(name != nullptr ? name : ""); });
    }
}

void FormatV2FlushRecording(CAbstractUserModule* module) {
    if (auto* ours = dynamic_cast<CFormatV2Module*>(module)) ours->FlushRecording();
}

void CFormatV2Module::RecordRuns(bool on) {
    m_lastRun = on ? std::make_unique<formatv2::RunResult>() : nullptr;
}

CFormatV2Module::CFormatV2Module()
    : ImgMode(0), StrConcateEnable(0), DynamicSubList{}, DynamicPubList{} {}

CFormatV2Module::~CFormatV2Module() = default;

formatv2::Logger CFormatV2Module::Log() const {
    return {&log_print_mod, ModuleId};
}

int CFormatV2Module::SetPwd(const char* path) {
    std::memcpy(AlgoModuleName, kModuleName, sizeof kModuleName);
    WorkDir.assign(path != nullptr ? path : "");
    return CAlgo::Init();
}

int CFormatV2Module::InitAlgoPrivate() {
    const formatv2::Logger log = Log();
    log.Say<Msg::kInitStart>();

    const algo::ModuleType type = algo::MODULE_TYPE_OUTPUT;
    int ret = ResultManage.SetModuleType(type);
    if (ret != 0) {
        log.Say<Msg::kSetModuleTypeFailed>(ret);
    } else if ((ret = InitPrivJson()) != 0) {
        log.Say<Msg::kInitPrivJsonFailed>(ret);
    } else if ((ret = GetSubParamList()) != 0) {
        log.Say<Msg::kInitReadFailed>(ret);
    }

    log.Say<Msg::kInitEnd>();
    return ret;
}

int CFormatV2Module::InitPrivJson() {
    // 512 bytes as the host's path buffers are; a longer path is cut, never overrun.
    char path[512] = {0};
    std::snprintf(path, sizeof path, "%s/%s", WorkDir.c_str(), kConfigFileName);
    if (osal_is_file_exist(path) != 0) return 0;

    const int ret = osal_copy(kDefaultConfigPath, path);
    if (ret == 0) return 0;
    Log().Say<Msg::kCopyDefaultFailed>(ret);
    return kStatusCopyFailed;
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
    return info == nullptr ? kStatusBadArgument : 0;
}

std::string CFormatV2Module::FloatToString(float value, int precision) {
    return FloatToStringGeneral(value, precision);
}
