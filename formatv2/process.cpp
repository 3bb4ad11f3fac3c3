// The run driver: one call per run of the host's processing graph. The items are assembled
// by kind from the run's inputs (through the host's getters), then published.
#include <time.h>

#include <cstdint>
#include <optional>

#include "assembly/assembly.h"
#include "contract/guard.h"
#include "formatv2/formatv2.h"
#include "host/zr_frame.h"
#include "publish/publish.h"
#include "record/recorder.h"
#include "tape.h"

using formatv2::Msg;

namespace {

// The run's inputs as the host delivers them, through the opaque input handle.
class HostInputs final : public formatv2::RunInputs {
  public:
    explicit HostInputs(void* handle) : handle_(handle) {}
    int GetInts(const std::string& input, int& count, std::vector<int>& list) override {
        int single = 0;
        return ZR_M_GetInt_Dynamic(handle_, input, count, single, list);
    }
    int GetFloats(const std::string& input, int& count, std::vector<float>& list) override {
        float single = 0.0f;
        return ZR_M_GetFloat_Dynamic(handle_, input, count, single, list);
    }
    int GetStrings(const std::string& input, int& count, std::vector<std::string>& list) override {
        std::string single;
        return ZR_M_GetString_Dynamic(handle_, input, count, single, list);
    }
    bool Resolve(const std::string& input, std::shared_ptr<CScFrame>& frame,
                 std::string& key) override {
        return ZR_M_Get_By_Map(handle_, input, frame, key) != 0;
    }

