// Shared pieces of the white-list suites: a controllable steady clock, a fixture that owns the
// world the manager reads (its /proc tree from support/ProcTree.h), media presets, and one-line
// dumps of the boost records that list only the fields away from their defaults (so a table
// states just the change).
#pragma once

#include <gtest/gtest.h>

#include <log/log.h>
#include <unistd.h>

#include <host/HostListService.h>
#include <host/HostLog.h>
#include <host/HostProperties.h>

#include <atomic>
#include <chrono>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "common/TavroLog.h"
#include "support/ProcTree.h"
#include "whitelist/TavroSystemProbe.h"
#include "whitelist/TavroWhiteListCacheMgr.h"

namespace android {
namespace test {

// ---- One-line dumps --------------------------------------------------------------------------

class Dump {
  public:
    template <typename T>
    Dump& add(const char* name, const T& value, const T& fallback) {
        if (!(value == fallback)) {
            mOut << (mOut.tellp() > 0 ? " " : "") << name << '=';
            put(value);
        }
        return *this;
    }
    std::string str() const { return mOut.str(); }

  private:
    void put(const std::string& v) { mOut << v; }
    void put(int32_t v) { mOut << v; }
    void put(bool v) { mOut << (v ? 1 : 0); }
    template <typename T>
    void put(const std::vector<T>& v) {
        for (size_t i = 0; i < v.size(); ++i) mOut << (i ? "+" : "[") << v[i];
        mOut << "]";
    }
    void put(const std::map<int32_t, int32_t>& m) {
        for (auto it = m.begin(); it != m.end(); ++it) {
            mOut << (it == m.begin() ? "{" : ",") << it->first << ':' << it->second;
        }
        mOut << "}";
    }
    std::ostringstream mOut;
};

inline std::string dump(const TavroUxInfo& u) {
    const TavroUxInfo d;
    return Dump()
            .add("schedVideo", u.schedVideo, d.schedVideo)
            .add("schedAudio", u.schedAudio, d.schedAudio)
            .add("ddrFreq", u.ddrFreq, d.ddrFreq)
            .add("vendorBoost", u.needVendorBoost, d.needVendorBoost)
            .add("threadName", u.threadName, d.threadName)
            .add("appThreads", u.appThreads, d.appThreads)
            .add("tids", u.tids, d.tids)
            .add("swThreads", u.swThreads, d.swThreads)
            .str();
}

inline std::string dump(const TavroClusterInfo& c) {
    const TavroClusterInfo d;
    return Dump()
            .add("limitOpRate", c.limitOpRate, d.limitOpRate)
            .add("minUclamp", c.minUclamp, d.minUclamp)
            .add("pelt", c.peltHalflife, d.peltHalflife)
            .add("countFps", c.countFps, d.countFps)
            .add("preferIdle", c.isPreferIdle, d.isPreferIdle)
            .add("screenOff", c.isScreenOff, d.isScreenOff)
            .add("uclamp", c.uclampIndex, d.uclampIndex)
            .add("freqRate", c.freqRate, d.freqRate)
            .add("minFreq", c.clusterMinFreq, d.clusterMinFreq)
            .str();
}

// Condition, then decision; cache fields are compared separately where a test needs them.
inline std::string dump(const MediaBoostInfo& m) {
    const BoostConditionInfo d;
    const BoostConditionInfo& c = m.condition;
    std::string out = Dump().add("soc", c.soc, d.soc)
                              .add("prj", c.project, d.project)
                              .add("vendor", c.vendor, d.vendor)
                              .add("mime", c.mime, d.mime)
                              .add("comp", c.component, d.component)
                              .add("limitWidth", c.limitWidth, d.limitWidth)
                              .add("limitHeight", c.limitHeight, d.limitHeight)
                              .add("bitrate", c.bitrate, d.bitrate)
                              .add("sampleRate", c.sampleRate, d.sampleRate)
                              .add("sampleBits", c.sampleBits, d.sampleBits)
                              .add("channelCount", c.channelCount, d.channelCount)
                              .add("codecId", c.codecId, d.codecId)
                              .add("isVideo", c.isVideo, d.isVideo)
                              .add("isEncoder", c.isEncoder, d.isEncoder)
                              .str();
    for (const std::string& part : {dump(m.uxInfo), dump(m.clusterInfo)}) {
        if (!part.empty()) out += (out.empty() ? "" : " ") + part;
    }
    return out;
}

// ---- The world -------------------------------------------------------------------------------

constexpr char kWhiteListTag[] = "TavroWhiteListCache";
constexpr char kTestSoc[] = "QXSM8550";

// A steady clock that moves only when told to; readable from any thread. It starts long after
// the clock's epoch, so that a zero cache time is long ago.
class FakeClock {
  public:
    std::chrono::steady_clock::time_point now() const {
        return std::chrono::steady_clock::time_point(std::chrono::nanoseconds(mNs.load()));
    }
    void advance(std::chrono::seconds delta) {
        mNs.fetch_add(std::chrono::nanoseconds(delta).count());
    }

