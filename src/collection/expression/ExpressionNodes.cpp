// Attributes, literals, functions and whole formulas.
#include "collection/expression/ExpressionNodes.h"

#include <cstdlib>

#include "collection/expression/Evaluation.h"
#include "collection/expression/ExpressionFunctions.h"
#include "collection/rows/ResultMetric.h"
#include "foundation/Trace.h"

namespace {

void takeCell(ExpressionValue& value, const ResultMetric* cell, const Metric& metric) {
    TRACE_MESSAGES();
    if (cell->isNumberU64()) {
        value.setUInt64(cell->getMetricValueU64());
    } else if (cell->isNumber64()) {
        value.setInt64(cell->getMetricValue64());
    } else if (cell->isNumberDouble()) {
        value.setDouble(cell->getMetricValueDouble());
    } else if (cell->isNumber() || cell->isMappedData()) {
        value.setInt(cell->getMetricValue());
    } else if (cell->isUTF8String()) {
        const UTF8String* text = cell->getUTF8StringData();
        value.setText(text && text->getUTF8Value() ? text->getUTF8Value() : "");
    } else if (cell->isString()) {
        UTF8String text;
        text.initFromASCIIString(cell->getStringValue());
        value.copyText(text.getUTF8Value());
    } else {
        trace_error("Error: unknown metric type for metric %s", cell->getQMPVMetricName() ? cell->getQMPVMetricName() : "");
        value.setDefaultValue(metric);
    }
}

std::string decode(std::string_view token) {
    if (token.find('\\') == std::string_view::npos) return std::string(token.substr(1, token.size() - 2));
    std::string text;
    for (std::size_t i = 1; i < token.size(); ++i) {
        char c = token[i];
        if (c == '"') continue;
        if (c == '\\' && i + 1 < token.size()) {
            c = token[++i];
            c = c == 'n' ? '\n' : c == 'r' ? '\r' : c == 't' ? '\t' : c;
        }
        text += c;
    }
    return text;
}

}  // namespace

void AttributeExpression::calculate(Evaluation& evaluation) const {
    TRACE_MESSAGES();
    ExpressionValue& value = evaluation.push(getClass());
    if (const ResultMetric* cell = evaluation.row().getMetric(name_.c_str())) {
        takeCell(value, cell, evaluation.metric());
        return;
    }
    trace_detail("instance->getMetric for %s returned NULL", name_.c_str());
    if (evaluation.metric().getRawMetricType() == STRING_DATA) {
        trace_detail("setting result type to string");
        value.setText(name_);
    } else {
        value.setInt(0);
    }
}

NumberExpression::NumberExpression(const char* text)
    : Expression(ExpressionClass::Number),
      type_(ExpressionType::Int),
      int_(convert::low32(std::strtoll(text, nullptr, 10))),
      double_(0.0) {}

void NumberExpression::calculate(Evaluation& evaluation) const {
    ExpressionValue& value = evaluation.push(getClass());
    if (type_ == ExpressionType::Double) {
        value.setDouble(double_);
    } else {
        value.setInt(int_);
    }
}

StringExpression::StringExpression(std::string_view token) : Expression(ExpressionClass::String), text_(decode(token)) {}

void StringExpression::calculate(Evaluation& evaluation) const { evaluation.push(getClass()).setText(text_); }

FunctionExpression::FunctionExpression(std::string_view name, int arguments, int offset)
    : Expression(ExpressionClass::Function),
      name_(name),
      entry_(findExpressionFunction(name)),
      arguments_(arguments),
      offset_(offset) {
    TRACE_MESSAGES();
    if (!entry_) trace_error("Unknown function %s", name_.c_str());
}

void FunctionExpression::calculate(Evaluation& evaluation) const {
    const auto count = static_cast<std::size_t>(arguments_);
    FunctionResult& result = evaluation.functionResult();
    result.reset();
    if (entry_) entry_->call(result, FunctionArguments(&evaluation.top(count - 1), count), evaluation);
    evaluation.pop(count);
    ExpressionValue& value = evaluation.push(getClass());
    if (!entry_) return;
    switch (result.type) {
        case FunctionResult::Double: value.setDouble(result.doubleValue); break;
        case FunctionResult::List: value.setList(result.list); break;
        case FunctionResult::Integer: value.setInt64(result.integerValue); break;
        case FunctionResult::String: value.swapText(result.stringValue); break;
    }
}

ExpressionTree::ExpressionTree(Nodes nodes, int depth)
    : Expression(nodes.back()->getClass()), nodes_(std::move(nodes)), depth_(static_cast<std::size_t>(depth)) {}

void ExpressionTree::calculate(Evaluation& evaluation) const {
    evaluation.reserve(depth_);
    for (const auto& node : nodes_) node->calculate(evaluation);
}
