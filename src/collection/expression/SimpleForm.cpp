// Derived metrics of the older form: arg1, op and arg2.
#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>

#include "collection/expression/DerivedCell.h"
#include "foundation/Convert.h"
#include "foundation/Trace.h"

namespace {

enum Kind { kNone = -1, kInt = 0, kString = 1, kUtf8 = 2, kInt64 = 3, kDouble = 4 };

struct Operand {
    const ResultMetric* cell = nullptr;
    int constant = 0;
    const char* text = "";
};

Kind mapMetricType(const ResultMetric* cell) {
    if (!cell) return kInt;
    switch (cell->form()) {
        case FORM_INT: return kInt;
        case FORM_STRING: return kString;
        case FORM_UTF8: return kUtf8;
        case FORM_INT64:
        case FORM_UINT64: return kInt64;
        case FORM_DOUBLE: return kDouble;
    }
    return kInt;
}

long long getIntValue64(const Operand& operand) {
    if (!operand.cell) return operand.constant;
    switch (operand.cell->form()) {
        case FORM_INT: return operand.cell->getMetricValue();
        case FORM_INT64:
        case FORM_UINT64: return operand.cell->getMetricValue64();
        case FORM_DOUBLE: return convert::toInt64(operand.cell->getMetricValueDouble());
        default: return 0;
    }
}

int getIntValue(const Operand& operand) {
    if (operand.cell && operand.cell->isNumberDouble()) return convert::toInt32(operand.cell->getMetricValueDouble());
    return convert::low32(getIntValue64(operand));
}

double getDoubleValue(const Operand& operand) {
    if (operand.cell && operand.cell->isNumberDouble()) return operand.cell->getMetricValueDouble();
    if (operand.cell && operand.cell->isNumberU64()) return static_cast<double>(operand.cell->getMetricValueU64());
    return static_cast<double>(getIntValue64(operand));
}

// The percentage without its fraction, and whether the fraction rounds it up.
struct Percentage {
    double value;
    bool up;
};

Percentage percentageOf(double a, double b) {
    const double p = a * 100.0 / b;  // kept: no test for a divisor of 0
    return {p, p - std::trunc(p) > 0.5};
}

// 64 bits, from which the low 32 are right for the narrow kind too.
long long computeInteger(char op, long long a, long long b, bool wide) {
    TRACE_MESSAGES();
    const auto x = static_cast<unsigned long long>(a);
    const auto y = static_cast<unsigned long long>(b);
    switch (op) {
        case '+': return static_cast<long long>(x + y);
        case '-': return static_cast<long long>(x - y);
        case '*': return static_cast<long long>(x * y);
        case '/':
            if (b == 0) return 0;
            return b == -1 ? static_cast<long long>(0 - x) : a / b;
        case '%': {
            const Percentage p = percentageOf(static_cast<double>(a), static_cast<double>(b));
            const long long cut = wide ? convert::toInt64(p.value) : convert::toInt32(p.value);
            return static_cast<long long>(static_cast<unsigned long long>(cut) + (p.up ? 1 : 0));
        }
        default: trace_detail("Unknown operation %c", op); return 0;
    }
}

double computeDouble(char op, double a, double b) {
    TRACE_MESSAGES();
    switch (op) {
        case '+': return a + b;
        case '-': return a - b;
        case '*': return a * b;
        case '/': return b == 0.0 ? 0.0 : a / b;
        case '%': {
            const Percentage p = percentageOf(a, b);
            return std::trunc(p.value) + (p.up ? 1.0 : 0.0);
        }
        default: trace_detail("Unknown operation %c", op); return 0.0;
    }
}

std::string textOf(const Operand& operand) {
    const ResultMetric* cell = operand.cell;
    if (!cell) return operand.text;
    char number[32];
    switch (cell->form()) {
        case FORM_STRING: return cell->getStringValue() ? cell->getStringValue() : "";
        case FORM_UTF8: {
            const UTF8String* text = cell->getUTF8StringData();
            return text && text->getUTF8Value() ? text->getUTF8Value() : "";
        }
        case FORM_UINT64: std::snprintf(number, sizeof number, "%llu", cell->getMetricValueU64()); break;
        case FORM_DOUBLE: std::snprintf(number, sizeof number, "%g", cell->getMetricValueDouble()); break;
        default: std::snprintf(number, sizeof number, "%lld", getIntValue64(operand));
    }
    return number;
}

std::string concatenate(const Operand& a, const Operand& b, bool mismatch) {
    return mismatch ? "Cannot concatenate string and UTF8" : textOf(a) + "@" + textOf(b);
}

Operand operandOf(const Metric::Operand& declared, const char* text, const ResultInstance* row) {
    Operand operand;
    operand.constant = declared.constant;
    operand.text = text ? text : "";
    if (declared.isAttribute) operand.cell = row->getMetric(operand.text);
    return operand;
}

Kind kindOf(const Metric* metric, const ResultMetric* a, const ResultMetric* b) {
    Kind kind = metric->operand1.isAttribute ? mapMetricType(a) : kNone;
    if (metric->operand2.isAttribute) {
        const Kind second = mapMetricType(b);
        if (kind == kNone || (kind == kInt && (second == kInt64 || second == kDouble))) kind = second;
    }
    return kind == kNone ? kInt : kind;
}

}  // namespace

ResultMetric* computeSimpleForm(const Metric* metric, const ResultInstance* row) {
    TRACE_MESSAGES();
    const Operand a = operandOf(metric->operand1, metric->getArg1(), row);
    const Operand b = operandOf(metric->operand2, metric->getArg2(), row);
    if (metric->operand1.isAttribute && !a.cell) trace_error("metric1 %s not found in result instance", a.text);
    if (metric->operand2.isAttribute && !b.cell) trace_error("metric2 %s not found in result instance", b.text);
    const char op = metric->getOp();
    const Kind kind = kindOf(metric, a.cell, b.cell);
    switch (kind) {
        case kInt: return new ResultMetric(metric, convert::low32(computeInteger(op, getIntValue(a), getIntValue(b), false)));
        case kInt64: return new ResultMetric(metric, computeInteger(op, getIntValue64(a), getIntValue64(b), true));
        case kDouble: return new ResultMetric(metric, computeDouble(op, getDoubleValue(a), getDoubleValue(b)));
        case kString: return new ResultMetric(metric, concatenate(a, b, b.cell && b.cell->isUTF8String()).c_str());
        case kUtf8: {
            auto* text = new UTF8String;
            text->initFromUTF8String(concatenate(a, b, b.cell && b.cell->isString()).c_str());
            return new ResultMetric(metric, text);
        }
        case kNone: break;
    }
    trace_error("Unknown resType %d", static_cast<int>(kind));
    return nullptr;
}
