// Host clock and systemTime, IPCThreadState and the fatal checks.
#include <gtest/gtest.h>

#include <binder/IPCThreadState.h>
#include <host/HostClock.h>
#include <media/stagefright/foundation/ADebug.h>
#include <media/stagefright/foundation/AMessage.h>
#include <utils/Timers.h>

#include <unistd.h>

#include <thread>

namespace android {
namespace {

using host::HostClock;

class HostClockTest : public testing::Test {
  protected:
    void TearDown() override { HostClock::useReal(); }
};

TEST_F(HostClockTest, ManualClockDrivesMonotonicAndBootTime) {
    HostClock::useManual(5000);
    EXPECT_TRUE(HostClock::isManual());
    EXPECT_EQ(5000, systemTime());
    EXPECT_EQ(5000, systemTime(SYSTEM_TIME_MONOTONIC));
    EXPECT_EQ(5000, systemTime(SYSTEM_TIME_BOOTTIME));
    EXPECT_TRUE(HostClock::advance(ms2ns(3)));
    EXPECT_EQ(5000 + 3000000, HostClock::now());
    EXPECT_TRUE(HostClock::advance(-100));  // never goes back
    EXPECT_EQ(5000 + 3000000, HostClock::now());
    // Wall and CPU clocks stay real.
    EXPECT_GT(systemTime(SYSTEM_TIME_REALTIME), s2ns(1500000000));
    EXPECT_GT(systemTime(SYSTEM_TIME_THREAD), 0);

    HostClock::useManual();
    EXPECT_EQ(HostClock::kDefaultManualStartNs, systemTime());
    HostClock::useReal();
    EXPECT_FALSE(HostClock::isManual());
    EXPECT_FALSE(HostClock::advance(1));
}

TEST(IPCThreadStateThreadTest, CallingIdentityIsPerThread) {
    IPCThreadState* self = IPCThreadState::self();
    EXPECT_EQ(getpid(), self->getCallingPid());
    self->setCallingIdentityForTesting(10123, 4321);
    EXPECT_EQ(10123u, IPCThreadState::self()->getCallingUid());
    EXPECT_EQ(4321, IPCThreadState::self()->getCallingPid());

    uid_t otherUid = 0;
    pid_t otherPid = 0;
    IPCThreadState* otherState = nullptr;
    std::thread other([&] {
        otherState = IPCThreadState::self();
        otherUid = otherState->getCallingUid();
        otherPid = otherState->getCallingPid();
        otherState->setCallingIdentityForTesting(1, 2);  // must not leak to the main thread
    });
    other.join();
    EXPECT_NE(self, otherState);
    EXPECT_EQ(getuid(), otherUid);
    EXPECT_EQ(getpid(), otherPid);
    EXPECT_EQ(10123u, self->getCallingUid());

    int64_t token = self->clearCallingIdentity();
    EXPECT_EQ(getuid(), self->getCallingUid());
    self->restoreCallingIdentity(token);
    EXPECT_EQ(10123u, self->getCallingUid());
    EXPECT_EQ(4321, self->getCallingPid());

    self->clearCallingIdentityForTesting();
    EXPECT_EQ(getuid(), self->getCallingUid());
    EXPECT_EQ(getpid(), self->getCallingPid());
}

TEST(ADebugTest, PassingChecksDoNothing) {
    int evaluated = 0;
    CHECK(++evaluated == 1);
    CHECK_EQ(++evaluated, 2);
    CHECK_LE(2, 2);
    CHECK_GE(3, 3);
    EXPECT_EQ(2, evaluated);  // each operand evaluated exactly once
}

TEST(ADebugDeathTest, FailedCheckAbortsWithTheConditionText) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    sp<AMessage> msg = new AMessage;
    sp<RefBase> codecInfo;
    EXPECT_DEATH(CHECK(msg->findObject("codecInfo", &codecInfo)),
                 "CHECK\\(msg->findObject\\(\"codecInfo\", &codecInfo\\)\\) failed\\.");
    int32_t width = 640;
    EXPECT_DEATH(CHECK_EQ(width, 1280), "CHECK_EQ\\(width, 1280\\) failed: 640 vs\\. 1280");
    EXPECT_DEATH(TRESPASS(), "Should not be here\\.");
}

}  // namespace
}  // namespace android
