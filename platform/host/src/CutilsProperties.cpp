// libcutils' property calls, which Debian's host build of libcutils leaves out, on the bionic
// property area (sys/system_properties.h), as a device's libcutils builds them. Their contract is
// the one cutils/properties.h documents.
#include <cutils/properties.h>

#include <errno.h>
#include <inttypes.h>
#include <stdint.h>
#include <string.h>

#include <initializer_list>

namespace {

// A value read as strtoimax does with the base from its prefix: leading blanks and any text after
// the digits are ignored; no digits, overflow or a value outside [lower, upper] give the default.
intmax_t readInteger(const char* key, intmax_t lower, intmax_t upper, intmax_t defaultValue) {
    char buf[PROPERTY_VALUE_MAX] = {};
    if (key == nullptr || property_get(key, buf, "") <= 0) return defaultValue;
    const int savedErrno = errno;
    errno = 0;
    char* end = nullptr;
    const intmax_t value = strtoimax(buf, &end, 0);
    const bool usable = errno != ERANGE && end != buf && value >= lower && value <= upper;
    errno = savedErrno;
    return usable ? value : defaultValue;
}

}  // namespace

extern "C" int property_get(const char* key, char* value, const char* default_value) {
    const int len = __system_property_get(key, value);
    if (len > 0 || default_value == nullptr) return len;
    const size_t n = strnlen(default_value, PROPERTY_VALUE_MAX - 1);
    memcpy(value, default_value, n);
    value[n] = '\0';
    return static_cast<int>(n);
}

extern "C" int8_t property_get_bool(const char* key, int8_t default_value) {
    char buf[PROPERTY_VALUE_MAX] = {};
    if (key == nullptr || property_get(key, buf, "") <= 0) return default_value;
    for (const char* yes : {"1", "true", "y", "yes", "on"}) {
        if (strcmp(buf, yes) == 0) return 1;
    }
    for (const char* no : {"0", "false", "n", "no", "off"}) {
        if (strcmp(buf, no) == 0) return 0;
    }
    return default_value;
}

extern "C" int64_t property_get_int64(const char* key, int64_t default_value) {
    return readInteger(key, INT64_MIN, INT64_MAX, default_value);
}

extern "C" int32_t property_get_int32(const char* key, int32_t default_value) {
    return static_cast<int32_t>(readInteger(key, INT32_MIN, INT32_MAX, default_value));
}

extern "C" int property_set(const char* key, const char* value) {
    return __system_property_set(key, value);
}
