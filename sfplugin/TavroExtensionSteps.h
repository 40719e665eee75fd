// Extension steps of the configure pipeline: the vendor extension parameter steps, the input-delay
// steps and the tone-mapping filter step (declared and ordered in TavroConfigureSteps.h,
// TavroExtensionSteps.cpp). None can fail the configure.
//
//   setExtParam            sets the codec's restore rate: a video decoder whose app (mCallingUid)
//                          has a start-up operating rate in "decoder-startup-operating-rate" above
//                          its own rate starts at that rate (float "operating-rate") and has its
//                          own rate ("operating-rate", else "frame-rate") written back once output
//                          is rendered (rOpt). Otherwise the restore rate is 0 (no restore).
//   setQtiExtParam, configureInputDelay, configureSWInputDelay
//                          deliberately empty: they are the places where a device build with the
//                          chip vendor's extension parameters (Qualcomm vendor keys, the
//                          component's and software decoders' input delay) sets them. This device
//                          sets none, so each returns OK and changes nothing; the rows stay so that
//                          the order of the pipeline is the same on every device.
//   getFilterEnableValue   the tone-mapping filter is on: a video decoder on a device whose
//                          "ro.tavro.tonemap.filter" is 1.
//   configureTonemapFilter runs checkHandleByActivity when the filter is on; returns OK.
#pragma once

#include <stdint.h>

namespace android {

// Start-up operating rate per app (decimal frames per second, by mCallingUid). Listed apps start
// decoding faster than they play, so the first frames come out sooner.
constexpr char kListStartupOperatingRate[] = "decoder-startup-operating-rate";

}  // namespace android
