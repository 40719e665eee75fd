// Per-thread calling identity.
#include <binder/IPCThreadState.h>

#include <unistd.h>

namespace android {

IPCThreadState::IPCThreadState() : mHasCaller(false), mCallingUid(0), mCallingPid(0) {}

IPCThreadState* IPCThreadState::self() {
    thread_local IPCThreadState state;
    return &state;
}

pid_t IPCThreadState::getCallingPid() const {
    return mHasCaller ? mCallingPid : getpid();
}

uid_t IPCThreadState::getCallingUid() const {
    return mHasCaller ? mCallingUid : getuid();
}

int64_t IPCThreadState::clearCallingIdentity() {
    // Token layout: bit 63 set when a caller was set, uid in bits 32..62, pid in bits 0..31.
    int64_t token = 0;
    if (mHasCaller) {
        token = static_cast<int64_t>((1ULL << 63) |
                                     (static_cast<uint64_t>(mCallingUid & 0x7fffffff) << 32) |
                                     static_cast<uint32_t>(mCallingPid));
    }
    mHasCaller = false;
    return token;
}

void IPCThreadState::restoreCallingIdentity(int64_t token) {
    uint64_t bits = static_cast<uint64_t>(token);
    mHasCaller = (bits >> 63) != 0;
    mCallingUid = static_cast<uid_t>((bits >> 32) & 0x7fffffff);
    mCallingPid = static_cast<pid_t>(static_cast<uint32_t>(bits & 0xffffffff));
}

void IPCThreadState::setCallingIdentityForTesting(uid_t uid, pid_t pid) {
    mHasCaller = true;
    mCallingUid = uid;
    mCallingPid = pid;
}

void IPCThreadState::clearCallingIdentityForTesting() {
    mHasCaller = false;
}

}  // namespace android
