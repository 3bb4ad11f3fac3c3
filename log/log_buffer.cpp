// Ring buffer of queued log lines, its consumer thread and logging set-up.
//
// Concurrency: the ring functions take no lock themselves; log_print_mod and the consumer
// hold g_log_lock around every call (the consumer also while it writes a line out).
//
// Memory layout: records lie back to back, each a 4-byte header (bytes 0-1 total length
// with the header, host byte order, unaligned; byte 2 in use; byte 3 filler) and the line
// without terminator. A record never reaches the last 4 bytes (`end`). When the tail room is
// too small, a filler record covers it and writing goes on at offset 0. Lengths are 16 bits,
// so a line may carry at most 65531 bytes.
#include <pthread.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "log/log.h"
#include "log_internal.h"

namespace formatv2::logging {
namespace {

constexpr unsigned kHeader = 4;
constexpr unsigned kMaxItem = 0xFFFFu - kHeader;
// end = N - 4 and limit = N - 8 must lie inside the buffer.
constexpr unsigned kMinBuffer = 8;
constexpr unsigned kUnitBytes = 512;

// Offsets are 32-bit and stay below the buffer size, so they do not wrap. The read offset
// runs by whole records, goes back to 0 once it passes `end`, and meets the write offset
// whenever the ring empties.
struct Ring {
    unsigned char* buffer;
    unsigned end;
    unsigned char* limit;  // a head reaching this far moves back to the buffer's start
    unsigned write;
    unsigned read;
    unsigned char* head;  // oldest record, null when empty
    unsigned char* tail;  // newest record, null when empty
};
Ring g_ring;

unsigned record_length(const unsigned char* record) {
    uint16_t length;
    memcpy(&length, record, sizeof length);
    return length;
}

void write_header(unsigned char* record, unsigned length, bool filler) {
    const auto stored = static_cast<uint16_t>(length);
    memcpy(record, &stored, sizeof stored);
    record[2] = 1;
    record[3] = filler ? 1 : 0;
}

bool is_filler(const unsigned char* record) {
    return record[3] == 1;
}

int place(const log_buf_item& item, unsigned need) {
    Ring& r = g_ring;
    unsigned char* record = r.buffer + r.write;
    write_header(record, need, false);
    r.write += need;
    if (r.head == nullptr) r.head = record;
    r.tail = record;
    if (item.addr != nullptr) {
        memcpy(record + kHeader, item.addr, item.len);
    } else {
        memset(record + kHeader, 0, item.len);
    }
    return 0;
}

// The tail room cannot take the record: cover it with a filler and retry at offset 0, which
// is free only up to the read offset. A refused line still leaves the filler behind.
int wrap(const log_buf_item& item, unsigned need, unsigned remainder) {
    Ring& r = g_ring;
    if (r.read == 0) return -1;
    unsigned char* filler = r.buffer + r.write;
    write_header(filler, remainder, true);
    r.write = 0;
    if (r.read > need) return place(item, need);
    r.tail = filler;
    if (r.head == nullptr) r.head = filler;
    return -1;
}

void head_next() {
    Ring& r = g_ring;
    if (r.head == nullptr) return;
    if (r.head == r.tail) {
        r.head = r.tail = nullptr;
        return;
    }
    unsigned char* next = r.head + record_length(r.head);
    // A filler within the last 8 bytes is stepped over without being read.
    r.head = (next != r.tail && next >= r.limit) ? r.buffer : next;
}

void consume(unsigned char* record) {
    Ring& r = g_ring;
    r.read += record_length(record);
    if (r.read > r.end) r.read = 0;
    record[2] = 0;
}

log_buf_item item_of(const unsigned char* record) {
    if (record == nullptr || is_filler(record)) return log_buf_item{0, 0, nullptr};
    return log_buf_item{static_cast<unsigned short>(record_length(record) - kHeader), 0,
                        reinterpret_cast<const char*>(record + kHeader)};
}

}  // namespace

RingView ring_view() {
    const Ring& r = g_ring;
    auto offset = [base = r.buffer](const unsigned char* p) {
        return p ? static_cast<long>(p - base) : -1L;
    };
    return RingView{r.buffer, r.end, r.write, r.read, offset(r.head), offset(r.tail)};
}

}  // namespace formatv2::logging

