#include "tools/sim/TavroScenarioLoader.h"

#include <string>
#include <tuple>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tools/ToolsTestSupport.h"

namespace android {
namespace {

using test::ScratchDir;
using ::testing::_;
using ::testing::ElementsAre;
using ::testing::FieldsAre;
using ::testing::FloatEq;
using ::testing::Pair;

// A valid document with `events` (JSON array text) and extra top-level members.
std::string doc(const std::string& events, const std::string& extra = "") {
    return R"({"process": {"name": "com.app", "pid": 100, "uid": 10001}, "component": "c2.x",)" +
           extra + R"( "events": )" + events + "}";
}

std::string loadError(const std::string& text, const std::string& baseDir = "") {
    try {
        loadTavroScenarioText(text, "t.json", baseDir);
    } catch (const TavroScenarioError& e) {
        return e.what();
    }
    return "(accepted)";
}

// Each text gives its one-line error; property files are read from the scenario's directory.
TEST(TavroScenarioLoaderTest, BadInputGivesOneLineNamingThePlace) {
    ScratchDir dir;
    dir.write("bad.prop", "a=1\nno equals sign\n");
    const std::pair<std::string, std::string> kCases[] = {
            {doc(R"([{"event": "start"}])", R"( "property_files": ["bad.prop"],)"),
             "t.json: property_files[0]: bad.prop:2: expected key=value"},
            {doc(R"([{"event": "start"}])", R"( "property_files": ["gone.prop"],)"),
             "t.json: property_files[0]: cannot read '" + dir.path() +
                     "/gone.prop': No such file or directory"},
            {doc(R"([{"event": "clip", "count": 3, "fps": "x"}])"),
             "t.json: events[0].fps: expected a number"},
            {doc(R"([{"event": "start"}, {"event": "jump"}])"),
             "t.json: events[1].event: unknown event 'jump' (allocate, configure, start, input, "
             "output, render, discard, clip, set_parameters, flush, resume, advance, shutdown, "
             "destroy)"},
            {doc(R"([{"event": "clip", "fps": 30}])"), "t.json: events[0]: missing key 'count'"},
            {doc(R"([{"event": "clip", "count": 3, "fsp": 30}])"),
             "t.json: events[0]: unknown key 'fsp'"},
            {doc("[]", R"( "evnts": 1,)"), "t.json: unknown key 'evnts'"},
            {doc("[]"), "t.json: events: expected at least one event"},
            {doc(R"([{"event": "configure", "format": {"frame-rate": 29.97}}])"),
             "t.json: events[0].format.frame-rate: a bare fraction has no type; write "
             "{\"float\": x}"},
            {doc(R"([{"event": "configure", "format": {"bitrate": 3000000000}}])"),
             "t.json: events[0].format.bitrate: integer out of int32 range; write {\"int64\": n}"},
            {doc(R"([{"event": "configure", "format": {"a": {"int16": 3}}}])"),
             "t.json: events[0].format.a: unknown type 'int16' (int32, int64, float or string)"},
            {doc(R"([{"event": "configure", "format": {"a": {"int64": "5"}}}])"),
             "t.json: events[0].format.a.int64: expected an integer"},
            {doc(R"([{"event": "set_parameters", "params": {"a": true}}])"),
             "t.json: events[0].params.a: expected an integer, a string or one of {\"int32\": n}, "
             "{\"int64\": n}, {\"float\": x}, {\"string\": s}"},
            {doc(R"([{"event": "clip", "count": 3, "fps": 30, "count": 4}])"),
             "t.json: events[0]: key 'count' given twice"},
            {R"({"process": {"name": "a", "pid": 1, "uid": 2, "pid": 3}, "component": "c",
                 "events": [{"event": "start"}]})",
             "t.json: process: key 'pid' given twice"},
            {doc(R"([{"event": "start"}])", R"( "lists": {"l": [{"uid": 1, "pid": 2}]},)"),
             "t.json: lists.l[0]: expected exactly one of 'uid', 'pid', 'name', 'activity'"},
            {doc(R"([{"event": "destroy"}, {"event": "start"}])"),
             "t.json: events[1]: nothing can follow 'destroy'"},
            {doc(R"([{"event": "advance", "ms": 1, "us": 5}])"),
             "t.json: events[0]: expected exactly one of 'ms', 'us'"},
            {doc(R"([{"event": "input", "time_us": -1}])"),
             "t.json: events[0].time_us: expected an integer from 0 to 9223372036854775"},
            {doc(R"([{"event": "clip", "count": 3, "fps": 0}])"),
             "t.json: events[0].fps: expected a number above 0 and at most 1000"},
            {doc(R"([{"event": "output", "time_us": 0, "hdr": {"hdr10plus": "abc"}}])"),
             "t.json: events[0].hdr.hdr10plus: odd number of hex digits"},
            {doc(R"([{"event": "output", "time_us": 0, "buffer": false, "hdr": {}}])"),
             "t.json: events[0].hdr: HDR information needs an output buffer"},
            {doc(R"([{"event": "output", "time_us": 0, "flags": ["eos"]}])"),
             "t.json: events[0].flags[0]: unknown flag 'eos' (drop_frame, end_of_stream, "
             "discard_frame, incomplete, corrected, codec_config)"},
            {doc(R"([{"event": "output", "time_us": 0, "config_update": [{"index": 5}]}])"),
             "t.json: events[0].config_update[0]: expected exactly one of 'hex', 'text', 'int32'"},
            {doc(R"([{"event": "output", "time_us": 0,
                      "config_update": [{"index": "12", "hex": ""}]}])"),
             "t.json: events[0].config_update[0].index: expected an integer or a \"0x\" hex string "
             "of at most 8 digits"},
            {doc(R"([{"event": "start"}])",
                 R"( "proc": {"threads": [{"tid": 100, "name": "x"}]},)"),
             "t.json: proc: thread id 100 is the process id, which stands for the tool's own "
             "thread"},
            {doc(R"([{"event": "start"}])", R"( "properties": {"a": 1.5},)"),
             "t.json: properties.a: expected a string or an integer"},
            {R"({"component": "c", "events": [{"event": "start"}]})",
             "t.json: missing key 'process'"},
            {R"({"process": {"name": "a", "pid": 0, "uid": 2}, "component": "c", "events": []})",
             "t.json: process.pid: expected an integer from 1 to 2147483647"},
            {"[1, 2]", "t.json: expected an object"},
    };
    for (const auto& [text, error] : kCases) EXPECT_EQ(loadError(text, dir.path()), error);
}

