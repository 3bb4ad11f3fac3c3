#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "formatv2/formatv2.h"
#include "log/log.h"

namespace {

constexpr int kNotConvertible = static_cast<int>(0xC0000221);
constexpr int kUnknownType = static_cast<int>(0xE000001C);

std::vector<std::string>& Lines() {
    static std::vector<std::string> lines;
    return lines;
}

int Catch(int, int, int, const char* line, int length) {
    Lines().emplace_back(line, static_cast<size_t>(length));
    return 0;
}

class Convert : public ::testing::Test {
  protected:
    void SetUp() override {
        Lines().clear();
        log_set_callbacker(4, Catch);
        item.ParamName = "out";
        item.SubParamStr = "3:cam:text:0:%s";
    }
    void TearDown() override { log_set_callbacker(4, nullptr); }

    // Values go at increasing positions, as output combination sends an item's list.
    template <typename T>
    int Send(FORMAT_V2_VARIATE_TYPE type, const T& value) {
        return SendAt(type, value, position++);
    }
    template <typename T>
    int SendAt(FORMAT_V2_VARIATE_TYPE type, const T& value, int index) {
        item.ConvertType = type;
        return module.ConvertAndSendOutputValue<T>(frame, item, value, index);
    }
    // The one line logged, which must name the source line and carry the message.
    void ExpectLogged(int line, const std::string& message) {
        ASSERT_EQ(Lines().size(), 1u);
        char where[32];
        std::snprintf(where, sizeof where, "formatv2.cpp:%04d: ", line);
        EXPECT_NE(Lines()[0].find(where + message), std::string::npos) << Lines()[0];
        Lines().clear();
    }

    CFormatV2Module module;
    std::shared_ptr<CScFrame> frame = std::make_shared<CScFrame>();
    DataSection item;
    int position = 0;
};

TEST_F(Convert, ToInt) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    EXPECT_EQ(Send(FORMAT_V2_VARIATE_INT, 7), 0);
    for (float v : {3.9f, -3.9f, nan, 3e9f, -3e9f, -0.5f})
        EXPECT_EQ(Send(FORMAT_V2_VARIATE_INT, v), 0);
    for (const char* v : {"12abc", "3.9", "  42", "-2147483648", "+0x10"}) {
        EXPECT_EQ(Send(FORMAT_V2_VARIATE_INT, std::string(v)), 0) << v;
    }
    EXPECT_EQ(frame->IntListTable["out"],
              (std::vector<int>{7, 3, -3, 0, INT_MAX, INT_MIN, 0, 12, 3, 42, INT_MIN, 0}));
    EXPECT_EQ(module.ShowTextEN, "7 3 -3 0 2147483647 -2147483648 0 12 3 42 -2147483648 0 ");
    EXPECT_EQ(module.ShowTextCN, module.ShowTextEN);
    EXPECT_TRUE(Lines().empty());

    for (const char* v : {"abc", "2147483648", "", " ", "-"}) {
        EXPECT_EQ(Send(FORMAT_V2_VARIATE_INT, std::string(v)), kNotConvertible) << v;
        ExpectLogged(565, "Subscribe param:[out] value convert to [int] failed.\n");
    }
    EXPECT_EQ(frame->IntListTable["out"].size(), 12u);
}

TEST_F(Convert, ToFloat) {
    EXPECT_EQ(Send(FORMAT_V2_VARIATE_FLOAT, 1234567.0f), 0);
    EXPECT_EQ(Send(FORMAT_V2_VARIATE_FLOAT, 7), 0);
    EXPECT_EQ(Send(FORMAT_V2_VARIATE_FLOAT, 16777217), 0);  // nearest float
    EXPECT_EQ(Send(FORMAT_V2_VARIATE_FLOAT, std::string(" -2.5e1x")), 0);
    EXPECT_EQ(Send(FORMAT_V2_VARIATE_FLOAT, 0.1f), 0);
    EXPECT_EQ(frame->FloatListTable["out"],
              (std::vector<float>{1234567.0f, 7.0f, 16777216.0f, -25.0f, 0.1f}));
    EXPECT_EQ(module.ShowTextEN, "1.23457e+06 7 1.67772e+07 -25 0.1 ");
    EXPECT_EQ(module.ShowTextCN, module.ShowTextEN);

    for (const char* v : {"abc", "1e39", "", "."}) {
        EXPECT_EQ(Send(FORMAT_V2_VARIATE_FLOAT, std::string(v)), kNotConvertible) << v;
        ExpectLogged(583, "Subscribe param:[out] value convert to [float] failed.\n");
    }
    EXPECT_EQ(frame->FloatListTable["out"].size(), 5u);
}

TEST_F(Convert, ToTextFormatsNumbersByTheItemsType) {
    item.StrPrefix = "[";
    item.StrSuffix = "]";
    item.SubParam.type = "%3d";
    EXPECT_EQ(Send(FORMAT_V2_VARIATE_STRING, 7), 0);
    item.SubParam.type = "%1.2f";
    EXPECT_EQ(Send(FORMAT_V2_VARIATE_STRING, -2.5f), 0);
    EXPECT_EQ(Send(FORMAT_V2_VARIATE_STRING, std::string("x")), 0);
    EXPECT_EQ(frame->StringListTable["out"], (std::vector<std::string>{"[007]", "[-2.50]", "[x]"}));
    EXPECT_EQ(module.ShowTextEN, "[007] [-2.50] [x] ");
    EXPECT_EQ(module.ShowTextCN, module.ShowTextEN);
    EXPECT_TRUE(Lines().empty());
}

