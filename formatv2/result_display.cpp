// The result display output: the run's verdict and display texts in the output frame's
// "SINGLE_" entries, and a result notice for the host's result manager, after every run.
#include <cstdio>
#include <string>

#include "contract/guard.h"
#include "formatv2/formatv2.h"
#include "host/zr_frame.h"

using formatv2::Msg;

namespace {

// The entry names, made once: most are longer than a short string holds, and a name spelled
// as a literal at each store is a new heap copy per store and run.
struct ResultKeys {
    const std::string status = kEntryStatus;
    const std::string textX = kEntryTextX;
    const std::string textY = kEntryTextY;
    const std::string textAngle = kEntryTextAngle;
    const std::string textCn = kEntryTextCn;
    const std::string textEn = kEntryTextEn;
    const std::string statusText = kEntryStatusText;
    const std::string paramStatus = kEntryParamStatus;
};

const ResultKeys& Keys() {
    static const ResultKeys keys;
    return keys;
}

}  // namespace

int CFormatV2Module::SendOutputParam(void* output, int status) {
    std::shared_ptr<CScFrame> frame = ZR_M_Get_Frame_ByHOutput(output);
    const int ok = (status == 0) ? 1 : 0;

    // A missing output frame gets nothing written; the host is still told the verdict.
    const ResultKeys& keys = Keys();
    if (frame) frame->IntTable[keys.status] = ok;

    if (status == 0 && ImgMode == 0) {
        int ret = ResultManage.AddResultInfo(1, 1);
        if (ret != 0) Log().Say<Msg::kAddResultInfoFailed>(ret);
    }

    if (frame) {
        frame->FloatTable[keys.textX] = 0.0f;
        frame->FloatTable[keys.textY] = 0.0f;
        frame->FloatTable[keys.textAngle] = 0.0f;
        frame->StringTable[keys.textCn] = ShowTextCN;
        frame->StringTable[keys.textEn] = ShowTextEN;
        frame->StringTable[keys.statusText] = VerdictOf(status);
        frame->IntTable[keys.paramStatus] = ok;
    }

    // The notice texts travel in zeroed 256-byte buffers, as the result manager expects.
    char textCn[256] = {0};
    char textEn[256] = {0};
    std::snprintf(textCn, sizeof textCn, "%s", kNoticeCn);
    std::snprintf(textEn, sizeof textEn, "%s", kNoticeEn);
    ResultManage.SendResultInfoExist(ok, 0, textCn, textEn, frame);

    // Everything has reached the host by now: a log line that fails changes nothing.
    Guarded([&] { Log().Say<Msg::kSendOutputEnd>(); });
    return 0;
}
