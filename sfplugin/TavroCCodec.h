// TavroCCodec: the maker's codec front-end, used by the media framework in place of the platform
// CCodec. Every platform operation is passed on to CCodec; around those calls it adds frame-rate
// telemetry, playback feedback, its own buffer channel, extra configure-time keys, and the media
// boost client driven by four private looper messages (bApp, cFps, cOpt, rOpt).
//
// Threads and locks: onMessageReceived runs on the codec's looper; the other operations on the
// callers' threads; the callback bridges on the buffer path's threads. Lock order: the base's
// state lock, then mBoostLock, never the reverse.
#pragma once

#include <stdint.h>

#include <atomic>
#include <list>
#include <memory>
#include <mutex>
#include <vector>

#include <C2Work.h>
#include <codec2/sfplugin/CCodec.h>
#include <codec2/sfplugin/InputSurfaceWrapper.h>
#include <media/stagefright/foundation/AMessage.h>
#include <media/stagefright/foundation/AString.h>
#include <utils/Errors.h>
#include <utils/RefBase.h>
#include <utils/String8.h>

namespace android {

class TavroAnalysisFPS;
class TavroCCodecBufferChannel;
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

// Boost state word (mBoostState) and execution flags of executeMediaBoost.
constexpr uint32_t kBoostStateNone = 1;     // no boost possible; every execution is refused
constexpr uint32_t kBoostStateArmed = 2;    // request armed, nothing sent
constexpr uint32_t kBoostStateThreads = 4;  // thread part sent
constexpr uint32_t kBoostStateCluster = 8;  // bit: cluster part sent (boost active)
constexpr uint32_t kBoostSendThreads = 0x4;
constexpr uint32_t kBoostSendCluster = 0x8;
constexpr uint32_t kBoostSendAll = 0xC;
constexpr uint32_t kBoostReleaseCluster = 0x20;
constexpr uint32_t kBoostReleaseAll = 0x30;

// HDR kinds held by the codec (0 none).
constexpr int32_t kHdrTypeNone = 0;
constexpr int32_t kHdrTypeHdr10 = 1;
constexpr int32_t kHdrTypeHlg = 2;
constexpr int32_t kHdrTypeHdr10Plus = 3;
constexpr int32_t kHdrTypeHdrVivid = 4;
constexpr int32_t kHdrTypeDolbyVision = 5;

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

class TavroCCodec : public CCodec {
  public:
    TavroCCodec();

    void initiateAllocateComponent(const sp<AMessage>& msg) override;
    // Configure pipeline: fills the members, runs the configuration steps in their fixed order
    // (each may add or change keys of `msg`) and hands `msg` to the base. Never fails.
    void initiateConfigureComponent(const sp<AMessage>& msg) override;
    void initiateShutdown(bool keepComponentAllocated = false) override;
    status_t setSurface(const sp<Surface>& surface, uint32_t generation) override;
    void signalFlush() override;
    void signalSetParameters(const sp<AMessage>& params) override;
    void reportOverLoadInfo() override;
    void onWorkDone(std::list<std::unique_ptr<C2Work>>& works) override;
    void setupInputSurface(const std::shared_ptr<InputSurfaceWrapper>& surface) override;

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
    void checkOperatingRate();
    void handleBoostApp(const sp<AMessage>& msg);

    // ---- Configure pipeline and its own rules -----------------------------------------------
    void configureEncoderOverrides(const sp<AMessage>& msg);
    void configureDolbyVision(const sp<AMessage>& msg);
    void configureThumbnail(const sp<AMessage>& msg);
    void configureInitialQp(const sp<AMessage>& msg);
    void configureFeedback(const sp<AMessage>& msg);
    void configureMtkColorConvert(const sp<AMessage>& msg);
    void configureBoostThreads(const sp<AMessage>& msg);
    void configureBatchMode(const sp<AMessage>& msg);

    // ---- Encoder rate control -----------------------------------------------------------------
    status_t setGopAndBitrate(const sp<AMessage>& format);
    status_t setBFrame(const sp<AMessage>& format);
    status_t configEncoderBitrateSavings(const sp<AMessage>& format);
    void configEncoderQpRange(const sp<AMessage>& format);

