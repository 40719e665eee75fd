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
#include <vector>

namespace android {
namespace {

using Bytes = std::vector<uint8_t>;
using Texts = std::vector<std::string>;

// "kind/name(key=value;...)" for each event.
Texts texts(const std::vector<host::HostEvent>& events) {
    Texts out;
    for (const host::HostEvent& e : events) {
        std::string text = e.kind + "/" + e.name + "(";
        for (const auto& [key, value] : e.fields) text += key + "=" + value + ";";
        out.push_back(text + ")");
    }
    return out;
}

class ClosedComponentsTest : public testing::Test {
  protected:
    void SetUp() override {
        host::HostEvents::clear();
        TavroVideoBoost::clearRequestsForTesting();
        TavroVideoBoost::setAvailableForTesting(true);
        TavroVideoBoost::setStatusForTesting(OK);
    }
    void TearDown() override { SetUp(); }
    sp<TavroAnalysisFPS> mAnalysis = new TavroAnalysisFPS();
};

TEST_F(ClosedComponentsTest, AnalysisRecordsEveryOtherCallWithItsArguments) {
    sp<TavroAnalysisFPS> a = mAnalysis;
    sp<AMessage> format = new AMessage();
    format->setString("mime", "video/avc");
    sp<AMessage> params = new AMessage();
    params->setInt64("first-input-time", 1000000000123);
    params->setInt32("feedback-id", -7);
    params->setFloat("frame-rate", 59.94f);
    params->setString("mime", "video/hevc");
    sp<AMessage> sub = new AMessage();
    sub->setInt32("a", 1);
    params->setMessage("nested", sub);
    struct Case {
        std::function<void()> call;
        const char* text;
    };
    const Case kCases[] = {
            {[&] { a->reportFirstFrameTime(123456789); },
             "reportFirstFrameTime(timeNs=123456789;)"},
            {[&] { a->setDataCorruptState(String8("START")); },
             "setDataCorruptState(state=START;)"},
            {[&] { a->setVppStutter(String8("stutter:3")); }, "setVppStutter(info=stutter:3;)"},
            {[&] { a->setInputMetEos(true); }, "setInputMetEos(eos=1;)"},
            {[&] { a->setHdrType(4); }, "setHdrType(type=4;)"},
            {[&] { a->setPlayingStatus(); }, "setPlayingStatus()"},
            {[&] { a->setupVideoStutter(AString("c2.tavro.avc.decoder"), format); },
             "setupVideoStutter(component=c2.tavro.avc.decoder;format={mime=video/avc};)"},
            {[&] { a->reportOverLoadInfo(); }, "reportOverLoadInfo()"},
            {[&] { a->sendFPSInfo(); }, "sendFPSInfo()"},
            {[&] { a->resetFPS(); }, "resetFPS()"},
            {[&] { a->signalNewPlay(); }, "signalNewPlay()"},
            {[&] { a->signalFlush(); }, "signalFlush()"},
            {[&] { a->checkScanType(); }, "checkScanType()"},
            {[&] { EXPECT_EQ(a->updateParameters(params), OK); },
             "updateParameters(first-input-time=1000000000123;feedback-id=-7;frame-rate=59.94;"
             "mime=video/hevc;nested={a=1};)"},
            {[&] { EXPECT_EQ(a->updateParameters(nullptr), BAD_VALUE); }, nullptr},
    };
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.text ? c.text : "nothing");
        host::HostEvents::clear();
        c.call();
        std::vector<host::HostEvent> events = host::HostEvents::all();
        EXPECT_EQ(texts(events), c.text ? Texts{std::string("analysis/") + c.text} : Texts{});
        for (const host::HostEvent& e : events) EXPECT_EQ(e.source, a.get());
    }
}

