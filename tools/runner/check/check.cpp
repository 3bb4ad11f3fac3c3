#include "check/check.h"

#include <strings.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstring>

#include "base/diag.h"
#include "base/json_scan.h"
#include "config/config_read.h"
#include "render/report.h"

namespace preview {
namespace {

class Collect : public ConfigRefusalSink {
  public:
    std::vector<ConfigRefusal> all;
    void Refused(const ConfigRefusal& refusal) override { all.push_back(refusal); }
};

// The object a location stands in, and the member it names (null when missing).
struct Resolved {
    const JsonNode* object = nullptr;
    const JsonNode* member = nullptr;
};

const JsonNode* Nth(const JsonNode* list, int n) {
    if (list == nullptr || list->kind != JsonNode::Kind::kArray || n < 0 ||
        static_cast<size_t>(n) >= list->members.size()) {
        return nullptr;
    }
    return &list->members[static_cast<size_t>(n)];
}

Resolved Resolve(const JsonNode* root, const Location& at) {
    Resolved r{root, nullptr};
    if (at.row >= 0) r.object = Nth(Member(root, key::kSubParamList), at.row);
    if (at.element >= 0) r.object = Nth(Member(r.object, key::kArray), at.element);
    if (r.object == nullptr || r.object->kind != JsonNode::Kind::kObject) return r;
    if (at.member >= 0 && static_cast<size_t>(at.member) < r.object->members.size()) {
        r.member = &r.object->members[static_cast<size_t>(at.member)];
    } else if (!at.key.empty()) {
        r.member = Member(r.object, at.key);
    }
    return r;
}

// Line and column of byte offsets of one text; the text is walked once, however many findings.
class LineIndex {
  public:
    explicit LineIndex(const std::string& text) : m_text(text) {
        m_starts.push_back(0);
        for (size_t i = 0; i < text.size(); ++i) {
            if (text[i] == '\n') m_starts.push_back(i + 1);
        }
    }
    Place At(size_t offset) const {
        offset = std::min(offset, m_text.size());
        const size_t line = static_cast<size_t>(
            std::upper_bound(m_starts.begin(), m_starts.end(), offset) - m_starts.begin());
        // Findings come mostly in the order of the text: a long line is counted on from the
        // last place asked for, not from its start each time.
        size_t from = m_starts[line - 1];
        // A byte order mark starting the text takes no column: editors do not show it.
        if (line == 1 && offset >= 3 && m_text.compare(0, 3, "\xEF\xBB\xBF") == 0) from = 3;
        size_t column = 1;
        if (m_lastLine == line && m_lastOffset <= offset) {
            from = m_lastOffset;
            column = m_lastColumn;
        }
        for (size_t i = from; i < offset; ++i) {
            // A UTF-8 continuation byte is no new character.
            if ((static_cast<unsigned char>(m_text[i]) & 0xC0) != 0x80) ++column;
        }
        m_lastLine = line;
        m_lastOffset = offset;
        m_lastColumn = column;
        return {offset, line, column};
    }

