// Frames to per-second counts and the codec's HDR type.
#include "tools/sim/TavroTimelineFrames.h"

#include <strings.h>

#include <algorithm>
#include <memory>

#include "sfplugin/TavroCCodec.h"
#include "sfplugin/TavroCCodecConfigure.h"
#include "sfplugin/TavroHdrInfo.h"
#include "tools/sim/TavroScenarioPlayer.h"

namespace android {

namespace {

constexpr int64_t kSecondUs = 1000000;
constexpr int32_t kHdrMaxCheckedWorks = 2;  // the codec examines its first two outputs at most

int64_t secondOf(int64_t timeUs) {
    return timeUs >= 0 ? timeUs / kSecondUs : -((-timeUs + kSecondUs - 1) / kSecondUs);
}

// A scenario's format names each key once.
const TavroTypedValue* find(const TavroTypedMap& map, const char* key) {
    for (const auto& [name, value] : map) {
        if (name == key) return &value;
    }
    return nullptr;
}

bool findInt32(const TavroTypedMap& map, const char* key, int64_t* out) {
    const TavroTypedValue* v = find(map, key);
    if (v == nullptr || v->type != TavroTypedValue::Type::kInt32) return false;
    *out = v->intValue;
    return true;
}

}  // namespace

void TavroTimelineFrames::configure(int64_t timeUs, const TavroTypedMap& given) {
    // The codec's members as its configure sets them: the mime stays from an earlier configure
    // that named one, and the encoder and thumbnail marks once set stay set.
    const TavroTypedValue* mime = find(given, kKeyMime);
    if (mime != nullptr && mime->type == TavroTypedValue::Type::kString) {
        mMime = mime->stringValue;
        mIsVideo = strncasecmp(mMime.c_str(), kMimeVideoPrefix, strlen(kMimeVideoPrefix)) == 0;
    }
    if (find(given, kKeyEncoder) != nullptr) mIsEncoder = true;
    int64_t mode = 0;
    // The MediaTek key, when given, decides alone.
    if ((findInt32(given, kKeyMtkThumbnailMode, &mode) ||
         findInt32(given, kKeyThumbnailMode, &mode)) &&
        mode == 1) {
        mIsThumbnail = true;
    }
    setHdrType(timeUs,
               mMime.find(kDolbyVisionTag) != std::string::npos ? kHdrTypeDolbyVision : mHdrType);
}

void TavroTimelineFrames::setHdrType(int64_t timeUs, int32_t type) {
    if (mHdrShown && type == mHdrType) return;
    mHdrType = type;
    mHdrShown = true;
    mReport(Series::kHdrType, timeUs, type);
}

// ---- Per-second counts ----------------------------------------------------------------------

void TavroTimelineFrames::closeSecondsBefore(int64_t second) {
    if (mSecond < 0 || second <= mSecond) return;
    // The second that ends, then an idle second after it when there is a gap.
    for (int64_t s : {mSecond, mSecond + 1}) {
        if (s >= second) break;
        for (size_t i = 0; i < mCounts.size(); ++i) {
            const int64_t value = s == mSecond ? mCounts[i] : 0;
            if (value == mShown[i]) continue;
            mShown[i] = value;
            mReport(static_cast<Series>(i), s * kSecondUs, static_cast<double>(value));
        }
    }
    mCounts.fill(0);
    mSecond = second;
}

void TavroTimelineFrames::count(int64_t timeUs, Series series) {
    const int64_t second = std::max<int64_t>(secondOf(timeUs), 0);
    if (mSecond < 0) mSecond = second;
    closeSecondsBefore(second);
    ++mCounts[static_cast<size_t>(series)];
}

void TavroTimelineFrames::finish(int64_t endUs) {
    if (mSecond < 0) return;
    const int64_t last = mSecond;
    closeSecondsBefore(last + 1);
    // The zero after the last second, at the session's end when that comes first (none when the
    // session ends as the second begins: the counts stand to the end).
    const int64_t zeroUs = std::min((last + 1) * kSecondUs, endUs);
    for (size_t i = 0; i < mShown.size() && zeroUs > last * kSecondUs; ++i) {
        if (mShown[i] == 0) continue;
        mShown[i] = 0;
        mReport(static_cast<Series>(i), zeroUs, 0);
    }
    mSecond = -1;
}

// ---- Frames ---------------------------------------------------------------------------------

void TavroTimelineFrames::queued(int64_t timeUs) {
    count(timeUs, Series::kQueued);
}

void TavroTimelineFrames::output(int64_t timeUs, bool hasBuffer, const TavroHdrDescription* hdr) {
    count(timeUs, Series::kOutput);
    // The codec's check of its first output buffers (stops once a type is known).
    if (!mIsVideo || mIsEncoder || mIsThumbnail) return;
    if (mHdrType != kHdrTypeNone || mHdrCheckedWorks >= kHdrMaxCheckedWorks || !hasBuffer) return;
    ++mHdrCheckedWorks;
    if (hdr == nullptr) return;
    std::shared_ptr<const C2Info> aspects, dynamic;
    for (const std::shared_ptr<C2Info>& info : tavroOutputInfos(*hdr)) {
        if (info->index() == kColorAspectsInfoIndex) aspects = info;
        if (info->index() == kHdr10PlusInfoIndex) dynamic = info;
    }
    int32_t type = mHdrType;
    checkColorAspectsInfo(aspects, &type);
    checkHdr10PlusInfo(dynamic, &type);
    setHdrType(timeUs, type);
}

}  // namespace android
