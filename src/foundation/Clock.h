// The one clock. Intervals, expiry and waits are measured on the monotonic clock; wall time is only shown.
#pragma once

#include <ctime>

#include "platform/zsb.h"

namespace Clock {

inline timespec wall() {
    timespec t;
    ZSV1_GetTime(&t);
    return t;
}

inline timespec monotonic() {
    timespec t;
    ZSV1_GetMonotonicTime(&t);
    return t;
}

inline double seconds(const timespec& t) {
    return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) / 1e9;
}

// Whole seconds from one moment to a later one, the fraction cut off.
inline long wholeSecondsBetween(const timespec& from, const timespec& to) {
    long s = static_cast<long>(to.tv_sec - from.tv_sec);
    if (to.tv_nsec < from.tv_nsec) --s;
    return s;
}

// CYYMMDDHHMMSS000 in local time (years since 1900 in three digits) and a terminator: 17 bytes.
void formatTimeStamp(long secondsSinceEpoch, char* out);

}  // namespace Clock
