// A buffer handed between MediaCodec and the codec: bytes with a range, plus a meta message
// ("timeUs", flags) and the current format.
#pragma once

#include <media/stagefright/foundation/ABuffer.h>
#include <media/stagefright/foundation/AMessage.h>
#include <utils/Errors.h>
#include <utils/RefBase.h>

namespace android {

class MediaCodecBuffer : public RefBase {
  public:
    MediaCodecBuffer(const sp<AMessage>& format, const sp<ABuffer>& buffer);

    uint8_t* base();
    uint8_t* data();
    size_t capacity() const;
    size_t size() const;
    size_t offset() const;
    status_t setRange(size_t offset, size_t size);  // BAD_VALUE when outside the capacity

    sp<AMessage> meta();
    sp<AMessage> format();
    void setFormat(const sp<AMessage>& format);

  private:
    sp<AMessage> mMeta;
    sp<AMessage> mFormat;
    sp<ABuffer> mBuffer;
};

}  // namespace android
