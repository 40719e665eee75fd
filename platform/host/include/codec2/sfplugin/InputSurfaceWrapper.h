// Wrapper of an input surface feeding an encoder. The device build adds an empty-buffer
// callback that the surface calls for every buffer it fills.
#pragma once

#include <stdint.h>

#include <memory>

namespace android {

// Device build: told about each buffer the input surface fills (timestamp in µs).
class TavroCodecCallback {
  public:
    virtual ~TavroCodecCallback() = default;
    virtual void onEmptyBuffer(int64_t timestamp) = 0;
};

class InputSurfaceWrapper {
  public:
    virtual ~InputSurfaceWrapper() = default;

    // Device build member: the callback installed by the codec front-end (may be null).
    std::shared_ptr<TavroCodecCallback> mEmptyBufferCallback;

    // Host: the surface filled one buffer; calls the callback when installed.
    void emptyBufferForTesting(int64_t timestamp) {
        if (mEmptyBufferCallback) mEmptyBufferCallback->onEmptyBuffer(timestamp);
    }
};

}  // namespace android
