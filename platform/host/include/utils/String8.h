// String8: the platform's UTF-8 string, NUL-terminated, with printf-style formatting.
#pragma once

#include <stdarg.h>
#include <stddef.h>
#include <sys/types.h>

#include <string>

#include <utils/Errors.h>

namespace android {

class String8 {
  public:
    String8() = default;
    // A null pointer gives the empty string.
    String8(const char* o);  // NOLINT: implicit, as on the platform
    // The first `numChars` bytes of `o` (nullptr gives the empty string).
    String8(const char* o, size_t numChars);
    explicit String8(const std::string& o);
    String8(const String8& o) = default;
    String8(String8&& o) noexcept = default;
    String8& operator=(const String8& o) = default;
    String8& operator=(String8&& o) noexcept = default;
    String8& operator=(const char* o);

    // A string made from the printf-style `fmt`.
    static String8 format(const char* fmt, ...) __attribute__((format(printf, 1, 2)));
    static String8 formatV(const char* fmt, va_list args);

    const char* c_str() const { return mString.c_str(); }
    const char* string() const { return mString.c_str(); }
    std::string toStdString() const { return mString; }
    size_t size() const { return mString.size(); }
    size_t length() const { return mString.size(); }
    size_t bytes() const { return mString.size(); }
    bool isEmpty() const { return mString.empty(); }

    void clear() { mString.clear(); }
    status_t setTo(const String8& other);
    status_t setTo(const char* other);  // nullptr gives the empty string
    status_t setTo(const char* other, size_t numChars);

    status_t append(const String8& other);
    status_t append(const char* other);  // nullptr appends nothing
    status_t append(const char* other, size_t numChars);
    // Appends printf-style text; BAD_VALUE for a null or unusable format.
    status_t appendFormat(const char* fmt, ...) __attribute__((format(printf, 2, 3)));
    status_t appendFormatV(const char* fmt, va_list args);

    String8& operator+=(const String8& other);
    String8& operator+=(const char* other);
    String8 operator+(const String8& other) const;
    String8 operator+(const char* other) const;

    // Byte offset of the first `other` at or after `start`, or -1.
    ssize_t find(const char* other, size_t start = 0) const;
    bool contains(const char* other) const;
    // ASCII lower-casing in place.
    void toLower();

    int compare(const String8& other) const { return mString.compare(other.mString); }
    bool operator==(const String8& other) const { return mString == other.mString; }
    bool operator!=(const String8& other) const { return mString != other.mString; }
    bool operator<(const String8& other) const { return mString < other.mString; }
    bool operator<=(const String8& other) const { return mString <= other.mString; }
    bool operator>(const String8& other) const { return mString > other.mString; }
    bool operator>=(const String8& other) const { return mString >= other.mString; }
    bool operator==(const char* other) const;
    bool operator!=(const char* other) const { return !(*this == other); }

  private:
    std::string mString;
};

}  // namespace android
