// Host clock and systemTime, Singleton, Mutex/Condition, IPCThreadState and the fatal checks.
#include <gtest/gtest.h>

#include <binder/IPCThreadState.h>
#include <host/HostClock.h>
#include <media/stagefright/foundation/ADebug.h>
#include <media/stagefright/foundation/AMessage.h>
#include <utils/Condition.h>
#include <utils/Mutex.h>
#include <utils/Singleton.h>
#include <utils/Timers.h>

#include <unistd.h>

#include <atomic>
#include <thread>
#include <vector>

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
    EXPECT_EQ(0, systemTime(99));

    HostClock::useManual();
    EXPECT_EQ(HostClock::kDefaultManualStartNs, systemTime());
    HostClock::useReal();
    EXPECT_FALSE(HostClock::isManual());
    EXPECT_FALSE(HostClock::advance(1));
    nsecs_t a = systemTime();
    nsecs_t b = systemTime();
    EXPECT_LE(a, b);
    EXPECT_GT(a, 0);
}

TEST_F(HostClockTest, ListenersHearAdvancesUntilRemoved) {
    int calls = 0;
    int id = HostClock::addListener([&calls] { ++calls; });
    HostClock::useManual();
    HostClock::advance(1);
    EXPECT_EQ(2, calls);
    HostClock::removeListener(id);
    HostClock::advance(1);
    EXPECT_EQ(2, calls);
}

TEST(TimersTest, ConversionHelpers) {
    EXPECT_EQ(2000000000, s2ns(2));
    EXPECT_EQ(3000000, ms2ns(3));
    EXPECT_EQ(4000, us2ns(4));
    EXPECT_EQ(1, ns2s(1999999999));
    EXPECT_EQ(16, ns2ms(16666666));
    EXPECT_EQ(16666, ns2us(16666666));
}

class Counted : public Singleton<Counted> {
  public:
    static std::atomic<int> sCreated;
    int value = 5;

  private:
    friend class Singleton<Counted>;
    Counted() { sCreated++; }
};
std::atomic<int> Counted::sCreated{0};
ANDROID_SINGLETON_STATIC_INSTANCE(Counted);

TEST(SingletonThreadTest, FirstUseCreatesExactlyOneInstance) {
    // The instance lives for the process: on a repeated run it already exists.
    EXPECT_EQ(Counted::sCreated.load() == 1, Counted::hasInstance());
    std::vector<std::thread> threads;
    std::vector<Counted*> seen(8, nullptr);
    for (size_t i = 0; i < seen.size(); ++i) {
        threads.emplace_back([i, &seen] { seen[i] = &Counted::getInstance(); });
    }
    for (std::thread& t : threads) t.join();
    EXPECT_TRUE(Counted::hasInstance());
    EXPECT_EQ(1, Counted::sCreated.load());
    for (Counted* c : seen) EXPECT_EQ(&Counted::getInstance(), c);
    EXPECT_EQ(5, Counted::getInstance().value);
}

TEST(MutexThreadTest, AutolockExcludesAndConditionWakes) {
    Mutex lock;
    Condition cond;
    int counter = 0;
    bool ready = false;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 10000; ++i) {
                AutoMutex guard(lock);
                ++counter;
            }
        });
    }
    std::thread signaller([&] {
        Mutex::Autolock guard(&lock);
        ready = true;
        cond.broadcast();
    });
    {
        Mutex::Autolock guard(lock);
        while (!ready) ASSERT_EQ(OK, cond.wait(lock));
    }
    for (std::thread& t : threads) t.join();
    signaller.join();
    EXPECT_EQ(40000, counter);

    ASSERT_EQ(OK, lock.tryLock());
    std::thread other([&] { EXPECT_EQ(-EBUSY, lock.tryLock()); });
    other.join();
    EXPECT_EQ(TIMED_OUT, cond.waitRelative(lock, 1000));  // nobody signals: times out
    lock.unlock();
}

TEST(IPCThreadStateThreadTest, CallingIdentityIsPerThread) {
    IPCThreadState* self = IPCThreadState::self();
    EXPECT_EQ(self, IPCThreadState::self());
    EXPECT_EQ(getpid(), self->getCallingPid());
    EXPECT_EQ(getuid(), self->getCallingUid());

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
    CHECK_NE(1, 2);
    CHECK_LT(1, 2);
    CHECK_LE(2, 2);
    CHECK_GT(3, 2);
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
