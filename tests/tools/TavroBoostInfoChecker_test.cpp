#include "tools/boostinfo/TavroBoostInfoChecker.h"

#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "tools/boostinfo/TavroBoostInfoMain.h"
#include "tools/boostinfo/TavroBoostInfoVerdict.h"

namespace android {
namespace {

using Via = TavroBoostTransport;

template <typename T>
std::string joined(const std::vector<T>& values, const char* separator = "+") {
    std::ostringstream out;
    for (size_t i = 0; i < values.size(); ++i) out << (i ? separator : "") << values[i];
    return out.str();
}

// The findings' codes, an error's marked with '!'.
std::string codes(const TavroBoostInfoCheck& check) {
    std::vector<std::string> out;
    for (const TavroBoostInfoFinding& f : check.findings) {
        out.push_back((f.severity == TavroBoostInfoFinding::Severity::kError ? "!" : "") + f.code);
    }
    return joined(out, " ");
}

TEST(TavroBoostInfoCheckerTest, Findings) {
    const std::string k255 = "mime=" + std::string(250, 'v');
    const struct {
        std::string text;
        const char* codes;
        Via via = Via::kList;
    } kCases[] = {
            {"mime=video/avc,isVideo=1,schedVideo=2,threadName=a+b,cluster7Min=5", ""},
            // What the grammar silently accepts.
            {"", "empty-string"},
            {",isVideo=1,,sched=2,", "empty-item empty-item empty-item"},
            {"isVideo=1,render", "no-equals"},
            {"=5", "empty-key"},
            {"threadName=", "empty-value"},
            {" mime=video/avc", "blank-in-key"},
            {"threadName=render ", "blank-in-value"},
            {"mime=video/avc,mime=video/hevc", "duplicate-key"},
            {"schedvideo=2", "unknown-key"},
            {"cluster7Min=5,cluster8Min=6", "cluster-key-ignored"},
            {"bitrate=wide", "not-a-number"},
            {"limitWidth=720p,limitHeight=480", "trailing-text"},
            {"ddrFreq=3000000000", "out-of-range"},
            {"uclampTids=1++x,minUclamp=5", "empty-list-piece not-a-number"},
            {"isVideo=2,isEncoder=3", "flag-value flag-value"},
            {"schedVideo=high", "!sched-not-a-number"},
            {"schedAudio=99999999999", "!sched-not-a-number"},
            {"schedVideo=2x", "trailing-text"},
            // Only the value the parser keeps counts.
            {"schedVideo=x,schedVideo=3", "duplicate-key"},
            // Separators nobody meant.
            {"mime=video/hevc;isVideo=1;schedVideo=3", "!wrong-separator"},
            {"isVideo=1|schedVideo=3", "!wrong-separator trailing-text"},
            {"render;schedVideo=3", "!wrong-separator"},
            {"threadName=a\nb", "newline-in-value"},
            {"threadName=a|b", "list-separator"},
            {"mime=video/avc;video/hevc", ""},  // the substring test still finds either
            // The transports.
            {k255, ""},
            {k255 + "v", "!cut-by-transport"},
            {k255.substr(0, 91), "", Via::kProperty},
            {k255.substr(0, 92), "!cut-by-transport", Via::kProperty},
            {std::string("isVideo=1\0,sched=2", 18), "!cut-by-transport"},
            // Keys that can never take effect.
            {"isVideo=0,schedVideo=2,limitWidth=1,vendorBoost=1",
             "video-key-on-audio-rule video-key-on-audio-rule video-key-on-audio-rule "
             "no-area-limit"},
            {"isVideo=1,schedAudio=2,swThreads=aac,sampleRate=8000",
             "audio-key-on-video-rule audio-key-on-video-rule audio-key-on-video-rule"},
            {"isVideo=0,cluster1Min=1,preferIdle=1", ""},  // reaches audio codecs
            {"pelt=8,screenOff=1", "not-encoded not-encoded"},
            {"freqDownRate=60", "not-encoded lone-freq-down-rate"},
            {"freqUpRate=60", "not-encoded lone-freq-up-rate"},
            {"bitrate=-5,limitOpRate=-1,cluster1Min=-5",
             "negative-value negative-value "
             "negative-value"},
            {"limitWidth=-5,limitHeight=-5", "negative-value"},
            {"limitWidth=65536,limitHeight=32768", "!area-overflow"},
            {"minUclamp=1025,uclampTids=0", "uclamp-range"},
            {"uclampTids=0", "uclamp-unpaired"},
            {"minUclamp=512", "uclamp-unpaired"},
            {"minUclamp=512,uclampTids=0+2+3+-1", "uclamp-index"},
            {"isVideo=0,minUclamp=512,uclampTids=2", "uclamp-index"},
            {"countFps=1", "count-fps-without-limit"},
            {"countFps=1,limitOpRate=30", ""},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.text);
        const TavroBoostInfoCheck check = checkTavroBoostInfo(c.text, c.via);
        EXPECT_EQ(codes(check), c.codes);
        const std::string want = c.codes;
        EXPECT_EQ(check.exitStatus(), want.find('!') != std::string::npos ? 2
                                      : want.empty()                      ? 0
                                                                          : 1);
        EXPECT_EQ(check.accepted, want.find("sched-not-a-number") == std::string::npos);
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

// A key added to the table is known to the checker and read by the parser at once.
TEST(TavroBoostInfoCheckerTest, EveryTableKeyIsKnownAndFillsItsField) {
    for (const TavroBoostKey& key : kTavroBoostKeys) {
        SCOPED_TRACE(key.name);
        const TavroBoostField& at = key.at;
        const bool list = at.names != nullptr || at.numbers != nullptr;
        const std::string value = key.kind == TavroBoostKeyKind::kText ? "t" : list ? "7+8" : "7";
        const TavroBoostInfoCheck check = checkTavroBoostInfo(std::string(key.name) + "=" + value);
        EXPECT_EQ(codes(check).find("unknown-key"), std::string::npos);
        EXPECT_EQ(check.givenKeys.count(key.name), 1u);
        MediaBoostInfo record = check.record;
        std::string got = std::to_string(record.uxInfo.schedVideo) + "/" +
                          std::to_string(record.uxInfo.schedAudio);  // "sched" has no field
        if (at.text != nullptr) got = *at.text(record);
        if (at.number != nullptr) got = std::to_string(*at.number(record));
        if (at.flag != nullptr) got = *at.flag(record) ? "7" : "0";
        if (at.names != nullptr) got = joined(*at.names(record));
        if (at.numbers != nullptr) got = joined(*at.numbers(record));
        for (const auto& [n, f] :
             at.clusters ? *at.clusters(record) : std::map<int32_t, int32_t>()) {
            got = std::to_string(n) + ":" + std::to_string(f);
        }
        EXPECT_EQ(got, key.field == nullptr     ? "7/7"
                       : at.clusters != nullptr ? std::to_string(key.absent) + ":7"
                                                : value);
    }
}

TEST(TavroBoostInfoCheckerTest, RecordIsTheLibrarysParseOfWhatArrives) {
    const TavroBoostInfoCheck check = checkTavroBoostInfo(
            "sched=3,isVideo=1,schedAudio=5,a=b=c,freqUpRate=80+90,freqDownRate=60,"
            "cluster3Min=0,threadName=x++y");
    ASSERT_TRUE(check.accepted);
    EXPECT_EQ(check.givenKeys.count("schedVideo"), 0u);
    std::ostringstream out;
    printTavroBoostInfoCheck(check, out);
    for (const char* line : {
                 "transport: list, at most 255 bytes arrive: all 99\n",
                 "  schedVideo                    = 3   (not given)\n",
                 "  schedAudio                    = 5\n",
                 "  threadName                    = \"x++y\"\n",
                 "  freqRate                      = [80, 90, 60]\n",
                 "  clusterMinFreq                = {3: 0}\n",
                 "  warning [unknown-key] unknown key 'a' is ignored\n",
                 "result: 5 warning(s), 0 error(s)\n",
         }) {
        EXPECT_NE(out.str().find(line), std::string::npos) << line << out.str();
    }
}

TEST(TavroBoostInfoCheckerTest, VerdictStepsAreTheLibrarysUpToItsFirstFailure) {
    const struct {
        std::string rule, media, device, steps;  // the last step decides
    } kCases[] = {
            {"sched=2", "mime=audio/aac", "",
             "soc vendor project mime component bitrate codecId isEncoder track sampleRate "
             "sampleBits channelCount"},
            {"cpu=QXSM8475+QXSM8550,isVideo=1", "mime=video/avc", "cpu=SM8550",
             "soc vendor project mime component bitrate codecId isEncoder track area"},
            {"cpu=QXSM8475,isVideo=1", "mime=video/avc", "cpu=MT6989", "!soc"},
            {"vendor=mtk", "mime=video/avc", "vendor=qcom", "soc !vendor"},
            {"bitrate=2000000,limitWidth=65536,limitHeight=32768", "mime=video/avc,bitrate=1500000",
             "", "soc vendor project mime component !bitrate"},
            {"isEncoder=0", "mime=video/avc,comp=c2.x.encoder", "", "!isEncoder"},
            {"codecId=7", "mime=video/avc,codecId=8", "", "!codecId"},
            {"isVideo=1", "mime=audio/aac", "", "!track"},
            {"isVideo=0,sampleRate=48000", "mime=audio/aac,sampleRate=44100", "", "!sampleRate"},
            {"isVideo=0,cluster0Min=1", "mime=audio/aac", "", "channelCount"},
            {"sched=1", "mime=video/avc,isVideo=2", "", "!track"},
            {"limitWidth=1920,limitHeight=1080", "mime=video/avc,width=1080,height=1920", "",
             "area"},
            {"schedVideo=x", "mime=video/avc", "", ""},
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
        std::vector<std::string> steps;
        for (const TavroConditionStep& s : v.steps) steps.push_back((s.pass ? "" : "!") + s.name);
        const std::string got = joined(steps, " ");
        EXPECT_EQ(got.substr(got.size() - std::min(got.size(), c.steps.size())), c.steps);
        const size_t bang = c.steps.find('!');
        EXPECT_EQ(v.firstFailure, bang != std::string::npos ? c.steps.substr(bang + 1)
                                  : c.steps.empty()         ? "rejected string"
                                                            : "");
        EXPECT_EQ(v.applies, v.firstFailure.empty());
        EXPECT_EQ(v.fatal, "");
    }
    TavroMediaInfo huge = {"video/avc", "", 70000, 70000, 0, 0, 0, 0, 0, 1, 0};
    const TavroConditionVerdict v =
            evaluateTavroBoostConditions(checkTavroBoostInfo("isVideo=1"), huge, {});
    EXPECT_EQ(v.fatal, "a width x height area beyond 32 bits: the library aborts the process");
    EXPECT_EQ(v.firstFailure, "area");
    EXPECT_FALSE(v.applies);
}

TEST(TavroBoostInfoCheckerTest, DescriptionsReadCaseAndComponent) {
    TavroMediaInfo media;
    TavroDeviceDescription device;
    std::string error;
    ASSERT_TRUE(
            parseTavroMediaDescription("mime=VIDEO/hevc,comp=c2.qti.hevc.encoder", &media, &error));
    EXPECT_EQ(media.isVideo, 1);
    EXPECT_EQ(media.isEncoder, 1);
    ASSERT_TRUE(
            parseTavroDeviceDescription("soc=SM8550,vendor=qcom,project=22001", &device, &error));
    EXPECT_EQ(device.soc + device.project, "SM855022001");
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

TEST(TavroBoostInfoMainTest, OneRuleUsageAndExitStatus) {
    const struct {
        std::vector<const char*> args;
        int status;
        const char* out;  // a line of stdout, or the whole of stderr when stdout must be empty
    } kCases[] = {
            {{"isVideo=1,schedVideo=2"}, 0, "boost info: \"isVideo=1,schedVideo=2\"\n"},
            {{"schedVideo=x"}, 2, "record: none; the library rejects this string"},
            {{"mime=video/avc", "--via", "property"},
             0,
             "transport: property, at most 91 bytes arrive: all 14\n"},
            {{"bitrate=2000000", "--media", "mime=video/avc,bitrate=1500000", "--device",
              "cpu=SM8550"},
             0,
             "  FAIL  bitrate      media 1500000 < limit 2000000\n"
             "verdict: the rule does not apply (first failing condition: bitrate)\n"},
            {{"isVideo=1", "--media", "mime=video/avc,width=70000,height=70000"},
             2,
             "verdict: error: a width x height area beyond 32 bits"},
            {{"x=1", "--media", "mime=video/avc,width=19x0"},
             2,
             "tavro-boostinfo: --media: 'width=19x0': expected a whole 32-bit number\n"},
            {{"x=1", "--media", "mime=video/avc,width= 19"},
             2,
             "tavro-boostinfo: --media: 'width= 19': expected a whole 32-bit number\n"},
            {{"x=1", "--media", "depth=8"},
             2,
             "tavro-boostinfo: --media: unknown media key 'depth' (mime, comp, width, height, "
             "bitrate, sampleRate, sampleBits, channelCount, codecId, isVideo, isEncoder)\n"},
            {{"x=1", "--device", "cpu"},
             2,
             "tavro-boostinfo: --device: 'cpu': expected key=value\n"},
            {{"x=1", "--media", "width=1"},
             2,
             "tavro-boostinfo: --media: no mime: say mime=video/... or mime=audio/...\n"},
            {{"x=1", "-f", "rules.txt"},
             2,
             "tavro-boostinfo: give either a STRING or -f FILE, not both\n"},
            {{"-f", "/"}, 2, "tavro-boostinfo: /: not a readable regular file\n"},
            {{"--via", "wire"}, 2, "tavro-boostinfo: --via: wire not in {list,property}"},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.out);
        std::string out, err;
        EXPECT_EQ(runChecker(c.args, "", &out, &err), c.status);
        if (out.empty()) {
            EXPECT_EQ(err.rfind(c.out, 0), 0u) << err;
        } else {
            EXPECT_NE(out.find(c.out), std::string::npos) << out;
        }
    }
}

TEST(TavroBoostInfoMainTest, BatchChecksEveryLineOnItsOwn) {
    const std::string rules =
            "isVideo=1,schedVideo=2\n\nmime=video/hevc;isVideo=1;schedVideo=3\r\nisVideo=1,foo=2";
    std::string out, err;
    for (std::vector<const char*> args :
         {std::vector<const char*>{}, {"-"}, {"-f", "-"}, {"--media", "mime=video/hevc"}}) {
        SCOPED_TRACE(args.size());
        EXPECT_EQ(runChecker(args, rules, &out, &err), 2);
        EXPECT_NE(out.find("stdin:3: error [wrong-separator] "), std::string::npos) << out;
        EXPECT_NE(out.find("stdin:4: warning [unknown-key] unknown key 'foo' is ignored\n"),
                  std::string::npos);
        EXPECT_NE(out.find("stdin: 3 rule(s): 1 clean, 1 with warnings, 1 with errors\n"),
                  std::string::npos);
    }
    EXPECT_EQ(out.rfind("stdin:1: verdict: the rule applies; scheduling half applied, cluster "
                        "half applied\n",
                        0),
              0u)
            << out;

    EXPECT_EQ(runChecker({"--json", "--media", "mime=video/avc"}, rules, &out, &err), 2);
    std::vector<nlohmann::ordered_json> lines;
    std::istringstream json(out);
    for (std::string line; std::getline(json, line);)
        lines.push_back(nlohmann::ordered_json::parse(line));
    ASSERT_EQ(lines.size(), 4u);
    EXPECT_EQ(lines[0]["kind"], "rule");
    EXPECT_EQ(lines[0]["line"], 1);
    EXPECT_EQ(lines[0]["status"], 0);
    EXPECT_EQ(lines[0]["record"]["schedVideo"], 2);
    EXPECT_EQ(lines[0]["record"]["clusterMinFreq"].dump(), "{}");
    EXPECT_EQ(lines[0]["verdict"]["applies"], true);
    EXPECT_EQ(lines[1]["line"], 3);
    EXPECT_EQ(lines[1]["findings"][0]["code"], "wrong-separator");
    EXPECT_EQ(lines[1]["verdict"]["firstFailure"], "mime");
    EXPECT_EQ(lines[3].dump(),
              "{\"kind\":\"summary\",\"source\":\"stdin\",\"rules\":3,"
              "\"clean\":1,\"warnings\":1,\"errors\":1}");
}

}  // namespace
}  // namespace android
