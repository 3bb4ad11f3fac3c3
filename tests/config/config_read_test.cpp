// Reading algo_private.json: row codes with their messages, what each outcome leaves behind,
// key lookup, item kinds, and inputs that must be refused without harm.
#include <cstring>
#include <functional>

#include <gmock/gmock.h>

#include "support/module_fixture.h"

using namespace fv2test;

namespace {

constexpr int kRefused = static_cast<int>(0xC0000105);
constexpr int kTableRefused = static_cast<int>(0xC0000119);

std::string Fill(const std::string& key) {
    return "FillJsonValue [" + key + "] falied.\n";
}

cJSON* Set(cJSON* row, const char* key, cJSON* value) {
    cJSON_ReplaceItemInObject(row, key, value);
    return row;
}

class ConfigRead : public ModuleFixture {
  protected:
    // Reads a first configuration and keeps copies of both tables it built.
    void ReadFirst() {
        Write(Config({Row("a1")}, 1, "allA", "cfgA"));
        ASSERT_EQ(module.GetSubParamList(), 0);
        std::memcpy(&sub, &module.DynamicSubList, sizeof sub);
        std::memcpy(&pub, &module.DynamicPubList, sizeof pub);
    }
    bool SubKept() { return std::memcmp(&sub, &module.DynamicSubList, sizeof sub) == 0; }
    bool PubKept() { return std::memcmp(&pub, &module.DynamicPubList, sizeof pub) == 0; }

    DYNAMIC_SUBSCRIBE_PARAM_LIST sub;
    DYNAMIC_PUBLISH_PARAM_LIST pub;
};

struct RowCase {
    int code;
    bool element;  // the key belongs to the array row's field, not to the row
    const char* key;
    const char* json;     // new value of the key; null removes it
    std::string message;  // "" when the code comes without a message of its own
    int concat;
};

}  // namespace

// Each code after two good rows: its message, the two rows kept, the tables untouched.
TEST_F(ConfigRead, RowCodesKeepEarlierRowsAndTables) {
    const std::string parse =
        "ParseSubscribeItem failed, ret " + std::to_string(standin::kErrSubscribeSyntax) + "\n";
    const RowCase cases[] = {
        {-1, true, "SubParamStr", nullptr, Fill("SubParamStr"), 0},
        {-2, true, "Separator", "1", Fill("Separator"), 0},
        {-3, true, "ShowValue_CN", "null", Fill("ShowValue_CN"), 0},
        {-4, true, "ShowValue_EN", "[]", Fill("ShowValue_EN"), 0},
        {-5, true, "SubParamStr", "\"7:cam\"", parse, 0},
        {-6, false, "SubParamStr", "7", Fill("SubParamStr"), 0},
        {-7, false, "IsCustomEdit", "\"0\"", Fill("IsCustomEdit"), 0},
        {-8, false, "SubParamStr", "\"\\\\r\\\\n \"", parse, 0},
        {-9, false, "IsCustomEdit", "2", "Unsupported DATA type: [2]\n", 0},
        {-10, false, "ShowValue_CN", nullptr, Fill("ShowValue_CN"), 0},
        {-11, false, "ShowValue_EN", "false", Fill("ShowValue_EN"), 0},
        {-12, false, "ParamName", "3", Fill("ParamName"), 0},
        {-13, false, "ParamName", "\"good1\"", "", 0},
        {-13, false, "ParamName", "\"all\"", "", 0},
        {-14, false, "ConvertType", "\"1\"", Fill("ConvertType"), 0},
        {-15, false, "ConvertType", "0", "Unsupported convert type: 0\n", 0},
        {-16, false, "ConvertType", "2", "", 1},
        {-17, false, "StrTruncEnable", nullptr, Fill("StrTruncEnable"), 0},
        {-18, false, "StrTruncStart", "\"0\"", Fill("StrTruncStart"), 0},
        {-19, false, "StrTruncLen", "true", Fill("StrTruncLen"), 0},
        {-20, false, "StrPrefix", "0", Fill("StrPrefix"), 0},
        {-21, false, "StrSuffix", nullptr, Fill("StrSuffix"), 0},
        {-22, false, "StrDelete", "{}", Fill("StrDelete"), 0},
    };
    ReadFirst();
    for (const RowCase& c : cases) {
        SCOPED_TRACE(std::to_string(c.code) + " " + c.key);
        cJSON* bad = c.element ? ArrayRow("bad", {"1:a:b:*:%d"}) : Row("bad");
        cJSON* target = c.element ? cJSON_GetArrayItem(cJSON_GetObjectItem(bad, "Array"), 0) : bad;
        if (c.json == nullptr) {
            cJSON_DeleteItemFromObject(target, c.key);
        } else {
            cJSON_ReplaceItemInObject(target, c.key, cJSON_Parse(c.json));
        }
        Write(Config({Row("good0", "\\r", 1), Row("good1", "\\r", 1), bad}, c.concat));
        Logged().clear();
        EXPECT_EQ(module.GetSubParamList(), kRefused);
        std::vector<std::string> expected;
        if (!c.message.empty()) expected.push_back(c.message);
        expected.push_back("parseSubParamList failed, ret=" + std::to_string(c.code) + "\n");
        expected.push_back("parse priv json err:0xc0000105\n");
        EXPECT_EQ(Messages(LOG_LEVEL_ERR), expected);
        // Lines without a fixed number carry their own source line.
        const size_t n = Logged().size();
        EXPECT_TRUE(LineNo(n - 1) != LineNo(n - 2) && LineNo(n - 1) > "0000");
        EXPECT_EQ(Names(), "good0;good1;");
        EXPECT_TRUE(SubKept() && PubKept());
    }
}

