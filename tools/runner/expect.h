// Checks what a run gave against what its scenario expects.
#pragma once

#include <string>
#include <vector>

#include "scenario.h"
#include "session.h"

namespace preview {

struct Mismatch {
    std::string what;  // "status", "outputs.count", "log", ...
    std::string expected;
    std::string actual;
};

// Each expectation that does not hold, in the order they are written; checks counts the
// expectations looked at.
std::vector<Mismatch> CheckRun(const Expectation& expect, const RunReport& run, size_t& checks);
// The first read: its status and log lines.
std::vector<Mismatch> CheckInit(const Expectation& expect, const InitReport& init,
                                size_t& checks);

}  // namespace preview
