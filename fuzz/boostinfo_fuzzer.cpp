// Boost-info strings: the parser with its debug dump on, the key/value and list splitters, the
// cluster opcode encoders, condition matching, and the manager's whole lookup with the string as
// the list service's answer. Oracles: parsing is deterministic, split pieces never hold their
// delimiter, a rejected string names a bad "schedVideo"/"schedAudio".
#include <unistd.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include <host/HostListService.h>

#include "FuzzWorld.h"
#include "whitelist/TavroWhiteListCacheMgr.h"

using namespace android;
using android::fuzz::check;

namespace {

bool sameRule(const MediaBoostInfo& a, const MediaBoostInfo& b) {
    const BoostConditionInfo& c = a.condition;
    const BoostConditionInfo& d = b.condition;
    return c.soc == d.soc && c.project == d.project && c.vendor == d.vendor && c.mime == d.mime &&
           c.component == d.component && c.limitWidth == d.limitWidth &&
           c.limitHeight == d.limitHeight && c.bitrate == d.bitrate && c.isVideo == d.isVideo &&
           c.isEncoder == d.isEncoder && a.uxInfo.schedVideo == b.uxInfo.schedVideo &&
           a.uxInfo.schedAudio == b.uxInfo.schedAudio &&
           a.uxInfo.threadName == b.uxInfo.threadName && a.uxInfo.swThreads == b.uxInfo.swThreads &&
           a.clusterInfo.clusterMinFreq == b.clusterInfo.clusterMinFreq &&
           a.clusterInfo.freqRate == b.clusterInfo.freqRate &&
           a.clusterInfo.uclampIndex == b.clusterInfo.uclampIndex;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    fuzz::initFuzzWorld();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // An input that starts with FuzzInput::kDetailByte has the rest parsed and dumped with every
    // detailed line formatted; any other input is the text itself, with the optional lines gated
    // off.
    const bool detailed = size > 0 && data[0] == fuzz::FuzzInput::kDetailByte;
    const fuzz::FuzzInput input(true, detailed ? fuzz::kFuzzLogDetailed : fuzz::kFuzzLogQuiet);
    const size_t skip = detailed ? 1 : 0;
    const std::string text(reinterpret_cast<const char*>(data) + skip, size - skip);

    auto info = std::make_shared<MediaBoostInfo>();
    info->boostStrInfo = text;
    const bool ok = parseBoostInfo(text, info);
    printMediaBoostInfo(info);
    // The rest checks results; formatting every line again would only slow the search down.
    if (detailed) fuzz::setFuzzLogLevel(fuzz::kFuzzLogQuiet);
    if (!ok) {
        check(text.find("schedVideo=") != std::string::npos ||
                      text.find("schedAudio=") != std::string::npos,
              "a string was rejected without a scheduling key");
    } else {
        auto again = std::make_shared<MediaBoostInfo>();
        check(parseBoostInfo(text, again), "second parse rejected");
        check(sameRule(*info, *again), "parsing is not deterministic");

        std::vector<int32_t> opcodes;
        parseClusterInfo(info->clusterInfo, opcodes);
        check(opcodes.size() % 2 == 0, "opcode list is not made of pairs");
        parseMtkClusterInfo(info->clusterInfo, opcodes);
        check(opcodes.size() % 2 == 0, "opcode list is not made of pairs");

        TavroWhiteListCacheMgr* manager = TavroWhiteListCacheMgr::getInstance();
        if (manager->init() &&
            fuzz::areaFits(info->condition.limitWidth, info->condition.limitHeight)) {
            const TavroMediaInfo video = {
                    "video/avc", "c2.qti.avc.decoder", 1920, 1080, 0, 0, 0, 0, 0, 1, 0};
            const TavroMediaInfo audio = {
                    "audio/mp4a-latm", "c2.android.aac.decoder", 0, 0, 0, 48000, 0, 2, 0, 0, 0};
            (void)checkPrecondition(manager->platform(), video, info->condition);
            (void)checkPrecondition(manager->platform(), audio, info->condition);
        }
    }

    std::map<std::string, std::string> pairs;
    parseKeyValueString(text, pairs);
    for (const auto& [key, value] : pairs) {
        check(!key.empty() && !value.empty(), "empty key or value kept");
        check(key.find(kBoostItemDelim) == std::string::npos, "key holds the item delimiter");
        check(key.find(kBoostValueDelim) == std::string::npos, "key holds '='");
    }
    std::vector<std::string> pieces;
    parseStrByDelim(text, kBoostListDelim, pieces);
    for (const std::string& piece : pieces) {
        check(!piece.empty() && piece.find(kBoostListDelim) == std::string::npos,
              "list piece is empty or holds '+'");
    }
    std::vector<int32_t> numbers;
    parseNumericString(text, numbers);

    // The whole lookup of an app, with the string as its "media-sched-boost" and top-activity
    // "vdec-cpu-boost" answers (the cluster half is only ever asked for video).
    // The list service hands over the text up to its first NUL and its buffer size.
    const std::string answer = fuzz::deliveredText(text, kBoostInfoBufferSize - 1);
    // Most answers are the text itself, whose parse is known already.
    const bool fits = answer == text ? !ok || fuzz::areaFits(info->condition.limitWidth,
                                                             info->condition.limitHeight)
                                     : fuzz::boostInfoAreaFits(answer);
    if (fits) {
        const std::string& activity = fuzz::named("fuzz.activity/.Main");
        host::HostListService::setByUid(fuzz::named(kListMediaSchedBoost),
                                        static_cast<int64_t>(getuid()), answer);
        host::HostListService::setTopActivity(-1, activity);
        host::HostListService::setByActivity(fuzz::named(kListVdecCpuBoost), activity, answer);
        const TavroMediaInfo media = {
                "video/hevc", "c2.qti.hevc.decoder", 3840, 2160, 0, 0, 0, 0, 0, 1, 0};
        TavroUxInfo ux;
        TavroClusterInfo cluster;
        TavroWhiteListCacheMgr::getInstance()->getBoostInfo(static_cast<int32_t>(getpid()), media,
                                                            ux, cluster);
    }
    return 0;
}
