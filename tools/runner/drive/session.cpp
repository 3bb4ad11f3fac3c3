#include "drive/session.h"

#include <dlfcn.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <fstream>
#include <map>

#include "base/diag.h"
#include "contract/contract.h"
#include "host/algo.h"
#include "log/log.h"

namespace preview {
namespace {

using CreateFn = CAbstractUserModule* (*)();
using DestroyFn = void (*)(void*, CAbstractUserModule*);
using RecordRunsFn = void (*)(CAbstractUserModule*, int);
using LastRunFn = const formatv2::RunResult* (*)(const CAbstractUserModule*);
using NameNextRunFn = void (*)(CAbstractUserModule*, const char*);
using PrtInitFn = int (*)(int, unsigned int, log_spawn_t);
using SetCallbackerFn = void (*)(int, log_callbacker_t);

// The module logs through the callback only: log_prt_init leaves every threshold at "off",
// so nothing reaches standard output, and each line the callback accepts is kept here.
std::vector<LogLine>* g_logSink = nullptr;

int CollectLine(int /*module*/, int level, int /*flag*/, const char* line, int len) {
    if (g_logSink != nullptr && line != nullptr && len > 0) {
        g_logSink->push_back({level, std::string(line, static_cast<size_t>(len))});
    }
    return 0;
}

// Collects the log lines written while it lives.
class LogCapture {
  public:
    explicit LogCapture(std::vector<LogLine>& sink) { g_logSink = &sink; }
    ~LogCapture() { g_logSink = nullptr; }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;
};

template <typename T>
void AddOutputs(const std::unordered_map<std::string, T>& table, Value::Kind kind, bool list,
                std::vector<Output>& out) {
    for (const auto& [name, data] : table) {
        if (name.rfind(kEntryPrefix, 0) == 0) continue;
        Output o;
        o.name = name;
        o.value.kind = kind;
        o.value.list = list;
        if constexpr (std::is_same_v<T, int>) o.value.ints = {data};
        if constexpr (std::is_same_v<T, float>) o.value.floats = {data};
        if constexpr (std::is_same_v<T, std::string>) o.value.texts = {data};
        if constexpr (std::is_same_v<T, std::vector<int>>) o.value.ints = data;
        if constexpr (std::is_same_v<T, std::vector<float>>) o.value.floats = data;
        if constexpr (std::is_same_v<T, std::vector<std::string>>) o.value.texts = data;
        out.push_back(std::move(o));
    }
}

// Outputs in the order of the publish table, the rest by name.
void SortOutputs(std::vector<Output>& outputs, const Tables& tables) {
    std::map<std::string, size_t> rank;
    for (size_t i = 0; i < tables.publications.size(); ++i) {
        rank.emplace(tables.publications[i].param_name, i);
    }
    auto key = [&](const Output& o) {
        auto it = rank.find(o.name);
        return std::make_pair(it == rank.end() ? rank.size() : it->second, o.name);
    };
    std::stable_sort(outputs.begin(), outputs.end(),
                     [&](const Output& a, const Output& b) { return key(a) < key(b); });
}

void FillPublisherFrame(CScFrame& frame, const std::string& key, const Value& value) {
    switch (value.kind) {
        case Value::Kind::kInt:
            if (value.list)
                frame.IntListTable[key] = value.ints;
            else if (!value.ints.empty())
                frame.IntTable[key] = value.ints[0];
            break;
        case Value::Kind::kFloat:
            if (value.list)
                frame.FloatListTable[key] = value.floats;
            else if (!value.floats.empty())
                frame.FloatTable[key] = value.floats[0];
            break;
        case Value::Kind::kString:
            if (value.list)
                frame.StringListTable[key] = value.texts;
            else if (!value.texts.empty())
                frame.StringTable[key] = value.texts[0];
            break;
    }
}

}  // namespace

Value ValueOf(const formatv2::record::Entry& entry) {
    using formatv2::record::Table;
    Value v;
    v.list = formatv2::record::IsList(entry.table);
    switch (entry.table) {
        case Table::kInt:
        case Table::kIntList:
            v.kind = Value::Kind::kInt;
            v.ints.assign(entry.ints.begin(), entry.ints.end());
            break;
        case Table::kFloat:
        case Table::kFloatList:
            v.kind = Value::Kind::kFloat;
            v.floats = entry.floats;
            break;
        case Table::kString:
        case Table::kStringList:
            v.kind = Value::Kind::kString;
            v.texts = entry.texts;
            break;
    }
    return v;
}

size_t ElementCount(const formatv2::record::Entry& entry) {
    return entry.ints.size() + entry.floats.size() + entry.texts.size();
}

struct Session::Library {
    void* handle = nullptr;
    CreateFn create = nullptr;
    DestroyFn destroy = nullptr;
    RecordRunsFn recordRuns = nullptr;  // null, as lastRun, for a module that cannot tell
    LastRunFn lastRun = nullptr;
    NameNextRunFn nameNextRun = nullptr;  // null for a module that cannot record
    ~Library() {
        // The host's records still hold output frames, and the module made objects inside
        // them: they must go while the module's code is still loaded.
        standin::Reset();
        if (handle != nullptr) dlclose(handle);
    }
};

Session::Session() = default;

Session::~Session() {
    if (m_module != nullptr) m_library->destroy(nullptr, m_module);
    if (!m_workDir.empty()) {
        unlink((m_workDir + "/" + kConfigFileName).c_str());
        unlink((m_workDir + "/" + formatv2::record::kSettingsFileName).c_str());
        rmdir(m_workDir.c_str());
    }
}

bool Session::Open(const std::string& library, std::string& error) {
    auto lib = std::make_unique<Library>();
    lib->handle = dlopen(library.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (lib->handle == nullptr) {
        error = std::string("cannot load the module library: ") + dlerror();
        return false;
    }
    lib->create = reinterpret_cast<CreateFn>(dlsym(lib->handle, "CreateModule"));
    lib->destroy = reinterpret_cast<DestroyFn>(dlsym(lib->handle, "DestroyModule"));
    auto prtInit = reinterpret_cast<PrtInitFn>(dlsym(lib->handle, "log_prt_init"));
    auto setCallbacker =
        reinterpret_cast<SetCallbackerFn>(dlsym(lib->handle, "log_set_callbacker"));
    if (!lib->create || !lib->destroy || !prtInit || !setCallbacker) {
        error = library + " does not export CreateModule, DestroyModule and the log functions";
        return false;
    }
    lib->recordRuns = reinterpret_cast<RecordRunsFn>(dlsym(lib->handle, "FormatV2RecordRuns"));
    lib->lastRun = reinterpret_cast<LastRunFn>(dlsym(lib->handle, "FormatV2LastRun"));
    lib->nameNextRun = reinterpret_cast<NameNextRunFn>(dlsym(lib->handle, "FormatV2NameNextRun"));
    prtInit(0, 0, nullptr);
    setCallbacker(LOG_LEVEL_INFO, CollectLine);
    m_library = std::move(lib);
    return true;
}

bool Session::WriteConfig(const std::string& text) {
    std::ofstream out(m_workDir + "/" + kConfigFileName, std::ios::binary | std::ios::trunc);
    out << text;
    return static_cast<bool>(out);
}

Tables Session::ReadTables() {
    Tables tables;
    const int subs = m_module->GetDynamicSubScribeParamNum();
    for (int i = 0; i < subs; ++i) {
        DYNAMIC_SUBSCRIBE_PARAM record{};
        if (m_module->GetDynamicSingleSubScribeParam(i, &record) == 0) {
            tables.subscriptions.push_back(record);
        }
    }
    const int pubs = m_module->GetDynamicPublishParamNum();
    for (int i = 0; i < pubs; ++i) {
        DYNAMIC_PUBLISH_PARAM record{};
        if (m_module->GetDynamicSinglePublishParam(i, &record) == 0) {
            tables.publications.push_back(record);
            if (std::find(m_outputNames.begin(), m_outputNames.end(), record.param_name) ==
                m_outputNames.end()) {
                m_outputNames.emplace_back(record.param_name);
            }
        }
    }
    return tables;
}

bool Session::Init(const Scenario& scenario, InitReport& report, std::string& error) {
    char dir[] = "/tmp/formatv2-preview-XXXXXX";
    if (mkdtemp(dir) == nullptr) {
        error = "cannot create a working directory";
        return false;
    }
    m_workDir = dir;
    if (!WriteConfig(scenario.config.text)) {
        error = "cannot write " + m_workDir + "/" + kConfigFileName;
        return false;
    }
    if (!m_recordSettings.empty()) {
        const std::string path = m_workDir + "/" + formatv2::record::kSettingsFileName;
        std::ofstream out(path, std::ios::binary | std::ios::trunc);
        if (!(out << m_recordSettings)) {
            error = "cannot write " + path;
            return false;
        }
    }

    // Each session starts from a host that has seen nothing: no parameters, no result calls.
    standin::Reset();
    standin::DeclareParam(kEnsureCommand, PARAM_TYPE_STRING, {}, "");
    for (const ParamDecl& p : scenario.params) {
        standin::DeclareParam(p.name, p.type, p.accepted, p.initial);
    }

    LogCapture capture(report.log);
    m_module = m_library->create();
    m_module->SetModuleId(scenario.moduleId);
    if (m_library->recordRuns != nullptr) m_library->recordRuns(m_module, 1);
    // The host gives every module its algorithm id before initialising it.
    static_cast<CAlgo*>(m_module)->AlgoId = scenario.algoId;
    report.status = m_module->SetPwd(m_workDir.c_str());
    if (report.status == 0) report.status = m_module->InitAlgoPrivate();
    m_accepted = report.status == 0;
    m_tables = ReadTables();
    report.tables = m_tables;
    return true;
}

// Sets the run's parameter; with "CommandFormatV2Ensure" the module reads its
// configuration again and the tables are read anew.
void Session::SetParam(const RunSpec& plan, RunReport& report) {
    report.paramStatus = m_module->SetParam(plan.paramName->c_str(), plan.paramValue.c_str(),
                                            static_cast<int>(plan.paramValue.size()));
    if (*plan.paramName == kEnsureCommand) {
        m_accepted = *report.paramStatus == 0;
        m_tables = ReadTables();
        report.tables = m_tables;
    }
}

// Every publisher named by a subscription has a frame; each of its outputs is stored under
// the output's name, and input N is wired to entry N's publisher and output. False (with
// error) for a value that no subscription of an accepted configuration reads.
void Session::WireRecorded(const formatv2::record::Run& run, standin::InputHandle& input) {
    using formatv2::record::Delivery;
    using formatv2::record::Read;
    for (const DYNAMIC_SUBSCRIBE_PARAM& entry : m_tables.subscriptions) {
        const std::string source = std::string(entry.pub.algo_name) + ":" + entry.pub.param_name;
        const auto d = std::find_if(run.inputs.begin(), run.inputs.end(),
                                    [&](const Delivery& r) { return r.source == source; });
        // Not recorded, not delivered or not resolved: the input stays unbound, and every
        // host call for it fails.
        const bool delivered =
            d != run.inputs.end() && (d->read == Read::kMap ? d->result != 0 : d->result == 0);
        if (!delivered) continue;
        std::shared_ptr<CScFrame> frame;
        if (d->read != Read::kMap || d->frame) {
            frame = std::make_shared<CScFrame>();
            for (const formatv2::record::Entry& e : d->entries)
                FillPublisherFrame(*frame, entry.pub.param_name, ValueOf(e));
        }
        input.Bind(entry.sub.param_name, frame, entry.pub.param_name);
        const size_t length = d->entries.empty() ? 0 : ElementCount(d->entries[0]);
        if (d->read != Read::kMap && static_cast<size_t>(d->count) != length)
            input.countOverride[entry.sub.param_name] = d->count;
    }
    input.frame = run.inputFrame ? std::make_shared<CScFrame>() : nullptr;
    if (run.inputFrame && run.imgModeSet) input.frame->IntTable[kEntryImgMode] = run.imgMode;
}

bool Session::Wire(const RunSpec& plan, standin::InputHandle& input, RunReport& report,
                   std::string& error) {
    if (plan.recorded != nullptr) {
        WireRecorded(*plan.recorded, input);
        return true;
    }
    std::map<std::string, std::shared_ptr<CScFrame>> publishers;
    std::vector<std::string> names;  // "publisher:output" of every subscription
    for (const DYNAMIC_SUBSCRIBE_PARAM& entry : m_tables.subscriptions) {
        auto& frame = publishers[entry.pub.algo_name];
        if (!frame) frame = std::make_shared<CScFrame>();
        input.Bind(entry.sub.param_name, frame, entry.pub.param_name);
        names.push_back(std::string(entry.pub.algo_name) + ":" + entry.pub.param_name);
    }
    for (const auto& [key, value] : plan.values) {
        const size_t colon = key.find(':');
        if (std::find(names.begin(), names.end(), key) != names.end()) {
            FillPublisherFrame(*publishers[key.substr(0, colon)], key.substr(colon + 1), value);
        } else if (!m_accepted) {
            report.skippedValues.push_back(key);
        } else {
            error = "values." + key + ": no subscription of the module reads this value" +
                    DidYouMean(ClosestWord(key, names));
            return false;
        }
    }
    if (plan.inputFrame) {
        input.frame = std::make_shared<CScFrame>();
        if (plan.imgMode) input.frame->IntTable[kEntryImgMode] = *plan.imgMode;
    }
    return true;
}

// What the run left in its output frame and in the host's result manager.
void Session::Collect(CScFrame& out, RunReport& report) const {
    auto text = out.StringTable.find(kEntryStatusText);
    report.verdict = text != out.StringTable.end() ? text->second : "";
    if (auto cn = out.StringTable.find(kEntryTextCn); cn != out.StringTable.end()) {
        report.showTextCn = cn->second;
    }
    if (auto en = out.StringTable.find(kEntryTextEn); en != out.StringTable.end()) {
        report.showTextEn = en->second;
    }
    AddOutputs(out.IntTable, Value::Kind::kInt, false, report.outputs);
    AddOutputs(out.FloatTable, Value::Kind::kFloat, false, report.outputs);
    AddOutputs(out.StringTable, Value::Kind::kString, false, report.outputs);
    AddOutputs(out.IntListTable, Value::Kind::kInt, true, report.outputs);
    AddOutputs(out.FloatListTable, Value::Kind::kFloat, true, report.outputs);
    AddOutputs(out.StringListTable, Value::Kind::kString, true, report.outputs);
    SortOutputs(report.outputs, m_tables);
    report.outputNames = m_outputNames;
    if (auto* pubs = out.getData<DynamicPubRecords>(kDynamicPubKey, false)) {
        report.dynamicPub.assign(pubs->begin(), pubs->end());
    }
    report.resultCalls = standin::TakeResultCalls();
    for (auto& call : report.resultCalls) call.frame.reset();
}

bool Session::Run(const RunSpec& plan, RunReport& report, std::string& error) {
    const auto start = std::chrono::steady_clock::now();
    report.name = plan.name;
    LogCapture capture(report.log);
    standin::TakeResultCalls();  // the calls of earlier runs and of the reads are theirs
    if (plan.newConfig && !WriteConfig(plan.newConfig->text)) {
        error = "cannot write the replaced configuration";
        return false;
    }
    if (plan.paramName) SetParam(plan, report);
    standin::InputHandle input;
    if (!Wire(plan, input, report, error)) return false;
    standin::OutputHandle output;
    if (!m_recordSettings.empty() && m_library->nameNextRun != nullptr)
        m_library->nameNextRun(m_module, plan.name.c_str());
    report.status = m_module->Process(input.handle(), output.handle());
    Collect(*output.frame, report);
    if (m_library->lastRun != nullptr) {
        if (const formatv2::RunResult* told = m_library->lastRun(m_module)) report.result = *told;
    }
    report.seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    return true;
}

}  // namespace preview
