// The system property area as bionic provides it on a device: libcutils' property_get family
// (cutils/properties.h, from Debian's android-libcutils-dev) reads and writes through these
// calls. On host the area is an in-memory store filled by tests and tools (host/HostProperties.h).
#pragma once

#include <stdint.h>

#define PROP_NAME_MAX 32
#define PROP_VALUE_MAX 92  // bytes, with the terminating NUL

#ifdef __cplusplus
extern "C" {
#endif

// Copies the value of `name` (cut to PROP_VALUE_MAX - 1 bytes) into `value`, which must hold
// PROP_VALUE_MAX bytes, and returns its length; an unset property gives "" and 0.
int __system_property_get(const char* name, char* value);
// Sets a property: 0, or -1 for a null or empty name or a value of PROP_VALUE_MAX bytes or more.
int __system_property_set(const char* name, const char* value);
// Changes whenever any property changes, so hot readers can cache a parsed value and re-read only
// when it moves.
uint32_t __system_property_area_serial(void);

#ifdef __cplusplus
}
#endif
