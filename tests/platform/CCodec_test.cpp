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
    std::shared_ptr<BufferChannelBase> channel = mCodec->getBufferChannel();
    EXPECT_EQ(channel.get(), static_cast<BufferChannelBase*>(mCodec->channelForTesting().get()));
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
    // onMessageReceived carries the message's what: allocate 0, configure 1, start 2, stop 4,
    // release 5; initiateShutdown whether the component stays allocated.
    EXPECT_EQ(
            calls(),
            "initiateAllocateComponent:0 onMessageReceived:0 initiateConfigureComponent:0 "
            "initiateStart:0 onMessageReceived:1 onMessageReceived:2 signalFlush:0 signalResume:0 "
            "initiateShutdown:1 onMessageReceived:4 initiateShutdown:0 onMessageReceived:5");
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
    EXPECT_STREQ(calls[0].msg->debugString().c_str(),
                 "AMessage(what = 0x00000000) = {\n"
                 "  string mime = \"video/hevc\"\n"
                 "  int32_t width = 1920\n"
                 "  int32_t height = 1080\n"
                 "  float frame-rate = 29.969999\n"
                 "}");

    // The handler's message carries the caller's format, as it stood at dispatch.
    EXPECT_EQ(calls[1].name, "onMessageReceived");
    EXPECT_EQ(calls[1].value, 1);
    sp<AMessage> posted;
    int32_t width = 0;
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
    mCodec->initiateAllocateComponent(nullptr);  // recorded, nothing posted
    (new AMessage(99, mCodec))->post();          // an unknown what is ignored
    mLooper->runPendingForTesting();
    EXPECT_EQ(mCodec->stateForTesting(), RELEASED);
    std::vector<host::HostEvent> events = mClient->eventsForTesting();
    ASSERT_EQ(events.size(), 2u);
    EXPECT_EQ(events[0].name, "onError");
    EXPECT_EQ(events[0].field("err"), std::to_string(UNKNOWN_ERROR));
    EXPECT_EQ(events[0].field("actionCode"), "0");
    EXPECT_EQ(events[1].name, "onError");
    EXPECT_EQ(events[1].field("err"), std::to_string(BAD_VALUE));
    EXPECT_EQ(
            calls(),
            "initiateAllocateComponent:0 initiateConfigureComponent:0 initiateAllocateComponent:0 "
            "onMessageReceived:0 onMessageReceived:1 onMessageReceived:99");
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
    EXPECT_EQ(calls(),
              "setSurface:7 setSurface:8 signalSetParameters:0 signalRequestIDRFrame:0 "
              "signalEndOfInputStream:0 initiateCreateInputSurface:0 initiateSetInputSurface:0 "
              "reportOverLoadInfo:0 setupInputSurface:0");
    float rate = 0;
    sp<AMessage> copy = mCodec->callsForTesting()[2].msg;
    ASSERT_NE(copy, nullptr);
    EXPECT_TRUE(copy->findFloat("operating-rate", &rate));
    EXPECT_EQ(rate, 120.0f);
    EXPECT_TRUE(clientNames().empty());

    // Flush outside RUNNING reports but keeps the state; resume outside FLUSHED does nothing.
    mCodec->setStateForTesting(ALLOCATED);
    mCodec->signalFlush();
    EXPECT_EQ(mCodec->stateForTesting(), ALLOCATED);
    EXPECT_EQ(clientNames(), (Names{"onFlushCompleted"}));
    mCodec->signalResume();
    EXPECT_EQ(mCodec->stateForTesting(), ALLOCATED);
}

TEST_F(CCodecTest, OnWorkDoneHandsEachWorkToTheChannelWithTheOutputFormat) {
    sp<CapturingCodec> codec = new CapturingCodec();
    install(codec);
    std::list<std::unique_ptr<C2Work>> done = works({10, 11});
    codec->onWorkDone(done);
    EXPECT_TRUE(done.empty());
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

class CCodecThreadTest : public CCodecTest {};

// Start runs on one thread while others read the state and record calls: the state word and the
// record are each read under their lock, and the state only moves forward.
TEST_F(CCodecThreadTest, StartOnOneThreadWhileAnotherReadsTheState) {
    mCodec->initiateAllocateComponent(allocateMessage("c2.tavro.hevc.decoder"));
    mLooper->runPendingForTesting();
    ASSERT_EQ(mCodec->stateForTesting(), ALLOCATED);

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
            if (started.load() && seen.back() == RUNNING) break;
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
        EXPECT_TRUE(seen[i] == ALLOCATED || seen[i] == RUNNING) << "state " << seen[i];
        if (i > 0) {
            EXPECT_GE(seen[i], seen[i - 1]);
        }
    }
    EXPECT_EQ(mCodec->stateForTesting(), RUNNING);
    size_t idr = 0;
    for (const std::string& name : mCodec->callNamesForTesting())
        idr += name == "signalRequestIDRFrame";
    EXPECT_EQ(idr, 200u);
    EXPECT_EQ(clientNames(), (Names{"onComponentAllocated", "onStartCompleted"}));
}

}  // namespace
}  // namespace android
