#include "commands.h"

#include <cjson/cJSON.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <system_error>

#include "check.h"
#include "diag.h"
#include "expect.h"
#include "lint.h"
#include "log/log.h"
#include "report.h"
#include "scenario.h"
#include "session.h"

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

// Scenario files below a folder: scenario.json and *.scenario.json, in name order.
std::vector<std::string> ScenarioFiles(const std::string& dir, std::error_code& ec) {
    std::vector<std::string> out;
    namespace fs = std::filesystem;
    for (fs::recursive_directory_iterator it(dir, ec), end; !ec && it != end; it.increment(ec)) {
        const std::string name = it->path().filename().string();
        const std::string suffix = ".scenario.json";
        if (it->is_regular_file() &&
            (name == "scenario.json" ||
             (name.size() > suffix.size() &&
              name.compare(name.size() - suffix.size(), suffix.size(), suffix) == 0))) {
            out.push_back(it->path().string());
        }
    }
    std::sort(out.begin(), out.end());
    return out;
}

}  // namespace

int RunCommand(const std::string& path, const Options& options) {
    const Diagnostics diag(ColourFor(STDERR_FILENO));
    Scenario scenario;
    FileError fileError;
    if (!LoadScenario(path, scenario, fileError)) {
        diag.Say(Severity::kError, fileError.where, fileError.message);
        return kExitUsage;
    }
    Session session;
    InitReport init;
    if (!Start(session, scenario, init, options, diag)) return kExitUsage;
    Report report({options.json, !options.json && ColourFor(STDOUT_FILENO)});
    std::string error;
    int exit = kExitOk;
    ConfigSource current = scenario.config;
    Verdict verdict = Examine(init.status, current.text);
    Tell(diag, current.name, current.text, verdict);
    if (verdict.refusal) exit = kExitFailed;
    init.log = Shown(init.log, options.logLevel);
    report.Init(init, verdict.refusal, verdict.warnings);

    int index = 0;
    for (const RunSpec& plan : scenario.runs) {
        RunReport run;
        if (plan.newConfig) current = *plan.newConfig;
        const std::string where = "runs[" + std::to_string(index) + "]";
        if (!session.Run(plan, run, error)) {
            report.Finish();
            diag.Say(Severity::kError, DisplayName(path), where + "." + error);
            return kExitUsage;
        }
        Verdict reread;
        if (run.tables) {
            reread = Examine(*run.paramStatus, current.text);
            if (reread.refusal) {
                diag.Say(Severity::kNote, DisplayName(path),
                         where + ": re-reading the configuration was refused; the module keeps "
                                 "what the failed read left");
                exit = kExitFailed;
            }
            Tell(diag, current.name, current.text, reread);
        }
        run.log = Shown(run.log, options.logLevel);
        report.Run(++index, run, reread.refusal, reread.warnings);
    }
    report.Finish();
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
    cJSON_AddBoolToObject(entry, "valid", c.error.empty() && !v.refusal);
    if (v.refusal) cJSON_AddItemToObject(entry, "refusal", RefusalJson(*v.refusal));
    else cJSON_AddNullToObject(entry, "refusal");
    cJSON* all = cJSON_AddArrayToObject(entry, "refusals");
    for (const Refusal& r : v.refusals) cJSON_AddItemToArray(all, RefusalJson(r));
    cJSON_AddItemToObject(entry, "warnings", WarningsJson(v.warnings));
    if (!c.error.empty()) cJSON_AddStringToObject(entry, "error", c.error.c_str());
    else if (!v.refusal) cJSON_AddItemToObject(entry, "tables", TablesJson(c.tables));
    return entry;
}

