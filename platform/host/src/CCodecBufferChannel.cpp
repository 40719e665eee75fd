// Host CCodecBufferChannel: counts every data-path call, records parameter writes byte for byte,
// and answers with statuses a test chooses. The per-frame operations only touch atomics, so the
// library's frame path can be measured for allocations through it.
#include <codec2/sfplugin/CCodecBufferChannel.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <utility>

#include <host/HostC2.h>
#include <host/HostEvents.h>

namespace android {
namespace {

std::string hex32(uint32_t value) {
    char text[16];
    snprintf(text, sizeof(text), "0x%08X", value);
    return text;
}

}  // namespace

CCodecBufferChannel::CCodecBufferChannel(const std::shared_ptr<CCodecCallback>& callback)
    : mCCodecCallback(callback) {}

CCodecBufferChannel::~CCodecBufferChannel() = default;

status_t CCodecBufferChannel::queueInputBuffer(const sp<MediaCodecBuffer>& /*buffer*/) {
    mQueued.fetch_add(1, std::memory_order_relaxed);
    return mQueueStatus.load();
}

status_t CCodecBufferChannel::queueSecureInputBuffer(
        const sp<MediaCodecBuffer>& /*buffer*/, bool /*secure*/, const uint8_t* /*key*/,
        const uint8_t* /*iv*/, CryptoPlugin::Mode /*mode*/, CryptoPlugin::Pattern /*pattern*/,
        const CryptoPlugin::SubSample* /*subSamples*/, size_t /*numSubSamples*/,
        AString* /*errorDetailMsg*/) {
    mSecureQueued.fetch_add(1, std::memory_order_relaxed);
    return mQueueStatus.load();
}

status_t CCodecBufferChannel::renderOutputBuffer(const sp<MediaCodecBuffer>& /*buffer*/,
                                                 int64_t /*timestampNs*/) {
    mRendered.fetch_add(1, std::memory_order_relaxed);
    return mRenderStatus.load();
}

status_t CCodecBufferChannel::discardBuffer(const sp<MediaCodecBuffer>& /*buffer*/) {
    mDiscarded.fetch_add(1, std::memory_order_relaxed);
    return mDiscardStatus.load();
}

void CCodecBufferChannel::flush(const std::list<std::unique_ptr<C2Work>>& /*flushedWork*/) {
    mFlushes.fetch_add(1, std::memory_order_relaxed);
}

void CCodecBufferChannel::onWorkDone(std::unique_ptr<C2Work> work,
                                     const sp<AMessage>& /*outputFormat*/,
                                     const C2StreamInitDataInfo::output* /*initData*/) {
    mWorksDone.fetch_add(1, std::memory_order_relaxed);
    std::unique_ptr<C2Work> dropped;
    {
        std::lock_guard<std::mutex> guard(mRecordLock);
        if (mKeepFinishedWorks) {
            mFinishedWorks.push_back(std::move(work));
        } else {
            dropped = std::move(work);
        }
    }
    // A dropped work is freed here, outside the lock.
}

void CCodecBufferChannel::setFeedbackId(int64_t /*id*/) {}

status_t CCodecBufferChannel::sendFeedbackInfo(const sp<AMessage>& /*msg*/) {
    return OK;
}

void CCodecBufferChannel::cheekFFModeStatus(bool /*enable*/, int32_t /*vppWhiteListValue*/) {}

uint32_t CCodecBufferChannel::getInputDelay() {
    return mInputDelay.load();
}

void CCodecBufferChannel::setInputMetEos(bool /*eos*/) {}

void CCodecBufferChannel::setHdrType(int32_t /*type*/) {}

int32_t CCodecBufferChannel::parserDynamicMetaData(const uint8_t* /*data*/, int32_t /*size*/) {
    return 0;
}

status_t CCodecBufferChannel::setParameters(std::vector<std::unique_ptr<C2Param>>& params) {
    mSetParameterCalls.fetch_add(1, std::memory_order_relaxed);
    const status_t status = mSetParametersStatus.load();

    std::vector<std::vector<uint8_t>> written;
    written.reserve(params.size());
    host::HostEvent event{"param", "setParameters", this, {}};
    for (const std::unique_ptr<C2Param>& param : params) {
        if (param == nullptr) {
            // A null entry reaches the component as nothing; keep its place in the record.
            written.emplace_back();
            event.fields.emplace_back("index", "null");
            event.fields.emplace_back("size", "0");
            continue;
        }
        written.push_back(host::c2ParamBytes(*param));
        const std::vector<uint8_t>& bytes = written.back();
        event.fields.emplace_back("index", hex32(static_cast<uint32_t>(param->index())));
        event.fields.emplace_back("size", std::to_string(param->size()));
        if (bytes.size() >= 12) {
            uint32_t value;
            memcpy(&value, bytes.data() + 8, sizeof(value));
            event.fields.emplace_back("value", std::to_string(value));
        }
    }
    event.fields.emplace_back("status", std::to_string(status));
    {
        std::lock_guard<std::mutex> guard(mRecordLock);
        mWrittenParams.push_back(std::move(written));
    }
    host::HostEvents::record(std::move(event));
    return status;
}

CCodecBufferChannel::Counters CCodecBufferChannel::countersForTesting() const {
    Counters c;
    c.queued = mQueued.load();
    c.secureQueued = mSecureQueued.load();
    c.rendered = mRendered.load();
    c.discarded = mDiscarded.load();
    c.flushes = mFlushes.load();
    c.worksDone = mWorksDone.load();
    c.setParameters = mSetParameterCalls.load();
    return c;
}

std::vector<std::vector<std::vector<uint8_t>>> CCodecBufferChannel::writtenParamsForTesting()
        const {
    std::lock_guard<std::mutex> guard(mRecordLock);
    return mWrittenParams;
}

size_t CCodecBufferChannel::finishedWorkCountForTesting() const {
    std::lock_guard<std::mutex> guard(mRecordLock);
    return mFinishedWorks.size();
}

std::unique_ptr<C2Work> CCodecBufferChannel::takeFinishedWorkForTesting(size_t index) {
    std::lock_guard<std::mutex> guard(mRecordLock);
    if (index >= mFinishedWorks.size()) return nullptr;
    // The slot stays (empty), so the indices of the other works do not move.
    return std::move(mFinishedWorks[index]);
}

void CCodecBufferChannel::setKeepFinishedWorksForTesting(bool keep) {
    std::lock_guard<std::mutex> guard(mRecordLock);
    mKeepFinishedWorks = keep;
}

}  // namespace android
