// Construction, metrics, and the two result sets.
#include "collection/ResultsManager.h"

#include <cctype>
#include <cstdlib>
#include <cstring>
#include <string>
#include <unordered_map>

#include "foundation/Trace.h"
#include "foundation/Utilities.h"
#include "platform/zsb.h"
#include "runtime/reference/AttributeGroupMeta.h"

ResultsManager::ResultsManager(const char* productCode, const char* attributeGroup, VX_CLIENT_CLASS_TYPE type)
    : VXClientClass(productCode, attributeGroup, type),
      metricsByName_(new HashMap),
      derivedMetrics_(new List),
      orderedMetrics_(new List),
      ownsMetricLists_(true) {
    constructorHelper();
}

ResultsManager::ResultsManager(const ResultsManager* source, const char* subnodeKey, bool shareMetrics)
    : VXClientClass(source, subnodeKey, shareMetrics),
      returnsInstanceName_(source->returnsInstanceName_),
      hasTimestampColumn_(source->hasTimestampColumn_),
      skipIncompleteRows_(source->skipIncompleteRows_),
      metricsByName_(shareMetrics ? source->metricsByName_ : new HashMap),
      derivedMetrics_(shareMetrics ? source->derivedMetrics_ : new List),
      orderedMetrics_(shareMetrics ? source->orderedMetrics_ : new List),
      ownsMetricLists_(!shareMetrics) {
    constructorHelper();
}

ResultsManager::~ResultsManager() {
    if (!ownsMetricLists_) return;
    delete derivedMetrics_;
    delete orderedMetrics_;
    delete metricsByName_;
}

void ResultsManager::constructorHelper() {
    TRACE_FUNCTION();
    if (const char* size = ZSV1_GetEnv("CDP_PURE_EVENT_CACHE_SIZE")) pureCacheCapacity_ = std::atoi(size);
    trace_detail("Setting the pure event cache size to %d", pureCacheCapacity_);
    std::string name = std::string("CDP_") + getAttributeGroup() + "_AGGREGATE_RESULTS";
    ZSV1_ToUpper(name.data());
    const char* value = ZSV1_GetEnv(name.c_str());
    aggregate_ = value && (*value == 'y' || *value == 'Y');
    if (aggregate_) {
        trace_detail("Attribute group %s will aggregate data", getAttributeGroup());
    } else {
        trace_detail("%s not set, attribute group %s will not aggregate data", name.c_str(), getAttributeGroup());
    }
}

void ResultsManager::classifyOperand(const char* text, Metric::Operand* operand) const {
    if (!text || !*text) return;
    if (std::isdigit(static_cast<unsigned char>(*text)) || *text == '-' || *text == '+') {
        operand->constant = static_cast<int>(factory_atoll(text));
    } else {
        operand->isAttribute = metricsByName_->contains(text);
    }
}

void ResultsManager::addMetricObject(Metric* metric) {
    TRACE_FUNCTION();
    if (metric->isDerived()) {
        addOrderedMetric(metric, true);
        if (!metric->getExpression()) {
            classifyOperand(metric->getArg1(), &metric->operand1);
            classifyOperand(metric->getArg2(), &metric->operand2);
        }
    } else {
        VXClientClass::addMetricObject(metric);
        addOrderedMetric(metric, false);
    }
    metricsByName_->put(metric->getQMPVMetricName() ? metric->getQMPVMetricName() : "", metric);
}

void ResultsManager::addOrderedMetric(Metric* metric, bool own) {
    if (own) ownMetrics_.emplace_back(metric);
    if (metric->isDerived()) derivedMetrics_->add(metric);
    orderedMetrics_->add(metric);
}

VXClientClass* ResultsManager::subnodeCopy(const char*, VXClientClassList*) {
    TRACE_FUNCTION();
    trace_error("This is an unimplemented feature for your QueryClass, your agent WILL not work properly");
    return nullptr;
}

void ResultsManager::addResultInstance(ResultInstance* row, bool lock) {
    if (!row) return;
    std::unique_lock guard(newResultsMutex_, std::defer_lock);
    if (lock) guard.lock();
    new_.append(row);
}

