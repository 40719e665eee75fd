// Trace taps: host events, log records and timer messages to typed trace entries.
#include "tools/sim/TavroTraceTaps.h"

#include <stdlib.h>
#include <string.h>
#include <sys/types.h>

#include <cctype>
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
#include "tools/sim/TavroTraceText.h"

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

// One message value: its type name, a text to compare two values by, and its JSON form.
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
            v.text = std::string(s.c_str(), s.size());
            v.json = v.text;
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
        const MessageValue v = messageValue(msg, i);
        text += std::string(i == 0 ? "" : ", ") + name + "=" +
                (v.type == "string" ? "\"" + v.text + "\"" : v.text);
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

// ---- Typed arguments ------------------------------------------------------------------------

bool integerText(const std::string& text, Json* out) {
    const char* begin = text.data();
    const char* end = begin + text.size();
    const char* digits = text[0] == '-' ? begin + 1 : begin;
    if (digits == end || (*digits == '0' && end - digits > 1) ||
        (digits != begin && *digits == '0'))
        return false;
    for (const char* p = digits; p < end; ++p) {
        if (!isdigit(static_cast<unsigned char>(*p))) return false;
    }
    int64_t value = 0;
    if (std::from_chars(begin, end, value).ec == std::errc()) {
        *out = value;
        return true;
    }
    uint64_t unsignedValue = 0;
    if (digits == begin && std::from_chars(begin, end, unsignedValue).ec == std::errc()) {
        *out = unsignedValue;
        return true;
    }
    return false;
}

bool numberText(const std::string& text, Json* out) {
    if (integerText(text, out)) return true;
    double value = 0;
    const char* end = text.data() + text.size();
    auto result = std::from_chars(text.data(), end, value);
    if (result.ec != std::errc() || result.ptr != end || !std::isfinite(value)) return false;
    if (tavroFloatText(value) != text) return false;
    *out = value;
    return true;
}

// The message text of a typed object, as the host writes it: "{a=1, b=x}".
std::string objectText(const Json& object) {
    std::string text = "{";
    for (auto it = object.begin(); it != object.end(); ++it) {
        const Json& v = it.value();
        text += (text.size() > 1 ? ", " : "") + it.key() + "=" +
                (v.is_object()         ? objectText(v)
                 : v.is_string()       ? v.get<std::string>()
                 : v.is_number_float() ? tavroFloatText(v.get<double>())
                                       : v.dump());
    }
    return text + "}";
}

bool messageObject(const std::string& text, Json* out) {
    if (text.size() < 2 || text.front() != '{' || text.back() != '}') return false;
    Json object = Json::object();
    size_t start = 1;
    int depth = 0;
    for (size_t i = 1; i < text.size(); ++i) {
        const char c = text[i];
        const bool end = i + 1 == text.size();
        if (c == '{') ++depth;
        if (c == '}' && !end) --depth;
        if (!end && !(depth == 0 && c == ',' && i + 1 < text.size() && text[i + 1] == ' '))
            continue;
        if (end && i == 1) break;  // "{}"
        const std::string piece = text.substr(start, i - start);
        const size_t eq = piece.find('=');
        if (eq == std::string::npos || eq == 0) return false;
        object.get_ref<Json::object_t&>().emplace_back(piece.substr(0, eq),
                                                       tavroTypedArgument(piece.substr(eq + 1)));
        start = i + 2;
    }
    // Only a reading that gives the text back: a value holding ", " stays text.
    if (objectText(object) != text) return false;
    *out = std::move(object);
    return true;
}

}  // namespace

Json tavroTypedArgument(const std::string& text) {
    Json value;
    if (!text.empty() && (numberText(text, &value) || messageObject(text, &value))) return value;
    return text;
}

// ---- Identity -------------------------------------------------------------------------------

std::string TavroSimIdentity::nameOf(uint64_t address) {
    auto it = mNames.find(address);
    if (it != mNames.end()) return it->second;
    const std::string name = "object#" + std::to_string(++mObjects);
    mNames.emplace(address, name);
    return name;
}

