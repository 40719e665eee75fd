// Scenario loader: JSON text to TavroScenario in one pass (ScenarioReader below). Each value is
// checked through a Node that knows its place in the file, so every complaint names it
// ("events[3].fps").
#include "tools/sim/TavroScenarioLoader.h"

#include <errno.h>
#include <fcntl.h>
#include <stdint.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <charconv>
#include <deque>
#include <fstream>
#include <istream>
#include <limits>
#include <memory>
#include <set>
#include <streambuf>
#include <unordered_set>
#include <vector>

#include <nlohmann/json.hpp>

namespace android {

namespace {

using Json = nlohmann::ordered_json;

constexpr int32_t kDefaultInputBytes = 4096;
constexpr int32_t kMaxClipFrames = 1000000;
constexpr double kMaxFps = 1000;
constexpr double kMaxSpeed = 100;
constexpr double kMinFpsTimesSpeed = 0.1;

std::string numberText(double value) {
    char text[64];
    auto result = std::to_chars(text, text + sizeof(text), value);
    return std::string(text, result.ptr);
}

// Where a value sits in the file: "process.pid", "events[3].fps"; "" for the whole document.
class Node {
  public:
    Node(const Json& json, std::string path, const std::string& file)
        : mJson(json), mPath(std::move(path)), mFile(file) {}

    [[noreturn]] void fail(const std::string& message) const {
        throw TavroScenarioError(mFile + ": " + (mPath.empty() ? "" : mPath + ": ") + message);
    }

    const std::string& path() const { return mPath; }
    const Json& json() const { return mJson; }

    // Requires an object whose keys are all in `allowed`.
    void expectObject(std::initializer_list<const char*> allowed) const {
        if (!mJson.is_object()) fail("expected an object");
        for (auto it = mJson.begin(); it != mJson.end(); ++it) {
            bool known = false;
            for (const char* key : allowed) known = known || it.key() == key;
            if (!known) fail("unknown key '" + it.key() + "'");
        }
    }
    bool has(const char* key) const { return mJson.is_object() && mJson.contains(key); }
    Node at(const std::string& key) const {
        if (!mJson.is_object() || !mJson.contains(key)) fail("missing key '" + key + "'");
        return Node(mJson.at(key), child(key), mFile);
    }
    std::vector<Node> elements() const {
        if (!mJson.is_array()) fail("expected an array");
        std::vector<Node> out;
        for (size_t i = 0; i < mJson.size(); ++i) {
            out.emplace_back(mJson.at(i), mPath + "[" + std::to_string(i) + "]", mFile);
        }
        return out;
    }
    // Members of an object, in file order.
    std::vector<std::pair<std::string, Node>> members() const {
        if (!mJson.is_object()) fail("expected an object");
        std::vector<std::pair<std::string, Node>> out;
        for (auto it = mJson.begin(); it != mJson.end(); ++it) {
            out.emplace_back(it.key(), Node(it.value(), child(it.key()), mFile));
        }
        return out;
    }

    int64_t integer(int64_t min, int64_t max) const {
        int64_t value = 0;
        if (mJson.is_number_unsigned()) {
            uint64_t u = mJson.get<uint64_t>();
            if (u > static_cast<uint64_t>(std::numeric_limits<int64_t>::max()))
                outOfRange(min, max);
            value = static_cast<int64_t>(u);
        } else if (mJson.is_number_integer()) {
            value = mJson.get<int64_t>();
        } else {
            fail("expected an integer");
        }
        if (value < min || value > max) outOfRange(min, max);
        return value;
    }
    double number() const {
        if (!mJson.is_number()) fail("expected a number");
        return mJson.get<double>();
    }
    std::string string() const {
        if (!mJson.is_string()) fail("expected a string");
        return mJson.get<std::string>();
    }
    std::string nonEmptyString() const {
        std::string s = string();
        if (s.empty()) fail("expected a non-empty string");
        return s;
    }
    bool boolean() const {
        if (!mJson.is_boolean()) fail("expected true or false");
        return mJson.get<bool>();
    }

  private:
    std::string child(const std::string& key) const {
        return mPath.empty() ? key : mPath + "." + key;
    }
    [[noreturn]] void outOfRange(int64_t min, int64_t max) const {
        fail("expected an integer from " + std::to_string(min) + " to " + std::to_string(max));
    }

