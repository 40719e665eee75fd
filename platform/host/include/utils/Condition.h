// Condition: a condition variable used with utils/Mutex.h. Timed waits use the monotonic clock.
#pragma once

#include <pthread.h>

#include <utils/Errors.h>
#include <utils/Mutex.h>
#include <utils/Timers.h>

namespace android {

class Condition {
  public:
    Condition();
    ~Condition();

    // Releases `mutex` (which the caller holds), waits for a signal and re-takes it. Spurious
    // wake-ups happen: callers loop on their predicate.
    status_t wait(Mutex& mutex);
    // As wait(), giving up after `reltime` ns of real time with -ETIMEDOUT (TIMED_OUT).
    status_t waitRelative(Mutex& mutex, nsecs_t reltime);
    // Wakes one waiter / all waiters.
    void signal();
    void broadcast();

  private:
    Condition(const Condition&) = delete;
    Condition& operator=(const Condition&) = delete;

    pthread_cond_t mCond;
};

}  // namespace android