  private:
    const std::string& m_text;
    std::vector<size_t> m_starts;
    mutable size_t m_lastLine = 0;
    mutable size_t m_lastOffset = 0;
    mutable size_t m_lastColumn = 1;
};

bool Known(const std::string& key) {
    for (const auto* list : {&kTopKeys, &kElementKeys}) {
        for (const char* k : *list) {
            if (strcasecmp(k, key.c_str()) == 0) return true;
        }
    }
    for (const char* k : kRowKeys) {
        if (strcasecmp(k, key.c_str()) == 0) return true;
    }
    return false;
}

// A member of object that is no known key but close to key: the key misspelt.
const JsonNode* Misspelt(const JsonNode* object, const std::string& key) {
    if (object == nullptr) return nullptr;
    for (const JsonNode& m : object->members) {
        if (!Known(m.key) && !ClosestWord(m.key, {key}).empty()) return &m;
    }
    return nullptr;
}

std::string Shorten(const std::string& text) {
    return text.size() <= 60 ? text : text.substr(0, 57) + "...";
}

// For an output name used twice: what holds it first, the top level or an earlier row.
std::string EarlierHolder(const JsonNode* root, int row, const std::string& name) {
    const JsonNode* top = Member(root, key::kParamName);
    if (top != nullptr && top->kind == JsonNode::Kind::kString && top->raw == name) {
        return std::string("the top-level \"") + key::kParamName + "\" (the joined output)";
    }
    for (int earlier = 0; earlier < row; ++earlier) {
        const JsonNode* other =
            Member(Nth(Member(root, key::kSubParamList), earlier), key::kParamName);
        if (other != nullptr && other->kind == JsonNode::Kind::kString && other->raw == name) {
            return std::string(key::kSubParamList) + "[" + std::to_string(earlier) + "]";
        }
    }
    return "";
}

Refusal FromReader(const ConfigRefusal& c, int status, const std::string& text,
                   const LineIndex& lines, const JsonNode* root) {
    Refusal r;
    r.status = status;
    if (c.code != 0) r.code = c.code;
    r.at.row = c.row;
    r.at.element = c.element;
    r.at.key = c.key != nullptr ? c.key : "";
    if (c.row >= 0) {
        const JsonNode* name =
            Member(Nth(Member(root, key::kSubParamList), c.row), key::kParamName);
        if (name != nullptr && name->kind == JsonNode::Kind::kString) r.at.paramName = name->raw;
    }
    r.rule = c.rule;
    r.fix = FixFor(r.rule, r.at.key);
    std::string broken = RuleOf(c.rule).message;
    if (c.hostCode != 0) {
        char code[48];
        std::snprintf(code, sizeof code, " (host code 0x%X)", static_cast<unsigned>(c.hostCode));
        broken += code;
    }
    const Resolved at = Resolve(root, r.at);
    r.message = Where(r.at) + " " + broken;
    if (at.member != nullptr) {
        r.value = text.substr(at.member->begin, at.member->end - at.member->begin);
        r.message += "; it is " + Shorten(*r.value);
        r.place = lines.At(at.member->begin);
        const std::string holder = r.rule == Rule::kDuplicateName && r.at.paramName
                                       ? EarlierHolder(root, c.row, *r.at.paramName)
                                       : "";
        if (!holder.empty()) r.message += "; " + holder + " holds it first";
        // A line-break row written with JSON escapes holds control characters, which the
        // module takes for a subscription; the symbol is the escape typed out.
        if (r.rule == Rule::kSubscriptionRefused &&
            (*r.value == R"("\r\n")" || *r.value == R"("\r")")) {
            const std::string typed = *r.value == R"("\r")" ? R"("\\r")" : R"("\\r\\n")";
            r.fix = "for a line-break row write " + typed +
                    " (the backslashes doubled): the row's text must be the escape typed out, "
                    "not the control characters";
        }
    } else if (const JsonNode* typo = Misspelt(at.object, r.at.key)) {
        r.message += "; \"" + typo->key + "\" is a misspelling of it";
        r.fix = "rename \"" + typo->key + "\" to \"" + r.at.key + "\"";
        r.place = lines.At(typo->keyBegin);
    } else if (at.object != nullptr) {
        r.place = lines.At(at.object->begin);
    }
    return r;
}

Refusal Syntax(const JsonIssue& issue, int status, const LineIndex& lines) {
    Refusal r;
    r.status = status;
    r.syntax = true;
    r.rule = Rule::kJsonSyntax;
    r.message = issue.message;
    r.place = lines.At(issue.offset);
    return r;
}

// The text read by the reader linked into the runner, every refusal told to collect: its status.
int ReadWithRunnersReader(const std::string& text, Collect& collect,
                          std::vector<DataSection>& items) {
    std::string moduleName;
    std::string paramName;
    int concat = 0;
    return ConfigReader({}, &CAlgoUtils::ParseSubscribeItem, &collect)
        .Parse(text.c_str(), {moduleName, concat, paramName, items});
}

// What the reader refuses, in reading order; the first is where the module stops.
std::vector<Refusal> Refusals(int status, const std::string& text, const LineIndex& lines,
                              const JsonScan& scan) {
    Collect collect;
    std::vector<DataSection> items;
    const int readerStatus = ReadWithRunnersReader(text, collect, items);
    std::vector<Refusal> out;
    const JsonNode* root = scan.root ? &*scan.root : nullptr;
    if (!collect.all.empty() && collect.all[0].rule == Rule::kJsonSyntax) {
        JsonIssue issue{collect.all[0].offset, Rule::kJsonSyntax,
                        "the module's JSON reader stops here", ""};
        out.push_back(Syntax(scan.error.value_or(issue), status, lines));
    } else if (root != nullptr && root->kind != JsonNode::Kind::kObject) {
        Refusal r = Syntax({root->begin, Rule::kNotAnObject, "", ""}, status, lines);
        r.syntax = false;
        r.rule = Rule::kNotAnObject;
        r.message = std::string("the top level ") + RuleOf(Rule::kNotAnObject).message +
                    "; a configuration is one JSON object {...}";
        out.push_back(r);
    } else {
        for (const ConfigRefusal& c : collect.all) {
            // A row or field that is no object lacks every key: one refusal says so.
            Location at;
            at.row = c.row;
            at.element = c.element;
            const JsonNode* object = Resolve(root, at).object;
            const bool noObject = object != nullptr && object->kind != JsonNode::Kind::kObject;
            if (noObject && !out.empty() && out.back().at.row == c.row &&
                out.back().at.element == c.element) {
                continue;
            }
            out.push_back(FromReader(c, status, text, lines, root));
            if (noObject) {
                out.back().message =
                    Where(at) + " " + RuleOf(Rule::kNotAnObject).message + "; it is " +
                    Shorten(text.substr(object->begin, object->end - object->begin));
                out.back().rule = Rule::kNotAnObject;
                out.back().fix = RuleOf(Rule::kNotAnObject).fix;
            }
        }
    }
    if (out.empty() && status == kStatusTableRefused) {
        Refusal r;
        r.status = status;
        r.at.key = key::kSubParamList;
        const bool subs = SubscriptionCount(items) > static_cast<size_t>(kMaxSubscriptions);
        r.rule = subs ? Rule::kTooManySubscriptions : Rule::kTooManyPublications;
        r.message = std::string("the items ") + RuleOf(r.rule).message;
        r.fix = RuleOf(r.rule).fix;
        if (const JsonNode* list = Member(root, key::kSubParamList)) {
            r.place = lines.At(list->keyBegin);
        }
        out.push_back(r);
    }
    if (out.empty()) {
        // The loaded module and the reader linked into the runner are different builds: say
        // which gave which verdict rather than guess a reason.
        Refusal r;
        r.status = status;
        r.rule = Rule::kVerdictsDiffer;
        r.message = "the loaded module refused the configuration with " + StatusText(status) +
                    ", while this runner's own reader " +
                    (readerStatus == 0 ? std::string("accepts it")
                                       : "refuses it with " + StatusText(readerStatus)) +
                    ": the module is another build than the runner (see --module)";
        r.fix = RuleOf(r.rule).fix;
        out.push_back(r);
    }
    out.front().stops = true;
    return out;
}

bool AtKey(Rule rule) {
    return rule == Rule::kUnknownKey || rule == Rule::kKeyCase || rule == Rule::kDuplicateKey ||
           rule == Rule::kKeyNotRead;
}

}  // namespace

void PlaceIn(Verdict& verdict, const Embedding& embedding) {
    const auto move = [&](Place& place) {
        if (place.line == 0) return;
        place.offset = WrittenOffsetOf(embedding, place.offset);
        const TextPlace at = PlaceOf(embedding.written, place.offset);
        place.line = at.line;
        place.column = at.column;
    };
    for (Refusal& r : verdict.refusals) move(r.place);
    for (Warning& w : verdict.warnings) move(w.place);
    if (verdict.refusal) move(verdict.refusal->place);
}

Verdict Examine(int status, const std::string& text) {
    Verdict v;
    const JsonScan scan = ScanJson(text);
    const LineIndex lines(text);
    if (status != 0) {
        v.refusals = Refusals(status, text, lines, scan);
        v.refusal = v.refusals.front();
    } else {
        Collect ignored;
        std::vector<DataSection> items;
        const int readerStatus = ReadWithRunnersReader(text, ignored, items);
        if (readerStatus != 0) {
            v.warnings.push_back({{Location{}, Rule::kVerdictsDiffer, 0,
                                   "the loaded module accepts the configuration, while this "
                                   "runner's own reader refuses it with " +
                                       StatusText(readerStatus) +
                                       ": the module is another build than the runner (see "
                                       "--module)",
                                   RuleOf(Rule::kVerdictsDiffer).fix},
                                  Place{}});
        }
    }
    const JsonNode* root = scan.root ? &*scan.root : nullptr;
    for (const JsonIssue& issue : scan.loose) {
        v.warnings.push_back(
            {{Location{}, issue.rule, 0, issue.message, issue.fix}, lines.At(issue.offset)});
    }
    for (const formatv2::Finding& finding : formatv2::Lint(text, &CAlgoUtils::ParseSubscribeItem)) {
        Warning w{finding, Place{}};
        const Resolved at = Resolve(root, w.at);
        if (at.member != nullptr) {
            w.place = lines.At(AtKey(w.rule) ? at.member->keyBegin : at.member->begin);
        } else if (at.object != nullptr) {
            w.place = lines.At(at.object->begin);
        }
        // A misspelt key that a refusal names already is not told twice.
        const bool told = std::any_of(v.refusals.begin(), v.refusals.end(), [&](const Refusal& r) {
            return w.rule == Rule::kUnknownKey && r.place.line != 0 &&
                   r.place.offset == w.place.offset;
        });
        if (!told) v.warnings.push_back(w);
    }
    std::stable_sort(v.warnings.begin(), v.warnings.end(), [](const Warning& a, const Warning& b) {
        return a.place.offset < b.place.offset;
    });
    return v;
}

}  // namespace preview

