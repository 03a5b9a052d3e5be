#include "providers/local/availability/AvailabilityList.h"

#include <iterator>

#include "foundation/Trace.h"
#include "runtime/reference/Application.h"

const FixedMetric AVAIL_METRICS[] = {
    {"Application_Component", nullptr, STRING_DATA, 52},
    {"Name", nullptr, STRING_DATA, 100},
    {"Status", nullptr, NUMERIC_DATA, 4},
    {"Full_Name", nullptr, STRING_DATA, 1000},
    {"Type", nullptr, NUMERIC_DATA, 4},
    {"Virtual_Size", nullptr, NUMERIC_DATA, 4},
    {"Page_Faults_per_Sec", nullptr, NUMERIC_DATA, 4},
    {"Working_Set_Size", nullptr, NUMERIC_DATA, 4},
    {"Thread_Count", nullptr, NUMERIC_DATA, 4},
    {"PID", nullptr, NUMERIC_DATA, 4},
    {"Percent_Privileged_Time", nullptr, NUMERIC_DATA, 4},
    {"Percent_User_Mode_Time", nullptr, NUMERIC_DATA, 4},
    {"Percent_Processor_Time", nullptr, NUMERIC_DATA, 4},
    {"Command_Line", nullptr, STRING_DATA, 1500},
    {"Functionality_Test_Status", nullptr, NUMERIC_DATA, 4},
    {"Functionality_Test_Message", nullptr, STRING_DATA, 500},
    {nullptr, nullptr, 0, 0},
};

namespace {

using Result = AvailabilityResultListElement;

// What fills a column: a text or a number.
struct Column {
    const char* (Result::*text)() const;
    int (Result::*number)() const;
};
constexpr Column textOf(const char* (Result::*text)() const) { return {text, nullptr}; }
constexpr Column numberOf(int (Result::*number)() const) { return {nullptr, number}; }

// In the order of AVAIL_METRICS.
constexpr Column kColumns[] = {
    textOf(&Result::getApplicationComponent),
    textOf(&Result::getName),
    numberOf(&Result::getStatus),
    textOf(&Result::getFullName),
    numberOf(&Result::getType),
    numberOf(&Result::getVirtualSize),
    numberOf(&Result::getPageFaults),
    numberOf(&Result::getWorkingSet),
    numberOf(&Result::getThreadCount),
    numberOf(&Result::getPid),
    numberOf(&Result::getPercentPrivilegedTime),
    numberOf(&Result::getPercentUserModeTime),
    numberOf(&Result::getPercentProcessorTime),
    textOf(&Result::getCommandLine),
    numberOf(&Result::getReturnCode),
    textOf(&Result::getMessage),
};
static_assert(std::size(kColumns) + 1 == std::size(AVAIL_METRICS));

APPLICATION_STATUS statusOf(int judgement) {
    switch (judgement) {
        case 0:
            return APP_STATUS_TEST_FAILED;
        case 1:
            return APP_STATUS_TEST_PASSED;
        default:
            return APP_STATUS_TEST_UNKNOWN;
    }
}

const char* shown(const char* text) { return text ? text : ""; }
const char* shown(bool flag) { return flag ? "true" : "false"; }

}  // namespace

AvailabilityList* availList = nullptr;

AvailabilityList* requireAvailabilityList() {
    if (availList) return availList;
    availList = getPlatformSpecificAvailabilityList(applicationName.c_str(), nullptr);
    if (VXClientClassList* all = getGlobalQueryClassList()) all->addClientClass(availList);
    return availList;
}

AvailabilityList::AvailabilityList(const char* application)
    : ResultsManager(application, kAttributeGroup, VX_AVAILABILITY) {
    addFixedMetrics(this, AVAIL_METRICS, nullptr, FirstMetric::Key);
}

AvailabilityList::~AvailabilityList() {
    if (availList == this) availList = nullptr;
}

void AvailabilityList::printResults() { traceResults(ZTR1_FLOW, "Instances and Values for Availability class"); }

void AvailabilityList::addProcess(const ProcessFilter& filter) {
    TRACE_FUNCTION();
    trace_detail("Adding Process Filter:");
    trace_detail("name = %s", shown(filter.applicationComponent));
    trace_detail("procname = %s", shown(filter.baseName));
    trace_detail("fullname = %s", shown(filter.fullName));
    trace_detail("arg = %s", shown(filter.arg));
    trace_detail("value = %s", shown(filter.value));
    trace_detail("matchfullname = %s", shown(filter.useFullName));
    trace_detail("matcharg = %s", shown(filter.useArg));
    trace_detail("matchfullarg = %s", shown(filter.useFullArg));
    trace_detail("matchargwithvalue = %s", shown(filter.useArgWithValue));
    trace_detail("includeChildProcesses = %s", shown(filter.includeChildProcesses));
    trace_detail("childApplicationCompName = %s", shown(filter.childApplicationComponent));
    processes_.append(new ProcessListElement(filter));
}

std::unique_ptr<ResultInstance> AvailabilityList::makeRow(const AvailabilityResultListElement& result) const {
    auto row = std::make_unique<ResultInstance>(result.getApplicationComponent(), static_cast<int>(std::size(kColumns)));
    const Column* column = kColumns;
    for (const Metric* metric = getMetricList(); metric; metric = static_cast<const Metric*>(metric->getNextElement())) {
        if (column->text) {
            auto* text = new UTF8String;
            text->initFromUTF8String((result.*column->text)());
            row->addMetric(new ResultMetric(metric, text));
        } else {
            row->addMetric(new ResultMetric(metric, (result.*column->number)()));
        }
        ++column;
    }
    return row;
}

void AvailabilityList::collectAppPingData() {
    TRACE_FUNCTION();
    for (ApplicationPingListElement* test = tests_.first(); test; test = tests_.after(test)) {
        const APPLICATION_STATUS status = statusOf(test->isApplicationAvailable());
        addResult({test->getApplicationComponent(), test->getScriptName(), status, test->getLastReturnCode(),
                   test->getLastMessage()});
    }
}
