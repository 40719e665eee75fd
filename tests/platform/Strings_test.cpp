// AString: construction, append and the prefix/suffix/find probes the tools use.
#include <gtest/gtest.h>

#include <media/stagefright/foundation/AString.h>

#include <string>

namespace android {
namespace {

TEST(AStringTest, ConstructionAndAppend) {
    AString s("video/");
    s.append("avc");
    s.append(' ');
    s.append(42);
    s.append(-1L);
    s.append(7u);
    s.append(AString("!"));
    EXPECT_STREQ("video/avc 42-17!", s.c_str());
    EXPECT_EQ(16u, s.size());
    EXPECT_EQ('\0', s[s.size()]);
    EXPECT_STREQ("", AString(nullptr).c_str());
    EXPECT_STREQ("ab", AString("abc", 2).c_str());
    EXPECT_STREQ("de", AString(AString("abcdef"), 3, 2).c_str());
    EXPECT_STREQ("f", AString(AString("abcdef"), 5, 10).c_str());
    EXPECT_STREQ("", AString(AString("abc"), 10, 1).c_str());
    EXPECT_TRUE(AString("abc") == "abc" && AString("abc") != "abd" && AString("a") < AString("b"));
}

TEST(AStringTest, PrefixSuffixAndFind) {
    struct Case {
        const char* text;
        const char* probe;
        size_t from;
        bool starts, ends, startsIgnoreCase;
        ssize_t found;
    };
    const Case kCases[] = {
            {"video/hevc", "video/", 0, true, false, true, 0},
            {"VIDEO/hevc", "video/", 0, false, false, true, -1},
            {"video/hevc", "hevc", 0, false, true, false, 6},
            {"ab", "abc", 0, false, false, false, -1},
            {"", "", 0, true, true, true, 0},
            {"abcabc", "abc", 1, true, true, true, 3},
            {"abcabc", "abc", 4, true, true, true, -1},
            {"abcabc", "a", 100, true, false, true, -1},
    };
    for (const Case& c : kCases) {
        SCOPED_TRACE(std::string(c.text) + " / " + c.probe + " from " + std::to_string(c.from));
        AString s(c.text);
        EXPECT_EQ(c.starts, s.startsWith(c.probe));
        EXPECT_EQ(c.ends, s.endsWith(c.probe));
        EXPECT_EQ(c.startsIgnoreCase, s.startsWithIgnoreCase(c.probe));
        EXPECT_EQ(c.found, s.find(c.probe, c.from));
    }
    EXPECT_EQ(-1, AString("abc").find(nullptr));
}

}  // namespace
}  // namespace android
