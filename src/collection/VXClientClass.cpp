#include "collection/VXClientClass.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <string>

#include "collection/JoinedEventRouter.h"
#include "collection/RowSink.h"
#include "collection/SubnodeDirectory.h"
#include "foundation/Clock.h"
#include "foundation/OwnedMap.h"
#include "foundation/Trace.h"
#include "foundation/Utilities.h"
#include "platform/zsb.h"
#include "runtime/reference/AttributeGroupMeta.h"

VXClientClassList* queryClassList = nullptr;

VXClientClassList* getGlobalQueryClassList() { return queryClassList; }

namespace {

constexpr int kDefaultTimeToLive = 30;  // seconds, when nothing is set
constexpr int kShortestTimeToLive = 1;  // the floor of what is set

HashMap* agentDefPerfEnumHash = nullptr;  // written while the file is read

// Ends of collections, for those who wait for one. Never destroyed: request threads may outlive main.
struct CollectionEnds {
    std::mutex mutex;
    std::condition_variable ended;
    unsigned long count = 0;
    int waiting = 0;
};
CollectionEnds& collectionEnds = *new CollectionEnds;

std::atomic<SubnodeDirectory*> directory{nullptr};
std::atomic<JoinedEventRouter*> router{nullptr};

}  // namespace

SubnodeDirectory* subnodeDirectory() { return directory; }
void registerSubnodeDirectory(SubnodeDirectory* registered) { directory = registered; }
JoinedEventRouter* joinedEventRouter() { return router; }
void registerJoinedEventRouter(JoinedEventRouter* registered) { router = registered; }

void AttributeGroupMeta::setQuery(VXClientClass* query) {
    query_ = query;
    // Sets, never clears: some classes make themselves pure.
    if (query && pure_) query->setPureEventBased(true);
}

VXClientClass::VXClientClass(const char* productCode, const char* attributeGroup, VX_CLIENT_CLASS_TYPE type)
    : productCode_(strdup(productCode ? productCode : "")),
      attributeGroup_(strdup(attributeGroup ? attributeGroup : "")),
      objectType_(type) {
    readTimeToLive();
    readRefreshInterval();
}

VXClientClass::VXClientClass(const VXClientClass* source, const char* subnodeKey, bool shareMetrics)
    : productCode_(source->productCode_),
      attributeGroup_(source->attributeGroup_),
      objectType_(source->objectType_),
      threadPoolEligible_(source->threadPoolEligible_.load()),
      timeToLive_(source->timeToLive_),
      zombie_(source->zombie_.load()),
      meta_(source->meta_),
      subnodeKey_(strdup(subnodeKey ? subnodeKey : "")),
      hasRatesOrDeltas_(source->hasRatesOrDeltas_),
      pureEventBased_(source->pureEventBased_.load()),
      refreshInterval_(source->refreshInterval_.load()),
      ownsMetrics_(!shareMetrics) {
    TRACE_FUNCTION();
    if (source->zombie_) {
        trace_error("WARNING: Copying zombie object: %s/%s/%s", productCode_, attributeGroup_, subnodeKey_);
    }
    if (!shareMetrics) return;
    firstMetric_ = source->firstMetric_;
    lastMetric_ = source->lastMetric_;
    metricCount_ = source->metricCount_;
}

VXClientClass::~VXClientClass() {
    if (ownsMetrics_) {
        for (Metric* metric = firstMetric_; metric;) {
            auto* next = static_cast<Metric*>(metric->getNextElement());
            delete metric;
            metric = next;
        }
    }
    if (subnodeKey_) {  // the shared parts stay with the class it was copied from
        std::free(subnodeKey_);
        return;
    }
    std::free(productCode_);
    std::free(attributeGroup_);
    if (agentDefPerfEnumHash) {
        freeKeysAndValues(*agentDefPerfEnumHash);
        delete agentDefPerfEnumHash;
        agentDefPerfEnumHash = nullptr;
    }
}

void VXClientClass::readRefreshInterval() {
    TRACE_FUNCTION();
    std::string name = std::string("CDP_") + attributeGroup_ + "_REFRESH_INTERVAL";
    ZSV1_ToUpper(name.data());
    if (const char* value = ZSV1_GetEnv(name.c_str())) {
        refreshInterval_ = std::max(std::atoi(value), 0);
        trace_detail("Attribute group %s using refresh interval %d", attributeGroup_, refreshInterval_.load());
    } else {
        trace_detail("%s not set, attribute group %s will use default refresh interval, if one is set", name.c_str(),
                     attributeGroup_);
    }
}

void VXClientClass::readTimeToLive() {
    TRACE_FUNCTION();
    const char* value = ZSV1_GetEnv("CDP_DP_CACHE_TTL");
    if (!value) {
        timeToLive_ = kDefaultTimeToLive;
        trace_detail("VXClientClass timeout interval for group %s is the default 30 seconds", attributeGroup_);
        return;
    }
    timeToLive_ = std::atoi(value);
    if (timeToLive_ <= kShortestTimeToLive) {
        timeToLive_ = kShortestTimeToLive;
        trace_detail("VXClientClass timeout interval for group %s is the default %d seconds", attributeGroup_, timeToLive_);
    } else {
        trace_detail("VXClientClass timeout interval for group %s is %d seconds", attributeGroup_, timeToLive_);
    }
}

void VXClientClass::setRequestInfo(const char*, const List*) {}

void VXClientClass::removeRequestInfo(const char*) {}

void VXClientClass::addMetricObject(Metric* metric) {
    metric->setPrevElement(lastMetric_);
    metric->setNextElement(nullptr);
    if (lastMetric_) {
        lastMetric_->setNextElement(metric);
    } else {
        firstMetric_ = metric;
    }
    lastMetric_ = metric;
    ++metricCount_;
    if (isRateOrDelta(metric->getRawMetricType())) hasRatesOrDeltas_ = true;
}

