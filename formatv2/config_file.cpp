// Reading "algo_private.json" from the working directory through the host's file utilities,
// then the two dynamic tables built from what was read. A failure keeps what the read had
// built up to that point; the dynamic tables change only once the whole text was accepted.
#include <cstring>

#include "contract/guard.h"
#include "formatv2/formatv2.h"
#include "host/osal.h"
#include "publish/publish.h"

using formatv2::Msg;

namespace {

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

ConfigTarget CFormatV2Module::Target() {
    return {ModuleName, StrConcateEnable, ParamName, SubParamList};
}

int CFormatV2Module::GetSubParamList() {
    std::string text;
    const int status = ReadConfigFile(text);
    // Recording follows every read, a refused one too: its runs are the ones worth keeping.
    Guarded([&] { ConfigureRecording(text); });
    return status;
}

int CFormatV2Module::ReadConfigFile(std::string& text) {
    const std::string path = WorkDir + "/" + kConfigFileName;

    const long size = osal_get_file_size(path.c_str());
    if (size < 0) return kStatusFileSize;

    // One byte more than the file, all zero, so the text is always terminated.
    OsalBuffer buffer(static_cast<size_t>(size) + 1);
    if (buffer.data == nullptr) return kStatusMissing;
    std::memset(buffer.data, 0, static_cast<size_t>(size) + 1);
    if (osal_load_file(path.c_str(), 0, buffer.data, size) < 0) return kStatusFileLoad;

    text.assign(buffer.data, static_cast<size_t>(size));
    const formatv2::Logger log = Log();
    log.Say<Msg::kConfigText>(static_cast<void*>(buffer.data), static_cast<int>(size));

    int status = 0;
    int ret = ParsePrivJson(buffer.data);
    if (ret != 0) {
        log.Say<Msg::kConfigRefused>(ret);
        status = kStatusConfigRefused;
    } else if ((ret = UpdateDynamicSubInfo()) != 0) {
        log.Say<Msg::kSubscribeTableRefused>(ret);
        status = kStatusTableRefused;
    } else if ((ret = UpdateDynamicPubInfo()) != 0) {
        log.Say<Msg::kPublishTableRefused>(ret);
        status = kStatusTableRefused;
    }
    return status;
}

int CFormatV2Module::ParsePrivJson(const char* text) {
    return ConfigReader(Log(), &CAlgoUtils::ParseSubscribeItem).Parse(text, Target());
}

int CFormatV2Module::parseSubParamList(cJSON* list) {
    return ConfigReader(Log(), &CAlgoUtils::ParseSubscribeItem).ParseList(list, Target());
}

int CFormatV2Module::FillJsonValue(cJSON* object, const char* key, int& out, const int& def) {
    return ConfigReader(Log(), &CAlgoUtils::ParseSubscribeItem).Fill(object, key, out, def);
}

int CFormatV2Module::FillJsonValue(cJSON* object, const char* key, float& out, const float& def) {
    return ConfigReader(Log(), &CAlgoUtils::ParseSubscribeItem).Fill(object, key, out, def);
}

int CFormatV2Module::FillJsonValue(cJSON* object, const char* key, std::string& out,
                                   const std::string& def) {
    return ConfigReader(Log(), &CAlgoUtils::ParseSubscribeItem).Fill(object, key, out, def);
}
