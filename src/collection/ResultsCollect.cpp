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

namespace {

// Sets the flag for as long as it lives, if it was not set. A flag and not a mutex: a class that is among its own
// sources asks while it collects.
class Collecting {
  public:
    explicit Collecting(std::atomic<bool>& flag) : flag_(flag), ours_(!flag.exchange(true)) {}
    ~Collecting() {
        if (ours_) flag_ = false;
    }
    Collecting(const Collecting&) = delete;
    Collecting& operator=(const Collecting&) = delete;
    bool isOurs() const { return ours_; }

  private:
    std::atomic<bool>& flag_;
    bool ours_;
};

}  // namespace

void ResultsManager::collectData(const char* requestId) {
    TRACE_FUNCTION();
    collect(requestId, false);
}

bool ResultsManager::collectAnew(const char* requestId) {
    TRACE_FUNCTION();
    return collect(requestId, true);
}

bool ResultsManager::collect(const char* requestId, bool clearFirst) {
    TRACE_FUNCTION();
    if (isPureEventBased()) {
        collectPureEvents();
        return true;
    }
    Collecting collection(collecting_);
    if (!collection.isOurs()) {
        trace_detail("Data collection already in progress for %s, returning", getAttributeGroup());
        return false;
    }
    // Only an aggregating class keeps rows over an update; any other one replaces them when it publishes, and is not
    // emptied under a request that is sending them.
    if (clearFirst && aggregate_) {
        std::lock_guard results(resultsMutex_);
        clearResultSet();
    }
    updateStartTime();
    internalCollectData(requestId);
    if (doesMetricListContainRatesOrDeltas()) processRatesDeltas();
    calculateDerived();
    // The time is stamped after the rows are published, and the collection ends after that: nobody sees "current" with
    // old rows, and no second collection mixes its rows with these.
    updateResults();
    updateLastTime();
    return true;
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
