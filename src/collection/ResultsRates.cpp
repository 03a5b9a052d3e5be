// Rates and deltas: the memory of the collection before, and the rewriting of the cells that are shown against it.
#include "collection/ResultsManager.h"
#include "collection/rates/RateDelta.h"
#include "foundation/Clock.h"
#include "foundation/Trace.h"
#include "foundation/UTF8String.h"

PrevResult* ResultsManager::getPrevResult(ResultMetric* metric, PrevResultInstance* instance, time_t now) {
    return rates::previousOf(*metric, instance, now);
}

void ResultsManager::computeRateDelta(PrevResult* previous, ResultMetric* metric, time_t now) {
    rates::compute(previous, metric, now);
}

void ResultsManager::processRatesDeltas() {
    TRACE_FUNCTION();
    trace_state("Processing Rates/Deltas.");
    if (trace_is_on(ZTR1_STATE)) printPrevResults();
    const time_t now = Clock::monotonic().tv_sec;  // one time for all cells of a collection
    PrevResultList next;
    next.reserve(static_cast<std::size_t>(new_.count()));
    if (preserveUnchangedInstances_) {
        // Kept: a row that stands in the old rows and in the new ones leaves its history here and begins anew below.
        trace_detail("preserving previous results for unchanged instances");
        for (const ResultInstance* row = current_.first(); row; row = nextRow(row)) {
            trace_detail("preserving unchanged entry for instance %s", row->getInstanceName());
            if (PrevResultInstance* entry = getPrevResultInstance(row->getInstanceName())) next.push(entry);
        }
    }
    for (const ResultInstance* row = new_.first(); row; row = nextRow(row)) {
        if (!row->getInstanceName()) {
            trace_detail("WARNING: Skipping ResultInstance with name == NULL");
            continue;
        }
        trace_detail("Looping through Result Instances: current instance %s.", row->getInstanceName());
        PrevResultInstance* entry = getPrevResultInstance(row->getInstanceName());
        if (!entry) {
            trace_detail("This instance of %s is new.", row->getInstanceName());
            entry = new PrevResultInstance(row->getInstanceName());
        }
        next.push(entry);
        for (ResultMetric* cell = row->firstCell(); cell; cell = nextCell(cell)) {
            trace_detail("Looping through Result Metrics: current metric %s.", cell->getQMPVMetricName());
            if (!isRateOrDelta(cell->getRawMetricType())) continue;
            trace_detail("%s is a Rate or Delta", cell->getQMPVMetricName());
            computeRateDelta(getPrevResult(cell, entry, now), cell, now);
        }
    }
    clearPrevResultList();
    history_.swap(next);
    trace_state("This is the new prev value list");
    if (trace_is_on(ZTR1_STATE)) printPrevResults();
}

void ResultsManager::printPrevResults() {
    TRACE_FUNCTION();
    int number = 0;
    for (ListCursor rows = history_.cursor(); rows.hasMoreElements(); rows.setToNext()) {
        const auto* row = static_cast<PrevResultInstance*>(rows.getCurrentElement());
        trace_state("Prev Value Instance: #%d is %s", number++, row->getInstanceName());
        for (ListCursor cells = row->getPrevResultListCursor(); cells.hasMoreElements(); cells.setToNext()) {
            const auto* cell = static_cast<PrevResult*>(cells.getCurrentElement());
            const UTF8String* utf8 = cell->getValueUTF8String();
            trace_state("Prev Value for %s", cell->getName());
            trace_state("           U64: %llu", cell->getValueU64());
            trace_state("           I64: %lld", cell->getValue64());
            trace_state("           float: %f", cell->getValueDouble());
            trace_state("           string: %s", cell->getValueString() ? cell->getValueString() : "NULL");
            trace_state("           utf8: %s", utf8 && utf8->getUTF8Value() ? utf8->getUTF8Value() : "NULL");
            trace_state("           time: %ld", static_cast<long>(cell->getTime()));
        }
    }
}
