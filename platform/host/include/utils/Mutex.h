// Mutex: the platform's non-recursive mutex with a scoped Autolock. Condition (utils/Condition.h)
// waits on it.
#pragma once

#include <pthread.h>

#include <utils/Errors.h>

namespace android {

class Condition;

class Mutex {
  public:
    Mutex();
    explicit Mutex(const char* name);
    ~Mutex();

    // Blocks until the lock is held; OK, or an errno-style status from the thread library.
    status_t lock();
    void unlock();
    // OK when the lock was free and is now held, else -EBUSY without blocking.
    status_t tryLock();

    // Holds the mutex for the lifetime of the object.
    class Autolock {
      public:
        explicit Autolock(Mutex& mutex) : mLock(mutex) { mLock.lock(); }
        explicit Autolock(Mutex* mutex) : mLock(*mutex) { mLock.lock(); }
        ~Autolock() { mLock.unlock(); }

      private:
        Autolock(const Autolock&) = delete;
        Autolock& operator=(const Autolock&) = delete;
        Mutex& mLock;
    };

  private:
    friend class Condition;
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;

    pthread_mutex_t mMutex;
};

typedef Mutex::Autolock AutoMutex;

}  // namespace android
