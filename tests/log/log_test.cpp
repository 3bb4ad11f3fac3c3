#include <fcntl.h>
#include <gmock/gmock.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <csignal>
#include <cstring>
#include <ctime>
#include <deque>
#include <filesystem>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "contract/messages.h"
#include "log/log.h"
#include "log/log_internal.h"

namespace {

using testing::ElementsAre;

// Points descriptor 1 at a temporary file (also reachable by path) until take() or the end.
struct Capture {
    FILE* file = tmpfile();
    const std::string path = "/proc/self/fd/" + std::to_string(fileno(file));
    int saved = (fflush(stdout), dup(1));
    Capture() { dup2(fileno(file), 1); }
    ~Capture() { take(), fclose(file); }
    std::string take() {  // restores descriptor 1, then gives what was written
        if (saved >= 0) dup2(saved, 1), close(saved), saved = -1;
        return text();
    }
    std::string text() const {
        std::string all(static_cast<size_t>(lseek(fileno(file), 0, SEEK_END)), '\0');
        return all.substr(0, std::max<ssize_t>(0, pread(fileno(file), &all[0], all.size(), 0)));
    }
};

std::vector<std::string> g_calls;  // "module level flag:line" per callback call
int Record(int module, int level, int flag, const char* line, int len) {
    EXPECT_EQ(strlen(line), static_cast<size_t>(len));
    g_calls.push_back(std::to_string(module) + " " + std::to_string(level) + " " +
                      std::to_string(flag) + ":" + line);
    return 0;
}

TEST(LogOutput, ModuleLinesReachOutputAndCallbackByteExact) {
    using formatv2::Msg;
    const formatv2::Logger log{&log_print_mod, 5};  // as the module logs under id 5
    log_set_callbacker(LOG_LEVEL_INFO, Record);
    Capture out;
    log.Say<Msg::kProcessEnd>(7);
    log.Say<Msg::kFieldNoData>("input3");
    log.Say<Msg::kNoInputFrame>("Process", static_cast<int>(0xE000000A));
    formatv2::Logger{}.Say<Msg::kProcessStart>();  // no function: nothing at all
    const std::string lines[] = {
        "| Info | 005formatv2 | formatv2.cpp:0536: formatv2 Process end, status : 7\n",
        "\033[33m| Warn | 005formatv2 | formatv2.cpp:0103: get subscribe failed(input3), no "
        "data\r\n\033[0m",
        "\033[31m| Err  | 005formatv2 | formatv2.cpp:0490: [Process] occur error(0xe000000a)\r\n"
        "\033[0m"};
    EXPECT_EQ(out.take(), lines[0] + lines[1] + lines[2]);
    EXPECT_THAT(g_calls,
                ElementsAre("5 4 0:" + lines[0], "5 5 0:" + lines[1], "5 6 0:" + lines[2]));
}

TEST(LogOutput, AcceptanceByThresholdCallbackLevelAndModule) {
    Capture untouched;  // before log_prt_init every threshold is 0; a null format logs nothing
    const char* volatile no_format = nullptr;
    log_print_mod(LOG_MODULE_BYTES, 0, "a%cb", 0);  // the line ends at the message's first NUL
    log_print_mod(LOG_MODULE_COUNT, LOG_LEVEL_ERR, "unknown id");
    log_print_mod(0, 0, no_format, 0);
    EXPECT_EQ(untouched.take(), "a");
    const struct {
        int threshold, cb_level, module, level;  // threshold -1: as log_prt_init leaves it
        const char* outcome;                     // what was printed, then "|" and the calls
    } cases[] = {
        {-1, LOG_LEVEL_OFF, 5, LOG_LEVEL_ERR, "|0"},  // init blocks everything
        {6, 4, 5, 4, "|1"},                           // below threshold: callback only
        {6, 4, 5, 6, "x1|1"},                         // at threshold: both
        {6, 4, 5, 3, "|0"},                           // below both
        {6, -1, 5, 4, "|0"},                          // cb_level -1: no callback set
        {6, 4, LOG_MODULE_NO_CALLBACK, 4, "|0"},      // never to the callback alone
        {6, 4, LOG_MODULE_NO_CALLBACK, 6, "x1|1"},
        {0, 4, LOG_MODULE_COUNT, 6, "|1"},  // unknown ids: callback only
        {0, 4, -1, 6, "|1"},
        {0, 9, INT_MAX, 200, "|1"},
        {0, -1, LOG_MODULE_COUNT, 200, "|0"},
    };
    for (const auto& c : cases) {
        ASSERT_EQ(log_prt_init(0, 0, nullptr), 0);
        if (c.threshold >= 0) log_set_priority(-1, c.threshold);
        log_set_callbacker(c.cb_level, c.cb_level < 0 ? nullptr : Record);
        g_calls.clear();
        Capture out;
        log_print_mod(c.module, c.level, "x%d", 1);
        EXPECT_EQ(out.take() + "|" + std::to_string(g_calls.size()), c.outcome) << &c - cases;
    }
    // A negative id sets every threshold, 8 bits of it; other ids out of range change none.
    log_set_priority(-7, 3);
    log_set_priority(10, 0x104);
    log_set_priority(LOG_MODULE_COUNT, 1);
    log_set_priority(INT_MAX, 1);
    EXPECT_THAT(std::vector<int>({log_get_priority(0), log_get_priority(10), log_get_priority(299),
                                  log_get_priority(300), log_get_priority(INT_MIN)}),
                ElementsAre(3, 4, 3, LOG_LEVEL_OFF, LOG_LEVEL_OFF));
}

TEST(LogOutput, TimestampsLengthLimitsAndByteDumps) {
    const std::string longer(600, 'm');
    const unsigned char bytes[] = {0x0a, 0x1b, 0x2c, 0x3d, 0x4e, 0x5f, 0x60, 0x71,
                                   0x82, 0x93, 0xa4, 0xb5, 0xc6, 0xd7, 0xe8, 0xf9};
    log_set_priority(-1, LOG_LEVEL_OFF);  // the callback alone, until the last line
    log_set_callbacker(0, Record);
    log_set_timestamp_en(1);
    const time_t before = time(nullptr);
    log_print_mod(7, LOG_LEVEL_INFO, "hello\n");
    const time_t after = time(nullptr);
    log_print_mod(1, LOG_LEVEL_INFO, "%s", longer.c_str());
    log_print_bytes(bytes, 0, 6);  // byte dumps get no timestamp
    log_set_timestamp_en(0);
    log_print_bytes(bytes, 0, 16);
    log_print_bytes(nullptr, 0, 3);
    log_set_priority(-1, 0);
    Capture out;
    log_print_mod(1, LOG_LEVEL_INFO, "%s", longer.c_str());
    const std::string printed = out.take();
    ASSERT_EQ(g_calls.size(), 17u);
    EXPECT_THAT(g_calls[0], testing::MatchesRegex("7 4 1:\\[[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:"
                                                  "[0-9]{2}:[0-9]{2}:0[0-9]{3}\\]hello\n"));
    auto minute = [](time_t t) {
        struct tm local;
        char text[32];
        strftime(text, sizeof text, "7 4 1:[%Y-%m-%d %H:%M:", localtime_r(&t, &local));
        return testing::StartsWith(std::string(text));
    };
    EXPECT_THAT(g_calls[0], testing::AnyOf(minute(before), minute(after)));
    // The message is cut at 463 characters, so a line holds at most 47 + 463 bytes.
    EXPECT_EQ(g_calls[1].substr(6 + 26), longer.substr(0, 463));
    EXPECT_EQ(printed, longer.substr(0, 463));
    EXPECT_EQ(g_calls.back(), "1 4 0:" + printed);
    std::string dumps;  // byte dumps: groups of four, a line break after every 16 bytes
    for (size_t i = 2; i + 1 < g_calls.size(); ++i) {
        EXPECT_EQ(g_calls[i].substr(0, 8), "299 7 1:");
        dumps += g_calls[i].substr(8) + "|";
    }
    EXPECT_EQ(dumps,
              "len:6\n|0a1b2c3d |4e|5f|\n|len:16\n|0a1b2c3d |4e5f6071 |8293a4b5 |c6d7e8f9 |\n|\n|"
              "len:3\n|\n|");
}

TEST(LogOutput, BufferedLinesAreQueuedOrCountedAsLost) {
    const log_spawn_t no_spawn = [](const char*, void* (*)(void*)) { return 0; };
    EXPECT_EQ(log_prt_init(1, 0, no_spawn), -1);
    EXPECT_EQ(log_prt_init(1, 0x800000u, no_spawn), -2);  // 2^32 bytes
    EXPECT_EQ(log_prt_init(1, 1, [](const char*, void* (*)(void*)) { return 7; }), 7);
    EXPECT_EQ(log_spawn_detached("log_print", nullptr), EINVAL);
    log_buf_deinit();
    ASSERT_EQ(log_prt_init(1, 4, nullptr), -1);  // buffered mode without a buffer
    log_set_priority(-1, 0);
    for (int i = 0; i < 3; ++i) log_print_mod(1, LOG_LEVEL_INFO, "lost %d", i);
    EXPECT_EQ(log_get_loss_cnt(), 3u);
    log_set_mode(2);  // a new mode clears the count, the same one keeps it
    log_print_mod(1, LOG_LEVEL_INFO, "lost");
    log_set_mode(2);
    EXPECT_EQ(log_get_loss_cnt(), 1u);
    // One unit holds four 100-byte lines; without a consumer the fifth is lost.
    ASSERT_EQ(log_prt_init(1, 1, no_spawn), 0);
    log_set_priority(-1, 0);
    for (int i = 0; i < 5; ++i) log_print_mod(1, LOG_LEVEL_INFO, "%0100d", i);
    EXPECT_EQ(log_get_loss_cnt(), 1u);
}

// Settings change on any thread while another logs (the tsan build checks for races). The
// filter, a record too large to store at once, is never seen half old and half new.
TEST(LogOutput, SettingsChangeWhileAnotherThreadLogs) {
    Capture out;
    std::atomic<bool> stop{false};
    std::atomic<int> torn{0};
    const auto whole = [](const log_filter_t& f) {
        return std::all_of(f.data, std::end(f.data),
                           [&](unsigned char c) { return c == f.data[0]; });
    };
    std::thread logger([&] {
        while (!stop) {
            log_print_mod(1, LOG_LEVEL_WARN, "w\n");
            if (!whole(formatv2::logging::stored_filter())) ++torn;
        }
    });
    const auto setter = [](unsigned char fill) {
        const log_callbacker_t ignore = [](int, int, int, const char*, int) { return 0; };
        log_filter_t filter;
        memset(filter.data, fill, sizeof filter.data);
        for (int i = 0; i < 5000; ++i) {
            log_set_filter(filter);
            log_set_priority(1, i % 2 ? LOG_LEVEL_INFO : LOG_LEVEL_OFF);
            log_set_timestamp_en(i % 2);
            log_set_callbacker(LOG_LEVEL_INFO, i % 2 ? nullptr : ignore);
            log_set_mode(0);
        }
    };
    std::thread a(setter, 'a'), b(setter, 'b');
    a.join();
    b.join();
    stop = true;
    logger.join();
    EXPECT_EQ(torn, 0);
    const log_filter_t last = formatv2::logging::stored_filter();
    EXPECT_TRUE(whole(last) && (last.data[0] == 'a' || last.data[0] == 'b'));
}

int push(const std::string& bytes) {
    return log_buf_push_back({static_cast<unsigned short>(bytes.size()), 0, bytes.data()});
}
std::vector<int> push(std::initializer_list<size_t> sizes, char fill = 'x') {
    std::vector<int> results;
    for (size_t size : sizes) results.push_back(push(std::string(size, fill)));
    return results;
}
std::string text_of(log_buf_item item) {
    return item.addr ? std::string(item.addr, item.len) : "-" + std::to_string(item.len);
}

// Sizes and limits; how lines, fillers and wraps share the ring is the model test's.
TEST(LogBuffer, SizesAndLimits) {
    EXPECT_EQ(log_buf_init(7), -1);
    EXPECT_THAT(push({1}), ElementsAre(-1));  // no buffer
    ASSERT_EQ(log_buf_init(512), 0);
    EXPECT_EQ(log_buf_init(512), -1);
    EXPECT_THAT(push({0, 504, 503}), ElementsAre(-1, -1, 0));  // the room (508) must exceed it
    EXPECT_EQ(log_buf_deinit() + log_buf_init(1 << 17), 0);
    EXPECT_THAT(push({65532, 65531}), ElementsAre(-1, 0));  // record lengths are 16 bits
}

// The ring's rules, written independently of the library: records of 4 + len bytes back to
// back, never into the last 4 bytes; a filler covers a tail too small and writing goes on at 0.
struct RingModel {
    struct Record {
        long long at;
        unsigned len;
        bool filler;
        std::string bytes;
    };
    unsigned end, limit, write = 0, read = 0;
    std::deque<Record> records;
    explicit RingModel(unsigned n) : end(n - 4), limit(n - 8) {}

