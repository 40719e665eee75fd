// Test support for the buffer channel: a rig that owns one TavroCCodecBufferChannel with
// recording callbacks on a manual clock, and a generator of playback clips (content frame rate,
// playback speed, drops, flushes) that plays them into the channel's render path and
// reports which vendor parameters were written at which frame.
#pragma once

#include <stdint.h>
#include <string.h>

#include <functional>
#include <list>
#include <memory>
#include <string>
#include <vector>

#include <codec2/sfplugin/CCodecBufferChannel.h>
#include <codec2/sfplugin/TavroCCodecCallback.h>
#include <cutils/properties.h>
#include <host/HostClock.h>
#include <host/HostEvents.h>
#include <host/HostLog.h>
#include <host/HostProperties.h>
#include <media/MediaCodecBuffer.h>
#include <media/stagefright/foundation/ABuffer.h>
#include <media/stagefright/foundation/AMessage.h>
#include <tavro/TavroAnalysisFPS.h>

#include "common/TavroLog.h"
#include "sfplugin/TavroCCodecBufferChannel.h"
#include "support/CodecTestHarness.h"

namespace android {
namespace test {

class RecordingCodecCallback : public CCodecCallback {
  public:
    void onError(status_t, enum ActionCode) override {}
    void onOutputFramesRendered(int64_t, nsecs_t) override {}
    void onOutputBuffersChanged() override {}
    void onFirstTunnelFrameReady() override {}
};

class RecordingTavroCallback : public TavroCCodecCallback {
  public:
    void onQueueInputBuffer() override { ++queued; }
    void onWorkDone(const sp<AMessage>& outputFormat) override {
        ++worksDone;
        lastOutputFormat = outputFormat;
    }
    void renderOutputBuffer(const sp<MediaCodecBuffer>&, int64_t timestampNs) override {
        renderTimestamps.push_back(timestampNs);
    }

    int queued = 0;
    int worksDone = 0;
    sp<AMessage> lastOutputFormat;
    std::vector<int64_t> renderTimestamps;
};

// One decoded 12-byte vendor record as written: index and the 32-bit value.
struct VendorRecord {
    uint32_t size = 0;
    uint32_t index = 0;
    uint32_t value = 0;
    float asFloat() const {
        float f;
        memcpy(&f, &value, sizeof(f));
        return f;
    }
};

inline uint32_t readLe32(const std::vector<uint8_t>& bytes, size_t offset) {
    return static_cast<uint32_t>(bytes[offset]) | (static_cast<uint32_t>(bytes[offset + 1]) << 8) |
           (static_cast<uint32_t>(bytes[offset + 2]) << 16) |
           (static_cast<uint32_t>(bytes[offset + 3]) << 24);
}

// Blank host world and one channel on a manual clock with fast-forward tracking off.
class ChannelRig {
  public:
    ChannelRig() {
        host::HostProperties::clear();
        host::HostLog::clear();
        host::HostEvents::clear();
        host::HostClock::useManual();
        baseCallback = std::make_shared<RecordingCodecCallback>();
        tavroCallback = std::make_shared<RecordingTavroCallback>();
        analysis = new TavroAnalysisFPS();
        channel = std::make_shared<TavroCCodecBufferChannel>(baseCallback, tavroCallback, analysis);
    }
    ~ChannelRig() { host::HostClock::useReal(); }

    static void setLogLevel(const char* level) {
        host::HostProperties::set(kTavroLogLevelProperty, level);
    }

    // Every setParameters call so far, each as its list of records (size, index, value).
    std::vector<std::vector<VendorRecord>> writes() const {
        std::vector<std::vector<VendorRecord>> out;
        for (const auto& call : channel->writtenParamsForTesting()) {
            std::vector<VendorRecord> records;
            for (const auto& bytes : call) {
                VendorRecord r;
                if (bytes.size() >= 4) r.size = readLe32(bytes, 0);
                if (bytes.size() >= 8) r.index = readLe32(bytes, 4);
                if (bytes.size() >= 12) r.value = readLe32(bytes, 8);
                records.push_back(r);
            }
            out.push_back(records);
        }
        return out;
    }

    std::vector<host::HostEvent> analysisEvents(const std::string& name) const {
        std::vector<host::HostEvent> out;
        for (const host::HostEvent& e : host::HostEvents::named("analysis", name)) {
            if (e.source == analysis.get()) out.push_back(e);
        }
        return out;
    }

