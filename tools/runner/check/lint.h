// Lint rules: configurations the module accepts but whose outputs cannot be what the writer
// meant (a conversion text that reads no value, numbers the formatters read unlike printf,
// names cut short, texts converted to numbers, truncation that always empties, ...).
#pragma once

#include <string>
#include <vector>

#include "base/findings.h"

namespace preview {

// Every warning for the configuration text, in file order. Meant for a text the module
// accepted; anything else gives what can still be said about it, never a crash.
std::vector<Warning> Lint(const std::string& configText);

// "SubParamList[2] (\"points\"), Array[1], key \"SubParamStr\": MESSAGE [RULE]"
std::string WarningText(const Warning& warning);

}  // namespace preview
