// The table of functions, and those that know the row: last, count, instanceName.
#include "collection/expression/ExpressionFunctions.h"

#include "collection/rows/ResultMetric.h"
#include "foundation/Trace.h"

const ExpressionFunction functions[19] = {
    {"min", MinFunction, 1, -1, FunctionResult::Double},
    {"max", MaxFunction, 1, -1, FunctionResult::Double},
    {"average", AverageFunction, 1, -1, FunctionResult::Double},
    {"stddev", StddevFunction, 1, -1, FunctionResult::Double},
    {"stddev100", Stddev100Function, 1, -1, FunctionResult::Double},
    {"last", LastFunction, 2, 2, FunctionResult::List},
    {"round", RoundFunction, 1, 1, FunctionResult::Double},
    {"trend", TrendFunction, 1, 2, FunctionResult::Double},
    {"sum", SumFunction, 1, -1, FunctionResult::Double},
    {"abs", AbsFunction, 1, 1, FunctionResult::Double},
    {"sqrt", SqrtFunction, 1, 1, FunctionResult::Double},
    {"atof", AtofFunction, 1, 1, FunctionResult::Double},
    {"atoi", AtoiFunction, 1, 1, FunctionResult::Integer},
    {"htoi", HtoiFunction, 1, 1, FunctionResult::Integer},
    {"itoa", ItoaFunction, 1, 1, FunctionResult::String},
    {"getenv", GetenvFunction, 1, 1, FunctionResult::String},
    {"tokenize", TokenizeFunction, 3, 3, FunctionResult::String},
    {"count", CountFunction, 1, -1, FunctionResult::Integer},
    {"instanceName", InstanceNameFunction, 1, -1, FunctionResult::String},
};

const ExpressionFunction* findExpressionFunction(std::string_view name) {
    for (const ExpressionFunction& f : functions) {
        if (name == f.name) return &f;
    }
    return nullptr;
}

namespace {

const char* metricName(const Evaluation& evaluation) {
    const char* name = evaluation.metric().getQMPVMetricName();
    return name ? name : "";
}

const char* rowName(const Evaluation& evaluation) {
    const char* name = evaluation.row().getInstanceName();
    return name ? name : "";
}

}  // namespace

void LastFunction(FunctionResult& result, FunctionArguments arguments, Evaluation& evaluation) {
    TRACE_MESSAGES();
    constexpr int kSamples = 10;
    if (arguments.size() != 2 || !evaluation.storage()) return;
    int samples = kSamples;
    if (arguments[1].getClass() == ExpressionClass::Number) samples = arguments[1].getInt();
    if (samples < 2) {
        trace_detail("Error on last function: invalid number of samples passed %d, using 10 instead", samples);
        samples = kSamples;
    }
    evaluation.storage()->addSample(metricName(evaluation), rowName(evaluation), samples, arguments[0].getDouble(),
                                    &evaluation.samples());
    result.type = FunctionResult::List;
    result.list = &evaluation.samples();
}

void CountFunction(FunctionResult& result, FunctionArguments, Evaluation& evaluation) {
    if (!evaluation.storage()) return;
    result.type = FunctionResult::Integer;
    result.integerValue = evaluation.storage()->count(metricName(evaluation), rowName(evaluation));
}

void InstanceNameFunction(FunctionResult& result, FunctionArguments, Evaluation& evaluation) {
    TRACE_MESSAGES();
    result.type = FunctionResult::String;
    result.stringValue = rowName(evaluation);
    if (result.stringValue.empty()) {
        trace_detail("Derived function instanceName() called in an instance which has no name");
    }
}
