#include "cli.h"

// CLI11's file checks would use std::filesystem, which needs a libstdc++ newer than devices
// have; the runner uses none of them.
#define CLI11_HAS_FILESYSTEM 0
#include <CLI/CLI.hpp>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>

#include "diag.h"
#include "live.h"
#include "log/log.h"
#include "rules.h"
#include "serve.h"

namespace preview {
namespace {

const char* const kExitCodes =
    "Exit codes: 0 done, valid, or every expectation holds; 1 a configuration refused, a\n"
    "warning under --strict, or an expectation that does not hold; 2 bad usage, a file that\n"
    "cannot be read or written or is no valid scenario, or a module that cannot be loaded.\n"
    "Configuration keys: docs/configuration.md.";

// CLI11's help, laid out as the runner's: the usage line first, then the summary, the
// arguments, the commands and the options, each description from column 23 (a line break in
// one continues there), and "-h, --help".
class Layout : public CLI::Formatter {
  public:
    Layout() {
        column_width(22);
        label("Positionals", "Arguments");
    }

    std::string make_help(const CLI::App* app, std::string name,
                          CLI::AppFormatMode) const override {
        return make_usage(app, name) + make_description(app) + make_positionals(app) +
               make_subcommands(app, CLI::AppFormatMode::Normal) +
               make_groups(app, CLI::AppFormatMode::Normal) + "\n" + make_footer(app);
    }

    std::string make_usage(const CLI::App* app, std::string name) const override {
        if (app->get_parent() == nullptr) {
            return "Usage: " + name + " COMMAND [OPTIONS] ARGUMENTS...\n       " + name +
                   " --help | --version\n";
        }
        const auto arguments =
            app->get_options([](const CLI::Option* o) { return o->get_positional(); });
        return "Usage: " + name + " [OPTIONS]" +
               (arguments.empty() ? "" : " " + arguments.front()->get_name()) + "\n";
    }

    // A command's summary is on one line above its help; its line breaks are for the list of
    // commands.
    std::string make_description(const CLI::App* app) const override {
        std::string text = app->get_description();
        if (app->get_parent() != nullptr) std::replace(text.begin(), text.end(), '\n', ' ');
        return text + "\n";
    }

    std::string make_option_name(const CLI::Option* option, bool positional) const override {
        std::string names = option->get_name(positional, !positional);
        for (size_t comma = names.find(','); comma != std::string::npos;
             comma = names.find(',', comma)) {
            names.insert(++comma, " ");
        }
        return names;
    }