AttributeGroupMeta* VXClientClass::getAttrGroupMeta(RowSink* agent) { return agent->attributeGroupMeta(); }

void VXClientClass::setPureEventBased(bool on) {
    TRACE_FUNCTION();
    pureEventBased_ = on;
    if (on) trace_detail("Attribute group is pure event based.");
}

bool VXClientClass::isOnQueue() {
    std::lock_guard guard(classMutex_);
    return onQueue_;
}

void VXClientClass::setOnQueue(bool on) {
    std::lock_guard guard(classMutex_);
    onQueue_ = on;
}

void VXClientClass::countCacheHit() {
    std::lock_guard guard(classMutex_);
    ++stats_.cacheHits;
}

void VXClientClass::countCollection() {
    std::lock_guard guard(classMutex_);
    ++stats_.collections;
}

void VXClientClass::countSkippedInterval() {
    std::lock_guard guard(classMutex_);
    ++stats_.skippedIntervals;
}

bool VXClientClass::isExpired() {
    const timespec now = Clock::monotonic();
    std::lock_guard guard(classMutex_);
    return !everCollected_ || Clock::wholeSecondsBetween(lastMonotonic_, now) >= timeToLive_;
}

void VXClientClass::updateStartTime() {
    const timespec wall = Clock::wall();
    const timespec monotonic = Clock::monotonic();
    std::lock_guard guard(classMutex_);
    stats_.startTime = wall;
    startMonotonic_ = monotonic;
}

void VXClientClass::updateLastTime() {
    const timespec wall = Clock::wall();
    const timespec monotonic = Clock::monotonic();
    stampLastTime(wall, monotonic);
    std::lock_guard guard(collectionEnds.mutex);
    ++collectionEnds.count;
    if (collectionEnds.waiting > 0) collectionEnds.ended.notify_all();
}

unsigned long VXClientClass::collectionsEnded() {
    std::lock_guard guard(collectionEnds.mutex);
    return collectionEnds.count;
}

void VXClientClass::waitForCollectionAfter(unsigned long seen, int milliseconds) {
    std::unique_lock lock(collectionEnds.mutex);
    ++collectionEnds.waiting;
    collectionEnds.ended.wait_for(lock, std::chrono::milliseconds(milliseconds),
                                  [seen] { return collectionEnds.count != seen; });
    --collectionEnds.waiting;
}

void VXClientClass::stampLastTime(const timespec& wall, const timespec& monotonic) {
    std::lock_guard guard(classMutex_);
    stats_.lastTime = wall;
    lastMonotonic_ = monotonic;
    everCollected_ = true;
    stats_.lastDuration = Clock::seconds(monotonic) - Clock::seconds(startMonotonic_);
    stats_.averageDuration =
        Utilities::calculateAverage(stats_.averageDuration, stats_.lastDuration, stats_.collectionCount);
    ++stats_.collectionCount;
}

void VXClientClass::getTimeStamp(char* out) {
    long seconds = 0;
    {
        std::lock_guard guard(classMutex_);
        seconds = stats_.lastTime.tv_sec;
    }
    Clock::formatTimeStamp(seconds, out);
}

PerfStats VXClientClass::getPerfstats() {
    std::lock_guard guard(classMutex_);
    return stats_;
}

int VXClientClass::sendRowToHBX(RowSink* agent, char* row, int size) { return agent->AddData(row, size); }

void VXClientClass::addPerfObjEnum(const char* enumeration, const char* errorCode) {
    TRACE_FUNCTION();
    if (!enumeration || !errorCode) return;
    trace_detail("Adding perf obj enum - enum=%s, error_code=%s.", enumeration, errorCode);
    if (!agentDefPerfEnumHash) agentDefPerfEnumHash = new HashMap;
    const char* oldKey = nullptr;
    std::free(agentDefPerfEnumHash->remove(enumeration, &oldKey));
    std::free(const_cast<char*>(oldKey));
    agentDefPerfEnumHash->put(strdup(enumeration), strdup(errorCode));
}

bool VXClientClass::isAgentPerfObjEnum(const char* enumeration) {
    TRACE_FUNCTION();
    trace_detail("looking for perf obj enum - enum=%s.", enumeration);
    if (!agentDefPerfEnumHash) {
        trace_detail("no perf obj enum hashtable. Can't look up  %s.", enumeration);
        return false;
    }
    return agentDefPerfEnumHash->contains(enumeration);
}

VXClientClassList::~VXClientClassList() {
    while (first_) removeClientClass(first_);
}

void VXClientClassList::addClientClass(VXClientClass* added) {
    if (!added) return;
    added->setPrevElement(last_);
    added->setNextElement(nullptr);
    if (last_) {
        last_->setNextElement(added);
    } else {
        first_ = added;
    }
    last_ = added;
    byName_.remove(added->getAttributeGroup(), nullptr);  // so that the key is the later class's own text
    byName_.put(added->getAttributeGroup(), added);
}

void VXClientClassList::removeClientClass(VXClientClass* removed) {
    if (!removed) return;
    auto* previous = static_cast<VXClientClass*>(removed->getPrevElement());
    auto* next = static_cast<VXClientClass*>(removed->getNextElement());
    if (previous) previous->setNextElement(next);
    if (next) next->setPrevElement(previous);
    if (first_ == removed) first_ = next;
    if (last_ == removed) last_ = previous;
    removed->setPrevElement(nullptr);
    removed->setNextElement(nullptr);
    byName_.remove(removed->getAttributeGroup(), nullptr);
}

VXClientClass* VXClientClassList::getClientClass(const char* name) const {
    return static_cast<VXClientClass*>(byName_.get(name));
}
