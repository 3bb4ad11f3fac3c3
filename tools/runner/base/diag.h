// What the runner tells the user about files and about itself: reading files (or standard
// input) with the system's reason for a failure, positions of JSON syntax errors, and
// diagnostics on standard error in the compiler form "FILE: error: REASON" or
// "FILE:LINE:COL: error: REASON", coloured only on a terminal and never with NO_COLOR.
#pragma once

#include <cjson/cJSON.h>

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "analysis/wording.h"

namespace preview {

struct JsonDeleter {
    void operator()(cJSON* json) const { cJSON_Delete(json); }
};
using JsonPtr = std::unique_ptr<cJSON, JsonDeleter>;

// True when fd is a terminal and the NO_COLOR convention does not switch colour off.
bool ColourFor(int fd);

// Reads a whole file, or standard input for "-". On failure reason is the system's text
// (strerror), for example "No such file or directory".
bool ReadInput(const std::string& path, std::string& out, std::string& reason);

// The name a path is shown under: "<stdin>" for "-".
std::string DisplayName(const std::string& path);

// Where a JSON text stops parsing, and why, in words. Lines and columns count from 1;
// columns count characters (UTF-8 sequences as one).
struct JsonSyntax {
    size_t line = 1;
    size_t column = 1;
    std::string reason;
};
// errorAt: what cJSON_GetErrorPtr() gave (may be null or past the text).
JsonSyntax DescribeJsonError(const std::string& text, const char* errorAt);

enum class Severity { kError, kWarning, kNote };

// Writes "where: severity: message" on standard error.
class Diagnostics {
  public:
    explicit Diagnostics(bool colour) : m_colour(colour) {}
    void Say(Severity severity, const std::string& where, const std::string& message) const;

  private:
    bool m_colour;
};

// Reports are valid UTF-8 whatever the bytes they show: a byte that belongs to no well-formed
// UTF-8 sequence is written as \xHH in text and as the escape \udcHH in JSON strings (the byte
// as a lone low surrogate, Python's "surrogateescape"), so the byte can be recovered. Scenario
// files take the same JSON escape back (ReadByteEscapes).
enum class Escape { kText, kJson };
// The length of the well-formed UTF-8 sequence at text[at], or 0 when none starts there.
size_t Utf8Length(const std::string& text, size_t at);
std::string EscapeInvalidUtf8(const std::string& text, Escape style);
// A JSON text with each \udcHH (HH 80 to FF) inside its strings turned back into the byte.
std::string ReadByteEscapes(const std::string& json);

// printf to standard output through EscapeInvalidUtf8 and WriteOutput.
void Print(const char* format, ...) __attribute__((format(printf, 1, 2)));
// Writes to standard output. The system's reason for the first write that fails is kept: later
// calls (or the buffer dropped by the failed write) would leave errno saying something else.
void WriteOutput(const std::string& text);
// Flushes standard output; false with the system's reason when something written to it was
// lost.
bool FlushOutput(std::string& reason);

// The closest of the candidates to word (letter case ignored, at most two edits), or "".
using formatv2::ClosestWord;
// "; did you mean "close"?" to end a message with, or "" when nothing is close.
std::string DidYouMean(const std::string& close);

}  // namespace preview
