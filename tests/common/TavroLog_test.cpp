// The log gate: a line prints when the level property reaches its threshold, with the site's
// default when the property is unset or empty.
#define LOG_NDEBUG 0
#define LOG_TAG "TavroLogTest"
#include <gtest/gtest.h>

#include <stdlib.h>

#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include <cutils/properties.h>
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

TEST_F(TavroLogTest, MacrosWriteOnlyAtOrAboveTheirThresholdAndSkipArgumentsWhenOff) {
    int evaluated = 0;
    TAVRO_LOGD("debug %d", 1);                 // on by default
    TAVRO_LOGV(6, "verbose %d", ++evaluated);  // off by default
    EXPECT_EQ(evaluated, 0);
    host::HostProperties::set(kTavroLogLevelProperty, "6");
    TAVRO_LOGV(6, "verbose %d", 5 + ++evaluated);
    TAVRO_LOGV(7, "verbose %d", ++evaluated);
    host::HostProperties::set(kTavroLogLevelProperty, "4");
    TAVRO_LOGI("info %d", ++evaluated);
    EXPECT_EQ(evaluated, 1);

    auto records = host::HostLog::find("", "TavroLogTest");
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[0].message, "debug 1");
    EXPECT_EQ(records[0].priority, ANDROID_LOG_DEBUG);
    EXPECT_EQ(records[1].message, "verbose 6");
    EXPECT_EQ(records[1].priority, ANDROID_LOG_VERBOSE);
}

// The level is cached between property changes; every kind of change must reach the next call,
// for each default independently.
TEST_F(TavroLogTest, EveryPropertyChangeIsSeenByTheNextCall) {
    struct Step {
        const char* name;
        std::function<void()> change;
        int32_t debugLevel;    // default "5"
        int32_t verboseLevel;  // default "0"
    };
    const Step kSteps[] = {
            {"unset", [] {}, 5, 0},
            {"set", [] { host::HostProperties::set(kTavroLogLevelProperty, "7"); }, 7, 7},
            {"lowered", [] { host::HostProperties::set(kTavroLogLevelProperty, "3"); }, 3, 3},
            {"another property set", [] { host::HostProperties::set("debug.other", "1"); }, 3, 3},
            {"through property_set", [] { property_set(kTavroLogLevelProperty, "6"); }, 6, 6},
            {"erased", [] { host::HostProperties::erase(kTavroLogLevelProperty); }, 5, 0},
            {"set empty", [] { host::HostProperties::set(kTavroLogLevelProperty, ""); }, 5, 0},
            {"text after digits", [] { host::HostProperties::set(kTavroLogLevelProperty, "12x"); },
             12, 12},
            {"store cleared", [] { host::HostProperties::clear(); }, 5, 0},
    };
    for (const Step& step : kSteps) {
        SCOPED_TRACE(step.name);
        step.change();
        // Twice each: the second call is answered from the cache.
        for (int i = 0; i < 2; ++i) {
            EXPECT_EQ(tavroLogLevel("5"), step.debugLevel);
            EXPECT_EQ(tavroLogLevel("0"), step.verboseLevel);
            EXPECT_EQ(tavroLogOn(5, "5"), step.debugLevel >= 5);
        }
    }
}

// Whatever the value and the default, the level is what property_get then atoi gives: the value
// cut at 91 characters, atoi's overflow, defaults too long to cache, more defaults than the cache
// holds. All defaults are interleaved over several rounds and property changes, so that no
// answer is one cached for another default or for an older value.
TEST_F(TavroLogTest, SameAsPropertyGetThenAtoi) {
    const std::string longZeros(90, '0');
    std::vector<std::string> defaults = {"123456789012345", "1234567890123456", "-2147483649",
                                         longZeros + "42"};
    for (const char* d : {"5", "0", " 6", "-2", "+4", "0x10", "abc", "", "7 "})
        defaults.push_back(d);
    for (int i = 0; i < kTavroLogCachedDefaults + 4; ++i)
        defaults.push_back(std::to_string(i + 20));
    struct Value {
        const char* name;
        std::string text;  // "": unset
        int32_t expected;  // -1000: the default decides
    };
    const Value kValues[] = {
            {"unset", "", -1000},
            {"plain", "7", 7},
            {"negative", "-1", -1},
            {"beyond int32 keeps the low 32 bits", "2147483648", INT32_MIN},
            {"cut at 91 characters", longZeros + "75", 7},
            {"unset again", "", -1000},
    };
    for (const Value& v : kValues) {
        SCOPED_TRACE(v.name);
        host::HostProperties::clear();
        if (!v.text.empty()) host::HostProperties::set(kTavroLogLevelProperty, v.text);
        for (int round = 0; round < 2; ++round) {
            for (const std::string& d : defaults) {
                SCOPED_TRACE("default '" + d + "'");
                char value[PROPERTY_VALUE_MAX];
                property_get(kTavroLogLevelProperty, value, d.c_str());
                const int32_t reference = atoi(value);
                if (v.expected != -1000) {
                    EXPECT_EQ(reference, v.expected);
                }
                EXPECT_EQ(tavroLogLevel(d.c_str()), reference);
            }
            char value[PROPERTY_VALUE_MAX];
            property_get(kTavroLogLevelProperty, value, "");
            EXPECT_EQ(tavroLogLevel(nullptr), atoi(value));  // a null default reads as ""
        }
    }
    // The long default is cut like a value: 90 zeros and the "4" of "42".
    host::HostProperties::clear();
    EXPECT_EQ(tavroLogLevel((longZeros + "42").c_str()), 4);
}

// Readers on several threads, while another thread flips the property, each with defaults of its
// own and one shared: every answer is a level that was in force, and once the writer is done
// every reader sees its final state.
TEST(TavroLogThreadTest, ReadersSeeOnlyLevelsInForceWhileTheLevelFlips) {
    host::HostProperties::clear();
    constexpr int kReaders = 4;
    constexpr int kReads = 20000;
    constexpr int kFlips = 2000;
    std::atomic<int> wrong{0};
    std::atomic<bool> writing{true};
    std::vector<std::thread> threads;
    for (int r = 0; r < kReaders; ++r) {
        threads.emplace_back([r, &wrong, &writing] {
            const std::string own = std::to_string(r + 1);  // levels 1 to 4
            int reads = 0;
            while (reads < kReads || writing.load()) {
                ++reads;
                const int32_t shared = tavroLogLevel("8");
                const int32_t mine = tavroLogLevel(own.c_str());
                if (shared != 6 && shared != 7 && shared != 8) wrong.fetch_add(1);
                if (mine != 6 && mine != 7 && mine != r + 1) wrong.fetch_add(1);
            }
        });
    }
    threads.emplace_back([&writing] {
        for (int i = 0; i < kFlips; ++i) {
            host::HostProperties::set(kTavroLogLevelProperty, i % 2 == 0 ? "6" : "7");
            host::HostProperties::erase(kTavroLogLevelProperty);
        }
        host::HostProperties::set(kTavroLogLevelProperty, "7");
        writing.store(false);
    });
    for (std::thread& t : threads) t.join();

    EXPECT_EQ(wrong.load(), 0);
    EXPECT_EQ(tavroLogLevel("8"), 7);
    host::HostProperties::erase(kTavroLogLevelProperty);
    EXPECT_EQ(tavroLogLevel("8"), 8);
    for (int r = 0; r < kReaders; ++r)
        EXPECT_EQ(tavroLogLevel(std::to_string(r + 1).c_str()), r + 1);
}

}  // namespace
}  // namespace android
