// How every report writes values, statuses, runs and log texts.
#pragma once

#include <cstddef>
#include <string>

#include "analysis/wording.h"
#include "drive/scenario.h"

typedef struct cJSON cJSON;

namespace preview {

// Escapes control characters so that line breaks stay visible (\n, \r, \t, \xHH), a
// backslash as \\, and a byte of no well-formed UTF-8 sequence as \xHH.
std::string Visible(const std::string& text);

using formatv2::Hex;
using formatv2::StatusText;  // Hex(status), then its meaning in brackets
const char* KindName(Value::Kind kind);
std::string ValuesText(const Value& value);  // "[1, 2]", "\"a\"", ...
// A value as a scenario writes it: {"int": [1, 2]}, {"string": "a"}, ...
cJSON* ValueJson(const Value& value);
// How every report names a run: runs[0], or runs[0] ("its name").
std::string RunLabel(size_t index, const std::string& name);
std::string StripColour(const std::string& text);
// A value's elements as a JSON list.
cJSON* ValuesJson(const Value& value);

}  // namespace preview
