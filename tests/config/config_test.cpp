// The configuration side against the stand-in host: initialisation, reading algo_private.json
// (row codes, what each outcome leaves behind, keys, refused input), the two dynamic tables
// byte for byte with their limits, the parameter commands and the value holder.
#include <gmock/gmock.h>

#include <cstring>
#include <functional>
#include <tuple>

#include "support/fixture.h"

using namespace fv2test;
using standin::Call;
using standin::FailCall;

namespace {

constexpr int kRefused = static_cast<int>(0xC0000105), kTableRefused = static_cast<int>(0xC0000119);
constexpr int kBadArgument = static_cast<int>(0xE0000001);
using Bytes = std::vector<unsigned char>;

template <typename T>
Bytes BytesOf(const T& record) {
    const auto* begin = reinterpret_cast<const unsigned char*>(&record);
    return Bytes(begin, begin + sizeof record);
}

// A record as the host sees it: texts (cut to 63) and ints at their offsets, zero elsewhere.
Bytes Record(size_t size, const std::vector<std::pair<size_t, std::string>>& texts,
             const std::vector<std::pair<size_t, int32_t>>& ints) {
    Bytes bytes(size, 0);
    for (const auto& [at, text] : texts) text.copy(reinterpret_cast<char*>(&bytes[at]), 63);
    for (const auto& [at, value] : ints) std::memcpy(&bytes[at], &value, sizeof value);
    return bytes;
}

class Cfg : public Fixture {
  protected:
    // Reads a first configuration and keeps both tables it built.
    void ReadFirst() {
        ASSERT_EQ(Load(Config({Row("a1", "7:cam:w:0:%d")}, 1, "allA", "cfgA")), 0);
        tables = BytesOf(m->DynamicSubList), pubs = BytesOf(m->DynamicPubList);
    }
    // The settings and the item names, and whether each table is still the first read's.
    std::string State() {
        return m->ModuleName + "|" + m->ParamName + "|" + std::to_string(m->StrConcateEnable) +
               "|" + Names() + (tables == BytesOf(m->DynamicSubList) ? "|sub kept" : "") +
               (pubs == BytesOf(m->DynamicPubList) ? "|pub kept" : "");
    }
    Bytes tables, pubs;
};

}  // namespace

// In this order: neither file (nothing read), the default copied, files of the working
// directory read as they are and never replaced, an empty working directory, and a refused
// module type that ends the initialisation before the file.
TEST_F(Cfg, Initialisation) {
    const std::string dflt = Config({Row("dflt", "x", 3, 1)}),
                      own = Config({Row("own", "x", 3, 1)});
    const std::string start = "0951: func init start\n", end = "0975: func init end\r\n";
    const std::string refused = start + "0970: GetSubParamList failed, ret 0xc0000105\r\n" + end;
    const struct {
        std::function<void()> arrange;
        int status;
        std::string file, names, log;  // the file afterwards ("-": none), the numbered lines
    } cases[] = {
        // clang-format off
        {[] {}, int(0xC0000103), "-", "", start + "0941: copy default private json failed, nRet = -2\r\n"
                                              "0963: init private json failed, nErrCode = 0xc0000103\r\n" + end},
        {[&] { Write(dflt, kDefault); }, 0, dflt, "dflt;", start + end},
        {[&] { Write(""); }, kRefused, "", "dflt;", refused},
        {[&] { Write("{x"); }, kRefused, "{x", "dflt;", refused},
        {[&] { Write(own); }, 0, own, "own;", start + end},
        {[&] { m->SetPwd(""), Write(Config({Row("top", "x", 3, 1)}), "/algo_private.json"); }, 0, own, "top;", start + end},
        {[] { FailCall(Call::kSetModuleType, 0x77); }, 0x77, own, "top;",
         start + "0956: resultManage SetModuleType failed, nErrCode = 0x77\r\n" + end},
        // clang-format on
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.names);
        c.arrange();
        g_logs.clear();
        EXPECT_EQ(m->InitAlgoPrivate(), c.status);
        std::ifstream file(root + kConfig);
        EXPECT_EQ(file ? std::string(std::istreambuf_iterator<char>(file), {}) : "-", c.file);
        EXPECT_EQ(Names() + Fixed({951, 956, 963, 970, 975, 941}), c.names + c.log);
    }
    // The whole line layout; nothing read in the last case.
    std::string lines;
    for (const auto& [level, line] : g_logs) lines += std::to_string(level) + line;
    EXPECT_EQ(lines,
              "4| Info | 005formatv2 | formatv2.cpp:0951: func init start\n6\033[31m| Err  | "
              "005formatv2 | formatv2.cpp:0956: resultManage SetModuleType failed, nErrCode = "
              "0x77\r\n\033[0m4| Info | 005formatv2 | formatv2.cpp:0975: func init end\r\n");
    for (const auto& call : standin::ResultCalls()) {
        EXPECT_EQ(call.op + std::to_string(call.a), "SetModuleType1");
    }
    EXPECT_EQ(standin::ResultCalls().size(), 7u);
    EXPECT_STREQ(m->AlgoModuleName, "formatv2");
    FailCall(Call::kInit, 9);
    EXPECT_EQ(m->SetPwd("/elsewhere"), 9);  // the host's own initialisation result
    MODULE_DEBUG_INFO info;
    std::memset(&info, 0x3C, sizeof info);
    EXPECT_EQ(m->GetDebugInfo(nullptr), kBadArgument);
    EXPECT_EQ(m->GetDebugInfo(&info), 0);
    EXPECT_EQ(BytesOf(info), Bytes(sizeof info, 0x3C));
    DestroyModule(&info, nullptr);
}

