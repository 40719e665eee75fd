// The session recording, end to end: every bundled scenario played with the recording on gives a
// file that tavro-sim replays to the same trace (what the library did, line for line), and that
// records itself again byte for byte; a second codec served from the white list's cache records
// the answers it used; the property is refused when it does not name a usable directory; and faults
// of the disk, the size cap and a codec destroyed mid-flush leave the session's trace unchanged and
// the file, if any, a scenario that replays.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <host/HostClock.h>
#include <host/HostLog.h>
#include <log/log.h>
#include <nlohmann/json.hpp>

#include "sfplugin/TavroSessionRecorder.h"
#include "tools/ToolsTestSupport.h"
#include "tools/sim/TavroScenarioLoader.h"
#include "tools/sim/TavroScenarioPlayer.h"

namespace android {
namespace {

using Json = nlohmann::ordered_json;
using Lines = std::vector<std::string>;
using test::readFile;

static_assert(kRecordClockOriginNs == host::HostClock::kDefaultManualStartNs,
              "recordings put render times on the clock tavro-sim starts");

// Every entry as it was added, unmerged: merging depends on the steps around a line.
class Collect : public TavroTraceSink {
  public:
    void add(const TavroTraceEntry& entry) override { entries.push_back(entry); }
    std::vector<TavroTraceEntry> entries;
};

// What the library did: every entry but the scenario's narration of its own events (a recording
// writes them in its own words: advances merged, a clip as its frames), the unused section (a
// recording holds only what was read) and the recorder's own log lines.
Lines libraryLines(const std::vector<TavroTraceEntry>& entries) {
    Lines out;
    for (const TavroTraceEntry& e : entries) {
        if (e.kind == "step" || e.kind == "unused") continue;
        if (e.kind == "log" && e.fields["tag"] == "TavroSessionRecorder") continue;
        out.push_back(e.kind + " " + std::to_string(e.timeUs) + " " + e.fields.dump());
    }
    return out;
}

// "" when the two are equal, else where they first differ.
std::string difference(const Lines& got, const Lines& want) {
    for (size_t i = 0; i < std::max(got.size(), want.size()); ++i) {
        const std::string a = i < got.size() ? got[i] : "(nothing)";
        const std::string b = i < want.size() ? want[i] : "(nothing)";
        if (a != b) return "line " + std::to_string(i) + ":\n  got  " + a + "\n  want " + b;
    }
    return "";
}

std::vector<TavroTraceEntry> play(const TavroScenario& scenario, TavroSimOptions options = {}) {
    Collect trace;
    std::string error;
    EXPECT_TRUE(playTavroScenario(scenario, options, &trace, &error)) << error;
    return trace.entries;
}

TavroScenario bundled(const std::string& name) {
    return loadTavroScenarioFile(test::toolsSourceDir() + "/scenarios/" + name);
}

TavroScenario recording(TavroScenario scenario, const std::string& dir, int64_t maxKb = 0) {
    scenario.properties.emplace_back(kPropRecordDir, dir);
    if (maxKb > 0) scenario.properties.emplace_back(kPropRecordMaxKb, std::to_string(maxKb));
    return scenario;
}

Lines filesIn(const std::string& dir) {
    Lines names;
    for (const auto& entry : std::filesystem::directory_iterator(dir)) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

// On host the library sees the tool's real pid and uid, which stand for the scenario's; the
// recording holds what the library saw. This renames exactly those ids back, where a scenario
// writes the process identity (the pid and uid keys of the process, its caller and list entries,
// calling-uid/calling-pid values) and nowhere else: nothing the library decided is touched.
Json renamedIdentity(Json rec, int64_t pid, int64_t uid) {
    EXPECT_EQ(rec["process"]["pid"], getpid());
    const std::pair<const char*, int64_t> kIds[] = {{"pid", getpid()}, {"uid", getuid()}};
    std::function<void(Json&)> rename = [&](Json& v) {
        for (auto& [key, value] : v.items()) {
            for (const auto& [id, real] : kIds) {
                if (key != id && key != std::string("calling-") + id) continue;
                Json& n = value.is_object() && value.size() == 1 ? value.begin().value() : value;
                if (n.is_number_integer() && n.get<int64_t>() == real) n = id[0] == 'p' ? pid : uid;
            }
            if (value.is_structured()) rename(value);
        }
    };
    rename(rec);
    return rec;
}

// The recording's events without the advances between them (on the real clock, every event is a
// little later than the one before).
std::vector<Json> eventsOf(const Json& rec) {
    std::vector<Json> out;
    for (const Json& e : rec["events"]) {
        if (e["event"] != "advance") out.push_back(e);
    }
    return out;
}

// The one recording in `dir`, as JSON.
Json onlyRecording(const std::string& dir) {
    const Lines names = filesIn(dir);
    EXPECT_EQ(names.size(), 1u) << dir;
    if (names.size() != 1) return Json();
    return Json::parse(readFile(dir + "/" + names[0]));
}

TavroScenario loadJson(const Json& json, const std::string& name = "recording.json") {
    return loadTavroScenarioText(json.dump(), name, "");
}

// ---- Round trip: every bundled scenario ------------------------------------------------------

struct RoundTripCase {
    std::string scenario;
    bool withLog;  // --log-level 7: the library's log lines are compared too
};

void PrintTo(const RoundTripCase& c, std::ostream* out) {
    *out << c.scenario << (c.withLog ? " with --log-level 7" : "");
}

class TavroSessionRecordingTest : public ::testing::TestWithParam<RoundTripCase> {};

TEST_P(TavroSessionRecordingTest, ReplaysToTheSameTrace) {
    const RoundTripCase& c = GetParam();
    TavroSimOptions options;
    options.hasLogLevel = c.withLog;
    options.logLevel = 7;
    const TavroScenario scenario = bundled(c.scenario);
    test::ScratchDir first;
    test::ScratchDir second;

    const std::vector<TavroTraceEntry> plain = play(scenario, options);
    const std::vector<TavroTraceEntry> recorded = play(recording(scenario, first.path()), options);
    // Recording changes nothing the session did.
    EXPECT_EQ(difference(libraryLines(recorded), libraryLines(plain)), "");

    const Lines names = filesIn(first.path());
    ASSERT_EQ(names.size(), 1u);
    struct stat st;
    ASSERT_EQ(stat((first.path() + "/" + names[0]).c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0600u);

    const std::string text = readFile(first.path() + "/" + names[0]);
    Json rec = Json::parse(text);
    EXPECT_EQ(rec["order"], "free");
    EXPECT_EQ(rec["component"], scenario.component);
    const Json renamed = renamedIdentity(rec, scenario.process.pid, scenario.process.uid);
    // The recorded events are in an order the framework could call them in.
    Json strict = renamed;
    strict["order"] = "strict";
    EXPECT_NO_THROW(loadJson(strict));

    TavroScenario replay = loadJson(renamed);
    const std::vector<TavroTraceEntry> replayed = play(recording(replay, second.path()), options);
    EXPECT_EQ(difference(libraryLines(replayed), libraryLines(plain)), "");
    // Nothing the library read is missing from the recording, and nothing it holds goes unread.
    for (const TavroTraceEntry& e : replayed) {
        EXPECT_NE(e.kind, "unused") << e.fields.dump();
    }

    // The replay consumed exactly what the session did: it records the same file again.
    const Lines again = filesIn(second.path());
    ASSERT_EQ(again.size(), 1u);
    EXPECT_EQ(readFile(second.path() + "/" + again[0]), text);
}

std::vector<RoundTripCase> roundTripCases() {
    std::vector<RoundTripCase> cases;
    for (const std::string& path : test::bundledScenarioPaths()) {
        const std::string name = std::filesystem::path(path).filename();
        cases.push_back({name, false});
        cases.push_back({name, true});
    }
    return cases;
}

INSTANTIATE_TEST_SUITE_P(Bundled, TavroSessionRecordingTest, ::testing::ValuesIn(roundTripCases()),
                         [](const ::testing::TestParamInfo<RoundTripCase>& info) {
                             std::string name =
                                     info.param.scenario.substr(0, info.param.scenario.size() - 5);
                             std::replace(name.begin(), name.end(), '-', '_');
                             return name + (info.param.withLog ? "_Log7" : "");
                         });

// ---- A second codec in the same process ------------------------------------------------------

// The first codec fills the white list's cache; the list service then loses the entry, and the
// second codec, recording, is served the old answer from the cache. Its recording must hold that
// answer: a fresh replay asks the service and gets it.
TEST(TavroSessionRecordingCacheTest, SecondCodecRecordsTheCachedAnswers) {
    struct Case {
        const char* scenario;
        const char* droppedList;  // gone from the service for the second codec
    };
    const Case kCases[] = {{"default.json", "media-sched-boost"},
                           {"mediaserver-whitelist.json", "mediaserver-boost"}};
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.scenario);
        TavroSimOptions warm;
        warm.keepWhiteListCache = true;
        const TavroScenario scenario = bundled(c.scenario);
        TavroScenario later = scenario;
        later.lists.erase(
                std::remove_if(later.lists.begin(), later.lists.end(),
                               [&](const TavroScenarioList& l) { return l.name == c.droppedList; }),
                later.lists.end());
        test::ScratchDir dir;

        play(scenario, warm);
        const std::vector<TavroTraceEntry> second = play(recording(later, dir.path()), warm);
        TavroSimOptions cold;
        const std::vector<TavroTraceEntry> fresh = play(later, cold);  // resets the cache again
        // The cache made a difference: the second codec got the boost, a fresh one does not.
        ASSERT_NE(difference(libraryLines(second), libraryLines(fresh)), "");

        const Json rec = onlyRecording(dir.path());
        ASSERT_TRUE(rec["lists"].contains(c.droppedList));
        const TavroScenario replay =
                loadJson(renamedIdentity(rec, scenario.process.pid, scenario.process.uid));
        EXPECT_EQ(difference(libraryLines(play(replay, cold)), libraryLines(second)), "");
    }
}

// ---- The property ----------------------------------------------------------------------------

int recorderWarnings() {
    int count = 0;
    for (const host::LogRecord& r : host::HostLog::records()) {
        if (r.tag == "TavroSessionRecorder" && r.priority == ANDROID_LOG_WARN) ++count;
    }
    return count;
}

TEST(TavroSessionRecordingFaultTest, RefusedDirectoriesRecordNothing) {
    test::ScratchDir dir;
    const std::string file = dir.write("plain-file", "x");
    struct Case {
        const char* name;
        std::string value;
    };
    const Case kCases[] = {
            {"relative", "recordings"},
            {"dot-dot",
             dir.path() + "/../" + std::filesystem::path(dir.path()).filename().string()},
            {"missing", dir.path() + "/missing"},
            {"a file", file},
            // Not writable, whoever runs the test: nothing can be created under /proc.
            {"unwritable", "/proc/self"},
    };
    const TavroScenario scenario = bundled("default.json");
    const Lines plain = libraryLines(play(scenario));
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.name);
        host::HostLog::clear();
        TavroScenario s = scenario;
        s.properties.emplace_back(kPropRecordDir, c.value);
        EXPECT_EQ(difference(libraryLines(play(s)), plain), "");
        EXPECT_EQ(recorderWarnings(), 1);
        EXPECT_EQ(filesIn(dir.path()), Lines{"plain-file"});
    }
}

