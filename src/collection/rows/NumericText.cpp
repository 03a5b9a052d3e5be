#include "collection/rows/NumericText.h"

#include <cerrno>
#include <cstdlib>

#include "foundation/Trace.h"

ResultMetric* parseNumericString(const Metric* metric, const char* text) {
    TRACE_MESSAGES();
    if (!text) {
        trace_detail("NULL string provided for numeric conversion");
        return new ResultMetric(metric, 0);
    }
    const bool scaleTransparent = metric->getScale() != 0 && metric->getScaleTransparent();
    char* end = nullptr;
    if (!scaleTransparent) {
        errno = 0;
        const long long number = std::strtoll(text, &end, 10);
        if (errno != EINVAL && *end == '\0') {
            if (errno == ERANGE) trace_detail("Out of range error for numeric conversion: %s", text);
            return new ResultMetric(metric, number);
        }
    }
    errno = 0;
    const double number = std::strtod(text, &end);
    if (errno == EINVAL) {
        trace_detail("Invalid value provided for numeric conversion: %s", text);
        return new ResultMetric(metric, 0);
    }
    if (errno == ERANGE) trace_detail("Out of range error for numeric conversion: %s", text);
    if (*end) trace_detail("Invalid characters %s found getting numeric value from %s, returning %f", end, text, number);
    return new ResultMetric(metric, number);
}
