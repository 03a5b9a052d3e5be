// ResultsManager: the base of every query class that produces rows. It owns the two result sets, decides when a
// collection really happens, turns rows into row buffers, delivers events and keeps the cache of pure events. A
// provider writes internalCollectData, which fills the new result set; everything around it is here.
//
// Locks, in this order: the collecting flag (never waited for: a second collector gives up), the results mutex, the new
// results mutex. The pure cache lock, the derived storage's lock and the class mutex are leaves. No results lock is held
// while collecting, resolving a class or calling the framework, but for the send, which holds the results mutex for all
// its rows. Who needs two classes' results mutexes takes them in the order of the objects' addresses.
#pragma once

#include <memory>
#include <mutex>
#include <string_view>
#include <vector>

#include "collection/VXClientClass.h"
#include "collection/expression/DerivedStorage.h"
#include "collection/rates/PrevResult.h"
#include "collection/rows/ResultMetric.h"

// A doubly linked chain of rows that it owns.
class ResultChain {
  public:
    ResultChain() = default;
    ~ResultChain() { clear(); }
    ResultChain(const ResultChain&) = delete;
    ResultChain& operator=(const ResultChain&) = delete;

    void append(ResultInstance* row);
    void prepend(ResultInstance* row);
    void unlink(ResultInstance* row);  // does not delete
    void replace(ResultInstance* old, ResultInstance* row);  // unlinks the old row, does not delete it
    void clear();                      // deletes all rows
    void takeAll(ResultChain& other);  // after clear()
    ResultInstance* first() const { return first_; }
    ResultInstance* last() const { return last_; }
    int count() const { return count_; }
    bool empty() const { return !first_; }

  private:
    ResultInstance* first_ = nullptr;
    ResultInstance* last_ = nullptr;
    int count_ = 0;
};

inline ResultInstance* nextRow(const ResultInstance* row) { return static_cast<ResultInstance*>(row->getNextElement()); }
inline ResultMetric* nextCell(const ResultMetric* cell) { return static_cast<ResultMetric*>(cell->getNextElement()); }

class ResultsManager : public VXClientClass {
  public:
    ResultsManager(const char* productCode, const char* attributeGroup, VX_CLIENT_CLASS_TYPE type);
    ResultsManager(const ResultsManager* source, const char* subnodeKey, bool shareMetrics = true);
    ~ResultsManager() override;

    void collectDataIfNeeded(const char* requestId) override;
    void collectData(const char* requestId) override;
    // A collection with nothing left over of the passes before, also where the group aggregates. False if another
    // collection is running: then nothing was done.
    bool collectAnew(const char* requestId);
    // Deletes all current rows; takes no lock itself.
    void clearResultSet() override;
    // The base serves no subnodes: traced, null.
    VXClientClass* subnodeCopy(const char* subnodeKey, VXClientClassList* list) override;
    void addMetricObject(Metric* metric) override;
    bool sendDataToHBX(RowSink* agent, const char* originNode) override;
    List* getQueryReferences() override { return nullptr; }
    // Publishes the new rows: replaces the current ones, or merges by instance name where the group aggregates.
    virtual void updateResults();
    virtual void sendEventDataToHBX(ResultInstance* row);
    // The provider's collection: adds rows with addResultInstance.
    virtual void internalCollectData(const char* requestId) = 0;

    // Rows handed in are taken over. Without a word on locks an operation takes the lock of its chain.
    void addResultInstance(ResultInstance* row) { addResultInstance(row, true); }
    void addResultInstance(ResultInstance* row, bool lock);
    void addHeadResultInstance(ResultInstance* row);
    void addResultInstanceDirectly(ResultInstance* row);  // to the current results, with no collection
    void removeResultInstance(ResultInstance* row);       // of the current results; deletes it
    void removeNewResultInstance(ResultInstance* row, bool lock);
    void clearNewResultSet() { clearNewResultSet(false); }  // no lock
    void clearNewResultSet(bool lock);
    ListCursor getResultInstanceListCursor() const { return ListCursor(current_.first()); }
    ListCursor getNewResultInstanceListCursor() const { return ListCursor(new_.first()); }
    int getResultInstanceCount() const { return current_.count(); }
    bool doResultsReturnInstName() const { return returnsInstanceName_; }
    bool isAggregatingData() const { return aggregate_; }
    void setLastRequestWasHistorical() { lastRequestWasHistorical_ = true; }
    bool isCollecting() const { return collecting_; }
    void acquireResultsLock();
    void releaseResultsLock();
    // Delivers one event row at once. A pure event based class owns the row from then on (its cache keeps it, or it is
    // deleted where the cache has no room at all); otherwise it stays the caller's.
    void sendEventData(ResultInstance* row);
    // Tells the join classes that use this class as a source of the row, which stays the caller's.
    void sendJoinedEventData(ResultInstance* row);
    ListIterator getOrderedMetricListIterator() const { return orderedMetrics_->iterator(); }
    void addToPureCache(ResultInstance* row);
    void clearPureCache();

