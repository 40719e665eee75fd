// Recording client callback: every codec report becomes a "callback" event.
#include <host/HostCodecCallback.h>

#include <utility>

#include "HostMessageText.h"

namespace android {
namespace host {

void RecordingCodecCallback::record(const char* name,
                                    std::vector<std::pair<std::string, std::string>> fields) {
    HostEvents::record({"callback", name, this, std::move(fields)});
}

void RecordingCodecCallback::onError(status_t err, enum ActionCode actionCode) {
    record("onError", {{"err", std::to_string(err)}, {"actionCode", std::to_string(actionCode)}});
}

void RecordingCodecCallback::onComponentAllocated(const char* componentName) {
    record("onComponentAllocated", {{"componentName", componentName ? componentName : ""}});
}

void RecordingCodecCallback::onComponentConfigured(const sp<AMessage>& inputFormat,
                                                   const sp<AMessage>& outputFormat) {
    record("onComponentConfigured", {{"inputFormat", messageText(inputFormat)},
                                     {"outputFormat", messageText(outputFormat)}});
}

void RecordingCodecCallback::onStartCompleted() {
    record("onStartCompleted");
}

void RecordingCodecCallback::onStopCompleted() {
    record("onStopCompleted");
}

void RecordingCodecCallback::onReleaseCompleted() {
    record("onReleaseCompleted");
}

void RecordingCodecCallback::onFlushCompleted() {
    record("onFlushCompleted");
}

void RecordingCodecCallback::onOutputFramesRendered(const std::list<RenderedFrameInfo>& done) {
    std::vector<std::pair<std::string, std::string>> fields;
    for (const RenderedFrameInfo& frame : done) {
        fields.emplace_back("mediaTimeUs", std::to_string(frame.getMediaTimeUs()));
        fields.emplace_back("renderTimeNs", std::to_string(frame.getRenderTimeNs()));
    }
    record("onOutputFramesRendered", std::move(fields));
}

void RecordingCodecCallback::onOutputBuffersChanged() {
    record("onOutputBuffersChanged");
}

void RecordingCodecCallback::onFirstTunnelFrameReady() {
    record("onFirstTunnelFrameReady");
}

void RecordingCodecCallback::onDisableVideoShaper(bool disable) {
    record("onDisableVideoShaper", {{"disable", disable ? "1" : "0"}});
}

std::vector<HostEvent> RecordingCodecCallback::eventsForTesting() const {
    std::vector<HostEvent> mine;
    for (HostEvent& e : HostEvents::ofKind("callback")) {
        if (e.source == this) mine.push_back(std::move(e));
    }
    return mine;
}

std::vector<std::string> RecordingCodecCallback::namesForTesting() const {
    std::vector<std::string> names;
    for (const HostEvent& e : eventsForTesting()) names.push_back(e.name);
    return names;
}

}  // namespace host
}  // namespace android
