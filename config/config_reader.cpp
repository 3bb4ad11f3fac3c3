// Reading "algo_private.json": the top-level settings and the item list, then the two dynamic
// tables built from them. A failure keeps what the read had built up to that point; the
// dynamic tables change only once the whole text has been accepted.
#include <cstring>

#include "config/config_read.h"
#include "formatv2/formatv2.h"
#include "formatv2/module_log.h"
#include "host/osal.h"

namespace {

constexpr int kErrNoText = kStatusMissing;
constexpr int kErrFileSize = kStatusFileSize;
constexpr int kErrFileLoad = kStatusFileLoad;
constexpr int kErrConfigRefused = kStatusConfigRefused;
constexpr int kErrTableRefused = kStatusTableRefused;

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

// The reading itself is ConfigReader's (config_read.cpp), which tools share; the module
// stops at the first refusal and logs through its own logging library.
int CFormatV2Module::ParsePrivJson(const char* text) {
    return ConfigReader(&log_print_mod, ModuleId)
        .Parse(text, {ModuleName, StrConcateEnable, ParamName, SubParamList});
}

int CFormatV2Module::parseSubParamList(cJSON* list) {
    return ConfigReader(&log_print_mod, ModuleId)
        .ParseList(list, {ModuleName, StrConcateEnable, ParamName, SubParamList});
}

int CFormatV2Module::FillJsonValue(cJSON* object, const char* key, int& out, const int& def) {
    return ConfigReader(&log_print_mod, ModuleId).Fill(object, key, out, def);
}

int CFormatV2Module::FillJsonValue(cJSON* object, const char* key, float& out, const float& def) {
    return ConfigReader(&log_print_mod, ModuleId).Fill(object, key, out, def);
}

int CFormatV2Module::FillJsonValue(cJSON* object, const char* key, std::string& out,
                                   const std::string& def) {
    return ConfigReader(&log_print_mod, ModuleId).Fill(object, key, out, def);
}
