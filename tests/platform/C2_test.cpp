// Codec2 records made from raw bytes, buffer info lookup and the host event record.
#include <gtest/gtest.h>

#include <C2Buffer.h>
#include <C2Param.h>
#include <host/HostC2.h>
#include <host/HostEvents.h>
#include <media/stagefright/foundation/AMessage.h>
#include <tavro/TavroAnalysisFPS.h>

#include <string>
#include <vector>

namespace android {
namespace {

using Bytes = std::vector<uint8_t>;
using host::HostEvent;
using host::HostEvents;

TEST(HostC2Test, MakeC2ParamLaysOutSizeIndexAndPayload) {
    struct Case {
        const char* name;
        uint32_t index;
        Bytes payload;
        int64_t sizeField;  // < 0: the honest default (8 + payload)
        Bytes bytes;
    };
    const Case kCases[] = {
            {"honest 12-byte record",
             0xC0008605,
             {0x07, 0, 0, 0},
             -1,
             {0x0C, 0, 0, 0, 0x05, 0x86, 0x00, 0xC0, 0x07, 0, 0, 0}},
            {"header only", 0x12345678, {}, -1, {0x08, 0, 0, 0, 0x78, 0x56, 0x34, 0x12}},
            {"size field shorter than the payload",
             0xA0018602,
             {'a', 'b', 'c', 0},
             8,
             {0x08, 0, 0, 0, 0x02, 0x86, 0x01, 0xA0}},
            {"size field inside the header", 0xC0008604, {1, 0, 0, 0}, 4, {0x04, 0, 0, 0}},
            {"size field zero", 0xC0008604, {1, 0, 0, 0}, 0, {}},
            {"size field longer than the payload is zero-filled",
             0xC0008600,
             {0xFF},
             16,
             {0x10, 0, 0, 0, 0x00, 0x86, 0x00, 0xC0, 0xFF, 0, 0, 0, 0, 0, 0, 0}},
    };
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.name);
        std::unique_ptr<C2Param> param =
                c.sizeField < 0
                        ? host::makeC2Param(c.index, c.payload)
                        : host::makeC2Param(c.index, c.payload, static_cast<uint32_t>(c.sizeField));
        ASSERT_NE(param, nullptr);
        EXPECT_EQ(param->size(), c.bytes.size());
        EXPECT_EQ(static_cast<uint32_t>(param->index()), c.index);
        EXPECT_EQ(param->coreIndex(), c.index & 0xFFFF);
        EXPECT_EQ(!*param, c.bytes.empty());
        EXPECT_EQ(host::c2ParamBytes(*param), c.bytes);
        // The payload stays allocated past a lying size field, so a reader that trusts the payload
        // length reads allocated bytes (the sanitizers flag only reads past the whole block).
        const auto* payload = reinterpret_cast<const uint8_t*>(param.get()) + 8;
        EXPECT_EQ(Bytes(payload, payload + c.payload.size()), c.payload);
    }

    std::shared_ptr<C2Info> info = host::makeC2Info(0xD2010000, {9, 8, 7, 6, 5});
    ASSERT_NE(info, nullptr);
    EXPECT_EQ(static_cast<uint32_t>(info->index()), 0xD2010000u);
    EXPECT_EQ(host::c2ParamBytes(*info),
              (Bytes{0x0D, 0, 0, 0, 0x00, 0x00, 0x01, 0xD2, 9, 8, 7, 6, 5}));
    std::shared_ptr<C2Info> lying = host::makeC2Info(0x1, {1, 2, 3, 4}, 9);
    EXPECT_EQ(host::c2ParamBytes(*lying), (Bytes{0x09, 0, 0, 0, 0x01, 0, 0, 0, 1}));
}

