#include "foundation/Clock.h"

#include <cstdio>
#include <cstring>

namespace Clock {

namespace {
constexpr int kStampLength = 16;
}

void formatTimeStamp(long secondsSinceEpoch, char* out) {
    const time_t moment = secondsSinceEpoch;
    tm local{};
    // A moment whose year does not fit is shown as zeros.
    if (!localtime_r(&moment, &local)) local = tm{};
    char text[96];
    std::snprintf(text, sizeof text, "%03d%02d%02d%02d%02d%02d%03d", local.tm_year, local.tm_mon + 1, local.tm_mday,
                  local.tm_hour, local.tm_min, local.tm_sec, 0);
    std::memcpy(out, text, kStampLength);
    out[kStampLength] = '\0';
}

}  // namespace Clock
