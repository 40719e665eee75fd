// The host CCodecBufferChannel: counters, chosen statuses, parameter records as written, kept
// works, and the platform callback's hand-over to the codec's client.
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

TEST_F(CCodecBufferChannelTest, EachOperationCountsAndReturnsItsChosenStatus) {
    EXPECT_EQ(mChannel->queueInputBuffer(mBuffer), OK);
    mChannel->setQueueStatusForTesting(-EINVAL);
    EXPECT_EQ(mChannel->queueInputBuffer(mBuffer), -EINVAL);
    CryptoPlugin::Pattern pattern{1, 9};
    AString detail;
    EXPECT_EQ(mChannel->queueSecureInputBuffer(mBuffer, true, nullptr, nullptr,
                                               CryptoPlugin::kMode_AES_CTR, pattern, nullptr, 0,
                                               &detail),
              -EINVAL);
    EXPECT_EQ(mChannel->renderOutputBuffer(mBuffer, 5), OK);
    mChannel->setRenderStatusForTesting(INVALID_OPERATION);
    EXPECT_EQ(mChannel->renderOutputBuffer(mBuffer, 6), INVALID_OPERATION);
    mChannel->setDiscardStatusForTesting(NO_INIT);
    EXPECT_EQ(mChannel->discardBuffer(mBuffer), NO_INIT);
    mChannel->flush({});
    mChannel->onWorkDone(workWithIndex(1), new AMessage(), nullptr);

    CCodecBufferChannel::Counters c = mChannel->countersForTesting();
    EXPECT_EQ(std::vector<uint64_t>({c.queued, c.secureQueued, c.rendered, c.discarded, c.flushes,
                                     c.worksDone, c.setParameters}),
              std::vector<uint64_t>({2, 1, 2, 1, 1, 1, 0}));

    // The maker's operations do nothing on the platform.
    mChannel->setFeedbackId(42);
    mChannel->cheekFFModeStatus(true, 3);
    mChannel->setInputMetEos(true);
    mChannel->setHdrType(2);
    EXPECT_EQ(mChannel->sendFeedbackInfo(new AMessage()), OK);
    const uint8_t meta[4] = {1, 2, 3, 4};
    EXPECT_EQ(mChannel->parserDynamicMetaData(meta, 4), 0);
    EXPECT_EQ(mChannel->getInputDelay(), 0u);
    mChannel->setInputDelayForTesting(4);
    EXPECT_EQ(mChannel->getInputDelay(), 4u);
    EXPECT_FALSE(mChannel->isStopping());
    mChannel->setStoppingForTesting(true);
    EXPECT_TRUE(mChannel->isStopping());
    // Data-path and maker calls leave no events; only parameter writes do.
    EXPECT_TRUE(host::HostEvents::all().empty());
}

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

TEST_F(CCodecBufferChannelTest, FinishedWorksAreKeptOnlyWhenAsked) {
    mChannel->onWorkDone(workWithIndex(1), new AMessage(), nullptr);
    EXPECT_EQ(mChannel->finishedWorkCountForTesting(), 0u);
    mChannel->setKeepFinishedWorksForTesting(true);
    mChannel->onWorkDone(workWithIndex(2), new AMessage(), nullptr);
    mChannel->onWorkDone(workWithIndex(3), new AMessage(), nullptr);
    EXPECT_EQ(mChannel->finishedWorkCountForTesting(), 2u);
    EXPECT_EQ(mChannel->countersForTesting().worksDone, 3u);

    std::unique_ptr<C2Work> second = mChannel->takeFinishedWorkForTesting(1);
    ASSERT_NE(second, nullptr);
    EXPECT_EQ(second->input.ordinal.frameIndex.peeku(), 3u);
    // Taking leaves the slot empty; the other indices do not move.
    EXPECT_EQ(mChannel->takeFinishedWorkForTesting(1), nullptr);
    EXPECT_EQ(mChannel->finishedWorkCountForTesting(), 2u);
    std::unique_ptr<C2Work> first = mChannel->takeFinishedWorkForTesting(0);
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(first->input.ordinal.frameIndex.peeku(), 2u);
    EXPECT_EQ(mChannel->takeFinishedWorkForTesting(7), nullptr);
}

