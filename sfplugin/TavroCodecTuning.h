// Encoder and decoder tuning: the vocabulary of the configuration steps that tune a video
// component for listed apps and chips (configEncoderPriority, configDecoderPriority,
// setUsageFlag, configEncoderScene, configEncoderFilter; declared and ordered in
// TavroConfigureSteps.h, TavroCodecTuning.cpp). Each writes keys into the format message only.
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
