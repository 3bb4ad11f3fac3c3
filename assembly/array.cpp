// Array items: every field's list is read first, then the lists are laid out row by row
// (element 0 of every field, then element 1, ...) and every cell is formatted by its own
// formatter. Each cell is followed by its field's separator, except the very last one.
#include <algorithm>

#include "assembly/element_kind.h"
#include "formatv2/formatv2.h"
#include "formatv2/module_log.h"
#include "host/zr_frame.h"

namespace {

constexpr int kErrUnresolved = static_cast<int>(0xE0000001);
constexpr int kErrUnexpectedList = static_cast<int>(0xE000030F);
constexpr int kErrFieldRead = static_cast<int>(0xE0000315);

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

template <typename T>
std::unique_ptr<CFormatter> CellOf(const Any& list, size_t row, const std::string& format,
                                   const std::string& separator) {
    const auto& values = static_cast<const Any::Derived<std::vector<T>>*>(list.holder.get())->value;
    if (row < values.size()) return createFormatter<T>(values[row], format, separator);
    return createFormatter<std::string>(std::string(), format, separator);
}

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

        // The element type of every field list, told once rather than per cell.
        std::vector<ElementKind> kinds(fieldCount, ElementKind::kNone);
        for (size_t j = 0; j < fieldCount; ++j) {
            const Any& list = lists[j];
            kinds[j] = list.Is<IntList>()      ? ElementKind::kInt
                       : list.Is<FloatList>()  ? ElementKind::kFloat
                       : list.Is<StringList>() ? ElementKind::kString
                                               : ElementKind::kNone;
            if (rows > 0 && kinds[j] == ElementKind::kNone) {
                FV2_ERR("no such typeid!!!\n");
                return kErrUnexpectedList;
            }
        }

        // Each cell's formatter is made, asked for its text and released in turn: the text is
        // the same as from a list of all cells joined afterwards, without holding them all.
        static const std::string kNoSeparator;
        // A guess that spares most regrowth: a short number and a separator per cell.
        text.reserve(static_cast<size_t>(rows) * fieldCount * 12);
        for (size_t r = 0; r < static_cast<size_t>(rows); ++r) {
            for (size_t j = 0; j < fieldCount; ++j) {
                const std::string& format = fields[j].SubParam.type;
                const bool last = (r + 1 == static_cast<size_t>(rows) && j + 1 == fieldCount);
                const std::string& separator = last ? kNoSeparator : fields[j].Separator;
                std::unique_ptr<CFormatter> cell;
                switch (kinds[j]) {
                    case ElementKind::kInt:
                        cell = CellOf<int>(lists[j], r, format, separator);
                        break;
                    case ElementKind::kFloat:
                        cell = CellOf<float>(lists[j], r, format, separator);
                        break;
                    default:
                        cell = CellOf<std::string>(lists[j], r, format, separator);
                        break;
                }
                text += cell->format();
                text += cell->m_strSeparator;
            }
        }
    }

    section.SubParam.type = "%s";
    section.Value = StringList{std::move(text)};
    return 0;
}
