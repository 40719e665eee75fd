// LightRefBase<T>: a strong count only, for small objects that need sp<T> but no weak pointers.
// The object is deleted (as T) when the count drops from 1 to 0.
#pragma once

#include <stdint.h>

#include <atomic>

namespace android {

template <class T>
class LightRefBase {
  public:
    LightRefBase() : mCount(0) {}

    // Any thread.
    void incStrong(const void* /*id*/) const { mCount.fetch_add(1, std::memory_order_relaxed); }
    void decStrong(const void* /*id*/) const {
        if (mCount.fetch_sub(1, std::memory_order_acq_rel) == 1) {
            delete static_cast<const T*>(this);
        }
    }
    int32_t getStrongCount() const { return mCount.load(std::memory_order_relaxed); }

  protected:
    ~LightRefBase() = default;

  private:
    mutable std::atomic<int32_t> mCount;
};

}  // namespace android
