// Base classes of the module interface. Operations a module does not override keep these
// trivial bodies; the stand-in host never drives them itself.
#include <cstring>

#include "state.h"

// The operations kept one to a line, to read as a table of what the stand-in host answers.
// clang-format off
CAbstractUserModule::~CAbstractUserModule() = default;
int CAbstractUserModule::UpdatePwd(const char*) { return 0; }
int CAbstractUserModule::SetModuleId(int) { return 0; }
int CAbstractUserModule::SetProcedureName(const char*) { return 0; }
int CAbstractUserModule::GetParam(const char*, char*, int, int*) { return 0; }
int CAbstractUserModule::SetParam(const char*, const char*, int) { return 0; }
int CAbstractUserModule::GetAllParam(PARAM_VALUE_INFO_LIST*) { return 0; }
int CAbstractUserModule::GetParamNum() { return 0; }
int CAbstractUserModule::GetSingleParam(int, PARAM_VALUE_INFO*) { return 0; }
int CAbstractUserModule::UpSingleParam(const char*, bool) { return 0; }
int CAbstractUserModule::UpAllParam(bool) { return 0; }
int CAbstractUserModule::Get2DimParamNum(int) { return 0; }
int CAbstractUserModule::Set2DimParamNum(int, int) { return 0; }
int CAbstractUserModule::Add2DimParam(int, int) { return 0; }
int CAbstractUserModule::Del2DimParam(int, int) { return 0; }
int CAbstractUserModule::GetSingle2DimParam(int, int, PARAM_VALUE_INFO*) { return 0; }
int CAbstractUserModule::Get2DimParam(const char*, int, char*, int, int*) { return 0; }
int CAbstractUserModule::Set2DimParam(const char*, int, const char*, int) { return 0; }
int CAbstractUserModule::GetAll2DimParam(PARAM_2DIM_VALUE_INFO_LIST*) { return 0; }
int CAbstractUserModule::GetSubParamHeadPub(cJSON**) { return 0; }
int CAbstractUserModule::GetSubParamHeadSub(cJSON**) { return 0; }
int CAbstractUserModule::GetSubParam(SUB_VALUE_INFO_LIST*) { return 0; }
int CAbstractUserModule::GetSubHeadParam(SUB_HEAD_INFO_LIST*) { return 0; }
int CAbstractUserModule::GetPubParam(PUB_VALUE_INFO_LIST*) { return 0; }
int CAbstractUserModule::GetPubHeadParam(PUB_HEAD_INFO_LIST*) { return 0; }
int CAbstractUserModule::GetSubParamNum() { return 0; }
int CAbstractUserModule::GetSingleSubParam(int, SUB_VALUE_INFO*) { return 0; }
int CAbstractUserModule::GetSubHeadParamNum() { return 0; }
int CAbstractUserModule::GetSingleSubHeadParam(int, HEAD_INFO*) { return 0; }
int CAbstractUserModule::GetPubParamNum() { return 0; }
int CAbstractUserModule::GetSinglePubParam(int, PUB_VALUE_INFO*) { return 0; }
int CAbstractUserModule::GetPubHeadParamNum() { return 0; }
int CAbstractUserModule::GetSinglePubHeadParam(int, HEAD_INFO*) { return 0; }
int CAbstractUserModule::GetDisplayFileData(char*, int, int*) { return 0; }
int CAbstractUserModule::SetDisplayFileData(char*, int) { return 0; }
int CAbstractUserModule::GetDynamicSubScribeParamNum() { return 0; }
int CAbstractUserModule::GetDynamicSingleSubScribeParam(int, DYNAMIC_SUBSCRIBE_PARAM*) { return 0; }
int CAbstractUserModule::GetDynamicPublishParamNum() { return 0; }
int CAbstractUserModule::GetDynamicSinglePublishParam(int, DYNAMIC_PUBLISH_PARAM*) { return 0; }
int CAbstractUserModule::SetLogLevel(eLOG_LEVEL, eLOG_CHANNEL) { return 0; }
int CAbstractUserModule::GetDebugInfo(MODULE_DEBUG_INFO*) { return 0; }
int CAbstractUserModule::SetMsgCallback(int (*)(int, void*, void*, void*), void*) { return 0; }
int CAbstractUserModule::AlgoPlayReady() { return 0; }
int CAbstractUserModule::AlgoPlayCtrl(eALGO_PLAYCTRL) { return 0; }
int CAbstractUserModule::AlgoNeedDLClose() { return 0; }
int CAbstractUserModule::GetRunningInfo(MODULE_RUNNING_INFO*) { return 0; }
int CAbstractUserModule::ResetResultInfo() { return 0; }
int CAbstractUserModule::UpdateDsImgAddr(void*) { return 0; }
int CAbstractUserModule::UpdatePwdPrivate(const char*) { return 0; }
int CAbstractUserModule::AlgoPlayCtrlPrivate(eALGO_PLAYCTRL) { return 0; }
int CAbstractUserModule::InitAlgoPrivate() { return 0; }
int CAbstractUserModule::InitAbility(int, std::string) { return 0; }
int CAbstractUserModule::InitROI(int, std::string, std::string) { return 0; }
int CAbstractUserModule::InitPM(int, std::string, std::string) { return 0; }
int CAbstractUserModule::InitIO(int, std::string) { return 0; }
int CAbstractUserModule::InitDISP(int, std::string) { return 0; }
int CAbstractUserModule::InitResult(int) { return 0; }

