#include "support/CodecTestHarness.h"

#include <gtest/gtest.h>

#include <string.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <binder/IPCThreadState.h>
#include <binder/Parcel.h>
#include <host/HostClock.h>
#include <host/HostListService.h>
#include <host/HostLog.h>
#include <host/HostProperties.h>
#include <media/MediaCodecInfo.h>
#include <media/stagefright/foundation/ABuffer.h>
#include <tavro/TavroListUtils.h>
#include <tavro/TavroVideoBoost.h>

#include "whitelist/TavroSystemProbe.h"
#include "whitelist/TavroWhiteListCacheMgr.h"

namespace android {
namespace test {

void resetHostWorld() {
    host::HostClock::useManual();
    host::HostProperties::clear();
    host::HostListService::clear();
    host::HostLog::clear();
    host::HostEvents::setEnabled(true);
    host::HostEvents::clear();
    TavroVideoBoost::clearRequestsForTesting();
    TavroVideoBoost::setAvailableForTesting(true);
    TavroVideoBoost::setStatusForTesting(OK);
    TavroWhiteListCacheMgr::getInstance()->setClockForTesting(nullptr);
    TavroWhiteListCacheMgr::getInstance()->resetForTesting();
    setProcRootForTesting(kProcRootDefault);
    setProcessNameRootForTesting("/proc");
    IPCThreadState::self()->clearCallingIdentityForTesting();
}

void setDevice(const char* project, const char* family) {
    host::HostProperties::set(kPropHardware, "qcom");
    host::HostProperties::set(kPropDeviceFamily, family);
    host::HostProperties::set(kPropProjectName, project);
}

int32_t ownTid() {
    return static_cast<int32_t>(syscall(SYS_gettid));
}

sp<AMessage> makeFormat(const std::string& mime,
                        std::vector<std::pair<std::string, int32_t>> ints) {
    sp<AMessage> format = new AMessage();
    format->setString("mime", mime.c_str());
    for (const auto& kv : ints) format->setInt32(kv.first.c_str(), kv.second);
    return format;
}

sp<MediaCodecBuffer> makeFrame(int64_t timeUs, size_t size) {
    sp<ABuffer> bytes = new ABuffer(size);
    memset(bytes->data(), 0x11, bytes->size());
    sp<MediaCodecBuffer> buffer = new MediaCodecBuffer(new AMessage(), bytes);
    if (timeUs >= 0) buffer->meta()->setInt64("timeUs", timeUs);
    return buffer;
}

std::unique_ptr<C2Work> makeWork(uint32_t outFlags, int64_t outIndex, int64_t inIndex) {
    auto work = std::make_unique<C2Work>();
    work->input.ordinal.frameIndex = c2_cntr64_t(static_cast<uint64_t>(inIndex));
    auto worklet = std::make_unique<C2Worklet>();
    worklet->output.flags = static_cast<C2FrameData::flags_t>(outFlags);
    worklet->output.ordinal.frameIndex = c2_cntr64_t(static_cast<uint64_t>(outIndex));
    work->worklets.push_back(std::move(worklet));
    return work;
}

std::list<std::unique_ptr<C2Work>> oneWork(int64_t index) {
    std::list<std::unique_ptr<C2Work>> works;
    works.push_back(makeWork(0, index, index));
    return works;
}

char SentBoost::letter() const {
    if (!readable) return '?';
    switch (kind) {
        case TavroVideoBoost::Request::kUnboost:
            return flags == 0x20 ? 'R' : 'A';
        case TavroVideoBoost::Request::kBoostTask:
            return 'K';
        case TavroVideoBoost::Request::kBoost:
            break;
    }
    if (params.clusterParams.empty()) return 'T';
    return params.threads.empty() ? 'C' : 'W';
}

SentBoost decodeBoost(const TavroVideoBoost::Request& request) {
    SentBoost s;
    s.kind = request.kind;
    s.flags = request.flags;
    if (request.kind == TavroVideoBoost::Request::kUnboost) return s;
    Parcel parcel;
    parcel.setData(request.parcel.data(), request.parcel.size());
    parcel.setDataPosition(0);
    s.readable = (request.kind == TavroVideoBoost::Request::kBoost
                          ? s.params.readFromParcel(&parcel)
                          : s.task.readFromParcel(&parcel)) == OK;
    return s;
}

std::vector<SentBoost> sentBoosts() {
    std::vector<SentBoost> out;
    for (const TavroVideoBoost::Request& r : TavroVideoBoost::requestsForTesting()) {
        out.push_back(decodeBoost(r));
        EXPECT_TRUE(out.back().readable) << "request " << out.size() - 1;
    }
    return out;
}

CodecHarness::CodecHarness() {
    mLooper = new ALooper();
    mLooper->setName("codec-test");
    mLooper->setManualForTesting(true);
    mCodec = new TavroCCodec();
    mLooper->registerHandler(mCodec);
    mAnalysis = TavroAnalysisFPS::lastCreatedForTesting();
}

CodecHarness::~CodecHarness() {
    if (mCodec != nullptr) mLooper->unregisterHandler(mCodec->id());
    mLooper->clearPendingForTesting();
}

void CodecHarness::allocate(const std::string& componentName) {
    sp<AMessage> msg = new AMessage();
    msg->setObject("codecInfo", new MediaCodecInfo(componentName.c_str()));
    mCodec->initiateAllocateComponent(msg);
    runPending();
}

void CodecHarness::configure(const sp<AMessage>& format) {
    mCodec->initiateConfigureComponent(format);
    runPending();
}

void CodecHarness::start() {
    mCodec->initiateStart();
    runPending();
}

void CodecHarness::advanceUs(int64_t us) {
    mLooper->advanceForTesting(us);
}

void CodecHarness::runPending() {
    mLooper->runPendingForTesting();
}

void CodecHarness::destroy() {
    if (mCodec == nullptr) return;
    mLooper->unregisterHandler(mCodec->id());
    mLooper->clearPendingForTesting();
    mCodec.clear();
}

TavroCCodecBufferChannel* CodecHarness::channel() const {
    return static_cast<TavroCCodecBufferChannel*>(mCodec->channelForTesting().get());
}

sp<AMessage> CodecHarness::configuredFormat() const {
    sp<AMessage> last;
    for (const CCodec::Call& call : mCodec->callsForTesting()) {
        if (call.name == "initiateConfigureComponent") last = call.msg;
    }
    return last;
}

}  // namespace test
}  // namespace android
