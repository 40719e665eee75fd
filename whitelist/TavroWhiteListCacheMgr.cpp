#define LOG_NDEBUG 0
#define LOG_TAG "TavroWhiteListCache"
#include "whitelist/TavroWhiteListCacheMgr.h"

#include <unistd.h>

#include <log/log.h>
#include <tavro/ListServiceUtils.h>

#include "common/TavroLog.h"
#include "common/TavroRecordTap.h"

namespace android {
namespace {

// Cache decisions are traced at level 7, like the rest of the white list's debug lines.
constexpr int32_t kCacheLogLevel = kTavroLogDetail;

struct DefaultRow {
    const char* name;
    const char* boostInfo;
};

// Built-in boost rules, sorted by name. The mediaserver table serves a media server that has no
// list answer yet; the app table serves an app by its exact process name.
constexpr DefaultRow kMediaserverDefaults[] = {
        {kDefaultWallpaperName, kDefaultMediaserverWallpaper},
};
constexpr DefaultRow kAppDefaults[] = {
        {kDefaultWallpaperName, kDefaultAppWallpaper},
        {kDefaultColorfulEngineName, kDefaultAppColorfulEngine},
};

// Reads a list-service answer out of `buffer`, which the service may have filled to the last
// byte without a terminator.
std::string answerOf(char* buffer, size_t size) {
    buffer[size - 1] = '\0';
    return std::string(buffer);
}

void reportRejected(const std::string& rejected) {
    if (!rejected.empty()) ALOGE(kLogRejectedBoostInfo, rejected.c_str());
}

// ---- What a session recording learns from the manager (common/TavroRecordTap.h) ----

void tapAnswer(const char* list, TavroListAsk ask, int64_t id, const char* name, bool answered,
               const std::string& answer) {
    if (TavroRecordTap* tap = tavroRecordTap()) {
        tap->onListAnswer(list, ask, id, name,
                          answered ? TavroListReply::kValue : TavroListReply::kNone, answer.c_str(),
                          answer.size(), false);
    }
}

// A cached entry used again, as the answer it stands for: a default kept after a failed question
// is no answer; anything else is the string the service gave.
void tapCachedAnswer(const char* list, TavroListAsk ask, int64_t id, const char* name,
                     const MediaBoostInfo& entry) {
    if (TavroRecordTap* tap = tavroRecordTap()) {
        const bool answered = entry.isValid && !entry.isDefault;
        tap->onListAnswer(list, ask, id, name,
                          answered ? TavroListReply::kValue : TavroListReply::kNone,
                          entry.boostStrInfo.c_str(), entry.boostStrInfo.size(), true);
    }
}

// A media server's map served from the cache: every listed name with its answer, and the name
// list that leads a fresh cache to ask for the same ones.
void tapCachedMediaserverMap(
        const std::map<std::string, TavroWhiteListCacheMgr::BoostInfoPtr>& map) {
    TavroRecordTap* tap = tavroRecordTap();
    if (tap == nullptr) return;
    std::string names;
    for (const auto& [name, entry] : map) {
        if (entry == nullptr || !entry->isValid || name == kFakeBoostName) continue;
        names += names.empty() ? "" : std::string(1, kBoostListDelim);
        names += name;
        tapCachedAnswer(kListMediaserverBoost, TavroListAsk::kName, 0, name.c_str(), *entry);
    }
    if (!names.empty()) {
        tap->onListAnswer(kListMediaserverBoost, TavroListAsk::kName, 0, kBoostNameListKey,
                          TavroListReply::kValue, names.c_str(), names.size(), true);
    }
}

}  // namespace

Mutex TavroWhiteListCacheMgr::sInstanceLock;
TavroWhiteListCacheMgr* TavroWhiteListCacheMgr::sInstance = nullptr;

TavroWhiteListCacheMgr* TavroWhiteListCacheMgr::getInstance() {
    Mutex::Autolock guard(sInstanceLock);
    if (sInstance == nullptr) sInstance = new TavroWhiteListCacheMgr();
    return sInstance;
}

TavroWhiteListCacheMgr::TavroWhiteListCacheMgr() : mCache(std::make_shared<WhiteListCache>()) {}

// ---- Entry point -----------------------------------------------------------------------------

void TavroWhiteListCacheMgr::getBoostInfo(int32_t pid, const TavroMediaInfo& media, TavroUxInfo& ux,
                                          TavroClusterInfo& cluster) {
    if (!init()) {
        ALOGE("%s", kLogFailedInitCache);
        return;
    }
    // A rejected string stops at this level: it is logged here and its entry gives no boost.
    std::string rejected;
    BoostInfoPtr uxEntry = loadDebugInfo(kPropDebugCodecUx, &rejected);
    reportRejected(rejected);
    rejected.clear();
    BoostInfoPtr cpuEntry = loadDebugInfo(kPropDebugCpuBoost, &rejected);
    reportRejected(rejected);
    rejected.clear();
    if (TavroRecordTap* tap = tavroRecordTap()) {
        // What init read once for the whole process, used again for this codec.
        tap->onProperty(kPropHardware, mPlatform.vendor.c_str(), true);
        tap->onProperty(kPropDeviceFamily, mPlatform.soc.c_str(), true);
        tap->onProperty(kPropProjectName, mPlatform.project.c_str(), true);
        tap->onProcessName(static_cast<int32_t>(getpid()), !procName.empty(), procName.c_str());
    }

    if (isMediaserver()) {
        TAVRO_LOGV(kCacheLogLevel, kLogMediaserverScenario, media.isVideo);
        if (uxEntry == nullptr) {
            std::vector<std::string> rejectedNames;
            checkMediaserverBoostInfo(&rejectedNames);
            for (const std::string& r : rejectedNames) reportRejected(r);
            uxEntry = getMediaserverBoostInfo(pid, media);
        }
        // One rule serves both halves here; "debug.cpu.boost" does not apply to a media server.
        getUxInfo(mPlatform, media, uxEntry, ux);
        getClusterInfo(mPlatform, media, uxEntry, cluster);
        return;
    }

    TAVRO_LOGV(kCacheLogLevel, kLogAppScenario, procName.c_str(), media.isVideo);
    if (uxEntry == nullptr) {
        uxEntry = getProcBoostInfo(&rejected);
        reportRejected(rejected);
        rejected.clear();
    }
    getUxInfo(mPlatform, media, uxEntry, ux);
    // The cluster half follows the app's top activity, and only video codecs get it.
    if (cpuEntry == nullptr && media.isVideo != 0) {
        cpuEntry = getActivityBoostInfo("", media.isEncoder != 0, false, &rejected);
        reportRejected(rejected);
    }
    getClusterInfo(mPlatform, media, cpuEntry, cluster);
}

void TavroWhiteListCacheMgr::getBoostInfo(int32_t pid, const TavroMediaInfo& media, TavroUxInfo& ux,
                                          std::shared_ptr<TavroClusterInfo>& cluster) {
    if (cluster == nullptr) cluster = std::make_shared<TavroClusterInfo>();
    getBoostInfo(pid, media, ux, *cluster);
}

// ---- Cache -----------------------------------------------------------------------------------

bool TavroWhiteListCacheMgr::init() {
    Mutex::Autolock guard(mLock);
    if (mInitStatus != OK) {
        if (!getPlatformInfo() || !getProcNameByPid(static_cast<int32_t>(getpid()), procName)) {
            return false;
        }
        mCache = std::make_shared<WhiteListCache>();
        loadDefaultBoostInfo_l();
        mInitStatus = OK;
    }
    return true;
}

bool TavroWhiteListCacheMgr::getPlatformInfo() {
    return android::getPlatformInfo(mPlatform);
}

bool TavroWhiteListCacheMgr::isMediaserver() const {
    return procName.find(kMediaserverProcess) != std::string::npos;
}

TavroWhiteListCacheMgr::Clock::time_point TavroWhiteListCacheMgr::now() const {
    return mClock ? mClock() : Clock::now();
}

TavroWhiteListCacheMgr::BoostInfoPtr TavroWhiteListCacheMgr::copyEntry(const BoostInfoPtr& from) {
    return from == nullptr ? std::make_shared<MediaBoostInfo>()
                           : std::make_shared<MediaBoostInfo>(*from);
}

void TavroWhiteListCacheMgr::applyAnswer(const BoostInfoPtr& entry, const std::string& answer,
                                         std::string* rejected) {
    entry->boostStrInfo = answer;
    if (parseBoostInfo(answer, entry)) return;
    // Keep the cache fields, drop the half-parsed rule: the entry now reads as an empty answer.
    const bool isValid = entry->isValid;
    const bool isDefault = entry->isDefault;
    const Clock::time_point cacheTime = entry->cacheTime;
    *entry = MediaBoostInfo();
    entry->isValid = isValid;
    entry->isDefault = isDefault;
    entry->cacheTime = cacheTime;
    if (rejected != nullptr) *rejected = answer;
}

TavroWhiteListCacheMgr::BoostInfoPtr TavroWhiteListCacheMgr::loadDebugInfo(const std::string& name,
                                                                           std::string* rejected) {
    const std::string value = getProperty(name);
    if (value.empty()) return nullptr;
    BoostInfoPtr entry = std::make_shared<MediaBoostInfo>();
    applyAnswer(entry, value, rejected);
    TAVRO_LOGV(kCacheLogLevel, kLogDebugProperty, name.c_str(), value.c_str());
    return entry;
}

void TavroWhiteListCacheMgr::loadDefaultBoostInfo_l() {
    BoostInfoPtr entry = std::make_shared<MediaBoostInfo>();
    if (isMediaserver()) {
        // Every row shares the one entry object.
        for (const DefaultRow& row : kMediaserverDefaults) {
            entry->boostStrInfo = row.boostInfo;
            // The built-in strings are well formed; a failure cannot happen here.
            (void)parseBoostInfo(entry->boostStrInfo, entry);
            entry->isDefault = true;
            entry->cacheTime = now();
            mCache->activityMap[row.name] = entry;
        }
        return;
    }
    for (const DefaultRow& row : kAppDefaults) {
        if (procName != row.name) continue;
        entry->boostStrInfo = row.boostInfo;
        (void)parseBoostInfo(entry->boostStrInfo, entry);
        entry->cacheTime = now();
        entry->isDefault = true;
        // isValid stays false so that the list service is still asked at the first use.
        mCache->procBoostInfo = entry;
        return;
    }
}

bool TavroWhiteListCacheMgr::isTimeout(Clock::time_point t) const {
    if (now() - t >= kBoostCacheTimeout) {
        TAVRO_LOGV(kCacheLogLevel, "%s", kLogCacheTimeout);
        return true;
    }
    return false;
}

bool TavroWhiteListCacheMgr::checkCacheIsNeedUpdate(const BoostInfoPtr& entry) const {
    if (entry == nullptr) return false;
    if (!entry->isValid || isTimeout(entry->cacheTime)) {
        TAVRO_LOGV(kCacheLogLevel, "%s", kLogNeedUpdateCache);
        return true;
    }
    if (entry->isDefault) {
        // A default the service could not replace stays in use until it times out.
        TAVRO_LOGV(kCacheLogLevel, "%s", kLogNoBoostForActivity);
        return false;
    }
    if (entry->boostStrInfo.empty()) {
        // An empty answer is asked for again at every use.
        TAVRO_LOGV(kCacheLogLevel, "%s", kLogNeedUpdateCache);
        return true;
    }
    return false;
}

TavroWhiteListCacheMgr::BoostInfoPtr TavroWhiteListCacheMgr::getProcBoostInfo(
        std::string* rejected) {
    Mutex::Autolock guard(mLock);
    BoostInfoPtr& slot = mCache->procBoostInfo;
    if (slot == nullptr) slot = std::make_shared<MediaBoostInfo>();
    if (!checkCacheIsNeedUpdate(slot)) {
        TAVRO_LOGV(kCacheLogLevel, "%s", kLogProcBoostValid);
        printMediaBoostInfo(slot);
        tapCachedAnswer(kListMediaSchedBoost, TavroListAsk::kUid, static_cast<int64_t>(getuid()),
                        nullptr, *slot);
        return slot;
    }

    // Asked with mLock held: a codec of this process that arrives meanwhile waits, then finds the
    // refreshed entry instead of asking again.
    char buffer[kBoostInfoBufferSize] = {};
    const bool ret = ListServiceUtils::getInstance()->getListValueByUid(
            kListMediaSchedBoost, static_cast<int64_t>(getuid()), buffer, sizeof(buffer));
    const std::string answer = answerOf(buffer, sizeof(buffer));
    tapAnswer(kListMediaSchedBoost, TavroListAsk::kUid, static_cast<int64_t>(getuid()), nullptr,
              ret, answer);
    TAVRO_LOGV(kCacheLogLevel, kLogGetMediaSchedBoost, ret ? 1 : 0, answer.c_str());

    // Cached entries are never changed in place: readers may hold the old one without the lock.
    BoostInfoPtr entry = copyEntry(slot);
    entry->isValid = true;
    slot = entry;
    if (!ret) {
        TAVRO_LOGV(kCacheLogLevel, "%s", kLogFailedMediaSchedBoost);
        return entry->boostStrInfo.empty() ? nullptr : entry;
    }
    entry->isDefault = false;
    entry->cacheTime = now();
    entry->boostStrInfo = answer;
    if (answer.empty()) {
        TAVRO_LOGV(kCacheLogLevel, "%s", kLogBoostStrEmpty);
        return nullptr;
    }
    applyAnswer(entry, answer, rejected);
    return entry->boostStrInfo.empty() ? nullptr : entry;
}

TavroWhiteListCacheMgr::BoostInfoPtr TavroWhiteListCacheMgr::getActivityBoostInfo(
        const std::string& name, bool isEncoder, bool byName, std::string* rejected) {
    TAVRO_LOGV(kCacheLogLevel, kLogActivityName, name.c_str(), isEncoder ? 1 : 0);
    if (byName && name.empty()) {
        TAVRO_LOGV(kCacheLogLevel, "%s", kLogActivityNameEmpty);
        return nullptr;
    }
    BoostInfoPtr entry = findActivityBoostInfo(name);
    // A fresh entry that is not stored (a top-activity question) is this call's own.
    bool own = false;
    if (entry == nullptr) {
        entry = std::make_shared<MediaBoostInfo>();
        own = !byName;
        if (byName) {
            Mutex::Autolock guard(mLock);
            mCache->activityMap[name] = entry;
            TAVRO_LOGV(kCacheLogLevel, kLogActivityMapSize, mCache->activityMap.size());
        }
    }

    Mutex::Autolock guard(mLock);
    if (!checkCacheIsNeedUpdate(entry)) {
        TAVRO_LOGV(kCacheLogLevel, kLogActivityCacheValid, name.c_str());
        printMediaBoostInfo(entry);
        if (byName) {
            tapCachedAnswer(kListMediaserverBoost, TavroListAsk::kName, 0, name.c_str(), *entry);
        }
        return entry;
    }

    // Asked with mLock held, as the process entry is: no two refreshes of the cache overlap.
    char buffer[kBoostInfoBufferSize] = {};
    ListServiceUtils* service = ListServiceUtils::getInstance();
    const bool ret = byName ? service->getListValueByName(kListMediaserverBoost, name.c_str(),
                                                          buffer, sizeof(buffer))
                            : service->getListValueByTopActivity(
                                      isEncoder ? kListVencCpuBoost : kListVdecCpuBoost,
                                      static_cast<int32_t>(getpid()), buffer, sizeof(buffer));

    BoostInfoPtr updated = own ? entry : copyEntry(entry);
    updated->isValid = true;
    // The new entry takes the old one's place only where the map still holds the old one: a
    // refresh that dropped the map meanwhile keeps it dropped.
    if (!own) {
        auto it = mCache->activityMap.find(name);
        if (it != mCache->activityMap.end() && it->second == entry) it->second = updated;
    }

    const std::string answer = ret ? answerOf(buffer, sizeof(buffer)) : std::string();
    if (byName) {
        tapAnswer(kListMediaserverBoost, TavroListAsk::kName, 0, name.c_str(), ret, answer);
    } else {
        tapAnswer(isEncoder ? kListVencCpuBoost : kListVdecCpuBoost, TavroListAsk::kTopActivity, 0,
                  nullptr, ret, answer);
    }
    if (!ret) {
        TAVRO_LOGV(kCacheLogLevel, kLogFailActivityBoost, name.c_str());
        return nullptr;
    }
    updated->isDefault = false;
    updated->cacheTime = now();
    TAVRO_LOGV(kCacheLogLevel, kLogActivityBoostInfo, name.c_str(), answer.c_str());
    applyAnswer(updated, answer, rejected);
    return updated;
}

TavroWhiteListCacheMgr::BoostInfoPtr TavroWhiteListCacheMgr::findActivityBoostInfo(
        const std::string& name) {
    if (name.empty()) return nullptr;
    Mutex::Autolock guard(mLock);
    auto it = mCache->activityMap.find(name);
    if (it == mCache->activityMap.end()) return nullptr;
    const std::string& info = it->second != nullptr ? it->second->boostStrInfo : std::string();
    TAVRO_LOGV(kCacheLogLevel, kLogFindActivity, name.c_str(), info.c_str());
    return it->second;
}

std::string TavroWhiteListCacheMgr::getMediaserverBoostList() {
    char buffer[kBoostNameListBufferSize] = {};
    if (!ListServiceUtils::getInstance()->getListValueByName(
                kListMediaserverBoost, kBoostNameListKey, buffer, sizeof(buffer))) {
        tapAnswer(kListMediaserverBoost, TavroListAsk::kName, 0, kBoostNameListKey, false, "");
        TAVRO_LOGV(kCacheLogLevel, "%s", kLogNoBoostNameList);
        return std::string();
    }
    const std::string list = answerOf(buffer, sizeof(buffer));
    tapAnswer(kListMediaserverBoost, TavroListAsk::kName, 0, kBoostNameListKey, true, list);
    return list;
}

void TavroWhiteListCacheMgr::checkMediaserverBoostInfo(std::vector<std::string>* rejected) {
    {
        Mutex::Autolock guard(mLock);
        // The whole map is as fresh as its first entry: it is always rebuilt as a whole.
        BoostInfoPtr first;
        for (const auto& [key, entry] : mCache->activityMap) {
            if (entry != nullptr) {
                first = entry;
                break;
            }
        }
        if (first == nullptr || !checkCacheIsNeedUpdate(first)) {
            tapCachedMediaserverMap(mCache->activityMap);
            return;
        }
        TAVRO_LOGV(kCacheLogLevel, "%s", kLogMediaserverTimeout);
        mCache->activityMap.clear();
        loadDefaultBoostInfo_l();
    }

    const std::string list = getMediaserverBoostList();
    if (list.empty()) {
        Mutex::Autolock guard(mLock);
        if (mCache->activityMap.empty()) {
            // Keeps the map from reading as never loaded when the service lists no names.
            BoostInfoPtr placeholder = std::make_shared<MediaBoostInfo>();
            placeholder->isValid = true;
            placeholder->cacheTime = now();
            mCache->activityMap[kFakeBoostName] = placeholder;
        }
    }

    std::vector<std::string> names;
    parseStrByDelim(list, kBoostListDelim, names);
    for (const std::string& name : names) {
        TAVRO_LOGV(kCacheLogLevel, kLogGetMediaserverBoost, name.c_str());
        std::string bad;
        getActivityBoostInfo(name, false, true, &bad);
        if (!bad.empty() && rejected != nullptr) rejected->push_back(bad);
    }

    Mutex::Autolock guard(mLock);
    TAVRO_LOGV(kCacheLogLevel, kLogValidMediaserverNumber, mCache->activityMap.size());
}

TavroWhiteListCacheMgr::BoostInfoPtr TavroWhiteListCacheMgr::getMediaserverBoostInfo(
        int32_t pid, const TavroMediaInfo& media) {
    std::string clientName;
    getProcNameByPid(pid, clientName);
    TAVRO_LOGV(kCacheLogLevel, kLogProcNameByPid, clientName.c_str(), pid);

    BoostInfoPtr entry = findActivityBoostInfo(clientName);
    if (entry != nullptr && !entry->boostStrInfo.empty() &&
        checkPrecondition(mPlatform, media, entry->condition)) {
        TAVRO_LOGV(kCacheLogLevel, kLogFindBoost, clientName.c_str(), entry->boostStrInfo.c_str());
        return entry;
    }

    // Generic entries: keys beginning with '#' sort together, so the walk in key order starts at
    // the first of them and ends after the last.
    Mutex::Autolock guard(mLock);
    const std::string prefix(1, kGenericEntryPrefix);
    for (auto it = mCache->activityMap.lower_bound(prefix);
         it != mCache->activityMap.end() && !it->first.empty() &&
         it->first[0] == kGenericEntryPrefix;
         ++it) {
        const BoostInfoPtr& generic = it->second;
        if (generic == nullptr || generic->boostStrInfo.empty()) continue;
        if (!checkPrecondition(mPlatform, media, generic->condition)) continue;
        TAVRO_LOGV(kCacheLogLevel, kLogFindBoost, it->first.c_str(), generic->boostStrInfo.c_str());
        return generic;
    }
    return nullptr;
}

// ---- Test hooks ------------------------------------------------------------------------------

void TavroWhiteListCacheMgr::setClockForTesting(std::function<Clock::time_point()> clock) {
    mClock = std::move(clock);
}

void TavroWhiteListCacheMgr::resetForTesting() {
    Mutex::Autolock guard(mLock);
    mCache = std::make_shared<WhiteListCache>();
    mInitStatus = NO_INIT;
    mPlatform = TavroPlatformInfo();
    procName.clear();
}

}  // namespace android
