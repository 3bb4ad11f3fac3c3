// The reader of "algo_private.json". Keys are looked up with cJSON_GetObjectItem (letter case
// ignored, the first of two equal keys wins) in a fixed order, and the first key that fails
// names the refusal: the module stops there. A caller with a sink reads on, skipping only the
// checks that a failed key would make fail again (a subscription text that is missing, a
// name that is missing), so that every refusal it is told is one of its own.
#include "config/config_read.h"

#include <cjson/cJSON.h>

#include <pthread.h>

#include <memory>

const std::string EscapedCrLf = "\\r\\n";
const std::string EscapedCr = "\\r";

namespace key = formatv2::key;

namespace {

struct JsonDeleter {
    void operator()(cJSON* json) const { cJSON_Delete(json); }
};

// cJSON's parser writes one process-wide variable (its error position) on every call, so
// module instances that read their files on different threads would race inside cJSON.
// Parses take turns. A POSIX mutex initialised statically is ready before any constructor
// runs and needs no destructor: nothing is registered to run at unload, and the library can
// still leave the process.
pthread_mutex_t g_parseLock = PTHREAD_MUTEX_INITIALIZER;

class ParseTurn {
  public:
    ParseTurn() { pthread_mutex_lock(&g_parseLock); }
    ~ParseTurn() { pthread_mutex_unlock(&g_parseLock); }
    ParseTurn(const ParseTurn&) = delete;
    ParseTurn& operator=(const ParseTurn&) = delete;
};

cJSON* ParseAlone(const char* text, const char** where) {
    const ParseTurn turn;
    return cJSON_ParseWithOpts(text, where, 0);
}

}  // namespace

bool ConfigReader::Stop(ConfigRefusal refusal) {
    if (m_sink == nullptr) return true;
    m_sink->Refused(refusal);
    return false;
}

bool ConfigReader::StopRow(RowCode code, int row, int element, int hostCode) {
    if (m_firstCode == 0) m_firstCode = code;
    const RowCodeInfo& info = RowCodeOf(code);
    return Stop({info.rule, code, row, element, info.key, hostCode, 0});
}

int ConfigReader::Parse(const char* text, const ConfigTarget& target) {
    if (text == nullptr) return kStatusMissing;

    // The error position comes from the parse itself. cJSON also keeps it in one
    // process-wide variable (what cJSON_GetErrorPtr reads), which another instance's parse on
    // another thread may overwrite at any moment, or leave pointing into a freed text.
    const char* where = nullptr;
    std::unique_ptr<cJSON, JsonDeleter> root(ParseAlone(text, &where));
    if (!root) {
        if (where != nullptr) m_log.Say<formatv2::Msg::kJsonSyntax>(where);
        const size_t offset = where != nullptr ? static_cast<size_t>(where - text) : 0;
        Stop({formatv2::Rule::kJsonSyntax, 0, -1, -1, nullptr, 0, offset});
        return kStatusConfigRefused;
    }

    target.ModuleName.clear();
    target.ParamName.clear();
    target.StrConcateEnable = 0;
    target.SubParamList.clear();

    bool refused = false;
    auto top = [&](bool failed, const char* key, formatv2::Rule rule) {
        if (failed) refused = true;
        return failed && Stop({rule, 0, -1, -1, key, 0, 0});
    };
    if (top(Fill(root.get(), key::kModuleName, target.ModuleName, "null") != 0, key::kModuleName,
            formatv2::Rule::kNotAText) ||
        top(Fill(root.get(), key::kStrConcateEnable, target.StrConcateEnable, 0) != 0,
            key::kStrConcateEnable, formatv2::Rule::kNotANumber) ||
        top(Fill(root.get(), key::kParamName, target.ParamName, "null") != 0, key::kParamName,
            formatv2::Rule::kNotAText)) {
        return kStatusConfigRefused;
    }

    cJSON* list = cJSON_GetObjectItem(root.get(), key::kSubParamList);
    if (list == nullptr || !cJSON_IsArray(list)) {
        m_log.Say<formatv2::Msg::kNoSubParamList>();
        Stop({formatv2::Rule::kNotAList, 0, -1, -1, key::kSubParamList, 0, 0});
        return kStatusConfigRefused;
    }

    const int ret = ParseList(list, target);
    if (ret != 0) {
        m_log.Say<formatv2::Msg::kRowsRefused>(ret);
        return kStatusConfigRefused;
    }
    return refused ? kStatusConfigRefused : 0;
}

