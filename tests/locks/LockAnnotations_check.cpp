// Compile-only check of the lock annotations: never linked, never run. tests/CMakeLists.txt has
// clang compile it twice with -Wthread-safety -Werror: with TAVRO_LOCKS_HELD every access below
// keeps the locking rules and must compile; without it each function breaks one rule, and clang's
// -verify=fault requires exactly the thread-safety errors named in the `fault-error` comments.
#include <stddef.h>
#include <stdint.h>

#include <array>
#include <atomic>
#include <chrono>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <C2Config.h>
#include <C2Param.h>
#include <C2Work.h>
#include <codec2/sfplugin/CCodec.h>
#include <codec2/sfplugin/CCodecBufferChannel.h>
#include <codec2/sfplugin/InputSurfaceWrapper.h>
#include <codec2/sfplugin/TavroCCodecCallback.h>
#include <media/MediaCodecBuffer.h>
#include <media/stagefright/foundation/AMessage.h>
#include <media/stagefright/foundation/AString.h>
#include <utils/Errors.h>
#include <utils/Mutex.h>
#include <utils/RefBase.h>
#include <utils/String8.h>

// The checks reach the locks and what they guard, which are private: only the project's own
// headers are opened up, after every outside header they include is already in.
#define private public
#include "sfplugin/TavroCCodec.h"
#include "sfplugin/TavroCCodecBufferChannel.h"
#include "whitelist/TavroWhiteListCacheMgr.h"
#undef private

#ifdef TAVRO_LOCKS_HELD
#define TAVRO_HOLD(lock) Mutex::Autolock hold(lock)
#else
#define TAVRO_HOLD(lock) static_cast<void>(0)
#endif

namespace android {

// The expected diagnostics are whole lines: kept unwrapped.
// clang-format off

void codecBoostState(TavroCCodec* codec) {
    TAVRO_HOLD(codec->mBoostLock);
    codec->mBoost.phase = TavroBoostPhase::kArmed;
    // fault-error@-1 {{writing variable 'mBoost' requires holding mutex 'codec->mBoostLock' exclusively}}
}

void codecSendLocked(TavroCCodec* codec) {
    TAVRO_HOLD(codec->mBoostLock);
    codec->executeMediaBoost_l(kBoostSendAll);
    // fault-error@-1 {{calling function 'executeMediaBoost_l' requires holding mutex 'codec->mBoostLock' exclusively}}
}

// The other way round: the locking entry point must not be called with the lock already held.
void codecSendUnlocked(TavroCCodec* codec) {
#ifndef TAVRO_LOCKS_HELD
    Mutex::Autolock hold(codec->mBoostLock);
#endif
    codec->executeMediaBoost(kBoostSendAll);
    // fault-error@-1 {{cannot call function 'executeMediaBoost' while mutex 'codec->mBoostLock' is held}}
}

bool channelHistory(TavroCCodecBufferChannel* channel) {
    TAVRO_HOLD(channel->mLock);
    return channel->mDetector.fastMode();
    // fault-error@-1 {{reading variable 'mDetector' requires holding mutex 'channel->mLock'}}
}

void cacheEntries(TavroWhiteListCacheMgr* manager) {
    TAVRO_HOLD(manager->mLock);
    manager->mCache->activityMap.clear();
    // fault-error@-1 {{reading variable 'mCache' requires holding mutex 'manager->mLock'}}
}

void cacheDefaults(TavroWhiteListCacheMgr* manager) {
    TAVRO_HOLD(manager->mLock);
    manager->loadDefaultBoostInfo_l();
    // fault-error@-1 {{calling function 'loadDefaultBoostInfo_l' requires holding mutex 'manager->mLock' exclusively}}
}

// clang-format on

}  // namespace android
