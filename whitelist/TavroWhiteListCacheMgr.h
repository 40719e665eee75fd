// TavroWhiteListCacheMgr: the process-wide boost white list. For a codec being configured it finds
// the boost rule that applies (debug properties, the maker's list service, built-in defaults),
// keeps list answers cached for 43201 s, and hands out the scheduling and CPU-cluster halves of
// the decision. It only fetches, caches and looks up: the rules are parsed by parseBoostInfo
// (TavroBoostInfoParser.h) and matched by checkPrecondition, getUxInfo and getClusterInfo
// (TavroBoostCondition.h). Called by the codec's boost client on its looper thread; any number
// of codecs may call at once.
//
// Sources, in order of precedence:
//  - the debug properties "debug.codec.ux" (both halves in the mediaserver scenario, the
//    scheduling half in the app scenario) and "debug.cpu.boost" (cluster half, app scenario);
//  - mediaserver scenario (own process name contains "mediaserver"): the entry of the client
//    process by name from list "mediaserver-boost", else the first fitting generic entry whose
//    name begins with '#'; the names come from the list's "boost.name.list" entry;
//  - app scenario (any other process): the own uid's entry of "media-sched-boost" or its built-in
//    default for the scheduling half, the top activity's entry of "venc-cpu-boost" /
//    "vdec-cpu-boost" for the cluster half (video only).
//
// Locking: one plain mutex, mLock (libutils' Mutex, so clang's -Wthread-safety checks its
// GUARDED_BY fields and REQUIRES methods), guards mCache (the map and the process entry). The
// list-service queries for one entry are made with it held; the name-list fetch of the mediaserver
// refresh is not. Cached entries are never changed once stored: a refresh stores a new entry in
// place of the old, so an entry handed out stays alive and unchanged while the caller reads it
// without the lock.
//
// Strict "schedVideo"/"schedAudio" values: these two keys must hold a base-10 number. A string
// whose value is not one is rejected: parseBoostInfo reports false, the manager stores the entry
// as if the source had answered an empty string (no boost, asked again at the next use) and
// reports the string up to getBoostInfo, which logs "Rejected boost info[...]" at error priority
// naming the string. A rejected debug property gives an entry with no boost that still takes the
// place of the list lookup it overrides. The rest of getBoostInfo proceeds normally.
#pragma once

#include <stdint.h>

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <utils/Errors.h>
#include <utils/Mutex.h>

#include "whitelist/TavroBoostCondition.h"
#include "whitelist/TavroBoostInfo.h"
#include "whitelist/TavroBoostInfoParser.h"
#include "whitelist/TavroClusterParams.h"
#include "whitelist/TavroMediaInfo.h"
#include "whitelist/TavroSystemProbe.h"

