#include "support/CodecTestHarness.h"

#include <binder/IPCThreadState.h>
#include <host/HostClock.h>
#include <host/HostListService.h>
#include <host/HostLog.h>
#include <host/HostProperties.h>
#include <media/MediaCodecInfo.h>
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

sp<AMessage> makeFormat(const std::string& mime,
                        std::vector<std::pair<std::string, int32_t>> ints) {
    sp<AMessage> format = new AMessage();
    format->setString("mime", mime.c_str());
    for (const auto& kv : ints) format->setInt32(kv.first.c_str(), kv.second);
    return format;
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

std::vector<host::HostEvent> CodecHarness::events(const std::string& kind,
                                                  const std::string& name) {
    return name.empty() ? host::HostEvents::ofKind(kind) : host::HostEvents::named(kind, name);
}

}  // namespace test
}  // namespace android
