#include "analysis/lint.h"

#include <cjson/cJSON.h>
#include <strings.h>

#include <cstring>
#include <iterator>
#include <memory>

#include "analysis/wording.h"
#include "assembly/assembly.h"
#include "config/element_kind.h"
#include "config/item_model.h"
#include "contract/contract.h"
#include "contract/messages.h"
#include "format/formatter.h"
#include "host/algo.h"
#include "publish/publish.h"

namespace formatv2 {
namespace {

// A module log message's text as its line shows it, without the line end.
std::string ModuleMessage(Msg id) {
    std::string text = MessageOf(id).text;
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.pop_back();
    return text;
}

std::string Quote(const std::string& text) {
    return "\"" + text + "\"";
}

std::string Text(const cJSON* object, const char* key) {
    const cJSON* item = cJSON_GetObjectItem(object, key);
    return cJSON_IsString(item) ? item->valuestring : "";
}

int Number(const cJSON* object, const char* key) {
    const cJSON* item = cJSON_GetObjectItem(object, key);
    return cJSON_IsNumber(item) ? item->valueint : 0;
}

// The text a custom text or symbol row has in every run, made as a run makes it.
std::string FixedText(FORMAT_V2_DATA_TYPE kind, const std::string& subParamStr) {
    DataSection item;
    item.SubParamStr = subParamStr;
    if (kind == FORMAT_V2_DATA_SYMBOL) AssembleSymbolData(item);
    if (kind == FORMAT_V2_DATA_CUSTOM) AssembleCustomData(item);
    return item.Value.Held<StringList>().front();
}

class Linter {
  public:
    explicit Linter(SubscriptionParser parse) : m_parse(parse) {}

    std::vector<Finding> out;

    // fix: "" for the rule's own.
    void Add(const Location& at, Rule rule, std::string message, std::string fix = "") {
        if (fix.empty()) fix = RuleOf(rule).fix;
        out.push_back({at, rule, 0, std::move(message), std::move(fix)});
    }

    // A finding that fails every run with status.
    void Doomed(const Location& at, Rule rule, int status, const std::string& why,
                std::string fix = "") {
        Add(at, rule,
            why + "; the module accepts the file, but every run fails with " + StatusText(status),
            std::move(fix));
        out.back().status = status;
    }

    // Keys no reader looks at, keys in other letter case, keys written twice.
    void Keys(const cJSON* object, Location at, const char* const* known, size_t count,
              const char* const* unread = nullptr, size_t unreadCount = 0) {
        at.member = -1;
        for (const cJSON* k = object->child; k != nullptr; k = k->next) {
            ++at.member;
            if (k->string == nullptr) continue;
            at.key = k->string;
            for (const cJSON* e = object->child; e != k; e = e->next) {
                if (e->string != nullptr && strcasecmp(e->string, k->string) == 0) {
                    Add(at, Rule::kDuplicateKey,
                        "the key stands twice in the object; the module reads only the first");
                    break;
                }
            }
            const char* exact = nullptr;
            for (size_t i = 0; i < count; ++i) {
                if (strcasecmp(known[i], k->string) == 0) exact = known[i];
            }
            for (size_t i = 0; exact != nullptr && i < unreadCount; ++i) {
                if (std::strcmp(unread[i], exact) == 0) {
                    Add(at, Rule::kKeyNotRead, "an array row does not read this key");
                }
            }
            if (exact != nullptr && std::strcmp(exact, k->string) != 0) {
                Add(at, Rule::kKeyCase,
                    std::string("the module reads it as \"") + exact +
                        "\" (it ignores letter case), but the schema and other tools do not",
                    std::string("write \"") + exact + "\"");
            } else if (exact == nullptr) {
                const std::string close = ClosestWord(k->string, known, count);
                Add(at, Rule::kUnknownKey, "no key of that name exists; the module ignores it",
                    close.empty() ? "" : "did you mean \"" + close + "\"?");
            }
        }
    }

