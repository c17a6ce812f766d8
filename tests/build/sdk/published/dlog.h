/* SPDX-License-Identifier: Apache-2.0 */
/* The log of the platform as its public header has it, with more names than the daemon uses, and macros. */
#ifndef __DLOG_H__
#define __DLOG_H__

#include <stdarg.h>
#include <string.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef enum {
    LOG_ID_INVALID = -1,
    LOG_ID_MAIN,
    LOG_ID_RADIO,
    LOG_ID_SYSTEM,
    LOG_ID_APPS,
    LOG_ID_KMSG,
    LOG_ID_SYSLOG,
    LOG_ID_MAX
} log_id_t;

typedef enum {
    DLOG_UNKNOWN = 0,
    DLOG_DEFAULT,
    DLOG_VERBOSE,
    DLOG_DEBUG,
    DLOG_INFO,
    DLOG_WARN,
    DLOG_ERROR,
    DLOG_FATAL,
    DLOG_SILENT,
    DLOG_PRIO_MAX
} log_priority;

int dlog_print(log_priority prio, const char* tag, const char* fmt, ...)
    __attribute__((format(printf, 3, 4)));
int dlog_vprint(log_priority prio, const char* tag, const char* fmt, va_list ap);
int __dlog_print(log_id_t log_id, int prio, const char* tag, const char* fmt, ...)
    __attribute__((format(printf, 4, 5)));

#ifndef LOG_TAG
#define LOG_TAG NULL
#endif
#ifndef __MODULE__
#define __MODULE__ (strrchr(__FILE__, '/') ? strrchr(__FILE__, '/') + 1 : __FILE__)
#endif
#define LOG_(id, prio, tag, fmt, arg...) \
    ({ __dlog_print(id, prio, tag, "%s: %s(%d) > " fmt, __MODULE__, __func__, __LINE__, ##arg); })
#define LOG(priority, tag, ...) LOG_(LOG_ID_MAIN, DLOG_##priority, tag, __VA_ARGS__)
#define LOGD(...) LOG(DEBUG, LOG_TAG, __VA_ARGS__)
#define LOGI(...) LOG(INFO, LOG_TAG, __VA_ARGS__)
#define LOGW(...) LOG(WARN, LOG_TAG, __VA_ARGS__)
#define LOGE(...) LOG(ERROR, LOG_TAG, __VA_ARGS__)
#define SLOGD(...) LOG_(LOG_ID_SYSTEM, DLOG_DEBUG, LOG_TAG, __VA_ARGS__)
#define SLOGE(...) LOG_(LOG_ID_SYSTEM, DLOG_ERROR, LOG_TAG, __VA_ARGS__)

#ifdef __cplusplus
}
#endif

#endif
