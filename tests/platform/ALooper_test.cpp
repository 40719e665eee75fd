// ALooper and AHandler: manual dispatch driven by the host clock, and the real dispatch thread.
#include <gtest/gtest.h>

#include <host/HostClock.h>
#include <host/HostLog.h>
#include <media/stagefright/foundation/AHandler.h>
#include <media/stagefright/foundation/ALooper.h>
#include <media/stagefright/foundation/AMessage.h>
#include <utils/Timers.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>
#include <tuple>
#include <vector>

namespace android {
namespace {

using host::HostClock;
using host::HostLog;

constexpr int64_t kStartUs = HostClock::kDefaultManualStartNs / 1000;

// One delivery: what, the "tag" entry, the clock (µs) at delivery.
using Hit = std::tuple<uint32_t, int32_t, int64_t>;
using Hits = std::vector<Hit>;

// Records every message and runs an optional reaction.
class Recorder : public AHandler {
  public:
    std::function<void(const sp<AMessage>&)> onMessage;

    Hits hits() {
        std::lock_guard<std::mutex> guard(mLock);
        return mHits;
    }
    // Waits (real time, generous bound) until `count` messages arrived.
    bool waitForHits(size_t count) {
        std::unique_lock<std::mutex> lock(mLock);
        return mChanged.wait_for(lock, std::chrono::seconds(20),
                                 [&] { return mHits.size() >= count; });
    }

  protected:
    void onMessageReceived(const sp<AMessage>& msg) override {
        int32_t tag = -1;
        msg->findInt32("tag", &tag);
        std::function<void(const sp<AMessage>&)> reaction;
        {
            // Read under the lock, so a test that waited for this hit may replace it without
            // racing with the dispatch thread.
            std::lock_guard<std::mutex> guard(mLock);
            mHits.emplace_back(msg->what(), tag, ALooper::GetNowUs());
            reaction = onMessage;
        }
        mChanged.notify_all();
        if (reaction) reaction(msg);
    }

  private:
    std::mutex mLock;
    std::condition_variable mChanged;
    Hits mHits;
};

sp<AMessage> tagged(uint32_t what, const sp<AHandler>& handler, int32_t tag) {
    sp<AMessage> msg = new AMessage(what, handler);
    msg->setInt32("tag", tag);
    return msg;
}

class ALooperTest : public testing::Test {
  protected:
    void SetUp() override {
        HostClock::useManual();
        HostLog::clear();
        ASSERT_EQ(OK, mLooper->setManualForTesting(true));
        ASSERT_GT(mLooper->registerHandler(mHandler), 0);
    }
    void TearDown() override {
        mHandler->onMessage = nullptr;
        mLooper.clear();
        HostClock::useReal();
    }
    size_t advance(int64_t us) {
        size_t dispatched = 0;
        EXPECT_TRUE(mLooper->advanceForTesting(us, &dispatched));
        return dispatched;
    }

