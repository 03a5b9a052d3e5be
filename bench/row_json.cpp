// From row buffers to text: cells a second on one core, and a large table as a whole.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstring>

#include "host/model/RowWriter.h"
#include "platform/zhb.h"

namespace {

using almanac::host::Batch;
using almanac::host::Column;
using almanac::host::ColumnKind;
using almanac::host::RowFormat;
using almanac::host::RowWriter;
using almanac::host::TableLayout;

// 20 columns as a real table has them: a third texts, the rest numbers of both widths, some with decimals.
std::shared_ptr<const TableLayout> twentyColumns() {
    auto layout = std::make_shared<TableLayout>();
    layout->name = "BENCH";
    for (int i = 0; i < 20; ++i) {
        Column column;
        column.name = "Column_" + std::to_string(i);
        column.offset = layout->rowSize;
        if (i % 3 == 0) {
            column.length = 32;
            column.type = HBX_UTF8;
        } else if (i % 3 == 1) {
            column.length = 4;
            column.type = HBX_INT32;
            column.kind = ColumnKind::Int32;
            column.decimals = i % 2 ? 2 : 0;
        } else {
            column.length = 8;
            column.type = HBX_INT64;
            column.kind = ColumnKind::Int64;
        }
        layout->rowSize += column.length;
        layout->columns.push_back(column);
    }
    return layout;
}

Batch filled(std::size_t rows) {
    const auto layout = twentyColumns();
    Batch batch(layout);
    std::vector<char> row(layout->rowSize, ' ');
    std::uint64_t state = 88172645463325252ULL;
    for (std::size_t r = 0; r < rows; ++r) {
        for (const Column& column : layout->columns) {
            state ^= state << 13, state ^= state >> 7, state ^= state << 17;
            const auto number = static_cast<std::int64_t>(state >> (column.length == 4 ? 40 : 20));
            if (column.kind == ColumnKind::Text) {
                const std::string text = "/usr/lib/unit-" + std::to_string(number % 100000);
                std::memset(row.data() + column.offset, ' ', column.length);
                std::memcpy(row.data() + column.offset, text.data(), text.size());
            } else {
                std::memcpy(row.data() + column.offset, &number, column.length);
            }
        }
        batch.append(row.data(), row.size());
    }
    return batch;
}

void rowsToText(benchmark::State& state, RowFormat format) {
    const Batch batch = filled(static_cast<std::size_t>(state.range(0)));
    const RowWriter writer(*batch.layout(), {});
    std::size_t bytes = 0;
    for (auto _ : state) {
        std::string out;
        writer.appendRows(&out, batch, format);
        bytes += out.size();
        benchmark::DoNotOptimize(out.data());
    }
    state.counters["cells/s"] = benchmark::Counter(
        static_cast<double>(state.iterations()) * 20.0 * static_cast<double>(batch.count()),
        benchmark::Counter::kIsRate);
    state.SetBytesProcessed(static_cast<std::int64_t>(bytes));
}
BENCHMARK_CAPTURE(rowsToText, json, RowFormat::Json)->Arg(10000)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(rowsToText, ndjson, RowFormat::Ndjson)->Arg(10000)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(rowsToText, csv, RowFormat::Csv)->Arg(10000)->Unit(benchmark::kMillisecond);

// Rows into a batch, as InsertRow copies them.
void rowsIntoBatch(benchmark::State& state) {
    const Batch source = filled(10000);
    for (auto _ : state) {
        Batch batch(source.sharedLayout());
        for (std::size_t i = 0; i < source.count(); ++i)
            batch.append(source.row(i), source.layout()->rowSize);
        benchmark::DoNotOptimize(batch.row(0));
    }
    state.counters["cells/s"] =
        benchmark::Counter(static_cast<double>(state.iterations()) * 200000.0, benchmark::Counter::kIsRate);
}
BENCHMARK(rowsIntoBatch)->Unit(benchmark::kMillisecond);

}  // namespace
