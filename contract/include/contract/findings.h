// Every finding about a configuration, each once: the reader's refusals, the runner's lint
// rules and its own errors. An entry gives the id that users see in every report and pass to
// --disable, its level, a one-line summary (the docs' rule table, SARIF's short description),
// the message a refusal of the reader says after the key it names, the usual fix and a longer
// help (SARIF's full description). The reader and the lint name findings by Rule; the runner
// renders text, JSON, SARIF and the docs' table from this table alone.
//
// The reader's row codes (-1 .. -22) stand below: each names its key and the finding it is.
#pragma once

#include <cstddef>
#include <string_view>

#include "contract/contract.h"

// X(name, id, level, summary, message, fix, help). level: Refusal, Error or Warning (Level).
// message: "" where each finding words its own. In a fix, "{key}" stands for the key concerned.
// Summaries are written as the docs show them (Markdown code spans).
#define FORMATV2_FINDINGS(X)                                                                       \
    /* The module refuses the file. */                                                             \
    X(JsonSyntax, "json-syntax", Refusal, "text the module's JSON reader stops at",                \
      "is not valid JSON", "make the file valid JSON",                                             \
      "The module's JSON reader stops at the first text that is not JSON, and the module "         \
      "refuses the whole file (status 0xC0000105).")                                               \
    X(NotAText, "not-a-text", Refusal, "a key the module reads that is missing or not a text",     \
      "is missing or not a text", "give {key} a text in double quotes",                            \
      "Every key of the format is required: a missing key, or one whose value is no JSON text, "   \
      "makes the module refuse the whole file (status 0xC0000105). Keys are found whatever "       \
      "their letter case.")                                                                        \
    X(NotANumber, "not-a-number", Refusal,                                                         \
      "a key the module reads that is missing or not a number", "is missing or not a number",      \
      "give {key} a number",                                                                       \
      "Every key of the format is required: a missing key, or one whose value is no JSON "         \
      "number, makes the module refuse the whole file (status 0xC0000105). Numbers are read as "   \
      "integers (3.7 reads 3).")                                                                   \
    X(NotAList, "not-a-list", Refusal, "a \"SubParamList\" that is missing or not a list",         \
      "is missing or not a list", "give {key} a list of rows ([] for none)",                       \
      "\"SubParamList\" holds the rows, in output order; without it, or with a value of "          \
      "another JSON type, the module refuses the whole file (status 0xC0000105).")                 \
    X(SubscriptionRefused, "subscription-refused", Refusal,                                        \
      "a subscription text the host's parser refuses",                                             \
      "is not a subscription text the host accepts (<algo_id>:<algo_name>:<param_name>:<index>:"   \
      "<type>, an integer id and two names that are not empty)",                                   \
      "write <algo_id>:<algo_name>:<param_name>:<index>:<type>, e.g. \"3:blob:count:*:%d\"",       \
      "A subscribed value or an array field names its source as "                                  \
      "<algo_id>:<algo_name>:<param_name>:<index>:<type>. The host's parser refuses a text with "  \
      "fewer than four colons, an empty name or an id that is no 32-bit integer, and the module "  \
      "then refuses the whole file (status 0xC0000105). A line break written as JSON escapes "     \
      "is such a text too: a symbol row holds the escape typed out (\"\\\\r\\\\n\").")             \
    X(CustomEditValue, "custom-edit-value", Refusal, "an \"IsCustomEdit\" other than 0 or 1",      \
      "must be 0 (a subscribed value, or a line-break symbol \\r\\n or \\r) or 1 (a custom text)", \
      "write 0 or 1",                                                                              \
      "\"IsCustomEdit\" chooses the kind of a row without \"Array\": 0 a subscribed value or a "   \
      "line-break symbol, 1 a custom text. Any other number makes the module refuse the whole "    \
      "file (status 0xC0000105).")                                                                 \
    X(DuplicateName, "duplicate-name", Refusal, "an output name used twice",                       \
      "is used by an earlier row or equals the top-level \"ParamName\"; output names must be "     \
      "unique (letter case counts)",                                                               \
      "give each output a name of its own",                                                        \
      "A row's \"ParamName\" names its output. Two rows of one name, or a row named as the "       \
      "joined output, make the module refuse the whole file (status 0xC0000105); letter case "     \
      "counts.")                                                                                   \
    X(ConvertTypeValue, "convert-type-value", Refusal, "a \"ConvertType\" other than 1, 2 or 3",   \
      "must be 1 (int), 2 (float) or 3 (string)", "write 1, 2 or 3",                               \
      "\"ConvertType\" is the published type: 1 int, 2 float, 3 string. Any other number makes "   \
      "the module refuse the whole file (status 0xC0000105).")                                     \
    X(ConcatNeedsText, "concat-needs-text", Refusal, "an int or float output in joined mode",      \
      "must be 3 (string) while \"StrConcateEnable\" is on: the joined output is one text",        \
      "write \"ConvertType\" 3, or \"StrConcateEnable\" 0 for one output per item",                \
      "In joined mode (\"StrConcateEnable\" not 0) the texts of all rows are joined into one "     \
      "text output, so every row must publish text; an int or float row makes the module refuse "  \
      "the whole file (status 0xC0000105).")                                                       \
    X(TooManySubscriptions, "too-many-subscriptions", Refusal,                                     \
      "more subscriptions than the module's table holds",                                          \
      "subscribe to more values than the 127 subscriptions allowed (one per subscribed item, one " \
      "per array field)",                                                                          \
      "split the items over two modules",                                                          \
      "The module subscribes once per subscribed value row and once per array field, at most "     \
      "127 times; with more, it refuses the file's tables (status 0xC0000119).")                   \
    X(TooManyPublications, "too-many-publications", Refusal,                                       \
      "more outputs than the publish table holds",                                                 \
      "need more outputs than the publish table's 128 records (the host's own, the joined output " \
      "and one per item)",                                                                         \
      "split the items over two modules",                                                          \
      "The publish table holds 128 records: the host's own, the joined output and one per row; "   \
      "with more rows the module refuses the file's tables (status 0xC0000119).")                  \
    X(NotAnObject, "not-an-object", Refusal,                                                       \
      "a configuration, row or array field that is not a JSON object", "is not an object",         \
      "write the keys between { and }",                                                            \
      "The configuration, each row and each array field is a JSON object of keys; anything else "  \
      "lacks every key the module reads, and the module refuses the whole file (status "           \
      "0xC0000105).")                                                                              \
    X(VerdictsDiffer, "verdicts-differ", Warning,                                                  \
      "the loaded module and the runner's own reader judge the file differently", "",              \
      "check with the runner built with that module",                                              \
      "check takes the verdict from the loaded module and the explanation from the reader "        \
      "linked into the runner. When they disagree they are different builds, and what check "      \
      "explains may not be what the loaded module does.")                                          \
    X(Unreadable, "unreadable", Refusal, "a file that cannot be read", "",                         \
      "check that the path names a readable file (the message gives the system's reason)",         \
      "The file could not be opened or read, so nothing in it was checked.")                       \
    /* The module accepts the file, though it is not JSON as other readers take it. */             \
    X(TrailingText, "trailing-text", Warning,                                                      \
      "text after the closing brace, which the module ignores", "",                                \
      "remove it, or move it into the object",                                                     \
      "The module's reader stops after the first complete JSON value and ignores what follows; "   \
      "other readers refuse the file, and the text was probably meant to be part of it.")          \
    X(TextAfterNul, "text-after-nul", Warning, "a NUL byte, after which the module reads nothing", \
      "", "remove the NUL byte",                                                                   \
      "The module reads the file as a C string: a NUL byte ends it, and nothing after it is "      \
      "read.")                                                                                     \
    X(EscapeNul, "escape-nul", Warning,                                                            \
      "`\\u0000`, or a `\\u` escape without four hexadecimal digits, which the module reads as a " \
      "NUL that ends the text",                                                                    \
      "", "write four hexadecimal digits of a character other than NUL",                           \
      "The module's reader keeps texts as C strings: a \\u escape that gives NUL ends the text "   \
      "there, and the rest of it is lost.")                                                        \
    X(LooseNumber, "loose-number", Warning,                                                        \
      "numbers such as `012`, `1.` and `-.5`, which the module reads but JSON does not allow", "", \
      "write it as JSON writes numbers, e.g. 12, 1.0, -0.5",                                       \
      "The module's reader takes numbers that JSON does not allow; other readers, the schema's "   \
      "included, refuse the file.")                                                                \
    X(RawControl, "raw-control", Warning, "a raw tab or line break inside a text", "",             \
      "write it as an escape",                                                                     \
      "JSON allows no raw control character inside a text. The module's reader keeps it, but "     \
      "other readers refuse the file, and editors may change it unseen.")                          \
    X(ControlCharacter, "control-character", Warning,                                              \
      "a control character between values, read as a blank", "", "remove it",                      \
      "The module's reader skips control characters between values as blanks; other readers "      \
      "refuse the file.")                                                                          \
    /* The module accepts the file, but every run fails. */                                        \
    X(NoItems, "no-items", Error, "a \"SubParamList\" without rows", "",                           \
      "add the rows to publish",                                                                   \
      "Without rows the module accepts the file, but every run fails (status 0xC0000109) and "     \
      "publishes nothing.")                                                                        \
    X(NoValueType, "no-value-type", Error,                                                         \
      "an item's conversion text whose last character reads no value", "",                         \
      "end the conversion text with d (int), f (float) or s (text)",                               \
      "The last character of the conversion text chooses how the value is read: d, u or x an "     \
      "int, f a float, s a text. Any other reads nothing, so the row never gets a value and "      \
      "every run fails (status 0xE000001C).")                                                      \
    X(IndexNotNumber, "index-not-number", Error,                                                   \
      "an item's index text that is no number or is negative", "",                                 \
      "write \"*\" for every element or a number from 0",                                          \
      "The index part picks the element of the subscribed list: \"*\" for every element, or a "    \
      "number from 0 read like stoi. A text without a number, or a negative number, fails every "  \
      "run (status 0xC0000004).")                                                                  \
    X(TextNotNumber, "text-not-number", Error,                                                     \
      "\"ConvertType\" 1 or 2 on a custom text or symbol row whose text is no number", "",         \
      "use \"ConvertType\" 3 (string)",                                                            \
      "\"ConvertType\" 1 or 2 sends the row's fixed text through stoi or stof; a text that does "  \
      "not start with a number cannot be converted, so every run fails (status 0xC0000221).")      \
    /* The module accepts the file, but it cannot do what its writer meant. */                     \
    X(FieldNoValueType, "field-no-value-type", Warning,                                            \
      "an array field's conversion text whose last character reads no value", "",                  \
      "end the conversion text with d (int), f (float) or s (text)",                               \
      "An array field whose conversion text ends in a character other than d, u, x, f or s "       \
      "reads no value: the field counts as an empty list, and only its separators show.")          \
    X(FormatNoPrecision, "format-no-precision", Warning,                                           \
      "a float format without both width and precision (`%.2f`, `%f`, `%8f`)", "",                 \
      "write a width and a precision, e.g. \"%1.2f\" for two decimals without padding",            \
      "The module does not hand format texts to printf: a float is written as its integer part "   \
      "zero-filled to the width, a point and \"precision\" fraction digits, and without a width "  \
      "the precision is not read. Without both, no fraction digits follow the point (12.3456 "     \
      "with %.2f gives \"12.\").")                                                                 \
    X(FormatFlag, "format-flag", Warning,                                                          \
      "a `-` flag (a negative width: no padding), `#` (stops the reading: no width), `+` or "      \
      "blank (skipped: zeros, no sign)",                                                           \
      "", "drop the flag; the module can only fill with zeros on the left",                        \
      "The width is read as scanf reads a number: '-' makes it negative (no padding), '+' and "    \
      "blanks are skipped, and '#' stops the reading, so that no width is read. printf's flags "   \
      "have no effect of their own.")                                                              \
    X(FormatZeroPrecision, "format-zero-precision", Warning,                                       \
      "a float format with precision 0, where an exact half rounds down", "",                      \
      "use a precision of 1 or more",                                                              \
      "The fraction is rounded on its own: with precision 0 an exact half rounds down (%1.0f "     \
      "gives \"1.\" for 1.5 and \"3.\" for 3.5).")                                                 \
    X(FormatLetter, "format-letter", Warning, "`x` or `u`, which still print signed decimal", "",  \
      "use \"d\" and expect decimal",                                                              \
      "The last letter only chooses how the value is read: an int is always written in signed "    \
      "decimal, never in hexadecimal or as unsigned.")                                             \
    X(FormatWidthCap, "format-width-cap", Warning, "a width or precision above 4096", "",          \
      "use a width and precision of at most 4096",                                                 \
      "Widths and precisions above 4096 count as 4096, so the value is narrower than written.")    \
    X(FormatTextWidth, "format-text-width", Warning, "a width on a `%s` text", "",                 \
      "use \"%s\"; to cut a text use \"StrTruncEnable\", \"StrTruncStart\" and \"StrTruncLen\"",   \
      "Widths and precisions do nothing to a text: it is copied as it is.")                        \
    X(IndexLoose, "index-loose", Warning,                                                          \
      "an index text with more than digits, read as the number it starts with", "",                \
      "write the number alone",                                                                    \
      "The index is read like stoi: blanks before and characters after the digits are skipped, "   \
      "so \"2abc\" picks element 2.")                                                              \
    X(IndexIgnored, "index-ignored", Warning, "an index other than `*` on an array field", "",     \
      "write \"*\"; to show one element use a single item with that index",                        \
      "An array field always takes every element of its list: its index part is not read.")        \
    X(EmptyName, "empty-name", Warning,                                                            \
      "an empty \"ParamName\" (or top-level \"ParamName\" in joined mode)", "",                    \
      "give it a name that other modules can subscribe to",                                        \
      "The output is published under the empty name, by which no other module can subscribe to "   \
      "it.")                                                                                       \
    X(NameCut, "name-cut", Warning,                                                                \
      "a name over 47 bytes (cut in \"DynamicPub\") or 63 (cut in the publish table)", "",         \
      "use at most 47 bytes",                                                                      \
      "The publish table keeps the first 63 bytes of a name and each run's \"DynamicPub\" record " \
      "the first 47; the rest is cut, and the two may then show different names.")                 \
    X(ConvertTextToNumber, "convert-text-to-number", Warning,                                      \
      "\"ConvertType\" 1 or 2 on an array, or on a custom text with more than a number", "",       \
      "use \"ConvertType\" 3 (string)",                                                            \
      "\"ConvertType\" 1 or 2 sends the text through stoi or stof: only a leading number is "      \
      "published and the rest is lost; a text that does not start with a number fails the run "    \
      "(status 0xC0000221).")                                                                      \
    X(TextSettingsIgnored, "text-settings-ignored", Warning,                                       \
      "truncation, prefix, suffix or deletion on an int or float output", "",                      \
      "use \"ConvertType\" 3, or clear the text settings",                                         \
      "Truncation, prefix, suffix and deletion apply to texts only: an int or float output is "    \
      "published without them.")                                                                   \
    X(TruncationEmpty, "truncation-empty", Warning,                                                \
      "truncation settings that always give an empty text", "",                                    \
      "keep characters from a start of 0 or more with a length above 0, or set "                   \
      "\"StrTruncEnable\" 0",                                                                      \
      "Truncation keeps at most \"StrTruncLen\" bytes from \"StrTruncStart\": a start below 0, "   \
      "or a length of 0 or below, empties every text.")                                            \
    X(LiteralEscape, "literal-escape", Warning,                                                    \
      "`\\r`, `\\n` or `\\t` typed in a key that keeps them as typed", "",                         \
      "for a line break add a row with \"SubParamStr\" \"\\\\r\\\\n\" (or \"\\\\r\") and "         \
      "\"IsCustomEdit\" 0; for a real control character write the JSON escape (\"\\r\", \"\\n\") " \
      "instead",                                                                                   \
      "Only a symbol row's \"SubParamStr\" turns a typed \\r\\n or \\r into a line break; every "  \
      "other text keeps the backslash and the letter.")                                            \
    X(UnknownKey, "unknown-key", Warning, "a key the module does not know", "", "remove it",       \
      "The module ignores keys it does not know; such a key is often a misspelling of one it "     \
      "reads.")                                                                                    \
    X(KeyCase, "key-case", Warning, "a key in other letter case, which only the module reads", "", \
      "write the key as documented",                                                               \
      "The module finds keys whatever their letter case; the schema and other tools do not.")      \
    X(DuplicateKey, "duplicate-key", Warning,                                                      \
      "a key written twice in one object, of which the module reads the first", "",                \
      "remove one of the two",                                                                     \
      "The module reads the first of two equal keys in one object (letter case ignored); the "     \
      "other has no effect, though it may look like the one in force.")                            \
    X(KeyNotRead, "key-not-read", Warning, "a key that an array row does not read", "",            \
      "remove it, or remove \"Array\" to make the row a single item",                              \
      "A row with \"Array\" takes its values from its fields: the keys of a single item's value "  \
      "and labels are not read there.")                                                            \
    X(ArrayNotList, "array-not-list", Warning,                                                     \
      "an \"Array\" that is no list, so the row is read as a single item", "",                     \
      "make \"Array\" a list of fields, or remove it",                                             \
      "A row is an array row only when \"Array\" is a list; otherwise the key is ignored and the " \
      "row needs the keys of a single item.")

