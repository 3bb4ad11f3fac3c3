// Drives one module the way the host does: loads libformatv2.so with dlopen, creates the
// module, gives it a working directory, initialises it, wires its dynamic subscriptions to
// publisher frames and calls Process once per run.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "analysis/wording.h"
#include "contract/run_result.h"
#include "drive/scenario.h"
#include "drive/told.h"
#include "host/host_types.h"
#include "host/standin/standin.h"
#include "publish/dynamic_pub.h"
#include "record/record.h"

class CAbstractUserModule;

namespace preview {

struct LogLine {
    int level = 0;
    std::string text;
};

struct Tables {
    std::vector<DYNAMIC_SUBSCRIBE_PARAM> subscriptions;
    std::vector<DYNAMIC_PUBLISH_PARAM> publications;
};

struct Output {
    std::string name;
    Value value;
};

struct RunReport {
    std::string name;
    std::optional<int> paramStatus;  // when the run set a parameter
    std::optional<Tables> tables;    // when the parameter re-read the configuration
    // Values given for the run that no subscription read, skipped because the configuration
    // in force was refused.
    std::vector<std::string> skippedValues;
    int status = 0;
    std::string verdict;
    std::string showTextCn;
    std::string showTextEn;
    std::vector<Output> outputs;
    // Every output name of the publish tables read so far in the session (the first read and
    // the re-reads), in the order first seen.
    std::vector<std::string> outputNames;
    std::vector<DynamicPub> dynamicPub;
    std::vector<standin::ResultCall> resultCalls;
    std::vector<LogLine> log;
    // What the run did, row by row and byte by byte, as the module told it; none from a
    // module library that cannot tell.
    std::optional<formatv2::RunResult> result;
    Explanation explanation;  // why the run failed; empty when it did not, or cannot be told
    double seconds = 0;       // wall-clock time of the run's steps
};

struct InitReport {
    int status = 0;
    Tables tables;
    std::vector<LogLine> log;
};

// The loaded module library and one module object created from it.
class Session {
  public:
    Session();
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    // Loads the library. Every log line from Info up is collected; the commands choose what
    // they show.
    bool Open(const std::string& library, std::string& error);
    // Creates the module in a fresh working directory holding configText, and initialises it.
    bool Init(const Scenario& scenario, InitReport& report, std::string& error);
    // Before Init: the module records its runs as the settings text of a formatv2_record.json
    // asks, the file placed in its working directory as on a device.
    void RecordAs(std::string settings) { m_recordSettings = std::move(settings); }
    // One run; false (with error) when the scenario names a value that no subscription of an
    // accepted configuration reads.
    bool Run(const RunSpec& plan, RunReport& report, std::string& error);

  private:
    struct Library;
    std::unique_ptr<Library> m_library;
    std::string m_workDir;
    CAbstractUserModule* m_module = nullptr;
    Tables m_tables;
    std::vector<std::string> m_outputNames;  // RunReport::outputNames
    bool m_accepted = false;                 // whether the configuration in force was accepted
    std::string m_recordSettings;            // formatv2_record.json's text; "" for none

    Tables ReadTables();
    bool WriteConfig(const std::string& text);
    void SetParam(const RunSpec& plan, RunReport& report);
    bool Wire(const RunSpec& plan, standin::InputHandle& input, RunReport& report,
              std::string& error);
    void WireRecorded(const formatv2::record::Run& run, standin::InputHandle& input);
    void Collect(CScFrame& out, RunReport& report) const;
};

// A recorded table entry as a scenario value, and its number of elements.
Value ValueOf(const formatv2::record::Entry& entry);
size_t ElementCount(const formatv2::record::Entry& entry);

// A status in words.
using formatv2::StatusMeaning;

}  // namespace preview
