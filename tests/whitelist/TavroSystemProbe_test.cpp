// Probing against a fixture /proc tree: properties, the platform triple, process and thread names,
// thread ids by name and free memory.
#include <gtest/gtest.h>

#include <cutils/properties.h>

#include <algorithm>
#include <string>
#include <vector>

#include "WhiteListTestSupport.h"

namespace android {
namespace {

class SystemProbeTest : public test::WhiteListWorld {
  protected:
    static std::vector<int32_t> threadIds(int32_t pid, const std::vector<std::string>& names) {
        std::vector<int32_t> tids;
        getThreadIdByName(pid, names, tids);
        std::sort(tids.begin(), tids.end());
        return tids;
    }
    // The stored triple, seen through matching: true when it holds these values.
    bool platformIs(const char* vendor, const char* soc) {
        BoostConditionInfo c;
        c.vendor = vendor;
        c.soc = soc;
        return checkPlatformInfo(mMgr->platform(), c);
    }
    std::string openFailure(const std::string& relative) const {
        return "Failed to open file: " + mProc.root() + relative +
               ", error: No such file or directory";
    }
};

TEST_F(SystemProbeTest, GetPropertyReturnsTheValueOrEmpty) {
    host::HostProperties::set("debug.some.key", "value 1");
    host::HostProperties::set("debug.long.key", std::string(300, 'x'));
    EXPECT_EQ("value 1", getProperty("debug.some.key"));
    EXPECT_EQ("", getProperty("debug.unset.key"));
    EXPECT_EQ(std::string(PROPERTY_VALUE_MAX - 1, 'x'), getProperty("debug.long.key"));
}

TEST_F(SystemProbeTest, PlatformTripleKeepsPartialFillAndIsCachedWhenComplete) {
    host::HostProperties::clear();
    EXPECT_FALSE(mMgr->getPlatformInfo());
    EXPECT_EQ(1u, logged(kLogNoVendor, ANDROID_LOG_ERROR));
    host::HostProperties::set(kPropHardware, "mtk");
    EXPECT_FALSE(mMgr->getPlatformInfo());
    EXPECT_EQ(1u, logged(kLogNoSoc, ANDROID_LOG_ERROR));
    EXPECT_TRUE(platformIs("mtk", ""));  // the vendor read before the failure is kept
    EXPECT_FALSE(platformIs("qcom", ""));
    host::HostProperties::set(kPropDeviceFamily, "MT6985");
    EXPECT_FALSE(mMgr->getPlatformInfo());
    EXPECT_EQ(1u, logged(kLogNoProject, ANDROID_LOG_ERROR));

    setPlatform();
    EXPECT_TRUE(mMgr->getPlatformInfo());
    EXPECT_TRUE(platformIs("qcom", test::kTestSoc));
    host::HostProperties::set(kPropHardware, "other");
    EXPECT_TRUE(mMgr->getPlatformInfo());
    EXPECT_TRUE(platformIs("qcom", ""));
}

TEST_F(SystemProbeTest, ProcessNameIsTheFirstCommandLineArgument) {
    const struct {
        const char* name;
        std::string cmdline;
        bool ok;
        std::string want;
    } kCases[] = {
            {"NUL-separated", std::string("com.example.app\0--flag\0", 23), true,
             "com.example.app"},
            {"no NUL", "com.example.app", true, "com.example.app"},
            {"stops at a newline", "first\nsecond", true, "first"},
            {"empty (kernel thread)", "", false, ""},
            {"starts with NUL", std::string("\0x", 2), false, ""},
            {"a megabyte line", std::string(1 << 20, 'a'), true, std::string(1 << 20, 'a')},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.name);
        mProc.write("4242/cmdline", c.cmdline);
        std::string name = "stale";
        EXPECT_EQ(c.ok, getProcNameByPid(4242, name));
        EXPECT_EQ(c.want, name);
    }
    std::string name = "stale";
    EXPECT_FALSE(getProcNameByPid(777, name));  // no such process: name untouched
    EXPECT_EQ("stale", name);
    EXPECT_EQ(1u, logged(openFailure("/777/cmdline"), ANDROID_LOG_INFO));
    EXPECT_FALSE(getThreadName("", name));
    EXPECT_EQ(1u, logged(kLogFilePathEmpty, ANDROID_LOG_ERROR));
}

TEST_F(SystemProbeTest, ThreadIdsByName) {
    mProc.addThread(4242, "10", "MediaCodec_loop");
    mProc.addThread(4242, "11", "NuPlayerRender");
    mProc.addThread(4242, "12", "binder:4242_1");
    mProc.addThread(4242, "self", "NuPlayerRender");  // not numeric
    mProc.addThread(4242, "13x", "late");             // leading digit: read like atoi
    mProc.write("4242/task/14", "NuPlayerRender");    // a file, not a directory
    mProc.makeDir("4242/task/15");                    // comm vanished
    const struct {
        std::vector<std::string> names;
        std::vector<int32_t> want;
    } kCases[] = {
            {{"loop"}, {10}},                  // substring
            {{"Render", "binder"}, {11, 12}},  // several names
            {{"Nu", "Render"}, {11}},          // matching twice counts once
            {{""}, {10, 11, 12, 13}},          // empty name: every thread
            {{"render"}, {}},                  // case-sensitive
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.names[0]);
        EXPECT_EQ(c.want, threadIds(4242, c.names));
    }
    EXPECT_GE(logged(openFailure("/4242/task/15/comm"), ANDROID_LOG_INFO), 1u);