// X(name, code, element, key, rule): the row codes of the reader (parseSubParamList), the first
// rule a row breaks, in reading order. element: a key of an "Array" element, not of the row.
// key: the key's constant in formatv2::key, without its k.
#define FORMATV2_ROW_CODES(X)                                          \
    X(ElementSubParamStr, -1, true, SubParamStr, NotAText)             \
    X(ElementSeparator, -2, true, Separator, NotAText)                 \
    X(ElementShowValueCn, -3, true, ShowValueCn, NotAText)             \
    X(ElementShowValueEn, -4, true, ShowValueEn, NotAText)             \
    X(ElementSubscription, -5, true, SubParamStr, SubscriptionRefused) \
    X(SubParamStr, -6, false, SubParamStr, NotAText)                   \
    X(IsCustomEdit, -7, false, IsCustomEdit, NotANumber)               \
    X(Subscription, -8, false, SubParamStr, SubscriptionRefused)       \
    X(CustomEditValue, -9, false, IsCustomEdit, CustomEditValue)       \
    X(ShowValueCn, -10, false, ShowValueCn, NotAText)                  \
    X(ShowValueEn, -11, false, ShowValueEn, NotAText)                  \
    X(ParamName, -12, false, ParamName, NotAText)                      \
    X(NameNotUnique, -13, false, ParamName, DuplicateName)             \
    X(ConvertType, -14, false, ConvertType, NotANumber)                \
    X(ConvertTypeValue, -15, false, ConvertType, ConvertTypeValue)     \
    X(ConcatNeedsText, -16, false, ConvertType, ConcatNeedsText)       \
    X(StrTruncEnable, -17, false, StrTruncEnable, NotANumber)          \
    X(StrTruncStart, -18, false, StrTruncStart, NotANumber)            \
    X(StrTruncLen, -19, false, StrTruncLen, NotANumber)                \
    X(StrPrefix, -20, false, StrPrefix, NotAText)                      \
    X(StrSuffix, -21, false, StrSuffix, NotAText)                      \
    X(StrDelete, -22, false, StrDelete, NotAText)

