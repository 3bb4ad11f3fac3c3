#include "base/rules.h"

namespace preview {

std::string FixFor(Rule rule, const std::string& key) {
    std::string fix = RuleOf(rule).fix;
    const size_t at = fix.find("{key}");
    if (at != std::string::npos) fix.replace(at, 5, key.empty() ? "the key" : "\"" + key + "\"");
    return fix;
}

}  // namespace preview
