// Explains, in words, why the module refused a configuration.
#pragma once

#include <string>
#include <vector>

#include "session.h"

namespace preview {

// Sentences naming the failing row (position and ParamName), key and rule; empty when the
// configuration was accepted.
std::vector<std::string> ExplainRefusal(const InitReport& init, const std::string& configText);

}  // namespace preview
