// The dynamic subscription and publish tables as the host reads them, byte for byte, and
// their limits.
#include <algorithm>
#include <cstring>

#include "support/module_fixture.h"

using namespace fv2test;

namespace {

constexpr int kIndexOutside = static_cast<int>(0xE000001C);
constexpr int kBadArgument = static_cast<int>(0xE0000001);
using Bytes = std::vector<unsigned char>;

// A record as the host sees it: texts (cut to 63) and integers at their offsets, zero elsewhere.
struct Record {
    explicit Record(size_t size) : bytes(size, 0) {}
    Record& Text(size_t at, const std::string& text) {
        std::memcpy(&bytes[at], text.data(), std::min<size_t>(text.size(), 63));
        return *this;
    }
    Record& Int(size_t at, int32_t value) {
        std::memcpy(&bytes[at], &value, sizeof value);
        return *this;
    }
    Bytes bytes;
};

template <typename T>
Bytes BytesOf(const T& record) {
    const auto* p = reinterpret_cast<const unsigned char*>(&record);
    return Bytes(p, p + sizeof record);
}

Bytes Sub(const std::string& name, int id, const std::string& param, int n) {
    return Record(520)
        .Text(0, name)
        .Int(64, id)
        .Text(68, param)
        .Text(260, "formatv2")
        .Int(324, 77)
        .Text(328, "input" + std::to_string(n))
        .bytes;
}

Bytes Pub(const std::string& name, const std::string& type, int enable) {
    return Record(208).Text(0, name).Text(64, type).Int(128, 1).Int(132, enable).bytes;
}

using Tables = ModuleFixture;

}  // namespace

// Only subscribed values and array fields take entries, in item order; texts are cut to 63.
TEST_F(Tables, SubscriptionRecords) {
    const std::string name(70, 'n'), param(70, 'p');
    Write(Config({Row("c", "text", 1), Row("v", "-3:" + name + ":" + param + ":0:%d"),
                  Row("s", "\\r\\n"), ArrayRow("a", {"4:m:x:*:%f", "5:k:y::"})}));
    module.AlgoId = 77;
    ASSERT_EQ(module.GetSubParamList(), 0);
    Logged().clear();
    ASSERT_EQ(module.GetDynamicSubScribeParamNum(), 3);
    const Bytes expected[] = {Sub(name, -3, param, 0), Sub("m", 4, "x", 1), Sub("k", 5, "y", 2)};
    DYNAMIC_SUBSCRIBE_PARAM record;
    for (int i = 0; i < 3; ++i) {
        std::memset(&record, 0xAA, sizeof record);
        EXPECT_EQ(module.GetDynamicSingleSubScribeParam(i, &record), 0);
        EXPECT_EQ(BytesOf(record), expected[i]) << "entry " << i;
    }
    std::memset(&record, 0xAA, sizeof record);
    EXPECT_EQ(module.GetDynamicSingleSubScribeParam(3, &record), kIndexOutside);
    EXPECT_EQ(module.GetDynamicSingleSubScribeParam(-1, &record), kIndexOutside);
    EXPECT_EQ(BytesOf(record), Bytes(sizeof record, 0xAA));
    EXPECT_EQ(module.GetDynamicSingleSubScribeParam(0, nullptr), kBadArgument);
    EXPECT_EQ(Messages(LOG_LEVEL_INFO).at(0), "Get dynamic sub Scribe param num: 3\r\n");
    EXPECT_EQ(Messages(LOG_LEVEL_INFO).at(3),
              "nParamIdx 2: pub(algo_id[5] algo_name[k] param_name[y]) sub(algo_id[77] "
              "algo_name[formatv2] param_name[input2])\r\n");
}

// 127 subscriptions are accepted, 128 refused with the count and the limit.
TEST_F(Tables, SubscriptionLimit) {
    for (int total : {127, 128}) {
        SCOPED_TRACE(total);
        std::vector<cJSON*> rows{ArrayRow("arr", std::vector<std::string>(100, "1:m:p:*:%d")),
                                 Row("c", "x", 1)};
        for (int i = 100; i < total; ++i) rows.push_back(Row("v" + std::to_string(i)));
        Write(Config(rows));
        Logged().clear();
        const int status = module.GetSubParamList();
        if (total == 127) {
            EXPECT_EQ(status, 0);
            EXPECT_EQ(module.GetDynamicSubScribeParamNum(), 127);
            EXPECT_STREQ(module.DynamicSubList.params[126].sub.param_name, "input126");
            continue;
        }
        EXPECT_EQ(status, static_cast<int>(0xC0000119));
        EXPECT_EQ(Messages(LOG_LEVEL_ERR),
                  (std::vector<std::string>{
                      "The number of subscribes exceeds the upper limit 128 > 128.\n",
                      "update dynamic subscribe info err:0xe0000001\n"}));
        EXPECT_EQ(BytesOf(module.DynamicSubList), Bytes(sizeof module.DynamicSubList, 0));
    }
}

