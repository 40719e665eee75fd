// Timeline sink: trace entries to Trace Event Format events on per-track lists, written at the end.
#include "tools/sim/TavroTraceTimeline.h"

#include <stdio.h>
#include <stdlib.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include "sfplugin/TavroCCodec.h"
#include "sfplugin/TavroCCodecBufferChannel.h"
#include "sfplugin/TavroCCodecConfigure.h"
#include "sfplugin/TavroVideoBoostParams.h"
#include "tools/sim/TavroTraceText.h"

namespace android {

namespace {

using Json = nlohmann::ordered_json;
using Series = TavroTimelineFrames::Series;

constexpr int64_t kSecondUs = 1000000;
constexpr size_t kNone = std::numeric_limits<size_t>::max();
// Values measured per frame are shown at most every 100 ms, speed ratios to one decimal: enough to
// see a change of pace, small enough for hours of frames.
constexpr int64_t kPerFrameGapUs = 100000;
constexpr double kRatioSteps = 10;  // per unit

struct Event {
    char ph = 'i';  // 'X' complete slice, 'i' instant, 'C' counter
    int64_t ts = 0;
    int64_t dur = -1;  // 'X': -1 while open
    std::string cat;
    std::string name;
    Json args = Json::object();
    int64_t repeat = 1;  // instants: identical ones in a row
    int64_t lastTs = 0;
    bool mergeable = false;
};

// One track's events in the order they were made; sorted by time when written.
class TrackEvents {
  public:
    // An instant. A mergeable one identical to the track's last event (itself a mergeable
    // instant less than a second older) counts as a repeat of it instead, so calls made per frame
    // give at most one event per second.
    size_t instant(int64_t ts, std::string cat, std::string name, Json args, bool mergeable) {
        if (mergeable && !mEvents.empty()) {
            Event& last = mEvents.back();
            if (last.mergeable && last.ph == 'i' && ts - last.ts < kSecondUs && last.name == name &&
                last.cat == cat && last.args == args) {
                ++last.repeat;
                last.lastTs = ts;
                return mEvents.size() - 1;
            }
        }
        Event e;
        e.ts = ts;
        e.cat = std::move(cat);
        e.name = std::move(name);
        e.args = std::move(args);
        e.lastTs = ts;
        e.mergeable = mergeable;
        mEvents.push_back(std::move(e));
        return mEvents.size() - 1;
    }
    size_t open(int64_t ts, std::string cat, std::string name, Json args) {
        const size_t i = instant(ts, std::move(cat), std::move(name), std::move(args), false);
        mEvents[i].ph = 'X';
        return i;
    }
    // Ends a slice. One that lasted no time becomes an instant: viewers that turn slices into
    // begin and end events sort such an end before its begin when the next slice starts then.
    void close(size_t* slice, int64_t ts) {
        if (*slice == kNone) return;
        Event& e = mEvents[*slice];
        e.dur = std::max<int64_t>(ts - e.ts, 0);
        if (e.dur == 0) e.ph = 'i';
        *slice = kNone;
    }
    size_t counter(int64_t ts, const std::string& name, const std::string& key, double value) {
        Event e;
        e.ph = 'C';
        e.ts = ts;
        e.name = name;
        e.args[key] = value;
        mEvents.push_back(std::move(e));
        return mEvents.size() - 1;
    }
    Event& at(size_t i) { return mEvents[i]; }
    std::vector<Event>& events() { return mEvents; }

  private:
    std::vector<Event> mEvents;
};

// One counter series. It takes a value whenever its source says so and shows changes only. A
// series fed per frame has a minimum gap between the values it shows: a change within the gap is
// held and shown at the gap's end if it still stands, so a value that moves with every frame
// gives at most one event per gap.
class Counter {
  public:
    Counter(TrackEvents* track, std::string name, std::string key, int64_t minGapUs)
        : mTrack(track), mName(std::move(name)), mKey(std::move(key)), mMinGapUs(minGapUs) {}

