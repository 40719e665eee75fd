// Intrusive reference counting for platform objects: RefBase with thread-safe strong and weak
// counts, sp<T> (utils/StrongPointer.h) and wp<T>. An object dies when its last strong reference
// goes; its small weak-reference block lives on until the last wp lets go, so a wp can always
// ask whether the object is still there (promote()).
#pragma once

#include <stdint.h>

#include <atomic>
#include <cstddef>
#include <functional>
#include <type_traits>

#include <utils/LightRefBase.h>
#include <utils/StrongPointer.h>

namespace android {

class RefBase {
  public:
    // Strong references. The first incStrong calls onFirstRef(); the decStrong that brings the
    // count from 1 to 0 calls onLastStrongRef() and deletes the object. `id` identifies the
    // holder for debugging only. Any thread.
    void incStrong(const void* id) const;
    void decStrong(const void* id) const;
    // Like incStrong, for objects that may never have had a strong reference yet.
    void forceIncStrong(const void* id) const;
    // Current strong count: 0 before the first sp and after the last one. A debugging aid: the
    // value may be stale as soon as it is read.
    int32_t getStrongCount() const;

    // The weak-reference block of an object. It outlives the object while weak references hold it.
    class weakref_type {
      public:
        RefBase* refBase() const;
        void incWeak(const void* id);
        // Releasing the last weak reference of a dead object frees the block.
        void decWeak(const void* id);
        // Takes a strong reference when the object is still alive; false once it has died (or is
        // dying). Any thread.
        bool attemptIncStrong(const void* id);
        // Weak references held through this block (wp objects and createWeak calls).
        int32_t getWeakCount() const;

      protected:
        weakref_type() = default;
        ~weakref_type() = default;
    };

    // Takes a weak reference on the object and returns its block; release with decWeak.
    weakref_type* createWeak(const void* id) const;
    weakref_type* getWeakRefs() const;

  protected:
    RefBase();
    // Deleting an object that never had a strong reference is allowed (plain `delete`); deleting
    // one that has strong references is a bug in the caller.
    virtual ~RefBase();

    // Called once, on the first strong reference.
    virtual void onFirstRef();
    // Called on the last strong reference's release, just before the object is deleted.
    virtual void onLastStrongRef(const void* id);

  private:
    class weakref_impl;
    friend class weakref_type;

    RefBase(const RefBase&) = delete;
    RefBase& operator=(const RefBase&) = delete;

    weakref_impl* const mRefs;
};

// wp<T>: a weak pointer to a RefBase object. It never keeps the object alive; promote() gives a
// strong pointer while the object lives and an empty one after.
template <typename T>
class wp {
  public:
    typedef typename RefBase::weakref_type weakref_type;

    wp() : m_ptr(nullptr), m_refs(nullptr) {}
    wp(std::nullptr_t) : wp() {}  // NOLINT

    wp(T* other) : m_ptr(other), m_refs(nullptr) {  // NOLINT
        if (other != nullptr) m_refs = other->createWeak(this);
    }
    wp(const wp<T>& other) : m_ptr(other.m_ptr), m_refs(other.m_refs) {
        if (m_ptr != nullptr) m_refs->incWeak(this);
    }
    wp(wp<T>&& other) noexcept : m_ptr(other.m_ptr), m_refs(other.m_refs) {
        other.m_ptr = nullptr;
        other.m_refs = nullptr;
    }
    wp(const sp<T>& other) : wp(other.get()) {}  // NOLINT

    template <typename U, typename = std::enable_if_t<std::is_convertible<U*, T*>::value>>
    wp(U* other) : wp(static_cast<T*>(other)) {}  // NOLINT
    template <typename U, typename = std::enable_if_t<std::is_convertible<U*, T*>::value>>
    wp(const sp<U>& other) : wp(static_cast<T*>(other.get())) {}  // NOLINT
    template <typename U, typename = std::enable_if_t<std::is_convertible<U*, T*>::value>>
    wp(const wp<U>& other) : m_ptr(other.m_ptr), m_refs(other.m_refs) {  // NOLINT
        if (m_ptr != nullptr) m_refs->incWeak(this);
    }

    ~wp() {
        if (m_ptr != nullptr) m_refs->decWeak(this);
    }

    wp& operator=(const wp<T>& other) {
        if (other.m_ptr != nullptr) other.m_refs->incWeak(this);
        release();
        m_ptr = other.m_ptr;
        m_refs = other.m_refs;
        return *this;
    }
    wp& operator=(wp<T>&& other) noexcept {
        if (this != &other) {
            release();
            m_ptr = other.m_ptr;
            m_refs = other.m_refs;
            other.m_ptr = nullptr;
            other.m_refs = nullptr;
        }
        return *this;
    }
    wp& operator=(T* other) { return *this = wp<T>(other); }
    wp& operator=(const sp<T>& other) { return *this = wp<T>(other); }
    wp& operator=(std::nullptr_t) {
        clear();
        return *this;
    }
    template <typename U, typename = std::enable_if_t<std::is_convertible<U*, T*>::value>>
    wp& operator=(const sp<U>& other) {
        return *this = wp<T>(other);
    }
    template <typename U, typename = std::enable_if_t<std::is_convertible<U*, T*>::value>>
    wp& operator=(const wp<U>& other) {
        return *this = wp<T>(other);
    }

    // A strong pointer to the object, or an empty one when it has died. Any thread.
    sp<T> promote() const {
        sp<T> result;
        if (m_ptr != nullptr && m_refs->attemptIncStrong(&result)) {
            result.force_set(m_ptr);
        }
        return result;
    }

    // Drops the weak reference.
    void clear() {
        release();
        m_ptr = nullptr;
        m_refs = nullptr;
    }

    // The raw pointer, without any guarantee the object is alive.
    T* unsafe_get() const { return m_ptr; }
    weakref_type* get_refs() const { return m_refs; }

    template <typename U>
    bool operator==(const wp<U>& o) const {
        return m_ptr == o.m_ptr;
    }
    template <typename U>
    bool operator!=(const wp<U>& o) const {
        return m_ptr != o.m_ptr;
    }
    template <typename U>
    bool operator==(const sp<U>& o) const {
        return m_ptr == o.get();
    }
    template <typename U>
    bool operator!=(const sp<U>& o) const {
        return m_ptr != o.get();
    }
    bool operator==(const T* o) const { return m_ptr == o; }
    bool operator!=(const T* o) const { return m_ptr != o; }
    bool operator==(std::nullptr_t) const { return m_ptr == nullptr; }
    bool operator!=(std::nullptr_t) const { return m_ptr != nullptr; }
    template <typename U>
    bool operator<(const wp<U>& o) const {
        return std::less<const void*>()(m_ptr, o.m_ptr);
    }

  private:
    template <typename Y>
    friend class wp;

    void release() {
        if (m_ptr != nullptr) m_refs->decWeak(this);
    }

    T* m_ptr;
    weakref_type* m_refs;
};

}  // namespace android
