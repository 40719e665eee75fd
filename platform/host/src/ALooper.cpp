// ALooper: due-ordered event queue, one dispatch thread or manual dispatch on the caller's thread.
#define LOG_TAG "ALooper"

#include <media/stagefright/foundation/ALooper.h>

#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <limits>
#include <vector>

#include <host/HostClock.h>
#include <log/log.h>
#include <media/stagefright/foundation/AHandler.h>
#include <media/stagefright/foundation/AMessage.h>

namespace android {

using host::HostClock;

// Shared between a dispatch thread and its looper, so the thread can learn it must exit even when
// the looper was destroyed on that very thread.
struct ALooper::ThreadState {
    std::atomic<bool> exit{false};
};

namespace {

std::atomic<ALooper::handler_id> sNextHandlerId{1};
// One sequence for every looper: FIFO among equal due times, also across manual loopers.
std::atomic<uint64_t> sNextSequence{1};

// Live manual loopers, for the process-wide advance.
Mutex sManualLock;
std::vector<wp<ALooper>>& manualLoopers() {
    static std::vector<wp<ALooper>>* loopers = new std::vector<wp<ALooper>>();
    return *loopers;
}

std::vector<sp<ALooper>> liveManualLoopers() {
    Mutex::Autolock guard(sManualLock);
    std::vector<sp<ALooper>> live;
    std::vector<wp<ALooper>>& all = manualLoopers();
    for (auto it = all.begin(); it != all.end();) {
        sp<ALooper> looper = it->promote();
        if (looper == nullptr) {
            it = all.erase(it);
        } else {
            live.push_back(looper);
            ++it;
        }
    }
    return live;
}

int64_t dueTimeNs(int64_t nowNs, int64_t delayUs) {
    if (delayUs <= 0) return nowNs;
    const int64_t kMax = std::numeric_limits<int64_t>::max();
    if (delayUs > (kMax - nowNs) / 1000) return kMax;
    return nowNs + delayUs * 1000;
}

// Moves the manual clock forward to `ns` (never back).
void stepClockTo(int64_t ns) {
    int64_t now = HostClock::now();
    if (ns > now) HostClock::advance(ns - now);
}

}  // namespace

ALooper::ALooper() : mName("ALooper") {}

ALooper::~ALooper() {
    stop();
    Mutex::Autolock guard(sManualLock);
    std::vector<wp<ALooper>>& all = manualLoopers();
    all.erase(std::remove_if(all.begin(), all.end(),
                             [this](const wp<ALooper>& w) { return w.unsafe_get() == this; }),
              all.end());
}

void ALooper::setName(const char* name) {
    Mutex::Autolock guard(mLock);
    mName = name != nullptr ? name : "";
}

const char* ALooper::getName() const {
    Mutex::Autolock guard(mLock);
    return mName.c_str();
}

ALooper::handler_id ALooper::registerHandler(const sp<AHandler>& handler) {
    if (handler == nullptr) return BAD_VALUE;
    if (handler->id() != 0) {
        ALOGW("A handler must only be registered once.");
        return INVALID_OPERATION;
    }
    handler_id id = sNextHandlerId.fetch_add(1);
    handler->setID(id, this);
    Mutex::Autolock guard(mLock);
    mHandlers.emplace(id, handler);
    return id;
}

void ALooper::unregisterHandler(handler_id handlerID) {
    sp<AHandler> handler;
    {
        Mutex::Autolock guard(mLock);
        auto it = mHandlers.find(handlerID);
        if (it == mHandlers.end()) {
            ALOGW("unregisterHandler: handler %d is not registered with this looper", handlerID);
            return;
        }
        handler = it->second.promote();
        mHandlers.erase(it);
    }
    if (handler != nullptr) handler->setID(0, nullptr);
}

status_t ALooper::start(bool /*runOnCallingThread*/, bool /*canCallJava*/, int32_t /*priority*/) {
    // Registered outside mLock: the clock calls listeners under its own lock, and they take mLock.
    int listener = HostClock::addListener([this] { wake(); });
    Mutex::Autolock guard(mLock);
    if (mManual || mThread.joinable()) {
        HostClock::removeListener(listener);
        ALOGW("start: %s", mManual ? "a manual looper has no thread" : "already running");
        return INVALID_OPERATION;
    }
    mClockListener = listener;
    mThreadState = std::make_shared<ThreadState>();
    mThread = std::thread(&ALooper::threadMain, this, wp<ALooper>(this), mThreadState);
    pthread_setname_np(mThread.native_handle(), mName.substr(0, 15).c_str());
    return OK;
}

status_t ALooper::stop() {
    std::thread thread;
    int listener = -1;
    {
        Mutex::Autolock guard(mLock);
        if (!mThread.joinable()) return INVALID_OPERATION;
        thread = std::move(mThread);
        mThreadState->exit = true;
        mThreadState.reset();
        listener = mClockListener;
        mClockListener = -1;
    }
    HostClock::removeListener(listener);
    mQueueChanged.broadcast();
    if (thread.get_id() == std::this_thread::get_id()) {
        // Stopping from a handler: the thread ends after this message, on its own.
        thread.detach();
    } else {
        thread.join();
    }
    return OK;
}

int64_t ALooper::GetNowUs() {
    return HostClock::now() / 1000;
}

void ALooper::post(const sp<AMessage>& msg, int64_t delayUs) {
    int64_t due = dueTimeNs(HostClock::now(), delayUs);
    {
        Mutex::Autolock guard(mLock);
        mEventQueue.emplace(EventKey(due, sNextSequence.fetch_add(1)), msg);
    }
    mQueueChanged.broadcast();
}

void ALooper::wake() {
    // Taking the lock orders this wake-up after a waiter's last look at the clock.
    { Mutex::Autolock guard(mLock); }
    mQueueChanged.broadcast();
}

bool ALooper::popDue(int64_t limitNs, int64_t* dueNs, sp<AMessage>* msg) {
    Mutex::Autolock guard(mLock);
    auto it = mEventQueue.begin();
    if (it == mEventQueue.end() || it->first.first > limitNs) return false;
    *dueNs = it->first.first;
    *msg = std::move(it->second);
    mEventQueue.erase(it);
    return true;
}

bool ALooper::peekDue(int64_t* dueNs, uint64_t* seq) const {
    Mutex::Autolock guard(mLock);
    auto it = mEventQueue.begin();
    if (it == mEventQueue.end()) return false;
    *dueNs = it->first.first;
    *seq = it->first.second;
    return true;
}

void ALooper::deliver(const sp<AMessage>& msg) {
    bool registered;
    {
        Mutex::Autolock guard(mLock);
        registered = mHandlers.count(msg->mTarget) > 0;
    }
    if (!registered) {
        ALOGW("failed to deliver message as target handler %d is not registered.", msg->mTarget);
        return;
    }
    msg->deliver();
}

void ALooper::threadMain(ALooper* looper, wp<ALooper> weak, std::shared_ptr<ThreadState> state) {
    while (true) {
        sp<AMessage> msg;
        {
            // `looper` is valid here: stop() and the destructor join this thread, except when they
            // run on it, and then `state->exit` ends the loop below before coming back.
            Mutex::Autolock lock(looper->mLock);
            while (true) {
                if (state->exit) return;
                auto it = looper->mEventQueue.begin();
                if (it == looper->mEventQueue.end()) {
                    looper->mQueueChanged.wait(looper->mLock);
                    continue;
                }
                int64_t now = HostClock::now();
                if (it->first.first <= now) {
                    msg = std::move(it->second);
                    looper->mEventQueue.erase(it);
                    break;
                }
                if (HostClock::isManual()) {
                    // Manual time moves only through HostClock::advance, which wakes us.
                    looper->mQueueChanged.wait(looper->mLock);
                } else {
                    looper->mQueueChanged.waitRelative(looper->mLock, it->first.first - now);
                }
            }
        }
        sp<ALooper> self = weak.promote();
        if (self == nullptr) return;  // being destroyed; the destructor joins this thread
        self->deliver(msg);
        msg.clear();
        self.clear();  // may destroy the looper, on this thread
        if (state->exit) return;
    }
}

status_t ALooper::setManualForTesting(bool manual) {
    {
        Mutex::Autolock guard(mLock);
        if (mThread.joinable()) {
            ALOGW("setManualForTesting: the looper thread is running");
            return INVALID_OPERATION;
        }
        mManual = manual;
    }
    Mutex::Autolock guard(sManualLock);
    std::vector<wp<ALooper>>& all = manualLoopers();
    auto it = std::find_if(all.begin(), all.end(),
                           [this](const wp<ALooper>& w) { return w.unsafe_get() == this; });
    if (manual && it == all.end()) {
        all.emplace_back(this);
    } else if (!manual && it != all.end()) {
        all.erase(it);
    }
    return OK;
}

bool ALooper::isManualForTesting() const {
    Mutex::Autolock guard(mLock);
    return mManual;
}

bool ALooper::advanceForTesting(int64_t us, size_t* dispatched) {
    if (dispatched != nullptr) *dispatched = 0;
    if (!isManualForTesting() || !HostClock::isManual()) {
        ALOGE("advanceForTesting needs a manual looper and a manual host clock");
        return false;
    }
    const int64_t target = dueTimeNs(HostClock::now(), us);
    size_t count = 0;
    int64_t due;
    sp<AMessage> msg;
    while (count < kMaxDispatchPerCall && popDue(target, &due, &msg)) {
        stepClockTo(due);
        deliver(msg);
        msg.clear();
        ++count;
    }
    if (count == kMaxDispatchPerCall) {
        ALOGW("advanceForTesting: stopped after %zu messages", count);
    }
    stepClockTo(target);
    if (dispatched != nullptr) *dispatched = count;
    return true;
}

size_t ALooper::runPendingForTesting() {
    if (!isManualForTesting()) {
        ALOGE("runPendingForTesting needs a manual looper");
        return 0;
    }
    size_t count = 0;
    int64_t due;
    sp<AMessage> msg;
    while (count < kMaxDispatchPerCall && popDue(HostClock::now(), &due, &msg)) {
        deliver(msg);
        msg.clear();
        ++count;
    }
    if (count == kMaxDispatchPerCall) {
        ALOGW("runPendingForTesting: stopped after %zu messages", count);
    }
    return count;
}

size_t ALooper::pendingCountForTesting() const {
    Mutex::Autolock guard(mLock);
    return mEventQueue.size();
}

int64_t ALooper::nextDueTimeUsForTesting() const {
    int64_t due;
    uint64_t seq;
    return peekDue(&due, &seq) ? due / 1000 : -1;
}

void ALooper::clearPendingForTesting() {
    std::multimap<EventKey, sp<AMessage>> dropped;
    {
        Mutex::Autolock guard(mLock);
        dropped.swap(mEventQueue);
    }
    // Messages are released outside the lock: their destructors may post or take other locks.
}

bool ALooper::advanceAllForTesting(int64_t us, size_t* dispatched) {
    if (dispatched != nullptr) *dispatched = 0;
    if (!HostClock::isManual()) {
        ALOGE("advanceAllForTesting needs a manual host clock");
        return false;
    }
    const int64_t target = dueTimeNs(HostClock::now(), us);
    size_t count = 0;
    while (count < kMaxDispatchPerCall) {
        // Loopers are re-read every round: a handler may create or drop one.
        std::vector<sp<ALooper>> loopers = liveManualLoopers();
        sp<ALooper> best;
        int64_t bestDue = 0;
        uint64_t bestSeq = 0;
        for (const sp<ALooper>& looper : loopers) {
            int64_t due;
            uint64_t seq;
            if (!looper->peekDue(&due, &seq) || due > target) continue;
            if (best == nullptr || due < bestDue || (due == bestDue && seq < bestSeq)) {
                best = looper;
                bestDue = due;
                bestSeq = seq;
            }
        }
        if (best == nullptr) break;
        int64_t due;
        sp<AMessage> msg;
        if (!best->popDue(target, &due, &msg)) continue;
        stepClockTo(due);
        best->deliver(msg);
        ++count;
    }
    if (count == kMaxDispatchPerCall) {
        ALOGW("advanceAllForTesting: stopped after %zu messages", count);
    }
    stepClockTo(target);
    if (dispatched != nullptr) *dispatched = count;
    return true;
}

size_t ALooper::runAllPendingForTesting() {
    size_t count = 0;
    // With a real clock "now" moves by itself; the bound keeps this finite either way.
    if (HostClock::isManual()) {
        advanceAllForTesting(0, &count);
        return count;
    }
    while (count < kMaxDispatchPerCall) {
        size_t round = 0;
        for (const sp<ALooper>& looper : liveManualLoopers())
            round += looper->runPendingForTesting();
        if (round == 0) break;
        count += round;
    }
    return count;
}

}  // namespace android
