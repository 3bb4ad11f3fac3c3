// The runner's commands over its session, check and report code. Each returns the
// process exit code.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "base/rules.h"

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
    std::string listen = "127.0.0.1:8700";  // serve: where
    size_t memoryLimitMiB = 256;            // serve: each preview's address space
    int timeLimitSeconds = 5;               // serve: each preview's wall-clock and CPU time
    std::string record;                     // run: the formatv2_record.json the module records as
    std::string config;       // replay: the configuration to replay with, instead of the recorded
    std::string scenarioOut;  // replay: write the recording as this scenario instead
};

class Session;
struct ConfigSource;
struct Scenario;
struct Verdict;
struct InitReport;
struct RunReport;
class Report;

// A configuration read during a play: the first read (no run) or a run's re-read.
struct Examined {
    std::optional<size_t> run;
    const ConfigSource& config;
    const Verdict& verdict;
};

// Drives the first read (init, from Session::Init) and every run of scenario into report (none:
// nothing is reported), telling each read's verdict; log lines below logLevel are left out.
// False with error ("runs[N]. ...") when a run names a value that no subscription reads. runs,
// when given, receives what each run gave.
bool Play(Session& session, const Scenario& scenario, InitReport& init, Report* report,
          int logLevel, const std::function<void(const Examined&)>& told, std::string& error,
          std::vector<RunReport>* runs = nullptr);

int RunCommand(const std::string& scenario, const Options& options);
int CheckCommand(const std::vector<std::string>& files, const Options& options);
int TestCommand(const std::vector<std::string>& paths, const Options& options);
// 0: every run the same as recorded (or the scenario written); 1: some differ; 2: the
// recording cannot be read, or the module cannot be loaded.
int ReplayCommand(const std::string& dir, const Options& options);

}  // namespace preview
