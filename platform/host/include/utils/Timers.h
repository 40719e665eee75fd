// Time in nanoseconds (nsecs_t) and the clocks of systemTime(). On host the monotonic and boot-time
// clocks come from host/HostClock.h, which tests and tools switch to a manual clock.
#pragma once

#include <stdint.h>

typedef int64_t nsecs_t;  // nanoseconds

#ifdef __cplusplus
extern "C" {
#endif

enum {
    SYSTEM_TIME_REALTIME = 0,   // wall clock
    SYSTEM_TIME_MONOTONIC = 1,  // since an arbitrary start; does not run in suspend
    SYSTEM_TIME_PROCESS = 2,    // CPU time of the process
    SYSTEM_TIME_THREAD = 3,     // CPU time of the calling thread
    SYSTEM_TIME_BOOTTIME = 4,   // monotonic, counting suspend
};

#ifdef __cplusplus
// Current time of `clock` in ns; an unknown clock gives 0.
nsecs_t systemTime(int clock = SYSTEM_TIME_MONOTONIC);
#else
nsecs_t systemTime(int clock);
#endif

#ifdef __cplusplus
}
#endif

static inline constexpr nsecs_t seconds_to_nanoseconds(nsecs_t secs) {
    return secs * 1000000000;
}
static inline constexpr nsecs_t milliseconds_to_nanoseconds(nsecs_t ms) {
    return ms * 1000000;
}
static inline constexpr nsecs_t microseconds_to_nanoseconds(nsecs_t us) {
    return us * 1000;
}
static inline constexpr nsecs_t nanoseconds_to_seconds(nsecs_t ns) {
    return ns / 1000000000;
}
static inline constexpr nsecs_t nanoseconds_to_milliseconds(nsecs_t ns) {
    return ns / 1000000;
}
static inline constexpr nsecs_t nanoseconds_to_microseconds(nsecs_t ns) {
    return ns / 1000;
}

static inline constexpr nsecs_t s2ns(nsecs_t v) {
    return seconds_to_nanoseconds(v);
}
static inline constexpr nsecs_t ms2ns(nsecs_t v) {
    return milliseconds_to_nanoseconds(v);
}
static inline constexpr nsecs_t us2ns(nsecs_t v) {
    return microseconds_to_nanoseconds(v);
}
static inline constexpr nsecs_t ns2s(nsecs_t v) {
    return nanoseconds_to_seconds(v);
}
static inline constexpr nsecs_t ns2ms(nsecs_t v) {
    return nanoseconds_to_milliseconds(v);
}
static inline constexpr nsecs_t ns2us(nsecs_t v) {
    return nanoseconds_to_microseconds(v);
}
