// Array items: every field's list is read first, then the lists are laid out row by row
// (element 0 of every field, then element 1, ...) and every cell is formatted by its own
// formatter. Each cell is followed by its field's separator, except the very last one.
#include <algorithm>
#include <cstring>

#include "assembly/assembly.h"
#include "format/formatter.h"

namespace formatv2 {
namespace {

// Room reserved per cell that holds an element: a number of up to 12 characters. Longer
// cells (wide formats, texts) make the text grow as usual.
constexpr size_t kCellGuess = 12;
// The scalar entry, when there is one, is a list of one; else a non-empty list entry.
template <typename T>
bool ReadField(const std::string& key, const std::unordered_map<std::string, T>& scalars,
               const std::unordered_map<std::string, std::vector<T>>& lists, std::vector<T>& out) {
    auto scalar = scalars.find(key);
    if (scalar != scalars.end()) {
        out.assign(1, scalar->second);
        return true;
    }
    auto many = lists.find(key);
    if (many != lists.end() && !many->second.empty()) {
        out = many->second;
        return true;
    }
    return false;
}

// One cell: its value formatted by its field's parsed format, then the separator. A row past the
// end of the field's list gives an empty cell.
template <typename T>
void AppendCell(TextBuilder& text, const Any& list, size_t row, const ParsedFormat& parsed) {
    const std::vector<T>& values = list.Held<std::vector<T>>();  // the kind was told first
    if (row >= values.size()) return;
    if constexpr (std::is_same_v<T, int>) AppendInt(text, values[row], parsed);
    if constexpr (std::is_same_v<T, float>) AppendFloat(text, values[row], parsed);
    if constexpr (std::is_same_v<T, std::string>) text.Append(values[row]);
}

}  // namespace

int FormatSingleOutputArrayData(RunInputs& inputs, const std::string& inputName,
                                const DataField& field, std::vector<Any>& lists, int& count,
                                const Logger& log) {
    const ElementKind kind = ElementKindOf(field.SubParam.type);

    std::shared_ptr<CScFrame> source;
    std::string key;
    // A resolution without a frame is as good as none.
    if (!inputs.Resolve(inputName, source, key) || !source) {
        log.Say<Msg::kFieldUnresolved>(inputName.c_str());
        return kStatusBadArgument;
    }

    bool found = true;
    switch (kind) {
        case ElementKind::kInt: {
            IntList values;
            found = ReadField(key, source->IntTable, source->IntListTable, values);
            count = static_cast<int>(values.size());
            lists.emplace_back(std::move(values));
            break;
        }
        case ElementKind::kFloat: {
            FloatList values;
            found = ReadField(key, source->FloatTable, source->FloatListTable, values);
            count = static_cast<int>(values.size());
            lists.emplace_back(std::move(values));
            break;
        }
        case ElementKind::kString: {
            StringList values;
            found = ReadField(key, source->StringTable, source->StringListTable, values);
            count = static_cast<int>(values.size());
            lists.emplace_back(std::move(values));
            break;
        }
        case ElementKind::kNone:
            // A field of no element type still takes its place, as an empty list, so that
            // list j always belongs to field j.
            lists.emplace_back(StringList{});
            count = 0;
            return 0;
    }
    if (!found) log.Say<Msg::kFieldNoData>(inputName.c_str());
    return 0;
}

int AssembleArrayData(RunInputs& inputs, const DYNAMIC_SUBSCRIBE_PARAM_LIST& table,
                      DataSection& section, int& inputIndex, const Logger& log, Spans* cells) {
    const std::vector<DataField>& fields = section.Array;
    const size_t fieldCount = fields.size();
    std::string text;

    if (fieldCount > 0) {
        std::vector<Any> lists;
        lists.reserve(fieldCount);
        int count = 0;
        int rows = 0;
        for (size_t i = 0; i < fieldCount; ++i) {
            const int ret = FormatSingleOutputArrayData(
                inputs, InputName(table, inputIndex + static_cast<int>(i)), fields[i], lists, count,
                log);
            if (ret != 0) {
                log.Say<Msg::kFieldReadFailed>(ret);
                return kStatusFieldRead;
            }
            rows = std::max(rows, count);
        }
        inputIndex += static_cast<int>(fieldCount);

        text = ArrayText(fields, lists, static_cast<size_t>(rows), cells);
    }

    section.SubParam.type = "%s";
    // Moved, not copied: the text can be the largest thing a run makes.
    StringList value;
    value.push_back(std::move(text));
    section.Value = std::move(value);
    return 0;
}

std::string ArrayText(const std::vector<DataField>& fields, const std::vector<Any>& lists,
                      size_t rows, Spans* cells) {
    const size_t fieldCount = fields.size();
    // The element type and format of every field, told once rather than per cell; arrays of
    // more fields than kFewFields are rare enough to pay for lists of their own.
    constexpr size_t kFewFields = 16;
    ElementKind few[kFewFields];
    const ParsedFormat* fewSpecs[kFewFields];
    const bool isMany = fieldCount > kFewFields;
    std::vector<ElementKind> many(isMany ? fieldCount : 0);
    std::vector<const ParsedFormat*> manySpecs(isMany ? fieldCount : 0);
    ElementKind* kinds = isMany ? many.data() : few;
    const ParsedFormat** formats = isMany ? manySpecs.data() : fewSpecs;
    // A field whose format was not read from its format text (made by hand, not by the
    // configuration read) has it read here, once; the list stays empty, unallocated, when
    // every format was.
    std::vector<ParsedFormat> reread;
    // The text's room follows the cells that really hold an element (a short number
    // each) and the separators that every row carries, so a sparse layout, one long
    // field beside many empty ones, asks for no more than it will fill.
    size_t room = 0;
    for (size_t j = 0; j < fieldCount; ++j) {
        kinds[j] = lists[j].Is<IntList>()     ? ElementKind::kInt
                   : lists[j].Is<FloatList>() ? ElementKind::kFloat
                                              : ElementKind::kString;
        formats[j] = &fields[j].Format;
        if (fields[j].Format.text != fields[j].SubParam.type) {
            if (reread.empty()) reread.reserve(fieldCount);  // no move: formats point into it
            reread.push_back(ReadFormat(fields[j].SubParam.type));
            formats[j] = &reread.back();
        }
        room += ListLength(lists[j]) * kCellGuess + rows * fields[j].Separator.size();
    }
    TextBuilder text(room);

    for (size_t r = 0; r < rows; ++r) {
        for (size_t j = 0; j < fieldCount; ++j) {
            switch (kinds[j]) {
                case ElementKind::kInt:
                    AppendCell<int>(text, lists[j], r, *formats[j]);
                    break;
                case ElementKind::kFloat:
                    AppendCell<float>(text, lists[j], r, *formats[j]);
                    break;
                default:
                    AppendCell<std::string>(text, lists[j], r, *formats[j]);
                    break;
            }
            // Every cell but the very last is followed by its field's separator.
            if (r + 1 < rows || j + 1 < fieldCount) text.Append(fields[j].Separator);
            if (cells != nullptr) {
                // A cell beyond its field's list is written from no element.
                const size_t start = cells->empty() ? 0 : cells->back().end;
                const int element = r < ListLength(lists[j]) ? static_cast<int>(r) : -1;
                const Owner owner{-1, static_cast<int>(j), element};
                if (text.Size() > start) cells->push_back({start, text.Size(), owner});
            }
        }
    }
    return text.Take();
}

}  // namespace formatv2
