// TavroCCodec lifecycle, private messages, timers and the callback bridges, observed through the
// recording platform base, the host closed components and the log sink.
#include <gtest/gtest.h>

#include <unistd.h>

#include <climits>
#include <string>
#include <vector>

#include <binder/IPCThreadState.h>
#include <codec2/sfplugin/InputSurfaceWrapper.h>
#include <host/HostCodecCallback.h>
#include <host/HostEvents.h>
#include <host/HostListService.h>
#include <host/HostLog.h>
#include <host/HostProperties.h>

#include "support/CodecTestHarness.h"

namespace android {
namespace {

using host::HostEvent;
using test::CodecHarness;
using test::makeFormat;

constexpr int64_t kSecondUs = 1000000;

size_t countAnalysis(const std::string& name) {
    return host::HostEvents::named("analysis", name).size();
}

std::vector<std::string> baseCallNames(const CodecHarness& h) {
    std::vector<std::string> names;
    for (const CCodec::Call& call : h.codec()->callsForTesting()) {
        if (call.name != "onMessageReceived") names.push_back(call.name);
    }
    return names;
}

class TavroCCodecTest : public ::testing::Test {
  protected:
    void SetUp() override {
        test::resetHostWorld();
        h = std::make_unique<CodecHarness>();
        h->codec()->setCallback(std::make_unique<host::RecordingCodecCallback>());
    }
    void TearDown() override { h.reset(); }

    void playVideoDecoder() {
        h->allocate("c2.qti.avc.decoder");
        h->configure(makeFormat("video/avc", {{"width", 1920}, {"height", 1080}}));
        h->start();
    }

    std::unique_ptr<CodecHarness> h;
};

TEST_F(TavroCCodecTest, LifecycleReachesTheBaseInOrderWithTelemetry) {
    playVideoDecoder();
    h->analysis()->setTotalFpsUseCntForTesting(42);
    h->codec()->signalFlush();
    sp<AMessage> params = new AMessage();
    params->setInt32("vendor.x", 1);
    h->codec()->signalSetParameters(params);
    h->codec()->initiateShutdown(false);
    h->runPending();

    EXPECT_EQ(baseCallNames(*h),
              (std::vector<std::string>{"initiateAllocateComponent", "initiateConfigureComponent",
                                        "initiateStart", "signalFlush", "signalSetParameters",
                                        "initiateShutdown"}));
    EXPECT_EQ(h->codec()->stateForTesting(), 0);  // released

    // Construction, allocate, configure and start each leave their stamp with the analysis.
    std::vector<std::string> stamps;
    for (const HostEvent& e : host::HostEvents::named("analysis", "updateParameters")) {
        for (const auto& kv : e.fields) {
            if (kv.first.rfind("codec-", 0) == 0) stamps.push_back(kv.first);
        }
    }
    EXPECT_EQ(stamps, (std::vector<std::string>{"codec-create-time", "codec-allocate-out",
                                                "codec-config-in", "codec-config-out",
                                                "codec-start-in", "codec-start-out"}));
    EXPECT_EQ(countAnalysis("signalFlush"), 1u);
    EXPECT_EQ(countAnalysis("resetFPS"), 1u);
    // Shutdown pushes the time usage of a video codec.
    auto pushes = host::HostEvents::named("feedback", "pushFeedbackInfo");
    ASSERT_EQ(pushes.size(), 1u);
    EXPECT_EQ(pushes[0].field("key"), "timeUsage");
    EXPECT_EQ(pushes[0].field("value"), "42");
    EXPECT_EQ(pushes[0].field("flag"), "1");
}

TEST_F(TavroCCodecTest, DisableVideoShaperOnlyForListedQtiOrMtkEncoders) {
    struct Case {
        const char* name;
        const char* component;
        bool listed;
        bool expected;
    };
    const Case kCases[] = {
            {"qti encoder listed", "c2.qti.avc.encoder", true, true},
            {"mtk encoder listed", "c2.mtk.hevc.encoder", true, true},
            {"qti encoder not listed", "c2.qti.avc.encoder", false, false},
            {"qti decoder listed", "c2.qti.avc.decoder", true, false},
            {"software encoder listed", "c2.android.avc.encoder", true, false},
    };
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.name);
        test::resetHostWorld();
        IPCThreadState::self()->setCallingIdentityForTesting(10123, 4321);
        if (c.listed) host::HostListService::setByUid("disable-video-shaper", 10123);
        CodecHarness local;
        local.codec()->setCallback(std::make_unique<host::RecordingCodecCallback>());
        local.allocate(c.component);
        auto shaper = host::HostEvents::named("callback", "onDisableVideoShaper");
        ASSERT_EQ(shaper.size(), c.expected ? 1u : 0u);
        if (c.expected) {
            EXPECT_EQ(shaper[0].field("disable"), "1");
        }
        EXPECT_EQ(host::HostLog::count("disable video shaper by list", "TavroCCodec"),
                  c.expected ? 1u : 0u);
        EXPECT_EQ(baseCallNames(local).front(), "initiateAllocateComponent");
    }
}

