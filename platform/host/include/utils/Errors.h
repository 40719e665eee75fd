// Status codes shared by the platform and the library: 0 is success, negative errno-style values
// are failures. The values are those a device build sees, so logs and tests read the same on both.
#pragma once

#include <stdint.h>
#include <sys/types.h>

#include <cerrno>

namespace android {

typedef int32_t status_t;

enum {
    OK = 0,
    NO_ERROR = OK,
    UNKNOWN_ERROR = (-2147483647 - 1),  // INT32_MIN
    NO_MEMORY = -ENOMEM,
    INVALID_OPERATION = -ENOSYS,
    BAD_VALUE = -EINVAL,
    BAD_TYPE = (UNKNOWN_ERROR + 1),
    NAME_NOT_FOUND = -ENOENT,
    PERMISSION_DENIED = -EPERM,
    NO_INIT = -ENODEV,
    ALREADY_EXISTS = -EEXIST,
    DEAD_OBJECT = -EPIPE,
    FAILED_TRANSACTION = (UNKNOWN_ERROR + 2),
    BAD_INDEX = -EOVERFLOW,
    NOT_ENOUGH_DATA = -ENODATA,
    WOULD_BLOCK = -EWOULDBLOCK,
    TIMED_OUT = -ETIMEDOUT,
    UNKNOWN_TRANSACTION = -EBADMSG,
};

}  // namespace android
