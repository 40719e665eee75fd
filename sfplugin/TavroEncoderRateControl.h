// Encoder rate control: the vocabulary of the configuration steps that adjust a video encoder's
// GOP, bitrate, B-frames, content-adaptive coding and QP range from per-app lists
// (setGopAndBitrate, setBFrame, configEncoderBitrateSavings, configEncoderQpRange; declared and
// ordered in TavroConfigureSteps.h, TavroEncoderRateControl.cpp). Each writes its result into the
// format message only, and does nothing for anything but a video encoder.
#pragma once

#include <stdint.h>

namespace android {

// ---- Format keys ------------------------------------------------------------------------------
constexpr char kKeyMinQpValue[] = "min-qp-value";                 // int32, presence only
constexpr char kKeyMaxQpValue[] = "max-qp-value";                 // int32, presence only
constexpr char kKeyIFrameInterval[] = "i-frame-interval";         // float, seconds
constexpr char kKeyTsSchema[] = "ts-schema";                      // string
constexpr char kKeyPreferBFrames[] = "android._prefer-b-frames";  // int32
constexpr char kKeyCvpFilterDisable[] = "vendor.qti-ext-cvp-filter-explicit-disable.value";
constexpr char kKeyMaxBFrames[] = "max-bframes";  // int32
constexpr char kKeyContentAdaptiveMode[] = "vendor.qti-ext-enc-content-adaptive-mode.value";
constexpr char kKeyQpIMin[] = "video-qp-i-min";
constexpr char kKeyQpPMin[] = "video-qp-p-min";
constexpr char kKeyQpBMin[] = "video-qp-b-min";
constexpr char kKeyQpIMax[] = "video-qp-i-max";
constexpr char kKeyQpPMax[] = "video-qp-p-max";
constexpr char kKeyQpBMax[] = "video-qp-b-max";

// Temporal-layer schemas chosen by the number of B-frames.
constexpr char kTsSchemaOneB[] = "android.generic.1+1";    // 1 or 2 B-frames
constexpr char kTsSchemaTwoB[] = "android.generic.1+2";    // 3 to 6
constexpr char kTsSchemaThreeB[] = "android.generic.1+3";  // 7 or more

// ---- Lists and their pairs --------------------------------------------------------------------
constexpr char kListQcomEncodeGop[] = "qcom-encode-gop";  // decimal frames, by binder uid
constexpr char kListQcomQpRange[] = "qcom-qprange";       // decimal factor, by binder uid
constexpr char kListEncoderBFrame[] = "encoder-b-frame";  // pairs, by top activity
constexpr char kListQcomEnableCac[] = "qcom-enable-cac";  // pairs, by mCallingUid
constexpr char kListEncodeQpRange[] = "encode-qp-range";  // pairs, by mCallingUid
constexpr char kPairMaxBFrames[] = "maxBframes";
constexpr char kPairBitrateFactor[] = "bitrateFactor";
constexpr char kPairLimitBitrate[] = "limitBitrate";
constexpr char kPairValue[] = "value";
constexpr char kPairMin[] = "min";
constexpr char kPairMax[] = "max";

// ---- Properties -------------------------------------------------------------------------------
constexpr char kPropBitrateIndex[] = "wechat.bitrate.index";

// Bitrates above this are never scaled by the qp-range factor (bits per second).
constexpr int32_t kQpRangeMaxBitrate = 1400000;
// Frame rates at or below this cannot turn a GOP into seconds.
constexpr double kMinFrameRate = 1e-6;
// QP bounds when the list leaves one out.
constexpr int32_t kDefaultMinQp = 14;
constexpr int32_t kDefaultMaxQp = 51;
// "value" absent from "qcom-enable-cac".
constexpr int32_t kNoContentAdaptiveMode = -1;

constexpr char kLogQpRange[] = "[configEncoderQpRange:L1142] set video encoder qp %d~%d";

}  // namespace android
