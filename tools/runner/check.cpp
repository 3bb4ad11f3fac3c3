#include "check.h"

#include <cjson/cJSON.h>

#include <cstdio>
#include <cstring>
#include <memory>

#include "diag.h"
#include "host/algo.h"

namespace preview {
namespace {

// The number the module logged right after marker, if it logged the marker.
bool LoggedNumber(const std::vector<LogLine>& log, const char* marker, const char* pattern,
                  long long& value) {
    for (const auto& line : log) {
        const char* at = std::strstr(line.text.c_str(), marker);
        if (at != nullptr && std::sscanf(at + std::strlen(marker), pattern, &value) == 1) {
            return true;
        }
    }
    return false;
}

bool Logged(const std::vector<LogLine>& log, const char* marker) {
    for (const auto& line : log) {
        if (line.text.find(marker) != std::string::npos) return true;
    }
    return false;
}

std::string JsonText(const cJSON* item) {
    std::unique_ptr<char, decltype(&cJSON_free)> text(cJSON_PrintUnformatted(item), &cJSON_free);
    return text ? text.get() : "?";
}

struct RowRule {
    int code;
    bool element;     // a key of an "Array" element rather than of the row
    const char* key;  // the key the rule is about
    const char* rule;
};

const char kSubscriptionRule[] =
    "is not a subscription text the host accepts (<algo_id>:<algo_name>:<param_name>:<index>:"
    "<type>, an integer id and two names that are not empty)";

// Every row code of the configuration reader, in words.
const RowRule kRowRules[] = {
    {-1, true, "SubParamStr", "is missing or not a text"},
    {-2, true, "Separator", "is missing or not a text (use \"\" for none)"},
    {-3, true, "ShowValue_CN", "is missing or not a text"},
    {-4, true, "ShowValue_EN", "is missing or not a text"},
    {-5, true, "SubParamStr", kSubscriptionRule},
    {-6, false, "SubParamStr", "is missing or not a text (or the row is not an object)"},
    {-7, false, "IsCustomEdit", "is missing or not a number"},
    {-8, false, "SubParamStr", kSubscriptionRule},
    {-9, false, "IsCustomEdit",
     "must be 0 (a subscribed value, or a line-break symbol \\r\\n or \\r) or 1 (a custom text)"},
    {-10, false, "ShowValue_CN", "is missing or not a text"},
    {-11, false, "ShowValue_EN", "is missing or not a text"},
    {-12, false, "ParamName", "is missing or not a text"},
    {-13, false, "ParamName",
     "is used by an earlier row or equals the top-level \"ParamName\"; output names must be "
     "unique (letter case counts)"},
    {-14, false, "ConvertType", "is missing or not a number"},
    {-15, false, "ConvertType", "must be 1 (int), 2 (float) or 3 (string)"},
    {-16, false, "ConvertType",
     "must be 3 (string) while \"StrConcateEnable\" is on: the joined output is one text"},
    {-17, false, "StrTruncEnable", "is missing or not a number"},
    {-18, false, "StrTruncStart", "is missing or not a number"},
    {-19, false, "StrTruncLen", "is missing or not a number"},
    {-20, false, "StrPrefix", "is missing or not a text (use \"\" for none)"},
    {-21, false, "StrSuffix", "is missing or not a text (use \"\" for none)"},
    {-22, false, "StrDelete", "is missing or not a text (use \"\" for none)"},
};

// The first element of the row's "Array" that breaks rule (the module stops there too).
int FailingElement(const cJSON* array, const RowRule& rule) {
    int index = 0;
    for (const cJSON* e = array ? array->child : nullptr; e != nullptr; e = e->next, ++index) {
        const cJSON* value = cJSON_GetObjectItem(e, rule.key);
        if (rule.code == -5) {
            CAlgoUtils::SubParam parsed;
            if (cJSON_IsString(value) &&
                CAlgoUtils::ParseSubscribeItem(value->valuestring, parsed) != 0) {
                return index;
            }
        } else if (!cJSON_IsString(value)) {
            return index;
        }
    }
    return -1;
}

void ExplainRow(Refusal& r, long long code, size_t row, const cJSON* root,
                const std::vector<LogLine>& log) {
    const RowRule* rule = nullptr;
    for (const auto& candidate : kRowRules) {
        if (candidate.code == code) rule = &candidate;
    }
    r.code = static_cast<int>(code);
    r.at.row = static_cast<int>(row);
    if (rule == nullptr) {
        r.rule = "row code " + std::to_string(code) + " is not known";
        return;
    }
    const cJSON* list = cJSON_GetObjectItem(root, "SubParamList");
    const cJSON* item = cJSON_GetArrayItem(list, static_cast<int>(row));
    const cJSON* name = cJSON_GetObjectItem(item, "ParamName");
    if (cJSON_IsString(name)) r.at.paramName = name->valuestring;
    r.at.key = rule->key;
    r.rule = rule->rule;
    const cJSON* holder = item;
    if (rule->element) {
        const cJSON* array = cJSON_GetObjectItem(item, "Array");
        r.at.element = FailingElement(array, *rule);
        holder = cJSON_GetArrayItem(array, r.at.element);
    }
    if (const cJSON* value = cJSON_GetObjectItem(holder, rule->key)) r.value = JsonText(value);
    long long hostCode = 0;
    if ((code == -5 || code == -8) &&
        LoggedNumber(log, "ParseSubscribeItem failed, ret ", "%lld", hostCode)) {
        char text[48];
        std::snprintf(text, sizeof text, " (host code 0x%X)", static_cast<unsigned>(hostCode));
        r.rule += text;
    }
}

}  // namespace

std::optional<Refusal> ExplainRefusal(int status, const std::vector<LogLine>& log,
                                      size_t rowsRead, const std::string& configText) {
    if (status == 0) return std::nullopt;
    Refusal r;
    r.status = status;
    JsonPtr root(cJSON_Parse(configText.c_str()));
    long long number = 0;
    if (!root) {
        const JsonSyntax syntax = DescribeJsonError(configText, cJSON_GetErrorPtr());
        r.syntax = true;
        r.line = syntax.line;
        r.column = syntax.column;
        r.rule = "not valid JSON";
        r.message = syntax.reason;
        return r;
    }
    if (LoggedNumber(log, "parseSubParamList failed, ret=", "%lld", number)) {
        ExplainRow(r, number, rowsRead, root.get(), log);
    } else if (Logged(log, "cJSON_GetObjectItem SubParamList failed")) {
        r.at.key = "SubParamList";
        r.rule = "is missing or not a list";
    } else if (LoggedNumber(log, "The number of subscribes exceeds the upper limit ", "%lld",
                            number)) {
        r.rule = "the items subscribe to " + std::to_string(number) +
                 " values; at most 127 subscriptions are allowed";
    } else if (Logged(log, "dynamic publish table")) {
        r.rule =
            "the publish table has room for 128 outputs: the host's own, the joined output and "
            "one per item";
    } else {
        for (const char* key : {"ModuleName", "StrConcateEnable", "ParamName"}) {
            if (Logged(log, ("FillJsonValue [" + std::string(key) + "]").c_str())) {
                r.at.key = key;
                r.rule = std::strcmp(key, "StrConcateEnable") == 0 ? "is missing or not a number"
                                                                   : "is missing or not a text";
                if (const cJSON* v = cJSON_GetObjectItem(root.get(), key)) r.value = JsonText(v);
                break;
            }
        }
        if (r.rule.empty()) {
            r.rule = cJSON_IsObject(root.get()) ? "refused by the module (see its log)"
                                                : "the configuration is not a JSON object";
        }
    }
    const std::string where = Where(r.at);
    r.message = (where.empty() ? "" : where + " ") + r.rule;
    if (r.value) r.message += "; it is " + *r.value;
    return r;
}

}  // namespace preview
