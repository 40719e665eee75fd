// Video post-processing selection at configure and at run time: the white lists and the ODM
// table, the engine keys, the fence, input-delay and white-list keys, the channel's fast-forward
// watch, the interlace check, the app's switch and the tone-mapping request.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include <host/HostEvents.h>
#include <host/HostListService.h>
#include <host/HostLog.h>
#include <log/log.h>
#include <utils/Errors.h>
#include <utils/String8.h>

#include "sfplugin/TavroCCodecBufferChannel.h"
#include "sfplugin/TavroConfigureTestSupport.h"

namespace android {
namespace {

using namespace test;

constexpr char kDecoder[] = "c2.qti.avc.decoder";
constexpr char kWhiteList[] = "sr-lumo-whitelist";

std::vector<Key> engine(int32_t clientType) {
    return {i32("vendor.mtk.ext.vdec.tavro.vpp.engine.feature-on", 1),
            i32("vendor.mtk.ext.vdec.tavro.vpp.engine.client-type", clientType)};
}

std::vector<ListEntry> listed(const char* value) {
    return {byUid(kWhiteList, kBinderUid, value)};
}

// One decoder configure: the exact changes, the channel's fast-forward watch (enable, value) and
// the number of interlace checks.
struct VppCase {
    const char* name;
    std::vector<ListEntry> lists;
    std::vector<Key> changed;
    int ffEnable;
    int32_t ffValue;
    size_t scanChecks;
    Props props = {};
    const char* mime = "video/avc";
    std::vector<Key> input = {};
};

// Decoders run with plenty of free memory unless a case says otherwise.
class TavroVppSelectionTest : public ConfigureFixture {
  protected:
    void SetUp() override {
        ConfigureFixture::SetUp();
        useProcRoot();
    }
    static std::string ffLine(int enable, int32_t value) {
        return String8::format(kLogFFModeStatus, enable, value).c_str();
    }

