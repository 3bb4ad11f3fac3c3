#include "base/json_scan.h"

#include <cjson/cJSON.h>
#include <strings.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace preview {
namespace {

// cJSON nests at most 1000 deep.
constexpr int kMaxDepth = 1000;

// How many characters of a number cJSON hands strtod: at most 63 up to release 1.7.17, all of
// them since, and in distributions' patched older releases too (Debian 12's 1.7.15), so the
// cJSON at hand is asked rather than its version number.
size_t NumberLimit() {
    static const size_t limit = [] {
        const std::string probe = "[" + std::string(64, '1') + "]";
        cJSON* json = cJSON_ParseWithLength(probe.data(), probe.size());
        const bool whole = json != nullptr;
        cJSON_Delete(json);
        return whole ? std::string::npos : size_t{63};
    }();
    return limit;
}

bool IsHex(char c) {
    return std::isxdigit(static_cast<unsigned char>(c)) != 0;
}

// The character at offset as the user sees it: a whole UTF-8 sequence, or a name.
std::string Shown(const std::string& text, size_t at) {
    const auto c = static_cast<unsigned char>(text[at]);
    if (c == '\t') return "a tab";
    if (c == '\n' || c == '\r') return "a line break";
    if (c < 0x20 || c == 0x7f) {
        char name[32];
        std::snprintf(name, sizeof name, "the control character 0x%02X", c);
        return name;
    }
    size_t n = 1;
    while (c >= 0x80 && at + n < text.size() && (text[at + n] & 0xC0) == 0x80 && n < 4) ++n;
    return "'" + text.substr(at, n) + "'";
}

class Scanner {
  public:
    explicit Scanner(const std::string& text, JsonScan& out)
        : m_full(text), m_text(text.c_str(), std::strlen(text.c_str())), m_out(out) {}

    void Run() {
        size_t at = 0;
        if (m_text.compare(0, 3, "\xEF\xBB\xBF") == 0) at = 3;
        at = Blanks(at);
        if (at >= m_text.size()) {
            Fail(at, "the text is empty; a JSON object is expected");
            return;
        }
        JsonNode root;
        if (!Value(at, root)) return;
        if (m_text.find_first_not_of(" \t\r\n", Blanks(at)) != std::string::npos) {
            Loose(Blanks(at), Rule::kTrailingText,
                  std::string(root.kind == JsonNode::Kind::kObject ? "text follows the closing '}'"
                                                                   : "text follows the value") +
                      "; the module ignores it");
        }
        if (m_text.size() < m_full.size() &&
            m_full.find_first_not_of(std::string(" \t\r\n\0", 5), m_text.size()) !=
                std::string::npos) {
            Loose(m_text.size(), Rule::kTextAfterNul,
                  "a NUL byte ends the text here for the module: everything after it is ignored");
        }
        m_out.root = std::move(root);
    }

  private:
    const std::string& m_full;
    std::string m_text;  // up to the first NUL: what the module reads
    JsonScan& m_out;
    int m_depth = 0;
    size_t m_openString = std::string::npos;  // a text that ran over a line break

    bool Fail(size_t at, std::string message) {
        // A text that ran over a line break most likely misses its closing quote: that is
        // what to fix, not the place where the reading finally stopped.
        if (m_openString != std::string::npos && at > m_openString) {
            at = m_openString;
            message = "a text is left open: its closing '\"' is missing on this line";
        }
        if (!m_out.error) m_out.error = JsonIssue{at, Rule::kJsonSyntax, std::move(message), ""};
        return false;
    }

    // fix: "" for the rule's own.
    void Loose(size_t at, Rule rule, std::string message, std::string fix = "") {
        if (fix.empty()) fix = RuleOf(rule).fix;
        m_out.loose.push_back({at, rule, std::move(message), std::move(fix)});
    }

