// Output combination: every value of every item goes through the typed conversion, each
// published output is listed in the frame's "DynamicPub" list, and the display texts gain
// each item's heading. In concatenation mode the joined text is published at the end.
#include <cstring>

#include "publish/publish.h"

namespace formatv2 {
namespace {

void FillPub(DynamicPub& pub, const std::string& name, const char* type) {
    CopyCut(pub.param_name, name.c_str());
    CopyCut(pub.type, type);
}

// Every value of the list, with its place in it; stops at the first that fails.
template <typename T>
int SendAll(Publication& run, std::shared_ptr<CScFrame>& frame, const DataSection& item,
            const std::vector<T>& values) {
    int ret = 0;
    for (int i = 0; ret == 0 && i < static_cast<int>(values.size()); ++i) {
        ret = ConvertAndSendOutputValue<T>(run, frame, item, values[i], i);
    }
    return ret;
}

}  // namespace

int CombineSubOutputValue(Publication& run, std::shared_ptr<CScFrame>& frame) {
    DynamicPub pub;
    std::memset(&pub, 0, sizeof pub);

    if (run.items.empty() && run.strConcateEnable == 0) return 0;

    DynamicPubRecords* list = nullptr;
    if (!run.items.empty() && frame) {
        list = frame->getData<DynamicPubRecords>(kDynamicPubKey, true);
    }

    for (const DataSection& item : run.items) {
        const int row = static_cast<int>(&item - run.items.data());
        if (run.strConcateEnable == 0) {
            const std::string heading = "\n" + item.ParamName + ":";
            run.showTextEn += heading;
            run.showTextCn += heading;
            if (run.record != nullptr) AddSpan(run.record->display, heading.size(), {row, -1, -1});
        }

        int ret = 0;
        const char* const where = "CombineSubOutputValue";
        if (const IntList* ints = item.Value.Find<IntList>()) {
            ret = SendAll(run, frame, item, *ints);
            if (ret != 0) run.log.Say<Msg::kIntListFailed>(where, ret);
        } else if (const FloatList* floats = item.Value.Find<FloatList>()) {
            ret = SendAll(run, frame, item, *floats);
            if (ret != 0) run.log.Say<Msg::kFloatListFailed>(where, ret);
        } else if (const StringList* texts = item.Value.Find<StringList>()) {
            ret = SendAll(run, frame, item, *texts);
            if (ret != 0) run.log.Say<Msg::kStringListFailed>(where, ret);
        } else {
            run.log.Say<Msg::kUnknownValueType>();
            ret = kStatusIndex;
            if (run.record != nullptr &&
                static_cast<size_t>(row) < run.record->result.rows.size()) {
                RowResult& result = run.record->result.rows[static_cast<size_t>(row)];
                result.outcome = RowOutcome::kFailed;
                result.failure.status = ret;
                result.failure.step = "value";
                result.failure.name = item.ParamName;
            }
        }
        if (ret != 0) {
            // The rows after it were read, but none of them is published.
            if (run.record != nullptr) {
                std::vector<RowResult>& rows = run.record->result.rows;
                for (size_t k = static_cast<size_t>(row) + 1; k < rows.size(); ++k) {
                    rows[k].outcome = RowOutcome::kNotReached;
                }
            }
            return ret;
        }

        if (list != nullptr) {
            // The reader refuses a row of any other convert type, so the items of a
            // configuration never give "unknown" here.
            FillPub(pub, item.ParamName, GetVariateTypeStr(item.ConvertType).c_str());
            list->push_back(pub);
        }
    }

    if (run.strConcateEnable == 0) return 0;
    if (list != nullptr) {
        FillPub(pub, run.paramName, "string");
        list->push_back(pub);
    }

    const std::string label = "\n" + run.paramName + ":";
    run.showTextEn.append(label).append(run.concatText);
    run.showTextCn.append(label).append(run.concatText);
    if (frame) frame->StringTable[run.paramName] = run.concatText;
    if (run.record != nullptr) {
        AddSpan(run.record->display, label.size(), {});
        AddSpans(run.record->display, run.record->joined);
        if (frame) run.record->result.texts.push_back({run.paramName, 0, run.record->joined});
    }
    return 0;
}

}  // namespace formatv2
