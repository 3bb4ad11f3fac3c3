// A preview scenario: the configuration to load, the runs to drive with the values that the
// publishers deliver in each run, and what each run is expected to give.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace formatv2::record {
struct Run;
}

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

bool operator==(const Value& a, const Value& b);

struct ParamDecl {
    std::string name;
    int type = 3;  // PARAM_TYPE_STRING
    std::vector<std::string> accepted;
    std::string initial;
};

// What a run (or the first configuration read) must give; every field is optional.
struct Expectation {
    std::optional<int> status;
    std::optional<std::string> verdict;
    std::optional<std::string> showTextEn;
    std::optional<std::string> showTextCn;
    // By output name; no value: the output must not be published.
    std::vector<std::pair<std::string, std::optional<Value>>> outputs;
    std::vector<std::string> log;  // texts that some log line must contain
};

// A configuration text and the name it is reported under.
// Where an inline configuration stands in its scenario file, so that its findings are placed
// at the line and column the user wrote them on.
struct Embedding {
    std::string file;     // the scenario, as reports name it
    std::string written;  // its text as written
    std::string read;     // its text as read (each \udcHH escape turned into its byte)
    size_t begin = 0;     // the configuration object's offset in read
};
// The offset in the scenario as written of an offset in the configuration's text.
size_t WrittenOffsetOf(const Embedding& embedding, size_t offset);

struct ConfigSource {
    std::string name;                    // the file's path, or where the inline object stands
    std::string text;                    // an inline object: its bytes as written in the scenario
    std::optional<Embedding> embedding;  // an inline object: where it stands
};

struct RunSpec {
    std::string name;
    bool inputFrame = true;
    std::optional<int> imgMode;
    // Keyed "publisher:output", as the subscription texts name them.
    std::map<std::string, Value> values;
    std::map<std::string, std::string> valuePlaces;  // "FILE:LINE:COL" of each value's key
    std::optional<ConfigSource> newConfig;           // written to algo_private.json before the run
    std::optional<std::string> paramName;            // set before the run
    std::string paramValue;
    std::optional<Expectation> expect;
    // A recorded run replayed: its inputs are delivered exactly as recorded, by the source
    // each subscription names, instead of values; its input frame and image mode as above.
    const formatv2::record::Run* recorded = nullptr;
};

struct Scenario {
    ConfigSource config;
    int moduleId = 0;
    int algoId = 0;
    std::vector<ParamDecl> params;
    std::vector<RunSpec> runs;
    std::optional<Expectation> expectInit;  // status and log lines of the first read
};

// A problem with a file the runner reads: where (FILE or FILE:LINE:COL) and why.
struct FileError {
    std::string where;
    std::string message;
};

// What a JSON text is by its top-level keys: a configuration has "SubParamList" (in any letter
// case, as the module reads it) and no "runs" or "config"; a scenario has "runs" or "config" and
// no "SubParamList". Anything else is neither.
enum class FileKind { kNeither, kConfiguration, kScenario };
FileKind KindOf(const std::string& text);
// What check says of a scenario, and run and test of a configuration: what the file is and
// which command reads it.
std::string WrongKind(FileKind kind, const std::string& name);

// Reads a scenario file. Every error is placed at FILE:LINE:COL of the key or value concerned
// and names the key's path (runs[2].img_mod); unknown keys name the closest known key. Numbers
// must fit what they are read into (whole where an int is meant). With confineTo (an absolute,
// resolved folder), every file the scenario names must be a regular file inside it; anything
// else is an error at its key, and not read.
bool LoadScenario(const std::string& path, Scenario& out, FileError& error,
                  const std::string& confineTo = "");
// The same for a scenario's text as given (an editor's), read as if it stood at path.
bool LoadScenarioText(const std::string& path, std::string text, Scenario& out, FileError& error,
                      const std::string& confineTo = "");

}  // namespace preview
