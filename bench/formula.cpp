// Formulas: evaluations by node on a row of ten cells, what the stateful functions cost on many rows, and parsing.
// "nodes" is node evaluations a second, "allocations" those of one evaluation, the cell that is made among them where
// there is one.
#include <benchmark/benchmark.h>

#include <atomic>
#include <cstdlib>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "collection/expression/DerivedCell.h"
#include "collection/expression/DerivedStorage.h"
#include "collection/expression/Evaluation.h"
#include "collection/expression/ExpressionParser.h"

namespace {

std::atomic<long> allocations{0};

}  // namespace

[[gnu::noinline]] void* operator new(std::size_t size) {
    allocations.fetch_add(1, std::memory_order_relaxed);
    if (void* p = std::malloc(size)) return p;
    throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* p) noexcept { std::free(p); }
[[gnu::noinline]] void operator delete(void* p, std::size_t) noexcept { std::free(p); }

namespace {

// A0 to A9: numbers of all kinds, then two texts.
class Row {
  public:
    explicit Row(const char* name = "row") : row(name, 0), metrics(10) {
        for (std::size_t i = 0; i < metrics.size(); ++i) metrics[i].setQMPVName(("A" + std::to_string(i)).c_str());
        for (std::size_t i = 0; i < 8; ++i) {
            switch (i % 4) {
                case 0: row.addMetric(new ResultMetric(&metrics[i], 17)); break;
                case 1: row.addMetric(new ResultMetric(&metrics[i], 1000003LL)); break;
                case 2: row.addMetric(new ResultMetric(&metrics[i], 4000000000ULL)); break;
                default: row.addMetric(new ResultMetric(&metrics[i], 0.25));
            }
        }
        for (std::size_t i = 8; i < 10; ++i) {
            auto* text = new UTF8String;
            text->initFromUTF8String("/dev/mapper/volume-group-of-the-root");
            row.addMetric(new ResultMetric(&metrics[i], text));
        }
    }
    ResultInstance row;
    std::vector<Metric> metrics;
};

std::size_t setFormula(Metric* metric, const std::string& formula) {
    ParsedFormula parsed = parseFormula(formula.c_str());
    const std::size_t nodes = parsed.tree->nodes().size();
    metric->setQMPVName("RESULT");
    metric->setExpression(parsed.tree.release());
    return nodes;
}

void evaluate(benchmark::State& state, const std::string& formula) {
    const Row row;
    Metric metric;
    const std::size_t nodes = setFormula(&metric, formula);
    DerivedStorage storage;
    Evaluation evaluation;
    evaluation.calculate(*metric.getExpression(), metric, row.row, &storage);
    const long before = allocations;
    for (auto _ : state) {
        benchmark::DoNotOptimize(evaluation.calculate(*metric.getExpression(), metric, row.row, &storage).getDouble());
    }
    const auto evaluations = static_cast<double>(state.iterations());
    state.counters["nodes"] = benchmark::Counter(evaluations * static_cast<double>(nodes), benchmark::Counter::kIsRate);
    state.counters["allocations"] = static_cast<double>(allocations - before) / evaluations;
}

std::string flatSum(int terms) {
    std::string formula = "A0";
    for (int i = 1; i < terms; ++i) formula += " + A" + std::to_string(i % 8);
    return formula;
}

}  // namespace

static void Arithmetic(benchmark::State& state) { evaluate(state, "(A0 + A4) * 100.0 / (A3 + 7) - -A7 % 3"); }
BENCHMARK(Arithmetic);

static void Aggregates(benchmark::State& state) { evaluate(state, "max(A0, A1, 3) + average(A3, A7) * stddev(A0, A1, A4)"); }
BENCHMARK(Aggregates);

static void Texts(benchmark::State& state) { evaluate(state, "tokenize(A8, \"/\", \"LAST\") + \":\" + itoa(A1)"); }
BENCHMARK(Texts);

static void Samples(benchmark::State& state) { evaluate(state, "trend(last(A0, 10))"); }
BENCHMARK(Samples);

static void FlatSum(benchmark::State& state) { evaluate(state, flatSum(static_cast<int>(state.range(0)))); }
BENCHMARK(FlatSum)->Arg(10)->Arg(1000)->Arg(100000);

// One derived cell for each of 10,000 rows of names of their own.
static void SamplesOfManyRows(benchmark::State& state) {
    constexpr int kRows = 10000;
    std::vector<std::unique_ptr<Row>> rows;
    for (int i = 0; i < kRows; ++i) rows.push_back(std::make_unique<Row>(("row-" + std::to_string(i)).c_str()));
    Metric metric;
    setFormula(&metric, "trend(last(A0, 10))");
    DerivedStorage storage;
    for (auto _ : state) {
        for (const auto& row : rows) {
            const std::unique_ptr<ResultMetric> cell(computeDerivedCell(&metric, &row->row, &storage));
            benchmark::DoNotOptimize(cell->getMetricValueDouble());
        }
    }
    state.SetItemsProcessed(state.iterations() * kRows);
}
BENCHMARK(SamplesOfManyRows)->Unit(benchmark::kMillisecond);

static void Parse(benchmark::State& state) {
    const std::string formula = flatSum(static_cast<int>(state.range(0)));
    for (auto _ : state) benchmark::DoNotOptimize(parseFormula(formula.c_str()).tree.get());
    state.SetBytesProcessed(state.iterations() * static_cast<long>(formula.size()));
}
BENCHMARK(Parse)->Arg(10)->Arg(100000);
