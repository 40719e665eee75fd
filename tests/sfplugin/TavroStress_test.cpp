// Many codecs on many threads in one process: each codec runs on a looper thread of its own and is
// driven by a thread of its own through configure, start, frames with speed changes, operating
// rate moves, flushes, shutdown and destruction, while one more thread keeps pushing the white
// list's clock past its cache timeout and another flips the log level. Run under TSan by the test
// command; scripts/stress.sh runs it longer (TAVRO_STRESS_ROUNDS, _FRAMES, _CODECS).
//
// Boost accounting: the video boost service is process-wide and its requests carry no codec
// identity (a cluster-only request has no thread ids, a release has only its flags). Every call a
// codec makes to the service runs either on its driver thread (set-parameters, which moves the
// operating rate) or on its own looper thread (start, timers), so each request is attributed to
// the codec whose thread made it, through a thread-local index that the driver sets for itself
// and that the first message on each looper sets for the looper thread.
#include <gtest/gtest.h>

#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <C2Work.h>
#include <host/HostClock.h>
#include <host/HostEvents.h>
#include <host/HostListService.h>
#include <host/HostLog.h>
#include <host/HostProperties.h>
#include <media/MediaCodecBuffer.h>
#include <media/MediaCodecInfo.h>
#include <media/stagefright/foundation/ABuffer.h>
#include <media/stagefright/foundation/AHandler.h>
#include <media/stagefright/foundation/ALooper.h>
#include <media/stagefright/foundation/AMessage.h>
#include <tavro/TavroVideoBoost.h>

#include "common/TavroLog.h"
#include "sfplugin/TavroCCodec.h"
#include "sfplugin/TavroCCodecBufferChannel.h"
#include "support/CodecTestHarness.h"
#include "whitelist/TavroSystemProbe.h"
#include "whitelist/TavroWhiteListCacheMgr.h"

namespace android {
namespace {

constexpr int64_t kMsNs = 1000000;
constexpr int32_t kLimitOpRate = 30;
constexpr float kFastRate = 60.0f;
constexpr float kSlowRate = 10.0f;
constexpr char kTopActivity[] = "stress.app/.Player";
// The white list trusts an answer for 43201 s; each jump of its clock outlasts that.
constexpr std::chrono::seconds kCacheJump{43202};

int envInt(const char* name, int fallback) {
    const char* text = getenv(name);
    if (text == nullptr || *text == '\0') return fallback;
    const int value = atoi(text);
    return value > 0 ? value : fallback;
}

// Index of the codec whose thread this is; -1 on any other thread.
thread_local int tCodec = -1;

enum class Kind { kVideoDecoder, kVideoEncoder, kAudioDecoder };

Kind kindOf(int index) {
    if (index % 8 == 6) return Kind::kVideoEncoder;
    if (index % 8 == 7) return Kind::kAudioDecoder;
    return Kind::kVideoDecoder;
}

// What the boost service saw from the codecs of one index, in order; '|' starts a new codec.
struct Ledger {
    std::mutex lock;
    std::string events;  // 'T' thread part, 'C' cluster part, 'W' whole request, 'R' cluster
                         // release, 'A' release all, 'K' key-thread task, '?' unreadable parcel
    int balance = 0;     // cluster parts sent minus released, for the current codec
    int violations = 0;  // a release with nothing sent, or a second cluster part
    bool started = false;

    // Called by the driver between two codecs, while no thread of either makes requests.
    void newCodec() {
        std::lock_guard<std::mutex> guard(lock);
        if (started) events.push_back('|');
        started = true;
        balance = 0;
    }
};

// The requests a decoder makes when the only rate moves are `rates` (set-parameters from the
// driver; no watchdog runs without "countFps"): the thread part at start, where the rate is 0,
// then a cluster part each time the rate reaches the limit and a release each time it drops below.
std::string expectedDecoderRequests(const std::vector<float>& rates) {
    std::string out = "T";
    bool active = false;
    for (float rate : rates) {
        const int32_t r = static_cast<int32_t>(rate);
        if (active && r < kLimitOpRate) {
            out.push_back('R');
            active = false;
        } else if (!active && r >= kLimitOpRate) {
            out.push_back('C');
            active = true;
        }
    }
    return out;
}

std::vector<std::string> splitCodecs(const std::string& events) {
    std::vector<std::string> out(1);
    for (char c : events) {
        if (c == '|') {
            out.emplace_back();
        } else {
            out.back().push_back(c);
        }
    }
    return out;
}

// Shared by every thread of one run. Progress ticks drive the clock-jump and log-flip threads, so
// they act while codecs run instead of spinning.
struct World {
    explicit World(int codecs) : ledgers(codecs) {}
    std::vector<Ledger> ledgers;
    std::atomic<int> unattributed{0};
    std::mutex progressLock;
    std::condition_variable progressChanged;
    uint64_t progress = 0;  // guarded by progressLock
    bool finished = false;  // guarded by progressLock
    std::atomic<int64_t> whiteListOffsetNs{0};

