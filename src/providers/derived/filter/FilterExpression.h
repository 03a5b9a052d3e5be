// The filter language: comparisons of texts, joined by AND and OR of one rank that group to the right. There are no
// parentheses.
//
//   filter     = comparison [ ("AND" | "OR") filter ]
//   comparison = term ("EQ" | "NE") term
//   term       = 'text' | attribute name, which ends at white space
//
// An expression never changes once it is made; any number of threads may evaluate it. Nothing here recurses over the
// length of a filter.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "collection/rows/PerfObject.h"
#include "collection/rows/ResultMetric.h"

enum FilterExpressionNodeType : int {
    FILTER_NODE_BOOLEAN = 0,
    FILTER_NODE_COMPARISON = 1,
    FILTER_NODE_METRIC = 2,
    FILTER_NODE_STRING = 3,
};
enum FilterExpressionBooleanOp : int { FILTER_AND = 0, FILTER_OR = 1 };
enum FilterExpressionComparisonOp : int { FILTER_EQ = 0, FILTER_NE = 1 };

class FilterExpressionNode {
  public:
    // Takes over the operands.
    FilterExpressionNode(FilterExpressionBooleanOp op, FilterExpressionNode* first, FilterExpressionNode* second);
    FilterExpressionNode(FilterExpressionComparisonOp op, FilterExpressionNode* first, FilterExpressionNode* second);
    // An attribute's name, or a text.
    FilterExpressionNode(FilterExpressionNodeType type, std::string text);
    virtual ~FilterExpressionNode();
    FilterExpressionNode(const FilterExpressionNode&) = delete;
    FilterExpressionNode& operator=(const FilterExpressionNode&) = delete;

    FilterExpressionNodeType getType() const { return type_; }
    void setType(FilterExpressionNodeType type) { type_ = type; }
    FilterExpressionNode* getFirstChild() const { return first_.get(); }
    void setFirstChild(FilterExpressionNode* child) { first_.reset(child); }
    FilterExpressionNode* getSecondChild() const { return second_.get(); }
    void setSecondChild(FilterExpressionNode* child) { second_.reset(child); }
    FilterExpressionNode* releaseSecondChild() { return second_.release(); }  // the caller's then
    FilterExpressionBooleanOp getBooleanOp() const { return static_cast<FilterExpressionBooleanOp>(operator_); }
    void setBooleanOp(FilterExpressionBooleanOp op) { operator_ = op; }
    FilterExpressionComparisonOp getComparisonOp() const { return static_cast<FilterExpressionComparisonOp>(operator_); }
    void setComparisonOp(FilterExpressionComparisonOp op) { operator_ = op; }
    const char* getMetric() const { return text_.c_str(); }
    void setMetric(const char* name) { text_ = name ? name : ""; }
    const char* getStringConstant() const { return text_.c_str(); }
    void setStringConstant(const char* text) { text_ = text ? text : ""; }

    // The tree in the trace, a line a node.
    void printTree(int depth) const;
    // The text of a term, valid as long as the row and the node; null, with an error line, where a row lacks the
    // attribute or holds a number there.
    const char* resolveToString(const ResultInstance* row) const;
    // Sets the code to FILTER_SYNTAX_ERROR where there is no answer, which then is false; leaves it alone otherwise.
    bool evaluate(const ResultInstance* row, PERF_OBJECT_ERROR_CODE* errorCode) const;

  private:
    bool compare(const ResultInstance* row, PERF_OBJECT_ERROR_CODE* errorCode) const;
    bool isTerm() const { return type_ == FILTER_NODE_METRIC || type_ == FILTER_NODE_STRING; }

    FilterExpressionNodeType type_;
    int operator_ = 0;
    std::string text_;
    std::unique_ptr<FilterExpressionNode> first_;
    std::unique_ptr<FilterExpressionNode> second_;
};

class FilterExpression {
  public:
    // A null text counts as an empty one.
    explicit FilterExpression(const char* text);
    virtual ~FilterExpression() = default;

    bool isValid() const { return valid_; }
    // False without a tree or a row.
    bool evaluate(const ResultInstance* row, PERF_OBJECT_ERROR_CODE* errorCode) const;

    // The readers of the grammar; each moves the place on and gives null, with an error line, where it fails. What they
    // return is the caller's.
    FilterExpressionNode* parse(const char* text);
    FilterExpressionNode* subExpressionParse(const char** at);
    static void eatWhitespace(const char** at);
    FilterExpressionNode* readMetricOrString(const char** at);
    bool readCompareOp(const char** at, FilterExpressionComparisonOp* op);
    bool readBooleanOp(const char** at, FilterExpressionBooleanOp* op);

    // Where the text went wrong and how, for those who check a file: the last failure.
    std::size_t errorOffset() const { return errorOffset_; }
    const std::string& errorText() const { return errorText_; }
    // The attribute names it reads, with their places in the text, in order.
    struct Name {
        std::string name;
        std::size_t offset;
    };
    const std::vector<Name>& names() const { return names_; }

  private:
    void fail(const char* at, const char* text);
    bool atEnd(const char** at);

    const char* begin_ = nullptr;  // only while a text is read
    std::unique_ptr<FilterExpressionNode> root_;
    bool valid_ = false;
    std::size_t errorOffset_ = 0;
    std::string errorText_;
    std::vector<Name> names_;
};