    // An argument's name says it all ("FILE..."); an option shows its value's name.
    std::string make_option_opts(const CLI::Option* option) const override {
        return option->get_positional() || option->get_type_size() == 0
                   ? ""
                   : " " + option->get_type_name();
    }
};

[[noreturn]] void Refuse(const std::string& why) {
    throw CLI::ValidationError(why);
}

// A value option that gives its value to take, refusing an empty one (a variable that was not
// set, as in --junit="$OUT").
CLI::Option* Value(CLI::App* command, const std::string& name, const std::string& type,
                   const char* help, std::function<void(const std::string&)> take) {
    auto check = [name, type, take](const std::string& value) {
        if (value.empty()) Refuse(name + " needs a value (" + type + ")");
        take(value);
    };
    return command->add_option_function<std::string>(name, check, help)->type_name(type);
}

long WholeNumber(const std::string& name, const std::string& text, long low, long high) {
    char* end = nullptr;
    errno = 0;
    const long value = std::strtol(text.c_str(), &end, 10);
    if (errno != 0 || end == text.c_str() || *end != '\0' || value < low || value > high) {
        Refuse(name + ": '" + text + "' is not a whole number from " + std::to_string(low) +
               " to " + std::to_string(high));
    }
    return value;
}

int LogLevel(const std::string& name) {
    const struct {
        const char* name;
        int level;
    } levels[] = {{"info", LOG_LEVEL_INFO},
                  {"warn", LOG_LEVEL_WARN},
                  {"err", LOG_LEVEL_ERR},
                  {"none", LOG_LEVEL_OFF}};
    for (const auto& l : levels) {
        if (name == l.name) return l.level;
    }
    Refuse("--log-level: '" + name + "' is not one of info, warn, err, none");
}

Rule Disabled(const std::string& id) {
    const RuleEntry* rule = FindRule(id.c_str());
    if (rule == nullptr) {
        std::vector<std::string> ids;
        for (size_t i = 0; i < kRuleCount; ++i) ids.emplace_back(kRules[i].id);
        const std::string close = ClosestWord(id, ids);
        Refuse("--disable: '" + id + "' is no rule id" +
               (close.empty() ? "" : "; did you mean '" + close + "'?"));
    }
    if (rule->level == Level::kRefusal) {
        Refuse("--disable: '" + id + "' is a refusal of the module; only warnings can be disabled");
    }
    return rule->rule;
}

// The commands' options and arguments, read into line.
void Describe(CLI::App& app, CommandLine& line) {
    Options& o = line.options;
    const auto command = [&](const char* name, const char* summary, const char* arguments,
                             const char* help) {
        CLI::App* c = app.add_subcommand(name, summary)->group("Commands");
        c->add_option(arguments, line.inputs, help);
        return c;
    };
    const auto json = [&](CLI::App* c) {
        c->add_flag("--json", o.json, "print one JSON document on standard output");
    };
    const auto moduleOption = [&](CLI::App* c) {
        Value(c, "--module", "LIB",
              "the module library to load (default: the\nlibformatv2.so built with the runner, "
              "else\n/mnt/app/zrs_so/so/formatv2/libformatv2.so)",
              [&o](const std::string& v) { o.module = v; });
        // Last in each command's list.
        c->set_help_flag("-h,--help", "show this help and exit");
    };

    CLI::App* run =
        command("run", "drive the runs of a scenario and show everything the\nmodule did",
                "SCENARIO", "scenario file (JSON), - for standard input");
    json(run);
    Value(run, "--log-level", "LEVEL",
          "the lowest level of the log lines shown: info (the\ndefault), warn, err or none",
          [&o](const std::string& v) { o.logLevel = LogLevel(v); });
    moduleOption(run);

    CLI::App* check =
        command("check", "validate configurations without running them:\nrefusals and warnings",
                "FILE...", "configuration files (algo_private.json), - for\nstandard input");
    check->add_flag("--strict", o.strict, "exit with 1 on warnings too");
    json(check);
    check->add_flag("--sarif", o.sarif,
                    "print SARIF 2.1.0 on standard output (for CI and\neditors); not with --json");
    check
        ->add_option_function<std::vector<std::string>>(
            "--disable",
            [&o](const std::vector<std::string>& ids) {
                for (const std::string& id : ids) o.disabled.push_back(Disabled(id));
            },
            "do not report the findings of RULE, a warning or error id (repeatable)")
        ->type_name("RULE")
        ->allow_extra_args(false)  // one id each time
        ->take_all();
    moduleOption(check);

    CLI::App* test = command(
        "test",
        "run scenarios and compare every run with its \"expect\";\nexit 0 only when all hold",
        "SCENARIO|DIR...",
        "scenario files, or folders searched for scenario.json\nand *.scenario.json");
    json(test);
    Value(test, "--junit", "FILE", "also write the results as JUnit XML to FILE",
          [&o](const std::string& v) { o.junit = v; });
    test->add_flag("--update", o.update,
                   "write what the runs gave into the expectations of\neach scenario that does "
                   "not hold");
    moduleOption(test);

    CLI::App* serve = command(
        "serve",
        "preview a folder's configuration and scenario live in\na browser; prints the URL to open",
        "[DIR]",
        "the folder (default: the current one) holding\nalgo_private.json and scenario.json");
    Value(serve, "--listen", "ADDR:PORT",
          "the address and port to serve on (default:\n127.0.0.1:8700; port 0: any free port)",
          [&o](const std::string& v) { o.listen = v; });
    moduleOption(serve);
    Value(serve, "--memory-limit", "MIB",
          "the memory (address space) each preview may use\n(default: 256; 16 to 4096)",
          [&o](const std::string& v) {
              o.memoryLimitMiB = static_cast<size_t>(WholeNumber("--memory-limit", v, 16, 4096));
          });
    Value(serve, "--time-limit", "SECONDS",
          "the time, and the CPU time, each preview may take\n(default: 5; 1 to 600)",
          [&o](const std::string& v) {
              o.timeLimitSeconds = static_cast<int>(WholeNumber("--time-limit", v, 1, 600));
          });
    serve->set_help_flag("-h,--help", "show this help and exit");  // after the limits
}

// The commands and what they take besides their options.
struct Command {
    const char* name;
    CommandLine::Action action;
    size_t most;          // arguments at most
    const char* missing;  // the refusal when none is given; serve's default is "."
    const char* takes;    // the reason for an argument too many
};

const Command kCommands[] = {
    {"run", CommandLine::Action::kRun, 1, "run needs a SCENARIO", "run takes one SCENARIO"},
    {"check", CommandLine::Action::kCheck, SIZE_MAX, "check needs at least one FILE", ""},
    {"test", CommandLine::Action::kTest, SIZE_MAX, "test needs at least one SCENARIO or DIR", ""},
    {"serve", CommandLine::Action::kServe, 1, nullptr, "serve takes one DIR"},
};

const Command& CommandNamed(const std::string& name) {
    for (const Command& c : kCommands) {
        if (name == c.name) return c;
    }
    return kCommands[0];  // CLI11 knows only these
}

// The option as written, without its "=value".
std::string Written(const std::string& argument) {
    return argument.compare(0, 2, "--") == 0 ? argument.substr(0, argument.find('=')) : argument;
}

// What CLI11 left over (ExtrasError): an option that is not the command's (or, before a command,
// not --help or --version), with the one it most likely meant, or an unknown command.
std::string LeftOver(const CLI::App& app) {
    const CLI::App* command = app.get_subcommands().empty() ? nullptr : app.get_subcommands()[0];
    const bool top = !app.remaining().empty() || command == nullptr;
    const CLI::App& where = top ? app : *command;
    const std::string extra = Written(where.remaining().front());
    if (extra.size() < 2 || extra[0] != '-') {  // commands take any number of arguments
        return "unknown command '" + extra + "' (run, check, test, serve)";
    }
    std::vector<std::string> names;
    std::vector<std::string> longer;  // the names that begin with what was written
    for (const CLI::Option* option : where.get_options()) {
        for (const std::string& name : option->get_lnames()) {
            names.push_back("--" + name);
            if (extra.size() > 2 && names.back().compare(0, extra.size(), extra) == 0) {
                longer.push_back(names.back());
            }
        }
    }
    const std::string close = longer.size() == 1 ? longer[0] : ClosestWord(extra, names);
    return "unknown option '" + extra + "'" + (top ? "" : " for " + command->get_name()) +
           (close.empty() ? "" : "; did you mean '" + close + "'?");
}

// CLI11's ArgumentMismatch for a value missing or given to a flag, in the runner's words; any
// other as CLI11 says it.
std::string Mismatch(const CLI::App& app, const std::string& what) {
    std::vector<const CLI::App*> apps = {&app};
    for (const CLI::App* command : app.get_subcommands()) apps.push_back(command);
    for (const CLI::App* a : apps) {
        for (const CLI::Option* option : a->get_options()) {
            for (const std::string& name : option->get_lnames()) {
                if (what.rfind("--" + name + ": ", 0) == 0) {
                    return "--" + name + " needs a value (" + option->get_type_name() + ")";
                }
                if (what == name + " was given a disallowed flag override") {
                    return "--" + name + " takes no value";
                }
            }
        }
    }
    return what;
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

}  // namespace

CommandLine ParseCommandLine(int argc, char* const* argv, const std::string& module,
                             const std::string& version) {
    CommandLine line;
    if (argc == 2 && std::strcmp(argv[1], "evaluate") == 0) {
        // The server's child process, one per preview; not for people (no help, not listed).
        // Told apart before CLI11 describes the commands, which takes a few hundred
        // microseconds that every preview would wait for.
        line.action = CommandLine::Action::kEvaluate;
        return line;
    }
    line.options.module = module;
    line.options.version = version;
    CLI::App app(
        "formatv2_preview: preview, check and test formatv2 configurations offline, with the\n"
        "module loaded as the host loads it.",
        "formatv2_preview");
    app.formatter(std::make_shared<Layout>());
    app.footer(kExitCodes);  // every command's
    // An option given twice counts once, the last; a flag takes no value.
    app.option_defaults()->take_last()->disable_flag_override();
    app.require_subcommand(0, 1);  // a command's argument may be named like a command
    app.set_version_flag("--version", "formatv2_preview " + version, "show the version and exit");
    Describe(app, line);
    app.set_help_flag("-h,--help", "show this help and exit");
    app.footer("Run 'formatv2_preview COMMAND --help' for the options of a command.\n\n" +
               std::string(kExitCodes));

    // CLI11 is given the arguments before the first "--" (in reverse order, as it takes them);
    // those after it are the command's arguments whatever they begin with (CLI11 itself would
    // end the command at a "--" that follows an argument). CLI11 would read "--junit=" as
    // "--junit" with the next argument for its value: it gets an empty value, which is refused.
    std::vector<std::string> args;
    int end = 1;
    for (; end < argc && std::strcmp(argv[end], "--") != 0; ++end) {
        const std::string arg = argv[end];
        const bool empty = arg.size() > 3 && arg.compare(0, 2, "--") == 0 && arg.back() == '=';
        args.push_back(empty ? arg.substr(0, arg.size() - 1) : arg);
        if (empty) args.emplace_back();
    }
    std::reverse(args.begin(), args.end());
    try {
        app.parse(args);
    } catch (const CLI::CallForHelp&) {
        return Printed(app.help());
    } catch (const CLI::CallForVersion& shown) {
        return Printed(std::string(shown.what()) + "\n");
    } catch (const CLI::ExtrasError&) {
        return Refused(LeftOver(app));
    } catch (const CLI::ArgumentMismatch& mismatch) {
        return Refused(Mismatch(app, mismatch.what()));
    } catch (const CLI::ParseError& error) {
        return Refused(error.what());
    }
    if (end < argc) line.inputs.insert(line.inputs.end(), argv + end + 1, argv + argc);

    if (app.get_subcommands().empty()) {
        return Refused("a command is missing (run, check, test, serve)");
    }
    const Command& command = CommandNamed(app.get_subcommands()[0]->get_name());
    line.action = command.action;
    if (line.options.json && line.options.sarif) {
        return Refused("--json and --sarif cannot be used together");
    }
    if (line.inputs.empty() && command.missing != nullptr) return Refused(command.missing);
    if (line.inputs.size() > command.most) {
        return Refused("unexpected argument '" + line.inputs[command.most] + "': " + command.takes);
    }
    if (line.inputs.empty() && line.action == CommandLine::Action::kServe) {
        line.inputs.emplace_back(".");
    }
    return line;
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
