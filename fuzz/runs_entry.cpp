#include "fuzz/runs_entry.h"

#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <set>

#include "formatv2/formatv2.h"
#include "fuzz/config_entry.h"
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
// Every status a run can end with, as the module's contract lists them.
std::set<int> RunStatuses() {
    std::set<int> out;
    for (const StatusInfo& info : kStatuses) {
        if (info.endsRun) out.insert(info.status);
    }
    return out;
}
const std::set<int> kRunStatuses = RunStatuses();

uint64_t gProcessCalls = 0;

// Reads what input "input<position>" carries in a run and binds it: to a source frame whose
// chosen tables (int, int list, float, float list, text, text list) hold the key, to a
// resolution without a frame, or not at all; its host count may lie.
void DecodeInput(FuzzedDataProvider& in, standin::InputHandle& handle, size_t position) {
    enum Binding : uint8_t { kBound, kUnbound, kBoundToNoFrame };
    const auto binding = in.ConsumeIntegralInRange<uint8_t>(kBound, kBoundToNoFrame);
    const unsigned tables = in.ConsumeIntegral<uint8_t>();
    const bool forceCount = in.ConsumeBool();
    const int32_t count = forceCount ? in.ConsumeIntegral<int32_t>() : 0;
    const auto source = std::make_shared<CScFrame>();
    CScFrame& frame = *source;
    const auto list = [&in](auto& out, auto read) {
        out.resize(in.ConsumeIntegralInRange<uint8_t>(0, kMaxList));
        for (auto& element : out) element = read();
    };
    const auto readInt = [&in] { return in.ConsumeIntegral<int32_t>(); };
    const auto readFloat = [&in] { return FloatOf(in.ConsumeIntegral<uint32_t>()); };
    const auto readText = [&in] { return in.ConsumeRandomLengthString(kMaxString); };
    if (tables & 1) frame.IntTable[kValueKey] = readInt();
    if (tables & 2) list(frame.IntListTable[kValueKey], readInt);
    if (tables & 4) frame.FloatTable[kValueKey] = readFloat();
    if (tables & 8) list(frame.FloatListTable[kValueKey], readFloat);
    if (tables & 16) frame.StringTable[kValueKey] = readText();
    if (tables & 32) list(frame.StringListTable[kValueKey], readText);
    if (binding == kUnbound) return;
    const std::string name = "input" + std::to_string(position);
    handle.Bind(name, binding == kBound ? source : nullptr, kValueKey);
    if (forceCount) handle.countOverride[name] = count;
}

// A list of count elements under name, or no entry when there are none.
template <typename Table>
bool ListHolds(const Table& table, const std::string& name, size_t count) {
    auto it = table.find(name);
    return count == 0 ? it == table.end() : (it != table.end() && it->second.size() == count);
}

// The entry under key holds value.
template <typename Map, typename T>
bool Holds(const Map& table, const std::string& key, const T& value) {
    auto it = table.find(key);
    return it != table.end() && it->second == value;
}

bool RecordIs(const DynamicPub& pub, const std::string& name, const char* type) {
    return std::string(pub.param_name, strnlen(pub.param_name, sizeof pub.param_name)) ==
               name.substr(0, sizeof pub.param_name - 1) &&
           std::strcmp(pub.type, type) == 0;
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
        FV2_FUZZ_CHECK(RecordIs(*record++, item.ParamName, TypeText(item.ConvertType)),
                       run + ": record of " + item.ParamName);
        if (concat) continue;
        const size_t count = ListLength(item.Value);
        const std::string& name = item.ParamName;
        const bool listed = item.ConvertType == FORMAT_V2_VARIATE_INT
                                ? ListHolds(frame.IntListTable, name, count)
                            : item.ConvertType == FORMAT_V2_VARIATE_FLOAT
                                ? ListHolds(frame.FloatListTable, name, count)
                                : ListHolds(frame.StringListTable, name, count);
        FV2_FUZZ_CHECK(
            listed, run + ": output list of " + name + " for " + std::to_string(count) + " values");
    }
    if (!concat) return;
    FV2_FUZZ_CHECK(RecordIs(records->back(), module.ParamName, "string"),
                   run + ": record of the joined output");
    // The result display writes its own text entries after the joined output.
    const std::string& name = module.ParamName;
    if (name != "SINGLE_show_text_cn" && name != "SINGLE_show_text_en" &&
        name != "SINGLE_param_status_string") {
        FV2_FUZZ_CHECK(Holds(frame.StringTable, name, module.ConcatText), run + ": joined output");
    }
    const std::string tail = "\n" + name + ":" + module.ConcatText;
    const std::string& shown = module.ShowTextEN;
    FV2_FUZZ_CHECK(shown.size() >= tail.size() &&
                       shown.compare(shown.size() - tail.size(), tail.size(), tail) == 0,
                   run + ": display text does not end with the joined output");
}

