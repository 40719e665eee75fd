// Host CCodec: the platform codec's state machine without a component. The initiate* calls post
// messages to the codec's own looper; the handler moves the state word and reports to the client
// callback. Every call is recorded with a copy of its arguments.
//
// Locks: mState's lock guards the state word, mCallLock the call record and the output format.
// Neither is held while calling out (client callback, buffer channel, looper).
#include <codec2/sfplugin/CCodec.h>

#include <atomic>
#include <functional>
#include <string>
#include <utility>

#include <host/HostEvents.h>
#include <media/MediaCodecInfo.h>

#include "HostMessageText.h"

namespace android {
namespace {

// The platform channel's callback: forwards the channel's reports to the codec's client callback,
// which it looks up at each call (the client installs it after construction).
class PlatformChannelCallback : public CCodecCallback {
  public:
    explicit PlatformChannelCallback(std::function<CodecBase::CodecCallback*()> client)
        : mClient(std::move(client)) {}

    void onError(status_t err, enum ActionCode actionCode) override {
        if (CodecBase::CodecCallback* client = mClient()) client->onError(err, actionCode);
    }
    void onOutputFramesRendered(int64_t mediaTimeUs, nsecs_t renderTimeNs) override {
        CodecBase::CodecCallback* client = mClient();
        if (client == nullptr) return;
        std::list<RenderedFrameInfo> done;
        done.emplace_back(mediaTimeUs, renderTimeNs);
        client->onOutputFramesRendered(done);
    }
    void onOutputBuffersChanged() override {
        if (CodecBase::CodecCallback* client = mClient()) client->onOutputBuffersChanged();
    }
    void onFirstTunnelFrameReady() override {
        if (CodecBase::CodecCallback* client = mClient()) client->onFirstTunnelFrameReady();
    }

