// Host frame-rate analysis object. Per-frame calls only move atomic counters (no allocation, no
// event); every other call becomes an "analysis" event with its arguments, so tests and the
// scenario runner see what the codec reported.
#include <tavro/TavroAnalysisFPS.h>

#include <string>
#include <utility>

#include <host/HostEvents.h>

#include "HostMessageText.h"

namespace android {
namespace {

struct LastCreated {
    std::mutex lock;
    wp<TavroAnalysisFPS> object;  // guarded by lock
};

// Never destroyed: analysis objects may be built and torn down during process exit.
LastCreated& lastCreated() {
    static LastCreated* s = new LastCreated();
    return *s;
}

}  // namespace

TavroAnalysisFPS::TavroAnalysisFPS() = default;

void TavroAnalysisFPS::onFirstRef() {
    LastCreated& last = lastCreated();
    std::lock_guard<std::mutex> guard(last.lock);
    last.object = this;
}

TavroAnalysisFPS::~TavroAnalysisFPS() = default;

sp<TavroAnalysisFPS> TavroAnalysisFPS::lastCreatedForTesting() {
    LastCreated& last = lastCreated();
    std::lock_guard<std::mutex> guard(last.lock);
    return last.object.promote();
}

void TavroAnalysisFPS::event(const char* name, const char* key, const std::string& value) {
    host::HostEvent e{"analysis", name, this, {}};
    if (key != nullptr) e.fields.emplace_back(key, value);
    host::HostEvents::record(std::move(e));
}

status_t TavroAnalysisFPS::updateParameters(const sp<AMessage>& msg) {
    if (msg == nullptr) return BAD_VALUE;
    host::HostEvents::record({"analysis", "updateParameters", this, host::messageFields(msg)});
    return OK;
}

void TavroAnalysisFPS::statsBufferSize(int64_t bytes) {
    mBytes.fetch_add(bytes, std::memory_order_relaxed);
}

void TavroAnalysisFPS::inputBuffer(const sp<MediaCodecBuffer>& /*buffer*/) {
    mInput.fetch_add(1, std::memory_order_relaxed);
}

void TavroAnalysisFPS::renderBuffer(int64_t /*timestampNs*/) {
    mRendered.fetch_add(1, std::memory_order_relaxed);
}

void TavroAnalysisFPS::reportFirstFrameTime(int64_t timeNs) {
    event("reportFirstFrameTime", "timeNs", std::to_string(timeNs));
}

void TavroAnalysisFPS::discardBuffer() {
    mDiscarded.fetch_add(1, std::memory_order_relaxed);
}

void TavroAnalysisFPS::outputBuffer() {
    mOutput.fetch_add(1, std::memory_order_relaxed);
}

void TavroAnalysisFPS::setDataCorruptState(const String8& state) {
    event("setDataCorruptState", "state", state.c_str());
}

void TavroAnalysisFPS::setVppStutter(const String8& info) {
    event("setVppStutter", "info", info.c_str());
}

void TavroAnalysisFPS::setInputMetEos(bool eos) {
    event("setInputMetEos", "eos", eos ? "1" : "0");
}

void TavroAnalysisFPS::setHdrType(int32_t type) {
    event("setHdrType", "type", std::to_string(type));
}

void TavroAnalysisFPS::setPlayingStatus() {
    event("setPlayingStatus");
}

void TavroAnalysisFPS::setupVideoStutter(const AString& componentName, const sp<AMessage>& format) {
    host::HostEvents::record(
            {"analysis",
             "setupVideoStutter",
             this,
             {{"component", componentName.c_str()}, {"format", host::messageText(format)}}});
}

void TavroAnalysisFPS::reportOverLoadInfo() {
    event("reportOverLoadInfo");
}

void TavroAnalysisFPS::sendFPSInfo() {
    event("sendFPSInfo");
}

void TavroAnalysisFPS::resetFPS() {
    event("resetFPS");
}

void TavroAnalysisFPS::signalNewPlay() {
    event("signalNewPlay");
}

void TavroAnalysisFPS::signalFlush() {
    event("signalFlush");
}

void TavroAnalysisFPS::checkScanType() {
    event("checkScanType");
}

bool TavroAnalysisFPS::scanTypeExtractor(const sp<ABuffer>& /*buffer*/) {
    const int64_t probe = mProbes.fetch_add(1, std::memory_order_relaxed) + 1;
    const int32_t settleAfter = mSettleAfter.load(std::memory_order_relaxed);
    return settleAfter > 0 && probe >= settleAfter;
}

int64_t TavroAnalysisFPS::getTotalFpsUseCnt() {
    return mTotalFpsUseCnt.load();
}

int64_t TavroAnalysisFPS::getOutputBufCntTotal() {
    return mOutput.load();
}

int64_t TavroAnalysisFPS::getInputBufCntTotal() {
    return mInput.load();
}

int32_t TavroAnalysisFPS::getVideoScanType() {
    return mVideoScanType.load();
}

int32_t TavroAnalysisFPS::getNeedCheckScanType() {
    return mNeedCheckScanType.load();
}

TavroAnalysisFPS::Counters TavroAnalysisFPS::countersForTesting() const {
    Counters c;
    c.inputBuffers = mInput.load();
    c.renderedBuffers = mRendered.load();
    c.discardedBuffers = mDiscarded.load();
    c.outputBuffers = mOutput.load();
    c.bufferBytes = mBytes.load();
    c.scanProbes = mProbes.load();
    return c;
}

}  // namespace android
