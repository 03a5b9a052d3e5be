// What a local command costs, beside a bare popen, with little and with much memory in the daemon's heap. CPU is the
// process's own: the shell's counts for the shell.
#include <benchmark/benchmark.h>
#include <sys/resource.h>

#include <cstdio>
#include <cstring>
#include <memory>

#include "exec/CommandWithTimeout.h"

namespace {

std::unique_ptr<char[]> heapOf(long megabytes) {
    const std::size_t size = static_cast<std::size_t>(megabytes) << 20;
    std::unique_ptr<char[]> heap(new char[size + 1]);
    std::memset(heap.get(), 1, size + 1);
    return heap;
}

double ownCpuSeconds() {
    rusage used;
    getrusage(RUSAGE_SELF, &used);
    const auto seconds = [](const timeval& t) { return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_usec) / 1e6; };
    return seconds(used.ru_utime) + seconds(used.ru_stime);
}

template <class Run>
void measure(benchmark::State& state, Run run) {
    const auto heap = heapOf(state.range(0));
    const double before = ownCpuSeconds();
    for (auto _ : state) run();
    state.counters["own_cpu_ms"] = (ownCpuSeconds() - before) * 1000 / static_cast<double>(state.iterations());
}

}  // namespace

static void Command(benchmark::State& state) {
    measure(state, [] {
        CommandWithTimeout command("echo a,b,c", 30);
        benchmark::DoNotOptimize(command.runCommand());
    });
}
BENCHMARK(Command)->Arg(1)->Arg(512)->UseRealTime()->Unit(benchmark::kMicrosecond)->Iterations(1000);

static void BarePopen(benchmark::State& state) {
    measure(state, [] {
        FILE* pipe = popen("echo a,b,c", "re");
        char buffer[4096];
        while (std::fread(buffer, 1, sizeof buffer, pipe) > 0) {
        }
        benchmark::DoNotOptimize(pclose(pipe));
    });
}
BENCHMARK(BarePopen)->Arg(1)->Arg(512)->UseRealTime()->Unit(benchmark::kMicrosecond)->Iterations(1000);

static void CommandWithMuchOutput(benchmark::State& state) {
    for (auto _ : state) {
        CommandWithTimeout command("head -c 104857600 /dev/zero", 30);
        benchmark::DoNotOptimize(command.runCommand());
    }
    state.SetBytesProcessed(state.iterations() * 104857600);
}
BENCHMARK(CommandWithMuchOutput)->UseRealTime()->Unit(benchmark::kMillisecond);
