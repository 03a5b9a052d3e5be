#include "providers/local/availability/UnixAvailabilityList.h"

#include "foundation/Convert.h"
#include "foundation/Trace.h"

namespace {

constexpr int kKilobyteShift = 10;

// Bytes in 32 bits. Kept: what is larger wraps, so that 3 GB show as a negative size.
int bytesOf(unsigned long kilobytes) { return static_cast<int>(static_cast<unsigned>(kilobytes) << kKilobyteShift); }

}  // namespace

AvailabilityList* getPlatformSpecificAvailabilityList(const char* application, void* /*unused*/) {
    return new UnixAvailabilityList(application);
}

UnixAvailabilityList::UnixAvailabilityList(const char* application, const char* root)
    : AvailabilityList(application), root_(root) {}

void UnixAvailabilityList::internalCollectData(const char* /*requestId*/) {
    TRACE_FUNCTION();
    collectAppPingData();
    if (firstProcessFilter()) processInfo();
}

void UnixAvailabilityList::processInfo() {
    TRACE_FUNCTION();
    commandLine_.resize(kCommandLineSize);
    fullName_.resize(kFullNameSize);
    ProcList processes(ProcList::kFullRecord, ProcList::kStat | ProcList::kStatus, root_.c_str());
    rates_.collectionStarts();
    FilterIndex filters(firstProcessFilter());
    Rows rows(filters.count());
    Parents parents;
    matchProcesses(processes, filters, rows, parents);
    reportFilters(filters, rows);
    if (!parents.empty()) reportChildren(processes, parents);
    rates_.purgePreviousCpuResults();
}

// A process is looked at once, and its filters in their order: the first one's row has the rates since the collection
// before, a further one's are 0, as no time has passed.
void UnixAvailabilityList::matchProcesses(ProcList& processes, FilterIndex& filters, Rows& rows, Parents& parents) {
    TRACE_FUNCTION();
    ProcessText text;
    processes.resetCursor();
    while (const procstat* process = processes.getNextEntry()) {
        // Null: a kernel thread, or a process that has gone since.
        if (!processes.getCommandLine(process, commandLine_.data())) continue;
        const char* fullName = getFullName(commandLine_.data(), fullName_.data());
        text.set(getBaseName(fullName_.data()), fullName, commandLine_.data());
        for (const std::size_t number : filters.matching(text)) {
            const ProcessListElement& filter = filters.filter(number);
            rows[number].append(generateRow(*process, filter.getApplicationComponent(), filter.getProcessName()).release());
            if (!filter.shouldIncludeChildProcesses()) continue;
            parents[process->pid] = &filter;  // of two filters the last one names the children
            trace_detail("Adding parent pid %d with child application component %s", process->pid,
                         filter.getChildApplicationCompName());
        }
    }
}

void UnixAvailabilityList::reportFilters(const FilterIndex& filters, Rows& rows) {
    TRACE_FUNCTION();
    for (std::size_t number = 0; number < filters.count(); ++number) {
        const char* component = filters.filter(number).getApplicationComponent();
        const char* name = filters.filter(number).getProcessName();
        if (rows[number].empty()) {
            trace_detail("Process %s of application component %s is down (NO match was found)", name, component);
            addResult({component, name, APP_STATUS_DOWN});
        }
        while (ResultInstance* row = rows[number].first()) {
            rows[number].unlink(row);
            addResultInstance(row);
        }
    }
}

// Direct children alone. A child that is itself such a parent has been reported by its filter.
void UnixAvailabilityList::reportChildren(ProcList& processes, const Parents& parents) {
    TRACE_FUNCTION();
    char name[kFullNameSize];
    processes.resetCursor();
    while (const procstat* process = processes.getNextEntry()) {
        const auto parent = parents.find(process->ppid);
        if (parent == parents.end() || parents.count(process->pid) != 0) continue;
        const char* baseName = getBaseName(getFullName(process->cmd, name));
        trace_detail("Found child process %s with pid %d to parent %d, baseName=%s", name, process->pid, process->ppid,
                     baseName);
        if (!processes.getCommandLine(process, commandLine_.data())) continue;
        getFullName(commandLine_.data(), fullName_.data());
        addResultInstance(generateRow(*process, parent->second->getChildApplicationCompName(), baseName).release());
    }
}

// Of the process whose command line and full name are at hand.
std::unique_ptr<ResultInstance> UnixAvailabilityList::generateRow(const procstat& process, const char* component,
                                                                  const char* name) {
    TRACE_MESSAGES();
    const CpuPercent percent = cpuPercent(rates_, process.pid, process.utime, process.stime);
    ProcessFigures figures;
    figures.virtualSize = bytesOf(process.vm_size);
    figures.workingSet = bytesOf(process.vm_rss);
    figures.threads = convert::low32(process.nlwp);
    figures.systemPercent = percent.system;
    figures.userPercent = percent.user;
    figures.cpuPercent = percent.cpu;
    figures.pid = process.pid;
    return makeRow({component, name, fullName_.data(), commandLine_.data(), APP_STATUS_UP, figures});
}
