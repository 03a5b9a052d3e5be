#include "providers/derived/filter/FilterExpression.h"

#include <cctype>
#include <cstring>

#include "foundation/Trace.h"

namespace {


bool isBlank(char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; }

bool startsWith(const char* text, const char* word) { return std::strncmp(text, word, std::strlen(word)) == 0; }

// The content of a constant: \\ and \' lose their backslash, any other backslash stays.
std::string unescaped(const char* from, const char* to) {
    std::string text;
    text.reserve(static_cast<std::size_t>(to - from));
    for (; from < to; ++from) {
        if (*from == '\\' && from + 1 < to && (from[1] == '\\' || from[1] == '\'')) ++from;
        text += *from;
    }
    return text;
}

}  // namespace

FilterExpression::FilterExpression(const char* text) {
    TRACE_FUNCTION();
    root_.reset(parse(text ? text : ""));
    valid_ = root_ != nullptr;
    if (valid_) {
        root_->printTree(0);
    } else {
        trace_error("parse() method returned NULL-- invalid expression.");
    }
}

bool FilterExpression::evaluate(const ResultInstance* row, PERF_OBJECT_ERROR_CODE* errorCode) const {
    return root_ && row && root_->evaluate(row, errorCode);
}

void FilterExpression::fail(const char* at, const char* text) {
    errorOffset_ = begin_ ? static_cast<std::size_t>(at - begin_) : 0;
    errorText_ = text;
}

void FilterExpression::eatWhitespace(const char** at) {
    while (isBlank(**at)) ++*at;
}

bool FilterExpression::atEnd(const char** at) {
    TRACE_MESSAGES();
    eatWhitespace(at);
    if (**at) return false;
    trace_error("ERROR: Empty subexpression string");
    fail(*at, "the filter ends where a term or an operator must stand");
    return true;
}

FilterExpressionNode* FilterExpression::parse(const char* text) {
    TRACE_FUNCTION();
    begin_ = text;
    names_.clear();
    const char* at = text;
    std::unique_ptr<FilterExpressionNode> root(subExpressionParse(&at));
    FilterExpressionNode* parent = nullptr;  // of the last comparison; it stands at its right
    while (root) {
        eatWhitespace(&at);
        if (!*at) break;
        FilterExpressionBooleanOp op{};
        if (!readBooleanOp(&at, &op)) {
            trace_error("ERROR: failed to parse expected boolean operator");
            root.reset();
            break;
        }
        std::unique_ptr<FilterExpressionNode> right(subExpressionParse(&at));
        if (!right) {
            trace_error("ERROR: right side of boolean expression missing");
            root.reset();
            break;
        }
        // The comparison read before becomes the left operand of an operator in its own place.
        std::unique_ptr<FilterExpressionNode> left(parent ? parent->releaseSecondChild() : root.release());
        auto* node = new FilterExpressionNode(op, left.release(), right.release());
        if (parent) {
            parent->setSecondChild(node);
        } else {
            root.reset(node);
        }
        parent = node;
    }
    begin_ = nullptr;
    return root.release();
}

FilterExpressionNode* FilterExpression::subExpressionParse(const char** at) {
    std::unique_ptr<FilterExpressionNode> left(readMetricOrString(at));
    FilterExpressionComparisonOp op{};
    if (!left || !readCompareOp(at, &op)) return nullptr;
    std::unique_ptr<FilterExpressionNode> right(readMetricOrString(at));
    if (!right) return nullptr;
    return new FilterExpressionNode(op, left.release(), right.release());
}

FilterExpressionNode* FilterExpression::readMetricOrString(const char** at) {
    if (atEnd(at)) return nullptr;
    const char* from = *at;
    if (*from != '\'') {
        while (**at && !isBlank(**at)) ++*at;
        std::string name(from, *at);
        if (begin_) names_.push_back({name, static_cast<std::size_t>(from - begin_)});
        return new FilterExpressionNode(FILTER_NODE_METRIC, std::move(name));
    }
    ++from;
    // Kept: the byte behind the opening quote is content whatever it is, so '' is no empty constant, and a backslash
    // in front of a quote always shields it. A constant without its closing quote ends with the text.
    const char* end = *from ? from + 1 : from;
    while (*end && (*end != '\'' || end[-1] == '\\')) ++end;
    *at = *end ? end + 1 : end;
    return new FilterExpressionNode(FILTER_NODE_STRING, unescaped(from, end));
}

bool FilterExpression::readCompareOp(const char** at, FilterExpressionComparisonOp* op) {
    TRACE_MESSAGES();
    if (atEnd(at)) return false;
    // Kept: two letters decide, so EQUALS is EQ and a term that begins with UALS.
    if (startsWith(*at, "EQ")) {
        *op = FILTER_EQ;
    } else if (startsWith(*at, "NE")) {
        *op = FILTER_NE;
    } else {
        trace_error("ERROR: invalid comparison operator in expression, expected EQ or NE, got: %s", *at);
        fail(*at, "EQ or NE must stand here");
        return false;
    }
    *at += 2;
    return true;
}

bool FilterExpression::readBooleanOp(const char** at, FilterExpressionBooleanOp* op) {
    TRACE_MESSAGES();
    if (atEnd(at)) return false;
    if (startsWith(*at, "AND")) {
        *op = FILTER_AND;
        *at += 3;
    } else if (startsWith(*at, "OR")) {
        *op = FILTER_OR;
        *at += 2;
    } else {
        trace_error("ERROR: invalid boolean operator in expression, expected AND or OR, got: %s", *at);
        fail(*at, "AND or OR must stand here");
        return false;
    }
    return true;
}