namespace android {

// ---- Properties and lists -----------------------------------------------------------------------
constexpr char kPropDebugCodecUx[] = "debug.codec.ux";
constexpr char kPropDebugCpuBoost[] = "debug.cpu.boost";
constexpr char kListMediaSchedBoost[] = "media-sched-boost";
constexpr char kListMediaserverBoost[] = "mediaserver-boost";
constexpr char kListVencCpuBoost[] = "venc-cpu-boost";
constexpr char kListVdecCpuBoost[] = "vdec-cpu-boost";
constexpr char kBoostNameListKey[] = "boost.name.list";
// Placeholder key that keeps the mediaserver map non-empty when the service lists no names.
constexpr char kFakeBoostName[] = "fake.name";
// A process whose name contains this serves many client apps.
constexpr char kMediaserverProcess[] = "mediaserver";
// Keys of generic mediaserver entries begin with this character.
constexpr char kGenericEntryPrefix = '#';

// Buffer sizes of the list-service queries: one entry, and the name list.
constexpr size_t kBoostInfoBufferSize = 256;
constexpr size_t kBoostNameListBufferSize = 512;

// How long a list answer or a default is trusted: 12 hours and 1 second, on the steady clock.
constexpr std::chrono::nanoseconds kBoostCacheTimeout{43201000000000LL};

// ---- Built-in defaults --------------------------------------------------------------------------
constexpr char kDefaultWallpaperName[] = "com.android.wallpaper.livepicker:wallpaperService";
constexpr char kDefaultMediaserverWallpaper[] =
        "schedVideo=4,isEncoder=0,isVideo=1,threadName=NuPlayerRender+generic";
constexpr char kDefaultAppWallpaper[] = "cpu=QXSM8475+QXSM8550,schedVideo=4,isEncoder=0,isVideo=1";
constexpr char kDefaultColorfulEngineName[] = "com.kimora.colorfulengine";
constexpr char kDefaultAppColorfulEngine[] = "sched=4,isEncoder=0,isVideo=1";

// ---- Log texts (tag "TavroWhiteListCache") ------------------------------------------------------
constexpr char kLogFailedInitCache[] = "Failed to init cache";
constexpr char kLogRejectedBoostInfo[] =
        "Rejected boost info[%s]: schedVideo/schedAudio is not a number";
constexpr char kLogMediaserverScenario[] = "Mediaserver boost scenario, isVideo[%d]";
constexpr char kLogAppScenario[] = "App[%s] boost scenario, isVideo[%d]";
constexpr char kLogDebugProperty[] = "Get debug property[%s] info: %s";
constexpr char kLogNeedUpdateCache[] = "Need to update cache";
constexpr char kLogCacheTimeout[] = "Cache is timeout.";
constexpr char kLogNoBoostForActivity[] = "No boost info for this activity.";
constexpr char kLogProcBoostValid[] = "Process boost info is valid.";
constexpr char kLogGetMediaSchedBoost[] = "Get media-sched-boost, ret: %d, value: %s";
constexpr char kLogBoostStrEmpty[] = "Boost string info is empty";
constexpr char kLogFailedMediaSchedBoost[] = "Failed to get media-sched-boost info from MMlist";
constexpr char kLogActivityName[] = "Activity name: %s, isEncoder: %d";
constexpr char kLogActivityNameEmpty[] = "Activity name is empty.";
constexpr char kLogActivityMapSize[] = "Activity map size is [%zu].";
constexpr char kLogFailActivityBoost[] = "Fail to get activity[%s] boost info from mmlist.";
constexpr char kLogActivityBoostInfo[] = "Activity[%s] boost info is [%s].";
constexpr char kLogActivityCacheValid[] = "activityName[%s] cache is valid";
constexpr char kLogFindActivity[] = "Find activity[%s] boost info [%s]";
constexpr char kLogNoBoostNameList[] = "No boost.name.list info.";
constexpr char kLogMediaserverTimeout[] = "Media server boost info is timeout";
constexpr char kLogGetMediaserverBoost[] = "Get mediaserver boost info [%s]";
constexpr char kLogValidMediaserverNumber[] = "Get valid mediaserver boost info number: %zu";
constexpr char kLogProcNameByPid[] = "Get proc name[%s] by pid[%d]";
constexpr char kLogFindBoost[] = "Find boost[%s] info[%s]";

class TavroWhiteListCacheMgr {
  public:
    using Clock = std::chrono::steady_clock;
    using BoostInfoPtr = std::shared_ptr<MediaBoostInfo>;

    // The one manager, created on first use under its own creation lock; never destroyed.
    static TavroWhiteListCacheMgr* getInstance();

    // ---- The codec's entry point ----------------------------------------------------------------

    // Fills `ux` and `cluster` with the boost that applies to client process `pid` coding
    // `media`. Fields of `ux`/`cluster` are overwritten only by a rule that fits; with no rule
    // (or when init fails: "Failed to init cache" at error priority) they keep what the caller
    // put in them. Any thread. Reads /proc and may query the list service with mLock held.
    void getBoostInfo(int32_t pid, const TavroMediaInfo& media, TavroUxInfo& ux,
                      TavroClusterInfo& cluster) EXCLUDES(mLock);
    // The codec keeps its cluster half as a shared record: this fills the pointed-to record in
    // place (a null pointer first gets a fresh record, so it can always be dereferenced after the
    // call). The caller owns the record's synchronisation.
    void getBoostInfo(int32_t pid, const TavroMediaInfo& media, TavroUxInfo& ux,
                      std::shared_ptr<TavroClusterInfo>& cluster) EXCLUDES(mLock);

    // ---- Cache operations (any thread) ----------------------------------------------------------

