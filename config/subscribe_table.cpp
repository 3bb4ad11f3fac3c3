// The dynamic subscription table: one entry per subscribed value, in item order, telling the
// host which publisher output feeds the module's input "input" + N.
#include <cstdio>
#include <cstring>

#include "config/config_read.h"

namespace formatv2 {
namespace {

// The refusal message names the table's 128 records as the limit, though the 128th is refused.
static_assert(kMaxSubscriptions == kDynamicParamMax - 1, "one record stays unused");

void FillEntry(DYNAMIC_SUBSCRIBE_PARAM& entry, const CAlgoUtils::SubParam& source, int algoId,
               int index) {
    // snprintf cuts every text to its field (63 characters and the terminator).
    std::snprintf(entry.pub.algo_name, sizeof entry.pub.algo_name, "%s", source.algo_name.c_str());
    entry.pub.algo_id = source.algo_id;
    std::snprintf(entry.pub.param_name, sizeof entry.pub.param_name, "%s",
                  source.param_name.c_str());
    std::snprintf(entry.sub.algo_name, sizeof entry.sub.algo_name, "%s", kModuleName);
    entry.sub.algo_id = algoId;
    std::snprintf(entry.sub.param_name, sizeof entry.sub.param_name, "%s%d", kInputPrefix, index);
}

}  // namespace

int BuildSubscriptionTable(const std::vector<DataSection>& items, int algoId,
                           DYNAMIC_SUBSCRIBE_PARAM_LIST& table, const Logger& log) {
    std::memset(&table, 0, sizeof table);
    if (items.empty()) return 0;

    const size_t count = SubscriptionCount(items);
    if (count > static_cast<size_t>(kMaxSubscriptions)) {
        log.Say<Msg::kTooManySubscriptions>(static_cast<int>(count), kDynamicParamMax);
        return kStatusBadArgument;
    }

    for (const DataSection& item : items) {
        switch (item.DataType) {
            case FORMAT_V2_DATA_SUBSCRIBE:
                FillEntry(table.params[table.nNum], item.SubParam, algoId, table.nNum);
                ++table.nNum;
                break;
            case FORMAT_V2_DATA_ARRAY:
                for (const DataField& field : item.Array) {
                    FillEntry(table.params[table.nNum], field.SubParam, algoId, table.nNum);
                    ++table.nNum;
                }
                break;
            case FORMAT_V2_DATA_SYMBOL:
            case FORMAT_V2_DATA_CUSTOM:
                break;
            default:
                log.Say<Msg::kNoSuchDataType>();
                break;
        }
    }
    return 0;
}

std::string InputName(const DYNAMIC_SUBSCRIBE_PARAM_LIST& table, int position) {
    if (position < 0 || position >= table.nNum) return {};
    return table.params[position].sub.param_name;
}

}  // namespace formatv2
