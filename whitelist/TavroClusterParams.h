// CPU-performance resource opcodes that the cluster half of a boost decision is encoded into
// (TavroWhiteListCacheMgr::parseClusterInfo and friends). The boost service applies the
// (opcode, value) list as one performance lock; the values are the chip vendors' own.
#pragma once

#include <stdint.h>

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

}  // namespace android
