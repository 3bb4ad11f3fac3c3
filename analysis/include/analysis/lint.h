// Lint rules: configurations the module accepts but whose outputs cannot be what the writer
// meant (a conversion text that reads no value, numbers the formatters read unlike printf,
// names cut short, texts converted to numbers, truncation that always empties, ...).
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "config/config_read.h"
#include "contract/findings.h"

namespace formatv2 {

// Where a finding stands in the configuration's structure (row, array element, key). A tool
// places it in the text itself.
struct Location {
    int row = -1;                          // position in "SubParamList"; -1 for a top-level key
    int element = -1;                      // position in the row's "Array"; -1 when none
    std::optional<std::string> paramName;  // the row's "ParamName", when it is a text
    std::string key;                       // the key concerned ("" for the whole row or file)
    int member = -1;  // the key's position among the object's members, when known
};

// "SubParamList[2] (\"points\"), Array[1], key \"SubParamStr\"" and the like.
std::string Where(const Location& at);

// A configuration the module accepts but that cannot do what its writer meant; for a rule of
// level Level::kError, every run fails.
struct Finding {
    Location at;
    Rule rule;
    int status = 0;       // the status every run ends with, for a rule of level Level::kError
    std::string message;  // what the module will do
    std::string fix;      // how to get what was probably meant
};

// Whether a finding makes every run fail (an error, though the module accepts the file).
inline bool Fails(const Finding& w) {
    return RuleOf(w.rule).level == Level::kError;
}

// Every finding for the configuration text, in file order; parse: the host's reader of
// subscription texts, as the module's reader is given it. Meant for a text the module
// accepted; anything else gives what can still be said about it, never a crash.
std::vector<Finding> Lint(const std::string& configText, SubscriptionParser parse);

// "SubParamList[2] (\"points\"), Array[1], key \"SubParamStr\": MESSAGE [RULE]"
std::string FindingText(const Finding& finding);

}  // namespace formatv2