TEST(TavroScenarioLoaderTest, MalformedJsonNamesLineAndColumn) {
    const std::string error =
            loadError("{\"process\": {\"name\": \"a\",\n  \"pid\": 1 \"uid\": 2}}");
    EXPECT_EQ(error.rfind("t.json: parse error at line 2, column 16: syntax error", 0), 0u)
            << error;
    EXPECT_EQ(error.find('\n'), std::string::npos);
}

TEST(TavroScenarioLoaderTest, PropertyFilesAreReadRelativeToTheScenario) {
    ScratchDir dir;
    dir.write("device.prop", "# comment\n\n ro.hardware = qcom \nro.soc.model=SM8550\n");
    const std::string scenario = dir.write("s.json", doc(R"([{"event": "start"}])",
                                                         R"( "property_files": ["device.prop"],
                             "properties": {"ro.soc.model": "SM8650", "n": 5},)"));
    TavroScenario s = loadTavroScenarioFile(scenario);
    const std::vector<std::pair<std::string, std::string>> expected = {
            {"ro.hardware", "qcom"},
            {"ro.soc.model", "SM8550"},
            {"ro.soc.model", "SM8650"},  // inline pairs come later and win
            {"n", "5"}};
    EXPECT_EQ(s.properties, expected);
}

TEST(TavroScenarioLoaderTest, ReadsEveryPartOfAScenario) {
    const std::string text = R"({
      "comment": "all parts",
      "process": {"name": "mediaserver", "pid": 10, "uid": 1013,
                  "caller": {"uid": 10150, "pid": 5000}, "top_activity": "a/.B"},
      "lists": {"media-sched-boost": [{"uid": 1013, "value": "sched=2"}, {"pid": 10},
                                      {"name": "n", "value": "v"}, {"activity": "a/.B"}]},
      "proc": {"threads": [{"tid": 11, "name": "render"}], "mem_available_kb": 2048,
               "processes": [{"pid": 5000, "name": "com.app"}]},
      "analysis": {"scan_type": 1, "fps_use_count": 7},
      "component": "c2.qti.avc.decoder",
      "events": [
        {"event": "configure", "format": {"mime": "video/avc", "width": 1920,
          "calling-uid": {"int64": 10150}, "frame-rate": {"float": 29.97}, "s": {"string": "7"}}},
        {"event": "output", "time_us": 5, "flags": ["drop_frame", "codec_config"],
         "hdr": {"color_aspects": {"primaries": 6, "transfer": 7}, "hdr10plus": "26 00 04"},
         "config_update": [{"index": "0xA0018602", "text": "hi"},
                           {"index": 7, "int32": -2, "size": 20}]},
        {"event": "clip", "count": 4, "fps": 24},
        {"event": "advance", "ms": 1500},
        {"event": "shutdown", "keep_allocated": true}
      ]})";
    using Key = TavroListEntry::Key;
    using Type = TavroTypedValue::Type;
    TavroScenario s = loadTavroScenarioText(text, "t.json", "");
    EXPECT_THAT(s.process, FieldsAre("mediaserver", 10, 1013, true, 10150, 5000, "a/.B"));
    ASSERT_EQ(s.lists.size(), 1u);
    EXPECT_THAT(s.lists[0].entries,
                ElementsAre(FieldsAre(Key::kUid, 1013, _, "sched=2"),
                            FieldsAre(Key::kPid, 10, _, ""), FieldsAre(Key::kName, _, "n", "v"),
                            FieldsAre(Key::kActivity, _, "a/.B", "")));
    EXPECT_THAT(s.proc, FieldsAre(ElementsAre(FieldsAre(11, "render")), true, 2048,
                                  ElementsAre(FieldsAre(5000, "com.app"))));
    EXPECT_THAT(s.analysis, FieldsAre(true, 1, true, 7));
    EXPECT_THAT(s.events[0].format,
                ElementsAre(Pair("mime", FieldsAre(Type::kString, _, _, "video/avc")),
                            Pair("width", FieldsAre(Type::kInt32, 1920, _, _)),
                            Pair("calling-uid", FieldsAre(Type::kInt64, 10150, _, _)),
                            Pair("frame-rate", FieldsAre(Type::kFloat, _, FloatEq(29.97f), _)),
                            Pair("s", FieldsAre(Type::kString, _, _, "7"))));

    const TavroScenarioEvent& out = s.events[1];
    EXPECT_EQ(out.flags, 0x80000001u);
    EXPECT_THAT(out.hdr, FieldsAre(true, 0u, 6u, 7u, 0u, true, ElementsAre(0x26, 0x00, 0x04)));
    EXPECT_THAT(out.configUpdate,
                ElementsAre(FieldsAre(0xA0018602u, ElementsAre('h', 'i', 0), false, _),
                            FieldsAre(7u, ElementsAre(0xfe, 0xff, 0xff, 0xff), true, 20u)));

    const TavroScenarioEvent& clip = s.events[2];  // with the defaults
    EXPECT_THAT(std::tie(clip.count, clip.speed, clip.drops, clip.hasStartUs, clip.renderFrames,
                         clip.bytes),
                FieldsAre(4, 1.0, 0, false, true, 4096));
    EXPECT_EQ(s.events[3].advanceUs, 1500000);
    EXPECT_TRUE(s.events[4].keepAllocated);
    EXPECT_EQ(s.events[4].where, "events[4]");
}

}  // namespace
}  // namespace android
