// Scenario player. Everything the library reports reaches the trace through three taps, all on the
// playing thread: the host event record (platform and closed-component calls), the host log
// (with --log-level) and the codec's own message dispatch (timer firings), seen through a thin
// subclass that only watches.
#include "tools/sim/TavroScenarioPlayer.h"

#include <stdlib.h>
#include <sys/types.h>
#include <unistd.h>

#include <charconv>
#include <chrono>
#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <functional>
#include <list>
#include <memory>

#include <C2Buffer.h>
#include <C2Work.h>
#include <binder/IPCThreadState.h>
#include <binder/Parcel.h>
#include <codec2/sfplugin/CCodec.h>
#include <host/HostC2.h>
#include <host/HostClock.h>
#include <host/HostCodecCallback.h>
#include <host/HostEvents.h>
#include <host/HostListService.h>
#include <host/HostLog.h>
#include <host/HostProperties.h>
#include <log/log.h>
#include <media/MediaCodecBuffer.h>
#include <media/MediaCodecInfo.h>
#include <media/stagefright/foundation/ABuffer.h>
#include <media/stagefright/foundation/ALooper.h>
#include <media/stagefright/foundation/AMessage.h>
#include <tavro/TavroAnalysisFPS.h>
#include <tavro/TavroListUtils.h>
#include <tavro/TavroVideoBoost.h>

#include "common/TavroLog.h"
#include "sfplugin/TavroCCodec.h"
#include "sfplugin/TavroCCodecBufferChannel.h"
#include "sfplugin/TavroCCodecConfigure.h"
#include "sfplugin/TavroHdrInfo.h"
#include "sfplugin/TavroVideoBoostParams.h"
#include "sfplugin/TavroVideoTaskBoost.h"
#include "tools/sim/TavroProcFixture.h"
#include "tools/sim/TavroTraceTaps.h"
#include "whitelist/TavroSystemProbe.h"
#include "whitelist/TavroWhiteListCacheMgr.h"

namespace android {

namespace {

using Json = nlohmann::ordered_json;
using Kind = TavroScenarioEvent::Kind;

// The codec under test, unchanged except that it names each message it is handed, before
// handling it: the four private timers are otherwise invisible from outside.
class TavroSimCodec : public TavroCCodec {
  public:
    void setObserver(std::function<void(uint32_t)> observer) { mObserver = std::move(observer); }

  protected:
    ~TavroSimCodec() override = default;
    void onMessageReceived(const sp<AMessage>& msg) override {
        if (mObserver) mObserver(msg->what());
        TavroCCodec::onMessageReceived(msg);
    }

  private:
    std::function<void(uint32_t)> mObserver;
};

std::string typedText(const TavroTypedValue& v) {
    switch (v.type) {
        case TavroTypedValue::Type::kInt32:
            return std::to_string(v.intValue);
        case TavroTypedValue::Type::kInt64:
            return std::to_string(v.intValue) + "L";
        case TavroTypedValue::Type::kFloat:
            return tavroFloatText(v.floatValue) + "f";
        case TavroTypedValue::Type::kString:
            return "\"" + v.stringValue + "\"";
    }
    return "";
}

class Player {
  public:
    Player(const TavroScenario& scenario, const TavroSimOptions& options, TavroTrace* trace)
        : mScenario(scenario), mOptions(options), mTrace(trace) {}

    bool run(std::string* error) {
        mIdentity.aliasPid = mScenario.process.pid;
        mIdentity.aliasUid = mScenario.process.uid;
        mIdentity.realPid = static_cast<int64_t>(getpid());
        mIdentity.realUid = static_cast<int64_t>(getuid());
        mIdentity.realTid = static_cast<int64_t>(gettid());
        if (!mFixture.create(mScenario.process.name, static_cast<int32_t>(mIdentity.realPid),
                             mScenario.proc, error)) {
            return false;
        }
        setUpWorld();
        addHeader();
        createCodec();
        for (const TavroScenarioEvent& event : mScenario.events) play(event);
        if (mCodec != nullptr) {
            Json end;
            end["name"] = "destroy";
            end["where"] = "end of scenario";
            mTaps->add("step", "destroy (end of scenario)", end);
            destroyCodec();
        }
        tearDownWorld();
        mFixture.remove();
        return true;
    }

