// The configure pipeline: who the client is and what the stream is, the pipeline's own rules
// (bitrate mode, output delay, Dolby Vision, wide colour gamut, thumbnails, initial QP, feedback,
// MediaTek colour convert, start-up operating rate, AAC batch mode) and the order of the steps,
// observed in the format the platform base receives, the closed components' calls and the log.
#include <gtest/gtest.h>

#include <unistd.h>

#include <string>
#include <vector>

#include <host/HostEvents.h>
#include <host/HostListService.h>
#include <host/HostLog.h>
#include <log/log.h>
#include <media/MediaCodecBuffer.h>
#include <media/stagefright/foundation/ABuffer.h>
#include <utils/Errors.h>

#include "sfplugin/TavroConfigureTestSupport.h"

namespace android {
namespace {

using namespace test;
using host::HostEvent;
using host::HostEvents;

constexpr char kAvcEncoder[] = "c2.qti.avc.encoder";
constexpr char kAvcDecoder[] = "c2.qti.avc.decoder";
constexpr char kMtkDecoder[] = "c2.mtk.avc.decoder";
constexpr char kAacEncoder[] = "c2.android.aac.encoder";
const std::vector<Key> kEncoderFormat = {i32("encoder", 1)};

class TavroCCodecConfigureTest : public ConfigureFixture {
  protected:
    // Renders one output buffer through the channel and returns every parameter message the
    // base received so far.
    std::vector<sp<AMessage>> renderAndCollect() {
        sp<MediaCodecBuffer> buffer = new MediaCodecBuffer(new AMessage(), new ABuffer(16));
        mHarness->channel()->renderOutputBuffer(buffer, 1000000);
        mHarness->runPending();
        return setParameterCalls();
    }
};

TEST_F(TavroCCodecConfigureTest, EncoderKeyAndMimeDecideTheKind) {
    struct KindCase {
        const char* name;
        const char* mime;  // nullptr: no "mime" key
        std::vector<Key> input;
        bool encoder;
        bool video;
    };
    // clang-format off
    const KindCase cases[] = {
        {"encoder 0 is still an encoder", "video/avc", {i32("encoder", 0)}, true, true},
        {"encoder as int64", "video/avc", {i64("encoder", 1)}, true, true},
        {"capitals count as video", "VIDEO/AVC", {}, false, true},
        {"audio", "audio/mp4a-latm", {}, false, false},
        {"prefix needs the slash", "videos/avc", {}, false, false},
        {"no mime", nullptr, {}, false, false},
    };
    // clang-format on
    for (const KindCase& c : cases) {
        SCOPED_TRACE(c.name);
        SetUp();
        sp<AMessage> format = appFormat(c.mime ? c.mime : "", c.input);
        if (c.mime == nullptr) format->removeEntryByName("mime");
        sp<AMessage> out = configure(kAvcDecoder, format);
        EXPECT_EQ(1u, logCount(std::string("configEncoderFilter enter, mIsEncoder: ") +
                                       (c.encoder ? "1" : "0"),
                               ANDROID_LOG_INFO));
        EXPECT_EQ(c.video ? 1u : 0u, HostEvents::named("analysis", "setupVideoStutter").size());
        // Only a video decoder leaves a post-processing decision.
        EXPECT_EQ(c.video && !c.encoder, out->contains("vendor.tavro.vpp.white.list.value"));
    }
}

TEST_F(TavroCCodecConfigureTest, CallingUidComesFromTheFormatOrTheProcess) {
    const std::vector<Key> range = {i32("video-qp-i-min", 20), i32("video-qp-p-min", 20),
                                    i32("video-qp-b-min", 20), i32("video-qp-i-max", 51),
                                    i32("video-qp-p-max", 51), i32("video-qp-b-max", 51)};
    struct UidCase {
        const char* name;
        int64_t listedUid;
        bool keepCallingUid;
        bool int32Uid;
        std::vector<Key> changed;
    };
    const UidCase cases[] = {
            {"int64 calling-uid", kAppUid, true, false, range},
            {"own uid without calling-uid", static_cast<int64_t>(getuid()), false, false, range},
            {"int32 calling-uid is not read", kAppUid, false, true, {}},
    };
    for (const UidCase& c : cases) {
        SCOPED_TRACE(c.name);
        SetUp();
        setLists({byUid("encode-qp-range", c.listedUid, "min=20")});
        sp<AMessage> format = appFormat("video/avc", kEncoderFormat);
        if (!c.keepCallingUid) format->removeEntryByName("calling-uid");
        if (c.int32Uid) format->setInt32("calling-uid", static_cast<int32_t>(kAppUid));
        expectChanges(format, configure(kAvcEncoder, format), c.changed);
    }
}

TEST_F(TavroCCodecConfigureTest, ProcessNameFromThePackageOrProc) {
    const std::string root = useProcRoot();
    mProc->write(ProcTree::ownPid() + "/cmdline", std::string("com.proc.player\0-x\0", 19));
    const Props odm = {{"ro.tavro.vpplisttype", "odm"},
                       {"ro.tavro.vpplist.odm.value", "com.proc.player#7#com.example.app#9"}};
    for (bool withPackage : {true, false}) {
        SCOPED_TRACE(withPackage ? "package name" : "process name");
        SetUp();
        setProcessNameRootForTesting(root);
        setProcRootForTesting(root);
        setProps(odm);
        sp<AMessage> format = appFormat("video/avc", {});
        if (!withPackage) format->removeEntryByName("pkg-name");
        expectChanges(format, configure(kAvcDecoder, format), {white(withPackage ? 9 : 7)});
    }
}

// clang-format off
TEST_F(TavroCCodecConfigureTest, BitrateModeAndOutputDelayForVideoEncoders) {
    auto mode = [](const char* v, int64_t uid = kBinderUid) {
        return std::vector<ListEntry>{byUid("encoder-bitrate-mode", uid, v)};
    };
    auto delay = [](const char* v) {
        return std::vector<ListEntry>{byUid("codec2-output-delay", kBinderUid, v)};
    };
    const Key cq = i32("bitrate-mode", 0);
    runCases(kAvcEncoder, "video/avc", kEncoderFormat, {
        {"constant quality without quality", mode("2"), {cq}, {i32("bitrate-mode", 2)}},
        {"quality given", mode("2"), {cq, i32("quality", 80)}, {}},
        {"mode 1 never consults the list", mode("2"), {i32("bitrate-mode", 1)}, {}},
        {"no mode", mode("2"), {}, {}},
        {"listed for the app uid, looked up by the binder uid", mode("2", kAppUid), {cq}, {}},
        {"huge value keeps its low 32 bits", mode("99999999999"), {cq},
         {i32("bitrate-mode", 1215752191)}},
        {"output delay", delay("4"), {}, {i32("tavro.output_delay", 4)}},
        {"output delay not a number", delay("x"), {}, {i32("tavro.output_delay", 0)}},
        {"output delay empty", delay(""), {}, {}},
        // A value without digits is written as 0, which shows only in the log for a mode of 0.
        {"mode without digits", mode("cq"), {cq}, {}, OK, {},
         {{"bitrateMode is 0", ANDROID_LOG_DEBUG}}},
    });
    runCases(kAvcDecoder, "video/avc", {}, {
        {"decoder", mode("2") + delay("4"), {cq}, {white(0)}},
    });
    runCases(kAacEncoder, "audio/mp4a-latm", kEncoderFormat, {
        {"audio encoder", mode("2") + delay("4"), {cq}, {}},
    });
}

TEST_F(TavroCCodecConfigureTest, DolbyVisionKeysOnTwoMediaTekChips) {
    const ListEntry black = byUid("dolbyvision-downscale-black-list", kBinderUid);
    const ListEntry yuv = byUid("dolbyvision-output-yuv-list", kBinderUid);
    const Key blackKey = i64("vendor.tavro.dolby.black.list.value", 1);
    const Key yuvKey = i64("vendor.tavro.dolby.output.yuv.value", 1);
    const std::vector<Key> base = {i32("vendor.ext-dec-bytebuffer-mode.value", 1), white(0)};
    auto hw = [](const char* name) { return Props{{"ro.hardware", name}}; };
    const char* dv = "video/dolby-vision";
    auto run = [&](const char* mime, const std::vector<Case>& cases) {
        runCases(kMtkDecoder, mime, {}, cases);
    };
    run(dv, {
        {"mt6989, both lists", {black, yuv}, {}, std::vector<Key>{blackKey, yuvKey} + base, OK,
         hw("mt6989")},
        {"mt6991, black list only", {black}, {}, std::vector<Key>{blackKey} + base, OK,
         hw("mt6991")},
        {"mt6991, yuv list only", {yuv}, {}, std::vector<Key>{yuvKey} + base, OK, hw("mt6991")},
        {"listed by the app uid", {byUid(black.list.c_str(), kAppUid)}, {}, base, OK,
         hw("mt6989")},
        {"longer chip name", {black, yuv}, {}, base, OK, hw("mt69890")},
        {"other chip", {black, yuv}, {}, base, OK, hw("mt6983")},
    });
    run("video/hevc", {{"not dolby vision", {black, yuv}, {}, {white(0)}, OK, hw("mt6989")}});
    // Contains "dolby-vision" but does not begin with "video/dolby-vision": HDR type 5 and the
    // chip keys, but neither the byte-buffer mode nor the post-processing veto.
    run("video/x-dolby-vision", {
        {"dolby vision inside another mime", {black, yuv}, {}, {blackKey, yuvKey, white(0)}, OK,
         hw("mt6989")},
    });
    // With a surface the decoder renders itself: no byte-buffer mode.
    SetUp();
    sp<AMessage> format = appFormat(dv, {});
    format->setObject("native-window", new AMessage());  // any object stands for the surface
    expectChanges(format, configure(kMtkDecoder, format), {white(0)});
    EXPECT_EQ(1u, logCount("current is dolby-vision video stream", ANDROID_LOG_DEBUG));
}

TEST_F(TavroCCodecConfigureTest, InitialQpForListedEncodersOfAnyVendor) {
    const std::vector<Key> qp = {i32("vendor.qti-ext-enc-initial-qp.qp-i-enable", 1),
                                 i32("vendor.qti-ext-enc-initial-qp.qp-i", 10),
                                 i32("vendor.qti-ext-enc-initial-qp.qp-p-enable", 1),
                                 i32("vendor.qti-ext-enc-initial-qp.qp-p", 10),
                                 i32("vendor.qti-ext-enc-initial-qp.qp-b-enable", 1),
                                 i32("vendor.qti-ext-enc-initial-qp.qp-b", 10)};
    const std::vector<ListEntry> listed = {byUid("qcom-encode-optimization", kBinderUid)};
    runCases(kAvcEncoder, "video/avc", kEncoderFormat, {
        {"video encoder", listed, {}, qp, OK, {}, {{"set init qp", ANDROID_LOG_INFO}}},
        {"app's own QP overwritten", listed, {i32("vendor.qti-ext-enc-initial-qp.qp-i", 30)}, qp},
        {"listed by the app uid", {byUid("qcom-encode-optimization", kAppUid)}, {}, {}},
    });
    runCases("c2.mtk.avc.encoder", "video/avc", kEncoderFormat,
             {{"MediaTek encoder", listed, {}, qp}});
    runCases(kAacEncoder, "audio/mp4a-latm", kEncoderFormat, {{"audio encoder", listed, {}, qp}});
    runCases(kAvcDecoder, "video/avc", {},
             {{"decoder", listed, {}, {white(0)}, OK, {}, {{"set init qp", 0, 0}}}});
}

TEST_F(TavroCCodecConfigureTest, MediaTekColourConvert) {
    const std::vector<Key> size = {i32("width", 1920), i32("height", 1080)};
    const Key cc = i32("vendor.mtk.ext.vdec.force.cc.value", 1);
    const Key outCc = i32("vendor.mtk.ext.vdec.force.output.cc.value", 1);
    const std::vector<ListEntry> appUid = {byUid("mtkomx-color-convert", kAppUid)};
    auto hw = [](const char* name) { return Props{{"ro.hardware", name}}; };
    runCases(kMtkDecoder, "video/avc", {}, {
        {"mt6877 gets both keys", appUid, size, {cc, outCc, white(0)}, OK, hw("mt6877"),
         {{"set force mtk vdec color convert, uid:10200", ANDROID_LOG_DEBUG, 2}}},
        {"mt6893", appUid, size, {cc, white(0)}, OK, hw("mt6893")},
        {"mt6779", appUid, size, {cc, white(0)}, OK, hw("mt6779")},
        {"mt6835", appUid, size, {outCc, white(0)}, OK, hw("mt6835")},
        {"mt6768", appUid, size, {outCc, white(0)}, OK, hw("mt6768")},
        {"longer name", appUid, size, {white(0)}, OK, hw("mt68930")},
        {"capitals", appUid, size, {white(0)}, OK, hw("MT6893")},
        {"app pid listed", {byPid("mtkomx-color-convert", kAppPid)}, size,
         {cc, outCc, white(0)}, OK, hw("mt6877")},
        {"binder pid when the app pid is 0", {byPid("mtkomx-color-convert", kBinderPid)},
         size + std::vector<Key>{i64("calling-pid", 0)}, {cc, outCc, white(0)}, OK, hw("mt6877")},
        {"binder uid when the app uid is 0", {byUid("mtkomx-color-convert", kBinderUid)},
         size + std::vector<Key>{i64("calling-uid", 0)}, {cc, outCc, white(0)}, OK, hw("mt6877")},
        {"binder uid is not the app's", {byUid("mtkomx-color-convert", kBinderUid)}, size,
         {white(0)}, OK, hw("mt6877")},
        {"width 0", appUid, {i32("width", 0), i32("height", 1080)}, {white(0)}, OK, hw("mt6877")},
        {"no height", appUid, {i32("width", 1920)}, {white(0)}, OK, hw("mt6877")},
    });
    runCases(kAvcDecoder, "video/avc", {}, {
        {"other vendor", appUid, size, {white(0)}, OK, hw("mt6877")},
    });
    runCases("c2.mtk.avc.encoder", "video/avc", kEncoderFormat, {
        {"encoder", appUid, size, {}, OK, hw("mt6877")},
    });
}

TEST_F(TavroCCodecConfigureTest, AacBatchModeForListedActivities) {
    const std::vector<ListEntry> listed = {byActivity("codec-batch-mode", "")};
    runCases(kAacEncoder, "audio/mp4a-latm", kEncoderFormat, {
        {"property slots", listed, {}, {i32("tavro.batchmode.num", 40)}, OK,
         {{"debug.stagefright.TSC", "40"}}},
        {"property not a number", listed, {}, {i32("tavro.batchmode.num", 25)}, OK,
         {{"debug.stagefright.TSC", "x4"}}},
        {"not listed", {}, {}, {}},
        {"default slots", listed, {}, {i32("tavro.batchmode.num", 25)}},
    });
    // The last case's log.
    EXPECT_EQ(1u, host::HostLog::count("component:c2.android.aac.encoder, set BMSlotCount:25"));
    runCases("c2.qti.aac.encoder", "audio/mp4a-latm", kEncoderFormat,
             {{"other component", listed, {}, {}}});
}
// clang-format on

TEST_F(TavroCCodecConfigureTest, ThumbnailsSendNoHdrPlaybackFeedback) {
    struct ThumbCase {
        const char* name;
        std::vector<Key> input;
        size_t hdrFeedback;  // sendFeedbackHdrPlaybackInfo calls at destruction
    };
    // clang-format off
    const ThumbCase cases[] = {
        {"playback", {}, 1},
        {"thumbnail-mode 1", {i32("thumbnail-mode", 1)}, 0},
        {"MediaTek key 1", {i32("vendor.mtk.vdec.thumbnail.mode.value", 1)}, 0},
        {"MediaTek key decides alone",
         {i32("vendor.mtk.vdec.thumbnail.mode.value", 0), i32("thumbnail-mode", 1)}, 1},
        {"thumbnail-mode 2", {i32("thumbnail-mode", 2)}, 1},
        {"thumbnail-mode as int64", {i64("thumbnail-mode", 1)}, 1},
    };
    // clang-format on
    for (const ThumbCase& c : cases) {
        SCOPED_TRACE(c.name);
        SetUp();
        configure(kMtkDecoder, appFormat("video/dolby-vision", c.input));
        mHarness->destroy();
        const std::vector<HostEvent> sent =
                HostEvents::named("feedback", "sendFeedbackHdrPlaybackInfo");
        ASSERT_EQ(c.hdrFeedback, sent.size());
        if (!sent.empty()) {
            EXPECT_EQ("21004", sent[0].field("eventId"));
            EXPECT_EQ("5", sent[0].field("hdrType"));
        }
    }
}

TEST_F(TavroCCodecConfigureTest, DisableWcgOnlyForOne) {
    // clang-format off
    const std::pair<std::vector<Key>, bool> cases[] = {
        {{i32("disable-wcg", 1)}, true}, {{i32("disable-wcg", 0)}, false},
        {{i32("disable-wcg", 2)}, false}, {{i64("disable-wcg", 1)}, false}, {{}, false}};
    // clang-format on
    for (size_t row = 0; row < std::size(cases); ++row) {
        SCOPED_TRACE(row);
        const auto& [input, disabled] = cases[row];
        SetUp();
        configure(kAvcDecoder, appFormat("video/hevc", input));
        EXPECT_EQ(disabled, mHarness->channel()->getDisableWCG());
    }
}

TEST_F(TavroCCodecConfigureTest, FeedbackRegistration) {
    struct FeedbackCase {
        const char* name;
        const char* component;
        const char* mime;
        std::vector<Key> input;
        std::vector<ListEntry> lists;
        const char* isEncoder;  // nullptr: not registered
        size_t notUploaded;     // "IsNotUploadEncoderInfo " lines
    };
    const Key key77 = i64("feedbackKey", 77);
    // clang-format off
    const FeedbackCase cases[] = {
        {"decoder", kAvcDecoder, "video/avc", {key77}, {}, "0", 0},
        {"encoder on the statistics list", kAvcEncoder, "video/avc", {i32("encoder", 1), key77},
         {byUid("video-encoder-statistics", kAppUid)}, "1", 0},
        {"encoder off the list", kAvcEncoder, "video/avc", {i32("encoder", 1), key77},
         {byUid("video-encoder-statistics", kBinderUid)}, nullptr, 1},
        {"audio decoder", "c2.android.aac.decoder", "audio/mp4a-latm", {key77}, {}, nullptr, 0},
        {"feedbackKey 0 is no id", kAvcDecoder, "video/avc", {i64("feedbackKey", 0)}, {}, nullptr,
         0},
    };
    // clang-format on
    for (const FeedbackCase& c : cases) {
        SCOPED_TRACE(c.name);
        SetUp();
        setLists(c.lists);
        configure(c.component, appFormat(c.mime, c.input));
        const std::vector<HostEvent> pushed =
                HostEvents::named("feedback", "pushFeedbackInfoAtCodec");
        ASSERT_EQ(c.isEncoder ? 1u : 0u, pushed.size());
        if (c.isEncoder) {
            EXPECT_EQ("77", pushed[0].field("id"));
            EXPECT_EQ("1", pushed[0].field("isVideo"));
            EXPECT_EQ(c.isEncoder, pushed[0].field("isEncoder"));
            EXPECT_EQ(c.component, pushed[0].field("componentName"));
        }
        EXPECT_EQ(c.notUploaded, host::HostLog::count("IsNotUploadEncoderInfo "));
    }

    // Without a key the codec's own address names the record.
    SetUp();
    configure(kAvcDecoder, appFormat("video/avc", {}));
    const std::vector<HostEvent> pushed = HostEvents::named("feedback", "pushFeedbackInfoAtCodec");
    ASSERT_EQ(1u, pushed.size());
    const std::string address = std::to_string(reinterpret_cast<intptr_t>(mHarness->codec().get()));
    EXPECT_EQ(address, pushed[0].field("id"));
    EXPECT_EQ(1u, host::HostLog::count("TavroFeedbackInfo  mFeedbackID:" + address));
}

TEST_F(TavroCCodecConfigureTest, StartUpOperatingRateIsRestoredAtFirstRender) {
    struct RateCase {
        const char* name;
        const char* component;
        std::vector<ListEntry> lists;
        std::vector<Key> input;
        std::vector<Key> changed;
        float restored;  // operating rate written back after the first render; 0: none
    };
    const std::vector<ListEntry> listed = {byUid("decoder-startup-operating-rate", kAppUid, "120")};
    const Key raised = f32("operating-rate", 120.0f);
    const std::vector<Key> fps30 = {f32("frame-rate", 30.0f)};
    // clang-format off
    const RateCase cases[] = {
        {"frame rate restored", kAvcDecoder, listed, fps30, {raised, white(0)}, 30.0f},
        {"app's float rate restored", kAvcDecoder, listed, {f32("operating-rate", 30.0f)},
         {raised, white(0)}, 30.0f},
        {"app's int32 rate restored", kAvcDecoder, listed,
         {i32("operating-rate", 60), i32("frame-rate", 30)}, {raised, white(0)}, 60.0f},
        {"app already faster", kAvcDecoder, listed, {f32("operating-rate", 240.0f)}, {white(0)},
         0.0f},
        {"no rate to go back to", kAvcDecoder, listed, {}, {white(0)}, 0.0f},
        {"not a number", kAvcDecoder, {byUid("decoder-startup-operating-rate", kAppUid, "fast")},
         fps30, {white(0)}, 0.0f},
        {"listed by the binder uid", kAvcDecoder,
         {byUid("decoder-startup-operating-rate", kBinderUid, "120")}, fps30, {white(0)}, 0.0f},
        {"encoder", kAvcEncoder, listed, fps30 + kEncoderFormat, {}, 0.0f},
    };
    // clang-format on
    for (const RateCase& c : cases) {
        SCOPED_TRACE(c.name);
        SetUp();
        setLists(c.lists);
        sp<AMessage> format = appFormat("video/avc", c.input);
        expectChanges(format, configure(c.component, format), c.changed);
        renderAndCollect();
        const std::vector<sp<AMessage>> sets = renderAndCollect();  // the second render adds none
        const std::string line =
                "setExtParam: Reset operating-rate(" + std::to_string(int(c.restored)) + ")";
        EXPECT_EQ(c.restored == 0.0f ? 0u : 1u, logCount(line, ANDROID_LOG_DEBUG));
        if (c.restored == 0.0f) {
            EXPECT_TRUE(sets.empty());
        } else {
            ASSERT_EQ(1u, sets.size());
            expectKeys(sets[0], {f32("operating-rate", c.restored)});
        }
    }

    // Each configure decides afresh: a restored start-up rate arms again, and one that is no
    // longer listed leaves nothing to restore.
    SetUp();
    setLists(listed);
    const std::vector<Key> input = {f32("frame-rate", 25.0f)};
    configure(kAvcDecoder, appFormat("video/avc", input));
    EXPECT_EQ(1u, renderAndCollect().size());
    mHarness->configure(appFormat("video/avc", input));
    EXPECT_EQ(2u, renderAndCollect().size());
    host::HostListService::clear();
    mHarness->configure(appFormat("video/avc", input));
    EXPECT_EQ(2u, renderAndCollect().size());

    SetUp();
    setLists({byUid("decoder-startup-operating-rate", kAppUid, "0")});
    configure(kAvcDecoder, appFormat("video/avc", input));
    EXPECT_EQ(1u, logCount("setExtParam: start-up operating rate '0' ignored", ANDROID_LOG_WARN));
}

TEST_F(TavroCCodecConfigureTest, StepsRunInTheirOrder) {
    // Each bitrate step applies only under a bound the previous one moves it across, so the final
    // bitrate is reached only in the order gop/qp-range, B-frames, then pre-processing:
    // 1000000 x 1.2 = 1200000 <= 1200000, x 1.5 = 1800000 <= 1800000, x 1.15 = 2070000.
    setLists({byUid("qcom-qprange", kBinderUid, "1.2"),
              byActivity("encoder-b-frame", "maxBframes=1,bitrateFactor=1.5,limitBitrate=1200000"),
              byActivity("encoder-pre-process",
                         "type=avc,avcLimitBitrate=1800000,limitWidth=1920,limitHeight=1080")});
    sp<AMessage> format = appFormat(
            "video/avc", {i32("encoder", 1), i32("min-qp-value", 1), i32("bitrate", 1000000),
                          i32("width", 1280), i32("height", 720)});
    expectChanges(
            format, configure(kAvcEncoder, format),
            {i32("bitrate", 2070000), str("ts-schema", "android.generic.1+1"),
             i32("android._prefer-b-frames", 1),
             i32("vendor.qti-ext-cvp-filter-explicit-disable.value", 1), i32("max-bframes", 1),
             white(0x101), i32("vendor.qti-ext-enc-roi-mbmap-info.mb_side_length", 16)});

    // The step table follows the pipeline: every row once, in its place.
    std::vector<std::string> steps;
    for (const TavroConfigureStepResult& r : mHarness->codec()->lastConfigureResults()) {
        steps.push_back(r.name);
    }
    // clang-format off
    EXPECT_EQ((std::vector<std::string>{
                  "configureBitrateMode", "configureOutputDelay", "setGopAndBitrate", "setBFrame",
                  "configEncoderPriority", "configDecoderPriority", "configureDolbyVision",
                  "configureDisableWcg", "configureThumbnail", "setUsageFlag",
                  "configEncoderBitrateSavings", "configEncoderFilter", "configEncoderScene",
                  "configEncoderQpRange", "configureInitialQp", "configureDolbyByteBuffer",
                  "configureTonemapFilter", "configureFeedback", "setupVideoStutter",
                  "configTavroVppType", "configureChannelFeedbackId", "configureMtkColorConvert",
                  "configureBoostThreads", "setExtParam", "setQtiExtParam", "configureInputDelay",
                  "configureSWInputDelay", "configureBatchMode"}),
              steps);
    // clang-format on

    // A decoder: telemetry first, then feedback, stutter set-up, the interlace check of the
    // post-processing selection, and the base last.
    SetUp();
    useProcRoot();
    setLists({byUid("sr-lumo-whitelist", kBinderUid, "3")});
    configure(kAvcDecoder, appFormat("video/avc", {}));
    std::vector<std::string> calls;
    for (const HostEvent& e : HostEvents::all()) {
        if (e.kind == "feedback" || e.name == "setupVideoStutter" || e.name == "checkScanType" ||
            e.name == "initiateConfigureComponent" ||
            (e.name == "updateParameters" && !e.field("codec-config-in").empty())) {
            calls.push_back(e.name);
        }
    }
    EXPECT_EQ((std::vector<std::string>{"updateParameters", "pushFeedbackInfoAtCodec",
                                        "setupVideoStutter", "checkScanType",
                                        "initiateConfigureComponent"}),
              calls);
}

// What tools print per step: its status, and why it changed nothing (null when it changed
// something). Each configure replaces the outcomes of the last; the encoder steps' declines for
// other codecs are in TavroEncoderRateControl_test.cpp.
TEST_F(TavroCCodecConfigureTest, StepResultsSayWhyNothingChanged) {
    CodecHarness fresh;
    EXPECT_TRUE(fresh.codec()->lastConfigureResults().empty());
    const char* const kEmpty = "no change: extension point, empty on this device";
    struct Row {
        const char* component;
        const char* step;
        status_t status;
        const char* reason;
    };
    // clang-format off
    const Row kRows[] = {
        {kAvcEncoder, "setGopAndBitrate", UNKNOWN_ERROR,
         "no change: the format has no min-qp-value or max-qp-value"},
        {kAvcEncoder, "setBFrame", INVALID_OPERATION,
         "no change: no encoder-b-frame for the top activity"},
        {kAvcEncoder, "configureInitialQp", OK, nullptr},
        {kAvcEncoder, "configTavroVppType", OK, "no change: not a video decoder"},
        {kAvcEncoder, "setExtParam", OK, "no restore: not a video decoder"},
        {kAvcEncoder, "setQtiExtParam", OK, kEmpty},
        {kAvcEncoder, "configureSWInputDelay", OK, kEmpty},
        {kAvcDecoder, "configureFeedback", OK, nullptr},
        {kAvcDecoder, "configureChannelFeedbackId", OK, nullptr},
        {kAvcDecoder, "configureMtkColorConvert", OK, "no change: no positive width and height"},
        {kAvcDecoder, "setExtParam", OK,
         "no restore: no decoder-startup-operating-rate for the app"},
        {kAvcDecoder, "configureBatchMode", OK, "no change: not the AAC encoder"},
    };
    // clang-format on
    for (const Row& row : kRows) {
        SCOPED_TRACE(std::string(row.component) + " " + row.step);
        SetUp();
        useProcRoot();
        setLists({byUid("qcom-encode-optimization", kBinderUid)});
        const bool encoder = row.component == kAvcEncoder;
        configure(row.component,
                  appFormat("video/avc", encoder ? kEncoderFormat : std::vector<Key>{}));
        EXPECT_EQ(mHarness->codec()->lastConfigureResults().size(), kConfigureStepCount);
        EXPECT_EQ(row.status, stepResult(row.step).status);
        EXPECT_STREQ(row.reason, stepResult(row.step).reason);
    }
}

TEST_F(TavroCCodecConfigureTest, NoListServiceAnswerLeavesTheFormatAlone) {
    const std::vector<ListEntry> everything = {
            byUid("encoder-bitrate-mode", kBinderUid, "2"),
            byUid("codec2-output-delay", kBinderUid, "4"),
            byUid("qcom-encode-optimization", kBinderUid),
            byUid("encode-qp-range", kAppUid, "min=20"),
            byActivity("encoder-b-frame", "maxBframes=1"),
            byActivity("codec-batch-mode", ""),
            byUid("qcom-encode-gop", kBinderUid, "60"),
            byUid("qcom-qprange", kBinderUid, "2"),
    };
    for (const char* component : {kAvcEncoder, kAacEncoder}) {
        SCOPED_TRACE(component);
        SetUp();
        setLists(everything);
        host::HostListService::setFault(host::HostListService::Fault::kNoAnswer);
        sp<AMessage> format =
                appFormat(component == kAvcEncoder ? "video/avc" : "audio/mp4a-latm",
                          {i32("encoder", 1), i32("bitrate-mode", 0), i32("min-qp-value", 10),
                           f32("frame-rate", 30.0f), i32("bitrate", 1000000)});
        expectChanges(format, configure(component, format), {});
        if (component == kAvcEncoder) {
            EXPECT_EQ(INVALID_OPERATION, stepResult("setBFrame").status);
        }
    }
}

}  // namespace
}  // namespace android
