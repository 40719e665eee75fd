// The host property store, log sink and list service behind the device APIs.
#define LOG_NDEBUG 0
#define LOG_TAG "HostServicesTest"

#include <gtest/gtest.h>

#include <cutils/properties.h>
#include <host/HostListService.h>
#include <host/HostLog.h>
#include <host/HostProperties.h>
#include <log/log.h>
#include <sys/system_properties.h>
#include <tavro/ListServiceUtils.h>

#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace android {
namespace {

using host::HostListService;
using host::HostLog;
using host::HostProperties;

class PropertiesTest : public testing::Test {
  protected:
    void SetUp() override { HostProperties::clear(); }
    void TearDown() override { HostProperties::clear(); }
};

TEST_F(PropertiesTest, PropertyGetValueDefaultLengthAndSerial) {
    HostProperties::set("ro.hardware", "kimora");
    HostProperties::set("debug.empty", "");
    HostProperties::set("ro.long", std::string(120, 'v'));
    const std::string longDefault(120, 'd');
    struct Case {
        const char* key;
        const char* def;
        int length;
        std::string value;
    };
    const Case kCases[] = {
            {"ro.hardware", "x", 6, "kimora"},
            {"unset.key", "def", 3, "def"},
            {"debug.empty", "5", 1, "5"},  // empty counts as unset
            {"unset.key", nullptr, 0, ""},
            // 91 characters plus the NUL: longer stored values and defaults are cut.
            {"ro.long", "", 91, std::string(91, 'v')},
            {"unset.key", longDefault.c_str(), 91, std::string(91, 'd')},
    };
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.key);
        char value[PROPERTY_VALUE_MAX];
        EXPECT_EQ(c.length, property_get(c.key, value, c.def));
        EXPECT_EQ(c.value, value);
    }
    EXPECT_EQ(-1, property_set("debug.too.long", std::string(92, 'a').c_str()));
    EXPECT_EQ(0, property_set("debug.fits", std::string(91, 'a').c_str()));
    EXPECT_EQ(-1, property_set("", "x"));

    // The serial moves on every change only, not on reads.
    char value[PROPERTY_VALUE_MAX];
    uint32_t s0 = __system_property_area_serial();
    property_get("x", value, "");
    property_get_int32("x", 0);
    EXPECT_EQ(s0, __system_property_area_serial());
    HostProperties::set("x", "1");
    uint32_t s1 = __system_property_area_serial();
    property_set("x", "2");
    uint32_t s2 = __system_property_area_serial();
    HostProperties::erase("x");
    EXPECT_NE(s0, s1);
    EXPECT_NE(s1, s2);
    EXPECT_NE(s2, __system_property_area_serial());
}

TEST_F(PropertiesTest, IntegerAndBooleanParsing) {
    struct Case {
        const char* text;
        int32_t int32;   // with default -9
        int8_t boolean;  // with default 7
    };
    const Case kCases[] = {
            {"42", 42, 7},
            {"-17", -17, 7},
            {" 8", 8, 7},
            {"0x10", 16, 7},
            {"010", 8, 7},
            {"12abc", 12, 7},  // digits up to the first other character
            {"2147483647", 2147483647, 7},
            {"2147483648", -9, 7},
            {"-2147483648", INT32_MIN, 7},
            {"1", 1, 1},
            {"0", 0, 0},
            {"yes", -9, 1},
            {"off", -9, 0},
            {"TRUE", -9, 7},
            {"", -9, 7},
    };
    for (const Case& c : kCases) {
        SCOPED_TRACE(std::string("'") + c.text + "'");
        HostProperties::set("persist.test.value", c.text);
        EXPECT_EQ(c.int32, property_get_int32("persist.test.value", -9));
        EXPECT_EQ(c.boolean, property_get_bool("persist.test.value", 7));
    }
    EXPECT_EQ(-9, property_get_int32("missing", -9));
}

class LogSinkTest : public testing::Test {
  protected:
    void SetUp() override { HostLog::clear(); }
    void TearDown() override {
        HostLog::setCapacity(65536);
        HostLog::setListener(nullptr);
        HostLog::clear();
    }
};

TEST_F(LogSinkTest, RecordsPriorityTagAndFormattedText) {
    ALOGW("[%s] bad item '%s' ignored", "c2.tavro.avc.decoder", "x");
    ALOGE("failed: %d", -22);
    ALOGV("verbose %d", 1);
    ALOGD_IF(false, "never");
    auto records = HostLog::records();
    ASSERT_EQ(3u, records.size());
    EXPECT_EQ("HostServicesTest", records[0].tag);
    EXPECT_EQ("[c2.tavro.avc.decoder] bad item 'x' ignored", records[0].message);
    EXPECT_EQ(getpid(), records[0].pid);
    EXPECT_EQ((std::vector<int>{ANDROID_LOG_WARN, ANDROID_LOG_ERROR, ANDROID_LOG_VERBOSE}),
              (std::vector<int>{records[0].priority, records[1].priority, records[2].priority}));
    char expected[64];
    snprintf(expected, sizeof(expected), "E/HostServicesTest(%5d): failed: -22", getpid());
    EXPECT_EQ(expected, HostLog::format(records[1]));

    EXPECT_EQ(1u, HostLog::count("failed", "HostServicesTest"));
    EXPECT_EQ(0u, HostLog::count("failed", "OtherTag"));
    // liblog formats into a 1024-byte buffer: longer lines arrive cut, as on a device.
    std::string longText(2000, 'z');
    ALOGI("%s", longText.c_str());
    EXPECT_EQ(longText.substr(0, 1023), HostLog::records().back().message);
}