  private:
    void addHeader() {
        Json fields;
        fields["name"] = "scenario";
        fields["file"] = mScenario.path;
        fields["process"] = mScenario.process.name;
        fields["pid"] = mScenario.process.pid;
        fields["uid"] = mScenario.process.uid;
        fields["component"] = mScenario.component;
        mTaps->add("step",
                   "scenario " + mScenario.path + ": process " + mScenario.process.name + " (pid " +
                           std::to_string(mScenario.process.pid) + ", uid " +
                           std::to_string(mScenario.process.uid) + "), component " +
                           mScenario.component,
                   fields);
    }

    // ---- World ----------------------------------------------------------------------------------

    void setUpWorld() {
        host::HostClock::useManual();
        mTaps = std::make_unique<TavroTraceTaps>(mTrace, mIdentity, host::HostClock::now());
        host::HostProperties::clear();
        host::HostListService::clear();
        host::HostLog::clear();
        host::HostEvents::setEnabled(true);
        host::HostEvents::clear();
        TavroVideoBoost::clearRequestsForTesting();
        TavroVideoBoost::setAvailableForTesting(true);
        TavroVideoBoost::setStatusForTesting(OK);
        TavroWhiteListCacheMgr* cache = TavroWhiteListCacheMgr::getInstance();
        cache->resetForTesting();
        // Cache ages follow the simulated clock, so an "advance" of hours reaches their timeout.
        cache->setClockForTesting([]() {
            return TavroWhiteListCacheMgr::Clock::time_point(
                    std::chrono::nanoseconds(host::HostClock::now()));
        });
        setProcRootForTesting(mFixture.root());
        setProcessNameRootForTesting(mFixture.root());

        for (const auto& [key, value] : mScenario.properties) {
            host::HostProperties::set(key, value);
        }
        if (mOptions.hasLogLevel) {
            host::HostProperties::set(kTavroLogLevelProperty, std::to_string(mOptions.logLevel));
        }
        for (const TavroScenarioList& list : mScenario.lists) {
            for (const TavroListEntry& entry : list.entries) {
                switch (entry.key) {
                    case TavroListEntry::Key::kUid:
                        host::HostListService::setByUid(list.name, mIdentity.realUidOf(entry.id),
                                                        entry.value);
                        break;
                    case TavroListEntry::Key::kPid:
                        host::HostListService::setByPid(list.name, mIdentity.realPidOf(entry.id),
                                                        entry.value);
                        break;
                    case TavroListEntry::Key::kName:
                        host::HostListService::setByName(list.name, entry.name, entry.value);
                        break;
                    case TavroListEntry::Key::kActivity:
                        host::HostListService::setByActivity(list.name, entry.name, entry.value);
                        break;
                }
            }
        }
        if (!mScenario.process.topActivity.empty()) {
            host::HostListService::setTopActivity(-1, mScenario.process.topActivity);
        }
        if (mScenario.process.hasCaller) {
            IPCThreadState::self()->setCallingIdentityForTesting(
                    static_cast<uid_t>(mIdentity.realUidOf(mScenario.process.callerUid)),
                    static_cast<pid_t>(mIdentity.realPidOf(mScenario.process.callerPid)));
        } else {
            IPCThreadState::self()->clearCallingIdentityForTesting();
        }

        host::HostEvents::setListener([this](const host::HostEvent& e) { mTaps->onHostEvent(e); });
        if (mOptions.hasLogLevel) {
            host::HostLog::setListener([this](const host::LogRecord& r) { mTaps->onLog(r); });
        }
    }

