// Frame accessors: the opaque run handles are the stand-in's InputHandle and OutputHandle.
#include "host/zr_frame.h"
#include "state.h"

using standin::Call;
using standin::InputHandle;

std::shared_ptr<CScFrame> ZR_M_Get_Frame_ByID(void* input, int) {
    if (input == nullptr) return nullptr;
    return static_cast<InputHandle*>(input)->frame;
}

std::shared_ptr<CScFrame> ZR_M_Get_Frame_ByHOutput(void* output) {
    if (output == nullptr) return nullptr;
    return static_cast<standin::OutputHandle*>(output)->frame;
}

int ZR_M_Get_By_Map(const void* input, const std::string& name, std::shared_ptr<CScFrame>& frame,
                    std::string& key) {
    if (standin::failure(Call::kGetByMap) != 0 || input == nullptr) return 0;
    const auto* handle = static_cast<const InputHandle*>(input);
    auto it = handle->inputs.find(name);
    if (it == handle->inputs.end()) return 0;
    frame = it->second.frame;
    key = it->second.key;
    return 1;
}

namespace {

// A scalar entry gives one element, else the list entry gives all of its elements.
template <typename T>
int GetDynamic(Call op, void* input, const std::string& name, int& count, T& value,
               std::vector<T>& list, std::unordered_map<std::string, T> CScFrame::*scalars,
               std::unordered_map<std::string, std::vector<T>> CScFrame::*lists) {
    if (int code = standin::failure(op)) return code;
    if (input == nullptr) return standin::kErrNotFound;
    auto* handle = static_cast<InputHandle*>(input);
    auto it = handle->inputs.find(name);
    if (it == handle->inputs.end() || !it->second.frame) return standin::kErrNotFound;
    CScFrame& source = *it->second.frame;
    const std::string& key = it->second.key;
    auto scalar = (source.*scalars).find(key);
    if (scalar != (source.*scalars).end()) {
        value = scalar->second;
        list.assign(1, scalar->second);
    } else {
        auto many = (source.*lists).find(key);
        if (many == (source.*lists).end()) return standin::kErrNotFound;
        list = many->second;
    }
    count = static_cast<int>(list.size());
    auto forced = handle->countOverride.find(name);
    if (forced != handle->countOverride.end()) count = forced->second;
    return 0;
}

}  // namespace

int ZR_M_GetInt_Dynamic(void* input, const std::string& name, int& count, int& value,
                        std::vector<int>& list) {
    return GetDynamic(Call::kGetIntDynamic, input, name, count, value, list, &CScFrame::IntTable,
                      &CScFrame::IntListTable);
}

int ZR_M_GetFloat_Dynamic(void* input, const std::string& name, int& count, float& value,
                          std::vector<float>& list) {
    return GetDynamic(Call::kGetFloatDynamic, input, name, count, value, list,
                      &CScFrame::FloatTable, &CScFrame::FloatListTable);
}

int ZR_M_GetString_Dynamic(void* input, const std::string& name, int& count, std::string& value,
                           std::vector<std::string>& list) {
    return GetDynamic(Call::kGetStringDynamic, input, name, count, value, list,
                      &CScFrame::StringTable, &CScFrame::StringListTable);
}
