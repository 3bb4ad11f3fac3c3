// What check finds in a configuration: where it stands (row, array element, key) and what it
// means. Shared by the refusal explanation, the lint rules and the reports.
#pragma once

#include <optional>
#include <string>

#include "base/rules.h"

namespace preview {

struct Location {
    int row = -1;                          // position in "SubParamList"; -1 for a top-level key
    int element = -1;                      // position in the row's "Array"; -1 when none
    std::optional<std::string> paramName;  // the row's "ParamName", when it is a text
    std::string key;                       // the key concerned ("" for the whole row or file)
    int member = -1;  // the key's position among the object's members, when known
};

// Where a finding stands in the text, when it could be placed.
struct Place {
    size_t offset = 0;
    size_t line = 0;  // 0: not placed
    size_t column = 0;
};

// "SubParamList[2] (\"points\"), Array[1], key \"SubParamStr\"" and the like.
std::string Where(const Location& at);

// A configuration the module accepts but that cannot do what its writer meant; for a rule of
// level Level::kError, every run fails.
struct Warning {
    Location at;
    Rule rule;
    int status = 0;       // the status every run ends with, for a rule of level Level::kError
    std::string message;  // what the module will do
    std::string fix;      // how to get what was probably meant
    Place place;
};

// Whether a finding makes every run fail (an error, though the module accepts the file).
inline bool Fails(const Warning& w) {
    return RuleOf(w.rule).level == Level::kError;
}

// Why the module refused a configuration.
struct Refusal {
    int status = 0;           // the read's status (kStatusConfigRefused, ...)
    std::optional<int> code;  // the configuration reader's row code (-1 .. -22)
    Location at;
    Rule rule = Rule::kJsonSyntax;
    std::optional<std::string> value;  // the offending value as JSON text
    std::string message;               // the whole explanation in one sentence
    std::string fix;                   // "" when there is none to give
    bool syntax = false;               // the text is not JSON
    bool stops = false;                // the refusal the module stops at
    Place place;
};

}  // namespace preview
