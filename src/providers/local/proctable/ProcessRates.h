// The memory of processes between collections: for each pid the last value and time of the counters that rates are
// asked of. Found by pid through a hash; one collection at a time uses it.
#pragma once

#include <cstddef>
#include <ctime>
#include <unordered_map>

class ProcessRates {
  public:
    ProcessRates() = default;
    ProcessRates(const ProcessRates&) = delete;
    ProcessRates& operator=(const ProcessRates&) = delete;

    // The counters that have a memory, with their names in traces.
    enum Item { SystemTime, UserTime, CpuTime, TotalIO, PageFaults, ReadIO, WriteIO, kItems };
    static const char* nameOf(Item item);  // "systemTime", "userTime", "cpuTime", "totalIO", "page_faults", "readIO", "writeIO"

    // The rate per second in whole numbers: the growth since the last call for this pid and item (2,147,483,647 at most)
    // by the whole seconds since then. 0 at the first call, within one second, and where the value fell. The value and the
    // time of this call are remembered in every case. Despite its name no percentage; ticks scaled to hundredths of
    // a second make it one.
    long long getRateAsPercent(int pid, Item item, long long value);

    // Marks the start of a collection: the time that purgePreviousCpuResults compares with.
    void collectionStarts();
    // Forgets each process of which no SystemTime was told since collectionStarts.
    void purgePreviousCpuResults();

    std::size_t count() const { return processes_.size(); }

  private:
    struct Previous {
        long long value = 0;
        time_t time = 0;  // monotonic seconds
        bool known = false;
    };
    struct Process {
        Previous items[kItems];
    };
    std::unordered_map<int, Process> processes_;
    Process* last_ = nullptr;  // the one told last, for lastPid_; null if none is known
    int lastPid_ = 0;
    time_t lastRunTime_ = 0;
};

// The three CPU figures of a process in percent of the machine's processors.
struct CpuPercent {
    int system;
    int user;
    int cpu;
};
// Of ticks; computed and remembered for every row, whichever figures are shown.
CpuPercent cpuPercent(ProcessRates& rates, int pid, unsigned long utime, unsigned long stime);

// Ticks a second as the figures take them: 100, without asking the system.
inline constexpr int hertz = 100;
// Processors online (sysconf), asked once; at least 1.
int numcpus();
