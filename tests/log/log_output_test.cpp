#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <ctime>
#include <string>

#include "formatv2/module_log.h"
#include "log/log.h"
#include "log_capture.h"

namespace {

std::string joined_calls() {
    std::string all;
    for (const auto& c : g_log_calls) all += c.line + "|";
    return all;
}

TEST(LogOutput, ModuleLinesReachOutputAndCallbackByteExact) {
    int ModuleId = 5;  // what the module's macros log under
    log_set_callbacker(LOG_LEVEL_INFO, record_log_call);
    FdCapture out;
    FV2_INFO_AT(496, "ready %d\n", 7);
    FV2_WARN_AT(12, "slow\r\n");
    FV2_ERR_AT(1234, "failed 0x%X\n", 0xE000000Au);
    out.restore();
    const std::string expected[] = {
        "| Info | 005formatv2 | formatv2.cpp:0496: ready 7\n",
        "\033[33m| Warn | 005formatv2 | formatv2.cpp:0012: slow\r\n\033[0m",
        "\033[31m| Err  | 005formatv2 | formatv2.cpp:1234: failed 0xE000000A\n\033[0m"};
    EXPECT_EQ(out.text(), expected[0] + expected[1] + expected[2]);
    ASSERT_EQ(g_log_calls.size(), 3u);
    for (int i = 0; i < 3; ++i) {
        const LogCall& c = g_log_calls[i];
        EXPECT_EQ(c.line, expected[i]);
        EXPECT_EQ(c.len, static_cast<int>(expected[i].size()));
        EXPECT_EQ(c.module, 5);
        EXPECT_EQ(c.level, LOG_LEVEL_INFO + i);
        EXPECT_EQ(c.flag, 0);
    }
}

TEST(LogOutput, BeforeInitEveryKnownModuleAndLevelPasses) {
    FdCapture out;
    log_print_mod(0, 0, "a");
    log_print_mod(LOG_MODULE_BYTES, 0, "b");
    log_print_mod(LOG_MODULE_COUNT, LOG_LEVEL_ERR, "unknown id");
    const char* volatile no_format = nullptr;
    log_print_mod(1, LOG_LEVEL_ERR, no_format, 0);
    out.restore();
    EXPECT_EQ(out.text(), "ab");
}

TEST(LogOutput, AcceptanceByThresholdCallbackLevelAndModule) {
    struct Case {
        const char* what;
        int threshold;  // -1: as log_prt_init leaves it
        int cb_level;
        bool callback;
        int module, level;
        bool printed, called;
    } const cases[] = {
        {"init blocks everything", -1, LOG_LEVEL_OFF, true, 5, LOG_LEVEL_ERR, false, false},
        {"below threshold: callback only", 6, 4, true, 5, 4, false, true},
        {"at threshold: both", 6, 4, true, 5, 6, true, true},
        {"below both", 6, 4, true, 5, 3, false, false},
        {"no callback set", 6, 4, false, 5, 4, false, false},
        {"298 never to the callback alone", 6, 4, true, 298, 4, false, false},
        {"298 at threshold: both", 6, 4, true, 298, 6, true, true},
        {"id 300: callback only", 0, 4, true, 300, 6, false, true},
        {"negative id: callback only", 0, 4, true, -1, 6, false, true},
        {"INT_MAX id, high level", 0, 9, true, INT_MAX, 200, false, true},
        {"unknown id without callback", 0, 0, false, 300, 200, false, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        ASSERT_EQ(log_prt_init(0, 0, nullptr), 0);
        if (c.threshold >= 0) log_set_priority(-1, c.threshold);
        log_set_callbacker(c.cb_level, c.callback ? record_log_call : nullptr);
        g_log_calls.clear();
        FdCapture out;
        log_print_mod(c.module, c.level, "x%d", 1);
        out.restore();
        EXPECT_EQ(out.text(), c.printed ? "x1" : "");
        EXPECT_EQ(g_log_calls.size(), c.called ? 1u : 0u);
    }
}

TEST(LogOutput, PriorityTableStaysInsideItsEntries) {
    log_set_priority(-7, 3);
    log_set_priority(10, 0x104);  // stored as 8 bits
    log_set_priority(LOG_MODULE_COUNT, 1);
    log_set_priority(INT_MAX, 1);
    EXPECT_EQ(log_get_priority(0), 3);
    EXPECT_EQ(log_get_priority(10), 4);
    EXPECT_EQ(log_get_priority(LOG_MODULE_COUNT - 1), 3);
    EXPECT_EQ(log_get_priority(LOG_MODULE_COUNT), LOG_LEVEL_OFF);
    EXPECT_EQ(log_get_priority(INT_MIN), LOG_LEVEL_OFF);
}

std::string local_minute(time_t when) {
    struct tm local;
    char text[32];
    strftime(text, sizeof text, "[%Y-%m-%d %H:%M:", localtime_r(&when, &local));
    return text;
}

TEST(LogOutput, TimestampPrefixesAllButByteDumpLines) {
    log_set_timestamp_en(1);
    log_set_callbacker(0, record_log_call);
    const std::string minute_before = local_minute(time(nullptr));
    log_print_mod(7, LOG_LEVEL_INFO, "hello\n");
    const std::string minute_after = local_minute(time(nullptr));
    log_print_mod(7, LOG_LEVEL_BYTES, "dump\n");
    ASSERT_EQ(g_log_calls.size(), 2u);
    const std::string& line = g_log_calls[0].line;
    EXPECT_THAT(line,
                testing::MatchesRegex("\\[[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}:"
                                      "0[0-9]{3}\\]hello\n"));
    const std::string minute = line.substr(0, minute_before.size());
    EXPECT_TRUE(minute == minute_before || minute == minute_after) << line;
    EXPECT_EQ(g_log_calls[0].flag, 1);
    EXPECT_EQ(g_log_calls[1].line, "dump\n");
    EXPECT_EQ(g_log_calls[1].flag, 1);
}

TEST(LogOutput, MessageIsCutAt463AndLineStaysWithin510) {
    const std::string longer(600, 'm');
    log_set_callbacker(0, record_log_call);
    for (int stamps : {0, 1}) {
        log_set_timestamp_en(stamps);
        g_log_calls.clear();
        FdCapture out;
        log_print_mod(1, LOG_LEVEL_INFO, "%s", longer.c_str());
        out.restore();
        const std::string text = out.text();
        ASSERT_EQ(g_log_calls.size(), 1u);
        EXPECT_EQ(g_log_calls[0].line, text);
        EXPECT_EQ(text.size(), stamps ? 26u + 463u : 463u);
        EXPECT_EQ(text.substr(text.size() - 463), longer.substr(0, 463));
    }
}

TEST(LogOutput, ByteDumpsInGroupsOfFour) {
    const unsigned char bytes[] = {0x0a, 0x1b, 0x2c, 0x3d, 0x4e, 0x5f, 0x60, 0x71, 0x82,
                                   0x93, 0xa4, 0xb5, 0xc6, 0xd7, 0xe8, 0xf9, 0xff, 0x00};
    struct Case {
        const unsigned char* base;
        int offset, len;
        const char* calls;
    } const cases[] = {
        {bytes, 0, 6, "len:6\n|0a1b2c3d |4e|5f|\n|"},
        {bytes, 0, 16, "len:16\n|0a1b2c3d |4e5f6071 |8293a4b5 |c6d7e8f9 |\n|\n|"},
        {bytes, 2, 3, "len:3\n|2c|3d|4e|\n|"},
        {bytes, 0, 0, "len:0\n|\n|"},
        {bytes, 0, -4, "len:-4\n|\n|"},
        {nullptr, 0, 5, "len:5\n|\n|"},
    };
    log_set_priority(-1, LOG_LEVEL_OFF);  // the callback alone is enough here
    log_set_callbacker(0, record_log_call);
    for (const Case& c : cases) {
        g_log_calls.clear();
        log_print_bytes(c.base, c.offset, c.len);
        EXPECT_EQ(joined_calls(), c.calls);
        for (const auto& call : g_log_calls) {
            EXPECT_EQ(call.module, LOG_MODULE_BYTES);
            EXPECT_EQ(call.flag, 1);
        }
    }
}

int unused_spawn(const char*, void* (*)(void*)) {
    return 0;
}
int failing_spawn(const char*, void* (*)(void*)) {
    return 7;
}

TEST(LogOutput, BufferedLinesAreQueuedOrCountedAsLost) {
    EXPECT_EQ(log_prt_init(1, 0, unused_spawn), -1);
    EXPECT_EQ(log_prt_init(1, 0x800000u, unused_spawn), -2);  // 2^32 bytes
    EXPECT_EQ(log_spawn_detached("log_print", nullptr), EINVAL);
    ASSERT_EQ(log_prt_init(1, 1, failing_spawn), 7);
    log_buf_deinit();
    ASSERT_EQ(log_prt_init(1, 4, nullptr), -1);  // buffered mode without a buffer
    log_set_priority(-1, 0);
    for (int i = 0; i < 3; ++i) log_print_mod(1, LOG_LEVEL_INFO, "lost %d", i);
    EXPECT_EQ(log_get_loss_cnt(), 3u);
    log_set_mode(2);
    EXPECT_EQ(log_get_loss_cnt(), 0u);
    log_print_mod(1, LOG_LEVEL_INFO, "lost");
    log_set_mode(2);
    EXPECT_EQ(log_get_loss_cnt(), 1u);

    // One unit holds four 100-byte lines; without a consumer the fifth is lost.
    ASSERT_EQ(log_prt_init(1, 1, unused_spawn), 0);
    log_set_priority(-1, 0);
    const std::string line(100, 'q');
    for (int i = 0; i < 5; ++i) log_print_mod(1, LOG_LEVEL_INFO, "%s", line.c_str());
    EXPECT_EQ(log_get_loss_cnt(), 1u);
    const log_buf_item front = log_buf_front();
    EXPECT_EQ(std::string(front.addr, front.len), line);
}

}  // namespace
