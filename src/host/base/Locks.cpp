// Recursive locks and run-once of zsb.h. The control blocks are plain words that begin as zero, so that they
// can live in static storage and need no constructor.
#include <atomic>
#include <mutex>
#include <new>

#include "platform/zsb.h"

namespace {

// A recursive lock over std::mutex that knows its holder, so that a release by another thread is refused
// before the mutex sees it. A thread is told by the address of a variable of its own.
struct RecursiveLock {
    std::mutex mutex;
    std::atomic<const void*> holder{nullptr};
    unsigned depth = 0;  // of the holder; guarded by the mutex
};

const void* thisThread() {
    thread_local const char mark = 0;
    return &mark;
}

RecursiveLock* lockOf(const ZSV1_Lock* lock) {
    return lock ? static_cast<RecursiveLock*>(lock->state) : nullptr;
}

bool isHeldHere(const RecursiveLock& lock) {
    return lock.holder.load(std::memory_order_relaxed) == thisThread();
}

// The two states of a run-once block besides null.
char onceRunning;
char onceDone;

}  // namespace

int ZSV1_InitializeLock(ZSV1_Lock* lock) {
    if (!lock) return -1;
    if (!lock->state) lock->state = new (std::nothrow) RecursiveLock;  // one that stands already may be held
    return lock->state ? 0 : -1;
}

int ZSV1_GetLock(ZSV1_Lock* lock) {
    RecursiveLock* const held = lockOf(lock);
    if (!held) return -1;
    if (!isHeldHere(*held)) {
        held->mutex.lock();
        held->holder.store(thisThread(), std::memory_order_relaxed);
    }
    ++held->depth;
    return 0;
}

int ZSV1_ReleaseLock(ZSV1_Lock* lock) {
    RecursiveLock* const held = lockOf(lock);
    if (!held || !isHeldHere(*held)) return -1;
    if (--held->depth == 0) {
        held->holder.store(nullptr, std::memory_order_relaxed);
        held->mutex.unlock();
    }
    return 0;
}

int ZSV1_DestroyLock(ZSV1_Lock* lock) {
    RecursiveLock* const held = lockOf(lock);
    if (!held || held->holder.load(std::memory_order_relaxed)) return -1;  // a held lock stays
    lock->state = nullptr;
    delete held;
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
