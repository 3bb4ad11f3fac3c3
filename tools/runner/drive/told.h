// What a run told of itself, rendered: which row, field and element wrote each byte of each
// published text and display text, each row's outcome, and a failed run explained in the
// configuration's terms, placed in the files the user wrote.
#pragma once

#include <string>

#include "contract/run_result.h"
#include "drive/scenario.h"

struct cJSON;

namespace preview {

// [{"output", "value", "spans": [{"begin", "end", "row", "field", "element"}]}], -1 as null.
cJSON* ProvenanceJson(const formatv2::RunResult& result);
// [{"outcome": "gave"|"kept"|"failed"|"not reached", "failure": {...}|null}], one per row.
cJSON* RowOutcomesJson(const formatv2::RunResult& result);

// Why the run failed, as "FILE:LINE:COL: row 2 ("count") reads blob:count as int; FILE:LINE:COL
// gives it as string", with a fix where one exists; "" when no row failed. config is the
// configuration in force, plan the run.
struct Explanation {
    std::string where;    // FILE:LINE:COL of the row's key, or FILE
    std::string message;  // the rest of the line
    std::string fix;      // "" when there is none to give
};
Explanation ExplainRun(const formatv2::RunResult& result, const ConfigSource& config,
                       const RunSpec& plan);

}  // namespace preview
