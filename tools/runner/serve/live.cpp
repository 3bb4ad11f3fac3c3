#include "serve/live.h"

#include <cjson/cJSON.h>

#include <algorithm>
#include <numeric>

#include "base/diag.h"
#include "base/files.h"
#include "base/json_scan.h"
#include "base/rules.h"
#include "check/check.h"
#include "commands/commands.h"
#include "drive/recorded.h"
#include "drive/session.h"
#include "render/expect.h"
#include "render/report.h"

namespace preview {
namespace {

// The rows of a configuration, by their "ParamName" ("" for a row without a text name), for the
// page to name them.
struct Layout {
    std::vector<std::string> rows;
};

Layout LayoutOf(const std::string& text) {
    Layout out;
    const JsonPtr root(cJSON_Parse(text.c_str()));
    if (!cJSON_IsObject(root.get())) return out;
    const cJSON* rows = cJSON_GetObjectItem(root.get(), key::kSubParamList);
    for (const cJSON* row = cJSON_IsArray(rows) ? rows->child : nullptr; row; row = row->next) {
        const cJSON* rowName = cJSON_GetObjectItem(row, key::kParamName);
        out.rows.push_back(cJSON_IsString(rowName) ? rowName->valuestring : "");
    }
    return out;
}

// Each row of "SubParamList" with its name and the line its object starts on, for the page to
// point at.
cJSON* RowsJson(const std::string& text, const Layout& layout) {
    cJSON* rows = cJSON_CreateArray();
    const JsonScan scan = ScanJson(text);
    const JsonNode* list = scan.root ? Member(&*scan.root, key::kSubParamList) : nullptr;
    for (size_t k = 0; k < layout.rows.size(); ++k) {
        cJSON* row = cJSON_CreateObject();
        cJSON_AddStringToObject(row, "name", layout.rows[k].c_str());
        const bool placed = list != nullptr && k < list->members.size();
        if (placed) {
            cJSON_AddNumberToObject(
                row, "line", static_cast<double>(PlaceOf(text, list->members[k].begin).line));
        } else {
            cJSON_AddNullToObject(row, "line");
        }
        cJSON_AddItemToArray(rows, row);
    }
    return rows;
}

cJSON* ExpectJson(const std::vector<ExpectationCheck>& checks) {
    cJSON* list = cJSON_CreateArray();
    for (const ExpectationCheck& c : checks) {
        cJSON* item = cJSON_CreateObject();
        cJSON_AddStringToObject(item, "what", c.what.c_str());
        cJSON_AddStringToObject(item, "expected", c.expected.c_str());
        cJSON_AddStringToObject(item, "actual", c.actual.c_str());
        cJSON_AddBoolToObject(item, "holds", c.holds);
        if (c.difference.empty()) {
            cJSON_AddNullToObject(item, "difference");
        } else {
            cJSON_AddStringToObject(item, "difference", c.difference.c_str());
        }
        cJSON_AddItemToArray(list, item);
    }
    return list;
}

// Adds "expect" to the first read and to each run: every expectation and whether it holds, or
// null where the scenario expects nothing.
void AddExpectations(const Scenario& scenario, const InitReport& init,
                     const std::vector<RunReport>& played, cJSON* document) {
    cJSON* first = cJSON_GetObjectItem(document, "init");
    if (cJSON_IsObject(first)) {
        cJSON_AddItemToObject(first, "expect",
                              scenario.expectInit
                                  ? ExpectJson(EachExpectation(*scenario.expectInit, init))
                                  : cJSON_CreateNull());
    }
    cJSON* run = cJSON_GetObjectItem(document, "runs")
                     ? cJSON_GetObjectItem(document, "runs")->child
                     : nullptr;
    for (size_t i = 0; i < played.size() && run != nullptr; ++i, run = run->next) {
        const std::optional<Expectation>& expect = scenario.runs[i].expect;
        cJSON_AddItemToObject(
            run, "expect",
            expect ? ExpectJson(EachExpectation(*expect, played[i])) : cJSON_CreateNull());
    }
}

namespace record = formatv2::record;

// Keeps the newest cap runs, by the time they ran, in the order they were read.
void KeepNewest(std::vector<record::Run>& runs, size_t cap) {
    if (runs.size() <= cap) return;
    std::vector<size_t> order(runs.size());
    std::iota(order.begin(), order.end(), 0);
    std::stable_sort(order.begin(), order.end(),
                     [&](size_t a, size_t b) { return runs[a].timeMicros < runs[b].timeMicros; });
    std::vector<bool> keep(runs.size());
    for (size_t k = runs.size() - cap; k < runs.size(); ++k) keep[order[k]] = true;
    std::vector<record::Run> kept;
    for (size_t i = 0; i < runs.size(); ++i) {
        if (keep[i]) kept.push_back(std::move(runs[i]));
    }
    runs = std::move(kept);
}

// The recording files of the folder name inside root, each read through ReadInside, keeping
// the newest kRecordedRunsShown runs as it goes; total counts every run read. A file that is
// no recording (one the device has only just begun) is skipped with a note. False with why
// when the folder is not inside root or one of its files is no regular file inside it (before
// a byte of it is read), or when no file holds a recording.
bool ReadRecording(const std::string& root, const std::string& name, record::Recording& rec,
                   size_t& total, std::string& why) {
    std::vector<std::string> paths;
    if (!ListInside(root, name, record::kFileSuffix, paths, why)) {
        why = name + ": " + why;
        return false;
    }
    bool read = false;
    for (const std::string& path : paths) {
        const std::string shown = name + path.substr(path.rfind('/'));
        std::string bytes;
        if (!ReadInside(root, path, bytes, why)) {
            why = shown + ": " + why;
            return false;
        }
        const size_t before = rec.runs.size();
        std::string notRecording;
        if (!record::ReadRecordFile(bytes, shown, rec, notRecording)) {
            rec.skipped.push_back(notRecording);
            continue;
        }
        read = true;
        total += rec.runs.size() - before;
        KeepNewest(rec.runs, kRecordedRunsShown);
    }
    if (!read) {
        why =
            name + ": " +
            (paths.empty() ? "no recording files (*" + std::string(record::kFileSuffix) + ") in it"
                           : rec.skipped.front());
    }
    return read;
}

// The recorded runs as the scenario's runs, each expecting what it gave when it was recorded.
void PlayRecorded(const record::Recording& rec, Scenario& scenario) {
    const record::Header first = rec.headers.empty() ? record::Header{} : rec.headers.front();
    scenario.moduleId = first.moduleId;
    scenario.algoId = first.algoId;
    for (const record::Run& run : rec.runs) {
        RunSpec plan;
        plan.name = RecordedName(run);
        plan.recorded = &run;
        plan.expect = RecordedResult(run);
        scenario.runs.push_back(std::move(plan));
    }
}

cJSON* RecordingJson(const std::string& name, const record::Recording& rec, size_t total) {
    cJSON* json = cJSON_CreateObject();
    cJSON_AddStringToObject(json, "name", name.c_str());
    cJSON_AddNumberToObject(json, "runs", static_cast<double>(total));
    cJSON_AddNumberToObject(json, "shown", static_cast<double>(rec.runs.size()));
    cJSON_AddNumberToObject(json, "cap", static_cast<double>(kRecordedRunsShown));
    cJSON* skipped = cJSON_AddArrayToObject(json, "skipped");
    for (const std::string& s : rec.skipped)
        cJSON_AddItemToArray(skipped, cJSON_CreateString(s.c_str()));
    return json;
}

// Adds "recorded" to each run of the report: when it ran, its number, and whether it ran under
// the configuration previewed, byte for byte.
void AddRecorded(const record::Recording& rec, const std::string& config, cJSON* document) {
    const uint64_t hash = record::ConfigHash(config);
    const cJSON* runs = cJSON_GetObjectItem(document, "runs");
    cJSON* run = runs != nullptr ? runs->child : nullptr;
    for (size_t i = 0; i < rec.runs.size() && run != nullptr; ++i, run = run->next) {
        cJSON* recorded = cJSON_AddObjectToObject(run, "recorded");
        cJSON_AddNumberToObject(recorded, "time_us", static_cast<double>(rec.runs[i].timeMicros));
        cJSON_AddNumberToObject(recorded, "index", static_cast<double>(rec.runs[i].index));
        cJSON_AddBoolToObject(recorded, "same_config", rec.runs[i].configHash == hash);
    }
}

}  // namespace

cJSON* LiveJson(const LiveInput& input) {
    cJSON* root = cJSON_CreateObject();
    Scenario scenario;
    record::Recording recording;  // the runs that scenario's point into
    if (input.recording) {
        size_t total = 0;
        std::string why;
        if (ReadRecording(input.root, *input.recording, recording, total, why)) {
            PlayRecorded(recording, scenario);
            cJSON_AddItemToObject(root, "recording",
                                  RecordingJson(*input.recording, recording, total));
        } else {
            cJSON* bad = cJSON_AddObjectToObject(root, "recording_error");
            cJSON_AddStringToObject(bad, "message", why.c_str());
            recording.runs.clear();
        }
    } else if (input.scenarioText) {
        FileError error;
        if (!LoadScenarioText(input.scenarioPath, *input.scenarioText, scenario, error,
                              input.root)) {
            cJSON* bad = cJSON_AddObjectToObject(root, "scenario_error");
            cJSON_AddStringToObject(bad, "where", error.where.c_str());
            cJSON_AddStringToObject(bad, "message", error.message.c_str());
            scenario = Scenario{};  // the configuration's first read is still shown
        }
    }
    scenario.config = {input.configName, input.configText, std::nullopt};
    cJSON_AddItemToObject(root, "rows", RowsJson(input.configText, LayoutOf(input.configText)));

    Session session;
    InitReport init;
    std::string error;
    if (!session.Open(input.module, error) || !session.Init(scenario, init, error)) {
        cJSON_AddStringToObject(root, "error", error.c_str());
        return root;
    }
    Report report({true, false});
    const auto told = [&](const Examined& e) {
        if (e.run) return;
        cJSON* check = cJSON_AddObjectToObject(root, "check");
        cJSON* refusals = cJSON_AddArrayToObject(check, "refusals");
        for (const Refusal& r : e.verdict.refusals) cJSON_AddItemToArray(refusals, RefusalJson(r));
        cJSON_AddItemToObject(check, "warnings", WarningsJson(e.verdict.warnings));
    };
    std::vector<RunReport> runs;
    const bool played = Play(session, scenario, init, &report, LOG_LEVEL_INFO, told, error, &runs);
    cJSON* document = report.Take();
    if (!played) cJSON_AddStringToObject(root, "error", error.c_str());
    cJSON_AddItemToObject(root, "report", document);
    if (input.recording) {
        for (size_t i = 0; i < runs.size(); ++i) AddUnrecorded(*scenario.runs[i].expect, runs[i]);
        AddRecorded(recording, scenario.config.text, document);
    }
    AddExpectations(scenario, init, runs, document);
    return root;
}

std::string LiveRequest(const LiveServer& server, const std::string& body) {
    cJSON* line = cJSON_CreateObject();
    cJSON_AddStringToObject(line, "module", server.module.c_str());
    cJSON_AddStringToObject(line, "root", server.root.c_str());
    cJSON_AddStringToObject(line, "config_name", server.configName.c_str());
    cJSON_AddStringToObject(line, "scenario_name", server.scenarioName.c_str());
    cJSON_AddNumberToObject(line, "memory_mib", static_cast<double>(server.limits.memoryMiB));
    cJSON_AddNumberToObject(line, "seconds", server.limits.seconds);
    cJSON_AddNumberToObject(line, "output_bytes", static_cast<double>(server.limits.outputBytes));
    // Unformatted: a newline inside a text is written as \n, so the line ends where it ends.
    std::unique_ptr<char, decltype(&cJSON_free)> text(cJSON_PrintUnformatted(line), &cJSON_free);
    cJSON_Delete(line);
    return (text ? std::string(text.get()) : std::string("{}")) + "\n" + body;
}

bool ReadLiveRequest(const std::string& request, LiveInput& input, ChildLimits& limits,
                     std::string& reason) {
    const size_t newline = request.find('\n');
    const JsonPtr server(
        newline == std::string::npos ? nullptr : cJSON_Parse(request.substr(0, newline).c_str()));
    const auto text = [&](const char* key) {
        return cJSON_GetStringValue(cJSON_GetObjectItemCaseSensitive(server.get(), key));
    };
    const auto number = [&](const char* key) {
        return cJSON_GetNumberValue(cJSON_GetObjectItemCaseSensitive(server.get(), key));
    };
    for (const char* key : {"module", "root", "config_name", "scenario_name"}) {
        if (text(key) == nullptr) {
            reason = "no evaluation request";
            return false;
        }
    }
    input.module = text("module");
    input.root = text("root");
    input.configName = text("config_name");
    const std::string scenarioName = text("scenario_name");
    input.scenarioPath = input.root + "/" + (scenarioName.empty() ? "scenario.json" : scenarioName);
    limits.memoryMiB = static_cast<size_t>(number("memory_mib"));
    limits.seconds = static_cast<int>(number("seconds"));
    limits.outputBytes = static_cast<size_t>(number("output_bytes"));

    const std::string body = request.substr(newline + 1);
    const JsonPtr page(cJSON_ParseWithLength(body.data(), body.size()));
    const cJSON* config = cJSON_GetObjectItemCaseSensitive(page.get(), "config");
    const cJSON* scenario = cJSON_GetObjectItemCaseSensitive(page.get(), "scenario");
    const cJSON* recording = cJSON_GetObjectItemCaseSensitive(page.get(), "recording");
    const auto textOrNull = [](const cJSON* item) {
        return item == nullptr || cJSON_IsNull(item) || cJSON_IsString(item);
    };
    if (!cJSON_IsObject(page.get()) || !textOrNull(config) || !textOrNull(scenario) ||
        !textOrNull(recording)) {
        reason =
            "the request needs \"config\" and \"scenario\", each a text or null, and "
            "\"recording\" a folder or null";
        return false;
    }
    // Read in LiveJson, under the child's limits.
    if (cJSON_IsString(recording)) input.recording = recording->valuestring;
    // null: the editor could not hold the file exactly, and the file on disk is previewed.
    if (cJSON_IsString(config)) {
        input.configText = config->valuestring;
    } else if (!ReadInside(input.root, input.root + "/" + input.configName, input.configText,
                           reason)) {
        reason = input.configName + ": " + reason;
        return false;
    }
    if (scenarioName.empty()) return true;
    if (cJSON_IsString(scenario)) {
        input.scenarioText = scenario->valuestring;
        return true;
    }
    std::string onDisk;
    if (!ReadInside(input.root, input.scenarioPath, onDisk, reason)) {
        reason = scenarioName + ": " + reason;
        return false;
    }
    input.scenarioText = onDisk;
    return true;
}

int EvaluateCommand() {
    std::string request;
    std::string reason;
    LiveInput input;
    ChildLimits limits;
    if (!ReadInput("-", request, reason) || !ReadLiveRequest(request, input, limits, reason)) {
        Diagnostics(false).Say(Severity::kError, "formatv2_preview", reason);
        return kExitUsage;
    }
    if (!ApplyLimits(limits, reason)) {
        Diagnostics(false).Say(Severity::kError, "formatv2_preview", reason);
        return kExitFailed;
    }
    PrintJson(LiveJson(input), true);  // for the page: no one reads it, and it is a third smaller
    return kExitOk;
}

}  // namespace preview
