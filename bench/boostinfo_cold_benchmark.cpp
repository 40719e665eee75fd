// getBoostInfo when its cache cannot answer, against the same call on a warm cache:
//  - first use: a manager that has never run in this process (init reads the platform properties
//    and the own process name, then every source is asked);
//  - expired: a warm manager whose entries have all passed their 12-hour lifetime, so the call
//    asks the list service again.
// Both scenarios: an app coding its own video, and the media server coding for a client app.
// Each reports heap allocations per call. No target of its own: this is what the first codec of
// a process (or the first after a long pause) pays once, next to the warm path that every later
// codec pays.
#include <benchmark/benchmark.h>

#include <chrono>

#include "support/AllocCounter.h"
#include "support/WhiteListWorld.h"
#include "whitelist/TavroWhiteListCacheMgr.h"

namespace android {
namespace {

using Clock = TavroWhiteListCacheMgr::Clock;
using tavro_bench::kClientPid;
using tavro_bench::WhiteListWorld;

constexpr char kAppProcess[] = "com.client.app";
constexpr char kMediaserverProcess[] = "/system/bin/mediaserver";

enum class Cache { kWarm, kFirstUse, kExpired };

void lookup(benchmark::State& state, const char* ownName, int32_t expectedSched, Cache cache) {
    WhiteListWorld world(ownName);
    // A clock the benchmark moves: only the expired variant advances it.
    Clock::time_point now{std::chrono::hours(1)};
    world.mgr()->setClockForTesting([&now] { return now; });
    world.mgr()->resetForTesting();
    const TavroMediaInfo media = WhiteListWorld::media();
    {
        // Warm-up, and a check that the lists give the decision they should.
        TavroUxInfo ux;
        TavroClusterInfo cluster;
        world.mgr()->getBoostInfo(kClientPid, media, ux, cluster);
        if (ux.schedVideo != expectedSched) {
            state.SkipWithError("unexpected boost decision");
            return;
        }
    }
    uint64_t allocations = 0;
    for (auto _ : state) {
        if (cache == Cache::kFirstUse) {
            state.PauseTiming();
            world.mgr()->resetForTesting();
            state.ResumeTiming();
        } else if (cache == Cache::kExpired) {
            now += kBoostCacheTimeout + std::chrono::seconds(1);
        }
        const uint64_t before = tavro_bench::allocationCount();
        TavroUxInfo ux;
        TavroClusterInfo cluster;
        world.mgr()->getBoostInfo(kClientPid, media, ux, cluster);
        allocations += tavro_bench::allocationCount() - before;
        if (ux.schedVideo != expectedSched) state.SkipWithError("unexpected boost decision");
        benchmark::DoNotOptimize(cluster.clusterMinFreq);
    }
    state.counters["allocs/op"] = benchmark::Counter(static_cast<double>(allocations) /
                                                     static_cast<double>(state.iterations()));
}

void BM_GetBoostInfo_App_Warm(benchmark::State& state) {
    lookup(state, kAppProcess, 2, Cache::kWarm);
}
void BM_GetBoostInfo_App_ColdFirstUse(benchmark::State& state) {
    lookup(state, kAppProcess, 2, Cache::kFirstUse);
}
void BM_GetBoostInfo_App_ColdExpired(benchmark::State& state) {
    lookup(state, kAppProcess, 2, Cache::kExpired);
}
void BM_GetBoostInfo_Mediaserver_Warm(benchmark::State& state) {
    lookup(state, kMediaserverProcess, 3, Cache::kWarm);
}
void BM_GetBoostInfo_Mediaserver_ColdFirstUse(benchmark::State& state) {
    lookup(state, kMediaserverProcess, 3, Cache::kFirstUse);
}
void BM_GetBoostInfo_Mediaserver_ColdExpired(benchmark::State& state) {
    lookup(state, kMediaserverProcess, 3, Cache::kExpired);
}

BENCHMARK(BM_GetBoostInfo_App_Warm);
BENCHMARK(BM_GetBoostInfo_App_ColdFirstUse);
BENCHMARK(BM_GetBoostInfo_App_ColdExpired);
BENCHMARK(BM_GetBoostInfo_Mediaserver_Warm);
BENCHMARK(BM_GetBoostInfo_Mediaserver_ColdFirstUse);
BENCHMARK(BM_GetBoostInfo_Mediaserver_ColdExpired);

}  // namespace
}  // namespace android

BENCHMARK_MAIN();
