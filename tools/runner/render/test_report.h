// What test found in each scenario, and the reports made of it: text, JSON, JUnit XML, and
// the scenario rewritten with what its runs gave (--update).
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "drive/scenario.h"
#include "drive/session.h"
#include "render/expect.h"

typedef struct cJSON cJSON;

namespace preview {

// An expectation that does not hold; run is -1 for the first read.
struct Finding {
    int run = -1;
    Mismatch mismatch;
};

// One scenario file under test.
struct Outcome {
    std::string path;   // as given
    std::string file;   // as shown
    std::string error;  // why it could not be run; empty when it ran
    size_t checks = 0;
    Scenario scenario;
    InitReport init;
    std::vector<RunReport> runs;  // what each run gave
    std::vector<Finding> found;
    bool updated = false;  // --update rewrote the file
    // Wall-clock seconds: loading the module with the first read, and each run.
    double initSeconds = 0;
    std::vector<double> runSeconds;

    bool Broken() const { return !error.empty(); }
    bool Holds() const { return !Broken() && found.empty(); }
};

// One mismatch: {"run", "name", "what", "expected", "actual", "run_status", ...}.
cJSON* FindingJson(const Outcome& outcome, const Finding& finding);
// {"file", "ok", "runs", "checks", "mismatches": [...]} or {"file", "ok": false, "error"}.
cJSON* OutcomeJson(const Outcome& outcome);
// "FILE: ok (2 runs, 6 checks)" and a line per mismatch.
void PrintOutcome(const Outcome& outcome, bool colour);
// A run's "expect" as test --update writes it: what the run gave, with the log texts of old
// that still hold.
cJSON* RunExpectation(const RunReport& run, const std::optional<Expectation>& old);
// A scenario's JSON laid out as test --update writes it, with a line end.
std::string LaidOut(const cJSON* root);
// A JUnit XML document: a testsuite per scenario, a testcase per run and one for the first
// read where there is something to say about it.
std::string JUnitXml(const std::vector<Outcome>& outcomes);
// The scenario's text with each run's "expect" (and "expect_init" where the first read
// fails or was expected) rewritten to what the runs gave; false with the reason when the file
// cannot be read again.
bool UpdatedScenario(const Outcome& outcome, std::string& text, std::string& reason);

}  // namespace preview
