// Subscribed scalar values: each item reads the input at the run's input position, all of its
// elements ("*") or one of them, into the item's Value as a typed list.
#include <algorithm>

#include "assembly/element_kind.h"
#include "formatv2/formatv2.h"
#include "formatv2/module_log.h"
#include "host/zr_frame.h"

namespace {

constexpr int kErrNotDelivered = kStatusNotDelivered;

}  // namespace

// The three workers differ only in the element type and the host getter.
template <typename T, typename Getter>
static int FetchSubscribed(CFormatV2Module& module, void* frame, DataSection& section,
                           const std::string& inputName, Getter getter, const char* typeName) {
    const int ModuleId = module.ModuleId;  // read by the log macros
    // The list the item held is emptied and handed to the host to fill: its storage serves
    // again, where a new list would take a new heap block per item and run.
    std::vector<T> elements;
    if (section.Value.Is<std::vector<T>>()) {
        elements = std::move(section.Value.AnyCast<std::vector<T>>());
        elements.clear();
    }
    section.Value.reset();

    int count = 0;
    T single{};
    if (getter(frame, inputName, count, single, elements) != 0) {
        FV2_ERR("get subsribe[%s] %s data err.\n", inputName.c_str(), typeName);
        return kErrNotDelivered;
    }

    const std::string& index = section.SubParam.index;
    if (index == "*") {
        section.Value = std::move(elements);
        return 0;
    }

    int number = 0;
    if (!ParseElementNumber(index, number)) {
        FV2_ERR("Sunscribe data [%s], index [%s] is not a number\n", inputName.c_str(),
                index.c_str());
        return kErrNotDelivered;
    }
    // The count is checked against the list really delivered, never only trusted. The
    // highest valid number is worked out in 64 bits: a host may report any count, INT_MIN too.
    const int available = std::min(count, static_cast<int>(elements.size()));
    if (number < 0 || number >= available) {
        FV2_ERR("Sunscribe data [%s], index [%d] out of range [%lld]\n", inputName.c_str(), number,
                static_cast<long long>(available) - 1);
        return kErrNotDelivered;
    }
    // The chosen element becomes the delivered list's only one, and that list the value: no
    // second list is made.
    if (number != 0) elements.front() = std::move(elements[static_cast<size_t>(number)]);
    elements.resize(1);
    section.Value = std::move(elements);
    return 0;
}

int CFormatV2Module::FormatOutputByInt(void* frame, DataSection& section, int& inputIndex) {
    return FetchSubscribed<int>(*this, frame, section, InputName(inputIndex), ZR_M_GetInt_Dynamic,
                                "int");
}

int CFormatV2Module::FormatOutputByFloat(void* frame, DataSection& section, int& inputIndex) {
    return FetchSubscribed<float>(*this, frame, section, InputName(inputIndex),
                                  ZR_M_GetFloat_Dynamic, "float");
}

int CFormatV2Module::FormatOutputByString(void* frame, DataSection& section, int& inputIndex) {
    return FetchSubscribed<std::string>(*this, frame, section, InputName(inputIndex),
                                        ZR_M_GetString_Dynamic, "string");
}

int CFormatV2Module::AssembleSubscribeData(void* frame, DataSection& section, int& inputIndex) {
    int ret = 0;
    switch (ElementKindOf(section.SubParam.type)) {
        case ElementKind::kInt:
            ret = FormatOutputByInt(frame, section, inputIndex);
            if (ret != 0) FV2_ERR("get %s output by int err\n", section.ShowValue_EN.c_str());
            break;
        case ElementKind::kFloat:
            ret = FormatOutputByFloat(frame, section, inputIndex);
            if (ret != 0) FV2_ERR("get %s output by float err\n", section.ShowValue_EN.c_str());
            break;
        case ElementKind::kString:
            ret = FormatOutputByString(frame, section, inputIndex);
            if (ret != 0) FV2_ERR("get %s output by string err\n", section.ShowValue_EN.c_str());
            break;
        case ElementKind::kNone:
            // No worker: the item keeps the Value of its last run, which output combination
            // then publishes again (or refuses when there never was one).
            break;
    }
    ++inputIndex;
    return ret;
}
