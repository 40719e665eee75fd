// Host playback feedback client: each call becomes a "feedback" event with its arguments.
#include <tavro/TavroFeedbackInfo.h>

#include <string>

#include <host/HostEvents.h>

#include "HostMessageText.h"

namespace android {

void TavroFeedbackInfo::pushFeedbackInfoAtCodec(int64_t id, bool isVideo, bool isEncoder,
                                                const AString& componentName,
                                                const sp<AMessage>& format) {
    host::HostEvents::record({"feedback",
                              "pushFeedbackInfoAtCodec",
                              nullptr,
                              {{"id", std::to_string(id)},
                               {"isVideo", isVideo ? "1" : "0"},
                               {"isEncoder", isEncoder ? "1" : "0"},
                               {"componentName", componentName.c_str()},
                               {"format", host::messageText(format)}}});
}

void TavroFeedbackInfo::pushFeedbackInfo(int64_t id, const String8& key, const String8& value,
                                         int32_t flag) {
    host::HostEvents::record({"feedback",
                              "pushFeedbackInfo",
                              nullptr,
                              {{"id", std::to_string(id)},
                               {"key", key.c_str()},
                               {"value", value.c_str()},
                               {"flag", std::to_string(flag)}}});
}

void TavroFeedbackInfo::sendFeedbackInfo(int64_t id) {
    host::HostEvents::record(
            {"feedback", "sendFeedbackInfo", nullptr, {{"id", std::to_string(id)}}});
}

void TavroFeedbackInfo::deleteFeedbackId(int64_t id) {
    host::HostEvents::record(
            {"feedback", "deleteFeedbackId", nullptr, {{"id", std::to_string(id)}}});
}

void TavroFeedbackInfo::sendFeedbackHdrPlaybackInfo(int64_t id, int32_t eventId, int32_t hdrType) {
    host::HostEvents::record({"feedback",
                              "sendFeedbackHdrPlaybackInfo",
                              nullptr,
                              {{"id", std::to_string(id)},
                               {"eventId", std::to_string(eventId)},
                               {"hdrType", std::to_string(hdrType)}}});
}

}  // namespace android
