#include "collection/status/StatusTables.h"

#include <cmath>
#include <cstring>

#include "collection/SubnodeDirectory.h"
#include "foundation/Clock.h"
#include "foundation/Trace.h"
#include "runtime/reference/AttributeGroupMeta.h"

const FixedMetric PERF_METRICS[] = {
    {"Query_Name", "ATTRGRP", 1, 100},
    {"Object_Name", "OBJNAME", 1, 100},
    {"Object_Type", "OBJTYPE", 0, 4},
    {"Object_Status", "OBJSTTS", 0, 4},
    {"Error_Code", "ERRCODE", 0, 4},
    {"Last_Collection_Start", "COLSTRT", 1, 16},
    {"Last_Collection_Finished", "COLFINI", 1, 16},
    {"Last_Collection_Duration", "COLDURA", 0, 4},
    {"Average_Collection_Duration", "COLAVGD", 0, 4},
    {"Refresh_Interval", "REFRINT", 0, 4},
    {"Number_of_Collections", "NUMCOLL", 0, 4},
    {"Cache_Hits", "CACHEHT", 0, 4},
    {"Cache_Misses", "CACHEMS", 0, 4},
    {"Cache_Hit_Percent", "CACHPCT", 0, 4},
    {"Intervals_Skipped", "INTSKIP", 0, 4},
    {nullptr, nullptr, 0, 0},
};

const FixedMetric TP_METRICS[] = {
    {"Thread_Pool_Size", "THPSIZE", 0, 4},
    {"Thread_Pool_Max_Size", "TPMAXSZ", 0, 4},
    {"Thread_Pool_Active_Threads", "TPACTTH", 0, 4},
    {"Thread_Pool_Avg_Active_Threads", "TPAVGAT", 0, 4},
    {"Thread_Pool_Min_Active_Threads", "TPMINAT", 0, 4},
    {"Thread_Pool_Max_Active_Threads", "TPMAXAT", 0, 4},
    {"Thread_Pool_Queue_Length", "TPQLGTH", 0, 4},
    {"Thread_Pool_Avg_Queue_Length", "TPAVGQL", 0, 4},
    {"Thread_Pool_Min_Queue_Length", "TPMINQL", 0, 4},
    {"Thread_Pool_Max_Queue_Length", "TPMAXQL", 0, 4},
    {"Thread_Pool_Avg_Job_Wait", "TPAVJBW", 0, 4},
    {"Thread_Pool_Total_Jobs", "TPTJOBS", 0, 4},
    {nullptr, nullptr, 0, 0},
};

