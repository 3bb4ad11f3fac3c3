// Checks what a run gave against what its scenario expects.
#pragma once

#include <string>
#include <vector>

#include "diag.h"
#include "scenario.h"
#include "session.h"

namespace preview {

struct Mismatch {
    std::string what;  // "status", "outputs.count", "log", ...
    // As the text report shows them, and as JSON values for test --json: a status is its
    // number, a text a string, an output its value as a scenario writes it ({"int": [3]}) or
    // null when not published, a log expectation the text looked for and the lines there were.
    std::string expected;
    std::string actual;
    JsonPtr expectedJson;
    JsonPtr actualJson;
    // For test --json, what the text form tells beside the values: why a first read was
    // refused, "no such output" with the closest name. May be empty.
    std::string note;
};

// Each expectation that does not hold, in the order they are written; checks counts the
// expectations looked at.
std::vector<Mismatch> CheckRun(const Expectation& expect, const RunReport& run, size_t& checks);
// The first read: its status and log lines.
std::vector<Mismatch> CheckInit(const Expectation& expect, const InitReport& init, size_t& checks);
// Whether some log line contains wanted (colour codes aside).
bool LogHolds(const std::string& wanted, const std::vector<LogLine>& log);
// A status mismatch: expected and actual as "0x... (meaning)" and as numbers.
Mismatch StatusMismatch(int expected, int actual);

}  // namespace preview
