// tavro-sim --timeline: the file as trace viewers read it, for every bundled scenario; the default
// scenario's boost and detection slices against a hand derivation; the speed ratios and HDR type
// the timeline works out against the library's own report of them; the size of a long session.
#include <stdio.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "sfplugin/TavroCCodecBufferChannel.h"
#include "tools/ToolsTestSupport.h"
#include "tools/sim/TavroSimMain.h"
#include "tools/sim/TavroTraceTimeline.h"

namespace android {
namespace {

using Json = nlohmann::json;
using test::ScratchDir;

struct SimRun {
    int status = -1;
    std::string out;
    std::string err;
    Json timeline;
};

// Plays `scenario` with `options` and --timeline into a scratch file.
SimRun play(const std::string& scenario, std::vector<std::string> options = {}) {
    ScratchDir dir;
    const std::string file = dir.path() + "/timeline.json";
    std::vector<std::string> args = {"tavro-sim", "--timeline", file};
    args.insert(args.end(), options.begin(), options.end());
    args.push_back(scenario);
    std::vector<const char*> argv;
    for (const std::string& a : args) argv.push_back(a.c_str());
    std::ostringstream out, err;
    SimRun run;
    run.status = tavroSimMain(static_cast<int>(argv.size()), argv.data(), out, err);
    run.out = out.str();
    run.err = err.str();
    std::ifstream in(file);
    run.timeline = Json::parse(in, nullptr, /*allow_exceptions=*/false);
    return run;
}

std::vector<std::string> bundledScenarios() {
    std::vector<std::string> out;
    for (const auto& e :
         std::filesystem::directory_iterator(test::toolsSourceDir() + "/scenarios")) {
        if (e.path().extension() == ".json") out.push_back(e.path().string());
    }
    std::sort(out.begin(), out.end());
    return out;
}

// What a viewer needs of a Trace Event Format file; one line per problem.
std::vector<std::string> formatProblems(const Json& doc) {
    std::vector<std::string> problems;
    if (!doc.is_object() || !doc.contains("traceEvents") || !doc["traceEvents"].is_array()) {
        return {"not an object with a traceEvents array"};
    }
    if (doc.value("displayTimeUnit", "") != "ms") problems.push_back("displayTimeUnit is not ms");
    if (!doc.contains("metadata") || !doc["metadata"].is_object())
        problems.push_back("no metadata");
    std::map<std::pair<int64_t, int64_t>, std::string> names;
    std::map<std::pair<int64_t, int64_t>, std::vector<const Json*>> tracks;
    bool processNamed = false;
    for (const Json& e : doc["traceEvents"]) {
        const std::string where = e.dump().substr(0, 80);
        bool complete = e.is_object();
        for (const char* key : {"ph", "name"})
            complete = complete && e.contains(key) && e[key].is_string();
        for (const char* key : {"ts", "pid", "tid"})
            complete = complete && e.contains(key) && e[key].is_number();
        if (!complete) {
            problems.push_back("lacks ph, ts, pid, tid or name: " + where);
            continue;
        }
        const std::string ph = e["ph"];
        const std::pair<int64_t, int64_t> track = {e["pid"], e["tid"]};
        if (ph == "M") {
            if (e["name"] == "thread_name") names[track] = e["args"].value("name", "");
            if (e["name"] == "process_name") processNamed = true;
            continue;
        }
        tracks[track].push_back(&e);
        if (ph == "X" && !(e.contains("dur") && e["dur"].is_number() && e["dur"] >= 0)) {
            problems.push_back("X without a dur >= 0: " + where);
        }
        if (ph == "C") {
            const Json args = e.value("args", Json::object());
            bool numeric = args.is_object() && !args.empty();
            for (const auto& item : args.items()) numeric = numeric && item.value().is_number();
            if (!numeric) problems.push_back("counter without numeric args: " + where);
        }
    }
    if (!processNamed) problems.push_back("no process_name");
    for (const auto& [track, events] : tracks) {
        if (names[track].empty())
            problems.push_back("track " + std::to_string(track.second) + " unnamed");
        std::vector<double> open;  // ends of the slices that hold the current one
        double last = -1e300;
        for (const Json* e : events) {
            const double ts = (*e)["ts"];
            if (ts < last) problems.push_back("out of order on " + names[track] + ": " + e->dump());
            last = ts;
            if ((*e)["ph"] != "X" || !(*e)["dur"].is_number()) continue;
            const double end = ts + (*e)["dur"].get<double>();
            while (!open.empty() && open.back() <= ts) open.pop_back();
            if (!open.empty() && end > open.back()) {
                problems.push_back("slices overlap without nesting on " + names[track] + ": " +
                                   (*e)["name"].get<std::string>());
            }
            open.push_back(end);
        }
    }
    return problems;
}

// The named track's events of phase `ph` (all phases for "").
std::vector<Json> trackEvents(const Json& doc, const std::string& track, const std::string& ph) {
    int64_t tid = -1;
    for (const Json& e : doc["traceEvents"]) {
        if (e["ph"] == "M" && e["name"] == "thread_name" && e["args"]["name"] == track)
            tid = e["tid"];
    }
    std::vector<Json> out;
    for (const Json& e : doc["traceEvents"]) {
        if (e["tid"] == tid && e["ph"] != "M" && (ph.empty() || e["ph"] == ph)) out.push_back(e);
    }
    return out;
}

using Slice = std::tuple<std::string, int64_t, int64_t>;  // name, begin, end (µs)

std::vector<Slice> slices(const Json& doc, const std::string& track) {
    std::vector<Slice> out;
    for (const Json& e : trackEvents(doc, track, "X")) {
        out.emplace_back(e["name"], e["ts"], e["ts"].get<int64_t>() + e["dur"].get<int64_t>());
    }
    return out;
}

// The (time, value) samples of one counter.
std::vector<std::pair<int64_t, double>> counter(const Json& doc, const std::string& name) {
    std::vector<std::pair<int64_t, double>> out;
    for (const Json& e : doc["traceEvents"]) {
        if (e["ph"] == "C" && e["name"] == name)
            out.emplace_back(e["ts"], e["args"].begin().value());
    }
    return out;
}

// The value of a series of (time, value) samples at `t` (NaN before the first).
double valueAt(const std::vector<std::pair<int64_t, double>>& series, int64_t t) {
    double value = std::nan("");
    for (const auto& [ts, v] : series) {
        if (ts > t) break;
        value = v;
    }
    return value;
}

TEST(TavroTraceTimelineTest, FormatCheckCatchesWhatViewersMisdraw) {
    // The check the bundled scenarios pass must itself fail on each fault.
    const std::string head =
            R"({"displayTimeUnit": "ms", "metadata": {}, "traceEvents": [
                {"name": "process_name", "ph": "M", "ts": 0, "pid": 1, "tid": 0, "args": {"name": "p"}},
                {"name": "thread_name", "ph": "M", "ts": 0, "pid": 1, "tid": 1, "args": {"name": "t"}})";
    struct Case {
        const char* name;
        std::string events;
        const char* problem;  // "" = none
    };
    const Case kCases[] = {
            {"nested and touching slices",
             R"(, {"name": "a", "ph": "X", "ts": 0, "dur": 10, "pid": 1, "tid": 1},
               {"name": "b", "ph": "X", "ts": 2, "dur": 8, "pid": 1, "tid": 1},
               {"name": "c", "ph": "X", "ts": 10, "dur": 0, "pid": 1, "tid": 1})",
             ""},
            {"overlap", R"(, {"name": "a", "ph": "X", "ts": 0, "dur": 10, "pid": 1, "tid": 1},
               {"name": "b", "ph": "X", "ts": 5, "dur": 10, "pid": 1, "tid": 1})",
             "slices overlap without nesting on t: b"},
            {"unnamed track", R"(, {"name": "a", "ph": "i", "ts": 0, "pid": 1, "tid": 2})",
             "track 2 unnamed"},
            {"out of order", R"(, {"name": "a", "ph": "i", "ts": 5, "pid": 1, "tid": 1},
               {"name": "b", "ph": "i", "ts": 4, "pid": 1, "tid": 1})",
             "out of order on t"},
            {"text counter",
             R"(, {"name": "a", "ph": "C", "ts": 0, "pid": 1, "tid": 1, "args": {"v": "1"}})",
             "counter without numeric args"},
            {"negative dur",
             R"(, {"name": "a", "ph": "X", "ts": 0, "dur": -1, "pid": 1, "tid": 1})",
             "X without a dur >= 0"},
            {"no tid", R"(, {"name": "a", "ph": "i", "ts": 0, "pid": 1})",
             "lacks ph, ts, pid, tid"},
    };
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.name);
        const std::vector<std::string> problems =
                formatProblems(Json::parse(head + c.events + "]}"));
        if (c.problem[0] == '\0') {
            EXPECT_TRUE(problems.empty()) << problems.front();
        } else {
            ASSERT_EQ(problems.size(), 1u);
            EXPECT_EQ(problems[0].rfind(c.problem, 0), 0u) << problems[0];
        }
    }
}