namespace preview {
namespace {

// The source line under a diagnostic, with a caret at its column (as compilers show it).
void Excerpt(const std::string& text, const Place& place) {
    if (place.line == 0) return;
    std::fputs(EscapeInvalidUtf8(SourceExcerpt(text, place.offset), Escape::kText).c_str(), stderr);
}

std::string At(const std::string& name, const Place& place) {
    if (place.line == 0) return name;
    return name + ":" + std::to_string(place.line) + ":" + std::to_string(place.column);
}

}  // namespace

void Tell(const Diagnostics& diag, const std::string& name, const std::string& text,
          const Verdict& v) {
    // Refusals and warnings in the order of the text; what has no place comes first.
    struct Item {
        const Place* place;
        const Refusal* refusal;
        const Warning* warning;
    };
    std::vector<Item> order;
    for (const Refusal& r : v.refusals) order.push_back({&r.place, &r, nullptr});
    for (const Warning& w : v.warnings) order.push_back({&w.place, nullptr, &w});
    std::stable_sort(order.begin(), order.end(), [](const Item& a, const Item& b) {
        return a.place->offset < b.place->offset;
    });
    const bool several = v.refusals.size() > 1;
    for (size_t i = 0; i < order.size(); ++i) {
        const Item& item = order[i];
        std::string fix;
        if (const Refusal* r = item.refusal) {
            std::string message = r->message;
            if (!r->syntax) {
                message += " [";
                if (r->code) message += "row code " + std::to_string(*r->code) + ", ";
                message += "status " + Hex(r->status) + "]";
            }
            diag.Say(Severity::kError, At(name, *item.place), message);
            fix = r->fix;
        } else {
            diag.Say(Fails(*item.warning) ? Severity::kError : Severity::kWarning,
                     At(name, *item.place), FindingText(*item.warning));
            fix = item.warning->fix;
        }
        // Problems at one place share one excerpt, shown after the last of them.
        if (i + 1 == order.size() || order[i + 1].place->offset != item.place->offset) {
            Excerpt(text, *item.place);
        }
        if (!fix.empty()) {
            std::fprintf(stderr, "  fix: %s\n", EscapeInvalidUtf8(fix, Escape::kText).c_str());
        }
        if (several && item.refusal != nullptr && item.refusal->stops) {
            std::fprintf(stderr, "  note: the module stops at this refusal\n");
        }
    }
}

bool EveryRunFails(const Verdict& v) {
    return std::any_of(v.warnings.begin(), v.warnings.end(), Fails);
}

void Disable(Verdict& v, const std::vector<Rule>& rules) {
    v.warnings.erase(std::remove_if(v.warnings.begin(), v.warnings.end(),
                                    [&](const Warning& w) {
                                        return std::find(rules.begin(), rules.end(), w.rule) !=
                                               rules.end();
                                    }),
                     v.warnings.end());
}

}  // namespace preview

