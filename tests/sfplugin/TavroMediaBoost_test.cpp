// The media boost client end to end: configure builds the request from the white list, start
// sends it, the operating-rate watchdog moves the cluster part, apps add key threads, and every
// request reaches the boost service as the parcel the service reads.
#include <gtest/gtest.h>

#include <unistd.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include <binder/Parcel.h>
#include <host/HostLog.h>
#include <host/HostProperties.h>
#include <tavro/TavroVideoBoost.h>

#include "sfplugin/TavroVideoBoostParams.h"
#include "sfplugin/TavroVideoTaskBoost.h"
#include "support/CodecTestHarness.h"

namespace android {
namespace {

using test::CodecHarness;
using test::makeFormat;
using test::ownTid;

constexpr int64_t kSecondUs = 1000000;

int32_t ownPid() {
    return static_cast<int32_t>(getpid());
}

using Sent = test::SentBoost;

std::vector<int32_t> triples(std::initializer_list<int32_t> tids, int32_t sched) {
    std::vector<int32_t> out;
    for (int32_t tid : tids) out.insert(out.end(), {ownPid(), tid, sched});
    return out;
}

// A blank world on a device the boost entries are written for.
void resetDevice() {
    test::resetHostWorld();
    test::setDevice("p1");
}

class TavroMediaBoostTest : public ::testing::Test {
  protected:
    void SetUp() override {
        resetDevice();
        h = std::make_unique<CodecHarness>();
    }

    // A video decoder configured with tp-ux-tid 555 and started.
    void playDecoder(const char* component = "c2.qti.avc.decoder", bool startIt = true) {
        h->allocate(component);
        sp<AMessage> format = makeFormat("video/avc", {{"width", 1920}, {"height", 1080}});
        format->setInt32("tp-ux-tid", 555);
        h->configure(format);
        if (startIt) h->start();
    }

    void setRate(float rate) {
        sp<AMessage> params = new AMessage();
        params->setFloat("operating-rate", rate);
        h->codec()->signalSetParameters(params);
    }

    std::unique_ptr<CodecHarness> h;
};

TEST_F(TavroMediaBoostTest, WatchdogSendsAndReleasesTheClusterPartAsTheRateMoves) {
    host::HostProperties::set("debug.codec.ux", "schedVideo=2,isVideo=1");
    host::HostProperties::set("debug.cpu.boost", "limitOpRate=30,cluster0Min=1804800,isVideo=1");
    playDecoder();

    // Rate 0 < limit 30 at start: only the thread part goes out.
    std::vector<Sent> sent = test::sentBoosts();
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(sent[0].kind, TavroVideoBoost::Request::kBoost);
    EXPECT_EQ(sent[0].params.sched, 2);
    EXPECT_EQ(sent[0].params.threads, triples({555, ownTid(), ownTid()}, 2));
    EXPECT_TRUE(sent[0].params.clusterParams.empty());

    setRate(60.0f);  // reaches the limit: cluster part
    setRate(61.0f);  // already active: nothing more
    setRate(29.9f);  // below the limit: release the cluster part
    setRate(10.0f);  // nothing active any more
    setRate(30.0f);  // equal to the limit counts as reaching it

    sent = test::sentBoosts();
    ASSERT_EQ(sent.size(), 4u);
    EXPECT_EQ(sent[1].kind, TavroVideoBoost::Request::kBoost);
    EXPECT_EQ(sent[1].params.clusterParams, (std::vector<int32_t>{0x40800100, 1804}));
    EXPECT_EQ(sent[1].params.sched, -1);
    EXPECT_TRUE(sent[1].params.threads.empty());
    EXPECT_EQ(sent[2].kind, TavroVideoBoost::Request::kUnboost);
    EXPECT_EQ(sent[2].flags, 0x20u);
    EXPECT_EQ(sent[3].kind, TavroVideoBoost::Request::kBoost);
    EXPECT_EQ(sent[3].params.clusterParams, (std::vector<int32_t>{0x40800100, 1804}));

    // Shutdown releases nothing: the release-all flag belongs to no path of the codec.
    h->codec()->initiateShutdown(false);
    h->runPending();
    EXPECT_EQ(test::sentBoosts().size(), 4u);
}

// One flag runs both periodic checks, so whichever comes first decides: an encoder whose first
// input comes before its first counted work runs the frame-rate check and never the watchdog (its
// cluster part stays unsent); one whose works come first runs the watchdog, which counts works per
// second and sends the cluster part once the limit is reached. Shutdown stops either chain.
TEST_F(TavroMediaBoostTest, EncoderTimerChainsShareOneFlag) {
    struct Case {
        const char* name;
        bool inputFirst;
        size_t sentAfterOneSecond;
        size_t fpsChecks;   // sendFPSInfo calls after two seconds
        size_t encoderFps;  // "Encoder fps: " lines after two seconds
    };
    const Case kCases[] = {
            {"input first: frame-rate check only", true, 1, 2, 0},
            {"works first: watchdog only", false, 2, 0, 2},
    };
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.name);
        h.reset();
        SetUp();
        host::HostProperties::set("debug.tavro.video.log.enable", "6");
        host::HostProperties::set("debug.codec.ux", "schedVideo=2,isVideo=1");
        host::HostProperties::set("debug.cpu.boost",
                                  "limitOpRate=30,cluster0Min=1804800,isVideo=1");
        h->allocate("c2.qti.avc.encoder");
        h->configure(makeFormat("video/avc", {{"encoder", 1}}));
        h->start();
        ASSERT_EQ(test::sentBoosts().size(), 1u);  // the thread part: rate 0 is below the limit

