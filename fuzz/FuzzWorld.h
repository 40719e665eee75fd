// Shared set-up of the libFuzzer targets: a quiet host world whose process-wide stores stay
// bounded over millions of inputs, reset cheaply before each input, and a terminate handler that
// names any exception escaping the library before the process aborts (a crash for libFuzzer).
#pragma once

#include <stdint.h>

#include <fuzzer/FuzzedDataProvider.h>

#include <string>

namespace android {
namespace fuzz {

// Once, from LLVMFuzzerInitialize: log lines off stderr and a 64-record sink, host events not
// recorded, manual host clock, the terminate handler. Any later call does nothing.
void initFuzzWorld();

// Before each input: empty property store and list service (fault mode none), no boost requests,
// a blank white-list cache with the real /proc root, the process's own calling identity, the log
// sink emptied. Sets the platform triple the white list needs ("qcom", "SM8550", "fuzz") unless
// `withPlatform` is false.
void resetFuzzWorld(bool withPlatform = true);

// Sets the log level property ("debug.tavro.video.log.enable").
void setFuzzLogLevel(const char* level);

// resetFuzzWorld(withPlatform), then the input's first byte chooses logging on (every debug line
// formatted) or off, so that both the gated and the quiet paths are fuzzed.
void startFuzzInput(FuzzedDataProvider& fdp, bool withPlatform);

// True when width x height fits in int32: matching a video rule multiplies the two, and an area
// that does not fit is the white list's named fatal check, which a fuzzer must not feed.
bool areaFits(int32_t width, int32_t height);

// True when `boostInfo` parses to a rule whose area limit fits (or that is rejected anyway).
bool boostInfoAreaFits(const std::string& boostInfo);

}  // namespace fuzz
}  // namespace android
