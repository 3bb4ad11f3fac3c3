// The run driver: one call per run of the host's processing graph.
#include <time.h>

#include <cstdint>

#include "formatv2/formatv2.h"
#include "formatv2/guard.h"
#include "formatv2/module_log.h"
#include "host/zr_frame.h"

namespace {

constexpr int kErrNoInputFrame = kStatusMissing;
constexpr int kErrNoImgMode = kStatusNoImgMode;
constexpr int kErrNoItems = kStatusNoItems;
// Whatever is thrown during a run (in practice bad_alloc) ends it with this status instead
// of crossing into the host.
constexpr int kErrThrown = kStatusMissing;

// The monotonic clock in milliseconds, to the nearest, halves up.
double MonotonicMillis() {
    struct timespec now {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    const int64_t ms = static_cast<int64_t>(now.tv_sec) * 1000 +
                       (static_cast<int64_t>(now.tv_nsec) + 500000) / 1000000;
    return static_cast<double>(ms);
}

}  // namespace

int CFormatV2Module::Process(void* input, void* output) {
    // Held to the very end of the run, after the result display: the host may recycle the
    // frame once it is released.
    std::shared_ptr<CScFrame> frame;
    const FormatterBlockScope blocks;  // released when the run ends, however it ends
    int status = 0;
    if (!Guarded([&] {
            frame = ZR_M_Get_Frame_ByID(input, 0);
            status = RunItems(frame, input, output);
        })) {
        status = kErrThrown;
        Guarded([&] { FV2_ERR("[%s] occur error:(0x%x)\r\n", "Process", status); });
    }

    // The end of the run is reached from every path, and nothing may escape into the host:
    // not even from a log callback or a host service. Each step is guarded on its own.
    Guarded([&] { FV2_INFO_AT(536, "formatv2 Process end, status : %d\n", status); });
    Guarded([&] { UpProcessTime(); });
    // A verdict that could not be written whole is no success: a run that had succeeded fails
    // as any run that threw, and the result display is tried once more, now with NG.
    if (!Guarded([&] { SendOutputParam(output, status); })) {
        if (status == 0) {
            status = kErrThrown;
            Guarded([&] { FV2_ERR("[%s] occur error:(0x%x)\r\n", "Process", status); });
        }
        Guarded([&] { SendOutputParam(output, status); });
    }
    frame.reset();
    return status;
}

int CFormatV2Module::RunItems(const std::shared_ptr<CScFrame>& frame, void* input, void* output) {
    int inputIndex = 0;
    if (!frame) {
        FV2_ERR_AT(490, "[%s] occur error(0x%x)\r\n", "Process", kErrNoInputFrame);
        return kErrNoInputFrame;
    }

    ProcStartTime = MonotonicMillis();
    ProcTime = 0;
    ShowTextCN.clear();
    ShowTextEN.clear();
    FV2_INFO_AT(496, "formatv2 Process start\n");

    auto imgMode = frame->IntTable.find("SINGLE_img_mode");
    if (imgMode == frame->IntTable.end()) {
        FV2_ERR_AT(499, "[%s] occur error:(0x%x)\r\n", "Process", kErrNoImgMode);
        return kErrNoImgMode;
    }
    ImgMode = imgMode->second;

    if (SubParamList.empty()) return kErrNoItems;
    ConcatText.clear();

    for (DataSection& item : SubParamList) {
        int ret = 0;
        switch (item.DataType) {
            case FORMAT_V2_DATA_SUBSCRIBE:
                ret = AssembleSubscribeData(input, item, inputIndex);
                break;
            case FORMAT_V2_DATA_SYMBOL:
                AssembleSymbolData(item);
                break;
            case FORMAT_V2_DATA_ARRAY:
                ret = AssembleArrayData(input, item, inputIndex);
                break;
            case FORMAT_V2_DATA_CUSTOM:
                ret = AssembleCustomData(item);
                break;
            default:
                FV2_ERR_AT(525, "No such data format %d\n", static_cast<int>(item.DataType));
                break;
        }
        if (ret != 0) {
            FV2_ERR_AT(529, "[%s] occur error:(0x%x)\r\n", "Process", ret);
            return ret;
        }
    }

    int status = CombineSubOutputValue(output);
    if (status != 0) FV2_ERR_AT(533, "[%s] occur error:(0x%x)\r\n", "Process", status);
    return status;
}