std::string TavroSimIdentity::shownText(const std::string& text) {
    std::string out;
    out.reserve(text.size());
    const size_t n = text.size();
    auto isWordChar = [&](size_t i) {
        return i < n &&
               (isalnum(static_cast<unsigned char>(text[i])) || text[i] == '.' || text[i] == '_');
    };
    size_t i = 0;
    while (i < n) {
        // 0x followed by more than eight hex digits: an address.
        if (text[i] == '0' && i + 1 < n && (text[i + 1] == 'x' || text[i + 1] == 'X')) {
            size_t end = i + 2;
            while (end < n && isxdigit(static_cast<unsigned char>(text[end]))) ++end;
            uint64_t value = 0;
            if (end - i - 2 > 8 && !isWordChar(end) &&
                std::from_chars(text.data() + i + 2, text.data() + end, value, 16).ec ==
                        std::errc()) {
                out += nameOf(value);
                i = end;
                continue;
            }
        }
        // A decimal number standing alone: the real pid or tid, or an address already named.
        if (isdigit(static_cast<unsigned char>(text[i])) && (i == 0 || !isWordChar(i - 1))) {
            size_t end = i;
            while (end < n && isdigit(static_cast<unsigned char>(text[end]))) ++end;
            uint64_t value = 0;
            if (!isWordChar(end) &&
                std::from_chars(text.data() + i, text.data() + end, value).ec == std::errc()) {
                const auto named = mNames.find(value);
                if (value == static_cast<uint64_t>(realPid) ||
                    value == static_cast<uint64_t>(realTid)) {
                    out += std::to_string(aliasPid);
                } else if (named != mNames.end()) {
                    out += named->second;
                } else {
                    out.append(text, i, end - i);
                }
                i = end;
                continue;
            }
            out.append(text, i, end - i);
            i = end;
            continue;
        }
        out.push_back(text[i++]);
    }
    return out;
}

// ---- Taps -----------------------------------------------------------------------------------

int64_t TavroTraceTaps::nowUs() const {
    return (host::HostClock::now() - mStartNs) / 1000;
}

void TavroTraceTaps::add(const char* kind, Json fields) {
    TavroTraceEntry entry;
    entry.kind = kind;
    entry.timeUs = nowUs();
    entry.fields = std::move(fields);
    mSink->take(std::move(entry));
}

void TavroTraceTaps::onMessage(uint32_t what) {
    for (const TimerName& t : kTimers) {
        if (t.what != what) continue;
        Json fields;
        fields["name"] = t.name;
        fields["what"] = t.meaning;
        add("timer", std::move(fields));
    }
}

void TavroTraceTaps::addLog(const host::LogRecord& r) {
    static const char kLetters[] = "??VDIWEFS";
    const char letter =
            r.priority >= 0 && r.priority <= ANDROID_LOG_SILENT ? kLetters[r.priority] : '?';
    Json fields;
    fields["priority"] = std::string(1, letter);
    fields["tag"] = r.tag;
    fields["message"] = mIdentity->shownText(r.message);
    add("log", std::move(fields));
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
        const uint32_t value =
                static_cast<uint32_t>(strtoul(e.field("flags").c_str(), nullptr, 16));
        const char* what = value == kBoostReleaseAll       ? "all"
                           : value == kBoostReleaseCluster ? "cluster part"
                                                           : "?";
        Json fields;
        fields["flags"] = value;
        fields["releases"] = what;
        add("unboost", std::move(fields));
        return;
    }
    if (e.kind == "codec") {
        // What the platform codec receives outside a scenario step: the restored rate.
        if (e.name == "signalSetParameters" && !mInSetParameters) {
            addCall("platform", e, {"value"});
        }
        return;
    }
    if (e.kind == "callback" && e.name == "onOutputFramesRendered") return;
    if (e.kind == "callback" || e.kind == "analysis" || e.kind == "feedback" || e.kind == "stat" ||
        e.kind == "pelto") {
        addCall(e.kind.c_str(), e, {});
    }
}

