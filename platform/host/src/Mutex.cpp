// Mutex and Condition on the thread library; timed waits measure the monotonic clock.
#include <utils/Condition.h>
#include <utils/Mutex.h>

#include <time.h>

#include <cerrno>

namespace android {

Mutex::Mutex() {
    pthread_mutex_init(&mMutex, nullptr);
}

Mutex::Mutex(const char* /*name*/) : Mutex() {}

Mutex::~Mutex() {
    pthread_mutex_destroy(&mMutex);
}

status_t Mutex::lock() {
    return -pthread_mutex_lock(&mMutex);
}

void Mutex::unlock() {
    pthread_mutex_unlock(&mMutex);
}

status_t Mutex::tryLock() {
    return -pthread_mutex_trylock(&mMutex);
}

Condition::Condition() {
    pthread_condattr_t attr;
    pthread_condattr_init(&attr);
    pthread_condattr_setclock(&attr, CLOCK_MONOTONIC);
    pthread_cond_init(&mCond, &attr);
    pthread_condattr_destroy(&attr);
}

Condition::~Condition() {
    pthread_cond_destroy(&mCond);
}

status_t Condition::wait(Mutex& mutex) {
    return -pthread_cond_wait(&mCond, &mutex.mMutex);
}

status_t Condition::waitRelative(Mutex& mutex, nsecs_t reltime) {
    if (reltime < 0) reltime = 0;
    struct timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    int64_t nsec = static_cast<int64_t>(ts.tv_nsec) + reltime % 1000000000;
    ts.tv_sec += static_cast<time_t>(reltime / 1000000000 + nsec / 1000000000);
    ts.tv_nsec = static_cast<long>(nsec % 1000000000);
    return -pthread_cond_timedwait(&mCond, &mutex.mMutex, &ts);
}

void Condition::signal() {
    pthread_cond_signal(&mCond);
}

void Condition::broadcast() {
    pthread_cond_broadcast(&mCond);
}

}  // namespace android
