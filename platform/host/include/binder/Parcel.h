// Parcel: the binder data container, encoded byte for byte as a device encodes it: little-endian
// values, every item padded to 4 bytes; int32, uint32 and bool (0/1) take 4 bytes, int64 8;
// strings travel as UTF-16 ("String16": int32 length in code units, the units, a 16-bit NUL,
// padding). Reads never go past dataSize() and report NOT_ENOUGH_DATA when data runs out.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <sys/types.h>

#include <string>
#include <vector>

#include <utils/Errors.h>

namespace android {

class Parcelable;

class Parcel {
  public:
    Parcel() = default;
    Parcel(const Parcel&) = delete;
    Parcel& operator=(const Parcel&) = delete;

    const uint8_t* data() const { return mData.data(); }
    size_t dataSize() const { return mData.size(); }
    // Bytes left to read from the position.
    size_t dataAvail() const { return mDataPos < mData.size() ? mData.size() - mDataPos : 0; }
    size_t dataPosition() const { return mDataPos; }
    size_t dataCapacity() const { return mData.capacity(); }

    // Moves the read/write position; past dataSize() reads fail and a write pads with zeros.
    void setDataPosition(size_t pos) const { mDataPos = pos; }
    // Replaces the contents with a copy of `buffer`; position 0. BAD_VALUE for null with len > 0.
    status_t setData(const uint8_t* buffer, size_t len);
    // Empties the parcel; position 0.
    void freeData();

    // Writes at the position (overwriting or growing), then moves past the padded item. Each call
    // counts as one write for setWriteFailAfterForTesting; a failed call writes nothing.
    status_t writeInt32(int32_t value);
    status_t writeUint32(uint32_t value);
    status_t writeInt64(int64_t value);
    status_t writeUint64(uint64_t value);
    status_t writeFloat(float value);
    status_t writeDouble(double value);
    status_t writeBool(bool value);
    // int32 count, then each value.
    status_t writeInt32Vector(const std::vector<int32_t>& values);
    // `len` UTF-16 code units as a String16.
    status_t writeString16(const char16_t* str, size_t len);
    // UTF-8 text as a String16; BAD_VALUE (nothing written) for invalid UTF-8.
    status_t writeUtf8AsUtf16(const std::string& str);
    // int32 count, then each string as writeUtf8AsUtf16 does.
    status_t writeUtf8VectorAsUtf16Vector(const std::vector<std::string>& values);

    // Reads at the position and moves past the padded item. NOT_ENOUGH_DATA when the data runs
    // out; then the position and the output are left unchanged.
    status_t readInt32(int32_t* value) const;
    int32_t readInt32() const;  // 0 when no data
    status_t readUint32(uint32_t* value) const;
    uint32_t readUint32() const;
    status_t readInt64(int64_t* value) const;
    int64_t readInt64() const;
    status_t readUint64(uint64_t* value) const;
    status_t readFloat(float* value) const;
    status_t readDouble(double* value) const;
    // Any non-zero int32 is true.
    status_t readBool(bool* value) const;
    bool readBool() const;
    // BAD_VALUE for a negative count or one the remaining data cannot hold.
    status_t readInt32Vector(std::vector<int32_t>* values) const;
    // A String16 converted to UTF-8. BAD_VALUE for a negative length, a missing terminator or
    // unpaired surrogates; NOT_ENOUGH_DATA when the data runs out.
    status_t readString16(std::u16string* value) const;
    status_t readUtf8FromUtf16(std::string* value) const;
    // BAD_VALUE for a negative count or one the remaining data cannot hold; the first failing
    // string's status otherwise.
    status_t readUtf8VectorFromUtf16Vector(std::vector<std::string>* values) const;

    // Host only: the `n`-th write call from now (1 = the next one; 0 counts as 1) returns
    // NO_MEMORY and writes nothing; later writes succeed again. -1 turns the fault off.
    void setWriteFailAfterForTesting(int n);

  private:
    // Counts one write call; false when it is the one to fail.
    bool consumeWrite();
    // Appends/overwrites `len` bytes at the position, zero-padded to 4.
    void writeRaw(const void* data, size_t len);
    // Copies `len` bytes at the position and moves past the padded item; false (nothing moved)
    // when the padded item does not fit.
    bool readRaw(void* out, size_t len) const;
    static bool utf8ToUtf16(const std::string& in, std::u16string* out);
    static bool utf16ToUtf8(const std::u16string& in, std::string* out);

    std::vector<uint8_t> mData;
    mutable size_t mDataPos = 0;
    int mWriteFailCountdown = -1;  // writes left until the failing one; -1 off
};

}  // namespace android
