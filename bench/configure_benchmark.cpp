// Cost of configuring a codec: TavroCCodec::initiateConfigureComponent (the pipeline of
// configure steps, then the base) against the platform CCodec alone, for a video decoder and a
// video encoder of an app that is in the lists a device typically carries for it. Each
// operation is the call plus the handling of the message it posts on the codec's looper (where
// the codec builds its boost request), on a manual looper on the calling thread.
//
// Every codec is configured once, as in use: codecs are made and allocated in batches outside
// the timed region. The host base records a copy of the format per call; that is in both.
// Target: under 50 us added per configure.
#include <benchmark/benchmark.h>

#include <stdint.h>
#include <unistd.h>

#include <vector>

#include <binder/IPCThreadState.h>
#include <codec2/sfplugin/CCodec.h>
#include <host/HostClock.h>
#include <host/HostEvents.h>
#include <host/HostListService.h>
#include <host/HostLog.h>
#include <host/HostProperties.h>
#include <log/log.h>
#include <media/MediaCodecInfo.h>
#include <media/stagefright/foundation/ALooper.h>
#include <media/stagefright/foundation/AMessage.h>
#include <tavro/TavroVideoBoost.h>

#include "sfplugin/TavroCCodec.h"
#include "support/AllocCounter.h"
#include "whitelist/TavroSystemProbe.h"
#include "whitelist/TavroWhiteListCacheMgr.h"

namespace android {
namespace {

using host::HostListService;
using host::HostProperties;

constexpr uid_t kBinderUid = 10100;
constexpr pid_t kBinderPid = 4100;
constexpr int64_t kAppUid = 10200;
constexpr int64_t kAppPid = 4200;
constexpr char kTopActivity[] = "com.example.app/.PlayerActivity";
constexpr char kDecoder[] = "c2.qti.avc.decoder";
constexpr char kEncoder[] = "c2.qti.avc.encoder";
constexpr size_t kBatch = 64;

// Properties and list contents of a device with an app that plays and records video. With
// `logLevel` null the log level property is unset, as shipped: debug lines are written (to a
// silent host log that keeps nothing), verbose lines are not.
void deviceWorld(const char* logLevel) {
    host::HostClock::useManual();
    host::HostLog::setStderrPriority(ANDROID_LOG_SILENT);
    host::HostLog::setCapacity(0);
    host::HostEvents::setEnabled(false);
    host::HostEvents::clear();
    TavroVideoBoost::clearRequestsForTesting();
    TavroVideoBoost::setAvailableForTesting(true);
    setProcRootForTesting(kProcRootDefault);
    IPCThreadState::self()->setCallingIdentityForTesting(kBinderUid, kBinderPid);

    HostProperties::clear();
    HostProperties::set("ro.hardware", "qcom");
    HostProperties::set("ro.build.device_family", "QXSM8550");
    HostProperties::set("ro.boot.prjname", "P23001");
    HostProperties::set("ro.soc.model", "SM8550");
    HostProperties::set("ro.tavro.vpplisttype", "new");
    HostProperties::set("ro.tavro.tonemap.filter", "1");
    if (logLevel != nullptr) HostProperties::set("debug.tavro.video.log.enable", logLevel);

    HostListService::clear();
    HostListService::setTopActivity(-1, kTopActivity);
    // Decoder side.
    HostListService::setByUid("key-priority", kBinderUid);
    HostListService::setByUid("sr-lumo-whitelist-new", kBinderUid, "7");
    HostListService::setByUid("decoder-startup-operating-rate", kAppUid, "120");
    HostListService::setByUid("video-statistics", kAppUid);
    HostListService::setByUid(kListMediaSchedBoost, static_cast<int64_t>(getuid()),
                              "isVideo=1,isEncoder=0,schedVideo=2,ddrFreq=1555");
    HostListService::setByActivity(kListVdecCpuBoost, kTopActivity,
                                   "isVideo=1,preferIdle=1,cluster0Min=1804800");
    // Encoder side.
    HostListService::setByUid("codec2-output-delay", kBinderUid, "4");
    HostListService::setByUid("qcom-encode-gop", kBinderUid, "30");
    HostListService::setByUid("qcom-qprange", kBinderUid, "1.2");
    HostListService::setByUid("qcom-encode-optimization", kBinderUid);
    HostListService::setByActivity("encoder-b-frame", kTopActivity,
                                   "maxBframes=1,bitrateFactor=1.5,limitBitrate=1200000");
    HostListService::setByUid("qcom-enable-cac", kAppUid, "value=1");
    HostListService::setByUid("encode-qp-range", kAppUid, "min=20,max=30");
    HostListService::setByUid("key-priority-encoder", kAppUid, "priority=1");
    HostListService::setByUid("encode-usage-flag", kAppUid, "cpu=pelto");
    HostListService::setByActivity("encoder-scene", kTopActivity, "scene=3");
    HostListService::setByActivity("encoder-pre-process", kTopActivity,
                                   "type=avc,limitWidth=1920,limitHeight=1080");
    HostListService::setByUid("video-encoder-statistics", kAppUid);
    HostListService::setByActivity(kListVencCpuBoost, kTopActivity,
                                   "isVideo=1,isEncoder=1,cluster0Min=1804800");

    TavroWhiteListCacheMgr::getInstance()->setClockForTesting(nullptr);
    TavroWhiteListCacheMgr::getInstance()->resetForTesting();
}

sp<AMessage> appFormat(bool encoder) {
    sp<AMessage> format = new AMessage();
    format->setString("mime", "video/avc");
    format->setInt64("calling-uid", kAppUid);
    format->setInt64("calling-pid", kAppPid);
    format->setString("pkg-name", "com.example.app");
    format->setInt32("width", 1920);
    format->setInt32("height", 1080);
    format->setFloat("frame-rate", 30.0f);
    format->setInt32("priority", 0);
    if (encoder) {
        format->setInt32("encoder", 1);
        format->setInt32("bitrate", 8000000);
        format->setInt32("bitrate-mode", 1);
        format->setInt32("i-frame-interval", 1);
        format->setInt32("color-format", 0x7f420888);
        format->setInt32("profile", 8);
    } else {
        format->setInt32("max-input-size", 1048576);
        format->setInt32("color-format", 0x7f420888);
    }
    return format;
}

// Codecs made and allocated ahead, each configured once in the timed region.
class CodecBatch {
  public:
    CodecBatch(bool tavro, const char* component) : mTavro(tavro), mComponent(component) {
        mLooper = new ALooper();
        mLooper->setName("configure-bench");
        mLooper->setManualForTesting(true);
    }
    ~CodecBatch() { drop(); }