using namespace formatv2::logging;

extern "C" {

int log_prt_init(int mode, unsigned int units, log_spawn_t spawn) {
    reset_output_state();
    reset_redirect_state();
    int result = 0;
    if (mode == 1) {
        if (spawn == nullptr) {
            result = -1;
        } else if (units > UINT_MAX / kUnitBytes) {
            result = -2;  // no buffer of that size can be addressed
        } else {
            result = log_buf_init(units * kUnitBytes);
            if (result == 0) result = spawn("log_print", log_print_thread);
        }
    }
    // Even when the set-up failed: buffered mode without a buffer counts every line as lost.
    store_mode(mode);
    return result;
}

int log_spawn_detached(const char* name, void* (*body)(void*)) {
    if (body == nullptr) return EINVAL;
    pthread_t thread;
    const int rc = pthread_create(&thread, nullptr, body, nullptr);
    if (rc != 0) return rc;
    // Named while still joinable, so the id cannot be stale; the kernel keeps 15 characters.
    if (name != nullptr) {
        char short_name[16];
        snprintf(short_name, sizeof short_name, "%s", name);
        (void)pthread_setname_np(thread, short_name);
    }
    pthread_detach(thread);
    return 0;
}

void* log_print_thread(void* arg) {
    (void)arg;
    for (;;) {
        {
            std::lock_guard<std::mutex> hold(g_log_lock);
            const log_buf_item item = log_buf_front();
            if (item.len != 0 && item.addr != nullptr) {
                const ssize_t written = write(1, item.addr, item.len);
                (void)written;  // a line the output refuses is dropped, not retried
                log_buf_pop_front();
            }
        }
        usleep(1000);
    }
    return nullptr;
}

int log_buf_init(unsigned int size) {
    if (size < kMinBuffer || g_ring.buffer != nullptr) return -1;
    auto* buffer = static_cast<unsigned char*>(calloc(size, 1));
    if (buffer == nullptr) return -2;
    g_ring.buffer = buffer;
    g_ring.end = size - kHeader;
    g_ring.limit = buffer + size - 2 * kHeader;
    return 0;
}

int log_buf_deinit(void) {
    free(g_ring.buffer);
    g_ring = Ring{};
    return 0;
}

int log_buf_push_back(log_buf_item item) {
    if (item.len == 0 || item.len > kMaxItem) return -1;
    Ring& r = g_ring;
    const unsigned need = item.len + kHeader;
    // The room must exceed the record, so the write offset never catches up with the read
    // offset from behind: equal offsets always mean nothing is pending.
    if (r.write < r.read) return r.read - r.write > need ? place(item, need) : -1;
    unsigned remainder;
    if (r.write == r.read) {
        r.write = r.read = 0;
        if (r.end == 0) return -1;
        remainder = r.end;
    } else {
        remainder = r.write >= r.end ? 0 : r.end - r.write;
    }
    return remainder > need ? place(item, need) : wrap(item, need, remainder);
}

void log_buf_pop_front(void) {
    Ring& r = g_ring;
    if (r.head == nullptr) return;
    unsigned char* oldest = r.head;
    head_next();
    consume(oldest);
    // A filler right behind goes with it, so the head names a line again.
    if (r.head != nullptr && is_filler(r.head) && r.head[2] == 1) {
        oldest = r.head;
        head_next();
        consume(oldest);
    }
    // An empty ring restarts at offset 0 on the next push. The running read offset alone
    // drifts from where the records really are (a filler stepped over near the end is never
    // added, a sum past `end` restarts at 0 and forgets the excess); left drifted on an empty
    // ring it can pin the write offset near the end with nothing left to consume, and every
    // later line would be refused. This also means a wrap never leaves a filler at the head.
    if (r.head == nullptr) r.read = r.write;
}

log_buf_item log_buf_front(void) {
    return item_of(g_ring.head);
}

log_buf_item log_buf_back(void) {
    return item_of(g_ring.tail);
}

}  // extern "C"
