#define LOG_TAG "TavroNumber"
#include "common/TavroNumber.h"

#include <cerrno>
#include <climits>
#include <cstdlib>

namespace android {

int32_t tavroAtoi(const char* text) {
    return tavroStrtol32(text, 10);
}

int32_t tavroStrtol32(const char* text, int base) {
    if (text == nullptr) return 0;
    long long v = strtoll(text, nullptr, base);
    // Narrowing keeps the low 32 bits, as a 64-bit C library's (int)strtol does.
    return static_cast<int32_t>(static_cast<uint32_t>(static_cast<unsigned long long>(v)));
}

bool tavroParseInt32(const char* text, int32_t* out) {
    if (text == nullptr || out == nullptr) return false;
    errno = 0;
    char* end = nullptr;
    long long v = strtoll(text, &end, 10);
    if (end == text || errno == ERANGE || v < INT32_MIN || v > INT32_MAX) return false;
    *out = static_cast<int32_t>(v);
    return true;
}

int32_t tavroFloatToInt32(float value) {
    if (value != value) return 0;
    if (value >= 2147483648.0f) return INT32_MAX;
    if (value <= -2147483648.0f) return INT32_MIN;
    return static_cast<int32_t>(value);
}

double tavroAtof(const char* text) {
    if (text == nullptr) return 0.0;
    return strtod(text, nullptr);
}

}  // namespace android
