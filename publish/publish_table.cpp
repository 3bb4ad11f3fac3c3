// The dynamic publish table: the host's own entries, then the joined output, then one record
// per item. Exactly one of the last two groups is enabled, by StrConcateEnable.
#include <cstring>

#include "publish/publish.h"

namespace formatv2 {
namespace {

static_assert(kMaxPublications == kDynamicParamMax, "the table holds every record");
static_assert(kPublishNameMax + 1 == sizeof(DYNAMIC_PUBLISH_PARAM::param_name), "name kept");

void FillRecord(DYNAMIC_PUBLISH_PARAM& record, const std::string& name, const std::string& type,
                bool enable) {
    CopyCut(record.param_name, name.c_str());
    CopyCut(record.type, type.c_str());
    record.valid = 1;
    record.enable = enable ? 1 : 0;
    record.flags = 0;
}

}  // namespace

int BuildPublishTable(const std::vector<DataSection>& items, const std::string& paramName,
                      int strConcateEnable, DYNAMIC_PUBLISH_PARAM_LIST& table, const Logger& log) {
    // The table is never cut: an output that does not fit refuses the whole configuration,
    // so no output can go missing without a message.
    const long long hostCount = table.nNum;
    const long long needed = hostCount + 1 + static_cast<long long>(items.size());
    if (hostCount < 0 || needed > kMaxPublications) {
        log.Say<Msg::kTooManyPublications>(needed, kMaxPublications);
        std::memset(&table, 0, sizeof table);
        return kStatusBadArgument;
    }

    FillRecord(table.params[table.nNum++], paramName, "string", strConcateEnable != 0);
    for (const DataSection& item : items) {
        FillRecord(table.params[table.nNum++], item.ParamName, GetVariateTypeStr(item.ConvertType),
                   strConcateEnable == 0);
    }
    return 0;
}

}  // namespace formatv2
