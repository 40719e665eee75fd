// The host stand-ins of the maker's closed components: what each records, counts and answers.
#include <gtest/gtest.h>

#include <binder/Parcel.h>
#include <binder/Parcelable.h>
#include <host/HostEvents.h>
#include <media/MediaCodecBuffer.h>
#include <media/stagefright/foundation/ABuffer.h>
#include <media/stagefright/foundation/AMessage.h>
#include <tavro/PeltoEventUploadUtils.h>
#include <tavro/TavroAnalysisFPS.h>
#include <tavro/TavroFeedbackInfo.h>
#include <tavro/TavroFramework.h>
#include <tavro/TavroVideoBoost.h>

#include <functional>
#include <string>
#include <thread>
#include <vector>

namespace android {
namespace {

using Fields = std::vector<std::pair<std::string, std::string>>;
using Bytes = std::vector<uint8_t>;

class ClosedComponentsTest : public testing::Test {
  protected:
    void SetUp() override {
        host::HostEvents::clear();
        TavroVideoBoost::clearRequestsForTesting();
        TavroVideoBoost::setAvailableForTesting(true);
        TavroVideoBoost::setStatusForTesting(OK);
    }
    void TearDown() override { SetUp(); }
};

TEST_F(ClosedComponentsTest, AnalysisCountsPerFrameCallsWithoutEvents) {
    sp<TavroAnalysisFPS> analysis = new TavroAnalysisFPS();
    sp<MediaCodecBuffer> buffer = new MediaCodecBuffer(nullptr, new ABuffer(4));
    analysis->statsBufferSize(100);
    analysis->statsBufferSize(28);
    analysis->inputBuffer(buffer);
    analysis->inputBuffer(nullptr);
    analysis->renderBuffer(1000);
    analysis->discardBuffer();
    analysis->outputBuffer();
    analysis->outputBuffer();
    analysis->outputBuffer();
    (void)analysis->scanTypeExtractor(new ABuffer(4));

    TavroAnalysisFPS::Counters c = analysis->countersForTesting();
    EXPECT_EQ(c.bufferBytes, 128);
    EXPECT_EQ(c.inputBuffers, 2);
    EXPECT_EQ(c.renderedBuffers, 1);
    EXPECT_EQ(c.discardedBuffers, 1);
    EXPECT_EQ(c.outputBuffers, 3);
    EXPECT_EQ(c.scanProbes, 1);
    EXPECT_EQ(analysis->getInputBufCntTotal(), 2);
    EXPECT_EQ(analysis->getOutputBufCntTotal(), 3);
    EXPECT_TRUE(host::HostEvents::all().empty());
}

TEST_F(ClosedComponentsTest, AnalysisRecordsEveryOtherCallWithItsArguments) {
    sp<TavroAnalysisFPS> analysis = new TavroAnalysisFPS();
    sp<AMessage> format = new AMessage();
    format->setString("mime", "video/avc");
    struct Case {
        const char* name;
        std::function<void()> call;
        Fields fields;
    };
    const Case kCases[] = {
            {"reportFirstFrameTime",
             [&] { analysis->reportFirstFrameTime(123456789); },
             {{"timeNs", "123456789"}}},
            {"setDataCorruptState",
             [&] { analysis->setDataCorruptState(String8("START")); },
             {{"state", "START"}}},
            {"setVppStutter",
             [&] { analysis->setVppStutter(String8("stutter:3")); },
             {{"info", "stutter:3"}}},
            {"setInputMetEos", [&] { analysis->setInputMetEos(true); }, {{"eos", "1"}}},
            {"setHdrType", [&] { analysis->setHdrType(4); }, {{"type", "4"}}},
            {"setPlayingStatus", [&] { analysis->setPlayingStatus(); }, {}},
            {"setupVideoStutter",
             [&] { analysis->setupVideoStutter(AString("c2.tavro.avc.decoder"), format); },
             {{"component", "c2.tavro.avc.decoder"}, {"format", "{mime=video/avc}"}}},
            {"reportOverLoadInfo", [&] { analysis->reportOverLoadInfo(); }, {}},
            {"sendFPSInfo", [&] { analysis->sendFPSInfo(); }, {}},
            {"resetFPS", [&] { analysis->resetFPS(); }, {}},
            {"signalNewPlay", [&] { analysis->signalNewPlay(); }, {}},
            {"signalFlush", [&] { analysis->signalFlush(); }, {}},
            {"checkScanType", [&] { analysis->checkScanType(); }, {}},
    };
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.name);
        host::HostEvents::clear();
        c.call();
        std::vector<host::HostEvent> events = host::HostEvents::all();
        ASSERT_EQ(events.size(), 1u);
        EXPECT_EQ(events[0].kind, "analysis");
        EXPECT_EQ(events[0].name, c.name);
        EXPECT_EQ(events[0].source, analysis.get());
        EXPECT_EQ(events[0].fields, c.fields);
    }
}

