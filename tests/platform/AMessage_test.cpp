// AMessage: typed entries, replacement in place, widening finds, dup, diffs and the entry list.
#include <gtest/gtest.h>

#include <media/stagefright/foundation/ABuffer.h>
#include <media/stagefright/foundation/AMessage.h>
#include <media/stagefright/foundation/AString.h>

#include <string>
#include <tuple>
#include <vector>

namespace android {
namespace {

using Names = std::vector<std::string>;

// "name:type" for every entry, in order.
Names entryList(const sp<AMessage>& msg) {
    Names out;
    for (size_t i = 0; i < msg->countEntries(); ++i) {
        AMessage::Type type;
        const char* name = msg->getEntryNameAt(i, &type);
        out.push_back(std::string(name) + ":" + std::to_string(static_cast<int>(type)));
    }
    return out;
}

std::string stringAt(const sp<AMessage>& msg, const char* name) {
    AString s("<absent>");
    msg->findString(name, &s);
    return s.c_str();
}

class Blob : public RefBase {};

constexpr uint32_t kWhatCheckOpt = ('c' << 24) | ('O' << 16) | ('p' << 8) | 't';

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
    EXPECT_EQ((Names{"i32:0", "i64:1", "size:2", "f:3", "d:4", "p:5", "s:6", "o:7", "m:8", "r:9",
                     "b:10"}),
              entryList(msg));

    int32_t i32 = 0, l = 0, t = 0, r = 0, bottom = 0;
    int64_t i64 = 0;
    size_t size = 0;
    float f = 0;
    double d = 0;
    void* p = nullptr;
    sp<RefBase> o;
    sp<AMessage> m;
    sp<ABuffer> b;
    ASSERT_TRUE(msg->findInt32("i32", &i32) && msg->findInt64("i64", &i64) &&
                msg->findSize("size", &size) && msg->findFloat("f", &f) &&
                msg->findDouble("d", &d) && msg->findPointer("p", &p) && msg->findObject("o", &o) &&
                msg->findMessage("m", &m) && msg->findRect("r", &l, &t, &r, &bottom) &&
                msg->findBuffer("b", &b));
    EXPECT_EQ(std::make_tuple(-5, 1LL << 40, size_t{99}, 1.5f, 2.25, static_cast<void*>(&anchor)),
              std::make_tuple(i32, i64, size, f, d, p));
    EXPECT_EQ(std::make_tuple(obj, sub, 7u, buf), std::make_tuple(o, m, m->what(), b));
    EXPECT_EQ((std::vector<int32_t>{1, 2, 3, 4}), (std::vector<int32_t>{l, t, r, bottom}));
    EXPECT_EQ("hello", stringAt(msg, "s"));

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
    EXPECT_EQ("<absent>", stringAt(msg, "i32"));
    EXPECT_TRUE(msg->contains("r"));
    EXPECT_FALSE(msg->contains("R"));
    EXPECT_FALSE(msg->contains(nullptr));

    // setString honours an explicit length and takes null as empty.
    msg->setString("cut", "abcdef", 3);
    msg->setString("null", nullptr);
    msg->setString("astr", AString("xyz"));
    EXPECT_EQ((Names{"abc", "", "xyz"}),
              (Names{stringAt(msg, "cut"), stringAt(msg, "null"), stringAt(msg, "astr")}));
}

TEST(AMessageTest, SettingAnExistingNameReplacesValueAndTypeInPlace) {
    sp<AMessage> msg = new AMessage;
    msg->setInt32("a", 1);
    msg->setInt32("b", 2);
    msg->setInt32("c", 3);
    msg->setString("b", "two");
    EXPECT_EQ((Names{"a:0", "b:6", "c:0"}), entryList(msg));
    int32_t v;
    EXPECT_FALSE(msg->findInt32("b", &v));
    EXPECT_EQ("two", stringAt(msg, "b"));
    msg->setInt64("b", 5);
    EXPECT_EQ((Names{"a:0", "b:1", "c:0"}), entryList(msg));
    EXPECT_EQ("<absent>", stringAt(msg, "b"));

    // extend() copies entries the same way.
    sp<AMessage> other = new AMessage;
    other->setString("b", "two");
    other->setInt32("z", 3);
    msg->extend(other);
    EXPECT_EQ((Names{"a:0", "b:6", "c:0", "z:0"}), entryList(msg));
    msg->extend(nullptr);
    EXPECT_EQ(4u, msg->countEntries());
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
        EXPECT_EQ(c.asInt64 ? c.int64Value : 0, i);
        EXPECT_EQ(c.asFloat, msg->findAsFloat(c.name, &f));
        EXPECT_EQ(c.asFloat ? c.floatValue : 0, f);
    }
}

