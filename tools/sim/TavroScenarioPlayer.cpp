// Scenario player. Everything the library reports reaches the trace through three taps, all on the
// playing thread: the host event listener (platform and closed-component calls), the host log
// listener (log lines with --log-level, warnings, and a fatal check stopping the process) and the
// codec's own message dispatch (timer firings), seen through a thin subclass that only watches.
#include "tools/sim/TavroScenarioPlayer.h"

#include <stdlib.h>
#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <functional>
#include <list>
#include <memory>
#include <set>
#include <tuple>

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
#include "sfplugin/TavroSessionRecorder.h"
#include "sfplugin/TavroVideoBoostParams.h"
#include "sfplugin/TavroVideoTaskBoost.h"
#include "tools/sim/TavroProcFixture.h"
#include "tools/sim/TavroTraceTaps.h"
#include "tools/sim/TavroTraceText.h"
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

// A format or parameter value as the scenario writes it: bare int32 and string, {"int64": n},
// {"float": x}.
Json typedJson(const TavroTypedValue& v) {
    switch (v.type) {
        case TavroTypedValue::Type::kInt32:
            return v.intValue;
        case TavroTypedValue::Type::kInt64:
            return {{"int64", v.intValue}};
        case TavroTypedValue::Type::kFloat:
            if (!std::isfinite(v.floatValue)) return {{"float", tavroFloatText(v.floatValue)}};
            return {{"float", strtod(tavroFloatText(v.floatValue).c_str(), nullptr)}};
        case TavroTypedValue::Type::kString:
            return v.stringValue;
    }
    return nullptr;
}

Json typedMapJson(const TavroTypedMap& map) {
    Json out = Json::object();
    for (const auto& [key, v] : map) out.get_ref<Json::object_t&>().emplace_back(key, typedJson(v));
    return out;
}

const char* listKeyName(host::HostListService::Key key) {
    switch (key) {
        case host::HostListService::Key::kUid:
            return "uid";
        case host::HostListService::Key::kPid:
            return "pid";
        case host::HostListService::Key::kName:
            return "name";
        case host::HostListService::Key::kActivity:
            return "activity";
    }
    return "?";
}

