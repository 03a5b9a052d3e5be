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
    std::string message;                   // what is wrong; "$" stands for the end of the formula
    int stopOffset = 0;        // where the token begins that fits nowhere, or where the formula ends
    int expressionColumn = 0;  // how many bytes were read by then
};

ParsedFormula parseFormula(const char* formula);

// The blanks and "^" that stand under a wrong formula.
std::string caretLine(const ParsedFormula& parsed);
