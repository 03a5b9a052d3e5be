// Expression: a node of a parsed formula, as far as a Metric needs to know it. The nodes are in
// collection/expression/.
#pragma once

class Metric;
class ResultInstance;

class Expression {
  public:
    virtual ~Expression() = default;
    // Evaluates the subtree for one row; the node then holds its result. Not re-entrant.
    virtual void calculate(Metric* metric, ResultInstance* row, void* storage) = 0;
};
