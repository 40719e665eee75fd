// AMessage: typed entries, replacement in place, widening finds, dup, diffs and the entry list.
#include <gtest/gtest.h>

#include <media/stagefright/foundation/ABuffer.h>
#include <media/stagefright/foundation/AMessage.h>
#include <media/stagefright/foundation/AString.h>

#include <string>
#include <vector>

namespace android {
namespace {

// "name:type" for every entry, in order.
std::vector<std::string> entryList(const sp<AMessage>& msg) {
    std::vector<std::string> out;
    for (size_t i = 0; i < msg->countEntries(); ++i) {
        AMessage::Type type;
        const char* name = msg->getEntryNameAt(i, &type);
        out.push_back(std::string(name) + ":" + std::to_string(static_cast<int>(type)));
    }
    return out;
}

class Blob : public RefBase {};

constexpr uint32_t fourcc(const char (&s)[5]) {
    return (uint32_t(uint8_t(s[0])) << 24) | (uint32_t(uint8_t(s[1])) << 16) |
           (uint32_t(uint8_t(s[2])) << 8) | uint32_t(uint8_t(s[3]));
}
constexpr uint32_t kWhatCheckFps = fourcc("cFps");
constexpr uint32_t kWhatCheckOpt = fourcc("cOpt");

TEST(AMessageTest, EachTypeIsFoundOnlyByItsOwnFinder) {
    sp<AMessage> msg = new AMessage;
    sp<RefBase> obj = new Blob;
    sp<ABuffer> buf = new ABuffer(4);
    sp<AMessage> sub = new AMessage(7, nullptr);
    int anchor = 0;
    msg->setInt32("i32", -5);
    msg->setInt64("i64", 1LL << 40);
    msg->setSize("size", 99);
    msg->setFloat("f", 1.5f);
    msg->setDouble("d", 2.25);
    msg->setPointer("p", &anchor);
    msg->setString("s", "hello");
    msg->setObject("o", obj);
    msg->setMessage("m", sub);
    msg->setRect("r", 1, 2, 3, 4);
    msg->setBuffer("b", buf);

    EXPECT_EQ((std::vector<std::string>{"i32:0", "i64:1", "size:2", "f:3", "d:4", "p:5", "s:6",
                                        "o:7", "m:8", "r:9", "b:10"}),
              entryList(msg));

    int32_t i32 = 0;
    int64_t i64 = 0;
    size_t size = 0;
    float f = 0;
    double d = 0;
    void* p = nullptr;
    AString s;
    sp<RefBase> o;
    sp<AMessage> m;
    sp<ABuffer> b;
    int32_t l = 0, t = 0, r = 0, bottom = 0;
    ASSERT_TRUE(msg->findInt32("i32", &i32));
    ASSERT_TRUE(msg->findInt64("i64", &i64));
    ASSERT_TRUE(msg->findSize("size", &size));
    ASSERT_TRUE(msg->findFloat("f", &f));
    ASSERT_TRUE(msg->findDouble("d", &d));
    ASSERT_TRUE(msg->findPointer("p", &p));
    ASSERT_TRUE(msg->findString("s", &s));
    ASSERT_TRUE(msg->findObject("o", &o));
    ASSERT_TRUE(msg->findMessage("m", &m));
    ASSERT_TRUE(msg->findRect("r", &l, &t, &r, &bottom));
    ASSERT_TRUE(msg->findBuffer("b", &b));
    EXPECT_EQ(-5, i32);
    EXPECT_EQ(1LL << 40, i64);
    EXPECT_EQ(99u, size);
    EXPECT_EQ(1.5f, f);
    EXPECT_EQ(2.25, d);
    EXPECT_EQ(&anchor, p);
    EXPECT_STREQ("hello", s.c_str());
    EXPECT_EQ(obj, o);
    EXPECT_EQ(sub, m);
    EXPECT_EQ(7u, m->what());
    EXPECT_EQ(buf, b);
    EXPECT_EQ(1, l);
    EXPECT_EQ(4, bottom);

    // Wrong type or absent: false, output untouched (an int32 is not an int64, as on a device).
    int64_t untouched64 = 123;
    EXPECT_FALSE(msg->findInt64("i32", &untouched64));
    EXPECT_FALSE(msg->findInt64("missing", &untouched64));
    EXPECT_EQ(123, untouched64);
    int32_t untouched32 = 9;
    EXPECT_FALSE(msg->findInt32("i64", &untouched32));
    EXPECT_FALSE(msg->findInt32("f", &untouched32));
    EXPECT_EQ(9, untouched32);
    sp<RefBase> none;
    EXPECT_FALSE(msg->findObject("m", &none));  // a message is not an object entry
    EXPECT_FALSE(msg->findObject("b", &none));
    sp<AMessage> noMsg;
    EXPECT_FALSE(msg->findMessage("o", &noMsg));
    AString noString("keep");
    EXPECT_FALSE(msg->findString("i32", &noString));
    EXPECT_STREQ("keep", noString.c_str());
    EXPECT_TRUE(msg->contains("r"));
    EXPECT_FALSE(msg->contains("R"));
    EXPECT_FALSE(msg->contains(nullptr));
}

TEST(AMessageTest, SettingAnExistingNameReplacesValueAndTypeInPlace) {
    sp<AMessage> msg = new AMessage;
    msg->setInt32("a", 1);
    msg->setInt32("b", 2);
    msg->setInt32("c", 3);
    msg->setString("b", "two");
    EXPECT_EQ((std::vector<std::string>{"a:0", "b:6", "c:0"}), entryList(msg));
    int32_t v;
    EXPECT_FALSE(msg->findInt32("b", &v));
    AString s;
    ASSERT_TRUE(msg->findString("b", &s));
    EXPECT_STREQ("two", s.c_str());
    msg->setInt64("b", 5);
    EXPECT_EQ((std::vector<std::string>{"a:0", "b:1", "c:0"}), entryList(msg));
    EXPECT_FALSE(msg->findString("b", &s));
    EXPECT_EQ(3u, msg->countEntries());
}

TEST(AMessageTest, SetStringHonoursLengthAndNull) {
    sp<AMessage> msg = new AMessage;
    msg->setString("cut", "abcdef", 3);
    msg->setString("all", "abcdef");
    msg->setString("null", nullptr);
    msg->setString("astr", AString("xyz"));
    AString s;
    ASSERT_TRUE(msg->findString("cut", &s));
    EXPECT_STREQ("abc", s.c_str());
    ASSERT_TRUE(msg->findString("all", &s));
    EXPECT_STREQ("abcdef", s.c_str());
    ASSERT_TRUE(msg->findString("null", &s));
    EXPECT_STREQ("", s.c_str());
    ASSERT_TRUE(msg->findString("astr", &s));
    EXPECT_STREQ("xyz", s.c_str());
}

TEST(AMessageTest, WideningFinders) {
    sp<AMessage> msg = new AMessage;
    msg->setInt32("i32", -7);
    msg->setInt64("i64", 1LL << 33);
    msg->setSize("size", 12);
    msg->setFloat("f", 2.5f);
    msg->setDouble("d", 60.0);
    msg->setString("s", "1");

    struct Case {
        const char* name;
        bool asInt64;
        int64_t int64Value;
        bool asFloat;
        float floatValue;
    };
    const Case kCases[] = {
            {"i32", true, -7, true, -7.0f},  {"i64", true, 1LL << 33, true, 8589934592.0f},
            {"size", false, 0, true, 12.0f}, {"f", false, 0, true, 2.5f},
            {"d", false, 0, true, 60.0f},    {"s", false, 0, false, 0},
            {"missing", false, 0, false, 0},
    };
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.name);
        int64_t i = 0;
        float f = 0;
        EXPECT_EQ(c.asInt64, msg->findAsInt64(c.name, &i));
        if (c.asInt64) {
            EXPECT_EQ(c.int64Value, i);
        }
        EXPECT_EQ(c.asFloat, msg->findAsFloat(c.name, &f));
        if (c.asFloat) {
            EXPECT_EQ(c.floatValue, f);
        }
    }
}

