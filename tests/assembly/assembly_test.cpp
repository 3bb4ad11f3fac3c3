// The assembly operations called one by one on a configured item that holds the Value "old"
// and the type "%d" of an earlier run: what each leaves in the item, how far it moves the
// input position, and what it logs.
#include <functional>

#include "support/fixture.h"

using namespace fv2test;

namespace {

constexpr int kNotDelivered = static_cast<int>(0xC0000004),
              kFieldRead = static_cast<int>(0xE0000315);
using Fields = std::vector<std::pair<std::string, std::string>>;

std::string Sub(const std::string& text) {
    return Row("v", "1:a:p:" + text, 1);
}
std::string Arr(const Fields& fields) {
    return ArrayRow("v", fields);
}

}  // namespace

using Assembly = Fixture;

TEST_F(Assembly, SubscribedValuesAndArrays) {
    const Fields two = {{"1:a:p:*:%d", ","}, {"1:a:q:*:%d", ";"}};
    auto ints = [this] { Feed(0, Ints{1, 2, 3}); };
    auto count = [this, ints](int n) {
        return [this, ints, n] { ints(), in.countOverride["input0"] = n; };
    };
    auto with78 = [this](Ints a) { return [this, a] { FeedAll(a, Ints{7, 8}); }; };
    // Texts of every short length, each copied whole and no further (on both string layouts).
    Strings texts;
    std::string joined;
    for (char n = 0; n <= 17; ++n) {
        texts.emplace_back(std::string(static_cast<size_t>(n), static_cast<char>('a' + n)));
        joined += texts.back() + (n < 17 ? "<>" : "");
    }
    const struct {
        std::string row;
        std::function<void()> feed;
        int ret;
        std::string value;  // the Value, its type, the input position after the call
        int warns;
        std::string err;  // the operation's own Err line, when ret != 0
    } cases[] = {
        // clang-format off
        {Sub("*:%d"), ints, 0, "i:1,2,3 %d 1", 0, ""},
        {Sub("*:%d"), [this] { Feed(0, Ints{}); }, 0, "i: %d 1", 0, ""},
        {Sub(" 2:%u"), ints, 0, "i:3 %u 1", 0, ""},
        {Sub("2ab:%x"), ints, 0, "i:3 %x 1", 0, ""},
        {Sub("*:%f"), [this] { Feed(0, Floats{1.5f, -2}); }, 0, "f:1.5,-2 %f 1", 0, ""},
        {Sub("1:%10s"), [this] { Feed(0, Strings{"a", "b"}); }, 0, "s:b %10s 1", 0, ""},
        // A type that selects no worker keeps the earlier Value.
        {Sub("*:%X"), ints, 0, "s:old %X 1", 0, ""},
        {Sub("*:"), ints, 0, "s:old  1", 0, ""},
        {Sub("0:%d"), [this] { Feed(0, Ints{}); }, kNotDelivered, "- %d 1", 0, "Sunscribe data [input0], index [0] out of range [-1]\n"},
        {Sub("-1:%d"), ints, kNotDelivered, "- %d 1", 0, "index [-1] out of range [2]\n"},
        {Sub("3:%d"), ints, kNotDelivered, "- %d 1", 0, "index [3] out of range [2]\n"},
        {Sub("x:%d"), ints, kNotDelivered, "- %d 1", 0, "Sunscribe data [input0], index [x] is not a number\n"},
        {Sub("2147483648:%d"), ints, kNotDelivered, "- %d 1", 0, "index [2147483648] is not a number\n"},
        // The host's count is checked against its list, in both directions.
        {Sub("3:%d"), count(9), kNotDelivered, "- %d 1", 0, "index [3] out of range [2]\n"},
        {Sub("1:%d"), count(1), kNotDelivered, "- %d 1", 0, "index [1] out of range [0]\n"},
        {Sub("*:%d"), count(0), 0, "i:1,2,3 %d 1", 0, ""},
        {Sub("0:%s"), [] {}, kNotDelivered, "- %s 1", 0, "get subsribe[input0] string data err.\n"},
        {Sub("0:%f"), [this] { in.Bind("input0", nullptr, "k"); }, kNotDelivered, "- %f 1", 0, "get subsribe[input0] float data err.\n"},
        // Arrays: row by row, every cell but the very last followed by its field's separator.
        {Arr(two), with78({1, 2, 3}), 0, "s:1,7;2,8;3, %s 2", 0, ""},
        {Arr(two), with78({1, 2}), 0, "s:1,7;2,8 %s 2", 0, ""},
        {Arr(two), [&] { with78({1, 2})(), in.inputs["input0"].frame->IntTable["k"] = 5; }, 0, "s:5,7;,8 %s 2", 0, ""},
        {Arr(two), with78({}), 0, "s:,7;,8 %s 2", 1, ""},
        {Arr(two), [&] { FeedAll(Ints{}, Ints{}); }, 0, "s: %s 2", 2, ""},
        {Arr({{"1:a:p:*:%X", ","}, two[1]}), with78({1, 2}), 0, "s:,7;,8 %s 2", 0, ""},
        {Arr({{"1:a:p:*:%3.1f", ","}, {"1:a:q:*:%s", ";"}}), [&] { FeedAll(Floats{1.5f}, Strings{"ab", "cd"}); }, 0,
         "s:001.5,ab;,cd %s 2", 0, ""},
        {Arr({{"1:a:p:*:%s", "<>"}}), [&] { Feed(0, texts); }, 0, "s:" + joined + " %s 1", 0, ""},
        {Arr({{"1:a:p:0:%d", ","}}), with78({1, 2, 3}), 0, "s:1,2,3 %s 1", 0, ""},
        {Arr({}), [] {}, 0, "s: %s 0", 0, ""},
        {Arr({two[0], two[1], two[0]}), [&] { Feed(0, Ints{1}), Feed(2, Ints{2}); }, kFieldRead, "s:old %d 0", 0,
         "get subscribe failed(input1), no data\r\n"},
        {Arr(two), [&] { with78({})(), in.Bind("input0", nullptr, "k"); }, kFieldRead, "s:old %d 0", 0,
         "get subscribe failed(input0), no data\r\n"},
        // clang-format on
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.row);
        in = {};
        ASSERT_EQ(Load(Config({c.row})), 0);
        c.feed();
        DataSection& item = m->SubParamList.at(0);
        const bool array = item.DataType == FORMAT_V2_DATA_ARRAY;
        item.Value = Strings{"old"};
        if (array) item.SubParam.type = "%d";
        g_logs.clear();
        int at = 0;
        EXPECT_EQ(array ? m->AssembleArrayData(in.handle(), item, at)
                        : m->AssembleSubscribeData(in.handle(), item, at),
                  c.ret);
        EXPECT_EQ(Describe(item.Value) + " " + item.SubParam.type + " " + std::to_string(at),
                  c.value);
        EXPECT_EQ(Count(kWarn, "get subscribe failed(input"), c.warns);
        const std::string own =
            array ? "get single array data err:0xe0000001\n" : "get v_en output by ";
        EXPECT_EQ(Log(kErr).size() * 10 + Count(kErr, c.err) + Count(kErr, own), c.ret ? 22u : 0u);
    }
}
