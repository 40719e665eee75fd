// The vocabulary of TavroCCodec's configure pipeline: the format keys every part of the codec
// shares (each defined here once), and the keys, list names and properties of the pipeline's own
// rules (TavroConfigureRules.cpp). The steps and their order are in TavroConfigureSteps.h.
#pragma once

#include <stdint.h>

namespace android {

// ---- Format keys read by the pipeline and shared by the steps --------------------------------
constexpr char kKeyMime[] = "mime";
constexpr char kKeyEncoder[] = "encoder";
constexpr char kKeyCallingPid[] = "calling-pid";                                 // int64
constexpr char kKeyCallingUid[] = "calling-uid";                                 // int64
constexpr char kKeyPkgName[] = "pkg-name";                                       // string
constexpr char kKeyBitrate[] = "bitrate";                                        // int32
constexpr char kKeyBitrateMode[] = "bitrate-mode";                               // int32
constexpr char kKeyQuality[] = "quality";                                        // int32
constexpr char kKeyWidth[] = "width";                                            // int32
constexpr char kKeyHeight[] = "height";                                          // int32
constexpr char kKeyFrameRate[] = "frame-rate";                                   // float or int32
constexpr char kKeyPriority[] = "priority";                                      // int32
constexpr char kKeyDisableWcg[] = "disable-wcg";                                 // int32
constexpr char kKeyMtkThumbnailMode[] = "vendor.mtk.vdec.thumbnail.mode.value";  // int32
constexpr char kKeyThumbnailMode[] = "thumbnail-mode";                           // int32
constexpr char kKeyNativeWindow[] = "native-window";                             // object
constexpr char kKeyFeedbackKey[] = "feedbackKey";                                // int64
constexpr char kKeyTpUxTid[] = "tp-ux-tid";                                      // int32
// The post-processing engine's mode: written by the encoder pre-processing step and by the
// decoder's post-processing selection.
constexpr char kKeyVppWhiteListValue[] = "vendor.tavro.vpp.white.list.value";  // int64

// ---- Format keys written by the pipeline's own rules ----------------------------------------
constexpr char kKeyOutputDelay[] = "tavro.output_delay";                              // int32
constexpr char kKeyDolbyBlackList[] = "vendor.tavro.dolby.black.list.value";          // int64
constexpr char kKeyDolbyOutputYuv[] = "vendor.tavro.dolby.output.yuv.value";          // int64
constexpr char kKeyInitQpIEnable[] = "vendor.qti-ext-enc-initial-qp.qp-i-enable";     // int32
constexpr char kKeyInitQpI[] = "vendor.qti-ext-enc-initial-qp.qp-i";                  // int32
constexpr char kKeyInitQpPEnable[] = "vendor.qti-ext-enc-initial-qp.qp-p-enable";     // int32
constexpr char kKeyInitQpP[] = "vendor.qti-ext-enc-initial-qp.qp-p";                  // int32
constexpr char kKeyInitQpBEnable[] = "vendor.qti-ext-enc-initial-qp.qp-b-enable";     // int32
constexpr char kKeyInitQpB[] = "vendor.qti-ext-enc-initial-qp.qp-b";                  // int32
constexpr char kKeyByteBufferMode[] = "vendor.ext-dec-bytebuffer-mode.value";         // int32
constexpr char kKeyMtkForceCc[] = "vendor.mtk.ext.vdec.force.cc.value";               // int32
constexpr char kKeyMtkForceOutputCc[] = "vendor.mtk.ext.vdec.force.output.cc.value";  // int32
constexpr char kKeyBatchModeNum[] = "tavro.batchmode.num";                            // int32

// Initial QP the Qualcomm encoder starts every frame type with for listed apps.
constexpr int32_t kInitialQp = 10;

// ---- Lists of the list service ----------------------------------------------------------------
constexpr char kListEncoderBitrateMode[] = "encoder-bitrate-mode";
constexpr char kListCodec2OutputDelay[] = "codec2-output-delay";
constexpr char kListDolbyDownscaleBlackList[] = "dolbyvision-downscale-black-list";
constexpr char kListDolbyOutputYuv[] = "dolbyvision-output-yuv-list";
constexpr char kListQcomEncodeOptimization[] = "qcom-encode-optimization";
constexpr char kListMtkColorConvert[] = "mtkomx-color-convert";
constexpr char kListCodecBatchMode[] = "codec-batch-mode";

// Pair of the key/value list values naming the chips or device families a value is meant for.
constexpr char kPairCpu[] = "cpu";

// ---- Properties -------------------------------------------------------------------------------
constexpr char kPropSocModel[] = "ro.soc.model";
constexpr char kPropBatchModeSlots[] = "debug.stagefright.TSC";
constexpr int32_t kBatchModeSlotsDefault = 25;
constexpr char kUnknownValue[] = "unknown";  // default of the platform identity properties

// ---- Names matched by the pipeline ------------------------------------------------------------
constexpr char kMimeVideoPrefix[] = "video/";
constexpr char kDolbyVisionTag[] = "dolby-vision";
constexpr char kMimeDolbyVision[] = "video/dolby-vision";
constexpr char kMimeAvcPrefix[] = "video/avc";
constexpr char kMtkComponentPrefix[] = "c2.mtk.";
constexpr char kAacEncoderTag[] = "android.aac.encoder";

// ---- Log texts --------------------------------------------------------------------------------
// The position part names the rule and takes its source line, so a device log leads to the code.
constexpr char kLogConfigureFeedbackId[] =
        "[configureFeedback:L%d] TavroFeedbackInfo  mFeedbackID:%lld";
constexpr char kLogConfigureEncoderNotUploaded[] =
        "[configureFeedback:L%d] IsNotUploadEncoderInfo ";
constexpr char kLogConfigureBatchMode[] =
        "[configureBatchMode:L%d] component:%s, set BMSlotCount:%d";
// A step's outcome at the most detailed level: name, status, and why nothing changed ("" when
// something did).
constexpr char kLogConfigureStep[] = "configure step %s: %d %s";

}  // namespace android
