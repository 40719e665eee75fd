// Parcel: exact binder bytes, round trips, truncated and hostile input, the write-fault hook.
#include <gtest/gtest.h>

#include <binder/Parcel.h>

#include <cstdio>
#include <functional>
#include <string>
#include <tuple>
#include <vector>

namespace android {
namespace {

std::string hex(const Parcel& p) {
    std::string out;
    for (size_t i = 0; i < p.dataSize(); ++i) {
        char b[4];
        snprintf(b, sizeof(b), "%02x", p.data()[i]);
        if (i > 0) out += (i % 4 == 0) ? " | " : " ";
        out += b;
    }
    return out;
}

TEST(ParcelTest, ExactBytesOfEachWrite) {
    struct Case {
        const char* name;
        std::function<status_t(Parcel*)> write;
        const char* bytes;
    };
    const Case kCases[] = {
            {"int32", [](Parcel* p) { return p->writeInt32(-2); }, "fe ff ff ff"},
            {"uint32", [](Parcel* p) { return p->writeUint32(0x01020304u); }, "04 03 02 01"},
            {"int64", [](Parcel* p) { return p->writeInt64(0x1122334455667788LL); },
             "88 77 66 55 | 44 33 22 11"},
            {"bool true", [](Parcel* p) { return p->writeBool(true); }, "01 00 00 00"},
            {"bool false", [](Parcel* p) { return p->writeBool(false); }, "00 00 00 00"},
            {"float", [](Parcel* p) { return p->writeFloat(1.0f); }, "00 00 80 3f"},
            {"int32 vector",
             [](Parcel* p) {
                 return p->writeInt32Vector({1, -1});
             },
             "02 00 00 00 | 01 00 00 00 | ff ff ff ff"},
            {"empty int32 vector", [](Parcel* p) { return p->writeInt32Vector({}); },
             "00 00 00 00"},
            {"string ab", [](Parcel* p) { return p->writeUtf8AsUtf16("ab"); },
             "02 00 00 00 | 61 00 62 00 | 00 00 00 00"},
            {"string abc", [](Parcel* p) { return p->writeUtf8AsUtf16("abc"); },
             "03 00 00 00 | 61 00 62 00 | 63 00 00 00"},
            {"empty string", [](Parcel* p) { return p->writeUtf8AsUtf16(""); },
             "00 00 00 00 | 00 00 00 00"},
            {"two-byte UTF-8", [](Parcel* p) { return p->writeUtf8AsUtf16("\xc3\xa9"); },
             "01 00 00 00 | e9 00 00 00"},
            {"surrogate pair", [](Parcel* p) { return p->writeUtf8AsUtf16("\xf0\x9f\x98\x80"); },
             "02 00 00 00 | 3d d8 00 de | 00 00 00 00"},
            {"string vector", [](Parcel* p) { return p->writeUtf8VectorAsUtf16Vector({"ab"}); },
             "01 00 00 00 | 02 00 00 00 | 61 00 62 00 | 00 00 00 00"},
            {"string vector of two",
             [](Parcel* p) {
                 return p->writeUtf8VectorAsUtf16Vector({"", "x"});
             },
             "02 00 00 00 | 00 00 00 00 | 00 00 00 00 | 01 00 00 00 | 78 00 00 00"},
    };
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.name);
        Parcel p;
        ASSERT_EQ(OK, c.write(&p));
        EXPECT_EQ(c.bytes, hex(p));
        EXPECT_EQ(p.dataSize(), p.dataPosition());
    }
}