// ---- Faults ----------------------------------------------------------------------------------

TEST(TavroSessionRecordingFaultTest, FaultsKeepTheTraceAndAValidFile) {
    struct Case {
        const char* name;
        int64_t diskSpace;  // -1: no limit
        int64_t maxKb;      // 0: the default cap
        bool holdWriter;    // the codec is destroyed while the writer is inside a flush
        bool fileExpected;
        bool framesCut;  // the comment says frames stopped
    };
    const Case kCases[] = {
            {"disk full from the start", 100, 0, false, false, false},
            {"disk full after 4 KiB", 4096, 0, false, true, false},
            {"cap reached mid-clip", -1, 8, false, true, true},
            {"codec destroyed while the writer flushes", -1, 0, true, true, false},
    };
    const TavroScenario scenario = bundled("default.json");
    const Lines plain = libraryLines(play(scenario));
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.name);
        test::ScratchDir dir;
        host::HostLog::clear();
        const uint64_t closed = TavroSessionRecorder::closedCountForTesting();
        // One write per event, so the write that fills the disk is always the same one.
        TavroSessionRecorder::setSynchronousForTesting(!c.holdWriter);
        TavroSessionRecorder::setDiskSpaceForTesting(c.diskSpace);
        TavroSessionRecorder::holdWriterForTesting(c.holdWriter);
        std::vector<TavroTraceEntry> recorded;
        std::thread player([&] { recorded = play(recording(scenario, dir.path(), c.maxKb)); });
        if (c.holdWriter) {
            // The codec does not wait for the held writer.
            EXPECT_TRUE(TavroSessionRecorder::waitUntilWriterHeldForTesting());
            EXPECT_TRUE(TavroSessionRecorder::waitForClosedCountForTesting(closed + 1));
            TavroSessionRecorder::holdWriterForTesting(false);
        }
        player.join();
        TavroSessionRecorder::setDiskSpaceForTesting(-1);
        TavroSessionRecorder::setSynchronousForTesting(false);
        EXPECT_EQ(difference(libraryLines(recorded), plain), "");
        const Lines names = filesIn(dir.path());
        ASSERT_EQ(names.size(), c.fileExpected ? 1u : 0u);
        EXPECT_EQ(recorderWarnings(), c.diskSpace >= 0 ? 1 : 0);
        if (!c.fileExpected) continue;
        const std::string text = readFile(dir.path() + "/" + names[0]);
        if (c.diskSpace >= 0) {
            EXPECT_LE(static_cast<int64_t>(text.size()), c.diskSpace);
        }
        const Json rec = Json::parse(text);
        const std::string comment = rec.value("comment", "");
        EXPECT_EQ(comment.find("size cap of 8 KiB") != std::string::npos, c.framesCut) << comment;
        Lines events;
        for (const Json& e : rec["events"]) events.push_back(e["event"]);
        const int64_t inputs = std::count(events.begin(), events.end(), "input");
        if (c.framesCut) {
            // Frames stop; lifecycle events after the cut are still there.
            EXPECT_GT(inputs, 0);
            EXPECT_LT(inputs, 270);
            const auto lastInput = std::find(events.rbegin(), events.rend(), "input").base();
            EXPECT_NE(std::find(lastInput, events.end(), "flush"), events.end());
            EXPECT_NE(std::find(lastInput, events.end(), "shutdown"), events.end());
            EXPECT_EQ(events.back(), "destroy");
        }
        const TavroScenario replay =
                loadJson(renamedIdentity(rec, scenario.process.pid, scenario.process.uid));
        const Lines replayed = libraryLines(play(replay));
        // Only a recording cut short replays to less than the session did.
        EXPECT_EQ(difference(replayed, plain) == "", c.diskSpace < 0 && !c.framesCut);
        EXPECT_FALSE(replayed.empty());
    }
}

