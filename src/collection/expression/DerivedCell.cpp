#include "collection/expression/DerivedCell.h"

#include "collection/expression/Evaluation.h"
#include "foundation/Trace.h"

ResultMetric* computeDerivedCell(const Metric* metric, const ResultInstance* row, DerivedStorage* storage) {
    TRACE_MESSAGES();
    const Expression* expression = metric->getExpression();
    if (!expression) return computeSimpleForm(metric, row);
    thread_local Evaluation evaluation;
    const ExpressionValue& value = evaluation.calculate(*expression, *metric, *row, storage);
    switch (value.getType()) {
        case ExpressionType::Int: return new ResultMetric(metric, value.getInt());
        case ExpressionType::Int64: return new ResultMetric(metric, value.getInt64());
        case ExpressionType::UInt64: return new ResultMetric(metric, value.getUInt64());
        case ExpressionType::Double: return new ResultMetric(metric, value.getDouble());
        case ExpressionType::String: {
            auto* text = new UTF8String;
            text->initFromUTF8String(value.getString(), static_cast<int>(value.text().size()));
            return new ResultMetric(metric, text);
        }
        case ExpressionType::None:
        case ExpressionType::List: break;
    }
    trace_error("Unknown result type: %d", static_cast<int>(value.getType()));
    return new ResultMetric(metric, 0);
}
