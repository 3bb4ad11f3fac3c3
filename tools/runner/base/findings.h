// What check finds in a configuration: where it stands (row, array element, key; placed in the
// text where it could be) and what it means. Shared by the refusal explanation, the lint's
// findings and the reports.
#pragma once

#include <optional>
#include <string>

#include "analysis/lint.h"
#include "base/rules.h"

namespace preview {

using formatv2::Fails;
using formatv2::FindingText;
using formatv2::Location;
using formatv2::Where;

// Where a finding stands in the text, when it could be placed.
struct Place {
    size_t offset = 0;
    size_t line = 0;  // 0: not placed
    size_t column = 0;
};

// A finding of the lint, of the JSON scanner or of check itself, where it stands in the text.
struct Warning : formatv2::Finding {
    Place place;
};

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
