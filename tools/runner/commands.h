// The runner's three commands over its session, check and report code. Each returns the
// process exit code.
#pragma once

#include <string>
#include <vector>

#include "rules.h"

namespace preview {

// 0: done, valid, every expectation holds. 1: a configuration refused, a warning under
// --strict, or an expectation that does not hold. 2: bad usage, a file that cannot be read
// or is not a valid scenario, a module that cannot be loaded.
constexpr int kExitOk = 0;
constexpr int kExitFailed = 1;
constexpr int kExitUsage = 2;

struct Options {
    std::string module;
    bool json = false;
    int logLevel = 4;  // lowest level shown by run: 4 Info, 5 Warn, 6 Err, 8 none
    bool strict = false;
    std::string junit;           // test: the JUnit XML file to write
    bool update = false;         // test: rewrite the expectations of scenarios that do not hold
    bool sarif = false;          // check: SARIF 2.1.0 instead of text or JSON
    std::vector<Rule> disabled;  // check: warnings not reported
    std::string version;         // the runner's, as --version shows it
};

int RunCommand(const std::string& scenario, const Options& options);
int CheckCommand(const std::vector<std::string>& files, const Options& options);
int TestCommand(const std::vector<std::string>& paths, const Options& options);

}  // namespace preview
