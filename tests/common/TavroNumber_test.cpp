// Non-throwing number conversions: each must read exactly what the C library (atoi, strtol) or
// std::stoi would, and report failure where std::stoi would throw.
#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <limits>

#include "common/TavroNumber.h"

namespace android {
namespace {

TEST(TavroNumberTest, AtoiReadsLikeTheCLibrary) {
    struct Case {
        const char* name;
        const char* text;
        int32_t expected;
    };
    const Case kCases[] = {
            {"plain", "42", 42},
            {"leading blanks and sign", "  \t-17", -17},
            {"empty", "", 0},
            {"plus sign", "+8", 8},
            {"space inside the number stops it", "1 2", 1},
            {"int32 max", "2147483647", INT32_MAX},
            // Past 32 bits the 64-bit strtol result is narrowed, as (int)strtol does.
            {"one past int32 max wraps", "2147483648", INT32_MIN},
            {"2^32 narrows to 0", "4294967296", 0},
            {"saturated 64-bit value narrows to -1", "99999999999999999999999", -1},
    };
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(tavroAtoi(c.text), c.expected);
        EXPECT_EQ(tavroAtoi(std::string(c.text)), c.expected);
    }
    EXPECT_EQ(tavroAtoi(static_cast<const char*>(nullptr)), 0);
}

TEST(TavroNumberTest, ParseInt32FailsWhereStoiWouldThrow) {
    struct Case {
        const char* name;
        const char* text;
        bool ok;
        int32_t value;
    };
    const Case kCases[] = {
            {"plain", "42", true, 42},
            {"empty", "", false, 0},
            {"underflow", "-2147483649", false, 0},
            {"min", "-2147483648", true, INT32_MIN},
    };
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.name);
        int32_t out = 777;
        EXPECT_EQ(tavroParseInt32(c.text, &out), c.ok);
        EXPECT_EQ(out, c.ok ? c.value : 777);  // untouched on failure
    }
    int32_t out = 0;
    EXPECT_FALSE(tavroParseInt32(static_cast<const char*>(nullptr), &out));
}

TEST(TavroNumberTest, Strtol32InBase16AndBase10) {
    EXPECT_EQ(tavroStrtol32("1f", 16), 31);
    EXPECT_EQ(tavroStrtol32("0x1F", 16), 31);
    EXPECT_EQ(tavroStrtol32("zz", 16), 0);
    EXPECT_EQ(tavroStrtol32("ffffffff", 16), -1);  // narrowed to 32 bits
    EXPECT_EQ(tavroStrtol32("10", 10), 10);
}

TEST(TavroNumberTest, AtofReadsLikeTheCLibrary) {
    EXPECT_EQ(tavroAtof("0.85"), 0.85);
    EXPECT_EQ(tavroAtof("  -1.5x"), -1.5);  // leading blanks, trailing text ignored
    EXPECT_EQ(tavroAtof("2e3"), 2000.0);
    EXPECT_EQ(tavroAtof("abc"), 0.0);
    EXPECT_EQ(tavroAtof(""), 0.0);
    EXPECT_EQ(tavroAtof(nullptr), 0.0);
}

TEST(TavroNumberTest, FloatToInt32TruncatesTowardZeroAndPinsTheRest) {
    EXPECT_EQ(tavroFloatToInt32(29.9f), 29);
    EXPECT_EQ(tavroFloatToInt32(-29.9f), -29);
    EXPECT_EQ(tavroFloatToInt32(0.0f), 0);
    EXPECT_EQ(tavroFloatToInt32(std::numeric_limits<float>::quiet_NaN()), 0);
    EXPECT_EQ(tavroFloatToInt32(1e20f), INT32_MAX);
    EXPECT_EQ(tavroFloatToInt32(-1e20f), INT32_MIN);
    EXPECT_EQ(tavroFloatToInt32(std::numeric_limits<float>::infinity()), INT32_MAX);
}

}  // namespace
}  // namespace android
