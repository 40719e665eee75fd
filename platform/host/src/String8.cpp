// String8 on std::string.
#include <utils/String8.h>

#include <stdio.h>

#include <cctype>
#include <cstring>

namespace android {
namespace {

// Appends printf-style text to `out`; false (out unchanged) when the format cannot be used.
bool appendV(std::string* out, const char* fmt, va_list args) {
    if (fmt == nullptr) return false;
    va_list copy;
    va_copy(copy, args);
    int n = vsnprintf(nullptr, 0, fmt, copy);
    va_end(copy);
    if (n < 0) return false;
    size_t old = out->size();
    out->resize(old + static_cast<size_t>(n) + 1);
    vsnprintf(&(*out)[old], static_cast<size_t>(n) + 1, fmt, args);
    out->resize(old + static_cast<size_t>(n));
    return true;
}

}  // namespace

String8::String8(const char* o) : mString(o != nullptr ? o : "") {}

String8::String8(const char* o, size_t numChars) {
    if (o != nullptr) mString.assign(o, strnlen(o, numChars));
}

String8::String8(const std::string& o) : mString(o) {}

String8& String8::operator=(const char* o) {
    setTo(o);
    return *this;
}

String8 String8::format(const char* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    String8 result = formatV(fmt, args);
    va_end(args);
    return result;
}

String8 String8::formatV(const char* fmt, va_list args) {
    String8 result;
    result.appendFormatV(fmt, args);
    return result;
}

status_t String8::setTo(const String8& other) {
    mString = other.mString;
    return OK;
}

status_t String8::setTo(const char* other) {
    mString.assign(other != nullptr ? other : "");
    return OK;
}

status_t String8::setTo(const char* other, size_t numChars) {
    mString.clear();
    if (other != nullptr) mString.assign(other, strnlen(other, numChars));
    return OK;
}

status_t String8::append(const String8& other) {
    mString += other.mString;
    return OK;
}

status_t String8::append(const char* other) {
    if (other != nullptr) mString += other;
    return OK;
}

status_t String8::append(const char* other, size_t numChars) {
    if (other != nullptr) mString.append(other, strnlen(other, numChars));
    return OK;
}

status_t String8::appendFormat(const char* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    status_t result = appendFormatV(fmt, args);
    va_end(args);
    return result;
}

status_t String8::appendFormatV(const char* fmt, va_list args) {
    return appendV(&mString, fmt, args) ? OK : BAD_VALUE;
}

String8& String8::operator+=(const String8& other) {
    mString += other.mString;
    return *this;
}

String8& String8::operator+=(const char* other) {
    append(other);
    return *this;
}

String8 String8::operator+(const String8& other) const {
    String8 result(*this);
    result += other;
    return result;
}

String8 String8::operator+(const char* other) const {
    String8 result(*this);
    result += other;
    return result;
}

ssize_t String8::find(const char* other, size_t start) const {
    if (other == nullptr || start > mString.size()) return -1;
    size_t pos = mString.find(other, start);
    return pos == std::string::npos ? -1 : static_cast<ssize_t>(pos);
}

bool String8::contains(const char* other) const {
    return find(other) >= 0;
}

void String8::toLower() {
    for (char& c : mString) c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
}

bool String8::operator==(const char* other) const {
    return other != nullptr ? mString == other : mString.empty();
}

}  // namespace android
