// AString and ABuffer.
#include <gtest/gtest.h>

#include <media/stagefright/foundation/ABuffer.h>
#include <media/stagefright/foundation/AMessage.h>
#include <media/stagefright/foundation/AString.h>

#include <cstring>
#include <vector>

namespace android {
namespace {

TEST(AStringTest, ConstructionAppendAndCompare) {
    AString s("video/");
    s.append("avc");
    s.append(' ');
    s.append(42);
    s.append(-1L);
    s.append(7u);
    s.append(AString("!"));
    EXPECT_STREQ("video/avc 42-17!", s.c_str());
    EXPECT_EQ(16u, s.size());
    EXPECT_FALSE(s.empty());
    EXPECT_EQ('v', s[0]);
    EXPECT_EQ('\0', s[s.size()]);

    EXPECT_STREQ("", AString(nullptr).c_str());
    EXPECT_STREQ("ab", AString("abc", 2).c_str());
    EXPECT_STREQ("de", AString(AString("abcdef"), 3, 2).c_str());
    EXPECT_STREQ("f", AString(AString("abcdef"), 5, 10).c_str());
    EXPECT_STREQ("", AString(AString("abc"), 10, 1).c_str());

    EXPECT_TRUE(AString("a") < AString("b"));
    EXPECT_TRUE(AString("abc") == "abc");
    EXPECT_TRUE(AString("abc") != "abd");
    EXPECT_LT(AString("abc").compare(AString("abd")), 0);
    EXPECT_EQ(0, AString("ABC").compareIgnoreCase(AString("abc")));
    EXPECT_TRUE(AString("Video/AVC").equalsIgnoreCase("video/avc"));
    EXPECT_FALSE(AString("Video/AVC").equalsIgnoreCase("video/av"));
}

TEST(AStringTest, PrefixSuffixAndFind) {
    struct Case {
        const char* text;
        const char* probe;
        bool starts, ends, startsIgnoreCase, endsIgnoreCase;
        ssize_t found;
    };
    const Case kCases[] = {
            {"video/hevc", "video/", true, false, true, false, 0},
            {"VIDEO/hevc", "video/", false, false, true, false, -1},
            {"video/hevc", "HEVC", false, false, false, true, -1},
            {"video/hevc", "hevc", false, true, false, true, 6},
            {"ab", "abc", false, false, false, false, -1},
            {"", "", true, true, true, true, 0},
    };
    for (const Case& c : kCases) {
        SCOPED_TRACE(std::string(c.text) + " / " + c.probe);
        AString s(c.text);
        EXPECT_EQ(c.starts, s.startsWith(c.probe));
        EXPECT_EQ(c.ends, s.endsWith(c.probe));
        EXPECT_EQ(c.startsIgnoreCase, s.startsWithIgnoreCase(c.probe));
        EXPECT_EQ(c.endsIgnoreCase, s.endsWithIgnoreCase(c.probe));
        EXPECT_EQ(c.found, s.find(c.probe));
    }
    AString s("abcabc");
    EXPECT_EQ(3, s.find("abc", 1));
    EXPECT_EQ(-1, s.find("abc", 4));
    EXPECT_EQ(-1, s.find("a", 100));
    EXPECT_EQ(-1, s.find(nullptr));
}

TEST(AStringTest, EditingOperations) {
    AString s("  Mixed Case \t");
    s.trim();
    EXPECT_STREQ("Mixed Case", s.c_str());
    s.tolower();
    EXPECT_STREQ("mixed case", s.c_str());
    s.erase(0, 6);
    EXPECT_STREQ("case", s.c_str());
    s.erase(10, 1);  // past the end: ignored
    s.insert(AString("lower"), 0);
    EXPECT_STREQ("lowercase", s.c_str());
    s.setTo("xyz", 2);
    EXPECT_STREQ("xy", s.c_str());
    s.setTo(s, 1, 5);  // from itself
    EXPECT_STREQ("y", s.c_str());
    s.clear();
    EXPECT_TRUE(s.empty());
    EXPECT_STREQ("w=1920 h=1080 r=29.97",
                 AStringPrintf("w=%d h=%d r=%.2f", 1920, 1080, 29.97).c_str());
}

TEST(ABufferTest, OwningBufferIsZeroedAndCopiesWhenAsked) {
    // Wrapped memory is covered through MediaCodecBuffer, which wraps the caller's bytes.
    sp<ABuffer> owned = new ABuffer(8);
    EXPECT_EQ(std::vector<uint8_t>(8, 0), std::vector<uint8_t>(owned->data(), owned->data() + 8));
    const uint8_t bytes[] = {1, 2, 3};
    sp<ABuffer> copy = ABuffer::CreateAsCopy(bytes, sizeof(bytes));
    EXPECT_NE(bytes, copy->data());
    EXPECT_EQ(0, memcmp(bytes, copy->data(), sizeof(bytes)));
    copy->meta()->setInt64("timeUs", 33);
    int64_t timeUs = 0;
    EXPECT_TRUE(copy->meta()->findInt64("timeUs", &timeUs));
    EXPECT_EQ(33, timeUs);
    copy->setInt32Data(5);
    EXPECT_EQ(5, copy->int32Data());
}

}  // namespace
}  // namespace android
