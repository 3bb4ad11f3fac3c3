// Concurrency: every setting but the filter is a relaxed atomic, so setters are plain stores
// that any thread may make while others log (a line sees each setting either before or after
// the change). The filter record is too large to be lock-free and has a lock of its own; the
// ring buffer is guarded by g_log_lock; direct-mode writes and the callback take no
// lock, and each line leaves in a single write() so concurrent lines never interleave.
#include <pthread.h>
#include <sys/time.h>
#include <unistd.h>

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "log/log.h"
#include "log_internal.h"

namespace formatv2::logging {

std::mutex g_log_lock;

namespace {

constexpr auto kRelaxed = std::memory_order_relaxed;

// All statically zero: before log_prt_init every threshold is 0 (every line passes), the
// mode is direct, and there is no timestamp and no callback.
std::atomic<unsigned char> g_prio[LOG_MODULE_COUNT];
std::atomic<int> g_mode;
std::atomic<unsigned char> g_cb_level;
std::atomic<unsigned char> g_timestamp_en;
std::atomic<log_callbacker_t> g_callback;
std::atomic<unsigned int> g_loss;  // wraps at 2^32 lines
// Stored on request; nothing reads it. Its lock is a plain pthread mutex, statically initialised
// and trivially destructible, so the library registers nothing to run at exit or unload.
log_filter_t g_filter;
pthread_mutex_t g_filter_lock = PTHREAD_MUTEX_INITIALIZER;

void store_filter(const log_filter_t& filter) {
    pthread_mutex_lock(&g_filter_lock);
    g_filter = filter;
    pthread_mutex_unlock(&g_filter_lock);
}

// No allocation on the logging path: the three texts live on the caller's stack. A message
// keeps at most 463 characters; the line text holds the longest timestamp (47) plus the
// longest message, so the line itself never cuts.
constexpr int kTimestampText = 48;
constexpr int kMessageText = 464;
constexpr int kLineText = 512;
constexpr int kLineMax = (kTimestampText - 1) + (kMessageText - 1);
static_assert(kLineMax == 510 && kLineMax < kLineText, "a line and its terminator fit");

bool known_module(int module) {
    return module >= 0 && module < LOG_MODULE_COUNT;
}

// "[2024-03-07 09:05:02:0042]": local date and time, then milliseconds in at least 4 digits.
int format_timestamp(char (&out)[kTimestampText]) {
    const time_t now = time(nullptr);
    struct tm local;
    struct timeval tv;
    if (localtime_r(&now, &local) == nullptr || gettimeofday(&tv, nullptr) != 0) {
        out[0] = '\0';
        return 0;
    }
    const int n =
        snprintf(out, sizeof out, "[%.4u-%.2u-%.2u %.2u:%.2u:%.2u:%.4ld]",
                 static_cast<unsigned>(local.tm_year + 1900),
                 static_cast<unsigned>(local.tm_mon + 1), static_cast<unsigned>(local.tm_mday),
                 static_cast<unsigned>(local.tm_hour), static_cast<unsigned>(local.tm_min),
                 static_cast<unsigned>(local.tm_sec), static_cast<long>(tv.tv_usec / 1000));
    return n < 0 ? 0 : (n < kTimestampText ? n : kTimestampText - 1);
}

// Everything after acceptance, kept out of line so that a dropped line costs only the checks.
__attribute__((noinline)) void emit(int module, int level, bool to_output,
                                    log_callbacker_t callback, const char* format, va_list args) {
    const bool stamps_on = g_timestamp_en.load(kRelaxed) != 0;
    char stamp[kTimestampText];
    int stamp_len = 0;
    if (stamps_on && level != LOG_LEVEL_BYTES) stamp_len = format_timestamp(stamp);

    char message[kMessageText];
    int message_len = 0;
    if (format != nullptr) {
        // The line is the timestamp and the message joined as texts, so a NUL that the
        // message's arguments put into it (a "%c" of 0) ends the message there.
        if (vsnprintf(message, sizeof message, format, args) > 0) {
            message_len = static_cast<int>(strnlen(message, sizeof message - 1));
        }
    }

    char line[kLineText];
    memcpy(line, stamp, stamp_len);
    memcpy(line + stamp_len, message, message_len);
    const int len = stamp_len + message_len;
    line[len] = '\0';

    if (callback != nullptr) {
        callback(module, level, (level == LOG_LEVEL_BYTES || stamps_on) ? 1 : 0, line, len);
    }
    if (!to_output) return;

    if (g_mode.load(kRelaxed) == 0) {
        const ssize_t written = write(1, line, len);
        (void)written;  // nowhere left to report a failed log write
        return;
    }
    std::lock_guard<std::mutex> hold(g_log_lock);
    const log_buf_item item{static_cast<unsigned short>(len), 0, line};
    if (log_buf_push_back(item) != 0) g_loss.fetch_add(1, kRelaxed);
}

}  // namespace

void reset_output_state() {
    for (auto& entry : g_prio) entry.store(LOG_LEVEL_OFF, kRelaxed);
    g_mode.store(0, kRelaxed);
    g_cb_level.store(LOG_LEVEL_OFF, kRelaxed);
    g_timestamp_en.store(0, kRelaxed);
    g_callback.store(nullptr, kRelaxed);
    store_filter(log_filter_t{});
    g_loss.store(0, kRelaxed);
}

log_filter_t stored_filter() {
    pthread_mutex_lock(&g_filter_lock);
    const log_filter_t filter = g_filter;
    pthread_mutex_unlock(&g_filter_lock);
    return filter;
}

void store_mode(int mode) {
    g_mode.store(mode, kRelaxed);
}

void reset_loss_count() {
    g_loss.store(0, kRelaxed);
}

}  // namespace formatv2::logging