    void Name(const Location& at, const std::string& name) {
        if (name.empty()) {
            Add(at, Rule::kEmptyName, "the output is published without a name");
        } else if (name.size() > kPublishNameMax) {
            Add(at, Rule::kNameCut,
                "the publish table keeps only the first " + std::to_string(kPublishNameMax) +
                    " bytes: other modules see " + Quote(name.substr(0, kPublishNameMax)) +
                    ", while the values are published under the whole name");
        } else if (name.size() > kRunNameMax) {
            Add(at, Rule::kNameCut,
                "each run's DynamicPub record keeps only the first " + std::to_string(kRunNameMax) +
                    " bytes: " + Quote(name.substr(0, kRunNameMax)));
        }
    }

    // Escapes that the key keeps as typed: only a symbol row turns them into line breaks.
    void LiteralEscape(const Location& at, const std::string& text) {
        for (const char* escape : {"\\r", "\\n", "\\t"}) {
            if (text.find(escape) != std::string::npos) {
                Add(at, Rule::kLiteralEscape,
                    std::string("the text keeps the two characters '") + escape +
                        "' as typed; this key turns no escape into a control character");
                return;
            }
        }
    }

    void Conversion(const Location& at, const std::string& type, bool arrayField) {
        if (ElementKindOf(type) != ElementKind::kNone) return;
        std::string fix;
        const char last = type.empty() ? '\0' : type.back();
        if (last != '\0' && std::strchr("eEgGaA", last) != nullptr) {
            fix = "use f: \"%W.Pf\" with a width W and a precision P, e.g. \"%1.3f\"";
        } else if (last == 'i' || last == 'D' || last == 'U' || last == 'X') {
            fix = "use d (the letter is compared case-sensitively)";
        } else if (last == 'F' || last == 'S' || last == 'c') {
            fix = std::string("use ") + (last == 'F' ? "f" : "s");
        }
        const std::string why =
            "the conversion text " + Quote(type) +
            (type.empty() ? " is empty" : std::string(" ends in '") + last + "'") +
            ", which selects no value type";
        if (arrayField) {
            Add(at, Rule::kFieldNoValueType,
                why + ": the field is read as an empty list and its cells stay empty", fix);
        } else {
            Doomed(at, Rule::kNoValueType, kStatusIndex,
                   why + ": the item never gets a value (the module logs \"" +
                       ModuleMessage(formatv2::Msg::kUnknownValueType) + "\")",
                   fix);
        }
    }

