// What the module promises its callers, in one place: every status it returns with its
// meaning, its names and limits, and the keys of its configuration. The module, the preview runner
// and the fuzz targets take them from here.
#pragma once

#include <cstddef>

// ---- statuses ----
// The host passes these on unchanged; the runner shows them with their meaning.
constexpr int kStatusOk = 0;
constexpr int kStatusNotDelivered = static_cast<int>(0xC0000004);
constexpr int kStatusCopyFailed = static_cast<int>(0xC0000103);
constexpr int kStatusConfigRefused = static_cast<int>(0xC0000105);
constexpr int kStatusNoItems = static_cast<int>(0xC0000109);
constexpr int kStatusTableRefused = static_cast<int>(0xC0000119);
constexpr int kStatusNotConvertible = static_cast<int>(0xC0000221);
constexpr int kStatusBadArgument = static_cast<int>(0xE0000001);
constexpr int kStatusMissing = static_cast<int>(0xE000000A);
constexpr int kStatusIndex = static_cast<int>(0xE000001C);
constexpr int kStatusFileLoad = static_cast<int>(0xE0000201);
constexpr int kStatusFileSize = static_cast<int>(0xE0000203);
constexpr int kStatusFieldRead = static_cast<int>(0xE0000315);
constexpr int kStatusNoImgMode = -1;

struct StatusInfo {
    int status;
    const char* meaning;
    bool endsRun;  // a run (Process) can end with it
};

inline constexpr StatusInfo kStatuses[] = {
    {kStatusOk, "success", true},
    {kStatusNotDelivered,
     "a subscribed value was not delivered, or its element number is out of range", true},
    {kStatusCopyFailed, "copying the default configuration file into the working directory failed",
     false},
    {kStatusConfigRefused,
     "the configuration text was refused: not JSON, a key missing or mistyped, or a row refused",
     false},
    {kStatusNoItems, "a run found no configured items", true},
    {kStatusTableRefused, "a dynamic table was refused after a configuration read", false},
    {kStatusNotConvertible, "a value is not convertible to the item's type", true},
    {kStatusBadArgument,
     "bad argument (null or empty), more than 127 dynamic subscriptions or 128 publications, or "
     "an array field's input not resolved",
     true},
    {kStatusMissing,
     "no input frame, no memory for the configuration text, a missing text, or a run that ran "
     "out of memory",
     true},
    {kStatusIndex,
     "an index outside a table's count, a value of no known list type, or an unknown convert type",
     true},
    {kStatusFileLoad, "loading the configuration file failed", false},
    {kStatusFileSize, "reading the configuration file's size failed", false},
    {kStatusFieldRead, "reading one field of an array item failed", true},
    {kStatusNoImgMode, "the input frame holds no \"SINGLE_img_mode\"", true},
};

// The meaning of a status, or null for a code that is not the module's (a host's code).
constexpr const char* StatusMeaningOf(int status) {
    for (const StatusInfo& info : kStatuses) {
        if (info.status == status) return info.meaning;
    }
    return nullptr;
}

// ---- names the host and the integrator see ----
// The module's name and log tag, written into its subscription records too.
inline constexpr const char kModuleName[] = "formatv2";
// Input N of the module is named kInputPrefix followed by N in decimal.
inline constexpr const char kInputPrefix[] = "input";
// The configuration file in the working directory, and the default copied there when missing.
inline constexpr const char kConfigFileName[] = "algo_private.json";
inline constexpr const char kInstallDir[] = "/mnt/app/zrs_so/so/formatv2";
inline constexpr const char kDefaultConfigPath[] =
    "/mnt/app/zrs_so/so/formatv2/json/algo_private.json";
