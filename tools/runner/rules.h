// Every diagnostic check gives has one entry here: the id users see in every report and pass to
// --disable, its level, a one-line summary (the docs' rule tables and SARIF's rule descriptions)
// and its usual fix. A finding may carry a fix of its own that names its values; the entry's fix
// is the general one. The module's refusals take their ids from its reader's rules.
#pragma once

#include <cstddef>
#include <string>

enum class ConfigRule;

namespace preview {

enum class Rule {
    // The module refuses the file.
    kJsonSyntax,
    kNotAText,
    kNotANumber,
    kNotAList,
    kSubscriptionRefused,
    kCustomEditValue,
    kDuplicateName,
    kConvertTypeValue,
    kConcatNeedsText,
    kTooManySubscriptions,
    kTooManyPublications,
    kNotAnObject,
    kVerdictsDiffer,
    kUnreadable,
    // The module accepts the file, though it is not JSON as other readers take it.
    kTrailingText,
    kTextAfterNul,
    kEscapeNul,
    kLooseNumber,
    kRawControl,
    kControlCharacter,
    // The module accepts the file, but every run fails.
    kNoItems,
    kNoValueType,
    kIndexNotNumber,
    kTextNotNumber,
    // The module accepts the file, but it cannot do what its writer meant.
    kFieldNoValueType,
    kFormatNoPrecision,
    kFormatFlag,
    kFormatZeroPrecision,
    kFormatLetter,
    kFormatWidthCap,
    kFormatTextWidth,
    kIndexLoose,
    kIndexIgnored,
    kEmptyName,
    kNameCut,
    kConvertTextToNumber,
    kTextSettingsIgnored,
    kTruncationEmpty,
    kLiteralEscape,
    kUnknownKey,
    kKeyCase,
    kDuplicateKey,
    kKeyNotRead,
    kArrayNotList,
};

enum class Level {
    kRefusal,  // the module refuses the file; --disable cannot silence it
    kError,    // the module accepts the file, but every run fails
    kWarning,
};

struct RuleEntry {
    Rule rule;
    const char* id;
    Level level;
    const char* summary;
    const char* fix;  // "" when there is none to give
};

extern const RuleEntry kRules[];
extern const size_t kRuleCount;

const RuleEntry& RuleOf(Rule rule);
// The entry of an id, or null for an id that is in no entry.
const RuleEntry* FindRule(const std::string& id);
// The entry of a rule of the module's configuration reader.
Rule RuleFor(ConfigRule rule);
// The rule's fix with "{key}" replaced by the key in double quotes, or by "the key" for "".
std::string FixFor(Rule rule, const std::string& key);

}  // namespace preview
