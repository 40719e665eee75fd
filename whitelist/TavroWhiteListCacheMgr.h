// TavroWhiteListCacheMgr: the process-wide boost white list. For a codec being configured it finds
// the boost rule that applies (debug properties, the maker's list service, built-in defaults),
// keeps list answers cached for 43201 s, matches the rule's conditions against the media and the
// device, and hands out the scheduling and CPU-cluster halves of the decision. Called by the
// codec's boost client on its looper thread; any number of codecs may call at once.
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
// Locking: one plain mutex, mLock, guards mCache (the map and the process entry). The list-service
// queries for one entry are made with it held; the name-list fetch of the mediaserver refresh is
// not. Cached entries are never changed once stored: a refresh stores a new entry in place of the
// old, so an entry handed out stays alive and unchanged while the caller reads it without the lock.
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
#include <mutex>
#include <string>
#include <vector>

#include <utils/Errors.h>

#include "whitelist/TavroBoostInfo.h"
#include "whitelist/TavroClusterParams.h"
#include "whitelist/TavroMediaInfo.h"

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
// Parsing.
constexpr char kLogParseBoostInfo[] = "parseBoostInfo, %s";
constexpr char kLogKeyValue[] = "key=value: %s";
constexpr char kLogParseStrByDelim[] = "parseStrByDelim, str: %s, delim: %c";
// Matching.
constexpr char kLogConfigStr[] = "Config info: [%s], media info: [%s]";
constexpr char kLogConfigInt[] = "Config info: [%d], media info: [%d]";
constexpr char kLogPrecheckCodecId[] = "Precheck, Media codecId: %d, need boost codecId: %d";
constexpr char kLogPrecheckIsEncoder[] = "Precheck, Media isEncoder: %d, need boost isEncoder: %d";
constexpr char kLogTrackMismatch[] =
        "Current track is [%s], target is [%d](1:video, 0: audio, -1:V/A)";