inline constexpr const char kInstalledModulePath[] = "/mnt/app/zrs_so/so/formatv2/libformatv2.so";
// Setting this parameter reads the configuration file again.
inline constexpr const char kEnsureCommand[] = "CommandFormatV2Ensure";
// The output frame's list of the outputs a run published.
inline constexpr const char kDynamicPubKey[] = "DynamicPub";
// The input frame's image mode, and the result entries of the output frame.
inline constexpr const char kEntryImgMode[] = "SINGLE_img_mode";
inline constexpr const char kEntryPrefix[] = "SINGLE_";
inline constexpr const char kEntryStatus[] = "SINGLE_status";
inline constexpr const char kEntryTextX[] = "SINGLE_show_text_x";
inline constexpr const char kEntryTextY[] = "SINGLE_show_text_y";
inline constexpr const char kEntryTextAngle[] = "SINGLE_show_text_ang";
inline constexpr const char kEntryTextCn[] = "SINGLE_show_text_cn";
inline constexpr const char kEntryTextEn[] = "SINGLE_show_text_en";
inline constexpr const char kEntryStatusText[] = "SINGLE_param_status_string";
inline constexpr const char kEntryParamStatus[] = "SINGLE_param_status";
// The verdicts, and the result notice's texts, which are the same for every status.
inline constexpr const char kVerdictOk[] = "OK";
inline constexpr const char kVerdictNg[] = "NG";
// The verdict a run of status shows.
inline constexpr const char* VerdictOf(int status) {
    return status == 0 ? kVerdictOk : kVerdictNg;
}
inline constexpr const char kNoticeCn[] = "全部输出为OK";
inline constexpr const char kNoticeEn[] = "Full output is OK";

// ---- limits ----
// 127, not 128: the subscription table has 128 records, but the module refuses the 128th.
constexpr int kMaxSubscriptions = 127;
// The publish table's records: the host's own, the joined output and one per item.
constexpr int kMaxPublications = 128;
// Bytes of an output name kept by the publish table (64-byte field with its terminator) and
// by a run's DynamicPub record (48 bytes); the rest is cut.
constexpr size_t kPublishNameMax = 63;
constexpr size_t kRunNameMax = 47;
// Widths and precisions of a format text above this count as this: one cell of a float
// format holds at most 2 * 4096 + 1 characters (digits, point, fraction digits).
constexpr int kMaxFormatWidth = 4096;

// ---- the configuration's keys ----
// Each key of "algo_private.json" spelled once: the reader, the lint and the runner name keys
// by these. The reader's refusals, row codes and every other finding: contract/findings.h.
namespace formatv2::key {
inline constexpr const char kModuleName[] = "ModuleName";
inline constexpr const char kStrConcateEnable[] = "StrConcateEnable";
inline constexpr const char kParamName[] = "ParamName";
inline constexpr const char kSubParamList[] = "SubParamList";
inline constexpr const char kArray[] = "Array";
inline constexpr const char kSubParamStr[] = "SubParamStr";
inline constexpr const char kIsCustomEdit[] = "IsCustomEdit";
inline constexpr const char kShowValueCn[] = "ShowValue_CN";
inline constexpr const char kShowValueEn[] = "ShowValue_EN";
inline constexpr const char kConvertType[] = "ConvertType";
inline constexpr const char kStrTruncEnable[] = "StrTruncEnable";
inline constexpr const char kStrTruncStart[] = "StrTruncStart";
inline constexpr const char kStrTruncLen[] = "StrTruncLen";
inline constexpr const char kStrPrefix[] = "StrPrefix";
inline constexpr const char kStrSuffix[] = "StrSuffix";
inline constexpr const char kStrDelete[] = "StrDelete";
inline constexpr const char kSeparator[] = "Separator";
}  // namespace formatv2::key

// The top-level keys, in reading order, and the keys of a row and of an array element.
inline constexpr const char* kTopKeys[] = {formatv2::key::kModuleName,
                                           formatv2::key::kStrConcateEnable,
                                           formatv2::key::kParamName, formatv2::key::kSubParamList};
inline constexpr const char* kRowKeys[] = {
    formatv2::key::kArray,       formatv2::key::kSubParamStr,    formatv2::key::kIsCustomEdit,
    formatv2::key::kShowValueCn, formatv2::key::kShowValueEn,    formatv2::key::kParamName,
    formatv2::key::kConvertType, formatv2::key::kStrTruncEnable, formatv2::key::kStrTruncStart,
    formatv2::key::kStrTruncLen, formatv2::key::kStrPrefix,      formatv2::key::kStrSuffix,
    formatv2::key::kStrDelete};
inline constexpr const char* kElementKeys[] = {
    formatv2::key::kSubParamStr, formatv2::key::kSeparator, formatv2::key::kShowValueCn,
    formatv2::key::kShowValueEn};
// The keys of a row that only a single item reads: a row with "Array" takes its values and
// labels from its fields.
inline constexpr const char* kSingleItemKeys[] = {
    formatv2::key::kSubParamStr, formatv2::key::kIsCustomEdit, formatv2::key::kShowValueCn,
    formatv2::key::kShowValueEn};
