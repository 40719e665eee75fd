// The host CCodecBufferChannel: counters, chosen statuses, parameter records as written, the
// platform callback's hand-over to the codec's client, and the stand-ins under concurrent calls.
#include <gtest/gtest.h>

#include <C2Work.h>
#include <codec2/sfplugin/CCodec.h>
#include <codec2/sfplugin/CCodecBufferChannel.h>
#include <host/HostC2.h>
#include <host/HostCodecCallback.h>
#include <host/HostEvents.h>
#include <media/MediaCodecBuffer.h>
#include <media/stagefright/foundation/ABuffer.h>
#include <media/stagefright/foundation/AMessage.h>
#include <tavro/TavroAnalysisFPS.h>
#include <tavro/TavroVideoBoost.h>

#include <string>
#include <thread>
#include <vector>

namespace android {
namespace {

using Bytes = std::vector<uint8_t>;
using Fields = std::vector<std::pair<std::string, std::string>>;
using Params = std::vector<std::unique_ptr<C2Param>>;

// A vendor parameter as the library writes it: 12 bytes, one 32-bit value.
struct VendorParam : public C2Param {
    VendorParam(uint32_t index, uint32_t v) : C2Param(sizeof(VendorParam), index), value(v) {}
    uint32_t value;
};

std::unique_ptr<C2Work> workWithIndex(uint64_t frameIndex) {
    auto work = std::make_unique<C2Work>();
    work->input.ordinal.frameIndex = c2_cntr64_t(frameIndex);
    return work;
}

class CCodecBufferChannelTest : public testing::Test {
  protected:
    void SetUp() override { host::HostEvents::clear(); }
    void TearDown() override { host::HostEvents::clear(); }

