// System properties: a process-wide key/value store read with property_get semantics. On host the
// store starts empty and is filled by tests and tools (host/HostProperties.h).
#pragma once

#include <stdint.h>

#define PROPERTY_KEY_MAX 32
#define PROPERTY_VALUE_MAX 92

extern "C" {
// Copies the value of `key` (or `default_value` when the property is unset or empty) into `value`,
// which must hold PROPERTY_VALUE_MAX bytes, and returns the length copied (0 when neither exists).
int property_get(const char* key, char* value, const char* default_value);

// Integer reads: the whole value must parse (decimal, 0x hex or 0 octal) and fit, else the default.
int32_t property_get_int32(const char* key, int32_t default_value);
int64_t property_get_int64(const char* key, int64_t default_value);

// Boolean read: 1/y/yes/on/true and 0/n/no/off/false, anything else gives the default.
int8_t property_get_bool(const char* key, int8_t default_value);

// Sets a property; values longer than PROPERTY_VALUE_MAX - 1 are refused with -1.
int property_set(const char* key, const char* value);
}
