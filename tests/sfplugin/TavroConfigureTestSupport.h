// Shared pieces of the configure-step suites: typed format keys for inputs and expectations, list
// entries for the host list service, and a fixture that configures one codec and hands back the
// format the platform base received.
#pragma once

#include <gtest/gtest.h>

#include <stdint.h>
#include <unistd.h>

#include <algorithm>
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

namespace android {
namespace test {

// Identities: the binder caller (the media framework's client thread) and the app named by the
// format's "calling-uid"/"calling-pid". Distinct so that every lookup shows which one it used.
constexpr uid_t kBinderUid = 10100;
constexpr pid_t kBinderPid = 4100;
constexpr int64_t kAppUid = 10200;
constexpr int64_t kAppPid = 4200;
constexpr char kTopActivity[] = "com.example.app/.PlayerActivity";

// One typed format key: an input to set, or an expectation (kAbsent: the key must not exist).
struct Key {
    enum Kind { kInt32, kInt64, kFloat, kString, kAbsent };
    std::string name;
    Kind kind = kAbsent;
    int64_t integer = 0;
    float real = 0.0f;
    std::string text;
};
inline Key i32(const char* name, int32_t v) {
    return {name, Key::kInt32, v, 0.0f, ""};
}
inline Key i64(const char* name, int64_t v) {
    return {name, Key::kInt64, v, 0.0f, ""};
}
inline Key f32(const char* name, float v) {
    return {name, Key::kFloat, 0, v, ""};
}
inline Key str(const char* name, const char* v) {
    return {name, Key::kString, 0, 0.0f, v};
}
inline Key absent(const char* name) {
    return {name, Key::kAbsent, 0, 0.0f, ""};
}

inline void setKeys(const sp<AMessage>& msg, const std::vector<Key>& keys) {
    for (const Key& k : keys) {
        switch (k.kind) {
            case Key::kInt32:
                msg->setInt32(k.name.c_str(), static_cast<int32_t>(k.integer));
                break;
            case Key::kInt64:
                msg->setInt64(k.name.c_str(), k.integer);
                break;
            case Key::kFloat:
                msg->setFloat(k.name.c_str(), k.real);
                break;
            case Key::kString:
                msg->setString(k.name.c_str(), k.text.c_str());
                break;
            case Key::kAbsent:
                msg->removeEntryByName(k.name.c_str());
                break;
        }
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
            case Key::kAbsent:
                EXPECT_FALSE(msg->contains(name));
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
    for (const Key& k : changed) {
        if (k.kind != Key::kAbsent) expected.insert(k.name);
    }
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

// Resets the world, sets the binder identity and the top activity, and plays one codec.
class ConfigureFixture : public ::testing::Test {
  protected:
    void SetUp() override {
        resetHostWorld();
        setProcessNameRootForTesting("");
        IPCThreadState::self()->setCallingIdentityForTesting(kBinderUid, kBinderPid);
        host::HostListService::setTopActivity(-1, kTopActivity);
        // The step trace ("configure step <name>: <status>") prints at level 7.
        host::HostProperties::set("debug.tavro.video.log.enable", "7");
    }
    void TearDown() override {
        mHarness.reset();
        IPCThreadState::self()->clearCallingIdentityForTesting();
        setProcessNameRootForTesting("");
    }

    static void setProps(const Props& props) {
        for (const auto& [key, value] : props) host::HostProperties::set(key, value);
    }
    static void setLists(const std::vector<ListEntry>& lists) {
        for (const ListEntry& e : lists) {
            switch (e.by) {
                case ListEntry::kUid:
                    host::HostListService::setByUid(e.list, e.key, e.value);
                    break;
                case ListEntry::kPid:
                    host::HostListService::setByPid(e.list, e.key, e.value);
                    break;
                case ListEntry::kActivity:
                    host::HostListService::setByActivity(e.list, kTopActivity, e.value);
                    break;
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

    // Records of the configure step trace for `step` with `status`.
    static size_t stepStatusCount(const char* step, int32_t status) {
        const std::string line =
                "configure step " + std::string(step) + ": " + std::to_string(status);
        size_t n = 0;
        for (const host::LogRecord& r : host::HostLog::records()) n += r.message == line ? 1 : 0;
        return n;
    }
    // Records whose message is exactly `message`, at `priority` when it is not 0.
    static size_t logCount(const std::string& message, int priority = 0) {
        size_t n = 0;
        for (const host::LogRecord& r : host::HostLog::records()) {
            if (r.message == message && (priority == 0 || r.priority == priority)) ++n;
        }
        return n;
    }

    // One configure per case on a fresh codec: `component` with `mime`, the app's format plus
    // `base` and the case's input. Checks the exact changes and, with `step`, its traced status.
    struct Case {
        const char* name;
        std::vector<ListEntry> lists;
        std::vector<Key> input;
        std::vector<Key> changed;  // every key the configure added, retyped or re-valued
        int32_t status = 0;        // of `step`
        Props props = {};
    };
    void runCases(const char* component, const char* mime, const std::vector<Key>& base,
                  const std::vector<Case>& cases, const char* step = nullptr) {
        for (const Case& c : cases) {
            SCOPED_TRACE(c.name);
            SetUp();
            setProps(c.props);
            setLists(c.lists);
            std::vector<Key> input = base;
            input.insert(input.end(), c.input.begin(), c.input.end());
            sp<AMessage> format = appFormat(mime, input);
            expectChanges(format, configure(component, format), c.changed);
            if (step != nullptr) {
                EXPECT_EQ(1u, stepStatusCount(step, c.status));
            }
        }
    }

    std::unique_ptr<CodecHarness> mHarness;
};

template <typename T>
std::vector<T> operator+(std::vector<T> a, const std::vector<T>& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}
inline Key white(int64_t value) {
    return i64("vendor.tavro.vpp.white.list.value", value);
}

}  // namespace test
}  // namespace android