void CheckText(const Checked& c) {
    if (!c.error.empty()) return;
    const Verdict& v = c.verdict;
    const size_t n = v.warnings.size();
    const std::string warnings = std::to_string(n) + " warning" + (n == 1 ? "" : "s");
    if (v.refusal) {
        const size_t r = v.refusals.size();
        std::printf("%s: refused, %s; %zu refusal%s, %s\n", c.name.c_str(),
                    StatusText(c.status).c_str(), r, r == 1 ? "" : "s", warnings.c_str());
        return;
    }
    std::printf("%s: valid%s\n", c.name.c_str(), n == 0 ? "" : (", " + warnings).c_str());
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
        if (c.verdict.refusal || (options.strict && !c.verdict.warnings.empty())) {
            exit = std::max(exit, kExitFailed);
        }
        if (!options.json && !options.sarif) CheckText(c);
        checked.push_back(std::move(c));
    }
    if (options.sarif) {
        std::vector<SarifFile> sarif;
        for (const Checked& c : checked) sarif.push_back({c.name, c.error, &c.verdict});
        PrintJson(SarifJson(sarif));
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
    const bool colour = !options.json && ColourFor(STDOUT_FILENO);
    std::vector<std::string> files;
    int exit = kExitOk;
    for (const std::string& path : paths) {
        std::error_code ec;
        if (!std::filesystem::is_directory(path, ec)) {
            files.push_back(path);
            continue;
        }
        const auto found = ScenarioFiles(path, ec);
        if (ec || found.empty()) {
            diag.Say(Severity::kError, path,
                     ec ? ec.message() : "no scenario files (scenario.json, *.scenario.json)");
            exit = kExitUsage;
        }
        files.insert(files.end(), found.begin(), found.end());
    }

    cJSON* root = options.json ? cJSON_CreateObject() : nullptr;
    cJSON* list = options.json ? cJSON_AddArrayToObject(root, "scenarios") : nullptr;
    size_t passed = 0;
    size_t failed = 0;
    size_t broken = 0;  // could not be run: not a valid scenario, a value nothing reads
    auto brokenEntry = [&](const std::string& name, const std::string& message) {
        ++broken;
        exit = kExitUsage;
        if (list == nullptr) return;
        cJSON* entry = cJSON_CreateObject();
        cJSON_AddStringToObject(entry, "file", name.c_str());
        cJSON_AddBoolToObject(entry, "ok", false);
        cJSON_AddStringToObject(entry, "error", message.c_str());
        cJSON_AddItemToArray(list, entry);
    };
    for (const std::string& file : files) {
        const std::string name = DisplayName(file);
        Scenario scenario;
        FileError fileError;
        if (!LoadScenario(file, scenario, fileError)) {
            diag.Say(Severity::kError, fileError.where, fileError.message);
            brokenEntry(name, fileError.where + ": " + fileError.message);
            continue;
        }
        Session session;
        InitReport init;
        std::string error;
        if (!Start(session, scenario, init, options, diag)) {
            cJSON_Delete(root);
            return kExitUsage;
        }
        struct Found {
            int run;  // -1: the first read
            std::string runName;
            Mismatch mismatch;
        };
        std::vector<Found> found;
        size_t checks = 0;
        if (scenario.expectInit) {
            for (auto& m : CheckInit(*scenario.expectInit, init, checks)) found.push_back({-1, "", m});
        } else if (init.status != 0) {
            // A refused first read is a failure unless the scenario says it expects it.
            const auto refusal = Examine(init.status, scenario.config.text).refusal;
            found.push_back({-1, "", {"status", StatusText(0), StatusText(init.status) + ": " + refusal->message}});
        }
        bool stopped = false;
        for (size_t i = 0; i < scenario.runs.size(); ++i) {
            RunReport run;
            if (!session.Run(scenario.runs[i], run, error)) {
                error = "runs[" + std::to_string(i) + "]." + error;
                diag.Say(Severity::kError, name, error);
                brokenEntry(name, error);
                stopped = true;
                break;
            }
            if (!scenario.runs[i].expect) continue;
            for (auto& m : CheckRun(*scenario.runs[i].expect, run, checks)) {
                found.push_back({static_cast<int>(i), run.name, m});
            }
        }
        if (stopped) continue;
        if (checks == 0) {
            found.push_back({-1, "", {"expectations", "at least one", "none: nothing is tested"}});
        }
        const bool ok = found.empty();
        (ok ? passed : failed) += 1;
        if (!ok) exit = std::max(exit, kExitFailed);
        if (options.json) {
            cJSON* entry = cJSON_CreateObject();
            cJSON_AddStringToObject(entry, "file", name.c_str());
            cJSON_AddBoolToObject(entry, "ok", ok);
            cJSON_AddNumberToObject(entry, "runs", static_cast<double>(scenario.runs.size()));
            cJSON_AddNumberToObject(entry, "checks", static_cast<double>(checks));
            cJSON* mismatches = cJSON_AddArrayToObject(entry, "mismatches");
            for (const Found& f : found) {
                cJSON* m = cJSON_CreateObject();
                if (f.run >= 0) cJSON_AddNumberToObject(m, "run", f.run);
                else cJSON_AddNullToObject(m, "run");
                cJSON_AddStringToObject(m, "name", f.runName.c_str());
                cJSON_AddStringToObject(m, "what", f.mismatch.what.c_str());
                cJSON_AddStringToObject(m, "expected", f.mismatch.expected.c_str());
                cJSON_AddStringToObject(m, "actual", f.mismatch.actual.c_str());
                cJSON_AddItemToArray(mismatches, m);
            }
            cJSON_AddItemToArray(list, entry);
            continue;
        }
        const char* on = colour ? (ok ? "\033[32m" : "\033[1;31m") : "";
        const char* off = colour ? "\033[0m" : "";
        std::printf("%s: %s%s%s (%zu run%s, %zu check%s)\n", name.c_str(), on,
                    ok ? "ok" : "FAILED", off, scenario.runs.size(),
                    scenario.runs.size() == 1 ? "" : "s", checks, checks == 1 ? "" : "s");
        for (const Found& f : found) {
            const std::string where = f.run < 0 ? "first read"
                                                : "runs[" + std::to_string(f.run) + "]" +
                                                      (f.runName.empty() ? "" : " (\"" + f.runName + "\")");
            std::printf("  %s: %s: expected %s, got %s\n", where.c_str(), f.mismatch.what.c_str(),
                        f.mismatch.expected.c_str(), f.mismatch.actual.c_str());
        }
    }
    if (root != nullptr) {
        cJSON_AddBoolToObject(root, "ok", exit == kExitOk);
        PrintJson(root);
    } else {
        std::printf("scenarios: %zu hold, %zu do not, %zu could not be run\n", passed, failed,
                    broken);
    }
    return exit;
}

}  // namespace preview