TEST(ParcelTest, RoundTripOfMixedFields) {
    Parcel p;
    ASSERT_EQ(OK, p.writeBool(true));
    ASSERT_EQ(OK, p.writeInt32(INT32_MIN));
    ASSERT_EQ(OK, p.writeUint32(UINT32_MAX));
    ASSERT_EQ(OK, p.writeInt64(-5));
    ASSERT_EQ(OK, p.writeDouble(0.1));
    ASSERT_EQ(OK, p.writeInt32Vector({3, 1, 4}));
    ASSERT_EQ(OK, p.writeUtf8VectorAsUtf16Vector({"com.tavro.player", "h\xc3\xa9", ""}));
    ASSERT_EQ(OK, p.writeUtf8AsUtf16("\xe4\xb8\xad\xf0\x9f\x98\x80"));

    p.setDataPosition(0);
    bool b = false;
    int32_t i32 = 0;
    uint32_t u32 = 0;
    int64_t i64 = 0;
    double d = 0;
    std::vector<int32_t> ints;
    std::vector<std::string> strings;
    std::string text;
    ASSERT_EQ(std::vector<status_t>(8, OK),
              (std::vector<status_t>{p.readBool(&b), p.readInt32(&i32), p.readUint32(&u32),
                                     p.readInt64(&i64), p.readDouble(&d), p.readInt32Vector(&ints),
                                     p.readUtf8VectorFromUtf16Vector(&strings),
                                     p.readUtf8FromUtf16(&text)}));
    EXPECT_EQ(std::make_tuple(true, INT32_MIN, UINT32_MAX, int64_t{-5}, 0.1),
              std::make_tuple(b, i32, u32, i64, d));
    EXPECT_EQ((std::vector<int32_t>{3, 1, 4}), ints);
    EXPECT_EQ((std::vector<std::string>{"com.tavro.player", "h\xc3\xa9", ""}), strings);
    EXPECT_EQ("\xe4\xb8\xad\xf0\x9f\x98\x80", text);
    EXPECT_EQ(0u, p.dataAvail());
    // Reading past the end: NOT_ENOUGH_DATA, output and position unchanged.
    int32_t untouched = 77;
    EXPECT_EQ(NOT_ENOUGH_DATA, p.readInt32(&untouched));
    EXPECT_EQ(77, untouched);
    EXPECT_EQ(0, p.readInt32());
    EXPECT_FALSE(p.readBool());
}

TEST(ParcelTest, TruncatedDataFailsWithoutReadingPastTheEnd) {
    Parcel full;
    full.writeInt32Vector({1, 2, 3});
    full.writeUtf8AsUtf16("abc");
    full.writeInt64(9);
    const std::vector<uint8_t> bytes(full.data(), full.data() + full.dataSize());

    // Every prefix shorter than the whole must fail somewhere with NOT_ENOUGH_DATA.
    for (size_t len = 0; len < bytes.size(); ++len) {
        SCOPED_TRACE(len);
        Parcel p;
        ASSERT_EQ(OK, p.setData(bytes.data(), len));  // an exact-size copy: ASan sees overreads
        std::vector<int32_t> ints;
        std::string s;
        int64_t v;
        status_t err = p.readInt32Vector(&ints);
        if (err == OK) err = p.readUtf8FromUtf16(&s);
        if (err == OK) err = p.readInt64(&v);
        EXPECT_TRUE(err == NOT_ENOUGH_DATA || err == BAD_VALUE) << err;
        EXPECT_LE(p.dataPosition(), len);
    }
    Parcel p;
    ASSERT_EQ(OK, p.setData(bytes.data(), 12));  // count 3 but room for 2 values
    std::vector<int32_t> ints = {42};
    EXPECT_EQ(BAD_VALUE, p.readInt32Vector(&ints));
    EXPECT_EQ((std::vector<int32_t>{42}), ints);
    EXPECT_EQ(0u, p.dataPosition());

    Parcel s;
    ASSERT_EQ(OK, s.setData(bytes.data() + 16, 8));  // length 3, then only "ab"
    std::string text = "keep";
    EXPECT_EQ(NOT_ENOUGH_DATA, s.readUtf8FromUtf16(&text));
    EXPECT_EQ("keep", text);
    EXPECT_EQ(0u, s.dataPosition());
}

TEST(ParcelTest, HostileCountsAndLengthsAreRejected) {
    struct Case {
        const char* name;
        std::vector<int32_t> words;
        status_t ints, strings, string;
    };
    const Case kCases[] = {
            {"negative count", {-1}, BAD_VALUE, BAD_VALUE, BAD_VALUE},
            {"huge count", {0x7fffffff, 0}, BAD_VALUE, BAD_VALUE, NOT_ENOUGH_DATA},
            {"count beyond data", {3, 0}, BAD_VALUE, BAD_VALUE, NOT_ENOUGH_DATA},
            {"most negative", {INT32_MIN}, BAD_VALUE, BAD_VALUE, BAD_VALUE},
    };
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.name);
        Parcel p;
        for (int32_t w : c.words) p.writeInt32(w);
        std::vector<int32_t> ints;
        std::vector<std::string> strings;
        std::string s;
        p.setDataPosition(0);
        EXPECT_EQ(c.ints, p.readInt32Vector(&ints));
        p.setDataPosition(0);
        EXPECT_EQ(c.strings, p.readUtf8VectorFromUtf16Vector(&strings));
        p.setDataPosition(0);
        EXPECT_EQ(c.string, p.readUtf8FromUtf16(&s));
        EXPECT_EQ(0u, p.dataPosition());
    }
}

