#include "actions/TakeActionStatus.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <string_view>

#include "actions/TaskLibrary.h"
#include "foundation/Trace.h"
#include "runtime/reference/AttributeGroupMeta.h"

const FixedMetric TS_METRICS[] = {
    {"Action_Name", "TSKNAME", STRING_DATA, 256},
    {"Action_Status", "TSKSTAT", NUMERIC_DATA, 4},
    {"Action_App_Return_Code", "TSKAPRC", NUMERIC_DATA, 4},
    {"Action_Message", "TSKMSGE", STRING_DATA, 256},
    {"Action_Instance", "TSKINST", STRING_DATA, 1024},
    {"Action_Results", "TSKOUTP", STRING_DATA, 1024},
    {"Action_Command", "TSKCMND", STRING_DATA, 512},
    {"Action_Node", "TSKORGN", STRING_DATA, 32},
    {"Action_Subnode", "TSKSBND", STRING_DATA, 28},
    {"Action_ID", "TSKID", NUMERIC_DATA, 4},
    {"Action_Type", "TSKTYPE", NUMERIC_DATA, 4},
    {"Action_Owner", "TSKOWNR", STRING_DATA, 256},
    {nullptr, nullptr, 0, 0},
};

namespace {

constexpr int kTakeAction = 1;  // the only Action_Type
// The cache keeps rows for as long as nothing newer comes, and columns are far shorter: a megabyte of output is not kept.
constexpr std::size_t kLongestText = 65536;

ResultMetric* textCell(const Metric* metric, const char* text) {
    if (!text || strnlen(text, kLongestText + 1) <= kLongestText) return new ResultMetric(metric, text);
    return new ResultMetric(metric, std::string(text, kLongestText).c_str());
}

}  // namespace

TakeActionStatus::TakeActionStatus(const char* productCode, const char* attributeGroup, AttributeGroupMeta* meta)
    : ResultsManager(productCode, attributeGroup, VX_STATUS) {
    TRACE_FUNCTION();
    setThreadPoolEligible(false);
    setPureEventBased(true);
    addFixedMetrics(this, TS_METRICS, meta, FirstMetric::Plain);
}

void TakeActionStatus::printResults() { traceResults(ZTR1_STATE, "Instances and Values for Take_Action_Status class"); }

void TakeActionStatus::internalCollectData(const char* /*requestId*/) {
    TRACE_FUNCTION();
    trace_detail("internalCollectData was called for event table %s.", getAttributeGroup());
}

void TakeActionStatus::setPerfObjectStatus(PERF_OBJECT_STATUS status) {
    TRACE_FUNCTION();
    objectStatus_ = status;
    trace_detail("Object status being set to: %s", perfObjectStatusName(status));
}

void TakeActionStatus::setPerfErrorCode(int code) {
    TRACE_FUNCTION();
    errorCode_ = code;
    trace_detail("Errror code being set to: %s", perfObjectErrorCodeName(code));
}

void TakeActionStatus::sendTaskEvent(const char* command, TaskResult* result, int taskId, const char* node,
                                     const char* subnode, const char* owner) {
    TRACE_FUNCTION();
    if (!result) return;
    const List* instances = result->getInstances();
    const List* output = result->getOutput();
    if (output->getCount() == 0) {
        sendTaskEventWithOutput(command, result, "", "", taskId, node, subnode, owner);
        return;
    }
    for (int i = 0; i < output->getCount(); ++i) {
        const auto* instance = i < instances->getCount() ? static_cast<const char*>(instances->get(i)) : nullptr;
        const auto* line = static_cast<const char*>(output->get(i));
        sendTaskEventWithOutput(command, result, instance, line, taskId, node, subnode, owner);
    }
}

void TakeActionStatus::sendTaskEventWithOutput(const char* command, TaskResult* result, const char* instance,
                                               const char* output, int taskId, const char* node, const char* subnode,
                                               const char* owner) {
    TRACE_FUNCTION();
    if (!result) return;
    const auto cellOf = [&](const Metric* metric) -> ResultMetric* {
        const std::string_view name = metric->getMetricName();
        if (name == "Action_Name") return textCell(metric, result->getTaskName());
        if (name == "Action_App_Return_Code") return new ResultMetric(metric, result->getApplicationReturnCode());
        if (name == "Action_Message") return textCell(metric, result->getMessage());
        if (name == "Action_Instance") return textCell(metric, instance);
        if (name == "Action_Results") return textCell(metric, output);
        if (name == "Action_Command") return textCell(metric, command);
        if (name == "Action_Node") return textCell(metric, node);
        if (name == "Action_Subnode") return textCell(metric, subnode);
        if (name == "Action_ID") return new ResultMetric(metric, taskId);
        if (name == "Action_Status") return new ResultMetric(metric, result->getReturnCode());
        if (name == "Action_Type") return new ResultMetric(metric, kTakeAction);
        if (name == "Action_Owner") return textCell(metric, owner);
        return nullptr;
    };
    auto row = std::make_unique<ResultInstance>("", getMetricCount());
    for (const Metric* m = getMetricList(); m; m = static_cast<const Metric*>(m->getNextElement())) {
        trace_detail("Dealing with metric %s", m->getMetricName());
        if (m->getMetricType() != 0) continue;
        trace_detail("metric %s is a RAW metric", m->getMetricName());
        if (ResultMetric* cell = cellOf(m)) row->addMetric(cell);
    }
    sendEventData(row.release());  // the class is pure: its cache owns the row
}
