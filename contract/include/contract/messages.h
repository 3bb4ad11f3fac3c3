// The module's log messages, each once: its level, the source line number its line carries
// and its text. Host log tools look lines up by those numbers, so a number belongs to the
// message, not to wherever the code that logs it happens to stand.
//
// Every line reads "| <tag> | <id>formatv2 | formatv2.cpp:<line>: <text>", Warn lines wrapped
// in yellow and Err lines in red. Code below the module shell logs through a Logger that the
// shell hands down; a Logger without a function logs nothing (the runner reads configurations
// that way). The argument types of every call are checked against the text at compile time.
#pragma once

#include <cstddef>
#include <type_traits>

#include "log/log.h"

// X(name, level, line, text), level one of INFO, WARN, ERR.
#define FORMATV2_MESSAGES(X)                                                                     \
    /* initialisation */                                                                         \
    X(InitStart, INFO, 951, "func init start\n")                                                 \
    X(SetModuleTypeFailed, ERR, 956, "resultManage SetModuleType failed, nErrCode = 0x%x\r\n")   \
    X(InitPrivJsonFailed, ERR, 963, "init private json failed, nErrCode = 0x%x\r\n")             \
    X(InitReadFailed, ERR, 970, "GetSubParamList failed, ret 0x%x\r\n")                          \
    X(InitEnd, INFO, 975, "func init end\r\n")                                                   \
    X(CopyDefaultFailed, ERR, 941, "copy default private json failed, nRet = %d\r\n")            \
    /* reading the configuration file */                                                         \
    X(ConfigText, INFO, 45, "pJsonStr = %p, fileSize : %d\r\n")                                  \
    X(ConfigRefused, ERR, 51, "parse priv json err:0x%x\n")                                      \
    X(SubscribeTableRefused, ERR, 54, "update dynamic subscribe info err:0x%x\n")                \
    X(PublishTableRefused, ERR, 57, "update dynamic publish info err:0x%x\n")                    \
    /* the configuration reader */                                                               \
    X(JsonSyntax, ERR, 69, "cJSON parse Error: %s\n")                                            \
    X(NoSubParamList, ERR, 96, "cJSON_GetObjectItem SubParamList failed\n")                      \
    X(RowsRefused, ERR, 103, "parseSubParamList failed, ret=%d\n")                               \
    X(FieldSubscriptionRefused, ERR, 132, "ParseSubscribeItem failed, ret %d\n")                 \
    X(RowSubscriptionRefused, ERR, 157, "ParseSubscribeItem failed, ret %d\n")                   \
    X(CustomEditValue, ERR, 164, "Unsupported DATA type: [%d]\n")                                \
    X(ConvertTypeValue, ERR, 204, "Unsupported convert type: %d\n")                              \
    X(NumberKeyFailed, ERR, 254, "FillJsonValue [%s] falied.\n")                                 \
    X(FloatKeyFailed, ERR, 266, "FillJsonValue [%s] falied.\n")                                  \
    X(TextKeyFailed, ERR, 277, "FillJsonValue [%s] falied.\n")                                   \
    /* parameters */                                                                             \
    X(CheckParamFailed, ERR, 27, "CheckParam %s value %s is not valid\r\n")                      \
    X(EnsureFailed, ERR, 30, "GetSubParamList failed, ret 0x%x\r\n")                             \
    X(SetParamStart, INFO, 32, "SetParam %s: %s\r\n")                                            \
    X(StoreParamFailed, ERR, 36, "UpParam2Map failed, ret = %d\r\n")                             \
    X(SetParamEnd, INFO, 40, "func set param[%s] end, data[%s]\r\n")                             \
    /* the dynamic subscription table */                                                         \
    X(TooManySubscriptions, ERR, 36,                                                             \
      "The number of subscribes exceeds the upper limit %d > %d.\n")                             \
    X(NoSuchDataType, ERR, 59, "no such data type!\n")                                           \
    X(SubscriptionCount, INFO, 67, "Get dynamic sub Scribe param num: %d\r\n")                   \
    X(SubscriptionEntry, INFO, 76,                                                               \
      "nParamIdx %d: pub(algo_id[%d] algo_name[%s] param_name[%s]) sub(algo_id[%d] "             \
      "algo_name[%s] param_name[%s])\r\n")                                                       \
    /* runs */                                                                                   \
    X(RunThrown, ERR, 42, "[%s] occur error:(0x%x)\r\n")                                         \
    X(ResultThrown, ERR, 54, "[%s] occur error:(0x%x)\r\n")                                      \
    X(NoInputFrame, ERR, 490, "[%s] occur error(0x%x)\r\n")                                      \
    X(ProcessStart, INFO, 496, "formatv2 Process start\n")                                       \
    X(NoImgMode, ERR, 499, "[%s] occur error:(0x%x)\r\n")                                        \
    X(NoSuchDataFormat, ERR, 525, "No such data format %d\n")                                    \
    X(ItemFailed, ERR, 529, "[%s] occur error:(0x%x)\r\n")                                       \
    X(CombineFailed, ERR, 533, "[%s] occur error:(0x%x)\r\n")                                    \
    X(ProcessEnd, INFO, 536, "formatv2 Process end, status : %d\n")                              \
    X(AddResultInfoFailed, ERR, 776, "add result info failed, nErrCode = 0x%x\n")                \
    X(SendOutputEnd, INFO, 794, "send output param end\n")                                       \
    /* subscribed values */                                                                      \
    X(FetchFailed, ERR, 33, "get subsribe[%s] %s data err.\n")                                   \
    X(IndexNotNumber, ERR, 45, "Sunscribe data [%s], index [%s] is not a number\n")              \
    X(IndexOutOfRange, ERR, 53, "Sunscribe data [%s], index [%d] out of range [%lld]\n")         \
    X(IntItemFailed, ERR, 85, "get %s output by int err\n")                                      \
    X(FloatItemFailed, ERR, 89, "get %s output by float err\n")                                  \
    X(StringItemFailed, ERR, 93, "get %s output by string err\n")                                \
    /* array items */                                                                            \
    X(FieldUnresolved, ERR, 69, "get subscribe failed(%s), no data\r\n")                         \
    X(FieldNoData, WARN, 103, "get subscribe failed(%s), no data\r\n")                           \
    X(FieldReadFailed, ERR, 121, "get single array data err:0x%x\n")                             \
    /* output combination and conversion */                                                      \
    X(IntListFailed, ERR, 682, "[%s] occur error:(0x%x)\r\n")                                    \
    X(FloatListFailed, ERR, 692, "[%s] occur error:(0x%x)\r\n")                                  \
    X(StringListFailed, ERR, 702, "[%s] occur error:(0x%x)\r\n")                                 \
    X(UnknownValueType, ERR, 708, "Unknown value type.\n")                                       \
    X(IntConvertFailed, ERR, 565, "Subscribe param:[%s] value convert to [int] failed.\n")       \
    X(FloatConvertFailed, ERR, 583, "Subscribe param:[%s] value convert to [float] failed.\n")   \
    X(StringConvertFailed, ERR, 597, "Subscribe param:[%s] value convert to [string] failed.\n") \
    X(TruncationEmpty, WARN, 611, "Subscribe param:[%s] start idx:[%d], length:[%d]\n")          \
    X(UnknownConvertType, ERR, 646, "Subscribe param value convert to unknown type.\n")          \
    /* the dynamic publish table */                                                              \
    X(TooManyPublications, ERR, 37,                                                              \
      "The dynamic publish table needs %lld records, more than its %d.\n")                       \
    X(PublicationCount, INFO, 905, "GetDynamicPublishParamNum is %d\r\n")                        \
    X(PublicationEntry, INFO, 924, "nParamIdx %d: pub(param_name[%.64s],type:%.64s))\r\n")       \
    /* recording runs (formatv2_record.json) */                                                  \
    X(RecordingOn, INFO, 1001, "recording runs into [%s], max_bytes %lld, runs %s\r\n")          \
    X(RecordingRefused, WARN, 1002, "recording off: %s: %s\r\n")

