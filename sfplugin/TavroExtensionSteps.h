// Extension steps of the configure pipeline: the vendor extension parameter steps, the input-delay
// steps and the tone-mapping filter step. TavroCCodec members; none can fail the configure.
//
//   setExtParam            sets mRestoreOperatingRate: a video decoder whose app (mCallingUid) has
//                          a start-up operating rate in "decoder-startup-operating-rate" above its
//                          own rate starts at that rate (float "operating-rate") and has its own
//                          rate ("operating-rate", else "frame-rate") written back once output is
//                          rendered (rOpt). Otherwise mRestoreOperatingRate is 0 (no restore).
//   setQtiExtParam         extension point for Qualcomm vendor parameters: returns OK, no change.
//   configureInputDelay    extension point for the component's input delay: returns OK, no change.
//   configureSWInputDelay  extension point for software decoders' input delay: OK, no change.
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
