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
#include <vector>

namespace android {
namespace {

using host::HostClock;
using host::HostLog;

constexpr int64_t kStartNs = HostClock::kDefaultManualStartNs;
constexpr int64_t kStartUs = kStartNs / 1000;

struct Hit {
    uint32_t what;
    int32_t tag;
    int64_t nowUs;
    bool operator==(const Hit& o) const {
        return what == o.what && tag == o.tag && nowUs == o.nowUs;
    }
};

std::ostream& operator<<(std::ostream& os, const Hit& h) {
    return os << "{what " << h.what << ", tag " << h.tag << ", at " << h.nowUs << "}";
}

// Records every message (what, "tag" entry, clock at delivery) and runs an optional reaction.
class Recorder : public AHandler {
  public:
    std::function<void(const sp<AMessage>&)> onMessage;

    std::vector<Hit> hits() {
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
            // The reaction is read under the lock, so a test that waited for this hit may
            // replace it without racing with the dispatch thread.
            std::lock_guard<std::mutex> guard(mLock);
            mHits.push_back({msg->what(), tag, ALooper::GetNowUs()});
            reaction = onMessage;
        }
        mChanged.notify_all();
        if (reaction) reaction(msg);
    }

  private:
    std::mutex mLock;
    std::condition_variable mChanged;
    std::vector<Hit> mHits;
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
        mLooper = new ALooper;
        mLooper->setName("manual");
        ASSERT_EQ(OK, mLooper->setManualForTesting(true));
        mHandler = new Recorder;
        ASSERT_GT(mLooper->registerHandler(mHandler), 0);
    }
    void TearDown() override {
        mHandler->onMessage = nullptr;
        mLooper.clear();
        HostClock::useReal();
    }

    sp<ALooper> mLooper;
    sp<Recorder> mHandler;
};