    void tick() {
        {
            std::lock_guard<std::mutex> guard(progressLock);
            ++progress;
        }
        progressChanged.notify_all();
    }
    void finish() {
        {
            std::lock_guard<std::mutex> guard(progressLock);
            finished = true;
        }
        progressChanged.notify_all();
    }
    // Waits until progress passes `target` or the run ends; false once it has ended.
    bool waitFor(uint64_t target) {
        std::unique_lock<std::mutex> guard(progressLock);
        progressChanged.wait(guard, [&] { return finished || progress >= target; });
        return !finished;
    }
};

World* gWorld = nullptr;

void onHostEvent(const host::HostEvent& event) {
    const bool boost = event.kind == "boost";
    const bool unboost = event.kind == "unboost";
    const bool task = event.kind == "task_boost";
    if (!boost && !unboost && !task) return;
    World* world = gWorld;
    if (world == nullptr) return;
    if (tCodec < 0 || static_cast<size_t>(tCodec) >= world->ledgers.size()) {
        world->unattributed.fetch_add(1);
        return;
    }
    Ledger& ledger = world->ledgers[tCodec];
    std::lock_guard<std::mutex> guard(ledger.lock);
    if (task) {
        ledger.events.push_back('K');
        return;
    }
    if (unboost) {
        const std::string flags = event.field("flags");
        if (flags == "0x20") {
            ledger.events.push_back('R');
            if (ledger.balance != 1) ++ledger.violations;
            ledger.balance = 0;
        } else {
            ledger.events.push_back('A');
            ledger.balance = 0;
        }
        return;
    }
    // Decode the request the service received.
    const std::string hex = event.field("parcel");
    std::vector<uint8_t> bytes;
    auto nibble = [](char c) { return c <= '9' ? c - '0' : c - 'a' + 10; };
    for (size_t i = 0; i + 1 < hex.size(); i += 2) {
        bytes.push_back(static_cast<uint8_t>(nibble(hex[i]) * 16 + nibble(hex[i + 1])));
    }
    const test::SentBoost sent =
            test::decodeBoost({TavroVideoBoost::Request::kBoost, std::move(bytes), 0});
    ledger.events.push_back(sent.letter());
    if (!sent.readable) {
        ++ledger.violations;
        return;
    }
    if (sent.letter() == 'T') return;
    if (ledger.balance != 0) ++ledger.violations;
    ledger.balance = 1;
}

// Registered on each codec's looper next to the codec: its first message tells the looper thread
// which codec it serves, and every message it gets marks that the codec's earlier messages have
// all been handled (the looper delivers in posting order among messages already due).
class Fence : public AHandler {
  public:
    explicit Fence(int codec) : mCodec(codec) {}

    void pass() {
        uint64_t target;
        {
            std::lock_guard<std::mutex> guard(mLock);
            target = ++mPosted;
        }
        (new AMessage(0, this))->post();
        std::unique_lock<std::mutex> guard(mLock);
        mDelivered.wait(guard, [&] { return mSeen >= target; });
    }

  protected:
    void onMessageReceived(const sp<AMessage>&) override {
        tCodec = mCodec;
        {
            std::lock_guard<std::mutex> guard(mLock);
            ++mSeen;
        }
        mDelivered.notify_all();
    }

