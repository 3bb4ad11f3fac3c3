// Parameter manager, result manager, static publications and subscription parsing.
#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "state.h"

using standin::Call;
using standin::failure;

// ---- CParamManage ----------------------------------------------------------------------

PARAM_DESC* CParamManage::GetParamFindAndCheck(const char* name, int valueIndex) {
    if (name == nullptr || valueIndex < 0) return nullptr;
    auto it = m_params.find(name);
    if (it == m_params.end()) {
        // Each manager keeps its own copy of a declared parameter, made on first use.
        PARAM_DESC declared;
        const bool found = standin::WithState([&](standin::State& s) {
            auto d = s.declaredParams.find(name);
            if (d == s.declaredParams.end()) return false;
            declared = d->second;
            return true;
        });
        if (!found) return nullptr;
        it = m_params.emplace(name, std::move(declared)).first;
    }
    return &it->second;
}

int CParamManage::GetValueType(const PARAM_DESC* desc) {
    return desc == nullptr ? PARAM_TYPE_STRING : desc->type;
}

std::string CParamManage::GetStrValueByType(const std::string& value, int) {
    return value;
}

static bool ValueFitsType(const char* value, int type) {
    if (type == PARAM_TYPE_STRING) return true;
    if (*value == '\0') return false;
    char* end = nullptr;
    errno = 0;
    if (type == PARAM_TYPE_INT) {
        long v = std::strtol(value, &end, 10);
        return errno == 0 && *end == '\0' && v >= INT32_MIN && v <= INT32_MAX;
    }
    std::strtof(value, &end);
    return errno == 0 && *end == '\0';
}

int CParamManage::CheckParam(const char* name, const char* value) {
    if (int code = failure(Call::kCheckParam)) return code;
    if (value == nullptr) return standin::kErrParamValue;
    PARAM_DESC* desc = GetParamFindAndCheck(name, 0);
    if (desc == nullptr) return standin::kErrParamUnknown;
    if (!ValueFitsType(value, desc->type)) return standin::kErrParamValue;
    if (!desc->accepted.empty() &&
        std::find(desc->accepted.begin(), desc->accepted.end(), value) == desc->accepted.end()) {
        return standin::kErrParamValue;
    }
    return 0;
}

int CParamManage::SetParam(const char* name, const char* value, int valueIndex) {
    if (int code = failure(Call::kSetParam)) return code;
    PARAM_DESC* desc = GetParamFindAndCheck(name, valueIndex);
    if (desc == nullptr || value == nullptr) return standin::kErrParamUnknown;
    if (desc->values.size() <= static_cast<size_t>(valueIndex)) desc->values.resize(valueIndex + 1);
    desc->values[valueIndex] = value;
    return 0;
}

// ---- CResultManage ---------------------------------------------------------------------

namespace {

int Record(standin::ResultCall call, Call op) {
    return standin::WithState([&](standin::State& s) {
        s.resultCalls.push_back(std::move(call));
        return s.failures[static_cast<size_t>(op)];
    });
}

}  // namespace

int CResultManage::SetModuleType(const algo::ModuleType& type) {
    return Record({"SetModuleType", static_cast<int>(type), 0, {}, {}, nullptr, this},
                  Call::kSetModuleType);
}

int CResultManage::AddResultInfo(int resultType, int resultCount) {
    return Record({"AddResultInfo", resultType, resultCount, {}, {}, nullptr, this},
                  Call::kAddResultInfo);
}

int CResultManage::SendResultInfoExist(int ok, int reserved, const std::string& textCn,
                                       const std::string& textEn, std::shared_ptr<CScFrame> frame) {
    return Record({"SendResultInfoExist", ok, reserved, textCn, textEn, std::move(frame), this},
                  Call::kSendResultInfoExist);
}

// ---- CStaticSubPub ---------------------------------------------------------------------

int CStaticSubPub::GetDynamicPubParam(DYNAMIC_PUBLISH_PARAM_LIST* list) {
    if (int code = failure(Call::kGetDynamicPubParam)) return code;
    if (list == nullptr) return static_cast<int>(0xE0000001);
    const auto entries = standin::WithState([](standin::State& s) { return s.hostPubEntries; });
    size_t n = std::min<size_t>(entries.size(), kDynamicParamMax);
    for (size_t i = 0; i < n; ++i) list->params[i] = entries[i];
    list->nNum = static_cast<int32_t>(n);
    return 0;
}

// ---- CAlgoUtils ------------------------------------------------------------------------
//
// Subscription text: "<algo_id>:<algo_name>:<param_name>:<index>:<type>".
// The first four fields end at a colon; the conversion text is everything after the fourth
// colon and may be empty or hold colons itself. The index is taken as written ("*", "2",
// " 2", "x" ...); it is the module's to interpret.

int CAlgoUtils::ParseSubscribeItem(const std::string& text, SubParam& out) {
    std::string fields[4];
    size_t pos = 0;
    for (std::string& field : fields) {
        size_t colon = text.find(':', pos);
        if (colon == std::string::npos) return standin::kErrSubscribeSyntax;
        field = text.substr(pos, colon - pos);
        pos = colon + 1;
    }
    const std::string& id = fields[0];
    if (id.empty() || fields[1].empty() || fields[2].empty()) return standin::kErrSubscribeSyntax;
    size_t digits = (id[0] == '-') ? 1 : 0;
    if (digits == id.size() || id.size() - digits > 10 ||
        id.find_first_not_of("0123456789", digits) != std::string::npos) {
        return standin::kErrSubscribeSyntax;
    }
    long long value = std::strtoll(id.c_str(), nullptr, 10);
    if (value < INT32_MIN || value > INT32_MAX) return standin::kErrSubscribeSyntax;

    out.algo_id = static_cast<int>(value);
    out.algo_name = fields[1];
    out.param_name = fields[2];
    out.index = fields[3];
    out.type = text.substr(pos);
    return 0;
}
