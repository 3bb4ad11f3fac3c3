// The host framework's module base classes and the services a module reaches through them:
// parameter storage, result registration, static publications and subscription parsing.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "host_types.h"
#include "scframe.h"

// Types of parameter values known to the parameter manager.
enum PARAM_VALUE_TYPE { PARAM_TYPE_INT = 1, PARAM_TYPE_FLOAT = 2, PARAM_TYPE_STRING = 3 };

// A parameter's description: its type, its values (value number 0 is the current one) and,
// when not empty, the only texts it accepts.
struct PARAM_DESC {
    std::string name;
    int type = PARAM_TYPE_STRING;
    std::vector<std::string> values;
    std::vector<std::string> accepted;
};

class HOST_API CParamManage {
  public:
    int CheckParam(const char* name, const char* value);
    int SetParam(const char* name, const char* value, int valueIndex);
    PARAM_DESC* GetParamFindAndCheck(const char* name, int valueIndex);
    int GetValueType(const PARAM_DESC* desc);
    std::string GetStrValueByType(const std::string& value, int type);

    // Text of value number valueIndex of the named parameter; empty when there is none.
    std::string GetParam(const char* name, int valueIndex) {
        PARAM_DESC* desc = GetParamFindAndCheck(name, valueIndex);
        if (desc == nullptr || desc->values.size() <= static_cast<size_t>(valueIndex)) return {};
        return GetStrValueByType(desc->values[valueIndex], GetValueType(desc));
    }

  private:
    std::map<std::string, PARAM_DESC> m_params;
};

class HOST_API CResultManage {
  public:
    int SetModuleType(const algo::ModuleType& type);
    int AddResultInfo(int resultType, int resultCount);
    int SendResultInfoExist(int ok, int reserved, const std::string& textCn,
                            const std::string& textEn, std::shared_ptr<CScFrame> frame);
};

class HOST_API CStaticSubPub {
  public:
    // Fills list with the host's own dynamic publications; 0 on success.
    int GetDynamicPubParam(DYNAMIC_PUBLISH_PARAM_LIST* list);
};

class HOST_API CAlgoUtils {
  public:
    struct SubParam {
        int algo_id = -1;
        std::string algo_name;
        std::string param_name;
        std::string type;
        std::string index;
    };
    // Parses a subscription text; 0 on success with out filled, non-zero when malformed.
    static int ParseSubscribeItem(const std::string& text, SubParam& out);
};

// The module interface as the host calls it. Declaration order is virtual-table order.
class HOST_API CAbstractUserModule {
  public:
    virtual ~CAbstractUserModule();
    virtual int Process(void* input, void* output) = 0;
    virtual int SetPwd(const char* path) = 0;
    virtual int UpdatePwd(const char* path);
    virtual int SetModuleId(int id);
    virtual int SetProcedureName(const char* name);
    virtual int GetParam(const char* name, char* buffer, int size, int* length);
    virtual int SetParam(const char* name, const char* value, int length);
    virtual int GetAllParam(PARAM_VALUE_INFO_LIST* list);
    virtual int GetParamNum();
    virtual int GetSingleParam(int index, PARAM_VALUE_INFO* info);
    virtual int UpSingleParam(const char* name, bool notify);
    virtual int UpAllParam(bool notify);
    virtual int Get2DimParamNum(int id);
    virtual int Set2DimParamNum(int id, int num);
    virtual int Add2DimParam(int id, int index);
    virtual int Del2DimParam(int id, int index);
    virtual int GetSingle2DimParam(int id, int index, PARAM_VALUE_INFO* info);
    virtual int Get2DimParam(const char* name, int index, char* buffer, int size, int* length);
    virtual int Set2DimParam(const char* name, int index, const char* value, int length);
    virtual int GetAll2DimParam(PARAM_2DIM_VALUE_INFO_LIST* list);
    virtual int GetSubParamHeadPub(cJSON** head);
    virtual int GetSubParamHeadSub(cJSON** head);
    virtual int GetSubParam(SUB_VALUE_INFO_LIST* list);
    virtual int GetSubHeadParam(SUB_HEAD_INFO_LIST* list);
    virtual int GetPubParam(PUB_VALUE_INFO_LIST* list);
    virtual int GetPubHeadParam(PUB_HEAD_INFO_LIST* list);
    virtual int GetSubParamNum();
    virtual int GetSingleSubParam(int index, SUB_VALUE_INFO* info);
    virtual int GetSubHeadParamNum();
    virtual int GetSingleSubHeadParam(int index, HEAD_INFO* info);
    virtual int GetPubParamNum();
    virtual int GetSinglePubParam(int index, PUB_VALUE_INFO* info);
    virtual int GetPubHeadParamNum();
    virtual int GetSinglePubHeadParam(int index, HEAD_INFO* info);
    virtual int GetDisplayFileData(char* buffer, int size, int* length);
    virtual int SetDisplayFileData(char* buffer, int length);
    virtual int GetDynamicSubScribeParamNum();
    virtual int GetDynamicSingleSubScribeParam(int index, DYNAMIC_SUBSCRIBE_PARAM* param);
    virtual int GetDynamicPublishParamNum();
    virtual int GetDynamicSinglePublishParam(int index, DYNAMIC_PUBLISH_PARAM* param);
    virtual int SetLogLevel(eLOG_LEVEL level, eLOG_CHANNEL channel);
    virtual int GetDebugInfo(MODULE_DEBUG_INFO* info);
    virtual int SetMsgCallback(int (*callback)(int, void*, void*, void*), void* user);
    virtual int AlgoPlayReady();
    virtual int AlgoPlayCtrl(eALGO_PLAYCTRL ctrl);
    virtual int AlgoNeedDLClose();
    virtual int GetRunningInfo(MODULE_RUNNING_INFO* info);
    virtual int ResetResultInfo();
    virtual int UpdateDsImgAddr(void* addr);
    virtual int UpdatePwdPrivate(const char* path);
    virtual int AlgoPlayCtrlPrivate(eALGO_PLAYCTRL ctrl);
    virtual int InitAlgoPrivate();
    virtual int InitAbility(int id, std::string text);
    virtual int InitROI(int id, std::string a, std::string b);
    virtual int InitPM(int id, std::string a, std::string b);
    virtual int InitIO(int id, std::string text);
    virtual int InitDISP(int id, std::string text);
    virtual int InitResult(int id);

