// AString: the media framework's byte string, used for message values, names and debug text.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <sys/types.h>

#include <string>

namespace android {

class String8;

class AString {
  public:
    AString() = default;
    AString(const char* s);  // NOLINT: implicit, as on the platform; nullptr gives ""
    AString(const char* s, size_t size);
    explicit AString(const String8& from);
    // `n` bytes of `from` starting at `offset` (clamped to its end).
    AString(const AString& from, size_t offset, size_t n);
    AString(const AString&) = default;
    AString(AString&&) noexcept = default;
    AString& operator=(const AString&) = default;
    AString& operator=(AString&&) noexcept = default;

    void setTo(const char* s);  // nullptr gives ""
    void setTo(const char* s, size_t size);
    void setTo(const AString& from, size_t offset, size_t n);

    size_t size() const { return mData.size(); }
    const char* c_str() const { return mData.c_str(); }
    bool empty() const { return mData.empty(); }

    void clear() { mData.clear(); }
    // Removes leading and trailing ASCII white space.
    void trim();
    // Removes `n` bytes at `start` (clamped to the end).
    void erase(size_t start, size_t n);

    void append(char c) { mData.push_back(c); }
    void append(const char* s);  // nullptr appends nothing
    void append(const char* s, size_t size);
    void append(const AString& from);
    void append(const AString& from, size_t offset, size_t n);
    // Decimal text of the value ("%d", "%u", "%ld", ..., "%f" for floating point, "%p").
    void append(int x);
    void append(unsigned x);
    void append(long x);
    void append(unsigned long x);
    void append(long long x);
    void append(unsigned long long x);
    void append(float x);
    void append(double x);
    void append(void* x);

    void insert(const AString& from, size_t insertionPos);
    void insert(const char* from, size_t size, size_t insertionPos);

    // Byte offset of the first `substring` at or after `start`, or -1.
    ssize_t find(const char* substring, size_t start = 0) const;

    size_t hash() const;

    bool operator==(const AString& other) const { return mData == other.mData; }
    bool operator!=(const AString& other) const { return mData != other.mData; }
    bool operator<(const AString& other) const { return mData < other.mData; }
    bool operator>(const AString& other) const { return mData > other.mData; }
    bool operator==(const char* other) const;
    bool operator!=(const char* other) const { return !(*this == other); }

    // <0, 0, >0 as strcmp.
    int compare(const AString& other) const;
    int compareIgnoreCase(const AString& other) const;
    bool equalsIgnoreCase(const AString& other) const;
    bool equalsIgnoreCase(const char* other) const;

    bool startsWith(const char* prefix) const;
    bool endsWith(const char* suffix) const;
    bool startsWithIgnoreCase(const char* prefix) const;
    bool endsWithIgnoreCase(const char* suffix) const;

    // ASCII lower-casing in place.
    void tolower();

    // The byte at `index`; index == size() gives the terminating NUL.
    const char& operator[](size_t index) const { return mData.c_str()[index]; }

  private:
    std::string mData;
};

// printf-style formatting into an AString.
AString AStringPrintf(const char* format, ...) __attribute__((format(printf, 1, 2)));

}  // namespace android
