// The typed conversion's decided outcomes: codes, stored elements, display texts and log
// lines. Where a value lands in its item's list, and the joined mode, are held to the
// conversion model of the format fuzz target over its seeds (fuzz_replay.format).
#include <gtest/gtest.h>

#include <cmath>
#include <iomanip>
#include <memory>
#include <sstream>
#include <string>
#include <tuple>
#include <variant>
#include <vector>

#include "formatv2/formatv2.h"
#include "log/log.h"

namespace {

constexpr int kBad = static_cast<int>(0xC0000221), kUnknown = static_cast<int>(0xE000001C);
constexpr auto kInt = FORMAT_V2_VARIATE_INT, kFloat = FORMAT_V2_VARIATE_FLOAT;
constexpr auto kText = FORMAT_V2_VARIATE_STRING;
using Value = std::variant<int, float, std::string>;

std::string g_logged;  // "NNNN: message" of every logged line, colours and prefix cut off
int Catch(int, int, int, const char* line, int) {
    const std::string text = line;
    const size_t from = text.find("cpp:") + 4;
    g_logged += text.substr(from, text.find("\033[0m") - from);
    return 0;
}
std::string Failed(int line, const char* type) {
    return "0" + std::to_string(line) + ": Subscribe param:[out] value convert to [" + type +
           "] failed.\n";
}

// The code, the stored element, the text shown and the log lines of one conversion.
using Outcome = std::tuple<int, std::string, std::string, std::string>;

class Convert : public ::testing::Test {
  protected:
    void SetUp() override {
        log_set_callbacker(4, Catch);
        item.ParamName = "out";
        item.SubParamStr = "3:cam:text:0:%s";
    }
    Outcome Send(int type, const Value& value, int index = 0) {
        g_logged.clear();
        module.ShowTextEN = module.ShowTextCN = "";
        item.ConvertType = static_cast<FORMAT_V2_VARIATE_TYPE>(type);
        const int code = std::visit(
            [&](const auto& v) { return module.ConvertAndSendOutputValue(frame, item, v, index); },
            value);
        EXPECT_EQ(module.ShowTextCN, module.ShowTextEN);
        std::ostringstream stored;  // the last element of the item's list, floats with 9 digits
        const auto last = [&stored](const auto& list) {
            if (!list.empty()) stored << std::setprecision(9) << list.back();
        };
        if (frame) {
            last(frame->IntListTable["out"]);
            last(frame->FloatListTable["out"]);
            last(frame->StringListTable["out"]);
        }
        return {code, stored.str(), module.ShowTextEN, g_logged};
    }

    CFormatV2Module module;
    std::shared_ptr<CScFrame> frame = std::make_shared<CScFrame>();
    DataSection item;
};

TEST_F(Convert, ConvertsEachValueToTheItemsType) {
    const std::string unknown = "0646: Subscribe param value convert to unknown type.\n";
    item.SubParam.type = "%3.2f";  // read only where a number becomes a text
    const struct {
        int type;
        std::vector<Value> values;
        Outcome expected;
    } rows[] = {
        // To int: floats truncate and saturate, NaN is 0; texts by std::stoi.
        {kInt, {7}, {0, "7", "7 ", ""}},
        {kInt, {3.9f, "3.9", "  3abc"}, {0, "3", "3 ", ""}},
        {kInt, {-3.9f}, {0, "-3", "-3 ", ""}},
        {kInt, {-0.5f, std::nanf(""), "+0x10"}, {0, "0", "0 ", ""}},
        {kInt, {2147483648.0f}, {0, "2147483647", "2147483647 ", ""}},
        {kInt, {-3e9f, "-2147483648"}, {0, "-2147483648", "-2147483648 ", ""}},
        {kInt, {"2147483648", "abc", "", " -"}, {kBad, "", "", Failed(565, "int")}},
        // To float: shown in general notation with 6 digits; texts by std::stof.
        {kFloat, {1234567.0f}, {0, "1234567", "1.23457e+06 ", ""}},
        {kFloat, {16777217}, {0, "16777216", "1.67772e+07 ", ""}},
        {kFloat, {" -2.5e1x"}, {0, "-25", "-25 ", ""}},
        {kFloat, {"0.1"}, {0, "0.100000001", "0.1 ", ""}},
        {kFloat, {"1e39", "."}, {kBad, "", "", Failed(583, "float")}},
        // To text: numbers by the item's format; a lone carriage return is stored, not shown.
        {kText, {7}, {0, "007", "007 ", ""}},
        {kText, {-2.5f}, {0, "-002.50", "-002.50 ", ""}},
        {kText, {"\r"}, {0, "\r", "", ""}},
        {kText, {"\r\n"}, {0, "\r\n", "\r\n ", ""}},
        {0, {1, "1"}, {kUnknown, "", "", unknown}},
        {4, {1.5f}, {kUnknown, "", "", unknown}},
    };
    for (const auto& row : rows) {
        for (const Value& value : row.values) {
            frame = std::make_shared<CScFrame>();
            EXPECT_EQ(Send(row.type, value), row.expected) << "row " << &row - rows;
        }
    }
    frame.reset();  // no output frame: nothing can be stored
    EXPECT_EQ(Send(kInt, 1), Outcome(kBad, "", "", Failed(565, "int")));
    EXPECT_EQ(Send(kText, 1.5f), Outcome(kBad, "", "", Failed(597, "string")));
}

TEST_F(Convert, TruncatesThenDecoratesThenDeletes) {
    const struct {
        std::string text;
        int truncate, start, length;
        std::string prefix, suffix, remove, expected;
        bool warns;  // start outside the text or negative length: emptied with a warning
    } cases[] = {
        {"ABCDEFG", 1, 2, 3, "", "", "", "CDE", false},
        {"ABCDEFG", 1, 5, 10, "", "", "", "FG", false},
        {"ABCDEFG", 1, 7, 1, "", "", "", "", true},
        {"ABCDEFG", 1, -1, 2, "", "", "", "", true},
        {"ABCDEFG", 1, 0, -1, "", "", "", "", true},
        {"ABCDEFG", 1, 0, 0, "", "", "", "", false},
        {"", 1, 0, 1, "<", ">", "", "<>", true},
        {"ABCDEFG", 0, -9, -9, "", "", "", "ABCDEFG", false},
        {"a-b-c", 0, 0, 0, "x-", "", "-", "xabc", false},
        {"aabb", 0, 0, 0, "", "", "ab", "ab", false},  // one pass, no second look
        {"aaaaa", 0, 0, 0, "", "", "aa", "a", false},
        {"xabyabzab", 0, 0, 0, "", "", "ab", "xyz", false},
        {"b", 0, 0, 0, "a", "", "ab", "", false},
        {"ABab", 1, 2, 2, "AB", "", "ABab", "", false},
    };
    for (const auto& c : cases) {
        std::tie(item.StrTruncEnable, item.StrTruncStart, item.StrTruncLen) =
            std::tie(c.truncate, c.start, c.length);
        std::tie(item.StrPrefix, item.StrSuffix, item.StrDelete) =
            std::tie(c.prefix, c.suffix, c.remove);
        const std::string warning = "0611: Subscribe param:[3:cam:text:0:%s] start idx:[" +
                                    std::to_string(c.start) + "], length:[" +
                                    std::to_string(c.length) + "]\n";
        EXPECT_EQ(Send(kText, c.text, 99),
                  Outcome(0, c.expected, c.expected + " ", c.warns ? warning : ""));
    }
}

}  // namespace