    void set(int64_t ts, double value) {
        if (mHeld && ts >= mShownTs + mMinGapUs) {
            show(mShownTs + mMinGapUs, mHeldValue);
            mHeld = false;
        }
        if (mShown && value == mShownValue) {
            mHeld = false;
            return;
        }
        if (!mShown || ts == mShownTs || ts >= mShownTs + mMinGapUs) {
            show(ts, value);
            mHeld = false;
        } else {
            mHeld = true;
            mHeldValue = value;
        }
    }
    void finish(int64_t endUs) {
        if (!mHeld) return;
        show(std::max(mShownTs, std::min(mShownTs + mMinGapUs, endUs)), mHeldValue);
        mHeld = false;
    }

  private:
    void show(int64_t ts, double value) {
        if (mShown && ts == mShownTs) {
            mTrack->at(mIndex).args[mKey] = value;  // a later value at the same time wins
        } else {
            mIndex = mTrack->counter(ts, mName, mKey, value);
        }
        mShown = true;
        mShownTs = ts;
        mShownValue = value;
    }

    TrackEvents* mTrack;
    std::string mName;
    std::string mKey;
    int64_t mMinGapUs;
    bool mShown = false;
    int64_t mShownTs = 0;
    double mShownValue = 0;
    size_t mIndex = 0;
    bool mHeld = false;
    double mHeldValue = 0;
};

constexpr auto str = tavroTraceFieldText;
constexpr auto num = tavroTraceFieldInt;

double real(const Json& fields, const char* key, double otherwise = 0) {
    auto it = fields.find(key);
    return it != fields.end() && it->is_number() ? it->get<double>() : otherwise;
}

// A format value typed as the scenario writes it: bare int32 and string, {"int64": n}, ...
Json typedValue(const std::string& type, const Json& value) {
    if (type == "int32" || type == "string") return value;
    Json out = Json::object();
    out[type] = value;
    return out;
}

// "events[12]" -> 12; -1 otherwise.
int64_t eventIndex(const std::string& where) {
    constexpr char kPrefix[] = "events[";
    if (where.compare(0, sizeof(kPrefix) - 1, kPrefix) != 0) return -1;
    return strtoll(where.c_str() + sizeof(kPrefix) - 1, nullptr, 10);
}

}  // namespace

double tavroTimelineRatio(double ratio) {
    return std::round(ratio * kRatioSteps) / kRatioSteps;
}

struct TavroTraceTimeline::State {
    State(const TavroScenario& s, std::ostream& o)
        : scenario(s),
          out(o),
          tracks(trackNames().size()),
          frames([this](Series series, int64_t ts, double value) { onFrames(series, ts, value); }),
          queued(&tracks[kFrames], "queued frames", "per second", 0),
          output(&tracks[kFrames], "output frames", "per second", 0),
          rendered(&tracks[kFrames], "rendered frames", "per second", 0),
          dropped(&tracks[kFrames], "dropped frames", "per second", 0),
          contentRate(&tracks[kDetection], "content frame rate", "fps", kPerFrameGapUs),
          speedDisplay(&tracks[kDetection], "speed ratio to display", "x", kPerFrameGapUs),
          speedWall(&tracks[kDetection], "speed ratio to wall clock", "x", kPerFrameGapUs),
          hdrType(&tracks[kDetection], "HDR type", "type", 0),
          operatingRate(&tracks[kBoost], "operating rate", "fps", 0) {}

    void add(const TavroTraceEntry& e);
    void step(const TavroTraceEntry& e);
    void format(const TavroTraceEntry& e);
    void param(const TavroTraceEntry& e);
    void boost(const TavroTraceEntry& e);
    void unboost(const TavroTraceEntry& e);
    void call(const TavroTraceEntry& e);
    void clip(const TavroTraceEntry& e);
    void lifecycle(int64_t ts, const char* state);
    void libraryLog(int64_t ts, const std::string& message);
    void onFrames(Series series, int64_t ts, double value);
    void write();

    const TavroScenario& scenario;
    std::ostream& out;
    bool written = false;
    int64_t endUs = 0;
    std::vector<TrackEvents> tracks;
    TavroTimelineFrames frames;
    Counter queued, output, rendered, dropped;
    Counter contentRate, speedDisplay, speedWall, hdrType;
    Counter operatingRate;

    size_t lifecycleSlice = kNone;
    size_t clipSlice = kNone;
    size_t fastForwardSlice = kNone;
    size_t clusterSlice = kNone;
    std::vector<size_t> threadSlices;  // requests for more threads stack; all end together

