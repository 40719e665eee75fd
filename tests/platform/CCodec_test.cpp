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

#include <atomic>
#include <string>
#include <thread>
#include <vector>

namespace android {
namespace {

using Names = std::vector<std::string>;

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

    sp<ALooper> mLooper;
    sp<CCodec> mCodec;
    host::RecordingCodecCallback* mClient = nullptr;  // owned by mCodec
};

TEST_F(CCodecTest, LifecycleMovesTheStateOnlyWhenTheLooperDispatches) {
    enum { RELEASED = 0, ALLOCATED = 1, FLUSHED = 2, RUNNING = 3 };
    EXPECT_EQ(mCodec->stateForTesting(), RELEASED);

    mCodec->initiateAllocateComponent(allocateMessage("c2.tavro.avc.decoder"));
    EXPECT_EQ(mCodec->stateForTesting(), RELEASED);  // posted, not yet handled
    EXPECT_EQ(mLooper->pendingCountForTesting(), 1u);
    EXPECT_EQ(mLooper->runPendingForTesting(), 1u);
    EXPECT_EQ(mCodec->stateForTesting(), ALLOCATED);

    sp<AMessage> format = new AMessage();
    format->setString("mime", "video/avc");
    mCodec->initiateConfigureComponent(format);
    mCodec->initiateStart();
    EXPECT_EQ(mCodec->stateForTesting(), ALLOCATED);
    size_t dispatched = 0;
    ASSERT_TRUE(mLooper->advanceForTesting(1000, &dispatched));
    EXPECT_EQ(dispatched, 2u);
    EXPECT_EQ(mCodec->stateForTesting(), RUNNING);

    mCodec->signalFlush();  // synchronous: channel flush, state, client report
    EXPECT_EQ(mCodec->stateForTesting(), FLUSHED);
    EXPECT_EQ(mCodec->channelForTesting()->countersForTesting().flushes, 1u);
    mCodec->signalResume();
    EXPECT_EQ(mCodec->stateForTesting(), RUNNING);

    mCodec->initiateShutdown(true);
    mLooper->runPendingForTesting();
    EXPECT_EQ(mCodec->stateForTesting(), ALLOCATED);
    mCodec->initiateShutdown(false);
    mLooper->runPendingForTesting();
    EXPECT_EQ(mCodec->stateForTesting(), RELEASED);

    EXPECT_EQ(clientNames(),
              (Names{"onComponentAllocated", "onComponentConfigured", "onStartCompleted",
                     "onFlushCompleted", "onStopCompleted", "onReleaseCompleted"}));
    EXPECT_EQ(mClient->eventsForTesting()[0].field("componentName"), "c2.tavro.avc.decoder");

    EXPECT_EQ(mCodec->callNamesForTesting(),
              (Names{"initiateAllocateComponent", "onMessageReceived", "initiateConfigureComponent",
                     "initiateStart", "onMessageReceived", "onMessageReceived", "signalFlush",
                     "signalResume", "initiateShutdown", "onMessageReceived", "initiateShutdown",
                     "onMessageReceived"}));
    std::vector<CCodec::Call> calls = mCodec->callsForTesting();
    const int64_t kWhat[] = {0, 1, 2, 4, 5};  // allocate, configure, start, stop, release
    size_t next = 0;
    for (const CCodec::Call& call : calls) {
        if (call.name == "onMessageReceived") {
            ASSERT_LT(next, 5u);
            EXPECT_EQ(call.value, kWhat[next++]);
        }
    }
    EXPECT_EQ(next, 5u);
    EXPECT_EQ(calls[8].value, 1);   // initiateShutdown(true)
    EXPECT_EQ(calls[10].value, 0);  // initiateShutdown(false)
}

TEST_F(CCodecTest, ConfigureKeepsACopyOfExactlyWhatItReceived) {
    sp<AMessage> format = new AMessage();
    format->setString("mime", "video/hevc");
    format->setInt32("width", 1920);
    format->setInt32("height", 1080);
    format->setFloat("frame-rate", 29.97f);
    mCodec->initiateConfigureComponent(format);
    // The caller changing its message afterwards does not change what the platform received.
    format->setInt32("width", 640);
    format->setInt64("late-key", 1);
    mLooper->runPendingForTesting();

    std::vector<CCodec::Call> calls = mCodec->callsForTesting();
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[0].name, "initiateConfigureComponent");
    ASSERT_NE(calls[0].msg, nullptr);
    EXPECT_NE(calls[0].msg, format);
    ASSERT_EQ(calls[0].msg->countEntries(), 4u);
    AString mime;
    int32_t width = 0, height = 0;
    float fps = 0;
    EXPECT_TRUE(calls[0].msg->findString("mime", &mime));
    EXPECT_STREQ(mime.c_str(), "video/hevc");
    EXPECT_TRUE(calls[0].msg->findInt32("width", &width));
    EXPECT_EQ(width, 1920);
    EXPECT_TRUE(calls[0].msg->findInt32("height", &height));
    EXPECT_EQ(height, 1080);
    EXPECT_TRUE(calls[0].msg->findFloat("frame-rate", &fps));
    EXPECT_EQ(fps, 29.97f);

