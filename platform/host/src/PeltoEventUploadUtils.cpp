// Host event upload client: each call becomes a "pelto" event.
#include <tavro/PeltoEventUploadUtils.h>

#include <string>

#include <host/HostEvents.h>

namespace android {

std::mutex PeltoEventUploadUtils::sLock;
PeltoEventUploadUtils* PeltoEventUploadUtils::sInstance = nullptr;

PeltoEventUploadUtils* PeltoEventUploadUtils::getInstance() {
    std::lock_guard<std::mutex> guard(sLock);
    // Process-wide and never destroyed, like the device client.
    if (sInstance == nullptr) sInstance = new PeltoEventUploadUtils();
    return sInstance;
}

void PeltoEventUploadUtils::updateTopActivity(int32_t intervalMs) {
    host::HostEvents::record(
            {"pelto", "updateTopActivity", this, {{"intervalMs", std::to_string(intervalMs)}}});
}

void PeltoEventUploadUtils::setEvent(const String8& name, const String8& value) {
    host::HostEvents::record(
            {"pelto", "setEvent", this, {{"name", name.c_str()}, {"value", value.c_str()}}});
}

}  // namespace android
