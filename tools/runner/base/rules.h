// The runner names findings by the table of contract/findings.h: the id users see in every
// report and pass to --disable, its level, summary, fix and help. A finding may carry a fix of
// its own that names its values; the entry's fix is the general one.
#pragma once

#include <string>

#include "contract/findings.h"

namespace preview {

using formatv2::FindRule;
using formatv2::kRuleCount;
using formatv2::kRules;
using formatv2::Level;
using formatv2::Rule;
using formatv2::RuleEntry;
using formatv2::RuleOf;
// The configuration's keys: key::kSubParamList and the like.
namespace key = formatv2::key;

// The rule's fix with "{key}" replaced by the key in double quotes, or by "the key" for "".
std::string FixFor(Rule rule, const std::string& key);

}  // namespace preview
