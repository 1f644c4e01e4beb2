/** @file
 * System services of the driver: debug mode, logging and the allocator. Plain C99. */
#ifndef DRV_BF_SYS_H
#define DRV_BF_SYS_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Non-zero while the driver runs in debug mode. */
int bf_sys_dbg_mode(void);

/** Logs one line at a module and level; printf-style. */
int bf_sys_log_and_trace(int module, int level, const char *fmt, ...)
#if defined(__GNUC__)
    __attribute__((format(printf, 3, 4)))
#endif
    ;

/** Zeroed memory for count elements of size bytes, or null when memory is short (or made to run
 * short). Blocks are freed by bf_sys_free. */
void *bf_sys_calloc(size_t count, size_t size);
/** Frees a block of bf_sys_calloc; null is ignored. */
void bf_sys_free(void *ptr);

#ifdef __cplusplus
}
#endif

#endif
