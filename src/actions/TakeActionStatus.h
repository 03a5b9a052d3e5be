// TakeActionStatus: the table Take_Action_Status. It has no data source; every finished action becomes one or more event
// rows, the latest of which the pure cache keeps for requests.
#pragma once

#include <string>

#include "collection/FixedMetrics.h"
#include "collection/ResultsManager.h"

class TaskResult;

extern const FixedMetric TS_METRICS[];  // ended by a null name

class TakeActionStatus : public ResultsManager {
  public:
    TakeActionStatus(const char* productCode, const char* attributeGroup, AttributeGroupMeta* meta);

    void printResults() override;
    void internalCollectData(const char* requestId) override;
    const char* getPerfObjectName() override { return getAttributeGroup(); }
    int getPerfObjectStatus() override { return objectStatus_; }
    int getPerfErrorCode() override { return errorCode_; }
    void setPerfObjectStatus(PERF_OBJECT_STATUS status);
    void setPerfErrorCode(int code);  // a PERF_OBJECT_ERROR_CODE

    // One row for each line of the result's output, or one without. Null texts show as "No value". Any thread.
    void sendTaskEvent(const char* command, TaskResult* result, int taskId, const char* node, const char* subnode,
                       const char* owner);
    void sendTaskEventWithOutput(const char* command, TaskResult* result, const char* instance, const char* output,
                                 int taskId, const char* node, const char* subnode, const char* owner);

  private:
    std::atomic<int> objectStatus_{PERF_OBJECT_ACTIVE};
    std::atomic<int> errorCode_{0};
};
