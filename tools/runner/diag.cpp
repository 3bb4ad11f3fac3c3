#include "diag.h"

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdarg>
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
    const std::string place = EscapeInvalidUtf8(where, Escape::kText);
    const std::string text = EscapeInvalidUtf8(message, Escape::kText);
    if (m_colour) {
        std::fprintf(stderr, "\033[1m%s:\033[0m %s%s:\033[0m %s\n", place.c_str(), kColours[s],
                     kNames[s], text.c_str());
    } else {
        std::fprintf(stderr, "%s: %s: %s\n", place.c_str(), kNames[s], text.c_str());
    }
}

size_t Utf8Length(const std::string& text, size_t at) {
    const auto byte = [&](size_t i) -> unsigned {
        return i < text.size() ? static_cast<unsigned char>(text[i]) : 0u;
    };
    const unsigned lead = byte(at);
    if (lead < 0x80) return 1;
    // The ranges of the second byte exclude overlong forms, surrogates and code points past
    // U+10FFFF (Unicode's table of well-formed byte sequences).
    size_t length = 0;
    unsigned low = 0x80;
    unsigned high = 0xBF;
    if (lead >= 0xC2 && lead <= 0xDF) {
        length = 2;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        length = 3;
        low = lead == 0xE0 ? 0xA0 : low;
        high = lead == 0xED ? 0x9F : high;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        length = 4;
        low = lead == 0xF0 ? 0x90 : low;
        high = lead == 0xF4 ? 0x8F : high;
    } else {
        return 0;
    }
    for (size_t k = 1; k < length; ++k) {
        const unsigned b = byte(at + k);
        if (b < (k == 1 ? low : 0x80u) || b > (k == 1 ? high : 0xBFu)) return 0;
    }
    return length;
}

std::string EscapeInvalidUtf8(const std::string& text, Escape style) {
    std::string out;
    out.reserve(text.size());
    for (size_t i = 0; i < text.size();) {
        const size_t length = Utf8Length(text, i);
        if (length > 0) {
            out.append(text, i, length);
            i += length;
            continue;
        }
        char escape[8];
        std::snprintf(escape, sizeof escape, style == Escape::kText ? "\\x%02x" : "\\udc%02x",
                      static_cast<unsigned char>(text[i]));
        out += escape;
        ++i;
    }
    return out;
}

std::string ReadByteEscapes(const std::string& json) {
    std::string out;
    out.reserve(json.size());
    bool inString = false;
    for (size_t i = 0; i < json.size(); ++i) {
        const char c = json[i];
        if (!inString || c != '\\') {
            if (c == '"') inString = !inString;
            out += c;
            continue;
        }
        const std::string escape = json.substr(i, 6);
        const bool isByte = escape.size() == 6 && escape[1] == 'u' &&
                            std::tolower(static_cast<unsigned char>(escape[2])) == 'd' &&
                            std::tolower(static_cast<unsigned char>(escape[3])) == 'c' &&
                            escape[4] != '\0' &&
                            std::strchr("89abcdefABCDEF", escape[4]) != nullptr &&
                            std::isxdigit(static_cast<unsigned char>(escape[5])) != 0;
        if (isByte) {
            out += static_cast<char>(std::stoi(escape.substr(4), nullptr, 16));
            i += 5;
        } else if (i + 1 < json.size()) {
            out.append(json, i, 2);  // any other escape, kept as it is
            ++i;
        } else {
            out += c;
        }
    }
    return out;
}

void Print(const char* format, ...) {
    va_list args;
    va_start(args, format);
    va_list again;
    va_copy(again, args);
    const int length = std::vsnprintf(nullptr, 0, format, args);
    va_end(args);
    std::string text(length > 0 ? static_cast<size_t>(length) : 0, '\0');
    if (length > 0) std::vsnprintf(text.data(), text.size() + 1, format, again);
    va_end(again);
    const std::string safe = EscapeInvalidUtf8(text, Escape::kText);
    std::fwrite(safe.data(), 1, safe.size(), stdout);
}

bool WriteFile(const std::string& path, const std::string& text, std::string& reason) {
    std::FILE* file = std::fopen(path.c_str(), "wb");
    if (file == nullptr) {
        reason = std::strerror(errno);
        return false;
    }
    const bool written = std::fwrite(text.data(), 1, text.size(), file) == text.size();
    const int error = errno;
    if (std::fclose(file) != 0 || !written) {
        reason = std::strerror(written ? errno : error);
        return false;
    }
    return true;
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
