// What one run did, told in the configuration's terms for tools that show it (the preview
// runner): each row's outcome and, for every published text and display text, which row, field
// and element wrote which bytes. The host never sees it; the module keeps it only when a caller
// has asked for it (FormatV2RecordRuns), so that runs on a device pay nothing for it.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace formatv2 {

// Who wrote a byte: a row of "SubParamList", a field of its "Array", an element of the list the
// value came from. -1 stands for none: the label of the joined display text has no row, a
// prefix no element.
struct Owner {
    int row = -1;
    int field = -1;
    int element = -1;
};

inline bool operator==(const Owner& a, const Owner& b) {
    return a.row == b.row && a.field == b.field && a.element == b.element;
}

// Bytes [begin, end) of a text.
struct Span {
    size_t begin = 0;
    size_t end = 0;
    Owner owner;
};

// A text's spans: in order, contiguous from 0, each byte in exactly one.
using Spans = std::vector<Span>;

// One published text value ("value" is its place in the output's list; 0 for a single text)
// or one display text (output "show_text_en" or "show_text_cn").
struct TextProvenance {
    std::string output;
    int value = 0;
    Spans spans;
};

enum class RowOutcome {
    kNotReached,  // an earlier row ended the run
    kGave,        // its values were read (or are fixed texts) and published
    kKept,        // no value type: the values of an earlier run were published again
    kFailed,
};

// Why a row gave no values.
struct RowFailure {
    int status = 0;            // the run's status
    std::string step;          // "read" (from its input), "convert" (to its published type) or
                               // "value" (no value type, and no earlier run gave a value)
    std::string name;          // the row's "ParamName"
    std::string input;         // the input read, "input" + N
    std::string source;        // what the input is wired to, "publisher:output"
    std::string subscription;  // the subscription text of the row, or of the field
    int field = -1;            // the field of "Array", for an array row
    std::string index;         // the element asked for ("*" for all)
    std::string expected;      // the element type read: "int", "float" or "string"
    std::string came;          // what the input held: "int list of 3 elements", "nothing", ...
    long long length = -1;     // the elements delivered, when the index lies past them
    std::string value;         // a value that did not convert, as text
};

struct RowResult {
    RowOutcome outcome = RowOutcome::kNotReached;
    RowFailure failure;  // for kFailed
    // An array row's text as assembled: the spans of its cells, before the row's cut, prefix,
    // suffix and deletion apply; the publishing of the text takes them over.
    Spans cells;
};

struct RunResult {
    int status = 0;
    std::vector<RowResult> rows;  // one per row of "SubParamList", in order
    std::vector<TextProvenance> texts;
};

}  // namespace formatv2