    void refill() {
        drop();
        for (size_t i = 0; i < kBatch; ++i) {
            sp<CCodec> codec = mTavro ? sp<CCodec>(new TavroCCodec()) : sp<CCodec>(new CCodec());
            mLooper->registerHandler(codec);
            sp<AMessage> msg = new AMessage();
            msg->setObject("codecInfo", new MediaCodecInfo(mComponent));
            codec->initiateAllocateComponent(msg);
            mCodecs.push_back(codec);
        }
        mLooper->runPendingForTesting();
        mNext = 0;
    }
    bool empty() const { return mNext == mCodecs.size(); }
    CCodec* next() { return mCodecs[mNext++].get(); }
    ALooper* looper() const { return mLooper.get(); }

  private:
    void drop() {
        for (const sp<CCodec>& codec : mCodecs) mLooper->unregisterHandler(codec->id());
        mLooper->clearPendingForTesting();
        mCodecs.clear();
    }

    bool mTavro;
    const char* mComponent;
    sp<ALooper> mLooper;
    std::vector<sp<CCodec>> mCodecs;
    size_t mNext = 0;
};

void configure(benchmark::State& state, bool tavro, bool encoder, const char* logLevel = nullptr) {
    deviceWorld(logLevel);
    const sp<AMessage> format = appFormat(encoder);
    CodecBatch batch(tavro, encoder ? kEncoder : kDecoder);
    batch.refill();
    // The first configure in the process fills the white-list cache; later ones find it warm.
    // It also shows that the lists were read: the platform must receive the key the pipeline adds
    // for this app (a post-processing choice for the decoder, initial QPs for the encoder).
    {
        CCodec* codec = batch.next();
        codec->initiateConfigureComponent(format->dup());
        batch.looper()->runPendingForTesting();
        sp<AMessage> received;
        for (const CCodec::Call& call : codec->callsForTesting()) {
            if (call.name == "initiateConfigureComponent") received = call.msg;
        }
        const char* added = encoder ? "vendor.qti-ext-enc-initial-qp.qp-i-enable"
                                    : "vendor.tavro.vpp.white.list.value";
        if (received == nullptr || received->contains(added) != tavro) {
            state.SkipWithError("the configure did not do what the lists ask");
            return;
        }
    }

    uint64_t allocations = 0;
    for (auto _ : state) {
        if (batch.empty()) {
            state.PauseTiming();
            batch.refill();
            state.ResumeTiming();
        }
        CCodec* codec = batch.next();
        // Both variants copy the app's format, since the pipeline writes into it.
        const uint64_t before = tavro_bench::allocationCount();
        codec->initiateConfigureComponent(format->dup());
        batch.looper()->runPendingForTesting();
        allocations += tavro_bench::allocationCount() - before;
    }
    state.counters["allocs/op"] = benchmark::Counter(static_cast<double>(allocations) /
                                                     static_cast<double>(state.iterations()));
    IPCThreadState::self()->clearCallingIdentityForTesting();
    host::HostClock::useReal();
}

void BM_Configure_Decoder_Base(benchmark::State& state) {
    configure(state, false, false);
}
void BM_Configure_Decoder_Tavro(benchmark::State& state) {
    configure(state, true, false);
}
void BM_Configure_Encoder_Base(benchmark::State& state) {
    configure(state, false, true);
}
void BM_Configure_Encoder_Tavro(benchmark::State& state) {
    configure(state, true, true);
}

// The same with every optional line off (level 0): how much of the above is the debug lines.
void BM_Configure_Decoder_Tavro_LogOff(benchmark::State& state) {
    configure(state, true, false, "0");
}
void BM_Configure_Encoder_Tavro_LogOff(benchmark::State& state) {
    configure(state, true, true, "0");
}

BENCHMARK(BM_Configure_Decoder_Base);
BENCHMARK(BM_Configure_Decoder_Tavro);
BENCHMARK(BM_Configure_Decoder_Tavro_LogOff);
BENCHMARK(BM_Configure_Encoder_Base);
BENCHMARK(BM_Configure_Encoder_Tavro);
BENCHMARK(BM_Configure_Encoder_Tavro_LogOff);

}  // namespace
}  // namespace android

BENCHMARK_MAIN();