    std::shared_ptr<CCodecBufferChannel> mChannel =
            std::make_shared<CCodecBufferChannel>(std::shared_ptr<CCodecCallback>());
    sp<MediaCodecBuffer> mBuffer = new MediaCodecBuffer(new AMessage(), new ABuffer(16));
};

TEST_F(CCodecBufferChannelTest, SetParametersRecordsEachRecordAsWritten) {
    Params first;
    first.push_back(std::make_unique<VendorParam>(0xC0008605, 4));
    first.push_back(std::make_unique<VendorParam>(0xC0008600, 1));
    EXPECT_EQ(mChannel->setParameters(first), OK);
    // The vector is left to the caller, untouched.
    ASSERT_EQ(first.size(), 2u);
    EXPECT_NE(first[0], nullptr);

    mChannel->setParametersStatusForTesting(-EIO);
    Params second;
    second.push_back(std::make_unique<VendorParam>(0xC2002000, 0x41F00000));  // 30.0f
    second.push_back(host::makeC2Param(0x00000001, {0xAA, 0xBB}));            // no value field
    second.push_back(nullptr);
    // A lying size field is honoured, shorter or longer than the payload.
    second.push_back(host::makeC2Param(0xC0008604, {5, 0, 0, 0, 6, 0, 0, 0}, 12));
    second.push_back(host::makeC2Param(0xC0008604, {5, 0, 0, 0}, 20));
    EXPECT_EQ(mChannel->setParameters(second), -EIO);

    EXPECT_EQ(mChannel->writtenParamsForTesting(),
              (std::vector<std::vector<Bytes>>{
                      {{0x0C, 0, 0, 0, 0x05, 0x86, 0x00, 0xC0, 4, 0, 0, 0},
                       {0x0C, 0, 0, 0, 0x00, 0x86, 0x00, 0xC0, 1, 0, 0, 0}},
                      {{0x0C, 0, 0, 0, 0x00, 0x20, 0x00, 0xC2, 0x00, 0x00, 0xF0, 0x41},
                       {0x0A, 0, 0, 0, 0x01, 0, 0, 0, 0xAA, 0xBB},
                       {},
                       {0x0C, 0, 0, 0, 0x04, 0x86, 0x00, 0xC0, 5, 0, 0, 0},
                       {0x14, 0, 0, 0, 0x04, 0x86, 0x00, 0xC0, 5, 0,
                        0,    0, 0, 0, 0,    0,    0,    0,    0, 0}}}));
    EXPECT_EQ(mChannel->countersForTesting().setParameters, 2u);

    std::vector<host::HostEvent> events = host::HostEvents::named("param", "setParameters");
    ASSERT_EQ(events.size(), 2u);
    EXPECT_EQ(events[0].source, mChannel.get());
    EXPECT_EQ(events[0].fields, (Fields{{"index", "0xC0008605"},
                                        {"size", "12"},
                                        {"value", "4"},
                                        {"index", "0xC0008600"},
                                        {"size", "12"},
                                        {"value", "1"},
                                        {"status", "0"}}));
    EXPECT_EQ(events[1].fields, (Fields{{"index", "0xC2002000"},
                                        {"size", "12"},
                                        {"value", "1106247680"},
                                        {"index", "0x00000001"},
                                        {"size", "10"},
                                        {"index", "null"},
                                        {"size", "0"},
                                        {"index", "0xC0008604"},
                                        {"size", "12"},
                                        {"value", "5"},
                                        {"index", "0xC0008604"},
                                        {"size", "20"},
                                        {"value", "5"},
                                        {"status", std::to_string(-EIO)}}));
}

class StandInsThreadTest : public CCodecBufferChannelTest {};

// One channel, one analysis and the boost service take calls from several threads at once, as
// the codec's input and output threads do; every count and every event record adds up.
TEST_F(StandInsThreadTest, CountersRequestsAndEventsAddUpAcrossThreads) {
    constexpr int kFrames = 2000;
    sp<TavroAnalysisFPS> analysis = new TavroAnalysisFPS();
    TavroVideoBoost::clearRequestsForTesting();
    std::vector<std::thread> threads;
    threads.emplace_back([&] {
        for (int i = 0; i < kFrames; ++i) {
            mChannel->queueInputBuffer(mBuffer);
            analysis->inputBuffer(nullptr);
        }
    });
    threads.emplace_back([&] {
        for (int i = 0; i < kFrames; ++i) {
            mChannel->onWorkDone(workWithIndex(i), nullptr, nullptr);
            mChannel->renderOutputBuffer(mBuffer, i);
            analysis->outputBuffer();
            analysis->statsBufferSize(2);
        }
    });
    threads.emplace_back([&] {
        for (int i = 0; i < 100; ++i) {
            Params p;
            p.push_back(std::make_unique<VendorParam>(0xC0008600, i & 1));
            mChannel->setParameters(p);
            (void)mChannel->writtenParamsForTesting();
        }
    });
    threads.emplace_back([] {
        sp<TavroVideoBoost> boost = TavroVideoBoost::getInstance();
        for (int i = 0; i < 50; ++i) {
            boost->unboost(0x20);
            (void)TavroVideoBoost::requestsForTesting();
            (void)TavroAnalysisFPS::lastCreatedForTesting();
            sp<TavroAnalysisFPS> other = new TavroAnalysisFPS();
        }
    });
    for (std::thread& t : threads) t.join();
    CCodecBufferChannel::Counters c = mChannel->countersForTesting();
    EXPECT_EQ(std::vector<uint64_t>({c.queued, c.rendered, c.worksDone, c.setParameters}),
              std::vector<uint64_t>({kFrames, kFrames, kFrames, 100}));
    EXPECT_EQ(mChannel->writtenParamsForTesting().size(), 100u);
    EXPECT_EQ(
            std::vector<int64_t>({analysis->getInputBufCntTotal(), analysis->getOutputBufCntTotal(),
                                  analysis->countersForTesting().bufferBytes}),
            std::vector<int64_t>({kFrames, kFrames, 2 * kFrames}));
    EXPECT_EQ(TavroVideoBoost::requestsForTesting().size(), 50u);
    EXPECT_EQ(host::HostEvents::ofKind("param").size(), 100u);
    EXPECT_EQ(host::HostEvents::ofKind("unboost").size(), 50u);
    TavroVideoBoost::clearRequestsForTesting();
}

}  // namespace
}  // namespace android