TEST(AMessageTest, DupCopiesValuesDeepCopiesMessagesAndSharesObjects) {
    sp<AMessage> sub = new AMessage;
    sub->setInt32("inner", 1);
    sp<RefBase> obj = new Blob;
    sp<AMessage> msg = new AMessage(kWhatCheckFps, nullptr);
    msg->setInt32("x", 1);
    msg->setMessage("sub", sub);
    msg->setObject("obj", obj);

    sp<AMessage> copy = msg->dup();
    EXPECT_EQ(kWhatCheckFps, copy->what());
    EXPECT_EQ(entryList(msg), entryList(copy));
    copy->setInt32("x", 2);
    int32_t x;
    ASSERT_TRUE(msg->findInt32("x", &x));
    EXPECT_EQ(1, x);

    sp<AMessage> copiedSub;
    ASSERT_TRUE(copy->findMessage("sub", &copiedSub));
    EXPECT_NE(sub, copiedSub);
    copiedSub->setInt32("inner", 2);
    int32_t inner;
    ASSERT_TRUE(sub->findInt32("inner", &inner));
    EXPECT_EQ(1, inner);

    sp<RefBase> copiedObj;
    ASSERT_TRUE(copy->findObject("obj", &copiedObj));
    EXPECT_EQ(obj, copiedObj);
}

