// Frames to per-second counts, the channel's speed ratios and the codec's HDR type.
#include "tools/sim/TavroTimelineFrames.h"

#include <strings.h>

#include <algorithm>
#include <memory>

#include <host/HostClock.h>

#include "sfplugin/TavroCCodec.h"
#include "sfplugin/TavroCCodecBufferChannel.h"
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

// The monotonic clock in ms as the channel reads it for a sample.
uint64_t monotonicMs(int64_t ns) {
    if (ns <= 0) return 0;
    return static_cast<uint64_t>(static_cast<double>(ns / 1000000000) * 1000.0 +
                                 static_cast<double>(ns % 1000000000) / 1e6);
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

static_assert(TavroTimelineFrames::kSamples == kRenderSpan + 1,
              "the sample ring holds one span and the sample it starts from");

int64_t tavroSimClockNs(int64_t timeUs) {
    return host::HostClock::kDefaultManualStartNs + timeUs * 1000;
}

void TavroTimelineFrames::configure(int64_t timeUs, const TavroTypedMap& given, int64_t vppValue) {
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
    // Speed tracking: a video decoder (the mime compared as written) with a white-list value.
    mTracking = strncmp(mMime.c_str(), kMimeVideoPrefix, strlen(kMimeVideoPrefix)) == 0 &&
                !mIsEncoder && vppValue != 0;
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

void TavroTimelineFrames::rendered(int64_t timeUs, int64_t ptsUs, int64_t renderNs) {
    count(timeUs, Series::kRendered);
    if (mTracking) {
        pushSample(timeUs, static_cast<uint64_t>(ptsUs / 1000),
                   static_cast<uint64_t>(renderNs / 1000000));
    }
}

void TavroTimelineFrames::dropped(int64_t timeUs, int64_t ptsUs) {
    count(timeUs, Series::kDropped);
    if (mTracking) pushSample(timeUs, static_cast<uint64_t>(ptsUs / 1000), 0);
}

// ---- Speed ----------------------------------------------------------------------------------

// The channel's sample: compared with the one kRenderSpan samples before it, unless timestamps
// that do not advance restart the history.
void TavroTimelineFrames::pushSample(int64_t timeUs, uint64_t pts, uint64_t render) {
    if (pts == 0) mHistoryCount = 0;
    if (mHistoryCount == mHistory.size()) {
        std::move(mHistory.begin() + 1, mHistory.end(), mHistory.begin());
        --mHistoryCount;
    }
    const Sample sample{pts, render, monotonicMs(tavroSimClockNs(timeUs))};
    mHistory[mHistoryCount++] = sample;
    float speed = 0;
    float speed2 = 0;
    if (mHistoryCount == mHistory.size()) {
        const Sample& newest = mHistory[mHistoryCount - 1];
        const Sample& old = mHistory[0];
        if (newest.render - 1 < old.render || !(newest.pts > old.pts && newest.sys > old.sys)) {
            mHistory[0] = sample;
            mHistoryCount = 1;
        } else {
            const float ptsUnit = static_cast<float>(kRenderRateNumerator /
                                                     static_cast<double>(newest.pts - old.pts));
            const float sysUnit = static_cast<float>(kRenderRateNumerator /
                                                     static_cast<double>(newest.sys - old.sys));
            speed2 = sysUnit / ptsUnit;
            if (newest.render != 0 && old.render != 0) {
                const float renderUnit = static_cast<float>(
                        kRenderRateNumerator / static_cast<double>(newest.render - old.render));
                speed = renderUnit / ptsUnit;
            }
        }
    }
    mReport(Series::kSpeedDisplay, timeUs, speed);
    mReport(Series::kSpeedWall, timeUs, speed2);
}

}  // namespace android
