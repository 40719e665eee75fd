// TavroCCodec: the maker's codec front-end, used by the media framework in place of the platform
// CCodec. Every platform operation is passed on to CCodec; around those calls it adds frame-rate
// telemetry, playback feedback, its own buffer channel, extra configure-time keys, and the media
// boost client driven by four private looper messages (bApp, cFps, cOpt, rOpt).
//
// Threads and locks: onMessageReceived runs on the codec's looper; the other operations on the
// callers' threads; the callback bridges on the buffer path's threads. Lock order: the base's
// state lock, then mBoostLock, never the reverse. The locks are libutils' Mutex, whose annotations
// let clang's -Wthread-safety check every GUARDED_BY field and REQUIRES method below.
#pragma once

#include <stdint.h>

#include <array>
#include <atomic>
#include <list>
#include <memory>
#include <vector>

#include <C2Work.h>
#include <codec2/sfplugin/CCodec.h>
#include <codec2/sfplugin/InputSurfaceWrapper.h>
#include <media/stagefright/foundation/AMessage.h>
#include <media/stagefright/foundation/AString.h>
#include <utils/Errors.h>
#include <utils/Mutex.h>
#include <utils/RefBase.h>
#include <utils/String8.h>

#include "sfplugin/TavroConfigureSteps.h"
#include "sfplugin/TavroHdrInfo.h"

namespace android {

class TavroAnalysisFPS;
class TavroCCodecBufferChannel;
class TavroSessionRecorder;
class TavroVideoBoost;
class TavroVideoBoostParams;
struct TavroClusterInfo;
struct TavroMediaInfo;

constexpr uint32_t tavroFourCC(char a, char b, char c, char d) {
    return (static_cast<uint32_t>(static_cast<uint8_t>(a)) << 24) |
           (static_cast<uint32_t>(static_cast<uint8_t>(b)) << 16) |
           (static_cast<uint32_t>(static_cast<uint8_t>(c)) << 8) |
           static_cast<uint32_t>(static_cast<uint8_t>(d));
}

// Private looper messages, all addressed to the codec itself.
constexpr uint32_t kWhatBoostApp = tavroFourCC('b', 'A', 'p', 'p');
constexpr uint32_t kWhatCheckFps = tavroFourCC('c', 'F', 'p', 's');
constexpr uint32_t kWhatCheckOperatingRate = tavroFourCC('c', 'O', 'p', 't');
constexpr uint32_t kWhatResetOperatingRate = tavroFourCC('r', 'O', 'p', 't');

// Period of the frame-rate check and of the operating-rate watchdog, and the bApp delay.
constexpr int64_t kTavroCheckPeriodUs = 1000000;

// Execution flags of executeMediaBoost: which part of the boost request to send or release.
constexpr uint32_t kBoostSendThreads = 0x4;
constexpr uint32_t kBoostSendCluster = 0x8;
constexpr uint32_t kBoostSendAll = 0xC;
constexpr uint32_t kBoostReleaseCluster = 0x20;
constexpr uint32_t kBoostReleaseAll = 0x30;

// Where a codec's boost request stands. The values are those of the boost state word the boost
// log prints ("Execute media boost, state[0x%x]"), where 8 is added while the cluster part is sent.
enum class TavroBoostPhase : uint32_t {
    kUnavailable = 1,  // no boost client or an empty request: every execution is refused
    kArmed = 2,        // request armed, nothing sent; also after a full release
    kThreadsSent = 4,  // the start sent the thread part (alone or with the cluster part)
};
constexpr uint32_t kBoostClusterSentBit = 8;

// The boost state of one codec: guarded as a whole by TavroCCodec::mBoostLock (the member holding
// it is GUARDED_BY that lock, so every field access is checked).
struct TavroBoostState {
    sp<TavroVideoBoost> service;                     // the video boost service client
    std::shared_ptr<TavroVideoBoostParams> request;  // the request built at configure
    TavroBoostPhase phase = TavroBoostPhase::kUnavailable;
    bool clusterSent = false;   // the cluster part is active: the watchdog may release it
    std::vector<int32_t> tids;  // tp-ux-tid, configuring thread, looper thread

