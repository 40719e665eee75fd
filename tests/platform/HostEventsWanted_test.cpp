// Recorders build an event's text only when someone keeps or sees it: with recording off and no
// listener the text is skipped (benchmarks run that way), and a listener alone still gets it.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include <host/HostEvents.h>
#include <media/stagefright/foundation/AMessage.h>
#include <tavro/TavroAnalysisFPS.h>

namespace android {
namespace {

class HostEventsWantedTest : public ::testing::Test {
  protected:
    void SetUp() override { reset(); }
    void TearDown() override { reset(); }
    static void reset() {
        host::HostEvents::setListener(nullptr);
        host::HostEvents::setEnabled(true);
        host::HostEvents::clear();
    }
};

TEST_F(HostEventsWantedTest, TextIsBuiltOnlyForARecordOrAListener) {
    sp<TavroAnalysisFPS> analysis = new TavroAnalysisFPS();
    sp<AMessage> msg = new AMessage();
    msg->setInt32("operating-rate", 60);

    struct Case {
        const char* name;
        bool enabled;
        bool listener;
        bool wanted;
    };
    const Case kCases[] = {
            {"recording on", true, false, true},
            {"recording on and a listener", true, true, true},
            {"listener only", false, true, true},
            {"nobody", false, false, false},
    };
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.name);
        reset();
        std::vector<host::HostEvent> heard;
        host::HostEvents::setEnabled(c.enabled);
        if (c.listener) {
            host::HostEvents::setListener(
                    [&heard](const host::HostEvent& e) { heard.push_back(e); });
        }
        EXPECT_EQ(host::HostEvents::wanted(), c.wanted);

        ASSERT_EQ(analysis->updateParameters(msg), OK);
        std::vector<host::HostEvent> kept = host::HostEvents::named("analysis", "updateParameters");
        ASSERT_EQ(kept.size(), c.enabled ? 1u : 0u);
        ASSERT_EQ(heard.size(), c.listener ? 1u : 0u);
        if (c.enabled) {
            EXPECT_EQ(kept[0].field("operating-rate"), "60");
        }
        if (c.listener) {
            EXPECT_EQ(heard[0].field("operating-rate"), "60");
        }
        host::HostEvents::setListener(nullptr);
        EXPECT_EQ(host::HostEvents::wanted(), c.enabled);
    }
}

}  // namespace
}  // namespace android
