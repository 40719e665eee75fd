// The cluster half of a boost decision as the boost service takes it: a flat list of (opcode,
// value) pairs of CPU-performance resources, applied as one performance lock. The opcodes are the
// chip vendors' own. The codec's boost client encodes its decision here; any thread.
#pragma once

#include <stdint.h>

#include <vector>

#include "whitelist/TavroBoostInfo.h"

namespace android {

// Qualcomm perf-lock opcodes.
constexpr int32_t kQcomOpPreferIdle = 0x40C04000;
// Minimum frequency of clusters 0..3: base | (cluster * 16); of clusters 4..7:
// base + (cluster - 4) * 16. Values are MHz.
constexpr int32_t kQcomOpClusterMinFreqLow = 0x40800100;
constexpr int32_t kQcomOpClusterMinFreqHigh = 0x40800000;
constexpr int32_t kQcomClusterStride = 16;

// MediaTek opcodes.
constexpr int32_t kMtkOpPreferIdle = 0x01404300;
constexpr int32_t kMtkOpPreferIdle2 = 0x01404100;
constexpr int32_t kMtkOpPeltHalflife = 0x01430100;
constexpr int32_t kMtkOpScreenOff = 0x03400000;
// Frequency rate i: base + (i << 8).
constexpr int32_t kMtkOpFreqRateBase = 0x01438300;
// Cluster minimum frequency: (cluster << 8) + base. Values are kHz.
constexpr int32_t kMtkOpClusterMinFreqBase = 0x00400000;

// Clusters above this number have no Qualcomm opcode.
constexpr int32_t kMaxClusterNumber = 7;

// ---- Log texts (tag "TavroWhiteListCache", level 7) ---------------------------------------------
constexpr char kLogEnablePreferIdle[] = "Enable preferIdle";
constexpr char kLogClusterMinFreq[] = "Cluster num: %d, cpu min freq: %d";
constexpr char kLogPeltHalflife[] = "Set pelt hallife: %d";
constexpr char kLogScreenOff[] = "Enable screen off state";

// Empties `out` and appends the Qualcomm encoding, whatever the platform: the MediaTek encoding
// is kept, but nothing selects it.
void parseClusterInfo(const TavroClusterInfo& info, std::vector<int32_t>& out);
// Append (opcode, value) pairs; neither clears `out`. Qualcomm: prefer-idle, then the minimum
// frequency of clusters 0 to 7 in MHz. MediaTek: prefer-idle, pelt half-life, screen-off, the
// non-negative frequency rates by position, then every cluster's minimum frequency in kHz.
void parseQcomClusterInfo(const TavroClusterInfo& info, std::vector<int32_t>& out);
void parseMtkClusterInfo(const TavroClusterInfo& info, std::vector<int32_t>& out);

}  // namespace android
