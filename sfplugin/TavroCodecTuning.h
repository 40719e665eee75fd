// Encoder and decoder tuning: configuration steps of TavroCCodec that tune a video component for
// listed apps and chips. TavroCCodec members, called by the configure pipeline; each writes keys
// into the format message only.
//
//   configEncoderPriority  "key-priority-encoder" -> int32 "priority" 0 or 1 on a matching SoC.
//   configDecoderPriority  binder uid on "key-priority" on four small Qualcomm chips -> "priority"
//                          1 (best effort), unless the app asked for a non-zero priority.
//   setUsageFlag           consumes "tavro-encode-usage-flag" (int64 0) and, on a listed device
//                          family, sets it to bit 51.
//   configEncoderScene     "encoder-scene" of the top activity -> int64
//                          "vendor.tavro.enc.scene.value"; warns without the gate on failure.
//   configEncoderFilter    "encoder-pre-process" of the top activity -> the post-processing
//                          engine's pre-processing value, the ROI macroblock side, bitrate x 1.15.
//                          The width x height product must fit 32 bits (fatal otherwise).
#pragma once

#include <stddef.h>
#include <stdint.h>

namespace android {

// ---- Format keys ------------------------------------------------------------------------------
constexpr char kKeyEncodeUsageFlag[] = "tavro-encode-usage-flag";     // int64 (or int32 in)
constexpr char kKeyEncSceneValue[] = "vendor.tavro.enc.scene.value";  // int64
constexpr char kKeyRoiMbSideLength[] = "vendor.qti-ext-enc-roi-mbmap-info.mb_side_length";

// ---- Lists and their pairs --------------------------------------------------------------------
constexpr char kListKeyPriorityEncoder[] = "key-priority-encoder";  // pairs, by mCallingUid
constexpr char kListKeyPriority[] = "key-priority";                 // membership, by binder uid
constexpr char kListEncodeUsageFlag[] = "encode-usage-flag";        // pairs, by mCallingUid
constexpr char kListEncoderScene[] = "encoder-scene";               // pairs, by top activity
constexpr char kListEncoderPreProcess[] = "encoder-pre-process";    // pairs, by top activity
constexpr char kPairPriority[] = "priority";
constexpr char kPairScene[] = "scene";
constexpr char kPairType[] = "type";
constexpr char kPairAvcLimitBitrate[] = "avcLimitBitrate";
constexpr char kPairHevcLimitBitrate[] = "hevcLimitBitrate";
constexpr char kPairLimitWidth[] = "limitWidth";
constexpr char kPairLimitHeight[] = "limitHeight";

// "priority" when the pair is absent (a value that is never written).
constexpr char kDefaultEncoderPriority[] = "2";
// Chips compared over this many leading characters for the encoder priority.
constexpr size_t kPriorityChipPrefix = 6;
// Chips whose decoders run best effort for apps on "key-priority".
constexpr const char* kBestEffortDecoderChips[] = {"SM6375", "SM7325", "SM6225", "SM6115"};

// The usage bit that asks the encoder for the listed family's usage mode (bit 51 alone).
constexpr int64_t kEncodeUsageFlagBit = 0x8000000000000LL;

// Pre-processing of the post-processing engine per codec, with the ROI macroblock side.
constexpr char kMimeHevcPrefix[] = "video/hevc";
constexpr char kTypeAvc[] = "avc";
constexpr char kTypeHevc[] = "hevc";
constexpr int64_t kPreProcessAvc = 0x101;
constexpr int64_t kPreProcessHevc = 0x201;
constexpr int32_t kMbSideAvc = 16;
constexpr int32_t kMbSideHevc = 32;
// Pre-processing costs bits: the target bitrate is raised by this factor (single precision).
constexpr float kPreProcessBitrateFactor = 1.15f;

}  // namespace android