    // The handler's message carries the caller's format, as it stood at dispatch.
    EXPECT_EQ(calls[1].name, "onMessageReceived");
    EXPECT_EQ(calls[1].value, 1);
    sp<AMessage> posted;
    ASSERT_TRUE(calls[1].msg->findMessage("format", &posted));
    EXPECT_TRUE(posted->findInt32("width", &width));
    EXPECT_EQ(width, 640);

    std::vector<host::HostEvent> configured = mClient->eventsForTesting();
    ASSERT_EQ(configured.size(), 1u);
    EXPECT_EQ(configured[0].name, "onComponentConfigured");
    const char* kText = "{mime=video/hevc, width=640, height=1080, frame-rate=29.97, late-key=1}";
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
                                                                {"height", "1080"},
                                                                {"frame-rate", "29.97"}}));
}

TEST_F(CCodecTest, MissingCodecInfoOrFormatIsReportedAsAnError) {
    mCodec->initiateAllocateComponent(new AMessage());
    mCodec->initiateConfigureComponent(nullptr);
    mLooper->runPendingForTesting();
    EXPECT_EQ(mCodec->stateForTesting(), 0);
    std::vector<host::HostEvent> events = mClient->eventsForTesting();
    ASSERT_EQ(events.size(), 2u);
    EXPECT_EQ(events[0].name, "onError");
    EXPECT_EQ(events[0].field("err"), std::to_string(UNKNOWN_ERROR));
    EXPECT_EQ(events[0].field("actionCode"), "0");
    EXPECT_EQ(events[1].name, "onError");
    EXPECT_EQ(events[1].field("err"), std::to_string(BAD_VALUE));
}

TEST_F(CCodecTest, SynchronousCallsAreRecordedWithTheirArguments) {
    EXPECT_EQ(mCodec->setSurface(nullptr, 7), OK);
    mCodec->setSurfaceStatusForTesting(-EPIPE);
    EXPECT_EQ(mCodec->setSurface(nullptr, 8), -EPIPE);

    sp<AMessage> params = new AMessage();
    params->setFloat("operating-rate", 120.0f);
    mCodec->signalSetParameters(params);
    params->setFloat("operating-rate", 30.0f);

    mCodec->signalRequestIDRFrame();
    mCodec->signalEndOfInputStream();
    mCodec->initiateCreateInputSurface();
    mCodec->initiateSetInputSurface(nullptr);
    mCodec->reportOverLoadInfo();
    mCodec->setupInputSurface(std::make_shared<InputSurfaceWrapper>());
    // None of them posts anything.
    EXPECT_EQ(mLooper->pendingCountForTesting(), 0u);

    std::vector<CCodec::Call> calls = mCodec->callsForTesting();
    Names names;
    for (const CCodec::Call& call : calls) names.push_back(call.name);
    EXPECT_EQ(names,
              (Names{"setSurface", "setSurface", "signalSetParameters", "signalRequestIDRFrame",
                     "signalEndOfInputStream", "initiateCreateInputSurface",
                     "initiateSetInputSurface", "reportOverLoadInfo", "setupInputSurface"}));
    EXPECT_EQ(calls[0].value, 7);
    EXPECT_EQ(calls[1].value, 8);
    float rate = 0;
    ASSERT_NE(calls[2].msg, nullptr);
    EXPECT_TRUE(calls[2].msg->findFloat("operating-rate", &rate));
    EXPECT_EQ(rate, 120.0f);
    EXPECT_TRUE(clientNames().empty());
}

TEST_F(CCodecTest, FlushOutsideRunningKeepsTheState) {
    mCodec->setStateForTesting(1);
    mCodec->signalFlush();
    EXPECT_EQ(mCodec->stateForTesting(), 1);
    EXPECT_EQ(clientNames(), (Names{"onFlushCompleted"}));
    mCodec->signalResume();
    EXPECT_EQ(mCodec->stateForTesting(), 1);
}

