// Recorded runs as the runner plays them again (replay, and the browser preview of a
// recording): how they are named, and what they gave as the expectation a replay must meet.
#pragma once

#include <string>

#include "drive/scenario.h"
#include "drive/session.h"
#include "record/record.h"

namespace preview {

// The run's name in the scenario that recorded it, else when it ran and its number:
// "2026-11-26T01:02:03.123456Z #17".
std::string RecordedName(const formatv2::record::Run& run);

// What the recorded run gave: status, verdict, both display texts and each output name once,
// with the first entry recorded under it.
Expectation RecordedResult(const formatv2::record::Run& run);

// A replayed run also holds no output the recorded one did not publish: each output of
// replayed that e does not name is added, expected absent.
void AddUnrecorded(Expectation& e, const RunReport& replayed);

}  // namespace preview
