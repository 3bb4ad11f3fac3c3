// Array items: every field's list is read first, then the lists are laid out row by row
// (element 0 of every field, then element 1, ...) and every cell is formatted by its own
// formatter. Each cell is followed by its field's separator, except the very last one.
#include <algorithm>
#include <cstring>
#include <optional>

#include "assembly/element_kind.h"
#include "formatv2/formatv2.h"
#include "formatv2/module_log.h"
#include "host/zr_frame.h"

namespace {

constexpr int kErrUnresolved = kStatusBadArgument;
constexpr int kErrFieldRead = kStatusFieldRead;
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

// The item text, written into a string sized ahead rather than appended to: a cell and its
// separator are a few bytes each, and the library's general append costs more than copying
// them. The string grows by doubling when the room falls short, and is cut to what was
// written at the end.
class CellText {
  public:
    explicit CellText(size_t room) { text_.resize(room); }
    void Append(const std::string& piece) {
        const size_t n = piece.size();
        // Room for a whole block beyond the piece lets short pieces go as one fixed 16-byte
        // copy instead of a call. Reading 16 bytes of a piece stays inside its storage: a
        // short string keeps a 16-byte buffer, a longer one at least 17 bytes of heap.
        if (text_.size() - used_ < n + kBlock) {
            text_.resize(std::max(2 * text_.size(), used_ + n + kBlock));
        }
        char* out = &text_[0] + used_;
        if (n <= kBlock) {
            std::memcpy(out, piece.data(), kBlock);
        } else {
            std::memcpy(out, piece.data(), n);
        }
        used_ += n;
    }
    std::string Take() {
        text_.resize(used_);
        return std::move(text_);
    }

  private:
    static constexpr size_t kBlock = 16;
    std::string text_;
    size_t used_ = 0;
};

template <typename T>
std::unique_ptr<CFormatter> CellOf(const Any& list, size_t row, const std::string& format,
                                   const std::string& separator) {
    const std::vector<T>& values = list.Held<std::vector<T>>();  // the kind was told first
    if (row < values.size()) return createFormatter<T>(values[row], format, separator);
    return createFormatter<std::string>(std::string(), format, separator);
}

// A cell's formatter with the text it gave, made in place (never moved: moving a short text
// copies its bytes).
struct FormattedCell {
    explicit FormattedCell(std::unique_ptr<CFormatter> formatter)
        : cell(std::move(formatter)), text(cell->format()) {}
    std::unique_ptr<CFormatter> cell;
    std::string text;
};

}  // namespace

int CFormatV2Module::FormatSingleOutputArrayData(void* frame, int inputIndex,
                                                 const DataField& field, std::vector<Any>& lists,
                                                 int& count) {
    const std::string inputName = InputName(inputIndex);
    const ElementKind kind = ElementKindOf(field.SubParam.type);

    std::shared_ptr<CScFrame> source;
    std::string key;
    // A resolution without a frame is as good as none.
    if (ZR_M_Get_By_Map(frame, inputName, source, key) == 0 || !source) {
        FV2_ERR("get subscribe failed(%s), no data\r\n", inputName.c_str());
        return kErrUnresolved;
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
    if (!found) FV2_WARN("get subscribe failed(%s), no data\r\n", inputName.c_str());
    return 0;
}

int CFormatV2Module::AssembleArrayData(void* frame, DataSection& section, int& inputIndex) {
    const std::vector<DataField>& fields = section.Array;
    const size_t fieldCount = fields.size();
    std::string text;

    if (fieldCount > 0) {
        std::vector<Any> lists;
        lists.reserve(fieldCount);
        int count = 0;
        int rows = 0;
        for (size_t i = 0; i < fieldCount; ++i) {
            int ret = FormatSingleOutputArrayData(frame, inputIndex + static_cast<int>(i),
                                                  fields[i], lists, count);
            if (ret != 0) {
                FV2_ERR("get single array data err:0x%x\n", ret);
                return kErrFieldRead;
            }
            rows = std::max(rows, count);
        }
        inputIndex += static_cast<int>(fieldCount);

        // The element type of every field list, told once rather than per cell. Every list
        // holds one of the three element types: a field of no type reads as an empty text list.
        std::vector<ElementKind> kinds(fieldCount);
        // The text's room follows the cells that really hold an element (a short number
        // each) and the separators that every row carries, so a sparse layout, one long
        // field beside many empty ones, asks for no more than it will fill.
        size_t room = 0;
        for (size_t j = 0; j < fieldCount; ++j) {
            kinds[j] = lists[j].Is<IntList>()     ? ElementKind::kInt
                       : lists[j].Is<FloatList>() ? ElementKind::kFloat
                                                  : ElementKind::kString;
            room += ListLength(lists[j]) * kCellGuess +
                    static_cast<size_t>(rows) * fields[j].Separator.size();
        }
        CellText cells(room);

        // Each cell's formatter is made, asked for its text and released in turn: the text is
        // the same as from a list of all cells joined afterwards, without holding them all.
        // A cell's text is appended one cell late. A text just written a few bytes at a time
        // and read back at once as one block stalls the processor until the writes land;
        // formatting the next cell first gives them that time.
        static const std::string kNoSeparator;
        std::optional<FormattedCell> made[2];
        size_t k = 0;
        for (size_t r = 0; r < static_cast<size_t>(rows); ++r) {
            for (size_t j = 0; j < fieldCount; ++j, ++k) {
                const std::string& format = fields[j].SubParam.type;
                const bool last = (r + 1 == static_cast<size_t>(rows) && j + 1 == fieldCount);
                const std::string& separator = last ? kNoSeparator : fields[j].Separator;
                std::optional<FormattedCell>& cell = made[k & 1];
                cell.reset();  // its block serves the new cell
                switch (kinds[j]) {
                    case ElementKind::kInt:
                        cell.emplace(CellOf<int>(lists[j], r, format, separator));
                        break;
                    case ElementKind::kFloat:
                        cell.emplace(CellOf<float>(lists[j], r, format, separator));
                        break;
                    default:
                        cell.emplace(CellOf<std::string>(lists[j], r, format, separator));
                        break;
                }
                if (const std::optional<FormattedCell>& before = made[(k + 1) & 1]) {
                    cells.Append(before->text);
                    cells.Append(before->cell->m_strSeparator);
                }
            }
        }
        if (k > 0) {
            const FormattedCell& final = *made[(k - 1) & 1];
            cells.Append(final.text);
            cells.Append(final.cell->m_strSeparator);
        }
        text = cells.Take();
    }

    section.SubParam.type = "%s";
    // Moved, not copied: the text can be the largest thing a run makes.
    StringList value;
    value.push_back(std::move(text));
    section.Value = std::move(value);
    return 0;
}
