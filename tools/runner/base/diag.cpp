#include "base/diag.h"

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "base/json_scan.h"

namespace preview {

bool ColourFor(int fd) {
    // NO_COLOR set to any non-empty text switches colour off (no-color.org).
    const char* noColour = std::getenv("NO_COLOR");
    if (noColour != nullptr && noColour[0] != '\0') return false;
    return isatty(fd) != 0;
}

std::string DisplayName(const std::string& path) {
    return path == "-" ? "<stdin>" : path;
}

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

JsonSyntax DescribeJsonError(const std::string& text, const char* errorAt) {
    const JsonScan scan = ScanJson(text);
    JsonSyntax out;
    size_t offset = text.size();
    out.reason = "the JSON reader stops here";
    if (scan.error) {
        offset = scan.error->offset;
        out.reason = scan.error->message;
    } else if (errorAt != nullptr && errorAt >= text.c_str() &&
               errorAt <= text.c_str() + text.size()) {
        offset = static_cast<size_t>(errorAt - text.c_str());
        for (const JsonIssue& issue : scan.loose) {
            if (issue.rule == Rule::kTrailingText) out.reason = "text follows the closing '}'";
        }
    }
    const TextPlace place = PlaceOf(text, offset);
    out.line = place.line;
    out.column = place.column;
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
    // Valid bytes are copied a run at a time: reports of large runs are megabytes of them.
    size_t copied = 0;
    for (size_t i = 0; i < text.size();) {
        if (static_cast<unsigned char>(text[i]) < 0x80) {
            ++i;
            continue;
        }
        const size_t length = Utf8Length(text, i);
        if (length > 0) {
            i += length;
            continue;
        }
        out.append(text, copied, i - copied);
        char escape[8];
        std::snprintf(escape, sizeof escape, style == Escape::kText ? "\\x%02x" : "\\udc%02x",
                      static_cast<unsigned char>(text[i]));
        out += escape;
        copied = ++i;
    }
    out.append(text, copied, std::string::npos);
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
    WriteOutput(EscapeInvalidUtf8(text, Escape::kText));
}

namespace {

int g_outputError = 0;  // errno of the first write to standard output that failed

void KeepOutputError() {
    if (g_outputError == 0) g_outputError = errno != 0 ? errno : EIO;
}

}  // namespace

void WriteOutput(const std::string& text) {
    errno = 0;
    if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size()) KeepOutputError();
}

bool FlushOutput(std::string& reason) {
    errno = 0;
    if (std::fflush(stdout) != 0) KeepOutputError();
    if (g_outputError == 0 && std::ferror(stdout) == 0) return true;
    reason = std::strerror(g_outputError != 0 ? g_outputError : EIO);
    return false;
}

std::string DidYouMean(const std::string& close) {
    return close.empty() ? "" : "; did you mean \"" + close + "\"?";
}

}  // namespace preview