TEST_F(ClosedComponentsTest, FeedbackPeltoAndStatsCallsAreEvents) {
    sp<AMessage> format = new AMessage();
    format->setString("mime", "video/avc");
    format->setInt32("width", 1280);
    TavroFeedbackInfo::pushFeedbackInfoAtCodec(77, true, false, AString("c2.tavro.avc.decoder"),
                                               format);
    TavroFeedbackInfo::pushFeedbackInfo(77, String8("timeUsage"), String8("12"), 1);
    TavroFeedbackInfo::sendFeedbackHdrPlaybackInfo(77, 21004, 5);
    TavroFeedbackInfo::sendFeedbackInfo(77);
    TavroFeedbackInfo::deleteFeedbackId(77);

    PeltoEventUploadUtils* pelto = PeltoEventUploadUtils::getInstance();
    ASSERT_NE(pelto, nullptr);
    EXPECT_EQ(PeltoEventUploadUtils::getInstance(), pelto);
    pelto->updateTopActivity(500);
    pelto->setEvent(String8("pelto_event_video_wechat_sr"), String8("on"));

    EXPECT_EQ(TavroFramework::stats_write(100168, "5123", 10057, "c2.tavro.avc.encoder", -5), 0);
    EXPECT_EQ(TavroFramework::stats_write(1, nullptr, -1, nullptr, 0), 0);

    std::vector<host::HostEvent> events = host::HostEvents::all();
    EXPECT_EQ(texts(events),
              (Texts{"feedback/pushFeedbackInfoAtCodec(id=77;isVideo=1;isEncoder=0;"
                     "componentName=c2.tavro.avc.decoder;format={mime=video/avc, width=1280};)",
                     "feedback/pushFeedbackInfo(id=77;key=timeUsage;value=12;flag=1;)",
                     "feedback/sendFeedbackHdrPlaybackInfo(id=77;eventId=21004;hdrType=5;)",
                     "feedback/sendFeedbackInfo(id=77;)", "feedback/deleteFeedbackId(id=77;)",
                     "pelto/updateTopActivity(intervalMs=500;)",
                     "pelto/setEvent(name=pelto_event_video_wechat_sr;value=on;)",
                     "stat/stats_write(atomId=100168;timeMs=5123;uid=10057;"
                     "componentName=c2.tavro.avc.encoder;err=-5;)",
                     "stat/stats_write(atomId=1;timeMs=;uid=-1;componentName=;err=0;)"}));
    ASSERT_EQ(events.size(), 9u);
    EXPECT_EQ(events[6].source, pelto);
}

// A parcelable small enough to spell its bytes out.
class TinyParcelable : public Parcelable {
  public:
    TinyParcelable(int32_t v, bool f, bool fail = false) : value(v), flag(f), failWrite(fail) {}
    int32_t value;
    bool flag, failWrite;
    status_t writeToParcel(Parcel* parcel) const override {
        if (failWrite) return NO_MEMORY;
        status_t err = parcel->writeInt32(value);
        return err != OK ? err : parcel->writeBool(flag);
    }
    status_t readFromParcel(const Parcel*) override { return INVALID_OPERATION; }
};

TEST_F(ClosedComponentsTest, VideoBoostKeepsTheParcelOfEachRequest) {
    // One instance, unless the service is missing.
    sp<TavroVideoBoost> boost = TavroVideoBoost::getInstance();
    ASSERT_NE(boost, nullptr);
    TavroVideoBoost::setAvailableForTesting(false);
    EXPECT_EQ(TavroVideoBoost::getInstance(), nullptr);
    TavroVideoBoost::setAvailableForTesting(true);
    EXPECT_EQ(TavroVideoBoost::getInstance(), boost);

    EXPECT_EQ(boost->boost(TinyParcelable(0x01020304, true)), OK);
    EXPECT_EQ(boost->boostTask(TinyParcelable(-2, false)), OK);
    TavroVideoBoost::setStatusForTesting(-EBUSY);
    EXPECT_EQ(boost->unboost(0x30), -EBUSY);
    // A parcel that cannot be written never reaches the service.
    EXPECT_EQ(boost->boost(TinyParcelable(0, false, true)), NO_MEMORY);

    // Each request keeps its kind, parcel bytes and flags; the events spell the same.
    std::vector<TavroVideoBoost::Request> requests = TavroVideoBoost::requestsForTesting();
    ASSERT_EQ(requests.size(), 3u);
    EXPECT_EQ((std::vector<int>{requests[0].kind, requests[1].kind, requests[2].kind}),
              (std::vector<int>{TavroVideoBoost::Request::kBoost,
                                TavroVideoBoost::Request::kBoostTask,
                                TavroVideoBoost::Request::kUnboost}));
    EXPECT_EQ(requests[0].parcel, (Bytes{0x04, 0x03, 0x02, 0x01, 0x01, 0, 0, 0}));
    EXPECT_EQ(requests[2].flags, 0x30u);

    std::vector<host::HostEvent> events = host::HostEvents::all();
    EXPECT_EQ(texts(events), (Texts{"boost/boost(parcel=0403020101000000;)",
                                    "task_boost/boostTask(parcel=feffffff00000000;)",
                                    "unboost/unboost(flags=0x30;)"}));
    ASSERT_EQ(events.size(), 3u);
    EXPECT_EQ(events[2].source, boost.get());
}

}  // namespace
}  // namespace android
