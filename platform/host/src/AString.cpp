// AString on std::string.
#include <media/stagefright/foundation/AString.h>

#include <stdarg.h>
#include <stdio.h>
#include <strings.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <functional>

#include <utils/String8.h>

namespace android {
namespace {

template <typename T>
void appendFormatted(std::string* out, const char* fmt, T value) {
    char buf[64];
    int n = snprintf(buf, sizeof(buf), fmt, value);
    if (n > 0) out->append(buf, std::min(static_cast<size_t>(n), sizeof(buf) - 1));
}

int lowerOf(char c) {
    return tolower(static_cast<unsigned char>(c));
}

}  // namespace

AString::AString(const char* s) : mData(s != nullptr ? s : "") {}

AString::AString(const char* s, size_t size) {
    if (s != nullptr) mData.assign(s, size);
}

AString::AString(const String8& from) : mData(from.c_str(), from.size()) {}

AString::AString(const AString& from, size_t offset, size_t n) {
    setTo(from, offset, n);
}

void AString::setTo(const char* s) {
    mData.assign(s != nullptr ? s : "");
}

void AString::setTo(const char* s, size_t size) {
    if (s == nullptr) {
        mData.clear();
    } else {
        mData.assign(s, size);
    }
}

void AString::setTo(const AString& from, size_t offset, size_t n) {
    if (&from == this) {
        AString copy(from);
        setTo(copy, offset, n);
        return;
    }
    offset = std::min(offset, from.size());
    mData.assign(from.mData, offset, n);
}

void AString::trim() {
    size_t begin = 0;
    while (begin < mData.size() && isspace(static_cast<unsigned char>(mData[begin]))) ++begin;
    size_t end = mData.size();
    while (end > begin && isspace(static_cast<unsigned char>(mData[end - 1]))) --end;
    mData = mData.substr(begin, end - begin);
}

void AString::erase(size_t start, size_t n) {
    if (start >= mData.size()) return;
    mData.erase(start, n);
}

void AString::append(const char* s) {
    if (s != nullptr) mData.append(s);
}

void AString::append(const char* s, size_t size) {
    if (s != nullptr) mData.append(s, size);
}

void AString::append(const AString& from) {
    mData.append(from.mData);
}

void AString::append(const AString& from, size_t offset, size_t n) {
    if (offset >= from.size()) return;
    mData.append(from.mData, offset, n);
}

void AString::append(int x) {
    appendFormatted(&mData, "%d", x);
}
void AString::append(unsigned x) {
    appendFormatted(&mData, "%u", x);
}
void AString::append(long x) {
    appendFormatted(&mData, "%ld", x);
}
void AString::append(unsigned long x) {
    appendFormatted(&mData, "%lu", x);
}
void AString::append(long long x) {
    appendFormatted(&mData, "%lld", x);
}
void AString::append(unsigned long long x) {
    appendFormatted(&mData, "%llu", x);
}
void AString::append(float x) {
    appendFormatted(&mData, "%f", static_cast<double>(x));
}
void AString::append(double x) {
    appendFormatted(&mData, "%f", x);
}
void AString::append(void* x) {
    appendFormatted(&mData, "%p", x);
}

void AString::insert(const AString& from, size_t insertionPos) {
    insert(from.c_str(), from.size(), insertionPos);
}

void AString::insert(const char* from, size_t size, size_t insertionPos) {
    if (from == nullptr) return;
    insertionPos = std::min(insertionPos, mData.size());
    mData.insert(insertionPos, from, size);
}

ssize_t AString::find(const char* substring, size_t start) const {
    if (substring == nullptr || start > mData.size()) return -1;
    size_t pos = mData.find(substring, start);
    return pos == std::string::npos ? -1 : static_cast<ssize_t>(pos);
}

size_t AString::hash() const {
    return std::hash<std::string>()(mData);
}

bool AString::operator==(const char* other) const {
    return other != nullptr ? mData == other : mData.empty();
}

int AString::compare(const AString& other) const {
    return strcmp(c_str(), other.c_str());
}

int AString::compareIgnoreCase(const AString& other) const {
    return strcasecmp(c_str(), other.c_str());
}

bool AString::equalsIgnoreCase(const AString& other) const {
    return mData.size() == other.mData.size() && compareIgnoreCase(other) == 0;
}

bool AString::equalsIgnoreCase(const char* other) const {
    return other != nullptr && strcasecmp(c_str(), other) == 0 && strlen(other) == mData.size();
}

bool AString::startsWith(const char* prefix) const {
    if (prefix == nullptr) return false;
    size_t n = strlen(prefix);
    return n <= mData.size() && mData.compare(0, n, prefix) == 0;
}

bool AString::endsWith(const char* suffix) const {
    if (suffix == nullptr) return false;
    size_t n = strlen(suffix);
    return n <= mData.size() && mData.compare(mData.size() - n, n, suffix) == 0;
}

bool AString::startsWithIgnoreCase(const char* prefix) const {
    if (prefix == nullptr) return false;
    size_t n = strlen(prefix);
    return n <= mData.size() && strncasecmp(mData.c_str(), prefix, n) == 0;
}

bool AString::endsWithIgnoreCase(const char* suffix) const {
    if (suffix == nullptr) return false;
    size_t n = strlen(suffix);
    return n <= mData.size() && strncasecmp(mData.c_str() + mData.size() - n, suffix, n) == 0;
}

void AString::tolower() {
    for (char& c : mData) c = static_cast<char>(lowerOf(c));
}

AString AStringPrintf(const char* format, ...) {
    if (format == nullptr) return AString();
    va_list ap;
    va_start(ap, format);
    va_list copy;
    va_copy(copy, ap);
    int n = vsnprintf(nullptr, 0, format, copy);
    va_end(copy);
    AString result;
    if (n > 0) {
        std::string buf(static_cast<size_t>(n) + 1, '\0');
        vsnprintf(&buf[0], buf.size(), format, ap);
        result.setTo(buf.c_str(), static_cast<size_t>(n));
    }
    va_end(ap);
    return result;
}

}  // namespace android