// A writer that cannot keep up costs frames of the recording, never a frame of the session: the
// frame calls return at once, frames stop for good where the buffers filled, and the lifecycle
// events after that are still written.
TEST(TavroSessionRecordingFaultTest, WriterBehindStopsFramesNotTheCaller) {
    test::ScratchDir dir;
    std::shared_ptr<TavroSessionRecorder> recorder =
            TavroSessionRecorder::create(dir.path(), 1 << 30);
    ASSERT_NE(recorder, nullptr);
    TavroSessionRecorder::holdWriterForTesting(true);
    recorder->onAllocate("c2.test.decoder");
    ASSERT_TRUE(TavroSessionRecorder::waitUntilWriterHeldForTesting());
    constexpr int kFrames = 20000;  // far more than one buffer holds
    for (int i = 0; i < kFrames; ++i) recorder->onInput(i * 1000, 100, false);
    recorder->onShutdown(false);
    recorder->onDestroy();
    TavroSessionRecorder::holdWriterForTesting(false);
    recorder.reset();
    ASSERT_TRUE(TavroSessionRecorder::waitForWritersForTesting());

    const Json rec = onlyRecording(dir.path());
    const std::string comment = rec["comment"];
    EXPECT_NE(comment.find("the writer fell behind"), std::string::npos) << comment;
    Lines events;
    for (const Json& e : eventsOf(rec)) events.push_back(e["event"]);
    const int64_t inputs = std::count(events.begin(), events.end(), "input");
    EXPECT_GT(inputs, 1000);
    EXPECT_LT(inputs, kFrames);
    ASSERT_GE(events.size(), 2u);
    EXPECT_EQ(events[events.size() - 2], "shutdown");
    EXPECT_EQ(events.back(), "destroy");
    EXPECT_NO_THROW(loadJson(rec));
}

