#include "providers/local/process/ProcessQueryClass.h"

#include <malloc.h>

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "foundation/Corrections.h"
#include "foundation/Trace.h"
#include "platform/zsb.h"

namespace {

constexpr int kManyRows = 2000;
constexpr const char* kLimit = "CDP_PROCESS_COUNT_LIMIT";
constexpr const char* kNoLimitText = "NO_LIMIT";
constexpr const char* kStartTimeText = "10909090909090909";
constexpr const char* kNotCollected = "NOT_COLLECTED";

constexpr const char kUnknownFigure[] = "Process metric %s, index %d does not exist";

bool isKnown(int figure) {
    return (figure >= kBaseName && figure <= kDescriptorCount) || (figure >= kPrivateBytes && figure <= kStartTime);
}

unsigned long long u64(long value) { return static_cast<unsigned long long>(value); }

// Wraps.
long long sum(long long a, long long b) {
    return static_cast<long long>(static_cast<unsigned long long>(a) + static_cast<unsigned long long>(b));
}

// Seconds since the start of a process, in 32 bits. Kept: below 0 for one that started behind the reading of uptime.
int elapsedSeconds(unsigned long secondsSinceBoot, unsigned long startTime) {
    const auto start = static_cast<unsigned>(startTime / hertz);
    return static_cast<int>(static_cast<unsigned>(secondsSinceBoot) - start);
}

constexpr std::size_t kElapsedSize = 64;

// A number right-aligned in so many places, with more if it needs them.
char* place(char* at, int number, int places) {
    char digits[16];
    const auto length = std::to_chars(digits, digits + sizeof digits, number).ptr - digits;
    for (; places > length; --places) *at++ = ' ';
    return std::copy_n(digits, length, at);
}

// As "%3dd%2d:%2d:%2d": days, hours, minutes, seconds, without zeros in front.
void elapsedText(int seconds, char (&out)[kElapsedSize]) {
    char* at = place(out, seconds / 86400, 3);
    *at++ = 'd';
    at = place(at, seconds / 3600 % 24, 2);
    *at++ = ':';
    at = place(at, seconds / 60 % 60, 2);
    *at++ = ':';
    *place(at, seconds % 60, 2) = '\0';
}

}  // namespace

struct ProcessQueryClass::Process {
    const procstat& record;
    const char* commandLine;
    const char* fullName;
    const char* baseName;
    CpuPercent cpu;
    int cpuFigure;  // 1 where the table does not show it
    int elapsed;    // seconds
};

// Makes a row of each process that has a command line; one without, as a kernel thread, has none and loses its history.
class ProcessQueryClass::Rows : public ProcVisitor {
  public:
    explicit Rows(ProcessQueryClass& table) : table_(table) {}
    void lookAt(const procstat& record) override {
        TRACE_MESSAGES();
        trace_detail("Looking at process - cmd=%s, cmdline=%s", record.cmd, record.cmdline);
    }
    void visit(const procstat& record, char* commandLine) override {
        table_.addRow(record, commandLine, secondsSinceBoot);
    }

  private:
    ProcessQueryClass& table_;
};

ProcessQueryClass::ProcessQueryClass(const char* app, const char* ag, const char* name, const char* root)
    : ResultsManager(app, ag, VX_PROCESS), name_(name ? name : ""), root_(root) {
    TRACE_FUNCTION();
    if (readLimit()) trace_state("Limiting number of processes to %d by filtering out processes with 0 CPU", limit_);
    numcpus();
}

ProcessQueryClass::ProcessQueryClass(ProcessQueryClass* parent, const char* subnode)
    : ResultsManager(parent, subnode, true), name_(parent->name_), root_(parent->root_) {
    TRACE_FUNCTION();
    if (readLimit()) trace_state("Limiting number of processes to %d", limit_);
}

// Whether a limit is set.
bool ProcessQueryClass::readLimit() {
    const char* text = ZSV1_GetEnv(kLimit);
    if (!text || std::strcmp(text, kNoLimitText) == 0) return false;
    noLimit_ = false;
    limit_ = std::atoi(text);
    return true;
}

void ProcessQueryClass::printResults() { traceResults(ZTR1_FLOW, "Instances and Values for Process class"); }

VXClientClass* ProcessQueryClass::subnodeCopy(const char* subnodeKey, VXClientClassList* /*list*/) {
    return new ProcessQueryClass(this, subnodeKey);
}

void ProcessQueryClass::readColumns() {
    TRACE_MESSAGES();
    if (!columns_.empty()) return;
    for (ListCursor c = getMetricCursor(); c.hasMoreElements(); c.setToNext()) {
        const auto* metric = static_cast<const Metric*>(c.getCurrentElement());
        if (metric->getMetricType() != 0) continue;
        const auto* figure = dynamic_cast<const ProcessQueryMetric*>(metric);
        const int index = figure ? figure->getIndex() : kNoFigure;
        columns_.push_back({metric, index});
        if (isKnown(index)) {
            shown_[index] = true;
        } else {
            trace_error(kUnknownFigure, metric->getQMPVMetricName(), index);
        }
    }
}

bool ProcessQueryClass::showsAny(std::initializer_list<int> figures) const {
    return std::any_of(figures.begin(), figures.end(), [this](int figure) { return shows(figure); });
}

