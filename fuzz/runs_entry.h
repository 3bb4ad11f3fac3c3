// Whole runs under hostile input: a configuration as the host initialises the module with
// it, then up to four runs, each with its own input values (any type, scalar or list, any
// length, missing, unresolvable, with a count that lies), with or without an input frame, an
// image mode and an output frame, and a re-read through "CommandFormatV2Ensure" before any
// run (the same text, the text cut short, or a second text). Every run must end with a
// status of the module's own, the end-of-run calls and a verdict that matches its status.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace fv2fuzz {

// The value that one input "inputN" carries in a run.
struct InputValues {
    enum Binding : uint8_t { kBound, kUnbound, kBoundToNoFrame, kBindingCount };
    // Bits of tables: the source frame tables that hold the value's key.
    enum Table : uint8_t {
        kIntScalar = 1,
        kIntList = 2,
        kFloatScalar = 4,
        kFloatList = 8,
        kStringScalar = 16,
        kStringList = 32,
        kAllTables = 63
    };
    uint8_t binding = kBound;
    uint8_t tables = 0;
    bool forceCount = false;  // the host reports count instead of the list's length
    int32_t count = 0;
    int32_t intScalar = 0;
    std::vector<int32_t> intList;
    uint32_t floatScalar = 0;  // bits
    std::vector<uint32_t> floatList;
    std::string stringScalar;
    std::vector<std::string> stringList;
};

struct RunStep {
    enum Reread : uint8_t { kNoReread, kSameText, kCutText, kSecondText, kRereadCount };
    uint8_t reread = kNoReread;  // before the run
    uint16_t cut = 0;            // kCutText keeps cut % (length + 1) bytes of the first text
    bool noInputFrame = false;
    bool noImgMode = false;
    bool noOutputFrame = false;
    int32_t imgMode = 0;              // 0 to 3
    std::vector<InputValues> inputs;  // input0, input1, ...; later inputs are not bound
};

struct RunPlan {
    std::string config;         // "algo_private.json" at initialisation (no NUL byte)
    std::string second;         // the file a kSecondText re-read writes (no NUL byte)
    std::vector<RunStep> runs;  // 1 to 4
};

// The input is the first text, a NUL byte, the second text, a NUL byte, then the runs.
RunPlan DecodeRunPlan(const uint8_t* data, size_t size);
std::string EncodeRunPlan(const RunPlan& plan);

void RunRunPlan(const RunPlan& plan);
// One fuzz input.
void RunRunsInput(const uint8_t* data, size_t size);
// Process calls made so far in this process: an input holds one to four runs, so the
// executions libFuzzer counts are not the number of whole runs.
uint64_t ProcessCalls();

}  // namespace fv2fuzz
