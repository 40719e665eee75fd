// Encoder and decoder tuning at configure: priorities, the usage flag, the encoder scene and the
// encoder pre-processing filter, observed in the format the platform base receives, the step
// trace and the ungated warnings.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include <log/log.h>
#include <utils/Errors.h>

#include "sfplugin/TavroConfigureTestSupport.h"

namespace android {
namespace {

using namespace test;

constexpr char kAvcEncoder[] = "c2.qti.avc.encoder";
constexpr char kAvcDecoder[] = "c2.qti.avc.decoder";
const std::vector<Key> kEncoderFormat = {i32("encoder", 1)};
constexpr int64_t kUsageBit = 0x8000000000000LL;

using TavroCodecTuningTest = ConfigureFixture;

const Props kGateOff = {{"debug.tavro.video.log.enable", "0"}};

Props soc(const char* model) {
    return {{"ro.soc.model", model}};
}

// clang-format off
TEST_F(TavroCodecTuningTest, EncoderPriorityOnTheListedChip) {
    auto listed = [](const char* v) {
        return std::vector<ListEntry>{byUid("key-priority-encoder", kAppUid, v)};
    };
    runCases(kAvcEncoder, "video/avc", kEncoderFormat, {
        {"variant of the listed chip", listed("cpu=SM8650,priority=1"), {}, {i32("priority", 1)},
         OK, soc("SM8650P")},
        {"real time, cpu in lower case", listed("cpu=sm8650;priority=0"), {i32("priority", 1)},
         {i32("priority", 0)}, OK, soc("SM8650")},
        {"priority 5 ignored", listed("cpu=SM8650,priority=5"), {}, {}, INVALID_OPERATION,
         soc("SM8650")},
        {"negative refused", listed("cpu=SM8650,priority=-1"), {}, {}, INVALID_OPERATION,
         soc("SM8650")},
        {"no priority pair means 2", listed("cpu=SM8650"), {}, {}, INVALID_OPERATION,
         soc("SM8650")},
        {"other chip", listed("cpu=SM8650,priority=1"), {}, {}, INVALID_OPERATION, soc("SM8550")},
        {"shorter cpu must match whole", listed("cpu=SM86,priority=1"), {}, {}, INVALID_OPERATION,
         soc("SM8650")},
        {"no cpu matches an unset soc", listed("priority=1"), {}, {i32("priority", 1)}},
        {"listed for the binder uid only",
         {byUid("key-priority-encoder", kBinderUid, "cpu=SM8650,priority=1")}, {}, {},
         INVALID_OPERATION, soc("SM8650")},
    }, "configEncoderPriority");
}

TEST_F(TavroCodecTuningTest, DecoderPriorityOnFourSmallChips) {
    const std::vector<ListEntry> listed = {byUid("key-priority", kBinderUid)};
    const std::vector<Key> best = {i32("priority", 1), white(0)};
    runCases(kAvcDecoder, "video/avc", {}, {
        {"app asks real time", listed, {i32("priority", 0)}, best, OK, soc("SM6115")},
        {"no priority given", listed, {}, best, OK, soc("SM6375")},
        {"soc prefix, any case", listed, {}, best, OK, soc("sm7325-ab")},
        {"fourth chip", listed, {}, best, OK, soc("SM6225")},
        {"app's non-real-time choice kept", listed, {i32("priority", 1)}, {white(0)},
         INVALID_OPERATION, soc("SM6115")},
        {"other chip", listed, {}, {white(0)}, INVALID_OPERATION, soc("SM8650")},
        {"listed by the app uid, checked by the binder uid", {byUid("key-priority", kAppUid)}, {},
         {white(0)}, INVALID_OPERATION, soc("SM6115")},
    }, "configDecoderPriority");
}

TEST_F(TavroCodecTuningTest, UsageFlagIsConsumedAndSetForTheFamily) {
    auto listed = [](const char* v) {
        return std::vector<ListEntry>{byUid("encode-usage-flag", kAppUid, v)};
    };
    const Props pelto = {{"ro.build.device_family", "pelto"}};
    const Key request = i32("tavro-encode-usage-flag", 1);
    const Key set = i64("tavro-encode-usage-flag", kUsageBit);
    const Key consumed = i64("tavro-encode-usage-flag", 0);
    runCases(kAvcEncoder, "video/avc", kEncoderFormat, {
        {"int32 request, family listed", listed("cpu=kimora+pelto"), {request}, {set}, OK, pelto,
         {{"encode setting usage flag", ANDROID_LOG_DEBUG}}},
        {"int64 request", listed("cpu=pelto"), {i64(request.name.c_str(), 5)}, {set}, OK, pelto},
        {"int64 zero is no request", listed("cpu=pelto"), {consumed}, {}, OK, pelto},
        {"int32 zero is no request", listed("cpu=pelto"), {i32(request.name.c_str(), 0)}, {}, OK,
         pelto},
        {"not listed", {}, {request}, {consumed}, INVALID_OPERATION},
        {"other family", listed("cpu=kimora"), {request}, {consumed}, OK, pelto},
        {"no cpu never matches", listed("flag=1"), {request}, {consumed}, OK, pelto},
        {"not key/value text", listed("pelto"), {request}, {consumed}, INVALID_OPERATION, pelto},
        {"listed for the binder uid only", {byUid("encode-usage-flag", kBinderUid, "cpu=pelto")},
         {request}, {consumed}, INVALID_OPERATION, pelto},
    }, "setUsageFlag");
}

TEST_F(TavroCodecTuningTest, EncoderSceneFromTheTopActivity) {
    auto listed = [](const char* v) {
        return std::vector<ListEntry>{byActivity("encoder-scene", v)};
    };
    runCases(kAvcEncoder, "video/avc", kEncoderFormat, {
        {"scene 3", listed("scene=3"), {}, {i64("vendor.tavro.enc.scene.value", 3)}},
        {"negative scene zero-extended", listed("scene=-1"), {},
         {i64("vendor.tavro.enc.scene.value", 4294967295LL)}},
        {"scene 0", listed("scene=0"), {}, {}, INVALID_OPERATION},
        {"no scene pair", listed("mode=2"), {}, {}, INVALID_OPERATION},
        {"not listed", {}, {}, {}, INVALID_OPERATION},
        {"not key/value text", listed("3"), {}, {}, INVALID_OPERATION},
    }, "configEncoderScene");
    // The warnings print with the gate off.
    auto warn = [](const char* line) { return std::vector<LogLine>{{line, ANDROID_LOG_WARN}}; };
    runCases(kAvcEncoder, "video/avc", kEncoderFormat, {
        {"not listed", {}, {}, {}, OK, kGateOff, warn("Ext activity return: 0, value: .")},
        {"empty value", listed(""), {}, {}, OK, kGateOff, warn("Ext activity return: 1, value: .")},
        {"scene not a number", listed("scene=x"), {}, {}, OK, kGateOff,
         warn("Encoder scene value[0] invalid.")},
    });
}
// clang-format on

std::vector<Key> preProcessed(int64_t value, int32_t side, int32_t bitrate) {
    return {white(value), i32("vendor.qti-ext-enc-roi-mbmap-info.mb_side_length", side),
            i32("bitrate", bitrate)};
}

std::vector<Key> frame(int32_t width, int32_t height, int32_t bitrate) {
    return {i32("width", width), i32("height", height), i32("bitrate", bitrate)};
}

// clang-format off
TEST_F(TavroCodecTuningTest, EncoderFilterPicksPreProcessingByCodec) {
    auto listed = [](const char* v) {
        return std::vector<ListEntry>{byActivity("encoder-pre-process", v)};
    };
    const auto avc = listed("type=avc,avcLimitBitrate=12000000,limitWidth=1920,limitHeight=1080");
    runCases(kAvcEncoder, "video/avc", kEncoderFormat, {
        // 10000000 x 1.15f is 11499999.76 exactly; single precision gives 11500000.
        {"1080p AVC", avc, frame(1920, 1080, 10000000), preProcessed(0x101, 16, 11500000)},
        {"1088 lines refused", avc, frame(1920, 1088, 10000000), {}, INVALID_OPERATION},
        {"rotated frame of the same area", avc, frame(1080, 1920, 1000000),
         preProcessed(0x101, 16, 1150000)},
        {"bitrate at the limit", avc, frame(1280, 720, 12000000),
         preProcessed(0x101, 16, 13800000)},
        {"bitrate above the limit", avc, frame(1280, 720, 12000001), {}, INVALID_OPERATION},
        {"no bitrate limit", listed("type=avc,limitWidth=1920,limitHeight=1080"),
         frame(1920, 1080, 90000000), preProcessed(0x101, 16, 103500000)},
        {"no size limit refuses every size", listed("type=avc"), frame(16, 16, 1), {},
         INVALID_OPERATION},
        {"type names another codec", listed("type=hevc"), frame(16, 16, 1), {}, INVALID_OPERATION},
        {"no width", avc, {i32("height", 1080), i32("bitrate", 1)}, {}, INVALID_OPERATION},
        {"no bitrate", avc, {i32("width", 1920), i32("height", 1080)}, {}, INVALID_OPERATION},
        {"not listed", {}, frame(16, 16, 1), {}, INVALID_OPERATION},
        {"huge limits keep their low 32 bits and cannot overflow",
         listed("type=avc,limitWidth=99999999999,limitHeight=99999999999"),
         frame(7680, 4320, 1000000), preProcessed(0x101, 16, 1150000)},
    }, "configEncoderFilter");
    runCases("c2.qti.hevc.encoder", "video/hevc", kEncoderFormat, {
        {"HEVC", listed("type=avc+hevc;hevcLimitBitrate=8000000;limitWidth=3840;limitHeight=2160"),
         frame(3840, 2160, 8000000), preProcessed(0x201, 32, 9200000)},
        {"HEVC ignores the AVC limit",
         listed("type=hevc,avcLimitBitrate=1,limitWidth=3840,limitHeight=2160"),
         frame(3840, 2160, 8000000), preProcessed(0x201, 32, 9200000)},
    }, "configEncoderFilter");
    runCases(kAvcEncoder, "VIDEO/AVC", kEncoderFormat, {
        {"mime in capitals", avc, frame(1920, 1080, 1), {}, INVALID_OPERATION},
    }, "configEncoderFilter");
}
// clang-format on

// clang-format off
TEST_F(TavroCodecTuningTest, EncoderFilterLogLines) {
    auto listed = [](const char* v) {
        return std::vector<ListEntry>{byActivity("encoder-pre-process", v)};
    };
    // With the gate off only the refusals print; the gated trace stays off.
    const LogLine notEntered = {"configEncoderFilter enter, mIsEncoder: 1", 0, 0};
    runCases(kAvcEncoder, "video/avc", kEncoderFormat, {
        {"other codec type", listed("type=hevc"), frame(16, 16, 1), {}, OK, kGateOff,
         {{"Not support this encoder[video/avc], config codec type[hevc]", ANDROID_LOG_ERROR},
          notEntered}},
        {"bitrate above the limit", listed("type=avc,avcLimitBitrate=12000000"),
         frame(16, 16, 13000000), {}, OK, kGateOff,
         {{"Bitrate[13000000] > limitBitrate[12000000]", ANDROID_LOG_WARN}, notEntered}},
        {"frame above the limit", listed("type=avc,limitWidth=1920,limitHeight=1080"),
         frame(1920, 1088, 1), {}, OK, kGateOff,
         {{"Encode resolution[1920 * 1088] > limit resolution[1920 * 1080]", ANDROID_LOG_WARN},
          notEntered}},
        // 100 x 1.15f is 114.9999976 exactly, which single precision rounds to 115.
        {"accepted", listed("type=avc,limitWidth=1920,limitHeight=1080"), frame(1920, 1080, 100),
         preProcessed(0x101, 16, 115), OK, {},
         {{"configEncoderFilter enter, mIsEncoder: 1", ANDROID_LOG_INFO},
          {"Ext activity return: 1, value: type=avc,limitWidth=1920,limitHeight=1080.",
           ANDROID_LOG_INFO},
          {"Config encoder preprocessing value: 0x101", ANDROID_LOG_INFO},
          {"change bitrate to 115", ANDROID_LOG_VERBOSE}}},
    });
}
// clang-format on

using TavroCodecTuningDeathTest = TavroCodecTuningTest;

TEST_F(TavroCodecTuningDeathTest, FrameAreaBeyond32BitsIsFatal) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    setLists({byActivity("encoder-pre-process", "type=avc,limitWidth=1920,limitHeight=1080")});
    sp<AMessage> format = appFormat("video/avc", kEncoderFormat + frame(65536, 65536, 1));
    EXPECT_DEATH(configure(kAvcEncoder, format), "width 65536 x height 65536 overflows");
}

}  // namespace
}  // namespace android
