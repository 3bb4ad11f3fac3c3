// The result display output: the run's verdict and display texts in the output frame's
// "SINGLE_" entries, and a result notice for the host's result manager, after every run.
#include <cstdio>
#include <string>

#include "formatv2/formatv2.h"
#include "formatv2/guard.h"
#include "formatv2/module_log.h"
#include "host/zr_frame.h"

namespace {

// The entry names, made once: most are longer than a short string holds, and a name spelled
// as a literal at each store is a new heap copy per store and run.
struct ResultKeys {
    const std::string status = "SINGLE_status";
    const std::string textX = "SINGLE_show_text_x";
    const std::string textY = "SINGLE_show_text_y";
    const std::string textAngle = "SINGLE_show_text_ang";
    const std::string textCn = "SINGLE_show_text_cn";
    const std::string textEn = "SINGLE_show_text_en";
    const std::string statusText = "SINGLE_param_status_string";
    const std::string paramStatus = "SINGLE_param_status";
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
        if (ret != 0) FV2_ERR_AT(776, "add result info failed, nErrCode = 0x%x\n", ret);
    }

    if (frame) {
        frame->FloatTable[keys.textX] = 0.0f;
        frame->FloatTable[keys.textY] = 0.0f;
        frame->FloatTable[keys.textAngle] = 0.0f;
        frame->StringTable[keys.textCn] = ShowTextCN;
        frame->StringTable[keys.textEn] = ShowTextEN;
        frame->StringTable[keys.statusText] = ok ? "OK" : "NG";
        frame->IntTable[keys.paramStatus] = ok;
    }

    // The notice texts travel in zeroed 256-byte buffers, as the result manager expects.
    char textCn[256] = {0};
    char textEn[256] = {0};
    std::snprintf(textCn, sizeof textCn, "%s", "全部输出为OK");
    std::snprintf(textEn, sizeof textEn, "%s", "Full output is OK");
    ResultManage.SendResultInfoExist(ok, 0, textCn, textEn, frame);

    // Everything has reached the host by now: a log line that fails changes nothing.
    Guarded([&] { FV2_INFO_AT(794, "send output param end\n"); });
    return 0;
}
