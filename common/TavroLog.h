// The one gate for optional log lines: each site reads "debug.tavro.video.log.enable" and prints
// when the level is at least its threshold. Sites that are on by default pass "5" as the default.
#pragma once

#include <stdint.h>

#include <log/log.h>

namespace android {

constexpr char kTavroLogLevelProperty[] = "debug.tavro.video.log.enable";

// The log level now: atoi of the property, or of `defaultLevel` when it is unset or empty.
int32_t tavroLogLevel(const char* defaultLevel);

inline bool tavroLogOn(int32_t threshold, const char* defaultLevel) {
    return tavroLogLevel(defaultLevel) >= threshold;
}

}  // namespace android

// Debug and info lines: threshold 5, on unless the property is set below 5.
#define TAVRO_LOGD(...) ALOGD_IF(::android::tavroLogOn(5, "5"), __VA_ARGS__)
#define TAVRO_LOGI(...) ALOGI_IF(::android::tavroLogOn(5, "5"), __VA_ARGS__)
// Verbose lines at threshold 6 or 7: off unless the property is raised. The text is formatted
// only when the line is written. Files using these define LOG_NDEBUG 0 before any include.
#define TAVRO_LOGV(threshold, ...) ALOGV_IF(::android::tavroLogOn(threshold, "0"), __VA_ARGS__)
