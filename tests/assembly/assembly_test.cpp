// The assembly operations called one by one on a configured module: what each leaves in the
// item (Value, type), how far it moves the input position, and what it logs.
#include <functional>

#include "tests/formatv2/run_fixture.h"

using fv2test::Config;
using fv2test::Describe;
using Ints = std::vector<int>;
using Strings = std::vector<std::string>;

namespace {
constexpr int kErr = LOG_LEVEL_ERR;
constexpr int kWarn = LOG_LEVEL_WARN;
constexpr int kNotDelivered = static_cast<int>(0xC0000004);
}  // namespace

class AssemblyTest : public fv2test::RunTest {
  protected:
    // Each operation starts from a Value and type of an earlier run.
    void Prime(DataSection& item) {
        item.Value = Strings{"old"};
        item.SubParam.type = item.SubParam.type.empty() ? "%d" : item.SubParam.type;
    }
};

TEST_F(AssemblyTest, SubscribedValues) {
    struct Case {
        const char* type;
        const char* index;
        std::function<void()> feed;
        int ret;
        std::string value;
        std::string err;  // expected Err line (besides the item's own), "" for none
    };
    auto ints = [this] { Feed(0, Ints{1, 2, 3}); };
    // clang-format off
    const std::vector<Case> cases = {
        {"%d", "*", ints, 0, "i:1,2,3", ""},
        {"%d", "*", [this] { Feed(0, Ints{}); }, 0, "i:", ""},
        {"%d", "2", ints, 0, "i:3", ""},
        {"%u", " 2", ints, 0, "i:3", ""},
        {"%x", "2ab", ints, 0, "i:3", ""},
        {"%f", "*", [this] { Feed(0, std::vector<float>{1.5f, -2}); }, 0, "f:1.5,-2", ""},
        {"%10s", "1", [this] { Feed(0, Strings{"a", "b"}); }, 0, "s:b", ""},
        {"%X", "*", ints, 0, "s:old", ""},
        {"", "*", ints, 0, "s:old", ""},
        {"%d", "0", [this] { Feed(0, Ints{}); }, kNotDelivered, "-",
         "Sunscribe data [input0], index [0] out of range [-1]\n"},
        {"%d", "-1", ints, kNotDelivered, "-", "index [-1] out of range [2]\n"},
        {"%d", "3", ints, kNotDelivered, "-", "index [3] out of range [2]\n"},
        {"%d", "x", ints, kNotDelivered, "-", "[input0], index [x]"},
        {"%d", "", ints, kNotDelivered, "-", "[input0], index []"},
        {"%d", "2147483648", ints, kNotDelivered, "-", "[input0], index [2147483648]"},
        // The host's count is checked against its list, in both directions.
        {"%d", "3", [=] { ints(), in.countOverride["input0"] = 9; }, kNotDelivered, "-", "index [3] out of range"},
        {"%d", "1", [=] { ints(), in.countOverride["input0"] = 1; }, kNotDelivered, "-", "index [1] out of range [0]\n"},
        {"%d", "*", [=] { ints(), in.countOverride["input0"] = 0; }, 0, "i:1,2,3", ""},
        {"%s", "0", [] {}, kNotDelivered, "-", "get subsribe[input0] string data err.\n"},
        {"%f", "0", [this] { in.Bind("input0", nullptr, "k"); }, kNotDelivered, "-",
         "get subsribe[input0] float data err.\n"},
    };
    // clang-format on
    ASSERT_EQ(Load(Config({fv2test::Row("v", "1:a:p:0:%d", 1)})), 0);
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.type) + " index '" + c.index + "'");
        in = {};
        fv2test::Logs().clear();
        c.feed();
        DataSection& item = Item(0);
        item.SubParam.type = c.type;
        item.SubParam.index = c.index;
        item.Value = Strings{"old"};
        int position = 0;
        EXPECT_EQ(M().AssembleSubscribeData(in.handle(), item, position), c.ret);
        EXPECT_EQ(position, 1);
        EXPECT_EQ(Describe(item.Value), c.value);
        EXPECT_EQ(item.SubParam.type, c.type);
        EXPECT_EQ(Count(kErr, ""), c.ret ? 2 : 0);
        if (c.ret) {
            EXPECT_EQ(Count(kErr, c.err), 1);
        }
        if (c.ret) {
            EXPECT_EQ(Count(kErr, "get v_en output by "), 1);
        }
    }
}