    void createCodec() {
        mLooper = new ALooper();
        mLooper->setName("tavro-sim");
        mLooper->setManualForTesting(true);
        TavroSimCodec* codec = new TavroSimCodec();
        mCodec = codec;
        mTaps->setCodecAddress(static_cast<int64_t>(reinterpret_cast<intptr_t>(codec)));
        codec->setObserver([this](uint32_t what) { mTaps->onMessage(what); });
        mCodec->setCallback(std::make_unique<host::RecordingCodecCallback>());
        mLooper->registerHandler(mCodec);
        // The codec made its analysis object in its constructor.
        sp<TavroAnalysisFPS> analysis = TavroAnalysisFPS::lastCreatedForTesting();
        if (analysis != nullptr && mScenario.analysis.hasScanType) {
            analysis->setVideoScanTypeForTesting(mScenario.analysis.scanType);
        }
        if (analysis != nullptr && mScenario.analysis.hasFpsUseCount) {
            analysis->setTotalFpsUseCntForTesting(mScenario.analysis.fpsUseCount);
        }
    }

    void tearDownWorld() {
        host::HostEvents::setListener(nullptr);
        host::HostLog::setListener(nullptr);
        host::HostEvents::clear();
        host::HostListService::clear();
        host::HostProperties::clear();
        TavroVideoBoost::clearRequestsForTesting();
        TavroWhiteListCacheMgr::getInstance()->resetForTesting();
        TavroWhiteListCacheMgr::getInstance()->setClockForTesting(nullptr);
        setProcRootForTesting("");
        setProcessNameRootForTesting("");
        IPCThreadState::self()->clearCallingIdentityForTesting();
        mLooper.clear();
        host::HostClock::useReal();
    }

    void destroyCodec() {
        mLooper->unregisterHandler(mCodec->id());
        mLooper->clearPendingForTesting();
        mChannelKeepAlive.reset();
        mCodec.clear();
    }

    // ---- Events ---------------------------------------------------------------------------------

    TavroCCodecBufferChannel* channel() {
        // The codec installs its own channel in its constructor and never replaces it.
        if (mChannelKeepAlive == nullptr) mChannelKeepAlive = mCodec->channelForTesting();
        return static_cast<TavroCCodecBufferChannel*>(mChannelKeepAlive.get());
    }

    sp<AMessage> buildMessage(const TavroTypedMap& map) const {
        sp<AMessage> msg = new AMessage();
        for (const auto& [key, v] : map) {
            const bool isUid = key == kKeyCallingUid;
            const bool isPid = key == kKeyCallingPid;
            int64_t value = v.intValue;
            if (isUid) value = mIdentity.realUidOf(value);
            if (isPid) value = mIdentity.realPidOf(value);
            switch (v.type) {
                case TavroTypedValue::Type::kInt32:
                    msg->setInt32(key.c_str(), static_cast<int32_t>(value));
                    break;
                case TavroTypedValue::Type::kInt64:
                    msg->setInt64(key.c_str(), value);
                    break;
                case TavroTypedValue::Type::kFloat:
                    msg->setFloat(key.c_str(), v.floatValue);
                    break;
                case TavroTypedValue::Type::kString:
                    msg->setString(key.c_str(), v.stringValue.c_str(),
                                   static_cast<ssize_t>(v.stringValue.size()));
                    break;
            }
        }
        return msg;
    }

    sp<AMessage> lastCall(const char* name, size_t* count) const {
        sp<AMessage> last;
        *count = 0;
        for (const CCodec::Call& call : mCodec->callsForTesting()) {
            if (call.name == name) last = call.msg, ++*count;
        }
        return last;
    }

    // Hands `msg` to the codec through `call` and traces how the message the platform base
    // received for `baseCall` differs from what the app gave. False when the base got no call.
    template <typename Call>
    bool callAndDiff(const char* stage, const char* baseCall, const sp<AMessage>& msg, Call call) {
        const sp<AMessage> given = msg->dup();
        size_t before = 0, after = 0;
        lastCall(baseCall, &before);
        call();
        sp<AMessage> received = lastCall(baseCall, &after);
        if (after <= before || received == nullptr) return false;
        mTaps->addFormatDiff(stage, given, received);
        return true;
    }

