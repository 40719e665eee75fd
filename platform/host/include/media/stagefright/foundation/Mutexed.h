// A value guarded by its own mutex, reachable only through a Locked handle.
#pragma once

#include <utils/Mutex.h>

namespace android {

template <typename T>
class Mutexed {
  public:
    Mutexed() = default;

    // Holds the lock for its lifetime; -> and * reach the guarded value.
    class Locked {
      public:
        explicit Locked(Mutexed<T>& m) : mGuard(m.mLock), mValue(m.mValue) {}
        Locked(const Locked&) = delete;
        Locked& operator=(const Locked&) = delete;
        T* operator->() { return &mValue; }
        T& operator*() { return mValue; }
        const T* operator->() const { return &mValue; }

      private:
        Mutex::Autolock mGuard;
        T& mValue;
    };

  private:
    Mutex mLock;
    T mValue;
};

}  // namespace android
