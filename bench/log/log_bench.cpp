// Cost per line of log_print_mod: dropped by its threshold, written directly, queued in the
// ring buffer; and spdlog's asynchronous logger to a null sink as the peer. Lines carry the
// module's layout with two arguments of their own. Descriptor 1 points at /dev/null while a
// case runs, so the reporter's own output stays visible.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spdlog/async.h>
#include <spdlog/sinks/null_sink.h>
#include <spdlog/spdlog.h>
#include <unistd.h>

#include <cstdio>

#include "log/log.h"
#include "log/log_internal.h"

namespace {

class StdoutToNull {
  public:
    StdoutToNull() {
        fflush(stdout);
        saved_ = dup(1);
        const int null_fd = open("/dev/null", O_WRONLY);
        dup2(null_fd, 1);
        close(null_fd);
    }
    ~StdoutToNull() {
        dup2(saved_, 1);
        close(saved_);
    }

  private:
    int saved_;
};

void log_line(int value) {
    log_print_mod(5, LOG_LEVEL_INFO, "| %-4s | %03d%s | %-12s:%04d: value %d of %s\n", "Info", 5,
                  "formatv2", "formatv2.cpp", 496, value, "item");
}

int no_consumer(const char*, void* (*)(void*)) {
    return 0;
}

// Drops everything queued; single-threaded cases only, or under the lock.
void drain() {
    while (log_buf_front().addr != nullptr) log_buf_pop_front();
}

void BM_Dropped(benchmark::State& state) {
    log_prt_init(0, 0, nullptr);  // every threshold LOG_LEVEL_OFF
    int i = 0;
    for (auto _ : state) log_line(i++);
}
BENCHMARK(BM_Dropped);

void BM_Direct(benchmark::State& state) {
    log_prt_init(0, 0, nullptr);
    log_set_priority(-1, 0);
    StdoutToNull to_null;
    int i = 0;
    for (auto _ : state) log_line(i++);
}
BENCHMARK(BM_Direct);

// The cost of queueing an accepted line: a 1 MB ring with no consumer, emptied outside the
// timing before it could refuse a line.
void BM_BufferedPush(benchmark::State& state) {
    log_buf_deinit();
    log_prt_init(1, 2048, no_consumer);
    log_set_priority(-1, 0);
    int i = 0;
    for (auto _ : state) {
        log_line(i++);
        if (i % 8192 == 0) {
            state.PauseTiming();
            drain();
            state.ResumeTiming();
        }
    }
    state.counters["lost"] = log_get_loss_cnt();
    drain();
}
BENCHMARK(BM_BufferedPush);

// With the consumer thread running (about 1000 lines a second): after the first few hundred
// lines the ring is full and most lines are refused and counted.
void BM_BufferedWithConsumer(benchmark::State& state) {
    static const bool started = [] {
        log_buf_deinit();
        return log_prt_init(1, 16, log_spawn_detached) == 0;
    }();
    if (!started) {
        state.SkipWithError("no consumer thread");
        return;
    }
    log_set_mode(0);
    log_set_mode(1);  // loss count from 0
    log_set_priority(-1, 0);
    StdoutToNull to_null;
    int i = 0;
    for (auto _ : state) log_line(i++);
    state.counters["lost_share"] =
        static_cast<double>(log_get_loss_cnt()) / static_cast<double>(state.iterations());
    std::lock_guard<std::mutex> hold(formatv2::logging::g_log_lock);
    drain();
}
BENCHMARK(BM_BufferedWithConsumer);

void BM_SpdlogAsync(benchmark::State& state) {
    static auto logger = [] {
        spdlog::init_thread_pool(8192, 1);
        auto async = std::make_shared<spdlog::async_logger>(
            "bench", std::make_shared<spdlog::sinks::null_sink_mt>(), spdlog::thread_pool(),
            spdlog::async_overflow_policy::block);
        async->set_pattern("%v");
        return async;
    }();
    int i = 0;
    for (auto _ : state) {
        logger->info("| {:<4} | {:03}{} | {:<12}:{:04}: value {} of {}", "Info", 5, "formatv2",
                     "formatv2.cpp", 496, i++, "item");
    }
}
BENCHMARK(BM_SpdlogAsync);

}  // namespace

BENCHMARK_MAIN();