    uint32_t word() const {
        return static_cast<uint32_t>(phase) | (clusterSent ? kBoostClusterSentBit : 0u);
    }
};

// Format and telemetry keys used by the front-end itself.
constexpr char kKeyCodecInfo[] = "codecInfo";
constexpr char kKeyFormat[] = "format";
constexpr char kKeyOperatingRate[] = "operating-rate";
constexpr char kKeyTavroBoostInfo[] = "tavro-boost-info";
constexpr char kKeyAppThreads[] = "appThreads";
constexpr char kKeySched[] = "sched";
constexpr char kKeyCodecCreateTime[] = "codec-create-time";
constexpr char kKeyCodecAllocateOut[] = "codec-allocate-out";
constexpr char kKeyCodecConfigIn[] = "codec-config-in";
constexpr char kKeyCodecConfigOut[] = "codec-config-out";
constexpr char kKeyCodecStartIn[] = "codec-start-in";
constexpr char kKeyCodecStartOut[] = "codec-start-out";

// List names of the list service used by the front-end.
constexpr char kListDisableVideoShaper[] = "disable-video-shaper";
constexpr char kListVideoStatistics[] = "video-statistics";
constexpr char kListVideoEncoderStatistics[] = "video-encoder-statistics";

// Feedback items and events.
constexpr char kFeedbackTimeUsage[] = "timeUsage";
constexpr char kFeedbackInputCount[] = "inPutCount";
constexpr char kFeedbackOutputCount[] = "outPutCount";
constexpr int32_t kFeedbackHdrPlaybackEvent = 21004;

// The process whose surface input is not analysed.
constexpr char kProcessNoSurfaceAnalysis[] = "com.tavro.olc";

// Lifecycle log texts: the operation, then (filled in) its source line and the codec.
constexpr char kLogDestroy[] = "~TavroCCodec [%d]: (%p)";
constexpr char kLogDestroyEncoderNotUploaded[] = "[~TavroCCodec:L%d] IsNotUploadEncoderInfo ";
constexpr char kLogShutdown[] = "initiateShutdown [%d]: (%p) keepComponentAllocated=%d";
constexpr char kLogSetSurface[] = "setSurface [%d]: (%p) ";
constexpr char kLogSignalFlush[] = "signalFlush [%d]: (%p)";
constexpr char kLogSignalSetParameters[] = "signalSetParameters [%d]: (%p)";

class TavroCCodec : public CCodec {
  public:
    TavroCCodec();

    void initiateAllocateComponent(const sp<AMessage>& msg) override;
    // Configure pipeline: reads who the client is, runs kConfigureSteps in their fixed order
    // (each may add or change keys of `msg`), keeps their outcomes and hands `msg` to the base.
    // Never fails.
    void initiateConfigureComponent(const sp<AMessage>& msg) override;
    void initiateShutdown(bool keepComponentAllocated = false) override;
    status_t setSurface(const sp<Surface>& surface, uint32_t generation) override;
    void signalFlush() override;
    // Passed on unchanged; a recorded session needs to know when the client resumed.
    void signalResume() override;
    void signalSetParameters(const sp<AMessage>& params) override;
    void reportOverLoadInfo() override;
    void onWorkDone(std::list<std::unique_ptr<C2Work>>& works) override;
    void setupInputSurface(const std::shared_ptr<InputSurfaceWrapper>& surface) override;

    // Each row of kConfigureSteps with its status and, when it changed nothing, why: the outcome
    // of the last configure, in the table's order. Empty before the first configure. Any thread.
    std::vector<TavroConfigureStepResult> lastConfigureResults() const
            EXCLUDES(mConfigureResultsLock);

  protected:
    ~TavroCCodec() override;
    void onMessageReceived(const sp<AMessage>& msg) override;

  private:
    friend class CCodecCallbackImpl;
    friend class TavroCCodecCallbackImpl;
    friend class TavroCodecCallbackImpl;

    // ---- Lifecycle and watchdog -------------------------------------------------------------
    void postSelf(uint32_t what, int64_t delayUs);
    void updateAnalysis(const char* key, int64_t value);
    // Sends or releases the cluster part of the boost as the operating rate moves.
    void checkOperatingRate() EXCLUDES(mBoostLock);
    void handleBoostApp(const sp<AMessage>& msg) EXCLUDES(mBoostLock);