TEST(C2BufferTest, GetInfoFindsTheRecordWithThatIndexAndSetInfoReplacesInPlace) {
    C2Buffer buffer;
    std::shared_ptr<C2Info> a = host::makeC2Info(0x100, {1, 0, 0, 0});
    std::shared_ptr<C2Info> b = host::makeC2Info(0x200, {2, 0, 0, 0});
    std::shared_ptr<C2Info> a2 = host::makeC2Info(0x100, {3, 0, 0, 0});
    EXPECT_EQ(buffer.getInfo(0x100), nullptr);
    EXPECT_EQ(buffer.setInfo(a), C2_OK);
    EXPECT_EQ(buffer.setInfo(b), C2_OK);
    EXPECT_EQ(buffer.getInfo(0x200), b);
    EXPECT_EQ(buffer.getInfo(0x300), nullptr);
    EXPECT_EQ(buffer.setInfo(a2), C2_OK);
    EXPECT_EQ(buffer.setInfo(nullptr), C2_BAD_VALUE);
    EXPECT_EQ(buffer.getInfo(0x100), a2);
    EXPECT_EQ(buffer.info(), (std::vector<std::shared_ptr<const C2Info>>{a2, b}));
}

class HostEventsTest : public testing::Test {
  protected:
    void SetUp() override { reset(); }
    void TearDown() override { reset(); }
    static void reset() {
        HostEvents::setListener(nullptr);
        HostEvents::setEnabled(true);
        HostEvents::clear();
    }
};

TEST_F(HostEventsTest, RecordsInOrderFiltersAndCallsTheListenerEvenWhenDisabled) {
    int source = 0;
    HostEvents::record({"boost", "boost", &source, {{"parcel", "0100"}}});
    HostEvents::record({"stat", "stats_write", nullptr, {{"atomId", "7"}, {"err", "-1"}}});
    HostEvents::record({"boost", "boostTask", &source, {}});
    std::vector<HostEvent> all = HostEvents::all();
    ASSERT_EQ(all.size(), 3u);
    EXPECT_EQ(all[0].source, &source);
    EXPECT_EQ((std::vector<std::string>{all[1].field("err"), all[1].field("missing")}),
              (std::vector<std::string>{"-1", ""}));
    EXPECT_EQ(HostEvents::ofKind("boost").size(), 2u);
    ASSERT_EQ(HostEvents::named("boost", "boostTask").size(), 1u);
    EXPECT_TRUE(HostEvents::named("stat", "boost").empty());
    HostEvents::clear();

    // The listener runs outside the lock, so it may read the record itself; an empty function
    // removes it.
    std::vector<std::string> heard;
    HostEvents::setListener([&heard](const HostEvent& e) {
        heard.push_back(e.name + "@" + std::to_string(HostEvents::all().size()));
    });
    HostEvents::setEnabled(false);
    HostEvents::record({"pelto", "setEvent", nullptr, {}});
    HostEvents::setEnabled(true);
    HostEvents::record({"pelto", "updateTopActivity", nullptr, {}});
    HostEvents::setListener(nullptr);
    HostEvents::record({"pelto", "setEvent", nullptr, {}});
    EXPECT_EQ(HostEvents::all().size(), 2u);
    EXPECT_EQ(heard, (std::vector<std::string>{"setEvent@0", "updateTopActivity@1"}));
}

// Recorders build an event's text only when someone keeps or sees it: with recording off and no
// listener the text is skipped (benchmarks run that way), and a listener alone still gets it.
TEST_F(HostEventsTest, TextIsBuiltOnlyForARecordOrAListener) {
    sp<TavroAnalysisFPS> analysis = new TavroAnalysisFPS();
    sp<AMessage> msg = new AMessage();
    msg->setInt32("operating-rate", 60);
    struct Case {
        const char* name;
        bool enabled, listener, wanted;
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
        std::vector<HostEvent> heard;
        HostEvents::setEnabled(c.enabled);
        if (c.listener)
            HostEvents::setListener([&heard](const HostEvent& e) { heard.push_back(e); });
        EXPECT_EQ(HostEvents::wanted(), c.wanted);
        ASSERT_EQ(analysis->updateParameters(msg), OK);
        std::vector<HostEvent> kept = HostEvents::named("analysis", "updateParameters");
        ASSERT_EQ(kept.size(), c.enabled ? 1u : 0u);
        ASSERT_EQ(heard.size(), c.listener ? 1u : 0u);
        kept.insert(kept.end(), heard.begin(), heard.end());
        for (const HostEvent& e : kept) EXPECT_EQ(e.field("operating-rate"), "60");
        HostEvents::setListener(nullptr);
        EXPECT_EQ(HostEvents::wanted(), c.enabled);
    }
}

}  // namespace
}  // namespace android