TEST(TavroTraceTimelineTest, EveryBundledScenarioOpensInAViewerAndLeavesTheTraceAlone) {
    const std::vector<std::string> scenarios = bundledScenarios();
    ASSERT_GE(scenarios.size(), 8u);
    for (const std::string& path : scenarios) {
        SCOPED_TRACE(path);
        const SimRun run = play(path);
        ASSERT_EQ(run.status, kTavroExitOk) << run.err;
        ASSERT_FALSE(run.timeline.is_discarded());
        for (const std::string& problem : formatProblems(run.timeline)) ADD_FAILURE() << problem;
        // One process, the scenario's; nothing after the session's end.
        const int64_t endUs = run.timeline["metadata"]["end_us"];
        for (const Json& e : run.timeline["traceEvents"]) {
            EXPECT_EQ(e["pid"], run.timeline["metadata"]["pid"]);
            EXPECT_LE(e["ts"].get<int64_t>() + e.value("dur", int64_t{0}), endUs) << e.dump();
        }
        // The readable trace is the one printed without --timeline.
        std::ostringstream out, err;
        const char* argv[] = {"tavro-sim", path.c_str()};
        ASSERT_EQ(tavroSimMain(2, argv, out, err), kTavroExitOk);
        EXPECT_EQ(run.out, out.str());
    }
}

