// Output combination: every value of every item goes through the typed conversion, each
// published output is listed in the frame's "DynamicPub" list, and the display texts gain
// each item's heading. In concatenation mode the joined text is published at the end.
#include <cstring>

#include "formatv2/formatv2.h"
#include "formatv2/module_log.h"
#include "host/zr_frame.h"
#include "publish/dynamic_pub.h"

namespace {

constexpr int kErrUnknownType = kStatusIndex;

void FillPub(DynamicPub& pub, const std::string& name, const char* type) {
    CopyCut(pub.param_name, name.c_str());
    CopyCut(pub.type, type);
}

}  // namespace

int CFormatV2Module::CombineSubOutputValue(void* output) {
    std::shared_ptr<CScFrame> frame = ZR_M_Get_Frame_ByHOutput(output);
    DynamicPub pub;
    std::memset(&pub, 0, sizeof pub);

    if (SubParamList.empty() && StrConcateEnable == 0) return 0;

    DynamicPubRecords* list = nullptr;
    if (!SubParamList.empty() && frame) {
        list = frame->getData<DynamicPubRecords>("DynamicPub", true);
    }

    for (DataSection& item : SubParamList) {
        if (StrConcateEnable == 0) {
            const std::string heading = "\n" + item.ParamName + ":";
            ShowTextEN += heading;
            ShowTextCN += heading;
        }

        int ret = 0;
        int line = 0;
        if (item.Value.Is<IntList>()) {
            const IntList& values = item.Value.AnyCast<IntList>();
            for (int i = 0; ret == 0 && i < static_cast<int>(values.size()); ++i) {
                ret = ConvertAndSendOutputValue<int>(frame, item, values[i], i);
            }
            line = 682;
        } else if (item.Value.Is<FloatList>()) {
            const FloatList& values = item.Value.AnyCast<FloatList>();
            for (int i = 0; ret == 0 && i < static_cast<int>(values.size()); ++i) {
                ret = ConvertAndSendOutputValue<float>(frame, item, values[i], i);
            }
            line = 692;
        } else if (item.Value.Is<StringList>()) {
            const StringList& values = item.Value.AnyCast<StringList>();
            for (int i = 0; ret == 0 && i < static_cast<int>(values.size()); ++i) {
                ret = ConvertAndSendOutputValue<std::string>(frame, item, values[i], i);
            }
            line = 702;
        } else {
            FV2_ERR_AT(708, "Unknown value type.\n");
            return kErrUnknownType;
        }
        if (ret != 0) {
            FV2_ERR_AT(line, "[%s] occur error:(0x%x)\r\n", "CombineSubOutputValue", ret);
            return ret;
        }

        if (list != nullptr) {
            // The reader refuses a row of any other convert type, so the items of a
            // configuration never give "unknown" here.
            FillPub(pub, item.ParamName, GetVariateTypeStr(item.ConvertType).c_str());
            list->push_back(pub);
        }
    }

    if (StrConcateEnable == 0) return 0;
    if (list != nullptr) {
        FillPub(pub, ParamName, "string");
        list->push_back(pub);
    }

    const std::string joined = "\n" + ParamName + ":" + ConcatText;
    ShowTextEN += joined;
    ShowTextCN += joined;
    if (frame) frame->StringTable[ParamName] = ConcatText;
    return 0;
}