TEST(AMessageTest, RemoveClearAndEntryAccessBounds) {
    sp<AMessage> msg = new AMessage;
    msg->setInt32("a", 1);
    msg->setFloat("b", 2);
    msg->setString("c", "3");
    EXPECT_EQ(OK, msg->removeEntryByName("b"));
    EXPECT_EQ((std::vector<std::string>{"a:0", "c:6"}), entryList(msg));
    EXPECT_EQ(BAD_INDEX, msg->removeEntryByName("b"));
    EXPECT_EQ(OK, msg->removeEntryAt(0));
    EXPECT_EQ(BAD_INDEX, msg->removeEntryAt(1));
    EXPECT_EQ((std::vector<std::string>{"c:6"}), entryList(msg));
    EXPECT_EQ(0, msg->findEntryByName("c"));
    EXPECT_EQ(-ENOENT, msg->findEntryByName("a"));

    AMessage::Type type = AMessage::kTypeDouble;
    EXPECT_EQ(nullptr, msg->getEntryNameAt(5, &type));
    EXPECT_EQ(AMessage::kTypeInt32, type);

    msg->setWhat(42);
    msg->clear();
    EXPECT_EQ(0u, msg->countEntries());
    EXPECT_EQ(42u, msg->what());
}

TEST(AMessageTest, ChangesFromListsNewAndChangedEntries) {
    sp<AMessage> before = new AMessage;
    before->setInt32("same", 1);
    before->setInt32("changed", 1);
    before->setInt32("retyped", 1);
    before->setString("text", "a");
    sp<AMessage> beforeSub = new AMessage;
    beforeSub->setInt32("keep", 1);
    beforeSub->setInt32("move", 1);
    before->setMessage("sub", beforeSub);

    sp<AMessage> after = before->dup();
    after->setInt32("changed", 2);
    after->setInt64("retyped", 1);
    after->setString("text", "b");
    after->setInt32("added", 9);
    sp<AMessage> afterSub;
    ASSERT_TRUE(after->findMessage("sub", &afterSub));
    afterSub->setInt32("move", 2);

    sp<AMessage> diff = after->changesFrom(before, true);
    EXPECT_EQ((std::vector<std::string>{"changed:0", "retyped:1", "text:6", "sub:8", "added:0"}),
              entryList(diff));
    sp<AMessage> subDiff;
    ASSERT_TRUE(diff->findMessage("sub", &subDiff));
    EXPECT_EQ((std::vector<std::string>{"move:0"}), entryList(subDiff));

    // Shallow: sub-messages compare by identity, and the dup made a new one.
    sp<AMessage> shallow = after->changesFrom(before, false);
    sp<AMessage> whole;
    ASSERT_TRUE(shallow->findMessage("sub", &whole));
    EXPECT_EQ(afterSub, whole);

    EXPECT_EQ(0u, before->changesFrom(before, true)->countEntries());
}

TEST(AMessageTest, ExtendCopiesEntriesReplacingSameNames) {
    sp<AMessage> a = new AMessage;
    a->setInt32("x", 1);
    a->setInt32("y", 2);
    sp<AMessage> b = new AMessage;
    b->setString("y", "two");
    b->setInt32("z", 3);
    a->extend(b);
    EXPECT_EQ((std::vector<std::string>{"x:0", "y:6", "z:0"}), entryList(a));
    a->extend(nullptr);
    EXPECT_EQ(3u, a->countEntries());
}

TEST(AMessageTest, DebugStringShowsEveryEntry) {
    sp<AMessage> sub = new AMessage(1, nullptr);
    sub->setInt32("n", 5);
    sp<AMessage> msg = new AMessage(kWhatCheckOpt, nullptr);
    msg->setInt32("width", 1920);
    msg->setInt64("timeUs", -3);
    msg->setString("mime", "video/avc");
    msg->setFloat("rate", 1.5f);
    msg->setMessage("sub", sub);
    EXPECT_STREQ(
            "AMessage(what = 'cOpt') = {\n"
            "  int32_t width = 1920\n"
            "  int64_t timeUs = -3\n"
            "  string mime = \"video/avc\"\n"
            "  float rate = 1.500000\n"
            "  AMessage sub = AMessage(what = 0x00000001) = {\n"
            "    int32_t n = 5\n"
            "  }\n"
            "}",
            msg->debugString().c_str());
}

TEST(AMessageTest, PostWithoutALiveTargetFails) {
    sp<AMessage> msg = new AMessage;
    EXPECT_EQ(-ENOENT, msg->post());
    EXPECT_EQ(-ENOENT, msg->post(1000));
    sp<AMessage> response;
    EXPECT_EQ(-ENOENT, msg->postAndAwaitResponse(&response));
    EXPECT_EQ(BAD_VALUE, msg->postReply(nullptr));
}

}  // namespace
}  // namespace android