        if (c.inputFirst) {
            ASSERT_EQ(h->channel()->queueInputBuffer(test::makeFrame()), OK);
        }
        for (int i = 0; i < 40; ++i) h->channel()->onWorkDone(test::makeWork(), nullptr, nullptr);
        h->advanceUs(kSecondUs);
        std::vector<Sent> sent = test::sentBoosts();
        ASSERT_EQ(sent.size(), c.sentAfterOneSecond);
        if (sent.size() == 2) {
            EXPECT_EQ(sent[1].params.clusterParams, (std::vector<int32_t>{0x40800100, 1804}));
            EXPECT_EQ(host::HostLog::count("Encoder fps: 40"), 1u);
        }
        h->advanceUs(kSecondUs);
        EXPECT_EQ(host::HostEvents::named("analysis", "sendFPSInfo").size(), c.fpsChecks);
        EXPECT_EQ(host::HostLog::count("Encoder fps: "), c.encoderFps);

        h->codec()->initiateShutdown(false);
        h->runPending();
        h->advanceUs(3 * kSecondUs);
        EXPECT_EQ(host::HostEvents::named("analysis", "sendFPSInfo").size(), c.fpsChecks);
        EXPECT_EQ(host::HostLog::count("Encoder fps: "), c.encoderFps);
    }
}

TEST_F(TavroMediaBoostTest, RateAlreadyAtTheLimitSendsTheWholeRequestAtStart) {
    host::HostProperties::set("debug.codec.ux", "schedVideo=2,isVideo=1");
    host::HostProperties::set("debug.cpu.boost", "limitOpRate=30,cluster4Min=2419200,isVideo=1");
    h->allocate("c2.qti.avc.decoder");
    sp<AMessage> format = makeFormat("video/avc");
    format->setFloat("operating-rate", 60.0f);
    h->configure(format);
    h->start();
    std::vector<Sent> sent = test::sentBoosts();
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(sent[0].params.threads, triples({ownTid()}, 2));
    EXPECT_EQ(sent[0].params.clusterParams, (std::vector<int32_t>{0x40800000, 2419}));
    // Whole request already holds the cluster part: the watchdog never resends it.
    setRate(90.0f);
    EXPECT_EQ(test::sentBoosts().size(), 1u);
}

