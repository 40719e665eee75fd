// The host CCodec: its state machine driven through a manual looper, the copies it keeps of what
// it received, the reports to its client, and the hand-over of finished works to the channel.
#include <gtest/gtest.h>

#include <C2Work.h>
#include <codec2/sfplugin/CCodec.h>
#include <codec2/sfplugin/CCodecBufferChannel.h>
#include <host/HostClock.h>
#include <host/HostCodecCallback.h>
#include <host/HostEvents.h>
#include <media/MediaCodecInfo.h>
#include <media/stagefright/foundation/ALooper.h>
#include <media/stagefright/foundation/AMessage.h>

#include <string>
#include <vector>

namespace android {
namespace {

using Names = std::vector<std::string>;
enum { RELEASED = 0, ALLOCATED = 1, FLUSHED = 2, RUNNING = 3 };

// Keeps what the codec hands to the channel with each finished work.
class CapturingChannel : public CCodecBufferChannel {
  public:
    CapturingChannel() : CCodecBufferChannel(nullptr) {}
    void onWorkDone(std::unique_ptr<C2Work> work, const sp<AMessage>& outputFormat,
                    const C2StreamInitDataInfo::output* initData) override {
        formats.push_back(outputFormat);
        frameIndices.push_back(work ? work->input.ordinal.frameIndex.peeku() : ~0ull);
        initDataSeen.push_back(initData);
        CCodecBufferChannel::onWorkDone(std::move(work), outputFormat, initData);
    }
    std::vector<sp<AMessage>> formats;
    std::vector<uint64_t> frameIndices;
    std::vector<const void*> initDataSeen;
};

class CapturingCodec : public CCodec {
  public:
    CapturingCodec() {
        mCapturing = std::make_shared<CapturingChannel>();
        mChannel = mCapturing;
    }
    std::shared_ptr<CapturingChannel> mCapturing;
};

sp<AMessage> allocateMessage(const char* name) {
    sp<AMessage> msg = new AMessage();
    msg->setObject("codecInfo", sp<RefBase>(new MediaCodecInfo(name)));
    return msg;
}

std::list<std::unique_ptr<C2Work>> works(std::initializer_list<uint64_t> frameIndices) {
    std::list<std::unique_ptr<C2Work>> out;
    for (uint64_t i : frameIndices) {
        out.push_back(std::make_unique<C2Work>());
        out.back()->input.ordinal.frameIndex = c2_cntr64_t(i);
    }
    return out;
}

class CCodecTest : public testing::Test {
  protected:
    void SetUp() override {
        host::HostEvents::clear();
        host::HostClock::useManual();
        mLooper = new ALooper();
        ASSERT_EQ(mLooper->setManualForTesting(true), OK);
        install(new CCodec());
    }
    void TearDown() override {
        if (mCodec != nullptr) mLooper->unregisterHandler(mCodec->id());
        mLooper->clearPendingForTesting();
        host::HostClock::useReal();
        host::HostEvents::clear();
    }
    void install(const sp<CCodec>& codec) {
        if (mCodec != nullptr) mLooper->unregisterHandler(mCodec->id());
        mCodec = codec;
        ASSERT_GT(mLooper->registerHandler(mCodec), 0);
        auto client = std::make_unique<host::RecordingCodecCallback>();
        mClient = client.get();
        mCodec->setCallback(std::move(client));
    }
    Names clientNames() const { return mClient->namesForTesting(); }
    // "name:value" of every recorded call, space-separated.
    std::string calls() const {
        std::string out;
        for (const CCodec::Call& call : mCodec->callsForTesting()) {
            out += (out.empty() ? "" : " ") + call.name + ":" + std::to_string(call.value);
        }
        return out;
    }

