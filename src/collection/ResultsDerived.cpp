// Derived attributes: cells computed from the other cells of their row.
#include "collection/ResultsManager.h"
#include "collection/expression/DerivedCell.h"
#include "foundation/Trace.h"

void ResultsManager::calculateDerived() {
    TRACE_FUNCTION();
    if (!hasDerivedMetrics()) return;
    for (ResultInstance* row = new_.first(); row; row = nextRow(row)) {
        if (skipIncompleteRows_ && row->getExpectedMetricCount() != row->getActualMetricCount()) continue;
        internalCalculateDerived(row);
    }
}

void ResultsManager::internalCalculateDerived(ResultInstance* row) {
    for (int i = 0; i < derivedMetrics_->getCount(); ++i) {
        // In declaration order, so that a formula sees the derived cells ahead of it.
        ResultMetric* cell = computeDerivedCell(static_cast<Metric*>(derivedMetrics_->get(i)), row, &derivedStorage_);
        if (cell) row->addDerivedMetric(cell);
    }
}