TEST_F(ClosedComponentsTest, AnalysisUpdateParametersListsEachEntry) {
    sp<TavroAnalysisFPS> analysis = new TavroAnalysisFPS();
    sp<AMessage> msg = new AMessage();
    msg->setInt64("first-input-time", 1000000000123);
    msg->setInt32("feedback-id", -7);
    msg->setFloat("frame-rate", 59.94f);
    msg->setString("mime", "video/hevc");
    sp<AMessage> sub = new AMessage();
    sub->setInt32("a", 1);
    msg->setMessage("nested", sub);
    EXPECT_EQ(analysis->updateParameters(msg), OK);
    EXPECT_EQ(analysis->updateParameters(nullptr), BAD_VALUE);

    std::vector<host::HostEvent> events = host::HostEvents::named("analysis", "updateParameters");
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0].fields, (Fields{{"first-input-time", "1000000000123"},
                                        {"feedback-id", "-7"},
                                        {"frame-rate", "59.94"},
                                        {"mime", "video/hevc"},
                                        {"nested", "{a=1}"}}));
}

TEST_F(ClosedComponentsTest, AnalysisAnswersWhatTheTestSets) {
    sp<TavroAnalysisFPS> analysis = new TavroAnalysisFPS();
    EXPECT_EQ(analysis->getVideoScanType(), 0);
    EXPECT_EQ(analysis->getNeedCheckScanType(), 0);
    EXPECT_EQ(analysis->getTotalFpsUseCnt(), 0);
    analysis->setVideoScanTypeForTesting(2);
    analysis->setNeedCheckScanTypeForTesting(1);
    analysis->setTotalFpsUseCntForTesting(4321);
    EXPECT_EQ(analysis->getVideoScanType(), 2);
    EXPECT_EQ(analysis->getNeedCheckScanType(), 1);
    EXPECT_EQ(analysis->getTotalFpsUseCnt(), 4321);

    // The probe settles from the n-th call on; 0 never settles.
    sp<ABuffer> bytes = new ABuffer(8);
    for (int i = 0; i < 5; ++i) EXPECT_FALSE(analysis->scanTypeExtractor(bytes)) << i;
    sp<TavroAnalysisFPS> settling = new TavroAnalysisFPS();
    settling->setScanTypeSettlesAfterForTesting(3);
    std::vector<bool> answers;
    for (int i = 0; i < 5; ++i) answers.push_back(settling->scanTypeExtractor(bytes));
    EXPECT_EQ(answers, (std::vector<bool>{false, false, true, true, true}));
    EXPECT_EQ(settling->countersForTesting().scanProbes, 5);
}

TEST_F(ClosedComponentsTest, LastCreatedAnalysisIsTheNewestLiveOne) {
    sp<TavroAnalysisFPS> first = new TavroAnalysisFPS();
    EXPECT_EQ(TavroAnalysisFPS::lastCreatedForTesting(), first);
    sp<TavroAnalysisFPS> second = new TavroAnalysisFPS();
    EXPECT_EQ(TavroAnalysisFPS::lastCreatedForTesting(), second);
    second.clear();
    // Held weakly: a destroyed object is not kept alive, and the older one is not brought back.
    EXPECT_EQ(TavroAnalysisFPS::lastCreatedForTesting(), nullptr);
    EXPECT_NE(first, nullptr);
}

