// The tavro-sim command as a user meets it: options, every class of bad input, the streamed trace
// and what is left of it when the library stops the process on a fatal check.
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tools/ToolsTestSupport.h"
#include "tools/sim/TavroScenarioLoader.h"
#include "tools/sim/TavroSimMain.h"

namespace android {
namespace {

using test::ScratchDir;
using ::testing::HasSubstr;
using ::testing::StartsWith;

int runSim(std::vector<const char*> args, std::string* out, std::string* err) {
    args.insert(args.begin(), "tavro-sim");
    std::ostringstream o, e;
    const int status = tavroSimMain(static_cast<int>(args.size()), args.data(), o, e);
    *out = o.str();
    *err = e.str();
    return status;
}

std::vector<std::string> lines(const std::string& text) {
    std::vector<std::string> out;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) out.push_back(line);
    return out;
}

// A played session: allocate, configure, start, then `events` (JSON array items, leading comma).
std::string session(const std::string& events, const std::string& extra = "") {
    return R"({"process": {"name": "com.app", "pid": 4321, "uid": 10123}, "component": "c2.x",)" +
           extra + R"( "events": [{"event": "allocate"},
           {"event": "configure", "format": {"mime": "video/avc"}}, {"event": "start"})" +
           events + "]}";
}

TEST(TavroSimMainTest, EveryBadInputIsOneLineWithStatusTwo) {
    ScratchDir dir;
    // A sparse file: larger than a scenario may be, without the disk space.
    const std::string large = dir.write("large.json", "");
    ASSERT_EQ(truncate(large.c_str(), static_cast<off_t>(kTavroMaxScenarioBytes + 1)), 0);
    std::string nested = "[";
    for (size_t i = 0; i < kTavroMaxNesting; ++i) nested += "[";
    nested += std::string(kTavroMaxNesting + 1, ']');
    std::string deepPath = "x";
    for (size_t i = 2; i <= kTavroMaxNesting; ++i) deepPath += "[0]";  // the 33rd container
    std::string days;
    for (int i = 0; i < 367; ++i) days += R"(, {"event": "advance", "ms": 86400000})";

    // Usage faults and files that cannot be read.
    const std::pair<std::vector<std::string>, std::string> kUsage[] = {
            {{}, "tavro-sim: scenario is required (see --help)"},
            {{"--fast", "x.json"},
             "tavro-sim: The following argument was not expected: --fast (see --help)"},
            {{"--log-level", "100", "x.json"},
             "tavro-sim: --log-level: Value 100 not in range 0 to 99 (see --help)"},
            {{"--only", "boost,boots", "x.json"},
             "tavro-sim: --only: boots not in {step,format,declined,param,boost,unboost,task_boost,"
             "feedback,stat,analysis,pelto,callback,platform,timer,log,unused,summary} (see "
             "--help)"},
            {{"--timeline", "/nonexistent/dir/t.json",
              test::toolsSourceDir() + "/scenarios/default.json"},
             "tavro-sim: /nonexistent/dir/t.json: cannot write: No such file or directory"},
            {{dir.path() + "/absent.json"},
             dir.path() + "/absent.json: cannot read: No such file or directory"},
            {{dir.path()}, dir.path() + ": cannot read: Is a directory"},
            {{"/dev/zero"}, "/dev/zero: cannot read: not a regular file or a pipe"},
            {{large}, large + ": larger than 134217728 bytes, the most a scenario file may have"},
    };
    // Scenarios the loader refuses: "S" stands for the scenario's path.
    const std::pair<std::string, std::string> kScenarios[] = {
            {R"({"process": 5})", "S: process: expected an object"},
            {session(R"(, {"event": "clip", "count": 3, "fps": 1e400})"),
             "S: events[3].fps: number out of range: 1e400"},
            {R"({"x": )" + nested + "}", "S: " + deepPath + ": nesting deeper than 32 levels"},
            {R"({"process": {"name": "a", "pid": 1, "uid": 2}, "component": "c", "events": 5})",
             "S: events: expected an array"},
            {session("", R"( "property_files": ["/dev/zero"],)"),
             "S: property_files[0]: cannot read '/dev/zero': not a regular file"},
            {session(R"(, {"event": "clip", "count": 2, "fps": 0.000001})"),
             "S: events[3]: fps x speed is 1e-06, below 0.1: a frame would last more than 10 s on "
             "the clock"},
            {session(days),
             "S: events[369]: the clock would pass 366 days, the longest a scenario may run"},
            {session(R"(, {"event": "clip", "count": 10, "fps": 1, "start_us": 9223372036854775})"),
             "S: events[3]: the clip's last pts would be 9223372045854775 us, beyond "
             "9223372036854775"},
            {session("", R"( "order": "loose",)"), "S: order: expected \"strict\" or \"free\""},
            {R"({"process": {"name": "a", "pid": 1, "uid": 2}, "component": "c",
                 "events": [{"event": "allocate"}, {"event": "input", "time_us": 0}]})",
             "S: events[1]: 'input' before 'start' (\"order\": \"free\" plays misuse on purpose)"},
            {R"({"process": {"name": "a", "pid": 1, "uid": 2}, "component": "c",
                 "events": [{"event": "start"}]})",
             "S: events[0]: 'start' before 'allocate' (\"order\": \"free\" plays misuse on "
             "purpose)"},
            {session(R"(, {"event": "allocate"})"),
             "S: events[3]: 'allocate' twice: the codec is already allocated (\"order\": \"free\" "
             "plays misuse on purpose)"},
            {session(R"(, {"event": "shutdown", "keep_allocated": true},
                        {"event": "render", "time_us": 5})"),
             "S: events[4]: 'render' after 'shutdown' (\"order\": \"free\" plays misuse on "
             "purpose)"},
    };
    auto expectBadInput = [](const std::vector<std::string>& args, const std::string& expected) {
        SCOPED_TRACE(expected);
        std::vector<const char*> argv;
        for (const std::string& a : args) argv.push_back(a.c_str());
        std::string out, err;
        EXPECT_EQ(runSim(argv, &out, &err), kTavroExitBadInput);
        EXPECT_EQ(out, "");
        EXPECT_EQ(err, expected + "\n");
    };
    for (const auto& [args, err] : kUsage) expectBadInput(args, err);
    for (const auto& [scenario, err] : kScenarios) {
        const std::string path = dir.write("s.json", scenario);
        expectBadInput({path}, path + err.substr(1));
    }
}

