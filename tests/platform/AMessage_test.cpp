// AMessage: typed entries, replacement in place, widening finds, dup and diffs.
#include <gtest/gtest.h>

#include <media/stagefright/foundation/ABuffer.h>
#include <media/stagefright/foundation/AMessage.h>
#include <media/stagefright/foundation/AString.h>

#include <functional>
#include <iterator>
#include <string>
#include <utility>
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

TEST(AMessageTest, EachTypeIsFoundOnlyByItsOwnFinder) {
    sp<AMessage> msg = new AMessage;
    sp<RefBase> obj = new Blob;
    sp<ABuffer> buf = new ABuffer(4);
    sp<AMessage> sub = new AMessage(7, nullptr);
    msg->setInt32("i32", -5);
    msg->setInt64("i64", 1LL << 40);
    msg->setSize("size", 99);
    msg->setFloat("f", 1.5f);
    msg->setDouble("d", 2.25);
    msg->setString("s", "hello");
    msg->setObject("o", obj);
    msg->setMessage("m", sub);
    msg->setBuffer("b", buf);
    msg->setString("cut", "abcdef", 3);
    msg->setString("null", nullptr);
    EXPECT_EQ((Names{"i32:0", "i64:1", "size:2", "f:3", "d:4", "s:6", "o:7", "m:8", "b:10", "cut:6",
                     "null:6"}),
              entryList(msg));
    EXPECT_EQ((Names{"hello", "abc", "", "<absent>"}),
              (Names{stringAt(msg, "s"), stringAt(msg, "cut"), stringAt(msg, "null"),
                     stringAt(msg, "i32")}));

    // Each entry is found by its own finder only; a finder that fails leaves its output alone
    // (an int32 is not an int64, as on a device).
    const char* kNames[] = {"i32", "i64", "size", "f", "d", "o", "m", "b", "missing"};
    int32_t i32 = 9;
    int64_t i64 = 9;
    sp<RefBase> o;
    const std::function<bool(const char*)> kFinders[] = {
            [&](const char* n) { return msg->findInt32(n, &i32); },
            [&](const char* n) { return msg->findInt64(n, &i64); },
            [&](const char* n) {
                size_t v;
                return msg->findSize(n, &v);
            },
            [&](const char* n) {
                float v;
                return msg->findFloat(n, &v);
            },
            [&](const char* n) {
                double v;
                return msg->findDouble(n, &v);
            },
            [&](const char* n) { return msg->findObject(n, &o); },
            [&](const char* n) {
                sp<AMessage> v;
                return msg->findMessage(n, &v);
            },
            [&](const char* n) {
                sp<ABuffer> v;
                return msg->findBuffer(n, &v);
            },
    };
    for (size_t i = 0; i < std::size(kNames); ++i) {
        SCOPED_TRACE(kNames[i]);
        for (size_t f = 0; f < std::size(kFinders); ++f) EXPECT_EQ(i == f, kFinders[f](kNames[i]));
        EXPECT_EQ(i < 8, msg->contains(kNames[i]));
        EXPECT_EQ(i == 0 ? -5 : 9, std::exchange(i32, 9));
        EXPECT_EQ(i == 1 ? 1LL << 40 : 9, std::exchange(i64, 9));
    }
    EXPECT_EQ(obj, o);
    EXPECT_FALSE(msg->contains(nullptr));
}

TEST(AMessageTest, SettingAnExistingNameReplacesValueAndTypeInPlace) {
    sp<AMessage> msg = new AMessage;
    msg->setInt32("a", 1);
    msg->setInt32("b", 2);
    msg->setInt32("c", 3);
    msg->setString("b", "two");
    EXPECT_EQ((Names{"a:0", "b:6", "c:0"}), entryList(msg));
    msg->setInt64("b", 5);
    EXPECT_EQ((Names{"a:0", "b:1", "c:0"}), entryList(msg));
    EXPECT_EQ("<absent>", stringAt(msg, "b"));

    // extend() copies entries the same way; removal and clear keep what.
    sp<AMessage> other = new AMessage;
    other->setString("b", "two");
    other->setInt32("z", 3);
    msg->extend(other);
    msg->extend(nullptr);
    EXPECT_EQ((Names{"a:0", "b:6", "c:0", "z:0"}), entryList(msg));
    EXPECT_EQ(OK, msg->removeEntryByName("b"));
    EXPECT_EQ(BAD_INDEX, msg->removeEntryByName("b"));
    EXPECT_EQ((Names{"a:0", "c:0", "z:0"}), entryList(msg));
    msg->setWhat(42);
    msg->clear();
    EXPECT_EQ(0u, msg->countEntries());
    EXPECT_EQ(42u, msg->what());
}

TEST(AMessageTest, FindAsInt64WidensIntegersOnly) {
    sp<AMessage> msg = new AMessage;
    msg->setInt32("i32", -7);
    msg->setInt64("i64", 1LL << 33);
    msg->setSize("size", 12);
    msg->setDouble("d", 60.0);
    const std::pair<const char*, int64_t> kCases[] = {
            {"i32", -7}, {"i64", 1LL << 33}, {"size", 0}, {"d", 0}, {"missing", 0}};
    for (const auto& [name, value] : kCases) {
        SCOPED_TRACE(name);
        int64_t i = 0;
        EXPECT_EQ(value != 0, msg->findAsInt64(name, &i));
        EXPECT_EQ(value, i);
    }
}

TEST(AMessageTest, DupDeepCopiesAndChangesFromListsNewAndChangedEntries) {
    sp<AMessage> before = new AMessage(0x63507421, nullptr);
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

    // dup() copies values and what, deep-copies sub-messages and shares objects.
    sp<AMessage> after = before->dup();
    sp<RefBase> sharedObj;
    ASSERT_TRUE(after->findObject("obj", &sharedObj));
    EXPECT_EQ(obj, sharedObj);
    EXPECT_EQ(0x63507421u, after->what());
    EXPECT_EQ(entryList(before), entryList(after));
    after->setInt32("changed", 2);
    after->setInt64("retyped", 1);
    after->setString("text", "b");
    after->setInt32("added", 9);
    sp<AMessage> afterSub;
    ASSERT_TRUE(after->findMessage("sub", &afterSub));
    EXPECT_NE(beforeSub, afterSub);
    afterSub->setInt32("move", 2);

    sp<AMessage> diff = after->changesFrom(before, true);
    EXPECT_EQ((Names{"changed:0", "retyped:1", "text:6", "sub:8", "added:0"}), entryList(diff));
    sp<AMessage> subDiff;
    ASSERT_TRUE(diff->findMessage("sub", &subDiff));
    EXPECT_EQ((Names{"move:0"}), entryList(subDiff));
    // Shallow: sub-messages compare by identity, and the dup made a new one.
    sp<AMessage> whole;
    ASSERT_TRUE(after->changesFrom(before, false)->findMessage("sub", &whole));
    EXPECT_EQ(afterSub, whole);
    EXPECT_EQ(0u, before->changesFrom(before, true)->countEntries());
}

}  // namespace
}  // namespace android
