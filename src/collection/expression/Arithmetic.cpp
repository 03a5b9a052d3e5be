// The operators of formulas.
#include "collection/expression/Evaluation.h"
#include "collection/expression/ExpressionNodes.h"
#include "foundation/Trace.h"

namespace {

using Wide = unsigned long long;  // wraps around

long long asSigned(Wide value) { return static_cast<long long>(value); }

bool both(ExpressionType type, const ExpressionValue& left, const ExpressionValue& right) {
    return left.getType() == type && right.getType() == type;
}

bool either(ExpressionType type, const ExpressionValue& left, const ExpressionValue& right) {
    return left.getType() == type || right.getType() == type;
}

// None where the operands cannot be computed together. Kept: 64 bits outrank a double, which is truncated then.
ExpressionType resultType(const ExpressionValue& left, const ExpressionValue& right, ExpressionType ofTwoInts) {
    if (both(ExpressionType::Int, left, right)) return ofTwoInts;
    for (const ExpressionType type : {ExpressionType::UInt64, ExpressionType::Int64, ExpressionType::Double}) {
        if (either(type, left, right)) return type;
    }
    return ExpressionType::None;
}

void clash(ExpressionValue& left, const Metric& metric) {
    TRACE_MESSAGES();
    // Kept: the second type was never printed.
    trace_error("Error: unsupported type combination: exp1=%d exp2=%%3", static_cast<int>(left.getType()));
    left.setDefaultValue(metric);
}

// Takes the right operand from the stack and leaves the result in the left one's place.
template <class Compute>
void compute(Evaluation& evaluation, ExpressionType ofTwoInts, const Compute& op) {
    ExpressionValue& left = evaluation.top(1);
    const ExpressionValue& right = evaluation.top(0);
    switch (resultType(left, right, ofTwoInts)) {
        case ExpressionType::Int: left.setInt(convert::low32(asSigned(op(left.getUInt64(), right.getUInt64())))); break;
        // A double goes through the signed conversion.
        case ExpressionType::Int64:
            left.setInt64(asSigned(op(static_cast<Wide>(left.getInt64()), static_cast<Wide>(right.getInt64()))));
            break;
        case ExpressionType::UInt64: left.setUInt64(op(left.getUInt64(), right.getUInt64())); break;
        case ExpressionType::Double: left.setDouble(op(left.getDouble(), right.getDouble())); break;
        default: clash(left, evaluation.metric());
    }
    left.setClass(ExpressionClass::Binary);
    evaluation.pop(1);
}

}  // namespace

void AddExpression::calculate(Evaluation& evaluation) const {
    ExpressionValue& left = evaluation.top(1);
    const ExpressionValue& right = evaluation.top(0);
    if (!both(ExpressionType::String, left, right)) {
        compute(evaluation, ExpressionType::Int64, [](auto a, auto b) { return a + b; });
        return;
    }
    left.appendText(right.text());
    left.setClass(ExpressionClass::Binary);
    evaluation.pop(1);
}

void SubtractExpression::calculate(Evaluation& evaluation) const {
    compute(evaluation, ExpressionType::Int, [](auto a, auto b) { return a - b; });
}

void MultiplyExpression::calculate(Evaluation& evaluation) const {
    compute(evaluation, ExpressionType::Int64, [](auto a, auto b) { return a * b; });
}

void DivideExpression::calculate(Evaluation& evaluation) const {
    ExpressionValue& left = evaluation.top(1);
    const double divisor = evaluation.top(0).getDouble();
    left.setDouble(divisor == 0.0 ? 0.0 : left.getDouble() / divisor);
    left.setClass(ExpressionClass::Binary);
    evaluation.pop(1);
}

void PercentageExpression::calculate(Evaluation& evaluation) const {
    ExpressionValue& left = evaluation.top(1);
    const ExpressionValue& right = evaluation.top(0);
    const double whole = right.getDouble();
    const double share = whole == 0.0 ? 0.0 : left.getDouble() * 100.0 / whole;
    const double rounded = share < 100.0 ? share + 0.5 : share;  // kept: from 100 up it is only cut
    switch (resultType(left, right, ExpressionType::Int)) {
        case ExpressionType::Int: left.setInt(convert::toInt32(rounded)); break;
        case ExpressionType::Int64: left.setInt64(convert::toInt64(rounded)); break;
        case ExpressionType::UInt64: left.setUInt64(convert::toUInt64(rounded)); break;
        case ExpressionType::Double: left.setDouble(share); break;
        default: clash(left, evaluation.metric());
    }
    left.setClass(ExpressionClass::Binary);
    evaluation.pop(1);
}

void NegateExpression::calculate(Evaluation& evaluation) const {
    TRACE_MESSAGES();
    ExpressionValue& value = evaluation.top();
    switch (value.getType()) {
        case ExpressionType::Int: value.setInt(convert::low32(asSigned(0 - value.getUInt64()))); break;
        case ExpressionType::Int64: value.setInt64(asSigned(0 - value.getUInt64())); break;
        case ExpressionType::UInt64: value.setUInt64(0 - value.getUInt64()); break;
        case ExpressionType::Double: value.setDouble(-value.getDouble()); break;
        case ExpressionType::List: break;  // has no value of its own to negate
        case ExpressionType::None:
        case ExpressionType::String:
            trace_error("Error: unsupported type: exp1=%d", static_cast<int>(value.getType()));
            value.setDefaultValue(evaluation.metric());
            break;
    }
    value.setClass(ExpressionClass::Binary);
}