// Entry x media -> the request sent at start (no operating-rate limit, so sent whole). How an
// entry reads and which media it matches are the white list's own (TavroBoostInfoParser_test,
// TavroBoostCondition_test).
TEST_F(TavroMediaBoostTest, RequestFieldsTable) {
    struct Case {
        const char* name;
        const char* ux;
        const char* cpu;
        const char* component;
        const char* mime;
        bool sent;
        bool vendor;
        int32_t sched;
        int32_t ddr;
        std::vector<int32_t> uclamp;
    };
    const char* const kAvc = "c2.qti.avc.decoder";
    // clang-format off
    const Case kCases[] = {
        {"secure gets ddr", "schedVideo=2,ddrFreq=1555000", "", "c2.qti.avc.decoder.secure",
         "video/avc", true, false, 2, 1555000, {}},
        {"not secure: no ddr", "schedVideo=2,ddrFreq=1555000", "", kAvc, "video/avc", true, false,
         2, 0, {}},
        {"vendor boost only", "vendorBoost=1", "", kAvc, "video/avc", true, true, -1, 0, {}},
        {"uclamp by index", "schedVideo=1", "minUclamp=512,uclampTids=0+5,isVideo=1", kAvc,
         "video/avc", true, false, 1, 0, {555, 512}},
        {"no entry anywhere", "", "", kAvc, "video/avc", false, false, -1, 0, {}},
        // Audio has no thread of its own to boost: sched alone (or software thread names alone)
        // makes an empty request.
        {"audio sched without threads", "sched=3,swThreads=a+b", "", "c2.android.aac.decoder",
         "audio/mp4a-latm", false, false, -1, 0, {}},
    };
    // clang-format on
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.name);
        resetDevice();
        if (*c.ux) host::HostProperties::set("debug.codec.ux", c.ux);
        if (*c.cpu) host::HostProperties::set("debug.cpu.boost", c.cpu);
        CodecHarness local;
        local.allocate(c.component);
        sp<AMessage> format = makeFormat(c.mime);
        if (std::string(c.mime).rfind("video/", 0) == 0) format->setInt32("tp-ux-tid", 555);
        local.configure(format);
        local.start();
        std::vector<Sent> sent = test::sentBoosts();
        ASSERT_EQ(sent.size(), c.sent ? 1u : 0u);
        if (!c.sent) continue;
        EXPECT_EQ(sent[0].params.needVendorBoost, c.vendor);
        EXPECT_EQ(sent[0].params.sched, c.sched);
        EXPECT_EQ(sent[0].params.ddrFreq, c.ddr);
        EXPECT_EQ(sent[0].params.uclampThreads, c.uclamp);
        if (c.sched >= 1) {
            EXPECT_EQ(sent[0].params.threads, triples({555, ownTid(), ownTid()}, c.sched));
        } else {
            EXPECT_TRUE(sent[0].params.threads.empty());
        }
    }
}

TEST_F(TavroMediaBoostTest, AppKeyThreadsAreSortedDeduplicatedAndSkipKnownOrBadIds) {
    host::HostProperties::set("debug.codec.ux", "schedVideo=2,isVideo=1");
    h->allocate("c2.qti.avc.decoder");
    sp<AMessage> format = makeFormat("video/avc");
    format->setInt32("tp-ux-tid", 7);
    h->configure(format);
    h->start();
    TavroVideoBoost::clearRequestsForTesting();

    sp<AMessage> params = new AMessage();
    params->setString("tavro-boost-info", "12,,12,7,abc,9");
    h->codec()->signalSetParameters(params);
    std::vector<Sent> sent = test::sentBoosts();
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(sent[0].params.threads, triples({9, 12}, 2));
    EXPECT_EQ(sent[0].params.sched, 2);
    EXPECT_FALSE(sent[0].params.needVendorBoost);
    EXPECT_EQ(host::HostLog::count("'abc' is not a thread id", "TavroCCodec"), 1u);

    // Only known ids: nothing to send.
    params->setString("tavro-boost-info", "7");
    h->codec()->signalSetParameters(params);
    EXPECT_EQ(test::sentBoosts().size(), 1u);
}

TEST_F(TavroMediaBoostTest, BoostAppPostsATaskBoostOnlyWhileRunning) {
    host::HostProperties::set("debug.codec.ux",
                              "schedVideo=2,isVideo=1,appThreads=RenderThread++GLThread");
    playDecoder("c2.qti.avc.decoder", /*startIt=*/false);
    // Fires one second after configure; the codec is not running yet.
    h->advanceUs(kSecondUs);
    EXPECT_TRUE(test::sentBoosts().empty());

    // A reconfigure posts it again; this time the codec runs when it fires.
    sp<AMessage> format = makeFormat("video/avc");
    h->configure(format);
    h->start();
    TavroVideoBoost::clearRequestsForTesting();
    h->advanceUs(kSecondUs);
    std::vector<Sent> sent = test::sentBoosts();
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(sent[0].kind, TavroVideoBoost::Request::kBoostTask);
    EXPECT_EQ(sent[0].task.pid, ownPid());
    EXPECT_EQ(sent[0].task.sched, 2u);
    EXPECT_EQ(sent[0].task.threadNames, (std::vector<std::string>{"RenderThread", "GLThread"}));
}

TEST_F(TavroMediaBoostTest, ReconfigureWhileBoostedStartsOverFromAFreshRequest) {
    host::HostProperties::set("debug.codec.ux", "schedVideo=2,isVideo=1");
    playDecoder();
    ASSERT_EQ(test::sentBoosts().size(), 1u);
    host::HostProperties::set("debug.codec.ux", "schedVideo=4,isVideo=1");
    h->configure(makeFormat("video/avc"));
    h->start();
    std::vector<Sent> sent = test::sentBoosts();
    ASSERT_EQ(sent.size(), 2u);
    EXPECT_EQ(sent[1].params.sched, 4);
    EXPECT_EQ(sent[1].params.threads, triples({ownTid()}, 4));
}

