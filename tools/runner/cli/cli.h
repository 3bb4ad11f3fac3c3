// The runner's command line: a command (run, check, test, serve), its options and its arguments,
// read with getopt_long. Reading prints nothing, so that a test can drive it with an argv.
#pragma once

#include <string>
#include <vector>

#include "commands/commands.h"

namespace preview {

struct CommandLine {
    enum class Action { kRun, kCheck, kTest, kReplay, kServe, kEvaluate, kPrint, kRefuse };
    Action action = Action::kRefuse;
    Options options;
    std::vector<std::string> inputs;  // run: its scenario; check: files; test: scenarios, folders
    // kPrint: the help or version text for standard output; kRefuse: what is wrong, naming the
    // argument.
    std::string text;
};

// argv as main gets it; it is not changed. module: what --module defaults to; version: the
// project's version, for --version.
CommandLine ParseCommandLine(int argc, char* const* argv, const std::string& module,
                             const std::string& version);

// Does what the command line asks and gives the process exit code: the command's, or 2 for bad
// usage and for output that could not be written in full (with the system's reason).
int Execute(const CommandLine& line);

}  // namespace preview
