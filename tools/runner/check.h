// Explains, in words and as fields, why the module refused a configuration.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "findings.h"
#include "session.h"

namespace preview {

// The refusal behind a configuration read's status, from the lines the module logged and
// the number of rows it kept; nothing when the read succeeded.
std::optional<Refusal> ExplainRefusal(int status, const std::vector<LogLine>& log,
                                      size_t rowsRead, const std::string& configText);

}  // namespace preview