TEST(ParcelTest, MalformedStringsAreRejected) {
    // Missing terminator: length 1, unit 'a', then 'b' where the NUL belongs.
    const uint8_t noNul[] = {1, 0, 0, 0, 'a', 0, 'b', 0};
    // Unpaired high surrogate.
    const uint8_t loneSurrogate[] = {1, 0, 0, 0, 0x3d, 0xd8, 0, 0};
    for (const auto& bytes :
         {std::vector<uint8_t>(noNul, noNul + sizeof(noNul)),
          std::vector<uint8_t>(loneSurrogate, loneSurrogate + sizeof(loneSurrogate))}) {
        Parcel p;
        p.setData(bytes.data(), bytes.size());
        std::string s;
        EXPECT_EQ(BAD_VALUE, p.readUtf8FromUtf16(&s));
        EXPECT_EQ(0u, p.dataPosition());
    }
    const char* kInvalidUtf8[] = {
            "\xff",              // never valid
            "\x80",              // stray continuation
            "\xc3",              // truncated
            "\xc0\xaf",          // overlong
            "\xed\xa0\x80",      // encoded surrogate
            "\xf4\x90\x80\x80",  // past U+10FFFF
    };
    for (const char* bad : kInvalidUtf8) {
        SCOPED_TRACE(testing::PrintToString(std::string(bad)));
        Parcel p;
        p.writeInt32(5);
        EXPECT_EQ(BAD_VALUE, p.writeUtf8AsUtf16(bad));
        EXPECT_EQ(BAD_VALUE, p.writeUtf8VectorAsUtf16Vector({"ok", bad}));
        EXPECT_EQ(4u, p.dataSize());  // nothing written by the failed calls
    }
}

TEST(ParcelTest, WriteFaultHookFailsTheChosenWriteOnce) {
    Parcel p;
    p.setWriteFailAfterForTesting(2);
    EXPECT_EQ(OK, p.writeInt32(1));
    EXPECT_EQ(NO_MEMORY, p.writeInt32Vector({7, 8}));
    EXPECT_EQ(OK, p.writeInt32(2));
    EXPECT_EQ("01 00 00 00 | 02 00 00 00", hex(p));

    Parcel q;
    q.setWriteFailAfterForTesting(1);
    EXPECT_EQ(NO_MEMORY, q.writeUtf8AsUtf16("x"));
    EXPECT_EQ(0u, q.dataSize());
    q.setWriteFailAfterForTesting(1);
    q.setWriteFailAfterForTesting(-1);  // disarmed
    EXPECT_EQ(OK, q.writeBool(true));
}

TEST(ParcelTest, PositionControlsOverwriteAndFreeData) {
    Parcel p;
    p.writeInt32(1);
    p.writeInt32(2);
    p.setDataPosition(0);
    p.writeInt32(9);  // overwrite in place
    EXPECT_EQ("09 00 00 00 | 02 00 00 00", hex(p));
    p.setDataPosition(12);  // past the end: the gap is zero-filled
    p.writeInt32(3);
    EXPECT_EQ("09 00 00 00 | 02 00 00 00 | 00 00 00 00 | 03 00 00 00", hex(p));
    p.setDataPosition(100);
    int32_t v;
    EXPECT_EQ(NOT_ENOUGH_DATA, p.readInt32(&v));
    p.freeData();
    EXPECT_EQ(0u, p.dataSize());
    EXPECT_EQ(0u, p.dataPosition());
    EXPECT_EQ(BAD_VALUE, p.setData(nullptr, 4));
    EXPECT_EQ(OK, p.setData(nullptr, 0));
}

}  // namespace
}  // namespace android
