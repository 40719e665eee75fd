// The records of one boost rule of the white list: when it applies (BoostConditionInfo), the
// scheduling half (TavroUxInfo) and the CPU-cluster half (TavroClusterInfo) of its decision, and
// the cached entry that holds them (MediaBoostInfo). Also the keys of the boost-info string, the
// flat text every rule is parsed from, and the one table (kTavroBoostKeys) that says how each key
// is read and where its value goes: the parser, its reset, the debug dump and the tools all walk
// that table, so a key added there is known everywhere at once.
#pragma once

#include <stdint.h>

#include <chrono>
#include <map>
#include <string>
#include <vector>

namespace android {

// ---- Keys of the boost-info string ("key=value" items separated by ',') ---------------------
constexpr char kBoostKeyCpu[] = "cpu";
constexpr char kBoostKeyPrj[] = "prj";
constexpr char kBoostKeyVendor[] = "vendor";
constexpr char kBoostKeyMime[] = "mime";
constexpr char kBoostKeyComp[] = "comp";
constexpr char kBoostKeyLimitWidth[] = "limitWidth";
constexpr char kBoostKeyLimitHeight[] = "limitHeight";
constexpr char kBoostKeyBitrate[] = "bitrate";
constexpr char kBoostKeySampleRate[] = "sampleRate";
constexpr char kBoostKeySampleBits[] = "sampleBits";
constexpr char kBoostKeyChannelCount[] = "channelCount";
constexpr char kBoostKeyCodecId[] = "codecId";
constexpr char kBoostKeyIsVideo[] = "isVideo";
constexpr char kBoostKeyIsEncoder[] = "isEncoder";
constexpr char kBoostKeySched[] = "sched";
constexpr char kBoostKeySchedVideo[] = "schedVideo";
constexpr char kBoostKeySchedAudio[] = "schedAudio";
constexpr char kBoostKeyVendorBoost[] = "vendorBoost";
constexpr char kBoostKeyThreadName[] = "threadName";
constexpr char kBoostKeyDdrFreq[] = "ddrFreq";
constexpr char kBoostKeyAppThreads[] = "appThreads";
constexpr char kBoostKeySwThreads[] = "swThreads";
constexpr char kBoostKeyLimitOpRate[] = "limitOpRate";
constexpr char kBoostKeyMinUclamp[] = "minUclamp";
constexpr char kBoostKeyPelt[] = "pelt";
constexpr char kBoostKeyCountFps[] = "countFps";
constexpr char kBoostKeyPreferIdle[] = "preferIdle";
constexpr char kBoostKeyScreenOff[] = "screenOff";
constexpr char kBoostKeyUclampTids[] = "uclampTids";
// Minimum frequency of CPU clusters 0 to 7, one key each; higher numbers have no key.
constexpr int32_t kBoostMaxClusterKey = 7;
constexpr const char* kBoostKeyClusterMin[kBoostMaxClusterKey + 1] = {
        "cluster0Min", "cluster1Min", "cluster2Min", "cluster3Min",
        "cluster4Min", "cluster5Min", "cluster6Min", "cluster7Min",
};
constexpr char kBoostKeyFreqUpRate[] = "freqUpRate";
constexpr char kBoostKeyFreqDownRate[] = "freqDownRate";

// When a boost rule applies. Empty strings, zero limits and -1 flags never exclude (the matching
// rules are in checkPrecondition, TavroBoostCondition.h).
struct BoostConditionInfo {
    std::string soc;         // "cpu": list of socs the rule is for
    std::string project;     // "prj"
    std::string vendor;      // "vendor"
    std::string mime;        // "mime"
    std::string component;   // "comp"
    int32_t limitWidth = 0;  // lower bound of width x height, with limitHeight
    int32_t limitHeight = 0;
    int32_t bitrate = 0;       // lower bound
    int32_t sampleRate = 0;    // lower bound
    int32_t sampleBits = 0;    // lower bound
    int32_t channelCount = 0;  // lower bound
    int32_t codecId = 0;       // 0 = any codec
    int32_t isVideo = -1;      // 1 video, 0 audio, -1 either
    int32_t isEncoder = -1;    // 1 encoder, 0 decoder, -1 either
};

// Scheduling half of a decision.
struct TavroUxInfo {
    int32_t schedVideo = -1;  // scheduling boost value for a video codec; -1 none
    int32_t schedAudio = -1;  // scheduling boost value for an audio codec; -1 none
    int32_t ddrFreq = 0;      // memory (DDR) frequency request
    bool needVendorBoost = false;
    std::string threadName;     // '+'-separated names of threads of the own process to boost
    std::string appThreads;     // application thread names, passed on as text
    std::vector<int32_t> tids;  // resolved from threadName when the rule is applied, not parsed
    std::vector<std::string> swThreads;  // software-codec thread names
};

// CPU-cluster half of a decision.
struct TavroClusterInfo {
    int32_t limitOpRate = 0;   // operating-rate limit
    int32_t minUclamp = 0;     // minimum utilisation clamp
    int32_t peltHalflife = 0;  // load-tracking half-life
    bool countFps = false;
    bool isPreferIdle = false;
    bool isScreenOff = false;
    std::vector<int32_t> uclampIndex;           // indices into the codec's boost thread ids
    std::vector<int32_t> freqRate;              // up-rate values, then down-rate values
    std::map<int32_t, int32_t> clusterMinFreq;  // cluster number -> minimum frequency in kHz
};

// One boost rule as the cache keeps it. Always held through a shared pointer. An entry whose
// `boostStrInfo` is empty gives no boost anywhere.
struct MediaBoostInfo {
    std::string boostStrInfo;  // the string the rule was parsed from
    BoostConditionInfo condition;
    TavroUxInfo uxInfo;
    TavroClusterInfo clusterInfo;
    bool isValid = false;    // the list service has been asked for this entry at least once
    bool isDefault = false;  // holds a built-in default string rather than a list answer
    // Steady-clock time of the last list answer or of loading a default; zero when never.
    std::chrono::steady_clock::time_point cacheTime{};
};

// ---- The key table ------------------------------------------------------------------------------

// Separators: items, key from value, and pieces of a list value.
constexpr char kBoostItemDelim = ',';
constexpr char kBoostValueDelim = '=';
constexpr char kBoostListDelim = '+';

// How a key's value is read.
enum class TavroBoostKeyKind : uint8_t {
    kText,        // taken as written, blanks included
    kNameList,    // '+'-separated names (kept as written, or split into a list)
    kInt,         // read like atoi: blanks, a sign, digits; anything else reads 0
    kStrictInt,   // a base-10 int32 or the whole string is rejected
    kBool,        // an integer; any non-zero number is true
    kIntList,     // '+'-separated integers, each read like atoi
    kClusterKey,  // an integer for the cluster the key names; no map entry when absent
};

// The part of the rule a key belongs to: when it applies, or one of the two halves of its
// decision.
enum class TavroBoostPart : uint8_t { kCondition, kScheduling, kCluster };

// Which codecs ever read a key's value: a condition compared only for one kind of track, or a
// decision the boost request takes only for one kind of codec. A rule that names the other kind
// ("isVideo") makes the key dead weight, and a scheduling value falls back to "sched" only when
// the rule does not name the other kind.
enum class TavroBoostTrack : uint8_t { kAny, kVideo, kAudio };

// Where in a MediaBoostInfo a key's value is stored: exactly one accessor is set, of the field's
// type, and `type` says which. The accessors are captureless lambdas, so the table is a
// compile-time constant.
struct TavroBoostField {
    enum class Type : uint8_t { kNone, kText, kNumber, kFlag, kNames, kNumbers, kClusters };
    Type type = Type::kNone;
    std::string* (*text)(MediaBoostInfo&) = nullptr;
    int32_t* (*number)(MediaBoostInfo&) = nullptr;
    bool* (*flag)(MediaBoostInfo&) = nullptr;
    std::vector<std::string>* (*names)(MediaBoostInfo&) = nullptr;
    std::vector<int32_t>* (*numbers)(MediaBoostInfo&) = nullptr;
    std::map<int32_t, int32_t>* (*clusters)(MediaBoostInfo&) = nullptr;
};

constexpr TavroBoostField boostField(std::string* (*at)(MediaBoostInfo&)) {
    TavroBoostField f;
    f.type = TavroBoostField::Type::kText;
    f.text = at;
    return f;
}
constexpr TavroBoostField boostField(int32_t* (*at)(MediaBoostInfo&)) {
    TavroBoostField f;
    f.type = TavroBoostField::Type::kNumber;
    f.number = at;
    return f;
}
constexpr TavroBoostField boostField(bool* (*at)(MediaBoostInfo&)) {
    TavroBoostField f;
    f.type = TavroBoostField::Type::kFlag;
    f.flag = at;
    return f;
}
constexpr TavroBoostField boostField(std::vector<std::string>* (*at)(MediaBoostInfo&)) {
    TavroBoostField f;
    f.type = TavroBoostField::Type::kNames;
    f.names = at;
    return f;
}
constexpr TavroBoostField boostField(std::vector<int32_t>* (*at)(MediaBoostInfo&)) {
    TavroBoostField f;
    f.type = TavroBoostField::Type::kNumbers;
    f.numbers = at;
    return f;
}
constexpr TavroBoostField boostField(std::map<int32_t, int32_t>* (*at)(MediaBoostInfo&)) {
    TavroBoostField f;
    f.type = TavroBoostField::Type::kClusters;
    f.clusters = at;
    return f;
}

// One key of the boost-info string.
struct TavroBoostKey {
    const char* name;
    TavroBoostKeyKind kind;
    TavroBoostPart part;
    TavroBoostTrack track;
    const char* field;     // the record field the value goes to; nullptr for "sched"
    TavroBoostField at;    // that field; no accessor for "sched"
    int32_t absent;        // the value of an absent kInt/kStrictInt key; the cluster number of a
                           // kClusterKey
    const char* dumpLine;  // the field's line in the debug dump; nullptr when not dumped there
};

// Every key, in the order of the debug dump. Rules the parser keeps beyond the table:
//  - "sched" has no field: an absent kStrictInt key takes its value, unless the rule's "isVideo"
//    names the other kind of track than the key's;
//  - keys of one field are consecutive rows; kIntList keys of one field are joined with '+'
//    before they are read, so "freqUpRate=80,freqDownRate=60" gives [80, 60] and
//    "freqDownRate=60" alone gives [60];
//  - several keys of one field are dumped once, on the line of the first of them;
//  - the resolved thread ids close the scheduling half of the dump.
inline constexpr TavroBoostKey kTavroBoostKeys[] = {
        // ---- When the rule applies
        {kBoostKeyCpu, TavroBoostKeyKind::kText, TavroBoostPart::kCondition, TavroBoostTrack::kAny,
         "soc", boostField(+[](MediaBoostInfo& i) { return &i.condition.soc; }), 0,
         "Debug: platform, soc: %s"},
        {kBoostKeyPrj, TavroBoostKeyKind::kText, TavroBoostPart::kCondition, TavroBoostTrack::kAny,
         "project", boostField(+[](MediaBoostInfo& i) { return &i.condition.project; }), 0,
         "Debug: platform: project: %s"},
        {kBoostKeyVendor, TavroBoostKeyKind::kText, TavroBoostPart::kCondition,
         TavroBoostTrack::kAny, "vendor",
         boostField(+[](MediaBoostInfo& i) { return &i.condition.vendor; }), 0,
         "Debug: platform: vendor: %s"},
        {kBoostKeyMime, TavroBoostKeyKind::kText, TavroBoostPart::kCondition, TavroBoostTrack::kAny,
         "mime", boostField(+[](MediaBoostInfo& i) { return &i.condition.mime; }), 0,
         "Debug: mediaInfo: mime: %s"},
        {kBoostKeyComp, TavroBoostKeyKind::kText, TavroBoostPart::kCondition, TavroBoostTrack::kAny,
         "component", boostField(+[](MediaBoostInfo& i) { return &i.condition.component; }), 0,
         "Debug: mediaInfo: component: %s"},
        {kBoostKeyLimitWidth, TavroBoostKeyKind::kInt, TavroBoostPart::kCondition,
         TavroBoostTrack::kVideo, "limitWidth",
         boostField(+[](MediaBoostInfo& i) { return &i.condition.limitWidth; }), 0,
         "Debug: mediaInfo: limitWidth: %d"},
        {kBoostKeyLimitHeight, TavroBoostKeyKind::kInt, TavroBoostPart::kCondition,
         TavroBoostTrack::kVideo, "limitHeight",
         boostField(+[](MediaBoostInfo& i) { return &i.condition.limitHeight; }), 0,
         "Debug: mediaInfo: limitHeight: %d"},
        {kBoostKeyBitrate, TavroBoostKeyKind::kInt, TavroBoostPart::kCondition,
         TavroBoostTrack::kAny, "bitrate",
         boostField(+[](MediaBoostInfo& i) { return &i.condition.bitrate; }), 0,
         "Debug: mediaInfo: bitrate: %d"},
        {kBoostKeySampleRate, TavroBoostKeyKind::kInt, TavroBoostPart::kCondition,
         TavroBoostTrack::kAudio, "sampleRate",
         boostField(+[](MediaBoostInfo& i) { return &i.condition.sampleRate; }), 0,
         "Debug: mediaInfo: sampleRate: %d"},
        {kBoostKeySampleBits, TavroBoostKeyKind::kInt, TavroBoostPart::kCondition,
         TavroBoostTrack::kAudio, "sampleBits",
         boostField(+[](MediaBoostInfo& i) { return &i.condition.sampleBits; }), 0,
         "Debug: mediaInfo: sampleBits: %d"},
        {kBoostKeyChannelCount, TavroBoostKeyKind::kInt, TavroBoostPart::kCondition,
         TavroBoostTrack::kAudio, "channelCount",
         boostField(+[](MediaBoostInfo& i) { return &i.condition.channelCount; }), 0,
         "Debug: mediaInfo: channelCount: %d"},
        {kBoostKeyCodecId, TavroBoostKeyKind::kInt, TavroBoostPart::kCondition,
         TavroBoostTrack::kAny, "codecId",
         boostField(+[](MediaBoostInfo& i) { return &i.condition.codecId; }), 0, nullptr},
        {kBoostKeyIsVideo, TavroBoostKeyKind::kInt, TavroBoostPart::kCondition,
         TavroBoostTrack::kAny, "isVideo",
         boostField(+[](MediaBoostInfo& i) { return &i.condition.isVideo; }), -1,
         "Debug: mediaInfo: isVideo: %d"},
        {kBoostKeyIsEncoder, TavroBoostKeyKind::kInt, TavroBoostPart::kCondition,
         TavroBoostTrack::kAny, "isEncoder",
         boostField(+[](MediaBoostInfo& i) { return &i.condition.isEncoder; }), -1,
         "Debug: mediaInfo: isEncoder: %d"},
        // ---- The scheduling half
        {kBoostKeySched, TavroBoostKeyKind::kInt, TavroBoostPart::kScheduling,
         TavroBoostTrack::kAny, nullptr, TavroBoostField(), -1, nullptr},
        {kBoostKeySchedVideo, TavroBoostKeyKind::kStrictInt, TavroBoostPart::kScheduling,
         TavroBoostTrack::kVideo, "schedVideo",
         boostField(+[](MediaBoostInfo& i) { return &i.uxInfo.schedVideo; }), -1,
         "Debug: uxInfo: schedVideo: %d"},
        {kBoostKeySchedAudio, TavroBoostKeyKind::kStrictInt, TavroBoostPart::kScheduling,
         TavroBoostTrack::kAudio, "schedAudio",
         boostField(+[](MediaBoostInfo& i) { return &i.uxInfo.schedAudio; }), -1,
         "Debug: uxInfo: schedAudio: %d"},
        {kBoostKeyVendorBoost, TavroBoostKeyKind::kBool, TavroBoostPart::kScheduling,
         TavroBoostTrack::kVideo, "needVendorBoost",
         boostField(+[](MediaBoostInfo& i) { return &i.uxInfo.needVendorBoost; }), 0,
         "Debug: uxInfo: needVendorBoost: %d"},
        {kBoostKeyThreadName, TavroBoostKeyKind::kNameList, TavroBoostPart::kScheduling,
         TavroBoostTrack::kAny, "threadName",
         boostField(+[](MediaBoostInfo& i) { return &i.uxInfo.threadName; }), 0,
         "Debug: uxInfo: threadName: %s"},
        {kBoostKeyDdrFreq, TavroBoostKeyKind::kInt, TavroBoostPart::kScheduling,
         TavroBoostTrack::kVideo, "ddrFreq",
         boostField(+[](MediaBoostInfo& i) { return &i.uxInfo.ddrFreq; }), 0,
         "Debug: uxInfo: ddrFreq: %d"},
        {kBoostKeyAppThreads, TavroBoostKeyKind::kNameList, TavroBoostPart::kScheduling,
         TavroBoostTrack::kVideo, "appThreads",
         boostField(+[](MediaBoostInfo& i) { return &i.uxInfo.appThreads; }), 0,
         "Debug: uxInfo: appThreads: %s"},
        {kBoostKeySwThreads, TavroBoostKeyKind::kNameList, TavroBoostPart::kScheduling,
         TavroBoostTrack::kAudio, "swThreads",
         boostField(+[](MediaBoostInfo& i) { return &i.uxInfo.swThreads; }), 0,
         "Debug: uxInfo: software thread name: %s"},
        // ---- The cluster half
        {kBoostKeyLimitOpRate, TavroBoostKeyKind::kInt, TavroBoostPart::kCluster,
         TavroBoostTrack::kAny, "limitOpRate",
         boostField(+[](MediaBoostInfo& i) { return &i.clusterInfo.limitOpRate; }), 0,
         "Debug: clusterInfo: limitOpRate : %d"},
        {kBoostKeyMinUclamp, TavroBoostKeyKind::kInt, TavroBoostPart::kCluster,
         TavroBoostTrack::kAny, "minUclamp",
         boostField(+[](MediaBoostInfo& i) { return &i.clusterInfo.minUclamp; }), 0,
         "Debug: clusterInfo: minUclamp : %d"},
        {kBoostKeyPelt, TavroBoostKeyKind::kInt, TavroBoostPart::kCluster, TavroBoostTrack::kAny,
         "peltHalflife", boostField(+[](MediaBoostInfo& i) { return &i.clusterInfo.peltHalflife; }),
         0, "Debug: clusterInfo: peltHalflife : %d"},
        {kBoostKeyCountFps, TavroBoostKeyKind::kBool, TavroBoostPart::kCluster,
         TavroBoostTrack::kVideo, "countFps",
         boostField(+[](MediaBoostInfo& i) { return &i.clusterInfo.countFps; }), 0, nullptr},
        {kBoostKeyPreferIdle, TavroBoostKeyKind::kBool, TavroBoostPart::kCluster,
         TavroBoostTrack::kAny, "isPreferIdle",
         boostField(+[](MediaBoostInfo& i) { return &i.clusterInfo.isPreferIdle; }), 0,
         "Debug: clusterInfo: isPreferIdle : %d"},
        {kBoostKeyScreenOff, TavroBoostKeyKind::kBool, TavroBoostPart::kCluster,
         TavroBoostTrack::kAny, "isScreenOff",
         boostField(+[](MediaBoostInfo& i) { return &i.clusterInfo.isScreenOff; }), 0,
         "Debug: clusterInfo: isScreenOff : %d"},
        {kBoostKeyClusterMin[0], TavroBoostKeyKind::kClusterKey, TavroBoostPart::kCluster,
         TavroBoostTrack::kAny, "clusterMinFreq",
         boostField(+[](MediaBoostInfo& i) { return &i.clusterInfo.clusterMinFreq; }), 0,
         "Debug: clusterInfo: cpuNum: %d, minFreq: %d"},
        {kBoostKeyClusterMin[1], TavroBoostKeyKind::kClusterKey, TavroBoostPart::kCluster,
         TavroBoostTrack::kAny, "clusterMinFreq",
         boostField(+[](MediaBoostInfo& i) { return &i.clusterInfo.clusterMinFreq; }), 1, nullptr},
        {kBoostKeyClusterMin[2], TavroBoostKeyKind::kClusterKey, TavroBoostPart::kCluster,
         TavroBoostTrack::kAny, "clusterMinFreq",
         boostField(+[](MediaBoostInfo& i) { return &i.clusterInfo.clusterMinFreq; }), 2, nullptr},
        {kBoostKeyClusterMin[3], TavroBoostKeyKind::kClusterKey, TavroBoostPart::kCluster,
         TavroBoostTrack::kAny, "clusterMinFreq",
         boostField(+[](MediaBoostInfo& i) { return &i.clusterInfo.clusterMinFreq; }), 3, nullptr},
        {kBoostKeyClusterMin[4], TavroBoostKeyKind::kClusterKey, TavroBoostPart::kCluster,
         TavroBoostTrack::kAny, "clusterMinFreq",
         boostField(+[](MediaBoostInfo& i) { return &i.clusterInfo.clusterMinFreq; }), 4, nullptr},
        {kBoostKeyClusterMin[5], TavroBoostKeyKind::kClusterKey, TavroBoostPart::kCluster,
         TavroBoostTrack::kAny, "clusterMinFreq",
         boostField(+[](MediaBoostInfo& i) { return &i.clusterInfo.clusterMinFreq; }), 5, nullptr},
        {kBoostKeyClusterMin[6], TavroBoostKeyKind::kClusterKey, TavroBoostPart::kCluster,
         TavroBoostTrack::kAny, "clusterMinFreq",
         boostField(+[](MediaBoostInfo& i) { return &i.clusterInfo.clusterMinFreq; }), 6, nullptr},
        {kBoostKeyClusterMin[7], TavroBoostKeyKind::kClusterKey, TavroBoostPart::kCluster,
         TavroBoostTrack::kAny, "clusterMinFreq",
         boostField(+[](MediaBoostInfo& i) { return &i.clusterInfo.clusterMinFreq; }), 7, nullptr},
        {kBoostKeyUclampTids, TavroBoostKeyKind::kIntList, TavroBoostPart::kCluster,
         TavroBoostTrack::kAny, "uclampIndex",
         boostField(+[](MediaBoostInfo& i) { return &i.clusterInfo.uclampIndex; }), 0,
         "Debug: clusterInfo: uclamp index: %d"},
        {kBoostKeyFreqUpRate, TavroBoostKeyKind::kIntList, TavroBoostPart::kCluster,
         TavroBoostTrack::kAny, "freqRate",
         boostField(+[](MediaBoostInfo& i) { return &i.clusterInfo.freqRate; }), 0,
         "Debug: clusterInfo: freq up/down rate value: %d"},
        {kBoostKeyFreqDownRate, TavroBoostKeyKind::kIntList, TavroBoostPart::kCluster,
         TavroBoostTrack::kAny, "freqRate",
         boostField(+[](MediaBoostInfo& i) { return &i.clusterInfo.freqRate; }), 0, nullptr},
};

constexpr size_t kTavroBoostKeyCount = sizeof(kTavroBoostKeys) / sizeof(kTavroBoostKeys[0]);

}  // namespace android