    const Json& mJson;
    std::string mPath;
    const std::string& mFile;
};

constexpr int64_t kInt32Min = std::numeric_limits<int32_t>::min();
constexpr int64_t kInt32Max = std::numeric_limits<int32_t>::max();
constexpr int64_t kUint32Max = std::numeric_limits<uint32_t>::max();
constexpr int64_t kInt64Min = std::numeric_limits<int64_t>::min();
constexpr int64_t kInt64Max = std::numeric_limits<int64_t>::max();

// Format and parameter values. A bare integer is int32 and a bare string a string; everything else
// names its type: {"int64": n}, {"float": x}, {"int32": n}, {"string": "s"}. A bare fraction is
// refused rather than guessed.
TavroTypedValue typedValue(const Node& node) {
    TavroTypedValue v;
    const Json& j = node.json();
    if (j.is_string()) {
        v.type = TavroTypedValue::Type::kString;
        v.stringValue = j.get<std::string>();
        return v;
    }
    if (j.is_number_integer() || j.is_number_unsigned()) {
        if (j.is_number_unsigned()
                    ? j.get<uint64_t>() > static_cast<uint64_t>(kInt32Max)
                    : (j.get<int64_t>() < kInt32Min || j.get<int64_t>() > kInt32Max)) {
            node.fail("integer out of int32 range; write {\"int64\": n}");
        }
        v.type = TavroTypedValue::Type::kInt32;
        v.intValue = j.get<int64_t>();
        return v;
    }
    if (j.is_number_float()) node.fail("a bare fraction has no type; write {\"float\": x}");
    if (!j.is_object() || j.size() != 1) {
        node.fail(
                "expected an integer, a string or one of {\"int32\": n}, {\"int64\": n}, "
                "{\"float\": x}, {\"string\": s}");
    }
    const std::string type = j.begin().key();
    Node inner = node.at(type);
    if (type == "int32") {
        v.type = TavroTypedValue::Type::kInt32;
        v.intValue = inner.integer(kInt32Min, kInt32Max);
    } else if (type == "int64") {
        v.type = TavroTypedValue::Type::kInt64;
        v.intValue = inner.integer(kInt64Min, kInt64Max);
    } else if (type == "float") {
        v.type = TavroTypedValue::Type::kFloat;
        double d = inner.number();
        if (d > std::numeric_limits<float>::max() || d < -std::numeric_limits<float>::max()) {
            inner.fail("out of float range");
        }
        v.floatValue = static_cast<float>(d);
    } else if (type == "string") {
        v.type = TavroTypedValue::Type::kString;
        v.stringValue = inner.string();
    } else {
        node.fail("unknown type '" + type + "' (int32, int64, float or string)");
    }
    return v;
}

TavroTypedMap typedMap(const Node& node) {
    TavroTypedMap out;
    for (const auto& [key, value] : node.members()) {
        if (key.empty()) node.fail("empty key");
        out.emplace_back(key, typedValue(value));
    }
    return out;
}

std::vector<uint8_t> hexBytes(const Node& node) {
    const std::string text = node.string();
    std::vector<uint8_t> out;
    int high = -1;
    for (char c : text) {
        if (isspace(static_cast<unsigned char>(c))) continue;
        int digit = isdigit(static_cast<unsigned char>(c)) ? c - '0'
                    : (c >= 'a' && c <= 'f')               ? c - 'a' + 10
                    : (c >= 'A' && c <= 'F')               ? c - 'A' + 10
                                                           : -1;
        if (digit < 0) node.fail(std::string("not a hex digit: '") + c + "'");
        if (high < 0) {
            high = digit;
        } else {
            out.push_back(static_cast<uint8_t>(high * 16 + digit));
            high = -1;
        }
    }
    if (high >= 0) node.fail("odd number of hex digits");
    return out;
}

// A record index: an integer or a "0x..." string.
uint32_t recordIndex(const Node& node) {
    if (!node.json().is_string()) return static_cast<uint32_t>(node.integer(0, kUint32Max));
    const std::string text = node.string();
    if (text.size() < 3 || text.size() > 10 || text[0] != '0' ||
        (text[1] != 'x' && text[1] != 'X')) {
        node.fail("expected an integer or a \"0x\" hex string of at most 8 digits");
    }
    uint32_t value = 0;
    for (size_t i = 2; i < text.size(); ++i) {
        char c = static_cast<char>(tolower(static_cast<unsigned char>(text[i])));
        int digit = isdigit(static_cast<unsigned char>(c)) ? c - '0'
                    : (c >= 'a' && c <= 'f')               ? c - 'a' + 10
                                                           : -1;
        if (digit < 0) node.fail("expected an integer or a \"0x\" hex string of at most 8 digits");
        value = value * 16 + static_cast<uint32_t>(digit);
    }
    return value;
}

TavroRawRecord rawRecord(const Node& node) {
    node.expectObject({"index", "hex", "text", "int32", "size", "comment"});
    TavroRawRecord r;
    r.index = recordIndex(node.at("index"));
    int payloads = node.has("hex") + node.has("text") + node.has("int32");
    if (payloads != 1) node.fail("expected exactly one of 'hex', 'text', 'int32'");
    if (node.has("hex")) {
        r.payload = hexBytes(node.at("hex"));
    } else if (node.has("text")) {
        std::string text = node.at("text").string();
        r.payload.assign(text.begin(), text.end());
        r.payload.push_back(0);  // components send C strings
    } else {
        uint32_t v = static_cast<uint32_t>(node.at("int32").integer(kInt32Min, kInt32Max));
        for (int i = 0; i < 4; ++i) r.payload.push_back(static_cast<uint8_t>(v >> (8 * i)));
    }
    if (node.has("size")) {
        r.hasSize = true;
        r.size = static_cast<uint32_t>(node.at("size").integer(0, 1 << 20));
    }
    return r;
}

uint32_t frameFlags(const Node& node) {
    static const std::pair<const char*, uint32_t> kFlags[] = {
            {"drop_frame", 1u << 0}, {"end_of_stream", 1u << 1}, {"discard_frame", 1u << 2},
            {"incomplete", 1u << 3}, {"corrected", 1u << 4},     {"codec_config", 1u << 31},
    };
    uint32_t flags = 0;
    for (const Node& item : node.elements()) {
        const std::string name = item.string();
        bool known = false;
        for (const auto& [flagName, bit] : kFlags) {
            if (name == flagName) flags |= bit, known = true;
        }
        if (!known) {
            item.fail("unknown flag '" + name +
                      "' (drop_frame, end_of_stream, discard_frame, incomplete, corrected, "
                      "codec_config)");
        }
    }
    return flags;
}

TavroHdrDescription hdrDescription(const Node& node) {
    node.expectObject({"color_aspects", "hdr10plus", "comment"});
    TavroHdrDescription hdr;
    if (node.has("color_aspects")) {
        Node ca = node.at("color_aspects");
        ca.expectObject({"range", "primaries", "transfer", "matrix"});
        hdr.hasColorAspects = true;
        auto field = [&](const char* key) {
            return ca.has(key) ? static_cast<uint32_t>(ca.at(key).integer(0, kUint32Max)) : 0u;
        };
        hdr.range = field("range");
        hdr.primaries = field("primaries");
        hdr.transfer = field("transfer");
        hdr.matrix = field("matrix");
    }
    if (node.has("hdr10plus")) {
        hdr.hasHdr10Plus = true;
        hdr.hdr10Plus = hexBytes(node.at("hdr10plus"));
    }
    return hdr;
}

struct EventName {
    const char* name;
    TavroScenarioEvent::Kind kind;
};

constexpr EventName kEventNames[] = {
        {"allocate", TavroScenarioEvent::Kind::kAllocate},
        {"configure", TavroScenarioEvent::Kind::kConfigure},
        {"start", TavroScenarioEvent::Kind::kStart},
        {"input", TavroScenarioEvent::Kind::kInput},
        {"output", TavroScenarioEvent::Kind::kOutput},
        {"render", TavroScenarioEvent::Kind::kRender},
        {"discard", TavroScenarioEvent::Kind::kDiscard},
        {"clip", TavroScenarioEvent::Kind::kClip},
        {"set_parameters", TavroScenarioEvent::Kind::kSetParameters},
        {"flush", TavroScenarioEvent::Kind::kFlush},
        {"resume", TavroScenarioEvent::Kind::kResume},
        {"advance", TavroScenarioEvent::Kind::kAdvance},
        {"shutdown", TavroScenarioEvent::Kind::kShutdown},
        {"destroy", TavroScenarioEvent::Kind::kDestroy},
};

TavroScenarioEvent scenarioEvent(const Node& node) {
    if (!node.json().is_object()) node.fail("expected an object");
    TavroScenarioEvent e;
    e.where = node.path();
    const std::string name = node.at("event").string();
    bool known = false;
    for (const EventName& n : kEventNames) {
        if (name == n.name) e.kind = n.kind, known = true;
    }
    if (!known) {
        std::string names;
        for (const EventName& n : kEventNames)
            names += std::string(names.empty() ? "" : ", ") + n.name;
        node.at("event").fail("unknown event '" + name + "' (" + names + ")");
    }
    using Kind = TavroScenarioEvent::Kind;
    auto timeUs = [&]() { return node.at("time_us").integer(0, kInt64Max / 1000); };
    switch (e.kind) {
        case Kind::kAllocate:
        case Kind::kStart:
        case Kind::kFlush:
        case Kind::kResume:
        case Kind::kDestroy:
            node.expectObject({"event", "comment"});
            break;
        case Kind::kConfigure:
            node.expectObject({"event", "format", "comment"});
            e.format = typedMap(node.at("format"));
            break;
        case Kind::kSetParameters:
            node.expectObject({"event", "params", "comment"});
            e.format = typedMap(node.at("params"));
            break;
        case Kind::kInput:
            node.expectObject({"event", "time_us", "bytes", "comment"});
            e.timeUs = timeUs();
            e.bytes = node.has("bytes") ? static_cast<int32_t>(node.at("bytes").integer(0, 1 << 26))
                                        : kDefaultInputBytes;
            break;
        case Kind::kOutput:
            node.expectObject(
                    {"event", "time_us", "flags", "buffer", "hdr", "config_update", "comment"});
            e.timeUs = timeUs();
            if (node.has("flags")) e.flags = frameFlags(node.at("flags"));
            if (node.has("buffer")) e.hasBuffer = node.at("buffer").boolean();
            if (node.has("hdr")) {
                if (!e.hasBuffer) node.at("hdr").fail("HDR information needs an output buffer");
                e.hdr = hdrDescription(node.at("hdr"));
            }
            if (node.has("config_update")) {
                for (const Node& r : node.at("config_update").elements()) {
                    e.configUpdate.push_back(rawRecord(r));
                }
            }
            break;
        case Kind::kRender:
            node.expectObject({"event", "time_us", "render_ns", "comment"});
            e.timeUs = timeUs();
            if (node.has("render_ns")) {
                e.hasRenderNs = true;
                e.renderNs = node.at("render_ns").integer(0, kInt64Max);
            }
            break;
        case Kind::kDiscard:
            node.expectObject({"event", "time_us", "comment"});
            e.timeUs = timeUs();
            break;
        case Kind::kClip: {
            node.expectObject({"event", "count", "fps", "speed", "drops", "start_us", "bytes",
                               "render", "comment"});
            e.count = static_cast<int32_t>(node.at("count").integer(1, kMaxClipFrames));
            e.fps = node.at("fps").number();
            if (!(e.fps > 0 && e.fps <= kMaxFps))
                node.at("fps").fail("expected a number above 0 and at most 1000");
            if (node.has("speed")) {
                e.speed = node.at("speed").number();
                if (!(e.speed > 0 && e.speed <= kMaxSpeed)) {
                    node.at("speed").fail("expected a number above 0 and at most 100");
                }
            }
            // The clock moves 1e6 / (fps x speed) us per frame: more than 10 s per frame would fire
            // every periodic timer thousands of times between two frames.
            if (e.fps * e.speed < kMinFpsTimesSpeed) {
                node.fail("fps x speed is " + numberText(e.fps * e.speed) +
                          ", below 0.1: a frame would last more than 10 s on the clock");
            }
            if (node.has("drops"))
                e.drops = static_cast<int32_t>(node.at("drops").integer(0, kInt32Max));
            if (node.has("render")) e.renderFrames = node.at("render").boolean();
            if (node.has("start_us")) {
                e.hasStartUs = true;
                e.startUs = node.at("start_us").integer(0, kInt64Max / 1000);
            }
            e.bytes = node.has("bytes") ? static_cast<int32_t>(node.at("bytes").integer(0, 1 << 26))
                                        : kDefaultInputBytes;
            break;
        }
        case Kind::kAdvance: {
            node.expectObject({"event", "ms", "us", "comment"});
            if (node.has("ms") == node.has("us")) node.fail("expected exactly one of 'ms', 'us'");
            // At most a day per step: enough for cache timeouts, never an overflow.
            constexpr int64_t kMaxAdvanceUs = 86400LL * 1000000;
            e.advanceUs = node.has("ms") ? node.at("ms").integer(0, kMaxAdvanceUs / 1000) * 1000
                                         : node.at("us").integer(0, kMaxAdvanceUs);
            break;
        }
        case Kind::kShutdown:
            node.expectObject({"event", "keep_allocated", "comment"});
            if (node.has("keep_allocated")) e.keepAllocated = node.at("keep_allocated").boolean();
            break;
    }
    return e;
}

TavroScenarioProcess scenarioProcess(const Node& node) {
    node.expectObject({"name", "pid", "uid", "caller", "top_activity", "comment"});
    TavroScenarioProcess p;
    p.name = node.at("name").nonEmptyString();
    p.pid = static_cast<int32_t>(node.at("pid").integer(1, kInt32Max));
    p.uid = node.at("uid").integer(0, kUint32Max);
    if (node.has("caller")) {
        Node caller = node.at("caller");
        caller.expectObject({"uid", "pid"});
        p.hasCaller = true;
        p.callerUid = caller.at("uid").integer(0, kUint32Max);
        p.callerPid = static_cast<int32_t>(caller.at("pid").integer(1, kInt32Max));
    }
    if (node.has("top_activity")) p.topActivity = node.at("top_activity").string();
    return p;
}

TavroScenarioList scenarioList(const std::string& name, const Node& node) {
    TavroScenarioList list;
    list.name = name;
    if (name.empty()) node.fail("empty list name");
    for (const Node& item : node.elements()) {
        item.expectObject({"uid", "pid", "name", "activity", "value", "comment"});
        TavroListEntry entry;
        int keys = item.has("uid") + item.has("pid") + item.has("name") + item.has("activity");
        if (keys != 1) item.fail("expected exactly one of 'uid', 'pid', 'name', 'activity'");
        if (item.has("uid")) {
            entry.key = TavroListEntry::Key::kUid;
            entry.id = item.at("uid").integer(0, kUint32Max);
        } else if (item.has("pid")) {
            entry.key = TavroListEntry::Key::kPid;
            entry.id = item.at("pid").integer(1, kInt32Max);
        } else if (item.has("name")) {
            entry.key = TavroListEntry::Key::kName;
            entry.name = item.at("name").nonEmptyString();
        } else {
            entry.key = TavroListEntry::Key::kActivity;
            entry.name = item.at("activity").nonEmptyString();
        }
        if (item.has("value")) entry.value = item.at("value").string();
        list.entries.push_back(std::move(entry));
    }
    return list;
}

TavroProcDescription procDescription(const Node& node) {
    node.expectObject({"threads", "mem_available_kb", "processes", "comment"});
    TavroProcDescription desc;
    std::set<int32_t> tids;
    if (node.has("threads")) {
        for (const Node& t : node.at("threads").elements()) {
            t.expectObject({"tid", "name"});
            TavroScenarioThread thread;
            thread.tid = static_cast<int32_t>(t.at("tid").integer(1, kInt32Max));
            thread.name = t.at("name").nonEmptyString();
            if (thread.name.find('\n') != std::string::npos)
                t.at("name").fail("a thread name is one line");
            if (!tids.insert(thread.tid).second) t.at("tid").fail("thread id given twice");
            desc.threads.push_back(thread);
        }
    }
    if (node.has("mem_available_kb")) {
        desc.hasMemAvailable = true;
        desc.memAvailableKb = node.at("mem_available_kb").integer(0, kInt64Max / 1024);
    }
    if (node.has("processes")) {
        std::set<int32_t> pids;
        for (const Node& p : node.at("processes").elements()) {
            p.expectObject({"pid", "name"});
            TavroScenarioOtherProcess other;
            other.pid = static_cast<int32_t>(p.at("pid").integer(1, kInt32Max));
            other.name = p.at("name").nonEmptyString();
            if (!pids.insert(other.pid).second) p.at("pid").fail("process id given twice");
            desc.processes.push_back(other);
        }
    }
    return desc;
}

std::string trim(const std::string& s) {
    size_t b = s.find_first_not_of(" \t\r");
    if (b == std::string::npos) return "";
    size_t e = s.find_last_not_of(" \t\r");
    return s.substr(b, e - b + 1);
}

// build.prop lines: "key=value", blanks around both trimmed, blank lines and '#' lines skipped.
// build.prop lines: "key=value", blanks around both trimmed, blank lines and '#' lines skipped.
// Only a regular file of at most kTavroMaxPropertyFileBytes is read: a device node such as
// /dev/zero would never end.
void loadPropertyFile(const Node& node, const std::string& baseDir,
                      std::vector<std::pair<std::string, std::string>>* out) {
    const std::string name = node.nonEmptyString();
    const std::string path = name[0] == '/' || baseDir.empty() ? name : baseDir + "/" + name;
    struct stat st;
    if (stat(path.c_str(), &st) != 0) node.fail("cannot read '" + path + "': " + strerror(errno));
    if (!S_ISREG(st.st_mode)) node.fail("cannot read '" + path + "': not a regular file");
    if (static_cast<uint64_t>(st.st_size) > kTavroMaxPropertyFileBytes) {
        node.fail("'" + path + "' is larger than " + std::to_string(kTavroMaxPropertyFileBytes) +
                  " bytes, the most a property file may have");
    }
    std::ifstream in(path);
    if (!in) node.fail("cannot read '" + path + "': " + strerror(errno));
    std::string line;
    for (int number = 1; std::getline(in, line); ++number) {
        std::string t = trim(line);
        if (t.empty() || t[0] == '#') continue;
        size_t eq = t.find('=');
        std::string key = eq == std::string::npos ? "" : trim(t.substr(0, eq));
        if (key.empty()) {
            node.fail(name + ":" + std::to_string(number) + ": expected key=value");
        }
        out->emplace_back(key, trim(t.substr(eq + 1)));
    }
}

// Reads the document in one pass and builds the scenario as it goes. Everything but the events
// becomes a small JSON tree that the Node checks walk afterwards; each element of the top-level
// "events" array is built alone, turned into a TavroScenarioEvent as soon as it is complete and
// dropped, so memory holds the scenario, never a tree of the whole file. It also finds what a
// plain parse would hide or choke on: a key given twice, nesting deeper than kTavroMaxNesting,
// a number beyond double range, more than kTavroMaxEvents events.
//
// Complaints keep the order of a check of the finished tree: a syntax error first, then a
// duplicated key, then the other parts of the scenario, then the first event that is wrong. A
// limit stops reading at once.
class ScenarioReader : public nlohmann::json_sax<Json> {
  public:
    explicit ScenarioReader(const std::string& file) : mFile(file) {}

