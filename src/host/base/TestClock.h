// The clock of the base services can be stopped and stepped, so that no test waits for real time. While it is
// frozen, ZSV1_GetTime and ZSV1_GetMonotonicTime give the virtual times and ZSV1_Sleep and ZSV1_MilliSleep
// wait until the virtual monotonic clock has been advanced far enough. Every operation may be called from any
// thread.
#pragma once

#include <chrono>

namespace almanac::host::testclock {

// Stops both clocks at the present time. Freezing a frozen clock changes nothing.
void freeze();

// Lets the real clocks show through again and ends every wait on the virtual one.
void release();

// Steps the wall clock alone, in either direction; the monotonic clock stays. Ignored unless frozen.
void advanceWall(std::chrono::nanoseconds step);

// Steps the monotonic clock alone and wakes the sleepers whose time has come. A negative step is ignored, and
// so is any step of a clock that is not frozen.
void advanceMonotonic(std::chrono::nanoseconds step);

// What passing time does: both clocks go forward.
void advance(std::chrono::nanoseconds step);

// How many threads wait on the virtual clock now; lets a test step only when the sleeper has arrived.
int sleepers();

// Freezes for a scope.
class Guard {
  public:
    Guard() { freeze(); }
    ~Guard() { release(); }
    Guard(const Guard&) = delete;
    Guard& operator=(const Guard&) = delete;
};

}  // namespace almanac::host::testclock