TEST_F(LogSinkTest, CapacityKeepsTheNewestAndListenerSeesEveryLine) {
    int heard = 0;
    HostLog::setListener([&heard](const host::LogRecord&) { ++heard; });
    HostLog::setCapacity(2);
    ALOGI("one");
    ALOGI("two");
    ALOGI("three");
    auto records = HostLog::records();
    ASSERT_EQ(2u, records.size());
    EXPECT_EQ("two", records[0].message);
    EXPECT_EQ(3, heard);
    HostLog::setCapacity(0);
    ALOGI("four");
    EXPECT_TRUE(HostLog::records().empty());
    EXPECT_EQ(4, heard);
}

using LogSinkDeathTest = LogSinkTest;

TEST_F(LogSinkDeathTest, FatalCheckReachesStderrAndTheListenerBeforeTheAbort) {
    // liblog's __android_log_assert hands the record to the hook, then its aborter ends the
    // process: tools that trace through the listener see why the process died.
    EXPECT_DEATH(
            {
                HostLog::setStderrPriority(ANDROID_LOG_SILENT);
                HostLog::setListener([](const host::LogRecord& r) {
                    fprintf(stderr, "heard %d %s\n", r.priority, r.message.c_str());
                });
                LOG_ALWAYS_FATAL_IF(getpid() > 0, "broken %d", 7);
            },
            "F/HostServicesTest\\( *[0-9]+\\): broken 7\nheard 7 broken 7");
}

class ListServiceTest : public testing::Test {
  protected:
    void SetUp() override { HostListService::clear(); }
    void TearDown() override { HostListService::clear(); }
    ListServiceUtils* mList = ListServiceUtils::getInstance();
};

TEST_F(ListServiceTest, AnswersByKeyKind) {
    HostListService::setByUid("boost", 10100, "sched=1");
    HostListService::setByPid("pids", 77);
    HostListService::setByName("names", "com.tavro.video", "n");
    HostListService::setByActivity("acts", "com.tavro.video/.Player", "a");
    HostListService::setTopActivity(77, "com.tavro.video/.Player");
    char uid[32], pid[32], name[32], top[32], other[32] = "untouched", small[4];
    EXPECT_EQ(std::vector<bool>({true, false, false, true, true, true, true, true, false, true}),
              std::vector<bool>(
                      {mList->checkInListByUid("boost", 10100),
                       mList->checkInListByUid("boost", 10101),
                       mList->checkInListByUid("other", 10100), mList->checkInListByPid("pids", 77),
                       mList->getListValueByUid("boost", 10100, uid, sizeof(uid)),
                       mList->getListValueByPid("pids", 77, pid, sizeof(pid)),
                       mList->getListValueByName("names", "com.tavro.video", name, sizeof(name)),
                       mList->getListValueByTopActivity("acts", 77, top, sizeof(top)),
                       mList->getListValueByTopActivity("acts", 78, other, sizeof(other)),
                       mList->getListValueByUid("boost", 10100, small, sizeof(small))}));
    // Membership alone is an empty value; a failed query leaves the buffer alone; a long value
    // is cut to fit, still terminated.
    EXPECT_EQ((std::vector<std::string>{"sched=1", "", "n", "a", "untouched", "sch"}),
              (std::vector<std::string>{uid, pid, name, top, other, small}));
    HostListService::setTopActivity(-1, "com.tavro.video/.Player");  // any other process
    EXPECT_TRUE(mList->getListValueByTopActivity("acts", 78, other, sizeof(other)));
    EXPECT_EQ(mList, ListServiceUtils::getInstance());
}

TEST_F(ListServiceTest, FaultModes) {
    HostListService::setByUid("boost", 1, "abc");
    char value[8];
    uint64_t before = HostListService::queryCount();

    HostListService::setFault(HostListService::Fault::kNoAnswer);
    EXPECT_FALSE(mList->getListValueByUid("boost", 1, value, sizeof(value)));
    EXPECT_FALSE(mList->checkInListByUid("boost", 1));

    HostListService::setFault(HostListService::Fault::kGarbage);
    ASSERT_TRUE(mList->getListValueByUid("nothing", 2, value, sizeof(value)));
    EXPECT_EQ('\0', value[sizeof(value) - 1]);
    EXPECT_STRNE("abc", value);

    HostListService::setFault(HostListService::Fault::kUnterminated);
    ASSERT_TRUE(mList->getListValueByUid("boost", 1, value, sizeof(value)));
    EXPECT_EQ(0, memcmp("abcabcab", value, sizeof(value)));  // no NUL anywhere

    EXPECT_EQ(before + 4, HostListService::queryCount());
    HostListService::clear();  // also resets the fault
    ASSERT_FALSE(mList->getListValueByUid("boost", 1, value, sizeof(value)));
}

}  // namespace
}  // namespace android