TEST_F(AssemblyTest, ArrayLayout) {
    using Fields = std::vector<std::pair<std::string, std::string>>;
    const Fields two = {{"1:a:p:*:%d", ","}, {"1:a:q:*:%d", ";"}};
    struct Case {
        const char* name;
        Fields fields;
        std::function<void()> feed;
        int ret;
        std::string value;
        int position;  // after the call, starting from 0
        int warns;
    };
    auto b78 = [this] { Feed(1, Ints{7, 8}); };
    // clang-format off
    const std::vector<Case> cases = {
        {"shorter second field", two, [&] { Feed(0, Ints{1, 2, 3}), b78(); }, 0, "s:1,7;2,8;3,", 2, 0},
        {"equal fields", two, [&] { Feed(0, Ints{1, 2}), b78(); }, 0, "s:1,7;2,8", 2, 0},
        {"scalar wins over list", two, [&] {
             auto source = Bind(0);
             source->IntTable["k"] = 5, source->IntListTable["k"] = {1, 2, 3}, b78();
         }, 0, "s:5,7;,8", 2, 0},
        {"empty list", two, [&] { Feed(0, Ints{}), b78(); }, 0, "s:,7;,8", 2, 1},
        {"all lists empty", two, [&] { Feed(0, Ints{}), Feed(1, Ints{}); }, 0, "s:", 2, 2},
        {"field of no element type", {{"1:a:p:*:%X", ","}, two[1]}, [&] { Feed(0, Ints{1, 2}), b78(); },
         0, "s:,7;,8", 2, 0},
        {"float and text cells", {{"1:a:p:*:%3.1f", ","}, {"1:a:q:*:%s", ";"}},
         [&] { Feed(0, std::vector<float>{1.5f}), Feed(1, Strings{"ab", "cd"}); }, 0, "s:001.5,ab;,cd", 2, 0},
        {"index does not limit", {{"1:a:p:0:%d", ","}}, [&] { Feed(0, Ints{1, 2, 3}); }, 0, "s:1,2,3", 1, 0},
        {"no fields", {}, [] {}, 0, "s:", 0, 0},
        {"middle field unresolved", {two[0], two[1], two[0]}, [&] { Feed(0, Ints{1}), Feed(2, Ints{2}); },
         int(0xE0000315), "s:old", 0, 0},
        {"resolved without a frame", two, [&] { in.Bind("input0", nullptr, "k"), b78(); },
         int(0xE0000315), "s:old", 0, 0},
    };
    // clang-format on
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        in = {};
        ASSERT_EQ(Load(Config({fv2test::ArrayRow("arr", c.fields)})), 0);
        fv2test::Logs().clear();
        c.feed();
        DataSection& item = Item(0);
        Prime(item);
        int position = 0;
        EXPECT_EQ(M().AssembleArrayData(in.handle(), item, position), c.ret);
        EXPECT_EQ(Describe(item.Value), c.value);
        EXPECT_EQ(item.SubParam.type, c.ret ? "%d" : "%s");
        EXPECT_EQ(position, c.position);
        EXPECT_EQ(Count(kWarn, "get subscribe failed(input"), c.warns);
        EXPECT_EQ(Count(kErr, ""), c.ret ? 2 : 0);
        if (c.ret) {
            const std::string input = c.fields.size() == 3 ? "input1" : "input0";
            EXPECT_EQ(Count(kErr, "get subscribe failed(" + input + "), no data\r\n"), 1);
            EXPECT_EQ(Count(kErr, "get single array data err:0xe0000001\n"), 1);
        }
    }
}

TEST_F(AssemblyTest, CustomTextsAndSymbols) {
    struct Case {
        const char* text;
        int custom;
        std::string value;
    } cases[] = {{"\\r\\n", 0, "\r\n"},
                 {"\\r", 0, "\r"},
                 {"a\\r\\nb", 1, "a\\r\\nb"},
                 {"", 1, ""},
                 {"\\r\\n", 1, "\\r\\n"}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        ASSERT_EQ(Load(Config({fv2test::Row("t", c.text, 3, c.custom)})), 0);
        DataSection& item = Item(0);
        Prime(item);
        if (item.DataType == FORMAT_V2_DATA_SYMBOL) {
            M().AssembleSymbolData(item);
        } else {
            ASSERT_EQ(item.DataType, FORMAT_V2_DATA_CUSTOM);
            EXPECT_EQ(M().AssembleCustomData(item), 0);
        }
        EXPECT_EQ(item.Value.AnyCast<StringList>(), Strings{c.value});
        EXPECT_EQ(item.SubParam.type, "%s");
    }
}

TEST_F(AssemblyTest, SpecialCharReplace) {
    struct Case {
        std::string text, from, to, expected;
    } cases[] = {
        {"aaaa", "aa", "a", "aa"},
        {"a", "a", "aa", "aa"},
        {"abc", "", "x", "abc"},
        {"x-y-", "-", "", "xy"},
        {"\\r\\n\\r", "\\r\\n", "\r\n", "\r\n\\r"},
        {"", "a", "b", ""},
    };
    CFormatV2Module module;
    for (Case c : cases) {
        module.SpecialCharReplace(c.text, c.from, c.to);
        EXPECT_EQ(c.text, c.expected) << c.from << " -> " << c.to;
    }
}