    std::shared_ptr<RecordingCodecCallback> baseCallback;
    std::shared_ptr<RecordingTavroCallback> tavroCallback;
    sp<TavroAnalysisFPS> analysis;
    std::shared_ptr<TavroCCodecBufferChannel> channel;
};

// A playback clip: frames rendered or dropped at a content rate and a playback speed, plus
// flushes. Between two frames the clock (and the display time) moves by the content
// interval divided by the speed, as a player showing every frame at that speed does.
struct ClipEvent {
    enum Kind { kRender, kDiscard, kFlush };
    Kind kind = kRender;
    int64_t ptsUs = 0;
    int64_t renderNs = 0;
    int64_t clockStepNs = 0;  // clock advance before the event
};

class ClipGenerator {
  public:
    explicit ClipGenerator(int64_t startPtsUs = 0, int64_t startRenderNs = 5'000'000'000)
        : mPtsUs(static_cast<double>(startPtsUs)), mRenderNs(static_cast<double>(startRenderNs)) {}

    // `frames` frames at `fps` content rate played at `speed`; every `dropEvery`-th frame of the
    // segment (1-based; 0 = none) is discarded instead of rendered.
    ClipGenerator& play(int frames, double fps, double speed, int dropEvery = 0) {
        const double ptsStepUs = 1e6 / fps;
        const double displayStepUs = ptsStepUs / speed;
        for (int i = 0; i < frames; ++i) {
            ClipEvent e;
            if (mHasFrame) {
                // The interval after the previous frame lasts that frame's content duration.
                const double displayStepNs = displayStepUs * 1000.0 * (mLastPtsStepUs / ptsStepUs);
                mPtsUs += mLastPtsStepUs;
                mRenderNs += displayStepNs;
                e.clockStepNs = static_cast<int64_t>(displayStepNs);
            }
            mHasFrame = true;
            mLastPtsStepUs = ptsStepUs;
            e.kind = (dropEvery > 0 && (i + 1) % dropEvery == 0) ? ClipEvent::kDiscard
                                                                 : ClipEvent::kRender;
            e.ptsUs = static_cast<int64_t>(mPtsUs);
            e.renderNs = static_cast<int64_t>(mRenderNs);
            mEvents.push_back(e);
        }
        return *this;
    }
    ClipGenerator& flush() {
        ClipEvent e;
        e.kind = ClipEvent::kFlush;
        mEvents.push_back(e);
        return *this;
    }
    const std::vector<ClipEvent>& events() const { return mEvents; }

  private:
    std::vector<ClipEvent> mEvents;
    double mPtsUs;
    double mRenderNs;
    double mLastPtsStepUs = 0;
    bool mHasFrame = false;
};

// A setParameters call seen while playing: the clip event (0-based) it followed and its records.
struct ClipWrite {
    size_t event = 0;
    std::vector<VendorRecord> records;
};

// Plays `clip` into the rig's render and discard paths and returns the writes it caused.
// `beforeEvent`, when given, runs before each event with its index (to change the platform's
// answers mid-clip).
inline std::vector<ClipWrite> playClip(ChannelRig& rig, const ClipGenerator& clip,
                                       const std::function<void(size_t)>& beforeEvent = {}) {
    std::vector<ClipWrite> out;
    const std::list<std::unique_ptr<C2Work>> noWork;
    const auto& events = clip.events();
    for (size_t i = 0; i < events.size(); ++i) {
        const ClipEvent& e = events[i];
        if (beforeEvent) beforeEvent(i);
        if (e.clockStepNs > 0) host::HostClock::advance(e.clockStepNs);
        const size_t before = rig.channel->countersForTesting().setParameters;
        switch (e.kind) {
            case ClipEvent::kRender:
                rig.channel->renderOutputBuffer(makeFrame(e.ptsUs), e.renderNs);
                break;
            case ClipEvent::kDiscard:
                rig.channel->discardBuffer(makeFrame(e.ptsUs));
                break;
            case ClipEvent::kFlush:
                rig.channel->flush(noWork);
                break;
        }
        const auto all = rig.writes();
        for (size_t w = before; w < all.size(); ++w) out.push_back({i, all[w]});
    }
    return out;
}

}  // namespace test
}  // namespace android