TEST(TavroTraceTimelineTest, DefaultScenarioBoostAndDetectionSlicesAsDerivedByHand) {
    // Derived from scenarios/default.json and the library's rules, not from a run:
    // - start (t = 0): the format's operating rate is the start-up rate 120 (the app is on
    //   decoder-startup-operating-rate), not below the boost entry's limitOpRate=60, so the whole
    //   request goes out at once: thread part and cluster part both begin at 0.
    // - set_parameters operating-rate 30 comes after the 1x clip (0.033 + 3 s) and the 2x clip
    //   (120 frames at 60 per second of clock, 2 s): at 5.033 s. 30 is below the low boundary 60
    //   while the cluster part is active, so the watchdog releases it (0x20) then.
    // - nothing releases the thread part (no release-all is ever sent): it lasts to the end, the
    //   destroy after shutdown (7.033) and advance 2000 ms: 9.033 s.
    // - fast-forward (VppModeParam 1): the channel compares each sample with the one 10 frames
    //   before; 10 frames of content are 333 ms, and a span holding m frames of the 2x clip took
    //   (10 - m) x 33.3 + m x 16.7 ms to show, a ratio of at least 1.2 from m = 4 on. Entering
    //   needs the samples 0, 10 and 20 back all that fast: the 2x clip's frame 4 + 20 = 24, handled
    //   24 / 60 s after the clip's entry at 3.033: 3.433 s. The flush at 5.033 empties the history;
    //   the next frame (the last clip's first, 5.033) finds fast mode on with one sample: reset,
    //   VppModeParam 0. So fast-forward covers the 2x clip from its 24th frame to its end.
    const SimRun run = play(test::toolsSourceDir() + "/scenarios/default.json");
    ASSERT_EQ(run.status, kTavroExitOk) << run.err;
    EXPECT_EQ(slices(run.timeline, "boost thread part"),
              (std::vector<Slice>{{"thread part", 0, 9033000}}));
    EXPECT_EQ(slices(run.timeline, "boost cluster part"),
              (std::vector<Slice>{{"cluster part", 0, 5033000}}));
    EXPECT_EQ(slices(run.timeline, "detection"),
              (std::vector<Slice>{{"fast-forward", 3433000, 5033000}}));
}

