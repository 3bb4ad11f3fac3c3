// Reading "algo_private.json": the top-level settings and the item list, then the two dynamic
// tables built from them. A failure keeps what the read had built up to that point; the
// dynamic tables change only once the whole text has been accepted.
#include <cjson/cJSON.h>

#include <cstring>
#include <memory>
#include <mutex>
#include <set>
#include <type_traits>

#include "formatv2/formatv2.h"
#include "formatv2/module_log.h"
#include "host/osal.h"

namespace {

constexpr int kErrNoText = static_cast<int>(0xE000000A);
constexpr int kErrFileSize = static_cast<int>(0xE0000203);
constexpr int kErrFileLoad = static_cast<int>(0xE0000201);
constexpr int kErrConfigRefused = static_cast<int>(0xC0000105);
constexpr int kErrTableRefused = static_cast<int>(0xC0000119);

// Releases the configuration text, which comes from the host's allocator, on every path.
// A failed allocation releases nothing: the host's osal_free need not accept null.
struct OsalBuffer {
    explicit OsalBuffer(size_t size) : data(static_cast<char*>(osal_malloc(size, 4))) {}
    ~OsalBuffer() {
        if (data != nullptr) osal_free(data);
    }
    OsalBuffer(const OsalBuffer&) = delete;
    OsalBuffer& operator=(const OsalBuffer&) = delete;
    char* data;
};

struct JsonDeleter {
    void operator()(cJSON* json) const { cJSON_Delete(json); }
};

// cJSON's parser writes one process-wide variable (its error position) on every call, so
// module instances that read their files on different threads would race inside cJSON.
// Parses take turns. The mutex is constant-initialised and has no destructor: nothing is
// registered to run at unload, and the library can still leave the process.
std::mutex g_parseLock;
static_assert(std::is_trivially_destructible_v<std::mutex>);

cJSON* ParseAlone(const char* text, const char** where) {
    const std::lock_guard<std::mutex> turn(g_parseLock);
    return cJSON_ParseWithOpts(text, where, 0);
}

}  // namespace

int CFormatV2Module::GetSubParamList() {
    const std::string path = WorkDir + "/" + "algo_private.json";

    const long size = osal_get_file_size(path.c_str());
    if (size < 0) return kErrFileSize;

    // One byte more than the file, all zero, so the text is always terminated.
    OsalBuffer buffer(static_cast<size_t>(size) + 1);
    if (buffer.data == nullptr) return kErrNoText;
    std::memset(buffer.data, 0, static_cast<size_t>(size) + 1);
    if (osal_load_file(path.c_str(), 0, buffer.data, size) < 0) return kErrFileLoad;

    FV2_INFO("pJsonStr = %p, fileSize : %d\r\n", static_cast<void*>(buffer.data),
             static_cast<int>(size));

    int status = 0;
    int ret = ParsePrivJson(buffer.data);
    if (ret != 0) {
        FV2_ERR("parse priv json err:0x%x\n", ret);
        status = kErrConfigRefused;
    } else if ((ret = UpdateDynamicSubInfo()) != 0) {
        FV2_ERR("update dynamic subscribe info err:0x%x\n", ret);
        status = kErrTableRefused;
    } else if ((ret = UpdateDynamicPubInfo()) != 0) {
        FV2_ERR("update dynamic publish info err:0x%x\n", ret);
        status = kErrTableRefused;
    }
    return status;
}

int CFormatV2Module::ParsePrivJson(const char* text) {
    if (text == nullptr) return kErrNoText;

    // The error position comes from the parse itself. cJSON also keeps it in its process-wide
    // variable (what cJSON_GetErrorPtr reads), which the next parse, of any instance, resets,
    // or leaves pointing into a text that is freed by then.
    const char* where = nullptr;
    std::unique_ptr<cJSON, JsonDeleter> root(ParseAlone(text, &where));
    if (!root) {
        if (where != nullptr) FV2_ERR("cJSON parse Error: %s\n", where);
        return kErrConfigRefused;
    }

    ModuleName.clear();
    ParamName.clear();
    StrConcateEnable = 0;
    SubParamList.clear();

    if (FillJsonValue(root.get(), "ModuleName", ModuleName, "null") != 0 ||
        FillJsonValue(root.get(), "StrConcateEnable", StrConcateEnable, 0) != 0 ||
        FillJsonValue(root.get(), "ParamName", ParamName, "null") != 0) {
        return kErrConfigRefused;
    }

    cJSON* list = cJSON_GetObjectItem(root.get(), "SubParamList");
    if (list == nullptr || !cJSON_IsArray(list)) {
        FV2_ERR("cJSON_GetObjectItem SubParamList failed\n");
        return kErrConfigRefused;
    }

    int ret = parseSubParamList(list);
    if (ret != 0) {
        FV2_ERR("parseSubParamList failed, ret=%d\n", ret);
        return kErrConfigRefused;
    }
    return 0;
}

