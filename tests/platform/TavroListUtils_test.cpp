// The maker's list-value utilities on host: key/value parsing, integer reads, '#' lists and the
// process name read through /proc.
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include <tavro/TavroListUtils.h>

#include "support/ProcTree.h"

namespace android {
namespace {

std::map<std::string, std::string> asStd(const TavroKeyValueMap& pairs) {
    std::map<std::string, std::string> out;
    for (const auto& [key, value] : pairs) out[key.c_str()] = value.c_str();
    return out;
}

TEST(TavroListUtilsTest, ParsesKeyValuePairs) {
    using Pairs = std::map<std::string, std::string>;
    struct Case {
        const char* name;
        const char* text;
        bool ok;
        Pairs pairs;
    };
    const Case kCases[] = {
            {"comma", "cpu=SM8650,priority=1", true, {{"cpu", "SM8650"}, {"priority", "1"}}},
            {"semicolon",
             "type=avc;limitWidth=1920",
             true,
             {{"type", "avc"}, {"limitWidth", "1920"}}},
            {"mixed", "a=1;b=2,c=3", true, {{"a", "1"}, {"b", "2"}, {"c", "3"}}},
            {"value keeps later equals", "k=a=b", true, {{"k", "a=b"}}},
            {"no trimming", " cpu = x", true, {{" cpu ", " x"}}},
            {"later wins", "k=1,k=2", true, {{"k", "2"}}},
            {"empty pieces dropped", ",,a=1;;,b=2,", true, {{"a", "1"}, {"b", "2"}}},
            {"piece without equals", "junk,a=1", true, {{"a", "1"}}},
            {"empty key or value", "=5,k=,a=1", true, {{"a", "1"}}},
            {"keys case-sensitive", "Cpu=1,cpu=2", true, {{"Cpu", "1"}, {"cpu", "2"}}},
            {"separators only", ",;,;", false, {}},
            {"empty", "", false, {}},
            {"plain number", "60", false, {}},
            {"equals only", "=", false, {}},
    };
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.name);
        TavroKeyValueMap pairs;
        pairs[String8("stale")] = String8("x");
        EXPECT_EQ(c.ok, parseKeyValuePairFromStr(c.text, pairs));
        EXPECT_EQ(c.pairs, asStd(pairs));
    }
    TavroKeyValueMap pairs;
    EXPECT_FALSE(parseKeyValuePairFromStr(nullptr, pairs));
    EXPECT_TRUE(pairs.empty());
}

TEST(TavroListUtilsTest, ReadsIntegersLikeAtoi) {
    TavroKeyValueMap pairs;
    ASSERT_TRUE(parseKeyValuePairFromStr(
            "plain=42,neg=-3,blank= 7,suffix=720p,text=abc,big=4294967297,hex=0x10,"
            "huge=99999999999999999999999",
            pairs));
    struct Case {
        const char* key;
        int32_t value;
    };
    const Case kCases[] = {
            {"plain", 42}, {"neg", -3}, {"blank", 7}, {"suffix", 720}, {"text", 0},
            {"big", 1},    {"hex", 0},  {"huge", -1}, {"absent", 99},
    };
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.key);
        EXPECT_EQ(c.value, getIntValueFromKeyValuePair(pairs, c.key, 99));
    }
    EXPECT_EQ(5, getIntValueFromKeyValuePair(pairs, nullptr, 5));
}

TEST(TavroListUtilsTest, SplitsListsKeepingEmptyPieces) {
    struct Case {
        const char* name;
        const char* text;
        bool ok;
        std::vector<std::string> items;
    };
    const Case kCases[] = {
            {"pairs", "com.a.b#1f#com.c#0", true, {"com.a.b", "1f", "com.c", "0"}},
            {"empty middle", "a##b", true, {"a", "", "b"}},
            {"trailing", "a#", true, {"a", ""}},
            {"separators only", "##", true, {"", "", ""}},
            {"single", "abc", true, {"abc"}},
            {"empty", "", false, {}},
    };
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.name);
        std::vector<String8> list = {String8("stale")};
        EXPECT_EQ(c.ok, getListFromStr(c.text, list, '#'));
        std::vector<std::string> items;
        for (const String8& item : list) items.emplace_back(item.c_str());
        EXPECT_EQ(c.items, items);
    }
    std::vector<String8> list;
    EXPECT_FALSE(getListFromStr(nullptr, list, '#'));
}

class TavroProcessNameTest : public ::testing::Test {
  protected:
    void SetUp() override { setProcessNameRootForTesting(mProc.root()); }
    void TearDown() override { setProcessNameRootForTesting(""); }
    test::ProcTree mProc;
};

TEST_F(TavroProcessNameTest, CmdlineFirstThenCommThenEmpty) {
    mProc.write("100/cmdline", std::string("com.example.player\0--flag\0", 26));
    mProc.write("100/comm", "player\n");
    mProc.write("200/cmdline", "");
    mProc.write("200/comm", "kworker/0:1\n");
    mProc.write("400/cmdline", std::string(10000, 'x'));  // unterminated: bounded
    EXPECT_STREQ("com.example.player", getProcessName(100).c_str());
    EXPECT_STREQ("kworker/0:1", getProcessName(200).c_str());
    EXPECT_STREQ("", getProcessName(300).c_str());
    EXPECT_EQ(std::string(4096, 'x'), getProcessName(400).c_str());
}

}  // namespace
}  // namespace android