    sp<ALooper> mLooper;
    sp<CCodec> mCodec;
    host::RecordingCodecCallback* mClient = nullptr;  // owned by mCodec
};

TEST_F(CCodecTest, LifecycleMovesTheStateOnlyWhenTheLooperDispatches) {
    mCodec->initiateAllocateComponent(allocateMessage("c2.tavro.avc.decoder"));
    EXPECT_EQ(mCodec->stateForTesting(), RELEASED);  // posted, not yet handled
    EXPECT_EQ(mLooper->runPendingForTesting(), 1u);
    EXPECT_EQ(mCodec->stateForTesting(), ALLOCATED);
    mCodec->signalFlush();   // outside RUNNING: reported, state kept
    mCodec->signalResume();  // outside FLUSHED: nothing
    EXPECT_EQ(mCodec->stateForTesting(), ALLOCATED);
    mCodec->initiateConfigureComponent(new AMessage());
    mCodec->initiateStart();
    size_t dispatched = 0;
    ASSERT_TRUE(mLooper->advanceForTesting(1000, &dispatched));
    EXPECT_EQ(dispatched, 2u);
    EXPECT_EQ(mCodec->stateForTesting(), RUNNING);
    mCodec->signalFlush();  // synchronous: channel flush, state, client report
    EXPECT_EQ(mCodec->stateForTesting(), FLUSHED);
    EXPECT_EQ(mCodec->channelForTesting()->countersForTesting().flushes, 2u);
    mCodec->signalResume();
    EXPECT_EQ(mCodec->stateForTesting(), RUNNING);
    mCodec->initiateShutdown(true);
    mLooper->runPendingForTesting();
    EXPECT_EQ(mCodec->stateForTesting(), ALLOCATED);
    mCodec->initiateShutdown(false);
    mLooper->runPendingForTesting();
    EXPECT_EQ(mCodec->stateForTesting(), RELEASED);

    EXPECT_EQ(clientNames(), (Names{"onComponentAllocated", "onFlushCompleted",
                                    "onComponentConfigured", "onStartCompleted", "onFlushCompleted",
                                    "onStopCompleted", "onReleaseCompleted"}));
    EXPECT_EQ(mClient->eventsForTesting()[0].field("componentName"), "c2.tavro.avc.decoder");
    // onMessageReceived carries the message's what: allocate 0, configure 1, start 2, stop 4,
    // release 5; initiateShutdown whether the component stays allocated.
    EXPECT_EQ(calls(),
              "initiateAllocateComponent:0 onMessageReceived:0 signalFlush:0 signalResume:0 "
              "initiateConfigureComponent:0 initiateStart:0 onMessageReceived:1 "
              "onMessageReceived:2 signalFlush:0 signalResume:0 initiateShutdown:1 "
              "onMessageReceived:4 initiateShutdown:0 onMessageReceived:5");
}

TEST_F(CCodecTest, ConfigureKeepsACopyOfExactlyWhatItReceived) {
    sp<AMessage> format = new AMessage();
    format->setString("mime", "video/hevc");
    format->setInt32("width", 1920);
    format->setFloat("frame-rate", 29.97f);
    mCodec->initiateConfigureComponent(format);
    // The caller changing its message afterwards does not change what the platform received.
    format->setInt32("width", 640);
    format->setInt64("late-key", 1);
    mLooper->runPendingForTesting();

    std::vector<CCodec::Call> calls = mCodec->callsForTesting();
    ASSERT_EQ(calls.size(), 2u);
    ASSERT_NE(calls[0].msg, nullptr);
    EXPECT_NE(calls[0].msg, format);
    int32_t width = 0;
    EXPECT_TRUE(calls[0].msg->findInt32("width", &width));
    EXPECT_EQ(width, 1920);
    EXPECT_FALSE(calls[0].msg->contains("late-key"));
    // The handler's message carries the caller's format, as it stood at dispatch.
    sp<AMessage> posted;
    ASSERT_TRUE(calls[1].msg->findMessage("format", &posted));
    EXPECT_TRUE(posted->findInt32("width", &width));
    EXPECT_EQ(width, 640);

    std::vector<host::HostEvent> configured = mClient->eventsForTesting();
    ASSERT_EQ(configured.size(), 1u);
    const char* kText = "{mime=video/hevc, width=640, frame-rate=29.97, late-key=1}";
    EXPECT_EQ(configured[0].field("inputFormat"), kText);
    EXPECT_EQ(configured[0].field("outputFormat"), kText);
    // The same call as a "codec" event, with the format's entries as fields.
    std::vector<host::HostEvent> events =
            host::HostEvents::named("codec", "initiateConfigureComponent");
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0].source, mCodec.get());
    EXPECT_EQ(events[0].fields,
              (std::vector<std::pair<std::string, std::string>>{{"value", "0"},
                                                                {"mime", "video/hevc"},
                                                                {"width", "1920"},
                                                                {"frame-rate", "29.97"}}));
}

