// Printing what a session saw: aligned text for people (colour only on a terminal) or JSON
// with a stable schema for machines.
#pragma once

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
    void Run(int index, const RunReport& run, const std::optional<Refusal>& refusal,
             const std::vector<Warning>& warnings);
    void Finish();

  private:
    struct Json;
    Printer m_printer;
    std::unique_ptr<Json> m_json;
};

// Escapes control characters so that line breaks stay visible: \n, \r, \t, \xHH.
std::string Visible(const std::string& text);

// Pieces shared with the check and test reports.
std::string Hex(int status);
std::string StatusText(int status);  // Hex(status), then its meaning in brackets
const char* KindName(Value::Kind kind);
std::string ValuesText(const Value& value);  // "[1, 2]", "\"a\"", ...
std::string StripColour(const std::string& text);
cJSON* TablesJson(const Tables& tables);
cJSON* RefusalJson(const Refusal& refusal);
cJSON* WarningsJson(const std::vector<Warning>& warnings);
void PrintTables(const Tables& tables);
// Prints a JSON document on standard output and deletes it.
void PrintJson(cJSON* root);

}  // namespace preview
