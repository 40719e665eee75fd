// The maker's statistics atoms. On host each write is a "stat" event.
#pragma once

#include <stdint.h>

namespace android {
namespace TavroFramework {

// Writes one atom: the atom id, then its fields. Returns the bytes written (host: 0).
int stats_write(int32_t atomId, const char* timeMs, int64_t uid, const char* componentName,
                int32_t err);

}  // namespace TavroFramework
}  // namespace android
