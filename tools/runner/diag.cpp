#include "diag.h"

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace preview {

bool ColourFor(int fd) {
    // NO_COLOR set to any non-empty text switches colour off (no-color.org).
    const char* noColour = std::getenv("NO_COLOR");
    if (noColour != nullptr && noColour[0] != '\0') return false;
    return isatty(fd) != 0;
}

std::string DisplayName(const std::string& path) { return path == "-" ? "<stdin>" : path; }

bool ReadInput(const std::string& path, std::string& out, std::string& reason) {
    const bool standardInput = path == "-";
    std::FILE* file = standardInput ? stdin : std::fopen(path.c_str(), "rb");
    if (file == nullptr) {
        reason = std::strerror(errno);
        return false;
    }
    out.clear();
    char buffer[65536];
    size_t got = 0;
    errno = 0;
    while ((got = std::fread(buffer, 1, sizeof buffer, file)) > 0) out.append(buffer, got);
    const bool failed = std::ferror(file) != 0;
    // A directory opens but cannot be read: EISDIR is the reason then.
    if (failed) reason = std::strerror(errno != 0 ? errno : EIO);
    if (!standardInput) std::fclose(file);
    return !failed;
}

namespace {

// Line and column of a byte offset.
void LineColumn(const std::string& text, size_t offset, size_t& line, size_t& column) {
    line = 1;
    column = 1;
    for (size_t i = 0; i < offset && i < text.size(); ++i) {
        const auto c = static_cast<unsigned char>(text[i]);
        if (c == '\n') {
            ++line;
            column = 1;
        } else if ((c & 0xC0) != 0x80) {  // a UTF-8 continuation byte is no new character
            ++column;
        }
    }
}

}  // namespace

JsonSyntax DescribeJsonError(const std::string& text, const char* errorAt) {
    const char* begin = text.c_str();
    size_t offset = text.size();
    if (errorAt != nullptr && errorAt >= begin && errorAt <= begin + text.size()) {
        offset = static_cast<size_t>(errorAt - begin);
    }
    JsonSyntax out;
    // cJSON stops at the end of the text after a comma before '}' or ']'; the comma is what
    // a user has to remove, so that is where the error is shown.
    bool inString = false;
    size_t lastComma = std::string::npos;
    for (size_t i = 0; i < offset && i < text.size(); ++i) {
        const char c = text[i];
        if (inString) {
            if (c == '\\') ++i;
            else if (c == '"') inString = false;
        } else if (c == '"') {
            inString = true;
            lastComma = std::string::npos;
        } else if (c == ',') {
            lastComma = i;
        } else if ((c == '}' || c == ']') && lastComma != std::string::npos) {
            LineColumn(text, lastComma, out.line, out.column);
            out.reason = std::string("a comma before '") + c + "': JSON allows none after the last element";
            return out;
        } else if (!std::isspace(static_cast<unsigned char>(c))) {
            lastComma = std::string::npos;
        }
    }
    size_t at = offset;
    while (at < text.size() && std::isspace(static_cast<unsigned char>(text[at]))) ++at;
    LineColumn(text, at, out.line, out.column);
    if (text.find_first_not_of(" \t\r\n") == std::string::npos) {
        out.reason = "the text is empty; a configuration is a JSON object";
    } else if (at >= text.size()) {
        out.reason = inString ? "the text ends inside a string: a closing '\"' is missing"
                              : "the text ends early: a closing '}' or ']' is missing";
    } else {
        const auto c = static_cast<unsigned char>(text[at]);
        std::string shown = std::isprint(c) ? std::string(1, static_cast<char>(c)) : "";
        if (shown.empty()) {
            char hex[8];
            std::snprintf(hex, sizeof hex, "\\x%02x", c);
            shown = hex;
        }
        out.reason = c == '\'' ? "unexpected \"'\"" : "unexpected '" + shown + "'";
        if (std::isalpha(c)) out.reason += ": texts need double quotes; the only bare words are true, false and null";
        if (c == '\'') out.reason += ": JSON texts use double quotes";
    }
    return out;
}

void Diagnostics::Say(Severity severity, const std::string& where,
                      const std::string& message) const {
    static const char* const kNames[] = {"error", "warning", "note"};
    static const char* const kColours[] = {"\033[1;31m", "\033[1;33m", "\033[1;36m"};
    const auto s = static_cast<size_t>(severity);
    if (m_colour) {
        std::fprintf(stderr, "\033[1m%s:\033[0m %s%s:\033[0m %s\n", where.c_str(), kColours[s],
                     kNames[s], message.c_str());
    } else {
        std::fprintf(stderr, "%s: %s: %s\n", where.c_str(), kNames[s], message.c_str());
    }
}

namespace {

size_t EditDistance(const std::string& a, const std::string& b) {
    std::vector<size_t> row(b.size() + 1);
    for (size_t j = 0; j <= b.size(); ++j) row[j] = j;
    for (size_t i = 1; i <= a.size(); ++i) {
        size_t diagonal = row[0];
        row[0] = i;
        for (size_t j = 1; j <= b.size(); ++j) {
            const size_t above = row[j];
            const bool same = std::tolower(static_cast<unsigned char>(a[i - 1])) ==
                              std::tolower(static_cast<unsigned char>(b[j - 1]));
            row[j] = std::min({row[j] + 1, row[j - 1] + 1, diagonal + (same ? 0 : 1)});
            diagonal = above;
        }
    }
    return row[b.size()];
}

}  // namespace

std::string ClosestWord(const std::string& word, const std::vector<std::string>& candidates) {
    std::string best;
    size_t bestDistance = 3;  // more than two edits is no longer a typo
    for (const std::string& candidate : candidates) {
        const size_t d = EditDistance(word, candidate);
        if (d < bestDistance) {
            bestDistance = d;
            best = candidate;
        }
    }
    return best;
}

std::string ClosestWord(const std::string& word, const char* const* candidates, size_t count) {
    return ClosestWord(word, std::vector<std::string>(candidates, candidates + count));
}

std::string DidYouMean(const std::string& close) {
    return close.empty() ? "" : "; did you mean \"" + close + "\"?";
}

}  // namespace preview
