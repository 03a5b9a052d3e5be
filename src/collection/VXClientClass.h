// VXClientClass: the run-time object behind one attribute group: its metrics, its time to live, its statistics.
// ResultsManager is its only direct descendant; every provider derives from that.
#pragma once

#include <atomic>
#include <ctime>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "collection/rows/Metric.h"
#include "collection/rows/PerfObject.h"
#include "foundation/HashMap.h"
#include "foundation/List.h"

class AttributeGroupMeta;
class AttributeMeta;
class RowSink;
class UTF8String;
class VXClientClassList;

enum VX_CLIENT_CLASS_TYPE : int {
    VX_PROCESS = 1,
    VX_SNMP = 4,
    VX_SHELL = 5,
    VX_JOIN = 6,
    VX_CIM = 7,
    VX_CUSTOM = 8,
    VX_ROLLUP = 9,
    VX_LOG_MONITOR = 11,
    VX_CONFIG_DISCOVERY = 13,
    VX_EVENT_LOG = 14,
    VX_FILTER = 15,
    VX_SNMP_EVENT = 16,
    VX_PING = 17,
    VX_AVAILABILITY_OLD = 20,
    VX_AVAILABILITY = 21,
    VX_STATUS = 22,
};

// One consistent copy of a class's statistics. Start and last time are wall time, for showing.
struct PerfStats {
    timespec startTime{};
    timespec lastTime{};
    double lastDuration = 0.0;  // seconds
    int collectionCount = 0;
    double averageDuration = -1.0;  // seconds; -1.0 until the first collection
    int cacheHits = 0;
    int collections = 0;  // requests that found the data expired
    int skippedIntervals = 0;
};

class VXClientClass : public ListElement {
  public:
    VXClientClass(const char* productCode, const char* attributeGroup, VX_CLIENT_CLASS_TYPE type);
    // A copy for a subnode: shares names, type and (with `shareMetrics`) the metric chain of its source.
    VXClientClass(const VXClientClass* source, const char* subnodeKey, bool shareMetrics = true);
    ~VXClientClass() override;
    VXClientClass(const VXClientClass&) = delete;
    VXClientClass& operator=(const VXClientClass&) = delete;

    virtual const char* getSubnodeKey() const { return subnodeKey_; }  // null unless it is a subnode's copy
    // The name under which this copy's subnode is registered; empty unless it is a registered subnode's copy. Set once,
    // before anybody else knows the copy.
    const std::string& getManagedSystemName() const { return managedSystemName_; }
    void setManagedSystemName(const char* msn) { managedSystemName_ = msn; }
    virtual void collectDataIfNeeded(const char* requestId) = 0;
    virtual void collectData(const char* requestId) = 0;
    virtual void clearResultSet() = 0;
    virtual void printResults() = 0;
    virtual void start() {}
    // The list stays the caller's, until removeRequestInfo with the same identity has returned.
    virtual void setRequestInfo(const char* requestId, const List* info);
    virtual void removeRequestInfo(const char* requestId);
    // Makes a copy for a subnode; only the caller adds it to lists. Null: the class serves no subnodes.
    virtual VXClientClass* subnodeCopy(const char* subnodeKey, VXClientClassList* list) = 0;
    virtual void addMetricObject(Metric* metric);  // takes over
    // Writes all current rows into the request under the given origin. True unless something stopped it.
    virtual bool sendDataToHBX(RowSink* agent, const char* originNode) = 0;
    virtual bool isExpired();
    virtual void setZombie(bool on) { zombie_ = on; }
    virtual List* getQueryReferences() = 0;  // a new list of the classes it refers to, or null
    // Lets go of those classes and of all that it shares with them, for ever. Only of a retired copy that nobody uses.
    virtual void releaseQueryReferences() {}

    // What the status tables ask of every provider.
    virtual const char* getPerfObjectName() = 0;
    virtual int getPerfObjectStatus() = 0;
    virtual int getPerfErrorCode() = 0;

    const char* getProductCode() const { return productCode_; }
    const char* getAttributeGroup() const { return attributeGroup_; }
    VX_CLIENT_CLASS_TYPE getObjectType() const { return objectType_; }
    int getMetricCount() const { return metricCount_; }
    ListCursor getMetricCursor() const { return ListCursor(firstMetric_); }
    Metric* getMetricList() const { return firstMetric_; }
    bool doesMetricListContainRatesOrDeltas() const { return hasRatesOrDeltas_; }
    AttributeGroupMeta* getAttributeGroupMeta() const { return meta_; }
    void setAttributeGroupMeta(AttributeGroupMeta* meta) { meta_ = meta; }
    static AttributeGroupMeta* getAttrGroupMeta(RowSink* agent);
    bool isPureEventBased() const { return pureEventBased_; }
    void setPureEventBased(bool on);
    bool isThreadPoolEligible() const { return threadPoolEligible_; }
    void setThreadPoolEligible(bool on) { threadPoolEligible_ = on; }
    bool isOnQueue();
    void setOnQueue(bool on);
    bool isZombie() const { return zombie_; }
    int getTimeToLive() const { return timeToLive_; }  // seconds
    int getRefreshInterval() const { return refreshInterval_; }  // seconds, 0: none of its own
    void setRefreshInterval(int seconds) { refreshInterval_ = seconds; }
    long getNextRefresh() const { return nextRefresh_; }
    void setNextRefresh(long seconds) { nextRefresh_ = seconds; }
    void countCacheHit();
    void countCollection();
    void countSkippedInterval();

