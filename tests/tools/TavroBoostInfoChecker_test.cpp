#include "tools/boostinfo/TavroBoostInfoChecker.h"

#include <cutils/properties.h>

#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "tools/boostinfo/TavroBoostInfoMain.h"
#include "tools/boostinfo/TavroBoostInfoVerdict.h"
#include "whitelist/TavroWhiteListCacheMgr.h"

namespace android {
namespace {

using Via = TavroBoostTransport;

template <typename T>
std::string joined(const std::vector<T>& values) {
    std::ostringstream out;
    for (size_t i = 0; i < values.size(); ++i) out << (i ? "+" : "") << values[i];
    return out.str();
}

std::vector<std::string> codes(const TavroBoostInfoCheck& check) {
    std::vector<std::string> out;
    for (const TavroBoostInfoFinding& f : check.findings) out.push_back(f.code);
    return out;
}

TEST(TavroBoostInfoCheckerTest, Findings) {
    struct Case {
        const char* name;
        std::string text;
        std::vector<std::string> codes;
        int exit;
        Via via = Via::kList;
    };
    const std::string k255 = "mime=" + std::string(250, 'v');
    const Case kCases[] = {
            {"clean", "mime=video/avc,isVideo=1,schedVideo=2,threadName=a+b,cluster7Min=5", {}, 0},
            // What the grammar silently accepts.
            {"empty string", "", {"empty-string"}, 1},
            {"empty items", ",isVideo=1,,sched=2,", {"empty-item", "empty-item", "empty-item"}, 1},
            {"no equals", "isVideo=1,render", {"no-equals"}, 1},
            {"empty key", "=5", {"empty-key"}, 1},
            {"empty value", "threadName=", {"empty-value"}, 1},
            {"leading blank in key", " mime=video/avc", {"blank-in-key"}, 1},
            {"inner blank in key", "limit Width=5", {"blank-in-key"}, 1},
            {"blank around text value", "mime= video/avc", {"blank-in-value"}, 1},
            {"trailing blank in a value", "threadName=render ", {"blank-in-value"}, 1},
            {"duplicate", "mime=video/avc,mime=video/hevc", {"duplicate-key"}, 1},
            {"unknown key", "schedvideo=2", {"unknown-key"}, 1},
            {"cluster 8", "cluster7Min=5,cluster8Min=6", {"cluster-key-ignored"}, 1},
            {"not a number", "bitrate=wide", {"not-a-number"}, 1},
            {"trailing text", "limitWidth=720p,limitHeight=480", {"trailing-text"}, 1},
            {"out of range", "ddrFreq=3000000000", {"out-of-range"}, 1},
            {"boolean word", "preferIdle=yes", {"not-a-number"}, 1},
            {"list pieces", "uclampTids=1++x,minUclamp=5", {"empty-list-piece", "not-a-number"}, 1},
            {"isVideo 2", "isVideo=2", {"flag-value"}, 1},
            {"isEncoder 3", "isEncoder=3", {"flag-value"}, 1},
            {"sched word", "schedVideo=high", {"sched-not-a-number"}, 2},
            {"sched audio overflow", "schedAudio=99999999999", {"sched-not-a-number"}, 2},
            {"sched trailing", "schedVideo=2x", {"trailing-text"}, 1},
            // Only the value the parser keeps counts: a bad first value of a repeated key is
            // replaced before it is read.
            {"repeated sched", "schedVideo=x,schedVideo=3", {"duplicate-key"}, 1},
            // Separators nobody meant.
            {"semicolons", "mime=video/hevc;isVideo=1;schedVideo=3", {"wrong-separator"}, 2},
            {"bars", "isVideo=1|schedVideo=3", {"wrong-separator", "trailing-text"}, 2},
            {"blank between items", "mime=video/avc isVideo=1", {"wrong-separator"}, 2},
            {"piece before a semicolon", "render;schedVideo=3", {"wrong-separator"}, 2},
            {"line end between items", "mime=video/avc\nisVideo=1", {"wrong-separator"}, 2},
            {"line end in a value", "threadName=a\nb", {"newline-in-value"}, 1},
            {"bar in a list", "threadName=a|b", {"list-separator"}, 1},
            {"semicolon in a text", "mime=video/avc;video/hevc", {}, 0},  // substring test
            // The transport.
            {"255 bytes arrive whole", k255, {}, 0},
            {"256 bytes are cut", k255 + "v", {"cut-by-transport"}, 2},
            {"91 characters in a property", k255.substr(0, 91), {}, 0, Via::kProperty},
            {"92 in a property are cut",
             k255.substr(0, 92),
             {"cut-by-transport"},
             2,
             Via::kProperty},
            {"NUL", std::string("isVideo=1\0,sched=2", 18), {"cut-by-transport"}, 2},
            // Keys that can never take effect.
            {"video keys on an audio rule",
             "isVideo=0,schedVideo=2,limitWidth=1,vendorBoost=1",
             {"video-key-on-audio-rule", "video-key-on-audio-rule", "video-key-on-audio-rule",
              "no-area-limit"},
             1},
            {"audio keys on a video rule",
             "isVideo=1,schedAudio=2,swThreads=aac,sampleRate=8000",
             {"audio-key-on-video-rule", "audio-key-on-video-rule", "audio-key-on-video-rule"},
             1},
            {"cluster keys on an audio rule reach audio",
             "isVideo=0,cluster1Min=1,preferIdle=1",
             {},
             0},
            {"not encoded", "pelt=8,screenOff=1", {"not-encoded", "not-encoded"}, 1},
            {"both rates", "freqUpRate=80,freqDownRate=60", {"not-encoded", "not-encoded"}, 1},
            {"lone down rate", "freqDownRate=60", {"not-encoded", "lone-freq-down-rate"}, 1},
            {"lone up rate", "freqUpRate=60", {"not-encoded", "lone-freq-up-rate"}, 1},
            {"negative limits",
             "bitrate=-5,limitOpRate=-1,cluster1Min=-5",
             {"negative-value", "negative-value", "negative-value"},
             1},
            {"huge bitrate reads negative",
             "bitrate=3000000000",
             {"out-of-range", "negative-value"},
             1},
            {"one side of the area", "limitWidth=1920", {"no-area-limit"}, 1},
            {"negative area sides", "limitWidth=-5,limitHeight=-5", {"negative-value"}, 1},
            {"area beyond 32 bits", "limitWidth=65536,limitHeight=32768", {"area-overflow"}, 2},
            {"uclamp range", "minUclamp=1025,uclampTids=0", {"uclamp-range"}, 1},
            {"uclamp without clamp", "uclampTids=0", {"uclamp-unpaired"}, 1},
            {"clamp without threads", "minUclamp=512", {"uclamp-unpaired"}, 1},
            {"uclamp index", "minUclamp=512,uclampTids=0+2+3+-1", {"uclamp-index"}, 1},
            {"audio has two boost threads",
             "isVideo=0,minUclamp=512,uclampTids=2",
             {"uclamp-index"},
             1},
            {"countFps without limit", "countFps=1", {"count-fps-without-limit"}, 1},
            {"countFps with limit", "countFps=1,limitOpRate=30", {}, 0},
    };
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.name);
        const TavroBoostInfoCheck check = checkTavroBoostInfo(c.text, c.via);
        EXPECT_EQ(codes(check), c.codes);
        EXPECT_EQ(check.exitStatus(), c.exit);
    }
}

