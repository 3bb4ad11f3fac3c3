#include "check.h"

#include <cjson/cJSON.h>

#include <cstdio>
#include <cstring>
#include <memory>

#include "host/algo.h"

namespace preview {
namespace {

struct JsonDeleter {
    void operator()(cJSON* json) const { cJSON_Delete(json); }
};

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

std::string Quoted(const cJSON* item) {
    if (cJSON_IsString(item)) return std::string("\"") + item->valuestring + "\"";
    std::unique_ptr<char, decltype(&cJSON_free)> text(cJSON_PrintUnformatted(item), &cJSON_free);
    return text ? text.get() : "?";
}

struct RowRule {
    int code;
    bool element;     // a key of an "Array" element rather than of the row
    const char* key;  // the key the rule is about
    const char* rule;
};

// Every row code of the configuration reader, in words.
const RowRule kRowRules[] = {
    {-1, true, "SubParamStr", "is missing or not a text"},
    {-2, true, "Separator", "is missing or not a text"},
    {-3, true, "ShowValue_CN", "is missing or not a text"},
    {-4, true, "ShowValue_EN", "is missing or not a text"},
    {-5, true, "SubParamStr",
     "is not a subscription text the host accepts "
     "(<algo_id>:<algo_name>:<param_name>:<index>:<type>)"},
    {-6, false, "SubParamStr", "is missing or not a text (or the row is not an object)"},
    {-7, false, "IsCustomEdit", "is missing or not a number"},
    {-8, false, "SubParamStr",
     "is not a subscription text the host accepts "
     "(<algo_id>:<algo_name>:<param_name>:<index>:<type>)"},
    {-9, false, "IsCustomEdit",
     "must be 0 (a subscribed value, or a line-break symbol \\r\\n or \\r) or 1 (a custom text)"},
    {-10, false, "ShowValue_CN", "is missing or not a text"},
    {-11, false, "ShowValue_EN", "is missing or not a text"},
    {-12, false, "ParamName", "is missing or not a text"},
    {-13, false, "ParamName",
     "is used by an earlier row or equals the top-level \"ParamName\"; output names must be "
     "unique"},
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
                CAlgoUtils::ParseSubscribeItem(value->valuestring, parsed)) {
                return index;
            }
        } else if (!cJSON_IsString(value)) {
            return index;
        }
    }
    return -1;
}

std::string ExplainRow(long long code, size_t row, const cJSON* root,
                       const std::vector<LogLine>& log) {
    const RowRule* rule = nullptr;
    for (const auto& r : kRowRules) {
        if (r.code == code) rule = &r;
    }
    if (rule == nullptr) return "row code " + std::to_string(code) + " is not known";

    const cJSON* list = cJSON_GetObjectItem(root, "SubParamList");
    const cJSON* item = cJSON_GetArrayItem(list, static_cast<int>(row));
    const cJSON* name = cJSON_GetObjectItem(item, "ParamName");
    std::string where = "SubParamList[" + std::to_string(row) + "]";
    where += cJSON_IsString(name) ? " (ParamName \"" + std::string(name->valuestring) + "\")"
                                  : " (no ParamName)";

    const cJSON* holder = item;
    if (rule->element) {
        const cJSON* array = cJSON_GetObjectItem(item, "Array");
        int element = FailingElement(array, *rule);
        where += ", Array[" + std::to_string(element) + "]";
        holder = cJSON_GetArrayItem(array, element);
    }
    std::string sentence = where + ": key \"" + rule->key + "\" " + rule->rule;
    const cJSON* value = cJSON_GetObjectItem(holder, rule->key);
    if (value != nullptr) sentence += "; it is " + Quoted(value);
    long long hostCode = 0;
    if ((code == -5 || code == -8) &&
        LoggedNumber(log, "ParseSubscribeItem failed, ret ", "%lld", hostCode)) {
        char text[32];
        std::snprintf(text, sizeof text, " (host code 0x%X)", static_cast<unsigned>(hostCode));
        sentence += text;
    }
    return sentence;
}

}  // namespace

std::vector<std::string> ExplainRefusal(const InitReport& init, const std::string& configText) {
    std::vector<std::string> out;
    if (init.status == 0) return out;
    out.push_back("the configuration is refused: " + StatusMeaning(init.status));

    std::unique_ptr<cJSON, JsonDeleter> root(cJSON_Parse(configText.c_str()));
    long long number = 0;
    if (!root) {
        const char* at = cJSON_GetErrorPtr();
        size_t offset = at != nullptr ? static_cast<size_t>(at - configText.c_str()) : 0;
        out.push_back("the file is not valid JSON: the error is at " +
                      PositionOf(configText, offset));
    } else if (LoggedNumber(init.log, "parseSubParamList failed, ret=", "%lld", number)) {
        out.push_back(ExplainRow(number, init.rowsRead, root.get(), init.log));
    } else if (Logged(init.log, "cJSON_GetObjectItem SubParamList failed")) {
        out.push_back("the top-level key \"SubParamList\" is missing or not a list");
    } else if (LoggedNumber(init.log, "The number of subscribes exceeds the upper limit ", "%lld",
                            number)) {
        out.push_back("the items subscribe to " + std::to_string(number) +
                      " values; at most 127 subscriptions are allowed");
    } else if (Logged(init.log, "dynamic publish table")) {
        out.push_back(
            "the publish table has room for 128 outputs: the host's own, the joined output and "
            "one per item");
    } else {
        for (const char* key : {"ModuleName", "StrConcateEnable", "ParamName"}) {
            if (Logged(init.log, ("FillJsonValue [" + std::string(key) + "]").c_str())) {
                out.push_back(std::string("the top-level key \"") + key +
                              (std::strcmp(key, "StrConcateEnable") == 0
                                   ? "\" is missing or not a number"
                                   : "\" is missing or not a text"));
            }
        }
    }
    return out;
}

}  // namespace preview
