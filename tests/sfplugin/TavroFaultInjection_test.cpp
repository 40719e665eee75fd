// Fault injection: one full decoder session (allocate, configure, start, frames, surface change,
// operating-rate moves, flush, shutdown, destruction) played once per fault of the host platform
// and the maker's services, each fault checked against what the codec is meant to do with it: a
// refused vendor write is retried as the channel intends, a missing or failing boost service costs
// the boost and nothing else, a list service that answers nothing or garbage gives no boost, and a
// /proc that lacks the process or loses threads while it is read degrades to the ids the codec
// knows itself. The platform's own refusals of queue, render, discard and surface are passed back
// as the channel and codec suites check; here every platform call of the session must succeed.
#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <functional>
#include <list>
#include <memory>
#include <string>
#include <vector>

#include <C2Work.h>
#include <host/HostListService.h>
#include <host/HostLog.h>
#include <host/HostProperties.h>
#include <log/log.h>
#include <tavro/TavroVideoBoost.h>

#include "support/CodecTestHarness.h"
#include "support/ProcTree.h"
#include "whitelist/TavroSystemProbe.h"
#include "whitelist/TavroWhiteListCacheMgr.h"

namespace android {
namespace {

using test::CodecHarness;

constexpr int kFrames = 24;
constexpr int64_t kFrameUs = 33333;
constexpr char kTopActivity[] = "fault.app/.Player";
constexpr char kSchedEntry[] = "schedVideo=2,isVideo=1";
constexpr char kClusterEntry[] = "limitOpRate=30,cluster0Min=1804800,isVideo=1";

// What one session did, as seen from outside the codec.
struct Outcome {
    std::string requests;  // per boost-service call: T thread part, C cluster part, W whole
                           // request, R cluster release, A release all, K key-thread task
    std::vector<int32_t> threadTids;  // tids of the first thread-part request
    bool runningAfterStart = false;
    int64_t inputsCounted = 0;        // inputs the analysis object was told about
    int64_t firstFrames = 0;          // first-frame reports
    uint64_t paramWrites = 0;         // setParameters calls that reached the platform
    std::vector<std::string> errors;  // error-priority log messages
};

// The requests as letters (test::SentBoost::letter), and the tids of the first thread part.
std::string describe(std::vector<int32_t>* firstTids) {
    std::string out;
    for (const test::SentBoost& s : test::sentBoosts()) {
        out.push_back(s.letter());
        if (firstTids->empty()) {
            for (size_t i = 1; i < s.params.threads.size(); i += 3) {
                firstTids->push_back(s.params.threads[i]);
            }
        }
    }
    return out;
}

// Plays the session; `inject` runs once the codec exists and before it is allocated.
Outcome playSession(const std::function<void(CodecHarness&)>& inject) {
    auto h = std::make_unique<CodecHarness>();
    inject(*h);
    Outcome out;
    h->allocate("c2.qti.avc.decoder");
    sp<AMessage> format = test::makeFormat("video/avc", {{"width", 1920}, {"height", 1080}});
    format->setInt32("tp-ux-tid", 555);
    h->configure(format);
    h->start();
    out.runningAfterStart = h->codec()->stateForTesting() == 3;
    // As the post-processing selection does for a listed app: fast-forward tracking on.
    h->channel()->cheekFFModeStatus(true, 1);

    for (int f = 0; f < kFrames; ++f) {
        const int64_t ptsUs = (f + 1) * kFrameUs;
        EXPECT_EQ(h->channel()->queueInputBuffer(test::makeFrame(ptsUs)), OK);
        std::list<std::unique_ptr<C2Work>> works = test::oneWork(f);
        h->codec()->onWorkDone(works);
        if (f == kFrames - 1) {
            EXPECT_EQ(h->channel()->discardBuffer(test::makeFrame(ptsUs)), OK);
        } else {
            EXPECT_EQ(h->channel()->renderOutputBuffer(test::makeFrame(ptsUs),
                                                       5'000'000'000LL + ptsUs * 1000),
                      OK);
        }
        h->advanceUs(kFrameUs);
    }
    EXPECT_EQ(h->codec()->setSurface(nullptr, 1), OK);

    for (float rate : {60.0f, 10.0f}) {
        sp<AMessage> params = new AMessage();
        params->setFloat(kKeyOperatingRate, rate);
        h->codec()->signalSetParameters(params);
    }
    h->codec()->signalFlush();
    h->codec()->signalResume();
    h->codec()->initiateShutdown(false);
    h->runPending();

    const TavroAnalysisFPS::Counters counters = h->analysis()->countersForTesting();
    out.inputsCounted = counters.inputBuffers;
    out.firstFrames = static_cast<int64_t>(
            host::HostEvents::named("analysis", "reportFirstFrameTime").size());
    out.paramWrites = h->channel()->countersForTesting().setParameters;
    h->destroy();

    out.requests = describe(&out.threadTids);
    for (const host::LogRecord& r : host::HostLog::records()) {
        if (r.priority >= ANDROID_LOG_ERROR) out.errors.push_back(r.message);
    }
    return out;
}

struct FaultCase {
    const char* name;
    std::function<void(test::ProcTree&, CodecHarness&)> inject;
    std::function<void(const Outcome&)> expect;
};

// Outcome of the session with no fault: the thread part at start (rate 0 is below the limit),
// then the cluster part at 60 and its release at 10; every status OK.
constexpr char kBaselineRequests[] = "TCR";

bool hasError(const Outcome& o, const std::string& needle) {
    for (const std::string& e : o.errors) {
        if (e.find(needle) != std::string::npos) return true;
    }
    return false;
}

class TavroFaultInjectionTest : public ::testing::Test {
  protected:
    void SetUp() override { reset(); }
    void TearDown() override {
        TavroVideoBoost::setWriteFailAfterForTesting(-1);
        test::resetHostWorld();
    }

    static void reset() {
        test::resetHostWorld();
        TavroVideoBoost::setWriteFailAfterForTesting(-1);
        test::setDevice("fault");
        host::HostListService::setByUid(kListMediaSchedBoost, static_cast<int64_t>(getuid()),
                                        kSchedEntry);
        host::HostListService::setTopActivity(-1, kTopActivity);
        host::HostListService::setByActivity(kListVdecCpuBoost, kTopActivity, kClusterEntry);
    }
};

TEST_F(TavroFaultInjectionTest, EachFaultEndsTheSessionAsTheCodecIntends) {
    const int32_t tid = test::ownTid();
    const std::vector<int32_t> ownIds = {555, tid, tid};  // tp-ux-tid, configure and looper
    const auto noBoostOtherwiseNormal = [](const Outcome& o) {
        EXPECT_EQ(o.requests, "");
        EXPECT_TRUE(o.runningAfterStart);
        EXPECT_EQ(o.inputsCounted, kFrames);
    };
    const FaultCase kCases[] = {
            {"no fault", [](test::ProcTree&, CodecHarness&) {},
             [&](const Outcome& o) {
                 EXPECT_EQ(o.requests, kBaselineRequests);
                 EXPECT_EQ(o.threadTids, ownIds);
                 EXPECT_TRUE(o.runningAfterStart);
                 EXPECT_EQ(o.inputsCounted, kFrames);
                 EXPECT_EQ(o.firstFrames, 1);
                 // The input delay at the first input, the content rate once 11 frames are known.
                 EXPECT_EQ(o.paramWrites, 2u);
                 EXPECT_TRUE(o.errors.empty()) << o.errors.front();
             }},
            {"platform setParameters fails",
             [](test::ProcTree&, CodecHarness& h) {
                 h.channel()->setParametersStatusForTesting(UNKNOWN_ERROR);
             },
             [](const Outcome& o) {
                 // First input: the input delay (refused, not retried). Frame 11 brings the
                 // first content rate: a write that is refused, so every later frame that sees
                 // no change writes the post-processing mode again (frames 12 to 24, the last
                 // one a discard). Without the fault the same session writes twice.
                 EXPECT_EQ(o.paramWrites, 1u + 1u + (kFrames - 11u));
                 EXPECT_EQ(o.requests, kBaselineRequests);
             }},
            {"no video boost service",
             [](test::ProcTree&, CodecHarness&) { TavroVideoBoost::setAvailableForTesting(false); },
             [](const Outcome& o) {
                 EXPECT_EQ(o.requests, "");
                 EXPECT_TRUE(hasError(o, "videoboost: fail to get TavroVideoBoost::getInstance()"));
                 EXPECT_TRUE(hasError(o, "Failed to init video boost params."));
                 EXPECT_TRUE(o.runningAfterStart);
                 EXPECT_EQ(o.inputsCounted, kFrames);
             }},
            {"boost service refuses every call",
             [](test::ProcTree&, CodecHarness&) {
                 TavroVideoBoost::setStatusForTesting(UNKNOWN_ERROR);
             },
             [](const Outcome& o) {
                 // The codec does not retry: each request went out once, in the same order.
                 EXPECT_EQ(o.requests, kBaselineRequests);
             }},
            {"boost request cannot be written",
             [](test::ProcTree&, CodecHarness&) {
                 TavroVideoBoost::setWriteFailAfterForTesting(3);
             },
             [](const Outcome& o) {
                 // The thread part never reached the service; the cluster part and its release
                 // still follow the rate.
                 EXPECT_EQ(o.requests, "CR");
             }},
            {"list service answers nothing",
             [](test::ProcTree&, CodecHarness&) {
                 host::HostListService::setFault(host::HostListService::Fault::kNoAnswer);
             },
             noBoostOtherwiseNormal},
            // The garbage holds no key a rule knows: a rule without conditions or boosts.
            {"list service answers garbage",
             [](test::ProcTree&, CodecHarness&) {
                 host::HostListService::setFault(host::HostListService::Fault::kGarbage);
             },
             noBoostOtherwiseNormal},
            {"list service fills the whole buffer",
             [](test::ProcTree&, CodecHarness&) {
                 // The entries end in ',' so that their repetitions parse as the same items.
                 host::HostListService::setByUid(kListMediaSchedBoost,
                                                 static_cast<int64_t>(getuid()),
                                                 std::string(kSchedEntry) + ",");
                 host::HostListService::setByActivity(kListVdecCpuBoost, kTopActivity,
                                                      std::string(kClusterEntry) + ",");
                 host::HostListService::setFault(host::HostListService::Fault::kUnterminated);
             },
             [&](const Outcome& o) {
                 EXPECT_EQ(o.requests, kBaselineRequests);
                 EXPECT_EQ(o.threadTids, ownIds);
             }},
            {"/proc without this process",
             [](test::ProcTree& proc, CodecHarness&) { setProcRootForTesting(proc.root()); },
             [](const Outcome& o) {
                 EXPECT_EQ(o.requests, "");
                 EXPECT_TRUE(hasError(o, kLogFailedInitCache));
                 EXPECT_TRUE(o.runningAfterStart);
             }},
            {"/proc loses threads while they are read",
             [](test::ProcTree& proc, CodecHarness&) {
                 const std::string pid = test::ProcTree::ownPid();
                 proc.write(pid + "/cmdline", std::string("fault.app") + '\0' + "--flag");
                 proc.addThread(getpid(), "100", "KeyWorker");
                 proc.makeDir(pid + "/task/101");     // its comm is gone: it exited
                 proc.write(pid + "/task/102", "x");  // not a directory at all
                 proc.addThread(getpid(), "103", "KeyWorker-2");
                 host::HostListService::setByUid(kListMediaSchedBoost,
                                                 static_cast<int64_t>(getuid()),
                                                 "schedVideo=2,isVideo=1,threadName=KeyWorker");
                 setProcRootForTesting(proc.root());
             },
             [&](const Outcome& o) {
                 EXPECT_EQ(o.requests, kBaselineRequests);
                 // Directory order is the file system's: compare as a set.
                 std::vector<int32_t> tids(o.threadTids.begin(), o.threadTids.end() - 3);
                 std::sort(tids.begin(), tids.end());
                 EXPECT_EQ(tids, (std::vector<int32_t>{100, 103}));
                 EXPECT_EQ(std::vector<int32_t>(o.threadTids.end() - 3, o.threadTids.end()),
                           ownIds);
             }},
            {"/proc without a task directory",
             [](test::ProcTree& proc, CodecHarness&) {
                 proc.write(test::ProcTree::ownPid() + "/cmdline", "fault.app");
                 host::HostListService::setByUid(kListMediaSchedBoost,
                                                 static_cast<int64_t>(getuid()),
                                                 "schedVideo=2,isVideo=1,threadName=KeyWorker");
                 setProcRootForTesting(proc.root());
             },
             [&](const Outcome& o) {
                 EXPECT_EQ(o.requests, kBaselineRequests);
                 EXPECT_EQ(o.threadTids, ownIds);
                 EXPECT_TRUE(hasError(o, "Fail to open directory"));
             }},
    };

    for (const FaultCase& c : kCases) {
        SCOPED_TRACE(c.name);
        reset();
        test::ProcTree proc;
        const Outcome o = playSession([&](CodecHarness& h) { c.inject(proc, h); });
        c.expect(o);
    }
}

}  // namespace
}  // namespace android