TEST(TavroBoostInfoCheckerTest, MessagesSayWhatIsRead) {
    const std::string pad(240, 'v');
    const struct {
        std::string text, message;
        Via via = Via::kList;
    } kCases[] = {
            {"limitWidth=720p,limitHeight=480",
             "'limitWidth=720p' reads as 720: the text after the number is ignored"},
            {"ddrFreq=3000000000",
             "'ddrFreq=3000000000' does not fit 32 bits and reads as -1294967296"},
            {"uclampTids=1+x", "'uclampTids=1+x' (piece 'x') is not a number and reads as 0"},
            {"mime=a,mime=b", "'mime' is given twice: 'b' replaces 'a'"},
            {"Schedvideo=2",
             "unknown key 'Schedvideo' is ignored (keys are case-sensitive: 'schedVideo'?)"},
            {" mime=x", "key ' mime' has blanks, so it is not 'mime'; the item is ignored"},
            {"a,,b=1", "item 1 'a' has no '=' and is ignored"},
            {"schedAudio=loud",
             "'schedAudio=loud' is not a 32-bit number: the library rejects the whole string "
             "(\"Rejected boost info\") and the rule gives no boost"},
            {"mime=video/hevc;isVideo=1;schedVideo=3",
             "'mime=video/hevc;isVideo=1;schedVideo=3': only ',' separates items (not ';', '|', "
             "blanks or line ends), so isVideo, schedVideo are not read: part of the value of "
             "'mime'"},
            // 5 + 240 bytes of mime, then "isVideo=1" up to byte 255 exactly.
            {"mime=" + pad + ",isVideo=1,schedVideo=2,mime=x",
             "the rule is 275 bytes, but a list answer is read into a 256-byte buffer "
             "(kBoostInfoBufferSize), so 255 bytes and a NUL arrive; cut after item 2; lost: "
             "schedVideo, mime (an earlier value counts)"},
            {"isVideo=1,schedVideo=2,threadName=" + std::string(70, 'r') + ",uclampTids=0",
             "the rule is 117 characters, but a property value holds at most 91 "
             "(PROPERTY_VALUE_MAX 92 with its NUL): setprop refuses a longer value, and the "
             "library reads at most the first 91; cut inside item 3 'threadName=" +
                     std::string(70, 'r') + "', read as 'threadName=" + std::string(57, 'r') +
                     "'; lost: uclampTids",
             Via::kProperty},
            {std::string("isVideo=1,sch\0ed=2", 18),
             "the text holds a NUL byte at offset 13: the library reads the rule only up to it; "
             "cut inside item 2 'sch\\0ed=2', of which 'sch' is left and ignored; lost: sch\\0ed"},
            {"isVideo=0,schedVideo=2",
             "'schedVideo' never takes effect: 'isVideo=0' makes the rule fit audio codecs only, "
             "and only video codecs use it"},
            {"minUclamp=512,uclampTids=3",
             "uclampTids 3 never picks a thread: the indices select among the codec's own boost "
             "threads (the app's tp-ux-tid and the configuring thread when the format names a "
             "tp-ux-tid, then the looper thread of a video codec), so only 0 to 2 can"},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.text);
        const TavroBoostInfoCheck check = checkTavroBoostInfo(c.text, c.via);
        ASSERT_FALSE(check.findings.empty());
        EXPECT_EQ(check.findings[0].message, c.message);
    }
}