TEST_F(ClosedComponentsTest, FeedbackCallsAreEvents) {
    sp<AMessage> format = new AMessage();
    format->setString("mime", "video/avc");
    format->setInt32("width", 1280);
    TavroFeedbackInfo::pushFeedbackInfoAtCodec(77, true, false, AString("c2.tavro.avc.decoder"),
                                               format);
    TavroFeedbackInfo::pushFeedbackInfo(77, String8("timeUsage"), String8("12"), 1);
    TavroFeedbackInfo::sendFeedbackHdrPlaybackInfo(77, 21004, 5);
    TavroFeedbackInfo::sendFeedbackInfo(77);
    TavroFeedbackInfo::deleteFeedbackId(77);

    std::vector<host::HostEvent> events = host::HostEvents::ofKind("feedback");
    ASSERT_EQ(events.size(), 5u);
    EXPECT_EQ(events[0].name, "pushFeedbackInfoAtCodec");
    EXPECT_EQ(events[0].fields, (Fields{{"id", "77"},
                                        {"isVideo", "1"},
                                        {"isEncoder", "0"},
                                        {"componentName", "c2.tavro.avc.decoder"},
                                        {"format", "{mime=video/avc, width=1280}"}}));
    EXPECT_EQ(events[1].name, "pushFeedbackInfo");
    EXPECT_EQ(events[1].fields,
              (Fields{{"id", "77"}, {"key", "timeUsage"}, {"value", "12"}, {"flag", "1"}}));
    EXPECT_EQ(events[2].name, "sendFeedbackHdrPlaybackInfo");
    EXPECT_EQ(events[2].fields, (Fields{{"id", "77"}, {"eventId", "21004"}, {"hdrType", "5"}}));
    EXPECT_EQ(events[3].name, "sendFeedbackInfo");
    EXPECT_EQ(events[3].fields, (Fields{{"id", "77"}}));
    EXPECT_EQ(events[4].name, "deleteFeedbackId");
    EXPECT_EQ(events[4].fields, (Fields{{"id", "77"}}));
}

TEST_F(ClosedComponentsTest, PeltoIsOneInstanceRecordingEachCall) {
    PeltoEventUploadUtils* pelto = PeltoEventUploadUtils::getInstance();
    ASSERT_NE(pelto, nullptr);
    EXPECT_EQ(PeltoEventUploadUtils::getInstance(), pelto);
    pelto->updateTopActivity(500);
    pelto->setEvent(String8("pelto_event_video_wechat_sr"), String8("on"));
    std::vector<host::HostEvent> events = host::HostEvents::ofKind("pelto");
    ASSERT_EQ(events.size(), 2u);
    EXPECT_EQ(events[0].name, "updateTopActivity");
    EXPECT_EQ(events[0].fields, (Fields{{"intervalMs", "500"}}));
    EXPECT_EQ(events[1].name, "setEvent");
    EXPECT_EQ(events[1].fields, (Fields{{"name", "pelto_event_video_wechat_sr"}, {"value", "on"}}));
    EXPECT_EQ(events[1].source, pelto);
}

TEST_F(ClosedComponentsTest, StatsWriteRecordsEveryField) {
    EXPECT_EQ(TavroFramework::stats_write(100168, "5123", 10057, "c2.tavro.avc.encoder", -5), 0);
    EXPECT_EQ(TavroFramework::stats_write(1, nullptr, -1, nullptr, 0), 0);
    std::vector<host::HostEvent> events = host::HostEvents::named("stat", "stats_write");
    ASSERT_EQ(events.size(), 2u);
    EXPECT_EQ(events[0].fields, (Fields{{"atomId", "100168"},
                                        {"timeMs", "5123"},
                                        {"uid", "10057"},
                                        {"componentName", "c2.tavro.avc.encoder"},
                                        {"err", "-5"}}));
    EXPECT_EQ(events[1].fields, (Fields{{"atomId", "1"},
                                        {"timeMs", ""},
                                        {"uid", "-1"},
                                        {"componentName", ""},
                                        {"err", "0"}}));
}

// A parcelable small enough to spell its bytes out.
class TinyParcelable : public Parcelable {
  public:
    int32_t value = 0;
    bool flag = false;
    bool failWrite = false;
    status_t writeToParcel(Parcel* parcel) const override {
        if (failWrite) return NO_MEMORY;
        status_t err = parcel->writeInt32(value);
        if (err != OK) return err;
        return parcel->writeBool(flag);
    }
    status_t readFromParcel(const Parcel* parcel) override {
        status_t err = parcel->readInt32(&value);
        if (err != OK) return err;
        return parcel->readBool(&flag);
    }
};

TEST_F(ClosedComponentsTest, VideoBoostIsOneInstanceUnlessTheServiceIsMissing) {
    sp<TavroVideoBoost> boost = TavroVideoBoost::getInstance();
    ASSERT_NE(boost, nullptr);
    EXPECT_EQ(TavroVideoBoost::getInstance(), boost);
    TavroVideoBoost::setAvailableForTesting(false);
    EXPECT_EQ(TavroVideoBoost::getInstance(), nullptr);
    TavroVideoBoost::setAvailableForTesting(true);
    EXPECT_EQ(TavroVideoBoost::getInstance(), boost);
}

