#include "tools/sim/TavroTrace.h"

#include <cinttypes>
#include <cstdio>

namespace android {

namespace {

std::string seconds(int64_t us) {
    char text[32];
    snprintf(text, sizeof(text), "%.3f", static_cast<double>(us) / 1e6);
    return text;
}

}  // namespace

void TavroTrace::add(TavroTraceEntry entry) {
    if (!mEntries.empty()) {
        TavroTraceEntry& last = mEntries.back();
        if (last.kind == entry.kind && last.text == entry.text && last.fields == entry.fields) {
            ++last.repeat;
            last.lastTimeUs = entry.timeUs;
            return;
        }
    }
    entry.lastTimeUs = entry.timeUs;
    mEntries.push_back(std::move(entry));
}

std::vector<TavroTraceEntry> TavroTrace::ofKind(const std::string& kind) const {
    std::vector<TavroTraceEntry> out;
    for (const TavroTraceEntry& e : mEntries) {
        if (kind.empty() || e.kind == kind) out.push_back(e);
    }
    return out;
}

std::string TavroTrace::textLine(const TavroTraceEntry& entry) {
    char head[64];
    snprintf(head, sizeof(head), "[%9s] %-10s ", seconds(entry.timeUs).c_str(), entry.kind.c_str());
    std::string line = head + entry.text;
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

}  // namespace android