// The limits are the library's buffers, not numbers of the tool's own.
TEST(TavroBoostInfoCheckerTest, TransportLimitsAreTheLibrarysBuffers) {
    EXPECT_EQ(tavroTransportLimit(Via::kList), kBoostInfoBufferSize - 1);
    EXPECT_EQ(tavroTransportLimit(Via::kProperty), static_cast<size_t>(PROPERTY_VALUE_MAX - 1));
    const std::string text = std::string(300, 'a');
    EXPECT_EQ(tavroDeliveredText(text, Via::kList), text.substr(0, 255));
    EXPECT_EQ(tavroDeliveredText(text, Via::kProperty), text.substr(0, 91));
    EXPECT_EQ(tavroDeliveredText(std::string("ab\0cd", 5), Via::kList), "ab");
}

// A key added to the table is known to the checker and read by the parser at once.
TEST(TavroBoostInfoCheckerTest, EveryTableKeyIsKnownAndFillsItsField) {
    for (const TavroBoostKey& key : kTavroBoostKeys) {
        SCOPED_TRACE(key.name);
        const bool list =
                key.kind == TavroBoostKeyKind::kNameList || key.kind == TavroBoostKeyKind::kIntList;
        const std::string value = key.kind == TavroBoostKeyKind::kText ? "t" : list ? "7+8" : "7";
        const TavroBoostInfoCheck check = checkTavroBoostInfo(std::string(key.name) + "=" + value);
        for (const TavroBoostInfoFinding& f : check.findings) EXPECT_NE(f.code, "unknown-key");
        EXPECT_EQ(check.givenKeys.count(key.name), 1u);
        ASSERT_TRUE(check.accepted);
        MediaBoostInfo record = check.record;
        const TavroBoostField& at = key.at;
        std::string got;
        if (key.field == nullptr) {  // "sched": the fallback of both scheduling values
            got = std::to_string(record.uxInfo.schedVideo) + "/" +
                  std::to_string(record.uxInfo.schedAudio);
        }
        if (at.text != nullptr) got = *at.text(record);
        if (at.number != nullptr) got = std::to_string(*at.number(record));
        if (at.flag != nullptr) got = *at.flag(record) ? "true" : "false";
        if (at.names != nullptr) got = joined(*at.names(record));
        if (at.numbers != nullptr) got = joined(*at.numbers(record));
        if (at.clusters != nullptr) {
            for (const auto& [n, f] : *at.clusters(record))
                got += std::to_string(n) + ":" + std::to_string(f);
        }
        const std::string want = key.field == nullptr     ? "7/7"
                                 : at.flag != nullptr     ? "true"
                                 : at.clusters != nullptr ? std::to_string(key.absent) + ":7"
                                 : at.names != nullptr || at.numbers != nullptr ? "7+8"
                                                                                : value;
        EXPECT_EQ(got, want);
    }
}

