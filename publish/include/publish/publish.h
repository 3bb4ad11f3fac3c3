// Dynamic publishing: the table of outputs the module may publish, and per run the items'
// values converted to their published types and written into the output frame (one output
// per item, or all joined into one text), with the display texts growing by each value.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "config/item_model.h"
#include "contract/messages.h"
#include "contract/run_result.h"
#include "host/scframe.h"
#include "publish/dynamic_pub.h"

namespace formatv2 {

// Appends the joined output's record and one per item to a table that holds the host's own
// entries. 0, or kStatusBadArgument (logged, the table emptied) when they do not all fit: an
// output is never dropped in silence.
int BuildPublishTable(const std::vector<DataSection>& items, const std::string& paramName,
                      int strConcateEnable, DYNAMIC_PUBLISH_PARAM_LIST& table, const Logger& log);

// What a run records of its texts when a caller asked for it: the run's result, and the spans
// of the texts still growing.
struct Recording {
    RunResult& result;
    Spans display;  // the display texts (both are written alike)
    Spans joined;   // the joined text
};

// What a run publishes from, and the texts it builds: the module's own members.
struct Publication {
    const std::vector<DataSection>& items;
    int strConcateEnable;
    const std::string& paramName;  // the joined output's name
    std::string& concatText;
    std::string& showTextCn;
    std::string& showTextEn;
    Logger log;
    Recording* record = nullptr;  // null: nothing recorded
};

// Every value of every item converted and sent, each output listed under "DynamicPub", and the
// joined text published in concatenation mode. 0 or the first code met.
int CombineSubOutputValue(Publication& run, std::shared_ptr<CScFrame>& frame);
// One value of item, at its place index in the item's list: 0, kStatusNotConvertible or
// kStatusIndex.
template <typename T>
int ConvertAndSendOutputValue(Publication& run, std::shared_ptr<CScFrame>& frame,
                              const DataSection& item, const T& value, int index);

// The cut of a text value: the part from start with at most length characters. False, with the
// text emptied, when start lies outside the text or length is negative.
bool TruncateText(std::string& text, long long start, long long length);

// Spans, each appended after the last one; neighbours of one owner merge.
void AddSpan(Spans& spans, size_t length, const Owner& owner);
void AddSpans(Spans& spans, const Spans& more);
// The spans of bytes [start, start + length) of a text, counted from that text's start.
Spans CutSpans(const Spans& spans, size_t start, size_t length);
// The spans once the ranges [first, second) are removed from the text; ranges in order.
Spans RemoveRanges(const Spans& spans, const std::vector<std::pair<size_t, size_t>>& removed);

// Whether a text value converts to the published type of "ConvertType" convertType as a run
// converts it (a text target always does).
bool TextConverts(const std::string& text, int convertType);

}  // namespace formatv2
