// Printing what a session saw: aligned text for people (colour only on a terminal) or JSON
// with a stable schema for machines.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/findings.h"
#include "drive/session.h"
#include "drive/texts.h"

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

cJSON* TablesJson(const Tables& tables);
cJSON* RefusalJson(const Refusal& refusal);
cJSON* WarningsJson(const std::vector<Warning>& warnings);
void PrintTables(const Tables& tables);
// Prints a JSON document on standard output, UTF-8 safe (EscapeInvalidUtf8), and deletes it;
// compact: on one line, without indentation.
void PrintJson(cJSON* root, bool compact = false);

}  // namespace preview
