#include "providers/local/proctable/ProcessRates.h"

#include <unistd.h>

#include <algorithm>
#include <string>

#include "foundation/Clock.h"
#include "foundation/Trace.h"

namespace {

constexpr unsigned long long kLargestGrowth = 0x7fffffff;

time_t secondsNow() { return Clock::monotonic().tv_sec; }

// Hundredths of a second; arithmetic as that of unsigned long, which wraps.
long long hundredths(unsigned long ticks) { return static_cast<long long>(ticks * 100 / hertz); }

}  // namespace

const char* ProcessRates::nameOf(Item item) {
    constexpr const char* names[kItems] = {"systemTime", "userTime", "cpuTime", "totalIO", "page_faults", "readIO", "writeIO"};
    return names[item];
}

long long ProcessRates::getRateAsPercent(int pid, Item item, long long value) {
    TRACE_MESSAGES();
    if (!last_ || lastPid_ != pid) {
        last_ = &processes_[pid];  // nodes stay where they are
        lastPid_ = pid;
    }
    Previous& previous = last_->items[item];
    const time_t now = secondsNow();
    long long rate = 0;
    if (previous.known) {
        trace_detail("Calculating Rate: %d/%s: metricVal=%lld prevVal=%lld now=%d prev=%d\n", pid, nameOf(item), value,
                     previous.value, static_cast<int>(now), static_cast<int>(previous.time));
        const time_t elapsed = now - previous.time;
        if (previous.value <= value && elapsed > 0) {
            const auto growth = static_cast<unsigned long long>(value) - static_cast<unsigned long long>(previous.value);
            rate = static_cast<long long>(std::min(growth, kLargestGrowth)) / elapsed;
        }
    }
    trace_detail("Saving Previous: %d/%s: time=%d, val=%lld\n", pid, nameOf(item), static_cast<int>(now), value);
    previous = {value, now, true};
    return rate;
}

void ProcessRates::collectionStarts() { lastRunTime_ = secondsNow(); }

void ProcessRates::purgePreviousCpuResults() {
    TRACE_FUNCTION();
    trace_detail("Previous run time is %d\n", static_cast<int>(lastRunTime_));
    last_ = nullptr;
    std::erase_if(processes_, [&](const auto& entry) {
        const Previous& first = entry.second.items[SystemTime];
        if (first.known && first.time >= lastRunTime_) return false;
        trace_detail("Purging previous results for process %s, last updated %d\n", std::to_string(entry.first).c_str(),
                     static_cast<int>(first.time));
        return true;
    });
}

CpuPercent cpuPercent(ProcessRates& rates, int pid, unsigned long utime, unsigned long stime) {
    const int processors = numcpus();
    const auto share = [&](ProcessRates::Item item, unsigned long ticks) {
        return static_cast<int>(rates.getRateAsPercent(pid, item, hundredths(ticks))) / processors;
    };
    const int system = share(ProcessRates::SystemTime, stime);
    const int user = share(ProcessRates::UserTime, utime);
    return {system, user, share(ProcessRates::CpuTime, utime + stime)};
}

int numcpus() {
    TRACE_MESSAGES();
    static const int processors = [&] {
        const long online = ::sysconf(_SC_NPROCESSORS_ONLN);
        trace_detail("Number of Processors: %d\n", static_cast<int>(online));
        return static_cast<int>(std::max(online, 1l));
    }();
    return processors;
}
