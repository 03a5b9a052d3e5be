#include "collection/rows/RawMetricType.h"

#include <cstring>

namespace {
constexpr const char* kTexts[] = {
    nullptr,         "STRING_DATA",          "DELTA_DATA",            "RATE_DATA",
    "PERCENT_DELTA_DATA", "VALUE_CHANGED",   "PREVIOUS_STRING_DATA",  "PREVIOUS_NUMERIC_DATA",
    nullptr,         "NUMERIC_64BIT_DATA",   "DELTA_64BIT_DATA",      "RATE_64BIT_DATA",
    "PERCENT_DELTA_64BIT_DATA"};
constexpr int kCount = static_cast<int>(sizeof kTexts / sizeof kTexts[0]);
}  // namespace

RAW_METRIC_TYPE rawMetricTypeFromText(const char* text) {
    for (int i = 0; text && i < kCount; ++i) {
        if (kTexts[i] && std::strcmp(kTexts[i], text) == 0) return static_cast<RAW_METRIC_TYPE>(i);
    }
    return NUMERIC_DATA;
}

const char* rawMetricTypeText(int type) { return type >= 0 && type < kCount ? kTexts[type] : nullptr; }

bool isRateOrDelta(int type) { return (type >= DELTA_DATA && type <= PREVIOUS_NUMERIC_DATA) || (type >= DELTA_64BIT_DATA && type <= PERCENT_DELTA_64BIT_DATA); }
