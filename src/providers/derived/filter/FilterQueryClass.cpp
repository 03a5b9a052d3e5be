#include "providers/derived/filter/FilterQueryClass.h"

#include <cstring>

#include "collection/SubnodeDirectory.h"
#include "foundation/StringTokenizer.h"
#include "foundation/Trace.h"
#include "platform/zsb.h"
#include "runtime/reference/AttributeGroupMeta.h"

namespace {

bool same(const char* a, const char* b) { return a && b && std::strcmp(a, b) == 0; }

const char* shown(const char* text) { return text ? text : ""; }

}  // namespace

FilterQueryClass::FilterQueryClass(const char* app, const char* ag, const char* rawGroupNames, const char* filter)
    : ResultsManager(app, ag, VX_FILTER),
      rawGroupNames_(shown(rawGroupNames)),
      filterText_(shown(filter)),
      filterExpression_(filterText_.c_str()),
      attributeGroupName_(shown(ag)) {
    TRACE_FUNCTION();
    trace_detail("Creating filter query class for group %s with filter %s", rawGroupNames_.c_str(), filterText_.c_str());
    readSettings();
}

FilterQueryClass::FilterQueryClass(FilterQueryClass* prototype, const char* subnodeKey)
    : ResultsManager(prototype, subnodeKey, true),
      rawGroupNames_(prototype->rawGroupNames_),
      filterText_(prototype->filterText_),
      filterExpression_(filterText_.c_str()),
      attributeGroupName_(prototype->attributeGroupName_) {
    TRACE_FUNCTION();
    trace_detail("Creating subnode filter query class for groups %s with filter %s", rawGroupNames_.c_str(), filterText_.c_str());
    readSettings();
}

void FilterQueryClass::readSettings() {
    if (!filterExpression_.isValid()) {
        status_ = PERF_OBJECT_INACTIVE;
        errorCode_ = FILTER_SYNTAX_ERROR;
    }
    const char* usePool = ZSV1_GetEnv("CDP_FILTER_CLASS_USE_THREAD_POOL");
    setThreadPoolEligible(usePool && (*usePool == 'y' || *usePool == 'Y'));
}

void FilterQueryClass::printResults() { traceResults(ZTR1_STATE, "Instances and Values for Filter class"); }

VXClientClass* FilterQueryClass::subnodeCopy(const char* subnodeKey, VXClientClassList* /*list*/) {
    return new FilterQueryClass(this, subnodeKey);
}

List* FilterQueryClass::getQueryReferences() {
    std::lock_guard guard(rawClassesLock_);
    if (!rawClasses_) return nullptr;
    auto* references = new List;
    for (const SourceClass& source : *rawClasses_) references->add(static_cast<VXClientClass*>(source.get()));
    return references;
}

void FilterQueryClass::releaseQueryReferences() {
    std::lock_guard guard(rawClassesLock_);
    rawClasses_.reset();
}

SourceClass FilterQueryClass::cloneOfThisSubnode(const char* name) const {
    TRACE_FUNCTION();
    const char* type = getAttributeGroupMeta() ? getAttributeGroupMeta()->subnodeType() : nullptr;
    if (!type) return SourceClass();
    const AttributeGroupMeta* named = findAttributeGroupMeta(name);
    if (ClassPin clone = cloneInSubnodeOf(this, named)) {
        trace_detail("Found query for attribute group %s with subnode %s/%s", name, type, getSubnodeKey());
        return SourceClass(std::move(clone), this);
    }
    // All clones of a group have its type: one look tells, however many there are.
    if (named && !same(named->subnodeType(), type)) return SourceClass();
    SubnodeDirectory* directory = subnodeDirectory();
    ClassPins clones = directory ? directory->getAllSubnodeQueryClasses(name) : ClassPins();
    if (clones.empty()) trace_detail("No subnode queries for %s", name);
    for (ClassPin& clone : clones) {
        const AttributeGroupMeta* meta = clone->getAttributeGroupMeta();
        const char* itsType = meta ? meta->subnodeType() : nullptr;
        if (same(itsType, type) && same(clone->getSubnodeKey(), getSubnodeKey())) {
            trace_detail("Found query for attribute group %s with subnode %s/%s", name, type, getSubnodeKey());
            return SourceClass(std::move(clone), this);
        }
        trace_detail("Ignoring query for attribute group %s with subnode %s/%s", name, shown(itsType), shown(clone->getSubnodeKey()));
    }
    return SourceClass();
}