TEST(TavroSimMainTest, MisuseOnPurposePlaysWithFreeOrder) {
    ScratchDir dir;
    const std::string path = dir.write("free.json", R"({"order": "free",
        "process": {"name": "a", "pid": 1, "uid": 2}, "component": "c2.qti.avc.decoder",
        "events": [{"event": "input", "time_us": 0}, {"event": "start"}, {"event": "start"}]})");
    std::string out, err;
    ASSERT_EQ(runSim({"--only", "step", path.c_str()}, &out, &err), kTavroExitOk) << err;
    EXPECT_THAT(lines(out),
                ::testing::ElementsAre(HasSubstr("step       scenario"),
                                       HasSubstr("input pts 0 us, 4096 bytes"), HasSubstr("start"),
                                       HasSubstr("start"), HasSubstr("destroy (end of scenario)")));
}

// The text view repeats from run to run and has a line for each JSON object; --only keeps the
// named kinds, --summary ends with the decisions.
TEST(TavroSimMainTest, OptionsShapeTheStreamedTrace) {
    const std::string path = test::toolsSourceDir() + "/scenarios/default.json";
    std::string first, second, json, err;
    ASSERT_EQ(runSim({path.c_str()}, &first, &err), 0) << err;
    ASSERT_EQ(runSim({path.c_str()}, &second, &err), 0) << err;
    EXPECT_EQ(first, second);
    ASSERT_EQ(runSim({"--json", path.c_str()}, &json, &err), 0) << err;
    EXPECT_EQ(err, "");
    std::set<std::string> seen;
    for (const std::string& line : lines(json)) {
        const nlohmann::ordered_json j = nlohmann::ordered_json::parse(line);
        EXPECT_EQ(j.begin().key(), "kind");
        seen.insert(j["kind"]);
    }
    EXPECT_EQ(lines(json).size(), lines(first).size());
    EXPECT_EQ(seen, (std::set<std::string>{"step", "format", "declined", "param", "boost",
                                           "unboost", "task_boost", "feedback", "analysis", "pelto",
                                           "callback", "platform", "timer"}));

    std::string out;
    ASSERT_EQ(runSim({"--only", "boost,unboost", "--summary", path.c_str()}, &out, &err), 0);
    EXPECT_THAT(lines(out),
                ::testing::ElementsAre(
                        StartsWith("[    0.000] boost      sched=2 needVendorBoost=0"),
                        "[    5.033] unboost    flags=0x20 (cluster part)",
                        "[    9.033] summary    counts: step 20, format 6, declined 12, param 4, "
                        "boost 1, "
                        "unboost 1, task_boost 1, feedback 6, analysis 291, pelto 1, callback 5, "
                        "platform 1, timer 10",
                        "[    9.033] summary    boosts: sent 1, released 1, task_boosts 1",
                        "[    9.033] summary    modes: VppModeParam 1 at 3.433, VppModeParam 0 at "
                        "5.033",
                        "[    9.033] summary    hdr: HDR10 (hdr_type 1)"));

    ASSERT_EQ(runSim({"--version"}, &out, &err), 0);
    EXPECT_EQ(out, "tavro-sim 1.1 (scenario format 1)\n");
    ASSERT_EQ(runSim({"--help"}, &out, &err), 0);
    for (const char* part : {"--log-level", "--only", "--summary", "--version", "Events: allocate",
                             "Exit status: 0 played; 2", "3 the library stopped", "Example: "}) {
        EXPECT_THAT(out, HasSubstr(part));
    }
}

