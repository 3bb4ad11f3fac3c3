// Checks what a run gave against what its scenario expects.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "base/diag.h"
#include "drive/scenario.h"
#include "drive/session.h"

namespace preview {

// Where two texts first differ: the byte offset and the byte each has there, none where a text
// ends; for lists of texts, in which element.
struct Difference {
    std::optional<size_t> element;
    size_t offset = 0;
    std::optional<unsigned char> expected;
    std::optional<unsigned char> actual;
};
// None when the texts are equal.
std::optional<Difference> FirstDifference(const std::string& expected, const std::string& actual);
// "first difference at byte 9: expected end of text, got '\n' (0x0A)".
std::string DifferenceText(const Difference& difference);

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
    // For a text or a text output: where the bytes first differ.
    std::optional<Difference> difference;
};

// Each expectation that does not hold, in the order they are written; checks counts the
// expectations looked at.
std::vector<Mismatch> CheckRun(const Expectation& expect, const RunReport& run, size_t& checks);
// The first read: its status and log lines.
std::vector<Mismatch> CheckInit(const Expectation& expect, const InitReport& init, size_t& checks);
// Whether some log line contains wanted (colour codes aside).
bool LogHolds(const std::string& wanted, const std::vector<LogLine>& log);
// One expectation and whether it holds, for the browser preview's cards.
struct ExpectationCheck {
    std::string what;
    std::string expected;
    std::string actual;
    bool holds = true;
    std::string difference;  // where texts first differ; "" when they do not, or hold
};
// Every expectation of a run (or of the first read) on its own, in the order CheckRun looks.
std::vector<ExpectationCheck> EachExpectation(const Expectation& expect, const RunReport& run);
std::vector<ExpectationCheck> EachExpectation(const Expectation& expect, const InitReport& init);

// A status mismatch: expected and actual as "0x... (meaning)" and as numbers.
Mismatch StatusMismatch(int expected, int actual);

}  // namespace preview
