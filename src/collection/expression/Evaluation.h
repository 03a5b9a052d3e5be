// Evaluation: what one evaluation of a formula needs - the metric, the row, the storage of the stateful functions, and
// the stack of values. One thread's; used again for the next row, so that numbers need no allocation.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "collection/expression/DerivedStorage.h"
#include "collection/expression/ExpressionValue.h"

class Metric;
class ResultInstance;

// What a function of the language hands back. Before a call it is the double 0.0.
struct FunctionResult {
    enum Type { Double = 0, List = 1, Integer = 2, String = 3 };
    Type type = Double;
    const SampleList* list = nullptr;  // not owned
    double doubleValue = 0.0;
    long long integerValue = 0;
    std::string stringValue;  // keeps its room

    void reset() {
        type = Double;
        list = nullptr;
        doubleValue = 0.0;
        integerValue = 0;
        stringValue.clear();
    }
};

class Evaluation {
  public:
    // Evaluates an expression for one row. The result is valid until the next call, and as long as the row and the
    // expression are. `storage` may be null: then the stateful functions give 0.0.
    const ExpressionValue& calculate(const Expression& expression, const Metric& metric, const ResultInstance& row,
                                     DerivedStorage* storage);

    // For the nodes.
    const Metric& metric() const { return *metric_; }
    const ResultInstance& row() const { return *row_; }
    DerivedStorage* storage() const { return storage_; }
    // Makes room for that many values at once; only while the stack is empty.
    void reserve(std::size_t depth) {
        if (values_.size() < depth) values_.resize(depth);
        depth_ = depth;
    }
    // A new value on top, its result not set yet.
    ExpressionValue& push(ExpressionClass expressionClass) {
        ExpressionValue& value = values_[count_++];
        value.setType(ExpressionType::None);
        value.setClass(expressionClass);
        return value;
    }
    void pop(std::size_t n) { count_ -= n; }
    ExpressionValue& top(std::size_t below = 0) { return values_[count_ - 1 - below]; }
    FunctionResult& functionResult() { return functionResult_; }
    SampleList& samples() { return samples_; }

  private:
    const Metric* metric_ = nullptr;
    const ResultInstance* row_ = nullptr;
    DerivedStorage* storage_ = nullptr;
    std::vector<ExpressionValue> values_;
    std::size_t count_ = 0;
    std::size_t depth_ = 0;  // of the latest formula
    FunctionResult functionResult_;
    SampleList samples_;  // a copy of the record's, which other threads may change: all lists of a formula are this one
};