TEST(TavroBoostInfoCheckerTest, RecordIsTheLibrarysParse) {
    const TavroBoostInfoCheck check = checkTavroBoostInfo(
            "sched=3,isVideo=1,schedAudio=5,a=b=c,freqUpRate=80+90,freqDownRate=60,"
            "cluster3Min=0,threadName=x++y");
    ASSERT_TRUE(check.accepted);
    EXPECT_EQ(check.record.uxInfo.schedVideo, 3);
    EXPECT_EQ(check.record.uxInfo.schedAudio, 5);
    EXPECT_EQ(check.record.clusterInfo.freqRate, (std::vector<int32_t>{80, 90, 60}));
    EXPECT_EQ(check.record.clusterInfo.clusterMinFreq, (std::map<int32_t, int32_t>{{3, 0}}));
    EXPECT_EQ(check.givenKeys.count("sched"), 1u);
    EXPECT_EQ(check.givenKeys.count("schedVideo"), 0u);

    std::ostringstream out;
    printTavroBoostInfoCheck(check, out);
    const std::string text = out.str();
    for (const char* line : {
                 "transport: list, at most 255 bytes arrive: all 99\n",
                 "  schedVideo                    = 3   (not given)\n",
                 "  threadName                    = \"x++y\"\n",
                 "  freqRate                      = [80, 90, 60]\n",
                 "  clusterMinFreq                = {3: 0}\n",
                 "  warning [unknown-key] unknown key 'a' is ignored\n",
                 "result: 5 warning(s), 0 error(s)\n",
         }) {
        EXPECT_NE(text.find(line), std::string::npos) << line << text;
    }
}

TEST(TavroBoostInfoCheckerTest, ConditionsNameTheFailingOne) {
    const struct {
        std::string rule, media, device;
        bool applies;
        std::string firstFailure;
        bool cluster;
    } kCases[] = {
            {"sched=2", "mime=audio/aac", "", true, "", false},
            {"cpu=QXSM8475+QXSM8550,isVideo=1", "mime=video/avc", "cpu=SM8550", true, "", true},
            {"cpu=QXSM8475,isVideo=1", "mime=video/avc", "cpu=MT6989", false, "soc", false},
            {"vendor=mtk", "mime=video/avc", "vendor=qcom", false, "vendor", false},
            {"bitrate=2000000", "mime=video/avc", "", true, "", true},
            {"bitrate=2000000", "mime=video/avc,bitrate=1500000", "", false, "bitrate", false},
            {"bitrate=2000000,limitWidth=1920,limitHeight=1080",
             "mime=video/avc,bitrate=1,width=1280,height=720", "", false, "bitrate", false},
            {"limitWidth=1920,limitHeight=1080", "mime=video/avc,width=1080,height=1920", "", true,
             "", true},
            {"isEncoder=0", "mime=video/avc,comp=c2.x.encoder", "", false, "isEncoder", false},
            {"codecId=7", "mime=video/avc,codecId=8", "", false, "codecId", false},
            {"isVideo=1", "mime=audio/aac", "", false, "track", false},
            {"isVideo=0,sampleRate=48000", "mime=audio/aac,sampleRate=44100", "", false,
             "sampleRate", false},
            {"isVideo=0,cluster0Min=1", "mime=audio/aac", "", true, "", true},
            {"sched=1", "mime=video/avc,isVideo=2", "", false, "track", false},
            {"schedVideo=x", "mime=video/avc", "", false, "rejected string", false},
            // The area limit is only reached when everything before it passes.
            {"bitrate=9,limitWidth=65536,limitHeight=32768", "mime=video/avc,bitrate=1", "", false,
             "bitrate", false},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.rule + " / " + c.media + " / " + c.device);
        TavroMediaInfo media;
        TavroDeviceDescription device;
        std::string error;
        ASSERT_TRUE(parseTavroMediaDescription(c.media, &media, &error)) << error;
        ASSERT_TRUE(parseTavroDeviceDescription(c.device, &device, &error)) << error;
        const TavroConditionVerdict v =
                evaluateTavroBoostConditions(checkTavroBoostInfo(c.rule), media, device);
        EXPECT_EQ(v.applies, c.applies);
        EXPECT_EQ(v.firstFailure, c.firstFailure);
        EXPECT_EQ(v.uxApplies, c.applies);
        EXPECT_EQ(v.clusterApplies, c.cluster);
        EXPECT_EQ(v.fatal, "");
        // The steps are the library's, up to its first failure.
        EXPECT_EQ(v.steps.empty() || v.steps.back().pass, c.applies || v.steps.empty());
    }
}