    // cJSON takes every byte up to the blank as white space.
    size_t Blanks(size_t at) {
        for (; at < m_text.size() && static_cast<unsigned char>(m_text[at]) <= ' '; ++at) {
            if (std::strchr(" \t\r\n", m_text[at]) == nullptr) {
                Loose(at, Rule::kControlCharacter,
                      Shown(m_text, at) +
                          " stands between the values; the module reads it as a "
                          "blank, other JSON readers refuse it");
            }
        }
        return at;
    }

    bool Unexpected(size_t at, const char* expected) {
        if (at >= m_text.size()) {
            return Fail(at, std::string("the text ends where ") + expected + " should be");
        }
        const char c = m_text[at];
        std::string why = "unexpected " + Shown(m_text, at) + " where " + expected + " should be";
        if (c == '\'')
            why += ": JSON texts use double quotes";
        else if (std::isalpha(static_cast<unsigned char>(c)) || c == '_')
            why += ": texts need double quotes; the only bare words are true, false and null";
        else if (c == '+' || c == '.')
            why += ": a number starts with a digit or '-'";
        return Fail(at, why);
    }

    bool Value(size_t& at, JsonNode& node) {
        node.begin = at;
        const bool ok = Bare(at, node);
        node.end = at;
        return ok;
    }

    bool Bare(size_t& at, JsonNode& node) {
        if (at >= m_text.size()) return Unexpected(at, "a value");
        const char c = m_text[at];
        if (c == '{' || c == '[') {
            if (++m_depth > kMaxDepth) return Fail(at, "the values nest deeper than 1000 levels");
            const bool ok = c == '{' ? Object(at, node) : Array(at, node);
            --m_depth;
            return ok;
        }
        if (c == '"') {
            node.kind = JsonNode::Kind::kString;
            return String(at, node.raw);
        }
        if (c == '-' || std::isdigit(static_cast<unsigned char>(c))) return Number(at, node);
        for (const char* word : {"null", "true", "false"}) {
            if (m_text.compare(at, std::strlen(word), word) == 0) {
                node.raw = word;
                at += std::strlen(word);
                return true;
            }
        }
        return Unexpected(at, "a value");
    }

