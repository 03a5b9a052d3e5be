// One collection of the availability table over a root of proc(5) in a scratch directory with 10,000 processes. Filters: 0 each
// asks for a process that does not run; 1 each matches one process; 2 all have the base name of a hundredth of the processes, and
// each one of so many values of an argument. Snapshot is the process table and the command lines alone, which no collection can
// do without.
#include <benchmark/benchmark.h>
#include <malloc.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "providers/local/availability/UnixAvailabilityList.h"

namespace {

constexpr int kProcesses = 10000;
constexpr int kSameName = 100;  // one process of so many is a "server"

class FakeRoot {
  public:
    FakeRoot() {
        std::string name = (std::filesystem::temp_directory_path() / "almanac-bench-XXXXXX").string();
        path_ = ::mkdtemp(name.data());
        write("/uptime", "1000.00 5.00\n");
        for (int pid = 1; pid <= kProcesses; ++pid) addProcess(pid);
    }
    ~FakeRoot() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    const char* path() const { return path_.c_str(); }

  private:
    void write(const std::string& file, const std::string& text) const { std::ofstream(path_ + file, std::ios::binary) << text; }
    void addProcess(int pid) const {
        const std::string number = std::to_string(pid);
        const std::string folder = "/" + number;
        ::mkdir((path_ + folder).c_str(), 0700);
        const bool server = pid % kSameName == 0;
        const std::string name = server ? "server" : "worker" + number;
        write(folder + "/stat", number + " (" + name + ") S 1 1 1 0 -1 4194304 100 0 0 0 " + number +
                                    " 7 0 0 20 0 4 0 4711 8192000 512 18446744073709551615 1 1 0 0 0 0 0 0 0 0 0 0 17 1 0 0 0 0 0\n");
        write(folder + "/status", "Name:\t" + name + "\nState:\tS (sleeping)\nPid:\t" + number +
                                      "\nPPid:\t1\nUid:\t0\t0\t0\t0\nGid:\t0\t0\t0\t0\nFDSize:\t64\nVmSize:\t    8000 kB\nVmLck:\t 0 kB\n"
                                      "VmRSS:\t    2048 kB\nVmData:\t 100 kB\nVmStk:\t 132 kB\nVmExe:\t 10 kB\nVmLib:\t 1500 kB\nThreads:\t4\n");
        std::string commandLine = "/usr/lib/application/bin/" + name + " --instance " + std::to_string(pid / kSameName) +
                                  " --configuration /etc/application/" + number + ".conf --port=" + number + " ";
        for (char& c : commandLine) c = c == ' ' ? '\0' : c;
        write(folder + "/cmdline", commandLine);
    }

    std::string path_;
};

const FakeRoot& root() {
    static const FakeRoot it;
    return it;
}

enum Shape { Down, OneEach, SameName };

void addFilters(AvailabilityList& list, long shape, long count) {
    for (long i = 1; i <= count; ++i) {
        const std::string number = std::to_string(i);
        const std::string name = shape == Down ? "missing" + number : shape == OneEach ? "worker" + number + "1" : "server";
        ProcessFilter filter;
        filter.applicationComponent = "Component";
        filter.baseName = name.c_str();
        filter.useArgWithValue = shape == SameName;
        filter.arg = "--instance";
        filter.value = number.c_str();
        list.addProcess(filter);
    }
}

}  // namespace

static void Snapshot(benchmark::State& state) {
    const char* const path = root().path();
    std::vector<char> buffer(kCommandLineSize);
    std::size_t bytes = 0;
    for (auto _ : state) {
        ProcList processes(ProcList::kFullRecord, ProcList::kStat | ProcList::kStatus, path);
        while (const procstat* process = processes.getNextEntry()) {
            if (processes.getCommandLine(process, buffer.data())) bytes += static_cast<unsigned char>(buffer[0]);
        }
    }
    benchmark::DoNotOptimize(bytes);
}
BENCHMARK(Snapshot)->Unit(benchmark::kMillisecond);

static void Collection(benchmark::State& state) {
    UnixAvailabilityList list("BNC", root().path());
    addFilters(list, state.range(0), state.range(1));
    const std::size_t before = mallinfo2().uordblks;
    for (auto _ : state) list.collectData("bench");
    const int rows = list.getResultInstanceCount();
    if (rows < state.range(1)) state.SkipWithError("rows are missing");
    state.counters["rows"] = rows;
    state.counters["kept_bytes"] = static_cast<double>(mallinfo2().uordblks - before);
}
BENCHMARK(Collection)
    ->ArgNames({"shape", "filters"})
    ->ArgsProduct({{Down, OneEach, SameName}, {1, 100}})
    ->Args({Down, 10000})
    ->Unit(benchmark::kMillisecond);

// The matching alone: 10,000 processes in memory against filters of base names that none has, and against "*".
static void Matching(benchmark::State& state) {
    UnixAvailabilityList list("BNC", "/no/such/root");
    if (state.range(0) == 0) {
        addFilters(list, Down, state.range(1));
    } else {
        ProcessFilter all;
        all.applicationComponent = "All";
        all.baseName = "*";
        for (long i = 0; i < state.range(1); ++i) list.addProcess(all);
    }
    FilterIndex index(list.firstProcessFilter());
    std::vector<std::string> names;
    for (int i = 0; i < kProcesses; ++i) names.push_back("worker" + std::to_string(i));
    ProcessText text;
    std::size_t matches = 0;
    for (auto _ : state) {
        for (const std::string& name : names) {
            text.set(name.c_str(), name.c_str(), name.c_str());
            matches += index.matching(text).size();
        }
    }
    benchmark::DoNotOptimize(matches);
}
BENCHMARK(Matching)
    ->ArgNames({"wildcards", "filters"})
    ->Args({0, 1})
    ->Args({0, 100})
    ->Args({0, 10000})
    ->Args({1, 1})
    ->Args({1, 10})
    ->Unit(benchmark::kMicrosecond);
