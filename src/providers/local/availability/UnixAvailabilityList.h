// The availability table over proc(5). Each collection takes one snapshot of the processes, reads the command line of each
// once (of a reported child once more, for children are known only when all parents are), and costs what there are
// processes and rows, whatever the number of filters.
#pragma once

#include <string>
#include <unordered_map>
#include <vector>

#include "providers/local/availability/AvailabilityList.h"
#include "providers/local/availability/FilterIndex.h"
#include "providers/local/proctable/ProcList.h"
#include "providers/local/proctable/ProcessRates.h"

class UnixAvailabilityList : public AvailabilityList {
  public:
    // `root` is where proc(5) is mounted, without a slash at its end.
    explicit UnixAvailabilityList(const char* application, const char* root = "/proc");

    // Rows of functionality tests first, then those of processes filter by filter, then those of children. Nothing fails:
    // where the processes cannot be read, every filter reports down.
    void internalCollectData(const char* requestId) override;

    std::size_t rememberedProcesses() const { return rates_.count(); }

  private:
    // The rows of each filter, in the order of the processes.
    using Rows = std::vector<ResultChain>;
    // Processes whose children are wanted, and the filter that says under which name.
    using Parents = std::unordered_map<int, const ProcessListElement*>;

    void processInfo();
    void matchProcesses(ProcList& processes, FilterIndex& filters, Rows& rows, Parents& parents);
    void reportFilters(const FilterIndex& filters, Rows& rows);
    void reportChildren(ProcList& processes, const Parents& parents);
    std::unique_ptr<ResultInstance> generateRow(const procstat& process, const char* component, const char* name);

    std::string root_;
    std::vector<char> commandLine_;  // of the process at hand
    std::vector<char> fullName_;     // of that command line
    ProcessRates rates_;
};
