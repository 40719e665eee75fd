// The maker's event upload client (a process-wide singleton): named on/off events and the top
// activity tracker. Closed on a device; on host each call is a "pelto" event.
#pragma once

#include <stdint.h>

#include <mutex>

#include <utils/String8.h>

namespace android {

class PeltoEventUploadUtils {
  public:
    static PeltoEventUploadUtils* getInstance();

    // Refreshes the top-activity tracker, at most every `intervalMs`.
    void updateTopActivity(int32_t intervalMs);
    void setEvent(const String8& name, const String8& value);

  private:
    PeltoEventUploadUtils() = default;
    static std::mutex sLock;
    static PeltoEventUploadUtils* sInstance;
};

}  // namespace android
