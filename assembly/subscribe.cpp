// Subscribed scalar values: each item reads the input at the run's input position, all of its
// elements ("*") or one of them, into the item's Value as a typed list.
#include <algorithm>

#include "assembly/assembly.h"

namespace formatv2 {
namespace {

template <typename T>
int Get(RunInputs& inputs, const std::string& name, int& count, std::vector<T>& list) {
    if constexpr (std::is_same_v<T, int>) return inputs.GetInts(name, count, list);
    if constexpr (std::is_same_v<T, float>) return inputs.GetFloats(name, count, list);
    if constexpr (std::is_same_v<T, std::string>) return inputs.GetStrings(name, count, list);
}

template <typename T>
const char* TypeName() {
    if constexpr (std::is_same_v<T, int>) return "int";
    if constexpr (std::is_same_v<T, float>) return "float";
    return "string";
}

// The three workers differ only in the element type and the host getter.
template <typename T>
int Fetch(RunInputs& inputs, const std::string& inputName, DataSection& section,
          const Logger& log) {
    // The list the item held is emptied and handed to the host to fill: its storage serves
    // again, where a new list would take a new heap block per item and run.
    std::vector<T> elements;
    if (section.Value.Is<std::vector<T>>()) {
        elements = std::move(section.Value.AnyCast<std::vector<T>>());
        elements.clear();
    }
    section.Value.reset();

    int count = 0;
    if (Get(inputs, inputName, count, elements) != 0) {
        log.Say<Msg::kFetchFailed>(inputName.c_str(), TypeName<T>());
        return kStatusNotDelivered;
    }

    const std::string& index = section.SubParam.index;
    if (index == "*") {
        section.Value = std::move(elements);
        return 0;
    }

    int number = 0;
    if (!ParseElementNumber(index, number)) {
        log.Say<Msg::kIndexNotNumber>(inputName.c_str(), index.c_str());
        return kStatusNotDelivered;
    }
    // The count is checked against the list really delivered, never only trusted. The
    // highest valid number is worked out in 64 bits: a host may report any count, INT_MIN too.
    const int available = std::min(count, static_cast<int>(elements.size()));
    if (number < 0 || number >= available) {
        log.Say<Msg::kIndexOutOfRange>(inputName.c_str(), number,
                                       static_cast<long long>(available) - 1);
        return kStatusNotDelivered;
    }
    // The chosen element becomes the delivered list's only one, and that list the value: no
    // second list is made.
    if (number != 0) elements.front() = std::move(elements[static_cast<size_t>(number)]);
    elements.resize(1);
    section.Value = std::move(elements);
    return 0;
}

}  // namespace

int FetchSubscribed(RunInputs& inputs, const std::string& inputName, ElementKind kind,
                    DataSection& section, const Logger& log) {
    switch (kind) {
        case ElementKind::kInt:
            return Fetch<int>(inputs, inputName, section, log);
        case ElementKind::kFloat:
            return Fetch<float>(inputs, inputName, section, log);
        case ElementKind::kString:
            return Fetch<std::string>(inputs, inputName, section, log);
        case ElementKind::kNone:
            break;
    }
    return 0;
}

int AssembleSubscribeData(RunInputs& inputs, const DYNAMIC_SUBSCRIBE_PARAM_LIST& table,
                          DataSection& section, int& inputIndex, const Logger& log) {
    const ElementKind kind = ElementKindOf(section.SubParam.type);
    // No worker for kNone: the item keeps the Value of its last run, which output combination
    // then publishes again (or refuses when there never was one).
    const int ret = kind == ElementKind::kNone
                        ? 0
                        : FetchSubscribed(inputs, InputName(table, inputIndex), kind, section, log);
    if (ret != 0) {
        const char* label = section.ShowValue_EN.c_str();
        if (kind == ElementKind::kInt) log.Say<Msg::kIntItemFailed>(label);
        if (kind == ElementKind::kFloat) log.Say<Msg::kFloatItemFailed>(label);
        if (kind == ElementKind::kString) log.Say<Msg::kStringItemFailed>(label);
    }
    ++inputIndex;
    return ret;
}

}  // namespace formatv2
