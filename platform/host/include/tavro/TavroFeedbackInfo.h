// The maker's playback feedback service client: per-codec feedback records, keyed by a feedback
// id, filled with items and sent at the end of playback. Closed on a device; on host each call is
// a "feedback" event (host/HostEvents.h).
#pragma once

#include <stdint.h>

#include <media/stagefright/foundation/AMessage.h>
#include <media/stagefright/foundation/AString.h>
#include <utils/RefBase.h>
#include <utils/String8.h>

namespace android {

class TavroFeedbackInfo {
  public:
    // Registers a codec's feedback record with its configure format.
    static void pushFeedbackInfoAtCodec(int64_t id, bool isVideo, bool isEncoder,
                                        const AString& componentName, const sp<AMessage>& format);
    // Adds one item ("timeUsage", "inPutCount", ...) to the record `id`.
    static void pushFeedbackInfo(int64_t id, const String8& key, const String8& value,
                                 int32_t flag);
    // Sends the record `id` to the feedback service.
    static void sendFeedbackInfo(int64_t id);
    static void deleteFeedbackId(int64_t id);
    // Reports the HDR kind played (event 21004).
    static void sendFeedbackHdrPlaybackInfo(int64_t id, int32_t eventId, int32_t hdrType);
};

}  // namespace android