TEST(TavroBoostInfoCheckerTest, AreaBeyond32BitsIsReportedNotRun) {
    TavroMediaInfo media;
    std::string error;
    ASSERT_TRUE(
            parseTavroMediaDescription("mime=video/avc,width=70000,height=70000", &media, &error));
    const TavroConditionVerdict v =
            evaluateTavroBoostConditions(checkTavroBoostInfo("isVideo=1"), media, {});
    EXPECT_EQ(v.fatal, "a width x height area beyond 32 bits: the library aborts the process");
    EXPECT_FALSE(v.applies);
    ASSERT_FALSE(v.steps.empty());
    EXPECT_EQ(v.steps.back().name, "area");
}

TEST(TavroBoostInfoCheckerTest, DescriptionsAreStrict) {
    TavroMediaInfo media;
    TavroDeviceDescription device;
    std::string error;
    const struct {
        const char* text;
        const char* error;
    } kBadMedia[] = {
            {"mime=video/avc,width=19x0", "'width=19x0': expected a whole 32-bit number"},
            {"mime=video/avc,width= 19", "'width= 19': expected a whole 32-bit number"},
            {"depth=8",
             "unknown media key 'depth' (mime, comp, width, height, bitrate, "
             "sampleRate, sampleBits, channelCount, codecId, isVideo, isEncoder)"},
            {"width=1920,isVideo=1", "no mime: say mime=video/... or mime=audio/..."},
    };
    for (const auto& c : kBadMedia) {
        SCOPED_TRACE(c.text);
        EXPECT_FALSE(parseTavroMediaDescription(c.text, &media, &error));
        EXPECT_EQ(error, c.error);
    }
    EXPECT_FALSE(parseTavroDeviceDescription("cpu", &device, &error));
    EXPECT_EQ(error, "'cpu': expected key=value");
    ASSERT_TRUE(
            parseTavroMediaDescription("mime=VIDEO/hevc,comp=c2.qti.hevc.encoder", &media, &error));
    EXPECT_EQ(media.isVideo, 1);
    EXPECT_EQ(media.isEncoder, 1);
    ASSERT_TRUE(
            parseTavroDeviceDescription("soc=SM8550,vendor=qcom,project=22001", &device, &error));
    EXPECT_EQ(device.soc, "SM8550");
    EXPECT_EQ(device.project, "22001");
}

int runChecker(std::vector<const char*> args, const std::string& input, std::string* out,
               std::string* err) {
    args.insert(args.begin(), "tavro-boostinfo");
    std::istringstream in(input);
    std::ostringstream o, e;
    const int status = tavroBoostInfoMain(static_cast<int>(args.size()), args.data(), in, o, e);
    *out = o.str();
    *err = e.str();
    return status;
}