// Each code after two good rows: its message, the two rows kept, the tables untouched.
TEST_F(Cfg, RowCodesKeepEarlierRowsAndTables) {
    const std::string parse =
        "ParseSubscribeItem failed, ret " + std::to_string(standin::kErrSubscribeSyntax);
    const struct {
        int code;
        const char* extra;    // the spoilt key, first in the row (for -1..-5 in its field)
        std::string message;  // "": "FillJsonValue [<key>] falied."; "-": none
    } cases[] = {
        // clang-format off
        {-1, R"("SubParamStr":null,)", ""},            {-2, R"("Separator":1,)", ""},
        {-3, R"("ShowValue_CN":null,)", ""},           {-4, R"("ShowValue_EN":[],)", ""},
        {-5, R"("SubParamStr":"7:cam",)", parse},      {-6, R"("SubParamStr":7,)", ""},
        {-7, R"("IsCustomEdit":"0",)", ""},            {-8, R"("SubParamStr":"\\r\\n ",)", parse},
        {-9, R"("IsCustomEdit":2,)", "Unsupported DATA type: [2]"},
        {-10, R"("ShowValue_CN":{},)", ""},            {-11, R"("ShowValue_EN":false,)", ""},
        {-12, R"("ParamName":3,)", ""},                {-13, R"("ParamName":"good1",)", "-"},
        {-13, R"("ParamName":"all",)", "-"},           {-14, R"("ConvertType":"1",)", ""},
        {-15, R"("ConvertType":0,)", "Unsupported convert type: 0"},
        {-16, R"("ConvertType":2,)", "-"},             {-17, R"("StrTruncEnable":null,)", ""},
        {-18, R"("StrTruncStart":"0",)", ""},          {-19, R"("StrTruncLen":true,)", ""},
        {-20, R"("StrPrefix":0,)", ""},                {-21, R"("StrSuffix":null,)", ""},
        {-22, R"("StrDelete":{},)", ""},
        // clang-format on
    };
    ReadFirst();
    const std::string good = Row("good0", "\\r", 3, 1) + "," + Row("good1", "\\r", 3, 1);
    for (const auto& c : cases) {
        SCOPED_TRACE(c.extra);
        const std::string key(c.extra + 1, std::strchr(c.extra + 1, '"'));
        const std::string bad = c.code >= -5 ? ArrayRow("bad", {{"1:a:b:*:%d", ","}}, c.extra)
                                             : Row("bad", "7:cam:w:0:%d", 3, 0, c.extra);
        g_logs.clear();
        EXPECT_EQ(Load(Config({good, bad}, c.code == -16)), kRefused);
        std::string errors;
        for (const std::string& line : Log(kErr)) errors += line;
        EXPECT_EQ(errors, (c.message == "-"    ? ""
                           : c.message.empty() ? "FillJsonValue [" + key + "] falied.\n"
                                               : c.message + "\n") +
                              "parseSubParamList failed, ret=" + std::to_string(c.code) +
                              "\nparse priv json err:0xc0000105\n");
        EXPECT_EQ(State(),
                  "m|all|" + std::to_string(c.code == -16) + "|good0;good1;|sub kept|pub kept");
    }
}

