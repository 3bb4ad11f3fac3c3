// Writes the seed corpus of the three fuzz targets:
//   formatv2_fuzz_seeds SOURCE_DIR OUT_DIR
// OUT_DIR/config: the example configurations, one file per row code -1 to -22, refused
// top-level keys and the table limits; OUT_DIR/format: the formatter table cases, general
// float texts and the conversion cases; OUT_DIR/runs: every example scenario with its
// values, and re-reads of cut and changed texts. Every encoded seed is decoded again and
// must come back as written.
#include <cjson/cJSON.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <initializer_list>
#include <sstream>
#include <string>
#include <vector>

#include "fuzz/format_entry.h"
#include "fuzz/runs_entry.h"

namespace fs = std::filesystem;
using fv2fuzz::FormatCase;
using fv2fuzz::InputValues;
using fv2fuzz::RunPlan;
using fv2fuzz::RunStep;

namespace {

fs::path gOut;
int gWritten = 0;

[[noreturn]] void Die(const std::string& message) {
    std::fprintf(stderr, "formatv2_fuzz_seeds: %s\n", message.c_str());
    std::exit(1);
}

void Write(const std::string& target, const std::string& name, const std::string& bytes) {
    const fs::path dir = gOut / target;
    fs::create_directories(dir);
    std::ofstream(dir / name, std::ios::binary) << bytes;
    ++gWritten;
}

std::string ReadFile(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) Die("cannot read " + path.string());
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

std::string Print(cJSON* json) {
    char* printed = cJSON_Print(json);
    std::string text(printed);
    cJSON_free(printed);
    return text;
}

uint32_t Bits(float value) {
    uint32_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    return bits;
}

// ---- configuration seeds ---------------------------------------------------------------

cJSON* Row(const std::string& name, const std::string& sub = "1:cam:width:*:%d", int custom = 0,
           int convert = 3) {
    cJSON* row = cJSON_CreateObject();
    cJSON_AddStringToObject(row, "SubParamStr", sub.c_str());
    cJSON_AddNumberToObject(row, "IsCustomEdit", custom);
    cJSON_AddStringToObject(row, "ShowValue_CN", "cn");
    cJSON_AddStringToObject(row, "ShowValue_EN", "en");
    cJSON_AddStringToObject(row, "ParamName", name.c_str());
    cJSON_AddNumberToObject(row, "ConvertType", convert);
    cJSON_AddNumberToObject(row, "StrTruncEnable", 0);
    cJSON_AddNumberToObject(row, "StrTruncStart", 0);
    cJSON_AddNumberToObject(row, "StrTruncLen", 0);
    cJSON_AddStringToObject(row, "StrPrefix", "");
    cJSON_AddStringToObject(row, "StrSuffix", "");
    cJSON_AddStringToObject(row, "StrDelete", "");
    return row;
}

cJSON* ArrayRow(const std::string& name, const std::vector<std::string>& subs) {
    cJSON* row = Row(name);
    for (const char* key : {"SubParamStr", "IsCustomEdit", "ShowValue_CN", "ShowValue_EN"}) {
        cJSON_DeleteItemFromObject(row, key);
    }
    cJSON* array = cJSON_AddArrayToObject(row, "Array");
    for (const std::string& sub : subs) {
        cJSON* field = cJSON_CreateObject();
        cJSON_AddStringToObject(field, "SubParamStr", sub.c_str());
        cJSON_AddStringToObject(field, "Separator", ",");
        cJSON_AddStringToObject(field, "ShowValue_CN", "");
        cJSON_AddStringToObject(field, "ShowValue_EN", "");
        cJSON_AddItemToArray(array, field);
    }
    return row;
}

cJSON* Config(const std::vector<cJSON*>& rows, int concat = 0, const std::string& name = "all") {
    cJSON* root = cJSON_CreateObject();
    cJSON_AddStringToObject(root, "ModuleName", "seed");
    cJSON_AddNumberToObject(root, "StrConcateEnable", concat);
    cJSON_AddStringToObject(root, "ParamName", name.c_str());
    cJSON* list = cJSON_AddArrayToObject(root, "SubParamList");
    for (cJSON* row : rows) cJSON_AddItemToArray(list, row);
    return root;
}

// A configuration text; edit changes the parsed tree before it is printed.
std::string ConfigText(const std::vector<cJSON*>& rows, int concat = 0,
                       const std::function<void(cJSON*)>& edit = {}) {
    cJSON* root = Config(rows, concat);
    if (edit) edit(root);
    std::string text = Print(root);
    cJSON_Delete(root);
    return text;
}

void Set(cJSON* object, const char* key, cJSON* value) {
    if (cJSON_GetObjectItem(object, key) != nullptr) {
        cJSON_ReplaceItemInObject(object, key, value);
    } else {
        cJSON_AddItemToObject(object, key, value);
    }
}

// One good row, then a row broken by edit (or by field_edit in its one array field).
std::string RowCode(const std::function<void(cJSON* row)>& edit, bool arrayRow = false) {
    cJSON* bad = arrayRow ? ArrayRow("bad", {"2:blob:x:*:%5d"}) : Row("bad");
    edit(arrayRow ? cJSON_GetArrayItem(cJSON_GetObjectItem(bad, "Array"), 0) : bad);
    return ConfigText({Row("good"), bad});
}

void ConfigSeeds(const fs::path& source) {
    for (const auto& entry : fs::directory_iterator(source / "examples")) {
        for (const char* file : {"algo_private.json", "first.json", "second.json"}) {
            if (fs::exists(entry.path() / file)) {
                Write("config", "example-" + entry.path().filename().string() + "-" + file,
                      ReadFile(entry.path() / file));
            }
        }
    }
    Write("config", "default.json", ReadFile(source / "config/default/algo_private.json"));

    // Row codes: the good row before the failing one stays in the list.
    const auto remove = [](const char* key) {
        return [key](cJSON* o) { cJSON_DeleteItemFromObject(o, key); };
    };
    const auto number = [](const char* key, double v) {
        return [key, v](cJSON* o) { Set(o, key, cJSON_CreateNumber(v)); };
    };
    const auto text = [](const char* key, const char* v) {
        return [key, v](cJSON* o) { Set(o, key, cJSON_CreateString(v)); };
    };
    const auto null = [](const char* key) {
        return [key](cJSON* o) { Set(o, key, cJSON_CreateNull()); };
    };
    Write("config", "code-01-field-SubParamStr", RowCode(remove("SubParamStr"), true));
    Write("config", "code-02-field-Separator", RowCode(number("Separator", 1), true));
    Write("config", "code-03-field-ShowValue_CN", RowCode(remove("ShowValue_CN"), true));
    Write("config", "code-04-field-ShowValue_EN", RowCode(null("ShowValue_EN"), true));
    Write("config", "code-05-field-refused", RowCode(text("SubParamStr", "2:blob:x"), true));
    Write("config", "code-06-SubParamStr", RowCode(remove("SubParamStr")));
    Write("config", "code-07-IsCustomEdit", RowCode(text("IsCustomEdit", "0")));
    Write("config", "code-08-refused", RowCode(text("SubParamStr", "1:cam::*:%d")));
    Write("config", "code-09-IsCustomEdit-2", RowCode(number("IsCustomEdit", 2)));
    Write("config", "code-10-ShowValue_CN", RowCode(number("ShowValue_CN", 0)));
    Write("config", "code-11-ShowValue_EN", RowCode(remove("ShowValue_EN")));
    Write("config", "code-12-ParamName", RowCode(remove("ParamName")));
    Write("config", "code-13-ParamName-twice", RowCode(text("ParamName", "good")));
    Write("config", "code-13-ParamName-joined", RowCode(text("ParamName", "all")));
    Write("config", "code-14-ConvertType", RowCode(text("ConvertType", "1")));
    Write("config", "code-15-ConvertType-0", RowCode(number("ConvertType", 0)));
    Write("config", "code-16-concat-float",
          ConfigText({Row("good"), Row("bad", "1:cam:w:*:%f", 0, 2)}, 1));
    Write("config", "code-17-StrTruncEnable", RowCode(text("StrTruncEnable", "1")));
    Write("config", "code-18-StrTruncStart", RowCode(remove("StrTruncStart")));
    Write("config", "code-19-StrTruncLen", RowCode(null("StrTruncLen")));
    Write("config", "code-20-StrPrefix", RowCode(remove("StrPrefix")));
    Write("config", "code-21-StrSuffix", RowCode(number("StrSuffix", 3)));
    Write("config", "code-22-StrDelete", RowCode(null("StrDelete")));
    Write("config", "code-06-row-not-object", ConfigText({Row("good")}, 0, [](cJSON* root) {
              cJSON_AddItemToArray(cJSON_GetObjectItem(root, "SubParamList"),
                                   cJSON_CreateNumber(7));
          }));

    // Top-level keys and texts that are no configuration at all.
    Write("config", "top-empty", "");
    Write("config", "top-not-json", "ModuleName: formatv2\n");
    Write("config", "top-truncated", ConfigText({Row("a")}).substr(0, 60));
    for (const char* key : {"ModuleName", "StrConcateEnable", "ParamName", "SubParamList"}) {
        Write("config", std::string("top-missing-") + key, ConfigText({Row("a")}, 0, remove(key)));
    }
    Write("config", "top-concat-as-text", ConfigText({Row("a")}, 0, text("StrConcateEnable", "1")));
    Write("config", "top-list-as-object",
          ConfigText({}, 0, [](cJSON* root) { Set(root, "SubParamList", cJSON_CreateObject()); }));
    Write("config", "top-empty-list", ConfigText({}));
    Write("config", "top-lower-case-keys",
          "{\"modulename\":\"m\",\"strconcateenable\":0,\"paramname\":\"all\",\"subparamlist\":"
          "[{\"subparamstr\":\"custom\",\"iscustomedit\":1,\"showvalue_cn\":\"\",\"showvalue_en\":"
          "\"\",\"paramname\":\"c\",\"converttype\":3,\"strtruncenable\":0,\"strtruncstart\":0,"
          "\"strtrunclen\":0,\"strprefix\":\"\",\"strsuffix\":\"\",\"strdelete\":\"\"}]}");
    const std::string nulText =
        "{\"ModuleName\":\"a\\u0000b\",\"StrConcateEnable\":0,\"ParamName\":\"all\","
        "\"SubParamList\":[]}";
    Write("config", "top-nul-in-text", nulText + std::string(1, '\0') + "trailing");

    // Kinds and the texts that decide them.
    Write("config", "kinds-all",
          ConfigText({Row("custom", "Station \\r\\n A", 1), Row("crlf", "\\r\\n"), Row("cr", "\\r"),
                      Row("single", "3:blob:count:0:%d", 0, 1),
                      ArrayRow("array", {"3:blob:x:*:%5d", "3:blob:y:*:%8.3f", "3:ocr:t:*:%s"}),
                      Row("custom-crlf", "\\r\\n", 1), Row("array-as-text", "4:a:b:*:%s")},
                     0, [](cJSON* root) {
                         cJSON* last =
                             cJSON_GetArrayItem(cJSON_GetObjectItem(root, "SubParamList"), 6);
                         cJSON_AddStringToObject(last, "Array", "not an array");
                     }));
    Write("config", "kinds-empty-array", ConfigText({ArrayRow("empty", {})}));

    // Limits: 127 subscriptions fit, 128 do not; 127 items fit the publish table, 128 do not.
    std::vector<std::string> fields;
    for (int i = 0; i < 100; ++i) fields.push_back("1:cam:f" + std::to_string(i) + ":*:%d");
    const auto subscriptions = [&fields](int singles) {
        std::vector<cJSON*> rows{ArrayRow("array", fields)};
        for (int i = 0; i < singles; ++i) rows.push_back(Row("s" + std::to_string(i)));
        return ConfigText(rows);
    };
    Write("config", "limit-127-subscriptions", subscriptions(27));
    Write("config", "limit-128-subscriptions", subscriptions(28));
    const auto customs = [](int count) {
        std::vector<cJSON*> rows;
        for (int i = 0; i < count; ++i) rows.push_back(Row("c" + std::to_string(i), "text", 1));
        return ConfigText(rows);
    };
    Write("config", "limit-127-items", customs(127));
    Write("config", "limit-128-items", customs(128));
    const std::string longName(70, 'n');
    Write("config", "limit-long-names",
          ConfigText({Row(longName, "-2147483648:" + longName + ":" + longName + ":*:%d")}, 0,
                     text("ParamName",
                          "joined-output-name-longer-than-sixty-three-characters-"
                          "for-the-table")));
}

// ---- formatter and conversion seeds ------------------------------------------------------

void FormatSeeds() {
    int n = 0;
    const auto write = [&n](const FormatCase& c) {
        const std::string bytes = fv2fuzz::EncodeFormatCase(c);
        const FormatCase back =
            fv2fuzz::DecodeFormatCase(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
        if (back.op != c.op || back.intValue != c.intValue || back.floatBits != c.floatBits ||
            back.precision != c.precision || back.convertType != c.convertType ||
            back.truncEnable != c.truncEnable || back.truncStart != c.truncStart ||
            back.truncLen != c.truncLen || back.concat != c.concat || back.noFrame != c.noFrame ||
            back.index != c.index || back.stored != c.stored || back.format != c.format ||
            back.separator != c.separator || back.text != c.text || back.prefix != c.prefix ||
            back.suffix != c.suffix || back.del != c.del || back.name != c.name) {
            Die("format seed " + std::to_string(n) + " does not decode as written");
        }
        char name[32];
        std::snprintf(name, sizeof name, "case-%03d", n++);
        Write("format", name, bytes);
    };
    const auto cell = [&write](uint8_t op, const std::string& format, int i, float f,
                               const std::string& text = "") {
        FormatCase c;
        c.op = op;
        c.format = format;
        c.intValue = i;
        c.floatBits = Bits(f);
        c.text = text;
        c.separator = ",";
        write(c);
    };
    // The formatter table.
    for (const auto& [format, value] :
         std::vector<std::pair<std::string, int>>{{"%5d", 42},
                                                  {"%05d", 42},
                                                  {"%2d", 12345},
                                                  {"%d", 42},
                                                  {"", 42},
                                                  {"%-5d", 42},
                                                  {"%8x", 255},
                                                  {"%4d", -5},
                                                  {"%999999999d", 1},
                                                  {"%-2147483649d", 7},
                                                  {" % +12d", -2147483647 - 1}}) {
        cell(FormatCase::kIntFormatter, format, value, 0);
    }
    for (const auto& [format, value] :
         std::vector<std::pair<std::string, float>>{{"%8.3f", 3.14159f},
                                                    {"%1.2f", -0.5f},
                                                    {"%3.1f", -12.3f},
                                                    {"%3.2f", 1234.5678f},
                                                    {"%.2f", 1.25f},
                                                    {"%3.0f", 7.25f},
                                                    {"%4.2f", 2.999f},
                                                    {"%3.0f", 7.6f},
                                                    {"%2.3f", -0.0f},
                                                    {"%1.1f", -0.01f},
                                                    {"%5.-1f", 2.5f},
                                                    {"%1.40f", 1e-38f},
                                                    {"%1.4096f", 0.1f},
                                                    {"%20.2f", 3.4e38f},
                                                    {"%3.3f", 1.8446744e19f},
                                                    {"%1.20f", 9.2233720e18f},
                                                    {"%4.4f", 1.4e-45f}}) {
        cell(FormatCase::kFloatFormatter, format, 0, value);
    }
    for (uint32_t bits : {0x7FC00000u, 0xFFC00000u, 0x7F800000u, 0xFF800000u}) {
        FormatCase c;
        c.op = FormatCase::kFloatFormatter;
        c.format = "%6.2f";
        c.floatBits = bits;
        write(c);
    }
    cell(FormatCase::kStringFormatter, "%10s", 0, 0, "ab");
    cell(FormatCase::kStringFormatter, "%s", 0, 0, "");

    // General float texts.
    for (const auto& [value, precision] : std::vector<std::pair<float, int>>{{12.5f, 6},
                                                                             {3.0f, 6},
                                                                             {0.1f, 6},
                                                                             {1234567.0f, 6},
                                                                             {0.00001f, 6},
                                                                             {-2.0f, 6},
                                                                             {1.0f / 3, 0},
                                                                             {1.0f / 3, -7},
                                                                             {1.4e-45f, 2147483647},
                                                                             {3.4e38f, 40}}) {
        FormatCase c;
        c.op = FormatCase::kFloatToString;
        c.floatBits = Bits(value);
        c.precision = precision;
        write(c);
    }

    // Conversions: each target from each value type, then cutting, decoration and deletion.
    const auto convert = [&write](uint8_t op, int type, int i, float f, const std::string& text,
                                  const std::function<void(FormatCase&)>& edit = {}) {
        FormatCase c;
        c.op = op;
        c.convertType = type;
        c.intValue = i;
        c.floatBits = Bits(f);
        c.text = text;
        c.format = "%d";
        c.name = "item";
        if (edit) edit(c);
        write(c);
    };
    for (const char* text : {"12abc", "abc", "3.9", "2147483648", "  42", "-2147483648", ""}) {
        convert(FormatCase::kConvertString, 1, 0, 0, text);
    }
    for (const char* text : {"1.5e3x", "1e-40", "1e39", "nan", "-inf", " 0x1p-3"}) {
        convert(FormatCase::kConvertString, 2, 0, 0, text);
    }
    convert(FormatCase::kConvertFloat, 1, 0, 3.9f, "");
    convert(FormatCase::kConvertFloat, 1, 0, -3.9f, "");
    convert(FormatCase::kConvertFloat, 1, 0, 3e9f, "");
    convert(FormatCase::kConvertFloat, 2, 0, 1234567.0f, "");
    convert(FormatCase::kConvertInt, 2, 7, 0, "");
    convert(FormatCase::kConvertInt, 3, 7, 0, "", [](FormatCase& c) {
        c.format = "%3d";
        c.prefix = "[";
        c.suffix = "]";
    });
    convert(FormatCase::kConvertFloat, 3, 0, -12.3f, "", [](FormatCase& c) { c.format = "%3.1f"; });
    for (const auto& cut : std::vector<std::pair<int, int>>{
             {2, 3}, {5, 10}, {7, 1}, {-1, 2}, {0, 0}, {2, 2147483647}, {2147483647, 1}}) {
        convert(FormatCase::kConvertString, 3, 0, 0, "ABCDEFG", [&cut](FormatCase& c) {
            c.truncEnable = true;
            c.truncStart = cut.first;
            c.truncLen = cut.second;
        });
    }
    convert(FormatCase::kConvertString, 3, 0, 0, "", [](FormatCase& c) { c.truncEnable = true; });
    convert(FormatCase::kConvertString, 3, 0, 0, "a-b-c", [](FormatCase& c) { c.del = "-"; });
    convert(FormatCase::kConvertString, 3, 0, 0, "a-b-c", [](FormatCase& c) {
        c.del = "-";
        c.prefix = "x-";
    });
    convert(FormatCase::kConvertString, 3, 0, 0, "aabb", [](FormatCase& c) { c.del = "ab"; });
    convert(FormatCase::kConvertString, 3, 0, 0, "x", [](FormatCase& c) { c.concat = true; });
    convert(FormatCase::kConvertString, 3, 0, 0, "\r", [](FormatCase& c) { c.stored = 1; });
    convert(FormatCase::kConvertString, 3, 0, 0, "\r\n", [](FormatCase& c) { c.index = 1; });
    convert(FormatCase::kConvertInt, 1, 9, 0, "", [](FormatCase& c) {
        c.stored = 2;
        c.index = 5;
    });
    convert(FormatCase::kConvertInt, 1, 9, 0, "", [](FormatCase& c) {
        c.stored = 2;
        c.index = -1;
    });
    convert(FormatCase::kConvertInt, 1, 9, 0, "", [](FormatCase& c) { c.noFrame = true; });
    convert(FormatCase::kConvertString, 3, 0, 0, "x", [](FormatCase& c) {
        c.noFrame = true;
        c.concat = true;
    });
    convert(FormatCase::kConvertInt, 0, 1, 0, "");
    convert(FormatCase::kConvertString, 4, 0, 0, "x");
}

// ---- run seeds -----------------------------------------------------------------------------

// "publisher:output" of each subscription in input order.
std::vector<std::string> SubscribedKeys(const std::string& configText) {
    std::vector<std::string> keys;
    cJSON* root = cJSON_Parse(configText.c_str());
    if (root == nullptr) return keys;
    const auto key = [](const char* sub) {
        std::string text = sub;
        const size_t a = text.find(':'), b = text.find(':', a + 1), c = text.find(':', b + 1);
        return c == std::string::npos ? std::string() : text.substr(a + 1, c - a - 1);
    };
    cJSON* row = nullptr;
    cJSON_ArrayForEach(row, cJSON_GetObjectItem(root, "SubParamList")) {
        cJSON* array = cJSON_GetObjectItem(row, "Array");
        if (cJSON_IsArray(array)) {
            cJSON* field = nullptr;
            cJSON_ArrayForEach(field, array) {
                keys.push_back(
                    key(cJSON_GetStringValue(cJSON_GetObjectItem(field, "SubParamStr"))));
            }
            continue;
        }
        const char* sub = cJSON_GetStringValue(cJSON_GetObjectItem(row, "SubParamStr"));
        const cJSON* custom = cJSON_GetObjectItem(row, "IsCustomEdit");
        if (sub == nullptr || custom == nullptr || custom->valueint != 0) continue;
        if (std::strcmp(sub, "\\r\\n") == 0 || std::strcmp(sub, "\\r") == 0) continue;
        keys.push_back(key(sub));
    }
    cJSON_Delete(root);
    return keys;
}

InputValues ValuesOf(const cJSON* value) {
    InputValues v;
    if (value == nullptr) {
        v.binding = InputValues::kUnbound;
        return v;
    }
    const cJSON* typed = value->child;
    const bool list = cJSON_IsArray(typed);
    std::vector<const cJSON*> elements;
    if (list) {
        for (const cJSON* e = typed->child; e != nullptr; e = e->next) elements.push_back(e);
    }
    const std::string type = typed->string;
    if (type == "int") {
        v.tables = list ? InputValues::kIntList : InputValues::kIntScalar;
        v.intScalar = typed->valueint;
        for (const cJSON* e : elements) v.intList.push_back(e->valueint);
    } else if (type == "float") {
        v.tables = list ? InputValues::kFloatList : InputValues::kFloatScalar;
        v.floatScalar = Bits(static_cast<float>(typed->valuedouble));
        for (const cJSON* e : elements)
            v.floatList.push_back(Bits(static_cast<float>(e->valuedouble)));
    } else {
        v.tables = list ? InputValues::kStringList : InputValues::kStringScalar;
        if (!list) v.stringScalar = typed->valuestring;
        for (const cJSON* e : elements) v.stringList.push_back(e->valuestring);
    }
    return v;
}

std::string TextOf(const cJSON* config, const fs::path& dir) {
    if (cJSON_IsString(config)) return ReadFile(dir / config->valuestring);
    return Print(const_cast<cJSON*>(config));
}

void WritePlan(const std::string& name, const RunPlan& plan) {
    const std::string bytes = fv2fuzz::EncodeRunPlan(plan);
    const RunPlan back =
        fv2fuzz::DecodeRunPlan(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
    if (back.config != plan.config || back.second != plan.second ||
        back.runs.size() != plan.runs.size() || fv2fuzz::EncodeRunPlan(back) != bytes) {
        Die("run seed " + name + " does not decode as written");
    }
    Write("runs", name, bytes);
}

void RunSeeds(const fs::path& source) {
    for (const auto& entry : fs::directory_iterator(source / "examples")) {
        const fs::path scenarioPath = entry.path() / "scenario.json";
        if (!fs::exists(scenarioPath)) continue;
        cJSON* scenario = cJSON_Parse(ReadFile(scenarioPath).c_str());
        if (scenario == nullptr) Die("cannot parse " + scenarioPath.string());
        RunPlan plan;
        plan.config = TextOf(cJSON_GetObjectItem(scenario, "config"), entry.path());
        std::vector<std::string> keys = SubscribedKeys(plan.config);
        const cJSON* run = nullptr;
        cJSON_ArrayForEach(run, cJSON_GetObjectItem(scenario, "runs")) {
            RunStep step;
            const cJSON* replace = cJSON_GetObjectItem(run, "replace_config");
            if (replace != nullptr) {
                plan.second = TextOf(replace, entry.path());
                keys = SubscribedKeys(plan.second);
                step.reread = RunStep::kSecondText;
            } else if (cJSON_GetObjectItem(run, "set_param") != nullptr) {
                step.reread = RunStep::kSameText;
            }
            step.noInputFrame = cJSON_IsFalse(cJSON_GetObjectItem(run, "input_frame"));
            const cJSON* imgMode = cJSON_GetObjectItem(run, "img_mode");
            step.noImgMode = imgMode == nullptr;
            step.imgMode = imgMode != nullptr ? imgMode->valueint : 0;
            const cJSON* values = cJSON_GetObjectItem(run, "values");
            for (const std::string& key : keys) {
                step.inputs.push_back(ValuesOf(cJSON_GetObjectItem(values, key.c_str())));
            }
            plan.runs.push_back(step);
        }
        cJSON_Delete(scenario);
        WritePlan("example-" + entry.path().filename().string(), plan);

        // The same runs after re-reads of the same text and of the text cut short.
        for (size_t i = 0; i < plan.runs.size(); ++i) {
            plan.runs[i].reread = i % 2 == 0 ? RunStep::kSameText : RunStep::kCutText;
            plan.runs[i].cut = static_cast<uint16_t>(plan.config.size() / 2);
        }
        WritePlan("example-" + entry.path().filename().string() + "-reread", plan);
    }

    // Every value in every table, a lying count, a field bound to no frame, and a joined
    // output named like a display text entry.
    RunPlan plan;
    plan.config = ConfigText(
        {Row("single", "1:a:b:0:%d"),
         ArrayRow("array", {"1:a:c:*:%3.1f", "1:a:d:*:%s", "1:a:e:*:%x"}),
         Row("text", "1:a:f:*:%s"), Row("cr", "\\r")},
        1, [](cJSON* root) { Set(root, "ParamName", cJSON_CreateString("SINGLE_show_text_cn")); });
    plan.second = ConfigText({Row("only", "1:a:b:*:%f", 0, 2)});
    InputValues all;
    all.tables = InputValues::kAllTables;
    all.intScalar = 5;
    all.intList = {1, -2, 2147483647};
    all.floatScalar = Bits(0.5f);
    all.floatList = {Bits(1.5f), 0x7FC00000u};
    all.stringScalar = "s";
    all.stringList = {"x", "", "\\r"};
    RunStep step;
    step.inputs = {all, all, all, all, all};
    step.inputs[0].forceCount = true;
    step.inputs[0].count = 100;
    plan.runs.push_back(step);
    step.inputs[2].binding = InputValues::kBoundToNoFrame;
    step.imgMode = 2;
    plan.runs.push_back(step);
    step.reread = RunStep::kSecondText;
    step.inputs[0].tables = InputValues::kFloatList;
    plan.runs.push_back(step);
    step.reread = RunStep::kCutText;
    step.cut = 200;
    step.noOutputFrame = true;
    plan.runs.push_back(step);
    WritePlan("all-tables", plan);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) Die("usage: formatv2_fuzz_seeds SOURCE_DIR OUT_DIR");
    const fs::path source = argv[1];
    gOut = argv[2];
    ConfigSeeds(source);
    FormatSeeds();
    RunSeeds(source);
    std::printf("formatv2_fuzz_seeds: %d seeds written below %s\n", gWritten, gOut.c_str());
    return 0;
}
