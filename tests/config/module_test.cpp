// Module lifecycle against the stand-in host, the parameter commands, and the item model's
// value holder.
#include <gmock/gmock.h>

#include <cstring>

#include "support/module_fixture.h"

using namespace fv2test;
using testing::ElementsAre;

namespace {

constexpr int kRefused = static_cast<int>(0xC0000105);
constexpr int kBadArgument = static_cast<int>(0xE0000001);
const char* const kEnsure = "CommandFormatV2Ensure";

class Module : public ModuleFixture {
  protected:
    std::string Param(const char* name) {
        char buffer[64];
        int length = -1;
        EXPECT_EQ(module.GetParam(name, buffer, sizeof buffer, &length), 0);
        return std::string(buffer, static_cast<size_t>(length));
    }
};

}  // namespace

// A file already in place is read as it is, whatever it holds; the default is not copied.
TEST_F(Module, ExistingFileIsNeverReplaced) {
    Write(Config({Row("default")}), kDefault);
    const struct {
        std::string text;
        int status;
    } cases[] = {{"", kRefused}, {"{not json", kRefused}, {Config({Row("own")}), 0}};
    for (const auto& c : cases) {
        Write(c.text);
        Logged().clear();
        EXPECT_EQ(module.InitAlgoPrivate(), c.status);
        EXPECT_EQ(Read(), c.text);
        EXPECT_EQ(Messages().front(), "func init start\n");
        EXPECT_EQ(Messages().back(), "func init end\r\n");
        if (c.status == 0) continue;
        EXPECT_EQ(Messages(LOG_LEVEL_ERR).back(), "GetSubParamList failed, ret 0xc0000105\r\n");
        EXPECT_EQ(LineNo(Logged().size() - 2), "0970");
    }
    EXPECT_EQ(Names(), "own;");
}

TEST_F(Module, MissingFileIsCopiedFromTheDefault) {
    const std::string text = Config({Row("default")});
    Write(text, kDefault);
    EXPECT_EQ(module.InitAlgoPrivate(), 0);
    EXPECT_EQ(Read(), text);
    EXPECT_EQ(Names(), "default;");
    ASSERT_EQ(standin::ResultCalls().size(), 1u);
    EXPECT_EQ(standin::ResultCalls()[0].op, "SetModuleType");
    EXPECT_EQ(standin::ResultCalls()[0].a, 1);
}

// No file and no copy: both messages, the end line, 0xC0000103, and no read at all.
TEST_F(Module, CopyFailureEndsInitialisation) {
    for (int forced : {0, 5}) {
        SCOPED_TRACE(forced);
        if (forced != 0) Write("{}", kDefault);
        standin::FailCall(standin::Call::kOsalCopy, forced);
        Logged().clear();
        EXPECT_EQ(module.InitAlgoPrivate(), static_cast<int>(0xC0000103));
        EXPECT_THAT(Messages(),
                    ElementsAre("func init start\n",
                                testing::MatchesRegex(forced ? "copy default private json failed, "
                                                               "nRet = 5\r\n"
                                                             : "copy default private json "
                                                               "failed, nRet = -?[0-9]+\r\n"),
                                "init private json failed, nErrCode = 0xc0000103\r\n",
                                "func init end\r\n"));
        EXPECT_EQ(LineNo(1) + LineNo(2), "09410963");
        EXPECT_FALSE(Exists(kConfig));
    }
}

// The whole line layout, and a refused module type stopping before the file is looked at.
TEST_F(Module, SetModuleTypeFailure) {
    Write("{}", kDefault);
    module.SetModuleId(5);
    standin::FailCall(standin::Call::kSetModuleType, 0x77);
    EXPECT_EQ(module.InitAlgoPrivate(), 0x77);
    ASSERT_EQ(Logged().size(), 3u);
    EXPECT_EQ(Logged()[0].line, "| Info | 005formatv2 | formatv2.cpp:0951: func init start\n");
    EXPECT_EQ(Logged()[1].line,
              "\033[31m| Err  | 005formatv2 | formatv2.cpp:0956: resultManage SetModuleType "
              "failed, nErrCode = 0x77\r\n\033[0m");
    EXPECT_EQ(Logged()[2].line, "| Info | 005formatv2 | formatv2.cpp:0975: func init end\r\n");
    EXPECT_FALSE(Exists(kConfig));
}

