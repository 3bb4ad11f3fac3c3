// formatv2_preview: runs a configuration against sample values, offline, as the host would.
//
//   formatv2_preview run SCENARIO.json [--json] [--log-level info|warn|err|none] [--module SO]
//   formatv2_preview check algo_private.json [--json] [--module SO]
//
// Exit codes: 0 done (run) or configuration accepted (check); 1 configuration refused
// (check); 2 bad usage, unreadable scenario, module not loadable, or a scenario value that no
// subscription reads.
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "check.h"
#include "log/log.h"
#include "report.h"
#include "scenario.h"
#include "session.h"

namespace {

struct Options {
    std::string command;
    std::string file;
    std::string module = FORMATV2_MODULE_PATH;
    bool json = false;
    int logLevel = LOG_LEVEL_INFO;
};

int Usage() {
    std::fprintf(stderr,
                 "usage: formatv2_preview run SCENARIO.json [--json] "
                 "[--log-level info|warn|err|none] [--module LIB]\n"
                 "       formatv2_preview check algo_private.json [--json] [--module LIB]\n");
    return 2;
}

bool ParseArgs(int argc, char** argv, Options& o) {
    if (argc < 3) return false;
    o.command = argv[1];
    o.file = argv[2];
    for (int i = 3; i < argc; ++i) {
        const std::string arg = argv[i];
        if (arg == "--json") {
            o.json = true;
        } else if (arg == "--module" && i + 1 < argc) {
            o.module = argv[++i];
        } else if (arg == "--log-level" && i + 1 < argc) {
            const std::string level = argv[++i];
            if (level == "info")
                o.logLevel = LOG_LEVEL_INFO;
            else if (level == "warn")
                o.logLevel = LOG_LEVEL_WARN;
            else if (level == "err")
                o.logLevel = LOG_LEVEL_ERR;
            else if (level == "none")
                o.logLevel = LOG_LEVEL_OFF;
            else
                return false;
        } else {
            return false;
        }
    }
    return o.command == "run" || o.command == "check";
}

int Fail(const std::string& message) {
    std::fprintf(stderr, "formatv2_preview: %s\n", message.c_str());
    return 2;
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    if (!ParseArgs(argc, argv, options)) return Usage();

    preview::Scenario scenario;
    std::string error;
    if (options.command == "run") {
        if (!preview::LoadScenario(options.file, scenario, error)) return Fail(error);
    } else if (!preview::ReadFile(options.file, scenario.configText)) {
        return Fail(options.file + ": cannot read the configuration file");
    }

    preview::Session session;
    // check needs the Err lines to say which rule failed.
    const int logLevel = options.command == "check" ? LOG_LEVEL_INFO : options.logLevel;
    if (!session.Open(options.module, logLevel, error)) return Fail(error);

    preview::Report report({options.json, !options.json && isatty(STDOUT_FILENO) != 0});
    preview::InitReport init;
    if (!session.Init(scenario, init, error)) return Fail(error);

    if (options.command == "check") {
        const auto sentences = preview::ExplainRefusal(init, scenario.configText);
        if (sentences.empty()) report.Init(init);
        report.Refusal(sentences);
        report.Finish();
        return sentences.empty() ? 0 : 1;
    }

    report.Init(init);
    int index = 0;
    for (const preview::RunSpec& plan : scenario.runs) {
        preview::RunReport run;
        if (!session.Run(plan, run, error)) {
            report.Finish();
            return Fail(options.file + ": run " + std::to_string(index + 1) + ": " + error);
        }
        report.Run(++index, run);
    }
    report.Finish();
    return 0;
}
