// Matching: condition x media -> applies, the two comparisons, the fill operations with their
// video/audio asymmetry, and the fatal area check.
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "WhiteListTestSupport.h"

namespace android {
namespace {

using test::audio;
using test::dump;
using test::encoder;
using test::video;
using test::with;

class BoostConditionTest : public test::WhiteListWorld {
  protected:
    void SetUp() override {
        WhiteListWorld::SetUp();
        ASSERT_TRUE(mMgr->init());  // platform qcom / QXSM8550 / P23001
    }
    static std::shared_ptr<MediaBoostInfo> rule(const std::string& text) {
        auto info = std::make_shared<MediaBoostInfo>();
        EXPECT_TRUE(parseBoostInfo(text, info));
        info->boostStrInfo = text;
        return info;
    }
};

TEST_F(BoostConditionTest, Comparisons) {
    const struct {
        const char* config;
        const char* actual;
        bool want;
    } kStrings[] = {
            {"", "SM8550", true},
            {"SM8550", "", true},
            {"QXSM8475+QXSM8550", "QXSM8550", true},
            {"QXSM8475+QXSM8550", "SM8550", true},
            {"QXSM8475+QXSM8550", "8475+QX", true},
            {"QXSM8475", "QXSM8550", false},
            {"qcom", "QCOM", false},
    };
    for (const auto& c : kStrings) {
        SCOPED_TRACE(std::string(c.config) + " / " + c.actual);
        EXPECT_EQ(c.want, cmpStrConfigParam(c.config, c.actual));
    }
    const struct {
        int32_t config, actual;
        bool want;
    } kInts[] = {
            {2000000, 0, true},
            {2000000, 1500000, false},
            {2000000, 2000000, true},
            {0, 5, true},
            {-5, 1, true},
            {10, -3, true},
    };
    for (const auto& c : kInts) {
        SCOPED_TRACE(std::to_string(c.config) + " / " + std::to_string(c.actual));
        EXPECT_EQ(c.want, cmpIntConfigParam(c.config, c.actual));
    }
}

// Each case at level 5, where nothing is explained, and at level 7, where `line` explains it.
TEST_F(BoostConditionTest, ConditionTimesMedia) {
    using M = TavroMediaInfo;
    const struct {
        const char* rule;
        TavroMediaInfo media;
        bool want;
        const char* line = nullptr;
    } kCases[] = {
            {"x", video(), true},  // every field at its default fits everything
            {"x", audio(), true, "Precheck, need to boost[audio]"},
            {"x", encoder(), true},
            {"cpu=QXSM8475", video(), false, "Config info: [QXSM8475], media info: [QXSM8550]"},
            {"vendor=qcom,prj=P23001+P23002", video(), true},
            {"prj=P9", audio(), false},
            {"mime=video/avc+video/hevc", video(), true},
            {"mime=video/hevc", video(), false},
            {"comp=c2.qti.avc.decoder+c2.qti.hevc.decoder", video(), true},
            {"comp=c2.qti", video(), false},
            {"bitrate=8000001", video(), false, "Config info: [8000001], media info: [8000000]"},
            {"bitrate=8000001", with(video(), &M::bitrate, 0), true},
            {"codecId=0", with(video(), &M::codecId, 9), true},
            {"codecId=9", with(video(), &M::codecId, 9), true},
            {"codecId=5", with(video(), &M::codecId, 9), false,
             "Precheck, Media codecId: 9, need boost codecId: 5"},
            {"isEncoder=0", video(), true},
            {"isEncoder=1", video(), false,
             "Precheck, Media isEncoder: 0, need boost isEncoder: 1"},
            {"limitWidth=1920,limitHeight=1080", video(), true},
            {"limitWidth=1920,limitHeight=1080", video(1280, 720), false,
             "Config info: [2073600], media info: [921600]"},
            {"limitWidth=1920", video(640, 480), true},  // area 0: no limit
            {"limitWidth=3840,limitHeight=2160", video(0, 0), true},
            {"isVideo=1,sampleRate=96000", video(), true},
            {"sampleRate=48000", audio(), true},
            {"sampleBits=24", audio(), false},
            {"channelCount=6", audio(), false},
            {"limitWidth=3840,limitHeight=2160", audio(), true},
            {"isVideo=0", video(), false,
             "Current track is [video], target is [0](1:video, 0: audio, -1:V/A)"},
            {"isVideo=1", audio(), false,
             "Current track is [audio], target is [1](1:video, 0: audio, -1:V/A)"},
            {"x", TavroMediaInfo(), false},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(std::string(c.rule) + " / " + c.media.component + " " +
                     std::to_string(c.media.width) + "x" + std::to_string(c.media.height));
        for (int level : {5, 7}) {
            setLogLevel(level);
            host::HostLog::clear();
            EXPECT_EQ(c.want,
                      checkPrecondition(mMgr->platform(), c.media, rule(c.rule)->condition));
            if (c.line != nullptr) {
                EXPECT_EQ(level == 7 ? 1u : 0u, logged(c.line));
            }
        }
    }
}

TEST_F(BoostConditionTest, FillOperationsAndTheirTrackAsymmetry) {
    mProc.addThread(static_cast<int32_t>(getpid()), "501", "NuPlayerRender");
    const std::string decision =
            ",sched=2,schedVideo=4,vendorBoost=1,threadName=Render,ddrFreq=5,appThreads=G,"
            "swThreads=aac,preferIdle=1,cluster0Min=1804800,pelt=8,uclampTids=0+5";
    // threadName is never copied: the names arrive as ids.
    const std::string filled = "ddrFreq=5 vendorBoost=1 appThreads=G tids=[501] swThreads=[aac]";
    const std::string cluster = "pelt=8 preferIdle=1 uclamp=[0+5] minFreq={0:1804800}";
    const struct {
        const char* isVideo;
        TavroMediaInfo media;
        std::string ux;
        std::string cluster;
    } kCases[] = {
            {"-1", video(), "schedVideo=4 schedAudio=2 " + filled, cluster},
            {"-1", audio(), "schedVideo=4 schedAudio=2 " + filled, "limitOpRate=77"},
            {"0", audio(), "schedVideo=4 schedAudio=2 " + filled, cluster},
            {"1", video(), "schedVideo=4 " + filled, cluster},
            {"0", video(), "schedVideo=99 tids=[9]", "limitOpRate=77"},  // no fit: untouched
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(std::string(c.isVideo) + " / " + c.media.mime);
        TavroUxInfo ux;
        ux.schedVideo = 99;
        ux.tids = {9};
        TavroClusterInfo clusterOut;
        clusterOut.limitOpRate = 77;
        auto info = rule(std::string("isVideo=") + c.isVideo + decision);
        getUxInfo(mMgr->platform(), c.media, info, ux);
        getClusterInfo(mMgr->platform(), c.media, info, clusterOut);
        EXPECT_EQ(c.ux, dump(ux));
        EXPECT_EQ(c.cluster, dump(clusterOut));
    }
    // A null entry or one without a string changes nothing.
    auto empty = rule("schedVideo=3,preferIdle=1");
    empty->boostStrInfo.clear();
    for (const auto& info : {std::shared_ptr<MediaBoostInfo>(), empty}) {
        TavroUxInfo ux;
        TavroClusterInfo clusterOut;
        getUxInfo(mMgr->platform(), video(), info, ux);
        getClusterInfo(mMgr->platform(), video(), info, clusterOut);
        EXPECT_EQ("", dump(ux) + dump(clusterOut));
    }
}

TEST(BoostConditionDeathTest, AreaThatDoesNotFitIn32BitsIsFatal) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    BoostConditionInfo hugeLimit;
    hugeLimit.limitWidth = 65536;
    hugeLimit.limitHeight = 32768;
    EXPECT_DEATH(checkAVInfo(video(), hugeLimit),
                 "Configured area 65536 x 32768 does not fit in 32 bits");
    EXPECT_DEATH(checkAVInfo(video(100000, -100000), BoostConditionInfo()),
                 "Media area 100000 x -100000 does not fit in 32 bits");
    // Just below the limit the areas are compared as usual: 2147418112 is not reached by 1080p.
    hugeLimit.limitHeight = 32767;
    EXPECT_FALSE(checkAVInfo(video(), hugeLimit));
}

}  // namespace
}  // namespace android