    bool Number(size_t& at, JsonNode& node);
    bool String(size_t& at, std::string& out);
    bool Escape(size_t at, size_t end, size_t& length, std::string& out);
    bool Object(size_t& at, JsonNode& node);
    bool Array(size_t& at, JsonNode& node);
    bool AfterMember(size_t& at, char close, const char* what, bool& done);
};

bool Scanner::Number(size_t& at, JsonNode& node) {
    node.kind = JsonNode::Kind::kNumber;
    // cJSON hands strtod the characters that can belong to a number and goes on after what
    // strtod took.
    size_t run = at;
    while (run < m_text.size() && run - at < NumberLimit() &&
           std::strchr("0123456789+-eE.", m_text[run]) != nullptr) {
        ++run;
    }
    const std::string chars = m_text.substr(at, run - at);
    char* end = nullptr;
    std::strtod(chars.c_str(), &end);
    const size_t taken = static_cast<size_t>(end - chars.c_str());
    size_t word = at;  // the number as the user wrote it, letters included
    while (word < m_text.size() && (std::isalnum(static_cast<unsigned char>(m_text[word])) ||
                                    std::strchr("+-.", m_text[word]) != nullptr)) {
        ++word;
    }
    const std::string written = m_text.substr(at, word - at);
    // Inside a list or an object, cJSON stops at the rest of the word; at the top level it
    // ignores it, as any text after the value.
    if (taken == 0 || (taken < word - at && m_depth > 0)) {
        std::string why = "malformed number '" + written + "'";
        if (taken == 0)
            why += ": a '-' needs digits after it";
        else if (std::strchr("eE", m_text[at + taken]) != nullptr)
            why += ": an exponent needs digits";
        else if (m_text[at + taken] == '.')
            why += ": a number has one point";
        else if (taken >= NumberLimit())
            why += ": the module reads at most 63 characters of a number";
        else
            why += ": numbers are decimal";
        return Fail(at, why);
    }
    node.raw = chars.substr(0, taken);
    // Strict JSON: -?(0|[1-9][0-9]*)(.[0-9]+)?([eE][+-]?[0-9]+)?
    const char* p = node.raw.c_str();
    if (*p == '-') ++p;
    std::string why;
    if (*p == '.')
        why = "has no digit before its point";
    else if (p[0] == '0' && std::isdigit(static_cast<unsigned char>(p[1])))
        why = "has a leading zero";
    else if (const char* point = std::strchr(p, '.');
             point != nullptr && !std::isdigit(static_cast<unsigned char>(point[1])))
        why = "has no digit after its point";
    if (!why.empty()) {
        char value[32];
        std::snprintf(value, sizeof value, "%.15g", std::strtod(node.raw.c_str(), nullptr));
        Loose(at, Rule::kLooseNumber,
              "the number " + node.raw + " " + why + ": the module reads it as " + value +
                  ", other JSON readers refuse it");
    }
    at += taken;
    return true;
}

bool Scanner::String(size_t& at, std::string& out) {
    const size_t open = at;
    size_t end = at + 1;  // the closing quote, found as cJSON finds it
    while (end < m_text.size() && m_text[end] != '"') end += m_text[end] == '\\' ? 2 : 1;
    if (end >= m_text.size()) {
        return Fail(open, "a text is left open: the text ends before its closing '\"'");
    }
    bool brokeLine = false;
    std::string decoded;
    for (size_t i = open + 1; i < end; ++i) {
        const auto c = static_cast<unsigned char>(m_text[i]);
        if (c == '\\') {
            size_t length = 2;
            if (!Escape(i, end, length, decoded)) return false;
            i += length - 1;
            continue;
        }
        if (c < 0x20) {
            brokeLine = brokeLine || c == '\n';
            Loose(i, Rule::kRawControl,
                  Shown(m_text, i) +
                      " stands raw inside a text; the module keeps it, other JSON "
                      "readers refuse it",
                  c == '\t'   ? "write \\t"
                  : c == '\n' ? "write \\n"
                              : "");
        }
        decoded += static_cast<char>(c);
    }
    if (brokeLine && m_openString == std::string::npos) m_openString = open;
    // The module gets the text as a C string: an escaped NUL ends it.
    out = decoded.substr(0, decoded.find('\0'));
    at = end + 1;
    return true;
}

// UTF-8 of a code point, as cJSON writes an escape (a NUL is one zero byte).
void AppendUtf8(unsigned code, std::string& out) {
    if (code < 0x80) {
        out += static_cast<char>(code);
        return;
    }
    const int tail = code < 0x800 ? 1 : code < 0x10000 ? 2 : 3;
    static const unsigned kLead[] = {0, 0xC0, 0xE0, 0xF0};
    out += static_cast<char>(kLead[tail] | (code >> (6 * tail)));
    for (int shift = 6 * (tail - 1); shift >= 0; shift -= 6) {
        out += static_cast<char>(0x80 | ((code >> shift) & 0x3F));
    }
}

// One escape at at (a backslash) inside a text that ends at end; length: its bytes. Appends
// what it stands for to out.
bool Scanner::Escape(size_t at, size_t end, size_t& length, std::string& out) {
    static const char kLetters[] = "\"\\/bfnrt";
    static const char kMeant[] = "\"\\/\b\f\n\r\t";
    const char c = m_text[at + 1];  // never the NUL: the closing quote comes after it
    if (const char* letter = std::strchr(kLetters, c); letter != nullptr) {
        out += kMeant[letter - kLetters];
        return true;
    }
    if (c != 'u') {
        return Fail(at, "unknown escape '\\" + std::string(1, c) +
                            "'; a text knows \\\" \\\\ \\/ \\b \\f \\n \\r \\t and \\uXXXX");
    }
    // Four hexadecimal digits; cJSON reads anything else as 0.
    auto hex = [&](size_t from, unsigned& code) {
        code = 0;
        for (size_t i = 0; i < 4; ++i) {
            if (!IsHex(m_text[from + i])) {
                code = 0;
                return false;
            }
            const char d =
                static_cast<char>(std::tolower(static_cast<unsigned char>(m_text[from + i])));
            code = code * 16 + static_cast<unsigned>(d <= '9' ? d - '0' : d - 'a' + 10);
        }
        return true;
    };
    if (end - at < 6) return Fail(at, "the escape \\u needs four hexadecimal digits");
    unsigned code = 0;
    length = 6;
    const bool valid = hex(at + 2, code);
    if (code == 0) {
        Loose(at, Rule::kEscapeNul,
              "the escape " + m_text.substr(at, 6) +
                  (valid ? " is a NUL" : " is no escape; the module reads it as a NUL") +
                  ", which ends the text there: what follows in the text is lost");
    }
    if (code >= 0xDC00 && code <= 0xDFFF) {
        return Fail(at, "the escape " + m_text.substr(at, 6) +
                            " is half of a pair (a low surrogate) without its first half");
    }
    if (code >= 0xD800 && code <= 0xDBFF) {
        unsigned low = 0;
        if (end - at < 12 || m_text.compare(at + 6, 2, "\\u") != 0 || !hex(at + 8, low) ||
            low < 0xDC00 || low > 0xDFFF) {
            return Fail(at,
                        "the escape " + m_text.substr(at, 6) +
                            " must be followed by a second \\uDC00..\\uDFFF (a surrogate pair)");
        }
        code = 0x10000 + (((code & 0x3FF) << 10) | (low & 0x3FF));
        length = 12;
    }
    AppendUtf8(code, out);
    return true;
}

// After an object's member or an array's element: a comma, or the closing bracket.
bool Scanner::AfterMember(size_t& at, char close, const char* what, bool& done) {
    at = Blanks(at);
    if (at < m_text.size() && m_text[at] == close) {
        ++at;
        done = true;
        return true;
    }
    if (at < m_text.size() && m_text[at] == ',') {
        const size_t comma = at;
        at = Blanks(at + 1);
        if (at < m_text.size() && m_text[at] == close) {
            return Fail(comma, std::string("a comma before '") + close +
                                   "': JSON allows none after the last " + what);
        }
        if (at < m_text.size() && m_text[at] == ',') {
            return Fail(at, "a second ','; remove it");
        }
        done = false;
        return true;
    }
    if (at >= m_text.size()) {
        return Fail(at, std::string("the text ends early: a closing '") + close + "' is missing");
    }
    const char c = m_text[at];
    if (c == '}' || c == ']') {
        return Fail(at, "unexpected '" + std::string(1, c) + "' where ',' or '" + close +
                            "' should be: the brackets do not match");
    }
    return Fail(at, std::string("a comma is missing before ") + Shown(m_text, at));
}

bool Scanner::Object(size_t& at, JsonNode& node) {
    node.kind = JsonNode::Kind::kObject;
    at = Blanks(at + 1);
    if (at < m_text.size() && m_text[at] == '}') {
        ++at;
        return true;
    }
    for (bool done = false; !done;) {
        JsonNode member;
        member.keyBegin = at;
        if (at >= m_text.size() || m_text[at] != '"') {
            if (at < m_text.size() && m_text[at] == ',')
                return Fail(at, "unexpected ',' where a key or '}' should be");
            if (at < m_text.size() && m_text[at] == ']')
                return Fail(
                    at, "unexpected ']' where a key or '}' should be: the brackets do not match");
            return Unexpected(at, "a key in double quotes");
        }
        if (!String(at, member.key)) return false;
        at = Blanks(at);
        if (at >= m_text.size() || m_text[at] != ':') {
            return Unexpected(at, ("':' after the key \"" + member.key + "\"").c_str());
        }
        at = Blanks(at + 1);
        if (at < m_text.size() && (m_text[at] == ',' || m_text[at] == '}')) {
            return Fail(at, "the value of \"" + member.key + "\" is missing");
        }
        if (!Value(at, member)) return false;
        node.members.push_back(std::move(member));
        if (!AfterMember(at, '}', "member", done)) return false;
    }
    return true;
}

bool Scanner::Array(size_t& at, JsonNode& node) {
    node.kind = JsonNode::Kind::kArray;
    at = Blanks(at + 1);
    if (at < m_text.size() && m_text[at] == ']') {
        ++at;
        return true;
    }
    for (bool done = false; !done;) {
        JsonNode element;
        if (at < m_text.size() && m_text[at] == ',')
            return Fail(at, "a value is missing before ','");
        if (at < m_text.size() && m_text[at] == '}')
            return Fail(at,
                        "unexpected '}' where a value or ']' should be: the brackets do not match");
        if (!Value(at, element)) return false;
        node.members.push_back(std::move(element));
        if (!AfterMember(at, ']', "element", done)) return false;
    }
    return true;
}

}  // namespace

