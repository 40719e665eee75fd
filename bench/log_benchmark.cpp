// Cost of an optional log line that is off: the gate's read of "debug.tavro.video.log.enable"
// against the site's threshold, next to a call of an empty function. Sites run on the buffer path
// once per frame, so a closed gate must cost about as much as a call: target within 5x.
//
// Variants: a verbose line (threshold 6, default "0") with the property unset, a debug line
// (threshold 5, default "5") with the property set to "4", and the gate itself with a default
// that no site uses. The property store holds what a configured device would (a few dozen
// entries), so a lookup is not artificially cheap. Each reports heap allocations per call.
#define LOG_NDEBUG 0
#define LOG_TAG "TavroLogBench"
#include <benchmark/benchmark.h>

#include <stdint.h>

#include <string>

#include <host/HostLog.h>
#include <host/HostProperties.h>
#include <log/log.h>

#include "common/TavroLog.h"
#include "support/AllocCounter.h"

namespace android {
namespace {

// The baseline: a call the compiler may not inline or drop, with the arguments a log line takes.
__attribute__((noinline)) void emptyCall(int32_t value, const char* text) {
    benchmark::DoNotOptimize(value);
    benchmark::DoNotOptimize(text);
}

void deviceLikeStore(const char* level) {
    host::HostLog::setStderrPriority(ANDROID_LOG_SILENT);
    // A small sink, so that a line written by mistake shows (and fails the run).
    host::HostLog::setCapacity(16);
    host::HostLog::clear();
    host::HostProperties::clear();
    for (int i = 0; i < 40; ++i) {
        host::HostProperties::set("ro.vendor.bench.key" + std::to_string(i), std::to_string(i));
    }
    host::HostProperties::set("ro.hardware", "qcom");
    host::HostProperties::set("ro.build.device_family", "QXSM8550");
    host::HostProperties::set("debug.tavro.sr.on", "0");
    if (level != nullptr) host::HostProperties::set(kTavroLogLevelProperty, level);
}

void reportAllocations(benchmark::State& state, uint64_t before) {
    const uint64_t allocations = tavro_bench::allocationCount() - before;
    state.counters["allocs/op"] = benchmark::Counter(static_cast<double>(allocations) /
                                                     static_cast<double>(state.iterations()));
    if (!host::HostLog::records().empty()) state.SkipWithError("a closed line was written");
}

void BM_EmptyCall(benchmark::State& state) {
    deviceLikeStore(nullptr);
    int32_t i = 0;
    const uint64_t before = tavro_bench::allocationCount();
    for (auto _ : state) emptyCall(++i, "frame");
    reportAllocations(state, before);
}
BENCHMARK(BM_EmptyCall);

void BM_LogVerboseOff(benchmark::State& state) {
    deviceLikeStore(nullptr);
    int32_t i = 0;
    tavroLogLevel("0");  // steady state: the level for this default is known
    const uint64_t before = tavro_bench::allocationCount();
    for (auto _ : state) TAVRO_LOGV(6, "frame %d of %s", ++i, "clip");
    reportAllocations(state, before);
}
BENCHMARK(BM_LogVerboseOff);

void BM_LogDebugOff(benchmark::State& state) {
    deviceLikeStore("4");
    int32_t i = 0;
    tavroLogLevel("5");
    const uint64_t before = tavro_bench::allocationCount();
    for (auto _ : state) TAVRO_LOGD("frame %d of %s", ++i, "clip");
    reportAllocations(state, before);
}
BENCHMARK(BM_LogDebugOff);

// The gate with a default of its own: a site that passes another default is cached separately.
void BM_LogGateOtherDefault(benchmark::State& state) {
    deviceLikeStore("2");
    tavroLogLevel("3");
    const uint64_t before = tavro_bench::allocationCount();
    for (auto _ : state) {
        bool on = tavroLogOn(3, "3");
        benchmark::DoNotOptimize(on);
    }
    reportAllocations(state, before);
}
BENCHMARK(BM_LogGateOtherDefault);

}  // namespace
}  // namespace android

BENCHMARK_MAIN();
