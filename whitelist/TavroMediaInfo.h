// TavroMediaInfo: what a running codec is coding. The codec's boost client fills it at configure
// and the white-list cache matches boost entries against it.
#pragma once

#include <stdint.h>

#include <string>

namespace android {

// A plain value record. Every field not known from the format stays 0 (or empty); `isVideo` and
// `isEncoder` start at -1 (unknown) and are always set when the codec has a format.
struct TavroMediaInfo {
    std::string mime;       // the codec's mime type
    std::string component;  // the Codec2 component name
    int32_t width = 0;      // video only
    int32_t height = 0;     // video only
    int32_t bitrate = 0;
    int32_t sampleRate = 0;    // audio only
    int32_t sampleBits = 0;    // audio only
    int32_t channelCount = 0;  // audio only
    int32_t codecId = 0;
    int32_t isVideo = -1;    // used as a bool: 1 video, 0 audio
    int32_t isEncoder = -1;  // used as a bool: 1 encoder, 0 decoder
};

}  // namespace android
