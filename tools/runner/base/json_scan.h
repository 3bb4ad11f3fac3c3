// A JSON scanner that keeps the place of every key and value, for placing diagnostics at
// FILE:LINE:COL. It accepts what the module's JSON reader (cJSON) accepts, and says so where
// that is not JSON or changes the data (loose JSON); where the reader stops, it says why in
// words, at the place a user has to edit.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "base/rules.h"

namespace preview {

struct JsonNode {
    enum class Kind { kObject, kArray, kString, kNumber, kLiteral };
    Kind kind = Kind::kLiteral;
    size_t begin = 0;  // byte offsets of the value and just past it
    size_t end = 0;
    // Texts (keys and string values) hold what the module reads: escapes decoded, up to the
    // first NUL (an escaped NUL ends a text, as cJSON hands it on as a C string).
    std::string key;                // an object member's key
    size_t keyBegin = 0;            // byte offset of that key's opening quote
    std::string raw;                // a string's text; a number or literal as cJSON read it
    std::vector<JsonNode> members;  // an object's members or an array's elements, in order
};

// A problem at a byte offset of the text.
struct JsonIssue {
    size_t offset = 0;
    Rule rule;  // loose JSON: its lint rule; an error: Rule::kJsonSyntax
    std::string message;
    std::string fix;
};

struct JsonScan {
    std::optional<JsonNode> root;    // when the reader accepts the text
    std::optional<JsonIssue> error;  // where and why the reader stops
    std::vector<JsonIssue> loose;    // accepted, though not JSON or not read as written
};

JsonScan ScanJson(const std::string& text);

// Line and column (from 1) of a byte offset; columns count characters, a UTF-8 sequence as one,
// and a byte order mark that starts the text as none (editors do not show it).
struct TextPlace {
    size_t line = 1;
    size_t column = 1;
};
TextPlace PlaceOf(const std::string& text, size_t offset);

// The line holding offset, without its line break.
std::string LineOf(const std::string& text, size_t offset);

// The source line holding offset and, under it, a caret at its column, as compilers show them
// ("    12 | text" and "       |     ^"), control characters as spaces. A line longer than
// kExcerptLongest characters (a minified file) shows a window of kExcerptWidth characters around
// the caret, "..." where it is cut.
constexpr size_t kExcerptLongest = 160;
constexpr size_t kExcerptWidth = 120;
std::string SourceExcerpt(const std::string& text, size_t offset);

// An object's first member whose key equals key, letter case ignored (as the module looks keys
// up), or null.
const JsonNode* Member(const JsonNode* object, const std::string& key);

}  // namespace preview
