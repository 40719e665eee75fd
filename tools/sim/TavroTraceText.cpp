// Trace text: one renderer per kind, each reading only the entry's fields.
#include "tools/sim/TavroTraceText.h"

#include <charconv>
#include <cinttypes>
#include <cstdio>

namespace android {

namespace {

using Json = nlohmann::ordered_json;

const Json& get(const Json& fields, const char* key) {
    static const Json kNull;
    auto it = fields.find(key);
    return it == fields.end() ? kNull : *it;
}

constexpr auto str = tavroTraceFieldText;
constexpr auto num = tavroTraceFieldInt;

bool flag(const Json& fields, const char* key) {
    auto it = fields.find(key);
    return it != fields.end() && it->is_boolean() && it->get<bool>();
}

// A number or a text as the trace shows it: integers in decimal, fractions in their shortest form.
std::string plain(const Json& v) {
    if (v.is_string()) return v.get<std::string>();
    if (v.is_number_float()) return tavroFloatText(v.get<double>());
    if (v.is_boolean()) return v.get<bool>() ? "1" : "0";
    return v.dump();
}

std::string joined(const Json& list, const char* separator = " ") {
    std::string text;
    for (const Json& item : list) text += (text.empty() ? "" : separator) + plain(item);
    return text;
}

// ---- step -------------------------------------------------------------------------------------

std::string typedValueText(const Json& v) {
    if (v.is_string()) return "\"" + v.get<std::string>() + "\"";
    if (v.is_object() && v.size() == 1) {
        const std::string type = v.begin().key();
        const Json& inner = v.begin().value();
        if (type == "int64") return plain(inner) + "L";
        if (type == "float") {
            return (inner.is_number() ? tavroFloatText(inner.get<float>()) : plain(inner)) + "f";
        }
        if (type == "string") return "\"" + plain(inner) + "\"";
        return plain(inner);
    }
    return plain(v);
}

std::string stepText(const Json& f) {
    const std::string name = str(f, "name");
    const std::string pts = std::to_string(num(f, "time_us"));
    if (name == "scenario") {
        return "scenario " + str(f, "file") + ": process " + str(f, "process") + " (pid " +
               str(f, "pid") + ", uid " + str(f, "uid") + "), component " + str(f, "component");
    }
    if (name == "allocate") return "allocate " + str(f, "component");
    if (name == "configure") return "configure " + tavroTypedMapText(f.value("format", Json()));
    if (name == "set_parameters") {
        return "set_parameters " + tavroTypedMapText(f.value("params", Json()));
    }
    if (name == "input") return "input pts " + pts + " us, " + str(f, "bytes") + " bytes";
    if (name == "render") return "render pts " + pts + " us";
    if (name == "discard") return "discard pts " + pts + " us";
    if (name == "output") {
        std::string text = "output pts " + pts + " us";
        if (f.contains("buffer") && !flag(f, "buffer")) text += ", no buffer";
        if (num(f, "flags") != 0) {
            text += ", flags " + tavroHex32(static_cast<uint32_t>(num(f, "flags")));
        }
        if (f.contains("color_aspects")) {
            const Json& ca = get(f, "color_aspects");
            text += ", colour aspects range " + str(ca, "range") + " primaries " +
                    str(ca, "primaries") + " transfer " + str(ca, "transfer") + " matrix " +
                    str(ca, "matrix");
        }
        if (f.contains("hdr10plus_bytes")) {
            text += ", dynamic metadata " + str(f, "hdr10plus_bytes") + " bytes";
        }
        for (const Json& index : f.value("config_update", Json::array())) {
            text += ", configUpdate " + plain(index);
        }
        return text;
    }
    if (name == "clip") {
        std::string text = "clip " + str(f, "count") + " frames at " + plain(get(f, "fps")) +
                           " fps, speed " + plain(get(f, "speed")) + "x, pts from " +
                           str(f, "start_us") + " us";
        if (num(f, "drops") > 0) text += ", every " + str(f, "drops") + ". frame dropped";
        if (f.contains("render") && !flag(f, "render")) text += ", not rendered";
        return text;
    }
    if (name == "clip_end") {
        return "clip done: " + str(f, "queued") + " queued, " + str(f, "output") + " output, " +
               str(f, "rendered") + " rendered, " + str(f, "dropped") + " dropped";
    }
    if (name == "advance") {
        return "advance " + tavroFloatText(static_cast<double>(num(f, "us")) / 1000) + " ms";
    }
    if (name == "shutdown") return flag(f, "keep_allocated") ? "shutdown (keep allocated)" : name;
    if (name == "destroy" && str(f, "where") == "end of scenario") {
        return "destroy (end of scenario)";
    }
    return name;  // start, flush, resume, destroy
}

// ---- format -----------------------------------------------------------------------------------

std::string formatValueText(const std::string& type, const Json& v) {
    if (type == "string" && v.is_string()) return "\"" + v.get<std::string>() + "\"";
    if (type == "float" && v.is_number()) return tavroFloatText(v.get<float>());
    return plain(v);
}

std::string formatText(const Json& f) {
    const std::string change = str(f, "change");
    const std::string key = str(f, "key");
    const std::string type = str(f, "type");
    if (change == "added" || change == "removed") {
        return (change == "added" ? "+ " : "- ") + key + " (" + type +
               ") = " + formatValueText(type, get(f, "value"));
    }
    if (change == "changed") {
        const std::string oldType = str(f, "old_type");
        const std::string types = oldType == type ? type : oldType + " -> " + type;
        return "~ " + key + " (" + types + ") " + formatValueText(oldType, get(f, "old_value")) +
               " -> " + formatValueText(type, get(f, "value"));
    }
    if (change == "not_passed") return "parameters not passed to the platform";
    return str(f, "stage") + ": passed to the platform unchanged";
}

// ---- services ---------------------------------------------------------------------------------

std::string paramText(const Json& f) {
    const Json& v = get(f, "value");
    const std::string value = v.is_null()           ? "(none)"
                              : v.is_number_float() ? tavroFloatText(v.get<float>())
                                                    : plain(v);
    return str(f, "name") + " (" + str(f, "index") + ") = " + value + ", status " +
           str(f, "status");
}

std::string boostText(const Json& f) {
    if (f.contains("parcel")) return "undecodable parcel " + str(f, "parcel");
    std::string text = "sched=" + str(f, "sched") +
                       " needVendorBoost=" + (flag(f, "needVendorBoost") ? "1" : "0") +
                       " ddrFreq=" + str(f, "ddrFreq");
    std::string part;
    for (const Json& t : f.value("threads", Json::array())) {
        part += (part.empty() ? "" : " ") + str(t, "pid") + "/" + str(t, "tid") + ":" +
                str(t, "sched");
    }
    if (!part.empty()) text += " threads=[" + part + "]";
    part.clear();
    for (const Json& c : f.value("clusterParams", Json::array())) {
        part += (part.empty() ? "" : " ") + str(c, "opcode") + "=" + str(c, "value");
    }
    if (!part.empty()) text += " clusterParams=[" + part + "]";
    part.clear();
    for (const Json& u : f.value("uclampThreads", Json::array())) {
        part += (part.empty() ? "" : " ") + str(u, "tid") + ":" + str(u, "minUclamp");
    }
    if (!part.empty()) text += " uclampThreads=[" + part + "]";
    const Json sw = f.value("swThreads", Json::array());
    if (!sw.empty()) text += " swThreads=[" + joined(sw) + "]";
    return text;
}

std::string taskBoostText(const Json& f) {
    if (f.contains("parcel")) return "undecodable parcel " + str(f, "parcel");
    return "pid=" + str(f, "pid") + " sched=" + str(f, "sched") + " threadNames=[" +
           joined(f.value("threadNames", Json::array())) + "]";
}

// A service call: its name and the first arguments (whole formats would drown the line; the JSON
// view has all of them).
std::string callText(const Json& f) {
    constexpr size_t kMaxTextArgs = 5;
    std::string text = str(f, "name");
    const Json args = f.value("args", Json::object());
    size_t shown = 0;
    for (auto it = args.begin(); it != args.end(); ++it) {
        if (++shown > kMaxTextArgs) continue;
        const Json& v = it.value();
        std::string value = v.is_object() ? (v.empty() ? "{}" : "{...}") : plain(v);
        // A message's text that did not read back as an object is still named only.
        if (v.is_string() && value.size() > 2 && value.front() == '{') value = "{...}";
        text += " " + it.key() + "=" + value;
    }
    if (shown > kMaxTextArgs) text += " ... (" + std::to_string(shown) + " in all)";
    return text;
}

std::string declinedText(const Json& f) {
    std::string steps;
    for (const Json& s : get(f, "steps")) steps += (steps.empty() ? "" : ", ") + plain(s);
    std::string text = steps + ": " + str(f, "reason");
    if (num(f, "status") != 0) text += " (status " + str(f, "status") + ")";
    return text;
}

std::string unusedText(const Json& f) {
    if (str(f, "what") == "property") return "property " + str(f, "name") + ": set, never read";
    std::string text = "list " + str(f, "list") + ": entry by " + str(f, "key") + " " +
                       str(f, "id") + " never asked; ";
    const Json asked = f.value("asked", Json::array());
    if (asked.empty()) return text + "the list was never asked";
    std::string by;
    for (const Json& a : asked) by += (by.empty() ? "" : ", ") + str(a, "key") + " " + str(a, "id");
    return text + "asked by " + by;
}

std::string summaryText(const Json& f) {
    const std::string name = str(f, "name");
    std::string text;
    if (name == "counts") {
        for (const auto& [kind, count] : get(f, "counts").items()) {
            text += (text.empty() ? " " : ", ") + kind + " " + plain(count);
        }
    } else if (name == "modes") {
        for (const Json& m : get(f, "entered")) {
            char at[32];
            snprintf(at, sizeof(at), "%.3f", static_cast<double>(num(m, "t_us")) / 1e6);
            text += (text.empty() ? " " : ", ") + str(m, "param") + " " + str(m, "value") + " at " +
                    at;
        }
    } else if (name == "hdr") {
        text = " " + str(f, "hdr") + " (hdr_type " + str(f, "hdr_type") + ")";
    } else {
        for (auto it = f.begin(); it != f.end(); ++it) {
            if (it.key() == "name") continue;
            text += (text.empty() ? " " : ", ") + it.key() + " " + plain(it.value());
        }
    }
    return name + ":" + (text.empty() ? " none" : text);
}

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

std::string tavroTypedMapText(const Json& map) {
    std::string text;
    for (auto it = map.begin(); it != map.end() && map.is_object(); ++it) {
        text += (text.empty() ? "" : ", ") + it.key() + "=" + typedValueText(it.value());
    }
    return "{" + text + "}";
}

std::string tavroTraceText(const TavroTraceEntry& entry) {
    const Json& f = entry.fields;
    const std::string& kind = entry.kind;
    if (kind == "step") return stepText(f);
    if (kind == "format") return formatText(f);
    if (kind == "param") return paramText(f);
    if (kind == "boost") return boostText(f);
    if (kind == "task_boost") return taskBoostText(f);
    if (kind == "unboost") {
        char flags[16];
        snprintf(flags, sizeof(flags), "0x%" PRIx64, static_cast<uint64_t>(num(f, "flags")));
        return std::string("flags=") + flags + " (" + str(f, "releases") + ")";
    }
    if (kind == "timer") return str(f, "name") + " (" + str(f, "what") + ")";
    if (kind == "log") return str(f, "priority") + "/" + str(f, "tag") + ": " + str(f, "message");
    if (kind == "declined") return declinedText(f);
    if (kind == "unused") return unusedText(f);
    if (kind == "summary") return summaryText(f);
    return callText(f);  // feedback, stat, analysis, pelto, callback, platform
}

}  // namespace android
