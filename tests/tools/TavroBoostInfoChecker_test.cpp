#include "tools/boostinfo/TavroBoostInfoChecker.h"

#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tools/boostinfo/TavroBoostInfoMain.h"

namespace android {
namespace {

std::vector<std::string> codes(const TavroBoostInfoCheck& check) {
    std::vector<std::string> out;
    for (const TavroBoostInfoFinding& f : check.findings) out.push_back(f.code);
    return out;
}

TEST(TavroBoostInfoCheckerTest, WarnsAboutWhatTheGrammarSilentlyAccepts) {
    struct Case {
        const char* name;
        std::string text;
        std::vector<std::string> codes;
        int exit;
    };
    const Case kCases[] = {
            {"clean", "mime=video/avc,isVideo=1,schedVideo=2,threadName=a+b,cluster7Min=5", {}, 0},
            {"empty string", "", {"empty-string"}, 1},
            {"empty items", ",isVideo=1,,sched=2,", {"empty-item", "empty-item", "empty-item"}, 1},
            {"no equals", "isVideo=1,render", {"no-equals"}, 1},
            {"empty key", "=5", {"empty-key"}, 1},
            {"empty value", "threadName=", {"empty-value"}, 1},
            {"leading blank in key", " mime=video/avc", {"blank-in-key"}, 1},
            {"inner blank in key", "limit Width=5", {"blank-in-key"}, 1},
            {"blank around text value", "mime= video/avc", {"blank-in-value"}, 1},
            {"duplicate", "mime=video/avc,mime=video/hevc", {"duplicate-key"}, 1},
            {"unknown key", "schedvideo=2", {"unknown-key"}, 1},
            {"cluster 8", "cluster7Min=5,cluster8Min=6", {"cluster-key-ignored"}, 1},
            {"not a number", "limitWidth=wide", {"not-a-number"}, 1},
            {"trailing text", "limitWidth=720p", {"trailing-text"}, 1},
            {"out of range", "bitrate=3000000000", {"out-of-range"}, 1},
            {"boolean word", "preferIdle=yes", {"not-a-number"}, 1},
            {"list pieces", "uclampTids=1++x", {"empty-list-piece", "not-a-number"}, 1},
            {"lone down rate", "freqDownRate=60", {"lone-freq-down-rate"}, 1},
            {"both rates", "freqUpRate=80,freqDownRate=60", {}, 0},
            {"isVideo 2", "isVideo=2", {"flag-value"}, 1},
            {"isEncoder 3", "isEncoder=3", {"flag-value"}, 1},
            {"sched word", "schedVideo=high", {"sched-not-a-number"}, 2},
            {"sched audio overflow", "schedAudio=99999999999", {"sched-not-a-number"}, 2},
            {"sched trailing", "schedVideo=2x", {"trailing-text"}, 1},
            // Only the value the parser keeps counts: a bad first value of a repeated key is
            // replaced before it is read.
            {"repeated sched", "schedVideo=x,schedVideo=3", {"duplicate-key"}, 1},
    };
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.name);
        const TavroBoostInfoCheck check = checkTavroBoostInfo(c.text);
        EXPECT_EQ(codes(check), c.codes);
        EXPECT_EQ(check.exitStatus(), c.exit);
        EXPECT_EQ(check.accepted, c.exit != 2);
    }
}

TEST(TavroBoostInfoCheckerTest, MessagesSayWhatIsRead) {
    const struct {
        std::string text, message;
    } kCases[] = {
            {"limitWidth=720p",
             "'limitWidth=720p' reads as 720: the text after the number is ignored"},
            {"bitrate=3000000000",
             "'bitrate=3000000000' does not fit 32 bits and reads as -1294967296"},
            {"uclampTids=1+x", "'uclampTids=1+x' (piece 'x') is not a number and reads as 0"},
            {"mime=a,mime=b", "'mime' is given twice: 'b' replaces 'a'"},
            {"Schedvideo=2",
             "unknown key 'Schedvideo' is ignored (keys are case-sensitive: 'schedVideo'?)"},
            {" mime=x", "key ' mime' has blanks, so it is not 'mime'; the item is ignored"},
            {"a,,b=1", "item 1 'a' has no '=' and is ignored"},
            {"schedAudio=loud",
             "'schedAudio=loud' is not a 32-bit number: the library rejects the whole string "
             "(\"Rejected boost info\") and the rule gives no boost"},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.text);
        const TavroBoostInfoCheck check = checkTavroBoostInfo(c.text);
        ASSERT_FALSE(check.findings.empty());
        EXPECT_EQ(check.findings[0].message, c.message);
    }
}

