// AHandler: receives the messages posted to it, on its looper's thread (or, for a manual looper,
// on the thread that drives it). Register with ALooper::registerHandler before posting.
#pragma once

#include <stdint.h>

#include <atomic>

#include <media/stagefright/foundation/ALooper.h>
#include <utils/RefBase.h>

namespace android {

class AMessage;

class AHandler : public RefBase {
  public:
    AHandler() : mID(0) {}

    // The id given by registerHandler; 0 while not registered.
    ALooper::handler_id id() const { return mID; }
    // The looper the handler is registered with (empty while not registered).
    wp<ALooper> getLooper() const { return mLooper; }
    sp<ALooper> looper() const { return mLooper.promote(); }
    wp<AHandler> getHandler() const { return const_cast<AHandler*>(this); }

  protected:
    // One message; runs on the looper's dispatch thread, one message at a time.
    virtual void onMessageReceived(const sp<AMessage>& msg) = 0;

  private:
    friend class AMessage;
    friend class ALooper;

    // Set by the looper at (un)registration, before the handler can receive messages.
    void setID(ALooper::handler_id id, const wp<ALooper>& looper) {
        mLooper = looper;
        mID = id;
    }
    void deliverMessage(const sp<AMessage>& msg) { onMessageReceived(msg); }

    // Written at (un)registration, read by posting threads; the looper is set before the id.
    std::atomic<ALooper::handler_id> mID;
    wp<ALooper> mLooper;
};

}  // namespace android