TEST(TavroTraceTimelineTest, SpeedRatiosAreTheOnesTheChannelLogs) {
    // With log level 6 the channel logs every sample it makes, ratios included: each value the
    // timeline shows must be that of the channel's newest sample at its time, and the timeline
    // shows ratios exactly when the channel makes samples. Besides the bundled scenarios, the
    // default world with histories that restart: a flush, a seek back to pts 0 (with drops, then
    // double speed), a clock that stands still and display times that go back.
    ScratchDir dir;
    auto defaultWith = [&](const std::string& name, const std::string& events) {
        std::ifstream defaults(test::toolsSourceDir() + "/scenarios/default.json");
        Json scenario = Json::parse(defaults);
        scenario["events"] = Json::parse(R"([{"event": "allocate"}, {"event": "configure",
            "format": {"mime": "video/avc"}}, {"event": "start"})" +
                                         events + "]");
        return dir.write(name, scenario.dump());
    };
    std::vector<std::string> paths = bundledScenarios();
    paths.push_back(defaultWith("seek.json", R"(, {"event": "clip", "count": 40, "fps": 30},
        {"event": "flush"}, {"event": "resume"}, {"event": "clip", "count": 5, "fps": 30},
        {"event": "clip", "count": 45, "fps": 30, "start_us": 0, "drops": 4},
        {"event": "clip", "count": 45, "fps": 30, "speed": 2})"));
    std::string backwards;
    for (int i = 0; i < 30; ++i) {
        const std::string pts = std::to_string(40000 * (i + 1));
        const std::string renderNs =
                std::to_string(2000000000000LL + (i == 20 ? -1 : i) * 40000000LL);
        backwards += R"(, {"event": "render", "time_us": )" + pts + R"(, "render_ns": )" +
                     renderNs + "}";
        if (i >= 12) backwards += R"(, {"event": "advance", "ms": 20})";  // else the clock stands
    }
    paths.push_back(defaultWith("backwards.json", backwards));
    for (const std::string& path : paths) {
        SCOPED_TRACE(path);
        const SimRun run = play(path, {"--json", "--log-level", "6"});
        ASSERT_EQ(run.status, kTavroExitOk) << run.err;
        std::vector<std::tuple<int64_t, double, double>> samples;  // time, speed, speed2
        std::istringstream lines(run.out);
        for (std::string line; std::getline(lines, line);) {
            const Json j = Json::parse(line);
            if (j["kind"] != "log") continue;
            long long pts = 0, render = 0, sys = 0;
            float units[3], speed = 0, speed2 = 0;
            if (sscanf(j["message"].get<std::string>().c_str(), kLogRenderSample, &pts, &render,
                       &sys, &units[0], &units[1], &units[2], &speed, &speed2) == 8) {
                samples.emplace_back(j["t_us"], speed, speed2);
            }
        }
        for (const auto& [name, index] : {std::pair<const char*, int>{"speed ratio to display", 1},
                                          {"speed ratio to wall clock", 2}}) {
            SCOPED_TRACE(name);
            std::vector<std::pair<int64_t, double>>
                    logged;  // the channel's, as the timeline rounds
            for (const auto& sample : samples) {
                logged.emplace_back(
                        std::get<0>(sample),
                        tavroTimelineRatio(index == 1 ? std::get<1>(sample) : std::get<2>(sample)));
            }
            const auto shown = counter(run.timeline, name);
            ASSERT_EQ(shown.empty(), logged.empty());
            if (logged.empty()) continue;
            // Every value shown is the channel's at that time, the last one included...
            for (const auto& [ts, value] : shown) EXPECT_EQ(value, valueAt(logged, ts)) << ts;
            EXPECT_EQ(shown.back().second, logged.back().second);
            // ... and a value of the channel's is shown within the 100 ms the timeline may hold a
            // change back (values measured per frame are shown at most every 100 ms).
            constexpr int64_t kHoldUs = 100000;
            for (size_t k = 0; k < logged.size(); ++k) {
                const int64_t t = logged[k].first;
                bool seen = valueAt(logged, t - kHoldUs) == valueAt(shown, t);
                for (size_t i = k + 1; i-- > 0 && logged[i].first > t - kHoldUs;) {
                    seen = seen || logged[i].second == valueAt(shown, t);
                }
                EXPECT_TRUE(seen) << "the channel's " << logged[k].second << " at " << t
                                  << " not shown in time";
            }
        }
    }
}