    void run(const std::vector<VppCase>& cases) {
        for (const VppCase& c : cases) {
            SCOPED_TRACE(c.name);
            SetUp();
            setProps(c.props);
            setLists(c.lists);
            sp<AMessage> format = appFormat(c.mime, c.input);
            expectChanges(format, configure(kDecoder, format), c.changed);
            EXPECT_EQ(1u, logCount(ffLine(c.ffEnable, c.ffValue)));
            EXPECT_EQ(c.scanChecks, host::HostEvents::named("analysis", "checkScanType").size());
        }
    }
};

// clang-format off
TEST_F(TavroVppSelectionTest, WhiteListValueAndEngineKeys) {
    auto srOn = [](const char* v) { return Props{{"debug.tavro.sr.on", v}}; };
    run({
        {"decimal 3", listed("3"), engine(3) + white(3), 1, 3, 1},
        {"decimal 10 has bit 1 set; the white list reads it as hex", listed("10"),
         engine(10) + white(16), 1, 16, 1},
        {"4 leaves the engine off", listed("4"), {white(4)}, 1, 4, 1},
        {"4 with the debug switch", listed("4"), engine(4) + white(4), 1, 4, 1, srOn("1")},
        {"debug switch alone", {}, engine(0) + white(0), 0, 0, 0, srOn("2")},
        {"debug switch not a number", {}, {white(0)}, 0, 0, 0, srOn("on")},
        {"0x1f: decimal 0, then hex", listed("0x1f"), engine(31) + white(31), 1, 31, 1},
        {"abc: hex 0xabc, low bits clear", listed("abc"), {white(0xabc)}, 1, 0xabc, 1},
        {"not a number", listed("zz"), {white(0)}, 0, 0, 0},
        {"huge number keeps its low 32 bits", listed("99999999999999999999"),
         engine(-1) + white(-1), 1, -1, 1},
        {"listed for the app uid, looked up by the binder uid", {byUid(kWhiteList, kAppUid, "3")},
         {white(0)}, 0, 0, 0},
        {"top activity, for V2 only", {byActivity(kWhiteList, "2a")}, {white(0x2a)}, 1, 0x2a, 1},
        {"hevc has no interlace check", listed("3"), engine(3) + white(3), 1, 3, 0, {},
         "video/hevc"},
        {"mime in capitals: video, but the watch wants \"video/\"", listed("3"),
         engine(3) + white(3), 0, 3, 1, {}, "VIDEO/AVC"},
    });
}

TEST_F(TavroVppSelectionTest, ListTypeChoosesTheWhiteList) {
    const std::vector<ListEntry> lists = {byUid(kWhiteList, kBinderUid, "5"),
                                          byUid("sr-lumo-whitelist-720p", kBinderUid, "3"),
                                          byUid("sr-lumo-whitelist-new", kBinderUid, "7"),
                                          byUid("sr-lumo-whitelist-480p-V1", kBinderUid, "b"),
                                          byUid("sr-lumo-whitelist-del-ugc", kBinderUid, "c")};
    auto type = [](const char* t) { return Props{{"ro.tavro.vpplisttype", t}}; };
    run({
        {"default", lists, engine(5) + white(5), 1, 5, 1},
        {"read-only type", lists, engine(3) + white(3), 1, 3, 1, type("720p")},
        {"persistent type", lists, engine(7) + white(7), 1, 7, 1,
         {{"persist.tavro.vpplisttype", "new"}}},
        {"read-only wins", lists, engine(3) + white(3), 1, 3, 1,
         type("720p") + Props{{"persist.tavro.vpplisttype", "new"}}},
        {"480p_V1: \"b\" is 11 in both readings", lists, engine(11) + white(11), 1, 11, 1,
         type("480p_V1")},
        {"del_ugc", lists, {white(0xc)}, 1, 0xc, 1, type("del_ugc")},
        {"odm uses the default list", lists, engine(5) + white(5), 1, 5, 1, type("odm")},
        {"unknown type names no list", lists, {white(0)}, 0, 0, 0, type("weird")},
    });
}

TEST_F(TavroVppSelectionTest, ControlByAppAndTheOdmTable) {
    auto odm = [](const char* table) {
        return Props{{"ro.tavro.vpplisttype", "odm"}, {"ro.tavro.vpplist.odm.value", table}};
    };
    const ListEntry control5 = byUid("sr-lumo-control-by-app", kBinderUid, "5");
    const ListEntry three = byUid(kWhiteList, kBinderUid, "3");
    run({
        {"control list wins over the white list", {control5, three}, engine(3) + white(5), 1, 5, 1},
        {"empty control value skips the white list",
         {byUid("sr-lumo-control-by-app", kBinderUid, ""), three}, engine(3) + white(0), 0, 0, 0},
        {"control off", {control5, three}, engine(3) + white(3), 1, 3, 1,
         {{"ro.tavro.vpp.control.by.app", "0"}}},
        {"odm hit", {}, {white(0x1f)}, 1, 0x1f, 1, odm("com.example.app#1f#com.c#0")},
        {"odm second pair", {}, {white(0xb)}, 1, 0xb, 1, odm("com.other#3#com.example.app#b")},
        {"odm name longer than the package", {}, {white(5)}, 1, 5, 1, odm("com.example.app.pro#5")},
        {"odm name shorter than the package", {}, {white(0)}, 0, 0, 0, odm("com.example#5")},
        {"odm odd count", {}, {white(0)}, 0, 0, 0, odm("com.example.app#1f#com.c")},
        {"odm single item", {}, {white(0)}, 0, 0, 0, odm("com.example.app")},
        {"odm empty value stops", {}, {white(0)}, 0, 0, 0,
         odm("com.example.app##com.example.app#5")},
        {"odm separators only", {}, {white(0)}, 0, 0, 0, odm("###")},
        {"odm from the persistent property", {}, {white(9)}, 1, 9, 1,
         {{"ro.tavro.vpplisttype", "new"},
          {"persist.tavro.vpplist.odm.value", "com.example.app#9"}}},
        {"odm ignored for the default type", {}, {white(0)}, 0, 0, 0,
         {{"ro.tavro.vpplist.odm.value", "com.example.app#9"}}},
        {"white list overrides odm under control", {three}, engine(3) + white(3), 1, 3, 1,
         odm("com.example.app#1f")},
        {"odm hit stands without control", {three}, engine(3) + white(0x1f), 1, 0x1f, 1,
         odm("com.example.app#1f") + Props{{"ro.tavro.vpp.control.by.app", "0"}}},
    });
}

TEST_F(TavroVppSelectionTest, ChipAndMimeRules) {
    const Props sm8650 = {{"ro.soc.model", "SM8650"}};
    const Key noFence = i32("vendor.qti-ext-output-fence.enable", 0);
    const Key byteBuffer = i32("vendor.ext-dec-bytebuffer-mode.value", 1);
    const Key noDelay = i32("tavro.input_delay", 0);
    run({
        {"av01 on SM8650: no output fence", listed("8"), {white(8), noFence}, 1, 8, 0, sm8650,
         "video/av01"},
        {"vp9 on a SM8650 variant", listed("8"), {white(8), noFence}, 1, 8, 0,
         {{"ro.soc.model", "sm8650p"}}, "video/x-vnd.on2.vp9"},
        {"av01 on another chip", listed("8"), {white(8)}, 1, 8, 0, {{"ro.soc.model", "SM8550"}},
         "video/av01"},
        {"av01 without post-processing", {}, {white(0)}, 0, 0, 0, sm8650, "video/av01"},
        {"qcom hardware: no input delay", listed("3"), engine(3) + white(3) + noDelay, 1, 3, 1,
         {{"ro.hardware", "qcom"}}},
        {"QCOM prefix, any case", listed("3"), engine(3) + white(3) + noDelay, 1, 3, 1,
         {{"ro.hardware", "QCOM-x"}}},
        {"other hardware keeps its delay", listed("3"), engine(3) + white(3), 1, 3, 1,
         {{"ro.hardware", "mt6989"}}},
        {"dolby vision is never post-processed", listed("3"), engine(3) + white(0) + byteBuffer, 0,
         0, 0, {}, "video/dolby-vision"},
        // The app's 9 is written back as it came: not a change.
        {"dolby vision with the app's value", listed("3"), engine(3) + byteBuffer, 1, 9, 0, {},
         "video/dolby-vision", {white(9)}},
        {"app's int64 value keeps its low 32 bits", listed("3"), engine(3) + white(7), 1, 7, 1, {},
         "video/avc", {white(0x100000007LL)}},
        {"app's int32 value becomes int64", {}, {white(9)}, 1, 9, 0, {}, "video/avc",
         {i32("vendor.tavro.vpp.white.list.value", 9)}},
        {"app's zero turns it off", listed("3"), engine(3), 0, 0, 1, {}, "video/avc", {white(0)}},
    });
}
// clang-format on

TEST_F(TavroVppSelectionTest, LowMemorySwitchesTheWholeSelectionOff) {
    struct MemCase {
        const char* name;
        int64_t availKb;
        std::vector<ListEntry> lists;
        std::vector<Key> changed;
        bool lowMemory;
    };
    const MemCase cases[] = {
            {"low and listed", 1048575, listed("3"), {}, true},
            {"at the line", 1048576, listed("3"), engine(3) + white(3), false},
            {"low but not listed", 1000, {}, {white(0)}, false},
            {"low with an empty value", 1000, listed(""), {white(0)}, false},
    };
    for (const MemCase& c : cases) {
        SCOPED_TRACE(c.name);
        SetUp();
        useProcRoot(c.availKb);
        setLists(c.lists);
        sp<AMessage> format = appFormat("video/avc", {});
        expectChanges(format, configure(kDecoder, format), c.changed);
        EXPECT_EQ(c.lowMemory ? 1u : 0u, logCount("lowmem disable vpp", ANDROID_LOG_DEBUG));
        // The channel hears nothing when the selection is switched off.
        EXPECT_EQ(c.lowMemory ? 0u : 1u, host::HostLog::count("bFFModeStatus"));
    }
}

TEST_F(TavroVppSelectionTest, EncodersAndAudioNeverSelect) {
    const std::vector<Key> input = {i32("vendor.tavro-sr-enable.value", 1)};
    runCases("c2.qti.avc.encoder", "video/avc", input + std::vector<Key>{i32("encoder", 1)},
             {{"video encoder", listed("3"), {}, {}, OK, {{"debug.tavro.sr.on", "1"}}}});
    EXPECT_EQ(0u, host::HostLog::count("bFFModeStatus"));
    runCases("c2.android.aac.decoder", "audio/mp4a-latm", input,
             {{"audio decoder", listed("3"), {}, {}, OK, {{"debug.tavro.sr.on", "1"}}}});
    EXPECT_EQ(0u, host::HostLog::count("bFFModeStatus"));
}

TEST_F(TavroVppSelectionTest, AppSwitchAtConfigureAndAtRunTime) {
    struct SwitchCase {
        const char* name;
        std::vector<Key> input;
        std::vector<Key> changed;
    };
    const Key srEnable = i32("vendor.tavro-sr-enable.value", 0);
    auto request = [&](int32_t v) { return std::vector<Key>{i32(srEnable.name.c_str(), v)}; };
    auto answer = [](int32_t v) {
        return std::vector<Key>{i32("vendor.tavro.switch.by.app.value", v)};
    };
    const SwitchCase cases[] = {
            {"5 is on", request(5), answer(2)},
            {"1 is on", request(1), answer(2)},
            {"0 is off", request(0), answer(8)},
            {"negative", request(-3), answer(-1)},
            {"int64 is no request", {i64(srEnable.name.c_str(), 1)}, {}},
            {"absent", {}, {}},
    };
    for (const SwitchCase& c : cases) {
        SCOPED_TRACE(c.name);
        SetUp();
        sp<AMessage> format = appFormat("video/avc", c.input);
        expectChanges(format, configure(kDecoder, format), c.changed + white(0));

        // At run time the parameters reach the base with the switch added.
        sp<AMessage> params = new AMessage();
        setKeys(params, c.input);
        mHarness->codec()->signalSetParameters(params->dup());
        mHarness->runPending();
        const std::vector<sp<AMessage>> sets = setParameterCalls();
        expectChanges(params, sets.empty() ? nullptr : sets.back(), c.changed);
        // Logged at configure and again at run time.
        EXPECT_EQ(c.changed.empty() ? 0u : 2u,
                  host::HostLog::count("[configTavroVppSwitchByApp:L841] iSrEnableValue = "));
    }
}

TEST_F(TavroVppSelectionTest, ToneMappingRequestDroppedInListedActivities) {
    const Props on = {{"ro.tavro.tonemap.filter", "1"}};
    const std::vector<ListEntry> activity = {byActivity("enable-tonemap-activity", "")};
    const std::vector<Key> request = {i32("color-transfer-request", 3)};
    const std::vector<Key> dropped = {i32("color-transfer-request", 0), white(0)};
    // clang-format off
    runCases(kDecoder, "video/avc", {}, {
        {"listed activity", activity, request, dropped, OK, on},
        {"int64 request replaced by int32 0", activity, {i64("color-transfer-request", 3)},
         dropped, OK, on},
        {"filter off", activity, request, {white(0)}},
        {"filter property 2", activity, request, {white(0)}, OK,
         {{"ro.tavro.tonemap.filter", "2"}}},
        {"activity not listed", {}, request, {white(0)}, OK, on},
        {"no request", activity, {}, {white(0)}, OK, on},
    }, "configureTonemapFilter");
    runCases("c2.qti.avc.encoder", "video/avc", {i32("encoder", 1)}, {
        {"encoder", activity, request, {}, OK, on},
    }, "configureTonemapFilter");
    // clang-format on
}

TEST_F(TavroVppSelectionTest, LogLinesOfTheSelection) {
    setProps({{"ro.tavro.vpplisttype", "720p"}});
    setLists({byUid("sr-lumo-whitelist-720p", kBinderUid, "0x13"),
              byUid("sr-lumo-control-by-app", kBinderUid, "21")});
    configure(kDecoder, appFormat("video/avc", {white(0x40)}));
    const char* const kLines[] = {
            "[configTavroVppType:L897] whitelist:sr-lumo-whitelist-720p",
            "configTavroVppType app type:19, 0x13",
            "[configTavroVppTypeV2:L718] whitelist:sr-lumo-whitelist-720p",
            "Get sr-lumo-control-by-app value:0x21",
            "[configTavroVppTypeV2:L807] iDefaultWhiteListValue = 64",
    };
    for (const char* line : kLines) EXPECT_EQ(1u, logCount(line)) << line;

    SetUp();
    setProps({{"ro.tavro.vpplisttype", "odm"},
              {"ro.tavro.vpplist.odm.value", "com.example.app#1f"}});
    configure(kDecoder, appFormat("video/avc", {}));
    EXPECT_EQ(1u, logCount("[configTavroVppTypeV2:L745] odm value:1f  - 31", ANDROID_LOG_DEBUG));

    SetUp();
    setLists({byActivity(kWhiteList, "1c")});
    configure("c2.qti.dv.decoder", appFormat("video/dolby-vision", {}));
    EXPECT_EQ(1u, logCount("getListValueByTopActivity 0x1c.", ANDROID_LOG_DEBUG));
    EXPECT_EQ(1u, logCount("[configTavroVppTypeV2:L802] dolby-vision set iVppWhiteListValue = 0",
                           ANDROID_LOG_DEBUG));
}

TEST_F(TavroVppSelectionTest, UntrustedListValuesAreReadWithinTheirBuffer) {
    // 256 unterminated bytes of "3": far beyond 64 bits, so the low 32 bits of the saturated
    // parse (-1) in both bases.
    setLists(listed("3"));
    host::HostListService::setFault(host::HostListService::Fault::kUnterminated);
    sp<AMessage> format = appFormat("video/avc", {});
    expectChanges(format, configure(kDecoder, format), engine(-1) + white(-1));

    // A service that answers nothing: no value from any list.
    SetUp();
    setLists(listed("3") + std::vector<ListEntry>{byActivity(kWhiteList, "5")});
    host::HostListService::setFault(host::HostListService::Fault::kNoAnswer);
    format = appFormat("video/avc", {});
    expectChanges(format, configure(kDecoder, format), {white(0)});
}

}  // namespace
}  // namespace android