// The wire format the boost service reads.
TEST(TavroBoostParcelTest, BoostParamsBytesAndRoundTrip) {
    TavroVideoBoostParams params;
    params.needVendorBoost = true;
    params.sched = 2;
    params.threads = {1, 2, 3};
    params.swThreads = {"ab"};
    Parcel parcel;
    ASSERT_EQ(params.writeToParcel(&parcel), OK);
    // clang-format off
    const std::vector<uint8_t> expected = {
            1, 0, 0, 0,                                      // needVendorBoost
            2, 0, 0, 0,                                      // sched
            0, 0, 0, 0,                                      // ddrFreq
            3, 0, 0, 0, 1, 0, 0, 0, 2, 0, 0, 0, 3, 0, 0, 0,  // threads
            0, 0, 0, 0,                                      // clusterParams
            0, 0, 0, 0,                                      // uclampThreads
            1, 0, 0, 0, 2, 0, 0, 0, 'a', 0, 'b', 0, 0, 0, 0, 0,  // swThreads
    };
    // clang-format on
    ASSERT_EQ(parcel.dataSize(), expected.size());
    EXPECT_EQ(std::vector<uint8_t>(parcel.data(), parcel.data() + parcel.dataSize()), expected);

    // Every request the codec suites send is read back and compared field by field; software
    // thread names are read back only here.
    parcel.setDataPosition(0);
    TavroVideoBoostParams back;
    ASSERT_EQ(back.readFromParcel(&parcel), OK);
    EXPECT_EQ(back.swThreads, params.swThreads);
}

TEST(TavroBoostParcelTest, NullParcelTruncationAndFailingWrites) {
    TavroVideoBoostParams params;
    params.threads = {1, 2, 3};
    TavroVideoTaskBoost task;
    task.pid = 10;
    task.sched = 3;
    task.threadNames = {"x"};
    EXPECT_EQ(params.writeToParcel(nullptr), BAD_VALUE);
    EXPECT_EQ(params.readFromParcel(nullptr), BAD_VALUE);
    EXPECT_EQ(task.writeToParcel(nullptr), BAD_VALUE);
    EXPECT_EQ(task.readFromParcel(nullptr), BAD_VALUE);

    // A parcel cut anywhere reads back as a failure, never past its end.
    Parcel whole;
    ASSERT_EQ(params.writeToParcel(&whole), OK);
    for (size_t cut = 0; cut < whole.dataSize(); cut += 4) {
        SCOPED_TRACE(cut);
        Parcel truncated;
        truncated.setData(whole.data(), cut);
        truncated.setDataPosition(0);
        TavroVideoBoostParams back;
        EXPECT_NE(back.readFromParcel(&truncated), OK);
    }

    // The first failing write ends the record with its status; nothing after it is written.
    Parcel failing;
    failing.setWriteFailAfterForTesting(2);
    EXPECT_EQ(task.writeToParcel(&failing), NO_MEMORY);
    EXPECT_EQ(failing.dataSize(), 4u);  // only pid made it
}

// The start path holds the base's state lock and takes the boost lock inside it while the
// watchdog takes the boost lock alone from a caller's thread; under TSan any inversion shows.
TEST_F(TavroMediaBoostTest, StartPathAndWatchdogOnTwoThreadsThreadTest) {
    host::HostProperties::set("debug.codec.ux", "schedVideo=2,isVideo=1");
    host::HostProperties::set("debug.cpu.boost", "limitOpRate=30,cluster0Min=1804800,isVideo=1");
    playDecoder("c2.qti.avc.decoder", /*startIt=*/false);

    std::atomic<bool> stop{false};
    std::thread watchdog([&] {
        float rate = 0.0f;
        while (!stop.load()) {
            sp<AMessage> params = new AMessage();
            params->setFloat("operating-rate", rate);
            h->codec()->signalSetParameters(params);
            rate = rate > 50.0f ? 0.0f : rate + 20.0f;
        }
    });
    for (int i = 0; i < 200; ++i) {
        h->codec()->initiateStart();
        h->runPending();
    }
    stop.store(true);
    watchdog.join();

    // Every cluster release follows a cluster send.
    int active = 0;
    for (const Sent& s : test::sentBoosts()) {
        if (s.kind == TavroVideoBoost::Request::kUnboost) {
            EXPECT_EQ(s.flags, 0x20u);
            EXPECT_GE(active, 1);
            --active;
        } else if (!s.params.clusterParams.empty()) {
            ++active;
        }
    }
}

}  // namespace
}  // namespace android