TEST_F(ClosedComponentsTest, VideoBoostKeepsTheParcelOfEachRequest) {
    sp<TavroVideoBoost> boost = TavroVideoBoost::getInstance();
    TinyParcelable params;
    params.value = 0x01020304;
    params.flag = true;
    EXPECT_EQ(boost->boost(params), OK);
    TinyParcelable task;
    task.value = -2;
    EXPECT_EQ(boost->boostTask(task), OK);
    TavroVideoBoost::setStatusForTesting(-EBUSY);
    EXPECT_EQ(boost->unboost(0x30), -EBUSY);
    TinyParcelable broken;
    broken.failWrite = true;
    EXPECT_EQ(boost->boost(broken), NO_MEMORY);  // nothing reaches the service

    std::vector<TavroVideoBoost::Request> requests = TavroVideoBoost::requestsForTesting();
    ASSERT_EQ(requests.size(), 3u);
    EXPECT_EQ(requests[0].kind, TavroVideoBoost::Request::kBoost);
    EXPECT_EQ(requests[0].parcel, (Bytes{0x04, 0x03, 0x02, 0x01, 0x01, 0, 0, 0}));
    EXPECT_EQ(requests[1].kind, TavroVideoBoost::Request::kBoostTask);
    EXPECT_EQ(requests[1].parcel, (Bytes{0xFE, 0xFF, 0xFF, 0xFF, 0, 0, 0, 0}));
    EXPECT_EQ(requests[2].kind, TavroVideoBoost::Request::kUnboost);
    EXPECT_TRUE(requests[2].parcel.empty());
    EXPECT_EQ(requests[2].flags, 0x30u);

    // The recorded parcel reads back as what was sent.
    Parcel parcel;
    ASSERT_EQ(parcel.setData(requests[0].parcel.data(), requests[0].parcel.size()), OK);
    TinyParcelable decoded;
    ASSERT_EQ(decoded.readFromParcel(&parcel), OK);
    EXPECT_EQ(decoded.value, 0x01020304);
    EXPECT_TRUE(decoded.flag);

    std::vector<host::HostEvent> events = host::HostEvents::all();
    ASSERT_EQ(events.size(), 3u);
    EXPECT_EQ(events[0].kind, "boost");
    EXPECT_EQ(events[0].name, "boost");
    EXPECT_EQ(events[0].fields, (Fields{{"parcel", "0403020101000000"}}));
    EXPECT_EQ(events[1].kind, "task_boost");
    EXPECT_EQ(events[1].name, "boostTask");
    EXPECT_EQ(events[1].fields, (Fields{{"parcel", "feffffff00000000"}}));
    EXPECT_EQ(events[2].kind, "unboost");
    EXPECT_EQ(events[2].fields, (Fields{{"flags", "0x30"}}));
    EXPECT_EQ(events[2].source, boost.get());

    TavroVideoBoost::clearRequestsForTesting();
    EXPECT_TRUE(TavroVideoBoost::requestsForTesting().empty());
}

class ClosedComponentsThreadTest : public ClosedComponentsTest {};

TEST_F(ClosedComponentsThreadTest, AnalysisAndBoostTakeCallsFromManyThreads) {
    sp<TavroAnalysisFPS> analysis = new TavroAnalysisFPS();
    constexpr int kFrames = 1000;
    std::vector<std::thread> threads;
    for (int t = 0; t < 3; ++t) {
        threads.emplace_back([&analysis] {
            for (int i = 0; i < kFrames; ++i) {
                analysis->inputBuffer(nullptr);
                analysis->outputBuffer();
                analysis->statsBufferSize(2);
            }
        });
    }
    threads.emplace_back([] {
        sp<TavroVideoBoost> boost = TavroVideoBoost::getInstance();
        for (int i = 0; i < 50; ++i) {
            boost->unboost(0x20);
            (void)TavroVideoBoost::requestsForTesting();
            (void)TavroAnalysisFPS::lastCreatedForTesting();
        }
    });
    threads.emplace_back([] {
        for (int i = 0; i < 50; ++i) sp<TavroAnalysisFPS> other = new TavroAnalysisFPS();
    });
    for (std::thread& th : threads) th.join();
    EXPECT_EQ(analysis->getInputBufCntTotal(), 3 * kFrames);
    EXPECT_EQ(analysis->getOutputBufCntTotal(), 3 * kFrames);
    EXPECT_EQ(analysis->countersForTesting().bufferBytes, 6 * kFrames);
    EXPECT_EQ(TavroVideoBoost::requestsForTesting().size(), 50u);
}

}  // namespace
}  // namespace android
