#include "tools/sim/TavroTrace.h"

#include <cinttypes>
#include <cstdio>

#include "tools/sim/TavroTraceText.h"

namespace android {

namespace {

// Seconds with three decimals, as printf's "%.3f" of us / 1e6 gives them. Written by hand: it is
// on every line of a trace that may have millions.
std::string seconds(int64_t us) {
    char text[32];
    if (us < 0 || us % 1000 == 500) {
        // Negative, or exactly between two milliseconds: the double's rounding decides.
        snprintf(text, sizeof(text), "%.3f", static_cast<double>(us) / 1e6);
        return text;
    }
    const int64_t ms = (us + 500) / 1000;
    std::string out = std::to_string(ms / 1000);
    const int frac = static_cast<int>(ms % 1000);
    out += '.';
    out += static_cast<char>('0' + frac / 100);
    out += static_cast<char>('0' + frac / 10 % 10);
    out += static_cast<char>('0' + frac % 10);
    return out;
}

bool sameEntry(const TavroTraceEntry& a, const TavroTraceEntry& b) {
    return a.kind == b.kind && a.text == b.text && a.fields == b.fields;
}

}  // namespace

const std::vector<std::string>& tavroTraceKinds() {
    static const std::vector<std::string> kKinds = {
            "step",       "format",   "declined", "param",    "boost",  "unboost",
            "task_boost", "feedback", "stat",     "analysis", "pelto",  "callback",
            "platform",   "timer",    "log",      "unused",   "summary"};
    return kKinds;
}

void TavroTraceMerger::add(const TavroTraceEntry& entry) {
    if (mHolding && sameEntry(mHeld, entry)) {
        ++mHeld.repeat;
        mHeld.lastTimeUs = entry.timeUs;
        return;
    }
    add(TavroTraceEntry(entry));
}

void TavroTraceMerger::add(TavroTraceEntry&& entry) {
    if (mHolding && sameEntry(mHeld, entry)) {
        ++mHeld.repeat;
        mHeld.lastTimeUs = entry.timeUs;
        return;
    }
    flush();
    mHeld = std::move(entry);
    mHeld.repeat = 1;
    mHeld.lastTimeUs = mHeld.timeUs;
    mHolding = true;
}

void TavroTraceMerger::flush() {
    if (!mHolding) return;
    mHolding = false;
    mOut(mHeld);
}

void TavroTrace::add(const TavroTraceEntry& entry) {
    TavroTraceEntry copy = entry;
    if (copy.text.empty()) copy.text = tavroTraceText(copy);
    if (!mEntries.empty() && sameEntry(mEntries.back(), copy)) {
        ++mEntries.back().repeat;
        mEntries.back().lastTimeUs = copy.timeUs;
        return;
    }
    copy.repeat = 1;
    copy.lastTimeUs = copy.timeUs;
    mEntries.push_back(std::move(copy));
}

std::vector<TavroTraceEntry> TavroTrace::ofKind(const std::string& kind) const {
    std::vector<TavroTraceEntry> out;
    for (const TavroTraceEntry& e : mEntries) {
        if (kind.empty() || e.kind == kind) out.push_back(e);
    }
    return out;
}

std::string TavroTrace::textLine(const TavroTraceEntry& entry) {
    // "[%9s] %-10s " by hand, for the same reason.
    const std::string time = seconds(entry.timeUs);
    std::string line = "[";
    if (time.size() < 9) line.append(9 - time.size(), ' ');
    line += time;
    line += "] ";
    line += entry.kind;
    if (entry.kind.size() < 10) line.append(10 - entry.kind.size(), ' ');
    line += ' ';
    line += entry.text.empty() ? tavroTraceText(entry) : entry.text;
    if (entry.repeat > 1) {
        line += " (x" + std::to_string(entry.repeat);
        if (entry.lastTimeUs != entry.timeUs) line += " until " + seconds(entry.lastTimeUs);
        line += ")";
    }
    while (!line.empty() && line.back() == ' ') line.pop_back();
    return line;
}

std::string TavroTrace::jsonLine(const TavroTraceEntry& entry) {
    nlohmann::ordered_json j = nlohmann::ordered_json::object();
    j["kind"] = entry.kind;
    j["t_us"] = entry.timeUs;
    for (auto it = entry.fields.begin(); it != entry.fields.end(); ++it) j[it.key()] = it.value();
    if (entry.repeat > 1) {
        j["repeat"] = entry.repeat;
        j["last_t_us"] = entry.lastTimeUs;
    }
    // Library text (log lines, list values) need not be UTF-8: replace rather than throw.
    return j.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

void TavroTrace::writeText(std::ostream& out) const {
    for (const TavroTraceEntry& e : mEntries) out << textLine(e) << '\n';
}

void TavroTrace::writeJson(std::ostream& out) const {
    for (const TavroTraceEntry& e : mEntries) out << jsonLine(e) << '\n';
}

TavroTraceWriter::TavroTraceWriter(std::ostream& out, bool json)
    : mOut(out), mJson(json), mMerger([this](const TavroTraceEntry& e) {
          // One line at a time, flushed: what is printed stays printed if the process stops.
          mOut << (mJson ? TavroTrace::jsonLine(e) : TavroTrace::textLine(e)) << '\n';
          mOut.flush();
      }) {}

void TavroTraceWriter::flush() {
    mMerger.flush();
    mOut.flush();
}

}  // namespace android
