// The platform log: ALOG* macros with the file's LOG_TAG. On host the lines go to stderr in
// logcat's brief form and to an in-memory sink (host/HostLog.h) that tests and tools read.
#pragma once

#include <stdarg.h>

#ifndef LOG_TAG
#define LOG_TAG nullptr
#endif

// As on a device, verbose lines exist only in files that define LOG_NDEBUG 0 before including.
#ifndef LOG_NDEBUG
#define LOG_NDEBUG 1
#endif

typedef enum android_LogPriority {
    ANDROID_LOG_UNKNOWN = 0,
    ANDROID_LOG_DEFAULT,
    ANDROID_LOG_VERBOSE,
    ANDROID_LOG_DEBUG,
    ANDROID_LOG_INFO,
    ANDROID_LOG_WARN,
    ANDROID_LOG_ERROR,
    ANDROID_LOG_FATAL,
    ANDROID_LOG_SILENT,
} android_LogPriority;

extern "C" {
int __android_log_print(int prio, const char* tag, const char* fmt, ...)
        __attribute__((format(printf, 3, 4)));
int __android_log_vprint(int prio, const char* tag, const char* fmt, va_list ap);
[[noreturn]] void __android_log_assert(const char* cond, const char* tag, const char* fmt, ...)
        __attribute__((format(printf, 3, 4)));
}

#define __tavro_log_unused_args(...)                             \
    do {                                                         \
        if (false) __android_log_print(0, nullptr, __VA_ARGS__); \
    } while (0)

#if LOG_NDEBUG
#define ALOGV(...) __tavro_log_unused_args(__VA_ARGS__)
#define ALOGV_IF(cond, ...) __tavro_log_unused_args(__VA_ARGS__)
#else
#define ALOGV(...) ((void)__android_log_print(ANDROID_LOG_VERBOSE, LOG_TAG, __VA_ARGS__))
#define ALOGV_IF(cond, ...) \
    ((cond) ? (void)__android_log_print(ANDROID_LOG_VERBOSE, LOG_TAG, __VA_ARGS__) : (void)0)
#endif

#define ALOGD(...) ((void)__android_log_print(ANDROID_LOG_DEBUG, LOG_TAG, __VA_ARGS__))
#define ALOGI(...) ((void)__android_log_print(ANDROID_LOG_INFO, LOG_TAG, __VA_ARGS__))
#define ALOGW(...) ((void)__android_log_print(ANDROID_LOG_WARN, LOG_TAG, __VA_ARGS__))
#define ALOGE(...) ((void)__android_log_print(ANDROID_LOG_ERROR, LOG_TAG, __VA_ARGS__))

#define ALOGD_IF(cond, ...) \
    ((cond) ? (void)__android_log_print(ANDROID_LOG_DEBUG, LOG_TAG, __VA_ARGS__) : (void)0)
#define ALOGI_IF(cond, ...) \
    ((cond) ? (void)__android_log_print(ANDROID_LOG_INFO, LOG_TAG, __VA_ARGS__) : (void)0)
#define ALOGW_IF(cond, ...) \
    ((cond) ? (void)__android_log_print(ANDROID_LOG_WARN, LOG_TAG, __VA_ARGS__) : (void)0)
#define ALOGE_IF(cond, ...) \
    ((cond) ? (void)__android_log_print(ANDROID_LOG_ERROR, LOG_TAG, __VA_ARGS__) : (void)0)

#define LOG_ALWAYS_FATAL(...) __android_log_assert(nullptr, LOG_TAG, __VA_ARGS__)
#define LOG_ALWAYS_FATAL_IF(cond, ...) \
    ((cond) ? __android_log_assert(#cond, LOG_TAG, __VA_ARGS__) : (void)0)
