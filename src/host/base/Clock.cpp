// Time and sleep of zsb.h, with the virtual clock of TestClock.h in front of clock_gettime(2).
#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <cstdint>
#include <mutex>

#include "host/base/TestClock.h"
#include "platform/zsb.h"

namespace almanac::host {
namespace {

constexpr std::int64_t kNanosPerSecond = 1'000'000'000;

struct VirtualClock {
    std::atomic<bool> frozen{false};
    std::mutex mutex;
    std::condition_variable changed;
    std::int64_t wall = 0;  // nanoseconds; guarded by mutex, as all below
    std::int64_t monotonic = 0;
    std::uint64_t epoch =
        0;  // counts releases, so that a sleeper of an earlier freeze does not wait in a later one
    int sleepers = 0;
};

VirtualClock& virtualClock() {
    static VirtualClock* const clock = new VirtualClock;  // outlives static destruction
    return *clock;
}

std::int64_t realNanos(clockid_t id) {
    timespec now{};
    clock_gettime(id, &now);
    return static_cast<std::int64_t>(now.tv_sec) * kNanosPerSecond + now.tv_nsec;
}

timespec toTimespec(std::int64_t nanos) {
    timespec out{};
    out.tv_sec = static_cast<time_t>(nanos / kNanosPerSecond);
    out.tv_nsec = static_cast<long>(nanos % kNanosPerSecond);
    return out;
}

void readClock(clockid_t id, std::int64_t VirtualClock::*virtualTime, timespec* out) {
    if (!out) return;
    VirtualClock& clock = virtualClock();
    if (clock.frozen.load(std::memory_order_acquire)) {
        const std::lock_guard<std::mutex> hold(clock.mutex);
        if (clock.frozen.load(std::memory_order_relaxed)) {
            *out = toTimespec(clock.*virtualTime);
            return;
        }
    }
    clock_gettime(id, out);
}

// True if the wait was a virtual one.
bool sleepVirtually(std::int64_t nanos) {
    VirtualClock& clock = virtualClock();
    if (!clock.frozen.load(std::memory_order_acquire)) return false;
    std::unique_lock<std::mutex> hold(clock.mutex);
    if (!clock.frozen.load(std::memory_order_relaxed)) return false;
    const std::int64_t end = clock.monotonic + nanos;
    const std::uint64_t epoch = clock.epoch;
    ++clock.sleepers;
    clock.changed.wait(hold, [&] { return clock.epoch != epoch || clock.monotonic >= end; });
    --clock.sleepers;
    return true;
}

void sleepNanos(std::int64_t nanos) {
    if (sleepVirtually(nanos)) return;
    const timespec end = toTimespec(realNanos(CLOCK_MONOTONIC) + nanos);
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &end, nullptr) == EINTR) {
    }
}

}  // namespace

namespace testclock {

void freeze() {
    VirtualClock& clock = virtualClock();
    const std::lock_guard<std::mutex> hold(clock.mutex);
    if (clock.frozen.load(std::memory_order_relaxed)) return;
    clock.wall = realNanos(CLOCK_REALTIME);
    clock.monotonic = realNanos(CLOCK_MONOTONIC);
    clock.frozen.store(true, std::memory_order_release);
}

void release() {
    VirtualClock& clock = virtualClock();
    {
        const std::lock_guard<std::mutex> hold(clock.mutex);
        clock.frozen.store(false, std::memory_order_release);
        ++clock.epoch;
    }
    clock.changed.notify_all();
}

void advanceWall(std::chrono::nanoseconds step) {
    VirtualClock& clock = virtualClock();
    const std::lock_guard<std::mutex> hold(clock.mutex);
    if (clock.frozen.load(std::memory_order_relaxed)) clock.wall += step.count();
}

void advanceMonotonic(std::chrono::nanoseconds step) {
    VirtualClock& clock = virtualClock();
    {
        const std::lock_guard<std::mutex> hold(clock.mutex);
        if (!clock.frozen.load(std::memory_order_relaxed) || step.count() < 0) return;
        clock.monotonic += step.count();
    }
    clock.changed.notify_all();
}

void advance(std::chrono::nanoseconds step) {
    advanceWall(step);
    advanceMonotonic(step);
}

int sleepers() {
    VirtualClock& clock = virtualClock();
    const std::lock_guard<std::mutex> hold(clock.mutex);
    return clock.sleepers;
}

}  // namespace testclock
}  // namespace almanac::host

using namespace almanac::host;

void ZSV1_GetTime(timespec* out) { readClock(CLOCK_REALTIME, &VirtualClock::wall, out); }

void ZSV1_GetMonotonicTime(timespec* out) { readClock(CLOCK_MONOTONIC, &VirtualClock::monotonic, out); }

void ZSV1_Sleep(unsigned seconds) { sleepNanos(static_cast<std::int64_t>(seconds) * kNanosPerSecond); }

void ZSV1_MilliSleep(unsigned milliseconds) {
    sleepNanos(static_cast<std::int64_t>(milliseconds) * 1'000'000);
}
