// The pool and the refresh thread: the cost of putting a class back into the schedule, of one job through the pool, and
// of a pool with many scheduled classes, none of which is due or all of which fall due over a minute.
#include <benchmark/benchmark.h>

#include <sys/resource.h>

#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "collection/ResultsManager.h"
#include "collection/schedule/RefreshThread.h"
#include "collection/schedule/ThreadPool.h"

namespace {

class Source : public ResultsManager {
  public:
    explicit Source(int number) : ResultsManager("BNC", ("Bench" + std::to_string(number)).c_str(), VX_SHELL) {}
    void internalCollectData(const char*) override {}
    void printResults() override {}
    const char* getPerfObjectName() override { return "bench"; }
    int getPerfObjectStatus() override { return 0; }
    int getPerfErrorCode() override { return 0; }
};

// The agent's list with so many classes of one refresh interval.
class Classes {
  public:
    Classes(int count, int interval) {
        queryClassList = &list_;
        for (int i = 0; i < count; ++i) {
            sources_.push_back(std::make_unique<Source>(i));
            sources_.back()->setRefreshInterval(interval);
            list_.addClientClass(sources_.back().get());
        }
    }
    ~Classes() {
        for (auto& s : sources_) list_.removeClientClass(s.get());
        queryClassList = nullptr;
    }
    Source* at(std::size_t i) { return sources_[i].get(); }

  private:
    VXClientClassList list_;
    std::vector<std::unique_ptr<Source>> sources_;
};

double cpuSeconds() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    const auto seconds = [](const timeval& t) { return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_usec) / 1e6; };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

void BM_BackIntoTheSchedule(benchmark::State& state) {
    Classes classes(static_cast<int>(state.range(0)), 60);
    for (auto _ : state) {
        state.PauseTiming();
        RefreshThread refresh(0);
        state.ResumeTiming();
        for (int i = 0; i < 1000; ++i) refresh.addToSchedQueue(classes.at(static_cast<std::size_t>(i) % 100));
    }
    state.SetItemsProcessed(state.iterations() * 1000);
}
BENCHMARK(BM_BackIntoTheSchedule)->Arg(100)->Arg(1000)->Arg(10000);

void BM_JobThroughThePool(benchmark::State& state) {
    Source source(0);
    ThreadPool pool(2);
    int submitted = 0;
    for (auto _ : state) {
        for (int i = 0; i < 1000; ++i) pool.submitJob(new CollectDataJob(&source, "bench"));
        submitted += 1000;
        while (pool.getTPStatistics().totalJobs < submitted) std::this_thread::yield();
    }
    state.SetItemsProcessed(submitted);
}
BENCHMARK(BM_JobThroughThePool)->UseRealTime();

// Five seconds of 10,000 classes with this interval on a pool of eight; the counter is the share of one core.
void BM_ScheduledClasses(benchmark::State& state) {
    constexpr int kSeconds = 5;
    Classes classes(10000, static_cast<int>(state.range(0)));
    for (std::size_t i = 0; i < 10000; ++i) classes.at(i)->setRefreshInterval(static_cast<int>(state.range(0)) + static_cast<int>(i % 60));
    for (auto _ : state) {
        ThreadPool pool(8);
        threadPool = &pool;
        RefreshThread refresh(0);
        if (refresh.start() != 0) state.SkipWithError("no thread");
        const double before = cpuSeconds();
        std::this_thread::sleep_for(std::chrono::seconds(kSeconds));
        state.counters["cpu_percent"] = (cpuSeconds() - before) / kSeconds * 100.0;
        state.counters["jobs"] = pool.getTPStatistics().totalJobs;
        refresh.stop(10000);
        pool.stop(10000);
        threadPool = nullptr;
    }
}
BENCHMARK(BM_ScheduledClasses)->Arg(3600)->Arg(1)->Iterations(1)->UseRealTime()->Unit(benchmark::kMillisecond);

}  // namespace
