#include "commands/commands.h"

#include <cjson/cJSON.h>
#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>

#include "base/diag.h"
#include "base/files.h"
#include "check/check.h"
#include "drive/scenario.h"
#include "drive/session.h"
#include "log/log.h"
#include "record/recorder.h"
#include "render/expect.h"
#include "render/report.h"
#include "render/test_report.h"

namespace preview {
namespace {

std::vector<LogLine> Shown(const std::vector<LogLine>& log, int level) {
    std::vector<LogLine> out;
    for (const LogLine& line : log) {
        if (line.level >= level) out.push_back(line);
    }
    return out;
}

// Loads the module and reads the scenario's configuration; false (said) when the module
// cannot be loaded or given a working directory.
bool Start(Session& session, const Scenario& scenario, InitReport& init, const Options& options,
           const Diagnostics& diag) {
    std::string error;
    // Every log line is kept: a refusal is explained from the module's Err lines.
    if (session.Open(options.module, error) && session.Init(scenario, init, error)) {
        return true;
    }
    diag.Say(Severity::kError, "formatv2_preview", error);
    return false;
}

// The settings of the formatv2_record.json at path, with "dir" made absolute from path's
// folder: the module reads them in a working directory of its own.
bool RecordSettings(const std::string& path, std::string& out, const Diagnostics& diag) {
    std::string text;
    std::string why;
    formatv2::record::Settings settings;
    if (!ReadInput(path, text, why) || !formatv2::record::ReadSettings(text, settings, why)) {
        diag.Say(Severity::kError, DisplayName(path), why);
        return false;
    }
    if (settings.dir[0] != '/') {
        const size_t slash = path.find_last_of('/');
        std::string folder = slash == std::string::npos ? "." : path.substr(0, slash);
        char* real = realpath(folder.c_str(), nullptr);
        if (real == nullptr) {
            diag.Say(Severity::kError, DisplayName(path), std::strerror(errno));
            return false;
        }
        settings.dir = std::string(real) + "/" + settings.dir;
        std::free(real);
    }
    JsonPtr json(cJSON_CreateObject());
    cJSON_AddStringToObject(json.get(), "dir", settings.dir.c_str());
    cJSON_AddNumberToObject(json.get(), "max_bytes", static_cast<double>(settings.maxBytes));
    cJSON_AddStringToObject(json.get(), "runs", settings.failedOnly ? "failed" : "all");
    std::unique_ptr<char, decltype(&cJSON_free)> printed(cJSON_PrintUnformatted(json.get()),
                                                         &cJSON_free);
    out = printed ? printed.get() : "";
    return true;
}

bool IsScenarioName(const std::string& name) {
    const std::string suffix = ".scenario.json";
    return name == "scenario.json" ||
           (name.size() > suffix.size() &&
            name.compare(name.size() - suffix.size(), suffix.size(), suffix) == 0);
}

// Adds the scenario files below dir (scenario.json, *.scenario.json) to out, walking into
// sub-folders but not through links to folders; false with the system's reason.
bool WalkFolder(const std::string& dir, std::vector<std::string>& out, std::string& reason) {
    DIR* folder = opendir(dir.c_str());
    if (folder == nullptr) {
        reason = std::strerror(errno);
        return false;
    }
    std::vector<std::string> names;
    while (const dirent* entry = readdir(folder)) {
        const std::string name = entry->d_name;
        if (name != "." && name != "..") names.push_back(name);
    }
    closedir(folder);
    for (const std::string& name : names) {
        const std::string path = dir + (dir.back() == '/' ? "" : "/") + name;
        struct stat info {};
        if (lstat(path.c_str(), &info) != 0) continue;
        if (S_ISDIR(info.st_mode)) {
            if (!WalkFolder(path, out, reason)) return false;
        } else if (IsScenarioName(name) && stat(path.c_str(), &info) == 0 &&
                   S_ISREG(info.st_mode)) {
            out.push_back(path);
        }
    }
    return true;
}

// The files to test: each path given, or the scenario files below it in name order when it
// is a folder. A folder that cannot be read or holds none is said and makes the exit 2.
std::vector<std::string> ScenarioPaths(const std::vector<std::string>& paths,
                                       const Diagnostics& diag, int& exit) {
    std::vector<std::string> files;
    for (const std::string& path : paths) {
        struct stat info {};
        if (stat(path.c_str(), &info) != 0 || !S_ISDIR(info.st_mode)) {
            files.push_back(path);
            continue;
        }
        std::vector<std::string> found;
        std::string reason;
        if (!WalkFolder(path, found, reason) || found.empty()) {
            diag.Say(
                Severity::kError, path,
                reason.empty() ? "no scenario files (scenario.json, *.scenario.json)" : reason);
            exit = kExitUsage;
        }
        std::sort(found.begin(), found.end());
        files.insert(files.end(), found.begin(), found.end());
    }
    return files;
}

// The first read against expect_init; without it a refused read is a failure.
void CheckFirstRead(Outcome& o) {
    if (o.scenario.expectInit) {
        for (auto& m : CheckInit(*o.scenario.expectInit, o.init, o.checks)) {
            o.found.push_back({-1, std::move(m)});
        }
    } else if (o.init.status != 0) {
        Mismatch m = StatusMismatch(0, o.init.status);
        const auto refusal = Examine(o.init.status, o.scenario.config.text).refusal;
        if (refusal) {
            m.note = refusal->message;
            m.actual += ": " + refusal->message;
        }
        o.found.push_back({-1, std::move(m)});
    }
}

// Runs one scenario and compares; false only when the module cannot be loaded (said).
bool TestScenario(Outcome& o, const Options& options, const Diagnostics& diag) {
    FileError fileError;
    if (!LoadScenario(o.path, o.scenario, fileError)) {
        diag.Say(Severity::kError, fileError.where, fileError.message);
        o.error = fileError.where + ": " + fileError.message;
        return true;
    }
    using Clock = std::chrono::steady_clock;
    const auto since = [](Clock::time_point start) {
        return std::chrono::duration<double>(Clock::now() - start).count();
    };
    Session session;
    const Clock::time_point start = Clock::now();
    if (!Start(session, o.scenario, o.init, options, diag)) return false;
    o.initSeconds = since(start);
    std::string error;
    const bool played = Play(
        session, o.scenario, o.init, nullptr, LOG_LEVEL_INFO, [](const Examined&) {}, error,
        &o.runs);
    CheckFirstRead(o);
    for (size_t i = 0; i < o.runs.size(); ++i) {
        o.runSeconds.push_back(o.runs[i].seconds);
        if (!o.scenario.runs[i].expect) continue;
        for (auto& m : CheckRun(*o.scenario.runs[i].expect, o.runs[i], o.checks)) {
            o.found.push_back({static_cast<int>(i), std::move(m)});
        }
    }
    if (!played) {
        o.error = error;
        diag.Say(Severity::kError, o.file, o.error);
        return true;
    }
    if (o.checks == 0) {
        // So that a CI job never passes on a scenario that checks nothing.
        o.found.push_back(
            {-1,
             {"expectations", "at least one", "none: nothing is tested",
              JsonPtr(cJSON_CreateNull()), JsonPtr(cJSON_CreateNumber(0)), "", std::nullopt}});
    }
    return true;
}

// --update: a scenario that does not hold gets what its runs gave as its expectations. False
// (said) when the file cannot be rewritten: the scenario then still fails with its mismatches.
bool Update(Outcome& o, const Diagnostics& diag) {
    std::string text;
    std::string reason;
    if (o.path == "-") reason = "standard input cannot be updated";
    if (reason.empty() && UpdatedScenario(o, text, reason) && WriteFile(o.path, text, reason)) {
        o.updated = true;
        // A log text that no line contains cannot be turned into one that does: it goes.
        for (const Finding& f : o.found) {
            if (f.mismatch.what != "log") continue;
            const std::string place =
                f.run < 0 ? "expect_init" : "runs[" + std::to_string(f.run) + "].expect";
            diag.Say(Severity::kNote, o.file,
                     place + ".log: no log line contains \"" +
                         std::string(cJSON_GetStringValue(f.mismatch.expectedJson.get())) +
                         "\"; the text was dropped");
        }
        return true;
    }
    diag.Say(Severity::kError, o.file, reason);
    return false;
}

// The summary of a test: JSON, or a line per scenario and the counts.
void ReportOutcomes(const std::vector<Outcome>& outcomes, const Options& options, int exit) {
    if (options.json) {
        cJSON* root = cJSON_CreateObject();
        cJSON* list = cJSON_AddArrayToObject(root, "scenarios");
        for (const Outcome& o : outcomes) cJSON_AddItemToArray(list, OutcomeJson(o));
        cJSON_AddBoolToObject(root, "ok", exit == kExitOk);
        PrintJson(root);
        return;
    }
    size_t counts[4] = {};  // hold, do not, updated, could not be run
    for (const Outcome& o : outcomes) {
        PrintOutcome(o, ColourFor(STDOUT_FILENO));
        ++counts[o.Broken() ? 3 : o.Holds() ? 0 : o.updated ? 2 : 1];
    }
    Print("scenarios: %zu hold, %zu do not, ", counts[0], counts[1]);
    if (options.update) Print("%zu updated, ", counts[2]);
    Print("%zu could not be run\n", counts[3]);
}

}  // namespace

bool Play(Session& session, const Scenario& scenario, InitReport& init, Report* report,
          int logLevel, const std::function<void(const Examined&)>& told, std::string& error,
          std::vector<RunReport>* runs) {
    ConfigSource current = scenario.config;
    const Verdict verdict = Examine(init.status, current.text);
    told({std::nullopt, current, verdict});
    init.log = Shown(init.log, logLevel);
    if (report != nullptr) report->Init(init, verdict.refusal, verdict.warnings);

    for (size_t index = 0; index < scenario.runs.size(); ++index) {
        const RunSpec& plan = scenario.runs[index];
        RunReport run;
        if (plan.newConfig) current = *plan.newConfig;
        if (!session.Run(plan, run, error)) {
            error = "runs[" + std::to_string(index) + "]." + error;
            return false;
        }
        if (run.result && run.status != 0) run.explanation = ExplainRun(*run.result, current, plan);
        Verdict reread;
        if (run.tables) {
            reread = Examine(*run.paramStatus, current.text);
            told({index, current, reread});
        }
        run.log = Shown(run.log, logLevel);
        if (report != nullptr) report->Run(index, run, reread.refusal, reread.warnings);
        if (runs != nullptr) runs->push_back(std::move(run));
    }
    return true;
}

int RunCommand(const std::string& path, const Options& options) {
    const Diagnostics diag(ColourFor(STDERR_FILENO));
    Scenario scenario;
    FileError fileError;
    if (!LoadScenario(path, scenario, fileError)) {
        diag.Say(Severity::kError, fileError.where, fileError.message);
        return kExitUsage;
    }
    Session session;
    if (!options.record.empty()) {
        std::string settings;
        if (!RecordSettings(options.record, settings, diag)) return kExitUsage;
        session.RecordAs(settings);
    }
    InitReport init;
    if (!Start(session, scenario, init, options, diag)) return kExitUsage;
    Report report({options.json, !options.json && ColourFor(STDOUT_FILENO)});
    int exit = kExitOk;
    const auto told = [&](const Examined& e) {
        if (e.verdict.refusal) exit = kExitFailed;
        if (e.run && e.verdict.refusal) {
            diag.Say(Severity::kNote, DisplayName(path),
                     "runs[" + std::to_string(*e.run) +
                         "]: re-reading the configuration was refused; the module keeps what "
                         "the failed read left");
        }
        if (!e.config.embedding) return Tell(diag, e.config.name, e.config.text, e.verdict);
        Verdict placed = e.verdict;
        PlaceIn(placed, *e.config.embedding);
        Tell(diag, e.config.embedding->file, e.config.embedding->written, placed);
    };
    std::string error;
    const bool played = Play(session, scenario, init, &report, options.logLevel, told, error);
    report.Finish();
    if (!played) {
        diag.Say(Severity::kError, DisplayName(path), error);
        return kExitUsage;
    }
    return exit;
}

namespace {

// One configuration as check sees it.
struct Checked {
    std::string name;
    std::string error;  // the system's reason when the file cannot be read
    int status = 0;
    Tables tables;
    Verdict verdict;
};

// Reads file through the loaded module and examines it; false when the module cannot be loaded.
bool CheckFile(const std::string& file, const Options& options, const Diagnostics& diag,
               Checked& out) {
    out.name = DisplayName(file);
    Scenario scenario;
    scenario.config.name = out.name;
    if (!ReadInput(file, scenario.config.text, out.error)) {
        diag.Say(Severity::kError, out.name, out.error);
        return true;
    }
    if (KindOf(scenario.config.text) == FileKind::kScenario) {
        out.error = WrongKind(FileKind::kScenario, out.name);
        diag.Say(Severity::kError, out.name, out.error);
        return true;
    }
    Session session;
    InitReport init;
    if (!Start(session, scenario, init, options, diag)) return false;
    out.status = init.status;
    out.tables = init.tables;
    out.verdict = Examine(init.status, scenario.config.text);
    Disable(out.verdict, options.disabled);
    if (!options.json && !options.sarif) Tell(diag, out.name, scenario.config.text, out.verdict);
    return true;
}

cJSON* CheckJson(const Checked& c) {
    cJSON* entry = cJSON_CreateObject();
    cJSON_AddStringToObject(entry, "file", c.name.c_str());
    const Verdict& v = c.verdict;
    cJSON_AddBoolToObject(entry, "valid", c.error.empty() && !v.refusal && !EveryRunFails(v));
    if (v.refusal)
        cJSON_AddItemToObject(entry, "refusal", RefusalJson(*v.refusal));
    else
        cJSON_AddNullToObject(entry, "refusal");
    cJSON* all = cJSON_AddArrayToObject(entry, "refusals");
    for (const Refusal& r : v.refusals) cJSON_AddItemToArray(all, RefusalJson(r));
    cJSON_AddItemToObject(entry, "warnings", WarningsJson(v.warnings));
    if (!c.error.empty())
        cJSON_AddStringToObject(entry, "error", c.error.c_str());
    else if (!v.refusal)
        cJSON_AddItemToObject(entry, "tables", TablesJson(c.tables));
    return entry;
}

void CheckText(const Checked& c) {
    if (!c.error.empty()) return;
    const Verdict& v = c.verdict;
    const size_t errors =
        static_cast<size_t>(std::count_if(v.warnings.begin(), v.warnings.end(), Fails));
    const size_t n = v.warnings.size() - errors;
    const std::string warnings = std::to_string(n) + " warning" + (n == 1 ? "" : "s");
    if (v.refusal) {
        const size_t r = v.refusals.size();
        Print("%s: refused, %s; %zu refusal%s, %s\n", c.name.c_str(), StatusText(c.status).c_str(),
              r, r == 1 ? "" : "s", warnings.c_str());
        return;
    }
    if (errors > 0) {
        Print("%s: accepted, but every run fails; %zu error%s, %s\n", c.name.c_str(), errors,
              errors == 1 ? "" : "s", warnings.c_str());
    } else {
        Print("%s: valid%s\n", c.name.c_str(), n == 0 ? "" : (", " + warnings).c_str());
    }
    PrintTables(c.tables);
}

}  // namespace

int CheckCommand(const std::vector<std::string>& files, const Options& options) {
    const Diagnostics diag(ColourFor(STDERR_FILENO));
    std::vector<Checked> checked;
    int exit = kExitOk;
    for (const std::string& file : files) {
        Checked c;
        if (!CheckFile(file, options, diag, c)) return kExitUsage;
        if (!c.error.empty()) exit = kExitUsage;
        if (c.verdict.refusal || EveryRunFails(c.verdict) ||
            (options.strict && !c.verdict.warnings.empty())) {
            exit = std::max(exit, kExitFailed);
        }
        if (!options.json && !options.sarif) CheckText(c);
        checked.push_back(std::move(c));
    }
    if (options.sarif) {
        std::vector<SarifFile> sarif;
        for (const Checked& c : checked) sarif.push_back({c.name, c.error, &c.verdict});
        PrintJson(SarifJson(sarif, options.version));
    } else if (options.json) {
        cJSON* root = cJSON_CreateObject();
        cJSON* list = cJSON_AddArrayToObject(root, "files");
        for (const Checked& c : checked) cJSON_AddItemToArray(list, CheckJson(c));
        cJSON_AddBoolToObject(root, "valid", exit == kExitOk);
        PrintJson(root);
    }
    return exit;
}

int TestCommand(const std::vector<std::string>& paths, const Options& options) {
    const Diagnostics diag(ColourFor(STDERR_FILENO));
    int exit = kExitOk;
    std::vector<Outcome> outcomes;
    for (const std::string& path : ScenarioPaths(paths, diag, exit)) {
        Outcome& o = outcomes.emplace_back();
        o.path = path;
        o.file = DisplayName(path);
        if (!TestScenario(o, options, diag)) return kExitUsage;
        const bool unwritten = options.update && !o.Broken() && !o.Holds() && !Update(o, diag);
        const int mine = o.Holds() || o.updated ? kExitOk : kExitFailed;
        exit = std::max(exit, o.Broken() || unwritten ? kExitUsage : mine);
    }
    if (!options.junit.empty()) {
        std::string reason;
        if (!WriteFile(options.junit, JUnitXml(outcomes), reason)) {
            diag.Say(Severity::kError, options.junit, reason);
            exit = kExitUsage;
        }
    }
    ReportOutcomes(outcomes, options, exit);
    return exit;
}

}  // namespace preview