    void updateStartTime();
    void updateLastTime();
    // The end of the last collection as CYYMMDDHHMMSS000 and a terminator (17 bytes), local time.
    void getTimeStamp(char* out);
    PerfStats getPerfstats();

    // Requests and jobs that still use this object; it is not deleted while there are any. The on-queue flag cannot
    // say so: it has several holders and any of them clears it.
    void hold() { ++holders_; }
    void unhold() { --holders_; }
    bool isHeld() const { return holders_ > 0; }
    int getHolders() const { return holders_; }
    // Pool jobs that exist for this class. A request that ends clears the on-queue flag, but not these.
    bool hasJob() const { return jobs_ > 0; }
    void jobMade() { ++jobs_; }
    void jobGone() { --jobs_; }

    // How many collections have ended, over all classes, and a wait for one more than `seen`, at most so long. For
    // requests whose data is on its way.
    static unsigned long collectionsEnded();
    static void waitForCollectionAfter(unsigned long seen, int milliseconds);

    int sendRowToHBX(RowSink* agent, char* row, int size);
    // Write one value at an attribute's place in the row; a wrong type is traced and written all the same, an
    // attribute without a place (offset -1) takes nothing.
    void putString(char* row, const AttributeMeta* attribute, const char* text, bool convert);
    void putUTF8String(char* row, const AttributeMeta* attribute, const UTF8String* text);
    void putInt(char* row, const AttributeMeta* attribute, int value);
    void putInt64(char* row, const AttributeMeta* attribute, long long value);

    // Enumerations of the status table that the reference file declares, for all classes.
    static void addPerfObjEnum(const char* enumeration, const char* errorCode);
    static bool isAgentPerfObjEnum(const char* enumeration);

  private:
    void stampLastTime(const timespec& wall, const timespec& monotonic);
    void readTimeToLive();
    void readRefreshInterval();

    char* productCode_;
    char* attributeGroup_;
    VX_CLIENT_CLASS_TYPE objectType_;
    std::mutex classMutex_;
    std::atomic<bool> threadPoolEligible_{true};
    int timeToLive_ = 30;
    PerfStats stats_;
    timespec startMonotonic_{};
    timespec lastMonotonic_{};
    bool everCollected_ = false;
    std::atomic<bool> zombie_{false};
    AttributeGroupMeta* meta_ = nullptr;
    char* subnodeKey_ = nullptr;
    std::string managedSystemName_;
    Metric* firstMetric_ = nullptr;
    Metric* lastMetric_ = nullptr;
    int metricCount_ = 0;
    bool hasRatesOrDeltas_ = false;
    std::atomic<bool> pureEventBased_{false};
    std::atomic<int> refreshInterval_{0};
    std::atomic<long> nextRefresh_{0};
    bool onQueue_ = false;
    bool ownsMetrics_ = true;
    std::atomic<int> holders_{0};
    std::atomic<int> jobs_{0};
};

// Keeps a class against deletion while it lives; may be empty.
class ClassPin {
  public:
    ClassPin() = default;
    explicit ClassPin(VXClientClass* held) : held_(held) {
        if (held_) held_->hold();
    }
    ~ClassPin() { reset(); }
    ClassPin(ClassPin&& other) noexcept : held_(std::exchange(other.held_, nullptr)) {}
    ClassPin& operator=(ClassPin&& other) noexcept {
        if (this != &other) {
            reset();
            held_ = std::exchange(other.held_, nullptr);
        }
        return *this;
    }
    VXClientClass* get() const { return held_; }
    VXClientClass* operator->() const { return held_; }
    explicit operator bool() const { return held_ != nullptr; }
    void reset() {
        if (VXClientClass* held = std::exchange(held_, nullptr)) held->unhold();
    }

  private:
    VXClientClass* held_ = nullptr;
};
using ClassPins = std::vector<ClassPin>;

// All query classes, chained in order of registration (duplicates of a name stay), and the last one of each name. No
// lock: it changes during start or under the subnode lock. Its destruction takes the classes out and deletes none.
class VXClientClassList {
  public:
    VXClientClassList() = default;
    ~VXClientClassList();
    VXClientClassList(const VXClientClassList&) = delete;
    VXClientClassList& operator=(const VXClientClassList&) = delete;

    void addClientClass(VXClientClass* added);
    void removeClientClass(VXClientClass* removed);  // null is ignored
    ListCursor getClassListCursor() const { return ListCursor(first_); }
    VXClientClass* getClientClass(const char* name) const;

  private:
    VXClientClass* first_ = nullptr;
    VXClientClass* last_ = nullptr;
    HashMap byName_;
};

// The list of all query classes of the agent, made at start.
extern VXClientClassList* queryClassList;
VXClientClassList* getGlobalQueryClassList();