// The layout around a message: the prefix, and for Warn and Err the colour around it all.
#define FORMATV2_LOG_PREFIX "| %-4s | %03d%s | %-12s:%04d: "
#define FORMATV2_FORMAT_INFO(text) FORMATV2_LOG_PREFIX text
#define FORMATV2_FORMAT_WARN(text) "\033[33m" FORMATV2_LOG_PREFIX text "\033[0m"
#define FORMATV2_FORMAT_ERR(text) "\033[31m" FORMATV2_LOG_PREFIX text "\033[0m"

namespace formatv2 {

enum class Msg : int {
#define FORMATV2_MESSAGE_ID(name, level, line, text) k##name,
    FORMATV2_MESSAGES(FORMATV2_MESSAGE_ID)
#undef FORMATV2_MESSAGE_ID
};

struct MessageInfo {
    Msg id;
    const char* name;
    int level;           // LOG_LEVEL_INFO, _WARN or _ERR
    int line;            // the source line number the log line carries
    const char* text;    // the message as printf takes it, with its line end
    const char* format;  // the whole line's format: prefix, text and colour
};

inline constexpr MessageInfo kMessages[] = {
#define FORMATV2_MESSAGE_INFO(name, level, line, text) \
    {Msg::k##name, #name, LOG_LEVEL_##level, line, text, FORMATV2_FORMAT_##level(text)},
    FORMATV2_MESSAGES(FORMATV2_MESSAGE_INFO)
#undef FORMATV2_MESSAGE_INFO
};

constexpr const MessageInfo& MessageOf(Msg id) {
    return kMessages[static_cast<int>(id)];
}

// "Info", "Warn", "Err" (the tag of the line), or null for a level the module does not use.
constexpr const char* LevelTag(int level) {
    return level == LOG_LEVEL_INFO   ? "Info"
           : level == LOG_LEVEL_WARN ? "Warn"
           : level == LOG_LEVEL_ERR  ? "Err"
                                     : nullptr;
}

namespace detail {

// The kinds of printf arguments the messages take: 'i' int, 'L' long long, 's' text, 'p' pointer.
template <typename T>
constexpr char ArgKind() {
    using U = std::decay_t<T>;
    if constexpr (std::is_same_v<U, int> || std::is_same_v<U, unsigned>) return 'i';
    if constexpr (std::is_same_v<U, long long>) return 'L';
    if constexpr (std::is_same_v<U, const char*> || std::is_same_v<U, char*>) return 's';
    if constexpr (std::is_same_v<U, void*> || std::is_same_v<U, const void*>) return 'p';
    return '?';
}

// Whether text's conversions take exactly the kinds given, in order.
constexpr bool ConversionsMatch(const char* text, const char* kinds, size_t count) {
    size_t n = 0;
    for (size_t i = 0; text[i] != '\0'; ++i) {
        if (text[i] != '%') continue;
        ++i;
        if (text[i] == '%') continue;
        while (text[i] == '-' || text[i] == '.' || (text[i] >= '0' && text[i] <= '9')) ++i;
        bool longLong = false;
        if (text[i] == 'l' && text[i + 1] == 'l') {
            longLong = true;
            i += 2;
        }
        const char c = text[i];
        const char want = (c == 'd' || c == 'x') ? (longLong ? 'L' : 'i')
                          : c == 's'             ? 's'
                          : c == 'p'             ? 'p'
                                                 : '!';
        if (n >= count || kinds[n] != want) return false;
        ++n;
    }
    return n == count;
}

}  // namespace detail

// Where the code below the module shell logs: the module's id and the logging function (the
// library's log_print_mod), or no function at all.
struct Logger {
    using LogFn = void (*)(int module, int level, const char* format, ...);
    LogFn log = nullptr;
    int moduleId = 0;

    template <Msg id, typename... Args>
    void Say(Args... args) const {
        constexpr const MessageInfo& info = MessageOf(id);
        constexpr char kinds[] = {detail::ArgKind<Args>()..., '\0'};
        static_assert(detail::ConversionsMatch(info.text, kinds, sizeof...(Args)),
                      "the arguments do not fit the message's conversions");
        if (log == nullptr) return;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
        log(moduleId, info.level, info.format, LevelTag(info.level), moduleId, "formatv2",
            "formatv2.cpp", info.line, args...);
#pragma GCC diagnostic pop
    }
};

}  // namespace formatv2