// What every outcome of a read leaves in the settings, the item list and both tables.
TEST_F(Cfg, StateLeftByEachOutcome) {
    const std::string b = Config(
        {Row("b1", "x", 3, 1), Row("b2", "1:p:q:0:%d"), ArrayRow("b3", {{"1:p:q::%s", ","}})}, 1,
        "allB", "cfgB");
    const std::string kept = "cfgA|allA|1|a1;|sub kept|pub kept";
    const struct {
        std::function<void()> arrange;
        int status;
        std::string state;  // ModuleName|ParamName|StrConcateEnable|names, then what is kept
        int subCount, pubCount;
    } cases[] = {
        // clang-format off
        {[] { FailCall(Call::kOsalGetFileSize, -1); }, int(0xE0000203), kept, 1, 2},
        {[] { FailCall(Call::kOsalMalloc, 1); }, int(0xE000000A), kept, 1, 2},
        {[] { FailCall(Call::kOsalLoadFile, -1); }, int(0xE0000201), kept, 1, 2},
        {[&] { Write(b.substr(0, b.size() - 1)); }, kRefused, kept, 1, 2},
        {[&] { Write(R"({"ModuleName":"cfgB","StrConcateEnable":1})"); }, kRefused, "cfgB|null|1||sub kept|pub kept", 1, 2},
        {[&] { Write(R"({"ModuleName":1,"ParamName":"x"})"); }, kRefused, "null||0||sub kept|pub kept", 1, 2},
        {[&] { Write(R"({"ModuleName":"m","StrConcateEnable":0,"ParamName":"p"})"); }, kRefused, "m|p|0||sub kept|pub kept", 1, 2},
        {[&] { Write(Config({Row("b1", "x", 3, 1), Row("b2", "?")}, 1, "allB")); }, kRefused, "m|allB|1|b1;|sub kept|pub kept", 1, 2},
        {[&] { Write(Config({ArrayRow("s", {128, {"1:p:q:*:%d", ","}})}, 0, "allB")); }, kTableRefused, "m|allB|0|s;|pub kept", 0, 2},
        {[&] { Write(b), FailCall(Call::kGetDynamicPubParam, 0x55); }, kTableRefused, "cfgB|allB|1|b1;b2;b3;", 2, 0},
        {[&] { Write(Config({}, 0, "allB")); }, 0, "m|allB|0|", 0, 1},
        {[&] { Write(b); }, 0, "cfgB|allB|1|b1;b2;b3;", 2, 4},
        // clang-format on
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.state);
        standin::Reset();
        standin::SetFsRoot(root);
        ReadFirst();
        c.arrange();
        g_logs.clear();
        EXPECT_EQ(m->GetSubParamList(), c.status);
        EXPECT_EQ(State() + std::to_string(m->DynamicSubList.nNum) + "," +
                      std::to_string(m->DynamicPubList.nNum),
                  c.state + std::to_string(c.subCount) + "," + std::to_string(c.pubCount));
        // The file steps fail without a word; every other refusal says why.
        EXPECT_EQ(Log(kErr).empty(), c.status == 0 || &c < &cases[3]);
    }
}

// Keys in any letter case; of two equal keys the first counts.
TEST_F(Cfg, KeysIgnoreCaseAndTheFirstOfTwoCounts) {
    ASSERT_EQ(Load(R"({"modulename":"1st","MODULENAME":"2nd","strconcateenable":0,"paramname":"all",
        "subparamlist":[{"subparamstr":"5:cam:w:3:%d","iscustomedit":0,"showvalue_cn":"c",
        "showvalue_en":"e","paramname":"x","convertType":3,"ConvertType":1,"strtruncenable":1,
        "strtruncstart":2,"strtrunclen":3,"strprefix":"<","strsuffix":">","strdelete":"-"}]})"),
              0);
    const DataSection& x = m->SubParamList.at(0);
    EXPECT_EQ(m->ModuleName + x.StrPrefix + x.StrSuffix + x.StrDelete + x.ShowValue_CN +
                  x.ShowValue_EN +
                  std::to_string(x.ConvertType * 10000 + x.SubParam.algo_id * 1000 +
                                 x.StrTruncEnable * 100 + x.StrTruncStart * 10 + x.StrTruncLen),
              "1st<>-ce35123");
}