TEST_F(ALooperTest, DispatchesInDueOrderFifoForEqualTimes) {
    EXPECT_EQ(OK, tagged(1, mHandler, 0)->post(3000));
    EXPECT_EQ(OK, tagged(1, mHandler, 1)->post(1000));
    EXPECT_EQ(OK, tagged(1, mHandler, 2)->post(1000));
    EXPECT_EQ(OK, tagged(1, mHandler, 3)->post());
    EXPECT_EQ(OK, tagged(1, mHandler, 4)->post(-50));  // negative delay counts as 0
    EXPECT_EQ(5u, mLooper->pendingCountForTesting());
    EXPECT_EQ(kStartUs, mLooper->nextDueTimeUsForTesting());

    EXPECT_EQ(2u, mLooper->runPendingForTesting());
    EXPECT_EQ(kStartUs + 1000, mLooper->nextDueTimeUsForTesting());
    size_t dispatched = 0;
    ASSERT_TRUE(mLooper->advanceForTesting(999, &dispatched));
    EXPECT_EQ(0u, dispatched);
    ASSERT_TRUE(mLooper->advanceForTesting(1, &dispatched));
    EXPECT_EQ(2u, dispatched);
    ASSERT_TRUE(mLooper->advanceForTesting(5000, &dispatched));
    EXPECT_EQ(1u, dispatched);

    // Each message sees the clock at its own due time, not at the end of the advance.
    EXPECT_EQ((std::vector<Hit>{{1, 3, kStartUs},
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
    // A handler that re-posts itself every 1 000 000 µs, like a periodic check.
    mHandler->onMessage = [](const sp<AMessage>& msg) { msg->dup()->post(1000000); };
    tagged(2, mHandler, 0)->post(1000000);
    size_t dispatched = 0;
    ASSERT_TRUE(mLooper->advanceForTesting(3500000, &dispatched));
    EXPECT_EQ(3u, dispatched);
    EXPECT_EQ((std::vector<Hit>{{2, 0, kStartUs + 1000000},
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
    sp<AMessage> toLeaving = tagged(6, leaving, 0);
    toLeaving->post(10);
    mLooper->unregisterHandler(leavingId);
    EXPECT_EQ(0, leaving->id());
    EXPECT_EQ(nullptr, leaving->looper().get());

    tagged(7, mHandler, 1)->post(20);
    size_t dispatched = 0;
    ASSERT_TRUE(mLooper->advanceForTesting(100, &dispatched));
    EXPECT_EQ(3u, dispatched);  // popped, but only the live one was delivered
    EXPECT_EQ((std::vector<Hit>{{7, 1, kStartUs + 20}}), mHandler->hits());
    EXPECT_TRUE(leaving->hits().empty());
    EXPECT_EQ(1u, HostLog::count("target handler", "AMessage"));    // gone
    EXPECT_EQ(1u, HostLog::count("is not registered", "ALooper"));  // unregistered

    // Posting to a handler whose looper is gone fails outright.
    sp<ALooper> other = new ALooper;
    other->setManualForTesting(true);
    sp<Recorder> orphan = new Recorder;
    other->registerHandler(orphan);
    sp<AMessage> toOrphan = new AMessage(8, orphan);
    other.clear();
    EXPECT_EQ(-ENOENT, toOrphan->post());
}

TEST_F(ALooperTest, RegistrationRulesAndHandlerAccessors) {
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
}

TEST_F(ALooperTest, AdvanceNeedsTheManualClock) {
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
    tagged(1, mHandler, 1)->post(10);
    tagged(1, other, 2)->post(10);
    tagged(1, mHandler, 3)->post(20);
    tagged(1, other, 0)->post(5);
    size_t dispatched = 0;
    ASSERT_TRUE(ALooper::advanceAllForTesting(20, &dispatched));
    EXPECT_EQ(4u, dispatched);
    EXPECT_EQ((std::vector<int32_t>{0, 1, 2, 3}), order);
    tagged(1, other, 4)->post();
    EXPECT_EQ(1u, ALooper::runAllPendingForTesting());
    other->onMessage = nullptr;
}

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
};

TEST_F(ALooperThreadTest, ThreadDeliversPostsFromManyThreadsInOrderPerSender) {
    sp<ALooper> looper = new ALooper;
    looper->setName("threaded");
    sp<Recorder> handler = new Recorder;
    looper->registerHandler(handler);
    ASSERT_EQ(OK, looper->start());
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
    for (const Hit& hit : handler->hits()) {
        ASSERT_LT(hit.what, static_cast<uint32_t>(kSenders));
        EXPECT_EQ(next[hit.what]++, hit.tag);  // FIFO per sender
    }
    EXPECT_EQ(OK, looper->stop());
    EXPECT_EQ(INVALID_OPERATION, looper->stop());
}

TEST_F(ALooperThreadTest, WithTheManualClockTheThreadFiresOnlyWhenTimeIsAdvanced) {
    HostClock::useManual();
    sp<ALooper> looper = new ALooper;
    sp<Recorder> handler = new Recorder;
    looper->registerHandler(handler);
    ASSERT_EQ(OK, looper->start());
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
    EXPECT_EQ(
            (std::vector<Hit>{{1, 1, kStartUs}, {1, 2, kStartUs + 4999}, {1, 0, kStartUs + 5000}}),
            handler->hits());
    looper->stop();
}

TEST_F(ALooperThreadTest, RealClockDelayedMessageArrivesAfterItsDelay) {
    sp<ALooper> looper = new ALooper;
    sp<Recorder> handler = new Recorder;
    looper->registerHandler(handler);
    ASSERT_EQ(OK, looper->start());
    const int64_t postedUs = ALooper::GetNowUs();
    tagged(1, handler, 0)->post(2000);
    ASSERT_TRUE(handler->waitForHits(1));
    EXPECT_GE(handler->hits()[0].nowUs, postedUs + 2000);
    looper->stop();
}

TEST_F(ALooperThreadTest, StopFromAHandlerAndDestroyOnTheLooperThread) {
    sp<ALooper> looper = new ALooper;
    sp<Recorder> handler = new Recorder;
    looper->registerHandler(handler);
    std::mutex lock;
    std::condition_variable done;
    bool stopped = false;
    handler->onMessage = [&](const sp<AMessage>&) {
        sp<ALooper> self = handler->looper();
        EXPECT_EQ(OK, self->stop());
        std::lock_guard<std::mutex> guard(lock);
        stopped = true;
        done.notify_all();
    };
    ASSERT_EQ(OK, looper->start());
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
    sp<ALooper> looper = new ALooper;
    sp<Echo> echo = new Echo;
    looper->registerHandler(echo);
    ASSERT_EQ(OK, looper->start());
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
