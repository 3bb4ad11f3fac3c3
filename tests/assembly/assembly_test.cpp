// The assembly operations called one by one on a configured module: what each leaves in the
// item (Value, type), how far it moves the input position, and what it logs.
#include <functional>

#include "support/fixture.h"

using namespace fv2test;

namespace {

constexpr int kNotDelivered = static_cast<int>(0xC0000004);
constexpr int kFieldRead = static_cast<int>(0xE0000315);

struct Case {
    const char* name;  // for subscribed values "<type>|<index>"
    std::function<void()> feed;
    int ret;
    std::string value;
    std::string err;  // the operation's own Err line when ret != 0
};

// Each operation starts from the Value "old" and the type "%d" of an earlier run.
class Assembly : public Fixture {
  protected:
    DataSection& Primed() {
        DataSection& item = m->SubParamList.at(0);
        item.Value = Strings{"old"};
        item.SubParam.type = "%d";
        return item;
    }
};

}  // namespace

TEST_F(Assembly, SubscribedValues) {
    auto ints = [this] { Feed(0, Ints{1, 2, 3}); };
    auto count = [this, ints](int n) {
        return [this, ints, n] { ints(), in.countOverride["input0"] = n; };
    };
    const Case cases[] = {
        // clang-format off
        {"%d|*", ints, 0, "i:1,2,3", ""},
        {"%d|*", [this] { Feed(0, Ints{}); }, 0, "i:", ""},
        {"%u| 2", ints, 0, "i:3", ""},
        {"%x|2ab", ints, 0, "i:3", ""},
        {"%f|*", [this] { Feed(0, Floats{1.5f, -2}); }, 0, "f:1.5,-2", ""},
        {"%10s|1", [this] { Feed(0, Strings{"a", "b"}); }, 0, "s:b", ""},
        // A type that selects no worker keeps the earlier Value.
        {"%X|*", ints, 0, "s:old", ""},
        {"|*", ints, 0, "s:old", ""},
        {"%d|0", [this] { Feed(0, Ints{}); }, kNotDelivered, "-", "Sunscribe data [input0], index [0] out of range [-1]\n"},
        {"%d|-1", ints, kNotDelivered, "-", "index [-1] out of range [2]\n"},
        {"%d|3", ints, kNotDelivered, "-", "index [3] out of range [2]\n"},
        {"%d|x", ints, kNotDelivered, "-", "Sunscribe data [input0], index [x] is not a number\n"},
        {"%d|2147483648", ints, kNotDelivered, "-", "index [2147483648] is not a number\n"},
        // The host's count is checked against its list, in both directions.
        {"%d|3", count(9), kNotDelivered, "-", "index [3] out of range [2]\n"},
        {"%d|1", count(1), kNotDelivered, "-", "index [1] out of range [0]\n"},
        {"%d|*", count(0), 0, "i:1,2,3", ""},
        {"%s|0", [] {}, kNotDelivered, "-", "get subsribe[input0] string data err.\n"},
        {"%f|0", [this] { in.Bind("input0", nullptr, "k"); }, kNotDelivered, "-", "get subsribe[input0] float data err.\n"},
        // clang-format on
    };
    ASSERT_EQ(Load(Config({Row("v", "1:a:p:0:%d", 1)})), 0);
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        in = {};
        c.feed();
        DataSection& item = Primed();
        const std::string name = c.name;
        item.SubParam.type = name.substr(0, name.find('|'));
        item.SubParam.index = name.substr(name.find('|') + 1);
        g_logs.clear();
        int position = 0;
        EXPECT_EQ(m->AssembleSubscribeData(in.handle(), item, position), c.ret);
        EXPECT_EQ(Describe(item.Value) + " " + std::to_string(position), c.value + " 1");
        EXPECT_EQ(Log(kErr).size(), c.ret ? 2u : 0u);
        EXPECT_EQ(Count(kErr, c.err) + Count(kErr, "get v_en output by "), c.ret ? 2 : 0);
    }
}

TEST_F(Assembly, ArrayLayout) {
    using Fields = std::vector<std::pair<std::string, std::string>>;
    const Fields two = {{"1:a:p:*:%d", ","}, {"1:a:q:*:%d", ";"}};
    auto with78 = [this](Ints a) { return [this, a] { FeedAll(a, Ints{7, 8}); }; };
    const struct {
        Case c;
        Fields fields;
        int position;  // after the call, starting from 0
        int warns;
    } cases[] = {
        // clang-format off
        {{"shorter second field", with78({1, 2, 3}), 0, "s:1,7;2,8;3,", ""}, two, 2, 0},
        {{"equal fields", with78({1, 2}), 0, "s:1,7;2,8", ""}, two, 2, 0},
        {{"scalar wins over list", [&] { with78({1, 2})(), in.inputs["input0"].frame->IntTable["k"] = 5; }, 0, "s:5,7;,8", ""},
         two, 2, 0},
        {{"empty list", with78({}), 0, "s:,7;,8", ""}, two, 2, 1},
        {{"all lists empty", [&] { FeedAll(Ints{}, Ints{}); }, 0, "s:", ""}, two, 2, 2},
        {{"field of no element type", with78({1, 2}), 0, "s:,7;,8", ""}, {{"1:a:p:*:%X", ","}, two[1]}, 2, 0},
        {{"float and text cells", [&] { FeedAll(Floats{1.5f}, Strings{"ab", "cd"}); }, 0, "s:001.5,ab;,cd", ""},
         {{"1:a:p:*:%3.1f", ","}, {"1:a:q:*:%s", ";"}}, 2, 0},
        {{"index does not limit", with78({1, 2, 3}), 0, "s:1,2,3", ""}, {{"1:a:p:0:%d", ","}}, 1, 0},
        {{"no fields", [] {}, 0, "s:", ""}, {}, 0, 0},
        {{"middle field unresolved", [&] { Feed(0, Ints{1}), Feed(2, Ints{2}); }, kFieldRead, "s:old",
          "get subscribe failed(input1), no data\r\n"}, {two[0], two[1], two[0]}, 0, 0},
        {{"resolved without a frame", [&] { with78({})(), in.Bind("input0", nullptr, "k"); }, kFieldRead, "s:old",
          "get subscribe failed(input0), no data\r\n"}, two, 0, 0},
        // clang-format on
    };
    for (const auto& [c, fields, position, warns] : cases) {
        SCOPED_TRACE(c.name);
        in = {};
        ASSERT_EQ(Load(Config({ArrayRow("arr", fields)})), 0);
        c.feed();
        DataSection& item = Primed();
        g_logs.clear();
        int at = 0;
        EXPECT_EQ(m->AssembleArrayData(in.handle(), item, at), c.ret);
        EXPECT_EQ(Describe(item.Value) + " " + item.SubParam.type + " " + std::to_string(at),
                  c.value + (c.ret ? " %d " : " %s ") + std::to_string(position));
        EXPECT_EQ(Count(kWarn, "get subscribe failed(input"), warns);
        EXPECT_EQ(Log(kErr).size(), c.ret ? 2u : 0u);
        EXPECT_EQ(Count(kErr, c.err) + Count(kErr, "get single array data err:0xe0000001\n"),
                  c.ret ? 2 : 0);
    }
}

TEST(SpecialCharReplace, ReplacesLeftToRightWithoutRescanning) {
    struct {
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
    for (auto& c : cases) {
        module.SpecialCharReplace(c.text, c.from, c.to);
        EXPECT_EQ(c.text, c.expected) << c.from << " -> " << c.to;
    }
}