int ConfigReader::Elements(cJSON* array, int row, DataSection& item) {
    const std::string kNull = "null";
    int position = 0;
    for (cJSON* element = array->child; element != nullptr; element = element->next) {
        const int at = position++;
        DataField field;
        const bool noText = Fill(element, key::kSubParamStr, field.SubParamStr, kNull) != 0;
        if (noText && StopRow(kRowElementSubParamStr, row, at)) return kRowElementSubParamStr;
        if (Fill(element, key::kSeparator, field.Separator, kNull) != 0 &&
            StopRow(kRowElementSeparator, row, at)) {
            return kRowElementSeparator;
        }
        if (Fill(element, key::kShowValueCn, field.ShowValue_CN, kNull) != 0 &&
            StopRow(kRowElementShowValueCn, row, at)) {
            return kRowElementShowValueCn;
        }
        if (Fill(element, key::kShowValueEn, field.ShowValue_EN, kNull) != 0 &&
            StopRow(kRowElementShowValueEn, row, at)) {
            return kRowElementShowValueEn;
        }
        if (noText) continue;
        const int r = m_parse(field.SubParamStr, field.SubParam);
        field.Format = ReadFormat(field.SubParam.type);
        if (r != 0) {
            m_log.Say<formatv2::Msg::kFieldSubscriptionRefused>(r);
            if (StopRow(kRowElementSubscription, row, at, r)) return kRowElementSubscription;
        }
        item.Array.push_back(std::move(field));
    }
    return 0;
}

int ConfigReader::Single(cJSON* row, int position, DataSection& item) {
    const std::string kNull = "null";
    int customEdit = 0;
    const bool noText = Fill(row, key::kSubParamStr, item.SubParamStr, kNull) != 0;
    if (noText && StopRow(kRowSubParamStr, position, -1)) return kRowSubParamStr;
    const bool noKind = Fill(row, key::kIsCustomEdit, customEdit, 0) != 0;
    if (noKind && StopRow(kRowIsCustomEdit, position, -1)) return kRowIsCustomEdit;
    if (noKind) {
        // The kind is not known: nothing more to check before the labels.
    } else if (customEdit == 0) {
        if (item.SubParamStr == EscapedCrLf || item.SubParamStr == EscapedCr) {
            item.DataType = FORMAT_V2_DATA_SYMBOL;
        } else {
            item.DataType = FORMAT_V2_DATA_SUBSCRIBE;
            const int r = noText ? 0 : m_parse(item.SubParamStr, item.SubParam);
            item.Format = ReadFormat(item.SubParam.type);
            if (r != 0) {
                m_log.Say<formatv2::Msg::kRowSubscriptionRefused>(r);
                if (StopRow(kRowSubscription, position, -1, r)) return kRowSubscription;
            }
        }
    } else if (customEdit == 1) {
        item.DataType = FORMAT_V2_DATA_CUSTOM;
    } else {
        m_log.Say<formatv2::Msg::kCustomEditValue>(customEdit);
        if (StopRow(kRowCustomEditValue, position, -1)) return kRowCustomEditValue;
    }
    if (Fill(row, key::kShowValueCn, item.ShowValue_CN, kNull) != 0 &&
        StopRow(kRowShowValueCn, position, -1)) {
        return kRowShowValueCn;
    }
    if (Fill(row, key::kShowValueEn, item.ShowValue_EN, kNull) != 0 &&
        StopRow(kRowShowValueEn, position, -1)) {
        return kRowShowValueEn;
    }
    return 0;
}