TEST(TavroBoostInfoMainTest, OneRuleFromTheCommandLine) {
    std::string out, err;
    EXPECT_EQ(runChecker({"isVideo=1,schedVideo=2"}, "", &out, &err), 0);
    EXPECT_EQ(out.rfind("boost info: \"isVideo=1,schedVideo=2\"\n", 0), 0u);
    EXPECT_EQ(runChecker({"schedVideo=x"}, "", &out, &err), 2);
    EXPECT_NE(out.find("record: none; the library rejects this string"), std::string::npos);

    EXPECT_EQ(runChecker({"bitrate=2000000", "--media", "mime=video/avc,bitrate=1500000",
                          "--device", "cpu=SM8550"},
                         "", &out, &err),
              0);
    EXPECT_NE(out.find("  FAIL  bitrate      media 1500000 < limit 2000000\n"), std::string::npos)
            << out;
    EXPECT_NE(out.find("verdict: the rule does not apply (first failing condition: bitrate)\n"),
              std::string::npos);
    EXPECT_EQ(runChecker({"isVideo=1", "--media", "mime=video/avc,width=70000,height=70000"}, "",
                         &out, &err),
              2);
    EXPECT_EQ(runChecker({"mime=video/avc", "--via", "property"}, "", &out, &err), 0);
    EXPECT_NE(out.find("transport: property, at most 91 bytes arrive: all 14\n"),
              std::string::npos);

    const struct {
        std::vector<const char*> args;
        const char* err;
    } kBad[] = {
            {{"x=1", "--media", "width=abc"},
             "tavro-boostinfo: --media: 'width=abc': expected a whole 32-bit number\n"},
            {{"x=1", "--media", "width=1"},
             "tavro-boostinfo: --media: no mime: say mime=video/... or mime=audio/...\n"},
            {{"x=1", "-f", "rules.txt"},
             "tavro-boostinfo: give either a STRING or -f FILE, not "
             "both\n"},
            {{"-f", "/nonexistent/rules.txt"},
             "tavro-boostinfo: /nonexistent/rules.txt: not a readable regular file\n"},
            {{"-f", "/"}, "tavro-boostinfo: /: not a readable regular file\n"},
    };
    for (const auto& c : kBad) {
        SCOPED_TRACE(c.err);
        EXPECT_EQ(runChecker(c.args, "", &out, &err), 2);
        EXPECT_EQ(err, c.err);
        EXPECT_EQ(out, "");
    }
    EXPECT_EQ(runChecker({"--via", "wire"}, "", &out, &err), 2);
}

TEST(TavroBoostInfoMainTest, BatchChecksEveryLineOnItsOwn) {
    const std::string rules =
            "isVideo=1,schedVideo=2\n"
            "\n"
            "mime=video/hevc;isVideo=1;schedVideo=3\r\n"
            "isVideo=1,foo=2";
    std::string out, err;
    for (std::vector<const char*> args :
         {std::vector<const char*>{},
          {"-"},
          {"-f", "-"},
          {"--media", "mime=video/hevc", "--device", "cpu=QXSM8550"}}) {
        SCOPED_TRACE(args.empty() ? "" : args[0]);
        EXPECT_EQ(runChecker(args, rules, &out, &err), 2);
        EXPECT_NE(out.find("stdin:3: error [wrong-separator] "), std::string::npos) << out;
        EXPECT_NE(out.find("stdin:4: warning [unknown-key] unknown key 'foo' is ignored\n"),
                  std::string::npos);
        EXPECT_NE(out.find("stdin: 3 rule(s): 1 clean, 1 with warnings, 1 with errors\n"),
                  std::string::npos);
        EXPECT_EQ(out.find("stdin:1: "), args.size() == 4 ? 0u : std::string::npos);
    }
    EXPECT_NE(out.find("stdin:3: verdict: the rule applies; scheduling half applied, cluster "
                       "half applied\n"),
              std::string::npos)
            << out;

    EXPECT_EQ(runChecker({"--json", "--media", "mime=video/avc"}, rules, &out, &err), 2);
    std::vector<nlohmann::json> lines;
    std::istringstream json(out);
    for (std::string line; std::getline(json, line);) lines.push_back(nlohmann::json::parse(line));
    ASSERT_EQ(lines.size(), 4u);
    EXPECT_EQ(lines[0]["kind"], "rule");
    EXPECT_EQ(lines[0]["line"], 1);
    EXPECT_EQ(lines[0]["status"], 0);
    EXPECT_EQ(lines[0]["record"]["schedVideo"], 2);
    EXPECT_EQ(lines[0]["record"]["clusterMinFreq"], nlohmann::json::object());
    EXPECT_EQ(lines[0]["verdict"]["applies"], true);
    EXPECT_EQ(lines[1]["line"], 3);
    EXPECT_EQ(lines[1]["findings"][0]["code"], "wrong-separator");
    EXPECT_EQ(lines[1]["verdict"]["firstFailure"], "mime");
    EXPECT_EQ(lines[3], (nlohmann::json{{"kind", "summary"},
                                        {"source", "stdin"},
                                        {"rules", 3},
                                        {"clean", 1},
                                        {"warnings", 1},
                                        {"errors", 1}}));
}

}  // namespace
}  // namespace android