TEST_F(CCodecTest, OnWorkDoneHandsEachWorkToTheChannelWithTheOutputFormat) {
    sp<CapturingCodec> codec = new CapturingCodec();
    install(codec);

    std::list<std::unique_ptr<C2Work>> works;
    for (uint64_t i : {10u, 11u}) {
        works.push_back(std::make_unique<C2Work>());
        works.back()->input.ordinal.frameIndex = c2_cntr64_t(i);
    }
    codec->onWorkDone(works);
    EXPECT_TRUE(works.empty());
    ASSERT_EQ(codec->mCapturing->formats.size(), 2u);
    // Before configure the output format is an empty message.
    ASSERT_NE(codec->mCapturing->formats[0], nullptr);
    EXPECT_EQ(codec->mCapturing->formats[0]->countEntries(), 0u);
    EXPECT_EQ(codec->mCapturing->frameIndices, (std::vector<uint64_t>{10, 11}));
    EXPECT_EQ(codec->mCapturing->initDataSeen, (std::vector<const void*>{nullptr, nullptr}));

    sp<AMessage> format = new AMessage();
    format->setString("mime", "video/avc");
    format->setInt32("width", 720);
    codec->initiateConfigureComponent(format);
    mLooper->runPendingForTesting();

    works.push_back(std::make_unique<C2Work>());
    works.back()->input.ordinal.frameIndex = c2_cntr64_t(12);
    codec->onWorkDone(works);
    ASSERT_EQ(codec->mCapturing->formats.size(), 3u);
    sp<AMessage> output = codec->mCapturing->formats[2];
    ASSERT_NE(output, nullptr);
    EXPECT_NE(output, format);  // a copy, not the client's message
    EXPECT_EQ(output->countEntries(), 2u);
    int32_t width = 0;
    EXPECT_TRUE(output->findInt32("width", &width));
    EXPECT_EQ(width, 720);
    EXPECT_EQ(codec->mCapturing->countersForTesting().worksDone, 3u);

    std::vector<CCodec::Call> calls = codec->callsForTesting();
    ASSERT_GE(calls.size(), 1u);
    EXPECT_EQ(calls[0].name, "onWorkDone");
    EXPECT_EQ(calls[0].value, 2);
    EXPECT_EQ(calls.back().name, "onWorkDone");
    EXPECT_EQ(calls.back().value, 1);
}

TEST_F(CCodecTest, DefaultChannelIsThePlatformChannel) {
    std::shared_ptr<BufferChannelBase> channel = mCodec->getBufferChannel();
    ASSERT_NE(channel, nullptr);
    EXPECT_EQ(channel.get(), static_cast<BufferChannelBase*>(mCodec->channelForTesting().get()));
}

class CCodecThreadTest : public CCodecTest {};

// Start runs on one thread while others read the state and record calls: the state word and the
// record are each read under their lock, and the state only moves forward.
TEST_F(CCodecThreadTest, StartOnOneThreadWhileAnotherReadsTheState) {
    mCodec->initiateAllocateComponent(allocateMessage("c2.tavro.hevc.decoder"));
    mLooper->runPendingForTesting();
    ASSERT_EQ(mCodec->stateForTesting(), 1);

    std::atomic<bool> started{false};
    std::thread starter([&] {
        mCodec->initiateStart();
        mLooper->runPendingForTesting();
        started.store(true);
    });
    std::vector<int> seen;
    std::thread reader([&] {
        for (int i = 0; i < 2000; ++i) {
            seen.push_back(mCodec->stateForTesting());
            if (started.load() && seen.back() == 3) break;
        }
    });
    std::thread recorder([&] {
        for (int i = 0; i < 200; ++i) {
            mCodec->signalRequestIDRFrame();
            (void)mCodec->callsForTesting();
        }
    });
    starter.join();
    reader.join();
    recorder.join();

    ASSERT_FALSE(seen.empty());
    for (size_t i = 0; i < seen.size(); ++i) {
        EXPECT_TRUE(seen[i] == 1 || seen[i] == 3) << "state " << seen[i];
        if (i > 0) {
            EXPECT_GE(seen[i], seen[i - 1]);
        }
    }
    EXPECT_EQ(mCodec->stateForTesting(), 3);
    size_t idr = 0;
    for (const std::string& name : mCodec->callNamesForTesting())
        idr += name == "signalRequestIDRFrame";
    EXPECT_EQ(idr, 200u);
    EXPECT_EQ(clientNames(), (Names{"onComponentAllocated", "onStartCompleted"}));
}

}  // namespace
}  // namespace android