// One run, decoded as it goes: re-read, frames, image mode, then the inputs' values.
void RunOnce(CFormatV2Module& module, FuzzedDataProvider& in, const std::string& first,
             const std::string& second, const std::string& run) {
    enum Reread : uint8_t { kNoReread, kSameText, kCutText, kSecondText };
    const auto reread = in.ConsumeIntegralInRange<uint8_t>(kNoReread, kSecondText);
    const uint16_t cut = in.ConsumeIntegral<uint16_t>();  // kCutText keeps cut % (length + 1)
    const bool noInputFrame = in.ConsumeBool(), noImgMode = in.ConsumeBool();
    const bool noOutputFrame = in.ConsumeBool();
    const int32_t imgMode = in.ConsumeIntegralInRange<int32_t>(0, 3);
    standin::InputHandle input;
    const size_t inputs = in.ConsumeIntegralInRange<uint8_t>(0, kMaxInputs);
    for (size_t i = 0; i < inputs; ++i) DecodeInput(in, input, i);
    if (!noInputFrame) {
        input.frame = std::make_shared<CScFrame>();
        if (!noImgMode) input.frame->IntTable["SINGLE_img_mode"] = imgMode;
    }
    CAbstractUserModule& host = module;
    if (reread != kNoReread) {
        const std::string text = reread == kSameText  ? first
                                 : reread == kCutText ? first.substr(0, cut % (first.size() + 1))
                                                      : second;
        WriteDeviceFile(kConfigPath, text.data(), text.size());
        static Tables before;
        Snapshot(module, before);
        CheckReadOutcome(module, host.SetParam("CommandFormatV2Ensure", "1", 1), before);
    }

    standin::OutputHandle out;
    const std::string shownBefore = module.ShowTextEN;
    const int imgModeBefore = module.ImgMode;
    const int timesBefore = standin::UpProcessTimeCalls();
    const size_t callsBefore = standin::ResultCalls().size();
    const int status = host.Process(input.handle(), noOutputFrame ? nullptr : out.handle());
    ++gProcessCalls;
    const int ok = status == 0 ? 1 : 0;

    FV2_FUZZ_CHECK(kRunStatuses.count(status) == 1, run + " ended with " + Hex(status));
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
                       calls[next].frame == (noOutputFrame ? nullptr : out.frame),
                   run + ": result notice");

    FV2_FUZZ_CHECK(module.ShowTextEN == module.ShowTextCN, run + ": the display texts differ");
    if (noInputFrame) {
        FV2_FUZZ_CHECK(status == kStatusMissing && module.ShowTextEN == shownBefore &&
                           module.ImgMode == imgModeBefore,
                       run + " without an input frame");
    } else if (noImgMode) {
        FV2_FUZZ_CHECK(status == -1 && module.ImgMode == imgModeBefore && module.ShowTextEN.empty(),
                       run + " without an image mode");
    } else {
        FV2_FUZZ_CHECK(module.ImgMode == imgMode, run + ": image mode");
        FV2_FUZZ_CHECK(!module.SubParamList.empty() || status == kStatusNoItems,
                       run + " without items");
    }
    if (noOutputFrame) return;
    CScFrame& frame = *out.frame;
    FV2_FUZZ_CHECK(
        Holds(frame.IntTable, "SINGLE_status", ok) &&
            Holds(frame.IntTable, "SINGLE_param_status", ok) &&
            Holds(frame.StringTable, "SINGLE_param_status_string", std::string(ok ? "OK" : "NG")),
        run + ": verdict entries");
    FV2_FUZZ_CHECK(Holds(frame.StringTable, "SINGLE_show_text_cn", module.ShowTextCN) &&
                       Holds(frame.StringTable, "SINGLE_show_text_en", module.ShowTextEN),
                   run + ": display text entries");
    for (const char* key : {"SINGLE_show_text_x", "SINGLE_show_text_y", "SINGLE_show_text_ang"}) {
        FV2_FUZZ_CHECK(Holds(frame.FloatTable, key, 0.0f), run + ": " + key);
    }
    if (ok) CheckPublished(module, frame, run);
}

}  // namespace

void RunRunsInput(const uint8_t* data, size_t size) {
    const auto* begin = reinterpret_cast<const char*>(data);
    const char* end = begin + size;
    const char* firstEnd = std::find(begin, end, '\0');
    const char* secondBegin = firstEnd == end ? end : firstEnd + 1;
    const char* secondEnd = std::find(secondBegin, end, '\0');
    const char* rest = secondEnd == end ? end : secondEnd + 1;
    const std::string first(begin, firstEnd), second(secondBegin, secondEnd);

    ResetHost();
    WriteDeviceFile(kConfigPath, first.data(), first.size());
    ModulePtr module = PlacedModule();
    static Tables fresh;
    Snapshot(*module, fresh);
    CAbstractUserModule& host = *module;
    CheckReadOutcome(*module, host.InitAlgoPrivate(), fresh);

    FuzzedDataProvider in(reinterpret_cast<const uint8_t*>(rest), static_cast<size_t>(end - rest));
    const int runs = in.ConsumeIntegralInRange<int>(1, kMaxRuns);
    for (int i = 0; i < runs; ++i) RunOnce(*module, in, first, second, "run " + std::to_string(i));
}

uint64_t ProcessCalls() {
    return gProcessCalls;
}

}  // namespace fv2fuzz
