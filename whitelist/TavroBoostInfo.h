// The records of one boost rule of the white list: when it applies (BoostConditionInfo), the
// scheduling half (TavroUxInfo) and the CPU-cluster half (TavroClusterInfo) of its decision, and
// the cached entry that holds them (MediaBoostInfo). Also the keys of the boost-info string, the
// flat text every rule is parsed from.
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

// Separators: items, key from value, and pieces of a list value.
constexpr char kBoostItemDelim = ',';
constexpr char kBoostValueDelim = '=';
constexpr char kBoostListDelim = '+';

// When a boost rule applies. Empty strings, zero limits and -1 flags never exclude (the matching
// rules are in TavroWhiteListCacheMgr::checkPrecondition).
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

}  // namespace android
