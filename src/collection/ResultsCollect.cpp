// The gate to the cache, and a collection from start to the publishing of its rows.
#include "collection/ResultsManager.h"
#include "foundation/Trace.h"
#include "foundation/UTF8String.h"

void ResultsManager::collectDataIfNeeded(const char* requestId) {
    TRACE_FUNCTION();
    if (!isExpired()) {
        trace_detail("Cached data for %s is still current, using that", getAttributeGroup());
        countCacheHit();
        return;
    }
    trace_detail("Data for %s is expired", getAttributeGroup());
    trace_detail("Calling collectData on %s\n", getAttributeGroup());
    countCollection();
    collectData(requestId);
    if (trace_is_on(ZTR1_STATE)) printResults();
}

bool ResultsManager::isCollecting() {
    if (!collectionMutex_.try_lock()) return true;
    collectionMutex_.unlock();
    return false;
}

void ResultsManager::collectData(const char* requestId) {
    TRACE_FUNCTION();
    if (isPureEventBased()) {
        collectPureEvents();
        return;
    }
    std::unique_lock collection(collectionMutex_, std::try_to_lock);
    if (!collection.owns_lock()) {
        trace_detail("Data collection already in progress for %s, returning", getAttributeGroup());
        return;
    }
    updateStartTime();
    internalCollectData(requestId);
    computeNewRows();
    // The time is stamped after the rows are published, and the collection ends after that: nobody sees "current" with
    // old rows, and no second collection mixes its rows with these.
    updateResults();
    updateLastTime();
}

void ResultsManager::collectPureEvents() {
    TRACE_FUNCTION();
    std::lock_guard one(pureCollection_);
    {
        std::lock_guard cache(pureCacheLock_);
        for (const ResultInstance* row = pureCache_.first(); row; row = nextRow(row)) addResultInstance(row->getDeepCopy());
    }
    updateResults();
}

void ResultsManager::computeNewRows() {
    TRACE_FUNCTION();
    if (doesMetricListContainRatesOrDeltas()) {
        trace_detail("%s: rates and deltas are shown as collected", getAttributeGroup());
    }
    if (hasDerivedMetrics()) trace_detail("%s: derived attributes get no value", getAttributeGroup());
}

void ResultsManager::computeEventRow(ResultInstance*) {
    TRACE_FUNCTION();
    trace_detail("%s: derived attributes get no value", getAttributeGroup());
}
