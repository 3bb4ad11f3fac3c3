// Printing what a session saw: aligned text for people (colour only on a terminal) or JSON
// with a stable schema for machines.
#pragma once

#include <string>
#include <vector>

#include "session.h"

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

    void Init(const InitReport& init);
    void Run(int index, const RunReport& run);
    // Why the configuration was refused, in words (check command).
    void Refusal(const std::vector<std::string>& sentences);
    void Finish();

  private:
    struct Json;
    Printer m_printer;
    std::unique_ptr<Json> m_json;
};

// Escapes control characters so that line breaks stay visible: \n, \r, \t, \xHH.
std::string Visible(const std::string& text);

}  // namespace preview
