// Printing what a session saw: aligned text for people (colour only on a terminal) or JSON
// with a stable schema for machines.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "findings.h"
#include "session.h"

typedef struct cJSON cJSON;

namespace preview {

struct Printer {
    bool json = false;
    bool colour = false;
};

// Human form of everything; JSON is gathered and printed once by Finish.
class Report {
  public:
    explicit Report(Printer printer);
    ~Report();
    Report(const Report&) = delete;
    Report& operator=(const Report&) = delete;

    // The first read; refusal and warnings go into the JSON form only (the text form leaves
    // them to the diagnostics on standard error).
    void Init(const InitReport& init, const std::optional<Refusal>& refusal,
              const std::vector<Warning>& warnings);
    // index: the run's place in the scenario's "runs", from 0.
    void Run(size_t index, const RunReport& run, const std::optional<Refusal>& refusal,
             const std::vector<Warning>& warnings);
    void Finish();
    // The JSON form gathered so far, handed over instead of printed (the caller deletes it).
    cJSON* Take();

  private:
    struct Json;
    Printer m_printer;
    std::unique_ptr<Json> m_json;
};

// Escapes control characters so that line breaks stay visible (\n, \r, \t, \xHH), a
// backslash as \\, and a byte of no well-formed UTF-8 sequence as \xHH.
std::string Visible(const std::string& text);

// Pieces shared with the check and test reports.
std::string Hex(int status);
std::string StatusText(int status);  // Hex(status), then its meaning in brackets
const char* KindName(Value::Kind kind);
std::string ValuesText(const Value& value);  // "[1, 2]", "\"a\"", ...
// A value as a scenario writes it: {"int": [1, 2]}, {"string": "a"}, ...
cJSON* ValueJson(const Value& value);
// How every report names a run: runs[0], or runs[0] ("its name").
std::string RunLabel(size_t index, const std::string& name);
std::string StripColour(const std::string& text);
cJSON* TablesJson(const Tables& tables);
cJSON* RefusalJson(const Refusal& refusal);
cJSON* WarningsJson(const std::vector<Warning>& warnings);
void PrintTables(const Tables& tables);
// Prints a JSON document on standard output, UTF-8 safe (EscapeInvalidUtf8), and deletes it;
// compact: on one line, without indentation.
void PrintJson(cJSON* root, bool compact = false);

}  // namespace preview