TEST_F(TavroCCodecTest, FrameRateCheckStartsOnFirstInputAndStopsAfterShutdown) {
    playVideoDecoder();
    // No input yet: nothing periodic runs.
    h->advanceUs(3 * kSecondUs);
    EXPECT_EQ(countAnalysis("sendFPSInfo"), 0u);

    ASSERT_EQ(h->channel()->queueInputBuffer(test::makeFrame()), OK);
    ASSERT_EQ(h->channel()->queueInputBuffer(test::makeFrame()), OK);  // one chain only
    h->advanceUs(kSecondUs - 1);
    EXPECT_EQ(countAnalysis("sendFPSInfo"), 0u);
    h->advanceUs(1);
    EXPECT_EQ(countAnalysis("sendFPSInfo"), 1u);
    h->advanceUs(2 * kSecondUs);
    EXPECT_EQ(countAnalysis("sendFPSInfo"), 3u);

    // Shutdown keeping the component stops the check but does not reset the analysis.
    h->codec()->initiateShutdown(true);
    h->runPending();
    h->advanceUs(5 * kSecondUs);
    EXPECT_EQ(countAnalysis("sendFPSInfo"), 3u);
    EXPECT_EQ(countAnalysis("resetFPS"), 0u);
    EXPECT_EQ(h->codec()->stateForTesting(), 1);  // allocated
}

TEST_F(TavroCCodecTest, AudioCodecNeverRunsTheFrameRateCheck) {
    h->allocate("c2.android.aac.decoder");
    h->configure(makeFormat("audio/mp4a-latm", {{"sample-rate", 48000}}));
    h->start();
    ASSERT_EQ(h->channel()->queueInputBuffer(test::makeFrame()), OK);
    h->advanceUs(5 * kSecondUs);
    EXPECT_EQ(countAnalysis("sendFPSInfo"), 0u);
}

TEST_F(TavroCCodecTest, SurfaceInputArmsTheCheckAndFeedsTheAnalysis) {
    playVideoDecoder();
    auto surface = std::make_shared<InputSurfaceWrapper>();
    h->codec()->setupInputSurface(surface);
    ASSERT_NE(surface->mEmptyBufferCallback, nullptr);
    surface->emptyBufferForTesting(33000);
    EXPECT_EQ(h->analysis()->countersForTesting().inputBuffers, 1);
    h->advanceUs(kSecondUs);
    EXPECT_EQ(countAnalysis("sendFPSInfo"), 1u);

    // The surface outlives the codec: its callback does nothing then.
    h->destroy();
    surface->emptyBufferForTesting(66000);
}

TEST_F(TavroCCodecTest, SurfaceInputOfTheExcludedProcessFeedsNothing) {
    h->allocate("c2.qti.avc.encoder");
    sp<AMessage> format = makeFormat("video/avc", {{"encoder", 1}});
    format->setString("pkg-name", "com.tavro.olc");
    h->configure(format);
    auto surface = std::make_shared<InputSurfaceWrapper>();
    h->codec()->setupInputSurface(surface);
    surface->emptyBufferForTesting(1000);
    EXPECT_EQ(h->analysis()->countersForTesting().inputBuffers, 0);
    h->advanceUs(2 * kSecondUs);
    EXPECT_EQ(countAnalysis("sendFPSInfo"), 0u);
}

TEST_F(TavroCCodecTest, BoostParametersNeverReachTheBase) {
    playVideoDecoder();
    sp<AMessage> params = new AMessage();
    params->setString("tavro-boost-info", "12,13");
    params->setInt32("vendor.other", 5);
    h->codec()->signalSetParameters(params);
    for (const std::string& name : baseCallNames(*h)) EXPECT_NE(name, "signalSetParameters");
    EXPECT_EQ(countAnalysis("updateParameters"), 5u);  // only the lifecycle stamps

    sp<AMessage> plain = new AMessage();
    plain->setInt32("vendor.other", 5);
    h->codec()->signalSetParameters(plain);
    EXPECT_EQ(baseCallNames(*h).back(), "signalSetParameters");
    EXPECT_EQ(countAnalysis("updateParameters"), 6u);
}

TEST_F(TavroCCodecTest, OnWorkDoneHandsEveryWorkToTheChannel) {
    playVideoDecoder();
    std::list<std::unique_ptr<C2Work>> works;
    for (int i = 0; i < 3; ++i) works.push_back(test::makeWork());
    h->codec()->onWorkDone(works);
    EXPECT_EQ(h->channel()->countersForTesting().worksDone, 3u);
    EXPECT_EQ(h->analysis()->countersForTesting().outputBuffers, 3);
}

