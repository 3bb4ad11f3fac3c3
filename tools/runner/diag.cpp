#include "diag.h"

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "json_scan.h"

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
            if (issue.rule == "trailing-text") out.reason = "text follows the closing '}'";
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
