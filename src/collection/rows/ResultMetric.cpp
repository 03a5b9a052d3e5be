#include "collection/rows/ResultMetric.h"

#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "foundation/Convert.h"
#include "foundation/Trace.h"

namespace {

// Doubles outside the target's range saturate, NaN is 0: the plain conversion is undefined for them.
long long toInt64(double value) {
    if (std::isnan(value)) return 0;
    if (value >= 9223372036854775808.0) return std::numeric_limits<long long>::max();
    if (value < -9223372036854775808.0) return std::numeric_limits<long long>::min();
    return static_cast<long long>(value);
}

}  // namespace

ResultMetric::ResultMetric(const Metric* metric)
    : rawType_(static_cast<signed char>(metric->getRawMetricType())),
      isKey_(metric->getIsKey()),
      isCounter_(metric->isCounter()),
      attributeName_(metric->getQMPVMetricName()),
      metricName_(metric->getMetricName()) {}

bool ResultMetric::storeScaled(const Metric* metric, double value) {
    if (metric->getScale() == 0 || !metric->getScaleTransparent() || metric->hasMap()) return false;
    valueDouble_ = value;
    form_ = FORM_DOUBLE;
    return true;
}

ResultMetric::ResultMetric(const Metric* metric, int value) : ResultMetric(metric) {
    if (storeScaled(metric, value)) return;
    value_ = value;
    form_ = FORM_INT;
    if (!metric->hasMap()) return;
    raw_ = value;
    value_ = metric->findMappedValue(value);
    isMapped_ = true;
}

ResultMetric::ResultMetric(const Metric* metric, long long value) : ResultMetric(metric) {
    if (storeScaled(metric, static_cast<double>(value))) return;
    value64_ = static_cast<unsigned long long>(value);
    form_ = FORM_INT64;
    if (!metric->hasMap()) return;
    raw_ = value;
    value64_ = static_cast<unsigned long long>(static_cast<long long>(metric->findMappedValue(convert::low32(value))));
    isMapped_ = true;
}

ResultMetric::ResultMetric(const Metric* metric, unsigned long long value) : ResultMetric(metric) {
    if (storeScaled(metric, static_cast<double>(value))) return;
    value64_ = value;
    form_ = FORM_UINT64;
    if (!metric->hasMap()) return;
    raw_ = static_cast<long long>(value);
    value64_ = static_cast<unsigned long long>(
        static_cast<long long>(metric->findMappedValue(convert::low32(static_cast<long long>(value)))));
    isMapped_ = true;
}

ResultMetric::ResultMetric(const Metric* metric, double value) : ResultMetric(metric) {
    valueDouble_ = value;
    form_ = FORM_DOUBLE;
    if (!metric->hasMap()) return;
    raw_ = toInt64(value);
    valueDouble_ = metric->findMappedValue(convert::low32(raw_));
    isMapped_ = true;
}

ResultMetric::ResultMetric(const Metric* metric, const char* text) : ResultMetric(metric) {
    string_ = strdup(text ? text : "No value");
    form_ = FORM_STRING;
}

ResultMetric::ResultMetric(const Metric* metric, UTF8String* text) : ResultMetric(metric) {
    utf8_ = text;
    form_ = FORM_UTF8;
}

ResultMetric::ResultMetric(const char* attributeName, const char* metricName, RAW_METRIC_TYPE type, const char* text)
    : rawType_(static_cast<signed char>(type)),
      form_(FORM_STRING),
      string_(strdup(text)),
      attributeName_(attributeName),
      metricName_(metricName) {}

ResultMetric::ResultMetric(const char* attributeName, const char* metricName, RAW_METRIC_TYPE type, UTF8String* text)
    : rawType_(static_cast<signed char>(type)),
      form_(FORM_UTF8),
      utf8_(text),
      attributeName_(attributeName),
      metricName_(metricName) {}

ResultMetric::~ResultMetric() {
    std::free(string_);
    delete utf8_;
}

void ResultMetric::setMetricValue(int value) {
    value_ = value;
    form_ = FORM_INT;
}

void ResultMetric::setMetricValue(long long value) {
    value64_ = static_cast<unsigned long long>(value);
    form_ = FORM_INT64;
}

void ResultMetric::setMetricValue(double value) {
    valueDouble_ = value;
    form_ = FORM_DOUBLE;
}

void ResultMetric::setMetricValue(char* text) {
    if (text != string_) std::free(string_);
    string_ = text;
    form_ = FORM_STRING;
}

void ResultMetric::setMetricValue(UTF8String* text) {
    if (text != utf8_) delete utf8_;
    utf8_ = text;
    form_ = FORM_UTF8;
}

ResultMetric* ResultMetric::getDeepCopy(const char* metricName, const char* attributeName) const {
    auto* copy = new ResultMetric;
    copy->value_ = value_;
    copy->rawType_ = rawType_;
    copy->form_ = form_;
    copy->isKey_ = isKey_;
    copy->raw_ = raw_;
    copy->value64_ = value64_;
    copy->valueDouble_ = valueDouble_;
    copy->string_ = string_ ? strdup(string_) : nullptr;
    copy->utf8_ = utf8_ ? utf8_->getDeepCopy() : nullptr;
    copy->attributeName_ = attributeName ? attributeName : attributeName_;
    copy->metricName_ = metricName ? metricName : metricName_;
    return copy;
}

bool ResultMetric::areValuesEqual(const ResultMetric* other) const {
    TRACE_MESSAGES();
    bool equal = false;
    if (form_ == other->form_) {
        switch (form_) {
            case FORM_INT:
                trace_detail("Comparing two numeric instances this=%d compareMetric=%d", value_, other->value_);
                equal = value_ == other->value_;
                break;
            case FORM_INT64:
            case FORM_UINT64:
                trace_detail("Comparing two unsigned 64 Bit Values this=%llu  compareMetric=%llu", value64_, other->value64_);
                equal = value64_ == other->value64_;
                break;
            case FORM_DOUBLE:
                trace_detail("Comparing two double Values this=%lf  compareMetric=%lf", valueDouble_, other->valueDouble_);
                equal = valueDouble_ == other->valueDouble_;
                break;
            case FORM_UTF8:
                trace_detail("Comparing two UTF 8 string Values this=%s  compareMetric=%s", utf8_->getUTF8Value(),
                             other->utf8_->getUTF8Value());
                equal = utf8_->isEqual(other->utf8_);
                break;
            case FORM_STRING:
                trace_detail("Comparing two string Values this=%s  compareMetric=%s", string_, other->string_);
                equal = std::strcmp(string_, other->string_) == 0;
                break;
        }
    }
    if (equal) {
        trace_detail("Returning TRUE");
    } else {
        trace_detail("Returning FALSE");
    }
    return equal;
}

UTF8String* ResultMetric::toUTF8String() const {
    char text[32] = "";
    switch (form_) {
        case FORM_UTF8:
            return utf8_;
        case FORM_DOUBLE:
            return nullptr;
        case FORM_STRING: {
            auto* result = new UTF8String;
            result->initFromASCIIString(string_);
            return result;
        }
        case FORM_INT:
            std::snprintf(text, sizeof text, "%d", value_);
            break;
        case FORM_INT64:
            std::snprintf(text, sizeof text, "%lld", getMetricValue64());
            break;
        case FORM_UINT64:
            std::snprintf(text, sizeof text, "%llu", value64_);
            break;
    }
    auto* result = new UTF8String;
    result->initFromUTF8String(text);
    return result;
}
