// The nodes of a formula, and the formula itself: ExpressionTree, its nodes in the order of their evaluation. A binary
// node finds its two operands on top of the evaluation's stack, a function its arguments. So neither evaluation nor
// destruction recurses, however long or deep a formula is.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "collection/rows/Expression.h"

class Metric;
class ResultInstance;
struct ExpressionFunction;

class AttributeExpression final : public Expression {
  public:
    AttributeExpression(std::string_view name, int offset)
        : Expression(ExpressionClass::Attribute), name_(name), offset_(offset) {}
    // The cell's value; of one that is not in the row 0, or the attribute's name if the metric is STRING_DATA.
    void calculate(Evaluation& evaluation) const override;
    const std::string& name() const { return name_; }
    int offset() const { return offset_; }  // of the name in the formula

  private:
    std::string name_;
    int offset_;
};

class NumberExpression final : public Expression {
  public:
    // Decimal digits, perhaps with a sign; what exceeds 32 bits keeps its low ones.
    explicit NumberExpression(const char* text);
    explicit NumberExpression(double value)
        : Expression(ExpressionClass::Number), type_(ExpressionType::Double), int_(0), double_(value) {}
    void calculate(Evaluation& evaluation) const override;
    ExpressionType type() const { return type_; }
    int intValue() const { return int_; }

  private:
    ExpressionType type_;
    int int_;
    double double_;
};

class StringExpression final : public Expression {
  public:
    // The token with its quotes. \n, \r, \t and \" are line feed, carriage return, tab and quote; a backslash before any
    // other byte gives that byte.
    explicit StringExpression(std::string_view token);
    void calculate(Evaluation& evaluation) const override;

  private:
    std::string text_;
};

class NegateExpression final : public Expression {
  public:
    NegateExpression() : Expression(ExpressionClass::Binary) {}
    void calculate(Evaluation& evaluation) const override;
};

class FunctionExpression final : public Expression {
  public:
    // An unknown name is traced; its value has no type.
    FunctionExpression(std::string_view name, int arguments, int offset);
    void calculate(Evaluation& evaluation) const override;
    // What the functions keep is the query class's and freed with its derived storage.
    void cleanup(const Metric*, const ResultInstance*) const {}
    const std::string& name() const { return name_; }
    const ExpressionFunction* entry() const { return entry_; }  // null if unknown
    int arguments() const { return arguments_; }
    int offset() const { return offset_; }

  private:
    std::string name_;
    const ExpressionFunction* entry_;
    int arguments_;
    int offset_;
};

class BinaryExpression : public Expression {
  public:
    BinaryExpression() : Expression(ExpressionClass::Binary) {}
};

// 32-bit sums and products are 64 bits wide, 32-bit differences and percentages are not. All wrap around.
class AddExpression final : public BinaryExpression {
  public:
    void calculate(Evaluation& evaluation) const override;  // also joins two texts
};
class SubtractExpression final : public BinaryExpression {
  public:
    void calculate(Evaluation& evaluation) const override;
};
class MultiplyExpression final : public BinaryExpression {
  public:
    void calculate(Evaluation& evaluation) const override;
};
// Always a double; 0.0 for a divisor of 0.
class DivideExpression final : public BinaryExpression {
  public:
    void calculate(Evaluation& evaluation) const override;
};
// left * 100 / right; 0 for a right side of 0.
class PercentageExpression final : public BinaryExpression {
  public:
    void calculate(Evaluation& evaluation) const override;
};

class ExpressionTree final : public Expression {
  public:
    using Nodes = std::vector<std::unique_ptr<Expression>>;
    // The nodes, each behind its operands; at no time more than `depth` values. At least one node.
    ExpressionTree(Nodes nodes, int depth);
    void calculate(Evaluation& evaluation) const override;
    const Nodes& nodes() const { return nodes_; }

  private:
    Nodes nodes_;
    std::size_t depth_;
};