    // Ids are appended, and ids already there count for the result.
    std::vector<int32_t> tids = {7};
    EXPECT_TRUE(getThreadIdByName(4242, {"absent"}, tids));
    EXPECT_TRUE(getThreadIdByName(4242, {"loop"}, tids));
    EXPECT_EQ((std::vector<int32_t>{7, 10}), tids);
    tids.clear();
    EXPECT_FALSE(getThreadIdByName(4242, {"absent"}, tids));
    EXPECT_FALSE(getThreadIdByName(999, {""}, tids));
    EXPECT_EQ(1u,
              logged("Fail to open directory[" + mProc.root() + "/999/task/]", ANDROID_LOG_ERROR));

    setLogLevel(7);
    threadIds(4242, {"loop"});
    EXPECT_EQ(1u, logged("Find match thread[MediaCodec_loop], id[10]"));
}

TEST_F(SystemProbeTest, AvailableMemoryFromMeminfo) {
    const struct {
        const char* name;
        std::string meminfo;
        int64_t want;
    } kCases[] = {
            {"typical", "MemTotal: 11556804 kB\nMemFree: 412376 kB\nMemAvailable:    5381232 kB\n",
             5381232},
            {"line missing", "MemTotal: 11556804 kB\n", kSystemAvailMemDefaultKb},
            {"last line without newline", "MemFree: 1 kB\nMemAvailable: 734003", 734003},
            {"first matching line wins", "MemAvailable: 5 kB\nMemAvailable: 6 kB\n", 5},
            {"key assumed to start the line", "  MemAvailable: 900 kB\n", 0},
            {"value read like atoi", "MemAvailable:x12 kB\n", 0},
            {"too short", "MemAvailable\n", kSystemAvailMemDefaultKb},
            {"after a megabyte line", std::string(1 << 20, 'z') + "\nMemAvailable: 4096 kB\n",
             4096},
            {"empty file", "", kSystemAvailMemDefaultKb},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.name);
        mProc.write("meminfo", c.meminfo);
        EXPECT_EQ(c.want, getSystemAvailMem());
    }
    const auto lines = host::HostLog::find("getSystemAvailMem, MemAvailable:4096", "TavroCCodec");
    ASSERT_EQ(1u, lines.size());
    EXPECT_EQ(ANDROID_LOG_DEBUG, lines[0].priority);

    mProc.remove("meminfo");
    setLogLevel(6);
    EXPECT_EQ(kSystemAvailMemDefaultKb, getSystemAvailMem());
    EXPECT_EQ(1u, host::HostLog::count("getSystemAvailMem can not open file /proc/meminfo",
                                       "TavroCCodec"));
}

TEST_F(SystemProbeTest, ProcRootCanBeRestored) {
    EXPECT_EQ(mProc.root(), tavroProcRoot());
    setProcRootForTesting("");
    EXPECT_EQ("/proc", tavroProcRoot());
}

}  // namespace
}  // namespace android