    // ---- Encoder and decoder tuning -----------------------------------------------------------
    status_t configEncoderPriority(const sp<AMessage>& format);
    status_t configDecoderPriority(const sp<AMessage>& format);
    status_t setUsageFlag(const sp<AMessage>& format);
    status_t configEncoderScene(const sp<AMessage>& format);
    status_t configEncoderFilter(const sp<AMessage>& format);

    // ---- Video post-processing selection -----------------------------------------------------
    status_t configTavroVppType(const sp<AMessage>& format);
    status_t configTavroVppTypeV2(const sp<AMessage>& format);
    status_t configTavroVppSwitchByApp(const sp<AMessage>& format);
    status_t checkHandleByActivity(const sp<AMessage>& format);

    // ---- Extension steps ----------------------------------------------------------------------
    status_t setExtParam(const sp<AMessage>& format);
    status_t setQtiExtParam(const sp<AMessage>& format);
    status_t configureInputDelay(const sp<AMessage>& format);
    status_t configureSWInputDelay(const sp<AMessage>& format);
    status_t configureTonemapFilter(const sp<AMessage>& format);
    bool getFilterEnableValue(const sp<AMessage>& format);

    // ---- Media boost client ---------------------------------------------------------------------
    void getBoostParams(const sp<AMessage>& msg);
    bool initVideoBoostParams();
    bool getMediaInfo(const sp<AMessage>& msg, TavroMediaInfo& info);
    bool parseBoostInfo(const TavroMediaInfo& info);
    // Called with the base's state lock held.
    void startMediaBoost();
    void executeMediaBoost(uint32_t flags);
    void boostAppKeyThread(const sp<AMessage>& params);

    // ---- HDR detection ------------------------------------------------------------------------
    void checkHDRType(std::list<std::unique_ptr<C2Work>>& works);

    TavroCCodecBufferChannel* tavroChannel() const;

    AString mComponentName;
    AString mMime;
    sp<TavroAnalysisFPS> mAnalysisFPS;
    int64_t mFeedbackID = 0;
    // Flags and counters shared by the callers' threads, the buffer path and the looper without a
    // lock: atomics with relaxed ordering (a doubled timer chain is tolerated).
    std::atomic<bool> mFpsCheckPosted{false};     // set by the bridges, cleared by shutdown
    std::atomic<bool> mFirstWorkDone{false};      // set by the work-done bridge
    std::atomic<int32_t> mHdrCheckedWorks{0};     // output works examined by checkHDRType
    std::atomic<int32_t> mHdrType{kHdrTypeNone};  // configure (Dolby Vision) and checkHDRType
    std::atomic<bool> isThumbnail{false};         // configure
    std::atomic<bool> mIsVideo{false};            // configure
    std::atomic<bool> mIsEncoder{false};          // configure
    int64_t mCallingPid = 0;
    int64_t mCallingUid = 0;
    String8 mProcessName;
    // Guards mVideoBoost, mBoostParams, mBoostState, mBoostTids and mClusterInfo writes.
    std::mutex mBoostLock;
    sp<TavroVideoBoost> mVideoBoost;
    std::shared_ptr<TavroVideoBoostParams> mBoostParams;
    // Replaced with std::atomic_store under mBoostLock; the work-done bridge reads it without the
    // lock through std::atomic_load.
    std::shared_ptr<TavroClusterInfo> mClusterInfo;
    std::vector<int32_t> mBoostTids;  // tp-ux-tid, configuring thread, looper thread
    std::atomic<int32_t> mCountedFps{0};
    std::atomic<int32_t> mOperatingRate{0};           // set-parameters, configure and watchdog
    std::atomic<int32_t> mRestoreOperatingRate{0};    // setExtParam at configure
    std::atomic<bool> mOperatingRateRestored{false};  // set by the render bridge
    uint32_t mBoostState = kBoostStateNone;
    std::atomic<int32_t> mEncodedFrames{0};  // counted by the work-done bridge, read by cOpt
};

}  // namespace android