int CFormatV2Module::parseSubParamList(cJSON* list) {
    if (list == nullptr || list->child == nullptr) return 0;

    const std::string kNull = "null";
    std::set<std::string> names;

    for (cJSON* row = list->child; row != nullptr; row = row->next) {
        DataSection item;

        cJSON* array = cJSON_GetObjectItem(row, "Array");
        if (array != nullptr && cJSON_IsArray(array)) {
            item.DataType = FORMAT_V2_DATA_ARRAY;
            for (cJSON* element = array->child; element != nullptr; element = element->next) {
                DataField field;
                if (FillJsonValue(element, "SubParamStr", field.SubParamStr, kNull) != 0) return -1;
                if (FillJsonValue(element, "Separator", field.Separator, kNull) != 0) return -2;
                if (FillJsonValue(element, "ShowValue_CN", field.ShowValue_CN, kNull) != 0)
                    return -3;
                if (FillJsonValue(element, "ShowValue_EN", field.ShowValue_EN, kNull) != 0)
                    return -4;
                int r = CAlgoUtils::ParseSubscribeItem(field.SubParamStr, field.SubParam);
                if (r != 0) {
                    FV2_ERR("ParseSubscribeItem failed, ret %d\n", r);
                    return -5;
                }
                item.Array.push_back(std::move(field));
            }
        } else {
            int customEdit = 0;
            if (FillJsonValue(row, "SubParamStr", item.SubParamStr, kNull) != 0) return -6;
            if (FillJsonValue(row, "IsCustomEdit", customEdit, 0) != 0) return -7;
            if (customEdit == 0) {
                if (item.SubParamStr == EscapedCrLf || item.SubParamStr == EscapedCr) {
                    item.DataType = FORMAT_V2_DATA_SYMBOL;
                } else {
                    item.DataType = FORMAT_V2_DATA_SUBSCRIBE;
                    int r = CAlgoUtils::ParseSubscribeItem(item.SubParamStr, item.SubParam);
                    if (r != 0) {
                        FV2_ERR("ParseSubscribeItem failed, ret %d\n", r);
                        return -8;
                    }
                }
            } else if (customEdit == 1) {
                item.DataType = FORMAT_V2_DATA_CUSTOM;
            } else {
                FV2_ERR("Unsupported DATA type: [%d]\n", customEdit);
                return -9;
            }
            if (FillJsonValue(row, "ShowValue_CN", item.ShowValue_CN, kNull) != 0) return -10;
            if (FillJsonValue(row, "ShowValue_EN", item.ShowValue_EN, kNull) != 0) return -11;
        }

        if (FillJsonValue(row, "ParamName", item.ParamName, kNull) != 0) return -12;
        // Item names are output names: unique, and distinct from the joined output's name.
        if (item.ParamName == ParamName || !names.insert(item.ParamName).second) return -13;

        int convertType = 0;
        if (FillJsonValue(row, "ConvertType", convertType, 0) != 0) return -14;
        if (convertType == FORMAT_V2_VARIATE_INT || convertType == FORMAT_V2_VARIATE_FLOAT) {
            item.ConvertType = static_cast<FORMAT_V2_VARIATE_TYPE>(convertType);
            // The joined output is one text: every item must publish text.
            if (StrConcateEnable != 0) return -16;
        } else if (convertType == FORMAT_V2_VARIATE_STRING) {
            item.ConvertType = FORMAT_V2_VARIATE_STRING;
        } else {
            FV2_ERR("Unsupported convert type: %d\n", convertType);
            return -15;
        }

        if (FillJsonValue(row, "StrTruncEnable", item.StrTruncEnable, 0) != 0) return -17;
        if (FillJsonValue(row, "StrTruncStart", item.StrTruncStart, 0) != 0) return -18;
        if (FillJsonValue(row, "StrTruncLen", item.StrTruncLen, 0) != 0) return -19;
        if (FillJsonValue(row, "StrPrefix", item.StrPrefix, kNull) != 0) return -20;
        if (FillJsonValue(row, "StrSuffix", item.StrSuffix, kNull) != 0) return -21;
        if (FillJsonValue(row, "StrDelete", item.StrDelete, kNull) != 0) return -22;

        SubParamList.push_back(item);
    }
    return 0;
}

int CFormatV2Module::FillJsonValue(cJSON* object, const char* key, int& out, const int& def) {
    cJSON* value = cJSON_GetObjectItem(object, key);
    if (value == nullptr || !cJSON_IsNumber(value)) {
        FV2_ERR("FillJsonValue [%s] falied.\n", key);
        out = def;
        return -1;
    }
    // cJSON's integer value: saturated at the int limits, fractions cut toward zero.
    out = value->valueint;
    return 0;
}

int CFormatV2Module::FillJsonValue(cJSON* object, const char* key, float& out, const float& def) {
    cJSON* value = cJSON_GetObjectItem(object, key);
    if (value == nullptr || !cJSON_IsNumber(value)) {
        FV2_ERR("FillJsonValue [%s] falied.\n", key);
        out = def;
        return -1;
    }
    out = static_cast<float>(value->valuedouble);
    return 0;
}

int CFormatV2Module::FillJsonValue(cJSON* object, const char* key, std::string& out,
                                   const std::string& def) {
    cJSON* value = cJSON_GetObjectItem(object, key);
    if (value == nullptr || !cJSON_IsString(value) || value->valuestring == nullptr) {
        FV2_ERR("FillJsonValue [%s] falied.\n", key);
        out = def;
        return -1;
    }
    out = value->valuestring;
    return 0;
}
