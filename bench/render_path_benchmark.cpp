// Per-frame cost of the buffer channel: queue + work done + render (or discard) of one frame,
// through TavroCCodecBufferChannel with fast-forward tracking on, against the bare host
// CCodecBufferChannel that only forwards. Each program run warms up with 10 000 frames of the
// clip (first-time stamps, the first content-rate write and, at 2x, entering fast mode all happen
// there), then times the steady state one frame per iteration.
//
// Targets: the channel's added cost per frame within 2x of the bare forward and under 1 us, and
// no heap allocation added per frame. Both variants allocate the C2Work the platform hands over
// (work, worklet, list node), so the bare variant's allocs/frame is the baseline.
//
// The *_NoopAnalysis rows isolate our own code: the maker's analysis object (on host, a stand-in
// counting every call) becomes one whose per-frame calls do nothing, and the bare side makes the
// same per-frame calls into it that the channel makes by design. Their difference is the cost of
// this library alone, held to 50 ns per frame.
//
// Session recording: every row above runs with it off, its per-frame hook included (one relaxed
// load of a null pointer). The *_Recording rows turn it on (into a scratch directory, cap lifted so
// that every frame is kept, producers waiting for the writer rather than dropping frames) and feed
// each finished work to the recorder as the codec does. Their time is the frame path's own; the
// background writer's CPU time per frame is the "writer_ns" counter. The recording's off cost on
// its own: BM_FrameRecordHookOff is the hook a frame site runs with recording off (a relaxed load
// of the null recorder, then nothing), next to BM_FrameLogGateOff, the cached gate of a closed
// verbose log line that the same sites already pay; it must cost no more.
#define LOG_NDEBUG 0  // the verbose line below is compiled in, as the library's sites are
#include <benchmark/benchmark.h>

#include <stdint.h>
#include <stdlib.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <list>
#include <memory>
#include <string>

#include <C2Work.h>
#include <codec2/sfplugin/CCodecBufferChannel.h>
#include <codec2/sfplugin/TavroCCodecCallback.h>
#include <host/HostClock.h>
#include <host/HostEvents.h>
#include <host/HostLog.h>
#include <host/HostProperties.h>
#include <log/log.h>
#include <media/MediaCodecBuffer.h>
#include <media/stagefright/foundation/ABuffer.h>
#include <media/stagefright/foundation/AMessage.h>
#include <tavro/TavroAnalysisFPS.h>

#include "common/TavroLog.h"
#include "sfplugin/TavroCCodecBufferChannel.h"
#include "sfplugin/TavroSessionRecorder.h"
#include "support/AllocCounter.h"

namespace android {
namespace {

constexpr int kWarmupFrames = 10000;

class NullCodecCallback : public CCodecCallback {
  public:
    void onError(status_t, enum ActionCode) override {}
    void onOutputFramesRendered(int64_t, nsecs_t) override {}
    void onOutputBuffersChanged() override {}
    void onFirstTunnelFrameReady() override {}
};

class NullTavroCallback : public TavroCCodecCallback {
  public:
    void onQueueInputBuffer() override {}
    void onWorkDone(const sp<AMessage>&) override {}
    void renderOutputBuffer(const sp<MediaCodecBuffer>&, int64_t) override {}
};

// One clip: content at `fps`, shown at `speed`, every `dropEvery`-th frame discarded (0: none).
struct Clip {
    double fps;
    double speed;
    int dropEvery;
};

// The analysis object with every per-frame call empty.
class NoopAnalysisFPS : public TavroAnalysisFPS {
  public:
    void statsBufferSize(int64_t) override {}
    void inputBuffer(const sp<MediaCodecBuffer>&) override {}
    void renderBuffer(int64_t) override {}
    void discardBuffer() override {}
    void outputBuffer() override {}
    int32_t getVideoScanType() override { return 1; }
    int32_t getNeedCheckScanType() override { return 0; }
};

enum class Side { kBare, kTavro };

// Plays frames of a clip into a channel, one call per frame. With `bareAnalysis`, the bare side
// also makes the channel's per-frame calls into that object.
class FramePump {
  public:
    FramePump(CCodecBufferChannel* channel, const Clip& clip,
              const sp<TavroAnalysisFPS>& bareAnalysis, TavroSessionRecorder* recorder)
        : mChannel(channel),
          mBareAnalysis(bareAnalysis),
          mRecorder(recorder),
          mClip(clip),
          mPtsStepUs(1e6 / clip.fps),
          mDisplayStepNs(1e9 / clip.fps / clip.speed) {
        sp<ABuffer> bytes = new ABuffer(static_cast<size_t>(4096));
        mInput = new MediaCodecBuffer(new AMessage(), bytes);
        mOutput = new MediaCodecBuffer(new AMessage(), new ABuffer(static_cast<size_t>(16)));
    }

