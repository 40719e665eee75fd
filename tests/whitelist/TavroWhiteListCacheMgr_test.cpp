// The cache manager: init, the two scenarios, debug overrides, built-in defaults, the life of a
// cached entry on a fake clock, the mediaserver refresh and generic fallback, rejected strings,
// and concurrent callers.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <thread>
#include <vector>

#include "WhiteListTestSupport.h"

namespace android {
namespace {

using host::HostListService;
using host::HostProperties;
using std::chrono::seconds;
using test::audio;
using test::dump;
using test::encoder;
using test::video;

constexpr int32_t kClientPid = 4242;
constexpr char kClientName[] = "com.client.app";
// What a call that applies nothing leaves in the caller's records.
constexpr char kUntouched[] = "schedVideo=99 | limitOpRate=77";

class CacheMgrTest : public test::WhiteListWorld {
  protected:
    // "ux | cluster" after getBoostInfo on records that start as kUntouched.
    std::string boost(const TavroMediaInfo& media, int32_t pid = kClientPid) {
        TavroUxInfo ux;
        ux.schedVideo = 99;
        TavroClusterInfo cluster;
        cluster.limitOpRate = 77;
        mMgr->getBoostInfo(pid, media, ux, cluster);
        std::sort(ux.tids.begin(), ux.tids.end());
        return dump(ux) + " | " + dump(cluster);
    }
    static uint64_t queries() { return HostListService::queryCount(); }
    static void setUidAnswer(const std::string& value) {
        HostListService::setByUid(kListMediaSchedBoost, static_cast<int64_t>(getuid()), value);
    }
    static void setNamed(const std::string& name, const std::string& value) {
        HostListService::setByName(kListMediaserverBoost, name, value);
    }
    void becomeMediaserver() {
        setOwnProcessName("/system/bin/mediaserver");
        setCmdline(kClientPid, kClientName);
        setNamed(kBoostNameListKey, "#generic+com.client.app");
        setNamed(kClientName,
                 "isVideo=1,limitWidth=3840,limitHeight=2160,schedVideo=5,"
                 "cluster2Min=2000000");
        setNamed("#generic", "isVideo=1,schedVideo=2,preferIdle=1");
    }
};

TEST_F(CacheMgrTest, InitIsRetriedUntilItSucceeds) {
    HostProperties::set(kPropDebugCodecUx, "sched=3");
    HostProperties::erase(kPropHardware);
    EXPECT_EQ(kUntouched, boost(video()));
    setPlatform();
    mProc.remove(std::to_string(getpid()) + "/cmdline");  // own name unreadable
    EXPECT_EQ(kUntouched, boost(video()));
    EXPECT_EQ(2u, logged(kLogFailedInitCache, ANDROID_LOG_ERROR));
    setOwnProcessName("com.example.player");
    EXPECT_EQ("schedVideo=3 schedAudio=3 | limitOpRate=77", boost(video()));
    EXPECT_EQ(2u, logged(kLogFailedInitCache, ANDROID_LOG_ERROR));
}

TEST_F(CacheMgrTest, ScenarioFollowsTheOwnProcessName) {
    setLogLevel(7);
    for (const char* name : {"/system/bin/mediaserver", "mediaserver64", "android.mediaserver2",
                             "mediaserve", "media.server"}) {
        SCOPED_TRACE(name);
        const bool mediaserver = std::string(name).find("mediaserver") != std::string::npos;
        mMgr->resetForTesting();
        host::HostLog::clear();
        setOwnProcessName(name);
        boost(video());
        EXPECT_EQ(mediaserver ? 1u : 0u, logged("Mediaserver boost scenario, isVideo[1]"));
        EXPECT_EQ(mediaserver ? 0u : 1u,
                  logged(std::string("App[") + name + "] boost scenario, isVideo[1]"));
    }
}

TEST_F(CacheMgrTest, DebugPropertiesOverrideTheLists) {
    HostProperties::set(kPropDebugCodecUx, "sched=3");
    HostProperties::set(kPropDebugCpuBoost, "preferIdle=1,cluster1Min=900000");
    setUidAnswer("schedVideo=9");
    uint64_t q = queries();
    EXPECT_EQ("schedVideo=3 schedAudio=3 | preferIdle=1 minFreq={1:900000}", boost(video()));
    TavroUxInfo ux;
    std::shared_ptr<TavroClusterInfo> shared;  // created when missing
    mMgr->getBoostInfo(kClientPid, video(), ux, shared);
    ASSERT_NE(shared, nullptr);
    EXPECT_EQ("preferIdle=1 minFreq={1:900000}", test::dump(*shared));
    EXPECT_EQ("schedVideo=3 schedAudio=3 | limitOpRate=77", boost(audio()));  // cluster: video
    EXPECT_EQ(q, queries());
    HostProperties::set(kPropDebugCpuBoost, "isVideo=0,pelt=8");  // a rule for audio
    EXPECT_EQ("schedVideo=3 schedAudio=3 | pelt=8", boost(audio()));

    // A media server takes both halves from "debug.codec.ux" and ignores "debug.cpu.boost".
    mMgr->resetForTesting();
    becomeMediaserver();
    HostProperties::set(kPropDebugCodecUx, "isVideo=1,schedVideo=6,cluster3Min=1000");
    q = queries();
    EXPECT_EQ("schedVideo=6 | minFreq={3:1000}", boost(video()));
    EXPECT_EQ(q, queries());
}

TEST_F(CacheMgrTest, BuiltInAppDefaults) {
    setOwnProcessName(kDefaultColorfulEngineName);  // "sched=4,isEncoder=0,isVideo=1"
    EXPECT_EQ("schedVideo=4 | limitOpRate=77", boost(video()));
    EXPECT_EQ(kUntouched, boost(encoder()));
    EXPECT_EQ(kUntouched, boost(audio()));

    setOwnProcessName(kDefaultWallpaperName);  // only on QXSM8475 and QXSM8550
    mMgr->resetForTesting();
    EXPECT_EQ("schedVideo=4 | limitOpRate=77", boost(video()));
    mMgr->resetForTesting();
    HostProperties::set(kPropDeviceFamily, "QXSM8650");
    EXPECT_EQ(kUntouched, boost(video()));
}

TEST_F(CacheMgrTest, ProcessEntryLifecycleOnTheClock) {
    setOwnProcessName(kDefaultColorfulEngineName);
    ASSERT_TRUE(mMgr->init());
    const auto t0 = mClock.now();
    // Default loaded and never asked: the first use asks, gets nothing, keeps the default.
    uint64_t q = queries();
    auto entry = mMgr->getProcBoostInfo();
    ASSERT_NE(entry, nullptr);
    EXPECT_EQ(q + 1, queries());
    EXPECT_EQ(kDefaultAppColorfulEngine, entry->boostStrInfo);
    EXPECT_TRUE(entry->isValid && entry->isDefault);
    EXPECT_EQ(t0, entry->cacheTime);

    // Asked: the default is used without further questions until it times out.
    setUidAnswer("schedVideo=2,isVideo=1");
    mClock.advance(seconds(43200));
    EXPECT_TRUE(mMgr->getProcBoostInfo()->isDefault);
    EXPECT_EQ(q + 1, queries());
    mClock.advance(seconds(1));
    entry = mMgr->getProcBoostInfo();
    EXPECT_EQ(q + 2, queries());
    EXPECT_EQ("schedVideo=2,isVideo=1", entry->boostStrInfo);
    EXPECT_FALSE(entry->isDefault);
    EXPECT_EQ(mClock.now(), entry->cacheTime);
    EXPECT_EQ(2, entry->uxInfo.schedVideo);

    // Answered: reused for 43201 s, then asked again. The entry handed out before is unchanged.
    setUidAnswer("schedVideo=3,isVideo=1");
    mClock.advance(seconds(43200));
    EXPECT_EQ(2, mMgr->getProcBoostInfo()->uxInfo.schedVideo);
    mClock.advance(seconds(1));
    EXPECT_EQ(3, mMgr->getProcBoostInfo()->uxInfo.schedVideo);
    EXPECT_EQ(q + 3, queries());
    EXPECT_EQ(2, entry->uxInfo.schedVideo);

    // Timed out and the service silent: the old answer stays with its old time, so every use
    // asks again.
    const auto answeredAt = mClock.now();
    HostListService::clear();
    mClock.advance(seconds(43201));
    for (int i = 1; i <= 2; ++i) {
        entry = mMgr->getProcBoostInfo();
        EXPECT_EQ(3, entry->uxInfo.schedVideo);
        EXPECT_EQ(answeredAt, entry->cacheTime);
        EXPECT_EQ(q + 3 + i, queries());
    }
    // An empty answer gives nothing and is asked for at every use.
    setUidAnswer("");
    EXPECT_EQ(nullptr, mMgr->getProcBoostInfo());
    EXPECT_EQ(nullptr, mMgr->getProcBoostInfo());
    EXPECT_EQ(q + 7, queries());
}

TEST_F(CacheMgrTest, ListAnswerFaults) {
    HostListService::setFault(HostListService::Fault::kNoAnswer);
    EXPECT_EQ(kUntouched, boost(video()));

    // 256 bytes without a NUL: read up to the buffer, 255 characters.
    mMgr->resetForTesting();
    HostListService::setFault(HostListService::Fault::kUnterminated);
    setUidAnswer("sched=2,");
    ASSERT_TRUE(mMgr->init());
    auto entry = mMgr->getProcBoostInfo();
    ASSERT_NE(entry, nullptr);
    EXPECT_EQ(kBoostInfoBufferSize - 1, entry->boostStrInfo.size());
    EXPECT_EQ("schedVideo=2 schedAudio=2", dump(entry->uxInfo));
}

TEST_F(CacheMgrTest, ClusterHalfFollowsTheTopActivityAndIsNeverCached) {
    const std::string activity = "com.example.player/.PlayerActivity";
    HostListService::setTopActivity(static_cast<int32_t>(getpid()), activity);
    HostListService::setByActivity(kListVdecCpuBoost, activity, "preferIdle=1,cluster0Min=1804");
    HostListService::setByActivity(kListVencCpuBoost, activity, "cluster7Min=2419");
    EXPECT_EQ("schedVideo=99 | preferIdle=1 minFreq={0:1804}", boost(video()));
    EXPECT_EQ("schedVideo=99 | minFreq={7:2419}", boost(encoder()));
    const uint64_t q = queries();
    mMgr->getActivityBoostInfo("", false, false);
    mMgr->getActivityBoostInfo("", false, false);
    EXPECT_EQ(q + 2, queries());
    EXPECT_EQ(nullptr, mMgr->findActivityBoostInfo(activity));
}

TEST_F(CacheMgrTest, ActivityEntriesByNameAndThePlaceholderOfAnEmptyMap) {
    ASSERT_TRUE(mMgr->init());
    setLogLevel(7);
    EXPECT_EQ(nullptr, mMgr->getActivityBoostInfo("", false, true));
    EXPECT_EQ(1u, logged(kLogActivityNameEmpty));

    // No answer: nothing handed out, but the entry is kept, asked, with an empty string.
    const uint64_t q = queries();
    EXPECT_EQ(nullptr, mMgr->getActivityBoostInfo("com.a", false, true));
    EXPECT_EQ(1u, logged("Activity map size is [1]."));
    auto stored = mMgr->findActivityBoostInfo("com.a");
    ASSERT_NE(stored, nullptr);
    EXPECT_TRUE(stored->isValid);
    EXPECT_EQ("", stored->boostStrInfo);

    // So it is asked again at the next use; an answer is then kept.
    setNamed("com.a", "schedVideo=3");
    auto entry = mMgr->getActivityBoostInfo("com.a", false, true);
    ASSERT_NE(entry, nullptr);
    EXPECT_EQ(entry, mMgr->getActivityBoostInfo("com.a", false, true));
    EXPECT_EQ(entry, mMgr->findActivityBoostInfo("com.a"));
    EXPECT_EQ(q + 2, queries());
    EXPECT_EQ(1u, logged("activityName[com.a] cache is valid"));

    // Timed out, the map is rebuilt; an app process has no mediaserver defaults, so with no name
    // list it stays empty, and a placeholder takes its place.
    mClock.advance(seconds(43201));
    mMgr->checkMediaserverBoostInfo();
    EXPECT_EQ(nullptr, mMgr->findActivityBoostInfo("com.a"));
    auto placeholder = mMgr->findActivityBoostInfo(kFakeBoostName);
    ASSERT_NE(placeholder, nullptr);
    EXPECT_TRUE(placeholder->isValid);
    EXPECT_EQ("", placeholder->boostStrInfo);
    EXPECT_EQ(mClock.now(), placeholder->cacheTime);
}

TEST_F(CacheMgrTest, RejectedStringsAreLoggedAndGiveNoBoost) {
    const std::string error = ": schedVideo/schedAudio is not a number";
    // A debug string: the entry still takes the list's place, and gives nothing.
    HostProperties::set(kPropDebugCodecUx, "schedAudio=fast");
    setUidAnswer("sched=5");
    const uint64_t q = queries();
    EXPECT_EQ(kUntouched, boost(audio()));
    EXPECT_EQ(q, queries());
    EXPECT_EQ(1u, logged("Rejected boost info[schedAudio=fast]" + error, ANDROID_LOG_ERROR));

    // A list answer replaces the default, gives nothing, and is asked for again at each use.
    HostProperties::erase(kPropDebugCodecUx);
    mMgr->resetForTesting();
    setOwnProcessName(kDefaultColorfulEngineName);
    setUidAnswer("schedVideo=99999999999");
    EXPECT_EQ(kUntouched, boost(video()));
    EXPECT_EQ(kUntouched, boost(video()));
    EXPECT_EQ(2u, logged("Rejected boost info[schedVideo=99999999999]" + error, ANDROID_LOG_ERROR));
    setUidAnswer("schedVideo=2");
    EXPECT_EQ("schedVideo=2 | limitOpRate=77", boost(video()));
}

// ---- mediaserver scenario --------------------------------------------------------------------

class MediaserverCacheTest : public CacheMgrTest {
  protected:
    void SetUp() override {
        CacheMgrTest::SetUp();
        becomeMediaserver();
    }
};

TEST_F(MediaserverCacheTest, ClientEntryThenGenericFallback) {
    setLogLevel(7);
    EXPECT_EQ("schedVideo=5 | minFreq={2:2000000}", boost(video(3840, 2160)));
    EXPECT_EQ(1u, logged("Get proc name[com.client.app] by pid[4242]"));
    // Its own entry does not fit 1080p: the generic one does.
    EXPECT_EQ("schedVideo=2 | preferIdle=1", boost(video()));
    EXPECT_EQ(1u, logged("Find boost[#generic] info[isVideo=1,schedVideo=2,preferIdle=1]"));
    // A client without an entry, one whose name cannot be read, and audio, which fits neither.
    setCmdline(4343, "com.other");
    EXPECT_EQ("schedVideo=2 | preferIdle=1", boost(video(), 4343));
    EXPECT_EQ("schedVideo=2 | preferIdle=1", boost(video(), 5555));
    EXPECT_EQ(kUntouched, boost(audio()));
}

TEST_F(MediaserverCacheTest, FirstFittingGenericEntryInKeyOrder) {
    setNamed(kBoostNameListKey, "#b+#a+#c");
    setNamed("#a", "isVideo=0,schedAudio=1");
    setNamed("#b", "isVideo=1,schedVideo=2");
    setNamed("#c", "schedVideo=3,schedAudio=3");
    // A fitting entry hands over its whole cluster half, defaults included.
    EXPECT_EQ("schedVideo=2 | ", boost(video()));
    EXPECT_EQ("schedAudio=1 | ", boost(audio()));
}

TEST_F(MediaserverCacheTest, WholeMapIsRefreshedWhenItsFirstEntryTimesOut) {
    const uint64_t q = queries();
    boost(video());
    EXPECT_EQ(q + 3, queries());  // the name list, then each name
    auto wallpaper = mMgr->findActivityBoostInfo(kDefaultWallpaperName);
    ASSERT_NE(wallpaper, nullptr);
    EXPECT_TRUE(wallpaper->isDefault);
    EXPECT_FALSE(wallpaper->isValid);

    setNamed("#generic", "isVideo=1,schedVideo=7");
    mClock.advance(seconds(43200));
    EXPECT_EQ("schedVideo=2 | preferIdle=1", boost(video()));
    EXPECT_EQ(q + 3, queries());
    mClock.advance(seconds(1));
    EXPECT_EQ("schedVideo=7 | ", boost(video()));
    EXPECT_EQ(q + 6, queries());
}

TEST_F(MediaserverCacheTest, DefaultEntryServesItsClientAndResolvesThreads) {
    HostListService::clear();  // no name list: the map holds only the built-in default
    mProc.addThread(static_cast<int32_t>(getpid()), "601", "NuPlayerRender");
    mProc.addThread(static_cast<int32_t>(getpid()), "602", "generic");
    mProc.addThread(static_cast<int32_t>(getpid()), "603", "binder");
    setCmdline(kClientPid, kDefaultWallpaperName);
    EXPECT_EQ("schedVideo=4 tids=[601+602] | ", boost(video()));

    // Never asked by name, the default leaves the map stale: each call rebuilds it.
    setLogLevel(7);
    boost(video());
    boost(video());
    EXPECT_EQ(2u, logged(kLogNoBoostNameList));
}

TEST_F(MediaserverCacheTest, RejectedNameIsLoggedAndTheOthersStillLoad) {
    setNamed("#generic", "isVideo=1,schedVideo=oops");
    EXPECT_EQ("schedVideo=5 | minFreq={2:2000000}", boost(video(3840, 2160)));
    EXPECT_EQ(1u, logged("Rejected boost info[isVideo=1,schedVideo=oops]: schedVideo/schedAudio "
                         "is not a number",
                         ANDROID_LOG_ERROR));
    EXPECT_EQ(kUntouched, boost(video()));
}

// ---- concurrent callers ----------------------------------------------------------------------

class CacheMgrThreadTest : public CacheMgrTest {
  protected:
    static constexpr int kThreads = 16;
    static constexpr int kCalls = 200;
    static constexpr int kCallsPerRefresh = 4;

