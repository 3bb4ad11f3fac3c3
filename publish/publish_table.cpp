// The dynamic publish table: the host's own entries, then the joined output, then one record
// per item. Exactly one of the last two groups is enabled, by StrConcateEnable.
#include <cstring>

#include "formatv2/formatv2.h"
#include "formatv2/module_log.h"
#include "publish/dynamic_pub.h"

namespace {

constexpr int kErrBadArgument = kStatusBadArgument;
constexpr int kErrIndex = kStatusIndex;
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

int CFormatV2Module::UpdateDynamicPubInfo() {
    std::memset(&DynamicPubList, 0, sizeof DynamicPubList);
    int ret = StaticSubPub.GetDynamicPubParam(&DynamicPubList);
    if (ret != 0) return ret;

    // The table is never cut: an output that does not fit refuses the whole configuration,
    // so no output can go missing without a message.
    const long long hostCount = DynamicPubList.nNum;
    const long long needed = hostCount + 1 + static_cast<long long>(SubParamList.size());
    if (hostCount < 0 || needed > kMaxPublications) {
        FV2_ERR("The dynamic publish table needs %lld records, more than its %d.\n", needed,
                kMaxPublications);
        std::memset(&DynamicPubList, 0, sizeof DynamicPubList);
        return kErrBadArgument;
    }

    FillRecord(DynamicPubList.params[DynamicPubList.nNum++], ParamName, "string",
               StrConcateEnable != 0);
    for (const DataSection& item : SubParamList) {
        FillRecord(DynamicPubList.params[DynamicPubList.nNum++], item.ParamName,
                   GetVariateTypeStr(item.ConvertType), StrConcateEnable == 0);
    }
    return 0;
}

int CFormatV2Module::GetDynamicPublishParamNum() {
    FV2_INFO_AT(905, "GetDynamicPublishParamNum is %d\r\n", DynamicPubList.nNum);
    return DynamicPubList.nNum;
}

int CFormatV2Module::GetDynamicSinglePublishParam(int index, DYNAMIC_PUBLISH_PARAM* param) {
    if (param == nullptr) return kErrBadArgument;
    if (index < 0 || index >= DynamicPubList.nNum) return kErrIndex;
    *param = DynamicPubList.params[index];
    // Host entries are not ours: never read past their fields, terminated or not.
    FV2_INFO_AT(924, "nParamIdx %d: pub(param_name[%.64s],type:%.64s))\r\n", index,
                param->param_name, param->type);
    return 0;
}