constexpr char kLogNeedToBoost[] = "Precheck, need to boost[%s]";
// Probing.
constexpr char kLogPropertyValue[] = "property[%s] return value[%d]";
constexpr char kLogNoVendor[] = "Failed to get vendor info";
constexpr char kLogNoSoc[] = "Failed to get soc info";
constexpr char kLogNoProject[] = "Failed to get project info";
constexpr char kLogPlatform[] = "vendor: %s, soc: %s, project: %s";
constexpr char kLogFilePathEmpty[] = "File path is empty.";
constexpr char kLogOpenFileFailed[] = "Failed to open file: %s, error: %s";
constexpr char kLogThreadIdByName[] = "getThreadIdByName, PID: %d";
constexpr char kLogOpenDirFailed[] = "Fail to open directory[%s]";
constexpr char kLogMatchThread[] = "Find match thread[%s], id[%s]";
// Cluster opcodes.
constexpr char kLogEnablePreferIdle[] = "Enable preferIdle";
constexpr char kLogClusterMinFreq[] = "Cluster num: %d, cpu min freq: %d";
constexpr char kLogPeltHalflife[] = "Set pelt hallife: %d";
constexpr char kLogScreenOff[] = "Enable screen off state";

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
                      TavroClusterInfo& cluster);
    // The codec keeps its cluster half as a shared record: this fills the pointed-to record in
    // place (a null pointer first gets a fresh record, so it can always be dereferenced after the
    // call). The caller owns the record's synchronisation.
    void getBoostInfo(int32_t pid, const TavroMediaInfo& media, TavroUxInfo& ux,
                      std::shared_ptr<TavroClusterInfo>& cluster);

    // ---- Cache operations (any thread) ----------------------------------------------------------

    // Reads the platform triple and the own process name and builds the cache with its defaults,
    // once. False while either probe fails; every later call tries again until one succeeds.
    bool init();
    // A private entry parsed from property `name`; null when the property is empty. A rejected
    // string gives an entry with an empty string and is reported in `*rejected`.
    BoostInfoPtr loadDebugInfo(const std::string& name, std::string* rejected = nullptr);
    // The own process's entry (app scenario): cached, refreshed from "media-sched-boost" by the
    // own uid when stale. Null when there is no usable string.
    BoostInfoPtr getProcBoostInfo(std::string* rejected = nullptr);
    // The entry of activity/app `name` from "mediaserver-boost" (`byName`, stored in the map), or
    // of the own process's top activity from "venc-cpu-boost"/"vdec-cpu-boost" (not `byName`,
    // never stored, so asked at every call). Null when the service has no answer.
    BoostInfoPtr getActivityBoostInfo(const std::string& name, bool isEncoder, bool byName,
                                      std::string* rejected = nullptr);
    // Exact lookup in the activity map; null for an empty or unknown name.
    BoostInfoPtr findActivityBoostInfo(const std::string& name);
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
    void checkMediaserverBoostInfo(std::vector<std::string>* rejected = nullptr);
    // The entry for client process `pid` by its name, else the first fitting '#' entry; null
    // when none fits `media`.
    BoostInfoPtr getMediaserverBoostInfo(int32_t pid, const TavroMediaInfo& media);

    // ---- Boost-info strings (no manager state; any thread) --------------------------------------

    // Fills info->condition, info->uxInfo and info->clusterInfo from `str`; never touches
    // boostStrInfo, isValid, isDefault or cacheTime. An empty string or a null `info` changes
    // nothing and returns true. Malformed items are skipped and bad numbers read as 0. Returns
    // false only when "schedVideo" or "schedAudio" is present but not a base-10 int32; the
    // record then holds a partial parse and must not be used.
    [[nodiscard]] static bool parseBoostInfo(const std::string& str, const BoostInfoPtr& info);
    // Splits at ',' into key -> value: first '=' cuts, no trimming, items with an empty key or
    // value or without '=' are skipped, a later key wins. Keeps entries already in `out`.
    static void parseKeyValueString(const std::string& str,
                                    std::map<std::string, std::string>& out);
    // Splits at `delim`, dropping empty pieces. An empty `str` leaves `out` as it was; otherwise
    // `out` is replaced.
    static void parseStrByDelim(const std::string& str, char delim, std::vector<std::string>& out);
    // Empties `out`, then appends the atoi value of every '+'-separated piece.
    static void parseNumericString(const std::string& str, std::vector<int32_t>& out);
    // Replaces `tids` with the ids of the own process's threads named in info->uxInfo.threadName.
    static void parseBoostThread(const BoostInfoPtr& info, std::vector<int32_t>& tids);
    // Debug dump of `info` at log level 7.
    static void printMediaBoostInfo(const BoostInfoPtr& info);

    // ---- Matching (reads the platform triple without a lock: set once by init) ------------------

    // True when a rule's condition fits the device and `media`: platform, then the common media
    // checks, then the track's limits; false at the first mismatch, explained at log level 7.
    // Empty strings, zero limits and -1 flags of the condition never exclude.
    bool checkPrecondition(const TavroMediaInfo& media, const BoostConditionInfo& condition) const;
    // Only the soc, vendor and project comparisons; `media` is not read.
    bool checkPlatformInfo(const TavroMediaInfo& media, const BoostConditionInfo& condition) const;
    // Mime and component lists, bit-rate lower bound, codec id (0 = any), encoder flag (-1 =
    // either).
    static bool checkAVCommonInfo(const TavroMediaInfo& media, const BoostConditionInfo& condition);
    // Video: width x height areas compared as a lower bound; audio: sample rate, sample bits and
    // channel count. Areas are signed 32-bit products: one that does not fit (only absurd
    // sizes) is a fatal error of the process, LOG_ALWAYS_FATAL, never a silent wrap.
    static bool checkAVInfo(const TavroMediaInfo& media, const BoostConditionInfo& condition);
    // True when `config` or `actual` is empty or `actual` occurs in `config` as a substring.
    static bool cmpStrConfigParam(const std::string& config, const std::string& actual);
    // False only when both are >= 1 and actual < config (a lower bound; <= 0 means none/unknown).
    static bool cmpIntConfigParam(int32_t config, int32_t actual);
    // Copies the scheduling half of a fitting entry into `ux` (thread names resolved to tids).
    void getUxInfo(const TavroMediaInfo& media, const BoostInfoPtr& info, TavroUxInfo& ux) const;
    // Copies the cluster half of a fitting entry into `cluster`: video needs an entry with
    // isVideo != 0, audio one with isVideo == 0 exactly.
    void getClusterInfo(const TavroMediaInfo& media, const BoostInfoPtr& info,
                        TavroClusterInfo& cluster) const;

    // ---- Cluster opcodes (no manager state; any thread) -----------------------------------------

    // Empties `out` and appends the Qualcomm encoding, whatever the platform.
    static void parseClusterInfo(const TavroClusterInfo& info, std::vector<int32_t>& out);
    // Append (opcode, value) pairs; neither clears `out`.
    static void parseQcomClusterInfo(const TavroClusterInfo& info, std::vector<int32_t>& out);
    static void parseMtkClusterInfo(const TavroClusterInfo& info, std::vector<int32_t>& out);

    // ---- Probing --------------------------------------------------------------------------------

    // The property's value; empty when unset or empty.
    static std::string getProperty(const std::string& key);
    // Fills vendor, soc and project from "ro.hardware", "ro.build.device_family",
    // "ro.boot.prjname"; cached once all three are non-empty. A failed step keeps what the earlier
    // steps read. Writes without a lock: init calls it under mLock.
    bool getPlatformInfo();
    // First command-line argument of process `pid` from <proc root>/<pid>/cmdline.
    static bool getProcNameByPid(int32_t pid, std::string& name);
    // First line of the file at `path`, cut at its first NUL. False (with `name` untouched) when
    // the file cannot be opened; false when the line is empty.
    static bool getThreadName(const std::string& path, std::string& name);
    // Appends to `tids` the ids of threads of `pid` whose comm contains one of `names` (an empty
    // name matches every thread). Does not clear `tids`; true when it is non-empty afterwards.
    static bool getThreadIdByName(int32_t pid, const std::vector<std::string>& names,
                                  std::vector<int32_t>& tids);

    // ---- Test hooks -----------------------------------------------------------------------------

    // Replaces the steady clock used for cache times and timeouts; an empty function restores the
    // real clock. Set it while no other thread uses the manager; the function itself may be
    // called from any thread.
    void setClockForTesting(std::function<Clock::time_point()> clock);
    // Forgets everything: an empty cache, init status back to NO_INIT, empty platform triple and
    // process name. The clock hook is kept. Not to be called while other threads use the manager.
    void resetForTesting();

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
    // Stores the built-in defaults of the current scenario. REQUIRES(mLock).
    void loadDefaultBoostInfo_l();
    // A new entry that keeps the cache fields of `from` (or a fresh one for null).
    static BoostInfoPtr copyEntry(const BoostInfoPtr& from);
    // Sets boostStrInfo and parses `answer` into `entry`; on a rejected string the entry is left
    // as an empty answer and the string goes to `*rejected`.
    static void applyAnswer(const BoostInfoPtr& entry, const std::string& answer,
                            std::string* rejected);

    static std::mutex sInstanceLock;
    static TavroWhiteListCacheMgr* sInstance;

    // Platform triple and own process name: written by init under mLock (or by the probes
    // called directly), read without the lock once init has succeeded.
    std::string vendor;
    std::string soc;
    std::string project;
    std::mutex mLock;
    std::string procName;
    std::shared_ptr<WhiteListCache> mCache;     // GUARDED_BY(mLock)
    status_t mInitStatus = NO_INIT;             // GUARDED_BY(mLock)
    std::function<Clock::time_point()> mClock;  // empty: the real steady clock
};

}  // namespace android
