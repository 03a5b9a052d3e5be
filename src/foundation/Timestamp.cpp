#include "foundation/Timestamp.h"

#include "foundation/Clock.h"

namespace {
constexpr long long kMicrosecondsPerSecond = 1000000;
}

void Timestamp::now() {
    const timespec t = Clock::wall();
    seconds = t.tv_sec;
    microseconds = t.tv_nsec / 1000;
}

long long Timestamp::timeInMilliseconds() const { return seconds * 1000 + microseconds / 1000; }

Timestamp& Timestamp::operator-=(const Timestamp& other) {
    seconds -= other.seconds;
    microseconds -= other.microseconds;
    if (microseconds < 0) {
        --seconds;
        microseconds += kMicrosecondsPerSecond;
    }
    return *this;
}

long long Timestamp::elapsedTimeMS() const {
    Timestamp t;
    t.now();
    t -= *this;
    return t.timeInMilliseconds();
}
