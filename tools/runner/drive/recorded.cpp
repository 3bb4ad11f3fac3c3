#include "drive/recorded.h"

#include <time.h>

#include <algorithm>
#include <cstdio>

namespace preview {

namespace record = formatv2::record;

std::string RecordedName(const record::Run& run) {
    if (!run.name.empty()) return run.name;
    const time_t seconds = static_cast<time_t>(run.timeMicros / 1000000);
    struct tm utc {};
    gmtime_r(&seconds, &utc);
    char text[80];
    std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d.%06uZ #%llu",
                  utc.tm_year + 1900, utc.tm_mon + 1, utc.tm_mday, utc.tm_hour, utc.tm_min,
                  utc.tm_sec, static_cast<unsigned>(run.timeMicros % 1000000),
                  static_cast<unsigned long long>(run.index));
    return text;
}

Expectation RecordedResult(const record::Run& run) {
    Expectation e;
    e.status = run.status;
    e.verdict = run.verdict;
    e.showTextEn = run.showTextEn;
    e.showTextCn = run.showTextCn;
    for (const record::Output& o : run.outputs) {
        const bool seen = std::any_of(e.outputs.begin(), e.outputs.end(),
                                      [&](const auto& named) { return named.first == o.name; });
        if (!seen) e.outputs.emplace_back(o.name, ValueOf(o.value));
    }
    return e;
}

void AddUnrecorded(Expectation& e, const RunReport& replayed) {
    for (const Output& o : replayed.outputs) {
        const bool recorded = std::any_of(e.outputs.begin(), e.outputs.end(),
                                          [&](const auto& named) { return named.first == o.name; });
        if (!recorded) e.outputs.emplace_back(o.name, std::nullopt);
    }
}

}  // namespace preview
