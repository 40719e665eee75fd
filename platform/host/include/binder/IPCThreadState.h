// IPCThreadState: per-thread binder state; here, the identity (uid, pid) of the process that made
// the binder call the thread is serving. On host a thread serves no call by default and reports
// the process's own identity; tests set a calling identity per thread.
#pragma once

#include <stdint.h>
#include <sys/types.h>

namespace android {

class IPCThreadState {
  public:
    // The calling thread's state, created on first use and freed when the thread exits.
    static IPCThreadState* self();

    pid_t getCallingPid() const;
    uid_t getCallingUid() const;

    // Resets the calling identity to the process's own and returns a token that restores the
    // previous one.
    int64_t clearCallingIdentity();
    void restoreCallingIdentity(int64_t token);

    // Host only: make this thread report `uid`/`pid` as its caller, until cleared.
    void setCallingIdentityForTesting(uid_t uid, pid_t pid);
    void clearCallingIdentityForTesting();

  private:
    IPCThreadState();

    bool mHasCaller;
    uid_t mCallingUid;
    pid_t mCallingPid;
};

}  // namespace android
