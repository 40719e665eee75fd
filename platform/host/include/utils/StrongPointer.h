// sp<T>: the strong pointer of the platform's intrusive reference counting. Works with any type
// that has incStrong(const void*) and decStrong(const void*) (RefBase, LightRefBase).
#pragma once

#include <cstddef>
#include <functional>
#include <type_traits>
#include <utility>

namespace android {

template <typename T>
class wp;

template <typename T>
class sp {
  public:
    sp() : m_ptr(nullptr) {}
    sp(std::nullptr_t) : m_ptr(nullptr) {}  // NOLINT: implicit, as on the platform

    // Takes a strong reference on `other` (nullptr gives an empty pointer).
    sp(T* other) : m_ptr(other) {  // NOLINT
        if (m_ptr != nullptr) m_ptr->incStrong(this);
    }
    sp(const sp<T>& other) : m_ptr(other.m_ptr) {
        if (m_ptr != nullptr) m_ptr->incStrong(this);
    }
    sp(sp<T>&& other) noexcept : m_ptr(other.m_ptr) { other.m_ptr = nullptr; }

    template <typename U, typename = std::enable_if_t<std::is_convertible<U*, T*>::value>>
    sp(U* other) : m_ptr(other) {  // NOLINT
        if (m_ptr != nullptr) m_ptr->incStrong(this);
    }
    template <typename U, typename = std::enable_if_t<std::is_convertible<U*, T*>::value>>
    sp(const sp<U>& other) : m_ptr(other.m_ptr) {  // NOLINT
        if (m_ptr != nullptr) m_ptr->incStrong(this);
    }
    template <typename U, typename = std::enable_if_t<std::is_convertible<U*, T*>::value>>
    sp(sp<U>&& other) noexcept : m_ptr(other.m_ptr) {  // NOLINT
        other.m_ptr = nullptr;
    }

    ~sp() {
        if (m_ptr != nullptr) m_ptr->decStrong(this);
    }

    // Allocates a T with `args` and returns the first strong reference to it.
    template <typename... Args>
    static sp<T> make(Args&&... args) {
        return sp<T>(new T(std::forward<Args>(args)...));
    }

    sp& operator=(const sp<T>& other) {
        T* ptr = other.m_ptr;
        if (ptr != nullptr) ptr->incStrong(this);
        T* old = m_ptr;
        m_ptr = ptr;
        if (old != nullptr) old->decStrong(this);
        return *this;
    }
    sp& operator=(sp<T>&& other) noexcept {
        if (this != &other) {
            T* old = m_ptr;
            m_ptr = other.m_ptr;
            other.m_ptr = nullptr;
            if (old != nullptr) old->decStrong(this);
        }
        return *this;
    }
    sp& operator=(T* other) {
        if (other != nullptr) other->incStrong(this);
        T* old = m_ptr;
        m_ptr = other;
        if (old != nullptr) old->decStrong(this);
        return *this;
    }
    sp& operator=(std::nullptr_t) {
        clear();
        return *this;
    }
    template <typename U, typename = std::enable_if_t<std::is_convertible<U*, T*>::value>>
    sp& operator=(const sp<U>& other) {
        return *this = sp<T>(other);
    }
    template <typename U, typename = std::enable_if_t<std::is_convertible<U*, T*>::value>>
    sp& operator=(sp<U>&& other) {
        return *this = sp<T>(std::move(other));
    }

    // Drops the reference; the object is destroyed when it was the last strong one.
    void clear() {
        T* old = m_ptr;
        m_ptr = nullptr;
        if (old != nullptr) old->decStrong(this);
    }

    T& operator*() const { return *m_ptr; }
    T* operator->() const { return m_ptr; }
    T* get() const { return m_ptr; }

  private:
    template <typename Y>
    friend class sp;
    template <typename Y>
    friend class wp;

    // Adopts a strong reference the caller already took (wp::promote).
    void force_set(T* other) { m_ptr = other; }

    T* m_ptr;
};

// Comparisons by object address, between pointers of related types, raw pointers and nullptr.
template <typename T, typename U>
inline bool operator==(const sp<T>& a, const sp<U>& b) {
    return a.get() == b.get();
}
template <typename T, typename U>
inline bool operator!=(const sp<T>& a, const sp<U>& b) {
    return a.get() != b.get();
}
template <typename T, typename U>
inline bool operator==(const sp<T>& a, const U* b) {
    return a.get() == b;
}
template <typename T, typename U>
inline bool operator!=(const sp<T>& a, const U* b) {
    return a.get() != b;
}
template <typename T, typename U>
inline bool operator==(const T* a, const sp<U>& b) {
    return a == b.get();
}
template <typename T, typename U>
inline bool operator!=(const T* a, const sp<U>& b) {
    return a != b.get();
}
template <typename T>
inline bool operator==(const sp<T>& a, std::nullptr_t) {
    return a.get() == nullptr;
}
template <typename T>
inline bool operator!=(const sp<T>& a, std::nullptr_t) {
    return a.get() != nullptr;
}
template <typename T>
inline bool operator==(std::nullptr_t, const sp<T>& b) {
    return b.get() == nullptr;
}
template <typename T>
inline bool operator!=(std::nullptr_t, const sp<T>& b) {
    return b.get() != nullptr;
}
template <typename T, typename U>
inline bool operator<(const sp<T>& a, const sp<U>& b) {
    return std::less<const void*>()(a.get(), b.get());
}
template <typename T, typename U>
inline bool operator>(const sp<T>& a, const sp<U>& b) {
    return b < a;
}
template <typename T, typename U>
inline bool operator<=(const sp<T>& a, const sp<U>& b) {
    return !(b < a);
}
template <typename T, typename U>
inline bool operator>=(const sp<T>& a, const sp<U>& b) {
    return !(a < b);
}

}  // namespace android