    // kThreads callers released together; thread 0 moves the clock past the timeout every
    // kCallsPerRefresh calls, so refreshes race with lookups. Returns how often each result came.
    std::map<std::string, int> race(const TavroMediaInfo& media) {
        std::atomic<int> ready{0};
        std::vector<std::map<std::string, int>> seen(kThreads);
        std::vector<std::thread> threads;
        for (int t = 0; t < kThreads; ++t) {
            threads.emplace_back([&, t] {
                ready.fetch_add(1);
                while (ready.load() < kThreads) std::this_thread::yield();
                for (int i = 0; i < kCalls; ++i) {
                    if (t == 0 && i % kCallsPerRefresh == 0) mClock.advance(seconds(43201));
                    ++seen[t][boost(media)];
                }
            });
        }
        for (std::thread& th : threads) th.join();
        std::map<std::string, int> all;
        for (const auto& s : seen) {
            for (const auto& [result, n] : s) all[result] += n;
        }
        return all;
    }
};

TEST_F(CacheMgrThreadTest, AppScenarioAnswersStayWholeWhileRefreshing) {
    setUidAnswer("isVideo=1,schedVideo=2");
    HostListService::setTopActivity(-1, "a/.B");
    HostListService::setByActivity(kListVdecCpuBoost, "a/.B", "cluster1Min=3000");
    const uint64_t q = queries();
    const auto results = race(video());
    EXPECT_EQ((std::map<std::string, int>{{"schedVideo=2 | minFreq={1:3000}", kThreads * kCalls}}),
              results);
    // Every call asks for the top activity; the uid entry at least once per refresh.
    EXPECT_GE(queries() - q, static_cast<uint64_t>(kThreads * kCalls + kCalls / kCallsPerRefresh));
}

TEST_F(CacheMgrThreadTest, MediaserverHandsOutWholeEntriesWhileRebuilding) {
    becomeMediaserver();
    setNamed(kClientName, "isVideo=1,schedVideo=5,cluster2Min=2000000");
    const auto results = race(video());
    // While a rebuild runs the client's entry may be missing: then the generic one or nothing
    // applies, never a mix of two entries.
    const std::string client = "schedVideo=5 | minFreq={2:2000000}";
    const std::string generic = "schedVideo=2 | preferIdle=1";
    int total = 0;
    for (const auto& [result, n] : results) {
        EXPECT_TRUE(result == client || result == generic || result == kUntouched) << result;
        total += n;
    }
    EXPECT_EQ(kThreads * kCalls, total);
    EXPECT_GT(results.count(client), 0u);
    EXPECT_EQ(client, boost(video()));
}

}  // namespace
}  // namespace android
