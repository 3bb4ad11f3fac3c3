#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <map>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "log/log.h"
#include "log/log_internal.h"
#include "log_capture.h"

namespace {

using formatv2::logging::ring_view;

int push(const std::string& bytes) {
    return log_buf_push_back({static_cast<unsigned short>(bytes.size()), 0, bytes.data()});
}
std::string text_of(log_buf_item item) {
    return item.addr ? std::string(item.addr, item.len) : "";
}

TEST(LogBuffer, InitAndSizeBoundaries) {
    EXPECT_EQ(log_buf_init(0), -1);
    EXPECT_EQ(log_buf_init(7), -1);
    EXPECT_EQ(log_buf_front().addr, nullptr);
    EXPECT_EQ(push("x"), -1);  // no buffer
    ASSERT_EQ(log_buf_init(512), 0);
    EXPECT_EQ(log_buf_init(512), -1);
    EXPECT_EQ(log_buf_front().len, 0);
    EXPECT_EQ(log_buf_front().addr, nullptr);
    EXPECT_EQ(push(""), -1);
    EXPECT_EQ(push(std::string(504, 'a')), -1);  // the room (508) must exceed the record
    EXPECT_EQ(push(std::string(503, 'b')), 0);
    EXPECT_EQ(text_of(log_buf_back()), std::string(503, 'b'));
    EXPECT_EQ(log_buf_deinit(), 0);
    EXPECT_EQ(ring_view().buffer, nullptr);

    ASSERT_EQ(log_buf_init(1 << 17), 0);
    EXPECT_EQ(push(std::string(65532, 'c')), -1);  // the record length would not fit 16 bits
    EXPECT_EQ(push(std::string(65531, 'd')), 0);
    EXPECT_EQ(log_buf_front().len, 65531);
}

TEST(LogBuffer, FillerCoversTheTailAndIsNeverReturned) {
    ASSERT_EQ(log_buf_init(512), 0);
    ASSERT_EQ(push(std::string(296, 'A')), 0);  // record 0..300
    ASSERT_EQ(push(std::string(196, 'B')), 0);  // record 300..500
    EXPECT_EQ(push(std::string(96, 'C')), -1);  // no room at the end, nothing consumed yet
    log_buf_pop_front();
    ASSERT_EQ(push(std::string(96, 'C')), 0);  // filler 500..508, record 0..100
    EXPECT_EQ(ring_view().write, 100u);
    EXPECT_EQ(text_of(log_buf_back()), std::string(96, 'C'));
    log_buf_pop_front();  // B and the filler behind it
    EXPECT_EQ(ring_view().read, 508u);
    EXPECT_EQ(text_of(log_buf_front()), std::string(96, 'C'));
    log_buf_pop_front();
    EXPECT_EQ(log_buf_front().addr, nullptr);
    // Emptied, the ring starts over at 0: the read offset alone would have drifted to 0 while
    // writing sits at 100, refusing this line now and, near the end, every line for good.
    EXPECT_EQ(push(std::string(503, 'D')), 0);
}

// The ring's rules on offsets, written independently of the library.
struct RingModel {
    struct Record {
        unsigned len;
        bool in_use, filler;
        std::string bytes;
    };
    unsigned end, limit, write = 0, read = 0;
    long head = -1, tail = -1;
    std::map<long, Record> at;
    explicit RingModel(unsigned n) : end(n - 4), limit(n - 8) {}

