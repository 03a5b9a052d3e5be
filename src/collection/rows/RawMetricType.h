// The raw type of a metric: how its value is computed from what a collection delivers. The numbers are a contract
// between the reference file and everything that looks at a type.
#pragma once

enum RAW_METRIC_TYPE : int {
    NUMERIC_DATA = 0,  // any other text in the reference file
    STRING_DATA = 1,
    DELTA_DATA = 2,
    RATE_DATA = 3,
    PERCENT_DELTA_DATA = 4,
    VALUE_CHANGED = 5,
    PREVIOUS_STRING_DATA = 6,
    PREVIOUS_NUMERIC_DATA = 7,
    // 8 is not produced by the reference file.
    NUMERIC_64BIT_DATA = 9,
    DELTA_64BIT_DATA = 10,
    RATE_64BIT_DATA = 11,
    PERCENT_DELTA_64BIT_DATA = 12,
};

// The type of a reference file's text; NUMERIC_DATA for any other text and for null.
RAW_METRIC_TYPE rawMetricTypeFromText(const char* text);
// The text of a type, null for NUMERIC_DATA and unknown numbers.
const char* rawMetricTypeText(int type);
// Whether a cell of this type is computed against the previous collection.
bool isRateOrDelta(int type);