    // Reads the platform triple and the own process name and builds the cache with its defaults,
    // once. False while either probe fails; every later call tries again until one succeeds.
    bool init() EXCLUDES(mLock);
    // A private entry parsed from property `name`; null when the property is empty. A rejected
    // string gives an entry with an empty string and is reported in `*rejected`.
    BoostInfoPtr loadDebugInfo(const std::string& name, std::string* rejected = nullptr);
    // The own process's entry (app scenario): cached, refreshed from "media-sched-boost" by the
    // own uid when stale. Null when there is no usable string.
    BoostInfoPtr getProcBoostInfo(std::string* rejected = nullptr) EXCLUDES(mLock);
    // The entry of activity/app `name` from "mediaserver-boost" (`byName`, stored in the map), or
    // of the own process's top activity from "venc-cpu-boost"/"vdec-cpu-boost" (not `byName`,
    // never stored, so asked at every call). Null when the service has no answer.
    BoostInfoPtr getActivityBoostInfo(const std::string& name, bool isEncoder, bool byName,
                                      std::string* rejected = nullptr) EXCLUDES(mLock);
    // Exact lookup in the activity map; null for an empty or unknown name.
    BoostInfoPtr findActivityBoostInfo(const std::string& name) EXCLUDES(mLock);
    // True when `entry` must be asked for again: never asked, timed out, or answered empty (a
    // default that the service could not replace is kept until it times out). False for null.
    bool checkCacheIsNeedUpdate(const BoostInfoPtr& entry) const;
    // True when at least kBoostCacheTimeout has passed since `t` on the (injectable) clock.
    bool isTimeout(Clock::time_point t) const;
    // The '+'-separated names of "boost.name.list" (at most 511 bytes); "" with no answer.
    std::string getMediaserverBoostList();
    // Mediaserver refresh: when the first map entry (in key order) needs an update, drops the map,
    // reloads the defaults and asks the service for every listed name. Rejected strings are
    // appended to `*rejected`.
    void checkMediaserverBoostInfo(std::vector<std::string>* rejected = nullptr) EXCLUDES(mLock);
    // The entry for client process `pid` by its name, else the first fitting '#' entry; null
    // when none fits `media`.
    BoostInfoPtr getMediaserverBoostInfo(int32_t pid, const TavroMediaInfo& media) EXCLUDES(mLock);

    // ---- Platform
    // ---------------------------------------------------------------------------------

    // The platform triple the rules are matched against: filled by init, then never changed, so
    // it is read without the lock once init has succeeded.
    const TavroPlatformInfo& platform() const { return mPlatform; }
    // Fills the platform triple (getPlatformInfo of TavroSystemProbe.h); cached once complete.
    // Writes without a lock: init calls it under mLock.
    bool getPlatformInfo();

    // ---- Test hooks -----------------------------------------------------------------------------

    // Replaces the steady clock used for cache times and timeouts; an empty function restores the
    // real clock. Set it while no other thread uses the manager; the function itself may be
    // called from any thread.
    void setClockForTesting(std::function<Clock::time_point()> clock);
    // Forgets everything: an empty cache, init status back to NO_INIT, empty platform triple and
    // process name. The clock hook is kept. Not to be called while other threads use the manager.
    void resetForTesting() EXCLUDES(mLock);

  private:
    struct WhiteListCache {
        BoostInfoPtr procBoostInfo;                       // app scenario
        std::map<std::string, BoostInfoPtr> activityMap;  // mediaserver scenario; '#' = generic
    };

    TavroWhiteListCacheMgr();
    TavroWhiteListCacheMgr(const TavroWhiteListCacheMgr&) = delete;
    TavroWhiteListCacheMgr& operator=(const TavroWhiteListCacheMgr&) = delete;

    Clock::time_point now() const;
    bool isMediaserver() const;
    // Stores the built-in defaults of the current scenario.
    void loadDefaultBoostInfo_l() REQUIRES(mLock);
    // A new entry that keeps the cache fields of `from` (or a fresh one for null).
    static BoostInfoPtr copyEntry(const BoostInfoPtr& from);
    // Sets boostStrInfo and parses `answer` into `entry`; on a rejected string the entry is left
    // as an empty answer and the string goes to `*rejected`.
    static void applyAnswer(const BoostInfoPtr& entry, const std::string& answer,
                            std::string* rejected);

    static Mutex sInstanceLock;
    static TavroWhiteListCacheMgr* sInstance GUARDED_BY(sInstanceLock);

    // Platform triple and own process name: written by init under mLock (or by getPlatformInfo
    // called directly), read without the lock once init has succeeded.
    TavroPlatformInfo mPlatform;
    Mutex mLock;
    std::string procName;
    std::shared_ptr<WhiteListCache> mCache GUARDED_BY(mLock);
    status_t mInitStatus GUARDED_BY(mLock) = NO_INIT;
    std::function<Clock::time_point()> mClock;  // empty: the real steady clock
};

}  // namespace android