SourceClass FilterQueryClass::getRawAttributeGroup(const char* name) const {
    TRACE_FUNCTION();
    trace_detail("Searching for query class for attribute group %s", name);
    SourceClass found = cloneOfThisSubnode(name);
    if (!found) {
        const VXClientClassList* all = getGlobalQueryClassList();
        found = SourceClass(all ? all->getClientClass(name) : nullptr);
        if (found) trace_detail("Found query for attribute group %s", name);
    }
    if (found.get() != this) return found;
    trace_error("Filter %s names itself as a source", getAttributeGroup());
    return SourceClass();
}

const FilterQueryClass::Sources* FilterQueryClass::rawClasses() {
    TRACE_FUNCTION();
    {
        std::lock_guard guard(rawClassesLock_);
        if (rawClasses_) return rawClasses_.get();
    }
    auto sources = std::make_unique<Sources>();
    StringTokenizer names(rawGroupNames_.c_str(), ",", false);
    while (const char* name = names.next()) {
        sources->push_back(getRawAttributeGroup(name));
        if (sources->back()) continue;
        trace_error("Could not find query object for attribute group %s", name);
        errorCode_ = OBJECT_NOT_FOUND;
        status_ = PERF_OBJECT_INACTIVE;
        return nullptr;
    }
    std::lock_guard guard(rawClassesLock_);
    if (!rawClasses_) rawClasses_ = std::move(sources);
    return rawClasses_.get();
}

bool FilterQueryClass::matchesExpression(const ResultInstance* row) {
    PERF_OBJECT_ERROR_CODE code = OBJECT_ACTIVE;
    const bool matches = filterExpression_.evaluate(row, &code);
    if (code == FILTER_SYNTAX_ERROR) {  // kept: nothing clears it
        errorCode_ = code;
        status_ = PERF_OBJECT_INACTIVE;
    }
    return matches;
}

std::vector<FilterQueryClass::Column> FilterQueryClass::columns() const {
    std::vector<Column> columns;
    for (ListCursor c = getMetricCursor(); c.hasMoreElements(); c.setToNext()) {
        const auto* metric = static_cast<const Metric*>(c.getCurrentElement());
        const auto* ofSource = dynamic_cast<const FilterQueryMetric*>(metric);
        columns.push_back({metric, ofSource ? ofSource->getRawClassMetricName() : nullptr});
    }
    return columns;
}

void FilterQueryClass::internalCollectData(const char* requestId) {
    TRACE_FUNCTION();
    if (!filterExpression_.isValid()) {
        status_ = PERF_OBJECT_INACTIVE;
        errorCode_ = FILTER_SYNTAX_ERROR;
        trace_error("FilterQueryClass::internalCollectData() called with null parse tree, can't do anything.");
        return;
    }
    const Sources* sources = rawClasses();
    if (!sources) return;
    const std::vector<Column> own = columns();
    for (const SourceClass& source : *sources) {
        trace_detail("Collecting data for raw group %s", source->getAttributeGroup());
        source->collectDataIfNeeded(requestId);
        takeRows(source.get(), own);
    }
}

void FilterQueryClass::takeRows(ResultsManager* source, const std::vector<Column>& columns) {
    TRACE_FUNCTION();
    const ResultsGuard guard(source);
    for (ListCursor c = source->getResultInstanceListCursor(); c.hasMoreElements(); c.setToNext()) {
        const auto* row = static_cast<const ResultInstance*>(c.getCurrentElement());
        if (matchesExpression(row)) {
            takeRow(row, columns);
        } else {
            trace_detail("Instance %s does not match filter %s, ignoring", row->getInstanceName(), filterText_.c_str());
        }
    }
}

void FilterQueryClass::takeRow(const ResultInstance* source, const std::vector<Column>& columns) {
    TRACE_MESSAGES();
    auto row = std::make_unique<ResultInstance>("", getMetricCount());
    for (const Column& column : columns) {
        const char* name = column.metric->getQMPVMetricName();
        if (!column.source) {
            trace_error("Metric %s has NULL raw class metric name!", name);
            continue;
        }
        const ResultMetric* cell = source->getMetric(column.source);
        if (!cell) {
            trace_error("Metric %s not found in results for instance %s", column.source, source->getInstanceName());
            continue;
        }
        ResultMetric* copy = cell->getDeepCopy(column.metric->getMetricName(), name);
        copy->setIsKey(column.metric->getIsKey());
        row->addMetric(copy);
    }
    if (row->getActualMetricCount() == row->getExpectedMetricCount()) {
        addResultInstance(row.release());
        return;
    }
    trace_error("Missing metrics. Skipping row. expected %d tokens, parsed %d.", row->getExpectedMetricCount(),
                row->getActualMetricCount());
}