JsonScan ScanJson(const std::string& text) {
    JsonScan out;
    Scanner(text, out).Run();
    if (out.error) out.root.reset();
    return out;
}

TextPlace PlaceOf(const std::string& text, size_t offset) {
    TextPlace p;
    const size_t bom = text.compare(0, 3, "\xEF\xBB\xBF") == 0 ? 3 : 0;
    for (size_t i = bom; i < offset && i < text.size(); ++i) {
        const auto c = static_cast<unsigned char>(text[i]);
        if (c == '\n') {
            ++p.line;
            p.column = 1;
        } else if ((c & 0xC0) != 0x80) {  // a UTF-8 continuation byte is no new character
            ++p.column;
        }
    }
    return p;
}

std::string LineOf(const std::string& text, size_t offset) {
    offset = std::min(offset, text.size());
    size_t from = 0;
    if (offset > 0) {
        const size_t previous = text.rfind('\n', offset - 1);
        if (previous != std::string::npos) from = previous + 1;
    }
    size_t end = text.find('\n', from);
    if (end == std::string::npos) end = text.size();
    std::string line = text.substr(from, end - from);
    if (!line.empty() && line.back() == '\r') line.pop_back();
    return line;
}

std::string SourceExcerpt(const std::string& text, size_t offset) {
    const TextPlace place = PlaceOf(text, offset);
    std::string line = LineOf(text, offset);
    if (place.line == 1 && line.compare(0, 3, "\xEF\xBB\xBF") == 0) line.erase(0, 3);
    for (char& c : line) {
        if (static_cast<unsigned char>(c) < 0x20 || c == 0x7f) c = ' ';
    }
    // Where each character starts, to cut the line between characters.
    std::vector<size_t> starts;
    for (size_t i = 0; i < line.size(); ++i) {
        if ((static_cast<unsigned char>(line[i]) & 0xC0) != 0x80) starts.push_back(i);
    }
    size_t caret = place.column - 1;
    if (starts.size() > kExcerptLongest) {
        const size_t first = caret > kExcerptWidth / 2 ? caret - kExcerptWidth / 2 : 0;
        const size_t last = std::min(starts.size(), first + kExcerptWidth);
        const size_t end = last < starts.size() ? starts[last] : line.size();
        line = (first > 0 ? "..." : "") + line.substr(starts[first], end - starts[first]) +
               (last < starts.size() ? "..." : "");
        caret = caret - first + (first > 0 ? 3 : 0);
    }
    char number[24];
    std::snprintf(number, sizeof number, "%6zu | ", place.line);
    return number + line + "\n       | " + std::string(caret, ' ') + "^\n";
}

const JsonNode* Member(const JsonNode* object, const std::string& key) {
    if (object == nullptr || object->kind != JsonNode::Kind::kObject) return nullptr;
    for (const JsonNode& m : object->members) {
        if (strcasecmp(m.key.c_str(), key.c_str()) == 0) return &m;
    }
    return nullptr;
}

}  // namespace preview