namespace preview {
namespace {

// A file name as a URI reference: an absolute path as a file: URI, a relative one as a
// relative reference; bytes other than unreserved ones and '/' percent-encoded.
std::string FileUri(const std::string& name) {
    static const char kHex[] = "0123456789ABCDEF";
    std::string uri = name.rfind('/', 0) == 0 ? "file://" : "";
    for (const char c : name) {
        const auto u = static_cast<unsigned char>(c);
        if (std::isalnum(u) != 0 || std::strchr("-._~/", c) != nullptr) {
            uri += c;
        } else {
            uri += '%';
            uri += kHex[u >> 4];
            uri += kHex[u & 15];
        }
    }
    return uri;
}

cJSON* SarifResult(const std::string& file, Rule rule, const char* level,
                   const std::string& message, const Place& place) {
    cJSON* result = cJSON_CreateObject();
    cJSON_AddStringToObject(result, "ruleId", RuleOf(rule).id);
    cJSON_AddNumberToObject(result, "ruleIndex", static_cast<double>(rule));
    cJSON_AddStringToObject(result, "level", level);
    cJSON_AddStringToObject(cJSON_AddObjectToObject(result, "message"), "text", message.c_str());
    cJSON* physical = cJSON_CreateObject();
    cJSON_AddStringToObject(cJSON_AddObjectToObject(physical, "artifactLocation"), "uri",
                            FileUri(file).c_str());
    if (place.line != 0) {
        cJSON* region = cJSON_AddObjectToObject(physical, "region");
        cJSON_AddNumberToObject(region, "startLine", static_cast<double>(place.line));
        cJSON_AddNumberToObject(region, "startColumn", static_cast<double>(place.column));
    }
    cJSON* location = cJSON_CreateObject();
    cJSON_AddItemToObject(location, "physicalLocation", physical);
    cJSON_AddItemToArray(cJSON_AddArrayToObject(result, "locations"), location);
    return result;
}

std::string WithFix(const std::string& message, const std::string& fix) {
    return fix.empty() ? message : message + "; fix: " + fix;
}

cJSON* SarifRules() {
    cJSON* rules = cJSON_CreateArray();
    for (size_t i = 0; i < kRuleCount; ++i) {
        const RuleEntry& e = kRules[i];
        cJSON* rule = cJSON_CreateObject();
        cJSON_AddStringToObject(rule, "id", e.id);
        cJSON_AddStringToObject(cJSON_AddObjectToObject(rule, "shortDescription"), "text",
                                e.summary);
        cJSON_AddStringToObject(cJSON_AddObjectToObject(rule, "fullDescription"), "text", e.help);
        const std::string help = std::string(e.help) + " Fix: " + FixFor(e.rule, "") + ".";
        cJSON_AddStringToObject(cJSON_AddObjectToObject(rule, "help"), "text", help.c_str());
        cJSON_AddStringToObject(cJSON_AddObjectToObject(rule, "defaultConfiguration"), "level",
                                e.level == Level::kWarning ? "warning" : "error");
        cJSON_AddItemToArray(rules, rule);
    }
    return rules;
}

}  // namespace

cJSON* SarifJson(const std::vector<SarifFile>& files, const std::string& version) {
    cJSON* root = cJSON_CreateObject();
    cJSON_AddStringToObject(root, "$schema", "https://json.schemastore.org/sarif-2.1.0.json");
    cJSON_AddStringToObject(root, "version", "2.1.0");
    cJSON* run = cJSON_CreateObject();
    cJSON_AddItemToArray(cJSON_AddArrayToObject(root, "runs"), run);
    cJSON* driver = cJSON_AddObjectToObject(cJSON_AddObjectToObject(run, "tool"), "driver");
    cJSON_AddStringToObject(driver, "name", "formatv2_preview");
    cJSON_AddStringToObject(driver, "version", version.c_str());
    cJSON_AddStringToObject(driver, "informationUri", FORMATV2_INFORMATION_URI);
    cJSON_AddItemToObject(driver, "rules", SarifRules());
    cJSON* results = cJSON_AddArrayToObject(run, "results");
    for (const SarifFile& f : files) {
        if (!f.error.empty()) {
            cJSON_AddItemToArray(results,
                                 SarifResult(f.name, Rule::kUnreadable, "error", f.error, Place{}));
            continue;
        }
        for (const Refusal& r : f.verdict->refusals) {
            cJSON_AddItemToArray(
                results, SarifResult(f.name, r.rule, "error", WithFix(r.message, r.fix), r.place));
        }
        for (const Warning& w : f.verdict->warnings) {
            cJSON_AddItemToArray(results,
                                 SarifResult(f.name, w.rule, Fails(w) ? "error" : "warning",
                                             WithFix(FindingText(w), w.fix), w.place));
        }
    }
    return root;
}

}  // namespace preview
