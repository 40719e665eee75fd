// The one gate for optional log lines: each site reads "debug.tavro.video.log.enable" and prints
// when the level is at least its threshold. Sites that are on by default pass "5" as the default.
//
// Sites sit on the per-frame path, so the level is not parsed at every line: the parsed level is
// kept per default text together with the property-area serial it was read under
// (__system_property_area_serial(), which moves whenever any property is added, changed or
// removed: bionic's on a device, the host store's on host). While the serial stays put a closed
// gate costs one atomic load of the serial and a lookup in a small fixed table, without locks or
// allocations; the first call after any property change reads and parses the property again.
#pragma once

#include <stdint.h>

#include <log/log.h>

namespace android {

constexpr char kTavroLogLevelProperty[] = "debug.tavro.video.log.enable";

// Levels of the optional lines: a line prints when the property's value reaches its level.
constexpr int32_t kTavroLogDebug = 5;    // debug and info lines
constexpr int32_t kTavroLogVerbose = 6;  // verbose lines
constexpr int32_t kTavroLogDetail = 7;   // the most detailed lines (parsing, matching, probing)
// What a site reads when the property is unset: debug and info lines are on by default, verbose
// and detailed lines off.
constexpr char kTavroLogDefaultOn[] = "5";
constexpr char kTavroLogDefaultOff[] = "0";

// The log level now: atoi of the property, or of `defaultLevel` when it is unset or empty (a null
// default reads as ""), exactly as property_get then atoi would give. Any thread, lock-free once
// the level for this default is cached. A change of any property is seen by the next call.
// Up to kTavroLogCachedDefaults distinct default texts of at most kTavroLogCachedDefaultMax
// characters are cached (sites use "5" and "0"); others are read from the property every time.
int32_t tavroLogLevel(const char* defaultLevel);

constexpr int kTavroLogCachedDefaults = 16;
constexpr int kTavroLogCachedDefaultMax = 15;

inline bool tavroLogOn(int32_t threshold, const char* defaultLevel) {
    return tavroLogLevel(defaultLevel) >= threshold;
}

}  // namespace android

// Debug and info lines: threshold 5, on unless the property is set below 5.
#define TAVRO_LOGD(...)                                                                       \
    ALOGD_IF(::android::tavroLogOn(::android::kTavroLogDebug, ::android::kTavroLogDefaultOn), \
             __VA_ARGS__)
#define TAVRO_LOGI(...)                                                                       \
    ALOGI_IF(::android::tavroLogOn(::android::kTavroLogDebug, ::android::kTavroLogDefaultOn), \
             __VA_ARGS__)
// Verbose lines at threshold 6 or 7: off unless the property is raised. The text is formatted
// only when the line is written. Files using these define LOG_NDEBUG 0 before any include.
#define TAVRO_LOGV(threshold, ...) \
    ALOGV_IF(::android::tavroLogOn(threshold, ::android::kTavroLogDefaultOff), __VA_ARGS__)
