// Output assembly: what each kind of item holds in a run. A subscribed value is read from its
// input into a typed list; an array item reads one list per field and lays them out row by row
// as one text; a custom text and a line-break symbol hold their configured text. Each leaves
// its values in the item's Value. The host's inputs are reached through RunInputs, so the same
// code runs in the module, in tests and in tools.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "config/config_read.h"
#include "config/element_kind.h"
#include "config/item_model.h"
#include "contract/messages.h"
#include "contract/run_result.h"
#include "host/scframe.h"

namespace formatv2 {

// A run's inputs, by input name ("input" + N): the host's getters in the module.
class RunInputs {
  public:
    // 0 with count and the input's elements in list, or the host's non-zero code.
    virtual int GetInts(const std::string& input, int& count, std::vector<int>& list) = 0;
    virtual int GetFloats(const std::string& input, int& count, std::vector<float>& list) = 0;
    virtual int GetStrings(const std::string& input, int& count,
                           std::vector<std::string>& list) = 0;
    // The frame that carries the input's value and the value's key there; false when the
    // input cannot be resolved.
    virtual bool Resolve(const std::string& input, std::shared_ptr<CScFrame>& frame,
                         std::string& key) = 0;

  protected:
    ~RunInputs() = default;
};

// A subscribed-value item: the input at inputIndex read by the worker its conversion text
// selects (none: Value kept); inputIndex always advances by one. 0 or kStatusNotDelivered.
int AssembleSubscribeData(RunInputs& inputs, const DYNAMIC_SUBSCRIBE_PARAM_LIST& table,
                          DataSection& section, int& inputIndex, const Logger& log);
// The worker: Value emptied, then the input's elements ("*") or the one its index names.
int FetchSubscribed(RunInputs& inputs, const std::string& inputName, ElementKind kind,
                    DataSection& section, const Logger& log);

// An array item: every field's list read, then laid out as one text in Value; inputIndex
// advances by the number of fields. 0, kStatusFieldRead or kStatusIndex. With cells, the spans
// of the text's cells (each with its separator) are recorded there.
int AssembleArrayData(RunInputs& inputs, const DYNAMIC_SUBSCRIBE_PARAM_LIST& table,
                      DataSection& section, int& inputIndex, const Logger& log,
                      Spans* cells = nullptr);
// One field: its list appended to lists and its length in count. 0 or kStatusBadArgument.
int FormatSingleOutputArrayData(RunInputs& inputs, const std::string& inputName,
                                const DataField& field, std::vector<Any>& lists, int& count,
                                const Logger& log);
// lists[j] is field j's list (of ints, floats or texts; any other holder reads as texts);
// rows is the longest list's length, a shorter list giving empty cells beyond its end.
std::string ArrayText(const std::vector<DataField>& fields, const std::vector<Any>& lists,
                      size_t rows, Spans* cells = nullptr);

// Why the row whose first input is at inputIndex gave no values: what it asked of which input
// and what that input held. Reads the inputs again, logging nothing.
RowFailure ExplainRead(RunInputs& inputs, const DYNAMIC_SUBSCRIBE_PARAM_LIST& table,
                       const DataSection& section, int inputIndex, int status);

// Fixed texts: a custom text as typed, a symbol with its escapes turned into line breaks.
int AssembleCustomData(DataSection& section);
void AssembleSymbolData(DataSection& section);
// Replaces every occurrence of from, left to right, never searching inserted text again.
void SpecialCharReplace(std::string& text, const std::string& from, const std::string& to);

}  // namespace formatv2
