// The dynamic subscription table: one entry per subscribed value, in item order, telling the
// host which publisher output feeds the module's input "input" + N.
#include <cstdio>
#include <cstring>

#include "formatv2/formatv2.h"
#include "formatv2/module_log.h"

namespace {

constexpr int kErrBadArgument = kStatusBadArgument;
constexpr int kErrIndex = kStatusIndex;
// The refusal message names the table's 128 records as the limit, though the 128th is refused.
static_assert(kMaxSubscriptions == kDynamicParamMax - 1, "one record stays unused");

void FillEntry(DYNAMIC_SUBSCRIBE_PARAM& entry, const CAlgoUtils::SubParam& source, int algoId,
               int index) {
    // snprintf cuts every text to its field (63 characters and the terminator).
    std::snprintf(entry.pub.algo_name, sizeof entry.pub.algo_name, "%s", source.algo_name.c_str());
    entry.pub.algo_id = source.algo_id;
    std::snprintf(entry.pub.param_name, sizeof entry.pub.param_name, "%s",
                  source.param_name.c_str());
    std::snprintf(entry.sub.algo_name, sizeof entry.sub.algo_name, "%s", "formatv2");
    entry.sub.algo_id = algoId;
    std::snprintf(entry.sub.param_name, sizeof entry.sub.param_name, "%s%d", "input", index);
}

}  // namespace

int CFormatV2Module::UpdateDynamicSubInfo() {
    std::memset(&DynamicSubList, 0, sizeof DynamicSubList);
    if (SubParamList.empty()) return 0;

    const size_t count = SubscriptionCount(SubParamList);
    if (count > static_cast<size_t>(kMaxSubscriptions)) {
        FV2_ERR("The number of subscribes exceeds the upper limit %d > %d.\n",
                static_cast<int>(count), kDynamicParamMax);
        return kErrBadArgument;
    }

    for (const DataSection& item : SubParamList) {
        switch (item.DataType) {
            case FORMAT_V2_DATA_SUBSCRIBE:
                FillEntry(DynamicSubList.params[DynamicSubList.nNum], item.SubParam, AlgoId,
                          DynamicSubList.nNum);
                ++DynamicSubList.nNum;
                break;
            case FORMAT_V2_DATA_ARRAY:
                for (const DataField& field : item.Array) {
                    FillEntry(DynamicSubList.params[DynamicSubList.nNum], field.SubParam, AlgoId,
                              DynamicSubList.nNum);
                    ++DynamicSubList.nNum;
                }
                break;
            case FORMAT_V2_DATA_SYMBOL:
            case FORMAT_V2_DATA_CUSTOM:
                break;
            default:
                FV2_ERR("no such data type!\n");
                break;
        }
    }
    return 0;
}

int CFormatV2Module::GetDynamicSubScribeParamNum() {
    FV2_INFO("Get dynamic sub Scribe param num: %d\r\n", DynamicSubList.nNum);
    return DynamicSubList.nNum;
}

int CFormatV2Module::GetDynamicSingleSubScribeParam(int index, DYNAMIC_SUBSCRIBE_PARAM* param) {
    if (param == nullptr) return kErrBadArgument;
    if (index < 0 || index >= DynamicSubList.nNum) return kErrIndex;
    *param = DynamicSubList.params[index];
    const DYNAMIC_SUBSCRIBE_PARAM& e = *param;
    FV2_INFO(
        "nParamIdx %d: pub(algo_id[%d] algo_name[%s] param_name[%s]) sub(algo_id[%d] "
        "algo_name[%s] param_name[%s])\r\n",
        index, e.pub.algo_id, e.pub.algo_name, e.pub.param_name, e.sub.algo_id, e.sub.algo_name,
        e.sub.param_name);
    return 0;
}

std::string CFormatV2Module::InputName(int position) const {
    if (position < 0 || position >= DynamicSubList.nNum) return {};
    return DynamicSubList.params[position].sub.param_name;
}
