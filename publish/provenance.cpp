// Byte provenance of the texts a run publishes: the spans of a value follow it through the
// same steps as its bytes (cut, decorated, matches deleted), so that each byte of a published
// text still names the row, field and element that wrote it.
#include <algorithm>
#include <cstdint>

#include "publish/publish.h"

namespace formatv2 {

void AddSpan(Spans& spans, size_t length, const Owner& owner) {
    if (length == 0) return;
    const size_t at = spans.empty() ? 0 : spans.back().end;
    // Neighbours of one owner are one span: a cell and its separator, a row's value and the
    // blank after it.
    if (!spans.empty() && spans.back().owner == owner) {
        spans.back().end = at + length;
    } else {
        spans.push_back({at, at + length, owner});
    }
}

void AddSpans(Spans& spans, const Spans& more) {
    for (const Span& span : more) AddSpan(spans, span.end - span.begin, span.owner);
}

Spans CutSpans(const Spans& spans, size_t start, size_t length) {
    Spans out;
    const size_t stop = start + length < start ? SIZE_MAX : start + length;
    for (const Span& span : spans) {
        const size_t begin = std::max(span.begin, start);
        const size_t end = std::min(span.end, stop);
        if (begin < end) AddSpan(out, end - begin, span.owner);
    }
    return out;
}

Spans RemoveRanges(const Spans& spans, const std::vector<std::pair<size_t, size_t>>& removed) {
    Spans out;
    size_t next = 0;  // the first removed range not wholly before the span
    for (const Span& span : spans) {
        size_t at = span.begin;
        while (at < span.end) {
            while (next < removed.size() && removed[next].second <= at) ++next;
            if (next < removed.size() && removed[next].first <= at) {
                at = std::min(span.end, removed[next].second);
                continue;
            }
            const size_t keepTo =
                next < removed.size() ? std::min(span.end, removed[next].first) : span.end;
            AddSpan(out, keepTo - at, span.owner);
            at = keepTo;
        }
    }
    return out;
}

}  // namespace formatv2
