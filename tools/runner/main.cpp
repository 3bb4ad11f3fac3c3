// formatv2_preview: shows what a configuration does without deploying it, checks it, and
// tests it against expectations. A thin command line over commands.cpp; see README.md.
#include <unistd.h>

#include <CLI/CLI.hpp>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "commands.h"
#include "log/log.h"

namespace {

void AddCommon(CLI::App* sub, preview::Options& options) {
    sub->add_flag("--json", options.json, "print one JSON document on standard output");
    sub->add_option("--module", options.module,
                    "the module library to load (default: the libformatv2.so built with the "
                    "runner, else /mnt/app/zrs_so/so/formatv2/libformatv2.so)")
        ->type_name("LIB");
}

CLI::App* AddRun(CLI::App& app, std::string& scenario, std::string& level) {
    CLI::App* run = app.add_subcommand(
        "run", "drive the runs of a scenario and show everything the module did");
    run->add_option("SCENARIO", scenario, "scenario file (JSON), - for standard input")->required();
    run->add_option("--log-level", level, "lowest level of the log lines shown")
        ->check(CLI::IsMember({"info", "warn", "err", "none"}))
        ->type_name("info|warn|err|none")
        ->capture_default_str();
    return run;
}

CLI::App* AddTest(CLI::App& app, std::vector<std::string>& paths, preview::Options& options) {
    CLI::App* test = app.add_subcommand(
        "test",
        "run scenarios and compare every run with its \"expect\"; exit 0 only when all hold");
    test->add_option("SCENARIO|DIR", paths,
                     "scenario files, or folders searched for scenario.json and *.scenario.json")
        ->required();
    test->add_option("--junit", options.junit, "also write the results as JUnit XML to FILE")
        ->type_name("FILE");
    test->add_flag("--update", options.update,
                   "write what the runs gave into the expectations of each scenario that does "
                   "not hold");
    return test;
}

int ParseFailure(const CLI::App& app, const CLI::ParseError& e, int argc, char** argv) {
    // CLI11 calls a misspelt command only "missing"; name it.
    const bool unknownCommand = app.get_subcommands().empty() && argc > 1 && argv[1][0] != '-';
    if (unknownCommand) {
        std::fprintf(stderr, "formatv2_preview: error: unknown command '%s' (run, check, test)\n",
                     argv[1]);
    } else {
        std::fprintf(stderr, "formatv2_preview: error: %s\n", e.what());
    }
    std::fprintf(stderr, "Run with --help for more information.\n");
    return preview::kExitUsage;
}

// A report that could not be written in full is a failure, not a result (a full disk).
int FinishOutput(int exit) {
    errno = 0;
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
        std::fprintf(stderr, "formatv2_preview: error: cannot write the output: %s\n",
                     std::strerror(errno != 0 ? errno : EIO));
        return preview::kExitUsage;
    }
    return exit;
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app{
        "formatv2_preview: preview, check and test formatv2 configurations offline,\n"
        "with the module loaded as the host loads it.",
        "formatv2_preview"};
    app.set_version_flag("--version", std::string("formatv2_preview ") + FORMATV2_VERSION);
    app.require_subcommand(1);
    app.footer(
        "Exit codes: 0 done, valid, or every expectation holds; 1 a configuration refused, a\n"
        "warning under --strict, or an expectation that does not hold; 2 bad usage, a file that\n"
        "cannot be read or written or is no valid scenario, or a module that cannot be loaded.\n"
        "Configuration keys: docs/configuration.md.");

    preview::Options options;
    // Beside the build it came from, the runner loads that build's module; installed on a
    // device, where the build tree is not, the module where the host loads it from.
    options.module = access(FORMATV2_MODULE_PATH, F_OK) == 0
                         ? FORMATV2_MODULE_PATH
                         : "/mnt/app/zrs_so/so/formatv2/libformatv2.so";
    auto common = [&](CLI::App* sub) { AddCommon(sub, options); };

    std::string scenario;
    std::string level = "info";
    CLI::App* run = AddRun(app, scenario, level);
    common(run);

    std::vector<std::string> files;
    CLI::App* check = app.add_subcommand(
        "check", "validate configurations without running them: refusals and warnings");
    check
        ->add_option("FILE", files, "configuration files (algo_private.json), - for standard input")
        ->required();
    check->add_flag("--strict", options.strict, "exit with 1 on warnings too");
    check->add_flag("--sarif", options.sarif, "print SARIF 2.1.0 on standard output (for CI and editors)");
    check->add_option("--disable", options.disabled, "do not report the warnings of RULE (repeatable)")
        ->type_name("RULE")
        ->allow_extra_args(false);
    common(check);

    std::vector<std::string> paths;
    common(AddTest(app, paths, options));

    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& e) {
        return app.exit(e);  // --help, --version: on standard output, exit 0
    } catch (const CLI::ParseError& e) {
        return ParseFailure(app, e, argc, argv);
    }
    const std::map<std::string, int> levels = {{"info", LOG_LEVEL_INFO},
                                               {"warn", LOG_LEVEL_WARN},
                                               {"err", LOG_LEVEL_ERR},
                                               {"none", LOG_LEVEL_OFF}};
    options.logLevel = levels.at(level);
    if (run->parsed()) return FinishOutput(preview::RunCommand(scenario, options));
    if (check->parsed()) return FinishOutput(preview::CheckCommand(files, options));
    return FinishOutput(preview::TestCommand(paths, options));
}
