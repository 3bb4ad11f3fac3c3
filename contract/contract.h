// What the module promises its callers, in one place: every status it returns with its
// meaning, the configuration reader's row codes with the key and rule behind each, and its
// limits. The module, the preview runner and the fuzz targets take them from here.
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

// ---- the configuration reader's rules ----
// Each refusal of "algo_private.json" breaks one of these rules; the id names it to tools.
enum class ConfigRule {
    kNotJson,
    kText,
    kNumber,
    kList,
    kSubscription,
    kCustomEdit,
    kUniqueName,
    kConvertType,
    kConcatNeedsText,
    kTooManySubscriptions,
    kTooManyPublications,
};

struct ConfigRuleInfo {
    ConfigRule rule;
    const char* id;
    const char* text;  // completes "<key> ..."
};

inline constexpr ConfigRuleInfo kConfigRules[] = {
    {ConfigRule::kNotJson, "json-syntax", "is not valid JSON"},
    {ConfigRule::kText, "not-a-text", "is missing or not a text"},
    {ConfigRule::kNumber, "not-a-number", "is missing or not a number"},
    {ConfigRule::kList, "not-a-list", "is missing or not a list"},
    {ConfigRule::kSubscription, "subscription-refused",
     "is not a subscription text the host accepts (<algo_id>:<algo_name>:<param_name>:<index>:"
     "<type>, an integer id and two names that are not empty)"},
    {ConfigRule::kCustomEdit, "custom-edit-value",
     "must be 0 (a subscribed value, or a line-break symbol \\r\\n or \\r) or 1 (a custom text)"},
    {ConfigRule::kUniqueName, "duplicate-name",
     "is used by an earlier row or equals the top-level \"ParamName\"; output names must be "
     "unique (letter case counts)"},
    {ConfigRule::kConvertType, "convert-type-value", "must be 1 (int), 2 (float) or 3 (string)"},
    {ConfigRule::kConcatNeedsText, "concat-needs-text",
     "must be 3 (string) while \"StrConcateEnable\" is on: the joined output is one text"},
    {ConfigRule::kTooManySubscriptions, "too-many-subscriptions",
     "subscribe to more values than the 127 subscriptions allowed (one per subscribed item, one "
     "per array field)"},
    {ConfigRule::kTooManyPublications, "too-many-publications",
     "need more outputs than the publish table's 128 records (the host's own, the joined output "
     "and one per item)"},
};

constexpr const ConfigRuleInfo& RuleInfo(ConfigRule rule) {
    return kConfigRules[static_cast<int>(rule)];
}

// Row codes of the reader (parseSubParamList): the first rule a row breaks, in reading order.
enum RowCode : int {
    kRowElementSubParamStr = -1,
    kRowElementSeparator = -2,
    kRowElementShowValueCn = -3,
    kRowElementShowValueEn = -4,
    kRowElementSubscription = -5,
    kRowSubParamStr = -6,
    kRowIsCustomEdit = -7,
    kRowSubscription = -8,
    kRowCustomEditValue = -9,
    kRowShowValueCn = -10,
    kRowShowValueEn = -11,
    kRowParamName = -12,
    kRowNameNotUnique = -13,
    kRowConvertType = -14,
    kRowConvertTypeValue = -15,
    kRowConcatNeedsText = -16,
    kRowStrTruncEnable = -17,
    kRowStrTruncStart = -18,
    kRowStrTruncLen = -19,
    kRowStrPrefix = -20,
    kRowStrSuffix = -21,
    kRowStrDelete = -22,
};

struct RowCodeInfo {
    RowCode code;
    bool element;     // a key of an "Array" element rather than of the row
    const char* key;  // the key the rule is about
    ConfigRule rule;
};

inline constexpr RowCodeInfo kRowCodes[] = {
    {kRowElementSubParamStr, true, "SubParamStr", ConfigRule::kText},
    {kRowElementSeparator, true, "Separator", ConfigRule::kText},
    {kRowElementShowValueCn, true, "ShowValue_CN", ConfigRule::kText},
    {kRowElementShowValueEn, true, "ShowValue_EN", ConfigRule::kText},
    {kRowElementSubscription, true, "SubParamStr", ConfigRule::kSubscription},
    {kRowSubParamStr, false, "SubParamStr", ConfigRule::kText},
    {kRowIsCustomEdit, false, "IsCustomEdit", ConfigRule::kNumber},
    {kRowSubscription, false, "SubParamStr", ConfigRule::kSubscription},
    {kRowCustomEditValue, false, "IsCustomEdit", ConfigRule::kCustomEdit},
    {kRowShowValueCn, false, "ShowValue_CN", ConfigRule::kText},
    {kRowShowValueEn, false, "ShowValue_EN", ConfigRule::kText},
    {kRowParamName, false, "ParamName", ConfigRule::kText},
    {kRowNameNotUnique, false, "ParamName", ConfigRule::kUniqueName},
    {kRowConvertType, false, "ConvertType", ConfigRule::kNumber},
    {kRowConvertTypeValue, false, "ConvertType", ConfigRule::kConvertType},
    {kRowConcatNeedsText, false, "ConvertType", ConfigRule::kConcatNeedsText},
    {kRowStrTruncEnable, false, "StrTruncEnable", ConfigRule::kNumber},
    {kRowStrTruncStart, false, "StrTruncStart", ConfigRule::kNumber},
    {kRowStrTruncLen, false, "StrTruncLen", ConfigRule::kNumber},
    {kRowStrPrefix, false, "StrPrefix", ConfigRule::kText},
    {kRowStrSuffix, false, "StrSuffix", ConfigRule::kText},
    {kRowStrDelete, false, "StrDelete", ConfigRule::kText},
};

constexpr const RowCodeInfo& RowCodeOf(RowCode code) {
    return kRowCodes[-code - 1];
}

// The top-level keys, in reading order, and the keys of a row and of an array element.
inline constexpr const char* kTopKeys[] = {"ModuleName", "StrConcateEnable", "ParamName",
                                           "SubParamList"};
inline constexpr const char* kRowKeys[] = {
    "Array",     "SubParamStr", "IsCustomEdit",   "ShowValue_CN",  "ShowValue_EN",
    "ParamName", "ConvertType", "StrTruncEnable", "StrTruncStart", "StrTruncLen",
    "StrPrefix", "StrSuffix",   "StrDelete"};
inline constexpr const char* kElementKeys[] = {"SubParamStr", "Separator", "ShowValue_CN",
                                               "ShowValue_EN"};

static_assert(RowCodeOf(kRowStrDelete).code == kRowStrDelete, "row codes in order");
static_assert(RuleInfo(ConfigRule::kTooManyPublications).rule == ConfigRule::kTooManyPublications,
              "rules in order");