    // Format texts whose numbers the formatters read differently from printf.
    void Format(const Location& at, const std::string& type) {
        const ElementKind valueType = ElementKindOf(type);
        // The text as the formatters read it (an int's takes the width alone), what a printf
        // user wrote there, and what the formatters then make of an example.
        const ParsedFormat parsed = ReadFormat(type);
        const bool isFloat = valueType == ElementKind::kFloat;
        const int read = parsed.numbers.read;
        const int width = parsed.numbers.width;
        const int precision = isFloat ? parsed.numbers.precision : 0;
        const auto example = [&type](float value) {
            return Quote(createFormatter<float>(value, type, "")->format());
        };
        const std::string quoted = Quote(type);
        if (valueType == ElementKind::kString) {
            if (parsed.widthWritten || parsed.precisionWritten) {
                Add(at, Rule::kFormatTextWidth,
                    "the text formatter reads no number: " + quoted +
                        " neither pads nor cuts the text");
            }
            return;
        }
        if (parsed.flags.find('-') != std::string::npos) {
            Add(at, Rule::kFormatFlag,
                "the '-' flag makes the width negative: the value is not padded at all (nor "
                "left-aligned)",
                "drop the '-'; the module can only fill with zeros on the left");
        } else if (parsed.flags.find('#') != std::string::npos) {
            Add(at, Rule::kFormatFlag,
                "the '#' flag stops the module's reading of the number: " + quoted +
                    " reads no width (nor precision), so the value is not padded",
                "drop the '#'");
        } else if (parsed.flags.find_first_of("+ ") != std::string::npos) {
            Add(at, Rule::kFormatFlag,
                "the module skips the flags '+' and ' ' and reads the width after them: " + quoted +
                    " pads with zeros and prints no '+' and no blank",
                "drop them");
        }
        if (valueType == ElementKind::kInt && std::strchr("xu", type.back()) != nullptr) {
            Add(at, Rule::kFormatLetter,
                std::string("the letter '") + type.back() +
                    "' only selects an int value: it is printed in signed decimal (255 as \"255\", "
                    "-1 as \"-1\"), never in hexadecimal or unsigned");
        }
        if (valueType == ElementKind::kFloat && read < 2) {
            Add(at, Rule::kFormatNoPrecision,
                parsed.precisionWritten && !parsed.widthWritten
                    ? quoted +
                          " has a precision but no width: the module reads neither, so "
                          "12.3456 gives " +
                          example(12.3456f) + " (no fraction digits)"
                    : quoted +
                          " has no precision: the module prints no fraction digits, so "
                          "12.3456 gives " +
                          example(12.3456f) + " (zero-filled to the width)");
        }
        if (valueType == ElementKind::kFloat && read == 2 && precision == 0) {
            Add(at, Rule::kFormatZeroPrecision,
                quoted +
                    " has precision 0: the fraction is rounded on its own, so an exact half "
                    "rounds down (2.5 gives " +
                    example(2.5f) + ", 3.5 gives " + example(3.5f) + ")");
        }
        if (width > kMaxFormatWidth || precision > kMaxFormatWidth) {
            Add(at, Rule::kFormatWidthCap,
                quoted + " asks for more than " + std::to_string(kMaxFormatWidth) +
                    " characters; the module stops at " + std::to_string(kMaxFormatWidth));
        }
    }

    // An index text other than "*" goes through stoi on every run.
    void Index(const Location& at, const std::string& index) {
        if (index == "*") return;
        int n = 0;
        if (!ParseElementNumber(index, n)) {
            Doomed(at, Rule::kIndexNotNumber, kStatusNotDelivered,
                   "the index text " + Quote(index) + " is no element number");
        } else if (n < 0) {
            Doomed(at, Rule::kIndexNotNumber, kStatusNotDelivered,
                   "the element number " + Quote(index) + " is negative");
        } else if (std::to_string(n) != index) {
            Add(at, Rule::kIndexLoose,
                "the index text " + Quote(index) + " is read as element " + std::to_string(n) +
                    " (blanks before and characters after the digits are skipped)",
                "write \"" + std::to_string(n) + "\"");
        }
    }

    void Fields(const cJSON* array, const Location& at) {
        int element = 0;
        for (const cJSON* e = array->child; e != nullptr; e = e->next, ++element) {
            Location field = at;
            field.element = element;
            if (cJSON_IsObject(e)) Keys(e, field, kElementKeys, std::size(kElementKeys));
            field.key = key::kSeparator;
            LiteralEscape(field, Text(e, key::kSeparator));
            CAlgoUtils::SubParam sub;
            field.key = key::kSubParamStr;
            if (m_parse(Text(e, key::kSubParamStr), sub) != 0) continue;
            Conversion(field, sub.type, true);
            if (ElementKindOf(sub.type) != ElementKind::kNone) Format(field, sub.type);
            if (sub.index != "*") {
                Add(field, Rule::kIndexIgnored,
                    "an array field takes every element whatever its index text " +
                        Quote(sub.index) + " says");
            }
        }
    }

