// The tables about the agent itself: Performance_Object_Status, one row for each monitored attribute group, and
// Thread_Pool_Status, one row with the figures of the pool. Neither is ever answered from a cache.
#pragma once

#include "collection/FixedMetrics.h"
#include "collection/ResultsManager.h"
#include "collection/schedule/ThreadPool.h"

class AttributeGroupMeta;

extern const FixedMetric PERF_METRICS[];  // ended by a null name
extern const FixedMetric TP_METRICS[];    // ended by a null name

// Local time as CYYMMDDHHMMSS000 and a terminator (17 bytes).
void formatTimeStamp(long seconds, char* out);

class StatusTable : public ResultsManager {
  public:
    bool isExpired() override { return true; }
    const char* getPerfObjectName() override { return getAttributeGroup(); }
    int getPerfObjectStatus() override { return 0; }
    int getPerfErrorCode() override { return 0; }

  protected:
    StatusTable(const char* productCode, const char* attributeGroup);
    StatusTable(const StatusTable* source, const char* subnodeKey);
};

class PerfObjectStatus : public StatusTable {
  public:
    // `list` may be null: then the agent's list of all classes is reported.
    PerfObjectStatus(const char* productCode, const char* attributeGroup, VXClientClassList* list, AttributeGroupMeta* meta);
    PerfObjectStatus(const PerfObjectStatus* source, const char* subnodeKey, VXClientClassList* list);
    VXClientClass* subnodeCopy(const char* subnodeKey, VXClientClassList* list) override;
    void printResults() override;
    void internalCollectData(const char* requestId) override;

  private:
    void addRowOf(VXClientClass* reported);
    VXClientClassList* list_;
};

class ThreadPoolStatus : public StatusTable {
  public:
    // The pool is not owned; null: there is none, which the row tells with -1 and -100.
    ThreadPoolStatus(const char* productCode, const char* attributeGroup, ThreadPool* pool, AttributeGroupMeta* meta);
    void printResults() override;
    void internalCollectData(const char* requestId) override;

  private:
    ThreadPool* pool_;
};
