#include "tools/sim/TavroScenarioPlayer.h"

#include <unistd.h>

#include <regex>
#include <sstream>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tools/ToolsTestSupport.h"
#include "tools/sim/TavroScenarioLoader.h"
#include "tools/sim/TavroTraceTaps.h"

namespace android {
namespace {

using test::indexOf;
using test::named;
using test::texts;
using ::testing::Contains;

constexpr char kApp[] = R"("process": {"name": "com.app", "pid": 4321, "uid": 10123},)";

// Plays {process, the qcom / QXSM8550 / 22001 platform, rest}.
TavroTrace play(const std::string& process, const std::string& rest, TavroSimOptions options = {}) {
    const std::string text = "{" + process + R"("properties": {"ro.hardware": "qcom",
        "ro.build.device_family": "QXSM8550", "ro.boot.prjname": "22001"},)" +
                             rest + "}";
    TavroScenario scenario = loadTavroScenarioText(text, "t.json", "");
    TavroTrace trace;
    std::string error;
    EXPECT_TRUE(playTavroScenario(scenario, options, &trace, &error)) << error;
    return trace;
}

TEST(TavroScenarioPlayerTest, ProcessIdsStandForTheRealProcess) {
    // The list is keyed by the scenario's uid and the format names the same uid as the caller:
    // both become the real uid, so the destructor finds the codec in video-statistics.
    const TavroTrace trace = play(kApp, R"(
      "lists": {"video-statistics": [{"uid": 10123}]},
      "component": "c2.qti.avc.decoder",
      "events": [
        {"event": "allocate"},
        {"event": "configure", "format": {"mime": "video/avc", "calling-uid": {"int64": 10123}}},
        {"event": "input", "time_us": 0},
        {"event": "destroy"}
      ])");
    EXPECT_THAT(texts(trace, "feedback"),
                Contains("pushFeedbackInfo id=codec key=inPutCount value=1 flag=0"));
    // The alias is the real uid inside the format too, which the pipeline leaves as it is.
    for (const TavroTraceEntry& e : trace.ofKind("format")) {
        EXPECT_NE(e.fields["key"], "calling-uid") << e.text;
    }
}

TEST(TavroScenarioPlayerTest, BinderCallerIsUsedAsWritten) {
    const TavroTrace trace = play(R"("process": {"name": "mediaserver", "pid": 1000, "uid": 1013,
                                    "caller": {"uid": 10500, "pid": 700}},)",
                                  R"("lists": {"disable-video-shaper": [{"uid": 10500}]},
      "component": "c2.qti.avc.encoder", "events": [{"event": "allocate"}])");
    EXPECT_GE(indexOf(trace, "callback", "onDisableVideoShaper disable=1"), 0);
}

TEST(TavroScenarioPlayerTest, ClipTimingFollowsFpsAndSpeed) {
    const TavroTrace trace = play(kApp, R"(
      "component": "c2.qti.avc.decoder",
      "events": [
        {"event": "configure", "format": {"mime": "video/avc"}},
        {"event": "clip", "count": 3, "fps": 10, "speed": 2, "drops": 3},
        {"event": "clip", "count": 2, "fps": 10},
        {"event": "render", "time_us": 900000, "render_ns": 42},
        {"event": "advance", "us": 1500}
      ])");
    const std::vector<TavroTraceEntry> clips = named(trace, "step", "clip");
    ASSERT_EQ(clips.size(), 2u);
    EXPECT_EQ(clips[0].fields["start_us"], 0);
    EXPECT_EQ(clips[1].fields["start_us"], 300000);  // continues after pts 200000
    const std::vector<TavroTraceEntry> ends = named(trace, "step", "clip_end");
    ASSERT_EQ(ends.size(), 2u);
    EXPECT_EQ(ends[0].text, "clip done: 3 queued, 3 output, 2 rendered, 1 dropped");
    EXPECT_EQ(ends[0].timeUs, 150000);  // 3 frames of 50 ms at 2x
    EXPECT_EQ(clips[1].timeUs, 150000);
    EXPECT_EQ(ends[1].timeUs, 350000);  // 2 frames of 100 ms
    const std::vector<TavroTraceEntry> render = named(trace, "step", "render");
    ASSERT_EQ(render.size(), 1u);
    EXPECT_EQ(render[0].fields["render_ns"], 42);
    const std::vector<TavroTraceEntry> advance = named(trace, "step", "advance");
    ASSERT_EQ(advance.size(), 1u);
    EXPECT_EQ(advance[0].text, "advance 1.5 ms");
    // The end of the scenario releases a codec the scenario left alive.
    EXPECT_EQ(texts(trace, "step").back(), "destroy (end of scenario)");
}

