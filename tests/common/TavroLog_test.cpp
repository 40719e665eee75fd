// The log gate: a line prints when the level property reaches its threshold, with the site's
// default when the property is unset or empty.
#define LOG_NDEBUG 0
#define LOG_TAG "TavroLogTest"
#include <gtest/gtest.h>

#include <host/HostLog.h>
#include <host/HostProperties.h>

#include "common/TavroLog.h"

namespace android {
namespace {

class TavroLogTest : public ::testing::Test {
protected:
    void SetUp() override {
        host::HostProperties::clear();
        host::HostLog::clear();
    }
};

TEST_F(TavroLogTest, LevelComesFromThePropertyOrTheSiteDefault) {
    struct Case {
        const char* name;
        const char* property;  // nullptr: unset
        const char* defaultLevel;
        int32_t expected;
    };
    const Case kCases[] = {
            {"unset, default 5", nullptr, "5", 5},
            {"unset, default 0", nullptr, "0", 0},
            {"set to 7", "7", "0", 7},
            {"set below the default", "3", "5", 3},
            {"empty reads as unset", "", "5", 5},
            {"not a number reads 0", "loud", "5", 0},
            {"trailing text ignored", "6x", "0", 6},
    };
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.name);
        host::HostProperties::clear();
        if (c.property != nullptr) host::HostProperties::set(kTavroLogLevelProperty, c.property);
        EXPECT_EQ(tavroLogLevel(c.defaultLevel), c.expected);
    }
}

TEST_F(TavroLogTest, MacrosWriteOnlyAtOrAboveTheirThreshold) {
    TAVRO_LOGD("debug %d", 1);      // on by default
    TAVRO_LOGV(6, "verbose %d", 6);  // off by default
    host::HostProperties::set(kTavroLogLevelProperty, "6");
    TAVRO_LOGV(6, "verbose %d", 6);
    TAVRO_LOGV(7, "verbose %d", 7);
    host::HostProperties::set(kTavroLogLevelProperty, "4");
    TAVRO_LOGI("info %d", 2);

    auto records = host::HostLog::find("", "TavroLogTest");
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[0].message, "debug 1");
    EXPECT_EQ(records[0].priority, ANDROID_LOG_DEBUG);
    EXPECT_EQ(records[1].message, "verbose 6");
    EXPECT_EQ(records[1].priority, ANDROID_LOG_VERBOSE);
}

TEST_F(TavroLogTest, ArgumentsAreNotEvaluatedWhenTheLineIsOff) {
    int evaluated = 0;
    auto sideEffect = [&evaluated] { return ++evaluated; };
    TAVRO_LOGV(7, "value %d", sideEffect());
    EXPECT_EQ(evaluated, 0);
    host::HostProperties::set(kTavroLogLevelProperty, "7");
    TAVRO_LOGV(7, "value %d", sideEffect());
    EXPECT_EQ(evaluated, 1);
}

}  // namespace
}  // namespace android