// In --json a configure carries its format as the scenario wrote it, and service-call arguments
// keep their types.
TEST(TavroSimMainTest, JsonValuesAreTyped) {
    ScratchDir dir;
    const std::string path = dir.write(
            "typed.json",
            session(R"(, {"event": "set_parameters", "params": {"operating-rate": {"float": 60},
                          "b": {"int64": 5}, "s": {"string": "7"}}})"));
    std::string out, err;
    ASSERT_EQ(runSim({"--json", "--only", "step,callback,analysis", path.c_str()}, &out, &err), 0)
            << err;
    std::vector<nlohmann::ordered_json> all;
    for (const std::string& line : lines(out)) all.push_back(nlohmann::ordered_json::parse(line));
    auto find = [&](const char* kind, const char* name) {
        for (const auto& j : all) {
            if (j["kind"] == kind && j["name"] == name) return j;
        }
        return nlohmann::ordered_json();
    };
    EXPECT_EQ(find("step", "configure")["format"], nlohmann::ordered_json::parse(R"({"mime":
        "video/avc"})"));
    EXPECT_EQ(find("step", "set_parameters")["params"],
              nlohmann::ordered_json::parse(
                      R"({"operating-rate": {"float": 60.0}, "b": {"int64": 5}, "s": "7"})"));
    const nlohmann::ordered_json configured = find("callback", "onComponentConfigured")["args"];
    EXPECT_EQ(configured["inputFormat"]["mime"], "video/avc");
    EXPECT_TRUE(find("analysis", "updateParameters")["args"]["codec-create-time"].is_number());
}

// The library's fatal check stops the process: the trace up to then is out, and the last line on
// stderr names the check and the event; the /proc fixture is gone.
TEST(TavroSimMainDeathTest, FatalCheckKeepsTheTraceAndNamesTheCheck) {
    // Forked, not re-run: the child writes where this process reads afterwards.
    GTEST_FLAG_SET(death_test_style, "fast");
    ScratchDir dir;
    const std::string scenario = dir.write("fatal.json", R"({
        "process": {"name": "com.app", "pid": 4321, "uid": 10123, "top_activity": "com.app/.Rec"},
        "lists": {"encoder-pre-process": [{"activity": "com.app/.Rec", "value": "type=avc"}]},
        "component": "c2.qti.avc.encoder",
        "events": [{"event": "allocate"},
                   {"event": "configure", "format": {"mime": "video/avc", "encoder": 1,
                    "bitrate": 1000000, "width": 70000, "height": 70000}},
                   {"event": "start"}]})");
    const std::string trace = dir.path() + "/trace.txt";
    const std::string fixtures = dir.path() + "/tmp";
    std::filesystem::create_directory(fixtures);
    auto play = [&] {
        setenv("TMPDIR", fixtures.c_str(), 1);
        std::ofstream out(trace);
        const char* argv[] = {"tavro-sim", scenario.c_str()};
        tavroSimMain(2, argv, out, std::cerr, /*standalone=*/true);
    };
    EXPECT_EXIT(play(), ::testing::ExitedWithCode(kTavroExitFatalCheck),
                "fatal.json: the library stopped the process on a fatal check during events\\[1\\] "
                "\\(configure\\): F/TavroCCodec: configEncoderFilter: width 70000 x height 70000 "
                "overflows\n$");
    const std::vector<std::string> printed = lines(test::readFile(trace));
    ASSERT_FALSE(printed.empty());
    EXPECT_THAT(printed.back(), HasSubstr("analysis   updateParameters codec-config-in="));
    EXPECT_THAT(printed, ::testing::Contains(HasSubstr("step       configure {mime=")));
    EXPECT_TRUE(std::filesystem::is_empty(fixtures));
}

}  // namespace
}  // namespace android
