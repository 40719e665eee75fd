// White-list benchmarks: parsing boost-info strings, and getBoostInfo on a warm cache in both
// scenarios with 1, 100 and 10 000 activity entries. Each reports heap allocations per operation.
//
// Targets: at least 1 M typical strings parsed per second; a warm getBoostInfo under 5 us that
// grows no faster than log n with the map size.
#include <benchmark/benchmark.h>

#include <host/HostListService.h>
#include <host/HostProperties.h>

#include <memory>
#include <string>

#include "support/AllocCounter.h"
#include "support/WhiteListWorld.h"
#include "whitelist/TavroWhiteListCacheMgr.h"

namespace android {
namespace {

using host::HostListService;
using host::HostProperties;
using tavro_bench::kClientPid;
using tavro_bench::WhiteListWorld;

// The example of the grammar: a typical string.
constexpr char kExampleString[] =
        "mime=video/avc,isVideo=1,isEncoder=0,limitWidth=1920,limitHeight=1080,schedVideo=2,"
        "threadName=render+decode,uclampTids=0+1,cluster2Min=1200000";

// A full-length answer (the list service's 256-byte buffer holds 255 characters).
std::string longString() {
    std::string s =
            "cpu=QXSM8475+QXSM8550,prj=P23001+P23002,vendor=qcom,mime=video/avc+video/hevc,"
            "comp=c2.qti.avc.decoder+c2.qti.hevc.decoder,isVideo=1,isEncoder=0,limitWidth=1920,"
            "limitHeight=1080,bitrate=2000000,schedVideo=2,vendorBoost=1,ddrFreq=1555,"
            "preferIdle=1,cluster0Min=1804800,cluster7Min=2419200,uclampTids=0+1+2";
    s.resize(255, ',');
    return s;
}

void reportAllocations(benchmark::State& state, uint64_t before) {
    const uint64_t allocations = tavro_bench::allocationCount() - before;
    state.counters["allocs/op"] = benchmark::Counter(static_cast<double>(allocations) /
                                                     static_cast<double>(state.iterations()));
}

void parse(benchmark::State& state, const std::string& text) {
    HostProperties::clear();
    auto info = std::make_shared<MediaBoostInfo>();
    const uint64_t before = tavro_bench::allocationCount();
    for (auto _ : state) {
        bool ok = parseBoostInfo(text, info);
        benchmark::DoNotOptimize(ok);
        benchmark::DoNotOptimize(info->uxInfo.schedVideo);
    }
    reportAllocations(state, before);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}

void BM_ParseBoostInfo_Example(benchmark::State& state) {
    parse(state, kExampleString);
}
BENCHMARK(BM_ParseBoostInfo_Example);

void BM_ParseBoostInfo_256Bytes(benchmark::State& state) {
    parse(state, longString());
}
BENCHMARK(BM_ParseBoostInfo_256Bytes);

// A warm cache: the first call builds it (and, for a media server, its map), then `entries` - 1
// more activity entries, each asked for once by name and then cached.
void warmUp(const WhiteListWorld& world, int64_t entries) {
    TavroUxInfo ux;
    TavroClusterInfo cluster;
    world.mgr()->getBoostInfo(kClientPid, WhiteListWorld::media(), ux, cluster);
    for (int64_t i = 0; i + 1 < entries; ++i) {
        const std::string name = "com.vendor.app" + std::to_string(i);
        HostListService::setByName(kListMediaserverBoost, name, "isVideo=1,schedVideo=2");
        world.mgr()->getActivityBoostInfo(name, false, true);
    }
}

void warmLookup(benchmark::State& state, const char* ownName, int32_t expectedSched) {
    WhiteListWorld world(ownName);
    warmUp(world, state.range(0));
    const TavroMediaInfo media = WhiteListWorld::media();
    const uint64_t before = tavro_bench::allocationCount();
    for (auto _ : state) {
        TavroUxInfo ux;
        TavroClusterInfo cluster;
        world.mgr()->getBoostInfo(kClientPid, media, ux, cluster);
        if (ux.schedVideo != expectedSched) state.SkipWithError("unexpected boost decision");
        benchmark::DoNotOptimize(cluster.clusterMinFreq);
    }
    reportAllocations(state, before);
}

void BM_GetBoostInfoWarm_App(benchmark::State& state) {
    warmLookup(state, "com.client.app", 2);
}
BENCHMARK(BM_GetBoostInfoWarm_App)->Arg(1)->Arg(100)->Arg(10000);

void BM_GetBoostInfoWarm_Mediaserver(benchmark::State& state) {
    warmLookup(state, "/system/bin/mediaserver", 3);
}
BENCHMARK(BM_GetBoostInfoWarm_Mediaserver)->Arg(1)->Arg(100)->Arg(10000);

// The share of the mediaserver lookup that is the client's name read from /proc (open, read,
// close): the lookup must read it at every call, since a pid may name another process later.
void BM_ProcNameByPid(benchmark::State& state) {
    WhiteListWorld world("/system/bin/mediaserver");
    std::string name;
    const uint64_t before = tavro_bench::allocationCount();
    for (auto _ : state) {
        bool ok = getProcNameByPid(kClientPid, name);
        benchmark::DoNotOptimize(ok);
    }
    reportAllocations(state, before);
}
BENCHMARK(BM_ProcNameByPid);

}  // namespace
}  // namespace android

BENCHMARK_MAIN();