TEST(AMessageTest, RemoveClearAndEntryAccessBounds) {
    sp<AMessage> msg = new AMessage;
    msg->setInt32("a", 1);
    msg->setFloat("b", 2);
    msg->setString("c", "3");
    EXPECT_EQ(OK, msg->removeEntryByName("b"));
    EXPECT_EQ((Names{"a:0", "c:6"}), entryList(msg));
    EXPECT_EQ(BAD_INDEX, msg->removeEntryByName("b"));
    EXPECT_EQ(OK, msg->removeEntryAt(0));
    EXPECT_EQ(BAD_INDEX, msg->removeEntryAt(1));
    EXPECT_EQ((Names{"c:6"}), entryList(msg));
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

    sp<RefBase> obj = new Blob;
    before->setObject("obj", obj);
    before->setWhat(kWhatCheckOpt);

    // dup() copies values and what, deep-copies sub-messages and shares objects.
    sp<AMessage> after = before->dup();
    sp<RefBase> sharedObj;
    ASSERT_TRUE(after->findObject("obj", &sharedObj));
    EXPECT_EQ(obj, sharedObj);
    EXPECT_EQ(kWhatCheckOpt, after->what());
    EXPECT_EQ(entryList(before), entryList(after));
    after->setInt32("changed", 2);
    after->setInt64("retyped", 1);
    after->setString("text", "b");
    after->setInt32("added", 9);
    sp<AMessage> afterSub;
    ASSERT_TRUE(after->findMessage("sub", &afterSub));
    afterSub->setInt32("move", 2);

    sp<AMessage> diff = after->changesFrom(before, true);
    EXPECT_EQ((Names{"changed:0", "retyped:1", "text:6", "sub:8", "added:0"}), entryList(diff));
    sp<AMessage> subDiff;
    ASSERT_TRUE(diff->findMessage("sub", &subDiff));
    EXPECT_EQ((Names{"move:0"}), entryList(subDiff));

    // Shallow: sub-messages compare by identity, and the dup made a new one.
    sp<AMessage> shallow = after->changesFrom(before, false);
    sp<AMessage> whole;
    ASSERT_TRUE(shallow->findMessage("sub", &whole));
    EXPECT_EQ(afterSub, whole);
    EXPECT_EQ(0u, before->changesFrom(before, true)->countEntries());
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
    msg->setSize("size", 7);
    msg->setDouble("d", 0.25);
    msg->setRect("crop", 0, 1, 639, 479);
    msg->setMessage("none", nullptr);
    EXPECT_STREQ(
            "AMessage(what = 'cOpt') = {\n"
            "  int32_t width = 1920\n"
            "  int64_t timeUs = -3\n"
            "  string mime = \"video/avc\"\n"
            "  float rate = 1.500000\n"
            "  AMessage sub = AMessage(what = 0x00000001) = {\n"
            "    int32_t n = 5\n"
            "  }\n"
            "  size_t size = 7\n"
            "  double d = 0.250000\n"
            "  Rect crop(0, 1, 639, 479)\n"
            "  AMessage none = NULL\n"
            "}",
            msg->debugString().c_str());
}

}  // namespace
}  // namespace android