    bool null() override { return value(Json()); }
    bool boolean(bool v) override { return value(Json(v)); }
    bool number_integer(number_integer_t v) override { return value(Json(v)); }
    bool number_unsigned(number_unsigned_t v) override { return value(Json(v)); }
    bool number_float(number_float_t v, const string_t& /*text*/) override {
        return value(Json(v));
    }
    bool string(string_t& v) override { return value(Json(std::move(v))); }
    bool binary(binary_t& /*v*/) override { return value(Json()); }  // not in JSON text

    bool start_object(std::size_t /*elements*/) override { return open(false); }
    bool start_array(std::size_t /*elements*/) override { return open(true); }
    bool end_object() override { return close(); }
    bool end_array() override { return close(); }

    bool key(string_t& key) override {
        Frame& top = mStack.back();
        if (mDuplicate.empty() && top.value != nullptr && hasKey(&top, key)) {
            mDuplicate = placed(top.path, "key '" + key + "' given twice");
        }
        top.key = std::move(key);
        return true;
    }

    bool parse_error(std::size_t /*position*/, const std::string& token,
                     const nlohmann::detail::exception& e) override {
        if (e.id == 406) {
            // Beyond double range ("1e400"): named by its place like every other bad value.
            mSyntax = placed(nextPath(), "number out of range: " + token);
            return false;
        }
        // "[json.exception.parse_error.101] parse error at line 3, column 5: ..." without the tag.
        const std::string what = e.what();
        const size_t tagEnd = what.find("] ");
        mSyntax = mFile + ": " + (tagEnd == std::string::npos ? what : what.substr(tagEnd + 2));
        return false;
    }