// Host entries first and copied unread, then the joined output, then one record per item;
// exactly one group is enabled.
TEST_F(Tables, PublishRecords) {
    DYNAMIC_PUBLISH_PARAM host;
    std::memset(&host, 'Z', sizeof host);  // no terminator anywhere
    const std::string longName(70, 'L');
    for (int concat : {0, 1}) {
        for (int hosts : {0, 2}) {
            SCOPED_TRACE(std::to_string(concat) + " " + std::to_string(hosts));
            standin::SetHostPubEntries(std::vector<DYNAMIC_PUBLISH_PARAM>(hosts, host));
            module.ParamName = "all";
            module.StrConcateEnable = concat;
            module.SubParamList.assign(3, DataSection{});
            module.SubParamList[0].ParamName = "A";
            module.SubParamList[0].ConvertType = FORMAT_V2_VARIATE_INT;
            module.SubParamList[1].ParamName = "B";
            module.SubParamList[1].ConvertType = FORMAT_V2_VARIATE_STRING;
            module.SubParamList[2].ParamName = longName;
            ASSERT_EQ(module.UpdateDynamicPubInfo(), 0);
            std::vector<Bytes> expected(hosts, BytesOf(host));
            expected.push_back(Pub("all", "string", concat));
            expected.push_back(Pub("A", "int", !concat));
            expected.push_back(Pub("B", "string", !concat));
            expected.push_back(Pub(longName, "unknown", !concat));
            Logged().clear();
            const int count = module.GetDynamicPublishParamNum();
            ASSERT_EQ(count, hosts + 4);
            DYNAMIC_PUBLISH_PARAM record;
            for (int i = 0; i < count; ++i) {
                std::memset(&record, 0xAA, sizeof record);
                EXPECT_EQ(module.GetDynamicSinglePublishParam(i, &record), 0);
                EXPECT_EQ(BytesOf(record), expected[i]) << "record " << i;
            }
            EXPECT_EQ(module.GetDynamicSinglePublishParam(count, &record), kIndexOutside);
            EXPECT_EQ(module.GetDynamicSinglePublishParam(-1, &record), kIndexOutside);
            EXPECT_EQ(module.GetDynamicSinglePublishParam(0, nullptr), kBadArgument);
            EXPECT_EQ(BytesOf(record), expected.back());
            EXPECT_EQ(BytesOf(module.DynamicPubList.params[count]), Bytes(208, 0));
            EXPECT_EQ(Logged().at(0).line.substr(Logged()[0].line.find(".cpp")),
                      ".cpp:0905: GetDynamicPublishParamNum is " + std::to_string(count) + "\r\n");
            EXPECT_EQ(Logged().at(hosts + 1).line.substr(Logged()[hosts + 1].line.find(".cpp")),
                      ".cpp:0924: nParamIdx " + std::to_string(hosts) +
                          ": pub(param_name[all],type:string))\r\n");
        }
    }
}

// The table takes host entries + 1 + items <= 128 records; more refuses it whole.
TEST_F(Tables, PublishRoom) {
    const struct {
        int hosts;
        int items;
    } cases[] = {{0, 127}, {0, 128}, {2, 125}, {2, 126}, {128, 0}};
    DYNAMIC_PUBLISH_PARAM host{};
    std::strcpy(host.param_name, "h");
    for (const auto& c : cases) {
        const int needed = c.hosts + 1 + c.items;
        SCOPED_TRACE(needed);
        standin::SetHostPubEntries(std::vector<DYNAMIC_PUBLISH_PARAM>(c.hosts, host));
        std::vector<cJSON*> rows;  // one subscribed value, the rest custom texts
        for (int i = 0; i < c.items; ++i) {
            rows.push_back(i == 0 ? Row("i0") : Row("i" + std::to_string(i), "x", 1));
        }
        Write(Config(rows));
        Logged().clear();
        const int status = module.GetSubParamList();
        EXPECT_EQ(module.DynamicSubList.nNum, c.items > 0 ? 1 : 0);
        if (needed <= 128) {
            EXPECT_EQ(status, 0);
            EXPECT_EQ(module.DynamicPubList.nNum, 128);
            EXPECT_EQ(std::string(module.DynamicPubList.params[127].param_name),
                      c.items > 0 ? "i" + std::to_string(c.items - 1) : "all");
            continue;
        }
        EXPECT_EQ(status, static_cast<int>(0xC0000119));
        EXPECT_EQ(BytesOf(module.DynamicPubList), Bytes(sizeof module.DynamicPubList, 0));
        const std::vector<std::string> errors = Messages(LOG_LEVEL_ERR);
        ASSERT_EQ(errors.size(), 2u);
        EXPECT_NE(errors[0].find("publish table"), std::string::npos) << errors[0];
        EXPECT_NE(errors[0].find(std::to_string(needed)), std::string::npos) << errors[0];
        EXPECT_EQ(errors[1], "update dynamic publish info err:0xe0000001\n");
    }
}
