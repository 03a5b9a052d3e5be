// What a row of the availability table tells, before it is a row.
#pragma once

#include "exec/ReturnCodeListElement.h"
#include "foundation/List.h"

enum APPLICATION_STATUS : int {
    APP_STATUS_DOWN = 0,          // no process matched the filter
    APP_STATUS_UP = 1,            // this process matched
    APP_STATUS_TEST_UNKNOWN = 3,  // the functionality test told nothing
    APP_STATUS_TEST_PASSED = 4,
    APP_STATUS_TEST_FAILED = 5,
};

enum FILTER_TYPE : int { FILTER_TYPE_PROCESS = 0, FILTER_TYPE_SERVICE = 1, FILTER_TYPE_TEST = 2 };

// The figures of a process. Sizes are bytes in 32 bits: what lies beyond 2 GB wraps.
struct ProcessFigures {
    int virtualSize = 0;
    int pageFaults = 0;
    int workingSet = 0;
    int threads = 0;
    int systemPercent = 0;
    int userPercent = 0;
    int cpuPercent = 0;
    int pid = 0;
};

// One field for each column. The texts, none of them null, are not copied: they must outlive the object.
class AvailabilityResultListElement : public ListElement {
  public:
    AvailabilityResultListElement(const char* component, const char* name, const char* fullName, const char* commandLine,
                                  APPLICATION_STATUS status, const ProcessFigures& figures, FILTER_TYPE type,
                                  RETURN_CODE code, const char* message)
        : component_(component),
          name_(name),
          fullName_(fullName),
          commandLine_(commandLine),
          status_(status),
          figures_(figures),
          type_(type),
          code_(code),
          message_(message) {}
    // A process: no test was run.
    AvailabilityResultListElement(const char* component, const char* name, const char* fullName, const char* commandLine,
                                  APPLICATION_STATUS status, const ProcessFigures& figures)
        : AvailabilityResultListElement(component, name, fullName, commandLine, status, figures, FILTER_TYPE_PROCESS,
                                        RC_NOT_RUN, kNone) {}
    // A functionality test: there is no process.
    AvailabilityResultListElement(const char* component, const char* name, APPLICATION_STATUS status, RETURN_CODE code,
                                  const char* message)
        : AvailabilityResultListElement(component, name, kNone, kNone, status, {}, FILTER_TYPE_TEST, code, message) {}
    // A filter that matched nothing.
    AvailabilityResultListElement(const char* component, const char* name, APPLICATION_STATUS status)
        : AvailabilityResultListElement(component, name, kNone, kNone, status, {}) {}

    const char* getApplicationComponent() const { return component_; }
    const char* getName() const { return name_; }
    int getStatus() const { return status_; }
    const char* getFullName() const { return fullName_; }
    int getType() const { return type_; }
    int getVirtualSize() const { return figures_.virtualSize / kMegabyte; }  // megabytes, towards zero
    int getPageFaults() const { return figures_.pageFaults; }
    int getWorkingSet() const { return figures_.workingSet / kMegabyte; }
    int getThreadCount() const { return figures_.threads; }
    int getPid() const { return figures_.pid; }
    int getPercentPrivilegedTime() const { return figures_.systemPercent; }
    int getPercentUserModeTime() const { return figures_.userPercent; }
    int getPercentProcessorTime() const { return figures_.cpuPercent; }
    const char* getCommandLine() const { return commandLine_; }
    int getReturnCode() const { return code_; }
    const char* getMessage() const { return message_; }

  private:
    static constexpr const char* kNone = "N/A";
    static constexpr int kMegabyte = 1048576;

    const char* component_;
    const char* name_;
    const char* fullName_;
    const char* commandLine_;
    APPLICATION_STATUS status_;
    ProcessFigures figures_;
    FILTER_TYPE type_;
    RETURN_CODE code_;
    const char* message_;
};
