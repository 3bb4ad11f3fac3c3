#include "rules.h"

#include <iterator>

#include "contract/contract.h"

namespace preview {

// Summaries and fixes name these limits in words.
static_assert(kMaxFormatWidth == 4096 && kRunNameMax == 47 && kPublishNameMax == 63,
              "the summaries of format-width-cap and name-cut and their fixes name the limits");

namespace {
constexpr const char* IdOf(ConfigRule rule) {
    return RuleInfo(rule).id;
}
}  // namespace

// In the order of Rule. Summaries are written as the docs show them (Markdown code spans).
const RuleEntry kRules[] = {
    {Rule::kJsonSyntax, IdOf(ConfigRule::kNotJson), Level::kRefusal,
     "text the module's JSON reader stops at", "make the file valid JSON"},
    {Rule::kNotAText, IdOf(ConfigRule::kText), Level::kRefusal,
     "a key the module reads that is missing or not a text", "give {key} a text in double quotes"},
    {Rule::kNotANumber, IdOf(ConfigRule::kNumber), Level::kRefusal,
     "a key the module reads that is missing or not a number", "give {key} a number"},
    {Rule::kNotAList, IdOf(ConfigRule::kList), Level::kRefusal,
     "a \"SubParamList\" that is missing or not a list", "give {key} a list of rows ([] for none)"},
    {Rule::kSubscriptionRefused, IdOf(ConfigRule::kSubscription), Level::kRefusal,
     "a subscription text the host's parser refuses",
     "write <algo_id>:<algo_name>:<param_name>:<index>:<type>, e.g. \"3:blob:count:*:%d\""},
    {Rule::kCustomEditValue, IdOf(ConfigRule::kCustomEdit), Level::kRefusal,
     "an \"IsCustomEdit\" other than 0 or 1", "write 0 or 1"},
    {Rule::kDuplicateName, IdOf(ConfigRule::kUniqueName), Level::kRefusal,
     "an output name used twice", "give each output a name of its own"},
    {Rule::kConvertTypeValue, IdOf(ConfigRule::kConvertType), Level::kRefusal,
     "a \"ConvertType\" other than 1, 2 or 3", "write 1, 2 or 3"},
    {Rule::kConcatNeedsText, IdOf(ConfigRule::kConcatNeedsText), Level::kRefusal,
     "an int or float output in joined mode",
     "write \"ConvertType\" 3, or \"StrConcateEnable\" 0 for one output per item"},
    {Rule::kTooManySubscriptions, IdOf(ConfigRule::kTooManySubscriptions), Level::kRefusal,
     "more subscriptions than the module's table holds", "split the items over two modules"},
    {Rule::kTooManyPublications, IdOf(ConfigRule::kTooManyPublications), Level::kRefusal,
     "more outputs than the publish table holds", "split the items over two modules"},
    {Rule::kNotAnObject, "not-an-object", Level::kRefusal,
     "a configuration, row or array field that is not a JSON object",
     "write the keys between { and }"},
    {Rule::kVerdictsDiffer, "verdicts-differ", Level::kWarning,
     "the loaded module and the runner's own reader judge the file differently",
     "check with the runner built with that module"},
    {Rule::kUnreadable, "unreadable", Level::kRefusal, "a file that cannot be read",
     "check that the path names a readable file (the message gives the system's reason)"},

    {Rule::kTrailingText, "trailing-text", Level::kWarning,
     "text after the closing brace, which the module ignores",
     "remove it, or move it into the object"},
    {Rule::kTextAfterNul, "text-after-nul", Level::kWarning,
     "a NUL byte, after which the module reads nothing", "remove the NUL byte"},
    {Rule::kEscapeNul, "escape-nul", Level::kWarning,
     "`\\u0000`, or a `\\u` escape without four hexadecimal digits, which the module reads as a "
     "NUL that ends the text",
     "write four hexadecimal digits of a character other than NUL"},
    {Rule::kLooseNumber, "loose-number", Level::kWarning,
     "numbers such as `012`, `1.` and `-.5`, which the module reads but JSON does not allow",
     "write it as JSON writes numbers, e.g. 12, 1.0, -0.5"},
    {Rule::kRawControl, "raw-control", Level::kWarning, "a raw tab or line break inside a text",
     "write it as an escape"},
    {Rule::kControlCharacter, "control-character", Level::kWarning,
     "a control character between values, read as a blank", "remove it"},

    {Rule::kNoItems, "no-items", Level::kError, "a \"SubParamList\" without rows",
     "add the rows to publish"},
    {Rule::kNoValueType, "no-value-type", Level::kError,
     "an item's conversion text whose last character reads no value",
     "end the conversion text with d (int), f (float) or s (text)"},
    {Rule::kIndexNotNumber, "index-not-number", Level::kError,
     "an item's index text that is no number or is negative",
     "write \"*\" for every element or a number from 0"},
    {Rule::kTextNotNumber, "text-not-number", Level::kError,
     "\"ConvertType\" 1 or 2 on a custom text or symbol row whose text is no number",
     "use \"ConvertType\" 3 (string)"},

    {Rule::kFieldNoValueType, "field-no-value-type", Level::kWarning,
     "an array field's conversion text whose last character reads no value",
     "end the conversion text with d (int), f (float) or s (text)"},
    {Rule::kFormatNoPrecision, "format-no-precision", Level::kWarning,
     "a float format without both width and precision (`%.2f`, `%f`, `%8f`)",
     "write a width and a precision, e.g. \"%1.2f\" for two decimals without padding"},
    {Rule::kFormatFlag, "format-flag", Level::kWarning,
     "a `-` flag (a negative width: no padding), `#` (stops the reading: no width), `+` or "
     "blank (skipped: zeros, no sign)",
     "drop the flag; the module can only fill with zeros on the left"},
    {Rule::kFormatZeroPrecision, "format-zero-precision", Level::kWarning,
     "a float format with precision 0, where an exact half rounds down",
     "use a precision of 1 or more"},
    {Rule::kFormatLetter, "format-letter", Level::kWarning,
     "`x` or `u`, which still print signed decimal", "use \"d\" and expect decimal"},
    {Rule::kFormatWidthCap, "format-width-cap", Level::kWarning, "a width or precision above 4096",
     "use a width and precision of at most 4096"},
    {Rule::kFormatTextWidth, "format-text-width", Level::kWarning, "a width on a `%s` text",
     "use \"%s\"; to cut a text use \"StrTruncEnable\", \"StrTruncStart\" and \"StrTruncLen\""},
    {Rule::kIndexLoose, "index-loose", Level::kWarning,
     "an index text with more than digits, read as the number it starts with",
     "write the number alone"},
    {Rule::kIndexIgnored, "index-ignored", Level::kWarning,
     "an index other than `*` on an array field",
     "write \"*\"; to show one element use a single item with that index"},
    {Rule::kEmptyName, "empty-name", Level::kWarning,
     "an empty \"ParamName\" (or top-level \"ParamName\" in joined mode)",
     "give it a name that other modules can subscribe to"},
    {Rule::kNameCut, "name-cut", Level::kWarning,
     "a name over 47 bytes (cut in \"DynamicPub\") or 63 (cut in the publish table)",
     "use at most 47 bytes"},
    {Rule::kConvertTextToNumber, "convert-text-to-number", Level::kWarning,
     "\"ConvertType\" 1 or 2 on an array, or on a custom text with more than a number",
     "use \"ConvertType\" 3 (string)"},
    {Rule::kTextSettingsIgnored, "text-settings-ignored", Level::kWarning,
     "truncation, prefix, suffix or deletion on an int or float output",
     "use \"ConvertType\" 3, or clear the text settings"},
    {Rule::kTruncationEmpty, "truncation-empty", Level::kWarning,
     "truncation settings that always give an empty text",
     "keep characters from a start of 0 or more with a length above 0, or set "
     "\"StrTruncEnable\" 0"},
    {Rule::kLiteralEscape, "literal-escape", Level::kWarning,
     "`\\r`, `\\n` or `\\t` typed in a key that keeps them as typed",
     "for a line break add a row with \"SubParamStr\" \"\\\\r\\\\n\" (or \"\\\\r\") and "
     "\"IsCustomEdit\" 0; for a real control character write the JSON escape (\"\\r\", \"\\n\") "
     "instead"},
    {Rule::kUnknownKey, "unknown-key", Level::kWarning, "a key the module does not know",
     "remove it"},
    {Rule::kKeyCase, "key-case", Level::kWarning,
     "a key in other letter case, which only the module reads", "write the key as documented"},
    {Rule::kDuplicateKey, "duplicate-key", Level::kWarning,
     "a key written twice in one object, of which the module reads the first",
     "remove one of the two"},
    {Rule::kKeyNotRead, "key-not-read", Level::kWarning, "a key that an array row does not read",
     "remove it, or remove \"Array\" to make the row a single item"},
    {Rule::kArrayNotList, "array-not-list", Level::kWarning,
     "an \"Array\" that is no list, so the row is read as a single item",
     "make \"Array\" a list of fields, or remove it"},
};
const size_t kRuleCount = std::size(kRules);

const RuleEntry& RuleOf(Rule rule) {
    return kRules[static_cast<size_t>(rule)];
}

const RuleEntry* FindRule(const std::string& id) {
    for (const RuleEntry& e : kRules) {
        if (id == e.id) return &e;
    }
    return nullptr;
}

Rule RuleFor(ConfigRule rule) {
    const RuleEntry* entry = FindRule(IdOf(rule));
    return entry != nullptr ? entry->rule : Rule::kJsonSyntax;
}

std::string FixFor(Rule rule, const std::string& key) {
    std::string fix = RuleOf(rule).fix;
    const size_t at = fix.find("{key}");
    if (at != std::string::npos) fix.replace(at, 5, key.empty() ? "the key" : "\"" + key + "\"");
    return fix;
}

}  // namespace preview
