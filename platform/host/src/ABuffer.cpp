// ABuffer: owned or wrapped bytes with a valid range.
#define LOG_TAG "ABuffer"

#include <media/stagefright/foundation/ABuffer.h>

#include <cstdlib>
#include <cstring>

#include <media/stagefright/foundation/ADebug.h>
#include <media/stagefright/foundation/AMessage.h>

namespace android {

ABuffer::ABuffer(size_t capacity)
    : mData(static_cast<uint8_t*>(calloc(capacity > 0 ? capacity : 1, 1))),
      mCapacity(capacity),
      mRangeOffset(0),
      mRangeLength(capacity),
      mInt32Data(0),
      mOwnsData(true) {
    LOG_ALWAYS_FATAL_IF(mData == nullptr, "ABuffer: cannot allocate %zu bytes", capacity);
}

ABuffer::ABuffer(void* data, size_t capacity)
    : mData(static_cast<uint8_t*>(data)),
      mCapacity(capacity),
      mRangeOffset(0),
      mRangeLength(capacity),
      mInt32Data(0),
      mOwnsData(false) {}

ABuffer::~ABuffer() {
    if (mOwnsData) free(mData);
}

sp<ABuffer> ABuffer::CreateAsCopy(const void* data, size_t capacity) {
    sp<ABuffer> buffer = new ABuffer(capacity);
    if (capacity > 0 && data != nullptr) memcpy(buffer->data(), data, capacity);
    return buffer;
}

void ABuffer::setRange(size_t offset, size_t size) {
    CHECK_LE(offset, mCapacity);
    CHECK_LE(size, mCapacity - offset);
    mRangeOffset = offset;
    mRangeLength = size;
}

sp<AMessage> ABuffer::meta() {
    if (mMeta == nullptr) mMeta = new AMessage;
    return mMeta;
}

}  // namespace android