namespace formatv2 {

enum class Rule : int {
#define FORMATV2_FINDING_ID(name, id, level, summary, message, fix, help) k##name,
    FORMATV2_FINDINGS(FORMATV2_FINDING_ID)
#undef FORMATV2_FINDING_ID
};

enum class Level : int {
    kRefusal,  // the module refuses the file; --disable cannot silence it
    kError,    // the module accepts the file, but every run fails
    kWarning,
};

struct RuleEntry {
    Rule rule;
    const char* id;
    Level level;
    const char* summary;
    const char* message;  // completes "<where> ..." in a refusal of the reader; "" for none
    const char* fix;      // may hold "{key}"
    const char* help;
};

inline constexpr RuleEntry kRules[] = {
#define FORMATV2_FINDING_ENTRY(name, id, level, summary, message, fix, help) \
    {Rule::k##name, id, Level::k##level, summary, message, fix, help},
    FORMATV2_FINDINGS(FORMATV2_FINDING_ENTRY)
#undef FORMATV2_FINDING_ENTRY
};
inline constexpr size_t kRuleCount = sizeof kRules / sizeof kRules[0];

constexpr const RuleEntry& RuleOf(Rule rule) {
    return kRules[static_cast<size_t>(rule)];
}

// The entry of an id, or null for an id that is in no entry.
constexpr const RuleEntry* FindRule(std::string_view id) {
    for (const RuleEntry& e : kRules) {
        if (id == e.id) return &e;
    }
    return nullptr;
}

namespace detail {
constexpr bool IdsUnique() {
    for (size_t i = 0; i < kRuleCount; ++i) {
        if (FindRule(kRules[i].id) != &kRules[i]) return false;
    }
    return true;
}
}  // namespace detail

// --disable and every report name a finding by its id alone.
static_assert(detail::IdsUnique(), "two findings share an id");
// Summaries, messages and help name these limits in words.
static_assert(kMaxFormatWidth == 4096 && kRunNameMax == 47 && kPublishNameMax == 63 &&
                  kMaxSubscriptions == 127 && kMaxPublications == 128,
              "the texts of format-width-cap, name-cut and the table limits name the limits");

}  // namespace formatv2

enum RowCode : int {
#define FORMATV2_ROW_CODE_ID(name, code, element, key, rule) kRow##name = code,
    FORMATV2_ROW_CODES(FORMATV2_ROW_CODE_ID)
#undef FORMATV2_ROW_CODE_ID
};

struct RowCodeInfo {
    RowCode code;
    bool element;     // a key of an "Array" element rather than of the row
    const char* key;  // the key the rule is about
    formatv2::Rule rule;
};

inline constexpr RowCodeInfo kRowCodes[] = {
#define FORMATV2_ROW_CODE_ENTRY(name, code, element, keyName, rule) \
    {kRow##name, element, formatv2::key::k##keyName, formatv2::Rule::k##rule},
    FORMATV2_ROW_CODES(FORMATV2_ROW_CODE_ENTRY)
#undef FORMATV2_ROW_CODE_ENTRY
};

constexpr const RowCodeInfo& RowCodeOf(RowCode code) {
    return kRowCodes[-code - 1];
}

namespace formatv2::detail {
// RowCodeOf indexes by code: the codes run -1, -2, ... without a gap.
constexpr bool RowCodesInOrder() {
    for (size_t i = 0; i < sizeof kRowCodes / sizeof kRowCodes[0]; ++i) {
        if (kRowCodes[i].code != -static_cast<int>(i) - 1) return false;
    }
    return true;
}
static_assert(RowCodesInOrder(), "row codes out of order");
}  // namespace formatv2::detail
