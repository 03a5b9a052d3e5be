// Expression: a node of a parsed formula, as far as a Metric needs to know it. The nodes are in
// collection/expression/.
#pragma once

class Evaluation;

enum class ExpressionType : unsigned char {
    None = 0,
    Int = 1,     // 32 bits
    Int64 = 2,
    UInt64 = 3,
    String = 4,  // UTF-8 bytes
    Double = 5,
    List = 6,    // doubles
};

enum class ExpressionClass : unsigned char {
    Attribute = 0,
    Number = 1,
    String = 2,
    Function = 3,
    Binary = 4,  // also the negation
};

// Constant once built: all results live in the Evaluation, so any number of threads may evaluate one expression at once.
class Expression {
  public:
    explicit Expression(ExpressionClass expressionClass) : class_(expressionClass) {}
    virtual ~Expression() = default;
    Expression(const Expression&) = delete;
    Expression& operator=(const Expression&) = delete;

    // Replaces the operands on top of the evaluation's stack by the result. A whole formula leaves one value.
    virtual void calculate(Evaluation& evaluation) const = 0;
    ExpressionClass getClass() const { return class_; }

  private:
    ExpressionClass class_;
};
