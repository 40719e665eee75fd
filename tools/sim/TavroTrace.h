// The trace tavro-sim prints: what the library did during a scenario, one entry per thing that
// reached the platform or the maker's services, in the order it happened.
//
// An entry is typed data: a kind, a time and fields (JSON values: numbers, strings, objects). The
// readable line is rendered from the fields (TavroTraceText.h), so the text and the JSON view say
// the same with the same names, and a sink that wants neither (a timeline) takes the fields.
// Entries flow to sinks as they happen: the command streams them (TavroTraceWriter), tests keep
// them (TavroTrace). Consecutive identical entries are merged with a repeat count by the sinks
// that print, so per-frame reports do not drown the rest.
#pragma once

#include <stdint.h>

#include <functional>
#include <ostream>
#include <set>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace android {

struct TavroTraceEntry {
    // "step" (a scenario event), "format", "declined", "param", "boost", "unboost", "task_boost",
    // "feedback", "stat", "analysis", "pelto", "callback", "platform", "timer", "log", "unused",
    // "summary".
    std::string kind;
    int64_t timeUs = 0;      // since the start of the scenario, on the simulated clock
    int64_t lastTimeUs = 0;  // time of the last merged repeat
    int32_t repeat = 1;
    std::string text;  // the readable line, without time and kind; "" = rendered from the fields
    nlohmann::ordered_json fields = nlohmann::ordered_json::object();  // the typed content
};

// A field read as the text trace shows it: a string as it is, any other value as JSON, a missing
// one as "".
inline std::string tavroTraceFieldText(const nlohmann::ordered_json& fields, const char* key) {
    auto it = fields.find(key);
    if (it == fields.end()) return "";
    return it->is_string() ? it->get<std::string>() : it->dump();
}

// A numeric field as an integer; 0 when missing or not a number.
inline int64_t tavroTraceFieldInt(const nlohmann::ordered_json& fields, const char* key) {
    auto it = fields.find(key);
    return it != fields.end() && it->is_number() ? it->get<int64_t>() : 0;
}

// Every kind an entry may have, in the order the README lists them.
const std::vector<std::string>& tavroTraceKinds();

// Receives entries one at a time, in order, each with repeat 1.
class TavroTraceSink {
  public:
    virtual ~TavroTraceSink() = default;
    virtual void add(const TavroTraceEntry& entry) = 0;
    // The same, with an entry the sink may keep without copying it.
    virtual void take(TavroTraceEntry&& entry) { add(entry); }
    // Writes out what is held back (a merged line still counting). Called at the end, and when
    // the library is about to stop the process.
    virtual void flush() {}
};

// Merges an entry into the one before it when kind, text and fields are equal; hands each
// finished (merged) entry to `out`. Holds one entry at a time.
class TavroTraceMerger {
  public:
    explicit TavroTraceMerger(std::function<void(const TavroTraceEntry&)> out)
        : mOut(std::move(out)) {}
    void add(const TavroTraceEntry& entry);
    void add(TavroTraceEntry&& entry);
    void flush();

  private:
    std::function<void(const TavroTraceEntry&)> mOut;
    TavroTraceEntry mHeld;
    bool mHolding = false;
};

// The trace in memory, merged (tests and in-process callers).
class TavroTrace : public TavroTraceSink {
  public:
    // Appends `entry` (its text rendered when empty), or counts it as a repeat of the last.
    void add(const TavroTraceEntry& entry) override;
    const std::vector<TavroTraceEntry>& entries() const { return mEntries; }

    // Entries of `kind` (all kinds for "").
    std::vector<TavroTraceEntry> ofKind(const std::string& kind) const;

    // "[    1.000] kind       text (x3 until 1.067)" lines, time in seconds.
    static std::string textLine(const TavroTraceEntry& entry);
    // {"kind": ..., "t_us": ..., fields..., "repeat": n, "last_t_us": t} (repeat only when > 1).
    static std::string jsonLine(const TavroTraceEntry& entry);

    void writeText(std::ostream& out) const;
    void writeJson(std::ostream& out) const;

  private:
    std::vector<TavroTraceEntry> mEntries;
};

// Streams merged lines (text or JSON) to `out`, each flushed as soon as it is complete.
class TavroTraceWriter : public TavroTraceSink {
  public:
    TavroTraceWriter(std::ostream& out, bool json);
    void add(const TavroTraceEntry& entry) override { mMerger.add(entry); }
    void take(TavroTraceEntry&& entry) override { mMerger.add(std::move(entry)); }
    void flush() override;

  private:
    std::ostream& mOut;
    bool mJson;
    TavroTraceMerger mMerger;
};

// Passes on the entries of some kinds only (those in `kinds`).
class TavroTraceFilter : public TavroTraceSink {
  public:
    TavroTraceFilter(TavroTraceSink* next, std::set<std::string> kinds)
        : mNext(next), mKinds(std::move(kinds)) {}
    void add(const TavroTraceEntry& entry) override {
        if (mKinds.count(entry.kind) > 0) mNext->add(entry);
    }
    void take(TavroTraceEntry&& entry) override {
        if (mKinds.count(entry.kind) > 0) mNext->take(std::move(entry));
    }
    void flush() override { mNext->flush(); }

  private:
    TavroTraceSink* mNext;
    std::set<std::string> mKinds;
};

// Hands every entry to several sinks.
class TavroTraceTee : public TavroTraceSink {
  public:
    explicit TavroTraceTee(std::vector<TavroTraceSink*> sinks) : mSinks(std::move(sinks)) {}
    void add(const TavroTraceEntry& entry) override {
        for (TavroTraceSink* sink : mSinks) sink->add(entry);
    }
    void take(TavroTraceEntry&& entry) override {
        for (size_t i = 0; i + 1 < mSinks.size(); ++i) mSinks[i]->add(entry);
        if (!mSinks.empty()) mSinks.back()->take(std::move(entry));
    }
    void flush() override {
        for (TavroTraceSink* sink : mSinks) sink->flush();
    }

  private:
    std::vector<TavroTraceSink*> mSinks;
};

}  // namespace android
