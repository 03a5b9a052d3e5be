// The named functions of formulas. A wrong call is traced at most and gives the neutral value of the function's result.
#pragma once

#include <span>
#include <string_view>

#include "collection/expression/Evaluation.h"

using FunctionArguments = std::span<const ExpressionValue>;

struct ExpressionFunction {
    const char* name;
    void (*call)(FunctionResult& result, FunctionArguments arguments, Evaluation& evaluation);
    int least;  // the numbers of arguments that can work
    int most;   // -1: any
    FunctionResult::Type gives;
};

extern const ExpressionFunction functions[19];

// By exact comparison; null if there is none of that name.
const ExpressionFunction* findExpressionFunction(std::string_view name);

// The entries of the table.
void MinFunction(FunctionResult& result, FunctionArguments arguments, Evaluation& evaluation);
void MaxFunction(FunctionResult& result, FunctionArguments arguments, Evaluation& evaluation);
void AverageFunction(FunctionResult& result, FunctionArguments arguments, Evaluation& evaluation);
void StddevFunction(FunctionResult& result, FunctionArguments arguments, Evaluation& evaluation);
void Stddev100Function(FunctionResult& result, FunctionArguments arguments, Evaluation& evaluation);
void LastFunction(FunctionResult& result, FunctionArguments arguments, Evaluation& evaluation);
void RoundFunction(FunctionResult& result, FunctionArguments arguments, Evaluation& evaluation);
void TrendFunction(FunctionResult& result, FunctionArguments arguments, Evaluation& evaluation);
void SumFunction(FunctionResult& result, FunctionArguments arguments, Evaluation& evaluation);
void AbsFunction(FunctionResult& result, FunctionArguments arguments, Evaluation& evaluation);
void SqrtFunction(FunctionResult& result, FunctionArguments arguments, Evaluation& evaluation);
void AtofFunction(FunctionResult& result, FunctionArguments arguments, Evaluation& evaluation);
void AtoiFunction(FunctionResult& result, FunctionArguments arguments, Evaluation& evaluation);
void HtoiFunction(FunctionResult& result, FunctionArguments arguments, Evaluation& evaluation);
void ItoaFunction(FunctionResult& result, FunctionArguments arguments, Evaluation& evaluation);
void GetenvFunction(FunctionResult& result, FunctionArguments arguments, Evaluation& evaluation);
void TokenizeFunction(FunctionResult& result, FunctionArguments arguments, Evaluation& evaluation);
void CountFunction(FunctionResult& result, FunctionArguments arguments, Evaluation& evaluation);
void InstanceNameFunction(FunctionResult& result, FunctionArguments arguments, Evaluation& evaluation);
