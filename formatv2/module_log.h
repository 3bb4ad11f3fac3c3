// The module's log line: "| <tag> | <id><name> | <file>:<line>: " then the message, with
// Warn lines in yellow and Err lines in red. Used inside CFormatV2Module members (ModuleId).
// Messages whose line number the host's log tools rely on pass it explicitly.
#pragma once

#include "log/log.h"

#define FV2_LOG_PREFIX "| %-4s | %03d%s | %-12s:%04d: "
#define FV2_LOG_ARGS(tag, line) tag, ModuleId, "formatv2", "formatv2.cpp", line

#define FV2_INFO_AT(line, msg, ...)                                                         \
    log_print_mod(ModuleId, LOG_LEVEL_INFO, FV2_LOG_PREFIX msg, FV2_LOG_ARGS("Info", line), \
                  ##__VA_ARGS__)
#define FV2_WARN_AT(line, msg, ...)                                                  \
    log_print_mod(ModuleId, LOG_LEVEL_WARN, "\033[33m" FV2_LOG_PREFIX msg "\033[0m", \
                  FV2_LOG_ARGS("Warn", line), ##__VA_ARGS__)
#define FV2_ERR_AT(line, msg, ...)                                                  \
    log_print_mod(ModuleId, LOG_LEVEL_ERR, "\033[31m" FV2_LOG_PREFIX msg "\033[0m", \
                  FV2_LOG_ARGS("Err", line), ##__VA_ARGS__)

#define FV2_INFO(msg, ...) FV2_INFO_AT(__LINE__, msg, ##__VA_ARGS__)
#define FV2_WARN(msg, ...) FV2_WARN_AT(__LINE__, msg, ##__VA_ARGS__)
#define FV2_ERR(msg, ...) FV2_ERR_AT(__LINE__, msg, ##__VA_ARGS__)