// Which of the process table's figures the columns need; with `traced` also those of the detail traces.
unsigned ProcessQueryClass::figuresToRead(bool traced) const {
    unsigned figures = 0;
    if (showsAny({kVirtualBytes, kVirtualKilobytes, kThreadCount, kResidentKilobytes})) figures |= ProcList::kStatus;
    if (showsAny({kCpuPercent, kUserPercent, kSystemPercent, kPageFaultRate, kElapsedText, kElapsedSeconds})) {
        figures |= ProcList::kStat;
    }
    // The parent stands in both files; without a correction a name can keep the fields of `stat` from being read.
    if (shows(kParentPid) && !(figures & ProcList::kStatus)) {
        figures |= correctionIsOn("proc-times") ? ProcList::kStat : ProcList::kStatus;
    }
    if (shows(kPages)) figures |= ProcList::kStatm;
    if (showsAny({kTotalIORate, kReadRate, kWriteRate})) figures |= ProcList::kIo;
    if (traced) figures |= ProcList::kStat | ProcList::kCmdLine;
    return figures;
}

void ProcessQueryClass::internalCollectData(const char* /*requestId*/) {
    TRACE_FUNCTION();
    readColumns();
    rates_.collectionStarts();
    Rows rows(*this);
    const ProcList processes(figuresToRead(trace_is_on(ZTR1_DETAIL)), root_.c_str(), rows);
    rates_.purgePreviousCpuResults();
}

void ProcessQueryClass::updateResults() {
    const int replaced = getResultInstanceCount();
    ResultsManager::updateResults();
    if (replaced >= kManyRows) malloc_trim(0);
}

void ProcessQueryClass::addRow(const procstat& record, const char* commandLine, unsigned long secondsSinceBoot) {
    char fullName[kFullNameSize];
    Process process{record, commandLine, getFullName(commandLine, fullName), getBaseName(fullName), {}, 1,
                    elapsedSeconds(secondsSinceBoot, record.start_time)};
    if (showsAny({kCpuPercent, kUserPercent, kSystemPercent})) {
        process.cpu = cpuPercent(rates_, record.pid, record.utime, record.stime);
    } else if (showsAny({kTotalIORate, kPageFaultRate, kReadRate, kWriteRate})) {
        rates_.getRateAsPercent(record.pid, ProcessRates::SystemTime, 0);  // says that the process is there
    }
    auto row = std::make_unique<ResultInstance>("", static_cast<int>(columns_.size()));
    for (const Column& column : columns_) row->addMetric(cell(column, process));
    if (noLimit_ || process.cpuFigure > 0) addResultInstance(row.release());
}

ResultMetric* ProcessQueryClass::cell(const Column& column, Process& p) {
    TRACE_MESSAGES();
    const procstat& r = p.record;
    const auto number = [&](auto value) { return new ResultMetric(column.metric, value); };
    const auto text = [&](const char* value) { return new ResultMetric(column.metric, value); };
    const auto rate = [&](ProcessRates::Item item, long long value) {
        return new ResultMetric(column.metric, static_cast<unsigned long long>(rates_.getRateAsPercent(r.pid, item, value)));
    };
    switch (column.figure) {
        case kBaseName: return text(p.baseName);
        case kFullName: return text(p.fullName);
        case kCommandLine: return text(p.commandLine);
        case kPid: return number(r.pid);
        case kParentPid: return number(r.ppid);
        case kVirtualBytes: return number(static_cast<int>(static_cast<unsigned>(r.vm_size) << 10));
        case kVirtualKilobytes: return number(static_cast<unsigned long long>(r.vm_size));
        case kPages: return number(u64(r.statm_size));
        case kCpuPercent:
            p.cpuFigure = p.cpu.cpu;
            return number(p.cpu.cpu);
        case kUserPercent: return number(u64(p.cpu.user));
        case kSystemPercent: return number(p.cpu.system);
        case kTotalIORate: return rate(ProcessRates::TotalIO, sum(r.read_bytes, r.write_bytes));
        case kPageFaultRate: return rate(ProcessRates::PageFaults, static_cast<long long>(r.maj_flt));
        case kThreadCount: return number(u64(r.nlwp));
        case kResidentKilobytes: return number(static_cast<unsigned long long>(r.vm_rss));
        case kDescriptorCount: trace_detail("Setting FD Count to 0!!!!!!!"); return number(0ull);
        case kPrivateBytes: trace_detail("Setting private bytes to 0!!!!!!!"); return number(0ull);
        case kReadRate: return rate(ProcessRates::ReadIO, r.read_bytes);
        case kWriteRate: return rate(ProcessRates::WriteIO, r.write_bytes);
        case kElapsedText: {
            char elapsed[kElapsedSize];
            elapsedText(p.elapsed, elapsed);
            return text(elapsed);
        }
        case kElapsedSeconds: return number(u64(p.elapsed));
        case kStartTime:
            // Kept: every process has the same start time.
            trace_detail("Setting Start Time badly...  - real=%d", static_cast<int>(r.start_time));
            return text(kStartTimeText);
        default:
            trace_detail(kUnknownFigure, column.metric->getQMPVMetricName(), column.figure);
            return column.metric->getRawMetricType() == STRING_DATA ? text(kNotCollected) : number(0);
    }
}
