// The arithmetic of rates and deltas on one cell. Pure but for the clock's reading, which is an argument.
#pragma once

#include <ctime>

#include "collection/rates/PrevResult.h"

class ResultMetric;

namespace rates {

// The memory of the cell in its row's, made and seeded with the cell's own value if it is new. Never null.
PrevResult* previousOf(const ResultMetric& cell, PrevResultInstance* row, time_t now);

// Computes the cell by its raw type against what it held before. Afterwards the memory holds what the cell held, and the
// cell the result. `now` in seconds, of the same clock at each call.
void compute(PrevResult* previous, ResultMetric* cell, time_t now);

}  // namespace rates
