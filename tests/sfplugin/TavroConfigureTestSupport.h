// Shared pieces of the configure-step suites: typed format keys for inputs and expectations, list
// entries for the host list service, and a fixture that configures one codec and hands back the
// format the platform base received.
#pragma once

#include <gtest/gtest.h>

#include <stdint.h>
#include <unistd.h>

#include <cstring>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <binder/IPCThreadState.h>
#include <host/HostEvents.h>
#include <host/HostListService.h>
#include <host/HostLog.h>
#include <host/HostProperties.h>
#include <media/stagefright/foundation/AMessage.h>
#include <tavro/TavroListUtils.h>

#include "support/CodecTestHarness.h"
#include "support/ProcTree.h"
#include "whitelist/TavroSystemProbe.h"

namespace android {
namespace test {

// Identities: the binder caller (the media framework's client thread) and the app named by the
// format's "calling-uid"/"calling-pid". Distinct so that every lookup shows which one it used.
constexpr uid_t kBinderUid = 10100;
constexpr pid_t kBinderPid = 4100;
constexpr int64_t kAppUid = 10200;
constexpr int64_t kAppPid = 4200;
constexpr char kTopActivity[] = "com.example.app/.PlayerActivity";

// One typed format key: an input to set, or an expectation.
struct Key {
    enum Kind { kInt32, kInt64, kFloat, kString };
    std::string name;
    Kind kind = kInt32;
    int64_t integer = 0;
    float real = 0.0f;
    std::string text;
};
// clang-format off
inline Key i32(const char* n, int32_t v) { return {n, Key::kInt32, v, 0.0f, ""}; }
inline Key i64(const char* n, int64_t v) { return {n, Key::kInt64, v, 0.0f, ""}; }
inline Key f32(const char* n, float v) { return {n, Key::kFloat, 0, v, ""}; }
inline Key str(const char* n, const char* v) { return {n, Key::kString, 0, 0.0f, v}; }
inline Key white(int64_t v) { return i64("vendor.tavro.vpp.white.list.value", v); }
// clang-format on

template <typename T>
std::vector<T> operator+(std::vector<T> a, const std::vector<T>& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}
template <typename T>
std::vector<T> operator+(std::vector<T> a, const T& b) {
    a.push_back(b);
    return a;
}

inline void setKeys(const sp<AMessage>& msg, const std::vector<Key>& keys) {
    for (const Key& k : keys) {
        const char* name = k.name.c_str();
        if (k.kind == Key::kInt32) msg->setInt32(name, static_cast<int32_t>(k.integer));
        if (k.kind == Key::kInt64) msg->setInt64(name, k.integer);
        if (k.kind == Key::kFloat) msg->setFloat(name, k.real);
        if (k.kind == Key::kString) msg->setString(name, k.text.c_str());
    }
}

// Each key holds exactly the expected type and value (floats compared bit for bit).
inline void expectKeys(const sp<AMessage>& msg, const std::vector<Key>& keys) {
    for (const Key& k : keys) {
        SCOPED_TRACE(k.name);
        const char* name = k.name.c_str();
        int32_t v32 = 0;
        int64_t v64 = 0;
        float vf = 0.0f;
        AString vs;
        switch (k.kind) {
            case Key::kInt32:
                ASSERT_TRUE(msg->findInt32(name, &v32)) << "not an int32";
                EXPECT_EQ(k.integer, v32);
                break;
            case Key::kInt64:
                ASSERT_TRUE(msg->findInt64(name, &v64)) << "not an int64";
                EXPECT_EQ(k.integer, v64);
                break;
            case Key::kFloat:
                ASSERT_TRUE(msg->findFloat(name, &vf)) << "not a float";
                EXPECT_EQ(0, memcmp(&k.real, &vf, sizeof(float))) << k.real << " != " << vf;
                break;
            case Key::kString:
                ASSERT_TRUE(msg->findString(name, &vs)) << "not a string";
                EXPECT_EQ(k.text, vs.c_str());
                break;
        }
    }
}

// `output` differs from `input` in exactly the `changed` keys (added, retyped or re-valued),
// which hold the given types and values; every other key is untouched.
inline void expectChanges(const sp<AMessage>& input, const sp<AMessage>& output,
                          const std::vector<Key>& changed) {
    ASSERT_NE(nullptr, output.get()) << "the base received no format";
    std::set<std::string> expected;
    for (const Key& k : changed) expected.insert(k.name);
    sp<AMessage> diff = output->changesFrom(input);
    std::set<std::string> actual;
    for (size_t i = 0; i < diff->countEntries(); ++i) {
        AMessage::Type type;
        actual.insert(diff->getEntryNameAt(i, &type));
    }
    EXPECT_EQ(expected, actual);
    for (size_t i = 0; i < input->countEntries(); ++i) {
        AMessage::Type type;
        const char* name = input->getEntryNameAt(i, &type);
        EXPECT_TRUE(output->contains(name)) << name << " was removed";
    }
    expectKeys(output, changed);
}

// A list-service entry: by uid, by pid, or for the top activity of every process.
struct ListEntry {
    enum By { kUid, kPid, kActivity };
    By by;
    std::string list;
    int64_t key;  // uid or pid; unused for kActivity
    std::string value;
};
inline ListEntry byUid(const char* list, int64_t uid, const char* value = "") {
    return {ListEntry::kUid, list, uid, value};
}
inline ListEntry byPid(const char* list, int64_t pid, const char* value = "") {
    return {ListEntry::kPid, list, pid, value};
}
inline ListEntry byActivity(const char* list, const char* value) {
    return {ListEntry::kActivity, list, 0, value};
}

using Props = std::vector<std::pair<std::string, std::string>>;

// A log record expected `count` times with exactly this message (at `priority` unless 0).
struct LogLine {
    std::string message;
    int priority = 0;
    size_t count = 1;
};

// Resets the world, sets the binder identity and the top activity, and plays one codec.
class ConfigureFixture : public ::testing::Test {
  protected:
    void SetUp() override {
        resetHostWorld();
        setProcessNameRootForTesting("");
        IPCThreadState::self()->setCallingIdentityForTesting(kBinderUid, kBinderPid);
        host::HostListService::setTopActivity(-1, kTopActivity);
        // Every gated line prints, so that the suites can read the detailed ones.
        host::HostProperties::set("debug.tavro.video.log.enable", "7");
    }
    void TearDown() override {
        mHarness.reset();
        IPCThreadState::self()->clearCallingIdentityForTesting();
        setProcessNameRootForTesting("");
        setProcRootForTesting("");
        mProc.reset();
    }