    // The first complaint of the reading itself (limit, syntax, duplicate), "" when none.
    std::string readingError() const {
        if (!mLimit.empty()) return mLimit;
        if (!mSyntax.empty()) return mSyntax;
        return mDuplicate;
    }
    Json& root() { return mRoot; }
    bool eventsRead() const { return mEventsRead; }
    size_t eventCount() const { return mEventCount; }
    const std::string& eventError() const { return mEventError; }
    std::deque<TavroScenarioEvent>& events() { return mEvents; }

  private:
    struct Frame {
        bool isArray = false;
        bool isEvents = false;  // the top-level "events" array: elements are built one by one
        size_t next = 0;        // arrays: index of the next element
        std::string path;       // "events[3].format"
        std::string key;        // objects: the key of the value to come
        Json* value = nullptr;  // the container being filled
        std::unique_ptr<std::unordered_set<std::string>> keys;  // objects with many keys
    };
    static constexpr size_t kLinearKeyScan = 16;

    std::string placed(const std::string& path, const std::string& message) const {
        return mFile + ": " + (path.empty() ? "" : path + ": ") + message;
    }

    // The path of the value about to arrive.
    std::string nextPath() const {
        if (mStack.empty()) return "";
        const Frame& top = mStack.back();
        if (top.isArray) return top.path + "[" + std::to_string(top.next) + "]";
        return top.path.empty() ? top.key : top.path + "." + top.key;
    }