    sp<ALooper> mLooper = new ALooper;
    sp<Recorder> mHandler = new Recorder;
};

TEST_F(ALooperTest, DispatchesInDueOrderFifoForEqualTimesAtEachDueTime) {
    for (auto [tag, delay] : {std::pair{0, 3000}, {1, 1000}, {2, 1000}, {3, 0}, {4, -50}}) {
        EXPECT_EQ(OK, tagged(1, mHandler, tag)->post(delay));  // a negative delay counts as 0
    }
    EXPECT_EQ(5u, mLooper->pendingCountForTesting());
    EXPECT_EQ(kStartUs, mLooper->nextDueTimeUsForTesting());
    EXPECT_EQ(2u, mLooper->runPendingForTesting());
    EXPECT_EQ(kStartUs + 1000, mLooper->nextDueTimeUsForTesting());
    EXPECT_EQ(0u, advance(999));
    EXPECT_EQ(2u, advance(1));
    EXPECT_EQ(1u, advance(5000));
    // Each message sees the clock at its own due time, not at the end of the advance.
    EXPECT_EQ((Hits{{1, 3, kStartUs},
                    {1, 4, kStartUs},
                    {1, 1, kStartUs + 1000},
                    {1, 2, kStartUs + 1000},
                    {1, 0, kStartUs + 3000}}),
              mHandler->hits());
    EXPECT_EQ(HostClock::kDefaultManualStartNs + 6000 * 1000, systemTime(SYSTEM_TIME_MONOTONIC));
    EXPECT_EQ(-1, mLooper->nextDueTimeUsForTesting());

    // A handler re-posting one period ahead fires once per period within the window.
    mHandler->onMessage = [](const sp<AMessage>& msg) { msg->dup()->post(1000000); };
    tagged(2, mHandler, 0)->post(1000000);
    EXPECT_EQ(3u, advance(3500000));
    EXPECT_EQ(kStartUs + 6000 + 4000000, mLooper->nextDueTimeUsForTesting());
    EXPECT_EQ(Hit(2, 0, kStartUs + 6000 + 3000000), mHandler->hits().back());
}

TEST_F(ALooperTest, RunPendingFollowsZeroDelayChainsWithABoundAndClearCancels) {
    int remaining = 3;
    mHandler->onMessage = [&remaining](const sp<AMessage>& msg) {
        if (--remaining > 0) msg->post();
    };
    tagged(3, mHandler, 0)->post();
    EXPECT_EQ(3u, mLooper->runPendingForTesting());

    // A handler that re-posts forever is cut off at the bound instead of hanging the caller.
    mHandler->onMessage = [](const sp<AMessage>& msg) { msg->post(); };
    tagged(4, mHandler, 0)->post();
    EXPECT_EQ(ALooper::kMaxDispatchPerCall, mLooper->runPendingForTesting());
    EXPECT_EQ(1u, mLooper->pendingCountForTesting());
    EXPECT_EQ(1u, HostLog::count("runPendingForTesting: stopped after 100000 messages", "ALooper"));
    mHandler->onMessage = nullptr;
    tagged(5, mHandler, 0)->post(10);
    mLooper->clearPendingForTesting();
    EXPECT_EQ(0u, mLooper->pendingCountForTesting());
    EXPECT_EQ(0u, advance(100));
}

TEST_F(ALooperTest, MessagesToDeadOrUnregisteredHandlersAreDropped) {
    sp<Recorder> doomed = new Recorder;
    mLooper->registerHandler(doomed);
    tagged(5, doomed, 0)->post(10);
    doomed.clear();  // the queued message holds only a weak reference

    sp<Recorder> leaving = new Recorder;
    ALooper::handler_id leavingId = mLooper->registerHandler(leaving);
    tagged(6, leaving, 0)->post(10);
    mLooper->unregisterHandler(leavingId);
    EXPECT_EQ(0, leaving->id());
    EXPECT_EQ(nullptr, leaving->looper().get());

    tagged(7, mHandler, 1)->post(20);
    EXPECT_EQ(3u, advance(100));  // popped, but only the live one was delivered
    EXPECT_EQ((Hits{{7, 1, kStartUs + 20}}), mHandler->hits());
    EXPECT_TRUE(leaving->hits().empty());
    EXPECT_EQ(1u, HostLog::count("target handler", "AMessage"));    // gone
    EXPECT_EQ(1u, HostLog::count("is not registered", "ALooper"));  // unregistered

    // Posting to a handler whose looper is gone fails outright; so does a message with no target.
    sp<ALooper> other = new ALooper;
    other->setManualForTesting(true);
    sp<Recorder> orphan = new Recorder;
    other->registerHandler(orphan);
    sp<AMessage> toOrphan = new AMessage(8, orphan);
    other.clear();
    EXPECT_EQ(-ENOENT, toOrphan->post());
    sp<AMessage> noTarget = new AMessage;
    EXPECT_EQ(-ENOENT, noTarget->post(1000));
}

TEST_F(ALooperTest, RegistrationRulesAndManualMode) {
    EXPECT_EQ(mLooper, mHandler->looper());
    EXPECT_EQ(INVALID_OPERATION, mLooper->registerHandler(mHandler));
    EXPECT_EQ(BAD_VALUE, mLooper->registerHandler(nullptr));
    sp<Recorder> second = new Recorder;
    ALooper::handler_id id = mLooper->registerHandler(second);
    EXPECT_GT(id, mHandler->id());
    EXPECT_EQ(id, second->id());
    // A manual looper never starts a thread.
    EXPECT_EQ(INVALID_OPERATION, mLooper->start());
    EXPECT_EQ(INVALID_OPERATION, mLooper->stop());

    // Advancing needs the manual clock too.
    HostClock::useReal();
    tagged(1, mHandler, 0)->post();
    size_t dispatched = 99;
    EXPECT_FALSE(mLooper->advanceForTesting(10, &dispatched));
    EXPECT_EQ(0u, dispatched);
    EXPECT_TRUE(mHandler->hits().empty());
    EXPECT_EQ(1u, HostLog::count("needs a manual looper and a manual host clock"));
}

TEST_F(ALooperTest, AdvanceAllInterleavesLoopersInGlobalDueOrder) {
    sp<ALooper> second = new ALooper;
    second->setManualForTesting(true);
    sp<Recorder> other = new Recorder;
    second->registerHandler(other);
    for (auto [handler, tag, delay] :
         {std::tuple{mHandler, 1, 10}, {other, 2, 10}, {mHandler, 3, 20}, {other, 0, 5}}) {
        tagged(1, handler, tag)->post(delay);
    }
    size_t dispatched = 0;
    ASSERT_TRUE(ALooper::advanceAllForTesting(20, &dispatched));
    EXPECT_EQ(4u, dispatched);
    EXPECT_EQ((Hits{{1, 1, kStartUs + 10}, {1, 3, kStartUs + 20}}), mHandler->hits());
    EXPECT_EQ((Hits{{1, 0, kStartUs + 5}, {1, 2, kStartUs + 10}}), other->hits());
    tagged(1, other, 4)->post();
    EXPECT_EQ(1u, ALooper::runAllPendingForTesting());
}

// The real dispatch thread. Waits use condition variables with generous bounds, never sleeps.
class ALooperThreadTest : public testing::Test {
  protected:
    void TearDown() override { HostClock::useReal(); }
    // A started looper with `handler` registered.
    static sp<ALooper> started(const sp<AHandler>& handler) {
        sp<ALooper> looper = new ALooper;
        looper->registerHandler(handler);
        EXPECT_EQ(OK, looper->start());
        return looper;
    }
};

TEST_F(ALooperThreadTest, ThreadKeepsFifoPerSenderAndWaitsForTheManualClock) {
    sp<Recorder> handler = new Recorder;
    sp<ALooper> looper = started(handler);
    EXPECT_EQ(INVALID_OPERATION, looper->start());
    EXPECT_EQ(INVALID_OPERATION, looper->setManualForTesting(true));
    constexpr int kSenders = 4;
    constexpr int kEach = 200;
    std::vector<std::thread> senders;
    for (int s = 0; s < kSenders; ++s) {
        senders.emplace_back([s, handler] {
            for (int i = 0; i < kEach; ++i) tagged(static_cast<uint32_t>(s), handler, i)->post();
        });
    }
    for (std::thread& t : senders) t.join();
    ASSERT_TRUE(handler->waitForHits(kSenders * kEach));
    std::vector<int32_t> next(kSenders, 0);
    for (const auto& [what, tag, at] : handler->hits()) {
        ASSERT_LT(what, static_cast<uint32_t>(kSenders));
        EXPECT_EQ(next[what]++, tag);
    }
    EXPECT_EQ(OK, looper->stop());
    EXPECT_EQ(INVALID_OPERATION, looper->stop());

    // With the manual clock the thread fires a delayed message only once time is advanced.
    HostClock::useManual();
    sp<Recorder> manual = new Recorder;
    looper = started(manual);
    tagged(1, manual, 0)->post(5000);
    tagged(1, manual, 1)->post();
    ASSERT_TRUE(manual->waitForHits(1));
    HostClock::advance(4999 * 1000);
    tagged(1, manual, 2)->post();  // a marker behind the advance
    ASSERT_TRUE(manual->waitForHits(2));
    EXPECT_EQ(1u, looper->pendingCountForTesting());
    HostClock::advance(1000);
    ASSERT_TRUE(manual->waitForHits(3));
    EXPECT_EQ((Hits{{1, 1, kStartUs}, {1, 2, kStartUs + 4999}, {1, 0, kStartUs + 5000}}),
              manual->hits());
    looper->stop();
}

}  // namespace
}  // namespace android