    sp<MediaCodecBuffer> frameBuffer(int64_t ptsUs, int32_t bytes) const {
        sp<MediaCodecBuffer> buffer =
                new MediaCodecBuffer(new AMessage(), new ABuffer(static_cast<size_t>(bytes)));
        buffer->meta()->setInt64(kKeyTimeUs, ptsUs);
        return buffer;
    }

    void queueInput(int64_t ptsUs, int32_t bytes) {
        channel()->queueInputBuffer(frameBuffer(ptsUs, bytes));
        mLastPtsUs = ptsUs;
        mPlayedFrames = true;
    }

    void finishWork(const TavroScenarioEvent* desc, int64_t ptsUs) {
        auto work = std::make_unique<C2Work>();
        work->input.ordinal.timestamp = static_cast<uint64_t>(ptsUs);
        auto worklet = std::make_unique<C2Worklet>();
        worklet->output.ordinal.timestamp = static_cast<uint64_t>(ptsUs);
        if (desc != nullptr) worklet->output.flags = C2FrameData::flags_t(desc->flags);
        if (desc == nullptr || desc->hasBuffer) {
            auto buffer = std::make_shared<C2Buffer>();
            if (desc != nullptr && desc->hdr.hasColorAspects) {
                std::vector<uint8_t> payload;
                for (uint32_t v :
                     {desc->hdr.range, desc->hdr.primaries, desc->hdr.transfer, desc->hdr.matrix}) {
                    for (int i = 0; i < 4; ++i)
                        payload.push_back(static_cast<uint8_t>(v >> (8 * i)));
                }
                buffer->setInfo(host::makeC2Info(kColorAspectsInfoIndex, payload));
            }
            if (desc != nullptr && desc->hdr.hasHdr10Plus) {
                buffer->setInfo(host::makeC2Info(kHdr10PlusInfoIndex, desc->hdr.hdr10Plus));
            }
            worklet->output.buffers.push_back(buffer);
        }
        if (desc != nullptr) {
            for (const TavroRawRecord& r : desc->configUpdate) {
                worklet->output.configUpdate.push_back(
                        r.hasSize ? host::makeC2Param(r.index, r.payload, r.size)
                                  : host::makeC2Param(r.index, r.payload));
            }
        }
        work->worklets.push_back(std::move(worklet));
        work->workletsProcessed = 1;
        std::list<std::unique_ptr<C2Work>> works;
        works.push_back(std::move(work));
        mCodec->onWorkDone(works);
        mLastPtsUs = ptsUs;
        mPlayedFrames = true;
    }

    void render(int64_t ptsUs, int64_t renderNs) {
        channel()->renderOutputBuffer(frameBuffer(ptsUs, 0), renderNs);
    }

    void discard(int64_t ptsUs) { channel()->discardBuffer(frameBuffer(ptsUs, 0)); }

    void runPending() { mLooper->runPendingForTesting(); }

    Json stepFields(const TavroScenarioEvent& e) const {
        Json fields;
        fields["name"] = e.name;
        fields["where"] = e.where;
        return fields;
    }

    std::string typedMapText(const TavroTypedMap& map) const {
        std::string text;
        for (const auto& [key, v] : map) {
            text += std::string(text.empty() ? "" : ", ") + key + "=" + typedText(v);
        }
        return "{" + text + "}";
    }

