// What the browser preview shows for one state of its editors: the run report of `run --json`,
// every finding of `check` for the configuration, where each row stands in it, and which row
// wrote which bytes of a joined output.
#pragma once

#include <optional>
#include <string>

#include "serve/child.h"

typedef struct cJSON cJSON;

namespace preview {

struct LiveInput {
    std::string module;        // the library to load
    std::string root;          // the folder served: every file read stays inside it
    std::string configName;    // how reports name the configuration (its path)
    std::string configText;    // the editor's text, or the file's when the editor cannot hold it
    std::string scenarioPath;  // where the scenario stands; its relative paths start there
    std::optional<std::string> scenarioText;  // none: the configuration's first read only
    // A folder of recording files inside root, named as the page names it: its runs are
    // played instead of the scenario's.
    std::optional<std::string> recording;
};

// A recording shows its newest runs, at most this many: each is a card on the page.
constexpr size_t kRecordedRunsShown = 200;

// The document the page renders (docs/preview.md names its keys). Never null: a scenario that
// cannot be read or a module that cannot be loaded is an "error" member.
cJSON* LiveJson(const LiveInput& input);

// What the server tells the child beside the page's request: fixed when the server starts,
// never taken from a request (no request loads another module or reads another folder).
struct LiveServer {
    std::string module;
    std::string root;
    std::string configName;    // relative to root
    std::string scenarioName;  // relative to root; "" when the folder has none
    ChildLimits limits;
};

// The child's standard input: the server's part as one line of JSON, then the page's request
// body as it came, {"config": TEXT | null, "scenario": TEXT | null, "recording": FOLDER | null};
// null stands for the file on disk, or no recording. The body is parsed only in the child.
std::string LiveRequest(const LiveServer& server, const std::string& body);
// Reads it back into the evaluation's input; false with the reason (a bad request).
bool ReadLiveRequest(const std::string& request, LiveInput& input, ChildLimits& limits,
                     std::string& reason);

// The child: reads a LiveRequest on standard input, applies the limits, prints LiveJson on
// standard output. Returns the exit code (kExitUsage for a bad request).
int EvaluateCommand();

}  // namespace preview
