// The process provider: a table with one row for each process of the host that has a command line. Rates are kept here, by
// process, outside those of ResultsManager.
#pragma once

#include <string>
#include <vector>

#include "collection/ResultsManager.h"
#include "providers/local/process/ProcessQueryMetric.h"
#include "providers/local/proctable/ProcList.h"
#include "providers/local/proctable/ProcessRates.h"

class ProcessQueryClass : public ResultsManager {
  public:
    // As the reference file declares it; null texts count as empty ones. `root` is where proc(5) is mounted.
    ProcessQueryClass(const char* app, const char* ag, const char* name, const char* root = "/proc");
    // The copy for a subnode: shares the columns, starts without a history.
    ProcessQueryClass(ProcessQueryClass* parent, const char* subnode);

    void printResults() override;
    VXClientClass* subnodeCopy(const char* subnodeKey, VXClientClassList* list) override;
    // One row for each process, in the order of the process table. Rates are 0 at the first collection and within a second
    // of the one before.
    void internalCollectData(const char* requestId) override;
    // Also gives the memory of many replaced rows back to the system: a table of processes is as large as the machine is
    // busy at its busiest.
    void updateResults() override;
    // Kept: nothing is reported through the status words; without a process table there are just no rows.
    const char* getPerfObjectName() override { return name_.c_str(); }
    int getPerfObjectStatus() override { return objectStatus_; }
    int getPerfErrorCode() override { return errorCode_; }
    const char* getClassName() const { return "Process"; }

    // Whether CDP_PROCESS_COUNT_LIMIT is not set. Kept: its number limits nothing; any value leaves out the processes
    // without CPU, in a table that shows the CPU.
    bool hasNoLimit() const { return noLimit_; }
    int limit() const { return limit_; }
    std::size_t rememberedProcesses() const { return rates_.count(); }

  private:
    struct Column {
        const Metric* metric;
        int figure;
    };
    struct Process;  // one row in the making
    class Rows;

    bool readLimit();
    void readColumns();
    bool shows(int figure) const { return figure >= 0 && figure < kFigures && shown_[figure]; }
    bool showsAny(std::initializer_list<int> figures) const;
    unsigned figuresToRead(bool traced) const;
    void addRow(const procstat& record, const char* commandLine, unsigned long secondsSinceBoot);
    ResultMetric* cell(const Column& column, Process& process);

    static constexpr int kFigures = 26;

    std::string name_;
    std::string root_;
    const PERF_OBJECT_ERROR_CODE errorCode_ = OBJECT_ACTIVE;
    const PERF_OBJECT_STATUS objectStatus_ = PERF_OBJECT_ACTIVE;
    ProcessRates rates_;
    bool noLimit_ = true;
    int limit_ = -1;
    std::vector<Column> columns_;  // of the collected metrics, read at the first collection
    bool shown_[kFigures] = {};
};
