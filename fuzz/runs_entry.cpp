#include "fuzz/runs_entry.h"

#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <set>

#include "formatv2/formatv2.h"
#include "fuzz/config_entry.h"
#include "fuzz/fdp_writer.h"
#include "fuzz/fuzz_support.h"
#include "host/standin/standin.h"
#include "publish/dynamic_pub.h"

namespace fv2fuzz {

namespace {

constexpr int kMaxRuns = 4;
constexpr uint8_t kMaxInputs = 130;  // past the 127 subscriptions a table can hold
constexpr uint8_t kMaxList = 64;
constexpr size_t kMaxString = 64;
constexpr const char* kValueKey = "value";

constexpr int kErrNotDelivered = static_cast<int>(0xC0000004);
constexpr int kErrNoInputFrame = static_cast<int>(0xE000000A);
constexpr int kErrNoItems = static_cast<int>(0xC0000109);
constexpr int kErrArrayField = static_cast<int>(0xE0000315);
constexpr int kErrArrayList = static_cast<int>(0xE000030F);
constexpr int kErrNotConvertible = static_cast<int>(0xC0000221);
constexpr int kErrUnknownType = static_cast<int>(0xE000001C);

const std::set<int>& RunStatuses() {
    static const std::set<int> statuses = {0,
                                           -1,
                                           kErrNoInputFrame,
                                           kErrNoItems,
                                           kErrNotDelivered,
                                           kErrArrayField,
                                           kErrArrayList,
                                           kErrNotConvertible,
                                           kErrUnknownType};
    return statuses;
}

float FloatOf(uint32_t bits) {
    float value;
    std::memcpy(&value, &bits, sizeof value);
    return value;
}

// ---- decoding and encoding ------------------------------------------------------------

template <typename T, typename Read>
std::vector<T> ReadList(FuzzedDataProvider& in, Read read) {
    std::vector<T> list(in.ConsumeIntegralInRange<uint8_t>(0, kMaxList));
    for (T& element : list) element = read();
    return list;
}

InputValues DecodeInput(FuzzedDataProvider& in) {
    InputValues v;
    v.binding = in.ConsumeIntegralInRange<uint8_t>(0, InputValues::kBindingCount - 1);
    v.tables = in.ConsumeIntegral<uint8_t>() & InputValues::kAllTables;
    v.forceCount = in.ConsumeBool();
    if (v.forceCount) v.count = in.ConsumeIntegral<int32_t>();
    const auto readInt = [&in] { return in.ConsumeIntegral<int32_t>(); };
    const auto readFloat = [&in] { return in.ConsumeIntegral<uint32_t>(); };
    const auto readString = [&in] { return in.ConsumeRandomLengthString(kMaxString); };
    if (v.tables & InputValues::kIntScalar) v.intScalar = readInt();
    if (v.tables & InputValues::kIntList) v.intList = ReadList<int32_t>(in, readInt);
    if (v.tables & InputValues::kFloatScalar) v.floatScalar = readFloat();
    if (v.tables & InputValues::kFloatList) v.floatList = ReadList<uint32_t>(in, readFloat);
    if (v.tables & InputValues::kStringScalar) v.stringScalar = readString();
    if (v.tables & InputValues::kStringList) v.stringList = ReadList<std::string>(in, readString);
    return v;
}

void EncodeInput(FdpWriter& out, const InputValues& v) {
    out.IntegralInRange<uint8_t>(v.binding, 0, InputValues::kBindingCount - 1);
    out.Integral<uint8_t>(v.tables);
    out.Bool(v.forceCount);
    if (v.forceCount) out.Integral<int32_t>(v.count);
    if (v.tables & InputValues::kIntScalar) out.Integral<int32_t>(v.intScalar);
    if (v.tables & InputValues::kIntList) {
        out.IntegralInRange<uint8_t>(static_cast<uint8_t>(v.intList.size()), 0, kMaxList);
        for (int32_t x : v.intList) out.Integral<int32_t>(x);
    }
    if (v.tables & InputValues::kFloatScalar) out.Integral<uint32_t>(v.floatScalar);
    if (v.tables & InputValues::kFloatList) {
        out.IntegralInRange<uint8_t>(static_cast<uint8_t>(v.floatList.size()), 0, kMaxList);
        for (uint32_t x : v.floatList) out.Integral<uint32_t>(x);
    }
    if (v.tables & InputValues::kStringScalar) out.String(v.stringScalar);
    if (v.tables & InputValues::kStringList) {
        out.IntegralInRange<uint8_t>(static_cast<uint8_t>(v.stringList.size()), 0, kMaxList);
        for (const std::string& x : v.stringList) out.String(x);
    }
}

// ---- one run and its checks -----------------------------------------------------------

void Bind(standin::InputHandle& in, size_t position, const InputValues& v) {
    const std::string name = "input" + std::to_string(position);
    if (v.binding == InputValues::kUnbound) return;
    std::shared_ptr<CScFrame> source;
    if (v.binding == InputValues::kBound) {
        source = std::make_shared<CScFrame>();
        if (v.tables & InputValues::kIntScalar) source->IntTable[kValueKey] = v.intScalar;
        if (v.tables & InputValues::kIntList) {
            source->IntListTable[kValueKey].assign(v.intList.begin(), v.intList.end());
        }
        if (v.tables & InputValues::kFloatScalar) {
            source->FloatTable[kValueKey] = FloatOf(v.floatScalar);
        }
        if (v.tables & InputValues::kFloatList) {
            for (uint32_t bits : v.floatList)
                source->FloatListTable[kValueKey].push_back(FloatOf(bits));
        }
        if (v.tables & InputValues::kStringScalar) source->StringTable[kValueKey] = v.stringScalar;
        if (v.tables & InputValues::kStringList) source->StringListTable[kValueKey] = v.stringList;
    }
    in.Bind(name, source, kValueKey);
    if (v.forceCount) in.countOverride[name] = v.count;
}

size_t ValueCount(DataSection& item) {
    if (item.Value.Is<IntList>()) return item.Value.AnyCast<IntList>().size();
    if (item.Value.Is<FloatList>()) return item.Value.AnyCast<FloatList>().size();
    if (item.Value.Is<StringList>()) return item.Value.AnyCast<StringList>().size();
    return 0;
}

template <typename Table>
bool ListHolds(const Table& table, const std::string& name, size_t count) {
    auto it = table.find(name);
    return count == 0 ? it == table.end() : (it != table.end() && it->second.size() == count);
}

std::string RecordName(const DynamicPub& pub) {
    return std::string(pub.param_name, strnlen(pub.param_name, sizeof pub.param_name));
}

// The frame's text entries that the result display writes after the joined output.
bool IsDisplayKey(const std::string& name) {
    return name == "SINGLE_show_text_cn" || name == "SINGLE_show_text_en" ||
           name == "SINGLE_param_status_string";
}

// A successful run published every item: one "DynamicPub" record each (then the joined
// output's), and in item mode each item's values in the list table of its type.
void CheckPublished(CFormatV2Module& module, CScFrame& frame, const std::string& run) {
    auto* records = frame.getData<DynamicPubRecords>("DynamicPub", false);
    const size_t items = module.SubParamList.size();
    const bool concat = module.StrConcateEnable != 0;
    FV2_FUZZ_CHECK(records != nullptr && records->size() == items + (concat ? 1 : 0),
                   run + ": DynamicPub records");
    auto record = records->begin();
    for (DataSection& item : module.SubParamList) {
        const char* type = item.ConvertType == FORMAT_V2_VARIATE_INT     ? "int"
                           : item.ConvertType == FORMAT_V2_VARIATE_FLOAT ? "float"
                                                                         : "string";
        FV2_FUZZ_CHECK(RecordName(*record) == item.ParamName.substr(0, 47) &&
                           std::strcmp(record->type, type) == 0,
                       run + ": record of " + item.ParamName);
        ++record;
        if (concat) continue;
        const size_t count = ValueCount(item);
        bool listed = false;
        switch (item.ConvertType) {
            case FORMAT_V2_VARIATE_INT:
                listed = ListHolds(frame.IntListTable, item.ParamName, count);
                break;
            case FORMAT_V2_VARIATE_FLOAT:
                listed = ListHolds(frame.FloatListTable, item.ParamName, count);
                break;
            default:
                listed = ListHolds(frame.StringListTable, item.ParamName, count);
                break;
        }
        FV2_FUZZ_CHECK(listed, run + ": output list of " + item.ParamName + " for " +
                                   std::to_string(count) + " values");
    }
    if (!concat) return;
    FV2_FUZZ_CHECK(RecordName(*record) == module.ParamName.substr(0, 47) &&
                       std::strcmp(record->type, "string") == 0,
                   run + ": record of the joined output");
    if (!IsDisplayKey(module.ParamName)) {
        auto joined = frame.StringTable.find(module.ParamName);
        FV2_FUZZ_CHECK(joined != frame.StringTable.end() && joined->second == module.ConcatText,
                       run + ": joined output");
    }
    const std::string tail = "\n" + module.ParamName + ":" + module.ConcatText;
    FV2_FUZZ_CHECK(module.ShowTextEN.size() >= tail.size() &&
                       module.ShowTextEN.compare(module.ShowTextEN.size() - tail.size(),
                                                 tail.size(), tail) == 0,
                   run + ": display text does not end with the joined output");
}

// The entry under key, or missing when there is none.
template <typename Map, typename T>
bool Holds(const Map& table, const std::string& key, const T& value) {
    auto it = table.find(key);
    return it != table.end() && it->second == value;
}

void CheckVerdict(CFormatV2Module& module, const std::shared_ptr<CScFrame>& out, int status,
                  const std::string& run) {
    const int ok = status == 0 ? 1 : 0;
    CScFrame& frame = *out;
    FV2_FUZZ_CHECK(
        Holds(frame.IntTable, "SINGLE_status", ok) &&
            Holds(frame.IntTable, "SINGLE_param_status", ok) &&
            Holds(frame.StringTable, "SINGLE_param_status_string", std::string(ok ? "OK" : "NG")),
        run + ": verdict entries");
    FV2_FUZZ_CHECK(Holds(frame.StringTable, "SINGLE_show_text_cn", module.ShowTextCN) &&
                       Holds(frame.StringTable, "SINGLE_show_text_en", module.ShowTextEN),
                   run + ": display text entries");
    FV2_FUZZ_CHECK(Holds(frame.FloatTable, "SINGLE_show_text_x", 0.0f) &&
                       Holds(frame.FloatTable, "SINGLE_show_text_y", 0.0f) &&
                       Holds(frame.FloatTable, "SINGLE_show_text_ang", 0.0f),
                   run + ": display position entries");
    if (ok) CheckPublished(module, frame, run);
}

uint64_t gProcessCalls = 0;

void RunOnce(CFormatV2Module& module, const RunStep& step, size_t index) {
    const std::string run = "run " + std::to_string(index);
    standin::InputHandle in;
    if (!step.noInputFrame) {
        in.frame = std::make_shared<CScFrame>();
        if (!step.noImgMode) in.frame->IntTable["SINGLE_img_mode"] = step.imgMode;
    }
    for (size_t i = 0; i < step.inputs.size(); ++i) Bind(in, i, step.inputs[i]);
    standin::OutputHandle out;

    const std::string shownBefore = module.ShowTextEN;
    const int imgModeBefore = module.ImgMode;
    const int timesBefore = standin::UpProcessTimeCalls();
    const size_t callsBefore = standin::ResultCalls().size();

    CAbstractUserModule& host = module;
    const int status = host.Process(in.handle(), step.noOutputFrame ? nullptr : out.handle());
    ++gProcessCalls;
    const int ok = status == 0 ? 1 : 0;

    FV2_FUZZ_CHECK(RunStatuses().count(status) == 1, run + " ended with " + Hex(status));
    FV2_FUZZ_CHECK(standin::UpProcessTimeCalls() == timesBefore + 1, run + ": UpProcessTime calls");
    // The result display: result info only for a good run outside image modes, then the
    // notice with the verdict, whatever the status.
    const auto& calls = standin::ResultCalls();
    size_t next = callsBefore;
    if (ok && module.ImgMode == 0) {
        FV2_FUZZ_CHECK(calls.size() > next && calls[next].op == "AddResultInfo" &&
                           calls[next].a == 1 && calls[next].b == 1,
                       run + ": no result info for a good run");
        ++next;
    }
    FV2_FUZZ_CHECK(calls.size() == next + 1 && calls[next].op == "SendResultInfoExist" &&
                       calls[next].a == ok && calls[next].b == 0 &&
                       calls[next].textCn == "全部输出为OK" &&
                       calls[next].textEn == "Full output is OK" &&
                       calls[next].frame == (step.noOutputFrame ? nullptr : out.frame),
                   run + ": result notice");

    FV2_FUZZ_CHECK(module.ShowTextEN == module.ShowTextCN, run + ": the display texts differ");
    if (step.noInputFrame) {
        FV2_FUZZ_CHECK(status == kErrNoInputFrame && module.ShowTextEN == shownBefore &&
                           module.ImgMode == imgModeBefore,
                       run + " without an input frame");
    } else if (step.noImgMode) {
        FV2_FUZZ_CHECK(status == -1 && module.ImgMode == imgModeBefore && module.ShowTextEN.empty(),
                       run + " without an image mode");
    } else {
        FV2_FUZZ_CHECK(module.ImgMode == step.imgMode, run + ": image mode");
        if (module.SubParamList.empty()) {
            FV2_FUZZ_CHECK(status == kErrNoItems, run + " without items");
        }
    }
    if (!step.noOutputFrame) CheckVerdict(module, out.frame, status, run);
}

void Reread(CFormatV2Module& module, const RunPlan& plan, const RunStep& step) {
    std::string text;
    switch (step.reread) {
        case RunStep::kSameText:
            text = plan.config;
            break;
        case RunStep::kCutText:
            text = plan.config.substr(0, step.cut % (plan.config.size() + 1));
            break;
        default:
            text = plan.second;
            break;
    }
    WriteDeviceFile(kConfigPath, text.data(), text.size());
    static Tables before;
    Snapshot(module, before);
    CAbstractUserModule& host = module;
    const int status = host.SetParam("CommandFormatV2Ensure", "1", 1);
    CheckReadOutcome(module, status, before);
}

}  // namespace

RunPlan DecodeRunPlan(const uint8_t* data, size_t size) {
    RunPlan plan;
    const auto* begin = reinterpret_cast<const char*>(data);
    const char* end = begin + size;
    const char* first = std::find(begin, end, '\0');
    plan.config.assign(begin, first);
    const char* second = first == end ? end : first + 1;
    const char* secondEnd = std::find(second, end, '\0');
    plan.second.assign(second, secondEnd);
    const char* rest = secondEnd == end ? end : secondEnd + 1;

    FuzzedDataProvider in(reinterpret_cast<const uint8_t*>(rest), static_cast<size_t>(end - rest));
    plan.runs.resize(in.ConsumeIntegralInRange<uint8_t>(1, kMaxRuns));
    for (RunStep& step : plan.runs) {
        step.reread = in.ConsumeIntegralInRange<uint8_t>(0, RunStep::kRereadCount - 1);
        step.cut = in.ConsumeIntegral<uint16_t>();
        step.noInputFrame = in.ConsumeBool();
        step.noImgMode = in.ConsumeBool();
        step.noOutputFrame = in.ConsumeBool();
        step.imgMode = in.ConsumeIntegralInRange<int32_t>(0, 3);
        step.inputs.resize(in.ConsumeIntegralInRange<uint8_t>(0, kMaxInputs));
        for (InputValues& v : step.inputs) v = DecodeInput(in);
    }
    return plan;
}

std::string EncodeRunPlan(const RunPlan& plan) {
    FdpWriter out;
    out.IntegralInRange<uint8_t>(static_cast<uint8_t>(plan.runs.size()), 1, kMaxRuns);
    for (const RunStep& step : plan.runs) {
        out.IntegralInRange<uint8_t>(step.reread, 0, RunStep::kRereadCount - 1);
        out.Integral<uint16_t>(step.cut);
        out.Bool(step.noInputFrame);
        out.Bool(step.noImgMode);
        out.Bool(step.noOutputFrame);
        out.IntegralInRange<int32_t>(step.imgMode, 0, 3);
        out.IntegralInRange<uint8_t>(static_cast<uint8_t>(step.inputs.size()), 0, kMaxInputs);
        for (const InputValues& v : step.inputs) EncodeInput(out, v);
    }
    return plan.config + '\0' + plan.second + '\0' + out.Bytes();
}

void RunRunPlan(const RunPlan& plan) {
    ResetHost();
    WriteDeviceFile(kConfigPath, plan.config.data(), plan.config.size());
    ModulePtr module = PlacedModule();
    static Tables fresh;
    Snapshot(*module, fresh);
    CAbstractUserModule& host = *module;
    CheckReadOutcome(*module, host.InitAlgoPrivate(), fresh);

    for (size_t i = 0; i < plan.runs.size(); ++i) {
        if (plan.runs[i].reread != RunStep::kNoReread) Reread(*module, plan, plan.runs[i]);
        RunOnce(*module, plan.runs[i], i);
    }
}

void RunRunsInput(const uint8_t* data, size_t size) {
    RunRunPlan(DecodeRunPlan(data, size));
}

uint64_t ProcessCalls() {
    return gProcessCalls;
}

}  // namespace fv2fuzz
