// Binder parcel encoding: little-endian items padded to 4 bytes, strings as UTF-16.
#define LOG_TAG "Parcel"

#include <binder/Parcel.h>

#include <cstring>
#include <limits>

namespace android {
namespace {

// Parcels stay below 2 GiB, as binder transactions do.
constexpr size_t kMaxParcelSize = static_cast<size_t>(std::numeric_limits<int32_t>::max());

constexpr size_t padSize(size_t len) {
    return (len + 3) & ~static_cast<size_t>(3);
}

void putU32(std::vector<uint8_t>* out, uint32_t v) {
    for (int i = 0; i < 4; ++i) out->push_back(static_cast<uint8_t>(v >> (8 * i)));
}

void putU64(std::vector<uint8_t>* out, uint64_t v) {
    for (int i = 0; i < 8; ++i) out->push_back(static_cast<uint8_t>(v >> (8 * i)));
}

void padTo4(std::vector<uint8_t>* out) {
    while (out->size() % 4 != 0) out->push_back(0);
}

void putString16(std::vector<uint8_t>* out, const char16_t* str, size_t len) {
    putU32(out, static_cast<uint32_t>(len));
    for (size_t i = 0; i < len; ++i) {
        uint16_t unit = static_cast<uint16_t>(str[i]);
        out->push_back(static_cast<uint8_t>(unit & 0xff));
        out->push_back(static_cast<uint8_t>(unit >> 8));
    }
    out->push_back(0);
    out->push_back(0);
    padTo4(out);
}

uint32_t getU32(const uint8_t* p) {
    return static_cast<uint32_t>(p[0]) | (static_cast<uint32_t>(p[1]) << 8) |
           (static_cast<uint32_t>(p[2]) << 16) | (static_cast<uint32_t>(p[3]) << 24);
}

uint64_t getU64(const uint8_t* p) {
    return static_cast<uint64_t>(getU32(p)) | (static_cast<uint64_t>(getU32(p + 4)) << 32);
}

// Restores a parcel's position unless told the read succeeded.
class PositionGuard {
  public:
    explicit PositionGuard(const Parcel* parcel) : mParcel(parcel), mPos(parcel->dataPosition()) {}
    ~PositionGuard() {
        if (!mCommitted) mParcel->setDataPosition(mPos);
    }
    void commit() { mCommitted = true; }

