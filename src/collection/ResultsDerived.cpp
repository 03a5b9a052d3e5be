// Derived attributes: cells computed from the other cells of their row.
#include "collection/ResultsManager.h"
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
        ResultMetric* cell = derivedCell(static_cast<Metric*>(derivedMetrics_->get(i)), row);
        if (cell) row->addDerivedMetric(cell);
    }
}

ResultMetric* ResultsManager::derivedCell(Metric*, ResultInstance*) {
    TRACE_FUNCTION();
    trace_detail("%s: derived attributes get no value", getAttributeGroup());
    return nullptr;
}
