// Strong and weak reference counts of RefBase objects.
//
// Model: the weak-reference block counts weak references plus one share held by the object
// itself while it exists. The block is freed when that count reaches zero, which can only happen
// after the object is gone; so a wp can always consult the strong count, and once the strong
// count has dropped to 0 it never rises again (attemptIncStrong refuses 0).
#define LOG_TAG "RefBase"

#include <utils/RefBase.h>

#include <log/log.h>

namespace android {
namespace {

// Strong count of an object no sp has touched yet: distinguishes "never referenced" from "dead".
constexpr int32_t kInitialStrongValue = 1 << 28;

}  // namespace

class RefBase::weakref_impl : public RefBase::weakref_type {
  public:
    explicit weakref_impl(RefBase* base) : mStrong(kInitialStrongValue), mWeak(1), mBase(base) {}

    std::atomic<int32_t> mStrong;
    std::atomic<int32_t> mWeak;  // weak references + 1 while the object exists
    RefBase* const mBase;
};

RefBase::RefBase() : mRefs(new weakref_impl(this)) {}

RefBase::~RefBase() {
    int32_t strong = mRefs->mStrong.load(std::memory_order_relaxed);
    if (strong == kInitialStrongValue) {
        // Deleted without ever having a strong reference: make late promotions fail.
        mRefs->mStrong.store(0, std::memory_order_relaxed);
    } else if (strong != 0) {
        ALOGE("RefBase %p deleted while %d strong references remain", this, strong);
    }
    // Release the object's own share of the block; the last wp frees it otherwise.
    mRefs->decWeak(this);
}

void RefBase::incStrong(const void* id) const {
    int32_t c = mRefs->mStrong.fetch_add(1, std::memory_order_relaxed);
    if (c != kInitialStrongValue) {
        LOG_ALWAYS_FATAL_IF(c <= 0, "incStrong() on %p after its last strong reference", this);
        return;
    }
    mRefs->mStrong.fetch_sub(kInitialStrongValue, std::memory_order_relaxed);
    const_cast<RefBase*>(this)->onFirstRef();
}

void RefBase::forceIncStrong(const void* id) const {
    incStrong(id);
}

void RefBase::decStrong(const void* id) const {
    int32_t c = mRefs->mStrong.fetch_sub(1, std::memory_order_acq_rel);
    LOG_ALWAYS_FATAL_IF(c <= 0 || c == kInitialStrongValue,
                        "decStrong() on %p without a strong reference", this);
    if (c == 1) {
        RefBase* self = const_cast<RefBase*>(this);
        self->onLastStrongRef(id);
        delete self;
    }
}

int32_t RefBase::getStrongCount() const {
    int32_t c = mRefs->mStrong.load(std::memory_order_relaxed);
    return c == kInitialStrongValue ? 0 : c;
}

RefBase::weakref_type* RefBase::createWeak(const void* id) const {
    mRefs->incWeak(id);
    return mRefs;
}

RefBase::weakref_type* RefBase::getWeakRefs() const {
    return mRefs;
}

void RefBase::onFirstRef() {}

void RefBase::onLastStrongRef(const void* /*id*/) {}

RefBase* RefBase::weakref_type::refBase() const {
    return static_cast<const weakref_impl*>(this)->mBase;
}

void RefBase::weakref_type::incWeak(const void* /*id*/) {
    static_cast<weakref_impl*>(this)->mWeak.fetch_add(1, std::memory_order_relaxed);
}

void RefBase::weakref_type::decWeak(const void* /*id*/) {
    weakref_impl* impl = static_cast<weakref_impl*>(this);
    int32_t c = impl->mWeak.fetch_sub(1, std::memory_order_acq_rel);
    LOG_ALWAYS_FATAL_IF(c <= 0, "decWeak() on %p without a weak reference", impl);
    if (c == 1) {
        delete impl;
    }
}

bool RefBase::weakref_type::attemptIncStrong(const void* /*id*/) {
    weakref_impl* impl = static_cast<weakref_impl*>(this);
    int32_t c = impl->mStrong.load(std::memory_order_relaxed);
    // 0 means dead or dying, and the count never leaves 0, so a failed promotion is final.
    while (c > 0) {
        if (impl->mStrong.compare_exchange_weak(c, c + 1, std::memory_order_relaxed)) {
            if (c == kInitialStrongValue) {
                // Promoting an object no sp has held yet makes this its first reference.
                impl->mStrong.fetch_sub(kInitialStrongValue, std::memory_order_relaxed);
                impl->mBase->onFirstRef();
            }
            return true;
        }
    }
    return false;
}

int32_t RefBase::weakref_type::getWeakCount() const {
    const weakref_impl* impl = static_cast<const weakref_impl*>(this);
    int32_t c = impl->mWeak.load(std::memory_order_relaxed);
    // Discount the object's own share while it is alive.
    int32_t strong = impl->mStrong.load(std::memory_order_relaxed);
    return strong != 0 ? c - 1 : c;
}

}  // namespace android
