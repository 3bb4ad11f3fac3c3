// A preview scenario: the configuration to load and the runs to drive, with the values that
// the publishers deliver in each run.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace preview {

// One published value: an int, float or text, as a single value or a list.
struct Value {
    enum class Kind { kInt, kFloat, kString };
    Kind kind = Kind::kInt;
    bool list = false;
    std::vector<int> ints;
    std::vector<float> floats;
    std::vector<std::string> texts;
};

struct ParamDecl {
    std::string name;
    int type = 3;  // PARAM_TYPE_STRING
    std::vector<std::string> accepted;
    std::string initial;
};

struct RunSpec {
    std::string name;
    bool inputFrame = true;
    std::optional<int> imgMode;
    // Keyed "publisher:output", as the subscription texts name them.
    std::map<std::string, Value> values;
    std::optional<std::string> newConfig;  // written to algo_private.json before the run
    std::optional<std::string> paramName;  // set before the run
    std::string paramValue;
};

struct Scenario {
    std::string configText;
    int moduleId = 0;
    int algoId = 0;
    std::vector<ParamDecl> params;
    std::vector<RunSpec> runs;
};

// Reads a scenario file; on failure returns false with a message naming the file and, for
// JSON errors, the line and column.
bool LoadScenario(const std::string& path, Scenario& out, std::string& error);

// Reads a whole file; false when it cannot be read.
bool ReadFile(const std::string& path, std::string& out);

// "line L, column C" of offset in text.
std::string PositionOf(const std::string& text, size_t offset);

}  // namespace preview
