/* formatv2's logging library: formatted lines with level, module id, optional timestamp and
 * callback, written directly to descriptor 1 or queued in a ring buffer that a consumer
 * thread drains, and redirection of the standard streams to a file or a terminal device.
 * Usable from C and C++. */
#ifndef FORMATV2_LOG_H
#define FORMATV2_LOG_H

#ifdef __cplusplus
extern "C" {
#endif

/* What the module exports: the logging library and its two entry points. */
#define FORMATV2_EXPORT __attribute__((visibility("default")))

/* Module ids with a threshold entry: 0 .. LOG_MODULE_COUNT - 1. A line from any other id never
 * reaches the output, as if its threshold were above every level; it can still go to the
 * callback alone, like a line below its threshold. log_set_priority ignores such an id unless
 * it is negative (then every entry is set); log_get_priority returns LOG_LEVEL_OFF for it. */
#define LOG_MODULE_COUNT 300
/* The id under which log_print_bytes logs. */
#define LOG_MODULE_BYTES 299
/* An id never handed to the callback alone. */
#define LOG_MODULE_NO_CALLBACK 298

#define LOG_LEVEL_INFO 4
#define LOG_LEVEL_WARN 5
#define LOG_LEVEL_ERR 6
#define LOG_LEVEL_BYTES 7
/* A threshold that blocks every level. */
#define LOG_LEVEL_OFF 8

/* Receives every accepted line: flag is 1 when the line is a byte dump (level 7) or carries
 * a timestamp, else 0; line is NUL-terminated and len bytes long. The result is ignored. */
typedef int (*log_callbacker_t)(int module, int level, int flag, const char* line, int len);

/* Opaque filter settings: stored by log_set_filter, read by nothing. */
typedef struct log_filter {
    unsigned char data[272];
} log_filter_t;

/* One queued line as it crosses the ring buffer's interface. */
typedef struct log_buf_item {
    unsigned short len;
    unsigned short flag;
    const char* addr;
} log_buf_item;

/* Starts a thread named name that runs body(NULL); returns 0 on success. log_prt_init passes
 * "log_print" and log_print_thread, which never returns. */
typedef int (*log_spawn_t)(const char* name, void* (*body)(void*));

/* Formats one line (message cut to 463 characters, line with timestamp at most 510) and hands
 * it to the callback and/or the output. A null format counts as an empty message. */
FORMATV2_EXPORT void log_print_mod(int module, int level, const char* format, ...)
    __attribute__((format(printf, 3, 4)));
/* Hex dump of len bytes from base + offset, at LOG_LEVEL_BYTES under LOG_MODULE_BYTES. With a
 * null base or a negative len only the "len:" line and the closing line break are logged. */
FORMATV2_EXPORT void log_print_bytes(const unsigned char* base, int offset, int len);
FORMATV2_EXPORT void log_set_priority(int module, int level);
FORMATV2_EXPORT unsigned char log_get_priority(int module);
FORMATV2_EXPORT void log_set_mode(int mode);
FORMATV2_EXPORT void log_set_callbacker(int level, log_callbacker_t callback);
FORMATV2_EXPORT void log_set_timestamp_en(int enable);
FORMATV2_EXPORT void log_set_filter(log_filter_t filter);
FORMATV2_EXPORT unsigned int log_get_loss_cnt(void);

/* Resets every setting (thresholds and callback level to LOG_LEVEL_OFF, no redirection known);
 * mode 1 also creates a ring of units * 512 bytes and spawns its consumer. Returns 0; -1 for
 * mode 1 without spawn or with a ring that already exists or units 0; -2 when the ring cannot
 * be allocated (also when units * 512 exceeds an unsigned int); else spawn's result. */
FORMATV2_EXPORT int log_prt_init(int mode, unsigned int units, log_spawn_t spawn);
/* A ready spawn for log_prt_init: starts body as a detached POSIX thread with that name (cut
 * to 15 characters). Returns 0, or the error number of the failed pthread call (EINVAL for a
 * null body). */
FORMATV2_EXPORT int log_spawn_detached(const char* name, void* (*body)(void*));
/* The consumer: forever, writes the oldest queued line to descriptor 1 and drops it, then
 * sleeps 1 ms (at most about 1000 lines a second). arg is unused. */
FORMATV2_EXPORT void* log_print_thread(void* arg);

/* The ring buffer. None of these takes a lock: the library calls them under its own lock, and
 * anyone else must call them only while no line is logged in buffered mode and no consumer
 * runs. log_buf_init: 0; -1 for a size below 8 or an existing buffer; -2 when out of memory.
 * log_buf_push_back copies the item's bytes (zeros for a null address): 0, or -1 when it does
 * not fit, for length 0, or for a length above 65531 (record lengths are 16-bit). Once the
 * last line is popped, the next push starts over at offset 0. */
FORMATV2_EXPORT int log_buf_init(unsigned int size);
FORMATV2_EXPORT int log_buf_deinit(void);
FORMATV2_EXPORT int log_buf_push_back(log_buf_item item);
FORMATV2_EXPORT void log_buf_pop_front(void);
FORMATV2_EXPORT log_buf_item log_buf_front(void);
FORMATV2_EXPORT log_buf_item log_buf_back(void);

/* Redirection of descriptors 1 and 2 (output: an existing file) or 0, 1 and 2 (dev: a terminal
 * device, switched to canonical input with ICRNL and ISIG) until log_redirection_close. They
 * return 0, -1 for a null path, -2 while a redirection is active, -3 when the path cannot be
 * opened, and -4 .. -9 when duplicating a descriptor failed (everything is then put back). No
 * lock: call them while nothing else logs. log_redirection_close: 0; -1 when descriptor 0 or 1
 * cannot be restored, -2 for descriptor 2. */
FORMATV2_EXPORT int log_redirection_output(const char* path);
FORMATV2_EXPORT int log_redirection_dev(const char* path);
FORMATV2_EXPORT int log_redirection_close(void);

#ifdef __cplusplus
}
#endif

#endif /* FORMATV2_LOG_H */
