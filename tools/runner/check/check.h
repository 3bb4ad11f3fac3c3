// Everything check finds in a configuration: every refusal of the module's own reader (linked
// in, so nothing is guessed from log text) and every warning, each placed at the key or value
// it is about, the refusal the module stops at marked.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "base/findings.h"
#include "drive/scenario.h"

typedef struct cJSON cJSON;

namespace preview {

struct Verdict {
    std::vector<Refusal> refusals;   // in reading order; empty when the module accepted
    std::optional<Refusal> refusal;  // the one the module stops at
    std::vector<Warning> warnings;   // in file order; some may fail every run (Fails)
};

// Moves the places of a verdict on an inline configuration to where it stands in its scenario.
void PlaceIn(Verdict& verdict, const Embedding& embedding);

// status: what the loaded module's read of text gave. The refusals are the reader's, placed;
// a refusal of a status the reader does not explain (a table refused, a file step) is named
// with the status alone.
Verdict Examine(int status, const std::string& text);

class Diagnostics;
// Every refusal and warning on standard error, in the order of the text, each at
// FILE:LINE:COL with its source line and its fix.
void Tell(const Diagnostics& diag, const std::string& name, const std::string& text,
          const Verdict& verdict);
// SARIF 2.1.0 for the files checked: one result per refusal and warning, with its rule and
// region; a file that could not be read gives one result without a region.
struct SarifFile {
    std::string name;
    std::string error;  // the reason a file could not be read
    const Verdict* verdict;
};
// version: the runner's. The driver lists every rule of the table, with its summary and fix.
cJSON* SarifJson(const std::vector<SarifFile>& files, const std::string& version);

// Whether a verdict holds a finding that makes every run fail (Fails).
bool EveryRunFails(const Verdict& verdict);

// Drops the warnings of the rules named (refusals stay: the module refuses regardless).
void Disable(Verdict& verdict, const std::vector<Rule>& rules);

}  // namespace preview