// What every outcome of a read leaves in the settings, the item list and both tables.
TEST_F(ConfigRead, StateLeftByEachOutcome) {
    const std::string b =
        Config({Row("b1", "x", 1), Row("b2"), ArrayRow("b3", {"1:p:q::%s"})}, 1, "allB", "cfgB");
    std::vector<cJSON*> many;
    for (int i = 0; i < 128; ++i) many.push_back(Row("s" + std::to_string(i)));
    const std::string tooManySubs = Config(many, 0, "allB", "cfgB");
    const struct {
        const char* what;
        std::function<void()> arrange;
        int status;
        const char* moduleName;
        const char* paramName;
        int concat;
        const char* names;
        int subCount;  // -1: the first read's table, byte for byte
        int pubCount;  // -1: likewise
    } cases[] = {
        {"size", [&] { standin::FailCall(standin::Call::kOsalGetFileSize, -1); },
         static_cast<int>(0xE0000203), "cfgA", "allA", 1, "a1;", -1, -1},
        {"malloc", [&] { standin::FailCall(standin::Call::kOsalMalloc, 1); },
         static_cast<int>(0xE000000A), "cfgA", "allA", 1, "a1;", -1, -1},
        {"load", [&] { standin::FailCall(standin::Call::kOsalLoadFile, -1); },
         static_cast<int>(0xE0000201), "cfgA", "allA", 1, "a1;", -1, -1},
        {"not json", [&] { Write(b.substr(0, b.size() - 1)); }, kRefused, "cfgA", "allA", 1, "a1;",
         -1, -1},
        {"top-level key", [&] { Write(R"({"ModuleName":"cfgB","StrConcateEnable":1})"); }, kRefused,
         "cfgB", "null", 1, "", -1, -1},
        {"first key", [&] { Write(R"({"ModuleName":1,"ParamName":"x"})"); }, kRefused, "null", "",
         0, "", -1, -1},
        {"no list", [&] { Write(R"({"ModuleName":"m","StrConcateEnable":0,"ParamName":"p"})"); },
         kRefused, "m", "p", 0, "", -1, -1},
        {"row",
         [&] {
             Write(Config({Row("b1", "x", 1), Row("b2", "?")}, 1, "allB", "cfgB"));
         },
         kRefused, "cfgB", "allB", 1, "b1;", -1, -1},
        {"subscriptions", [&] { Write(tooManySubs); }, kTableRefused, "cfgB", "allB", 0, nullptr, 0,
         -1},
        {"host table",
         [&] {
             Write(b);
             standin::FailCall(standin::Call::kGetDynamicPubParam, 0x55);
         },
         kTableRefused, "cfgB", "allB", 1, "b1;b2;b3;", 2, 0},
        {"success", [&] { Write(b); }, 0, "cfgB", "allB", 1, "b1;b2;b3;", 2, 4},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        standin::Reset();
        standin::SetFsRoot(root);
        ReadFirst();
        c.arrange();
        Logged().clear();
        EXPECT_EQ(module.GetSubParamList(), c.status);
        EXPECT_EQ(module.ModuleName, c.moduleName);
        EXPECT_EQ(module.ParamName, c.paramName);
        EXPECT_EQ(module.StrConcateEnable, c.concat);
        EXPECT_EQ(c.names != nullptr ? Names() : "", c.names != nullptr ? c.names : "");
        EXPECT_TRUE(c.subCount < 0 ? SubKept() : module.DynamicSubList.nNum == c.subCount);
        EXPECT_TRUE(c.pubCount < 0 ? PubKept() : module.DynamicPubList.nNum == c.pubCount);
        // The file steps fail without a word; every other refusal says why.
        EXPECT_EQ(Messages(LOG_LEVEL_ERR).empty(), c.status == 0 || &c < &cases[3]);
    }
    EXPECT_THAT(Messages(LOG_LEVEL_INFO).at(0),
                testing::MatchesRegex(
                    "pJsonStr = 0x[0-9a-f]+, fileSize : " + std::to_string(b.size()) + "\r\n"));
    EXPECT_EQ(module.ParsePrivJson(nullptr), static_cast<int>(0xE000000A));
}

