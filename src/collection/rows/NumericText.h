// Numeric texts of providers as cells.
#pragma once

#include "collection/rows/ResultMetric.h"

// A text that is an integer becomes a 64-bit cell, "12.5" (and any text of a scale-transparent metric) a double,
// "12abc" the double 12 and "abc" the double 0, both with a trace line; a null text the integer 0. Never null; the
// caller owns the cell.
ResultMetric* parseNumericString(const Metric* metric, const char* text);
