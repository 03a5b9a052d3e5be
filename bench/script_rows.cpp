// The output of a script into rows: 200,000 lines of 10 fields, and what a cell costs in memory. "mixed" is what
// scripts print (three short texts, seven numbers), "texts" and "long_texts" are texts alone.
#include <benchmark/benchmark.h>
#include <malloc.h>

#include <memory>
#include <string>
#include <vector>

#include "foundation/Locale.h"
#include "providers/local/script/ScriptRows.h"

namespace {

constexpr int kLines = 200000;
constexpr int kFields = 10;

enum Shape { Mixed, Texts, LongTexts };

std::string outputOf(Shape shape) {
    std::string output;
    for (int line = 0; line < kLines; ++line) {
        for (int field = 0; field < kFields; ++field) {
            if (field > 0) output += ',';
            if (shape == LongTexts) {
                output += "/var/lib/texts/" + std::to_string(line);
            } else if (shape == Texts || field < 3) {
                output += "device" + std::to_string(line);
            } else {
                output += std::to_string(line * 1000L + field);
            }
        }
        output += '\n';
    }
    return output;
}

std::vector<std::unique_ptr<Metric>> metricsOf(Shape shape) {
    std::vector<std::unique_ptr<Metric>> metrics;
    for (int field = 0; field < kFields; ++field) {
        auto metric = std::make_unique<Metric>();
        metric->setQMPVName(("Attribute_" + std::to_string(field)).c_str());
        metric->setRawMetricType(shape != Mixed || field < 3 ? STRING_DATA : NUMERIC_DATA);
        metric->setIsKey(field == 0);
        if (field > 0) metrics.back()->setNextElement(metric.get());
        metrics.push_back(std::move(metric));
    }
    return metrics;
}

}  // namespace

static void ScriptOutput(benchmark::State& state) {
    const auto shape = static_cast<Shape>(state.range(0));
    const std::string output = outputOf(shape);
    const auto metrics = metricsOf(shape);
    applicationLocale = ZLC2_LocaleFor("UTF-8");
    std::vector<std::unique_ptr<ResultInstance>> rows;
    rows.reserve(kLines);
    double bytesPerCell = 0;
    for (auto _ : state) {
        const std::size_t before = mallinfo2().uordblks;
        ScriptRows reader(metrics[0].get(), kFields, ",", false);
        const int count = reader.read(OutputLines(output), [&](ResultInstance* row) { rows.emplace_back(row); });
        if (count != kLines) state.SkipWithError("rows are missing");
        state.PauseTiming();
        bytesPerCell = static_cast<double>(mallinfo2().uordblks - before) / (static_cast<double>(kLines) * kFields);
        rows.clear();
        state.ResumeTiming();
    }
    state.counters["bytes_per_cell"] = bytesPerCell;
    state.SetItemsProcessed(state.iterations() * kLines);
}
BENCHMARK(ScriptOutput)->ArgName("shape")->Arg(Mixed)->Arg(Texts)->Arg(LongTexts)->Unit(benchmark::kMillisecond);