    // Small objects are scanned; past kLinearKeyScan keys a set keeps it linear.
    bool hasKey(Frame* frame, const std::string& key) {
        auto& object = frame->value->get_ref<Json::object_t&>();
        if (frame->keys == nullptr && object.size() < kLinearKeyScan) {
            for (const auto& member : object) {
                if (member.first == key) return true;
            }
            return false;
        }
        if (frame->keys == nullptr) {
            frame->keys = std::make_unique<std::unordered_set<std::string>>();
            for (const auto& member : object) frame->keys->insert(member.first);
        }
        return !frame->keys->insert(key).second;
    }

    // Puts `v` where the document is at and returns it in place.
    Json* place(Json&& v) {
        if (mStack.empty()) {
            mRoot = std::move(v);
            return &mRoot;
        }
        Frame& top = mStack.back();
        if (top.isEvents) {
            mEvent = std::move(v);
            return &mEvent;
        }
        if (top.isArray) {
            top.value->push_back(std::move(v));
            return &top.value->back();
        }
        // Appended, not looked up: a duplicated key was reported above and the file is refused.
        auto& object = top.value->get_ref<Json::object_t&>();
        object.emplace_back(top.key, std::move(v));
        return &object.back().second;
    }

    bool value(Json&& v) {
        if (!mStack.empty() && mStack.back().isEvents) {
            const std::string path = nextPath();
            ++mStack.back().next;
            mEvent = std::move(v);
            return finishEvent(path);
        }
        if (!mStack.empty() && mStack.back().isArray) ++mStack.back().next;
        place(std::move(v));
        return true;
    }

