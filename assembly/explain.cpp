// Why a row gave no values, in the configuration's terms: what it asked of which input, and
// what the input held. Only a failed run asks, and only when its result is recorded, so the
// inputs are simply read again.
#include <cstring>
#include <string>

#include "assembly/assembly.h"

namespace formatv2 {
namespace {

template <typename T>
bool Holds(const std::unordered_map<std::string, T>& table, const std::string& key) {
    return table.find(key) != table.end();
}

template <typename T>
long long ListSize(const std::unordered_map<std::string, std::vector<T>>& table,
                   const std::string& key) {
    auto it = table.find(key);
    return it == table.end() ? -1 : static_cast<long long>(it->second.size());
}

// What the input holds: "int", "string list of 3", ... or "nothing"; with the list's length in
// length when it holds a list of the kind asked for.
std::string Held(RunInputs& inputs, const std::string& input, ElementKind asked,
                 long long& length) {
    std::shared_ptr<CScFrame> frame;
    std::string key;
    if (!inputs.Resolve(input, frame, key) || !frame) return "nothing";
    if (Holds(frame->IntTable, key)) return "int";
    if (Holds(frame->FloatTable, key)) return "float";
    if (Holds(frame->StringTable, key)) return "string";
    const struct {
        ElementKind kind;
        const char* name;
        long long size;
    } lists[] = {{ElementKind::kInt, "int", ListSize(frame->IntListTable, key)},
                 {ElementKind::kFloat, "float", ListSize(frame->FloatListTable, key)},
                 {ElementKind::kString, "string", ListSize(frame->StringListTable, key)}};
    for (const auto& list : lists) {
        if (list.size < 0) continue;
        if (list.kind == asked) length = list.size;
        return std::string(list.name) + " list of " + std::to_string(list.size);
    }
    return "nothing";
}

// A name of the table, which fills its whole field when it is as long.
template <size_t N>
std::string Text(const char (&field)[N]) {
    return std::string(field, strnlen(field, N));
}

const char* KindName(ElementKind kind) {
    switch (kind) {
        case ElementKind::kInt:
            return "int";
        case ElementKind::kFloat:
            return "float";
        case ElementKind::kString:
            return "string";
        case ElementKind::kNone:
            break;
    }
    return "";
}

}  // namespace

RowFailure ExplainRead(RunInputs& inputs, const DYNAMIC_SUBSCRIBE_PARAM_LIST& table,
                       const DataSection& section, int inputIndex, int status) {
    RowFailure why;
    why.status = status;
    why.step = "read";
    why.name = section.ParamName;
    const auto wired = [&table](int position) {
        if (position < 0 || position >= table.nNum) return std::string();
        const DYNAMIC_SUBSCRIBE_PARAM& entry = table.params[position];
        return Text(entry.pub.algo_name) + ":" + Text(entry.pub.param_name);
    };
    if (section.DataType == FORMAT_V2_DATA_ARRAY) {
        // The field whose input could not be resolved.
        for (size_t i = 0; i < section.Array.size(); ++i) {
            const std::string input = InputName(table, inputIndex + static_cast<int>(i));
            std::shared_ptr<CScFrame> frame;
            std::string key;
            if (inputs.Resolve(input, frame, key) && frame) continue;
            const DataField& field = section.Array[i];
            why.input = input;
            why.source = wired(inputIndex + static_cast<int>(i));
            why.subscription = field.SubParamStr;
            why.field = static_cast<int>(i);
            why.index = field.SubParam.index;
            why.expected = KindName(ElementKindOf(field.SubParam.type));
            why.came = "nothing";
            return why;
        }
        return why;
    }
    const ElementKind kind = ElementKindOf(section.SubParam.type);
    why.input = InputName(table, inputIndex);
    why.source = wired(inputIndex);
    why.subscription = section.SubParamStr;
    why.index = section.SubParam.index;
    why.expected = KindName(kind);
    long long length = -1;
    why.came = Held(inputs, why.input, kind, length);
    int number = 0;
    // The length matters only when the index was a number past the list's end.
    if (why.index != "*" && ParseElementNumber(why.index, number) && length >= 0 &&
        (number < 0 || number >= length)) {
        why.length = length;
    }
    return why;
}

}  // namespace formatv2
