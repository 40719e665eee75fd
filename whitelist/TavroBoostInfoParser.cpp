#define LOG_NDEBUG 0
#define LOG_TAG "TavroWhiteListCache"
#include "whitelist/TavroWhiteListCacheMgr.h"

#include <unistd.h>

#include <array>
#include <chrono>
#include <string_view>

#include <log/log.h>

#include "common/TavroLog.h"
#include "common/TavroNumber.h"

namespace android {
namespace {

// Debug lines of the parser are written at level 7 and above.
constexpr int32_t kParseLogLevel = kTavroLogDetail;

// The keys parseBoostInfo reads, in the order it reads them.
enum Slot : uint8_t {
    kSlotCpu,
    kSlotPrj,
    kSlotVendor,
    kSlotMime,
    kSlotComp,
    kSlotLimitWidth,
    kSlotLimitHeight,
    kSlotBitrate,
    kSlotSampleRate,
    kSlotSampleBits,
    kSlotChannelCount,
    kSlotCodecId,
    kSlotIsVideo,
    kSlotIsEncoder,
    kSlotSched,
    kSlotSchedVideo,
    kSlotSchedAudio,
    kSlotVendorBoost,
    kSlotThreadName,
    kSlotDdrFreq,
    kSlotAppThreads,
    kSlotSwThreads,
    kSlotLimitOpRate,
    kSlotMinUclamp,
    kSlotPelt,
    kSlotCountFps,
    kSlotPreferIdle,
    kSlotScreenOff,
    kSlotUclampTids,
    kSlotCluster0Min,
    kSlotFreqUpRate = kSlotCluster0Min + kBoostMaxClusterKey + 1,
    kSlotFreqDownRate,
    kSlotCount,
};

struct KeySlot {
    std::string_view key;
    uint8_t slot;
};

constexpr KeySlot kKeySlots[] = {
        {kBoostKeyCpu, kSlotCpu},
        {kBoostKeyPrj, kSlotPrj},
        {kBoostKeyVendor, kSlotVendor},
        {kBoostKeyMime, kSlotMime},
        {kBoostKeyComp, kSlotComp},
        {kBoostKeyLimitWidth, kSlotLimitWidth},
        {kBoostKeyLimitHeight, kSlotLimitHeight},
        {kBoostKeyBitrate, kSlotBitrate},
        {kBoostKeySampleRate, kSlotSampleRate},
        {kBoostKeySampleBits, kSlotSampleBits},
        {kBoostKeyChannelCount, kSlotChannelCount},
        {kBoostKeyCodecId, kSlotCodecId},
        {kBoostKeyIsVideo, kSlotIsVideo},
        {kBoostKeyIsEncoder, kSlotIsEncoder},
        {kBoostKeySched, kSlotSched},
        {kBoostKeySchedVideo, kSlotSchedVideo},
        {kBoostKeySchedAudio, kSlotSchedAudio},
        {kBoostKeyVendorBoost, kSlotVendorBoost},
        {kBoostKeyThreadName, kSlotThreadName},
        {kBoostKeyDdrFreq, kSlotDdrFreq},
        {kBoostKeyAppThreads, kSlotAppThreads},
        {kBoostKeySwThreads, kSlotSwThreads},
        {kBoostKeyLimitOpRate, kSlotLimitOpRate},
        {kBoostKeyMinUclamp, kSlotMinUclamp},
        {kBoostKeyPelt, kSlotPelt},
        {kBoostKeyCountFps, kSlotCountFps},
        {kBoostKeyPreferIdle, kSlotPreferIdle},
        {kBoostKeyScreenOff, kSlotScreenOff},
        {kBoostKeyUclampTids, kSlotUclampTids},
        {kBoostKeyClusterMin[0], kSlotCluster0Min + 0},
        {kBoostKeyClusterMin[1], kSlotCluster0Min + 1},
        {kBoostKeyClusterMin[2], kSlotCluster0Min + 2},
        {kBoostKeyClusterMin[3], kSlotCluster0Min + 3},
        {kBoostKeyClusterMin[4], kSlotCluster0Min + 4},
        {kBoostKeyClusterMin[5], kSlotCluster0Min + 5},
        {kBoostKeyClusterMin[6], kSlotCluster0Min + 6},
        {kBoostKeyClusterMin[7], kSlotCluster0Min + 7},
        {kBoostKeyFreqUpRate, kSlotFreqUpRate},
        {kBoostKeyFreqDownRate, kSlotFreqDownRate},
};

// kSlotCount for a key the parser does not read.
uint8_t slotOf(std::string_view key) {
    for (const KeySlot& k : kKeySlots) {
        if (k.key.size() == key.size() && k.key == key) return k.slot;
    }
    return kSlotCount;
}

// Splits `str` into items by rules 1 and 2 of the grammar and calls onItem(key, value) for each
// item with a non-empty key and value, in order. Every non-empty piece is traced first.
template <typename OnItem>
void forEachItem(const std::string& str, OnItem onItem) {
    TAVRO_LOGV(kParseLogLevel, kLogParseStrByDelim, str.c_str(), kBoostItemDelim);
    if (str.empty()) return;
    // One look at the level for the whole loop when it is off; each line checks again when on.
    const bool trace = tavroLogOn(kParseLogLevel, kTavroLogDefaultOff);
    const std::string_view all(str);
    size_t start = 0;
    while (start <= all.size()) {
        size_t end = all.find(kBoostItemDelim, start);
        if (end == std::string_view::npos) end = all.size();
        if (end > start) {
            const std::string_view item = all.substr(start, end - start);
            if (trace) {
                const std::string piece(item);
                TAVRO_LOGV(kParseLogLevel, kLogKeyValue, piece.c_str());
            }
            const size_t eq = item.find(kBoostValueDelim);
            if (eq != std::string_view::npos && eq != 0 && eq + 1 != item.size()) {
                onItem(item.substr(0, eq), item.substr(eq + 1));
            }
        }
        start = end + 1;
    }
}

// Values are views into the parsed string. A number is read from the view's first character on:
// the reading stops at the first character that is not a blank, a sign or a digit, and what
// follows a value is always the item delimiter ',' or the string's terminating NUL, so nothing
// past the value is read. An absent value (empty view) gives `absent`.
int32_t intOf(std::string_view value, int32_t absent) {
    return value.empty() ? absent : tavroAtoi(value.data());
}

// The scheduling values are the one place where a bad number is an error rather than 0: a rule
// whose scheduling class cannot be read must not boost with a guessed one.
bool schedOf(std::string_view value, int32_t fallback, int32_t* out) {
    if (value.empty()) {
        *out = fallback;
        return true;
    }
    return tavroParseInt32(value.data(), out);
}

}  // namespace

bool TavroWhiteListCacheMgr::parseBoostInfo(const std::string& str, const BoostInfoPtr& info) {
    TAVRO_LOGV(kParseLogLevel, kLogParseBoostInfo, str.c_str());
    if (str.empty() || info == nullptr) return true;

    TavroUxInfo& ux = info->uxInfo;
    TavroClusterInfo& cluster = info->clusterInfo;
    ux.schedVideo = -1;
    ux.schedAudio = -1;
    ux.ddrFreq = 0;
    ux.needVendorBoost = false;
    ux.threadName.clear();
    ux.appThreads.clear();
    ux.tids.clear();
    ux.swThreads.clear();
    cluster.limitOpRate = 0;
    cluster.minUclamp = 0;
    cluster.peltHalflife = 0;
    cluster.countFps = false;
    cluster.isPreferIdle = false;
    cluster.isScreenOff = false;
    cluster.uclampIndex.clear();
    cluster.clusterMinFreq.clear();

    // The key/value map of the string, kept as one value per known key: a later item overwrites,
    // unknown keys are dropped, an empty view is an absent key.
    std::array<std::string_view, kSlotCount> v{};
    forEachItem(str, [&v](std::string_view key, std::string_view value) {
        const uint8_t slot = slotOf(key);
        if (slot != kSlotCount) v[slot] = value;
    });

    BoostConditionInfo& condition = info->condition;
    condition.soc.assign(v[kSlotCpu]);
    condition.project.assign(v[kSlotPrj]);
    condition.vendor.assign(v[kSlotVendor]);
    condition.mime.assign(v[kSlotMime]);
    condition.component.assign(v[kSlotComp]);
    condition.limitWidth = intOf(v[kSlotLimitWidth], 0);
    condition.limitHeight = intOf(v[kSlotLimitHeight], 0);
    condition.bitrate = intOf(v[kSlotBitrate], 0);
    condition.sampleRate = intOf(v[kSlotSampleRate], 0);
    condition.sampleBits = intOf(v[kSlotSampleBits], 0);
    condition.channelCount = intOf(v[kSlotChannelCount], 0);
    condition.codecId = intOf(v[kSlotCodecId], 0);
    condition.isVideo = intOf(v[kSlotIsVideo], -1);
    condition.isEncoder = intOf(v[kSlotIsEncoder], -1);

    // "sched" stands in for whichever of the two is missing, but a rule that says it is for
    // video (or audio) only does not hand its value to the other kind.
    const int32_t sched = intOf(v[kSlotSched], -1);
    if (!schedOf(v[kSlotSchedVideo], condition.isVideo == 0 ? -1 : sched, &ux.schedVideo)) {
        return false;
    }
    if (!schedOf(v[kSlotSchedAudio], condition.isVideo == 1 ? -1 : sched, &ux.schedAudio)) {
        return false;
    }

    ux.needVendorBoost = intOf(v[kSlotVendorBoost], 0) != 0;
    ux.threadName.assign(v[kSlotThreadName]);
    ux.ddrFreq = intOf(v[kSlotDdrFreq], 0);
    ux.appThreads.assign(v[kSlotAppThreads]);
    parseStrByDelim(std::string(v[kSlotSwThreads]), kBoostListDelim, ux.swThreads);

    cluster.limitOpRate = intOf(v[kSlotLimitOpRate], 0);
    cluster.minUclamp = intOf(v[kSlotMinUclamp], 0);
    cluster.peltHalflife = intOf(v[kSlotPelt], 0);
    cluster.countFps = intOf(v[kSlotCountFps], 0) != 0;
    cluster.isPreferIdle = intOf(v[kSlotPreferIdle], 0) != 0;
    cluster.isScreenOff = intOf(v[kSlotScreenOff], 0) != 0;
    parseNumericString(std::string(v[kSlotUclampTids]), cluster.uclampIndex);

    for (int32_t n = 0; n <= kBoostMaxClusterKey; ++n) {
        const std::string_view value = v[kSlotCluster0Min + n];
        if (!value.empty()) cluster.clusterMinFreq[n] = intOf(value, 0);
    }

    // Up-rates then down-rates in one list: the position tells which is which.
    std::string rates(v[kSlotFreqUpRate]);
    rates.push_back(kBoostListDelim);
    rates.append(v[kSlotFreqDownRate]);
    parseNumericString(rates, cluster.freqRate);

    printMediaBoostInfo(info);
    return true;
}

void TavroWhiteListCacheMgr::parseKeyValueString(const std::string& str,
                                                 std::map<std::string, std::string>& out) {
    forEachItem(str, [&out](std::string_view key, std::string_view value) {
        out[std::string(key)] = std::string(value);
    });
}

void TavroWhiteListCacheMgr::parseStrByDelim(const std::string& str, char delim,
                                             std::vector<std::string>& out) {
    TAVRO_LOGV(kParseLogLevel, kLogParseStrByDelim, str.c_str(), delim);
    // An empty text keeps what the caller had; callers rely on that to keep defaults.
    if (str.empty()) return;
    out.clear();
    size_t start = 0;
    while (start <= str.size()) {
        size_t end = str.find(delim, start);
        if (end == std::string::npos) end = str.size();
        if (end > start) out.emplace_back(str, start, end - start);
        start = end + 1;
    }
}

void TavroWhiteListCacheMgr::parseNumericString(const std::string& str, std::vector<int32_t>& out) {
    out.clear();
    if (str.empty()) return;
    std::vector<std::string> pieces;
    parseStrByDelim(str, kBoostListDelim, pieces);
    out.reserve(pieces.size());
    for (const std::string& piece : pieces) out.push_back(tavroAtoi(piece));
}

void TavroWhiteListCacheMgr::parseBoostThread(const BoostInfoPtr& info,
                                              std::vector<int32_t>& tids) {
    if (info == nullptr) return;
    tids.clear();
    const std::string& threadName = info->uxInfo.threadName;
    if (threadName.empty()) return;
    std::vector<std::string> names;
    parseStrByDelim(threadName, kBoostListDelim, names);
    if (!names.empty()) getThreadIdByName(getpid(), names, tids);
}

void TavroWhiteListCacheMgr::printMediaBoostInfo(const BoostInfoPtr& info) {
    if (info == nullptr) return;
    // The dump is some forty lines, each gated on its own; skip it all when the level is low now.
    if (!tavroLogOn(kParseLogLevel, kTavroLogDefaultOff)) return;

    const MediaBoostInfo& i = *info;
    const long long cacheSeconds = static_cast<long long>(
            std::chrono::duration_cast<std::chrono::seconds>(i.cacheTime.time_since_epoch())
                    .count());
    TAVRO_LOGV(kParseLogLevel, "Debug: boostStrInfo: %s", i.boostStrInfo.c_str());
    TAVRO_LOGV(kParseLogLevel, "Debug: isValid: %d", i.isValid);
    TAVRO_LOGV(kParseLogLevel, "Debug: cacheTime: %lld", cacheSeconds);
    TAVRO_LOGV(kParseLogLevel, "Debug: platform, soc: %s", i.condition.soc.c_str());
    TAVRO_LOGV(kParseLogLevel, "Debug: platform: project: %s", i.condition.project.c_str());
    TAVRO_LOGV(kParseLogLevel, "Debug: platform: vendor: %s", i.condition.vendor.c_str());
    TAVRO_LOGV(kParseLogLevel, "Debug: mediaInfo: mime: %s", i.condition.mime.c_str());
    TAVRO_LOGV(kParseLogLevel, "Debug: mediaInfo: component: %s", i.condition.component.c_str());
    TAVRO_LOGV(kParseLogLevel, "Debug: mediaInfo: limitWidth: %d", i.condition.limitWidth);
    TAVRO_LOGV(kParseLogLevel, "Debug: mediaInfo: limitHeight: %d", i.condition.limitHeight);
    TAVRO_LOGV(kParseLogLevel, "Debug: mediaInfo: bitrate: %d", i.condition.bitrate);
    TAVRO_LOGV(kParseLogLevel, "Debug: mediaInfo: sampleRate: %d", i.condition.sampleRate);
    TAVRO_LOGV(kParseLogLevel, "Debug: mediaInfo: sampleBits: %d", i.condition.sampleBits);
    TAVRO_LOGV(kParseLogLevel, "Debug: mediaInfo: channelCount: %d", i.condition.channelCount);
    TAVRO_LOGV(kParseLogLevel, "Debug: mediaInfo: isVideo: %d", i.condition.isVideo);
    TAVRO_LOGV(kParseLogLevel, "Debug: mediaInfo: isEncoder: %d", i.condition.isEncoder);
    TAVRO_LOGV(kParseLogLevel, "Debug: uxInfo: schedVideo: %d", i.uxInfo.schedVideo);
    TAVRO_LOGV(kParseLogLevel, "Debug: uxInfo: schedAudio: %d", i.uxInfo.schedAudio);
    TAVRO_LOGV(kParseLogLevel, "Debug: uxInfo: needVendorBoost: %d", i.uxInfo.needVendorBoost);
    TAVRO_LOGV(kParseLogLevel, "Debug: uxInfo: threadName: %s", i.uxInfo.threadName.c_str());
    TAVRO_LOGV(kParseLogLevel, "Debug: uxInfo: ddrFreq: %d", i.uxInfo.ddrFreq);
    TAVRO_LOGV(kParseLogLevel, "Debug: uxInfo: appThreads: %s", i.uxInfo.appThreads.c_str());
    for (const std::string& name : i.uxInfo.swThreads) {
        TAVRO_LOGV(kParseLogLevel, "Debug: uxInfo: software thread name: %s", name.c_str());
    }
    const int pid = static_cast<int>(getpid());
    for (int32_t tid : i.uxInfo.tids) {
        TAVRO_LOGV(kParseLogLevel, "Debug: uxInfo: pid: %d, tid: %d", pid, tid);
    }
    TAVRO_LOGV(kParseLogLevel, "Debug: clusterInfo: limitOpRate : %d", i.clusterInfo.limitOpRate);
    TAVRO_LOGV(kParseLogLevel, "Debug: clusterInfo: minUclamp : %d", i.clusterInfo.minUclamp);
    TAVRO_LOGV(kParseLogLevel, "Debug: clusterInfo: peltHalflife : %d", i.clusterInfo.peltHalflife);
    TAVRO_LOGV(kParseLogLevel, "Debug: clusterInfo: isPreferIdle : %d", i.clusterInfo.isPreferIdle);
    TAVRO_LOGV(kParseLogLevel, "Debug: clusterInfo: isScreenOff : %d", i.clusterInfo.isScreenOff);
    for (const auto& [cpu, minFreq] : i.clusterInfo.clusterMinFreq) {
        TAVRO_LOGV(kParseLogLevel, "Debug: clusterInfo: cpuNum: %d, minFreq: %d", cpu, minFreq);
    }
    for (int32_t index : i.clusterInfo.uclampIndex) {
        TAVRO_LOGV(kParseLogLevel, "Debug: clusterInfo: uclamp index: %d", index);
    }
    for (int32_t rate : i.clusterInfo.freqRate) {
        TAVRO_LOGV(kParseLogLevel, "Debug: clusterInfo: freq up/down rate value: %d", rate);
    }
}

}  // namespace android