  private:
    std::atomic<int64_t> mNs{std::chrono::nanoseconds(std::chrono::hours(1000)).count()};
};

// Every test starts from the platform triple qcom / QXSM8550 / P23001 and nothing else in the
// property store, an empty list store and log, a /proc tree holding the own process, and a
// manager reset onto the fake clock.
class WhiteListWorld : public ::testing::Test {
  protected:
    void SetUp() override {
        host::HostProperties::clear();
        host::HostListService::clear();
        host::HostLog::clear();
        setPlatform();
        setProcRootForTesting(mProc.root());
        setCmdline(static_cast<int32_t>(getpid()), "com.example.player");
        mProc.makeDir(std::to_string(getpid()) + "/task");
        mMgr = TavroWhiteListCacheMgr::getInstance();
        mMgr->resetForTesting();
        mMgr->setClockForTesting([this] { return mClock.now(); });
    }
    void TearDown() override {
        mMgr->setClockForTesting(nullptr);
        mMgr->resetForTesting();
        setProcRootForTesting("");
        host::HostProperties::clear();
        host::HostListService::clear();
    }

    static void setPlatform() {
        host::HostProperties::set(kPropHardware, "qcom");
        host::HostProperties::set(kPropDeviceFamily, kTestSoc);
        host::HostProperties::set(kPropProjectName, "P23001");
    }
    static void setLogLevel(int level) {
        host::HostProperties::set(kTavroLogLevelProperty, std::to_string(level));
    }
    void setCmdline(int32_t pid, const std::string& name) {
        mProc.write(std::to_string(pid) + "/cmdline", name + std::string("\0--flag\0", 8));
    }
    void setOwnProcessName(const std::string& name) {
        setCmdline(static_cast<int32_t>(getpid()), name);
    }

    // How often exactly `text` was logged by the white list at `priority`.
    static size_t logged(const std::string& text, int priority = ANDROID_LOG_VERBOSE) {
        size_t n = 0;
        for (const host::LogRecord& r : host::HostLog::find(text, kWhiteListTag)) {
            n += (r.message == text && r.priority == priority) ? 1 : 0;
        }
        return n;
    }
    static std::vector<std::string> verboseLines() {
        std::vector<std::string> out;
        for (const host::LogRecord& r : host::HostLog::records()) {
            if (r.tag == kWhiteListTag && r.priority == ANDROID_LOG_VERBOSE)
                out.push_back(r.message);
        }
        return out;
    }

    ProcTree mProc;
    FakeClock mClock;
    TavroWhiteListCacheMgr* mMgr = nullptr;
};

// ---- Media presets (fields: mime, component, width, height, bitrate, sampleRate, sampleBits,
// channelCount, codecId, isVideo, isEncoder) -------------------------------------------------

inline TavroMediaInfo video(int32_t width = 1920, int32_t height = 1080) {
    return {"video/avc", "c2.qti.avc.decoder", width, height, 8000000, 0, 0, 0, 0, 1, 0};
}
inline TavroMediaInfo encoder() {
    return {"video/avc", "c2.qti.avc.encoder", 1920, 1080, 8000000, 0, 0, 0, 0, 1, 1};
}
inline TavroMediaInfo audio() {
    return {"audio/mp4a-latm", "c2.android.aac.decoder", 0, 0, 128000, 48000, 16, 2, 0, 0, 0};
}
// `media` with one field changed.
inline TavroMediaInfo with(TavroMediaInfo media, int32_t TavroMediaInfo::*field, int32_t value) {
    media.*field = value;
    return media;
}

}  // namespace test
}  // namespace android