  private:
    const Parcel* mParcel;
    size_t mPos;
    bool mCommitted = false;
};

}  // namespace

status_t Parcel::setData(const uint8_t* buffer, size_t len) {
    if (buffer == nullptr && len > 0) return BAD_VALUE;
    if (len > kMaxParcelSize) return BAD_VALUE;
    mData.assign(buffer, buffer + len);
    mDataPos = 0;
    return OK;
}

void Parcel::freeData() {
    mData.clear();
    mData.shrink_to_fit();
    mDataPos = 0;
}

void Parcel::setWriteFailAfterForTesting(int n) {
    mWriteFailCountdown = n < 0 ? -1 : (n == 0 ? 1 : n);
}

bool Parcel::consumeWrite() {
    if (mWriteFailCountdown < 0) return true;
    if (mWriteFailCountdown <= 1) {
        mWriteFailCountdown = -1;
        return false;
    }
    --mWriteFailCountdown;
    return true;
}

void Parcel::writeRaw(const void* data, size_t len) {
    size_t padded = padSize(len);
    if (mDataPos + padded > mData.size()) mData.resize(mDataPos + padded, 0);
    if (len > 0) memcpy(mData.data() + mDataPos, data, len);
    if (padded > len) memset(mData.data() + mDataPos + len, 0, padded - len);
    mDataPos += padded;
}

bool Parcel::readRaw(void* out, size_t len) const {
    size_t padded = padSize(len);
    if (padded < len || mDataPos > mData.size() || padded > mData.size() - mDataPos) return false;
    if (len > 0) memcpy(out, mData.data() + mDataPos, len);
    mDataPos += padded;
    return true;
}

// Every write funnels through here: one counted write call, committed whole or not at all.
#define PARCEL_COMMIT(bytes)                                                         \
    do {                                                                             \
        if (!consumeWrite()) return NO_MEMORY;                                       \
        if (mDataPos > kMaxParcelSize || (bytes).size() > kMaxParcelSize - mDataPos) \
            return NO_MEMORY;                                                        \
        writeRaw((bytes).data(), (bytes).size());                                    \
        return OK;                                                                   \
    } while (false)

status_t Parcel::writeInt32(int32_t value) {
    std::vector<uint8_t> bytes;
    putU32(&bytes, static_cast<uint32_t>(value));
    PARCEL_COMMIT(bytes);
}

status_t Parcel::writeUint32(uint32_t value) {
    std::vector<uint8_t> bytes;
    putU32(&bytes, value);
    PARCEL_COMMIT(bytes);
}

status_t Parcel::writeInt64(int64_t value) {
    std::vector<uint8_t> bytes;
    putU64(&bytes, static_cast<uint64_t>(value));
    PARCEL_COMMIT(bytes);
}

status_t Parcel::writeUint64(uint64_t value) {
    std::vector<uint8_t> bytes;
    putU64(&bytes, value);
    PARCEL_COMMIT(bytes);
}

status_t Parcel::writeFloat(float value) {
    uint32_t bits;
    memcpy(&bits, &value, sizeof(bits));
    std::vector<uint8_t> bytes;
    putU32(&bytes, bits);
    PARCEL_COMMIT(bytes);
}

status_t Parcel::writeDouble(double value) {
    uint64_t bits;
    memcpy(&bits, &value, sizeof(bits));
    std::vector<uint8_t> bytes;
    putU64(&bytes, bits);
    PARCEL_COMMIT(bytes);
}

status_t Parcel::writeBool(bool value) {
    std::vector<uint8_t> bytes;
    putU32(&bytes, value ? 1 : 0);
    PARCEL_COMMIT(bytes);
}

status_t Parcel::writeInt32Vector(const std::vector<int32_t>& values) {
    if (values.size() > static_cast<size_t>(std::numeric_limits<int32_t>::max())) return BAD_VALUE;
    std::vector<uint8_t> bytes;
    bytes.reserve(4 + 4 * values.size());
    putU32(&bytes, static_cast<uint32_t>(values.size()));
    for (int32_t v : values) putU32(&bytes, static_cast<uint32_t>(v));
    PARCEL_COMMIT(bytes);
}

status_t Parcel::writeString16(const char16_t* str, size_t len) {
    if (str == nullptr && len > 0) return BAD_VALUE;
    if (len > kMaxParcelSize / 2) return BAD_VALUE;
    std::vector<uint8_t> bytes;
    putString16(&bytes, str, len);
    PARCEL_COMMIT(bytes);
}

status_t Parcel::writeUtf8AsUtf16(const std::string& str) {
    std::u16string utf16;
    if (!utf8ToUtf16(str, &utf16)) return BAD_VALUE;
    std::vector<uint8_t> bytes;
    putString16(&bytes, utf16.data(), utf16.size());
    PARCEL_COMMIT(bytes);
}

status_t Parcel::writeUtf8VectorAsUtf16Vector(const std::vector<std::string>& values) {
    if (values.size() > static_cast<size_t>(std::numeric_limits<int32_t>::max())) return BAD_VALUE;
    std::vector<uint8_t> bytes;
    putU32(&bytes, static_cast<uint32_t>(values.size()));
    for (const std::string& value : values) {
        std::u16string utf16;
        if (!utf8ToUtf16(value, &utf16)) return BAD_VALUE;
        putString16(&bytes, utf16.data(), utf16.size());
    }
    PARCEL_COMMIT(bytes);
}

#undef PARCEL_COMMIT

status_t Parcel::readInt32(int32_t* value) const {
    uint8_t raw[4];
    if (!readRaw(raw, sizeof(raw))) return NOT_ENOUGH_DATA;
    *value = static_cast<int32_t>(getU32(raw));
    return OK;
}

int32_t Parcel::readInt32() const {
    int32_t value = 0;
    readInt32(&value);
    return value;
}

status_t Parcel::readUint32(uint32_t* value) const {
    uint8_t raw[4];
    if (!readRaw(raw, sizeof(raw))) return NOT_ENOUGH_DATA;
    *value = getU32(raw);
    return OK;
}

uint32_t Parcel::readUint32() const {
    uint32_t value = 0;
    readUint32(&value);
    return value;
}

status_t Parcel::readInt64(int64_t* value) const {
    uint8_t raw[8];
    if (!readRaw(raw, sizeof(raw))) return NOT_ENOUGH_DATA;
    *value = static_cast<int64_t>(getU64(raw));
    return OK;
}

int64_t Parcel::readInt64() const {
    int64_t value = 0;
    readInt64(&value);
    return value;
}

status_t Parcel::readUint64(uint64_t* value) const {
    uint8_t raw[8];
    if (!readRaw(raw, sizeof(raw))) return NOT_ENOUGH_DATA;
    *value = getU64(raw);
    return OK;
}

status_t Parcel::readFloat(float* value) const {
    uint8_t raw[4];
    if (!readRaw(raw, sizeof(raw))) return NOT_ENOUGH_DATA;
    uint32_t bits = getU32(raw);
    memcpy(value, &bits, sizeof(bits));
    return OK;
}

status_t Parcel::readDouble(double* value) const {
    uint8_t raw[8];
    if (!readRaw(raw, sizeof(raw))) return NOT_ENOUGH_DATA;
    uint64_t bits = getU64(raw);
    memcpy(value, &bits, sizeof(bits));
    return OK;
}

status_t Parcel::readBool(bool* value) const {
    int32_t v;
    status_t err = readInt32(&v);
    if (err != OK) return err;
    *value = v != 0;
    return OK;
}

bool Parcel::readBool() const {
    return readInt32() != 0;
}

status_t Parcel::readInt32Vector(std::vector<int32_t>* values) const {
    PositionGuard guard(this);
    int32_t count;
    status_t err = readInt32(&count);
    if (err != OK) return err;
    // Check against what is left before allocating: a hostile count must not reserve memory.
    if (count < 0 || static_cast<size_t>(count) > dataAvail() / 4) return BAD_VALUE;
    std::vector<int32_t> result(static_cast<size_t>(count));
    for (int32_t& v : result) {
        if ((err = readInt32(&v)) != OK) return err;
    }
    *values = std::move(result);
    guard.commit();
    return OK;
}

status_t Parcel::readString16(std::u16string* value) const {
    PositionGuard guard(this);
    int32_t len;
    status_t err = readInt32(&len);
    if (err != OK) return err;
    if (len < 0) return BAD_VALUE;
    size_t bytes = (static_cast<size_t>(len) + 1) * 2;
    if (padSize(bytes) > dataAvail()) return NOT_ENOUGH_DATA;
    const uint8_t* p = mData.data() + mDataPos;
    std::u16string result(static_cast<size_t>(len), u'\0');
    for (size_t i = 0; i < result.size(); ++i) {
        result[i] = static_cast<char16_t>(p[2 * i] | (p[2 * i + 1] << 8));
    }
    if (p[bytes - 2] != 0 || p[bytes - 1] != 0) return BAD_VALUE;  // terminator missing
    mDataPos += padSize(bytes);
    *value = std::move(result);
    guard.commit();
    return OK;
}

status_t Parcel::readUtf8FromUtf16(std::string* value) const {
    PositionGuard guard(this);
    std::u16string utf16;
    status_t err = readString16(&utf16);
    if (err != OK) return err;
    std::string utf8;
    if (!utf16ToUtf8(utf16, &utf8)) return BAD_VALUE;
    *value = std::move(utf8);
    guard.commit();
    return OK;
}

status_t Parcel::readUtf8VectorFromUtf16Vector(std::vector<std::string>* values) const {
    PositionGuard guard(this);
    int32_t count;
    status_t err = readInt32(&count);
    if (err != OK) return err;
    // The shortest string (length, NUL, padding) takes 8 bytes.
    if (count < 0 || static_cast<size_t>(count) > dataAvail() / 8) return BAD_VALUE;
    std::vector<std::string> result(static_cast<size_t>(count));
    for (std::string& s : result) {
        if ((err = readUtf8FromUtf16(&s)) != OK) return err;
    }
    *values = std::move(result);
    guard.commit();
    return OK;
}

bool Parcel::utf8ToUtf16(const std::string& in, std::u16string* out) {
    out->clear();
    out->reserve(in.size());
    const unsigned char* s = reinterpret_cast<const unsigned char*>(in.data());
    size_t n = in.size();
    size_t i = 0;
    while (i < n) {
        uint32_t c = s[i];
        size_t extra;
        uint32_t min;
        if (c < 0x80) {
            extra = 0;
            min = 0;
        } else if ((c & 0xe0) == 0xc0) {
            extra = 1;
            min = 0x80;
            c &= 0x1f;
        } else if ((c & 0xf0) == 0xe0) {
            extra = 2;
            min = 0x800;
            c &= 0x0f;
        } else if ((c & 0xf8) == 0xf0) {
            extra = 3;
            min = 0x10000;
            c &= 0x07;
        } else {
            return false;  // stray continuation byte or invalid lead
        }
        if (extra > n - i - 1) return false;  // truncated sequence
        for (size_t k = 1; k <= extra; ++k) {
            if ((s[i + k] & 0xc0) != 0x80) return false;
            c = (c << 6) | (s[i + k] & 0x3f);
        }
        // Overlong forms, UTF-16 surrogates and values past U+10FFFF are not valid UTF-8.
        if (c < min || (c >= 0xd800 && c <= 0xdfff) || c > 0x10ffff) return false;
        if (c >= 0x10000) {
            c -= 0x10000;
            out->push_back(static_cast<char16_t>(0xd800 + (c >> 10)));
            out->push_back(static_cast<char16_t>(0xdc00 + (c & 0x3ff)));
        } else {
            out->push_back(static_cast<char16_t>(c));
        }
        i += extra + 1;
    }
    return true;
}

bool Parcel::utf16ToUtf8(const std::u16string& in, std::string* out) {
    out->clear();
    out->reserve(in.size());
    for (size_t i = 0; i < in.size(); ++i) {
        uint32_t c = in[i];
        if (c >= 0xd800 && c <= 0xdbff) {
            if (i + 1 >= in.size() || in[i + 1] < 0xdc00 || in[i + 1] > 0xdfff) return false;
            c = 0x10000 + ((c - 0xd800) << 10) + (static_cast<uint32_t>(in[i + 1]) - 0xdc00);
            ++i;
        } else if (c >= 0xdc00 && c <= 0xdfff) {
            return false;  // unpaired low surrogate
        }
        if (c < 0x80) {
            out->push_back(static_cast<char>(c));
        } else if (c < 0x800) {
            out->push_back(static_cast<char>(0xc0 | (c >> 6)));
            out->push_back(static_cast<char>(0x80 | (c & 0x3f)));
        } else if (c < 0x10000) {
            out->push_back(static_cast<char>(0xe0 | (c >> 12)));
            out->push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3f)));
            out->push_back(static_cast<char>(0x80 | (c & 0x3f)));
        } else {
            out->push_back(static_cast<char>(0xf0 | (c >> 18)));
            out->push_back(static_cast<char>(0x80 | ((c >> 12) & 0x3f)));
            out->push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3f)));
            out->push_back(static_cast<char>(0x80 | (c & 0x3f)));
        }
    }
    return true;
}

}  // namespace android
