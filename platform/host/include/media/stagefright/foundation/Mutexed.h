// A value guarded by its own mutex, reachable only through a Locked handle.
#pragma once

#include <mutex>

namespace android {

template <typename T>
class Mutexed {
  public:
    Mutexed() = default;

    // Holds the lock for its lifetime; -> and * reach the guarded value.
    class Locked {
      public:
        explicit Locked(Mutexed<T>& m) : mGuard(m.mLock), mValue(m.mValue) {}
        T* operator->() { return &mValue; }
        T& operator*() { return mValue; }
        const T* operator->() const { return &mValue; }

      private:
        std::unique_lock<std::mutex> mGuard;
        T& mValue;
    };

  private:
    std::mutex mLock;
    T mValue;
};

}  // namespace android
