// Typed conversion and sending of one value of an item: the value becomes the item's published
// type, a text is cut, decorated and cleaned, and the result goes into the output frame's list
// table under the item's name (or onto the joined text), and into the display texts.
//
// The conversion itself is guarded: std::stoi and std::stof failures, values out of range, a
// missing frame and memory exhaustion there end in the conversion failure code. For a text
// target only making the text is the conversion; memory exhausted while cutting, decorating or
// storing it propagates to the run driver, which ends the run with its own status.
#include <algorithm>
#include <climits>
#include <cmath>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "config/element_kind.h"
#include "contract/guard.h"
#include "format/formatter.h"
#include "publish/publish.h"

namespace formatv2 {
namespace {

// The conversions throw (std::stoi, std::stof, allocation); the caller turns that into the
// failure of the conversion.
int ToInt(int value) {
    return value;
}
int ToInt(float value) {
    if (std::isnan(value)) return 0;
    if (value >= 2147483648.0f) return INT_MAX;
    if (value <= -2147483648.0f) return INT_MIN;
    return static_cast<int>(value);
}
int ToInt(const std::string& value) {
    return std::stoi(value);
}

float ToFloat(int value) {
    return static_cast<float>(value);
}
float ToFloat(float value) {
    return value;
}
float ToFloat(const std::string& value) {
    return std::stof(value);
}

// Formatted by the item's parsed format, read with the configuration.
std::string ToText(int value, const DataSection& item) {
    ParsedFormat scratch;
    return FormatInt(value, ParsedFor(item.Format, item.SubParam.type, scratch));
}
std::string ToText(float value, const DataSection& item) {
    ParsedFormat scratch;
    return FormatFloat(value, ParsedFor(item.Format, item.SubParam.type, scratch));
}
// The copy has room for the item's prefix and suffix from the start: an array item's text
// can be long, and decorating an exact-size copy would copy it all once more.
std::string ToText(const std::string& value, const DataSection& item) {
    std::string text;
    text.reserve(value.size() + item.StrPrefix.size() + item.StrSuffix.size());
    text.append(value);
    return text;
}

// The list stored under name in table; a missing frame fails like a failed store.
template <typename Table>
auto& ListOf(const std::shared_ptr<CScFrame>& frame, Table CScFrame::*table,
             const std::string& name) {
    if (!frame) throw std::invalid_argument("no output frame");
    return ((*frame).*table)[name];
}

// An index inside the stored list overwrites its element; any other index, negative ones
// included, appends. A list still empty is first given room for all the item's values, which
// all go to it, so that it is sized once instead of growing step by step.
// Returns the stored element.
template <typename T, typename V>
const T& StoreAt(std::vector<T>& list, V&& value, int index, const DataSection& item) {
    if (index >= 0 && static_cast<size_t>(index) < list.size()) {
        return list[static_cast<size_t>(index)] = std::forward<V>(value);
    }
    if (list.empty()) list.reserve(ListLength(item.Value));
    list.push_back(std::forward<V>(value));
    return list.back();
}

// Removing a match and searching on from the removal point never looks back at what came
// before it, so the result is the text with every leftmost non-overlapping match removed.
// One pass compacts the text in place: no second buffer, and no shifting of the tail once
// per match. With removed, each match's range in the text as it was is added to it.
void DeleteAll(std::string& text, const std::string& pattern,
               std::vector<std::pair<size_t, size_t>>* removed) {
    size_t at = text.find(pattern);
    if (at == std::string::npos) return;
    char* data = &text[0];
    size_t kept = at;  // the compacted text's length so far; always before from
    size_t from = at + pattern.size();
    if (removed != nullptr) removed->emplace_back(at, from);
    while ((at = text.find(pattern, from)) != std::string::npos) {
        std::copy(data + from, data + at, data + kept);
        kept += at - from;
        from = at + pattern.size();
        if (removed != nullptr) removed->emplace_back(at, from);
    }
    std::copy(data + from, data + text.size(), data + kept);
    text.resize(kept + (text.size() - from));
}

// The row of item in the run's list; -1 for an item from elsewhere.
int RowOf(const Publication& run, const DataSection& item) {
    const DataSection* first = run.items.data();
    if (&item < first || &item >= first + run.items.size()) return -1;
    return static_cast<int>(&item - first);
}

// The element of the input's list that the value at index came from; -1 for fixed texts and
// array texts, whose cells carry their own.
int ElementOf(const DataSection& item, int index) {
    if (item.DataType != FORMAT_V2_DATA_SUBSCRIBE || item.SubParam.index == "*") {
        return item.DataType == FORMAT_V2_DATA_SUBSCRIBE ? index : -1;
    }
    int number = index;
    return ParseElementNumber(item.SubParam.index, number) ? number : index;
}

// The spans of a value of size bytes as it comes to be published: an array row's cells, or
// the value whole.
Spans ValueSpans(Recording& record, int row, const DataSection& item, int index, size_t size) {
    std::vector<RowResult>& rows = record.result.rows;
    if (item.DataType == FORMAT_V2_DATA_ARRAY && row >= 0 &&
        static_cast<size_t>(row) < rows.size()) {
        // Taken over: an array row has one value, and its cells can be thousands.
        Spans cells = std::move(rows[static_cast<size_t>(row)].cells);
        if (!cells.empty() && cells.back().end == size) {
            for (Span& cell : cells) cell.owner.row = row;
            return cells;
        }
    }
    Spans spans;
    AddSpan(spans, size, {row, -1, ElementOf(item, index)});
    return spans;
}

// A value that could not be converted to the row's published type.
template <typename T>
void RecordFailure(Recording* record, int row, const DataSection& item, const T& value,
                   int status) {
    if (record == nullptr || row < 0 || static_cast<size_t>(row) >= record->result.rows.size()) {
        return;
    }
    RowResult& result = record->result.rows[static_cast<size_t>(row)];
    result.outcome = RowOutcome::kFailed;
    result.failure.status = status;
    result.failure.step = "convert";
    result.failure.name = item.ParamName;
    result.failure.expected = GetVariateTypeStr(item.ConvertType);
    if constexpr (std::is_same_v<T, std::string>) {
        result.failure.value = value;
    } else {
        result.failure.value = std::to_string(value);
    }
}

// The text value stored at position in output: its entry, replaced when the value was
// overwritten.
void RecordValue(Recording& record, const std::string& output, int position, Spans spans,
                 bool overwrote) {
    std::vector<TextProvenance>& texts = record.result.texts;
    if (overwrote) {
        for (TextProvenance& text : texts) {
            if (text.output == output && text.value == position) {
                text.spans = std::move(spans);
                return;
            }
        }
    }
    texts.push_back({output, position, std::move(spans)});
}

}  // namespace

bool TruncateText(std::string& text, long long start, long long length) {
    if (start < 0 || start >= static_cast<long long>(text.size()) || length < 0) {
        text.clear();
        return false;
    }
    text.erase(0, static_cast<size_t>(start));
    if (text.size() > static_cast<size_t>(length)) text.resize(static_cast<size_t>(length));
    return true;
}

bool TextConverts(const std::string& text, int convertType) {
    switch (convertType) {
        case FORMAT_V2_VARIATE_INT:
            return Guarded([&] { ToInt(text); });
        case FORMAT_V2_VARIATE_FLOAT:
            return Guarded([&] { ToFloat(text); });
        default:
            return true;
    }
}

template <typename T>
int ConvertAndSendOutputValue(Publication& run, std::shared_ptr<CScFrame>& frame,
                              const DataSection& item, const T& value, int index) {
    const int row = run.record != nullptr ? RowOf(run, item) : -1;
    const auto show = [&run, &item, row, index](const std::string& text) {
        run.showTextEn.append(text).append(1, ' ');
        run.showTextCn.append(text).append(1, ' ');
        if (run.record != nullptr)
            AddSpan(run.record->display, text.size() + 1, {row, -1, ElementOf(item, index)});
    };

    switch (item.ConvertType) {
        case FORMAT_V2_VARIATE_INT:
            if (!Guarded([&] {
                    const int number = ToInt(value);
                    StoreAt(ListOf(frame, &CScFrame::IntListTable, item.ParamName), number, index,
                            item);
                    show(std::to_string(number));
                })) {
                run.log.Say<Msg::kIntConvertFailed>(item.ParamName.c_str());
                RecordFailure(run.record, row, item, value, kStatusNotConvertible);
                return kStatusNotConvertible;
            }
            return 0;

        case FORMAT_V2_VARIATE_FLOAT:
            if (!Guarded([&] {
                    const float number = ToFloat(value);
                    StoreAt(ListOf(frame, &CScFrame::FloatListTable, item.ParamName), number, index,
                            item);
                    show(FloatToStringGeneral(number, 6));
                })) {
                run.log.Say<Msg::kFloatConvertFailed>(item.ParamName.c_str());
                RecordFailure(run.record, row, item, value, kStatusNotConvertible);
                return kStatusNotConvertible;
            }
            return 0;

        case FORMAT_V2_VARIATE_STRING: {
            // Only making the text is the conversion; what follows (cutting, decorating,
            // storing) is ordinary run work, and whatever it throws ends the run instead.
            std::string text;
            if (!Guarded([&] { text = ToText(value, item); })) {
                run.log.Say<Msg::kStringConvertFailed>(item.ParamName.c_str());
                RecordFailure(run.record, row, item, value, kStatusNotConvertible);
                return kStatusNotConvertible;
            }
            // The value's spans go through each step its bytes go through.
            Recording* const record = run.record;
            Spans spans;
            if (record != nullptr) spans = ValueSpans(*record, row, item, index, text.size());

            if (item.StrTruncEnable != 0) {
                const bool cut = TruncateText(text, item.StrTruncStart, item.StrTruncLen);
                if (record != nullptr) {
                    spans = cut ? CutSpans(spans, static_cast<size_t>(item.StrTruncStart),
                                           static_cast<size_t>(item.StrTruncLen))
                                : Spans{};
                }
                if (!cut) {
                    run.log.Say<Msg::kTruncationEmpty>(item.SubParamStr.c_str(), item.StrTruncStart,
                                                       item.StrTruncLen);
                }
            }

            // Decorated in place: an array item's text can be megabytes long.
            text.insert(0, item.StrPrefix).append(item.StrSuffix);
            std::vector<std::pair<size_t, size_t>> removed;
            if (!item.StrDelete.empty()) {
                DeleteAll(text, item.StrDelete, record != nullptr ? &removed : nullptr);
            }
            if (record != nullptr && !item.StrPrefix.empty()) {
                Spans decorated;
                decorated.reserve(spans.size() + 2);
                AddSpan(decorated, item.StrPrefix.size(), {row, -1, -1});
                AddSpans(decorated, spans);
                spans = std::move(decorated);
            }
            if (record != nullptr) {
                AddSpan(spans, item.StrSuffix.size(), {row, -1, -1});
                if (!removed.empty()) spans = RemoveRanges(spans, removed);
            }

            if (run.strConcateEnable != 0) {
                run.concatText += text;
                if (record != nullptr) AddSpans(record->joined, spans);
                return 0;
            }
            if (!frame) {
                // No output frame to store into: the value cannot be published.
                run.log.Say<Msg::kStringConvertFailed>(item.ParamName.c_str());
                RecordFailure(run.record, row, item, value, kStatusNotConvertible);
                return kStatusNotConvertible;
            }
            StringList& list = frame->StringListTable[item.ParamName];
            const bool overwrote = index >= 0 && static_cast<size_t>(index) < list.size();
            const std::string& stored = StoreAt(list, std::move(text), index, item);
            // A lone carriage return is a line-break symbol: kept in the output, not shown.
            if (stored != "\r") {
                run.showTextEn.append(stored).append(1, ' ');
                run.showTextCn.append(stored).append(1, ' ');
            }
            if (record != nullptr) {
                if (stored != "\r") {
                    // The blank after a value belongs to the value's last byte.
                    AddSpans(record->display, spans);
                    AddSpan(record->display, 1,
                            spans.empty() ? Owner{row, -1, ElementOf(item, index)}
                                          : spans.back().owner);
                }
                RecordValue(*record, item.ParamName, static_cast<int>(&stored - list.data()),
                            std::move(spans), overwrote);
            }
            return 0;
        }

        default:
            run.log.Say<Msg::kUnknownConvertType>();
            return kStatusIndex;
    }
}

template int ConvertAndSendOutputValue<int>(Publication&, std::shared_ptr<CScFrame>&,
                                            const DataSection&, const int&, int);
template int ConvertAndSendOutputValue<float>(Publication&, std::shared_ptr<CScFrame>&,
                                              const DataSection&, const float&, int);
template int ConvertAndSendOutputValue<std::string>(Publication&, std::shared_ptr<CScFrame>&,
                                                    const DataSection&, const std::string&, int);

}  // namespace formatv2
