#include "fuzz/config_entry.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <set>
#include <string>
#include <vector>

#include "fuzz/fuzz_support.h"

namespace fv2fuzz {

namespace {

constexpr int kErrTableRefused = kStatusTableRefused;
constexpr int kErrBadArgument = kStatusBadArgument;
constexpr int kErrIndex = kStatusIndex;

bool AllZero(const void* data, size_t size) {
    static const Tables kZero{};
    for (const auto* bytes = static_cast<const unsigned char*>(data); size > 0;) {
        const size_t n = std::min(size, sizeof kZero);
        if (std::memcmp(bytes, &kZero, n) != 0) return false;
        bytes += n;
        size -= n;
    }
    return true;
}

template <typename T>
bool SameBytes(const T& a, const T& b) {
    return std::memcmp(&a, &b, sizeof a) == 0;
}

// A text field filled by snprintf into a zeroed record: the text cut to size - 1 characters,
// then nothing but zeros.
bool FieldHolds(const char* field, size_t size, const std::string& text) {
    const std::string expected = std::string(text.c_str()).substr(0, size - 1);
    return std::memcmp(field, expected.data(), expected.size()) == 0 &&
           AllZero(field + expected.size(), size - expected.size());
}

// Not parsed: the record as constructed, except that a run marks array, symbol and custom
// items as text (type "%s").
bool Unparsed(const CAlgoUtils::SubParam& p, bool fresh) {
    return p.algo_id == -1 && p.algo_name.empty() && p.param_name.empty() && p.index.empty() &&
           (p.type.empty() || (!fresh && p.type == "%s"));
}

// The stored record is the host's parse of the stored text.
void CheckParsed(const std::string& text, const CAlgoUtils::SubParam& stored,
                 const std::string& where) {
    CAlgoUtils::SubParam parsed;
    FV2_FUZZ_CHECK(CAlgoUtils::ParseSubscribeItem(text, parsed) == 0,
                   where + ": accepted a subscription text the host refuses");
    FV2_FUZZ_CHECK(parsed.algo_id == stored.algo_id && parsed.algo_name == stored.algo_name &&
                       parsed.param_name == stored.param_name && parsed.type == stored.type &&
                       parsed.index == stored.index,
                   where + ": the subscription record is not the parse of its text");
}

// Every row in the list, also after a read that failed part-way, passed all of its checks.
// Rows the read built (fresh) hold no value yet; a text that is not JSON keeps the rows of
// the read before, with the values of their last run.
void CheckItems(const CFormatV2Module& module, bool fresh) {
    std::set<std::string> names;
    for (size_t i = 0; i < module.SubParamList.size(); ++i) {
        const DataSection& item = module.SubParamList[i];
        const std::string at = "item " + std::to_string(i) + " (" + item.ParamName + ")";
        FV2_FUZZ_CHECK(item.ConvertType >= FORMAT_V2_VARIATE_INT &&
                           item.ConvertType <= FORMAT_V2_VARIATE_STRING,
                       at);
        if (module.StrConcateEnable != 0) {
            FV2_FUZZ_CHECK(item.ConvertType == FORMAT_V2_VARIATE_STRING, at);
        }
        FV2_FUZZ_CHECK(item.ParamName != module.ParamName, at + ": named like the joined output");
        FV2_FUZZ_CHECK(names.insert(item.ParamName).second, at + ": name used twice");
        if (fresh)
            FV2_FUZZ_CHECK(!item.Value.holder && item.Value.Is<void>(), at + ": holds a value");

        const bool symbolText = item.SubParamStr == EscapedCrLf || item.SubParamStr == EscapedCr;
        switch (item.DataType) {
            case FORMAT_V2_DATA_SUBSCRIBE:
                FV2_FUZZ_CHECK(!symbolText && item.Array.empty(), at);
                CheckParsed(item.SubParamStr, item.SubParam, at);
                break;
            case FORMAT_V2_DATA_SYMBOL:
                FV2_FUZZ_CHECK(symbolText && item.Array.empty() && Unparsed(item.SubParam, fresh),
                               at);
                break;
            case FORMAT_V2_DATA_CUSTOM:
                FV2_FUZZ_CHECK(item.Array.empty() && Unparsed(item.SubParam, fresh), at);
                break;
            case FORMAT_V2_DATA_ARRAY:
                FV2_FUZZ_CHECK(item.SubParamStr.empty() && item.ShowValue_CN.empty() &&
                                   item.ShowValue_EN.empty() && Unparsed(item.SubParam, fresh),
                               at);
                for (size_t f = 0; f < item.Array.size(); ++f) {
                    CheckParsed(item.Array[f].SubParamStr, item.Array[f].SubParam,
                                at + " field " + std::to_string(f));
                }
                break;
            default:
                Fail(__FILE__, __LINE__, at + ": kind " + std::to_string(item.DataType));
        }
    }
}

// The subscriptions in table order: single values, and every array field where it stands.
std::vector<const CAlgoUtils::SubParam*> Subscriptions(const CFormatV2Module& module) {
    std::vector<const CAlgoUtils::SubParam*> subs;
    for (const DataSection& item : module.SubParamList) {
        if (item.DataType == FORMAT_V2_DATA_SUBSCRIBE) subs.push_back(&item.SubParam);
        if (item.DataType == FORMAT_V2_DATA_ARRAY) {
            for (const DataField& field : item.Array) subs.push_back(&field.SubParam);
        }
    }
    return subs;
}

void CheckSubTable(const CFormatV2Module& module) {
    const auto subs = Subscriptions(module);
    const DYNAMIC_SUBSCRIBE_PARAM_LIST& table = module.DynamicSubList;
    FV2_FUZZ_CHECK(table.nNum >= 0 && static_cast<size_t>(table.nNum) == subs.size(),
                   "subscription count " + std::to_string(table.nNum) + " for " +
                       std::to_string(subs.size()) + " subscriptions");
    const size_t n = subs.size();
    FV2_FUZZ_CHECK(AllZero(&table.params[n], (kDynamicParamMax - n) * sizeof table.params[0]),
                   "subscription entries beyond the count");
    for (size_t i = 0; i < n; ++i) {
        const DYNAMIC_SUBSCRIBE_PARAM& e = table.params[i];
        const std::string at = "subscription entry " + std::to_string(i);
        const CAlgoUtils::SubParam& p = *subs[i];
        FV2_FUZZ_CHECK(FieldHolds(e.pub.algo_name, sizeof e.pub.algo_name, p.algo_name) &&
                           e.pub.algo_id == p.algo_id &&
                           FieldHolds(e.pub.param_name, sizeof e.pub.param_name, p.param_name) &&
                           AllZero(e.pub.reserved, sizeof e.pub.reserved),
                       at + " publisher");
        FV2_FUZZ_CHECK(FieldHolds(e.sub.algo_name, sizeof e.sub.algo_name, "formatv2") &&
                           e.sub.algo_id == module.AlgoId &&
                           FieldHolds(e.sub.param_name, sizeof e.sub.param_name,
                                      "input" + std::to_string(i)) &&
                           AllZero(e.sub.reserved, sizeof e.sub.reserved),
                       at + " subscriber");
    }
}

bool RecordHolds(const DYNAMIC_PUBLISH_PARAM& r, const std::string& name, const std::string& type,
                 bool enable) {
    return FieldHolds(r.param_name, sizeof r.param_name, name) &&
           FieldHolds(r.type, sizeof r.type, type) && r.valid == 1 &&
           r.enable == (enable ? 1 : 0) && r.flags == 0 && AllZero(r.reserved, sizeof r.reserved);
}

// The stand-in host has no publications of its own here: the joined output, then the items.
void CheckPubTable(const CFormatV2Module& module) {
    const DYNAMIC_PUBLISH_PARAM_LIST& table = module.DynamicPubList;
    const size_t items = module.SubParamList.size();
    FV2_FUZZ_CHECK(table.nNum >= 0 && static_cast<size_t>(table.nNum) == items + 1,
                   "publish count " + std::to_string(table.nNum));
    const bool concat = module.StrConcateEnable != 0;
    FV2_FUZZ_CHECK(RecordHolds(table.params[0], module.ParamName, "string", concat),
                   "joined output record");
    for (size_t i = 0; i < items; ++i) {
        const DataSection& item = module.SubParamList[i];
        FV2_FUZZ_CHECK(
            RecordHolds(table.params[i + 1], item.ParamName, TypeText(item.ConvertType), !concat),
            "publish record of item " + std::to_string(i));
    }
    FV2_FUZZ_CHECK(
        AllZero(&table.params[items + 1], (kDynamicParamMax - items - 1) * sizeof table.params[0]),
        "publish records beyond the count");
}

// The host reads the tables only through the virtual interface: every entry as held, nothing
// outside the count, and a missing record refused before the index.
template <typename Record, typename List>
void CheckHostView(CAbstractUserModule& host, int count, const List& list,
                   int (CAbstractUserModule::*get)(int, Record*), const std::string& what) {
    FV2_FUZZ_CHECK(count == list.nNum, what + " count seen by the host");
    Record untouched;
    std::memset(&untouched, 0xA5, sizeof untouched);
    std::vector<int> indices = {INT_MIN, INT_MAX};
    for (int i = -1; i <= count; ++i) indices.push_back(i);
    for (int i : indices) {
        Record record = untouched;
        const int ret = (host.*get)(i, &record);
        FV2_FUZZ_CHECK(i >= 0 && i < count ? ret == 0 && SameBytes(record, list.params[i])
                                           : ret == kErrIndex && SameBytes(record, untouched),
                       what + " " + std::to_string(i) + " seen by the host: " + Hex(ret));
    }
    FV2_FUZZ_CHECK((host.*get)(0, nullptr) == kErrBadArgument, what + " into no record");
}

// What a read produced, in a comparable text: settings, then each item's name and shape.
std::string Shape(const CFormatV2Module& module) {
    std::string shape =
        module.ModuleName + "|" + std::to_string(module.StrConcateEnable) + "|" + module.ParamName;
    for (const DataSection& item : module.SubParamList) {
        shape += "|" + item.ParamName + "/" + std::to_string(item.DataType) + "/" +
                 std::to_string(item.ConvertType) + "/" + std::to_string(item.Array.size());
    }
    return shape;
}

}  // namespace

const char* TypeText(int convertType) {
    return convertType == 1 ? "int" : convertType == 2 ? "float" : "string";
}

void Snapshot(const CFormatV2Module& module, Tables& out) {
    std::memcpy(&out.sub, &module.DynamicSubList, sizeof out.sub);
    std::memcpy(&out.pub, &module.DynamicPubList, sizeof out.pub);
}

void CheckReadOutcome(CFormatV2Module& module, int status, const Tables& before) {
    CheckItems(module, status != kStatusConfigRefused);
    if (status == 0) {
        CheckSubTable(module);
        CheckPubTable(module);
    } else if (status == kStatusConfigRefused) {
        FV2_FUZZ_CHECK(SameBytes(module.DynamicSubList, before.sub) &&
                           SameBytes(module.DynamicPubList, before.pub),
                       "a refused text changed the dynamic tables");
    } else if (status == kErrTableRefused) {
        if (Subscriptions(module).size() > static_cast<size_t>(kMaxSubscriptions)) {
            FV2_FUZZ_CHECK(AllZero(&module.DynamicSubList, sizeof module.DynamicSubList),
                           "a refused subscription table was not cleared");
            FV2_FUZZ_CHECK(SameBytes(module.DynamicPubList, before.pub),
                           "a refused subscription table changed the publish table");
        } else {
            CheckSubTable(module);
            FV2_FUZZ_CHECK(module.SubParamList.size() + 1 > static_cast<size_t>(kDynamicParamMax),
                           "publish table refused with room to spare");
            FV2_FUZZ_CHECK(AllZero(&module.DynamicPubList, sizeof module.DynamicPubList),
                           "a refused publish table was not cleared");
        }
    } else {
        Fail(__FILE__, __LINE__, "configuration read ended with " + Hex(status));
    }
    CAbstractUserModule& host = module;
    CheckHostView(host, host.GetDynamicSubScribeParamNum(), module.DynamicSubList,
                  &CAbstractUserModule::GetDynamicSingleSubScribeParam, "subscription entry");
    CheckHostView(host, host.GetDynamicPublishParamNum(), module.DynamicPubList,
                  &CAbstractUserModule::GetDynamicSinglePublishParam, "publish record");
}

void RunConfigInput(const uint8_t* data, size_t size) {
    ResetHost();
    WriteDeviceFile(kConfigPath, data, size);
    ModulePtr module = PlacedModule();

    static Tables fresh, first, second;
    Snapshot(*module, fresh);
    FV2_FUZZ_CHECK(AllZero(&fresh, sizeof fresh), "a new module's tables are not zero");
    const int status = module->GetSubParamList();
    CheckReadOutcome(*module, status, fresh);

    // The same text read again ends the same way and leaves the same settings, items and
    // tables: nothing of the first read leaks into the second.
    Snapshot(*module, first);
    const std::string shape = Shape(*module);
    const int again = module->GetSubParamList();
    FV2_FUZZ_CHECK(again == status, "second read " + Hex(again) + ", first " + Hex(status));
    CheckReadOutcome(*module, again, first);
    Snapshot(*module, second);
    FV2_FUZZ_CHECK(SameBytes(second, first), "the second read changed the tables");
    FV2_FUZZ_CHECK(Shape(*module) == shape, "the second read changed the items");
}

}  // namespace fv2fuzz