    int place(const std::string& bytes) {
        at[write] = {static_cast<unsigned>(bytes.size()) + 4, true, false, bytes};
        if (head < 0) head = write;
        tail = write;
        write += at[tail].len;
        return 0;
    }
    int push(const std::string& bytes) {
        const unsigned need = bytes.size() + 4;
        if (bytes.empty() || need > 0xFFFF) return -1;
        if (write < read) return read - write > need ? place(bytes) : -1;
        unsigned room = write >= end ? 0 : end - write;
        if (write == read) {
            write = read = 0;
            room = end;
        }
        if (room > need) return place(bytes);
        if (read == 0) return -1;
        at[write] = {room, true, true, ""};
        const long filler = write;
        write = 0;
        if (read > need) return place(bytes);
        tail = filler;
        if (head < 0) head = filler;
        return -1;
    }
    void step() {
        if (head == tail) {
            head = tail = -1;
            return;
        }
        const long next = head + at[head].len;
        head = next != tail && next >= static_cast<long>(limit) ? 0 : next;
    }
    void take(long offset) {
        read += at[offset].len;
        if (read > end) read = 0;
        at[offset].in_use = false;
    }
    void pop() {
        if (head < 0) return;
        long oldest = head;
        step();
        take(oldest);
        if (head >= 0 && at[head].filler && at[head].in_use) {
            oldest = head;
            step();
            take(oldest);
        }
        if (head < 0) read = write;
    }
    // The longest line that still fits where the next record goes, or 0.
    unsigned fitting() const {
        const unsigned room = write < read ? read - write : write > read ? end - write : end;
        return room > 5 ? room - 5 : 0;
    }
};

void expect_item(log_buf_item item, const RingModel& m, long offset, const unsigned char* base) {
    if (offset < 0 || m.at.at(offset).filler) {
        EXPECT_EQ(item.len, 0);
        EXPECT_EQ(item.addr, nullptr);
        return;
    }
    const RingModel::Record& r = m.at.at(offset);
    ASSERT_EQ(item.addr, reinterpret_cast<const char*>(base + offset + 4));
    ASSERT_EQ(text_of(item), r.bytes);
}

TEST(LogBuffer, MatchesReferenceModelOverRandomSequences) {
    for (unsigned n : {8u, 12u, 13u, 512u, 777u, 2048u, 70000u}) {
        SCOPED_TRACE(n);
        log_buf_deinit();
        ASSERT_EQ(log_buf_init(n), 0);
        const unsigned char* base = ring_view().buffer;
        RingModel m(n);
        std::mt19937 rng(n);
        auto upto = [&rng](unsigned most) { return 1 + static_cast<unsigned>(rng() % most); };
        for (int i = 0; i < 20000 && !testing::Test::HasFailure(); ++i) {
            const unsigned pick = rng() % 10;
            if (pick < 4) {
                m.pop();
                log_buf_pop_front();
            } else {
                const unsigned fit = m.fitting();
                const unsigned sizes[] = {
                    upto(510), upto(60), fit, fit + 1, fit > 1 ? fit - 1 : 1, upto(0xFFFF)};
                std::string bytes(sizes[pick - 4], static_cast<char>('a' + i % 26));
                if (pick == 9 && n < 70000u) bytes.resize(upto(510));
                if (bytes.empty() || bytes.size() > 0xFFFF)
                    bytes.resize(bytes.empty() ? 1 : 0xFFFF);
                bytes[0] = static_cast<char>(i);
                ASSERT_EQ(push(bytes), m.push(bytes)) << "step " << i << " size " << bytes.size();
            }
            ASSERT_TRUE(m.head < 0 || !m.at[m.head].filler) << "a consumer would stall";
            const auto v = ring_view();
            ASSERT_EQ(v.write, m.write) << "step " << i;
            ASSERT_EQ(v.read, m.read) << "step " << i;
            ASSERT_EQ(v.head, m.head) << "step " << i;
            ASSERT_EQ(v.tail, m.tail) << "step " << i;
            expect_item(log_buf_front(), m, m.head, base);
            expect_item(log_buf_back(), m, m.tail, base);
        }
    }
}

// Producers log self-checking lines in buffered mode while the consumer thread drains them.
TEST(LogBuffer, ConcurrentProducersLoseOnlyWhatIsCounted) {
#ifdef FORMATV2_UNDER_EMULATOR
    int run_ms = 300;
#else
    int run_ms = 1000;
#endif
    if (const char* env = getenv("FORMATV2_LOG_STRESS_MS")) run_ms = atoi(env);
    constexpr int kProducers = 4;
    FdCapture out;
    ASSERT_EQ(log_prt_init(1, 16, log_spawn_detached), 0);
    log_set_priority(-1, 0);
    std::atomic<bool> stop{false};
    std::vector<unsigned> attempted(kProducers);
    std::vector<std::thread> producers;
    for (int p = 0; p < kProducers; ++p) {
        producers.emplace_back([p, &stop, &attempted] {
            char pattern[512];
            unsigned seq = 0;
            for (; !stop.load(); ++seq) {
                const unsigned len = 1 + (seq * 37 + p * 101) % 420;
                memset(pattern, 'a' + (seq + p) % 26, len);
                pattern[len] = '\0';
                log_print_mod(p, LOG_LEVEL_INFO, "P%d S%08u L%03u %s\n", p, seq, len, pattern);
                if (seq % 4 == 0) usleep(200);
            }
            attempted[p] = seq;
        });
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(run_ms));
    stop = true;
    for (auto& t : producers) t.join();
    unsigned total = 0;
    for (unsigned a : attempted) total += a;
    const unsigned expected = total - log_get_loss_cnt();

    std::string text;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    auto lines = [&text] {
        return static_cast<unsigned>(std::count(text.begin(), text.end(), '\n'));
    };
    for (text = out.text(); lines() < expected && std::chrono::steady_clock::now() < deadline;
         text = out.text()) {
        usleep(10000);
    }
    usleep(20000);  // anything beyond the expected lines would show up by now
    text = out.text();
    out.restore();

    EXPECT_LT(expected, total);  // the buffer did overflow: losses were exercised
    EXPECT_GT(expected, 0u);
    ASSERT_EQ(lines(), expected);
    std::vector<long> last(kProducers, -1);
    size_t pos = 0;
    while (pos < text.size()) {
        const size_t eol = text.find('\n', pos);
        const std::string line = text.substr(pos, eol - pos);
        pos = eol + 1;
        int p = -1, used = 0;
        unsigned seq = 0, len = 0;
        ASSERT_EQ(sscanf(line.c_str(), "P%d S%8u L%3u %n", &p, &seq, &len, &used), 3) << line;
        ASSERT_TRUE(p >= 0 && p < kProducers) << line;
        EXPECT_GT(static_cast<long>(seq), last[p]) << "out of order or repeated: " << line;
        last[p] = seq;
        EXPECT_EQ(line.substr(used), std::string(len, 'a' + (seq + p) % 26)) << "torn: " << line;
    }
}

}  // namespace