    void play(const TavroScenarioEvent& e) {
        Json fields = stepFields(e);
        switch (e.kind) {
            case Kind::kAllocate: {
                mTaps->add("step", "allocate " + mScenario.component, fields);
                sp<AMessage> msg = new AMessage();
                msg->setObject(kKeyCodecInfo, new MediaCodecInfo(mScenario.component.c_str()));
                mCodec->initiateAllocateComponent(msg);
                runPending();
                return;
            }
            case Kind::kConfigure: {
                mTaps->add("step", "configure " + typedMapText(e.format), fields);
                sp<AMessage> format = buildMessage(e.format);
                callAndDiff("configure", "initiateConfigureComponent", format,
                            [&] { mCodec->initiateConfigureComponent(format); });
                runPending();
                return;
            }
            case Kind::kStart:
                mTaps->add("step", "start", fields);
                mCodec->initiateStart();
                runPending();
                return;
            case Kind::kSetParameters: {
                mTaps->add("step", "set_parameters " + typedMapText(e.format), fields);
                sp<AMessage> params = buildMessage(e.format);
                const bool passed =
                        callAndDiff("set_parameters", "signalSetParameters", params, [&] {
                            mTaps->setInSetParameters(true);
                            mCodec->signalSetParameters(params);
                            mTaps->setInSetParameters(false);
                        });
                if (!passed) {
                    Json none;
                    none["stage"] = "set_parameters";
                    none["change"] = "not_passed";
                    mTaps->add("format", "parameters not passed to the platform", none);
                }
                runPending();
                return;
            }
            case Kind::kInput:
                fields["time_us"] = e.timeUs;
                fields["bytes"] = e.bytes;
                mTaps->add("step",
                           "input pts " + std::to_string(e.timeUs) + " us, " +
                                   std::to_string(e.bytes) + " bytes",
                           fields);
                queueInput(e.timeUs, e.bytes);
                runPending();
                return;
            case Kind::kOutput: {
                fields["time_us"] = e.timeUs;
                std::string text = "output pts " + std::to_string(e.timeUs) + " us";
                if (!e.hasBuffer) text += ", no buffer";
                if (e.flags != 0) {
                    fields["flags"] = tavroHex32(e.flags);
                    text += ", flags " + tavroHex32(e.flags);
                }
                if (e.hdr.hasColorAspects) {
                    char aspects[96];
                    snprintf(aspects, sizeof(aspects),
                             ", colour aspects range %u primaries %u transfer %u matrix %u",
                             e.hdr.range, e.hdr.primaries, e.hdr.transfer, e.hdr.matrix);
                    text += aspects;
                    fields["color_aspects"] = {{"range", e.hdr.range},
                                               {"primaries", e.hdr.primaries},
                                               {"transfer", e.hdr.transfer},
                                               {"matrix", e.hdr.matrix}};
                }
                if (e.hdr.hasHdr10Plus) {
                    text += ", dynamic metadata " + std::to_string(e.hdr.hdr10Plus.size()) +
                            " bytes";
                    fields["hdr10plus_bytes"] = e.hdr.hdr10Plus.size();
                }
                for (const TavroRawRecord& r : e.configUpdate) {
                    text += ", configUpdate " + tavroHex32(r.index);
                }
                mTaps->add("step", text, fields);
                finishWork(&e, e.timeUs);
                runPending();
                return;
            }
            case Kind::kRender: {
                const int64_t renderNs = e.hasRenderNs ? e.renderNs : host::HostClock::now();
                fields["time_us"] = e.timeUs;
                fields["render_ns"] = renderNs;
                mTaps->add("step", "render pts " + std::to_string(e.timeUs) + " us", fields);
                render(e.timeUs, renderNs);
                runPending();
                return;
            }
            case Kind::kDiscard:
                fields["time_us"] = e.timeUs;
                mTaps->add("step", "discard pts " + std::to_string(e.timeUs) + " us", fields);
                discard(e.timeUs);
                runPending();
                return;
            case Kind::kClip:
                playClip(e, fields);
                return;
            case Kind::kFlush:
                mTaps->add("step", "flush", fields);
                mCodec->signalFlush();
                runPending();
                return;
            case Kind::kResume:
                mTaps->add("step", "resume", fields);
                mCodec->signalResume();
                runPending();
                return;
            case Kind::kAdvance:
                fields["us"] = e.advanceUs;
                mTaps->add("step",
                           "advance " + tavroFloatText(static_cast<double>(e.advanceUs) / 1000) +
                                   " ms",
                           fields);
                mLooper->advanceForTesting(e.advanceUs);
                return;
            case Kind::kShutdown:
                fields["keep_allocated"] = e.keepAllocated;
                mTaps->add("step",
                           std::string("shutdown") + (e.keepAllocated ? " (keep allocated)" : ""),
                           fields);
                mCodec->initiateShutdown(e.keepAllocated);
                runPending();
                return;
            case Kind::kDestroy:
                mTaps->add("step", "destroy", fields);
                destroyCodec();
                return;
        }
    }