TEST_F(TavroCCodecTest, OverloadReportAndSurfaceChangeReachTheAnalysis) {
    playVideoDecoder();
    h->codec()->reportOverLoadInfo();
    EXPECT_EQ(countAnalysis("reportOverLoadInfo"), 1u);
    EXPECT_EQ(baseCallNames(*h).back(), "initiateStart");
    // A new surface is a new play; the base's status comes back as it is.
    h->codec()->setSurfaceStatusForTesting(BAD_VALUE);
    EXPECT_EQ(h->codec()->setSurface(nullptr, 7), BAD_VALUE);
    EXPECT_EQ(countAnalysis("signalNewPlay"), 1u);
}

// Destruction sends the playback feedback of a video codec as its kind and lists decide.
TEST_F(TavroCCodecTest, DestructionFeedbackTable) {
    struct Case {
        const char* name;
        const char* mime;
        bool encoder;
        const char* list;                   // list the calling uid is on, or nullptr
        std::vector<std::string> expected;  // feedback operations in order
    };
    // clang-format off
    const Case kCases[] = {
        {"decoder, dolby vision, listed", "video/dolby-vision", false, "video-statistics",
         {"sendFeedbackHdrPlaybackInfo", "pushFeedbackInfo", "sendFeedbackInfo",
          "deleteFeedbackId"}},
        {"decoder, sdr, not listed", "video/avc", false, nullptr, {"deleteFeedbackId"}},
        {"encoder, listed", "video/avc", true, "video-encoder-statistics",
         {"pushFeedbackInfo", "sendFeedbackInfo", "deleteFeedbackId"}},
        {"encoder, not listed: the id is left alone", "video/avc", true, nullptr, {}},
        {"audio decoder", "audio/mp4a-latm", false, "video-statistics", {}},
    };
    // clang-format on
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.name);
        test::resetHostWorld();
        if (c.list != nullptr) host::HostListService::setByUid(c.list, getuid());
        auto local = std::make_unique<CodecHarness>();
        local->allocate(c.encoder ? "c2.qti.avc.encoder" : "c2.qti.avc.decoder");
        sp<AMessage> format = makeFormat(c.mime);
        if (c.encoder) format->setInt32("encoder", 1);
        format->setInt64("feedbackKey", 777);
        local->configure(format);
        host::HostEvents::clear();
        local->destroy();
        local.reset();

        std::vector<std::string> ops;
        for (const HostEvent& e : host::HostEvents::ofKind("feedback")) {
            ops.push_back(e.name);
            EXPECT_EQ(e.field("id"), "777");
        }
        EXPECT_EQ(ops, c.expected);
    }
}

TEST_F(TavroCCodecTest, CallbackBridgeForwardsErrorsWithAStatisticAndRenderedFrames) {
    playVideoDecoder();
    // The channel's platform callback is the codec's CCodecCallbackImpl.
    std::shared_ptr<CCodecCallback> callback = h->channel()->baseCallbackForTesting();
    ASSERT_NE(callback, nullptr);

    callback->onError(-5, ACTION_CODE_FATAL);
    callback->onError(UNKNOWN_ERROR, ACTION_CODE_TRANSIENT);

    auto errors = host::HostEvents::named("callback", "onError");
    ASSERT_EQ(errors.size(), 2u);
    EXPECT_EQ(errors[0].field("err"), "-5");
    EXPECT_EQ(errors[1].field("err"), std::to_string(INT32_MIN));
    auto stats = host::HostEvents::ofKind("stat");
    ASSERT_EQ(stats.size(), 1u);
    EXPECT_EQ(stats[0].field("atomId"), "100168");
    EXPECT_EQ(stats[0].field("componentName"), "c2.qti.avc.decoder");
    EXPECT_EQ(stats[0].field("err"), "-5");
    EXPECT_EQ(host::HostLog::count("err=-5 actionCode=0", "TavroCCodec"), 1u);

    callback->onOutputFramesRendered(40000, 123456789);
    auto rendered = host::HostEvents::named("callback", "onOutputFramesRendered");
    ASSERT_EQ(rendered.size(), 1u);
    EXPECT_EQ(rendered[0].field("mediaTimeUs"), "40000");
    EXPECT_EQ(rendered[0].field("renderTimeNs"), "123456789");
}

class TavroCCodecDeathTest : public TavroCCodecTest {};

TEST_F(TavroCCodecDeathTest, AllocateWithoutCodecInfoAborts) {
    EXPECT_DEATH(
            {
                sp<AMessage> msg = new AMessage();
                h->codec()->initiateAllocateComponent(msg);
            },
            "CHECK\\(msg->findObject\\(\"codecInfo\", &codecInfo\\)\\) failed\\.");
}

}  // namespace
}  // namespace android