    void frame() {
        host::HostClock::advance(static_cast<int64_t>(mDisplayStepNs));
        mPtsUs += mPtsStepUs;
        mRenderNs += mDisplayStepNs;
        ++mIndex;
        if (mBareAnalysis != nullptr) {
            mBareAnalysis->statsBufferSize(static_cast<int64_t>(mInput->size()));
            mBareAnalysis->inputBuffer(mInput);
            mBareAnalysis->outputBuffer();
        }
        mChannel->queueInputBuffer(mInput);

        auto work = std::make_unique<C2Work>();
        work->input.ordinal.frameIndex = c2_cntr64_t(mIndex);
        work->worklets.push_back(std::make_unique<C2Worklet>());
        work->worklets.front()->output.ordinal.frameIndex = c2_cntr64_t(mIndex);
        if (mRecorder != nullptr) mRecorder->onOutput(*work, nullptr, nullptr);
        mChannel->onWorkDone(std::move(work), mFormat, nullptr);

        mOutput->meta()->setInt64("timeUs", static_cast<int64_t>(mPtsUs));
        if (mClip.dropEvery > 0 && mIndex % mClip.dropEvery == 0) {
            if (mBareAnalysis != nullptr) mBareAnalysis->discardBuffer();
            mChannel->discardBuffer(mOutput);
        } else {
            if (mBareAnalysis != nullptr)
                mBareAnalysis->renderBuffer(static_cast<int64_t>(mRenderNs));
            mChannel->renderOutputBuffer(mOutput, static_cast<int64_t>(mRenderNs));
        }
    }

