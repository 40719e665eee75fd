// The platform's Codec2 codec (host stand-in): an AHandler whose initiate*/signal* calls post
// messages to itself (0 allocate, 1 configure, 2 start, ...) and whose handler moves a state
// word, kept under a state lock, through RELEASED, ALLOCATED and RUNNING (3). The host version
// records every call it receives with its arguments so tests and tools see what reached the
// platform; it talks to no component.
#pragma once

#include <stdint.h>

#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <C2Work.h>
#include <codec2/sfplugin/CCodecBufferChannel.h>
#include <codec2/sfplugin/InputSurfaceWrapper.h>
#include <media/stagefright/CodecBase.h>
#include <media/stagefright/foundation/AMessage.h>
#include <media/stagefright/foundation/Mutexed.h>
#include <utils/Errors.h>

namespace android {

class CCodec : public CodecBase {
  public:
    CCodec();

    std::shared_ptr<BufferChannelBase> getBufferChannel() override;
    void initiateAllocateComponent(const sp<AMessage>& msg) override;
    void initiateConfigureComponent(const sp<AMessage>& format) override;
    void initiateCreateInputSurface() override;
    void initiateSetInputSurface(const sp<PersistentSurface>& surface) override;
    void initiateStart() override;
    void initiateShutdown(bool keepComponentAllocated = false) override;
    status_t setSurface(const sp<Surface>& surface, uint32_t generation) override;
    void signalFlush() override;
    void signalResume() override;
    void signalRequestIDRFrame() override;
    void signalSetParameters(const sp<AMessage>& params) override;
    void signalEndOfInputStream() override;

    // Device build hooks.
    virtual void reportOverLoadInfo();
    // Finished works from the component: each goes to the buffer channel's onWorkDone.
    virtual void onWorkDone(std::list<std::unique_ptr<C2Work>>& workItems);
    virtual void setupInputSurface(const std::shared_ptr<InputSurfaceWrapper>& surface);

    // ---- Host only -------------------------------------------------------------------------
    struct Call {
        std::string name;   // "initiateAllocateComponent", "onMessageReceived", ...
        sp<AMessage> msg;   // a copy of the message argument, when there is one
        int64_t value = 0;  // the scalar argument (keepComponentAllocated, generation, what...)
    };
    std::vector<Call> callsForTesting() const;
    std::vector<std::string> callNamesForTesting() const;
    // How many calls named `name` were made, and the last one; without copying the record,
    // which grows with every finished work (tavro-sim asks after each configure).
    size_t callCountForTesting(const std::string& name, Call* last) const;
    // Whether codecs keep the record above (on by default; every codec of the process). A fuzzer
    // turns it off: copying each message into a record it never reads would cost a configure
    // more allocations than the code under test makes. Host events are still sent when wanted.
    static void setRecordCallsForTesting(bool record);
    int stateForTesting();
    void setStateForTesting(int state);
    void setSurfaceStatusForTesting(status_t status) { mSurfaceStatus = status; }
    std::shared_ptr<CCodecBufferChannel> channelForTesting() const { return mChannel; }

  protected:
    ~CCodec() override;
    void onMessageReceived(const sp<AMessage>& msg) override;

    enum {
        kWhatAllocate = 0,
        kWhatConfigure = 1,
        kWhatStart = 2,
        kWhatFlush = 3,
        kWhatStop = 4,
        kWhatRelease = 5,
        kWhatCreateInputSurface = 6,
        kWhatSetInputSurface = 7,
        kWhatSetParameters = 8,
        kWhatWorkDone = 9,
        kWhatWatch = 10,
    };

    struct State {
        enum : int {
            RELEASED = 0,
            ALLOCATED = 1,
            FLUSHED = 2,
            RUNNING = 3,
            ALLOCATING = 4,
            STARTING = 5,
            STOPPING = 6,
            FLUSHING = 7,
            RELEASING = 8,
        };
        int get() const { return mValue; }
        void set(int value) { mValue = value; }

      private:
        int mValue = RELEASED;
    };
    Mutexed<State> mState;

    // The data path; a subclass may install its own channel in the constructor.
    std::shared_ptr<CCodecBufferChannel> mChannel;

    friend class CCodecCallbackImpl;

  private:
    void record(const char* name, const sp<AMessage>& msg, int64_t value);

    mutable std::mutex mCallLock;
    std::vector<Call> mCalls;
    // name -> (calls so far, index of the last in mCalls); under mCallLock
    std::map<std::string, std::pair<size_t, size_t>> mCallsByName;
    sp<AMessage> mOutputFormat;
    status_t mSurfaceStatus = OK;
};

}  // namespace android