  private:
    const int mCodec;
    std::mutex mLock;
    std::condition_variable mDelivered;
    uint64_t mPosted = 0;  // guarded by mLock
    uint64_t mSeen = 0;    // guarded by mLock
};

struct Settings {
    int codecs;
    int rounds;
    int frames;
};

// The operating rates the driver sets in one round, in order: one every eight frames, alternately
// above and below the limit, then the rate the codec is left at (which decides whether it is
// destroyed with its cluster part sent).
std::vector<float> roundRates(int frames, int codec, int round) {
    std::vector<float> rates;
    for (int f = 7; f < frames; f += 8) rates.push_back((f / 8) % 2 == 0 ? kFastRate : kSlowRate);
    rates.push_back((codec + round) % 2 == 0 ? kFastRate : kSlowRate);
    return rates;
}

// One codec's life, `rounds` times over: a fresh codec on a fresh looper each round.
void driveCodec(int index, const Settings& settings, World* world) {
    tCodec = index;
    const Kind kind = kindOf(index);
    for (int round = 0; round < settings.rounds; ++round) {
        world->ledgers[index].newCodec();
        const std::vector<float> rates = roundRates(settings.frames, index, round);
        size_t nextRate = 0;
        sp<ALooper> looper = new ALooper();
        char name[16];
        snprintf(name, sizeof(name), "stress-%02d", index % 100);
        looper->setName(name);
        ASSERT_EQ(looper->start(), OK);
        sp<Fence> fence = new Fence(index);
        looper->registerHandler(fence);
        fence->pass();  // the looper thread now knows its codec

        sp<TavroCCodec> codec = new TavroCCodec();
        looper->registerHandler(codec);
        auto* channel = static_cast<TavroCCodecBufferChannel*>(codec->channelForTesting().get());

        sp<AMessage> allocate = new AMessage();
        const char* component = kind == Kind::kVideoEncoder   ? "c2.qti.avc.encoder"
                                : kind == Kind::kAudioDecoder ? "c2.android.aac.decoder"
                                                              : "c2.qti.avc.decoder";
        allocate->setObject(kKeyCodecInfo, new MediaCodecInfo(component));
        codec->initiateAllocateComponent(allocate);

        sp<AMessage> format = new AMessage();
        if (kind == Kind::kAudioDecoder) {
            format->setString("mime", "audio/mp4a-latm");
            format->setInt32("sample-rate", 48000);
            format->setInt32("channel-count", 2);
        } else {
            format->setString("mime", "video/avc");
            format->setInt32("width", 1920);
            format->setInt32("height", 1080);
            format->setInt32("tp-ux-tid", 1000 + index);
            if (kind == Kind::kVideoEncoder) format->setInt32("encoder", 1);
        }
        codec->initiateConfigureComponent(format);
        codec->initiateStart();
        fence->pass();  // start handled: the boost went out as the start decided
        world->tick();
        if (kind == Kind::kVideoDecoder) channel->cheekFFModeStatus(true, 1);

        int64_t ptsUs = 33333;
        int64_t renderNs = 5'000'000'000LL;
        for (int f = 0; f < settings.frames; ++f) {
            // Normal speed, then double speed for a while, then normal again.
            const bool fast = (f / 24) % 2 == 1;
            EXPECT_EQ(channel->queueInputBuffer(test::makeFrame(ptsUs, 64)), OK);
            std::list<std::unique_ptr<C2Work>> works = test::oneWork(f + 1);
            codec->onWorkDone(works);
            if (f % 10 == 9) {
                EXPECT_EQ(channel->discardBuffer(test::makeFrame(ptsUs, 64)), OK);
            } else {
                EXPECT_EQ(channel->renderOutputBuffer(test::makeFrame(ptsUs, 64), renderNs), OK);
            }
            ptsUs += 33333;
            renderNs += fast ? 16666666 : 33333333;
            host::HostClock::advance(fast ? 16 * kMsNs : 33 * kMsNs);

            if (f % 8 == 7) {
                sp<AMessage> params = new AMessage();
                params->setFloat(kKeyOperatingRate, rates[nextRate++]);
                codec->signalSetParameters(params);
            }
            if (f % 16 == 15) {
                codec->signalFlush();
                codec->signalResume();
            }
            if (f % 4 == 3) world->tick();
        }
        sp<AMessage> last = new AMessage();
        last->setFloat(kKeyOperatingRate, rates[nextRate++]);
        codec->signalSetParameters(last);

        codec->initiateShutdown(false);
        fence->pass();
        looper->unregisterHandler(codec->id());
        looper->unregisterHandler(fence->id());
        looper->stop();
        codec.clear();
        fence.clear();
        looper.clear();
        world->tick();
    }
}

class TavroStressThreadTest : public ::testing::Test {
  protected:
    void SetUp() override {
        test::resetHostWorld();
        host::HostEvents::setEnabled(false);  // the listener below still sees every event
        host::HostLog::setCapacity(256);
        test::setDevice("stress");
        host::HostProperties::set(kTavroLogLevelProperty, "5");
        const int64_t uid = static_cast<int64_t>(getuid());
        host::HostListService::setByUid(kListMediaSchedBoost, uid,
                                        "schedVideo=2,isVideo=1,threadName=stress-none");
        host::HostListService::setTopActivity(-1, kTopActivity);
        host::HostListService::setByActivity(kListVdecCpuBoost, kTopActivity,
                                             "limitOpRate=30,cluster0Min=1804800,isVideo=1");
        host::HostListService::setByActivity(kListVencCpuBoost, kTopActivity,
                                             "limitOpRate=30,cluster4Min=2419200,isVideo=1");
    }