    void Subscribed(Location key, const std::string& text, bool textOut) {
        key.key = key::kSubParamStr;
        CAlgoUtils::SubParam sub;
        if (m_parse(text, sub) != 0) return;
        Conversion(key, sub.type, false);
        Index(key, sub.index);
        const ElementKind valueType = ElementKindOf(sub.type);
        // The format text shapes numbers only when they are published as text.
        if (valueType == ElementKind::kString || (textOut && valueType != ElementKind::kNone)) {
            Format(key, sub.type);
        }
    }

    // A number output of a row whose value is a text, and text settings on a number output.
    // text: the row's "SubParamStr".
    void Conversions(const cJSON* row, Location key, FORMAT_V2_DATA_TYPE kind, int convert,
                     const std::string& text) {
        key.key = key::kConvertType;
        if ((convert == 1 || convert == 2) && kind != FORMAT_V2_DATA_SUBSCRIBE) {
            const char* what = kind == FORMAT_V2_DATA_ARRAY    ? "the laid-out text of the array"
                               : kind == FORMAT_V2_DATA_CUSTOM ? "the custom text"
                                                               : "the line break";
            if (kind != FORMAT_V2_DATA_ARRAY && !TextConverts(FixedText(kind, text), convert)) {
                Doomed(key, Rule::kTextNotNumber, kStatusNotConvertible,
                       std::string(what) + " goes through " + (convert == 1 ? "stoi" : "stof") +
                           " and does not start with a number");
            } else {
                Add(key, Rule::kConvertTextToNumber,
                    std::string(what) + " goes through " + (convert == 1 ? "stoi" : "stof") +
                        ": only a leading number is published, and a text that does not start "
                        "with one fails the run with " +
                        Hex(kStatusNotConvertible));
            }
        }
        if (convert != 1 && convert != 2) return;  // text, or refused
        for (const char* setting :
             {key::kStrTruncEnable, key::kStrPrefix, key::kStrSuffix, key::kStrDelete}) {
            const bool set = std::strcmp(setting, key::kStrTruncEnable) == 0
                                 ? Number(row, setting) != 0
                                 : !Text(row, setting).empty();
            if (!set) continue;
            key.key = setting;
            Add(key, Rule::kTextSettingsIgnored,
                "truncation, prefix, suffix and deletion apply only to text outputs; this output "
                "is published as a number");
            return;
        }
    }

    // Truncation that keeps nothing; text is the row's text when the configuration fixes it.
    void Truncation(const cJSON* row, Location key, FORMAT_V2_DATA_TYPE kind,
                    const std::string& text) {
        if (Number(row, key::kStrTruncEnable) == 0) return;
        const int start = Number(row, key::kStrTruncStart);
        const int length = Number(row, key::kStrTruncLen);
        const bool fixedText = kind == FORMAT_V2_DATA_CUSTOM || kind == FORMAT_V2_DATA_SYMBOL;
        // The module's own cut, on the text a fixed row always has, or else on the shortest text
        // from which the start could keep anything (a start past a long text keeps something
        // of a longer one, so none is tried).
        std::string probe;
        if (fixedText) {
            probe = FixedText(kind, text);
        } else if (start >= 0 && start < (1 << 16)) {
            probe.assign(static_cast<size_t>(start) + 1, 'x');
        } else if (start >= 0) {
            return;
        }
        if (TruncateText(probe, start, length) && !probe.empty()) return;
        key.key = start < 0 || (fixedText && length > 0) ? key::kStrTruncStart : key::kStrTruncLen;
        Add(key, Rule::kTruncationEmpty,
            Quote(key::kStrTruncStart) + " " + std::to_string(start) + " with " +
                Quote(key::kStrTruncLen) + " " + std::to_string(length) +
                " keeps nothing: the text is always empty before the prefix and suffix");
    }