class Player {
  public:
    Player(const TavroScenario& scenario, const TavroSimOptions& options, TavroTraceSink* sink)
        : mScenario(scenario), mOptions(options), mSink(sink) {}

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
        for (const TavroScenarioEvent& event : mScenario.events) {
            mPlaying = &event;
            play(event);
        }
        mPlaying = nullptr;
        if (mCodec != nullptr) {
            Json end;
            end["name"] = "destroy";
            end["where"] = "end of scenario";
            mTaps->add("step", std::move(end));
            destroyCodec();
        }
        // A scenario that turned on the session recording has its file complete on return.
        TavroSessionRecorder::waitForWritersForTesting();
        addUnused();
        mSink->flush();
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
        mTaps->add("step", std::move(fields));
    }

    // ---- Unused ---------------------------------------------------------------------------------

    // Entries the scenario gave that the library never asked for, with what it asked in that list
    // instead; properties it set that nothing read.
    void addUnused() {
        using Key = host::HostListService::Key;
        const std::vector<host::HostListService::Ask> asks = host::HostListService::asks();
        std::set<std::tuple<std::string, Key, std::string>> asked;
        for (const auto& a : asks) asked.emplace(a.list, a.key, a.id);
        auto shown = [&](Key key, const std::string& id) -> Json {
            const int64_t value = strtoll(id.c_str(), nullptr, 10);
            if (key == Key::kUid) return mIdentity.shownUid(value);
            if (key == Key::kPid) return mIdentity.shownId(value);
            return id;
        };
        for (const TavroScenarioList& list : mScenario.lists) {
            for (const TavroListEntry& entry : list.entries) {
                Key key = Key::kUid;
                std::string id = entry.name;
                Json shownId = entry.name;
                switch (entry.key) {
                    case TavroListEntry::Key::kUid:
                        id = std::to_string(mIdentity.realUidOf(entry.id)), shownId = entry.id;
                        break;
                    case TavroListEntry::Key::kPid:
                        key = Key::kPid;
                        id = std::to_string(mIdentity.realPidOf(entry.id)), shownId = entry.id;
                        break;
                    case TavroListEntry::Key::kName:
                        key = Key::kName;
                        break;
                    case TavroListEntry::Key::kActivity:
                        key = Key::kActivity;
                        break;
                }
                if (asked.count({list.name, key, id}) > 0) continue;
                Json instead = Json::array();
                for (const auto& a : asks) {
                    if (a.list == list.name) {
                        instead.push_back(
                                {{"key", listKeyName(a.key)}, {"id", shown(a.key, a.id)}});
                    }
                }
                Json fields;
                fields["what"] = "list_entry";
                fields["list"] = list.name;
                fields["key"] = listKeyName(key);
                fields["id"] = shownId;
                fields["asked"] = std::move(instead);
                mTaps->add("unused", std::move(fields));
            }
        }
        const std::vector<std::string> read = host::HostProperties::readKeys();
        std::set<std::string> reported;
        for (const auto& [key, value] : mScenario.properties) {
            if (std::binary_search(read.begin(), read.end(), key)) continue;
            if (!reported.insert(key).second) continue;
            Json fields;
            fields["what"] = "property";
            fields["name"] = key;
            mTaps->add("unused", std::move(fields));
        }
    }

    // ---- World ----------------------------------------------------------------------------------

    void setUpWorld() {
        host::HostClock::useManual();
        mStartNs = host::HostClock::now();
        mTaps = std::make_unique<TavroTraceTaps>(mSink, &mIdentity, mStartNs);
        host::HostProperties::clear();
        host::HostListService::clear();
        host::HostLog::clear();
        // Only the listener below sees events: a record of a long session would only grow.
        host::HostEvents::setEnabled(false);
        host::HostEvents::clear();
        TavroVideoBoost::clearRequestsForTesting();
        TavroVideoBoost::setAvailableForTesting(true);
        TavroVideoBoost::setStatusForTesting(OK);
        TavroWhiteListCacheMgr* cache = TavroWhiteListCacheMgr::getInstance();
        if (!mOptions.keepWhiteListCache) cache->resetForTesting();
        // Faster than real time: a recording waits for its writer rather than drop frames.
        TavroSessionRecorder::setLosslessForTesting(true);
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
        if (mOptions.hasLogLevel || mOptions.onLibraryLog) {
            const int32_t level = mOptions.hasLogLevel ? mOptions.logLevel : kTavroLogVerbose;
            host::HostProperties::set(kTavroLogLevelProperty, std::to_string(level));
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
        host::HostLog::setListener([this](const host::LogRecord& r) { onLog(r); });
    }

    void onLog(const host::LogRecord& r) {
        if (mOptions.onLibraryLog)
            mOptions.onLibraryLog((host::HostClock::now() - mStartNs) / 1000, r);
        if (mOptions.hasLogLevel) mTaps->addLog(r);
        if (r.priority >= ANDROID_LOG_FATAL) {
            // The library stops the process after this: keep what was traced, say why.
            mSink->flush();
            mFixture.remove();
            const std::string during =
                    mPlaying != nullptr
                            ? mPlaying->where + " (" + tavroScenarioEventName(mPlaying->kind) + ")"
                            : "the end of the scenario";
            if (mOptions.onFatal) {
                mOptions.onFatal("tavro-sim: " + mScenario.path +
                                 ": the library stopped the process on a fatal check during " +
                                 during + ": F/" + r.tag + ": " + mIdentity.shownText(r.message));
            }
            return;
        }
        if (!mOptions.hasLogLevel && r.priority >= ANDROID_LOG_WARN && mOptions.onWarning) {
            char head[64];
            snprintf(head, sizeof(head), "%c/", r.priority == ANDROID_LOG_WARN ? 'W' : 'E');
            char pid[32];
            snprintf(pid, sizeof(pid), "(%5lld): ", static_cast<long long>(mIdentity.aliasPid));
            mOptions.onWarning(head + r.tag + pid + mIdentity.shownText(r.message));
        }
    }

    void createCodec() {
        mLooper = new ALooper();
        mLooper->setName("tavro-sim");
        mLooper->setManualForTesting(true);
        TavroSimCodec* codec = new TavroSimCodec();
        mCodec = codec;
        mTaps->setCodecAddress(static_cast<int64_t>(reinterpret_cast<intptr_t>(codec)));
        mIdentity.nameAddress(reinterpret_cast<uintptr_t>(codec), "codec#1");
        mIdentity.nameAddress(reinterpret_cast<uintptr_t>(codec->channelForTesting().get()),
                              "channel#1");
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
        if (!mOptions.keepWhiteListCache) TavroWhiteListCacheMgr::getInstance()->resetForTesting();
        TavroWhiteListCacheMgr::getInstance()->setClockForTesting(nullptr);
        TavroSessionRecorder::setLosslessForTesting(false);
        setProcRootForTesting("");
        setProcessNameRootForTesting("");
        IPCThreadState::self()->clearCallingIdentityForTesting();
        mLooper.clear();
        host::HostEvents::setEnabled(true);
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
        CCodec::Call last;
        *count = mCodec->callCountForTesting(name, &last);
        return last.msg;
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

    // The configure steps that changed nothing, one line per reason and status, in the order
    // their first step ran: the codec keeps each step's outcome, so nothing is read from logs.
    void traceDeclinedSteps() {
        std::vector<Json> lines;
        for (const TavroConfigureStepResult& r : mCodec->lastConfigureResults()) {
            if (r.reason == nullptr) continue;
            auto same = std::find_if(lines.begin(), lines.end(), [&](const Json& line) {
                return line["reason"] == r.reason && line["status"] == r.status;
            });
            if (same == lines.end()) {
                Json line;
                line["steps"] = Json::array();
                line["reason"] = r.reason;
                line["status"] = r.status;
                same = lines.insert(lines.end(), std::move(line));
            }
            (*same)["steps"].push_back(r.name);
        }
        for (Json& line : lines) mTaps->add("declined", std::move(line));
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
            if (desc != nullptr) {
                for (const std::shared_ptr<C2Info>& info : tavroOutputInfos(desc->hdr)) {
                    buffer->setInfo(info);
                }
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
        fields["name"] = tavroScenarioEventName(e.kind);
        fields["where"] = e.where;
        return fields;
    }

    void play(const TavroScenarioEvent& e) {
        Json fields = stepFields(e);
        switch (e.kind) {
            case Kind::kAllocate: {
                fields["component"] = mScenario.component;
                mTaps->add("step", std::move(fields));
                sp<AMessage> msg = new AMessage();
                msg->setObject(kKeyCodecInfo, new MediaCodecInfo(mScenario.component.c_str()));
                mCodec->initiateAllocateComponent(msg);
                runPending();
                return;
            }
            case Kind::kConfigure: {
                fields["format"] = typedMapJson(e.format);
                mTaps->add("step", std::move(fields));
                sp<AMessage> format = buildMessage(e.format);
                callAndDiff("configure", "initiateConfigureComponent", format,
                            [&] { mCodec->initiateConfigureComponent(format); });
                traceDeclinedSteps();
                runPending();
                return;
            }
            case Kind::kStart:
                mTaps->add("step", std::move(fields));
                mCodec->initiateStart();
                runPending();
                return;
            case Kind::kSetParameters: {
                fields["params"] = typedMapJson(e.format);
                mTaps->add("step", std::move(fields));
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
                    mTaps->add("format", std::move(none));
                }
                runPending();
                return;
            }
            case Kind::kInput:
                fields["time_us"] = e.timeUs;
                fields["bytes"] = e.bytes;
                mTaps->add("step", std::move(fields));
                queueInput(e.timeUs, e.bytes);
                runPending();
                return;
            case Kind::kOutput: {
                fields["time_us"] = e.timeUs;
                if (!e.hasBuffer) fields["buffer"] = false;
                if (e.flags != 0) fields["flags"] = e.flags;
                if (e.hdr.hasColorAspects) {
                    fields["color_aspects"] = {{"range", e.hdr.range},
                                               {"primaries", e.hdr.primaries},
                                               {"transfer", e.hdr.transfer},
                                               {"matrix", e.hdr.matrix}};
                }
                if (e.hdr.hasHdr10Plus) fields["hdr10plus_bytes"] = e.hdr.hdr10Plus.size();
                if (!e.configUpdate.empty()) {
                    Json indices = Json::array();
                    for (const TavroRawRecord& r : e.configUpdate) {
                        indices.push_back(tavroHex32(r.index));
                    }
                    fields["config_update"] = std::move(indices);
                }
                mTaps->add("step", std::move(fields));
                finishWork(&e, e.timeUs);
                runPending();
                return;
            }
            case Kind::kRender: {
                const int64_t renderNs = e.hasRenderNs ? e.renderNs : host::HostClock::now();
                fields["time_us"] = e.timeUs;
                fields["render_ns"] = renderNs;
                mTaps->add("step", std::move(fields));
                render(e.timeUs, renderNs);
                runPending();
                return;
            }
            case Kind::kDiscard:
                fields["time_us"] = e.timeUs;
                mTaps->add("step", std::move(fields));
                discard(e.timeUs);
                runPending();
                return;
            case Kind::kClip:
                playClip(e, std::move(fields));
                return;
            case Kind::kFlush:
                mTaps->add("step", std::move(fields));
                mCodec->signalFlush();
                runPending();
                return;
            case Kind::kResume:
                mTaps->add("step", std::move(fields));
                mCodec->signalResume();
                runPending();
                return;
            case Kind::kAdvance:
                fields["us"] = e.advanceUs;
                mTaps->add("step", std::move(fields));
                mLooper->advanceForTesting(e.advanceUs);
                return;
            case Kind::kShutdown:
                fields["keep_allocated"] = e.keepAllocated;
                mTaps->add("step", std::move(fields));
                mCodec->initiateShutdown(e.keepAllocated);
                runPending();
                return;
            case Kind::kDestroy:
                mTaps->add("step", std::move(fields));
                destroyCodec();
                return;
        }
    }

    // N frames at F fps played at speed S: frame i has pts i * 1e6 / F µs and is handled
    // 1e6 / (F * S) µs after the one before it (input, output, then render or drop), the clock
    // and the timers moving along.
    void playClip(const TavroScenarioEvent& e, Json fields) {
        const int64_t frameUs = tavroClipFramePtsUs(e.fps, 1);
        const int64_t startUs = e.hasStartUs ? e.startUs : mPlayedFrames ? mLastPtsUs + frameUs : 0;
        fields["count"] = e.count;
        fields["fps"] = e.fps;
        fields["speed"] = e.speed;
        fields["drops"] = e.drops;
        fields["start_us"] = startUs;
        fields["render"] = e.renderFrames;
        mTaps->add("step", std::move(fields));

        const CCodecBufferChannel::Counters before = channel()->countersForTesting();
        int64_t clockUs = 0;
        for (int32_t i = 0; i < e.count; ++i) {
            const int64_t pts = startUs + tavroClipFramePtsUs(e.fps, i);
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
            const int64_t next = tavroClipFrameClockUs(e.fps, e.speed, i + 1);
            mLooper->advanceForTesting(next - clockUs);
            clockUs = next;
        }
        const CCodecBufferChannel::Counters after = channel()->countersForTesting();
        Json done;
        done["name"] = "clip_end";
        done["where"] = e.where;
        done["queued"] = after.queued - before.queued;
        done["output"] = after.worksDone - before.worksDone;
        done["rendered"] = after.rendered - before.rendered;
        done["dropped"] = after.discarded - before.discarded;
        mTaps->add("step", std::move(done));
    }

    const TavroScenario& mScenario;
    const TavroSimOptions& mOptions;
    TavroTraceSink* mSink;
    const TavroScenarioEvent* mPlaying = nullptr;  // for the line a fatal check leaves
    TavroProcFixture mFixture;
    sp<ALooper> mLooper;
    sp<TavroCCodec> mCodec;
    std::shared_ptr<CCodecBufferChannel> mChannelKeepAlive;
    TavroSimIdentity mIdentity;
    std::unique_ptr<TavroTraceTaps> mTaps;
    int64_t mStartNs = 0;  // the host clock when the scenario started
    int64_t mLastPtsUs = 0;
    bool mPlayedFrames = false;
};

}  // namespace

std::vector<std::shared_ptr<C2Info>> tavroOutputInfos(const TavroHdrDescription& hdr) {
    std::vector<std::shared_ptr<C2Info>> infos;
    if (hdr.hasColorAspects) {
        std::vector<uint8_t> payload;
        for (uint32_t v : {hdr.range, hdr.primaries, hdr.transfer, hdr.matrix}) {
            for (int i = 0; i < 4; ++i) payload.push_back(static_cast<uint8_t>(v >> (8 * i)));
        }
        infos.push_back(host::makeC2Info(kColorAspectsInfoIndex, payload));
    }
    if (hdr.hasHdr10Plus) infos.push_back(host::makeC2Info(kHdr10PlusInfoIndex, hdr.hdr10Plus));
    return infos;
}

bool playTavroScenario(const TavroScenario& scenario, const TavroSimOptions& options,
                       TavroTraceSink* sink, std::string* error) {
    Player player(scenario, options, sink);
    return player.run(error);
}

}  // namespace android