    // N frames at F fps played at speed S: frame i has pts i * 1e6 / F µs and is handled
    // 1e6 / (F * S) µs after the one before it (input, output, then render or drop), the clock
    // and the timers moving along.
    void playClip(const TavroScenarioEvent& e, Json fields) {
        const int64_t frameUs = std::llround(1e6 / e.fps);
        const int64_t startUs = e.hasStartUs ? e.startUs : mPlayedFrames ? mLastPtsUs + frameUs : 0;
        fields["count"] = e.count;
        fields["fps"] = e.fps;
        fields["speed"] = e.speed;
        fields["drops"] = e.drops;
        fields["start_us"] = startUs;
        std::string text = "clip " + std::to_string(e.count) + " frames at " +
                           tavroFloatText(e.fps) + " fps, speed " + tavroFloatText(e.speed) +
                           "x, pts from " + std::to_string(startUs) + " us";
        if (e.drops > 0) text += ", every " + std::to_string(e.drops) + ". frame dropped";
        if (!e.renderFrames) text += ", not rendered";
        fields["render"] = e.renderFrames;
        mTaps->add("step", text, fields);

        const CCodecBufferChannel::Counters before = channel()->countersForTesting();
        int64_t clockUs = 0;
        for (int32_t i = 0; i < e.count; ++i) {
            const int64_t pts = startUs + std::llround(static_cast<double>(i) * 1e6 / e.fps);
            queueInput(pts, e.bytes);
            finishWork(nullptr, pts);
            if (!e.renderFrames) {
                // An encoder's outputs go to the app, not to a display.
            } else if (e.drops > 0 && (i + 1) % e.drops == 0) {
                discard(pts);
            } else {
                render(pts, host::HostClock::now());
            }
            runPending();
            const int64_t next = std::llround(static_cast<double>(i + 1) * 1e6 / (e.fps * e.speed));
            mLooper->advanceForTesting(next - clockUs);
            clockUs = next;
        }
        const CCodecBufferChannel::Counters after = channel()->countersForTesting();
        Json done;
        done["name"] = "clip_end";
        done["where"] = e.where;
        done["queued"] = after.queued - before.queued;
        done["outputs"] = after.worksDone - before.worksDone;
        done["rendered"] = after.rendered - before.rendered;
        done["dropped"] = after.discarded - before.discarded;
        mTaps->add("step",
                   "clip done: " + std::to_string(after.queued - before.queued) + " queued, " +
                           std::to_string(after.worksDone - before.worksDone) + " output, " +
                           std::to_string(after.rendered - before.rendered) + " rendered, " +
                           std::to_string(after.discarded - before.discarded) + " dropped",
                   done);
    }

    const TavroScenario& mScenario;
    const TavroSimOptions& mOptions;
    TavroTrace* mTrace;
    TavroProcFixture mFixture;
    sp<ALooper> mLooper;
    sp<TavroCCodec> mCodec;
    std::shared_ptr<CCodecBufferChannel> mChannelKeepAlive;
    TavroSimIdentity mIdentity;
    std::unique_ptr<TavroTraceTaps> mTaps;
    int64_t mLastPtsUs = 0;
    bool mPlayedFrames = false;
};

}  // namespace

bool playTavroScenario(const TavroScenario& scenario, const TavroSimOptions& options,
                       TavroTrace* trace, std::string* error) {
    Player player(scenario, options, trace);
    return player.run(error);
}

}  // namespace android