    // Points /proc at a temporary tree whose meminfo shows `availKb` free; returns its root.
    std::string useProcRoot(int64_t availKb = 4000000) {
        if (mProc == nullptr) mProc = std::make_unique<ProcTree>();
        mProc->meminfo(availKb);
        setProcRootForTesting(mProc->root());
        return mProc->root();
    }

    static void setProps(const Props& props) {
        for (const auto& [key, value] : props) host::HostProperties::set(key, value);
    }
    static void setLists(const std::vector<ListEntry>& lists) {
        for (const ListEntry& e : lists) {
            if (e.by == ListEntry::kUid) host::HostListService::setByUid(e.list, e.key, e.value);
            if (e.by == ListEntry::kPid) host::HostListService::setByPid(e.list, e.key, e.value);
            if (e.by == ListEntry::kActivity) {
                host::HostListService::setByActivity(e.list, kTopActivity, e.value);
            }
        }
    }

    // A format for `mime` from the app: calling uid/pid, package name, and `keys` on top.
    static sp<AMessage> appFormat(const char* mime, const std::vector<Key>& keys) {
        sp<AMessage> format = new AMessage();
        format->setString("mime", mime);
        format->setInt64("calling-uid", kAppUid);
        format->setInt64("calling-pid", kAppPid);
        format->setString("pkg-name", "com.example.app");
        setKeys(format, keys);
        return format;
    }

    // Allocates `component`, configures it with `input` (left untouched: the pipeline works on a
    // copy) and returns the format the platform base received.
    sp<AMessage> configure(const char* component, const sp<AMessage>& input) {
        mHarness = std::make_unique<CodecHarness>();
        mHarness->allocate(component);
        host::HostLog::clear();
        host::HostEvents::clear();
        mHarness->configure(input->dup());
        return mHarness->configuredFormat();
    }

    // Every parameter message the base received so far.
    std::vector<sp<AMessage>> setParameterCalls() const {
        std::vector<sp<AMessage>> sets;
        for (const CCodec::Call& call : mHarness->codec()->callsForTesting()) {
            if (call.name == "signalSetParameters") sets.push_back(call.msg);
        }
        return sets;
    }

    // Records whose message is exactly `message`, at `priority` when it is not 0.
    static size_t logCount(const std::string& message, int priority = 0) {
        size_t n = 0;
        for (const host::LogRecord& r : host::HostLog::records()) {
            if (r.message == message && (priority == 0 || r.priority == priority)) ++n;
        }
        return n;
    }

    // The outcome of `step` at the last configure, from the codec's step table.
    TavroConfigureStepResult stepResult(const char* step) const {
        for (const TavroConfigureStepResult& r : mHarness->codec()->lastConfigureResults()) {
            if (strcmp(r.name, step) == 0) return r;
        }
        ADD_FAILURE() << "no step " << step;
        return {};
    }

    // One configure per case on a fresh codec: `component` with `mime`, the app's format plus
    // `base` and the case's input. Checks the exact changes, the log lines and, with `step`, its
    // status in the step table.
    struct Case {
        const char* name;
        std::vector<ListEntry> lists;
        std::vector<Key> input;
        std::vector<Key> changed;  // every key the configure added, retyped or re-valued
        int32_t status = 0;        // of `step`
        Props props = {};
        std::vector<LogLine> logs = {};
    };
    void runCases(const char* component, const char* mime, const std::vector<Key>& base,
                  const std::vector<Case>& cases, const char* step = nullptr) {
        for (const Case& c : cases) {
            SCOPED_TRACE(c.name);
            SetUp();
            setProps(c.props);
            setLists(c.lists);
            sp<AMessage> format = appFormat(mime, base + c.input);
            expectChanges(format, configure(component, format), c.changed);
            if (step != nullptr) {
                EXPECT_EQ(c.status, stepResult(step).status);
            }
            for (const LogLine& l : c.logs) {
                EXPECT_EQ(l.count, logCount(l.message, l.priority)) << l.message;
            }
        }
    }

    std::unique_ptr<CodecHarness> mHarness;
    std::unique_ptr<ProcTree> mProc;
};

}  // namespace test
}  // namespace android