    // ---- Configure pipeline -----------------------------------------------------------------
    // What the steps may read, from the members and the calling thread.
    TavroConfigureContext configureContext() const;
    // Applies a step's hand-backs to the codec and to `ctx` for the steps after it.
    void applyConfigureOut(TavroConfigureOut* out, TavroConfigureContext* ctx) EXCLUDES(mBoostLock);

    // ---- Media boost client -------------------------------------------------------------------
    void getBoostParams(const sp<AMessage>& msg) EXCLUDES(mBoostLock);
    bool initVideoBoostParams() EXCLUDES(mBoostLock);
    bool getMediaInfo(const sp<AMessage>& msg, TavroMediaInfo& info);
    bool parseBoostInfo(const TavroMediaInfo& info) EXCLUDES(mBoostLock);
    // Called with the base's state lock held.
    void startMediaBoost() EXCLUDES(mBoostLock);
    void executeMediaBoost(uint32_t flags) EXCLUDES(mBoostLock);
    void executeMediaBoost_l(uint32_t flags) REQUIRES(mBoostLock);
    void boostAppKeyThread(const sp<AMessage>& params) EXCLUDES(mBoostLock);

    // ---- HDR detection ------------------------------------------------------------------------
    // With out-pointers, also hands back the infos it read from the first work's buffer.
    void checkHDRType(std::list<std::unique_ptr<C2Work>>& works,
                      std::shared_ptr<const C2Info>* colorAspects = nullptr,
                      std::shared_ptr<const C2Info>* hdr10Plus = nullptr);

    TavroCCodecBufferChannel* tavroChannel() const;

    // The session recording (debug.tavro.video.record), null unless on. Set in the constructor and
    // never changed, so every thread reads it without a lock.
    std::shared_ptr<TavroSessionRecorder> mRecorder;
    AString mComponentName;
    AString mMime;
    sp<TavroAnalysisFPS> mAnalysisFPS;
    int64_t mFeedbackID = 0;
    // Flags and counters shared by the callers' threads, the buffer path and the looper without a
    // lock: atomics with relaxed ordering.
    // One flag for both periodic checks: whichever of the first video input (cFps) or the first
    // counted encoder work (cOpt) flips it starts its chain, so a video encoder, whose first
    // input comes before its first work, never runs the cOpt chain; both chains keep running
    // while it stays set and stop at their next firing once shutdown clears it. Flipped with
    // exchange(true), so only one caller posts.
    std::atomic<bool> mFpsCheckPosted{false};
    std::atomic<bool> mFirstWorkDone{false};      // set by the work-done bridge
    std::atomic<int32_t> mHdrCheckedWorks{0};     // output works examined by checkHDRType
    std::atomic<int32_t> mHdrType{kHdrTypeNone};  // configure (Dolby Vision) and checkHDRType
    std::atomic<bool> isThumbnail{false};         // configure
    std::atomic<bool> mIsVideo{false};            // configure
    std::atomic<bool> mIsEncoder{false};          // configure
    int64_t mCallingPid = 0;
    int64_t mCallingUid = 0;
    String8 mProcessName;

    // Lock order: the base's state lock, then mBoostLock; never the reverse.
    Mutex mBoostLock;
    TavroBoostState mBoost GUARDED_BY(mBoostLock);
    // The cluster half of the boost decision: replaced with std::atomic_store under mBoostLock;
    // the work-done bridge reads it without the lock through std::atomic_load.
    std::shared_ptr<TavroClusterInfo> mClusterInfo;
    std::atomic<int32_t> mCountedFps{0};
    std::atomic<int32_t> mOperatingRate{0};           // set-parameters, configure and watchdog
    std::atomic<int32_t> mRestoreOperatingRate{0};    // setExtParam at configure
    std::atomic<bool> mOperatingRateRestored{false};  // set by the render bridge
    std::atomic<int32_t> mEncodedFrames{0};  // counted by the work-done bridge, read by cOpt

    mutable Mutex mConfigureResultsLock;
    std::array<TavroConfigureStepResult, kConfigureStepCount> mConfigureResults
            GUARDED_BY(mConfigureResultsLock);
    bool mConfigured GUARDED_BY(mConfigureResultsLock) = false;
};

}  // namespace android
