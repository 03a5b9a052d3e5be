// The formula language: text to ExpressionTree. Re-entrant; it keeps nothing between formulas.
//
//     expression: NAME | NAME ( expression, ... ) | NUMBER | FLOAT | STRING | ( expression ) | - expression
//               | expression + - * / % expression
//
// + and - bind loosest, then * / %, then the sign; all binary operators are left associative.
#pragma once

#include <memory>
#include <string>

#include "collection/expression/ExpressionNodes.h"

struct ParsedFormula {
    std::unique_ptr<ExpressionTree> tree;  // null on a syntax error
    // On a syntax error: what is wrong; where the token that fits nowhere begins; how many bytes were read by then.
    std::string message;
    int errorOffset = 0;
    int expressionColumn = 0;
};

ParsedFormula parseFormula(const char* formula);

// The blanks and "^" that stand under a wrong formula.
std::string caretLine(const ParsedFormula& parsed);