TEST(TavroScenarioPlayerTest, BoostMessagesNeverReachThePlatform) {
    const TavroTrace trace = play(kApp, R"(
      "component": "c2.qti.avc.decoder",
      "events": [
        {"event": "set_parameters", "params": {"tavro-boost-info": "4400,4401"}},
        {"event": "set_parameters", "params": {"vendor.tavro-sr-enable.value": 1}}
      ])");
    EXPECT_EQ(texts(trace, "format"),
              (std::vector<std::string>{"parameters not passed to the platform",
                                        "+ vendor.tavro.switch.by.app.value (int32) = 2"}));
    const std::vector<TavroTraceEntry> format = trace.ofKind("format");
    EXPECT_EQ(format[0].fields["change"], "not_passed");
    EXPECT_EQ(format[1].fields["stage"], "set_parameters");
    EXPECT_EQ(format[1].fields["value"], 2);
}

// Steps that changed nothing come from the codec's record of each step, one line per reason:
// a decoder's encoder steps share one line, an encoder's rate control says what it lacked.
TEST(TavroScenarioPlayerTest, DeclinedStepsSayWhy) {
    const struct {
        const char* component;
        const char* format;
        const char* line;  // one declined line
    } kCases[] = {
            {"decoder", "",
             "configureBitrateMode, configureOutputDelay, setGopAndBitrate, setBFrame, "
             "setUsageFlag, configEncoderQpRange: no change: not a video encoder"},
            {"encoder", R"("encoder": 1, )",
             "setGopAndBitrate: no change: the format has no "
             "min-qp-value or max-qp-value (status -2147483648)"},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.component);
        const TavroTrace trace = play(
                kApp, std::string(R"("component": "c2.qti.avc.)") + c.component + R"(", "events": [
                {"event": "allocate"}, {"event": "configure", "format": {"mime": "video/avc", )" +
                              c.format + R"("width": 1280, "height": 720}}])");
        EXPECT_THAT(texts(trace, "declined"), Contains(c.line));
        const std::vector<TavroTraceEntry> entries = trace.ofKind("declined");
        ASSERT_FALSE(entries.empty());
        EXPECT_TRUE(entries[0].fields["steps"].is_array());
        EXPECT_TRUE(entries[0].fields["status"].is_number_integer());
    }
}

// Repeats merge into their first line, which the writer streams once the repeat is over.
TEST(TavroTraceTest, MergesRepeatsAndStreamsFinishedLines) {
    std::ostringstream out;
    TavroTraceWriter writer(out, /*json=*/false);
    TavroTrace trace;
    TavroTraceEntry timer;
    timer.kind = "timer";
    timer.fields = {{"name", "cFps"}, {"what", "frame-rate check"}};
    for (int64_t t : {1000000, 2000000, 3000000}) {
        timer.timeUs = t;
        trace.add(timer);
        writer.add(timer);
    }
    EXPECT_EQ(out.str(), "");  // the repeat may go on
    TavroTraceEntry param;
    param.kind = "param";
    param.timeUs = 3500000;
    param.text = "VppModeParam (0xc0008600) = 1, status 0";
    param.fields["value"] = 1;
    trace.add(param);
    writer.add(param);
    const std::string timerLine = "[    1.000] timer      cFps (frame-rate check) (x3 until 3.000)";
    EXPECT_EQ(out.str(), timerLine + "\n");
    writer.flush();
    EXPECT_EQ(out.str(),
              timerLine + "\n[    3.500] param      VppModeParam (0xc0008600) = 1, status 0\n");
    ASSERT_EQ(trace.entries().size(), 2u);
    EXPECT_EQ(TavroTrace::textLine(trace.entries()[0]), timerLine);
    EXPECT_EQ(TavroTrace::jsonLine(trace.entries()[0]),
              R"({"kind":"timer","t_us":1000000,"name":"cFps","what":"frame-rate check",)"
              R"("repeat":3,"last_t_us":3000000})");
    EXPECT_EQ(TavroTrace::jsonLine(trace.entries()[1]),
              R"({"kind":"param","t_us":3500000,"value":1})");
}

// Library log lines name objects and the process the same way in every run.
TEST(TavroScenarioPlayerTest, LogLinesShowStableIdentities) {
    TavroSimIdentity identity;
    identity.aliasPid = 4321;
    identity.realPid = 77001;
    identity.realTid = 77002;
    identity.nameAddress(0x55d0c3a4b2c0, "codec#1");
    struct Case {
        const char* name;
        std::string text;
        std::string shown;
    };
    const Case kCases[] = {
            {"named address", "signalFlush [212]: (0x55d0c3a4b2c0)",
             "signalFlush [212]: (codec#1)"},
            {"same address in decimal", "mFeedbackID:94355123909312", "mFeedbackID:codec#1"},
            {"other addresses by first sight", "a 0x7ffd1000aa10 b 0x7ffd1000bb20 a 0x7ffd1000aa10",
             "a object#1 b object#2 a object#1"},
            {"pid and tid", "PID: 77001, tid 77002, pid77001", "PID: 4321, tid 4321, pid77001"},
            {"flags and opcodes stay", "flags 0x20 opcode 0x40800110 line L242 rate 77001.5",
             "flags 0x20 opcode 0x40800110 line L242 rate 77001.5"},
    };
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(identity.shownText(c.text), c.shown);
    }

    TavroSimOptions options;
    options.hasLogLevel = true;
    options.logLevel = 7;
    const TavroTrace trace = play(kApp, R"("component": "c2.qti.avc.decoder", "events": [
        {"event": "allocate"}, {"event": "configure", "format": {"mime": "video/avc"}},
        {"event": "flush"}, {"event": "shutdown"}])",
                                  options);
    const std::regex address("0x[0-9a-fA-F]{9,}");
    const std::regex realPid("\\b" + std::to_string(getpid()) + "\\b");
    for (const std::string& line : texts(trace, "log")) {
        EXPECT_FALSE(std::regex_search(line, address)) << line;
        EXPECT_FALSE(std::regex_search(line, realPid)) << line;
    }
    // The line number is the source's own and moves with it; the codec's address is the name.
    EXPECT_THAT(texts(trace, "log"),
                Contains(::testing::MatchesRegex(
                        "D/TavroCCodec: signalFlush \\[[0-9]+\\]: \\(codec#1\\)")));
}

TEST(TavroScenarioPlayerTest, ServiceCallArgumentsKeepTheirTypes) {
    using Json = nlohmann::ordered_json;
    struct Case {
        const char* text;
        Json value;
    };
    const Case kCases[] = {
            {"42", 42},
            {"-7", -7},
            {"18446744073709551615", 18446744073709551615ull},
            {"30.03003", 30.03003},
            {"007", "007"},  // not how a number prints
            {"1.0", "1.0"},  // idem: the shortest form is "1"
            {"inf", "inf"},
            {"video/avc", "video/avc"},
            {"{}", Json::object()},
            {"{a=1, b=x, c={d=2.5}}", Json::parse(R"({"a": 1, "b": "x", "c": {"d": 2.5}})")},
            {"{a=1, b=x, y}", "{a=1, b=x, y}"},  // a value holding ", " stays text
    };
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.text);
        EXPECT_EQ(tavroTypedArgument(c.text), c.value);
    }
}

}  // namespace
}  // namespace android
