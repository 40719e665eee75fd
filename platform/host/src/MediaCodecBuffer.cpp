// Host MediaCodecBuffer: an ABuffer's bytes and range, a meta message and the current format.
#include <media/MediaCodecBuffer.h>

namespace android {

MediaCodecBuffer::MediaCodecBuffer(const sp<AMessage>& format, const sp<ABuffer>& buffer)
    : mMeta(new AMessage()),
      mFormat(format),
      // A missing buffer reads as an empty one, so size() and data() stay safe to call.
      mBuffer(buffer != nullptr ? buffer : sp<ABuffer>(new ABuffer(static_cast<size_t>(0)))) {}

uint8_t* MediaCodecBuffer::base() {
    return mBuffer->base();
}

uint8_t* MediaCodecBuffer::data() {
    return mBuffer->data();
}

size_t MediaCodecBuffer::capacity() const {
    return mBuffer->capacity();
}

size_t MediaCodecBuffer::size() const {
    return mBuffer->size();
}

size_t MediaCodecBuffer::offset() const {
    return mBuffer->offset();
}

status_t MediaCodecBuffer::setRange(size_t offset, size_t size) {
    const size_t capacity = mBuffer->capacity();
    if (offset > capacity || size > capacity - offset) return BAD_VALUE;
    mBuffer->setRange(offset, size);
    return OK;
}

sp<AMessage> MediaCodecBuffer::meta() {
    return mMeta;
}

sp<AMessage> MediaCodecBuffer::format() {
    return mFormat;
}

void MediaCodecBuffer::setFormat(const sp<AMessage>& format) {
    mFormat = format;
}

}  // namespace android