// ---- The file ----------------------------------------------------------------------------------

TEST(TavroSessionRecordingFileTest, NameIsSanitizedAndLinksAreNotFollowed) {
    test::ScratchDir dir;
    test::ScratchDir outside;
    TavroScenario scenario = bundled("audio-codec.json");
    scenario.component = "c2.evil/../name x";
    play(recording(scenario, dir.path()));
    const Lines names = filesIn(dir.path());
    ASSERT_EQ(names.size(), 1u);
    const std::string prefix = "c2.evil_.._name_x-" + std::to_string(getpid()) + "-";
    ASSERT_EQ(names[0].rfind(prefix, 0), 0u) << names[0];
    const int n = atoi(names[0].c_str() + prefix.size());

    // A link planted at the next name: the recorder takes the one after and leaves the target be.
    const std::string target = outside.write("target", "untouched");
    const std::string planted = prefix + std::to_string(n + 1) + ".json";
    ASSERT_EQ(symlink(target.c_str(), (dir.path() + "/" + planted).c_str()), 0);
    play(recording(scenario, dir.path()));
    EXPECT_EQ(readFile(target), "untouched");
    Lines expected = {names[0], planted, prefix + std::to_string(n + 2) + ".json"};
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(filesIn(dir.path()), expected);
}

TEST(TavroSessionRecordingFileTest, FormatValuesRoundTripExactly) {
    // Typed values the scenario format can hold, as the codec received them.
    const std::string text = R"({
      "process": {"name": "com.tavro.video", "pid": 4321, "uid": 10123},
      "component": "c2.qti.avc.decoder",
      "events": [{"event": "allocate"},
                 {"event": "configure", "format": {
                     "mime": "video/avc", "frame-rate": {"float": 29.97},
                     "tiny": {"float": 1e-7}, "huge": {"float": 3.4e38}, "neg": -7,
                     "big": {"int64": 9007199254740993}, "quote": "a\"b\\c\nd\te",
                     "utf8": "caf\u00e9 \u2603", "digits": {"string": "5"}}}]})";
    const TavroScenario scenario = loadTavroScenarioText(text, "values.json", "");
    test::ScratchDir dir;
    play(recording(scenario, dir.path()));
    const TavroScenario replay = loadJson(onlyRecording(dir.path()));
    const TavroScenarioEvent* configure = nullptr;
    for (const TavroScenarioEvent& e : replay.events) {
        if (e.kind == TavroScenarioEvent::Kind::kConfigure) configure = &e;
    }
    ASSERT_NE(configure, nullptr);
    const TavroTypedMap& want = scenario.events[1].format;
    ASSERT_EQ(configure->format.size(), want.size());
    for (size_t i = 0; i < want.size(); ++i) {
        SCOPED_TRACE(want[i].first);
        EXPECT_EQ(configure->format[i].first, want[i].first);
        const TavroTypedValue& got = configure->format[i].second;
        EXPECT_EQ(got.type, want[i].second.type);
        EXPECT_EQ(got.intValue, want[i].second.intValue);
        EXPECT_EQ(memcmp(&got.floatValue, &want[i].second.floatValue, sizeof(float)), 0);
        EXPECT_EQ(got.stringValue, want[i].second.stringValue);
    }
}