// Malformed files are refused with a status and a message, and a good file read next works.
// At most 127 subscriptions are accepted, the refusal naming 128 as the limit; the publish
// table takes host entries + 1 + items <= 128 records.
TEST_F(Cfg, BadInputAndLimits) {
    const std::string head =
        R"({"ModuleName":"","StrConcateEnable":0,"ParamName":"","SubParamList":)";
    const std::string n(1000, 'n');
    const std::pair<std::string, std::string> field{"1:m:p:*:%d", ","};
    Strings texts;  // custom texts
    for (int i = 0; i < 128; ++i) texts.push_back(Row("i" + std::to_string(i), "x", 3, 1));
    auto items = [&texts](int count) {
        return Config(Strings(texts.begin(), texts.begin() + count));
    };
    const std::string room = "The dynamic publish table needs 129 records, more than its 128.\n";
    const std::tuple<int, std::string, std::string> cases[] = {
        // host entries, text, first Err line
        // clang-format off
        {0, "", "cJSON parse Error: \n"},
        {0, R"({"ModuleName":"x","StrConc)", "cJSON parse Error: StrConc\n"},
        {0, std::string("\x7f\x00\xff{}", 5), "cJSON parse Error: \x7f\n"},
        {0, "[1,2]", "FillJsonValue [ModuleName] falied.\n"},
        {0, "\"text\"", "FillJsonValue [ModuleName] falied.\n"},
        // Past cJSON's nesting limit; the log line is cut at 463 characters.
        {0, std::string(100000, '[') + std::string(100000, ']'), "cJSON parse Error: " + std::string(397, '[')},
        {0, head + "[1]}", "FillJsonValue [SubParamStr] falied.\n"},
        {0, head + "{}}", "cJSON_GetObjectItem SubParamList failed\n"},
        {0, Config({Row("h", "1:a:p:0:%d", 3, 0, R"("ConvertType":1e300,)")}), "Unsupported convert type: 2147483647\n"},
        {0, Config({Row("h", "x", 3, 0, R"("IsCustomEdit":-1e300,)")}), "Unsupported DATA type: [-2147483648]\n"},
        {0, Config({Row("h", "x", 3, 1, R"("StrTruncLen":1e300,)")}), ""},
        {0, Config({Row(n, "1:" + n + ":" + n + ":0:%d")}), ""},
        {0, Config({ArrayRow("a", {127, field})}), ""},
        {0, Config({ArrayRow("a", {128, field})}), "The number of subscribes exceeds the upper limit 128 > 128.\n"},
        {0, items(127), ""}, {0, items(128), room}, {2, items(125), ""}, {2, items(126), room}, {128, Config({}), room},
        // clang-format on
    };
    DYNAMIC_PUBLISH_PARAM host{};
    for (const auto& [hosts, text, message] : cases) {
        SCOPED_TRACE(text.substr(0, 60));
        standin::SetHostPubEntries(std::vector<DYNAMIC_PUBLISH_PARAM>(hosts, host));
        g_logs.clear();
        // A table refusal's message begins with "The".
        EXPECT_EQ(Load(text), message.empty() ? 0 : message[0] == 'T' ? kTableRefused : kRefused);
        EXPECT_EQ(Log(kErr).empty() ? "" : Log(kErr)[0], message);
        if (message == room) {
            EXPECT_EQ(BytesOf(m->DynamicPubList),
                      Bytes(sizeof m->DynamicPubList, 0));  // refused whole
        }
        standin::SetHostPubEntries({});
        EXPECT_EQ(Load(Config({Row("ok", "1:a:p:0:%d")})), 0);
        EXPECT_EQ(Names() + std::to_string(m->DynamicSubList.nNum * 10 + m->DynamicPubList.nNum),
                  "ok;12");
    }
}

// With a sink the reader reads on past a refusal, but never checks what a key it could not read
// would have held: a missing subscription text is no refused subscription, and two missing
// names are no duplicate. Each case tells its row codes once.
TEST(ConfigSink, AKeyThatCannotBeReadIsToldOnce) {
    struct Codes : ConfigRefusalSink {
        std::string told;
        void Refused(const ConfigRefusal& refusal) override {
            told += std::to_string(refusal.code) + " ";
        }
    };
    const std::string noText = R"("SubParamStr":5,)", noName = R"("ParamName":5,)";
    const std::pair<Strings, std::string> cases[] = {
        {{ArrayRow("v", {{"1:a:p:*:%d", ","}}, noText)}, "-1 "},
        {{Row("v", "1:a:p:*:%d", 3, 0, noText)}, "-6 "},
        {{Row("v", "1:a:p:*:%d", 3, 0, noName), Row("w", "1:a:q:*:%d", 3, 0, noName)}, "-12 -12 "},
    };
    for (const auto& [rows, told] : cases) {
        Codes sink;
        std::string moduleName, paramName;
        int concat = 0;
        std::vector<DataSection> items;
        EXPECT_EQ(ConfigReader({}, &CAlgoUtils::ParseSubscribeItem, &sink)
                      .Parse(Config(rows).c_str(), {moduleName, concat, paramName, items}),
                  kRefused);
        EXPECT_EQ(sink.told, told) << rows[0];
    }
}

