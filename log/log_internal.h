// Shared between the logging library's own files (and its tests); not installed, not exported.
#pragma once

#include <mutex>

#include "log/log.h"

namespace formatv2::logging {

// Guards the ring buffer. Statically initialised, so it is usable before log_prt_init and is
// never re-initialised while another thread might hold it.
extern std::mutex g_log_lock;

// Zeroes the output settings and the loss count, then sets every threshold and the callback
// level to LOG_LEVEL_OFF (the state right after log_prt_init).
void reset_output_state();
void store_mode(int mode);
void reset_loss_count();
// Forgets any redirection without touching descriptors 0, 1 and 2.
void reset_redirect_state();

// Test-only: the filter record as log_set_filter last stored it.
log_filter_t stored_filter();

// Test-only view of the ring: offsets relative to the buffer's start, -1 for a null pointer.
struct RingView {
    const unsigned char* buffer;
    unsigned end;
    unsigned write;
    unsigned read;
    long head;
    long tail;
};
RingView ring_view();

}  // namespace formatv2::logging
