// Recursive locks and run-once of zsb.h. The control blocks are plain words that begin as zero, so that they
// can live in static storage and need no constructor.
#include <pthread.h>

#include <atomic>
#include <memory>
#include <new>

#include "platform/zsb.h"

namespace {

struct MutexAttributes {
    pthread_mutexattr_t value{};
    bool ready = false;
    MutexAttributes() {
        ready = pthread_mutexattr_init(&value) == 0 &&
                pthread_mutexattr_settype(&value, PTHREAD_MUTEX_RECURSIVE) == 0;
    }
    ~MutexAttributes() {
        if (ready) pthread_mutexattr_destroy(&value);
    }
};

pthread_mutex_t* mutexOf(const ZSV1_Lock* lock) {
    return lock ? static_cast<pthread_mutex_t*>(lock->state) : nullptr;
}

// The two states of a run-once block besides null.
char onceRunning;
char onceDone;

}  // namespace

int ZSV1_InitializeLock(ZSV1_Lock* lock) {
    if (!lock) return -1;
    if (lock->state) return 0;  // a lock that stands already is kept: somebody may hold it
    const MutexAttributes attributes;
    std::unique_ptr<pthread_mutex_t> mutex(new (std::nothrow) pthread_mutex_t);
    if (!mutex || !attributes.ready || pthread_mutex_init(mutex.get(), &attributes.value) != 0) return -1;
    lock->state = mutex.release();
    return 0;
}

int ZSV1_GetLock(ZSV1_Lock* lock) {
    pthread_mutex_t* const mutex = mutexOf(lock);
    return mutex && pthread_mutex_lock(mutex) == 0 ? 0 : -1;
}

int ZSV1_ReleaseLock(ZSV1_Lock* lock) {
    pthread_mutex_t* const mutex = mutexOf(lock);
    return mutex && pthread_mutex_unlock(mutex) == 0 ? 0 : -1;
}

int ZSV1_DestroyLock(ZSV1_Lock* lock) {
    pthread_mutex_t* const mutex = mutexOf(lock);
    if (!mutex || pthread_mutex_destroy(mutex) != 0) return -1;  // EBUSY: held, so it stays
    lock->state = nullptr;
    delete mutex;
    return 0;
}

void ZSV1_InitializeOnce(ZSV1_Once* once, void (*routine)(void*), void* argument) {
    if (!once || !routine) return;
    const std::atomic_ref<void*> state(once->state);
    void* seen = state.load(std::memory_order_acquire);
    if (seen == &onceDone) return;
    if (!seen && state.compare_exchange_strong(seen, &onceRunning, std::memory_order_acq_rel)) {
        routine(argument);
        state.store(&onceDone, std::memory_order_release);
        state.notify_all();
        return;
    }
    while (state.load(std::memory_order_acquire) == &onceRunning) state.wait(&onceRunning);
}