    // The instant of the configure or set_parameters step whose format changes follow.
    size_t changeInstant = kNone;
    std::string changeStage;
    // The rate a set_parameters step asks for, until it is known to reach the platform.
    bool hasPendingRate = false;
    double pendingRate = 0;
    int64_t pendingRateUs = 0;
};

const std::vector<std::string>& TavroTraceTimeline::trackNames() {
    static const std::vector<std::string> kNames = {
            "codec",  "frames",  "detection", "boost", "boost thread part", "boost cluster part",
            "timers", "services"};
    return kNames;
}

TavroTraceTimeline::TavroTraceTimeline(const TavroScenario& scenario, std::ostream& out)
    : mState(std::make_unique<State>(scenario, out)) {}

TavroTraceTimeline::~TavroTraceTimeline() = default;

void TavroTraceTimeline::add(const TavroTraceEntry& entry) {
    mState->add(entry);
}

void TavroTraceTimeline::libraryLog(int64_t timeUs, const std::string& message) {
    mState->libraryLog(timeUs, message);
}

void TavroTraceTimeline::flush() {
    if (!mState->written) mState->write();
}

void TavroTraceTimeline::State::add(const TavroTraceEntry& e) {
    if (written) return;
    endUs = std::max(endUs, e.timeUs);
    const std::string& kind = e.kind;
    const Json& f = e.fields;
    if (kind == "step") return step(e);
    if (kind == "format") return format(e);
    if (kind == "declined") {
        // Steps of the configure that changed nothing: part of what the configure did.
        if (changeInstant != kNone && changeStage == "configure") {
            tracks[kCodec].at(changeInstant).args["declined"].push_back(f);
        }
        return;
    }
    if (kind == "param") return param(e);
    if (kind == "boost") return boost(e);
    if (kind == "unboost") return unboost(e);
    if (kind == "task_boost") {
        tracks[kBoost].instant(e.timeUs, kind, "task boost", f, false);
        return;
    }
    if (kind == "timer") {
        tracks[kTimers].instant(e.timeUs, kind, str(f, "name"), {{"what", str(f, "what")}}, false);
        return;
    }
    if (kind == "callback" || kind == "platform") {
        const Json args = f.value("args", Json::object());
        tracks[kCodec].instant(e.timeUs, kind, str(f, "name"), args, false);
        if (kind == "platform" && args.contains(kKeyOperatingRate)) {
            operatingRate.set(e.timeUs, real(args, kKeyOperatingRate));
        }
        return;
    }
    if (kind == "analysis" || kind == "feedback" || kind == "stat" || kind == "pelto")
        return call(e);
    // "log", "unused" and "summary" say nothing about a moment of the session.
}

// ---- Codec ----------------------------------------------------------------------------------

void TavroTraceTimeline::State::lifecycle(int64_t ts, const char* state) {
    tracks[kCodec].close(&lifecycleSlice, ts);
    if (state != nullptr) lifecycleSlice = tracks[kCodec].open(ts, "step", state, Json::object());
}

void TavroTraceTimeline::State::step(const TavroTraceEntry& e) {
    const Json& f = e.fields;
    const std::string name = str(f, "name");
    const int64_t ts = e.timeUs;
    changeInstant = kNone;
    if (name == "allocate") return lifecycle(ts, "allocated");
    if (name == "start" || name == "resume") return lifecycle(ts, "running");
    if (name == "shutdown")
        return lifecycle(ts, f.value("keep_allocated", false) ? "allocated" : "shut down");
    if (name == "destroy") return lifecycle(ts, nullptr);
    if (name == "flush") return lifecycle(ts, "flushed");
    if (name == "configure" || name == "set_parameters") {
        const bool configure = name == "configure";
        if (configure) lifecycle(ts, "configured");
        Json args = Json::object();
        args[configure ? "format" : "params"] = f.value(configure ? "format" : "params", Json());
        changeInstant = tracks[kCodec].instant(ts, "step", name, std::move(args), false);
        changeStage = name;
        const int64_t index = eventIndex(str(f, "where"));
        const TavroScenarioEvent* event =
                index >= 0 && static_cast<size_t>(index) < scenario.events.size()
                        ? &scenario.events[static_cast<size_t>(index)]
                        : nullptr;
        const TavroTypedValue* rate = nullptr;
        if (event != nullptr) {
            for (const auto& [key, value] : event->format) {
                if (key == kKeyOperatingRate) rate = &value;
            }
        }
        if (configure) {
            if (event != nullptr) frames.configure(ts, event->format);
            if (rate != nullptr && rate->type == TavroTypedValue::Type::kFloat) {
                operatingRate.set(ts, rate->floatValue);
            }
        } else if (rate != nullptr && rate->type == TavroTypedValue::Type::kFloat) {
            hasPendingRate = true;
            pendingRate = rate->floatValue;
            pendingRateUs = ts;
        }
        return;
    }
    if (name == "input") return frames.queued(ts);
    if (name == "render") return frames.rendered(ts);
    if (name == "discard") return frames.dropped(ts);
    if (name == "output") {
        const int64_t index = eventIndex(str(f, "where"));
        const TavroScenarioEvent* event =
                index >= 0 && static_cast<size_t>(index) < scenario.events.size()
                        ? &scenario.events[static_cast<size_t>(index)]
                        : nullptr;
        frames.output(ts, f.value("buffer", true), event != nullptr ? &event->hdr : nullptr);
        return;
    }
    if (name == "clip") return clip(e);
    if (name == "clip_end") {
        if (clipSlice != kNone) {
            Json& args = tracks[kFrames].at(clipSlice).args;
            for (const char* key : {"queued", "output", "rendered", "dropped"}) args[key] = f[key];
        }
        tracks[kFrames].close(&clipSlice, ts);
    }
    // "scenario" and "advance" leave nothing on the timeline.
}

void TavroTraceTimeline::State::format(const TavroTraceEntry& e) {
    const Json& f = e.fields;
    const std::string change = str(f, "change");
    const std::string key = str(f, "key");
    const std::string stage = str(f, "stage");
    if (stage == "set_parameters" && hasPendingRate) {
        if (change != "not_passed") operatingRate.set(pendingRateUs, pendingRate);
        hasPendingRate = false;
    }
    if ((change == "added" || change == "changed") && key == kKeyOperatingRate) {
        operatingRate.set(e.timeUs, real(f, "value"));
    }
    if (changeInstant == kNone || stage != changeStage) return;
    Json& args = tracks[kCodec].at(changeInstant).args;
    if (change == "added" || change == "removed") {
        args[change][key] = typedValue(str(f, "type"), f["value"]);
    } else if (change == "changed") {
        args[change][key] = Json::array({typedValue(str(f, "old_type"), f["old_value"]),
                                         typedValue(str(f, "type"), f["value"])});
    } else {
        args["passed"] = change == "none" ? "unchanged" : "not passed to the platform";
    }
}

// ---- Frames and detection -------------------------------------------------------------------

void TavroTraceTimeline::State::clip(const TavroTraceEntry& e) {
    const Json& f = e.fields;
    const double fps = real(f, "fps", 30);
    const double speed = real(f, "speed", 1);
    const int64_t count = num(f, "count");
    const int64_t drops = num(f, "drops");
    const bool render = f.value("render", true);
    Json args = Json::object();
    for (const char* key : {"count", "fps", "speed", "drops", "start_us"}) args[key] = f[key];
    clipSlice = tracks[kFrames].open(
            e.timeUs, "step",
            "clip " + tavroFloatText(fps) + " fps at " + tavroFloatText(speed) + "x",
            std::move(args));
    // The player's pacing: each frame is queued, finished and rendered or dropped at once.
    for (int64_t i = 0; i < count; ++i) {
        const int64_t ts = e.timeUs + tavroClipFrameClockUs(fps, speed, i);
        frames.queued(ts);
        frames.output(ts, true, nullptr);
        if (!render) continue;
        if (drops > 0 && (i + 1) % drops == 0) {
            frames.dropped(ts);
        } else {
            frames.rendered(ts);
        }
    }
}

void TavroTraceTimeline::State::onFrames(Series series, int64_t ts, double value) {
    switch (series) {
        case Series::kQueued:
            return queued.set(ts, value);
        case Series::kOutput:
            return output.set(ts, value);
        case Series::kRendered:
            return rendered.set(ts, value);
        case Series::kDropped:
            return dropped.set(ts, value);
        case Series::kHdrType:
            return hdrType.set(ts, value);
    }
}

void TavroTraceTimeline::State::param(const TavroTraceEntry& e) {
    const Json& f = e.fields;
    const std::string name = str(f, "name");
    const int64_t ts = e.timeUs;
    if (name == "FileFpsParam" && f.contains("value") && f["value"].is_number()) {
        contentRate.set(ts, real(f, "value"));
        return;
    }
    if (name == "VppModeParam" && f.contains("value")) {
        // Fast-forward mode from the write of 1 to the write of 0; rewrites change nothing.
        if (num(f, "value") != 0 && fastForwardSlice == kNone) {
            fastForwardSlice = tracks[kDetection].open(ts, "param", "fast-forward",
                                                       {{"status", num(f, "status")}});
        } else if (num(f, "value") == 0) {
            tracks[kDetection].close(&fastForwardSlice, ts);
        }
        return;
    }
    Json args = f;
    args.erase("name");
    tracks[kDetection].instant(ts, "param", name, std::move(args), true);
}

// The channel logs each render-time sample with the speed ratios it computed from it.
void TavroTraceTimeline::State::libraryLog(int64_t ts, const std::string& message) {
    if (written || message.compare(0, 7, "laster:") != 0) return;
    long long pts = 0, render = 0, sys = 0;
    float ptsUnit = 0, renderUnit = 0, sysUnit = 0, speed = 0, speed2 = 0;
    if (sscanf(message.c_str(), kLogRenderSample, &pts, &render, &sys, &ptsUnit, &renderUnit,
               &sysUnit, &speed, &speed2) != 8) {
        return;
    }
    // A sample not yet compared with an older one has no ratio; a dropped frame has no display
    // ratio. The counters keep the last ratio computed.
    if (ptsUnit == 0) return;
    endUs = std::max(endUs, ts);
    if (renderUnit != 0) speedDisplay.set(ts, tavroTimelineRatio(speed));
    speedWall.set(ts, tavroTimelineRatio(speed2));
}

// ---- Boost ----------------------------------------------------------------------------------

void TavroTraceTimeline::State::boost(const TavroTraceEntry& e) {
    const Json& f = e.fields;
    const int64_t ts = e.timeUs;
    if (f.contains("parcel")) {
        tracks[kBoost].instant(ts, "boost", "undecodable boost request", f, true);
        return;
    }
    // A request carries the thread part, the cluster part or both (the whole request).
    const bool cluster = !f.value("clusterParams", Json::array()).empty();
    const bool thread = !cluster || !f.value("threads", Json::array()).empty() ||
                        !f.value("uclampThreads", Json::array()).empty() ||
                        !f.value("swThreads", Json::array()).empty() ||
                        f.value("needVendorBoost", false) || num(f, "ddrFreq") != 0;
    if (thread) {
        Json args = f;
        args.erase("clusterParams");
        threadSlices.push_back(
                tracks[kBoostThread].open(ts, "boost", "thread part", std::move(args)));
    }
    if (cluster) {
        // A new cluster request while one is held takes its place.
        tracks[kBoostCluster].close(&clusterSlice, ts);
        clusterSlice = tracks[kBoostCluster].open(
                ts, "boost", "cluster part",
                {{"sched", f["sched"]}, {"clusterParams", f["clusterParams"]}});
    }
}

void TavroTraceTimeline::State::unboost(const TavroTraceEntry& e) {
    const uint32_t flags = static_cast<uint32_t>(num(e.fields, "flags"));
    const int64_t ts = e.timeUs;
    tracks[kBoost].instant(ts, "unboost", "release " + str(e.fields, "releases"),
                           {{"flags", flags}}, false);
    if (flags == kBoostReleaseCluster || flags == kBoostReleaseAll) {
        tracks[kBoostCluster].close(&clusterSlice, ts);
    }
    if (flags == kBoostReleaseAll) {
        for (size_t& slice : threadSlices) tracks[kBoostThread].close(&slice, ts);
        threadSlices.clear();
    }
}

// ---- Services -------------------------------------------------------------------------------

void TavroTraceTimeline::State::call(const TavroTraceEntry& e) {
    const Json& f = e.fields;
    const std::string name = str(f, "name");
    const Json args = f.value("args", Json::object());
    const int64_t ts = e.timeUs;
    if (e.kind == "analysis" && name == "setDataCorruptState") {
        const std::string state = str(args, "state");
        const char* what = state == kDataCorruptStart  ? "corrupt data start"
                           : state == kDataCorruptStop ? "corrupt data stop"
                                                       : "corrupt data";
        tracks[kFrames].instant(ts, e.kind, what, args, true);
        return;
    }
    if (e.kind == "analysis" && name == "setVppStutter") {
        tracks[kFrames].instant(ts, e.kind, "stutter", args, true);
        return;
    }
    if (e.kind == "pelto" && name == "setEvent" && str(args, "name") == kPeltoEventWechatSr) {
        tracks[kFrames].instant(ts, e.kind, "super-resolution", args, true);
        return;
    }
    tracks[kServices].instant(ts, e.kind, name, args, true);
}

// ---- Writing --------------------------------------------------------------------------------

void TavroTraceTimeline::State::write() {
    frames.finish(endUs);
    for (Counter* c : {&queued, &output, &rendered, &dropped, &contentRate, &speedDisplay,
                       &speedWall, &hdrType, &operatingRate}) {
        c->finish(endUs);
    }
    // Every slice closes: what is still held or running ends with the session.
    lifecycle(endUs, nullptr);
    tracks[kFrames].close(&clipSlice, endUs);
    tracks[kDetection].close(&fastForwardSlice, endUs);
    tracks[kBoostCluster].close(&clusterSlice, endUs);
    for (size_t& slice : threadSlices) tracks[kBoostThread].close(&slice, endUs);
    threadSlices.clear();

    const int64_t pid = scenario.process.pid;
    auto dump = [](const Json& j) {
        return j.dump(-1, ' ', false, Json::error_handler_t::replace);
    };
    bool first = true;
    auto emit = [&](const Json& j) {
        out << (first ? "\n" : ",\n") << dump(j);
        first = false;
    };
    out << "{\"traceEvents\": [";
    emit({{"name", "process_name"},
          {"ph", "M"},
          {"ts", 0},
          {"pid", pid},
          {"tid", 0},
          {"args", {{"name", scenario.process.name}}}});
    for (size_t t = 0; t < tracks.size(); ++t) {
        if (tracks[t].events().empty()) continue;
        const int64_t tid = static_cast<int64_t>(t) + 1;
        emit({{"name", "thread_name"},
              {"ph", "M"},
              {"ts", 0},
              {"pid", pid},
              {"tid", tid},
              {"args", {{"name", trackNames()[t]}}}});
        emit({{"name", "thread_sort_index"},
              {"ph", "M"},
              {"ts", 0},
              {"pid", pid},
              {"tid", tid},
              {"args", {{"sort_index", tid}}}});
    }
    for (size_t t = 0; t < tracks.size(); ++t) {
        std::vector<Event>& events = tracks[t].events();
        // In time order; at one time in the order made (a slice that holds another was opened
        // first, and a state that lasted no time comes before the one that followed it).
        std::stable_sort(events.begin(), events.end(),
                         [](const Event& a, const Event& b) { return a.ts < b.ts; });
        for (const Event& e : events) {
            Json j = Json::object();
            j["name"] = e.name;
            if (!e.cat.empty()) j["cat"] = e.cat;
            j["ph"] = std::string(1, e.ph);
            j["ts"] = e.ts;
            if (e.ph == 'X') j["dur"] = e.dur;
            j["pid"] = pid;
            j["tid"] = static_cast<int64_t>(t) + 1;
            if (e.ph == 'i') j["s"] = "t";
            Json args = e.args;
            if (e.repeat > 1) {
                args["repeat"] = e.repeat;
                args["last_t_us"] = e.lastTs;
            }
            j["args"] = std::move(args);
            emit(j);
        }
    }
    Json metadata = {{"tool", "tavro-sim"},
                     {"scenario", scenario.path},
                     {"process", scenario.process.name},
                     {"pid", pid},
                     {"component", scenario.component},
                     {"clock", "us of the scenario clock since the scenario started"},
                     {"end_us", endUs}};
    out << "\n],\n\"displayTimeUnit\": \"ms\",\n\"metadata\": " << dump(metadata) << "}\n";
    out.flush();
    written = true;
}

}  // namespace android
