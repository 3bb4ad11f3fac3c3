/* formatv2's logging library: formatted lines with level, module id, optional timestamp and
 * callback, written directly to descriptor 1 or queued in a ring buffer that a consumer
 * thread drains, and redirection of the standard streams to a file or a terminal device.
 * Usable from C and C++. */
#ifndef FORMATV2_LOG_H
#define FORMATV2_LOG_H

#ifdef __cplusplus
extern "C" {
#endif

#define LOG_API __attribute__((visibility("default")))

/* Module ids with a threshold entry: 0 .. LOG_MODULE_COUNT - 1. */
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

/* Starts a thread named name that runs body(NULL); returns 0 on success. */
typedef int (*log_spawn_t)(const char* name, void* (*body)(void*));

LOG_API void log_print_mod(int module, int level, const char* format, ...)
    __attribute__((format(printf, 3, 4)));
LOG_API void log_print_bytes(const unsigned char* base, int offset, int len);
LOG_API void log_set_priority(int module, int level);
LOG_API unsigned char log_get_priority(int module);
LOG_API void log_set_mode(int mode);
LOG_API void log_set_callbacker(int level, log_callbacker_t callback);
LOG_API void log_set_timestamp_en(int enable);
LOG_API void log_set_filter(log_filter_t filter);
LOG_API unsigned int log_get_loss_cnt(void);

LOG_API int log_prt_init(int mode, unsigned int units, log_spawn_t spawn);
/* A ready spawn for log_prt_init: starts body as a detached POSIX thread. */
LOG_API int log_spawn_detached(const char* name, void* (*body)(void*));
LOG_API void* log_print_thread(void* arg);

LOG_API int log_buf_init(unsigned int size);
LOG_API int log_buf_deinit(void);
LOG_API int log_buf_push_back(log_buf_item item);
LOG_API void log_buf_pop_front(void);
LOG_API log_buf_item log_buf_front(void);
LOG_API log_buf_item log_buf_back(void);

LOG_API int log_redirection_output(const char* path);
LOG_API int log_redirection_dev(const char* path);
LOG_API int log_redirection_close(void);

#ifdef __cplusplus
}
#endif

#endif /* FORMATV2_LOG_H */