    int place(const std::string& bytes) {
        records.push_back({write, static_cast<unsigned>(bytes.size() + 4), false, bytes});
        write += records.back().len;
        return 0;
    }
    int push(const std::string& bytes) {
        const unsigned need = bytes.size() + 4;
        if (bytes.empty() || need > 0xFFFF) return -1;
        if (write < read) return read - write > need ? place(bytes) : -1;
        if (write == read) write = read = 0;
        const unsigned room = write >= end ? 0 : end - write;
        if (room > need) return place(bytes);
        if (read == 0) return -1;
        records.push_back({write, room, true, ""});
        write = 0;
        return read > need ? place(bytes) : -1;
    }
    void take() {  // the read offset runs by whole records and restarts at 0 past the end
        read += records.front().len;
        read = read > end ? 0 : read;
        records.pop_front();
        // A filler in the last 8 bytes is stepped over unread, unless it is the newest record.
        if (records.size() > 1 && records.front().filler && records.front().at >= limit)
            records.pop_front();
    }
    void pop() {  // a line and a filler right behind it; an empty ring restarts at 0
        if (!records.empty()) take();
        if (!records.empty() && records.front().filler) take();
        if (records.empty()) read = write;
    }
};

TEST(LogBuffer, MatchesReferenceModelOverRandomSequences) {
    for (unsigned n : {8u, 12u, 13u, 512u, 777u, 2048u, 70000u}) {
        log_buf_deinit();
        ASSERT_EQ(log_buf_init(n), 0);
        RingModel m(n);
        std::mt19937 rng(n);
        for (int i = 0; i < 20000; ++i) {
            // Sizes around the longest line that still fits where the next one would go.
            const unsigned room = m.write < m.read   ? m.read - m.write
                                  : m.write > m.read ? m.end - m.write
                                                     : m.end;
            const unsigned long fit = room > 5 ? room - 5 : 0, pick = rng() % 10;
            const unsigned long sizes[] = {
                fit, fit + 1, fit - 1, rng() % 60, rng() % 510, rng() % (n < 70000 ? 510 : 0xFFFF)};
            if (pick < 4) {
                m.pop();
                log_buf_pop_front();
            } else {
                std::string bytes(std::clamp(sizes[pick - 4], 1ul, 0xFFFFul), 'a' + i % 26);
                bytes[0] = static_cast<char>(i);
                ASSERT_EQ(push(bytes), m.push(bytes)) << n << " step " << i << " " << bytes.size();
            }
            const auto v = formatv2::logging::ring_view();
            const RingModel::Record none{-1, 0, true, ""};
            const auto& head = m.records.empty() ? none : m.records.front();
            const auto& tail = m.records.empty() ? none : m.records.back();
            ASSERT_EQ(std::vector<long long>({v.write, v.read, v.head, v.tail}),
                      std::vector<long long>({m.write, m.read, head.at, tail.at}))
                << n << " step " << i;
            for (auto [item, r] :
                 {std::pair(log_buf_front(), head), std::pair(log_buf_back(), tail)})
                ASSERT_EQ(text_of(item), r.filler ? "-0" : r.bytes);
            ASSERT_TRUE(head.filler || log_buf_front().addr ==
                                           reinterpret_cast<const char*>(v.buffer) + head.at + 4);
        }
    }
}

// The consumer thread starts draining only once this is set.
std::atomic<bool> g_consumerReleased{false};

// Producers log self-checking lines in buffered mode while the consumer thread drains them:
// every line either arrives once, whole and in its producer's order, or is counted as lost.
// The consumer is held until a line has been lost, so the ring surely overflows.
TEST(LogBuffer, ConcurrentProducersLoseOnlyWhatIsCounted) {
    constexpr int kProducers = 4;
    Capture out;
    const log_spawn_t held = [](const char*, void* (*body)(void*)) {
        std::thread([body] {
            while (!g_consumerReleased) usleep(1000);
            body(nullptr);
        }).detach();
        return 0;
    };
    ASSERT_EQ(log_prt_init(1, 16, held), 0);
    log_set_priority(-1, 0);
    std::atomic<bool> stop{false};
    std::atomic<long> attempted{0};
    std::vector<std::thread> producers;
    for (int p = 0; p < kProducers; ++p) {
        producers.emplace_back([p, &stop, &attempted] {
            for (unsigned seq = 0; !stop; ++seq, ++attempted) {
                const int len = 1 + (seq * 37 + p * 101) % 420;
                log_print_mod(p, LOG_LEVEL_INFO, "P%d S%08u L%03d %s\n", p, seq, len,
                              std::string(len, 'a' + (seq + p) % 26).c_str());
                if (seq % 4 == 0) usleep(200);
            }
        });
    }
    while (log_get_loss_cnt() == 0) usleep(1000);
    g_consumerReleased = true;
    usleep(FORMATV2_STRESS_MS * 1000);
    stop = true;
    for (auto& t : producers) t.join();
    const long expected = attempted - log_get_loss_cnt();
    std::string text;
    for (int waited = 0; waited < 3000; ++waited, usleep(10000)) {  // about a line per ms
        text = out.text();
        if (std::count(text.begin(), text.end(), '\n') >= expected) break;
    }
    usleep(20000);  // anything beyond the expected lines would show up by now
    text = out.take();
    EXPECT_TRUE(expected > 0 && expected < attempted);  // the ring overflowed: losses exercised
    ASSERT_EQ(std::count(text.begin(), text.end(), '\n'), expected);
    std::vector<long> last(kProducers, -1);
    std::istringstream all(text);
    for (std::string line; std::getline(all, line);) {
        int p = -1, used = 0;
        unsigned seq = 0, len = 0;
        ASSERT_EQ(sscanf(line.c_str(), "P%d S%8u L%3u %n", &p, &seq, &len, &used), 3) << line;
        ASSERT_TRUE(p >= 0 && p < kProducers) << line;
        EXPECT_GT(static_cast<long>(seq), last[p]) << "out of order or repeated: " << line;
        last[p] = seq;
        EXPECT_EQ(line.substr(used), std::string(len, 'a' + (seq + p) % 26)) << "torn: " << line;
    }
}

using FileIds = std::vector<std::pair<dev_t, ino_t>>;
FileIds stream_ids() {  // what descriptors 0, 1 and 2 point to
    FileIds ids;
    for (int fd = 0; fd < 3; ++fd) {
        struct stat st = {};
        fstat(fd, &st);
        ids.emplace_back(st.st_dev, st.st_ino);
    }
    return ids;
}

TEST(LogRedirect, ToAFileOrATerminalAndBackWithoutLeaks) {
    signal(SIGHUP, SIG_IGN);  // opening the pty slave may make it our controlling terminal
    const int master = posix_openpt(O_RDWR | O_NOCTTY);
    ASSERT_TRUE(master >= 0 && grantpt(master) == 0 && unlockpt(master) == 0);
    const std::string slave = ptsname(master);
    const int fd = open(slave.c_str(), O_RDWR | O_NOCTTY);
    struct termios t;
    ASSERT_EQ(tcgetattr(fd, &t), 0);
    t.c_iflag &= ~ICRNL;  // the slave starts without line input
    t.c_lflag &= ~(ISIG | ICANON);
    ASSERT_EQ(tcsetattr(fd, TCSANOW, &t) + close(fd), 0);
    auto open_fds = [] {
        return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
    };
    Capture file;
    file.take();  // only its file is used here
    const FileIds before = stream_ids();
    const auto fds_before = open_fds();
    EXPECT_EQ(log_redirection_output(nullptr), -1);
    EXPECT_EQ(log_redirection_output("/nonexistent/log.txt"), -3);
    EXPECT_EQ(log_redirection_close(), 0);  // nothing to undo
    log_set_mode(1);  // no buffer: the line is lost and counted, until redirected
    log_print_mod(1, LOG_LEVEL_INFO, "lost");
    const int loss[] = {static_cast<int>(log_get_loss_cnt()),
                        log_redirection_output(file.path.c_str()),
                        static_cast<int>(log_get_loss_cnt())};
    log_set_mode(0);
    log_print_mod(1, LOG_LEVEL_INFO, "to file\n");
    fprintf(stderr, "stderr too\n");
    const int again[] = {log_redirection_output(file.path.c_str()),
                         log_redirection_dev(slave.c_str())};
    const FileIds to_file = stream_ids();
    EXPECT_EQ(log_redirection_close(), 0);
    ASSERT_EQ(log_redirection_dev(slave.c_str()), 0);
    const int got = tcgetattr(0, &t);
    const FileIds to_tty = stream_ids();
    log_print_mod(3, LOG_LEVEL_INFO, "on the terminal\n");
    EXPECT_EQ(log_redirection_output(file.path.c_str()), -2);
    EXPECT_EQ(log_redirection_close(), 0);
    EXPECT_THAT(loss, ElementsAre(1, 0, 0));  // a redirection clears the loss count
    EXPECT_THAT(again, ElementsAre(-2, -2));
    EXPECT_EQ(file.text(), "to file\nstderr too\n");
    EXPECT_EQ(to_file, FileIds({before[0], to_file[1], to_file[1]}));
    EXPECT_EQ(to_tty, FileIds(3, to_tty[0]));
    EXPECT_TRUE(to_file[1] != before[1] && to_tty[1] != before[1] && to_tty[1] != to_file[1]);
    EXPECT_EQ(stream_ids(), before);
    EXPECT_EQ(got, 0);
    EXPECT_EQ(t.c_iflag & ICRNL, static_cast<tcflag_t>(ICRNL));
    EXPECT_EQ(t.c_lflag & (ISIG | ICANON), static_cast<tcflag_t>(ISIG | ICANON));
    struct pollfd ready = {master, POLLIN, 0};
    ASSERT_EQ(poll(&ready, 1, 5000), 1);
    char seen[64] = {};
    ASSERT_GT(read(master, seen, sizeof seen - 1), 0);
    EXPECT_STREQ(seen, "on the terminal\r\n");  // the terminal turns \n into \r\n
    for (int i = 0; i < 50; ++i) {
        ASSERT_EQ(log_redirection_output(file.path.c_str()), 0);
        ASSERT_EQ(log_redirection_dev(slave.c_str()), -2);
        ASSERT_EQ(log_redirection_close() + log_redirection_dev(slave.c_str()), 0);
        ASSERT_EQ(log_redirection_close(), 0);
        ASSERT_EQ(log_redirection_dev("/nonexistent/tty"), -3);
    }
    EXPECT_EQ(open_fds(), fds_before);
    EXPECT_EQ(stream_ids(), before);
    Capture out;  // a file is no terminal: that is reported, yet the redirection goes ahead
    EXPECT_EQ(log_redirection_dev(file.path.c_str()) + log_redirection_close(), 0);
    EXPECT_EQ(out.take(), "tcgetattr error.\r\n");
    close(master);
}

// A stream already used keeps its buffering: what it held goes to the old target, what it takes
// while redirected goes to the new one by the close at the latest. A stream that has seen no I/O
// yet is made unbuffered; a child's reopened stdout stands for one.
TEST(LogRedirect, UsedStreamsAreFlushedFreshOnesUnbuffered) {
    Capture fresh_target;  // only the files of these two are used here
    fresh_target.take();
    Capture new_target;
    new_target.take();
    Capture old_target;
    fputs("held ", stdout);
    ASSERT_EQ(log_redirection_output(new_target.path.c_str()), 0);
    fputs("kept", stdout);
    const std::string while_redirected = new_target.text();
    ASSERT_EQ(log_redirection_close(), 0);
    EXPECT_EQ(old_target.take(), "held ");
    EXPECT_EQ(while_redirected + "|" + new_target.text(), "|kept");

    const pid_t child = fork();
    if (child == 0) {  // leaves without flushing anything
        const bool done = freopen("/dev/null", "w", stdout) != nullptr &&
                          log_redirection_output(fresh_target.path.c_str()) == 0 &&
                          fputs("at once", stdout) >= 0;
        _exit(done ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(fresh_target.text(), "at once");
}

}  // namespace