// Subscriptions: only subscribed values and array fields, in item order, texts cut to 63.
// Publications: host entries copied unread, the joined output, one record per item, exactly
// one group enabled. (Indices outside the tables: the configuration fuzz target's checks.)
TEST_F(Cfg, TableRecords) {
    const std::string name(70, 'n'), param(70, 'p');
    DYNAMIC_PUBLISH_PARAM host, pub;
    DYNAMIC_SUBSCRIBE_PARAM sub;
    std::memset(&host, 'Z', sizeof host);  // no terminator anywhere
    standin::SetHostPubEntries({host, host});
    m->AlgoId = 77;
    const std::string v = Row(name, "-3:" + name + ":" + param + ":0:%d", 2);
    const std::string a = ArrayRow("a", {{"4:m:x:*:%f", ","}, {"5:k:y::", ","}});
    ASSERT_EQ(Load(Config({Row("c", "text", 1, 1), v, Row("s", "\\r\\n"), a})), 0);
    ASSERT_EQ(m->GetDynamicSubScribeParamNum(), 3);
    const std::tuple<std::string, int, std::string> subs[] = {
        {name, -3, param}, {"m", 4, "x"}, {"k", 5, "y"}};
    for (int i = 0; i < 3; ++i) {
        const auto& [algo, id, out] = subs[i];
        const std::string input = "input" + std::to_string(i);
        EXPECT_EQ(m->GetDynamicSingleSubScribeParam(i, &sub), 0);
        EXPECT_EQ(BytesOf(sub), Record(520, {{0, algo}, {68, out}, {260, "formatv2"}, {328, input}},
                                       {{64, id}, {324, 77}}));
    }
    EXPECT_EQ(Log(kInfo).back(),
              "nParamIdx 2: pub(algo_id[5] algo_name[k] param_name[y]) sub(algo_id[77] "
              "algo_name[formatv2] param_name[input2])\r\n");
    for (int concat : {0, 1}) {
        m->StrConcateEnable = concat;  // as a joined configuration would set it
        ASSERT_EQ(m->UpdateDynamicPubInfo(), 0);
        std::vector<Bytes> expected(2, BytesOf(host));
        const std::pair<std::string, std::string> records[] = {
            {"all", "string"}, {"c", "int"}, {name, "float"}, {"s", "string"}, {"a", "string"}};
        for (const auto& [item, type] : records) {
            const int enable = (item == "all") == (concat == 1);
            expected.push_back(Record(208, {{0, item}, {64, type}}, {{128, 1}, {132, enable}}));
        }
        g_logs.clear();
        ASSERT_EQ(m->GetDynamicPublishParamNum(), 7);
        EXPECT_EQ(Fixed({905}), "0905: GetDynamicPublishParamNum is 7\r\n");
        for (int i = 0; i < 7; ++i) {
            EXPECT_EQ(m->GetDynamicSinglePublishParam(i, &pub), 0);
            EXPECT_EQ(BytesOf(pub), expected[i]) << concat << " record " << i;
        }
        EXPECT_EQ(BytesOf(m->DynamicPubList.params[7]), Bytes(sizeof pub, 0));
        EXPECT_EQ(Log(kInfo, true).back(),
                  "0924: nParamIdx 6: pub(param_name[a],type:string))\r\n");
    }
}

