// Functions of numbers and lists.
#include <cmath>

#include "collection/expression/ExpressionFunctions.h"
#include "foundation/Trace.h"

namespace {

// Calls visit(value, position) for each value: `position` is that of the value in its list, or of the argument.
template <class Visit>
void walk(FunctionArguments arguments, const Visit& visit) {
    double argument = 0.0;
    for (const ExpressionValue& a : arguments) {
        argument += 1.0;
        if (a.getType() != ExpressionType::List) {
            visit(a.getDouble(), argument);
        } else if (const SampleList* list = a.getList()) {
            double position = 0.0;
            for (const double value : *list) visit(value, position += 1.0);
        }
    }
}

struct Total {
    double sum = 0.0;
    double count = 0.0;
};

Total totalOf(FunctionArguments arguments) {
    Total total;
    walk(arguments, [&](double value, double) {
        total.sum += value;
        total.count += 1.0;
    });
    return total;
}

// The value that `better` prefers over all others; 0.0 of none.
template <class Better>
double choose(FunctionArguments arguments, const Better& better) {
    double chosen = 0.0;
    bool any = false;
    walk(arguments, [&](double value, double) {
        if (!any || better(value, chosen)) chosen = value;
        any = true;
    });
    return chosen;
}

double deviation(FunctionArguments arguments) {
    double mean = 0.0;
    double squares = 0.0;
    double count = 0.0;
    // Kept: the mean moves by the value's position in its own list, not by the count of all values.
    walk(arguments, [&](double value, double position) {
        count += 1.0;
        if (count == 1.0) {
            mean = value;
            return;
        }
        const double old = mean;
        mean = (value - old) / position + old;
        squares += (value - old) * (value - mean);
    });
    return count > 1.0 ? std::sqrt(squares / (count - 1.0)) : 0.0;
}

// Whether there is one argument and it is no list; traced if not.
bool isOneNumber(FunctionArguments arguments, const char* wrongNumber) {
    TRACE_MESSAGES();
    if (arguments.size() != 1) {
        trace_state("%s", wrongNumber);
        return false;
    }
    if (arguments[0].getType() == ExpressionType::List) {
        trace_state("List result is not supported");
        return false;
    }
    return true;
}

}  // namespace

void MinFunction(FunctionResult& result, FunctionArguments arguments, Evaluation&) {
    result.doubleValue = choose(arguments, [](double a, double b) { return a < b; });
}

void MaxFunction(FunctionResult& result, FunctionArguments arguments, Evaluation&) {
    result.doubleValue = choose(arguments, [](double a, double b) { return a > b; });
}

void SumFunction(FunctionResult& result, FunctionArguments arguments, Evaluation&) {
    result.doubleValue = totalOf(arguments).sum;
}

void AverageFunction(FunctionResult& result, FunctionArguments arguments, Evaluation&) {
    const Total total = totalOf(arguments);
    result.doubleValue = total.count > 0.0 ? total.sum / total.count : 0.0;
}

void StddevFunction(FunctionResult& result, FunctionArguments arguments, Evaluation&) {
    result.doubleValue = deviation(arguments);
}

void Stddev100Function(FunctionResult& result, FunctionArguments arguments, Evaluation&) {
    result.doubleValue = deviation(arguments) * 100.0;
}

// Least squares over (1, y1), (2, y2) …; the line goes through the newest point.
void TrendFunction(FunctionResult& result, FunctionArguments arguments, Evaluation&) {
    TRACE_MESSAGES();
    if (arguments.empty() || arguments.size() > 2) return;
    const double lookahead = arguments.size() == 2 ? arguments[1].getInt() : 1;
    if (arguments[0].getType() != ExpressionType::List) {
        trace_state("First argument to trend() is not of list type");
        return;
    }
    double n = 0.0;
    double sumX = 0.0;
    double sumY = 0.0;
    double sumXY = 0.0;
    double sumXX = 0.0;
    double last = 0.0;
    walk(arguments.first(1), [&](double y, double x) {
        n = x;
        sumX += x;
        sumY += y;
        sumXY += x * y;
        sumXX += x * x;
        last = y;
    });
    const double div = n * sumXX - sumX * sumX;
    if (div == 0.0 || n <= 0.0) return;
    const double slope = (n * sumXY - sumX * sumY) / div;
    result.doubleValue = (lookahead + n) * slope + (last - slope * n);
}

void RoundFunction(FunctionResult& result, FunctionArguments arguments, Evaluation&) {
    if (!isOneNumber(arguments, "Wrong number of arguments for round() function")) return;
    const double x = arguments[0].getDouble();
    result.doubleValue = convert::toInt32(x < 0.0 ? x - 0.5 : x + 0.5);  // kept: through 32 bits
}

void AbsFunction(FunctionResult& result, FunctionArguments arguments, Evaluation&) {
    if (isOneNumber(arguments, "Wrong number of arguments for abs() function")) result.doubleValue = std::fabs(arguments[0].getDouble());
}

void SqrtFunction(FunctionResult& result, FunctionArguments arguments, Evaluation&) {
    TRACE_MESSAGES();
    if (!isOneNumber(arguments, "Wrong number of arguments for sqrt() function")) return;
    const double x = arguments[0].getDouble();
    if (x < 0.0) {
        trace_detail("sqrt() called on negative number %g", x);
    } else {
        result.doubleValue = std::sqrt(x);
    }
}