TEST(TavroBoostInfoCheckerTest, RecordIsTheLibrarysParse) {
    const TavroBoostInfoCheck check = checkTavroBoostInfo(
            "sched=3,isVideo=1,schedAudio=5,a=b=c,freqUpRate=80+90,freqDownRate=60,"
            "cluster3Min=0,swThreads=x++y");
    ASSERT_TRUE(check.accepted);
    EXPECT_EQ(check.record.uxInfo.schedVideo, 3);
    EXPECT_EQ(check.record.uxInfo.schedAudio, 5);
    EXPECT_EQ(check.record.clusterInfo.freqRate, (std::vector<int32_t>{80, 90, 60}));
    EXPECT_EQ(check.record.clusterInfo.clusterMinFreq, (std::map<int32_t, int32_t>{{3, 0}}));
    EXPECT_EQ(check.record.uxInfo.swThreads, (std::vector<std::string>{"x", "y"}));
    EXPECT_EQ(check.givenKeys.count("sched"), 1u);
    EXPECT_EQ(check.givenKeys.count("schedVideo"), 0u);

    std::ostringstream out;
    printTavroBoostInfoCheck(check, out);
    const std::string text = out.str();
    EXPECT_NE(text.find("  schedVideo                    = 3   (not given)\n"), std::string::npos)
            << text;
    EXPECT_NE(text.find("  freqRate                      = [80, 90, 60]\n"), std::string::npos);
    EXPECT_NE(text.find("  clusterMinFreq                = {3: 0}\n"), std::string::npos);
    EXPECT_NE(text.find("  warning [unknown-key] unknown key 'a' is ignored\n"), std::string::npos);
    EXPECT_NE(text.find("result: 2 warning(s), 0 error(s)\n"), std::string::npos);
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
}

TEST(TavroBoostInfoCheckerTest, DescriptionsAreStrict) {
    TavroMediaInfo media;
    TavroDeviceDescription device;
    std::string error;
    EXPECT_FALSE(parseTavroMediaDescription("width=19x0", &media, &error));
    EXPECT_EQ(error, "'width=19x0': expected a whole 32-bit number");
    EXPECT_FALSE(parseTavroMediaDescription("depth=8", &media, &error));
    EXPECT_EQ(error.rfind("unknown media key 'depth'", 0), 0u);
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

TEST(TavroBoostInfoMainTest, ReadsArgumentOrStdinAndExitsBySeverity) {
    std::string out, err;
    EXPECT_EQ(runChecker({"isVideo=1,schedVideo=2"}, "", &out, &err), 0);
    EXPECT_EQ(out.rfind("boost info: \"isVideo=1,schedVideo=2\"\n", 0), 0u);
    EXPECT_EQ(runChecker({}, "isVideo=1,foo=2\n", &out, &err), 1);
    EXPECT_EQ(out.rfind("boost info: \"isVideo=1,foo=2\"\n", 0), 0u);
    EXPECT_EQ(runChecker({"-"}, "schedVideo=x\r\n", &out, &err), 2);
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
    EXPECT_EQ(runChecker({"x=1", "--media", "width=abc"}, "", &out, &err), 2);
    EXPECT_EQ(err, "tavro-boostinfo: --media: 'width=abc': expected a whole 32-bit number\n");
    EXPECT_EQ(out, "");
    EXPECT_EQ(runChecker({"--nope"}, "", &out, &err), 2);
}

}  // namespace
}  // namespace android