using namespace formatv2::logging;

extern "C" {

void log_print_mod(int module, int level, const char* format, ...) {
    // The cheap part first: most lines are dropped here. An unknown id never reaches the
    // output, as if its threshold were above every level.
    const bool to_output = known_module(module) && level >= g_prio[module].load(kRelaxed);
    const log_callbacker_t callback = g_callback.load(kRelaxed);
    const int cb_level = g_cb_level.load(kRelaxed);
    const bool to_callback = callback != nullptr && level >= cb_level;
    if (!to_output && (!to_callback || module == LOG_MODULE_NO_CALLBACK)) return;
    va_list args;
    va_start(args, format);
    emit(module, level, to_output, to_callback ? callback : nullptr, format, args);
    va_end(args);
}

void log_print_bytes(const unsigned char* base, int offset, int len) {
    log_print_mod(LOG_MODULE_BYTES, LOG_LEVEL_BYTES, "len:%d\n", len);
    // A null base has no bytes to show; the length line above still tells what was asked.
    const unsigned char* p = base != nullptr ? base + offset : nullptr;
    const int count = p != nullptr && len > 0 ? len : 0;
    int i = 0;
    for (; count - i >= 4; i += 4) {
        log_print_mod(LOG_MODULE_BYTES, LOG_LEVEL_BYTES, "%02x%02x%02x%02x ", p[i], p[i + 1],
                      p[i + 2], p[i + 3]);
        if ((i + 4) % 16 == 0) log_print_mod(LOG_MODULE_BYTES, LOG_LEVEL_BYTES, "\n");
    }
    for (; i < count; ++i) log_print_mod(LOG_MODULE_BYTES, LOG_LEVEL_BYTES, "%02x", p[i]);
    log_print_mod(LOG_MODULE_BYTES, LOG_LEVEL_BYTES, "\n");
}

void log_set_priority(int module, int level) {
    const auto stored = static_cast<unsigned char>(level);
    if (module < 0) {
        for (auto& entry : g_prio) entry.store(stored, kRelaxed);
    } else if (module < LOG_MODULE_COUNT) {
        g_prio[module].store(stored, kRelaxed);
    }
}

unsigned char log_get_priority(int module) {
    return known_module(module) ? g_prio[module].load(kRelaxed)
                                : static_cast<unsigned char>(LOG_LEVEL_OFF);
}

void log_set_mode(int mode) {
    // One exchange: whether this call changed the mode holds even while another sets it too.
    if (g_mode.exchange(mode, kRelaxed) != mode) g_loss.store(0, kRelaxed);
}

void log_set_callbacker(int level, log_callbacker_t callback) {
    g_cb_level.store(static_cast<unsigned char>(level), kRelaxed);
    g_callback.store(callback, kRelaxed);
}

void log_set_timestamp_en(int enable) {
    g_timestamp_en.store(static_cast<unsigned char>(enable), kRelaxed);
}

void log_set_filter(log_filter_t filter) {
    store_filter(filter);
}

unsigned int log_get_loss_cnt(void) {
    return g_loss.load(kRelaxed);
}

}  // extern "C"
