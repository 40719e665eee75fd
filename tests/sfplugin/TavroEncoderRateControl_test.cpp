// Encoder rate control at configure: GOP and bitrate, B-frames, content-adaptive coding and QP
// range, observed in the format the platform base receives and in the step trace.
#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <vector>

#include <host/HostListService.h>
#include <log/log.h>
#include <utils/Errors.h>

#include "sfplugin/TavroConfigureTestSupport.h"

namespace android {
namespace {

using namespace test;

constexpr char kEncoder[] = "c2.qti.avc.encoder";
const std::vector<Key> kEncoderFormat = {i32("encoder", 1)};
const std::vector<Key> kQp = {i32("encoder", 1), i32("min-qp-value", 10)};

class TavroEncoderRateControlTest : public ConfigureFixture {
  protected:
    void run(const char* step, const std::vector<Key>& base, const std::vector<Case>& cases) {
        runCases(kEncoder, "video/avc", base, cases, step);
    }
};

std::vector<Key> bframes(int32_t maxB, const char* schema) {
    return {str("ts-schema", schema), i32("android._prefer-b-frames", 1),
            i32("vendor.qti-ext-cvp-filter-explicit-disable.value", 1), i32("max-bframes", maxB)};
}

// clang-format off
TEST_F(TavroEncoderRateControlTest, GopTurnsFramesIntoSeconds) {
    const ListEntry gop60 = byUid("qcom-encode-gop", kBinderUid, "60");
    run("setGopAndBitrate", kEncoderFormat, {
        {"no qp bound", {gop60}, {f32("frame-rate", 30.0f)}, {}, UNKNOWN_ERROR},
        {"60 frames at 30 fps", {gop60}, {i32("min-qp-value", 10), f32("frame-rate", 30.0f)},
         {f32("i-frame-interval", 2.0f)}},
        {"max bound alone, int32 frame rate", {byUid("qcom-encode-gop", kBinderUid, "45")},
         {i32("max-qp-value", 40), i32("frame-rate", 30)}, {f32("i-frame-interval", 1.5f)}},
        {"frame rate 0", {gop60}, {i32("min-qp-value", 1), f32("frame-rate", 0.0f)}, {}},
        {"gop 0", {byUid("qcom-encode-gop", kBinderUid, "0")},
         {i32("min-qp-value", 1), f32("frame-rate", 30.0f)}, {}},
        {"gop not a number", {byUid("qcom-encode-gop", kBinderUid, "sixty")},
         {i32("min-qp-value", 1), f32("frame-rate", 30.0f)}, {}},
        {"listed for the app uid, looked up by the binder uid",
         {byUid("qcom-encode-gop", kAppUid, "60")},
         {i32("min-qp-value", 1), f32("frame-rate", 30.0f)}, {}},
        {"no frame rate skips the bitrate too", {gop60, byUid("qcom-qprange", kBinderUid, "2")},
         {i32("min-qp-value", 1), i32("bitrate", 1000000)}, {}, INVALID_OPERATION},
        {"int64 frame rate is no frame rate", {gop60},
         {i32("min-qp-value", 1), i64("frame-rate", 30)}, {}, INVALID_OPERATION},
    });
}

TEST_F(TavroEncoderRateControlTest, QpRangeFactorScalesSmallBitrates) {
    auto factor = [](const char* f) {
        return std::vector<ListEntry>{byUid("qcom-qprange", kBinderUid, f)};
    };
    const std::vector<Key> mbps = {i32("bitrate", 1000000)};
    run("setGopAndBitrate", kQp, {
        {"at the 1400000 boundary", factor("0.5"), {i32("bitrate", 1400000)},
         {i32("bitrate", 700000)}},
        {"one above the boundary", factor("0.5"), {i32("bitrate", 1400001)}, {}},
        // 0.7f x 1000000 is 699999.988 exactly; single precision rounds it to 700000.
        {"single precision product", factor("0.7"), mbps, {i32("bitrate", 700000)}},
        {"property overrides the list", factor("0.5"), mbps, {i32("bitrate", 1300000)}, OK,
         {{"wechat.bitrate.index", "1.3"}}},
        {"property alone", {}, mbps, {i32("bitrate", 900000)}, OK,
         {{"wechat.bitrate.index", "0.9"}}},
        {"negative factor applied as it stands", factor("-1"), mbps, {i32("bitrate", -1000000)}},
        {"factor not a number", factor("fast"), mbps, {}},
        {"huge factor saturates", factor("1e30"), mbps, {i32("bitrate", INT32_MAX)}},
        {"listed for the app uid only", {byUid("qcom-qprange", kAppUid, "2")}, mbps, {}},
        {"no bitrate", factor("2"), {}, {}},
        {"interval stays when the bitrate is not scaled",
         {byUid("qcom-encode-gop", kBinderUid, "30"), byUid("qcom-qprange", kBinderUid, "2")},
         {f32("frame-rate", 60.0f), i32("bitrate", 5000000)}, {f32("i-frame-interval", 0.5f)}},
    });
}

TEST_F(TavroEncoderRateControlTest, BFramesBySchemaBandAndDevice) {
    auto listed = [](const char* v) {
        return std::vector<ListEntry>{byActivity("encoder-b-frame", v)};
    };
    const Props pelto = {{"ro.build.device_family", "pelto"}};
    run("setBFrame", kEncoderFormat, {
        {"not listed", {}, {}, {}, INVALID_OPERATION},
        {"empty value", listed(""), {}, {}, INVALID_OPERATION},
        {"maxB 1", listed("maxBframes=1"), {}, bframes(1, "android.generic.1+1")},
        {"maxB 2", listed("maxBframes=2"), {}, bframes(2, "android.generic.1+1")},
        {"maxB 3", listed("maxBframes=3"), {}, bframes(3, "android.generic.1+2")},
        {"maxB 6", listed("maxBframes=6"), {}, bframes(6, "android.generic.1+2")},
        {"maxB 7", listed("maxBframes=7"), {}, bframes(7, "android.generic.1+3")},
        {"maxB 0", listed("maxBframes=0"), {}, {}, INVALID_OPERATION},
        {"maxB negative", listed("maxBframes=-2"), {}, {}, INVALID_OPERATION},
        {"family in cpu", listed("cpu=kimora|pelto;maxBframes=1"), {},
         bframes(1, "android.generic.1+1"), OK, pelto},
        {"family not in cpu", listed("cpu=kimora,maxBframes=1"), {}, {}, INVALID_OPERATION, pelto},
        {"family match is case-sensitive", listed("cpu=PELTO,maxBframes=1"), {}, {},
         INVALID_OPERATION, pelto},
        {"cpu with the family unset", listed("cpu=pelto,maxBframes=1"), {}, {}, INVALID_OPERATION},
        {"not key/value text", listed("3"), {}, {}, INVALID_OPERATION},
        {"separators only", listed(",;,"), {}, {}, INVALID_OPERATION},
        // 1.3f x 1000000 is 1299999.95 exactly; single precision rounds it to 1300000.
        {"bitrate factor at the limit",
         listed("maxBframes=1,bitrateFactor=1.3,limitBitrate=1000000"), {i32("bitrate", 1000000)},
         bframes(1, "android.generic.1+1") + std::vector<Key>{i32("bitrate", 1300000)}},
        {"bitrate above the limit", listed("maxBframes=1,bitrateFactor=1.3,limitBitrate=999999"),
         {i32("bitrate", 1000000)}, bframes(1, "android.generic.1+1")},
        {"factor without a limit", listed("maxBframes=1,bitrateFactor=1.3"),
         {i32("bitrate", 1000000)}, bframes(1, "android.generic.1+1")},
        {"negative factor", listed("maxBframes=1,bitrateFactor=-2,limitBitrate=2000000"),
         {i32("bitrate", 1000000)}, bframes(1, "android.generic.1+1")},
    });
}

TEST_F(TavroEncoderRateControlTest, ContentAdaptiveModeFromTheAppsList) {
    auto cac = [](const char* v) {
        return std::vector<ListEntry>{byUid("qcom-enable-cac", kAppUid, v)};
    };
    const Props soc = {{"ro.soc.model", "SM8650"}};
    const Key mode = i32("vendor.qti-ext-enc-content-adaptive-mode.value", 1);
    run("configEncoderBitrateSavings", kEncoderFormat, {
        {"cpu names the soc", cac("cpu=SM8550+SM8650,value=1"), {}, {mode}, OK, soc},
        {"no cpu", cac("value=0"), {}, {i32(mode.name.c_str(), 0)}},
        {"app's own mode wins", cac("cpu=SM8650,value=1"), {i32(mode.name.c_str(), 2)}, {},
         INVALID_OPERATION, soc},
        {"no value pair", cac("cpu=SM8650"), {}, {}, INVALID_OPERATION, soc},
        {"other soc", cac("cpu=SM8550,value=1"), {}, {}, INVALID_OPERATION, soc},
        {"soc match is case-sensitive", cac("cpu=sm8650,value=1"), {}, {}, INVALID_OPERATION, soc},
        {"listed for the binder uid only", {byUid("qcom-enable-cac", kBinderUid, "value=1")}, {},
         {}, INVALID_OPERATION},
        {"membership without a value", cac(""), {}, {}, INVALID_OPERATION},
    });
}

TEST_F(TavroEncoderRateControlTest, QpRangeForTheListedSoc) {
    auto range = [](int32_t lo, int32_t hi) {
        return std::vector<Key>{i32("video-qp-i-min", lo), i32("video-qp-p-min", lo),
                                i32("video-qp-b-min", lo), i32("video-qp-i-max", hi),
                                i32("video-qp-p-max", hi), i32("video-qp-b-max", hi)};
    };
    auto qp = [](const char* v) {
        return std::vector<ListEntry>{byUid("encode-qp-range", kAppUid, v)};
    };
    auto soc = [](const char* s) { return Props{{"ro.soc.model", s}}; };
    runCases(kEncoder, "video/avc", kEncoderFormat, {
        {"soc begins with cpu, any case", qp("cpu=sm8650,min=20,max=40"), {}, range(20, 40), OK,
         soc("SM8650P")},
        {"defaults", qp("cpu=SM8650"), {}, range(14, 51), OK, soc("SM8650")},
        {"min above max kept", qp("cpu=SM8650,min=50,max=10"), {}, range(50, 10), OK,
         soc("SM8650")},
        {"no cpu applies where the soc is unset", qp("min=22"), {}, range(22, 51)},
        {"no cpu, soc set", qp("min=22"), {}, {}, OK, soc("SM8650")},
        {"empty cpu pair counts as none", qp("cpu=,min=22"), {}, {}, OK, soc("SM8650")},
        {"other soc", qp("cpu=SM8650,min=20"), {}, {}, OK, soc("SM8550")},
        {"cpu longer than the soc", qp("cpu=SM8650"), {}, {}, OK, soc("SM86")},
        {"not key/value text", qp("22"), {}, {}},
    });
    EXPECT_EQ(1u, logCount("encode-qp-range parameter is parsed fail", ANDROID_LOG_VERBOSE));
}
// clang-format on

TEST_F(TavroEncoderRateControlTest, StepLogLines) {
    setLists({byUid("qcom-encode-gop", kBinderUid, "60"),
              byActivity("encoder-b-frame", "maxBframes=3,bitrateFactor=1.5,limitBitrate=900000"),
              byUid("encode-qp-range", kAppUid, "min=20,max=30")});
    configure(kEncoder, appFormat("video/avc", kQp + std::vector<Key>{f32("frame-rate", 24.0f),
                                                                      i32("bitrate", 800000)}));
    const std::pair<std::string, int> kLines[] = {
            {"qcom-encode-gop:60", ANDROID_LOG_VERBOSE},
            {"reset i-frame-interval to 2.500", ANDROID_LOG_VERBOSE},
            {"encoder-b-frame Ret: 1, value: maxBframes=3,bitrateFactor=1.5,limitBitrate=900000.",
             ANDROID_LOG_INFO},
            {"setBFrame: [value:maxBframes=3,bitrateFactor=1.5,limitBitrate=900000] size:50",
             ANDROID_LOG_DEBUG},
            {"change max_bframes to 3", ANDROID_LOG_DEBUG},
            {"change bitrate to 1200000", ANDROID_LOG_VERBOSE},
            {"[configEncoderQpRange:L1142] set video encoder qp 20~30", ANDROID_LOG_VERBOSE},
    };
    for (const auto& [line, priority] : kLines) EXPECT_EQ(1u, logCount(line, priority)) << line;
}

TEST_F(TavroEncoderRateControlTest, GatedLinesFollowTheLogLevel) {
    // "Can't get min/max qp value." is a level-5 line on by default; "no qcom-encode-gop" a
    // level-6 line off by default.
    struct LevelCase {
        const char* level;  // nullptr: property unset
        size_t debugLines;
        size_t verboseLines;
    };
    const LevelCase cases[] = {{nullptr, 1, 0}, {"4", 0, 0}, {"5", 1, 0}, {"6", 1, 1}};
    for (const LevelCase& c : cases) {
        SCOPED_TRACE(c.level ? c.level : "unset");
        SetUp();
        if (c.level == nullptr) {
            host::HostProperties::erase("debug.tavro.video.log.enable");
        } else {
            host::HostProperties::set("debug.tavro.video.log.enable", c.level);
        }
        configure(kEncoder, appFormat("video/avc", kEncoderFormat));
        EXPECT_EQ(c.debugLines, logCount("Can't get min/max qp value.", ANDROID_LOG_DEBUG));
        configure(kEncoder, appFormat("video/avc", kQp));
        EXPECT_EQ(c.verboseLines, logCount("no qcom-encode-gop", ANDROID_LOG_VERBOSE));
    }
}

TEST_F(TavroEncoderRateControlTest, OnlyVideoEncodersAreTuned) {
    const std::vector<ListEntry> lists = {
            byUid("qcom-encode-gop", kBinderUid, "60"),
            byUid("qcom-qprange", kBinderUid, "0.5"),
            byActivity("encoder-b-frame", "maxBframes=1"),
            byUid("qcom-enable-cac", kAppUid, "value=1"),
            byUid("encode-qp-range", kAppUid, "min=20"),
            byUid("key-priority-encoder", kAppUid, "priority=1"),
            byUid("encode-usage-flag", kAppUid, "cpu=unknown"),
            byActivity("encoder-scene", "scene=3"),
            byActivity("encoder-pre-process", "type=avc,limitWidth=9999,limitHeight=9999")};
    const std::vector<Key> input = {i32("min-qp-value", 10), f32("frame-rate", 30.0f),
                                    i32("bitrate", 1000000), i32("tavro-encode-usage-flag", 1),
                                    i32("width", 64),        i32("height", 64)};
    // Every encoder step declines, each with its own status and the same reason.
    const std::pair<const char*, status_t> kSteps[] = {
            {"setGopAndBitrate", OK},
            {"setBFrame", OK},
            {"configEncoderBitrateSavings", INVALID_OPERATION},
            {"configEncoderQpRange", OK},
            {"configEncoderPriority", INVALID_OPERATION},
            {"setUsageFlag", OK},
            {"configEncoderScene", INVALID_OPERATION},
            {"configEncoderFilter", INVALID_OPERATION}};
    auto expectDeclined = [&] {
        for (const auto& [step, status] : kSteps) {
            EXPECT_EQ(status, stepResult(step).status) << step;
            EXPECT_STREQ("no change: not a video encoder", stepResult(step).reason) << step;
        }
    };
    runCases("c2.qti.avc.decoder", "video/avc", input, {{"video decoder", lists, {}, {white(0)}}});
    expectDeclined();
    runCases("c2.android.aac.encoder", "audio/mp4a-latm", input + kEncoderFormat,
             {{"audio encoder", lists, {}, {}}});
    expectDeclined();
}

TEST_F(TavroEncoderRateControlTest, UntrustedListValuesAreReadWithinTheirBuffer) {
    // An unterminated answer fills all 256 bytes and the parse sees exactly those: 19 whole
    // "maxBframes=3," pieces, then "maxBframe" without '=', which is skipped.
    setLists({byActivity("encoder-b-frame", "maxBframes=3,")});
    host::HostListService::setFault(host::HostListService::Fault::kUnterminated);
    sp<AMessage> format = appFormat("video/avc", kEncoderFormat);
    expectChanges(format, configure(kEncoder, format), bframes(3, "android.generic.1+2"));
    std::string value;
    for (int i = 0; i < 19; ++i) value += "maxBframes=3,";
    EXPECT_EQ(1u, logCount("setBFrame: [value:" + value + "maxBframe] size:256"));

    // 256 digits of GOP are beyond every integer: the low 32 bits (-1) give no interval.
    SetUp();
    setLists({byUid("qcom-encode-gop", kBinderUid, "6")});
    host::HostListService::setFault(host::HostListService::Fault::kUnterminated);
    format = appFormat("video/avc", kQp + std::vector<Key>{f32("frame-rate", 30.0f)});
    expectChanges(format, configure(kEncoder, format), {});
}

}  // namespace
}  // namespace android