TEST_F(Module, EmptyWorkDirAndHooks) {
    std::memset(module.AlgoModuleName, 'x', sizeof module.AlgoModuleName);
    EXPECT_EQ(module.SetPwd(""), 0);
    EXPECT_STREQ(module.AlgoModuleName, "formatv2");
    Write(Config({Row("root")}), "/algo_private.json");
    EXPECT_EQ(module.InitAlgoPrivate(), 0);
    EXPECT_EQ(Names(), "root;");

    standin::FailCall(standin::Call::kInit, 9);
    EXPECT_EQ(module.SetPwd("/elsewhere"), 9);
    EXPECT_EQ(module.WorkDir, "/elsewhere");

    MODULE_DEBUG_INFO info;
    std::memset(&info, 0x3C, sizeof info);
    EXPECT_EQ(module.GetDebugInfo(nullptr), kBadArgument);
    EXPECT_EQ(module.GetDebugInfo(&info), 0);
    EXPECT_EQ(std::string(info.text, sizeof info.text), std::string(sizeof info.text, '\x3C'));

    DestroyModule(&info, nullptr);
    DestroyModule(nullptr, CreateModule());
}

// The command re-reads the file and is not stored; other letter case is an ordinary parameter.
TEST_F(Module, EnsureCommandRereadsTheFile) {
    standin::DeclareParam(kEnsure, PARAM_TYPE_STRING, {}, "0");
    standin::DeclareParam("commandformatv2ensure", PARAM_TYPE_STRING, {}, "0");
    Write(Config({Row("first")}));
    ASSERT_EQ(module.InitAlgoPrivate(), 0);
    Write(Config({Row("second"), Row("third", "\\r", 1)}));

    Logged().clear();
    EXPECT_EQ(module.SetParam("commandformatv2ensure", "1", 1), 0);
    EXPECT_EQ(Names(), "first;");
    EXPECT_EQ(Param("commandformatv2ensure"), "1");
    EXPECT_THAT(Messages(), ElementsAre("SetParam commandformatv2ensure: 1\r\n",
                                        "func set param[commandformatv2ensure] end, data[1]\r\n"));

    Logged().clear();
    EXPECT_EQ(module.SetParam(kEnsure, "1", 1), 0);
    EXPECT_EQ(Names(), "second;third;");
    EXPECT_EQ(module.DynamicSubList.nNum * 10 + module.DynamicPubList.nNum, 13);
    EXPECT_EQ(Param(kEnsure), "0");
    EXPECT_THAT(Messages(), ElementsAre(testing::StartsWith("pJsonStr = "),
                                        "func set param[CommandFormatV2Ensure] end, data[1]\r\n"));

    Write("{");
    Logged().clear();
    EXPECT_EQ(module.SetParam(kEnsure, "1", 1), kRefused);
    EXPECT_EQ(Messages(LOG_LEVEL_ERR).back(), "GetSubParamList failed, ret 0xc0000105\r\n");
    EXPECT_EQ(Messages().back(), "func set param[CommandFormatV2Ensure] end, data[1]\r\n");

    Write(Config({Row("fourth")}));
    standin::FailCall(standin::Call::kCheckParam, 0x31);
    Logged().clear();
    EXPECT_EQ(module.SetParam(kEnsure, "1", 1), 0x31);
    EXPECT_EQ(Names(), "second;third;");
    EXPECT_THAT(Messages(), ElementsAre("CheckParam CommandFormatV2Ensure value 1 is not valid\r\n",
                                        "func set param[CommandFormatV2Ensure] end, data[1]\r\n"));
}

