// One collection of a process table over the machine's own processes and so many sleeping ones (0: what is there), beside a bare loop that
// opens, reads and closes the same files ("bare"). Columns: 0 names and numbers, 1 what `ps` shows of use and memory,
// 2 sixteen figures out of all files, 3 every figure there is: beyond sixteen columns a row keeps an index of its cells.
// Corrections are on.
#include <benchmark/benchmark.h>
#include <dirent.h>
#include <fcntl.h>
#include <malloc.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "foundation/Corrections.h"
#include "platform/zsb.h"
#include "providers/local/process/ProcessQueryClass.h"

namespace {

// Sleeping children, kept from one benchmark to the next; they end with this process.
class Sleepers {
  public:
    ~Sleepers() { resize(0); }
    void resize(std::size_t count) {
        const pid_t parent = getpid();
        while (pids_.size() < count) {
            const pid_t pid = fork();
            if (pid == 0) {
                prctl(PR_SET_PDEATHSIG, SIGKILL);
                if (getppid() == parent) pause();
                _exit(0);
            }
            if (pid < 0) {
                std::perror("fork");
                break;
            }
            pids_.push_back(pid);
        }
        while (pids_.size() > count) {
            kill(pids_.back(), SIGKILL);
            waitpid(pids_.back(), nullptr, 0);
            pids_.pop_back();
        }
    }

  private:
    std::vector<pid_t> pids_;
};

Sleepers sleepers;

struct Shape {
    std::vector<int> figures;
    std::vector<const char*> files;  // read for them
};

const Shape& shapeOf(long number) {
    static const Shape shapes[] = {
        {{kBaseName, kCommandLine, kPid}, {"cmdline"}},
        {{kPid, kParentPid, kCommandLine, kCpuPercent, kUserPercent, kSystemPercent, kVirtualKilobytes, kResidentKilobytes,
          kThreadCount, kPageFaultRate, kElapsedText, kElapsedSeconds},
         {"stat", "status", "cmdline"}},
        {{kBaseName, kCommandLine, kPid, kParentPid, kVirtualKilobytes, kPages, kCpuPercent, kUserPercent, kSystemPercent,
          kTotalIORate, kPageFaultRate, kThreadCount, kResidentKilobytes, kReadRate, kWriteRate, kElapsedSeconds},
         {"stat", "statm", "status", "io", "cmdline"}},
        {{kBaseName, kFullName, kCommandLine, kPid, kParentPid, kVirtualBytes, kVirtualKilobytes, kPages, kCpuPercent,
          kUserPercent, kSystemPercent, kTotalIORate, kPageFaultRate, kThreadCount, kResidentKilobytes, kDescriptorCount,
          kPrivateBytes, kReadRate, kWriteRate, kElapsedText, kElapsedSeconds, kStartTime},
         {"stat", "statm", "status", "io", "cmdline"}},
    };
    return shapes[number];
}

class Table : public ProcessQueryClass {
  public:
    explicit Table(const Shape& shape) : ProcessQueryClass("ZZ", "Processes", "table") {
        for (const int figure : shape.figures) {
            const std::string name = "Figure_" + std::to_string(figure);
            auto* metric = new ProcessQueryMetric(name.c_str(), figure);
            metric->setQMPVName(name.c_str());
            metric->setMetricName(name.c_str());
            metric->setIsKey(figure == kPid);
            addMetricObject(metric);
        }
    }
};

int bareLoop(const Shape& shape) {
    static char buffer[32768];
    int processes = 0;
    DIR* const directory = opendir("/proc");
    while (const dirent* entry = directory ? readdir(directory) : nullptr) {
        if (entry->d_name[0] < '0' || entry->d_name[0] > '9') continue;
        for (const char* file : shape.files) {
            char path[64];
            std::snprintf(path, sizeof path, "/proc/%.20s/%s", entry->d_name, file);
            const int descriptor = open(path, O_RDONLY);
            if (descriptor < 0) continue;
            benchmark::DoNotOptimize(read(descriptor, buffer, sizeof buffer));
            close(descriptor);
        }
        ++processes;
    }
    if (directory) closedir(directory);
    return processes;
}

void report(benchmark::State& state, int processes) {
    state.counters["processes"] = processes;
    state.counters["each"] = benchmark::Counter(static_cast<double>(state.iterations()) * processes,
                                                benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

}  // namespace

static void Bare(benchmark::State& state) {
    sleepers.resize(static_cast<std::size_t>(state.range(1)));
    int processes = 0;
    for (auto _ : state) processes = bareLoop(shapeOf(state.range(0)));
    report(state, processes);
}

static void Collection(benchmark::State& state) {
    sleepers.resize(static_cast<std::size_t>(state.range(1)));
    ZSV1_PutEnv("CDP_CORRECTIONS=all");
    reloadCorrections();
    const std::size_t before = mallinfo2().uordblks;
    Table table(shapeOf(state.range(0)));
    for (auto _ : state) table.collectData("bench");
    if (table.getResultInstanceCount() < state.range(1)) state.SkipWithError("rows are missing");
    report(state, table.getResultInstanceCount());
    state.counters["kept_bytes"] = static_cast<double>(mallinfo2().uordblks - before);
}

// Side by side for each shape and number, so that the machine's moods meet both.
static const bool registered = [] {
    for (const long count : {0, 100, 1000, 2000, 10000}) {
        for (const long shape : {0, 1, 2, 3}) {
            benchmark::RegisterBenchmark("Bare", Bare)->ArgNames({"columns", "sleepers"})->Args({shape, count})->Unit(benchmark::kMillisecond);
            benchmark::RegisterBenchmark("Collection", Collection)->ArgNames({"columns", "sleepers"})->Args({shape, count})->Unit(benchmark::kMillisecond);
        }
    }
    return true;
}();
