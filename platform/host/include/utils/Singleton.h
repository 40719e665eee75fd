// Singleton<T>: one process-wide instance of T, created on first use under a lock and never
// destroyed. T derives from Singleton<T> and befriends it when its constructor is private.
#pragma once

#include <mutex>

namespace android {

template <typename TYPE>
class Singleton {
  public:
    // The instance, created by the first caller. Any thread.
    static TYPE& getInstance() {
        std::lock_guard<std::mutex> guard(sLock);
        TYPE* instance = sInstance;
        if (instance == nullptr) {
            instance = new TYPE();
            sInstance = instance;
        }
        return *instance;
    }
    // Whether getInstance() has created the instance yet.
    static bool hasInstance() {
        std::lock_guard<std::mutex> guard(sLock);
        return sInstance != nullptr;
    }

  protected:
    Singleton() = default;
    ~Singleton() = default;

  private:
    Singleton(const Singleton&) = delete;
    Singleton& operator=(const Singleton&) = delete;

    static inline std::mutex sLock;
    static inline TYPE* sInstance = nullptr;
};

}  // namespace android

// Devices define the statics with this macro in one source file; here they are inline, so the
// macro only checks that the type names a singleton, keeping such files building unchanged.
#define ANDROID_SINGLETON_STATIC_INSTANCE(TYPE) \
    static_assert(sizeof(::android::Singleton<TYPE>) > 0, "Singleton<" #TYPE ">")
