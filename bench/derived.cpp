// Derived tables over big ones: a join on a unique key that shows all attributes of both sides (10 or 20 together), and
// a filter of three comparisons over a table of 10 that shows four, each at n, 10n and 100n rows;
// and a filter's text of n comparisons from parse to the end of its tree.
#include <benchmark/benchmark.h>

#include <memory>
#include <string>

#include "providers/derived/filter/FilterQueryClass.h"
#include "providers/derived/join/Join2VXClientClasses.h"

namespace {

// A table whose rows stand ready: a text key, a text of three values and eight numbers.
class Table : public ResultsManager {
  public:
    Table(const char* group, int rows, int numbers, bool backwards) : ResultsManager("ZZ", group, VX_SHELL) {
        add("Key", STRING_DATA);
        add("State", STRING_DATA);
        for (int i = 0; i < numbers; ++i) add((std::string(group) + "_" + std::to_string(i)).c_str(), NUMERIC_64BIT_DATA);
        for (int i = 0; i < rows; ++i) addResultInstanceDirectly(makeRow(backwards ? rows - 1 - i : i));
        updateStartTime();
        updateLastTime();  // and so not collected again
    }
    void internalCollectData(const char*) override {}
    void printResults() override {}
    const char* getPerfObjectName() override { return ""; }
    int getPerfObjectStatus() override { return 0; }
    int getPerfErrorCode() override { return 0; }
    bool isExpired() override { return false; }

  private:
    void add(const char* name, RAW_METRIC_TYPE type) {
        auto* metric = new Metric;
        metric->setQMPVName(name);
        metric->setMetricName(name);
        metric->setRawMetricType(type);
        metric->setIsKey(std::string(name) == "Key");
        addMetricObject(metric);
    }
    ResultInstance* makeRow(int number) {
        static constexpr const char* kStates[] = {"running", "stopped", "failed"};
        auto* row = new ResultInstance("", getMetricCount());
        for (ListCursor c = getMetricCursor(); c.hasMoreElements(); c.setToNext()) {
            const auto* metric = static_cast<const Metric*>(c.getCurrentElement());
            const std::string name = metric->getQMPVMetricName();
            if (name == "Key") {
                row->addMetric(new ResultMetric(metric, ("key" + std::to_string(number)).c_str()));
            } else if (name == "State") {
                row->addMetric(new ResultMetric(metric, kStates[number % 3]));
            } else {
                row->addMetric(new ResultMetric(metric, static_cast<long long>(number)));
            }
        }
        return row;
    }
};

void collectUntilDone(benchmark::State& state, ResultsManager& derived, int expected) {
    for (auto _ : state) {
        derived.internalCollectData("bench");
        state.PauseTiming();
        derived.updateResults();
        if (derived.getResultInstanceCount() != expected) state.SkipWithError("rows are missing");
        derived.clearResultSet();
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void Join(benchmark::State& state) {
    const int rows = static_cast<int>(state.range(0)), numbers = static_cast<int>(state.range(1)) / 2 - 2;
    VXClientClassList list;
    Table left("Left", rows, numbers, false), right("Right", rows, numbers, true);
    list.addClientClass(&left);
    list.addClientClass(&right);
    Join2VXClientClasses join("ZZ", "Joined", new JoinQuery("Left", "Key", false), new JoinQuery("Right", "Key", false), &list, false);
    collectUntilDone(state, join, rows);
}
BENCHMARK(Join)->ArgNames({"rows", "columns"})->ArgsProduct({{1000, 10000, 100000}, {10, 20}})->Unit(benchmark::kMillisecond);

void Filter(benchmark::State& state) {
    const int rows = static_cast<int>(state.range(0));
    VXClientClassList list;
    Table table("Raw", rows, 8, false);
    list.addClientClass(&table);
    queryClassList = &list;
    FilterQueryClass filter("ZZ", "Filtered", "Raw", "State NE 'stopped' AND State EQ 'failed' AND Key NE 'key2'");
    for (const char* name : {"Key", "State", "Raw_0", "Raw_7"}) {
        auto* metric = new FilterQueryMetric;
        metric->init(name);
        metric->setQMPVName(name);
        filter.addMetricObject(metric);
    }
    collectUntilDone(state, filter, rows / 3 - 1);
    queryClassList = nullptr;
}
BENCHMARK(Filter)->RangeMultiplier(10)->Range(1000, 100000)->Unit(benchmark::kMillisecond);

void FilterText(benchmark::State& state) {
    std::string text = "a EQ 'x'";
    for (long i = 1; i < state.range(0); ++i) text += " AND a EQ 'x'";
    for (auto _ : state) benchmark::DoNotOptimize(FilterExpression(text.c_str()).isValid());
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(FilterText)->RangeMultiplier(10)->Range(1000, 100000)->Unit(benchmark::kMillisecond);

}  // namespace
