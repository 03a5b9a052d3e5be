// Rates and deltas: the second and later collections of a table with one key and five rate columns. Only the computing
// is timed, not the making of the rows.
#include <benchmark/benchmark.h>

#include <string>

#include "collection/ResultsManager.h"

namespace {

constexpr int kRateColumns = 5;

class Source : public ResultsManager {
  public:
    Source() : ResultsManager("BNC", "Bench_Rates", VX_SHELL) {
        add("Name", STRING_DATA, true);
        for (int i = 0; i < kRateColumns; ++i) add(("Rate" + std::to_string(i)).c_str(), RATE_64BIT_DATA, false);
    }
    void addRows(int count, int round) {
        for (int r = 0; r < count; ++r) {
            auto* row = new ResultInstance("", getMetricCount());
            for (Metric* m = getMetricList(); m; m = static_cast<Metric*>(m->getNextElement())) {
                if (m->getIsKey()) {
                    row->addMetric(new ResultMetric(m, ("interface-" + std::to_string(r)).c_str()));
                } else {
                    row->addMetric(new ResultMetric(m, static_cast<long long>(r) * 7 + round * 1000LL));
                }
            }
            addResultInstance(row);
        }
    }
    void internalCollectData(const char*) override {}
    void printResults() override {}
    const char* getPerfObjectName() override { return "bench"; }
    int getPerfObjectStatus() override { return 0; }
    int getPerfErrorCode() override { return 0; }

  private:
    void add(const char* name, RAW_METRIC_TYPE type, bool key) {
        auto* metric = new Metric;
        metric->setQMPVName(name);
        metric->setRawMetricType(type);
        metric->setIsKey(key);
        addMetricObject(metric);
    }
};

void BM_Rates(benchmark::State& state) {
    const int rows = static_cast<int>(state.range(0));
    Source source;
    int round = 0;
    source.addRows(rows, round++);
    source.processRatesDeltas();
    for (auto _ : state) {
        state.PauseTiming();
        source.clearNewResultSet();
        source.addRows(rows, round++);
        state.ResumeTiming();
        source.processRatesDeltas();
    }
    state.SetItemsProcessed(state.iterations() * rows * kRateColumns);
}
BENCHMARK(BM_Rates)->Arg(1000)->Arg(10000)->Arg(100000)->Arg(1000000)->Unit(benchmark::kMillisecond);

}  // namespace
