#define LOG_NDEBUG 0
#define LOG_TAG "TavroWhiteListCache"
#include "whitelist/TavroClusterParams.h"

#include <log/log.h>

#include "common/TavroLog.h"

namespace android {
namespace {

constexpr int32_t kClusterLogLevel = kTavroLogDetail;

// Opcode arithmetic is done on the 32-bit pattern: cluster numbers come from a public record and
// may be anything, and the result must wrap the way the service reads it rather than overflow.
int32_t wrap(uint32_t bits) {
    return static_cast<int32_t>(bits);
}

void appendPair(std::vector<int32_t>& out, int32_t opcode, int32_t value) {
    out.push_back(opcode);
    out.push_back(value);
}

}  // namespace

void parseClusterInfo(const TavroClusterInfo& info, std::vector<int32_t>& out) {
    out.clear();
    // Every platform gets the Qualcomm encoding; the MediaTek one is kept but not selected.
    parseQcomClusterInfo(info, out);
}

void parseQcomClusterInfo(const TavroClusterInfo& info, std::vector<int32_t>& out) {
    if (info.isPreferIdle) {
        appendPair(out, kQcomOpPreferIdle, 1);
        TAVRO_LOGV(kClusterLogLevel, "%s", kLogEnablePreferIdle);
    }
    for (const auto& [cluster, minFreq] : info.clusterMinFreq) {
        TAVRO_LOGV(kClusterLogLevel, kLogClusterMinFreq, cluster, minFreq);
        int32_t opcode;
        if (cluster <= 3) {
            opcode = wrap(static_cast<uint32_t>(kQcomOpClusterMinFreqLow) |
                          (static_cast<uint32_t>(cluster) * kQcomClusterStride));
        } else if (cluster <= kMaxClusterNumber) {
            opcode = kQcomOpClusterMinFreqHigh + (cluster - 4) * kQcomClusterStride;
        } else {
            continue;
        }
        // The service takes MHz; the rule holds kHz.
        appendPair(out, opcode, minFreq / 1000);
    }
}

void parseMtkClusterInfo(const TavroClusterInfo& info, std::vector<int32_t>& out) {
    if (info.isPreferIdle) {
        appendPair(out, kMtkOpPreferIdle, 1);
        appendPair(out, kMtkOpPreferIdle2, 1);
        TAVRO_LOGV(kClusterLogLevel, "%s", kLogEnablePreferIdle);
    }
    if (info.peltHalflife != 0) {
        appendPair(out, kMtkOpPeltHalflife, info.peltHalflife);
        TAVRO_LOGV(kClusterLogLevel, kLogPeltHalflife, info.peltHalflife);
    }
    if (info.isScreenOff) {
        appendPair(out, kMtkOpScreenOff, 1);
        TAVRO_LOGV(kClusterLogLevel, "%s", kLogScreenOff);
    }
    // A negative rate is skipped but keeps its index: the position says which rate it is.
    for (size_t i = 0; i < info.freqRate.size(); ++i) {
        if (info.freqRate[i] < 0) continue;
        appendPair(
                out,
                wrap(static_cast<uint32_t>(kMtkOpFreqRateBase) + (static_cast<uint32_t>(i) << 8)),
                info.freqRate[i]);
    }
    for (const auto& [cluster, minFreq] : info.clusterMinFreq) {
        TAVRO_LOGV(kClusterLogLevel, kLogClusterMinFreq, cluster, minFreq);
        appendPair(out,
                   wrap((static_cast<uint32_t>(cluster) << 8) +
                        static_cast<uint32_t>(kMtkOpClusterMinFreqBase)),
                   minFreq);
    }
}

}  // namespace android
