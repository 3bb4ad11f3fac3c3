// The two dynamic tables as the host reads them: rebuilt from the items after every accepted
// configuration read, and handed out record by record.
#include <cstring>

#include "formatv2/formatv2.h"
#include "publish/publish.h"

using formatv2::Msg;

int CFormatV2Module::UpdateDynamicSubInfo() {
    return formatv2::BuildSubscriptionTable(SubParamList, AlgoId, DynamicSubList, Log());
}

int CFormatV2Module::GetDynamicSubScribeParamNum() {
    Log().Say<Msg::kSubscriptionCount>(DynamicSubList.nNum);
    return DynamicSubList.nNum;
}

int CFormatV2Module::GetDynamicSingleSubScribeParam(int index, DYNAMIC_SUBSCRIBE_PARAM* param) {
    if (param == nullptr) return kStatusBadArgument;
    if (index < 0 || index >= DynamicSubList.nNum) return kStatusIndex;
    *param = DynamicSubList.params[index];
    const DYNAMIC_SUBSCRIBE_PARAM& e = *param;
    Log().Say<Msg::kSubscriptionEntry>(index, e.pub.algo_id, e.pub.algo_name, e.pub.param_name,
                                       e.sub.algo_id, e.sub.algo_name, e.sub.param_name);
    return 0;
}

int CFormatV2Module::UpdateDynamicPubInfo() {
    // The host's own entries come first; the module's are appended behind them.
    std::memset(&DynamicPubList, 0, sizeof DynamicPubList);
    const int ret = StaticSubPub.GetDynamicPubParam(&DynamicPubList);
    if (ret != 0) return ret;
    return formatv2::BuildPublishTable(SubParamList, ParamName, StrConcateEnable, DynamicPubList,
                                       Log());
}

int CFormatV2Module::GetDynamicPublishParamNum() {
    Log().Say<Msg::kPublicationCount>(DynamicPubList.nNum);
    return DynamicPubList.nNum;
}

int CFormatV2Module::GetDynamicSinglePublishParam(int index, DYNAMIC_PUBLISH_PARAM* param) {
    if (param == nullptr) return kStatusBadArgument;
    if (index < 0 || index >= DynamicPubList.nNum) return kStatusIndex;
    *param = DynamicPubList.params[index];
    // Host entries are not ours: the line never reads past their fields, terminated or not.
    Log().Say<Msg::kPublicationEntry>(index, param->param_name, param->type);
    return 0;
}