void ResultsManager::addHeadResultInstance(ResultInstance* row) {
    if (!row) return;
    std::lock_guard guard(newResultsMutex_);
    new_.prepend(row);
}

void ResultsManager::addResultInstanceDirectly(ResultInstance* row) {
    if (!row) return;
    std::lock_guard guard(resultsMutex_);
    current_.append(row);
}

void ResultsManager::removeResultInstance(ResultInstance* row) {
    if (!row) return;
    std::lock_guard guard(resultsMutex_);
    current_.unlink(row);
    delete row;
}

void ResultsManager::removeNewResultInstance(ResultInstance* row, bool lock) {
    if (!row) return;
    std::unique_lock guard(newResultsMutex_, std::defer_lock);
    if (lock) guard.lock();
    new_.unlink(row);
    delete row;
}

void ResultsManager::clearNewResultSet(bool lock) {
    std::unique_lock guard(newResultsMutex_, std::defer_lock);
    if (lock) guard.lock();
    new_.clear();
}

void ResultsManager::clearResultSet() { current_.clear(); }

void ResultsManager::acquireResultsLock() {
    TRACE_FUNCTION();
    trace_detail("Acquiring the Results lock");
    resultsMutex_.lock();
}

void ResultsManager::releaseResultsLock() {
    TRACE_FUNCTION();
    trace_detail("Releasing the Results lock");
    resultsMutex_.unlock();
}

void ResultsManager::updateResults() {
    TRACE_FUNCTION();
    std::lock_guard results(resultsMutex_);
    std::lock_guard newResults(newResultsMutex_);
    if (aggregate_) {
        trace_detail("Aggregate is on, updating result instance list.");
        if (lastRequestWasHistorical_) {
            trace_detail("Previous request was historical, purging dead results");
            purgeDeadResults();
        }
        mergeNewRows();
    } else {
        trace_detail("Aggregate is off, replacing old results with new ones");
        clearResultSet();
        current_.takeAll(new_);
    }
    lastRequestWasHistorical_ = false;
}

void ResultsManager::purgeDeadResults() {
    purgeOldInstancesFromExpressionData();
    clearResultSet();
}

void ResultsManager::mergeNewRows() {
    TRACE_FUNCTION();
    std::unordered_map<std::string_view, ResultInstance*> byName;  // the first row of each name
    byName.reserve(static_cast<std::size_t>(current_.count() + new_.count()));
    for (ResultInstance* row = current_.first(); row; row = nextRow(row)) {
        if (!row->getInstanceName()) {
            trace_error("old result instance with null name!?");
            continue;
        }
        byName.emplace(row->getInstanceName(), row);
    }
    while (ResultInstance* row = new_.first()) {
        new_.unlink(row);
        const auto found = byName.find(row->getInstanceName());
        if (found == byName.end()) {
            current_.append(row);
            byName.emplace(row->getInstanceName(), row);
            continue;
        }
        ResultInstance* old = found->second;
        current_.replace(old, row);
        byName.erase(found);
        byName.emplace(row->getInstanceName(), row);
        delete old;
    }
}

void ResultsManager::traceResults(unsigned traceClass, const char* title) {
    TRACE_FUNCTION();
    if (!trace_is_on(traceClass)) return;
    TRACE_PRINT(traceClass, "%s", title);
    std::lock_guard guard(resultsMutex_);
    int number = 0;
    for (const ResultInstance* row = current_.first(); row; row = nextRow(row)) {
        TRACE_PRINT(traceClass, "Instance #%d is %s", number++, row->getInstanceName());
        for (const ResultMetric* cell = row->firstCell(); cell; cell = nextCell(cell)) {
            const char* name = cell->getQMPVMetricName() ? cell->getQMPVMetricName() : "";
            if (cell->isNumberDouble()) {
                TRACE_PRINT(traceClass, "    %s = %g", name, cell->getMetricValueDouble());
                continue;
            }
            UTF8String* text = cell->toUTF8String();
            TRACE_PRINT(traceClass, "    %s = %s", name, text && text->getUTF8Value() ? text->getUTF8Value() : "");
            if (!cell->isUTF8String()) delete text;
        }
    }
}
