// Replaying a recording: each recorded run played through the module again, its inputs
// delivered as recorded, and compared with what it gave.
#pragma once

#include <optional>
#include <string>

#include "commands/commands.h"
#include "record/record.h"
#include "render/test_report.h"

namespace preview {

// Plays every run of rec into o: o.scenario.runs gets each run's expectation (what it gave),
// o.runs what the replay gave, o.found what differs. With config, every run is played with
// that configuration text; else each with its own, a new session at each change. False (with
// o.error) when the module cannot be loaded.
bool Replay(const formatv2::record::Recording& rec, const std::optional<std::string>& config,
            const Options& options, Outcome& o);

}  // namespace preview