TEST(TavroTraceTimelineTest, HdrTypeIsTheOneTheCodecReports) {
    // The codec reports its HDR type in the feedback it sends when destroyed (a video decoder, not
    // a thumbnail, type 1 or more); the timeline's last value must be that, or 0 without one.
    ScratchDir dir;
    auto session = [](const std::string& format, const std::string& frames) {
        return R"({"process": {"name": "com.app", "pid": 4321, "uid": 10123},
                   "component": "c2.qti.hevc.decoder", "lists": {"video-statistics": [{"uid": 10123}]},
                   "events": [{"event": "allocate"}, {"event": "configure", "format": )" +
               format + R"(}, {"event": "start"})" + frames + "]}";
    };
    const std::string hevc = R"({"mime": "video/hevc"})";
    const std::string hlg =
            R"(, {"event": "output", "time_us": 0, "hdr": {"color_aspects": {"range": 1, "primaries": 1, "transfer": 7, "matrix": 1}}})";
    const std::string pq =
            R"(, {"event": "output", "time_us": 40000, "hdr": {"color_aspects": {"range": 1, "primaries": 6, "transfer": 6, "matrix": 6}}})";
    struct Case {
        std::string name;  // a bundled scenario's path when `scenario` is empty
        std::string scenario;
        int reported = -1;  // the type the codec reports (-1: whatever it is)
    };
    std::vector<Case> cases = {
            {"HLG", session(hevc, hlg), 2},
            {"dynamic metadata without the Vivid signature",
             session(hevc,
                     R"(, {"event": "output", "time_us": 0, "hdr": {"hdr10plus": "010203"}})"),
             3},
            {"two plain outputs end the check",
             session(hevc, R"(, {"event": "clip", "count": 2, "fps": 25})" + pq), 0},
            {"a bufferless output is not examined",
             session(hevc,
                     R"(, {"event": "output", "time_us": 0, "buffer": false}, {"event": "clip", "count": 1, "fps": 25})" +
                             pq)},
            {"thumbnail", session(R"({"mime": "video/hevc", "thumbnail-mode": 1})", pq), 0},
            {"encoder", session(R"({"mime": "video/hevc", "encoder": 1})", pq), 0},
    };
    for (const std::string& path : bundledScenarios()) cases.push_back({path, ""});
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const std::string path = c.scenario.empty() ? c.name : dir.write("s.json", c.scenario);
        const SimRun run = play(path);
        ASSERT_EQ(run.status, kTavroExitOk) << run.err;
        double reported = 0;
        for (const Json& e : trackEvents(run.timeline, "services", "i")) {
            if (e["name"] == "sendFeedbackHdrPlaybackInfo") reported = e["args"]["hdrType"];
        }
        if (c.reported >= 0) {
            EXPECT_EQ(reported, c.reported);
        }
        const auto shown = counter(run.timeline, "HDR type");
        EXPECT_EQ(shown.empty() ? 0 : shown.back().second, reported);
    }
}

TEST(TavroTraceTimelineTest, TenMinutesAtSixtyFramesStaySmall) {
    // A recorded-style session: every frame an explicit input, output and render, 16.667 ms
    // apart on the clock, 1x and 2x content in turns of a minute, a flush every 2 minutes.
    std::string events;
    int64_t ptsUs = 0;
    for (int i = 0; i < 36000; ++i) {
        if (i > 0 && i % 7200 == 0) events += R"(, {"event": "flush"}, {"event": "resume"})";
        const std::string pts = std::to_string(ptsUs);
        events += R"(, {"event": "input", "time_us": )" + pts +
                  R"(}, {"event": "output", "time_us": )" + pts +
                  R"(}, {"event": "render", "time_us": )" + pts +
                  R"(}, {"event": "advance", "us": )" + std::to_string(i % 3 == 2 ? 16666 : 16667) +
                  "}";
        ptsUs += (i / 3600) % 2 == 0 ? 16667 : 33333;
    }
    ScratchDir dir;
    std::ifstream defaults(test::toolsSourceDir() + "/scenarios/default.json");
    Json scenario = Json::parse(defaults);
    scenario["events"] = Json::parse(R"([{"event": "allocate"}, {"event": "configure", "format": {
        "mime": "video/avc", "width": 1920, "height": 1080, "frame-rate": {"float": 60}}},
        {"event": "start"})" + events +
                                     "]");
    const SimRun run = play(dir.write("ten-minutes.json", scenario.dump()), {"--only", "boost"});
    ASSERT_EQ(run.status, kTavroExitOk) << run.err;
    const std::string size = run.timeline.dump();
    EXPECT_LT(size.size(), 2u * 1000 * 1000);
    EXPECT_TRUE(formatProblems(run.timeline).empty());
    EXPECT_EQ(run.timeline["metadata"]["end_us"], 600000000);
    // 60 frames in every second of the ten minutes, each series shown once it settles.
    const auto rendered = counter(run.timeline, "rendered frames");
    ASSERT_FALSE(rendered.empty());
    EXPECT_EQ(rendered.front(), (std::pair<int64_t, double>{0, 60}));
    RecordProperty("timeline_bytes", std::to_string(size.size()));
}

TEST(TavroTraceTimelineTest, AnUnwritableFileIsBadUsage) {
    std::ostringstream out, err;
    const std::string scenario = test::toolsSourceDir() + "/scenarios/default.json";
    const char* argv[] = {"tavro-sim", "--timeline", "/nonexistent/dir/t.json", scenario.c_str()};
    EXPECT_EQ(tavroSimMain(4, argv, out, err), kTavroExitBadInput);
    EXPECT_EQ(err.str(),
              "tavro-sim: /nonexistent/dir/t.json: cannot write: No such file or directory\n");
    EXPECT_EQ(out.str(), "");
}

}  // namespace
}  // namespace android