namespace {

constexpr double kHundredths = 100.0;

int truncated(double value) {
    if (std::isnan(value)) return 0;
    if (value >= 2147483647.0) return 2147483647;
    if (value <= -2147483648.0) return -2147483647 - 1;
    return static_cast<int>(value);
}

ResultMetric* textCell(const Metric* metric, const char* text) {
    auto* value = new UTF8String;
    value->initFromASCIIString(text);
    return new ResultMetric(metric, value);
}

ResultMetric* timeCell(const Metric* metric, const timespec& time) {
    char text[32];
    formatTimeStamp(static_cast<long>(time.tv_sec), text);
    auto* value = new UTF8String;
    value->initFromUTF8String(text);
    return new ResultMetric(metric, value);
}

int hitPercent(const PerfStats& s) {  // two decimal places: 10000 is 100.00 percent
    if (s.cacheHits == 0 && s.collections == 0) return 0;
    const double hits = s.cacheHits;
    return truncated(10000.0 * (hits / (hits + s.collections)));
}

// The cell of one metric, chosen by its name; null for a name the table does not have.
ResultMetric* statusCell(const Metric* metric, VXClientClass* c, const PerfStats& s) {
    const auto is = [metric](const char* name) { return std::strcmp(metric->getMetricName(), name) == 0; };
    if (is("Query_Name")) return textCell(metric, c->getAttributeGroup());
    if (is("Object_Name")) return textCell(metric, c->getPerfObjectName());
    if (is("Object_Type")) return new ResultMetric(metric, static_cast<int>(c->getObjectType()));
    if (is("Object_Status")) return new ResultMetric(metric, c->getPerfObjectStatus());
    if (is("Error_Code")) return new ResultMetric(metric, c->getPerfErrorCode());
    if (is("Last_Collection_Start")) return timeCell(metric, s.startTime);
    if (is("Last_Collection_Finished")) return timeCell(metric, s.lastTime);
    if (is("Last_Collection_Duration")) return new ResultMetric(metric, truncated(s.lastDuration * kHundredths));
    if (is("Average_Collection_Duration")) return new ResultMetric(metric, truncated(s.averageDuration * kHundredths));
    if (is("Refresh_Interval")) return new ResultMetric(metric, c->getRefreshInterval());
    if (is("Number_of_Collections")) return new ResultMetric(metric, s.collectionCount);
    if (is("Cache_Hits")) return new ResultMetric(metric, s.cacheHits);
    if (is("Cache_Misses")) return new ResultMetric(metric, s.collections);
    if (is("Cache_Hit_Percent")) return new ResultMetric(metric, hitPercent(s));
    if (is("Intervals_Skipped")) return new ResultMetric(metric, s.skippedIntervals);
    return nullptr;
}

ResultMetric* poolCell(const Metric* metric, const ThreadPoolStatistics& s) {
    const auto is = [metric](const char* name) { return std::strcmp(metric->getMetricName(), name) == 0; };
    if (is("Thread_Pool_Size") || is("Thread_Pool_Max_Size")) return new ResultMetric(metric, s.poolSize);
    if (is("Thread_Pool_Active_Threads")) return new ResultMetric(metric, s.activeThreads);
    if (is("Thread_Pool_Avg_Active_Threads")) return new ResultMetric(metric, truncated(s.averageActiveThreads * kHundredths));
    if (is("Thread_Pool_Min_Active_Threads")) return new ResultMetric(metric, s.minActiveThreads);
    if (is("Thread_Pool_Max_Active_Threads")) return new ResultMetric(metric, s.maxActiveThreads);
    if (is("Thread_Pool_Queue_Length")) return new ResultMetric(metric, s.queueLength);
    if (is("Thread_Pool_Avg_Queue_Length")) return new ResultMetric(metric, truncated(s.averageQueueLength * kHundredths));
    if (is("Thread_Pool_Min_Queue_Length")) return new ResultMetric(metric, s.minQueueLength);
    if (is("Thread_Pool_Max_Queue_Length")) return new ResultMetric(metric, s.maxQueueLength);
    if (is("Thread_Pool_Avg_Job_Wait")) return new ResultMetric(metric, truncated(s.averageJobWait * kHundredths));
    if (is("Thread_Pool_Total_Jobs")) return new ResultMetric(metric, s.totalJobs);
    return nullptr;
}

ThreadPoolStatistics noPool() {
    ThreadPoolStatistics s;
    s.poolSize = s.activeThreads = s.totalJobs = s.queueLength = -1;
    s.minActiveThreads = s.maxActiveThreads = s.minQueueLength = s.maxQueueLength = -1;
    return s;  // the averages are -1.0 already, which shows as -100
}

Metric* nextMetric(Metric* metric) { return static_cast<Metric*>(metric->getNextElement()); }

}  // namespace

void formatTimeStamp(long seconds, char* out) { Clock::formatTimeStamp(seconds, out); }

StatusTable::StatusTable(const char* productCode, const char* attributeGroup)
    : ResultsManager(productCode, attributeGroup, VX_STATUS) {
    setThreadPoolEligible(false);
}

StatusTable::StatusTable(const StatusTable* source, const char* subnodeKey) : ResultsManager(source, subnodeKey, true) {}