    bool open(bool isArray) {
        Frame frame;
        frame.isArray = isArray;
        frame.path = nextPath();
        if (mStack.size() >= kTavroMaxNesting) {
            mLimit = placed(frame.path,
                            "nesting deeper than " + std::to_string(kTavroMaxNesting) + " levels");
            return false;
        }
        // The top-level "events" array: a placeholder in the tree, elements handled one by one.
        if (isArray && mStack.size() == 1 && !mStack.back().isArray &&
            mStack.back().key == "events") {
            place(Json::array());
            frame.isEvents = true;
            mEventsRead = true;
            mStack.push_back(std::move(frame));
            return true;
        }
        if (!mStack.empty() && mStack.back().isArray) ++mStack.back().next;
        frame.value = place(isArray ? Json::array() : Json::object());
        mStack.push_back(std::move(frame));
        return true;
    }

    bool close() {
        const std::string path = std::move(mStack.back().path);
        mStack.pop_back();
        if (!mStack.empty() && mStack.back().isEvents) return finishEvent(path);
        return true;
    }

    // One element of "events" is complete in mEvent.
    bool finishEvent(const std::string& path) {
        if (++mEventCount > kTavroMaxEvents) {
            mLimit = placed("events", "more than " + std::to_string(kTavroMaxEvents) + " events");
            return false;
        }
        // After the first bad event the rest is only read (for syntax and duplicates).
        if (!mEventError.empty() || !mDuplicate.empty()) return true;
        try {
            Node node(mEvent, path, mFile);
            if (mDestroyed) node.fail("nothing can follow 'destroy'");
            mEvents.push_back(scenarioEvent(node));
            mDestroyed = mEvents.back().kind == TavroScenarioEvent::Kind::kDestroy;
        } catch (const TavroScenarioError& e) {
            mEventError = e.what();
        }
        mEvent = Json();
        return true;
    }