    void TearDown() override {
        host::HostEvents::setListener(nullptr);
        gWorld = nullptr;
        TavroWhiteListCacheMgr::getInstance()->setClockForTesting(nullptr);
        host::HostEvents::setEnabled(true);
        host::HostLog::setCapacity(65536);
        test::resetHostWorld();
    }
};

TEST_F(TavroStressThreadTest, ManyCodecsOnManyThreadsKeepBoostsBalanced) {
    const Settings settings{envInt("TAVRO_STRESS_CODECS", 64), envInt("TAVRO_STRESS_ROUNDS", 1),
                            envInt("TAVRO_STRESS_FRAMES", 48)};
    World world(settings.codecs);
    gWorld = &world;
    host::HostEvents::setListener(onHostEvent);
    // Set before any codec runs: the clock hook must not change while the manager is in use.
    const auto base = std::chrono::steady_clock::now();
    TavroWhiteListCacheMgr::getInstance()->setClockForTesting([&world, base] {
        return base + std::chrono::nanoseconds(world.whiteListOffsetNs.load());
    });
    const uint64_t queriesBefore = host::HostListService::queryCount();
    const auto started = std::chrono::steady_clock::now();

    // Every four progress ticks the white list's answers all go stale.
    std::atomic<int> jumps{0};
    std::thread clockThread([&] {
        for (uint64_t next = 4; world.waitFor(next); next += 4) {
            world.whiteListOffsetNs.fetch_add(
                    std::chrono::duration_cast<std::chrono::nanoseconds>(kCacheJump).count());
            jumps.fetch_add(1);
        }
    });
    // Every three ticks the log level moves: off, on, verbose, most detailed.
    std::atomic<int> flips{0};
    std::thread logThread([&] {
        static const char* const kLevels[] = {"0", "5", "6", "7"};
        for (uint64_t next = 3; world.waitFor(next); next += 3) {
            host::HostProperties::set(kTavroLogLevelProperty, kLevels[flips.fetch_add(1) % 4]);
        }
    });

    std::vector<std::thread> drivers;
    drivers.reserve(settings.codecs);
    for (int i = 0; i < settings.codecs; ++i) {
        drivers.emplace_back(driveCodec, i, std::cref(settings), &world);
    }
    for (std::thread& t : drivers) t.join();
    world.finish();
    clockThread.join();
    logThread.join();
    host::HostEvents::setListener(nullptr);
    const double seconds =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();

    // Every request came from a thread of a codec, and the service saw exactly those.
    EXPECT_EQ(world.unattributed.load(), 0);
    size_t ledgerEvents = 0;
    int sends = 0;
    int releases = 0;
    for (int i = 0; i < settings.codecs; ++i) {
        SCOPED_TRACE("codec " + std::to_string(i));
        Ledger& ledger = world.ledgers[i];
        std::lock_guard<std::mutex> guard(ledger.lock);
        const auto count = [&](char c) {
            return static_cast<int>(std::count(ledger.events.begin(), ledger.events.end(), c));
        };
        ledgerEvents += ledger.events.size() - count('|');
        sends += count('C') + count('W');
        releases += count('R');
        // With the request letters checked below, this keeps every release after a send.
        EXPECT_EQ(ledger.violations, 0) << ledger.events;
        const std::vector<std::string> codecs = splitCodecs(ledger.events);
        ASSERT_EQ(codecs.size(), static_cast<size_t>(settings.rounds)) << ledger.events;
        for (int round = 0; round < settings.rounds; ++round) {
            SCOPED_TRACE("round " + std::to_string(round));
            const std::string& got = codecs[round];
            switch (kindOf(i)) {
                case Kind::kAudioDecoder:
                    // The white list's entry is for video only: an audio codec asks for nothing.
                    EXPECT_EQ(got, "");
                    break;
                case Kind::kVideoDecoder:
                    EXPECT_EQ(got, expectedDecoderRequests(roundRates(settings.frames, i, round)));
                    break;
                case Kind::kVideoEncoder:
                    // The encoder's rate is its own output count, read by the watchdog on the
                    // looper as well as by set-parameters: only the order is fixed.
                    EXPECT_EQ(got.substr(0, 1), "T");
                    EXPECT_EQ(got.find_first_not_of("TCR"), std::string::npos) << got;
                    break;
            }
        }
    }
    EXPECT_EQ(ledgerEvents, TavroVideoBoost::requestsForTesting().size());
    EXPECT_GT(jumps.load(), 0);
    EXPECT_GT(flips.load(), 0);

    const uint64_t queries = host::HostListService::queryCount() - queriesBefore;
    printf("[ stress   ] %d codecs x %d rounds x %d frames on %d threads: %.2f s, %d cluster "
           "sends, %d releases, %d clock jumps past the cache timeout, %d log flips, %llu list "
           "queries\n",
           settings.codecs, settings.rounds, settings.frames, 2 * settings.codecs + 2, seconds,
           sends, releases, jumps.load(), flips.load(), static_cast<unsigned long long>(queries));
}

}  // namespace
}  // namespace android
