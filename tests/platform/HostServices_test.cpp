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
#include <fstream>
#include <string>

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

TEST_F(PropertiesTest, PropertyGetValueDefaultAndLength) {
    HostProperties::set("ro.hardware", "kimora");
    HostProperties::set("debug.empty", "");
    char value[PROPERTY_VALUE_MAX];
    EXPECT_EQ(6, property_get("ro.hardware", value, "x"));
    EXPECT_STREQ("kimora", value);
    EXPECT_EQ(3, property_get("unset.key", value, "def"));
    EXPECT_STREQ("def", value);
    EXPECT_EQ(1, property_get("debug.empty", value, "5"));  // empty counts as unset
    EXPECT_STREQ("5", value);
    EXPECT_EQ(0, property_get("unset.key", value, nullptr));
    EXPECT_STREQ("", value);

    // 91 characters plus the NUL: longer stored values and defaults are cut.
    const std::string longValue(120, 'v');
    HostProperties::set("ro.long", longValue);
    EXPECT_EQ(91, property_get("ro.long", value, ""));
    EXPECT_EQ(std::string(91, 'v'), value);
    EXPECT_EQ(91, property_get("unset.key", value, longValue.c_str()));
    EXPECT_EQ(91u, strlen(value));

    EXPECT_EQ(-1, property_set("debug.too.long", std::string(92, 'a').c_str()));
    EXPECT_EQ(0, property_set("debug.fits", std::string(91, 'a').c_str()));
    EXPECT_EQ(91, property_get("debug.fits", value, ""));
    EXPECT_EQ(-1, property_set("", "x"));

    // The serial moves on every change only, not on reads.
    uint32_t s0 = __system_property_area_serial();
    property_get("x", value, "");
    property_get_int32("x", 0);
    EXPECT_EQ(s0, __system_property_area_serial());
    HostProperties::set("x", "1");
    uint32_t s1 = __system_property_area_serial();
    EXPECT_NE(s0, s1);
    property_set("x", "2");
    uint32_t s2 = __system_property_area_serial();
    EXPECT_NE(s1, s2);
    HostProperties::erase("x");
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
    HostProperties::set("persist.test.value", "5000000000");
    EXPECT_EQ(5000000000LL, property_get_int64("persist.test.value", -1));
    EXPECT_EQ(-9, property_get_int32("missing", -9));
}

TEST_F(PropertiesTest, LoadingFilesReportsTheFailingLine) {
    std::string error;
    ASSERT_TRUE(HostProperties::loadText("# comment\n\n ro.a = 1 \nro.b=x=y\nro.a=2\n", "t.prop",
                                         &error));
    auto all = HostProperties::snapshot();
    EXPECT_EQ("2", all["ro.a"]);  // a later line wins, blanks trimmed
    EXPECT_EQ("x=y", all["ro.b"]);

    HostProperties::clear();
    EXPECT_FALSE(HostProperties::loadText("ro.ok=1\nno equals sign\n", "bad.prop", &error));
    EXPECT_EQ("bad.prop:2: expected key=value, got 'no equals sign'", error);
    EXPECT_TRUE(HostProperties::snapshot().empty());  // nothing loaded on error
    EXPECT_FALSE(HostProperties::loadText("=value\n", "k.prop", &error));
    EXPECT_EQ("k.prop:1: expected key=value, got '=value'", error);

    char path[] = "/tmp/tavro_props_XXXXXX";
    int fd = mkstemp(path);
    ASSERT_GE(fd, 0);
    close(fd);
    {
        std::ofstream out(path);
        out << "debug.tavro.video.log.enable=7\n";
    }
    ASSERT_TRUE(HostProperties::loadFile(path, &error));
    EXPECT_EQ(7, property_get_int32("debug.tavro.video.log.enable", 0));
    unlink(path);
    EXPECT_FALSE(HostProperties::loadFile(path, &error));
    EXPECT_EQ(std::string(path) + ": cannot open: No such file or directory", error);
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
    EXPECT_EQ(ANDROID_LOG_WARN, records[0].priority);
    EXPECT_EQ("HostServicesTest", records[0].tag);
    EXPECT_EQ("[c2.tavro.avc.decoder] bad item 'x' ignored", records[0].message);
    EXPECT_EQ(getpid(), records[0].pid);
    EXPECT_EQ(ANDROID_LOG_ERROR, records[1].priority);
    EXPECT_EQ(ANDROID_LOG_VERBOSE, records[2].priority);
    char expected[64];
    snprintf(expected, sizeof(expected), "E/HostServicesTest(%5d): failed: -22", getpid());
    EXPECT_EQ(expected, HostLog::format(records[1]));

    EXPECT_EQ(1u, HostLog::count("failed"));
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
    EXPECT_EQ("three", records[1].message);
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
    EXPECT_EQ(mList, ListServiceUtils::getInstance());
    HostListService::setByUid("boost", 10100, "sched=1");
    HostListService::setByPid("pids", 77);
    HostListService::setByName("names", "com.tavro.video", "n");
    HostListService::setByActivity("acts", "com.tavro.video/.Player", "a");
    HostListService::setTopActivity(77, "com.tavro.video/.Player");

    char value[32] = "untouched";
    EXPECT_TRUE(mList->checkInListByUid("boost", 10100));
    EXPECT_FALSE(mList->checkInListByUid("boost", 10101));
    EXPECT_FALSE(mList->checkInListByUid("other", 10100));
    EXPECT_TRUE(mList->checkInListByPid("pids", 77));
    ASSERT_TRUE(mList->getListValueByUid("boost", 10100, value, sizeof(value)));
    EXPECT_STREQ("sched=1", value);
    ASSERT_TRUE(mList->getListValueByPid("pids", 77, value, sizeof(value)));
    EXPECT_STREQ("", value);  // membership alone is an empty value
    ASSERT_TRUE(mList->getListValueByName("names", "com.tavro.video", value, sizeof(value)));
    EXPECT_STREQ("n", value);
    ASSERT_TRUE(mList->getListValueByTopActivity("acts", 77, value, sizeof(value)));
    EXPECT_STREQ("a", value);
    strcpy(value, "untouched");
    EXPECT_FALSE(mList->getListValueByTopActivity("acts", 78, value, sizeof(value)));
    EXPECT_STREQ("untouched", value);  // a failed query leaves the buffer alone
    HostListService::setTopActivity(-1, "com.tavro.video/.Player");  // any other process
    EXPECT_TRUE(mList->getListValueByTopActivity("acts", 78, value, sizeof(value)));
    EXPECT_EQ("com.tavro.video/.Player", HostListService::topActivity(12345));

    char small[4];
    ASSERT_TRUE(mList->getListValueByUid("boost", 10100, small, sizeof(small)));
    EXPECT_STREQ("sch", small);  // cut to fit, still terminated
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