TEST_F(Module, ParameterArgumentsAndRefusals) {
    standin::DeclareParam("num", PARAM_TYPE_INT, {}, "0123456789");
    const struct {
        const char* name;
        const char* value;
        int length;
    } refused[] = {
        {nullptr, "1", 1}, {"", "1", 1}, {"num", nullptr, 1}, {"num", "1", 0}, {"num", "1", -1}};
    for (const auto& r : refused)
        EXPECT_EQ(module.SetParam(r.name, r.value, r.length), kBadArgument);
    EXPECT_TRUE(Logged().empty());

    char buffer[8];
    int length = -1;
    std::memset(buffer, 'X', sizeof buffer);
    EXPECT_EQ(module.GetParam("num", buffer, 4, &length), 0);
    EXPECT_EQ(std::string(buffer, 5), std::string("012\0X", 5));
    EXPECT_EQ(length, 3);
    EXPECT_EQ(module.GetParam("num", buffer, 1, &length), 0);
    EXPECT_EQ(buffer[0] + length, 0);
    EXPECT_EQ(module.GetParam(nullptr, buffer, 4, &length), kBadArgument);
    EXPECT_EQ(module.GetParam("", buffer, 4, &length), kBadArgument);
    EXPECT_EQ(module.GetParam("num", nullptr, 4, &length), kBadArgument);
    EXPECT_EQ(module.GetParam("num", buffer, 4, nullptr), kBadArgument);
    EXPECT_EQ(module.GetParam("num", buffer, 0, &length), kBadArgument);

    EXPECT_EQ(module.SetParam("num", "abc", 3), standin::kErrParamValue);
    EXPECT_THAT(Logged(), ElementsAre(testing::Field(&LogLine::level, LOG_LEVEL_ERR),
                                      testing::Field(&LogLine::level, LOG_LEVEL_INFO)));
    EXPECT_THAT(Messages(), ElementsAre("CheckParam num value abc is not valid\r\n",
                                        "func set param[num] end, data[abc]\r\n"));

    // A value is read no further than its length, terminated or not.
    const std::unique_ptr<char[]> raw(new char[3]{'4', '2', '7'});
    EXPECT_EQ(module.SetParam("num", raw.get(), 3), 0);
    EXPECT_EQ(Param("num"), "427");
    EXPECT_EQ(module.SetParam("num", raw.get(), 2), 0);
    EXPECT_EQ(Param("num"), "42");

    standin::FailCall(standin::Call::kSetParam, 0x1234);
    Logged().clear();
    EXPECT_EQ(module.SetParam("num", "5", 1), 0x1234);
    EXPECT_THAT(Messages(), ElementsAre("SetParam num: 5\r\n", "UpParam2Map failed, ret = 4660\r\n",
                                        "func set param[num] end, data[5]\r\n"));
    EXPECT_EQ(Param("num"), "42");
}

TEST(ItemModel, AnyCopiesResetsAndRefusesBadCasts) {
    DataSection a;
    a.Value = IntList{1, 2};
    DataSection b = a;
    b.Value.AnyCast<IntList>().push_back(3);
    EXPECT_EQ(a.Value.AnyCast<IntList>(), (IntList{1, 2}));
    EXPECT_EQ(b.Value.AnyCast<IntList>(), (IntList{1, 2, 3}));
    const DataSection copiedEmpty = DataSection{};
    EXPECT_TRUE(copiedEmpty.Value.holder == nullptr);
    EXPECT_EQ(copiedEmpty.Value.typeIndex, std::type_index(typeid(void)));

    std::vector<Any> lists;  // grows by moving its holders
    for (int i = 0; i < 20; ++i) lists.emplace_back(StringList{std::to_string(i)});
    EXPECT_EQ(lists[0].AnyCast<StringList>().at(0) + lists[19].AnyCast<StringList>().at(0), "019");
    lists[0] = lists[19];
    lists[19].AnyCast<StringList>()[0] = "x";
    EXPECT_EQ(lists[0].AnyCast<StringList>().at(0), "19");

    a.Value = FloatList{1.5f};
    EXPECT_TRUE(a.Value.Is<FloatList>());
    a.Value.reset();
    EXPECT_TRUE(a.Value.holder == nullptr);
    EXPECT_EQ(a.Value.typeIndex, std::type_index(typeid(void)));

    testing::internal::CaptureStdout();
    try {
        b.Value.AnyCast<FloatList>();
        ADD_FAILURE() << "no exception";
    } catch (const std::logic_error& e) {
        EXPECT_STREQ(e.what(), "bad cast");
    }
    EXPECT_EQ(testing::internal::GetCapturedStdout(), std::string("can not cast ") +
                                                          typeid(FloatList).name() + " to " +
                                                          typeid(IntList).name() + "\n");

    const std::pair<int, const char*> names[] = {{1, "int"},     {2, "float"},   {3, "string"},
                                                 {0, "unknown"}, {4, "unknown"}, {-1, "unknown"}};
    for (const auto& n : names) {
        EXPECT_EQ(GetVariateTypeStr(static_cast<FORMAT_V2_VARIATE_TYPE>(n.first)), n.second);
    }
}