    // Records the processing time of the current run with the host.
    int UpProcessTime();
};

class HOST_API CAlgo : public CAbstractUserModule {
  public:
    CAlgo();
    ~CAlgo() override;

    int UpdatePwd(const char* path) override;
    int SetModuleId(int id) override;
    int SetProcedureName(const char* name) override;
    int GetAllParam(PARAM_VALUE_INFO_LIST* list) override;
    int GetParamNum() override;
    int GetSingleParam(int index, PARAM_VALUE_INFO* info) override;
    int GetSubParam(SUB_VALUE_INFO_LIST* list) override;
    int GetSubHeadParam(SUB_HEAD_INFO_LIST* list) override;
    int GetPubParam(PUB_VALUE_INFO_LIST* list) override;
    int GetPubHeadParam(PUB_HEAD_INFO_LIST* list) override;
    int GetSubParamNum() override;
    int GetSingleSubParam(int index, SUB_VALUE_INFO* info) override;
    int GetSubHeadParamNum() override;
    int GetSingleSubHeadParam(int index, HEAD_INFO* info) override;
    int GetPubParamNum() override;
    int GetSinglePubParam(int index, PUB_VALUE_INFO* info) override;
    int GetPubHeadParamNum() override;
    int GetSinglePubHeadParam(int index, HEAD_INFO* info) override;
    int GetDisplayFileData(char* buffer, int size, int* length) override;
    int SetDisplayFileData(char* buffer, int length) override;
    int SetLogLevel(eLOG_LEVEL level, eLOG_CHANNEL channel) override;
    int GetDebugInfo(MODULE_DEBUG_INFO* info) override;
    int AlgoPlayCtrl(eALGO_PLAYCTRL ctrl) override;
    int GetRunningInfo(MODULE_RUNNING_INFO* info) override;
    int ResetResultInfo() override;
    int AlgoPlayCtrlPrivate(eALGO_PLAYCTRL ctrl) override;
    int InitAbility(int id, std::string text) override;
    int InitPM(int id, std::string a, std::string b) override;
    int InitIO(int id, std::string text) override;
    int InitDISP(int id, std::string text) override;
    int InitResult(int id) override;

    // Host-side initialisation once the working directory is known.
    int Init();

    char AlgoModuleName[64];
    int ModuleId;
    int AlgoId;
    std::string WorkDir;
    std::shared_ptr<CParamManage> ParamManage;
    CResultManage ResultManage;
    CStaticSubPub StaticSubPub;
    double ProcStartTime;
    int64_t ProcTime;
};