TEST_F(Convert, TruncatesDecoratesAndDeletes) {
    struct Case {
        std::string text;
        int truncate, start, length;
        std::string prefix, suffix, remove, expected;
        bool warns;
    };
    const Case cases[] = {
        {"ABCDEFG", 1, 2, 3, "", "", "", "CDE", false},
        {"ABCDEFG", 1, 5, 10, "", "", "", "FG", false},
        {"ABCDEFG", 1, 7, 1, "", "", "", "", true},
        {"ABCDEFG", 1, -1, 2, "", "", "", "", true},
        {"ABCDEFG", 1, 0, -1, "", "", "", "", true},
        {"ABCDEFG", 1, 0, 0, "", "", "", "", false},
        {"", 1, 0, 1, "<", ">", "", "<>", true},  // decorated even after the warning
        {"ABCDEFG", 0, -9, -9, "", "", "", "ABCDEFG", false},
        {"a-b-c", 0, 0, 0, "", "", "-", "abc", false},
        {"a-b-c", 0, 0, 0, "x-", "", "-", "xabc", false},
        {"aabb", 0, 0, 0, "", "", "ab", "ab", false},
        {"aaaaa", 0, 0, 0, "", "", "aa", "a", false},
        {"b", 0, 0, 0, "a", "", "ab", "", false},
        {"ABab", 1, 2, 2, "AB", "", "ABab", "", false},
    };
    for (const Case& c : cases) {
        item.StrTruncEnable = c.truncate;
        item.StrTruncStart = c.start;
        item.StrTruncLen = c.length;
        item.StrPrefix = c.prefix;
        item.StrSuffix = c.suffix;
        item.StrDelete = c.remove;
        EXPECT_EQ(Send(FORMAT_V2_VARIATE_STRING, c.text), 0);
        EXPECT_EQ(frame->StringListTable["out"].back(), c.expected) << c.text << " " << c.start;
        if (c.warns) {
            ExpectLogged(611, "Subscribe param:[3:cam:text:0:%s] start idx:[" +
                                  std::to_string(c.start) + "], length:[" +
                                  std::to_string(c.length) + "]\n");
        } else {
            EXPECT_TRUE(Lines().empty()) << c.text << " " << c.start;
        }
    }
}

TEST_F(Convert, IndexOverwritesInsideTheListAndAppendsOtherwise) {
    frame->IntListTable["out"] = {1, 2};
    frame->StringListTable["out"] = {"a", "b"};
    for (int index : {1, 5, -1, 0}) {
        EXPECT_EQ(SendAt(FORMAT_V2_VARIATE_INT, 10 + index, index), 0);
        EXPECT_EQ(SendAt(FORMAT_V2_VARIATE_STRING, std::to_string(index), index), 0);
    }
    EXPECT_EQ(frame->IntListTable["out"], (std::vector<int>{10, 11, 15, 9}));
    EXPECT_EQ(frame->StringListTable["out"], (std::vector<std::string>{"0", "1", "5", "-1"}));
}

TEST_F(Convert, ConcatenationAppendsTheTextsOnly) {
    module.StrConcateEnable = 1;
    module.ConcatText = "a";
    item.StrSuffix = ";";
    EXPECT_EQ(Send(FORMAT_V2_VARIATE_STRING, std::string("x")), 0);
    item.ParamName = "second";
    item.SubParam.type = "%2d";
    EXPECT_EQ(Send(FORMAT_V2_VARIATE_STRING, 5), 0);
    EXPECT_EQ(module.ConcatText, "ax;05;");
    EXPECT_TRUE(frame->StringListTable.empty());
    EXPECT_EQ(module.ShowTextEN, "");
    EXPECT_EQ(module.ShowTextCN, "");
}

TEST_F(Convert, ALoneCarriageReturnIsStoredButNotShown) {
    EXPECT_EQ(Send(FORMAT_V2_VARIATE_STRING, std::string("\r")), 0);
    EXPECT_EQ(module.ShowTextEN, "");
    EXPECT_EQ(Send(FORMAT_V2_VARIATE_STRING, std::string("\r\n")), 0);
    EXPECT_EQ(frame->StringListTable["out"], (std::vector<std::string>{"\r", "\r\n"}));
    EXPECT_EQ(module.ShowTextEN, "\r\n ");
    EXPECT_EQ(module.ShowTextCN, "\r\n ");
}

TEST_F(Convert, RefusesUnknownTypesAndAMissingFrame) {
    for (int type : {0, 4, -1}) {
        EXPECT_EQ(Send(static_cast<FORMAT_V2_VARIATE_TYPE>(type), 1), kUnknownType);
        ExpectLogged(646, "Subscribe param value convert to unknown type.\n");
    }
    frame.reset();
    EXPECT_EQ(Send(FORMAT_V2_VARIATE_INT, 1), kNotConvertible);
    ExpectLogged(565, "Subscribe param:[out] value convert to [int] failed.\n");
    EXPECT_EQ(Send(FORMAT_V2_VARIATE_STRING, 1.5f), kNotConvertible);
    ExpectLogged(597, "Subscribe param:[out] value convert to [string] failed.\n");
    EXPECT_EQ(module.ShowTextEN, "");
}

}  // namespace
