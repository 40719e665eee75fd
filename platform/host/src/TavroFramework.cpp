// Host statistics atoms: each write becomes a "stat" event.
#include <tavro/TavroFramework.h>

#include <string>

#include <host/HostEvents.h>

namespace android {
namespace TavroFramework {

int stats_write(int32_t atomId, const char* timeMs, int64_t uid, const char* componentName,
                int32_t err) {
    host::HostEvents::record({"stat",
                              "stats_write",
                              nullptr,
                              {{"atomId", std::to_string(atomId)},
                               {"timeMs", timeMs != nullptr ? timeMs : ""},
                               {"uid", std::to_string(uid)},
                               {"componentName", componentName != nullptr ? componentName : ""},
                               {"err", std::to_string(err)}}});
    return 0;
}

}  // namespace TavroFramework
}  // namespace android
