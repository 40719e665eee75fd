// ALooper: delivers posted messages to registered handlers in due-time order (FIFO among equal
// times). Due times come from the host clock (host/HostClock.h): post time plus the delay.
//
// Two ways to run:
//  - start() spawns one dispatch thread. It waits for the earliest message to fall due on the
//    host clock; when that clock is manual, a message falls due only once HostClock::advance()
//    reaches it (advance wakes the thread), so a threaded looper never fires ahead of test time.
//  - Manual mode (setManualForTesting(true) before start): no thread; the test or tool dispatches
//    on its own thread with advanceForTesting() / runPendingForTesting(). advanceForTesting()
//    moves the host clock, which must be in manual mode (HostClock::useManual()).
// Messages to a handler that has died or was unregistered are dropped at delivery.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <map>
#include <memory>
#include <string>
#include <thread>
#include <utility>

#include <utils/Condition.h>
#include <utils/Errors.h>
#include <utils/Mutex.h>
#include <utils/RefBase.h>

namespace android {

class AHandler;
class AMessage;

class ALooper : public RefBase {
  public:
    typedef int32_t event_id;
    typedef int32_t handler_id;

    // Most messages a runPendingForTesting()/advanceForTesting() call dispatches: a bound so that
    // a handler that re-posts itself with no delay cannot hang the caller.
    static constexpr size_t kMaxDispatchPerCall = 100000;

    ALooper();

    // Debug name of the looper and its thread.
    void setName(const char* name);
    const char* getName() const;

    // Registers `handler` with this looper and returns its id (> 0, unique in the process).
    // INVALID_OPERATION when the handler is already registered, BAD_VALUE for null.
    handler_id registerHandler(const sp<AHandler>& handler);
    // Forgets the handler: its id becomes 0 and messages still queued for it are dropped when they
    // fall due. Unknown ids are ignored.
    void unregisterHandler(handler_id handlerID);

    // Starts the dispatch thread. INVALID_OPERATION when already started or in manual mode.
    // The arguments are accepted for source compatibility and ignored on host.
    status_t start(bool runOnCallingThread = false, bool canCallJava = false, int32_t priority = 0);
    // Stops and joins the dispatch thread (queued messages stay queued). From the dispatch thread
    // itself it stops after the current message without joining. INVALID_OPERATION when not
    // running.
    status_t stop();

    // The host clock in µs.
    static int64_t GetNowUs();

    // --- Host-only control for tests and tools ---

    // Manual mode: no thread; dispatch happens in the calls below. Only before start().
    status_t setManualForTesting(bool manual);
    bool isManualForTesting() const;
    // Advances the host clock (manual mode required; false otherwise, nothing dispatched) by `us`
    // and dispatches on the calling thread, in due order, every message due at or before the new
    // time, including ones posted meanwhile that fall due within the window. The clock is stepped
    // to each message's due time before it is delivered, so a handler sees its own firing time.
    // Returns the number of messages dispatched through `*dispatched` when not null.
    bool advanceForTesting(int64_t us, size_t* dispatched = nullptr);
    // Dispatches every message due now, including delay-0 chains, at most kMaxDispatchPerCall.
    // Returns the number dispatched. Manual mode only (0 otherwise).
    size_t runPendingForTesting();
    size_t pendingCountForTesting() const;
    // Due time (µs on the host clock) of the earliest queued message, or -1 when none.
    int64_t nextDueTimeUsForTesting() const;
    // Drops every queued message.
    void clearPendingForTesting();

    // Like advanceForTesting, across every live manual looper, in one global due order.
    static bool advanceAllForTesting(int64_t us, size_t* dispatched = nullptr);
    static size_t runAllPendingForTesting();

  protected:
    ~ALooper() override;

  private:
    friend class AMessage;

    // Ordered by (due time ns, global post sequence): equal due times keep posting order.
    typedef std::pair<int64_t, uint64_t> EventKey;

    struct ThreadState;

    void post(const sp<AMessage>& msg, int64_t delayUs);
    // Pops the earliest message due at or before `limitNs`; false when there is none.
    bool popDue(int64_t limitNs, int64_t* dueNs, sp<AMessage>* msg);
    bool peekDue(int64_t* dueNs, uint64_t* seq) const;
    void deliver(const sp<AMessage>& msg);
    void wake();
    static void threadMain(ALooper* looper, wp<ALooper> weak, std::shared_ptr<ThreadState> state);

    mutable Mutex mLock;
    Condition mQueueChanged;
    std::multimap<EventKey, sp<AMessage>> mEventQueue;  // guarded by mLock
    std::map<handler_id, wp<AHandler>> mHandlers;       // guarded by mLock
    std::string mName;                                  // guarded by mLock
    bool mManual = false;                               // guarded by mLock
    std::thread mThread;                                // guarded by mLock
    std::shared_ptr<ThreadState> mThreadState;          // guarded by mLock
    int mClockListener = -1;                            // guarded by mLock
};

}  // namespace android
