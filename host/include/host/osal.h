// File utilities of the host's OS abstraction layer.
#pragma once

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

#define OSAL_API __attribute__((visibility("default")))

OSAL_API int osal_is_file_exist(const char* path);
OSAL_API int osal_copy(const char* source, const char* destination);
OSAL_API long osal_get_file_size(const char* path);
OSAL_API void* osal_malloc(size_t size, int align);
OSAL_API void osal_free(void* buffer);
OSAL_API long osal_load_file(const char* path, long offset, void* buffer, long size);

#ifdef __cplusplus
}
#endif