// The keys every row has: its name, its type and its text settings.
int ConfigReader::Named(cJSON* row, int position, DataSection& item, const ConfigTarget& target,
                        std::set<std::string>& names) {
    const std::string kNull = "null";
    const bool noName = Fill(row, key::kParamName, item.ParamName, kNull) != 0;
    if (noName && StopRow(kRowParamName, position, -1)) return kRowParamName;
    // Item names are output names: unique, and distinct from the joined output's name.
    if (!noName && (item.ParamName == target.ParamName || !names.insert(item.ParamName).second) &&
        StopRow(kRowNameNotUnique, position, -1)) {
        return kRowNameNotUnique;
    }

    int convertType = 0;
    const bool noType = Fill(row, key::kConvertType, convertType, 0) != 0;
    if (noType && StopRow(kRowConvertType, position, -1)) return kRowConvertType;
    if (noType) {
        // No type to check.
    } else if (convertType == FORMAT_V2_VARIATE_INT || convertType == FORMAT_V2_VARIATE_FLOAT) {
        item.ConvertType = static_cast<FORMAT_V2_VARIATE_TYPE>(convertType);
        // The joined output is one text: every item must publish text.
        if (target.StrConcateEnable != 0 && StopRow(kRowConcatNeedsText, position, -1)) {
            return kRowConcatNeedsText;
        }
    } else if (convertType == FORMAT_V2_VARIATE_STRING) {
        item.ConvertType = FORMAT_V2_VARIATE_STRING;
    } else {
        m_log.Say<formatv2::Msg::kConvertTypeValue>(convertType);
        if (StopRow(kRowConvertTypeValue, position, -1)) return kRowConvertTypeValue;
    }

    const struct {
        RowCode code;
        int* number;
        std::string* text;
    } rest[] = {{kRowStrTruncEnable, &item.StrTruncEnable, nullptr},
                {kRowStrTruncStart, &item.StrTruncStart, nullptr},
                {kRowStrTruncLen, &item.StrTruncLen, nullptr},
                {kRowStrPrefix, nullptr, &item.StrPrefix},
                {kRowStrSuffix, nullptr, &item.StrSuffix},
                {kRowStrDelete, nullptr, &item.StrDelete}};
    for (const auto& r : rest) {
        const char* key = RowCodeOf(r.code).key;
        const int failed =
            r.number != nullptr ? Fill(row, key, *r.number, 0) : Fill(row, key, *r.text, kNull);
        if (failed != 0 && StopRow(r.code, position, -1)) return r.code;
    }
    return 0;
}

int ConfigReader::ParseList(cJSON* list, const ConfigTarget& target) {
    if (list == nullptr || list->child == nullptr) return 0;

    std::set<std::string> names;
    m_firstCode = 0;
    int position = 0;
    for (cJSON* row = list->child; row != nullptr; row = row->next, ++position) {
        DataSection item;
        cJSON* array = cJSON_GetObjectItem(row, key::kArray);
        int ret = 0;
        if (array != nullptr && cJSON_IsArray(array)) {
            item.DataType = FORMAT_V2_DATA_ARRAY;
            ret = Elements(array, position, item);
        } else {
            ret = Single(row, position, item);
        }
        if (ret == 0) ret = Named(row, position, item, target, names);
        if (ret != 0) return ret;
        // With a sink the read goes on, but a refused row joins no list.
        if (m_firstCode == 0) target.SubParamList.push_back(item);
    }
    return m_firstCode;
}

int ConfigReader::Fill(cJSON* object, const char* key, int& out, const int& def) {
    cJSON* value = cJSON_GetObjectItem(object, key);
    if (value == nullptr || !cJSON_IsNumber(value)) {
        m_log.Say<formatv2::Msg::kNumberKeyFailed>(key);
        out = def;
        return -1;
    }
    // cJSON's integer value: saturated at the int limits, fractions cut toward zero.
    out = value->valueint;
    return 0;
}

int ConfigReader::Fill(cJSON* object, const char* key, float& out, const float& def) {
    cJSON* value = cJSON_GetObjectItem(object, key);
    if (value == nullptr || !cJSON_IsNumber(value)) {
        m_log.Say<formatv2::Msg::kFloatKeyFailed>(key);
        out = def;
        return -1;
    }
    out = static_cast<float>(value->valuedouble);
    return 0;
}

int ConfigReader::Fill(cJSON* object, const char* key, std::string& out, const std::string& def) {
    cJSON* value = cJSON_GetObjectItem(object, key);
    if (value == nullptr || !cJSON_IsString(value) || value->valuestring == nullptr) {
        m_log.Say<formatv2::Msg::kTextKeyFailed>(key);
        out = def;
        return -1;
    }
    out = value->valuestring;
    return 0;
}

size_t SubscriptionCount(const std::vector<DataSection>& items) {
    size_t count = 0;
    for (const DataSection& item : items) {
        if (item.DataType == FORMAT_V2_DATA_SUBSCRIBE) count += 1;
        if (item.DataType == FORMAT_V2_DATA_ARRAY) count += item.Array.size();
    }
    return count;
}