// The platform channel's callback reaches the codec's client through the codec.
TEST_F(CCodecBufferChannelTest, PlatformCallbackForwardsToTheCodecClient) {
    sp<CCodec> codec = new CCodec();
    std::shared_ptr<CCodecCallback> callback = codec->channelForTesting()->baseCallbackForTesting();
    ASSERT_NE(callback, nullptr);
    callback->onError(UNKNOWN_ERROR, ACTION_CODE_FATAL);  // without a client nothing happens
    EXPECT_TRUE(host::HostEvents::ofKind("callback").empty());

    auto client = std::make_unique<host::RecordingCodecCallback>();
    host::RecordingCodecCallback* recorder = client.get();
    codec->setCallback(std::move(client));
    callback->onError(-EIO, ACTION_CODE_TRANSIENT);
    callback->onOutputFramesRendered(33000, 1000000007);
    callback->onOutputBuffersChanged();
    callback->onFirstTunnelFrameReady();
    std::vector<host::HostEvent> events = recorder->eventsForTesting();
    ASSERT_EQ(events.size(), 4u);
    EXPECT_EQ(events[0].name, "onError");
    EXPECT_EQ(events[0].fields, (Fields{{"err", std::to_string(-EIO)}, {"actionCode", "1"}}));
    EXPECT_EQ(events[1].name, "onOutputFramesRendered");
    EXPECT_EQ(events[1].fields, (Fields{{"mediaTimeUs", "33000"}, {"renderTimeNs", "1000000007"}}));
    EXPECT_EQ(events[2].name, "onOutputBuffersChanged");
    EXPECT_EQ(events[3].name, "onFirstTunnelFrameReady");
}

TEST(MediaCodecBufferTest, RangeMetaAndFormat) {
    uint8_t bytes[8] = {0, 1, 2, 3, 4, 5, 6, 7};
    sp<AMessage> format = new AMessage();
    sp<MediaCodecBuffer> buffer = new MediaCodecBuffer(format, new ABuffer(bytes, sizeof(bytes)));
    EXPECT_EQ(buffer->capacity(), 8u);
    EXPECT_EQ(buffer->size(), 8u);
    EXPECT_EQ(buffer->setRange(2, 5), OK);
    EXPECT_EQ(buffer->offset(), 2u);
    EXPECT_EQ(buffer->size(), 5u);
    EXPECT_EQ(buffer->data()[0], 2);
    EXPECT_EQ(buffer->base(), bytes);
    EXPECT_EQ(buffer->setRange(4, 5), BAD_VALUE);
    EXPECT_EQ(buffer->setRange(9, 0), BAD_VALUE);
    EXPECT_EQ(buffer->setRange(static_cast<size_t>(2), SIZE_MAX), BAD_VALUE);
    EXPECT_EQ(buffer->offset(), 2u);  // a refused range leaves the old one
    EXPECT_EQ(buffer->setRange(8, 0), OK);
    EXPECT_EQ(buffer->size(), 0u);

    ASSERT_NE(buffer->meta(), nullptr);
    buffer->meta()->setInt64("timeUs", 40000);
    int64_t timeUs = 0;
    EXPECT_TRUE(buffer->meta()->findInt64("timeUs", &timeUs));
    EXPECT_EQ(timeUs, 40000);
    EXPECT_EQ(buffer->format(), format);
    sp<AMessage> other = new AMessage();
    buffer->setFormat(other);
    EXPECT_EQ(buffer->format(), other);

    sp<MediaCodecBuffer> empty = new MediaCodecBuffer(nullptr, nullptr);
    EXPECT_EQ(empty->size(), 0u);
    EXPECT_EQ(empty->capacity(), 0u);
    EXPECT_EQ(empty->setRange(0, 1), BAD_VALUE);
}

class CCodecBufferChannelThreadTest : public CCodecBufferChannelTest {};

TEST_F(CCodecBufferChannelThreadTest, CountersAndRecordsAddUpAcrossThreads) {
    constexpr int kFrames = 2000;
    mChannel->setKeepFinishedWorksForTesting(true);
    std::thread input([this] {
        for (int i = 0; i < kFrames; ++i) mChannel->queueInputBuffer(mBuffer);
    });
    std::thread output([this] {
        for (int i = 0; i < kFrames; ++i) {
            mChannel->onWorkDone(workWithIndex(i), nullptr, nullptr);
            mChannel->renderOutputBuffer(mBuffer, i);
        }
    });
    std::thread params([this] {
        for (int i = 0; i < 100; ++i) {
            Params p;
            p.push_back(std::make_unique<VendorParam>(0xC0008600, i & 1));
            mChannel->setParameters(p);
            (void)mChannel->writtenParamsForTesting();
            (void)mChannel->finishedWorkCountForTesting();
        }
    });
    input.join();
    output.join();
    params.join();
    CCodecBufferChannel::Counters c = mChannel->countersForTesting();
    EXPECT_EQ(c.queued, static_cast<uint64_t>(kFrames));
    EXPECT_EQ(c.rendered, static_cast<uint64_t>(kFrames));
    EXPECT_EQ(c.worksDone, static_cast<uint64_t>(kFrames));
    EXPECT_EQ(c.setParameters, 100u);
    EXPECT_EQ(mChannel->finishedWorkCountForTesting(), static_cast<size_t>(kFrames));
    EXPECT_EQ(mChannel->writtenParamsForTesting().size(), 100u);
}

}  // namespace
}  // namespace android