void TavroTraceTaps::addCall(const char* kind, const host::HostEvent& e,
                             std::initializer_list<const char*> skip) {
    auto last = mLastCalls.find(e.name);
    if (last != mLastCalls.end() && last->second.kind == kind && last->second.raw == e.fields) {
        last->second.entry.timeUs = nowUs();
        mSink->add(last->second.entry);
        return;
    }
    Json fields;
    fields["name"] = e.name;
    Json args = Json::object();
    for (const auto& [key, raw] : e.fields) {
        bool skipped = false;
        for (const char* s : skip) skipped = skipped || key == s;
        if (skipped) continue;
        if (e.kind == "feedback" && key == "id") {
            args[key] = shownFeedbackId(raw);  // a record's name, whatever it looks like
        } else if (e.kind == "stat" && key == "uid") {
            args[key] = mIdentity->shownUid(strtoll(raw.c_str(), nullptr, 10));
        } else {
            args[key] = tavroTypedArgument(raw);
        }
    }
    fields["args"] = std::move(args);
    LastCall& call = mLastCalls[e.name];
    call.kind = kind;
    call.raw = e.fields;
    call.entry.kind = kind;
    call.entry.timeUs = nowUs();
    call.entry.fields = std::move(fields);
    mSink->add(call.entry);
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
        if (!r.value.empty()) {
            const uint32_t bits = static_cast<uint32_t>(strtoul(r.value.c_str(), nullptr, 10));
            if (isFloat) {
                float f;
                memcpy(&f, &bits, sizeof(f));
                fields["value"] = floatJson(f);
            } else {
                fields["value"] = bits;
            }
        }
        fields["status"] = atoi(status.c_str());
        add("param", std::move(fields));
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
        add("boost", std::move(fields));
        return;
    }
    fields["sched"] = p.sched;
    fields["needVendorBoost"] = p.needVendorBoost;
    fields["ddrFreq"] = p.ddrFreq;
    Json threads = Json::array();
    for (size_t i = 0; i + 3 <= p.threads.size(); i += 3) {
        threads.push_back({{"pid", mIdentity->shownId(p.threads[i])},
                           {"tid", mIdentity->shownId(p.threads[i + 1])},
                           {"sched", p.threads[i + 2]}});
    }
    fields["threads"] = std::move(threads);
    Json cluster = Json::array();
    for (size_t i = 0; i + 2 <= p.clusterParams.size(); i += 2) {
        cluster.push_back({{"opcode", tavroHex32(static_cast<uint32_t>(p.clusterParams[i]))},
                           {"value", p.clusterParams[i + 1]}});
    }
    fields["clusterParams"] = std::move(cluster);
    Json uclamp = Json::array();
    for (size_t i = 0; i + 2 <= p.uclampThreads.size(); i += 2) {
        uclamp.push_back({{"tid", mIdentity->shownId(p.uclampThreads[i])},
                          {"minUclamp", p.uclampThreads[i + 1]}});
    }
    fields["uclampThreads"] = std::move(uclamp);
    fields["swThreads"] = p.swThreads;
    add("boost", std::move(fields));
}

void TavroTraceTaps::addTaskBoost(const host::HostEvent& e) {
    const std::vector<uint8_t> bytes = fromHex(e.field("parcel"));
    Parcel parcel;
    parcel.setData(bytes.data(), bytes.size());
    TavroVideoTaskBoost task;
    Json fields;
    if (task.readFromParcel(&parcel) != OK) {
        fields["parcel"] = e.field("parcel");
        add("task_boost", std::move(fields));
        return;
    }
    fields["pid"] = mIdentity->shownId(task.pid);
    fields["sched"] = task.sched;
    fields["threadNames"] = task.threadNames;
    add("task_boost", std::move(fields));
}

// The keys the pipeline added, changed or removed between `given` and `received`.
void TavroTraceTaps::addFormatDiff(const char* stage, const sp<AMessage>& given,
                                   const sp<AMessage>& received) {
    bool changed = false;
    auto entry = [&](const char* change, const std::string& key, Json fields) {
        Json all;
        all["stage"] = stage;
        all["change"] = change;
        all["key"] = key;
        for (auto it = fields.begin(); it != fields.end(); ++it) all[it.key()] = it.value();
        add("format", std::move(all));
        changed = true;
    };
    for (size_t i = 0; i < received->countEntries(); ++i) {
        AMessage::Type type;
        const std::string key = received->getEntryNameAt(i, &type);
        const MessageValue now = messageValue(received, i);
        const ssize_t old = given->findEntryByName(key.c_str());
        if (old < 0) {
            entry("added", key, {{"type", now.type}, {"value", now.json}});
            continue;
        }
        const MessageValue before = messageValue(given, static_cast<size_t>(old));
        if (before.type == now.type && before.text == now.text) continue;
        entry("changed", key,
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
        entry("removed", key, {{"type", before.type}, {"value", before.json}});
    }
    if (!changed) {
        Json fields;
        fields["stage"] = stage;
        fields["change"] = "none";
        add("format", std::move(fields));
    }
}

}  // namespace android