    const std::string& mFile;
    std::vector<Frame> mStack;
    Json mRoot;
    Json mEvent;
    std::string mLimit, mSyntax, mDuplicate, mEventError;
    bool mEventsRead = false;
    bool mDestroyed = false;
    size_t mEventCount = 0;
    std::deque<TavroScenarioEvent> mEvents;
};

// A read(2) stream buffer that stops at `limit` bytes: stdin and pipes have no size to check
// before reading.
class LimitedFdBuffer : public std::streambuf {
  public:
    LimitedFdBuffer(int fd, uint64_t limit) : mFd(fd), mLimit(limit) {}
    bool tooLarge() const { return mTooLarge; }
    int readErrno() const { return mErrno; }

  protected:
    int_type underflow() override {
        if (mTooLarge || mErrno != 0) return traits_type::eof();
        ssize_t n;
        do {
            n = ::read(mFd, mBuffer, sizeof(mBuffer));
        } while (n < 0 && errno == EINTR);
        if (n < 0) mErrno = errno;
        if (n <= 0) return traits_type::eof();
        mTotal += static_cast<uint64_t>(n);
        if (mTotal > mLimit) {
            mTooLarge = true;
            return traits_type::eof();
        }
        setg(mBuffer, mBuffer, mBuffer + n);
        return traits_type::to_int_type(mBuffer[0]);
    }

