#include "tools/sim/TavroScenarioPlayer.h"

#include <algorithm>
#include <set>
#include <sstream>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tools/ToolsTestSupport.h"
#include "tools/sim/TavroScenarioLoader.h"
#include "tools/sim/TavroSimMain.h"

namespace android {
namespace {

using test::indexOf;
using test::named;
using test::ScratchDir;
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

TEST(TavroScenarioPlayerTest, LogLinesOnlyWithALogLevel) {
    const std::string scenario =
            R"("component": "c2.qti.avc.decoder", "events": [{"event": "flush"}])";
    EXPECT_TRUE(play(kApp, scenario).ofKind("log").empty());
    TavroSimOptions options;
    options.hasLogLevel = true;
    options.logLevel = 7;
    EXPECT_THAT(texts(play(kApp, scenario, options), "log"),
                Contains(::testing::StartsWith("D/TavroCCodec: signalFlush")));
}

TEST(TavroTraceTest, MergesRepeatsAndFormatsLines) {
    TavroTrace trace;
    for (int64_t t : {1000000, 2000000, 3000000}) {
        TavroTraceEntry e;
        e.kind = "timer";
        e.timeUs = t;
        e.text = "cFps";
        e.fields["name"] = "cFps";
        trace.add(e);
    }
    TavroTraceEntry other;
    other.kind = "param";
    other.timeUs = 3500000;
    other.text = "VppModeParam (0xc0008600) = 1, status 0";
    other.fields["value"] = 1;
    trace.add(other);
    ASSERT_EQ(trace.entries().size(), 2u);
    EXPECT_EQ(TavroTrace::textLine(trace.entries()[0]),
              "[    1.000] timer      cFps (x3 until 3.000)");
    EXPECT_EQ(TavroTrace::jsonLine(trace.entries()[0]),
              R"({"kind":"timer","t_us":1000000,"name":"cFps","repeat":3,"last_t_us":3000000})");
    EXPECT_EQ(TavroTrace::textLine(trace.entries()[1]),
              "[    3.500] param      VppModeParam (0xc0008600) = 1, status 0");
    EXPECT_EQ(TavroTrace::jsonLine(trace.entries()[1]),
              R"({"kind":"param","t_us":3500000,"value":1})");
}

// ---- The command --------------------------------------------------------------------------------

int runSim(std::vector<const char*> args, std::string* out, std::string* err) {
    args.insert(args.begin(), "tavro-sim");
    std::ostringstream o, e;
    const int status = tavroSimMain(static_cast<int>(args.size()), args.data(), o, e);
    *out = o.str();
    *err = e.str();
    return status;
}

// The text view repeats from run to run and has a line for each JSON object.
TEST(TavroSimMainTest, RunsRepeatAndJsonLinesCarryAKindEach) {
    const std::string path = test::toolsSourceDir() + "/scenarios/default.json";
    std::string first, second, out, err;
    ASSERT_EQ(runSim({path.c_str()}, &first, &err), 0) << err;
    ASSERT_EQ(runSim({path.c_str()}, &second, &err), 0) << err;
    EXPECT_EQ(first, second);
    ASSERT_EQ(runSim({"--json", path.c_str()}, &out, &err), 0) << err;
    EXPECT_EQ(err, "");
    const std::set<std::string> kinds = {"step",       "format",   "param", "boost",    "unboost",
                                         "task_boost", "feedback", "stat",  "analysis", "pelto",
                                         "callback",   "platform", "timer", "log"};
    std::istringstream lines(out);
    std::string line;
    std::set<std::string> seen;
    size_t count = 0;
    while (std::getline(lines, line)) {
        const nlohmann::ordered_json j = nlohmann::ordered_json::parse(line);
        ASSERT_TRUE(j.contains("kind")) << line;
        ASSERT_TRUE(j.contains("t_us")) << line;
        EXPECT_EQ(j.begin().key(), "kind");
        EXPECT_EQ(kinds.count(j["kind"]), 1u) << line;
        seen.insert(j["kind"]);
        ++count;
    }
    EXPECT_GT(count, 50u);
    EXPECT_EQ(static_cast<size_t>(std::count(first.begin(), first.end(), '\n')), count);
    const std::set<std::string> expectedSeen = {"step",    "format",     "param",    "boost",
                                                "unboost", "task_boost", "feedback", "analysis",
                                                "pelto",   "callback",   "platform", "timer"};
    EXPECT_EQ(seen, expectedSeen);
}

TEST(TavroSimMainTest, BadUsageAndInputExitWithTwo) {
    ScratchDir dir;
    const std::string bad = dir.write("bad.json", R"({"process": 5})");
    struct Case {
        const char* name;
        std::vector<const char*> args;
        std::string err;
    };
    const Case kCases[] = {
            {"no scenario", {}, "tavro-sim: scenario is required (see --help)\n"},
            {"unknown option",
             {"--fast", "x.json"},
             "tavro-sim: The following argument was not expected: --fast (see --help)\n"},
            {"log level out of range",
             {"--log-level", "100", "x.json"},
             "tavro-sim: --log-level: Value 100 not in range 0 to 99 (see --help)\n"},
            {"bad scenario", {bad.c_str()}, bad + ": process: expected an object\n"},
    };
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.name);
        std::string out, err;
        EXPECT_EQ(runSim(c.args, &out, &err), 2);
        EXPECT_EQ(out, "");
        EXPECT_EQ(err, c.err);
    }
    std::string out, err;
    EXPECT_EQ(runSim({"--help"}, &out, &err), 0);
    EXPECT_NE(out.find("--log-level"), std::string::npos);
}

}  // namespace
}  // namespace android
