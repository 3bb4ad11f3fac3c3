// replay: every run of a recording played again through the module, loaded as the host loads
// it, each input delivered exactly as it was recorded, under the recorded configuration or
// another one; and a recording turned into a scenario whose expectations are what the
// recorded runs gave.
#include <cjson/cJSON.h>
#include <unistd.h>

#include <memory>

#include "base/diag.h"
#include "base/files.h"
#include "commands/replay.h"
#include "drive/recorded.h"
#include "drive/session.h"
#include "drive/texts.h"
#include "record/record.h"
#include "render/report.h"
#include "render/test_report.h"

namespace preview {
namespace {

namespace record = formatv2::record;

std::string HashText(uint64_t hash) {
    char text[20];
    std::snprintf(text, sizeof text, "%016llx", static_cast<unsigned long long>(hash));
    return text;
}

cJSON* ReplayJson(const record::Recording& rec, const Outcome& o) {
    cJSON* root = cJSON_CreateObject();
    cJSON_AddStringToObject(root, "recording", o.file.c_str());
    cJSON* runs = cJSON_AddArrayToObject(root, "runs");
    size_t next = 0;
    for (size_t i = 0; i < o.runs.size(); ++i) {
        cJSON* r = cJSON_CreateObject();
        cJSON_AddStringToObject(r, "name", o.runs[i].name.c_str());
        cJSON_AddNumberToObject(r, "index", static_cast<double>(rec.runs[i].index));
        cJSON_AddNumberToObject(r, "time_us", static_cast<double>(rec.runs[i].timeMicros));
        cJSON_AddStringToObject(r, "config", HashText(rec.runs[i].configHash).c_str());
        cJSON* differences = cJSON_CreateArray();
        for (; next < o.found.size() && o.found[next].run == static_cast<int>(i); ++next) {
            cJSON_AddItemToArray(differences, FindingJson(o, o.found[next]));
        }
        cJSON_AddBoolToObject(r, "same", differences->child == nullptr);
        cJSON_AddItemToObject(r, "differences", differences);
        cJSON_AddItemToArray(runs, r);
    }
    cJSON* skipped = cJSON_AddArrayToObject(root, "skipped");
    for (const std::string& s : rec.skipped)
        cJSON_AddItemToArray(skipped, cJSON_CreateString(s.c_str()));
    return root;
}

// ---- the recording as a scenario ----

// The value a scenario gives for a delivery; none for one that was not delivered. A frame
// entry of the map read: its first scalar, else its first list (a scenario gives one).
std::optional<Value> ScenarioValue(const record::Delivery& d) {
    const bool delivered = d.read == record::Read::kMap ? d.result != 0 && d.frame : d.result == 0;
    if (!delivered || d.entries.empty()) return std::nullopt;
    const record::Entry* chosen = &d.entries.front();
    for (const record::Entry& e : d.entries) {
        if (!record::IsList(e.table)) {
            chosen = &e;
            break;
        }
    }
    Value v = ValueOf(*chosen);
    // A getter's list of one reads alike as a single value; it is written as one.
    if (d.read != record::Read::kMap && ElementCount(*chosen) == 1) v.list = false;
    return v;
}

// Whether text is one JSON object as cJSON reads it, so that it can stand inline, byte for byte.
bool InlineObject(const std::string& text) {
    const char* end = nullptr;
    JsonPtr json(cJSON_ParseWithLengthOpts(text.c_str(), text.size(), &end, 0));
    return json && cJSON_IsObject(json.get()) && text.find('\0') == std::string::npos &&
           EscapeInvalidUtf8(text, Escape::kJson) == text;
}

// Writes the scenario to out; a configuration that cannot stand inline goes to a file beside
// it, named by its hash. False with the reason.
bool WriteScenario(const record::Recording& rec, const std::string& out, std::string& reason) {
    JsonPtr root(cJSON_CreateObject());
    const record::Header first = rec.headers.empty() ? record::Header{} : rec.headers.front();
    cJSON_AddNumberToObject(root.get(), "module_id", first.moduleId);
    cJSON_AddNumberToObject(root.get(), "algo_id", first.algoId);
    // Configurations go in as placeholders, replaced by their text once laid out.
    std::vector<std::pair<std::string, std::string>> placed;
    const auto configValue = [&](uint64_t hash) -> cJSON* {
        const auto it = rec.configs.find(hash);
        const std::string text = it != rec.configs.end() ? it->second : "";
        if (InlineObject(text)) {
            const std::string mark = "@config " + std::to_string(placed.size()) + "@";
            placed.emplace_back("\"" + mark + "\"", text);
            return cJSON_CreateString(mark.c_str());
        }
        const std::string slash = out.substr(0, out.find_last_of('/') + 1);
        const std::string name = "recorded-" + HashText(hash) + ".json";
        if (!WriteFile(slash + name, text, reason)) return nullptr;
        return cJSON_CreateString(name.c_str());
    };
    cJSON* runs = cJSON_CreateArray();
    std::optional<uint64_t> inForce;
    for (const record::Run& run : rec.runs) {
        cJSON* r = cJSON_CreateObject();
        cJSON_AddStringToObject(r, "name", RecordedName(run).c_str());
        if (!inForce) {
            cJSON* config = configValue(run.configHash);
            if (config == nullptr) return false;
            cJSON_AddItemToObject(root.get(), "config", config);
        } else if (*inForce != run.configHash) {
            cJSON* config = configValue(run.configHash);
            if (config == nullptr) return false;
            cJSON_AddItemToObject(r, "replace_config", config);
            cJSON* set = cJSON_AddObjectToObject(r, "set_param");
            cJSON_AddStringToObject(set, "name", kEnsureCommand);
            cJSON_AddStringToObject(set, "value", "1");
        }
        inForce = run.configHash;
        if (!run.inputFrame) cJSON_AddFalseToObject(r, "input_frame");
        if (run.inputFrame && run.imgModeSet) cJSON_AddNumberToObject(r, "img_mode", run.imgMode);
        cJSON* values = cJSON_AddObjectToObject(r, "values");
        for (const record::Delivery& d : run.inputs) {
            const std::optional<Value> v = ScenarioValue(d);
            if (v && !cJSON_GetObjectItemCaseSensitive(values, d.source.c_str()))
                cJSON_AddItemToObject(values, d.source.c_str(), ValueJson(*v));
        }
        RunReport gave;
        gave.status = run.status;
        gave.verdict = run.verdict;
        gave.showTextEn = run.showTextEn;
        gave.showTextCn = run.showTextCn;
        const Expectation e = RecordedResult(run);
        for (const auto& [name, value] : e.outputs) gave.outputs.push_back({name, *value});
        cJSON_AddItemToObject(r, "expect", RunExpectation(gave, std::nullopt));
        cJSON_AddItemToArray(runs, r);
    }
    if (!inForce) {
        reason = "the recording holds no run";
        return false;
    }
    cJSON_AddItemToObject(root.get(), "runs", runs);
    std::string text = LaidOut(root.get());
    for (const auto& [mark, config] : placed) text.replace(text.find(mark), mark.size(), config);
    return WriteFile(out, text, reason);
}

}  // namespace

bool Replay(const record::Recording& rec, const std::optional<std::string>& config,
            const Options& options, Outcome& o) {
    std::unique_ptr<Session> session;
    uint64_t sessionHash = 0;
    const record::Header first = rec.headers.empty() ? record::Header{} : rec.headers.front();
    for (size_t i = 0; i < rec.runs.size(); ++i) {
        const record::Run& run = rec.runs[i];
        RunSpec plan;
        plan.name = RecordedName(run);
        plan.recorded = &run;
        plan.expect = RecordedResult(run);
        RunReport report;
        report.name = plan.name;
        const auto text = config ? config : [&]() -> std::optional<std::string> {
            auto it = rec.configs.find(run.configHash);
            if (it == rec.configs.end()) return std::nullopt;
            return it->second;
        }();
        if (!text) {
            // Its configuration went with a file the cap removed, or was never written.
            Mismatch m;
            m.what = "configuration";
            m.expected = "configuration " + HashText(run.configHash);
            m.actual = "not in the recording";
            o.found.push_back({static_cast<int>(i), std::move(m)});
            o.scenario.runs.push_back(std::move(plan));
            o.runs.push_back(std::move(report));
            continue;
        }
        // A new session for each change of configuration, as the module read it on the device.
        if (!session || (!config && sessionHash != run.configHash)) {
            session = std::make_unique<Session>();
            sessionHash = run.configHash;
            Scenario scenario;
            scenario.config.name =
                config ? options.config : "configuration " + HashText(run.configHash);
            scenario.config.text = *text;
            scenario.moduleId = first.moduleId;
            scenario.algoId = first.algoId;
            InitReport init;
            std::string error;
            if (!session->Open(options.module, error) || !session->Init(scenario, init, error)) {
                o.error = error;
                return false;
            }
        }
        std::string error;
        session->Run(plan, report, error);
        AddUnrecorded(*plan.expect, report);
        size_t checks = 0;
        for (Mismatch& m : CheckRun(*plan.expect, report, checks)) {
            o.found.push_back({static_cast<int>(i), std::move(m)});
        }
        o.checks += checks;
        o.scenario.runs.push_back(std::move(plan));
        o.runs.push_back(std::move(report));
    }
    return true;
}

int ReplayCommand(const std::string& dir, const Options& options) {
    const Diagnostics diag(ColourFor(STDERR_FILENO));
    record::Recording rec;
    std::string why;
    if (!record::ReadRecordingDir(dir, rec, why)) {
        diag.Say(Severity::kError, DisplayName(dir), why);
        return kExitUsage;
    }
    for (const std::string& s : rec.skipped) diag.Say(Severity::kWarning, DisplayName(dir), s);
    if (!options.scenarioOut.empty()) {
        if (!WriteScenario(rec, options.scenarioOut, why)) {
            diag.Say(Severity::kError, options.scenarioOut, why);
            return kExitUsage;
        }
        return kExitOk;
    }
    std::optional<std::string> config;
    if (!options.config.empty()) {
        config.emplace();
        if (!ReadInput(options.config, *config, why)) {
            diag.Say(Severity::kError, DisplayName(options.config), why);
            return kExitUsage;
        }
    }
    std::vector<Outcome> outcomes(1);  // as JUnitXml takes them
    Outcome& o = outcomes.front();
    o.path = dir;
    o.file = DisplayName(dir);
    if (!Replay(rec, config, options, o)) {
        diag.Say(Severity::kError, "formatv2_preview", o.error);
        return kExitUsage;
    }
    if (options.json) {
        PrintJson(ReplayJson(rec, o));
    } else {
        PrintOutcome(o, ColourFor(STDOUT_FILENO));
    }
    if (!options.junit.empty() && !WriteFile(options.junit, JUnitXml(outcomes), why)) {
        diag.Say(Severity::kError, options.junit, why);
        return kExitUsage;
    }
    return o.found.empty() ? kExitOk : kExitFailed;
}

}  // namespace preview