  private:
    void* handle_;
};

// The worker of one element type on the input at inputIndex, as the run's assembly calls it.
int FetchAt(void* frame, const DYNAMIC_SUBSCRIBE_PARAM_LIST& table, DataSection& section,
            int inputIndex, ElementKind kind, const formatv2::Logger& log) {
    HostInputs inputs(frame);
    return formatv2::FetchSubscribed(inputs, formatv2::InputName(table, inputIndex), kind, section,
                                     log);
}

// A row's outcome once it has been read: failed (and why), kept from an earlier run, or read.
void RecordRow(formatv2::RowResult& row, formatv2::RunInputs& inputs,
               const DYNAMIC_SUBSCRIBE_PARAM_LIST& table, const DataSection& item, int firstInput,
               int ret) {
    if (ret != 0) {
        row.outcome = formatv2::RowOutcome::kFailed;
        row.failure = formatv2::ExplainRead(inputs, table, item, firstInput, ret);
    } else if (item.DataType == FORMAT_V2_DATA_SUBSCRIBE &&
               ElementKindOf(item.SubParam.type) == ElementKind::kNone) {
        row.outcome = formatv2::RowOutcome::kKept;
    } else {
        row.outcome = formatv2::RowOutcome::kGave;
    }
}

// The monotonic clock in milliseconds, to the nearest, halves up.
double MonotonicMillis() {
    struct timespec now {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    const int64_t ms = static_cast<int64_t>(now.tv_sec) * 1000 +
                       (static_cast<int64_t>(now.tv_nsec) + 500000) / 1000000;
    return static_cast<double>(ms);
}

}  // namespace

int CFormatV2Module::Process(void* input, void* output) {
    // Whatever is thrown during a run (in practice bad_alloc) ends it with kStatusMissing
    // instead of crossing into the host.
    const formatv2::Logger log = Log();
    // Held to the very end of the run, after the result display: the host may recycle the
    // frame once it is released.
    std::shared_ptr<CScFrame> frame;
    int status = 0;
    if (!Guarded([&] {
            if (m_lastRun) {
                *m_lastRun = formatv2::RunResult{};
                m_lastRun->rows.resize(SubParamList.size());
                m_recording =
                    std::make_unique<formatv2::Recording>(formatv2::Recording{*m_lastRun, {}, {}});
            }
            BeginRecordedRun();
            frame = ZR_M_Get_Frame_ByID(input, 0);
            status = RunItems(frame, input, output);
        })) {
        status = kStatusMissing;
        Guarded([&] { log.Say<Msg::kRunThrown>("Process", status); });
    }

    // The end of the run is reached from every path, and nothing may escape into the host:
    // not even from a log callback or a host service. Each step is guarded on its own.
    Guarded([&] { log.Say<Msg::kProcessEnd>(status); });
    Guarded([&] { UpProcessTime(); });
    // A verdict that could not be written whole is no success: a run that had succeeded fails
    // as any run that threw, and the result display is tried once more, now with NG.
    if (!Guarded([&] { SendOutputParam(output, status); })) {
        if (status == 0) {
            status = kStatusMissing;
            Guarded([&] { log.Say<Msg::kResultThrown>("Process", status); });
        }
        Guarded([&] { SendOutputParam(output, status); });
    }
    if (m_lastRun) {
        Guarded([&] {
            m_lastRun->status = status;
            RecordDisplay();
        });
        m_recording.reset();
    }
    // A record that cannot be made is a record lost, never a run changed.
    if (!Guarded([&] { RecordRun(status); })) m_tape.reset();
    ++m_runIndex;
    frame.reset();
    return status;
}

void CFormatV2Module::RecordDisplay() {
    // Spans that do not add up to the text tell of texts an earlier run left (a run that
    // ended before it began its own): their bytes are told as of no row.
    formatv2::Spans spans;
    if (m_recording) spans = m_recording->display;
    const auto add = [&](const char* output, const std::string& text) {
        formatv2::Spans told = spans;
        if ((told.empty() ? 0 : told.back().end) != text.size()) {
            told.clear();
            formatv2::AddSpan(told, text.size(), {});
        }
        m_lastRun->texts.push_back({output, 0, std::move(told)});
    };
    add("show_text_en", ShowTextEN);
    add("show_text_cn", ShowTextCN);
}

int CFormatV2Module::RunItems(const std::shared_ptr<CScFrame>& frame, void* input, void* output) {
    const formatv2::Logger log = Log();
    int inputIndex = 0;
    if (m_tape) m_tape->inputFrame = frame != nullptr;
    if (!frame) {
        log.Say<Msg::kNoInputFrame>("Process", kStatusMissing);
        return kStatusMissing;
    }

    ProcStartTime = MonotonicMillis();
    ProcTime = 0;
    ShowTextCN.clear();
    ShowTextEN.clear();
    log.Say<Msg::kProcessStart>();

    auto imgMode = frame->IntTable.find(kEntryImgMode);
    if (imgMode == frame->IntTable.end()) {
        log.Say<Msg::kNoImgMode>("Process", kStatusNoImgMode);
        return kStatusNoImgMode;
    }
    ImgMode = imgMode->second;
    if (m_tape) {
        m_tape->inputFrame = true;
        m_tape->imgModeSet = true;
        m_tape->imgMode = ImgMode;
    }

    if (SubParamList.empty()) return kStatusNoItems;
    ConcatText.clear();

    HostInputs host(input);
    std::optional<formatv2::TapedInputs> taped;
    if (m_tape) taped.emplace(host, DynamicSubList, m_tape->inputs);
    formatv2::RunInputs& inputs = taped ? static_cast<formatv2::RunInputs&>(*taped) : host;
    formatv2::RunResult* const result = m_lastRun.get();
    for (size_t row = 0; row < SubParamList.size(); ++row) {
        DataSection& item = SubParamList[row];
        const int firstInput = inputIndex;
        int ret = 0;
        switch (item.DataType) {
            case FORMAT_V2_DATA_SUBSCRIBE:
                ret =
                    formatv2::AssembleSubscribeData(inputs, DynamicSubList, item, inputIndex, log);
                break;
            case FORMAT_V2_DATA_SYMBOL:
                formatv2::AssembleSymbolData(item);
                break;
            case FORMAT_V2_DATA_ARRAY:
                ret = formatv2::AssembleArrayData(inputs, DynamicSubList, item, inputIndex, log,
                                                  result ? &result->rows[row].cells : nullptr);
                break;
            case FORMAT_V2_DATA_CUSTOM:
                ret = formatv2::AssembleCustomData(item);
                break;
            default:
                log.Say<Msg::kNoSuchDataFormat>(static_cast<int>(item.DataType));
                break;
        }
        if (result != nullptr)
            RecordRow(result->rows[row], inputs, DynamicSubList, item, firstInput, ret);
        if (ret != 0) {
            log.Say<Msg::kItemFailed>("Process", ret);
            return ret;
        }
    }

    const int status = CombineSubOutputValue(output);
    if (status != 0) log.Say<Msg::kCombineFailed>("Process", status);
    return status;
}

// ---- the operations of one item, each a step of the run above ----

int CFormatV2Module::AssembleSubscribeData(void* frame, DataSection& section, int& inputIndex) {
    HostInputs inputs(frame);
    return formatv2::AssembleSubscribeData(inputs, DynamicSubList, section, inputIndex, Log());
}

int CFormatV2Module::FormatOutputByInt(void* frame, DataSection& section, int& inputIndex) {
    return FetchAt(frame, DynamicSubList, section, inputIndex, ElementKind::kInt, Log());
}

int CFormatV2Module::FormatOutputByFloat(void* frame, DataSection& section, int& inputIndex) {
    return FetchAt(frame, DynamicSubList, section, inputIndex, ElementKind::kFloat, Log());
}

int CFormatV2Module::FormatOutputByString(void* frame, DataSection& section, int& inputIndex) {
    return FetchAt(frame, DynamicSubList, section, inputIndex, ElementKind::kString, Log());
}

int CFormatV2Module::AssembleArrayData(void* frame, DataSection& section, int& inputIndex) {
    HostInputs inputs(frame);
    return formatv2::AssembleArrayData(inputs, DynamicSubList, section, inputIndex, Log());
}

int CFormatV2Module::FormatSingleOutputArrayData(void* frame, int inputIndex,
                                                 const DataField& field, std::vector<Any>& lists,
                                                 int& count) {
    HostInputs inputs(frame);
    return formatv2::FormatSingleOutputArrayData(
        inputs, formatv2::InputName(DynamicSubList, inputIndex), field, lists, count, Log());
}

int CFormatV2Module::AssembleCustomData(DataSection& section) {
    return formatv2::AssembleCustomData(section);
}

void CFormatV2Module::AssembleSymbolData(DataSection& section) {
    formatv2::AssembleSymbolData(section);
}

void CFormatV2Module::SpecialCharReplace(std::string& text, const std::string& from,
                                         const std::string& to) {
    formatv2::SpecialCharReplace(text, from, to);
}

int CFormatV2Module::CombineSubOutputValue(void* output) {
    std::shared_ptr<CScFrame> frame = ZR_M_Get_Frame_ByHOutput(output);
    formatv2::Publication run{SubParamList, StrConcateEnable, ParamName, ConcatText,
                              ShowTextCN,   ShowTextEN,       Log(),     m_recording.get()};
    const int status = formatv2::CombineSubOutputValue(run, frame);
    if (m_tape && frame) {
        std::vector<std::string> names;
        if (StrConcateEnable != 0) {
            names.push_back(ParamName);
        } else {
            for (const DataSection& item : SubParamList) names.push_back(item.ParamName);
        }
        formatv2::TapeOutputs(*frame, names, m_tape->outputs);
    }
    return status;
}

template <typename T>
int CFormatV2Module::ConvertAndSendOutputValue(std::shared_ptr<CScFrame>& frame,
                                               const DataSection& item, const T& value,
                                               const int& index) {
    formatv2::Publication run{SubParamList, StrConcateEnable, ParamName, ConcatText,
                              ShowTextCN,   ShowTextEN,       Log()};
    return formatv2::ConvertAndSendOutputValue<T>(run, frame, item, value, index);
}

template int CFormatV2Module::ConvertAndSendOutputValue<int>(std::shared_ptr<CScFrame>&,
                                                             const DataSection&, const int&,
                                                             const int&);
template int CFormatV2Module::ConvertAndSendOutputValue<float>(std::shared_ptr<CScFrame>&,
                                                               const DataSection&, const float&,
                                                               const int&);
template int CFormatV2Module::ConvertAndSendOutputValue<std::string>(std::shared_ptr<CScFrame>&,
                                                                     const DataSection&,
                                                                     const std::string&,
                                                                     const int&);
