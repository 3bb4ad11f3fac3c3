#include "analysis/wording.h"

#include <algorithm>
#include <cctype>
#include <cstdio>

#include "contract/contract.h"

namespace formatv2 {

std::string Hex(int status) {
    char text[16];  // "0x", eight digits and the terminator
    std::snprintf(text, sizeof text, "0x%08X", static_cast<unsigned>(status));
    return text;
}

std::string StatusMeaning(int status) {
    const char* meaning = StatusMeaningOf(status);
    return meaning != nullptr ? meaning : "a code of the host";
}

std::string StatusText(int status) {
    return Hex(status) + " (" + StatusMeaning(status) + ")";
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

}  // namespace formatv2