// Keys in any letter case, the first of two equal keys, and how a row's kind is decided.
TEST_F(ConfigRead, KeysAndKinds) {
    Write(R"({"modulename":"first","MODULENAME":"second","strconcateenable":0,"paramname":"all",
        "subparamlist":[{"subparamstr":"5:cam:w:3:%d","iscustomedit":0,"showvalue_cn":"c",
        "showvalue_en":"e","paramname":"x","convertType":3,"ConvertType":1,"strtruncenable":1,
        "strtruncstart":2,"strtrunclen":3,"strprefix":"<","strsuffix":">","strdelete":"-"}]})");
    ASSERT_EQ(module.GetSubParamList(), 0);
    const DataSection& x = module.SubParamList.at(0);
    EXPECT_EQ(module.ModuleName, "first");
    EXPECT_EQ(x.ConvertType, FORMAT_V2_VARIATE_STRING);
    EXPECT_EQ(x.SubParam.algo_id, 5);
    EXPECT_EQ(x.StrTruncStart + x.StrTruncLen, 5);
    EXPECT_EQ(x.StrPrefix + x.StrSuffix + x.StrDelete + x.ShowValue_CN + x.ShowValue_EN, "<>-ce");

    const struct {
        const char* sub;
        int custom;
        int kind;
        int algoId;
    } kinds[] = {
        {"\\r\\n", 0, 2, -1},  {"\\r", 0, 2, -1},        {"\\r\\n", 1, 4, -1}, {"", 1, 4, -1},
        {"9:m:p:*:", 0, 1, 9}, {"9:m:p:*:%d", 1, 4, -1}, {"\\n", 0, 0, 0},     {"\r\n", 0, 0, 0},
    };
    for (const auto& k : kinds) {
        SCOPED_TRACE(k.sub);
        Write(Config({Row("k", k.sub, k.custom)}));
        EXPECT_EQ(module.GetSubParamList(), k.kind == 0 ? kRefused : 0);
        if (k.kind == 0) continue;
        EXPECT_EQ(module.SubParamList.at(0).DataType, k.kind);
        EXPECT_EQ(module.SubParamList[0].SubParamStr, k.sub);
        EXPECT_EQ(module.SubParamList[0].SubParam.algo_id, k.algoId);
    }

    // "Array" that is no array is ignored; an empty one makes an array item without fields
    // whose other keys are not read.
    cJSON* stringArray = Row("s", "\\r", 1);
    cJSON_AddStringToObject(stringArray, "Array", "no");
    cJSON* emptyArray = ArrayRow("e", {});
    cJSON_AddStringToObject(emptyArray, "SubParamStr", "ignored");
    Write(Config({stringArray, emptyArray}));
    ASSERT_EQ(module.GetSubParamList(), 0);
    EXPECT_EQ(module.SubParamList.at(0).DataType, FORMAT_V2_DATA_CUSTOM);
    const DataSection& e = module.SubParamList.at(1);
    EXPECT_EQ(e.DataType, FORMAT_V2_DATA_ARRAY);
    EXPECT_TRUE(e.Array.empty() && e.SubParamStr.empty() && e.ShowValue_EN.empty());
    EXPECT_EQ(e.SubParam.algo_id, -1);

    // An empty list is a valid configuration; only the joined output is published.
    Write(Config({}));
    EXPECT_EQ(module.GetSubParamList(), 0);
    EXPECT_TRUE(module.SubParamList.empty());
    EXPECT_EQ(module.DynamicSubList.nNum + module.DynamicPubList.nNum, 1);

    // The float reader, which no key of the file uses.
    cJSON* object = cJSON_Parse(R"({"f":2.25,"s":"t"})");
    float f = 0;
    EXPECT_EQ(module.FillJsonValue(object, "F", f, 1.5f), 0);
    EXPECT_EQ(f, 2.25f);
    Logged().clear();
    EXPECT_EQ(module.FillJsonValue(object, "s", f, 1.5f), -1);
    EXPECT_EQ(f, 1.5f);
    EXPECT_EQ(Messages(), std::vector<std::string>{Fill("s")});
    cJSON_Delete(object);
}

