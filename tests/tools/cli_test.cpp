// The runner's command line: what each argv gives (the command, its options and arguments),
// what is refused and how it is worded, and the help and version texts.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tools/runner/cli/cli.h"

namespace preview {
namespace {

using Action = CommandLine::Action;

CommandLine Parse(const std::vector<std::string>& args) {
    std::vector<std::string> copy = {"formatv2_preview"};
    copy.insert(copy.end(), args.begin(), args.end());
    std::vector<char*> argv;
    for (std::string& a : copy) argv.push_back(a.data());
    argv.push_back(nullptr);
    const std::vector<char*> before = argv;
    CommandLine line =
        ParseCommandLine(static_cast<int>(copy.size()), argv.data(), "default.so", "9.8.7");
    EXPECT_EQ(argv, before) << "the caller's argv was reordered";
    return line;
}

// An accepted command line in one text: "run a | json level=5 module=default.so".
std::string Summary(const CommandLine& line) {
    const char* const names[] = {"run", "check", "test"};
    std::string out = names[static_cast<int>(line.action)];
    for (const std::string& input : line.inputs) out += " " + input;
    const Options& o = line.options;
    out += " |";
    if (o.json) out += " json";
    if (o.sarif) out += " sarif";
    if (o.strict) out += " strict";
    if (o.update) out += " update";
    for (const Rule rule : o.disabled) out += std::string(" disable=") + RuleOf(rule).id;
    if (!o.junit.empty()) out += " junit=" + o.junit;
    return out + " level=" + std::to_string(o.logLevel) + " module=" + o.module;
}

TEST(CommandLine, AcceptedAsGivenInAnyOrder) {
    const struct {
        std::vector<std::string> args;
        const char* summary;
    } cases[] = {
        {{"run", "a.json"}, "run a.json | level=4 module=default.so"},
        {{"run", "--json", "a.json", "--log-level", "warn"},
         "run a.json | json level=5 module=default.so"},
        {{"run", "-", "--log-level=none", "--module", "m.so"}, "run - | level=8 module=m.so"},
        {{"run", "--log-level", "err", "--module=x.so", "--module", "y.so", "a"},
         "run a | level=6 module=y.so"},
        {{"check", "a", "--strict", "--disable", "no-value-type", "b", "--disable=raw-control",
          "--sarif"},
         "check a b | sarif strict disable=no-value-type disable=raw-control level=4 "
         "module=default.so"},
        {{"check", "--json", "--", "--odd.json", "-"},
         "check --odd.json - | json level=4 module=default.so"},
        {{"test", "dir", "--junit", "out.xml", "--update", "b.json", "--json"},
         "test dir b.json | json update junit=out.xml level=4 module=default.so"},
        {{"test", "--junit=r.xml", "-"}, "test - | junit=r.xml level=4 module=default.so"},
    };
    for (const auto& c : cases) {
        const CommandLine line = Parse(c.args);
        ASSERT_NE(line.action, Action::kRefuse) << c.summary << ": " << line.text;
        EXPECT_EQ(Summary(line), c.summary);
    }
}

TEST(CommandLine, RefusedNamingTheArgument) {
    const struct {
        std::vector<std::string> args;
        const char* why;
    } cases[] = {
        {{}, "a command is missing (run, check, test, replay, serve)"},
        {{"chek", "a"}, "unknown command 'chek' (run, check, test, replay, serve)"},
        {{"--json", "run", "a"}, "unknown option '--json'"},
        {{"--vers"}, "unknown option '--vers'; did you mean '--version'?"},
        {{"--version=1"}, "--version takes no value"},
        {{"run"}, "run needs a SCENARIO"},
        {{"run", "a", "b"}, "unexpected argument 'b': run takes one SCENARIO"},
        {{"check", "--strict"}, "check needs at least one FILE"},
        {{"test"}, "test needs at least one SCENARIO or DIR"},
        // Each command takes only its own options.
        {{"run", "a", "--strict"}, "unknown option '--strict' for run"},
        {{"check", "a", "--update"}, "unknown option '--update' for check"},
        {{"test", "a", "--log-level", "err"}, "unknown option '--log-level' for test"},
        {{"run", "--version", "a"}, "unknown option '--version' for run"},
        {{"run", "a", "-x"}, "unknown option '-x' for run"},
        {{"run", "a", "--jsn"}, "unknown option '--jsn' for run; did you mean '--json'?"},
        // Written in full only; a beginning that fits two options suggests neither.
        {{"test", "a", "--upd"}, "unknown option '--upd' for test; did you mean '--update'?"},
        {{"check", "a", "--s"}, "unknown option '--s' for check"},
        {{"check", "--json", "--sarif", "a"}, "--json and --sarif cannot be used together"},
        {{"run", "a", "--json=yes"}, "--json takes no value"},
        {{"run", "a", "--module"}, "--module needs a value (LIB)"},
        {{"test", "a", "--junit="}, "--junit needs a value (FILE)"},
        // --disable takes the id of a warning.
        {{"check", "a", "--disable", "key-cas"},
         "--disable: 'key-cas' is no rule id; did you mean 'key-case'?"},
        {{"check", "a", "--disable=not-a-text"},
         "--disable: 'not-a-text' is a refusal of the module; only warnings can be disabled"},
        {{"run", "a", "--log-level", "loud"},
         "--log-level: 'loud' is not one of info, warn, err, none"},
        // The first mistake is named, even before a --help.
        {{"run", "--jsn", "--help"}, "unknown option '--jsn' for run; did you mean '--json'?"},
    };
    for (const auto& c : cases) {
        const CommandLine line = Parse(c.args);
        EXPECT_EQ(line.action, Action::kRefuse) << c.why;
        EXPECT_EQ(line.text, c.why);
    }
}

TEST(CommandLine, HelpAndVersionAreTextsForStandardOutput) {
    const std::string footer = "Configuration keys: docs/configuration.md.\n";
    const struct {
        std::vector<std::string> args;
        const char* begins;
        const char* holds;  // an option of the command, with its value's name
    } cases[] = {
        {{"--help", "run"}, "Usage: formatv2_preview COMMAND", "  -h, --help"},
        {{"-h"}, "Usage: formatv2_preview COMMAND", "  --version "},
        {{"run", "--help", "--jsn"},
         "Usage: formatv2_preview run [OPTIONS] SCENARIO\n",
         "  --log-level LEVEL "},
        {{"check", "a", "-h"},
         "Usage: formatv2_preview check [OPTIONS] FILE...\n",
         "  --disable RULE "},
        {{"test", "--help"},
         "Usage: formatv2_preview test [OPTIONS] SCENARIO|DIR...\n",
         "  --junit FILE "},
    };
    for (const auto& c : cases) {
        const CommandLine line = Parse(c.args);
        ASSERT_EQ(line.action, Action::kPrint) << c.begins << line.text;
        EXPECT_EQ(line.text.rfind(c.begins, 0), 0u) << line.text;
        EXPECT_NE(line.text.find(c.holds), std::string::npos) << line.text;
        EXPECT_EQ(line.text.substr(line.text.size() - footer.size()), footer);
    }
    const CommandLine version = Parse({"--version", "run"});
    EXPECT_EQ(version.action, Action::kPrint);
    EXPECT_EQ(version.text, "formatv2_preview 9.8.7\n");
}

}  // namespace
}  // namespace preview
