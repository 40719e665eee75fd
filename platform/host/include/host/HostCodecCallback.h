// Host-only client callback for a codec: stands in for MediaCodec and records every report the
// codec makes as a "callback" event (host/HostEvents.h) with its arguments, so tests and the
// scenario runner see what reached the client. Install it with CodecBase::setCallback.
#pragma once

#include <list>
#include <string>
#include <vector>

#include <host/HostEvents.h>
#include <media/stagefright/CodecBase.h>

namespace android {
namespace host {

// Events, named after the operation, with these fields:
//   onError: "err", "actionCode"; onComponentAllocated: "componentName";
//   onComponentConfigured: "inputFormat", "outputFormat" ("{key=value, ...}");
//   onOutputFramesRendered: "mediaTimeUs" and "renderTimeNs" for each frame, in order;
//   onDisableVideoShaper: "disable" ("1" or "0"); the others have no fields.
// Any thread; the event's source is this callback.
class RecordingCodecCallback : public CodecBase::CodecCallback {
  public:
    void onError(status_t err, enum ActionCode actionCode) override;
    void onComponentAllocated(const char* componentName) override;
    void onComponentConfigured(const sp<AMessage>& inputFormat,
                               const sp<AMessage>& outputFormat) override;
    void onStartCompleted() override;
    void onStopCompleted() override;
    void onReleaseCompleted() override;
    void onFlushCompleted() override;
    void onOutputFramesRendered(const std::list<RenderedFrameInfo>& done) override;
    void onOutputBuffersChanged() override;
    void onFirstTunnelFrameReady() override;
    void onDisableVideoShaper(bool disable) override;

    // The events this callback recorded, in order (those still in HostEvents).
    std::vector<HostEvent> eventsForTesting() const;
    // Their names, in order.
    std::vector<std::string> namesForTesting() const;

  private:
    void record(const char* name, std::vector<std::pair<std::string, std::string>> fields = {});
};

}  // namespace host
}  // namespace android
