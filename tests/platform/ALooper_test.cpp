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

constexpr int64_t kStartNs = HostClock::kDefaultManualStartNs;
constexpr int64_t kStartUs = kStartNs / 1000;

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

// Answers every message that awaits a response with its "tag" doubled.
class Echo : public AHandler {
  protected:
    void onMessageReceived(const sp<AMessage>& msg) override {
        sp<AReplyToken> token;
        if (!msg->senderAwaitsResponse(&token)) return;
        int32_t tag = 0;
        msg->findInt32("tag", &tag);
        sp<AMessage> reply = new AMessage;
        reply->setInt32("answer", tag * 2);
        reply->postReply(token);
        EXPECT_EQ(INVALID_OPERATION, reply->postReply(token));
    }
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
        mLooper->setName("manual");
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

TEST_F(ALooperTest, DispatchesInDueOrderFifoForEqualTimes) {
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
    EXPECT_EQ(kStartNs + 6000 * 1000, systemTime(SYSTEM_TIME_MONOTONIC));
    EXPECT_EQ(0u, mLooper->pendingCountForTesting());
    EXPECT_EQ(-1, mLooper->nextDueTimeUsForTesting());
}

TEST_F(ALooperTest, PeriodicChainFiresOncePerPeriodWithinTheWindow) {
    mHandler->onMessage = [](const sp<AMessage>& msg) { msg->dup()->post(1000000); };
    tagged(2, mHandler, 0)->post(1000000);
    EXPECT_EQ(3u, advance(3500000));
    EXPECT_EQ((Hits{{2, 0, kStartUs + 1000000},
                    {2, 0, kStartUs + 2000000},
                    {2, 0, kStartUs + 3000000}}),
              mHandler->hits());
    EXPECT_EQ(kStartUs + 4000000, mLooper->nextDueTimeUsForTesting());
    EXPECT_EQ(kStartUs + 3500000, ALooper::GetNowUs());
}

TEST_F(ALooperTest, RunPendingFollowsZeroDelayChainsWithABound) {
    int remaining = 3;
    mHandler->onMessage = [&remaining](const sp<AMessage>& msg) {
        if (--remaining > 0) msg->post();
    };
    tagged(3, mHandler, 0)->post();
    EXPECT_EQ(3u, mLooper->runPendingForTesting());

    // A handler that re-posts forever is cut off at the bound instead of hanging the test.
    mHandler->onMessage = [](const sp<AMessage>& msg) { msg->post(); };
    tagged(4, mHandler, 0)->post();
    EXPECT_EQ(ALooper::kMaxDispatchPerCall, mLooper->runPendingForTesting());
    EXPECT_EQ(1u, mLooper->pendingCountForTesting());
    EXPECT_EQ(1u, HostLog::count("runPendingForTesting: stopped after 100000 messages", "ALooper"));
    mHandler->onMessage = nullptr;
    mLooper->clearPendingForTesting();
    EXPECT_EQ(0u, mLooper->pendingCountForTesting());
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
    sp<AMessage> untargeted = new AMessage;
    EXPECT_EQ(-ENOENT, untargeted->post());
    EXPECT_EQ(-ENOENT, untargeted->post(1000));
    sp<AMessage> response;
    EXPECT_EQ(-ENOENT, untargeted->postAndAwaitResponse(&response));
    EXPECT_EQ(BAD_VALUE, untargeted->postReply(nullptr));
}

TEST_F(ALooperTest, RegistrationRulesAndManualMode) {
    EXPECT_EQ(mLooper, mHandler->looper());
    EXPECT_TRUE(mHandler->getLooper() == mLooper);
    EXPECT_EQ(INVALID_OPERATION, mLooper->registerHandler(mHandler));
    EXPECT_EQ(BAD_VALUE, mLooper->registerHandler(nullptr));
    sp<Recorder> second = new Recorder;
    ALooper::handler_id id = mLooper->registerHandler(second);
    EXPECT_GT(id, mHandler->id());
    EXPECT_EQ(id, second->id());
    EXPECT_STREQ("manual", mLooper->getName());
    // A manual looper never starts a thread, and the mode is fixed once started.
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
    std::vector<int32_t> order;
    mHandler->onMessage = [&order](const sp<AMessage>& m) {
        int32_t tag;
        m->findInt32("tag", &tag);
        order.push_back(tag);
    };
    other->onMessage = mHandler->onMessage;
    for (auto [handler, tag, delay] :
         {std::tuple{mHandler, 1, 10}, {other, 2, 10}, {mHandler, 3, 20}, {other, 0, 5}}) {
        tagged(1, handler, tag)->post(delay);
    }
    size_t dispatched = 0;
    ASSERT_TRUE(ALooper::advanceAllForTesting(20, &dispatched));
    EXPECT_EQ(4u, dispatched);
    EXPECT_EQ((std::vector<int32_t>{0, 1, 2, 3}), order);
    tagged(1, other, 4)->post();
    EXPECT_EQ(1u, ALooper::runAllPendingForTesting());
    other->onMessage = nullptr;
}

TEST_F(ALooperTest, PostAndAwaitResponseOnAManualLooper) {
    sp<Echo> echo = new Echo;
    mLooper->registerHandler(echo);
    sp<AMessage> response;
    ASSERT_EQ(OK, tagged(1, echo, 21)->postAndAwaitResponse(&response));
    int32_t answer = 0;
    ASSERT_TRUE(response->findInt32("answer", &answer));
    EXPECT_EQ(42, answer);
    // Nobody answers: the manual looper runs dry and the call returns instead of hanging.
    EXPECT_EQ(WOULD_BLOCK, tagged(1, mHandler, 0)->postAndAwaitResponse(&response));
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

TEST_F(ALooperThreadTest, ThreadDeliversPostsFromManyThreadsInOrderPerSender) {
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
        EXPECT_EQ(next[what]++, tag);  // FIFO per sender
    }
    EXPECT_EQ(OK, looper->stop());
    EXPECT_EQ(INVALID_OPERATION, looper->stop());
}

TEST_F(ALooperThreadTest, WithTheManualClockTheThreadFiresOnlyWhenTimeIsAdvanced) {
    HostClock::useManual();
    sp<Recorder> handler = new Recorder;
    sp<ALooper> looper = started(handler);
    tagged(1, handler, 0)->post(5000);
    tagged(1, handler, 1)->post();
    // The undelayed message comes first; the delayed one waits for the clock.
    ASSERT_TRUE(handler->waitForHits(1));
    EXPECT_EQ(1u, looper->pendingCountForTesting());
    HostClock::advance(4999 * 1000);
    tagged(1, handler, 2)->post();  // a marker behind the advance
    ASSERT_TRUE(handler->waitForHits(2));
    EXPECT_EQ(1u, looper->pendingCountForTesting());
    HostClock::advance(1000);
    ASSERT_TRUE(handler->waitForHits(3));
    EXPECT_EQ((Hits{{1, 1, kStartUs}, {1, 2, kStartUs + 4999}, {1, 0, kStartUs + 5000}}),
              handler->hits());
    looper->stop();

    // With the real clock a delayed message arrives no earlier than its delay.
    HostClock::useReal();
    sp<Recorder> real = new Recorder;
    sp<ALooper> realLooper = started(real);
    const int64_t postedUs = ALooper::GetNowUs();
    tagged(1, real, 0)->post(2000);
    ASSERT_TRUE(real->waitForHits(1));
    EXPECT_GE(std::get<2>(real->hits()[0]), postedUs + 2000);
    realLooper->stop();
}

TEST_F(ALooperThreadTest, StopFromAHandlerAndDestroyOnTheLooperThread) {
    sp<Recorder> handler = new Recorder;
    std::mutex lock;
    std::condition_variable done;
    bool stopped = false;
    handler->onMessage = [&](const sp<AMessage>&) {
        EXPECT_EQ(OK, handler->looper()->stop());
        std::lock_guard<std::mutex> guard(lock);
        stopped = true;
        done.notify_all();
    };
    sp<ALooper> looper = started(handler);
    tagged(1, handler, 0)->post();
    {
        std::unique_lock<std::mutex> l(lock);
        ASSERT_TRUE(done.wait_for(l, std::chrono::seconds(20), [&] { return stopped; }));
    }
    // Restartable after a stop; this time the last reference goes on the looper thread.
    handler->onMessage = nullptr;
    ASSERT_EQ(OK, looper->start());
    sp<Recorder> last = new Recorder;
    looper->registerHandler(last);
    wp<ALooper> weakLooper = looper;
    sp<ALooper>* holder = new sp<ALooper>(looper);
    looper.clear();
    last->onMessage = [holder](const sp<AMessage>&) { delete holder; };
    tagged(1, last, 0)->post();
    ASSERT_TRUE(last->waitForHits(1));
    // The looper died on its own thread (the handler dropped the last reference); it detached.
    for (int i = 0; i < 1000000 && weakLooper.promote() != nullptr; ++i) std::this_thread::yield();
    EXPECT_EQ(nullptr, weakLooper.promote().get());
    last->onMessage = nullptr;
}

TEST_F(ALooperThreadTest, PostAndAwaitResponseAcrossThreads) {
    sp<Echo> echo = new Echo;
    sp<ALooper> looper = started(echo);
    std::vector<std::thread> askers;
    std::vector<int32_t> answers(4, 0);
    for (int i = 0; i < 4; ++i) {
        askers.emplace_back([i, echo, &answers] {
            sp<AMessage> response;
            if (tagged(1, echo, i + 1)->postAndAwaitResponse(&response) == OK) {
                response->findInt32("answer", &answers[static_cast<size_t>(i)]);
            }
        });
    }
    for (std::thread& t : askers) t.join();
    EXPECT_EQ((std::vector<int32_t>{2, 4, 6, 8}), answers);
    looper->stop();
}

}  // namespace
}  // namespace android