  private:
    CCodecBufferChannel* mChannel;
    sp<TavroAnalysisFPS> mBareAnalysis;
    TavroSessionRecorder* mRecorder;
    Clip mClip;
    double mPtsStepUs;
    double mDisplayStepNs;
    double mPtsUs = 0;
    double mRenderNs = 5e9;
    uint64_t mIndex = 0;
    sp<MediaCodecBuffer> mInput;
    sp<MediaCodecBuffer> mOutput;
    sp<AMessage> mFormat = new AMessage();
};

// Nothing recorded, nothing printed: the host recorders must not be what is measured.
void quietHost() {
    host::HostProperties::clear();
    host::HostEvents::setEnabled(false);
    host::HostEvents::clear();
    host::HostLog::setStderrPriority(ANDROID_LOG_SILENT);
    host::HostLog::setCapacity(0);
    host::HostClock::useManual();
}

int64_t cpuNs(clockid_t clock) {
    timespec t{};
    clock_gettime(clock, &t);
    return static_cast<int64_t>(t.tv_sec) * 1000000000 + t.tv_nsec;
}

void run(benchmark::State& state, const Clip& clip, Side side, bool noopAnalysis,
         bool recording = false) {
    quietHost();
    std::string dir;
    std::shared_ptr<TavroSessionRecorder> recorder;
    if (recording) {
        char templ[] = "/tmp/tavro-bench-record-XXXXXX";
        if (mkdtemp(templ) == nullptr) {
            state.SkipWithError("no scratch directory");
            return;
        }
        dir = templ;
        TavroSessionRecorder::setLosslessForTesting(true);
        recorder = TavroSessionRecorder::create(dir, int64_t{1} << 40);
        if (recorder == nullptr) {
            state.SkipWithError("recorder refused the scratch directory");
            return;
        }
        recorder->onAllocate("c2.bench.decoder");
    }
    auto baseCallback = std::make_shared<NullCodecCallback>();
    std::shared_ptr<CCodecBufferChannel> channel;
    sp<TavroAnalysisFPS> analysis = noopAnalysis ? new NoopAnalysisFPS() : new TavroAnalysisFPS();
    analysis->setVideoScanTypeForTesting(1);
    if (side == Side::kTavro) {
        auto tavroChannel = std::make_shared<TavroCCodecBufferChannel>(
                baseCallback, std::make_shared<NullTavroCallback>(), analysis);
        tavroChannel->cheekFFModeStatus(true, 0);
        tavroChannel->setFeedbackId(1);
        if (recorder != nullptr) tavroChannel->setSessionRecorder(recorder);
        channel = tavroChannel;
    } else {
        channel = std::make_shared<CCodecBufferChannel>(baseCallback);
    }
    FramePump pump(channel.get(), clip,
                   side == Side::kBare && noopAnalysis ? analysis : sp<TavroAnalysisFPS>(),
                   recorder.get());
    for (int i = 0; i < kWarmupFrames; ++i) pump.frame();

    const uint64_t paramsBefore = channel->countersForTesting().setParameters;
    const uint64_t before = tavro_bench::allocationCount();
    const int64_t processBefore = cpuNs(CLOCK_PROCESS_CPUTIME_ID);
    const int64_t threadBefore = cpuNs(CLOCK_THREAD_CPUTIME_ID);
    for (auto _ : state) pump.frame();
    const double frames = static_cast<double>(state.iterations());
    // Allocations are counted process-wide: with recording on they include the writer's.
    const double allocations = static_cast<double>(tavro_bench::allocationCount() - before);
    state.counters["allocs/frame"] = benchmark::Counter(allocations / frames);
    state.counters["param_writes"] = benchmark::Counter(
            static_cast<double>(channel->countersForTesting().setParameters - paramsBefore));
    state.SetItemsProcessed(state.iterations());
    if (recorder != nullptr) {
        recorder->onDestroy();
        channel.reset();
        recorder.reset();
        TavroSessionRecorder::waitForWritersForTesting();
        // The writer's CPU time from the first timed frame until the file is finished: every
        // process thread but this one.
        const int64_t others = (cpuNs(CLOCK_PROCESS_CPUTIME_ID) - processBefore) -
                               (cpuNs(CLOCK_THREAD_CPUTIME_ID) - threadBefore);
        state.counters["writer_ns"] = benchmark::Counter(static_cast<double>(others) / frames);
        TavroSessionRecorder::setLosslessForTesting(false);
        std::error_code ignored;
        std::filesystem::remove_all(dir, ignored);
    }
    host::HostClock::useReal();
}

const Clip kSteady30{30, 1.0, 0};
const Clip kDouble{30, 2.0, 0};
const Clip kDoubleWithDrops{30, 2.0, 4};

// Name, clip, analysis object: the stand-in that counts, or the empty one.
#define TAVRO_FRAME_ROWS(Name, ClipValue, Noop)            \
    void BM_BareForward_##Name(benchmark::State& state) {  \
        run(state, ClipValue, Side::kBare, Noop);          \
    }                                                      \
    void BM_TavroChannel_##Name(benchmark::State& state) { \
        run(state, ClipValue, Side::kTavro, Noop);         \
    }                                                      \
    BENCHMARK(BM_BareForward_##Name);                      \
    BENCHMARK(BM_TavroChannel_##Name);

TAVRO_FRAME_ROWS(Steady30, kSteady30, false)
TAVRO_FRAME_ROWS(Speed2x, kDouble, false)
TAVRO_FRAME_ROWS(Speed2xDrops, kDoubleWithDrops, false)
TAVRO_FRAME_ROWS(Steady30_NoopAnalysis, kSteady30, true)
TAVRO_FRAME_ROWS(Speed2x_NoopAnalysis, kDouble, true)
TAVRO_FRAME_ROWS(Speed2xDrops_NoopAnalysis, kDoubleWithDrops, true)

void BM_TavroChannel_Steady30_Recording(benchmark::State& state) {
    run(state, kSteady30, Side::kTavro, false, true);
}
void BM_TavroChannel_Steady30_NoopAnalysis_Recording(benchmark::State& state) {
    run(state, kSteady30, Side::kTavro, true, true);
}
BENCHMARK(BM_TavroChannel_Steady30_Recording);
BENCHMARK(BM_TavroChannel_Steady30_NoopAnalysis_Recording);

// The off hooks alone. ClobberMemory makes each iteration load again, as each frame does.
void BM_FrameLogGateOff(benchmark::State& state) {
    quietHost();
    int64_t pts = 0;
    tavroLogLevel("0");
    const uint64_t before = tavro_bench::allocationCount();
    for (auto _ : state) {
        TAVRO_LOGV(6, "input pts %lld", static_cast<long long>(++pts));
        benchmark::ClobberMemory();
    }
    state.counters["allocs/op"] =
            benchmark::Counter(static_cast<double>(tavro_bench::allocationCount() - before) /
                               static_cast<double>(state.iterations()));
}
BENCHMARK(BM_FrameLogGateOff);

void BM_FrameRecordHookOff(benchmark::State& state) {
    quietHost();
    std::atomic<TavroSessionRecorder*> recorder{nullptr};
    int64_t pts = 0;
    const uint64_t before = tavro_bench::allocationCount();
    for (auto _ : state) {
        ++pts;
        if (TavroSessionRecorder* r = recorder.load(std::memory_order_relaxed)) {
            r->onInput(pts, 4096, false);
        }
        benchmark::ClobberMemory();
    }
    state.counters["allocs/op"] =
            benchmark::Counter(static_cast<double>(tavro_bench::allocationCount() - before) /
                               static_cast<double>(state.iterations()));
}
BENCHMARK(BM_FrameRecordHookOff);

}  // namespace
}  // namespace android

BENCHMARK_MAIN();