    Metric* findMetric(const char* attributeName) const { return static_cast<Metric*>(metricsByName_->get(attributeName)); }
    bool isSendingEnabled() const { return sendingEnabled_; }
    void setSendingEnabled(bool on) { sendingEnabled_ = on; }
    bool hasDerivedMetrics() const { return derivedMetrics_->getCount() > 0; }
    int getOrderedMetricCount() const { return orderedMetrics_->getCount(); }

    // Rewrites the rate and delta cells of the new rows against the collection before, whose values it then replaces.
    // Only by the thread that collects.
    void processRatesDeltas();
    // Unlinks and returns the history of a row, the caller's then; null if there is none.
    PrevResultInstance* getPrevResultInstance(const char* name) { return history_.take(name); }
    // The history of one cell, made and seeded from the cell if it is new. Never null. `now` in monotonic seconds.
    static PrevResult* getPrevResult(ResultMetric* metric, PrevResultInstance* instance, time_t now);
    // Computes one cell: the history then holds what the cell held, and the cell the result.
    static void computeRateDelta(PrevResult* previous, ResultMetric* metric, time_t now);
    void clearPrevResultList() { history_.clear(); }
    void printPrevResults();

    // Adds the derived cells of all new rows, or of one row. Two threads may do so at once, on rows of their own.
    void calculateDerived();
    void internalCalculateDerived(ResultInstance* row);
    // Frees what the stateful functions have kept of all rows.
    void deleteDerivedMetricStorage() { derivedStorage_.clear(); }
    void purgeOldInstancesFromExpressionData() { deleteDerivedMetricStorage(); }

  protected:
    // Puts a metric into the order of the row (a derived one also among the derived ones) but not into the collected
    // chain and not under its name. With `own` it is deleted with this class, else it must outlive it.
    void addOrderedMetric(Metric* metric, bool own);
    // Rows that a collection does not repeat keep their history.
    void setPreserveUnchangedInstances(bool on) { preserveUnchangedInstances_ = on; }
    void setReturnsInstanceName(bool on) { returnsInstanceName_ = on; }
    void setHasTimestampColumn(bool on) { hasTimestampColumn_ = on; }
    // Rows with fewer or more cells than expected are neither sent nor given derived cells.
    void setSkipIncompleteRows(bool on) { skipIncompleteRows_ = on; }
    // Traces a title and all current rows with their values under a class of tracing.
    void traceResults(unsigned traceClass, const char* title);

  private:
    enum class HintUse { Apply, Ignore };

    void constructorHelper();
    bool collect(const char* requestId, bool clearFirst);
    void collectPureEvents();
    void mergeNewRows();
    void purgeDeadResults();
    bool rowIsComplete(const ResultInstance* row) const;
    void writeRow(char* row, const AttributeGroupMeta* meta, const ResultInstance* instance, const char* originNode,
                  const char* timestamp, HintUse hints);
    void writeCell(char* row, const AttributeMeta* attribute, const Metric* metric, const ResultMetric* cell, HintUse hints);
    void classifyOperand(const char* text, Metric::Operand* operand) const;

    ResultChain current_;
    ResultChain new_;
    std::atomic<bool> sendingEnabled_{true};
    bool returnsInstanceName_ = false;
    bool hasTimestampColumn_ = true;
    bool skipIncompleteRows_ = true;
    bool preserveUnchangedInstances_ = false;
    HashMap* metricsByName_;
    List* derivedMetrics_;
    List* orderedMetrics_;
    bool ownsMetricLists_;
    std::vector<std::unique_ptr<Metric>> ownMetrics_;  // those outside the collected chain
    PrevResultList history_;
    DerivedStorage derivedStorage_;
    ResultChain pureCache_;
    int pureCacheCapacity_ = 100;
    std::mutex pureCacheLock_;
    std::mutex pureCollection_;  // one pure collection at a time, so that two requests never double the rows
    std::mutex resultsMutex_;
    std::mutex newResultsMutex_;
    std::atomic<bool> collecting_{false};
    bool aggregate_ = false;
    std::atomic<bool> lastRequestWasHistorical_{false};
};

// A row value as the framework stores it: value * 10^scale, rounded half away from zero; NaN is 0, what lies outside 64
// bits saturates.
long long scaledToInteger(double value, int scale);