  private:
    int mFd;
    uint64_t mLimit;
    uint64_t mTotal = 0;
    bool mTooLarge = false;
    int mErrno = 0;
    char mBuffer[1 << 16];
};

std::string tooLargeMessage(const std::string& name) {
    return name + ": larger than " + std::to_string(kTavroMaxScenarioBytes) +
           " bytes, the most a scenario file may have";
}

// The checks of everything but the events, then the events the reader built, in the order a
// check of the whole tree would make them.
TavroScenario finishScenario(ScenarioReader* reader, const std::string& name,
                             const std::string& baseDir) {
    const std::string readingError = reader->readingError();
    if (!readingError.empty()) throw TavroScenarioError(readingError);

    Node doc(reader->root(), "", name);
    doc.expectObject({"comment", "process", "properties", "property_files", "lists", "proc",
                      "analysis", "component", "order", "events"});
    TavroScenario s;
    s.path = name;
    s.process = scenarioProcess(doc.at("process"));
    if (doc.has("property_files")) {
        for (const Node& file : doc.at("property_files").elements()) {
            loadPropertyFile(file, baseDir, &s.properties);
        }
    }
    if (doc.has("properties")) {
        for (const auto& [key, value] : doc.at("properties").members()) {
            if (key.empty()) doc.at("properties").fail("empty property name");
            if (value.json().is_string()) {
                s.properties.emplace_back(key, value.string());
            } else if (value.json().is_number_integer() || value.json().is_number_unsigned()) {
                s.properties.emplace_back(key, std::to_string(value.integer(kInt64Min, kInt64Max)));
            } else {
                value.fail("expected a string or an integer");
            }
        }
    }
    if (doc.has("lists")) {
        for (const auto& [listName, entries] : doc.at("lists").members()) {
            s.lists.push_back(scenarioList(listName, entries));
        }
    }
    if (doc.has("proc")) s.proc = procDescription(doc.at("proc"));
    if (doc.has("analysis")) {
        Node analysis = doc.at("analysis");
        analysis.expectObject({"scan_type", "fps_use_count", "comment"});
        if (analysis.has("scan_type")) {
            s.analysis.hasScanType = true;
            s.analysis.scanType =
                    static_cast<int32_t>(analysis.at("scan_type").integer(0, kInt32Max));
        }
        if (analysis.has("fps_use_count")) {
            s.analysis.hasFpsUseCount = true;
            s.analysis.fpsUseCount = analysis.at("fps_use_count").integer(0, kInt64Max);
        }
    }
    for (const TavroScenarioThread& t : s.proc.threads) {
        if (t.tid == s.process.pid) {
            doc.at("proc").fail("thread id " + std::to_string(t.tid) +
                                " is the process id, which stands for the tool's own thread");
        }
    }
    for (const TavroScenarioOtherProcess& p : s.proc.processes) {
        if (p.pid == s.process.pid)
            doc.at("proc").fail("the own process is described by 'process'");
    }
    s.component = doc.at("component").nonEmptyString();
    if (doc.has("order")) {
        const std::string order = doc.at("order").string();
        if (order != "strict" && order != "free") {
            doc.at("order").fail("expected \"strict\" or \"free\"");
        }
        s.freeOrder = order == "free";
    }

    if (!reader->eventsRead()) {
        doc.at("events").elements();  // missing, or not an array: says which
    }
    if (reader->eventCount() == 0) doc.at("events").fail("expected at least one event");
    if (!reader->eventError().empty()) throw TavroScenarioError(reader->eventError());
    s.events = std::move(reader->events());
    return s;
}

}  // namespace

const char* tavroScenarioEventName(TavroScenarioEvent::Kind kind) {
    for (const EventName& n : kEventNames) {
        if (n.kind == kind) return n.name;
    }
    return "?";
}

TavroScenario loadTavroScenarioText(const std::string& text, const std::string& name,
                                    const std::string& baseDir) {
    if (text.size() > kTavroMaxScenarioBytes) throw TavroScenarioError(tooLargeMessage(name));
    ScenarioReader reader(name);
    Json::sax_parse(text, &reader);
    return finishScenario(&reader, name, baseDir);
}

TavroScenario loadTavroScenarioFile(const std::string& path) {
    const bool isStdin = path == "-";
    const std::string name = isStdin ? "<stdin>" : path;
    std::string baseDir;
    int fd = STDIN_FILENO;
    if (!isStdin) {
        fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
        if (fd < 0) throw TavroScenarioError(path + ": cannot read: " + strerror(errno));
        struct stat st;
        std::string problem;
        if (fstat(fd, &st) != 0) {
            problem = strerror(errno);
        } else if (S_ISDIR(st.st_mode)) {
            problem = strerror(EISDIR);
        } else if (!S_ISREG(st.st_mode) && !S_ISFIFO(st.st_mode) && !S_ISSOCK(st.st_mode)) {
            problem = "not a regular file or a pipe";
        } else if (S_ISREG(st.st_mode) &&
                   static_cast<uint64_t>(st.st_size) > kTavroMaxScenarioBytes) {
            close(fd);
            throw TavroScenarioError(tooLargeMessage(name));
        }
        if (!problem.empty()) {
            close(fd);
            throw TavroScenarioError(path + ": cannot read: " + problem);
        }
        size_t slash = path.rfind('/');
        baseDir = slash == std::string::npos ? "" : path.substr(0, slash);
        if (slash == 0) baseDir = "/";
    }
    LimitedFdBuffer buffer(fd, kTavroMaxScenarioBytes);
    std::istream in(&buffer);
    ScenarioReader reader(name);
    Json::sax_parse(in, &reader);
    if (!isStdin) close(fd);
    if (buffer.tooLarge()) throw TavroScenarioError(tooLargeMessage(name));
    if (buffer.readErrno() != 0) {
        throw TavroScenarioError(name + ": cannot read: " + strerror(buffer.readErrno()));
    }
    return finishScenario(&reader, name, baseDir);
}

}  // namespace android