PerfObjectStatus::PerfObjectStatus(const char* productCode, const char* attributeGroup, VXClientClassList* list,
                                   AttributeGroupMeta* meta)
    : StatusTable(productCode, attributeGroup), list_(list) {
    addFixedMetrics(this, PERF_METRICS, meta, FirstMetric::Key);
}

PerfObjectStatus::PerfObjectStatus(const PerfObjectStatus* source, const char* subnodeKey, VXClientClassList* list)
    : StatusTable(source, subnodeKey), list_(list) {}

VXClientClass* PerfObjectStatus::subnodeCopy(const char* subnodeKey, VXClientClassList* list) {
    return new PerfObjectStatus(this, subnodeKey, list);
}

void PerfObjectStatus::printResults() {
    traceResults(ZTR1_STATE, "Instances and Values for Performance_Object_Status class");
}

void PerfObjectStatus::addRowOf(VXClientClass* reported) {
    const AttributeGroupMeta* meta = reported->getAttributeGroupMeta();
    if (meta && meta->subnodeType() && !reported->getSubnodeKey()) return;  // a template, its clones report
    const int type = reported->getObjectType();
    if (type == VX_AVAILABILITY_OLD || type == VX_AVAILABILITY || type == VX_STATUS) return;
    auto* row = new ResultInstance(reported->getAttributeGroup(), getMetricCount());
    const PerfStats statistics = reported->getPerfstats();
    for (Metric* metric = getMetricList(); metric; metric = nextMetric(metric)) {
        if (ResultMetric* cell = statusCell(metric, reported, statistics)) row->addMetric(cell);
    }
    addResultInstance(row);
}

void PerfObjectStatus::internalCollectData(const char*) {
    TRACE_FUNCTION();
    const AttributeGroupMeta* meta = getAttributeGroupMeta();
    if (getSubnodeKey() && meta) {
        SubnodeDirectory* directory = subnodeDirectory();
        if (!directory) return;
        // As its subnode is registered: what announced it may have another application, and the type in another case.
        const std::string& msn = getManagedSystemName();
        const std::string ownAppl = msn.substr(0, msn.find(':'));
        const char* appl = msn.empty() ? meta->applName() : ownAppl.c_str();
        const char* type = msn.empty() ? meta->subnodeType() : &msn[msn.rfind(':') + 1];
        for (const ClassPin& its : directory->getAllSubnodeQueryClasses(appl, getSubnodeKey(), type)) {
            addRowOf(its.get());
        }
    } else if (VXClientClassList* all = list_ ? list_ : queryClassList) {
        for (ListCursor c = all->getClassListCursor(); c.hasMoreElements(); c.setToNext()) {
            addRowOf(static_cast<VXClientClass*>(c.getCurrentElement()));
        }
    }
    printResults();
}

ThreadPoolStatus::ThreadPoolStatus(const char* productCode, const char* attributeGroup, ThreadPool* pool,
                                   AttributeGroupMeta* meta)
    : StatusTable(productCode, attributeGroup), pool_(pool) {
    addFixedMetrics(this, TP_METRICS, meta, FirstMetric::Plain);
}

void ThreadPoolStatus::printResults() { traceResults(ZTR1_STATE, "Instances and Values for Thread_Pool_Status class"); }

void ThreadPoolStatus::internalCollectData(const char*) {
    TRACE_FUNCTION();
    auto* row = new ResultInstance("", getMetricCount());
    const ThreadPoolStatistics statistics = pool_ ? pool_->getTPStatistics() : noPool();
    for (Metric* metric = getMetricList(); metric; metric = nextMetric(metric)) {
        if (ResultMetric* cell = poolCell(metric, statistics)) row->addMetric(cell);
    }
    if (row->getExpectedMetricCount() != row->getActualMetricCount()) {
        trace_error("Missing metrics. Skipping row. expected %d tokens, parsed %d.", row->getExpectedMetricCount(),
                    row->getActualMetricCount());
        delete row;
        return;
    }
    addResultInstance(row);
}
