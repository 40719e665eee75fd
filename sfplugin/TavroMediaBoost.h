// Media boost client of TavroCCodec: describes the media at configure, asks the white list which
// boost applies, builds the request, and sends or releases it through the video boost service as
// the codec starts, as its operating rate moves and as the app names extra threads. The
// operations are TavroCCodec members (TavroMediaBoost.cpp); this header holds their constants.
//
// Locking: mBoostLock guards the boost state (TavroBoostState: service, request, phase, sent
// parts, thread ids) and the publication of the cluster record. The calls to the boost service
// that change what is sent (execution, app key threads, bApp) are made with it held, so requests
// go out one at a time per codec; everything else copies under it and calls out after. The start
// path and bApp hold the base's state lock first; nothing takes the two in the other order.
#pragma once

#include <stdint.h>

namespace android {

// Format keys describing the media (width, height and bitrate are in TavroCCodecConfigure.h).
constexpr char kKeySampleRate[] = "sample-rate";
constexpr char kKeyBitsPerSample[] = "bits-per-sample";
constexpr char kKeyChannelCount[] = "channel-count";
constexpr char kKeyCodecId[] = "codec-id";

// A component whose name contains this is a secure (DRM) decoder: it also gets the DDR boost.
constexpr char kSecureComponentMark[] = "secure";

// Separators: app thread names in "appThreads", thread ids in "tavro-boost-info".
constexpr char kAppThreadSeparator = '+';
constexpr char kBoostInfoTidSeparator = ',';

}  // namespace android
