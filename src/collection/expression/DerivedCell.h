// The cell of a derived metric, from the other cells of its row.
#pragma once

#include "collection/rows/ResultMetric.h"

class DerivedStorage;

// By the metric's formula, else by its arg1, op and arg2. The caller's; null where the metric gets no cell. Any number of
// threads may compute the cells of one metric, each for a row of its own.
ResultMetric* computeDerivedCell(const Metric* metric, const ResultInstance* row, DerivedStorage* storage);

// The simple form alone: two operands and an operator.
ResultMetric* computeSimpleForm(const Metric* metric, const ResultInstance* row);
