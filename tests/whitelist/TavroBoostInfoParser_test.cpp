// Grammar of the boost-info string: string -> record, the splitting helpers, the strict
// scheduling values, bad input and the debug trace.
#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "WhiteListTestSupport.h"

namespace android {
namespace {

using test::dump;

class BoostInfoGrammarTest : public test::WhiteListWorld {};

// Fields away from their defaults, or "(rejected)".
std::string parsed(const std::string& text) {
    auto info = std::make_shared<MediaBoostInfo>();
    return parseBoostInfo(text, info) ? dump(*info) : "(rejected)";
}

TEST_F(BoostInfoGrammarTest, StringToRecord) {
    struct Case {
        const char* name;
        std::string text;
        std::string want;
    };
    const Case kCases[] = {
            {"only a comma", ",", ""},
            {"item without '='", "x", ""},
            {"the documented example",
             "mime=video/avc,isVideo=1,isEncoder=0,limitWidth=1920,limitHeight=1080,schedVideo=2,"
             "threadName=render+decode,uclampTids=0+1,cluster2Min=1200000",
             "mime=video/avc limitWidth=1920 limitHeight=1080 isVideo=1 isEncoder=0 schedVideo=2 "
             "threadName=render+decode uclamp=[0+1] minFreq={2:1200000}"},
            // The "sched" fallback and its video/audio asymmetry.
            {"sched alone", "sched=3", "schedVideo=3 schedAudio=3"},
            {"sched, video only", "sched=3,isVideo=1", "isVideo=1 schedVideo=3"},
            {"sched, audio only", "sched=3,isVideo=0", "isVideo=0 schedAudio=3"},
            {"explicit audio on a video rule", "sched=3,isVideo=1,schedAudio=5",
             "isVideo=1 schedVideo=3 schedAudio=5"},
            {"other isVideo acts like either", "sched=3,isVideo=2",
             "isVideo=2 schedVideo=3 schedAudio=3"},
            {"explicit values beat sched", "sched=3,schedVideo=0,schedAudio=-4",
             "schedVideo=0 schedAudio=-4"},
            {"strict values read like stoi", "schedVideo= 7,schedAudio=+8x",
             "schedVideo=7 schedAudio=8"},
            {"sched word", "isVideo=1,schedVideo=fast", "(rejected)"},
            {"audio sched word", "schedAudio=x", "(rejected)"},
            {"sched blank", "schedVideo= ", "(rejected)"},
            {"sched beyond 32 bits", "schedVideo=99999999999", "(rejected)"},
            {"sched sign alone", "schedAudio=-", "(rejected)"},
            {"the lenient keys read the same words as 0", "sched=fast,ddrFreq=x",
             "schedVideo=0 schedAudio=0"},
            // Items: first '=', later key wins, no trimming, case, empty parts.
            {"later key wins", "mime=video/avc,mime=video/hevc", "mime=video/hevc"},
            {"value keeps further '='", "comp=a=b", "comp=a=b"},
            {"keys are not trimmed", " mime=x,isVideo =1", ""},
            {"values are not trimmed", "mime= x ", "mime= x "},
            {"keys are case-sensitive", "MIME=x,IsVideo=1", ""},
            {"empty key or value", "=5,isVideo=,threadName=", ""},
            {"empty items", ",,,isVideo=1,,", "isVideo=1"},
            // Numbers read like atoi.
            {"atoi reading", "limitWidth=720p,limitHeight= 42,bitrate=-5,sampleRate=x,codecId=0x10",
             "limitWidth=720 limitHeight=42 bitrate=-5"},
            {"huge numbers keep the low 32 bits", "bitrate=99999999999,ddrFreq=-4294967297",
             "bitrate=1215752191 ddrFreq=-1"},
            {"booleans are any non-zero number", "vendorBoost=2,countFps=-1,preferIdle=0",
             "vendorBoost=1 countFps=1"},
            // Lists.
            {"bad list piece reads 0", "uclampTids=1+x+3", "uclamp=[1+0+3]"},
            {"only separators", "swThreads=+,uclampTids=++", ""},
            {"cluster keys 0..7 only", "cluster7Min=5,cluster8Min=6,cluster-1Min=7",
             "minFreq={7:5}"},
            {"a present zero makes an entry", "cluster3Min=0", "minFreq={3:0}"},
            {"up-rates then down-rates", "freqDownRate=60,freqUpRate=80+90", "freqRate=[80+90+60]"},
            {"down-rate alone", "freqDownRate=60", "freqRate=[60]"},
            {"up-rate alone", "freqUpRate=70", "freqRate=[70]"},
            // Text nobody meant.
            {"arbitrary bytes", "mime=\xff\xfe,comp=\x01\x7f", "mime=\xff\xfe comp=\x01\x7f"},
            {"thousands of separators",
             std::string(5000, ',') + "mime=x" + std::string(5000, ',') +
                     "uclampTids=" + std::string(3000, '+') + "5",
             "mime=x uclamp=[5]"},
            {"one 256-byte item", std::string(120, 'k') + "=" + std::string(135, 'v'), ""},
            {"NUL is an ordinary byte", std::string("mime=a\0b,isVideo=1", 18),
             std::string("mime=a\0b isVideo=1", 18)},
    };
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(c.want, parsed(c.text));
    }
}

TEST_F(BoostInfoGrammarTest, ParseResetsTheDecisionAndKeepsCacheFieldsOrEmptyChangesNothing) {
    auto info = std::make_shared<MediaBoostInfo>();
    ASSERT_TRUE(
            parseBoostInfo("schedVideo=4,threadName=x,uclampTids=1,cluster1Min=5,"
                           "swThreads=a,mime=m,freqUpRate=1",
                           info));
    info->boostStrInfo = "kept";
    info->isValid = info->isDefault = true;
    info->cacheTime = std::chrono::steady_clock::time_point(std::chrono::seconds(12));
    info->uxInfo.tids = {11};
    const std::string before = dump(*info);

    EXPECT_TRUE(parseBoostInfo("", info));
    EXPECT_TRUE(parseBoostInfo("sched=1", nullptr));
    EXPECT_EQ(before, dump(*info));

    ASSERT_TRUE(parseBoostInfo("x", info));
    EXPECT_EQ("", dump(*info));
    EXPECT_EQ("kept", info->boostStrInfo);
    EXPECT_TRUE(info->isValid && info->isDefault);
    EXPECT_EQ(std::chrono::seconds(12), info->cacheTime.time_since_epoch());
}

TEST_F(BoostInfoGrammarTest, SplittingHelpers) {
    using Map = std::map<std::string, std::string>;
    const struct {
        std::string text;
        Map before, want;
    } kPairs[] = {
            {"a=b=c", {}, {{"a", "b=c"}}},
            {"a,=5,k=", {}, {}},
            {"a=1,a=2", {}, {{"a", "2"}}},
            {" k = v ", {}, {{" k ", " v "}}},
            {"a=1", {{"z", "9"}, {"a", "0"}}, {{"a", "1"}, {"z", "9"}}},
    };
    for (const auto& c : kPairs) {
        SCOPED_TRACE(c.text);
        Map out = c.before;
        parseKeyValueString(c.text, out);
        EXPECT_EQ(c.want, out);
    }

    using List = std::vector<std::string>;
    const struct {
        std::string text;
        char delim;
        List want;  // from {"old"}
    } kPieces[] = {
            {"", '+', {"old"}},  // an empty text keeps the old list
            {",a,,b,", ',', {"a", "b"}},
            {",,,", ',', {}},
            {"a+b,c", '+', {"a", "b,c"}},
    };
    for (const auto& c : kPieces) {
        SCOPED_TRACE(c.text);
        List out = {"old"};
        parseStrByDelim(c.text, c.delim, out);
        EXPECT_EQ(c.want, out);
    }

    const struct {
        std::string text;
        std::vector<int32_t> want;  // from {42}
    } kNumbers[] = {
            {"", {}},  // unlike the above, an empty text empties the list
            {"1++2", {1, 2}},
            {"+", {}},
            {" -3+ +4+5kHz", {-3, 0, 4, 5}},  // a blank piece is not empty
    };
    for (const auto& c : kNumbers) {
        SCOPED_TRACE(c.text);
        std::vector<int32_t> out = {42};
        parseNumericString(c.text, out);
        EXPECT_EQ(c.want, out);
    }
}

TEST_F(BoostInfoGrammarTest, TraceOnlyAtLevelSeven) {
    setLogLevel(6);
    parsed("isVideo=1,sched=3");
    EXPECT_TRUE(verboseLines().empty());

    setLogLevel(7);
    parsed("isVideo=1,sched=3");
    const std::vector<std::string> got = verboseLines();
    ASSERT_GE(got.size(), 6u);
    EXPECT_EQ((std::vector<std::string>{"parseBoostInfo, isVideo=1,sched=3",
                                        "parseStrByDelim, str: isVideo=1,sched=3, delim: ,",
                                        "key=value: isVideo=1", "key=value: sched=3",
                                        "parseStrByDelim, str: , delim: +",
                                        "parseStrByDelim, str: +, delim: +"}),
              std::vector<std::string>(got.begin(), got.begin() + 6));
    EXPECT_EQ(1u, logged("Debug: uxInfo: schedVideo: 3"));
}

TEST_F(BoostInfoGrammarTest, DebugDumpListsEveryFieldInOrder) {
    auto info = std::make_shared<MediaBoostInfo>();
    ASSERT_TRUE(parseBoostInfo(
            "cpu=S,prj=P,vendor=V,mime=M,comp=C,limitWidth=1,limitHeight=2,bitrate=3,"
            "sampleRate=4,sampleBits=5,channelCount=6,codecId=7,isVideo=1,isEncoder=0,"
            "schedVideo=8,vendorBoost=1,threadName=T,ddrFreq=9,appThreads=A,swThreads=s1+s2,"
            "limitOpRate=10,minUclamp=11,pelt=12,countFps=1,preferIdle=1,screenOff=1,"
            "uclampTids=0+2,cluster5Min=13,cluster1Min=14,freqUpRate=15,freqDownRate=16",
            info));
    info->boostStrInfo = "B";
    info->isValid = true;
    info->cacheTime = std::chrono::steady_clock::time_point(std::chrono::milliseconds(61999));
    info->uxInfo.tids = {21};
    setLogLevel(7);
    printMediaBoostInfo(info);
    printMediaBoostInfo(nullptr);

    std::string got;
    for (const std::string& line : verboseLines()) {
        EXPECT_EQ(0u, line.rfind("Debug: ", 0)) << line;
        got += line.substr(7) + "\n";
    }
    const std::string tids = "uxInfo: pid: " + std::to_string(getpid()) + ", tid: 21\n";
    EXPECT_EQ(
            "boostStrInfo: B\nisValid: 1\ncacheTime: 61\nplatform, soc: S\nplatform: project: P\n"
            "platform: vendor: V\nmediaInfo: mime: M\nmediaInfo: component: C\n"
            "mediaInfo: limitWidth: 1\nmediaInfo: limitHeight: 2\nmediaInfo: bitrate: 3\n"
            "mediaInfo: sampleRate: 4\nmediaInfo: sampleBits: 5\nmediaInfo: channelCount: 6\n"
            "mediaInfo: isVideo: 1\nmediaInfo: isEncoder: 0\nuxInfo: schedVideo: 8\n"
            "uxInfo: schedAudio: -1\nuxInfo: needVendorBoost: 1\nuxInfo: threadName: T\n"
            "uxInfo: ddrFreq: 9\nuxInfo: appThreads: A\nuxInfo: software thread name: s1\n"
            "uxInfo: software thread name: s2\n" +
                    tids +
                    "clusterInfo: limitOpRate : 10\nclusterInfo: minUclamp : 11\n"
                    "clusterInfo: peltHalflife : 12\nclusterInfo: isPreferIdle : 1\n"
                    "clusterInfo: isScreenOff : 1\nclusterInfo: cpuNum: 1, minFreq: 14\n"
                    "clusterInfo: cpuNum: 5, minFreq: 13\nclusterInfo: uclamp index: 0\n"
                    "clusterInfo: uclamp index: 2\nclusterInfo: freq up/down rate value: 15\n"
                    "clusterInfo: freq up/down rate value: 16\n",
            got);
}

TEST_F(BoostInfoGrammarTest, ThreadNamesResolveToIdsOfTheOwnProcess) {
    const int32_t pid = static_cast<int32_t>(getpid());
    mProc.addThread(pid, "101", "NuPlayerRender");
    mProc.addThread(pid, "102", "generic");
    mProc.addThread(pid, "103", "binder:1_2");
    auto info = std::make_shared<MediaBoostInfo>();
    ASSERT_TRUE(parseBoostInfo("threadName=Render+generic", info));
    std::vector<int32_t> tids = {5};
    parseBoostThread(info, tids);
    std::sort(tids.begin(), tids.end());
    EXPECT_EQ((std::vector<int32_t>{101, 102}), tids);

    ASSERT_TRUE(parseBoostInfo("threadName=", info));  // ignored item: no names
    parseBoostThread(info, tids);
    EXPECT_TRUE(tids.empty());
    tids = {5};
    parseBoostThread(nullptr, tids);
    EXPECT_EQ((std::vector<int32_t>{5}), tids);
}

}  // namespace
}  // namespace android
