#include "collection/expression/Evaluation.h"

#include "collection/rows/Metric.h"

namespace {

// What a thread keeps for its next row; the stack itself is bounded by the parser's depth.
constexpr std::size_t kTextRoom = 65536;
constexpr std::size_t kSampleRoom = 131072;

}  // namespace

void ExpressionValue::setDefaultValue(const Metric& metric) {
    switch (metric.getRawMetricType()) {
        case STRING_DATA:
        case PREVIOUS_STRING_DATA: setText(""); break;
        case DELTA_DATA:
        case RATE_DATA: setInt64(0); break;
        default: setInt(0);
    }
}

const ExpressionValue& Evaluation::calculate(const Expression& expression, const Metric& metric, const ResultInstance& row,
                                             DerivedStorage* storage) {
    metric_ = &metric;
    row_ = &row;
    storage_ = storage;
    count_ = 0;
    for (std::size_t i = 0; i < depth_; ++i) values_[i].trim(kTextRoom);
    if (functionResult_.stringValue.capacity() > kTextRoom) std::string().swap(functionResult_.stringValue);
    if (samples_.capacity() > kSampleRoom) SampleList().swap(samples_);
    depth_ = 0;
    reserve(1);
    expression.calculate(*this);
    return values_[0];
}
