// ABuffer: a byte buffer with a valid range (offset, size) inside its capacity. Either owns its
// memory or wraps memory the caller keeps alive.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <utils/RefBase.h>

namespace android {

class AMessage;

class ABuffer : public RefBase {
  public:
    // Owns `capacity` zeroed bytes; the range is the whole buffer.
    explicit ABuffer(size_t capacity);
    // Wraps `data` without copying; the caller keeps it alive for the buffer's lifetime. The range
    // is the whole buffer.
    ABuffer(void* data, size_t capacity);

    // An owning buffer holding a copy of `data`.
    static sp<ABuffer> CreateAsCopy(const void* data, size_t capacity);

    uint8_t* base() { return mData; }
    uint8_t* data() { return mData + mRangeOffset; }
    size_t capacity() const { return mCapacity; }
    size_t size() const { return mRangeLength; }
    size_t offset() const { return mRangeOffset; }

    // Sets the valid range. A range outside the capacity is a caller bug and aborts, as on the
    // platform (CHECK).
    void setRange(size_t offset, size_t size);

    // A value carried with the buffer (a time stamp, usually).
    void setInt32Data(int32_t data) { mInt32Data = data; }
    int32_t int32Data() const { return mInt32Data; }

    // Per-buffer metadata, created on first use.
    sp<AMessage> meta();

  protected:
    ~ABuffer() override;

  private:
    sp<AMessage> mMeta;
    uint8_t* mData;
    size_t mCapacity;
    size_t mRangeOffset;
    size_t mRangeLength;
    int32_t mInt32Data;
    bool mOwnsData;
};

}  // namespace android