// Malformed files are refused with a status and a message, and a good file read next works.
TEST_F(ConfigRead, BadInputIsRefusedHarmlessly) {
    const std::string deep = std::string(100000, '[') + std::string(100000, ']');
    const std::string nested = std::string(900, '[') + std::string(900, ']');
    const std::string longName(1000, 'n');
    const struct {
        std::string text;
        int status;
        std::string message;  // the first Err message
    } cases[] = {
        {"", kRefused, "cJSON parse Error: \n"},
        {R"({"ModuleName":"x","StrConc)", kRefused, "cJSON parse Error: StrConc\n"},
        {std::string("\x7f\x00\xff{}", 5), kRefused, "cJSON parse Error: \x7f\n"},
        {"\xff\xfe{\"ModuleName\"", kRefused, "cJSON parse Error: \xff\xfe{\"ModuleName\"\n"},
        {"[1,2]", kRefused, Fill("ModuleName")},
        {"\"text\"", kRefused, Fill("ModuleName")},
        // Past cJSON's nesting limit; the log line is cut at 463 characters.
        {deep, kRefused, "cJSON parse Error: " + std::string(397, '[')},
        {Config({Row("n")}).insert(1, "\"x\":" + nested + ","), 0, ""},
        {R"({"ModuleName":"","StrConcateEnable":0,"ParamName":"","SubParamList":[1]})", kRefused,
         Fill("SubParamStr")},
        {R"({"ModuleName":"","StrConcateEnable":0,"ParamName":"","SubParamList":[[]]})", kRefused,
         Fill("SubParamStr")},
        {R"({"ModuleName":"","StrConcateEnable":0,"ParamName":"","SubParamList":{}})", kRefused,
         "cJSON_GetObjectItem SubParamList failed\n"},
        {Config({Set(Row("h"), "ConvertType", cJSON_CreateNumber(1e300))}), kRefused,
         "Unsupported convert type: 2147483647\n"},
        {Config({Set(Row("h"), "IsCustomEdit", cJSON_CreateNumber(-1e300))}), kRefused,
         "Unsupported DATA type: [-2147483648]\n"},
        {Config({Set(Row("h"), "StrTruncLen", cJSON_CreateNumber(1e300))}), 0, ""},
        {Config({Row(longName, "1:" + longName + ":" + longName + ":0:%d")}), 0, ""},
        {Config({Row("g")}), 0, ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text.substr(0, 60));
        Write(c.text);
        Logged().clear();
        EXPECT_EQ(module.GetSubParamList(), c.status);
        const std::vector<std::string> errors = Messages(LOG_LEVEL_ERR);
        EXPECT_EQ(errors.empty() ? "" : errors[0], c.message);
        Write(Config({Row("ok")}));
        EXPECT_EQ(module.GetSubParamList(), 0);
    }
    // Long texts stay whole in the item; the tables cut them (see the table tests).
    Write(Config({Row(longName, "1:" + longName + ":p:0:%d")}));
    ASSERT_EQ(module.GetSubParamList(), 0);
    EXPECT_EQ(module.SubParamList.at(0).ParamName, longName);
    EXPECT_EQ(module.SubParamList[0].SubParam.algo_name, longName);
    EXPECT_EQ(std::string(module.DynamicPubList.params[1].param_name), longName.substr(0, 63));
}
