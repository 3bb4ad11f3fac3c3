// The formatv2 module: the class the host creates through CreateModule and drives through its
// virtual interface. A thin shell: each operation reaches the host through its services and
// hands the work to the layers below (config/, assembly/, publish/, format/), which take what
// they need as arguments and log through the Logger the shell gives them.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "config/config_read.h"
#include "config/item_model.h"
#include "contract/contract.h"
#include "contract/messages.h"
#include "contract/run_result.h"
#include "host/algo.h"

struct cJSON;
namespace formatv2 {
struct Recording;
namespace record {
class Recorder;
struct Run;
}  // namespace record
}  // namespace formatv2

class CFormatV2Module : public CAlgo {
  public:
    CFormatV2Module();
    ~CFormatV2Module() override;

    // ---- entry and lifecycle ----
    int SetPwd(const char* path) override;
    int InitAlgoPrivate() override;
    int InitPrivJson();
    int UpdatePwdPrivate(const char* path) override;
    int InitROI(int id, std::string a, std::string b) override;
    void DeInit() {}
    int SetProcedureName(const char* name) override;
    int SetLogLevel(eLOG_LEVEL level, eLOG_CHANNEL channel) override;
    int GetDebugInfo(MODULE_DEBUG_INFO* info) override;

    // ---- configuration ----
    int GetSubParamList();
    int ParsePrivJson(const char* text);
    int parseSubParamList(cJSON* list);
    int FillJsonValue(cJSON* object, const char* key, int& out, const int& def);
    int FillJsonValue(cJSON* object, const char* key, float& out, const float& def);
    int FillJsonValue(cJSON* object, const char* key, std::string& out, const std::string& def);

    int SetParam(const char* name, const char* value, int length) override;
    int GetParam(const char* name, char* buffer, int size, int* length) override;
    int SetmoduParaHandle(const char* name, const char* value, int length);

    int UpdateDynamicSubInfo();
    int GetDynamicSubScribeParamNum() override;
    int GetDynamicSingleSubScribeParam(int index, DYNAMIC_SUBSCRIBE_PARAM* param) override;

    // ---- runs ----
    int Process(void* input, void* output) override;
    int SendOutputParam(void* output, int status);

    int AssembleSubscribeData(void* frame, DataSection& section, int& inputIndex);
    int FormatOutputByInt(void* frame, DataSection& section, int& inputIndex);
    int FormatOutputByFloat(void* frame, DataSection& section, int& inputIndex);
    int FormatOutputByString(void* frame, DataSection& section, int& inputIndex);
    int AssembleArrayData(void* frame, DataSection& section, int& inputIndex);
    int FormatSingleOutputArrayData(void* frame, int inputIndex, const DataField& field,
                                    std::vector<Any>& lists, int& count);
    int AssembleCustomData(DataSection& section);
    void AssembleSymbolData(DataSection& section);
    void SpecialCharReplace(std::string& text, const std::string& from, const std::string& to);

    // ---- publishing ----
    int UpdateDynamicPubInfo();
    int GetDynamicPublishParamNum() override;
    int GetDynamicSinglePublishParam(int index, DYNAMIC_PUBLISH_PARAM* param) override;
    int CombineSubOutputValue(void* output);
    template <typename T>
    int ConvertAndSendOutputValue(std::shared_ptr<CScFrame>& frame, const DataSection& item,
                                  const T& value, const int& index);

    // ---- formatting ----
    std::string FloatToString(float value, int precision);

    // ---- what runs did, for tools (never asked by the host) ----
    // From the next run on, each run's result is kept until the next (or no longer).
    void RecordRuns(bool on);
    // The last run's result, or null when runs are not recorded.
    const formatv2::RunResult* LastRun() const { return m_lastRun.get(); }
    // The name the next recorded run carries (a tool's name for it); "" on the device.
    void NameNextRun(std::string name) { m_nextRunName = std::move(name); }
    // Waits until every recorded run so far is on disk (tools and tests).
    void FlushRecording();

    // ---- members ----
    int ImgMode;
    std::string ShowTextCN;
    std::string ShowTextEN;
    std::string ModuleName;
    int StrConcateEnable;
    std::string ParamName;
    std::string ConcatText;
    std::vector<DataSection> SubParamList;
    DYNAMIC_SUBSCRIBE_PARAM_LIST DynamicSubList;
    DYNAMIC_PUBLISH_PARAM_LIST DynamicPubList;

  private:
    // Where the layers below log: the library's log_print_mod under this module's id.
    formatv2::Logger Log() const;
    // What a configuration read fills.
    ConfigTarget Target();
    // Reads algo_private.json into text and applies it: GetSubParamList without recording.
    int ReadConfigFile(std::string& text);
    // Steps of a run up to output combination, on the run's input frame (null: none);
    // Process adds the end-of-run steps.
    int RunItems(const std::shared_ptr<CScFrame>& frame, void* input, void* output);
    // The run's display texts in the result: their spans, as recorded while they grew.
    void RecordDisplay();
    // At each configuration read: recording on as formatv2_record.json in the working
    // directory asks, or off without it; configText is the configuration just read.
    void ConfigureRecording(const std::string& configText);
    // A recorded run: begun with the run, handed to the recorder once its end is reached.
    void BeginRecordedRun();
    void RecordRun(int status);

    std::unique_ptr<formatv2::RunResult> m_lastRun;    // null: runs are not recorded
    std::unique_ptr<formatv2::Recording> m_recording;  // the run's texts while they grow

    // Recording runs to disk (formatv2_record.json); null: off.
    std::unique_ptr<formatv2::record::Recorder> m_recorder;
    std::unique_ptr<formatv2::record::Run> m_tape;  // the run being recorded
    std::string m_recordSettings;                   // the settings file's text in force
    bool m_recordFailedOnly = false;
    uint64_t m_configHash = 0;
    uint64_t m_runIndex = 0;
    std::string m_nextRunName;
};

extern "C" {
FORMATV2_EXPORT CAbstractUserModule* CreateModule();
FORMATV2_EXPORT void DestroyModule(void* reserved, CAbstractUserModule* module);
// For tools that show what each run did (the preview runner); the host never calls them.
// A module of another library is left alone, and gives null.
FORMATV2_EXPORT void FormatV2RecordRuns(CAbstractUserModule* module, int on);
FORMATV2_EXPORT const formatv2::RunResult* FormatV2LastRun(const CAbstractUserModule* module);
// For a tool that records the runs it drives: the name the next recorded run carries, and a
// wait until every recorded run is written.
FORMATV2_EXPORT void FormatV2NameNextRun(CAbstractUserModule* module, const char* name);
FORMATV2_EXPORT void FormatV2FlushRecording(CAbstractUserModule* module);
}
