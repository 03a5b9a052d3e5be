#include "providers/derived/join/Join2VXClientClasses.h"

#include <cstdio>
#include <cstring>

#include "foundation/Trace.h"

namespace {

std::atomic<int> joins{0};

// The row a side takes from an event: only an event based source's side does.
ResultInstance* eventRowOf(const JoinQuery& query, ResultInstance* eventRow) {
    return query.getClientClass()->isPureEventBased() ? eventRow : nullptr;
}

}  // namespace

Join2VXClientClasses::Join2VXClientClasses(const char* app, const char* ag, JoinQuery* query1, JoinQuery* query2,
                                           VXClientClassList* list, bool pure)
    : ResultsManager(app, ag, VX_JOIN),
      query1_(query1),
      query2_(query2),
      classList_(list),
      perfObjectName_(std::string("Joined Queries: ") + query1->getClassName() + " and " + query2->getClassName()) {
    setSkipIncompleteRows(false);
    setThreadPoolEligible(false);
    setPureEventBased(pure);
    ++joins;
}

Join2VXClientClasses::Join2VXClientClasses(Join2VXClientClasses* prototype, const char* subnodeKey)
    : ResultsManager(prototype, subnodeKey, prototype->metricsFromFile_),
      query1_(new JoinQuery(prototype->query1_.get())),
      query2_(new JoinQuery(prototype->query2_.get())),
      classList_(prototype->classList_),
      perfObjectName_(prototype->perfObjectName_),
      metricsFromFile_(prototype->metricsFromFile_) {
    setSkipIncompleteRows(false);
    setThreadPoolEligible(false);
    setPureEventBased(prototype->isPureEventBased());
    ++joins;
}

Join2VXClientClasses::~Join2VXClientClasses() {
    --joins;
    Join2VXClientClasses::releaseQueryReferences();
}

// What may refer to metrics shared with a source goes while the source is still pinned.
void Join2VXClientClasses::releaseQueryReferences() {
    clearResultSet();
    clearPureCache();
    deleteDerivedMetricStorage();
    std::lock_guard guard(clientClassLock_);
    for (JoinQuery* query : {query1_.get(), query2_.get()}) query->setClientClass(SourceClass());
    resolved_ = false;
}

int Join2VXClientClasses::count() { return joins; }

void Join2VXClientClasses::printResults() { traceResults(ZTR1_STATE, "Instances and Values for Join class"); }

VXClientClass* Join2VXClientClasses::subnodeCopy(const char* subnodeKey, VXClientClassList* /*list*/) {
    TRACE_FUNCTION();
    auto* copy = new Join2VXClientClasses(this, subnodeKey);
    trace_detail(" New subnode Join class: %s\n", copy->getAttributeGroup());
    return copy;
}

List* Join2VXClientClasses::getQueryReferences() {
    std::lock_guard guard(clientClassLock_);
    List* references = nullptr;
    for (const JoinQuery* query : {query1_.get(), query2_.get()}) {
        ResultsManager* source = query->getClientClass();
        if (!source || source == this) continue;  // a join on itself is no reason to keep it
        if (!references) references = new List;
        references->add(static_cast<VXClientClass*>(source));
    }
    return references;
}

void Join2VXClientClasses::addMetricObject(Metric* metric) {
    metricsFromFile_ = true;
    ResultsManager::addMetricObject(metric);
}

SourceClass Join2VXClientClasses::initQuery(const JoinQuery& query) const {
    TRACE_FUNCTION();
    VXClientClass* declared = classList_ ? classList_->getClientClass(query.getClassName()) : nullptr;
    const char* key = getSubnodeKey();
    SourceClass found = declared && key ? sourceInSubnode(declared, key, this) : SourceClass(declared);
    if (found) return found;
    if (key && declared) {
        trace_error("Prototype for subnode %s query class %s lookup failed, probably during subnode remove", key,
                    query.getClassName());
    } else if (key) {
        trace_error("Prototype for subnode %s query class %s lookup failed", key, query.getClassName());
    }
    trace_error("Query class %s lookup failed", query.getClassName());
    return found;
}

bool Join2VXClientClasses::resolve() {
    TRACE_FUNCTION();
    {
        std::lock_guard guard(clientClassLock_);
        if (resolved_) return true;
    }
    SourceClass first = initQuery(*query1_);
    SourceClass second = initQuery(*query2_);
    std::lock_guard guard(clientClassLock_);
    if (resolved_) return true;  // another thread was faster; what it published stands
    if (!first || !second) return false;
    query1_->setClientClass(std::move(first));
    query2_->setClientClass(std::move(second));
    if (metricsFromFile_) {
        updateJoinAttribute(query1_.get());
        updateJoinAttribute(query2_.get());
    }
    resolved_ = true;
    return true;
}

// The file names the join attribute as the join does; rows know it as its source does.
void Join2VXClientClasses::updateJoinAttribute(JoinQuery* query) {
    if (query->isSingleton() || !query->getJoinAttr()) return;
    for (ListIterator metrics = getOrderedMetricListIterator(); metrics.hasNext();) {
        const auto* metric = static_cast<const Metric*>(metrics.next());
        if (std::strcmp(metric->getQMPVMetricName(), query->getJoinAttr()) != 0) continue;
        if (metric->getMetricName()) query->setJoinAttr(metric->getMetricName());
        return;
    }
}

