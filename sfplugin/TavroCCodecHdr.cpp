#define LOG_NDEBUG 0
#define LOG_TAG "TavroCCodec"
#include "sfplugin/TavroCCodec.h"

#include <C2Buffer.h>

#include "sfplugin/TavroHdrInfo.h"

namespace android {

namespace {

// Output works with buffers examined per codec: HDR metadata, when a stream has it, comes with
// the first decoded frames.
constexpr int32_t kHdrMaxCheckedWorks = 2;

}  // namespace

void TavroCCodec::checkHDRType(std::list<std::unique_ptr<C2Work>>& works,
                               std::shared_ptr<const C2Info>* colorAspects,
                               std::shared_ptr<const C2Info>* hdr10Plus) {
    // Dolby Vision is set at configure and is never overridden by what the buffers say.
    if (!mIsVideo.load() || mIsEncoder.load() || isThumbnail.load()) return;
    if (mHdrType.load() != kHdrTypeNone || mHdrCheckedWorks.load() >= kHdrMaxCheckedWorks) return;
    if (works.empty() || works.front() == nullptr || works.front()->worklets.empty()) return;
    const std::unique_ptr<C2Worklet>& worklet = works.front()->worklets.front();
    if (worklet == nullptr || worklet->output.buffers.empty()) return;

    mHdrCheckedWorks.fetch_add(1);
    const std::shared_ptr<C2Buffer>& buffer = worklet->output.buffers.front();
    if (buffer == nullptr) return;

    int32_t hdrType = mHdrType.load();
    // Static colour aspects first; dynamic metadata, when present, is the more specific answer.
    const std::shared_ptr<const C2Info> color = buffer->getInfo(kColorAspectsInfoIndex);
    const std::shared_ptr<const C2Info> dynamic = buffer->getInfo(kHdr10PlusInfoIndex);
    checkColorAspectsInfo(color, &hdrType);
    checkHdr10PlusInfo(dynamic, &hdrType);
    mHdrType.store(hdrType);
    if (colorAspects != nullptr) *colorAspects = color;
    if (hdr10Plus != nullptr) *hdr10Plus = dynamic;
}

}  // namespace android