int CAbstractUserModule::UpProcessTime() {
    standin::WithState([](standin::State& s) { ++s.upProcessTimeCalls; });
    return 0;
}

CAlgo::CAlgo()
    : AlgoModuleName{},
      ModuleId(0),
      AlgoId(0),
      ParamManage(std::make_shared<CParamManage>()),
      ProcStartTime(0.0),
      ProcTime(0) {}
CAlgo::~CAlgo() = default;

int CAlgo::UpdatePwd(const char*) { return 0; }
int CAlgo::SetModuleId(int id) {
    ModuleId = id;
    return 0;
}
int CAlgo::SetProcedureName(const char*) { return 0; }
int CAlgo::GetAllParam(PARAM_VALUE_INFO_LIST*) { return 0; }
int CAlgo::GetParamNum() { return 0; }
int CAlgo::GetSingleParam(int, PARAM_VALUE_INFO*) { return 0; }
int CAlgo::GetSubParam(SUB_VALUE_INFO_LIST*) { return 0; }
int CAlgo::GetSubHeadParam(SUB_HEAD_INFO_LIST*) { return 0; }
int CAlgo::GetPubParam(PUB_VALUE_INFO_LIST*) { return 0; }
int CAlgo::GetPubHeadParam(PUB_HEAD_INFO_LIST*) { return 0; }
int CAlgo::GetSubParamNum() { return 0; }
int CAlgo::GetSingleSubParam(int, SUB_VALUE_INFO*) { return 0; }
int CAlgo::GetSubHeadParamNum() { return 0; }
int CAlgo::GetSingleSubHeadParam(int, HEAD_INFO*) { return 0; }
int CAlgo::GetPubParamNum() { return 0; }
int CAlgo::GetSinglePubParam(int, PUB_VALUE_INFO*) { return 0; }
int CAlgo::GetPubHeadParamNum() { return 0; }
int CAlgo::GetSinglePubHeadParam(int, HEAD_INFO*) { return 0; }
int CAlgo::GetDisplayFileData(char*, int, int*) { return 0; }
int CAlgo::SetDisplayFileData(char*, int) { return 0; }
int CAlgo::SetLogLevel(eLOG_LEVEL, eLOG_CHANNEL) { return 0; }
int CAlgo::GetDebugInfo(MODULE_DEBUG_INFO* info) {
    return info == nullptr ? static_cast<int>(0xE0000001) : 0;
}
int CAlgo::AlgoPlayCtrl(eALGO_PLAYCTRL) { return 0; }
int CAlgo::GetRunningInfo(MODULE_RUNNING_INFO*) { return 0; }
int CAlgo::ResetResultInfo() { return 0; }
int CAlgo::AlgoPlayCtrlPrivate(eALGO_PLAYCTRL) { return 0; }
int CAlgo::InitAbility(int, std::string) { return 0; }
int CAlgo::InitPM(int, std::string, std::string) { return 0; }
int CAlgo::InitIO(int, std::string) { return 0; }
int CAlgo::InitDISP(int, std::string) { return 0; }
int CAlgo::InitResult(int) { return 0; }

// clang-format on
int CAlgo::Init() {
    if (int code = standin::failure(standin::Call::kInit)) return code;
    if (!ParamManage) ParamManage = std::make_shared<CParamManage>();
    return 0;
}
