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

#include <stdlib.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>

#include <host/HostListService.h>
#include <host/HostLog.h>
#include <host/HostProperties.h>
#include <log/log.h>

#include "support/AllocCounter.h"
#include "whitelist/TavroSystemProbe.h"
#include "whitelist/TavroWhiteListCacheMgr.h"

namespace android {
namespace {

using host::HostListService;
using host::HostProperties;
using Clock = TavroWhiteListCacheMgr::Clock;

constexpr int32_t kClientPid = 4242;
constexpr char kClientName[] = "com.client.app";
constexpr char kAppProcess[] = "com.client.app";
constexpr char kMediaserverProcess[] = "/system/bin/mediaserver";

// A /proc tree naming the own process `ownName` and the client process, and the list contents
// both scenarios read.
class World {
  public:
    explicit World(const std::string& ownName) {
        std::string pattern =
                (std::filesystem::temp_directory_path() / "tavro-bench-cold-XXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr) abort();
        mRoot = pattern;
        write(std::to_string(getpid()) + "/cmdline", ownName + std::string(1, '\0'));
        std::filesystem::create_directories(mRoot + "/" + std::to_string(getpid()) + "/task");
        write(std::to_string(kClientPid) + "/cmdline", std::string(kClientName) + '\0');

        host::HostLog::setStderrPriority(ANDROID_LOG_SILENT);
        host::HostLog::setCapacity(0);
        HostProperties::clear();
        HostProperties::set(kPropHardware, "qcom");
        HostProperties::set(kPropDeviceFamily, "QXSM8550");
        HostProperties::set(kPropProjectName, "P23001");
        HostListService::clear();
        setProcRootForTesting(mRoot);

        HostListService::setByUid(kListMediaSchedBoost, static_cast<int64_t>(getuid()),
                                  "isVideo=1,isEncoder=0,schedVideo=2,ddrFreq=1555");
        HostListService::setTopActivity(-1, "com.client.app/.PlayerActivity");
        HostListService::setByActivity(kListVdecCpuBoost, "com.client.app/.PlayerActivity",
                                       "isVideo=1,preferIdle=1,cluster0Min=1804800");
        HostListService::setByName(kListMediaserverBoost, kBoostNameListKey,
                                   "#generic+com.client.app");
        HostListService::setByName(kListMediaserverBoost, "#generic", "isVideo=1,schedVideo=1");
        HostListService::setByName(kListMediaserverBoost, kClientName,
                                   "isVideo=1,schedVideo=3,preferIdle=1,cluster0Min=1804800");

        mMgr = TavroWhiteListCacheMgr::getInstance();
        // A clock the benchmark moves: only the expired variant advances it.
        mMgr->setClockForTesting([this] { return mNow; });
        mMgr->resetForTesting();
    }
    ~World() {
        mMgr->resetForTesting();
        mMgr->setClockForTesting(nullptr);
        setProcRootForTesting("");
        std::error_code ec;
        std::filesystem::remove_all(mRoot, ec);
    }

    static TavroMediaInfo media() {
        TavroMediaInfo m;
        m.mime = "video/avc";
        m.component = "c2.qti.avc.decoder";
        m.width = 1920;
        m.height = 1080;
        m.bitrate = 8000000;
        m.isVideo = 1;
        m.isEncoder = 0;
        return m;
    }

    TavroWhiteListCacheMgr* mgr() const { return mMgr; }
    void expireEverything() { mNow += kBoostCacheTimeout + std::chrono::seconds(1); }

  private:
    void write(const std::string& relative, const std::string& bytes) {
        std::filesystem::path path = std::filesystem::path(mRoot) / relative;
        std::filesystem::create_directories(path.parent_path());
        std::ofstream(path, std::ios::binary) << bytes;
    }

    std::string mRoot;
    TavroWhiteListCacheMgr* mMgr = nullptr;
    Clock::time_point mNow{std::chrono::hours(1)};
};

enum class Cache { kWarm, kFirstUse, kExpired };

void lookup(benchmark::State& state, const char* ownName, int32_t expectedSched, Cache cache) {
    World world(ownName);
    const TavroMediaInfo media = World::media();
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
            world.expireEverything();
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