// The command re-reads the file and is not stored; other letter case is an ordinary parameter.
// Parameters: refused arguments, values handed on whole whatever the length, cut reads.
TEST_F(Cfg, Parameters) {
    const char* const ensure = "CommandFormatV2Ensure";
    for (const char* name : {ensure, "commandformatv2ensure", "num"}) {
        standin::DeclareParam(name, PARAM_TYPE_INT, {}, "0");
    }
    auto param = [this](const char* name, int size = 32) {  // "!": no terminator, or a byte past it
        char buffer[34];
        std::memset(buffer, 'X', sizeof buffer);
        int length = 0;
        EXPECT_EQ(m->GetParam(name, buffer, size, &length), 0);
        const bool clean = buffer[length] == '\0' && buffer[length + 1] == 'X';
        return std::string(buffer, static_cast<size_t>(length)) + (clean ? "" : "!");
    };
    ASSERT_EQ(Load(Config({Row("first", "x", 3, 1)})), 0);
    const std::string second = Config({Row("second", "1:a:p:0:%d"), Row("third", "\\r", 3, 1)});
    Write(second);
    EXPECT_EQ(m->SetParam("commandformatv2ensure", "1", 1), 0);
    EXPECT_EQ(Names() + param("commandformatv2ensure"), "first;1");
    EXPECT_EQ(Log().back(), "func set param[commandformatv2ensure] end, data[1]\r\n");
    g_logs.clear();
    EXPECT_EQ(m->SetParam(ensure, "1", 1), 0);
    EXPECT_EQ(Names() + param(ensure) +
                  std::to_string(m->DynamicSubList.nNum * 10 + m->DynamicPubList.nNum),
              "second;third;013");
    EXPECT_THAT(Log(),
                testing::ElementsAre(testing::MatchesRegex("pJsonStr = 0x[0-9a-f]+, fileSize : " +
                                                           std::to_string(second.size()) + "\r\n"),
                                     "func set param[CommandFormatV2Ensure] end, data[1]\r\n"));
    Write("{");
    g_logs.clear();
    EXPECT_EQ(m->SetParam(ensure, "1", 1), kRefused);
    EXPECT_EQ(Log(kErr).back() + Names(),
              "GetSubParamList failed, ret 0xc0000105\r\nsecond;third;");
    Write(Config({Row("fourth", "x", 3, 1)}));
    FailCall(Call::kCheckParam, 0x31);  // a refused value reads nothing
    EXPECT_EQ(std::to_string(m->SetParam(ensure, "1", 1)) + Names(), "49second;third;");
    FailCall(Call::kCheckParam, 0);

    char b[8];
    int n = 0;
    // clang-format off
    for (int refused : {m->SetParam(nullptr, "1", 1), m->SetParam("", "1", 1), m->SetParam("num", nullptr, 1),
                        m->SetParam("num", "1", 0), m->GetParam(nullptr, b, 4, &n),
                        m->GetParam("", b, 4, &n), m->GetParam("num", nullptr, 4, &n),
                        m->GetParam("num", b, 4, nullptr), m->GetParam("num", b, 0, &n)}) {
        EXPECT_EQ(refused, kBadArgument);
    }
    // clang-format on
    EXPECT_EQ(m->SetParam("num", "0123456789", 1), 0);
    EXPECT_EQ(param("num", 4) + "|" + param("num", 1) + "|" + param("num"), "012||0123456789");
    EXPECT_EQ(m->SetParam("num", "01", -1), 0);
    EXPECT_EQ(param("num"), "01");
    g_logs.clear();
    EXPECT_EQ(m->SetParam("num", "abc", 3), standin::kErrParamValue);
    EXPECT_EQ(Log(kErr), Strings{"CheckParam num value abc is not valid\r\n"});
    FailCall(Call::kSetParam, 0x1234);
    EXPECT_EQ(m->SetParam("num", "5", 1), 0x1234);
    EXPECT_EQ(Log(kErr).back() + param("num"), "UpParam2Map failed, ret = 4660\r\n01");
}

TEST(ItemModel, AnyCopiesAreDeepAndBadCastsThrow) {
    DataSection a;
    a.Value = IntList{1, 2};
    DataSection b = a;
    b.Value.AnyCast<IntList>().push_back(3);
    Any c;
    c = b.Value;
    c.AnyCast<IntList>()[0] = 9;
    Any& same = c;
    c = same;             // assigned to itself, a holder keeps its value
    c = std::move(same);  // and moved into itself too
    Any moved(std::move(c));
    EXPECT_EQ(Describe(a.Value) + Describe(b.Value) + Describe(moved) + Describe(c),
              "i:1,2i:1,2,3i:9,2,3-");
    testing::internal::CaptureStdout();
    EXPECT_THROW(b.Value.AnyCast<FloatList>(), std::logic_error);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), std::string("can not cast ") +
                                                          typeid(FloatList).name() + " to " +
                                                          typeid(IntList).name() + "\n");
    EXPECT_EQ(
        GetVariateTypeStr(FORMAT_V2_VARIATE_TYPE(0)) + GetVariateTypeStr(FORMAT_V2_VARIATE_TYPE(4)),
        "unknownunknown");
}
