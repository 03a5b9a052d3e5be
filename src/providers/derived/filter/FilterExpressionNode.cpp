#include <algorithm>
#include <cstring>

#include "foundation/Trace.h"
#include "providers/derived/filter/FilterExpression.h"

namespace {

constexpr int kDeepestIndent = 40;  // a long chain is traced in a straight column from there

const char* nameOf(FilterExpressionComparisonOp op) { return op == FILTER_EQ ? "EQ" : "NE"; }
const char* nameOf(FilterExpressionBooleanOp op) { return op == FILTER_AND ? "AND" : "OR"; }

}  // namespace

FilterExpressionNode::FilterExpressionNode(FilterExpressionBooleanOp op, FilterExpressionNode* first,
                                           FilterExpressionNode* second)
    : type_(FILTER_NODE_BOOLEAN), operator_(op), first_(first), second_(second) {}

FilterExpressionNode::FilterExpressionNode(FilterExpressionComparisonOp op, FilterExpressionNode* first,
                                           FilterExpressionNode* second)
    : type_(FILTER_NODE_COMPARISON), operator_(op), first_(first), second_(second) {}

FilterExpressionNode::FilterExpressionNode(FilterExpressionNodeType type, std::string text)
    : type_(type), text_(std::move(text)) {}

// A chain is as deep as it is long: its nodes are unhooked before they go.
FilterExpressionNode::~FilterExpressionNode() {
    std::vector<std::unique_ptr<FilterExpressionNode>> rest;
    const auto unhook = [&rest](FilterExpressionNode* node) {
        if (node->first_) rest.push_back(std::move(node->first_));
        if (node->second_) rest.push_back(std::move(node->second_));
    };
    unhook(this);
    while (!rest.empty()) {
        const std::unique_ptr<FilterExpressionNode> node = std::move(rest.back());
        rest.pop_back();
        unhook(node.get());
    }
}

void FilterExpressionNode::printTree(int depth) const {
    TRACE_MESSAGES();
    if (!trace_is_on(ZTR1_DETAIL)) return;
    struct Line {
        const FilterExpressionNode* node;
        int depth;
    };
    std::vector<Line> lines{{this, depth}};
    while (!lines.empty()) {
        const Line line = lines.back();
        lines.pop_back();
        const FilterExpressionNode* node = line.node;
        const int indent = std::clamp(line.depth, 0, kDeepestIndent) * 2;
        if (node->isTerm()) {
            trace_detail("%*s%s %s", indent, "", node->type_ == FILTER_NODE_METRIC ? "metric" : "string", node->text_.c_str());
        } else {
            trace_detail("%*s%s", indent, "",
                         node->type_ == FILTER_NODE_BOOLEAN ? nameOf(node->getBooleanOp()) : nameOf(node->getComparisonOp()));
        }
        if (node->second_) lines.push_back({node->second_.get(), line.depth + 1});
        if (node->first_) lines.push_back({node->first_.get(), line.depth + 1});
    }
}

const char* FilterExpressionNode::resolveToString(const ResultInstance* row) const {
    TRACE_MESSAGES();
    if (type_ == FILTER_NODE_STRING) return text_.c_str();
    const ResultMetric* cell = row->getMetric(text_.c_str());
    if (!cell) {
        trace_error("ERROR: metric %s not found in result instance %s", text_.c_str(), row->getInstanceName());
        return nullptr;
    }
    if (cell->isString()) return cell->getStringValue();
    if (cell->isUTF8String()) {
        const char* text = cell->getUTF8StringData() ? cell->getUTF8StringData()->getUTF8Value() : nullptr;
        return text ? text : "";
    }
    trace_error("ERROR: metric %s does not resolve to a string value", text_.c_str());
    return nullptr;
}

bool FilterExpressionNode::compare(const ResultInstance* row, PERF_OBJECT_ERROR_CODE* errorCode) const {
    TRACE_MESSAGES();
    if (!first_ || !second_ || !first_->isTerm() || !second_->isTerm()) {
        trace_error("ERROR: comparison operator has a non-metric, non-string child");
        *errorCode = FILTER_SYNTAX_ERROR;
        return false;
    }
    const char* left = first_->resolveToString(row);
    const char* right = second_->resolveToString(row);
    if (!left || !right) {
        *errorCode = FILTER_SYNTAX_ERROR;
        return false;
    }
    const bool result = (std::strcmp(left, right) == 0) == (getComparisonOp() == FILTER_EQ);
    trace_detail("Subexpression \"%s %s %s\" is %s", left, nameOf(getComparisonOp()), right, result ? "TRUE" : "FALSE");
    return result;
}

bool FilterExpressionNode::evaluate(const ResultInstance* row, PERF_OBJECT_ERROR_CODE* errorCode) const {
    TRACE_MESSAGES();
    const auto answers = [](const FilterExpressionNode* node) {
        return node && (node->type_ == FILTER_NODE_BOOLEAN || node->type_ == FILTER_NODE_COMPARISON);
    };
    const FilterExpressionNode* node = this;
    while (node->type_ == FILTER_NODE_BOOLEAN) {
        if (!answers(node->first_.get()) || !answers(node->second_.get())) {
            trace_error("ERROR: boolean operator has a non-boolean, non-comparison child");
            *errorCode = FILTER_SYNTAX_ERROR;
            return false;
        }
        const bool first = node->first_->evaluate(row, errorCode);
        if (first == (node->getBooleanOp() == FILTER_OR)) return first;
        node = node->second_.get();  // it alone decides now
    }
    if (node->type_ == FILTER_NODE_COMPARISON) return node->compare(row, errorCode);
    trace_error("ERROR: Can't evaluate metric or string constant");
    *errorCode = FILTER_SYNTAX_ERROR;
    return false;
}