    void Row(const cJSON* row, int position) {
        Location at;
        at.row = position;
        const cJSON* name = cJSON_GetObjectItem(row, key::kParamName);
        if (cJSON_IsString(name)) at.paramName = name->valuestring;
        const cJSON* array = cJSON_GetObjectItem(row, key::kArray);
        const bool isArray = cJSON_IsArray(array);
        Keys(row, at, kRowKeys, std::size(kRowKeys), isArray ? kSingleItemKeys : nullptr,
             isArray ? std::size(kSingleItemKeys) : 0);
        Location key = at;
        if (array != nullptr && !isArray) {
            key.key = key::kArray;
            Add(key, Rule::kArrayNotList,
                Quote(key::kArray) + " is not a list, so the row is read as a single item");
        }
        const std::string text = Text(row, key::kSubParamStr);
        FORMAT_V2_DATA_TYPE kind = FORMAT_V2_DATA_SUBSCRIBE;
        if (isArray)
            kind = FORMAT_V2_DATA_ARRAY;
        else if (Number(row, key::kIsCustomEdit) == 1)
            kind = FORMAT_V2_DATA_CUSTOM;
        else if (text == EscapedCrLf || text == EscapedCr)
            kind = FORMAT_V2_DATA_SYMBOL;

        key.key = key::kParamName;
        Name(key, at.paramName.value_or(""));
        const int convert = Number(row, key::kConvertType);
        const bool textOut = convert == 3;
        if (kind == FORMAT_V2_DATA_ARRAY) Fields(array, at);
        if (kind == FORMAT_V2_DATA_SUBSCRIBE) Subscribed(at, text, textOut);
        if (kind == FORMAT_V2_DATA_CUSTOM) {
            key.key = key::kSubParamStr;
            LiteralEscape(key, text);
        }
        Conversions(row, at, kind, convert, text);
        if (!textOut) return;
        Truncation(row, at, kind, text);
        for (const char* setting : {key::kStrPrefix, key::kStrSuffix, key::kStrDelete}) {
            key.key = setting;
            LiteralEscape(key, Text(row, setting));
        }
    }

  private:
    SubscriptionParser m_parse;
};

}  // namespace

std::string Where(const Location& at) {
    std::string out;
    if (at.row >= 0) {
        out = std::string(key::kSubParamList) + "[" + std::to_string(at.row) + "]";
        out += " (" + (at.paramName ? Quote(*at.paramName) : "no " + Quote(key::kParamName)) + ")";
        if (at.element >= 0) {
            out += std::string(", ") + key::kArray + "[" + std::to_string(at.element) + "]";
        }
        if (!at.key.empty()) out += ", key " + Quote(at.key);
    } else if (!at.key.empty()) {
        out = "top-level key " + Quote(at.key);
    }
    return out;
}

std::string FindingText(const Finding& w) {
    const std::string where = Where(w.at);
    return (where.empty() ? "" : where + ": ") + w.message + " [" + RuleOf(w.rule).id + "]";
}

std::vector<Finding> Lint(const std::string& configText, SubscriptionParser parse) {
    Linter lint(parse);
    const std::unique_ptr<cJSON, decltype(&cJSON_Delete)> root(cJSON_Parse(configText.c_str()),
                                                               &cJSON_Delete);
    if (!root || !cJSON_IsObject(root.get())) return lint.out;
    lint.Keys(root.get(), Location{}, kTopKeys, std::size(kTopKeys));
    if (Number(root.get(), key::kStrConcateEnable) != 0) {
        Location top;
        top.key = key::kParamName;
        lint.Name(top, Text(root.get(), key::kParamName));
    }
    const cJSON* list = cJSON_GetObjectItem(root.get(), key::kSubParamList);
    if (cJSON_IsArray(list) && list->child == nullptr) {
        Location top;
        top.key = key::kSubParamList;
        lint.Doomed(top, Rule::kNoItems, kStatusNoItems, "the list of rows is empty");
    }
    int position = 0;
    for (const cJSON* row = cJSON_IsArray(list) ? list->child : nullptr; row != nullptr;
         row = row->next, ++position) {
        if (cJSON_IsObject(row)) lint.Row(row, position);
    }
    return lint.out;
}

}  // namespace formatv2
