// Trace taps: host events, log records and timer messages to trace entries.
#include "tools/sim/TavroTraceTaps.h"

#include <stdlib.h>
#include <string.h>
#include <sys/types.h>

#include <charconv>
#include <cmath>
#include <cstdio>
#include <vector>

#include <binder/Parcel.h>
#include <host/HostClock.h>
#include <log/log.h>

#include "sfplugin/TavroCCodec.h"
#include "sfplugin/TavroCCodecBufferChannel.h"
#include "sfplugin/TavroVideoBoostParams.h"
#include "sfplugin/TavroVideoTaskBoost.h"

namespace android {

namespace {

using Json = nlohmann::ordered_json;

struct TimerName {
    uint32_t what;
    const char* name;
    const char* meaning;
};

constexpr TimerName kTimers[] = {
        {kWhatCheckFps, "cFps", "frame-rate check"},
        {kWhatCheckOperatingRate, "cOpt", "operating-rate watchdog"},
        {kWhatResetOperatingRate, "rOpt", "restore operating rate"},
        {kWhatBoostApp, "bApp", "boost app key threads"},
};

struct ParamName {
    uint32_t index;
    const char* name;
    bool isFloat;
};

constexpr ParamName kParams[] = {
        {kVppInputDelayParamIndex, "VppInputDelayParam", false},
        {kVppModeParamIndex, "VppModeParam", false},
        {kFileFpsParamIndex, "FileFpsParam", true},
};

}  // namespace

std::string tavroHex32(uint32_t value) {
    char text[16];
    snprintf(text, sizeof(text), "0x%08x", value);
    return text;
}

std::string tavroFloatText(double value) {
    char text[64];
    auto result = std::to_chars(text, text + sizeof(text), value);
    return std::string(text, result.ptr);
}

std::string tavroFloatText(float value) {
    char text[64];
    auto result = std::to_chars(text, text + sizeof(text), value);
    return std::string(text, result.ptr);
}

namespace {

// A float as JSON: the number its shortest text denotes (so 29.97f prints 29.97), or the text
// itself for values JSON has no number for.
Json floatJson(float value) {
    if (!std::isfinite(value)) return tavroFloatText(value);
    return strtod(tavroFloatText(value).c_str(), nullptr);
}

const char* typeName(AMessage::Type type) {
    switch (type) {
        case AMessage::kTypeInt32:
            return "int32";
        case AMessage::kTypeInt64:
            return "int64";
        case AMessage::kTypeSize:
            return "size";
        case AMessage::kTypeFloat:
            return "float";
        case AMessage::kTypeDouble:
            return "double";
        case AMessage::kTypePointer:
            return "pointer";
        case AMessage::kTypeString:
            return "string";
        case AMessage::kTypeObject:
            return "object";
        case AMessage::kTypeMessage:
            return "message";
        case AMessage::kTypeRect:
            return "rect";
        case AMessage::kTypeBuffer:
            return "buffer";
    }
    return "unknown";
}

struct MessageValue {
    std::string type;
    std::string text;
    Json json;
};

std::string messageText(const sp<AMessage>& msg);

MessageValue messageValue(const sp<AMessage>& msg, size_t index) {
    AMessage::Type type = AMessage::kTypeInt32;
    const char* name = msg->getEntryNameAt(index, &type);
    MessageValue v;
    v.type = typeName(type);
    switch (type) {
        case AMessage::kTypeInt32: {
            int32_t x = 0;
            msg->findInt32(name, &x);
            v.text = std::to_string(x), v.json = x;
            break;
        }
        case AMessage::kTypeInt64: {
            int64_t x = 0;
            msg->findInt64(name, &x);
            v.text = std::to_string(x), v.json = x;
            break;
        }
        case AMessage::kTypeSize: {
            size_t x = 0;
            msg->findSize(name, &x);
            v.text = std::to_string(x), v.json = x;
            break;
        }
        case AMessage::kTypeFloat: {
            float x = 0;
            msg->findFloat(name, &x);
            v.text = tavroFloatText(x), v.json = floatJson(x);
            break;
        }
        case AMessage::kTypeDouble: {
            double x = 0;
            msg->findDouble(name, &x);
            v.text = tavroFloatText(x);
            v.json = std::isfinite(x) ? Json(x) : Json(v.text);
            break;
        }
        case AMessage::kTypeString: {
            AString s;
            msg->findString(name, &s);
            v.text = "\"" + std::string(s.c_str(), s.size()) + "\"";
            v.json = std::string(s.c_str(), s.size());
            break;
        }
        case AMessage::kTypeMessage: {
            sp<AMessage> sub;
            msg->findMessage(name, &sub);
            v.text = messageText(sub), v.json = v.text;
            break;
        }
        case AMessage::kTypeRect: {
            int32_t l = 0, t = 0, r = 0, b = 0;
            msg->findRect(name, &l, &t, &r, &b);
            v.text = std::to_string(l) + "," + std::to_string(t) + "," + std::to_string(r) + "," +
                     std::to_string(b);
            v.json = v.text;
            break;
        }
        default:
            v.text = "<" + v.type + ">", v.json = v.text;
            break;
    }
    return v;
}

std::string messageText(const sp<AMessage>& msg) {
    if (msg == nullptr) return "null";
    std::string text = "{";
    for (size_t i = 0; i < msg->countEntries(); ++i) {
        AMessage::Type type;
        const char* name = msg->getEntryNameAt(i, &type);
        text += std::string(i == 0 ? "" : ", ") + name + "=" + messageValue(msg, i).text;
    }
    return text + "}";
}

std::vector<uint8_t> fromHex(const std::string& hex) {
    std::vector<uint8_t> out;
    for (size_t i = 0; i + 1 < hex.size(); i += 2) {
        out.push_back(static_cast<uint8_t>(strtoul(hex.substr(i, 2).c_str(), nullptr, 16)));
    }
    return out;
}

// Message-text values ("{a=1, b=2}") are long: the readable line names them only.
std::string shortValue(const std::string& value) {
    return !value.empty() && value.front() == '{' && value.size() > 2 ? "{...}" : value;
}

}  // namespace

int64_t TavroTraceTaps::nowUs() const {
    return (host::HostClock::now() - mStartNs) / 1000;
}

void TavroTraceTaps::add(const char* kind, std::string text, Json fields) {
    TavroTraceEntry entry;
    entry.kind = kind;
    entry.timeUs = nowUs();
    entry.text = std::move(text);
    entry.fields = std::move(fields);
    mTrace->add(std::move(entry));
}

void TavroTraceTaps::onMessage(uint32_t what) {
    for (const TimerName& t : kTimers) {
        if (t.what != what) continue;
        Json fields;
        fields["name"] = t.name;
        fields["what"] = t.meaning;
        add("timer", std::string(t.name) + " (" + t.meaning + ")", fields);
    }
}

void TavroTraceTaps::onLog(const host::LogRecord& r) {
    static const char kLetters[] = "??VDIWEFS";
    const char letter =
            r.priority >= 0 && r.priority <= ANDROID_LOG_SILENT ? kLetters[r.priority] : '?';
    Json fields;
    fields["priority"] = std::string(1, letter);
    fields["tag"] = r.tag;
    fields["message"] = r.message;
    add("log", std::string(1, letter) + "/" + r.tag + ": " + r.message, fields);
}

std::string TavroTraceTaps::shownFeedbackId(const std::string& id) const {
    // Without a "feedbackKey" the codec's address names its record: it differs between runs.
    return mCodecAddress != 0 && id == std::to_string(mCodecAddress) ? "codec" : id;
}

void TavroTraceTaps::onHostEvent(const host::HostEvent& e) {
    if (e.kind == "param") return addParams(e);
    if (e.kind == "boost") return addBoost(e);
    if (e.kind == "task_boost") return addTaskBoost(e);
    if (e.kind == "unboost") {
        const std::string flags = e.field("flags");
        const uint32_t value = static_cast<uint32_t>(strtoul(flags.c_str(), nullptr, 16));
        const char* what = value == kBoostReleaseAll       ? "all"
                           : value == kBoostReleaseCluster ? "cluster part"
                                                           : "?";
        Json fields;
        fields["flags"] = flags;
        fields["releases"] = what;
        add("unboost", "flags=" + flags + " (" + what + ")", fields);
        return;
    }
    if (e.kind == "codec") {
        // What the platform codec receives outside a scenario step: the restored rate.
        if (e.name == "signalSetParameters" && !mInSetParameters) {
            addGeneric("platform", e, {"value"});
        }
        return;
    }
    if (e.kind == "callback" && e.name == "onOutputFramesRendered") return;
    if (e.kind == "callback" || e.kind == "analysis" || e.kind == "feedback" || e.kind == "stat" ||
        e.kind == "pelto") {
        addGeneric(e.kind.c_str(), e, {});
    }
}

void TavroTraceTaps::addGeneric(const char* kind, const host::HostEvent& e,
                                std::initializer_list<const char*> skip) {
    // Whole messages (an output format handed over per frame) would drown the line: the text
    // shows the first few arguments, the JSON all of them.
    constexpr size_t kMaxTextArgs = 5;
    Json fields;
    fields["name"] = e.name;
    Json args = Json::object();
    std::string text = e.name;
    size_t shown = 0;
    for (const auto& [key, raw] : e.fields) {
        bool skipped = false;
        for (const char* s : skip) skipped = skipped || key == s;
        if (skipped) continue;
        std::string value = raw;
        if (e.kind == "feedback" && key == "id") value = shownFeedbackId(value);
        if (e.kind == "stat" && key == "uid") {
            value = std::to_string(mIdentity.shownUid(strtoll(value.c_str(), nullptr, 10)));
        }
        args[key] = value;
        if (++shown <= kMaxTextArgs) text += " " + key + "=" + shortValue(value);
    }
    if (shown > kMaxTextArgs) text += " ... (" + std::to_string(shown) + " in all)";
    fields["args"] = args;
    add(kind, text, fields);
}

void TavroTraceTaps::addParams(const host::HostEvent& e) {
    // Records come as repeated index/size[/value] fields, then the call's status.
    const std::string status = e.field("status");
    struct Record {
        std::string index, size, value;
    };
    std::vector<Record> records;
    for (const auto& [key, value] : e.fields) {
        if (key == "index") records.push_back({value, "", ""});
        if (key == "size" && !records.empty()) records.back().size = value;
        if (key == "value" && !records.empty()) records.back().value = value;
    }
    for (const Record& r : records) {
        const uint32_t index = static_cast<uint32_t>(strtoul(r.index.c_str(), nullptr, 16));
        std::string name = "param " + tavroHex32(index);
        bool isFloat = false;
        for (const ParamName& p : kParams) {
            if (p.index == index) name = p.name, isFloat = p.isFloat;
        }
        Json fields;
        fields["name"] = name;
        fields["index"] = tavroHex32(index);
        fields["size"] = atoi(r.size.c_str());
        std::string valueText = "(none)";
        if (!r.value.empty()) {
            const uint32_t bits = static_cast<uint32_t>(strtoul(r.value.c_str(), nullptr, 10));
            if (isFloat) {
                float f;
                memcpy(&f, &bits, sizeof(f));
                fields["value"] = floatJson(f);
                valueText = tavroFloatText(f);
            } else {
                fields["value"] = bits;
                valueText = std::to_string(bits);
            }
        }
        fields["status"] = atoi(status.c_str());
        add("param", name + " (" + tavroHex32(index) + ") = " + valueText + ", status " + status,
            fields);
    }
}

void TavroTraceTaps::addBoost(const host::HostEvent& e) {
    const std::vector<uint8_t> bytes = fromHex(e.field("parcel"));
    Parcel parcel;
    parcel.setData(bytes.data(), bytes.size());
    TavroVideoBoostParams p;
    Json fields;
    if (p.readFromParcel(&parcel) != OK) {
        fields["parcel"] = e.field("parcel");
        add("boost", "undecodable parcel " + e.field("parcel"), fields);
        return;
    }
    std::string text = "sched=" + std::to_string(p.sched) +
                       " vendorBoost=" + std::to_string(p.needVendorBoost ? 1 : 0) +
                       " ddrFreq=" + std::to_string(p.ddrFreq);
    fields["needVendorBoost"] = p.needVendorBoost;
    fields["sched"] = p.sched;
    fields["ddrFreq"] = p.ddrFreq;
    Json threads = Json::array();
    std::string threadText;
    for (size_t i = 0; i + 3 <= p.threads.size(); i += 3) {
        const int64_t pid = mIdentity.shownId(p.threads[i]);
        const int64_t tid = mIdentity.shownId(p.threads[i + 1]);
        threads.push_back({{"pid", pid}, {"tid", tid}, {"sched", p.threads[i + 2]}});
        threadText += std::string(threadText.empty() ? "" : " ") + std::to_string(pid) + "/" +
                      std::to_string(tid) + ":" + std::to_string(p.threads[i + 2]);
    }
    fields["threads"] = threads;
    if (!threadText.empty()) text += " threads=[" + threadText + "]";
    Json cluster = Json::array();
    std::string clusterText;
    for (size_t i = 0; i + 2 <= p.clusterParams.size(); i += 2) {
        const std::string opcode = tavroHex32(static_cast<uint32_t>(p.clusterParams[i]));
        cluster.push_back({{"opcode", opcode}, {"value", p.clusterParams[i + 1]}});
        clusterText += std::string(clusterText.empty() ? "" : " ") + opcode + "=" +
                       std::to_string(p.clusterParams[i + 1]);
    }
    fields["clusterParams"] = cluster;
    if (!clusterText.empty()) text += " cluster=[" + clusterText + "]";
    Json uclamp = Json::array();
    std::string uclampText;
    for (size_t i = 0; i + 2 <= p.uclampThreads.size(); i += 2) {
        const int64_t tid = mIdentity.shownId(p.uclampThreads[i]);
        uclamp.push_back({{"tid", tid}, {"minUclamp", p.uclampThreads[i + 1]}});
        uclampText += std::string(uclampText.empty() ? "" : " ") + std::to_string(tid) + ":" +
                      std::to_string(p.uclampThreads[i + 1]);
    }
    fields["uclampThreads"] = uclamp;
    if (!uclampText.empty()) text += " uclamp=[" + uclampText + "]";
    fields["swThreads"] = p.swThreads;
    if (!p.swThreads.empty()) {
        std::string names;
        for (const std::string& n : p.swThreads) names += (names.empty() ? "" : " ") + n;
        text += " swThreads=[" + names + "]";
    }
    add("boost", text, fields);
}

void TavroTraceTaps::addTaskBoost(const host::HostEvent& e) {
    const std::vector<uint8_t> bytes = fromHex(e.field("parcel"));
    Parcel parcel;
    parcel.setData(bytes.data(), bytes.size());
    TavroVideoTaskBoost task;
    Json fields;
    if (task.readFromParcel(&parcel) != OK) {
        fields["parcel"] = e.field("parcel");
        add("task_boost", "undecodable parcel " + e.field("parcel"), fields);
        return;
    }
    const int64_t pid = mIdentity.shownId(task.pid);
    fields["pid"] = pid;
    fields["sched"] = task.sched;
    fields["threadNames"] = task.threadNames;
    std::string names;
    for (const std::string& n : task.threadNames) names += (names.empty() ? "" : " ") + n;
    add("task_boost",
        "pid=" + std::to_string(pid) + " sched=" + std::to_string(task.sched) + " threads=[" +
                names + "]",
        fields);
}

// The keys the pipeline added, changed or removed between `given` and `received`.
void TavroTraceTaps::addFormatDiff(const char* stage, const sp<AMessage>& given,
                                   const sp<AMessage>& received) {
    bool changed = false;
    auto entry = [&](const char* change, const std::string& key, const std::string& text,
                     Json fields) {
        Json all;
        all["stage"] = stage;
        all["change"] = change;
        all["key"] = key;
        for (auto it = fields.begin(); it != fields.end(); ++it) all[it.key()] = it.value();
        add("format", text, all);
        changed = true;
    };
    for (size_t i = 0; i < received->countEntries(); ++i) {
        AMessage::Type type;
        const std::string key = received->getEntryNameAt(i, &type);
        const MessageValue now = messageValue(received, i);
        const ssize_t old = given->findEntryByName(key.c_str());
        if (old < 0) {
            entry("added", key, "+ " + key + " (" + now.type + ") = " + now.text,
                  {{"type", now.type}, {"value", now.json}});
            continue;
        }
        const MessageValue before = messageValue(given, static_cast<size_t>(old));
        if (before.type == now.type && before.text == now.text) continue;
        const std::string types =
                before.type == now.type ? now.type : before.type + " -> " + now.type;
        entry("changed", key, "~ " + key + " (" + types + ") " + before.text + " -> " + now.text,
              {{"old_type", before.type},
               {"old_value", before.json},
               {"type", now.type},
               {"value", now.json}});
    }
    for (size_t i = 0; i < given->countEntries(); ++i) {
        AMessage::Type type;
        const std::string key = given->getEntryNameAt(i, &type);
        if (received->findEntryByName(key.c_str()) >= 0) continue;
        const MessageValue before = messageValue(given, i);
        entry("removed", key, "- " + key + " (" + before.type + ") = " + before.text,
              {{"type", before.type}, {"value", before.json}});
    }
    if (!changed) {
        Json fields;
        fields["stage"] = stage;
        fields["change"] = "none";
        add("format", std::string(stage) + ": passed to the platform unchanged", fields);
    }
}

}  // namespace android
