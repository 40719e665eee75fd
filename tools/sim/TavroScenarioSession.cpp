// Session checks: a small model of the codec's lifecycle walked over the events.
#include "tools/sim/TavroScenarioSession.h"

#include <cmath>
#include <string>

#include "tools/sim/TavroScenarioLoader.h"

namespace android {

namespace {

using Kind = TavroScenarioEvent::Kind;

constexpr int64_t kMaxTimeUs = INT64_MAX / 1000;  // time_us, as the loader takes it

// What the framework has done to the codec so far.
struct Lifecycle {
    bool allocated = false;
    bool configured = false;
    bool started = false;
    bool shutDown = false;  // since the last start
};

bool isFrameEvent(Kind kind) {
    return kind == Kind::kInput || kind == Kind::kOutput || kind == Kind::kRender ||
           kind == Kind::kDiscard || kind == Kind::kClip;
}

// The misuse `e` would be in `state`, "" when none; moves `state` along.
std::string orderProblem(const TavroScenarioEvent& e, Lifecycle* state) {
    const std::string name = std::string("'") + tavroScenarioEventName(e.kind) + "'";
    const std::string notStarted = state->shutDown    ? name + " after 'shutdown'"
                                   : state->allocated ? name + " before 'start'"
                                                      : name + " before 'allocate'";
    switch (e.kind) {
        case Kind::kAllocate:
            if (state->allocated) return "'allocate' twice: the codec is already allocated";
            *state = Lifecycle();
            state->allocated = true;
            return "";
        case Kind::kConfigure:
            if (!state->allocated) return name + " before 'allocate'";
            if (state->started) return name + " while started (shut down first)";
            state->configured = true;
            return "";
        case Kind::kStart:
            if (!state->allocated) return name + " before 'allocate'";
            if (state->started) return "'start' twice: the codec is already started";
            if (!state->configured) return name + " before 'configure'";
            state->started = true;
            state->shutDown = false;
            return "";
        case Kind::kSetParameters:
            if (!state->allocated) return name + " before 'allocate'";
            return "";
        case Kind::kFlush:
        case Kind::kResume:
            return state->started ? "" : notStarted;
        case Kind::kShutdown:
            if (!state->allocated) return name + " before 'allocate'";
            state->started = false;
            state->configured = false;
            state->shutDown = true;
            state->allocated = e.keepAllocated;
            return "";
        case Kind::kAdvance:
        case Kind::kDestroy:
            return "";
        default:
            return isFrameEvent(e.kind) && !state->started ? notStarted : "";
    }
}

}  // namespace

void checkTavroScenarioSession(const TavroScenario& scenario) {
    auto fail = [&](const TavroScenarioEvent& e, const std::string& message) {
        throw TavroScenarioError(scenario.path + ": " + e.where + ": " + message);
    };
    Lifecycle state;
    int64_t clockUs = 0;
    bool playedFrames = false;
    int64_t lastPtsUs = 0;
    for (const TavroScenarioEvent& e : scenario.events) {
        if (!scenario.freeOrder) {
            const std::string problem = orderProblem(e, &state);
            if (!problem.empty()) {
                fail(e, problem + " (\"order\": \"free\" plays misuse on purpose)");
            }
        }
        // The player's own arithmetic (TavroScenarioPlayer's clip), checked before it runs.
        double moveUs = 0;
        if (e.kind == Kind::kAdvance) moveUs = static_cast<double>(e.advanceUs);
        if (e.kind == Kind::kClip) {
            // fps x speed is at least 0.1 and speed at most 100, so a frame is at most 1e9 us
            // and a clip's span fits easily; the sums below are exact.
            const int64_t startUs = e.hasStartUs   ? e.startUs
                                    : playedFrames ? lastPtsUs + std::llround(1e6 / e.fps)
                                                   : 0;
            const int64_t lastUs = startUs + std::llround((e.count - 1) * 1e6 / e.fps);
            if (lastUs > kMaxTimeUs) {
                fail(e, "the clip's last pts would be " + std::to_string(lastUs) + " us, beyond " +
                                std::to_string(kMaxTimeUs));
            }
            lastPtsUs = lastUs;
            playedFrames = true;
            moveUs = std::round(e.count * 1e6 / (e.fps * e.speed));
        } else if (isFrameEvent(e.kind)) {
            lastPtsUs = e.timeUs;
            playedFrames = true;
        }
        if (static_cast<double>(clockUs) + moveUs > static_cast<double>(kTavroMaxScenarioClockUs)) {
            fail(e, "the clock would pass 366 days, the longest a scenario may run");
        }
        clockUs += static_cast<int64_t>(moveUs);
    }
}

}  // namespace android
