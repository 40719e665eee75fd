#include "sfplugin/TavroSpeedDetector.h"

#include <math.h>

namespace android {

namespace {

// At least one of the sample's ratios says something.
bool hasRatio(const cRenderTimeInfo& s) {
    return s.speed > TavroSpeedThresholds::kZeroSpeed ||
           s.speed2 > TavroSpeedThresholds::kZeroSpeed;
}

void walk(TavroSpeedDecision* d, const cRenderTimeInfo& s) {
    d->walked[d->walkedCount++] = {s.speed, s.speed2};
}

}  // namespace

void TavroSpeedDetector::push(uint64_t ptsMs, uint64_t renderMs, uint64_t sysMs) {
    if (mCount >= T::kHistorySize) {
        mHead = wrap(mHead + 1);
        --mCount;
    }
    cRenderTimeInfo& sample = at(mCount);
    sample = cRenderTimeInfo();
    sample.pts = ptsMs;
    sample.render = renderMs;
    sample.sys = sysMs;
    ++mCount;
}

void TavroSpeedDetector::addSample(uint64_t ptsMs, uint64_t renderMs, uint64_t sysMs) {
    if (ptsMs == 0) clear();
    push(ptsMs, renderMs, sysMs);
    if (mCount < T::kSpan + 1) return;

    cRenderTimeInfo& newest = at(mCount - 1);
    const cRenderTimeInfo& old = at(mCount - 1 - T::kSpan);
    // Unsigned on purpose: a dropped frame (render 0) wraps and never fails the render test.
    if (newest.render - 1 < old.render || !(newest.pts > old.pts && newest.sys > old.sys)) {
        // A seek, loop or clock jump: rates across it mean nothing, start again.
        clear();
        push(ptsMs, renderMs, sysMs);
        return;
    }
    // Differences are at least 1 here, so no rate divides by zero; they are taken before the
    // conversion, so they stay exact at any magnitude.
    newest.ptsUnit =
            static_cast<float>(T::kRateNumerator / static_cast<double>(newest.pts - old.pts));
    newest.sysUnit =
            static_cast<float>(T::kRateNumerator / static_cast<double>(newest.sys - old.sys));
    newest.speed2 = newest.sysUnit / newest.ptsUnit;
    if (newest.render != 0 && old.render != 0) {
        newest.renderUnit = static_cast<float>(T::kRateNumerator /
                                               static_cast<double>(newest.render - old.render));
        newest.speed = newest.renderUnit / newest.ptsUnit;
    }
}

bool TavroSpeedDetector::checkFileFps() {
    if (mCount < T::kSpan + 1) return false;
    const float rate = newest().ptsUnit;
    if (fabsf(mFileFps - rate) > T::kFileFpsChange) {
        mFileFps = rate;
        return true;
    }
    return false;
}

bool TavroSpeedDetector::walkSpans(size_t spans, bool (*decisive)(const cRenderTimeInfo&),
                                   TavroSpeedDecision* d) const {
    // A sample without any ratio cannot count but does not end the walk.
    bool result = true;
    for (size_t j = 0; j < spans; ++j) {
        const cRenderTimeInfo& s = at(mCount - 1 - j * T::kSpan);
        if (!hasRatio(s)) {
            result = false;
            continue;
        }
        walk(d, s);
        if (decisive(s)) return false;
    }
    return result;
}

TavroSpeedDecision TavroSpeedDetector::decideSpeed() const {
    TavroSpeedDecision d;
    d.fastMode = mFastMode;
    d.historySize = mCount;
    if (!mFastMode && mCount >= T::kEnterSamples) {
        // Every walked span must be fast; one below the line ends the test at once.
        d.speedChanged = walkSpans(
                T::kEnterSpans,
                [](const cRenderTimeInfo& s) {
                    return s.speed < T::kFastSpeed && s.speed2 < T::kFastSpeed;
                },
                &d);
    } else if (mFastMode && mCount >= T::kLeaveSamples) {
        // Every walked span must be back at normal speed; one above the line ends the test.
        d.speedChanged = walkSpans(
                T::kLeaveSpans,
                [](const cRenderTimeInfo& s) {
                    return s.speed > T::kFastSpeed || s.speed2 > T::kFastSpeed;
                },
                &d);
    } else if (mFastMode && mCount <= T::kResetMaxSamples) {
        d.speedChanged = true;
        d.reset = true;
    }
    return d;
}

TavroSpeedDecision TavroSpeedDetector::decide() {
    const bool fileFpsChanged = checkFileFps();
    TavroSpeedDecision d = decideSpeed();
    d.fileFpsChanged = fileFpsChanged;
    d.fileFps = mFileFps;
    return d;
}

TavroSpeedDecision TavroSpeedDetector::onSample(uint64_t ptsMs, uint64_t renderMs, uint64_t sysMs) {
    addSample(ptsMs, renderMs, sysMs);
    return decide();
}

}  // namespace android