  private:
    std::function<CodecBase::CodecCallback*()> mClient;
};

std::atomic<bool> sRecordCalls{true};

constexpr char kKeyCodecInfo[] = "codecInfo";
constexpr char kKeyFormat[] = "format";
constexpr char kKeyKeepComponentAllocated[] = "keepComponentAllocated";

}  // namespace

CCodec::CCodec() : mOutputFormat(new AMessage()) {
    // The channel's callback holds `this` without a reference: the codec owns the channel and is
    // expected to outlive it, as on the platform.
    auto client = [this]() -> CodecBase::CodecCallback* { return mCallback.get(); };
    mChannel = std::make_shared<CCodecBufferChannel>(
            std::make_shared<PlatformChannelCallback>(client));
}

CCodec::~CCodec() = default;

void CCodec::setRecordCallsForTesting(bool record) {
    sRecordCalls.store(record, std::memory_order_relaxed);
}

void CCodec::record(const char* name, const sp<AMessage>& msg, int64_t value) {
    const bool keep = sRecordCalls.load(std::memory_order_relaxed);
    if (!keep && !host::HostEvents::wanted()) return;
    Call call;
    call.name = name;
    if (msg != nullptr) call.msg = msg->dup();
    call.value = value;
    // The event's text is built only when someone would see it.
    const bool wanted = host::HostEvents::wanted();
    host::HostEvent event{};
    if (wanted) {
        event = {"codec", name, this, {{"value", std::to_string(value)}}};
        for (auto& field : host::messageFields(call.msg)) event.fields.push_back(std::move(field));
    }
    if (keep) {
        std::lock_guard<std::mutex> guard(mCallLock);
        auto& byName = mCallsByName[call.name];
        ++byName.first;
        byName.second = mCalls.size();
        mCalls.push_back(std::move(call));
    }
    if (wanted) host::HostEvents::record(std::move(event));
}

std::shared_ptr<BufferChannelBase> CCodec::getBufferChannel() {
    return mChannel;
}

void CCodec::initiateAllocateComponent(const sp<AMessage>& msg) {
    record("initiateAllocateComponent", msg, 0);
    if (msg == nullptr) return;
    msg->setWhat(kWhatAllocate);
    msg->setTarget(this);
    msg->post();
}

void CCodec::initiateConfigureComponent(const sp<AMessage>& format) {
    record("initiateConfigureComponent", format, 0);
    sp<AMessage> msg = new AMessage(kWhatConfigure, this);
    if (format != nullptr) msg->setMessage(kKeyFormat, format);
    msg->post();
}

void CCodec::initiateCreateInputSurface() {
    record("initiateCreateInputSurface", nullptr, 0);
}

void CCodec::initiateSetInputSurface(const sp<PersistentSurface>& /*surface*/) {
    record("initiateSetInputSurface", nullptr, 0);
}

void CCodec::initiateStart() {
    record("initiateStart", nullptr, 0);
    (new AMessage(kWhatStart, this))->post();
}

void CCodec::initiateShutdown(bool keepComponentAllocated) {
    record("initiateShutdown", nullptr, keepComponentAllocated ? 1 : 0);
    sp<AMessage> msg = new AMessage(keepComponentAllocated ? kWhatStop : kWhatRelease, this);
    msg->setInt32(kKeyKeepComponentAllocated, keepComponentAllocated ? 1 : 0);
    msg->post();
}

status_t CCodec::setSurface(const sp<Surface>& /*surface*/, uint32_t generation) {
    record("setSurface", nullptr, generation);
    return mSurfaceStatus;
}

void CCodec::signalFlush() {
    record("signalFlush", nullptr, 0);
    std::list<std::unique_ptr<C2Work>> flushed;
    mChannel->flush(flushed);
    {
        Mutexed<State>::Locked state(mState);
        if (state->get() == State::RUNNING) state->set(State::FLUSHED);
    }
    if (mCallback) mCallback->onFlushCompleted();
}

void CCodec::signalResume() {
    record("signalResume", nullptr, 0);
    // A flushed codec runs again once the client resumes it.
    Mutexed<State>::Locked state(mState);
    if (state->get() == State::FLUSHED) state->set(State::RUNNING);
}

void CCodec::signalRequestIDRFrame() {
    record("signalRequestIDRFrame", nullptr, 0);
}

void CCodec::signalSetParameters(const sp<AMessage>& params) {
    record("signalSetParameters", params, 0);
}

void CCodec::signalEndOfInputStream() {
    record("signalEndOfInputStream", nullptr, 0);
}

void CCodec::reportOverLoadInfo() {
    record("reportOverLoadInfo", nullptr, 0);
}

void CCodec::onWorkDone(std::list<std::unique_ptr<C2Work>>& workItems) {
    record("onWorkDone", nullptr, static_cast<int64_t>(workItems.size()));
    sp<AMessage> outputFormat;
    {
        std::lock_guard<std::mutex> guard(mCallLock);
        outputFormat = mOutputFormat;
    }
    for (std::unique_ptr<C2Work>& work : workItems) {
        mChannel->onWorkDone(std::move(work), outputFormat, nullptr);
    }
    workItems.clear();
}

void CCodec::setupInputSurface(const std::shared_ptr<InputSurfaceWrapper>& /*surface*/) {
    record("setupInputSurface", nullptr, 0);
}

void CCodec::onMessageReceived(const sp<AMessage>& msg) {
    record("onMessageReceived", msg, msg->what());
    switch (msg->what()) {
        case kWhatAllocate: {
            sp<RefBase> object;
            if (!msg->findObject(kKeyCodecInfo, &object) || object == nullptr) {
                if (mCallback) mCallback->onError(UNKNOWN_ERROR, ACTION_CODE_FATAL);
                return;
            }
            sp<MediaCodecInfo> info = static_cast<MediaCodecInfo*>(object.get());
            {
                Mutexed<State>::Locked state(mState);
                state->set(State::ALLOCATED);
            }
            if (mCallback) mCallback->onComponentAllocated(info->getCodecName());
            return;
        }
        case kWhatConfigure: {
            sp<AMessage> format;
            if (!msg->findMessage(kKeyFormat, &format) || format == nullptr) {
                if (mCallback) mCallback->onError(BAD_VALUE, ACTION_CODE_FATAL);
                return;
            }
            sp<AMessage> outputFormat = format->dup();
            {
                std::lock_guard<std::mutex> guard(mCallLock);
                mOutputFormat = outputFormat;
            }
            if (mCallback) mCallback->onComponentConfigured(outputFormat, outputFormat);
            return;
        }
        case kWhatStart: {
            {
                Mutexed<State>::Locked state(mState);
                state->set(State::RUNNING);
            }
            if (mCallback) mCallback->onStartCompleted();
            return;
        }
        case kWhatStop: {
            {
                Mutexed<State>::Locked state(mState);
                state->set(State::ALLOCATED);
            }
            if (mCallback) mCallback->onStopCompleted();
            return;
        }
        case kWhatRelease: {
            {
                Mutexed<State>::Locked state(mState);
                state->set(State::RELEASED);
            }
            if (mCallback) mCallback->onReleaseCompleted();
            return;
        }
        default:
            return;
    }
}

std::vector<CCodec::Call> CCodec::callsForTesting() const {
    std::lock_guard<std::mutex> guard(mCallLock);
    return mCalls;
}

size_t CCodec::callCountForTesting(const std::string& name, Call* last) const {
    std::lock_guard<std::mutex> guard(mCallLock);
    auto it = mCallsByName.find(name);
    if (it == mCallsByName.end()) return 0;
    if (last != nullptr) *last = mCalls[it->second.second];
    return it->second.first;
}

std::vector<std::string> CCodec::callNamesForTesting() const {
    std::vector<std::string> names;
    std::lock_guard<std::mutex> guard(mCallLock);
    names.reserve(mCalls.size());
    for (const Call& call : mCalls) names.push_back(call.name);
    return names;
}

int CCodec::stateForTesting() {
    Mutexed<State>::Locked state(mState);
    return state->get();
}

void CCodec::setStateForTesting(int state) {
    Mutexed<State>::Locked locked(mState);
    locked->set(state);
}

}  // namespace android