// What the scenario format cannot hold is left out and said so: entries of other types, bytes
// that are not UTF-8 (JSON cannot carry them), an output flag without a name.
TEST(TavroSessionRecordingFileTest, WhatCannotBeWrittenIsNamedInTheComment) {
    test::ScratchDir dir;
    std::shared_ptr<TavroSessionRecorder> recorder =
            TavroSessionRecorder::create(dir.path(), 1 << 20);
    ASSERT_NE(recorder, nullptr);
    recorder->onAllocate("c2.test.decoder");
    sp<AMessage> format = new AMessage();
    format->setString("mime", "video/avc");
    format->setString("name", "caf\xc3\xa9 \xff!");
    format->setObject("native-window", new AMessage());
    format->setDouble("rate", 1.5);
    recorder->onConfigure(format);
    C2Work work;
    work.worklets.push_back(std::make_unique<C2Worklet>());
    work.worklets.front()->output.flags = C2FrameData::flags_t(C2FrameData::FLAG_DROP_FRAME | 64);
    recorder->onOutput(work, nullptr, nullptr);
    recorder->onDestroy();
    recorder.reset();
    ASSERT_TRUE(TavroSessionRecorder::waitForWritersForTesting());

    const Json rec = onlyRecording(dir.path());
    const std::vector<Json> events = eventsOf(rec);
    ASSERT_EQ(events.size(), 4u);
    EXPECT_EQ(events[1]["format"],
              Json::parse(R"({"mime": "video/avc", "name": "caf\u00e9 \ufffd!"})"));
    EXPECT_EQ(events[2]["flags"], Json::parse(R"(["drop_frame"])"));
    const std::string comment = rec["comment"];
    for (const char* said :
         {"native-window, rate", "not UTF-8", "output flags without a scenario name"}) {
        EXPECT_NE(comment.find(said), std::string::npos) << said << " in " << comment;
    }
    EXPECT_NO_THROW(loadJson(rec));
}

}  // namespace
}  // namespace android