void Join2VXClientClasses::buildMetrics() {
    std::lock_guard guard(clientClassLock_);
    if (metricsFromFile_ || metricsBuilt_) return;
    metricsBuilt_ = true;
    for (const JoinQuery* query : {query1_.get(), query2_.get()}) {
        const ResultsManager* source = query->getClientClass();
        if (source->getObjectType() == VX_PROCESS && source->doResultsReturnInstName()) {
            addOrderedMetric(createPerfmonNameMetric(query->getClassName()), true);
        }
        updateMetricList(source);
    }
}

void Join2VXClientClasses::updateMetricList(const ResultsManager* source) {
    for (ListIterator metrics = source->getOrderedMetricListIterator(); metrics.hasNext();) {
        auto* metric = static_cast<Metric*>(metrics.next());
        if (metric->isDerived()) {
            addOrderedMetric(metric, false);  // shared: it stays the source's
            continue;
        }
        auto copied = std::make_unique<JoinQueryMetric>();
        copied->copy(metric);
        copied->init(source->getAttributeGroup());
        addOrderedMetric(copied.release(), true);
    }
}

PERF_OBJECT_ERROR_CODE Join2VXClientClasses::readSide(const char* requestId, ResultInstance* eventRow, JoinRows& side) {
    ResultsManager* source = side.query().getClientClass();
    if (!source->isPureEventBased()) source->collectDataIfNeeded(requestId);
    ResultInstance* row = eventRowOf(side.query(), eventRow);
    const ResultsGuard lock(row ? nullptr : source);
    return side.initQueryData(row);
}

PERF_OBJECT_ERROR_CODE Join2VXClientClasses::readSides(const char* requestId, ResultInstance* eventRow, Pass& pass) {
    const auto ofSecond = [](PERF_OBJECT_ERROR_CODE code) {
        if (code == QUERY_1_NOT_A_SINGLETON) return QUERY_2_NOT_A_SINGLETON;
        return code == NO_INSTANCES_RETURNED_IN_QUERY_1 ? NO_INSTANCES_RETURNED_IN_QUERY_2 : code;
    };
    PERF_OBJECT_ERROR_CODE code = readSide(requestId, eventRow, pass.first);
    if (code != OBJECT_ACTIVE) return code;
    code = ofSecond(readSide(requestId, eventRow, pass.second));
    if (code != OBJECT_ACTIVE) return code;
    // Neither lock was held while the other side was collected: rows may have come or gone since.
    ResultInstance* row1 = eventRowOf(*query1_, eventRow);
    ResultInstance* row2 = eventRowOf(*query2_, eventRow);
    pass.locks.emplace(row1 ? nullptr : query1_->getClientClass(), row2 ? nullptr : query2_->getClientClass());
    code = pass.first.initQueryData(row1);
    if (code == OBJECT_ACTIVE) code = ofSecond(pass.second.initQueryData(row2));
    if (code != OBJECT_ACTIVE) pass.locks.reset();
    return code;
}

bool Join2VXClientClasses::okToJoin(const char* requestId, ResultInstance* eventRow, Pass& pass) {
    TRACE_FUNCTION();
    if (status_ != PERF_OBJECT_ACTIVE) return false;
    const PERF_OBJECT_ERROR_CODE code = resolve() ? readSides(requestId, eventRow, pass) : CANNOT_FIND_JOINED_QUERY;
    errorCode_ = code;
    if (code == CANNOT_FIND_JOINED_QUERY || code == QUERY_1_NOT_A_SINGLETON || code == QUERY_2_NOT_A_SINGLETON) {
        trace_error("%s: %s; the join stays inactive", getAttributeGroup(), perfObjectErrorCodeName(code));
        status_ = PERF_OBJECT_INACTIVE;
    }
    if (code != OBJECT_ACTIVE) return false;
    buildMetrics();
    return true;
}

void Join2VXClientClasses::join(Pass& pass) {
    TRACE_FUNCTION();
    const bool matching = !query1_->isSingleton() && !query2_->isSingleton();
    // Kept: with both sides singletons the pair comes once for each row of the second.
    const int n = query1_->isSingleton() ? pass.second.getInstanceCount() : pass.first.getInstanceCount();
    RowCombiner combiner(getOrderedMetricListIterator(), *query1_, *query2_);
    for (int i = 0; i < n; ++i) {
        const ResultInstance* row1 = pass.first.getIndexedResultInstance(i);
        if (!row1) continue;
        const ResultInstance* row2 = matching ? pass.second.getMatchingResultInstance(pass.first, row1)
                                              : pass.second.getIndexedResultInstance(i);
        if (row2) addResultInstance(combiner.combineResultInstances(row1, row2).release());
    }
}

void Join2VXClientClasses::internalCollectData(const char* requestId) {
    TRACE_FUNCTION();
    Pass pass(*this);
    if (okToJoin(requestId, nullptr, pass)) join(pass);
}

void Join2VXClientClasses::processEventData(ResultInstance* eventRow) {
    TRACE_FUNCTION();
    char requestId[32];
    std::snprintf(requestId, sizeof requestId, "%p", static_cast<void*>(eventRow));
    Pass pass(*this);
    if (!okToJoin(requestId, eventRow, pass)) return;
    const ResultInstance* row1 = pass.first.getIndexedResultInstance(0);
    const ResultInstance* row2 = pass.second.getIndexedResultInstance(0);
    std::unique_ptr<ResultInstance> joined;
    if (row1 && row2) {
        joined = RowCombiner(getOrderedMetricListIterator(), *query1_, *query2_).combineResultInstances(row1, row2);
    }
    pass.locks.reset();  // before the host hears of the row
    if (!joined) {
        trace_error("Sending joined pure event failed");
        return;
    }
    const bool cacheOwnsIt = isPureEventBased();
    sendEventData(joined.get());
    if (cacheOwnsIt) static_cast<void>(joined.release());
}
