// tavro-sim --timeline: the file as trace viewers read it and the HDR type the codec reports, for
// every bundled scenario; the default scenario's boost and detection slices against a hand
// derivation; the speed ratios as the channel logs them, and the HDR type on each way through the
// codec's check.
#include <stdio.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <tuple>
#include <utility>
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
        for (size_t i = 1; i < events.size(); ++i) {
            if ((*events[i])["ts"] < (*events[i - 1])["ts"])
                problems.push_back("out of order on " + names[track] + ": " + events[i]->dump());
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

// The codec reports its HDR type in the feedback it sends when destroyed (a video decoder, not a
// thumbnail, type 1 or more); the timeline's last value must be that, or 0 without one.
void expectHdrTypeAsReported(const Json& timeline) {
    double reported = 0;
    for (const Json& e : trackEvents(timeline, "services", "i")) {
        if (e["name"] == "sendFeedbackHdrPlaybackInfo") reported = e["args"]["hdrType"];
    }
    const auto shown = counter(timeline, "HDR type");
    EXPECT_EQ(shown.empty() ? 0 : shown.back().second, reported);
}

TEST(TavroTraceTimelineTest, EveryBundledScenarioOpensInAViewerAndLeavesTheTraceAlone) {
    const std::vector<std::string> scenarios = test::bundledScenarioPaths();
    ASSERT_GE(scenarios.size(), 8u);
    for (const std::string& path : scenarios) {
        SCOPED_TRACE(path);
        const SimRun run = play(path, {"--json"});
        ASSERT_EQ(run.status, kTavroExitOk) << run.err;
        ASSERT_FALSE(run.timeline.is_discarded());
        for (const std::string& problem : formatProblems(run.timeline)) ADD_FAILURE() << problem;
        // One process, the scenario's; nothing after the session's end.
        const int64_t endUs = run.timeline["metadata"]["end_us"];
        for (const Json& e : run.timeline["traceEvents"]) {
            EXPECT_EQ(e["pid"], run.timeline["metadata"]["pid"]);
            EXPECT_LE(e["ts"].get<int64_t>() + e.value("dur", int64_t{0}), endUs) << e.dump();
        }
        // The trace is the one printed without --timeline, and each configure step that
        // declined is on its configure's instant.
        std::ostringstream out, err;
        const char* argv[] = {"tavro-sim", "--json", path.c_str()};
        ASSERT_EQ(tavroSimMain(3, argv, out, err), kTavroExitOk);
        EXPECT_EQ(run.out, out.str());
        Json traced = Json::array(), shown = Json::array();
        std::istringstream lines(run.out);
        for (std::string line; std::getline(lines, line);) {
            Json j = Json::parse(line);
            if (j["kind"] == "declined") traced.push_back({j["steps"], j["reason"], j["status"]});
        }
        for (const Json& e : trackEvents(run.timeline, "codec", "i")) {
            for (const Json& d : e["args"].value("declined", Json::array()))
                shown.push_back({d["steps"], d["reason"], d["status"]});
        }
        EXPECT_EQ(traced, shown);
        expectHdrTypeAsReported(run.timeline);
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
    // The channel logs each sample with its ratios at level 6. Every value the timeline shows is
    // the channel's newest ratio at that time (as the timeline rounds it), and the last one
    // logged is shown; samples without a ratio (not yet compared, or a dropped frame for the
    // display ratio) leave the counter as it was.
    const SimRun run = play(test::toolsSourceDir() + "/scenarios/default.json",
                            {"--json", "--log-level", "6"});
    ASSERT_EQ(run.status, kTavroExitOk) << run.err;
    std::vector<std::pair<int64_t, double>> logged[2];  // to display, to wall clock
    std::istringstream lines(run.out);
    for (std::string line; std::getline(lines, line);) {
        const Json j = Json::parse(line);
        long long pts = 0, render = 0, sys = 0;
        float ptsUnit = 0, renderUnit = 0, sysUnit = 0, speed = 0, speed2 = 0;
        if (j["kind"] != "log" ||
            sscanf(j["message"].get<std::string>().c_str(), kLogRenderSample, &pts, &render, &sys,
                   &ptsUnit, &renderUnit, &sysUnit, &speed, &speed2) != 8 ||
            ptsUnit == 0) {
            continue;
        }
        if (renderUnit != 0) logged[0].emplace_back(j["t_us"], tavroTimelineRatio(speed));
        logged[1].emplace_back(j["t_us"], tavroTimelineRatio(speed2));
    }
    const char* kNames[] = {"speed ratio to display", "speed ratio to wall clock"};
    for (int i = 0; i < 2; ++i) {
        SCOPED_TRACE(kNames[i]);
        const auto shown = counter(run.timeline, kNames[i]);
        ASSERT_FALSE(logged[i].empty());
        ASSERT_FALSE(shown.empty());
        for (const auto& [ts, value] : shown) {
            // A change held back by the 100 ms gap is shown at the gap's end if it still stands.
            auto newest =
                    std::upper_bound(logged[i].begin(), logged[i].end(), std::make_pair(ts, 1e300));
            ASSERT_NE(newest, logged[i].begin()) << ts;
            EXPECT_EQ(value, std::prev(newest)->second) << ts;
        }
        EXPECT_EQ(shown.back().second, logged[i].back().second);
        // The 2x clip's frames are handled twice as fast as their content advances.
        double top = 0;
        for (const auto& sample : shown) top = std::max(top, sample.second);
        EXPECT_EQ(top, 2.0);
    }
}

TEST(TavroTraceTimelineTest, HdrTypeIsTheOneTheCodecReports) {
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
    // Each case takes another way through the codec's check (a wrong turn shows another type).
    const std::pair<const char*, std::string> kCases[] = {
            {"HLG", session(hevc, hlg)},
            {"dynamic metadata without the Vivid signature",
             session(hevc,
                     R"(, {"event": "output", "time_us": 0, "hdr": {"hdr10plus": "010203"}})")},
            {"two plain outputs end the check",
             session(hevc, R"(, {"event": "clip", "count": 2, "fps": 25})" + pq)},
            {"a bufferless output is not examined",
             session(hevc,
                     R"(, {"event": "output", "time_us": 0, "buffer": false}, {"event": "clip", "count": 1, "fps": 25})" +
                             pq)},
            {"thumbnail", session(R"({"mime": "video/hevc", "thumbnail-mode": 1})", pq)},
            {"encoder", session(R"({"mime": "video/hevc", "encoder": 1})", pq)},
    };
    for (const auto& [name, scenario] : kCases) {
        SCOPED_TRACE(name);
        const SimRun run = play(dir.write("s.json", scenario));
        ASSERT_EQ(run.status, kTavroExitOk) << run.err;
        expectHdrTypeAsReported(run.timeline);
    }
}

}  // namespace
}  // namespace android
