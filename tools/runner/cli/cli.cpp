#include "cli/cli.h"

#include <getopt.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "base/diag.h"
#include "base/rules.h"
#include "log/log.h"
#include "serve/live.h"
#include "serve/serve.h"

namespace preview {
namespace {

// getopt_long's codes for the options; -h is short for --help.
enum : int {
    kHelp = 'h',
    kVersion = 256,
    kJson,
    kSarif,
    kStrict,
    kDisable,
    kLogLevel,
    kJunit,
    kUpdate,
    kModule,
    kListen,
    kMemoryLimit,
    kTimeLimit,
    kRecord,
    kConfig,
    kScenario
};

struct Switch {
    int code;
    const char* name;
    const char* value;  // the value's name in the help; null for a flag
    const char* help;   // a line break continues under the descriptions
};

const Switch kSwitches[] = {
    {kJson, "json", nullptr, "print one JSON document on standard output"},
    {kSarif, "sarif", nullptr,
     "print SARIF 2.1.0 on standard output (for CI and\neditors); not with --json"},
    {kStrict, "strict", nullptr, "exit with 1 on warnings too"},
    {kDisable, "disable", "RULE",
     "do not report the findings of RULE, a warning or error id (repeatable)"},
    {kLogLevel, "log-level", "LEVEL",
     "the lowest level of the log lines shown: info (the\ndefault), warn, err or none"},
    {kJunit, "junit", "FILE", "also write the results as JUnit XML to FILE"},
    {kUpdate, "update", nullptr,
     "write what the runs gave into the expectations of\neach scenario that does not hold"},
    {kModule, "module", "LIB",
     "the module library to load (default: the\nlibformatv2.so built with the runner, else\n"
     "/mnt/app/zrs_so/so/formatv2/libformatv2.so)"},
    {kListen, "listen", "ADDR:PORT",
     "the address and port to serve on (default:\n127.0.0.1:8700; port 0: any free port)"},
    {kMemoryLimit, "memory-limit", "MIB",
     "the memory (address space) each preview may use\n(default: 256; 16 to 4096)"},
    {kTimeLimit, "time-limit", "SECONDS",
     "the time, and the CPU time, each preview may take\n(default: 5; 1 to 600)"},
    {kRecord, "record", "FILE",
     "record the runs as the formatv2_record.json FILE\nasks (its \"dir\" relative to FILE's "
     "folder)"},
    {kConfig, "config", "FILE", "replay with this configuration instead of the\nrecorded one"},
    {kScenario, "scenario", "OUT",
     "write the recording as a scenario file OUT, the\nrecorded outputs as its expectations"},
    {kVersion, "version", nullptr, "show the version and exit"},
    {kHelp, "help", nullptr, "show this help and exit"},
};

struct Command {
    const char* name;
    CommandLine::Action action;
    const char* summary;
    const char* arguments;  // as the usage line names them
    const char* argumentHelp;
    const char* missing;  // the refusal when no argument is given
    std::vector<int> switches;
};

const Command kCommands[] = {
    {"run",
     CommandLine::Action::kRun,
     "drive the runs of a scenario and show everything the\nmodule did",
     "SCENARIO",
     "scenario file (JSON), - for standard input",
     "run needs a SCENARIO",
     {kJson, kLogLevel, kRecord, kModule, kHelp}},
    {"check",
     CommandLine::Action::kCheck,
     "validate configurations without running them:\nrefusals and warnings",
     "FILE...",
     "configuration files (algo_private.json), - for\nstandard input",
     "check needs at least one FILE",
     {kStrict, kJson, kSarif, kDisable, kModule, kHelp}},
    {"test",
     CommandLine::Action::kTest,
     "run scenarios and compare every run with its \"expect\";\nexit 0 only when all hold",
     "SCENARIO|DIR...",
     "scenario files, or folders searched for scenario.json\nand *.scenario.json",
     "test needs at least one SCENARIO or DIR",
     {kJson, kJunit, kUpdate, kModule, kHelp}},
    {"replay",
     CommandLine::Action::kReplay,
     "play a recording's runs again and compare each with\nwhat it gave on the device",
     "DIR",
     "a recording's folder (the \"dir\" of formatv2_record.json)",
     "replay needs a DIR",
     {kConfig, kJson, kJunit, kScenario, kModule, kHelp}},
    {"serve",
     CommandLine::Action::kServe,
     "preview a folder's configuration and scenario live in\na browser; prints the URL to open",
     "[DIR]",
     "the folder (default: the current one) holding\nalgo_private.json and scenario.json",
     nullptr,
     {kListen, kModule, kMemoryLimit, kTimeLimit, kHelp}},
};

const std::vector<int> kTopSwitches = {kVersion, kHelp};

const char* const kFooter =
    "Exit codes: 0 done, valid, or every expectation holds; 1 a configuration refused, a\n"
    "warning under --strict, or an expectation that does not hold; 2 bad usage, a file that\n"
    "cannot be read or written or is no valid scenario, or a module that cannot be loaded.\n"
    "Configuration keys: docs/configuration.md.\n";

const Switch& SwitchOf(int code) {
    for (const Switch& s : kSwitches) {
        if (s.code == code) return s;
    }
    return kSwitches[0];  // every code has its entry
}

// "  LEFT  description", the description's lines from column 23.
std::string Row(const std::string& left, const char* help) {
    constexpr size_t kColumn = 22;
    std::string out = "  " + left;
    out.append(out.size() < kColumn ? kColumn - out.size() : 2, ' ');
    for (const char* c = help; *c != '\0'; ++c) {
        out += *c == '\n' ? "\n" + std::string(kColumn, ' ') : std::string(1, *c);
    }
    return out + "\n";
}

std::string OptionsHelp(const std::vector<int>& codes) {
    std::string out = "Options:\n";
    for (int code : codes) {
        const Switch& s = SwitchOf(code);
        std::string left = code == kHelp ? "-h, --help" : std::string("--") + s.name;
        if (s.value != nullptr) left += std::string(" ") + s.value;
        out += Row(left, s.help);
    }
    return out;
}

std::string TopHelp() {
    std::string out =
        "Usage: formatv2_preview COMMAND [OPTIONS] ARGUMENTS...\n"
        "       formatv2_preview --help | --version\n"
        "formatv2_preview: preview, check and test formatv2 configurations offline, with the\n"
        "module loaded as the host loads it.\n\nCommands:\n";
    for (const Command& c : kCommands) out += Row(c.name, c.summary);
    return out + "\n" + OptionsHelp(kTopSwitches) +
           "\nRun 'formatv2_preview COMMAND --help' for the options of a command.\n\n" + kFooter;
}

std::string CommandHelp(const Command& c) {
    std::string summary = c.summary;  // on one line here
    std::replace(summary.begin(), summary.end(), '\n', ' ');
    return std::string("Usage: formatv2_preview ") + c.name + " [OPTIONS] " + c.arguments + "\n" +
           summary + "\n\nArguments:\n" + Row(c.arguments, c.argumentHelp) + "\n" +
           OptionsHelp(c.switches) + "\n" + kFooter;
}

CommandLine Printed(std::string text) {
    CommandLine line;
    line.action = CommandLine::Action::kPrint;
    line.text = std::move(text);
    return line;
}

CommandLine Refused(std::string why) {
    CommandLine line;
    line.text = std::move(why);
    return line;
}

// The option as written, without its "=value".
std::string Written(const char* element) {
    const char* equals = std::strchr(element, '=');
    return std::strncmp(element, "--", 2) == 0 && equals != nullptr ? std::string(element, equals)
                                                                    : std::string(element);
}

// An option that is none of codes, with the one it most likely meant.
std::string Unknown(const std::string& written, const std::vector<int>& codes,
                    const char* command) {
    std::vector<std::string> names;
    std::vector<std::string> longer;  // the names that begin with what was written
    for (int code : codes) {
        names.push_back(std::string("--") + SwitchOf(code).name);
        if (written.size() > 2 && names.back().compare(0, written.size(), written) == 0) {
            longer.push_back(names.back());
        }
    }
    const std::string close = longer.size() == 1 ? longer[0] : ClosestWord(written, names);
    std::string why = "unknown option '" + written + "'";
    if (command != nullptr) why += std::string(" for ") + command;
    return why + (close.empty() ? "" : "; did you mean '" + close + "'?");
}

// What getopt_long refused (it returned '?' or ':'), as a reason naming the option.
std::string Refusal(int result, char* const* args, const std::vector<int>& codes,
                    const char* command) {
    const bool letter = optopt != 0 && optopt < 256 && optopt != kHelp;
    if (letter) return Unknown(std::string("-") + static_cast<char>(optopt), codes, command);
    if (optopt == 0) return Unknown(Written(args[optind - 1]), codes, command);
    const Switch& s = SwitchOf(optopt);
    if (result == ':') return std::string("--") + s.name + " needs a value (" + s.value + ")";
    return std::string("--") + s.name + " takes no value";
}

// A long option that getopt_long took, as written, when that is not its full name. Options are
// written in full: a shortened one (which getopt_long would take) is refused, so that adding an
// option later cannot change what a command line means.
std::string Shortened(char* const* args, const option& taken) {
    const bool separateValue = optarg != nullptr && optind >= 2 && optarg == args[optind - 1];
    const std::string written = Written(args[optind - (separateValue ? 2 : 1)]);
    return written == std::string("--") + taken.name ? "" : written;
}

std::vector<option> LongOptions(const std::vector<int>& codes) {
    std::vector<option> out;
    for (int code : codes) {
        const Switch& s = SwitchOf(code);
        out.push_back(
            {s.name, s.value != nullptr ? required_argument : no_argument, nullptr, code});
    }
    out.push_back({nullptr, 0, nullptr, 0});
    return out;
}

bool LogLevel(const std::string& name, int& level) {
    const struct {
        const char* name;
        int level;
    } levels[] = {{"info", LOG_LEVEL_INFO},
                  {"warn", LOG_LEVEL_WARN},
                  {"err", LOG_LEVEL_ERR},
                  {"none", LOG_LEVEL_OFF}};
    for (const auto& l : levels) {
        if (name != l.name) continue;
        level = l.level;
        return true;
    }
    return false;
}

// argv[0] is the command's name. getopt_long hands over the arguments in order, between the
// options ('-' in front of the option letters), and leaves those after "--" at optind.
CommandLine ReadCommand(const Command& command, int argc, char* const* args, CommandLine line) {
    const std::vector<option> options = LongOptions(command.switches);
    Options& o = line.options;
    optind = 0;  // getopt_long starts afresh
    for (;;) {
        int index = -1;
        const int c = getopt_long(argc, args, "-:h", options.data(), &index);
        if (c == -1) break;
        if (c == '?' || c == ':') return Refused(Refusal(c, args, command.switches, command.name));
        const std::string shortened =
            index >= 0 ? Shortened(args, options[static_cast<size_t>(index)]) : "";
        if (!shortened.empty()) return Refused(Unknown(shortened, command.switches, command.name));
        if (c != 1 && optarg != nullptr && *optarg == '\0') {
            return Refused(std::string("--") + SwitchOf(c).name + " needs a value (" +
                           SwitchOf(c).value + ")");
        }
        switch (c) {
            case 1:
                line.inputs.emplace_back(optarg);
                break;
            case kHelp:
                return Printed(CommandHelp(command));
            case kJson:
                o.json = true;
                break;
            case kSarif:
                o.sarif = true;
                break;
            case kStrict:
                o.strict = true;
                break;
            case kUpdate:
                o.update = true;
                break;
            case kDisable: {
                const RuleEntry* rule = FindRule(optarg);
                if (rule == nullptr) {
                    std::vector<std::string> ids;
                    for (size_t i = 0; i < kRuleCount; ++i) ids.emplace_back(kRules[i].id);
                    const std::string close = ClosestWord(optarg, ids);
                    return Refused(std::string("--disable: '") + optarg + "' is no rule id" +
                                   (close.empty() ? "" : "; did you mean '" + close + "'?"));
                }
                if (rule->level == Level::kRefusal) {
                    return Refused(std::string("--disable: '") + optarg +
                                   "' is a refusal of the module; only warnings can be disabled");
                }
                o.disabled.push_back(rule->rule);
                break;
            }
            case kJunit:
                o.junit = optarg;
                break;
            case kRecord:
                o.record = optarg;
                break;
            case kConfig:
                o.config = optarg;
                break;
            case kScenario:
                o.scenarioOut = optarg;
                break;
            case kModule:
                o.module = optarg;
                break;
            case kListen:
                o.listen = optarg;
                break;
            case kMemoryLimit:
            case kTimeLimit: {
                const bool memory = c == kMemoryLimit;
                const long low = memory ? 16 : 1;
                const long high = memory ? 4096 : 600;
                char* end = nullptr;
                errno = 0;
                const long value = std::strtol(optarg, &end, 10);
                if (errno != 0 || end == optarg || *end != '\0' || value < low || value > high) {
                    return Refused(std::string(memory ? "--memory-limit" : "--time-limit") + ": '" +
                                   optarg + "' is not a whole number from " + std::to_string(low) +
                                   " to " + std::to_string(high));
                }
                if (memory) {
                    o.memoryLimitMiB = static_cast<size_t>(value);
                } else {
                    o.timeLimitSeconds = static_cast<int>(value);
                }
                break;
            }
            case kLogLevel:
                if (!LogLevel(optarg, o.logLevel)) {
                    return Refused(std::string("--log-level: '") + optarg +
                                   "' is not one of info, warn, err, none");
                }
                break;
            default:
                break;
        }
    }
    for (int i = optind; i < argc; ++i) line.inputs.emplace_back(args[i]);
    if (o.json && o.sarif) return Refused("--json and --sarif cannot be used together");
    if (line.inputs.empty() && command.missing == nullptr) line.inputs.emplace_back(".");
    if (line.inputs.empty()) return Refused(command.missing);
    const bool one = line.action == CommandLine::Action::kRun ||
                     line.action == CommandLine::Action::kServe ||
                     line.action == CommandLine::Action::kReplay;
    if (one && line.inputs.size() > 1) {
        return Refused("unexpected argument '" + line.inputs[1] + "': " + command.name +
                       " takes one " + command.arguments);
    }
    return line;
}

}  // namespace

CommandLine ParseCommandLine(int argc, char* const* argv, const std::string& module,
                             const std::string& version) {
    // getopt_long may reorder what it is given: it gets a copy.
    std::vector<char*> args(argv, argv + argc);
    args.push_back(nullptr);
    const std::vector<option> top = LongOptions(kTopSwitches);
    opterr = 0;
    optind = 0;
    // Before the command: --help or --version ('+': the command ends the options).
    int index = -1;
    const int c = getopt_long(argc, args.data(), "+:h", top.data(), &index);
    if (c == '?' || c == ':') return Refused(Refusal(c, args.data(), kTopSwitches, nullptr));
    if (c != -1) {
        const std::string shortened =
            index >= 0 ? Shortened(args.data(), top[static_cast<size_t>(index)]) : "";
        if (!shortened.empty()) return Refused(Unknown(shortened, kTopSwitches, nullptr));
        return Printed(c == kHelp ? TopHelp() : "formatv2_preview " + version + "\n");
    }
    if (optind >= argc) return Refused("a command is missing (run, check, test, replay, serve)");
    const std::string name = args[static_cast<size_t>(optind)];
    if (name == "evaluate" && optind + 1 == argc) {
        // The server's child process, one per preview; not for people (no help of its own).
        CommandLine line;
        line.action = CommandLine::Action::kEvaluate;
        return line;
    }
    for (const Command& command : kCommands) {
        if (name != command.name) continue;
        CommandLine line;
        line.action = command.action;
        line.options.module = module;
        line.options.version = version;
        return ReadCommand(command, argc - optind, args.data() + optind, std::move(line));
    }
    return Refused("unknown command '" + name + "' (run, check, test, replay, serve)");
}

namespace {

// A report that could not be written in full is a failure, not a result (a full disk).
int FinishOutput(int exit) {
    std::string reason;
    if (FlushOutput(reason)) return exit;
    std::fprintf(stderr, "formatv2_preview: error: cannot write the output: %s\n", reason.c_str());
    return kExitUsage;
}

}  // namespace

int Execute(const CommandLine& line) {
    switch (line.action) {
        case CommandLine::Action::kPrint:
            WriteOutput(line.text);
            return FinishOutput(kExitOk);
        case CommandLine::Action::kRun:
            return FinishOutput(RunCommand(line.inputs.front(), line.options));
        case CommandLine::Action::kCheck:
            return FinishOutput(CheckCommand(line.inputs, line.options));
        case CommandLine::Action::kTest:
            return FinishOutput(TestCommand(line.inputs, line.options));
        case CommandLine::Action::kReplay:
            return FinishOutput(ReplayCommand(line.inputs.front(), line.options));
        case CommandLine::Action::kServe:
            return ServeCommand(line.inputs.front(), line.options);
        case CommandLine::Action::kEvaluate:
            return FinishOutput(EvaluateCommand());
        case CommandLine::Action::kRefuse:
            break;
    }
    std::fprintf(stderr, "formatv2_preview: error: %s\nRun with --help for more information.\n",
                 EscapeInvalidUtf8(line.text, Escape::kText).c_str());
    return kExitUsage;
}

}  // namespace preview
