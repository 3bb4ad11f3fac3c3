// What the browser preview shows for one state of its editors: the run report of `run --json`,
// every finding of `check` for the configuration, where each row stands in it, and which row
// wrote which bytes of a joined output.
#pragma once

#include <optional>
#include <string>

typedef struct cJSON cJSON;

namespace preview {

struct LiveInput {
    std::string module;        // the library to load
    std::string configName;    // how reports name the configuration (its path)
    std::string configText;    // the editor's text
    std::string scenarioPath;  // where the scenario stands; its relative paths start there
    std::optional<std::string> scenarioText;  // none: the configuration's first read only
};

// The document the page renders (docs/preview.md names its keys). Never null: a scenario that
// cannot be read or a module that cannot be loaded is an "error" member.
cJSON* LiveJson(const LiveInput& input);

// The request the server hands a child process on standard input, and its reading there.
cJSON* LiveInputJson(const LiveInput& input);
bool ReadLiveInput(const std::string& text, LiveInput& out);

// The child: reads a LiveInputJson document on standard input, prints LiveJson on standard
// output. Returns the exit code.
int EvaluateCommand();

}  // namespace preview