TEST_F(CCodecTest, MissingCodecInfoOrFormatIsReportedAsAnError) {
    mCodec->initiateAllocateComponent(new AMessage());
    mCodec->initiateConfigureComponent(nullptr);
    mCodec->initiateAllocateComponent(nullptr);  // recorded, nothing posted
    (new AMessage(99, mCodec))->post();          // an unknown what is ignored
    mLooper->runPendingForTesting();
    EXPECT_EQ(mCodec->stateForTesting(), RELEASED);
    std::vector<host::HostEvent> events = mClient->eventsForTesting();
    EXPECT_EQ(clientNames(), (Names{"onError", "onError"}));
    ASSERT_EQ(events.size(), 2u);
    EXPECT_EQ(events[0].fields,
              (std::vector<std::pair<std::string, std::string>>{
                      {"err", std::to_string(UNKNOWN_ERROR)}, {"actionCode", "0"}}));
    EXPECT_EQ(events[1].field("err"), std::to_string(BAD_VALUE));
    EXPECT_EQ(
            calls(),
            "initiateAllocateComponent:0 initiateConfigureComponent:0 initiateAllocateComponent:0 "
            "onMessageReceived:0 onMessageReceived:1 onMessageReceived:99");
}

TEST_F(CCodecTest, OnWorkDoneHandsEachWorkToTheChannelWithTheOutputFormat) {
    sp<CapturingCodec> codec = new CapturingCodec();
    install(codec);
    std::list<std::unique_ptr<C2Work>> done = works({10, 11});
    codec->onWorkDone(done);
    EXPECT_TRUE(done.empty());
    ASSERT_EQ(codec->mCapturing->formats.size(), 2u);
    ASSERT_NE(codec->mCapturing->formats[0], nullptr);  // before configure: an empty message
    EXPECT_EQ(codec->mCapturing->formats[0]->countEntries(), 0u);
    EXPECT_EQ(codec->mCapturing->frameIndices, (std::vector<uint64_t>{10, 11}));
    EXPECT_EQ(codec->mCapturing->initDataSeen, (std::vector<const void*>{nullptr, nullptr}));

    sp<AMessage> format = new AMessage();
    format->setString("mime", "video/avc");
    format->setInt32("width", 720);
    codec->initiateConfigureComponent(format);
    mLooper->runPendingForTesting();
    done = works({12});
    codec->onWorkDone(done);
    ASSERT_EQ(codec->mCapturing->formats.size(), 3u);
    sp<AMessage> output = codec->mCapturing->formats[2];
    ASSERT_NE(output, nullptr);
    EXPECT_NE(output, format);  // a copy, not the client's message
    EXPECT_EQ(output->countEntries(), 2u);
    int32_t width = 0;
    EXPECT_TRUE(output->findInt32("width", &width));
    EXPECT_EQ(width, 720);
    EXPECT_EQ(codec->mCapturing->countersForTesting().worksDone, 3u);
    EXPECT_EQ(calls(),
              "onWorkDone:2 initiateConfigureComponent:0 onMessageReceived:1 onWorkDone:1");
}

}  // namespace
}  // namespace android
