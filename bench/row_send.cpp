// The whole row path on one core: cached rows of cells into the row buffer, through the sink into a batch, and out as
// JSON.
#include <benchmark/benchmark.h>

#include <memory>
#include <string>

#include "collection/ResultsManager.h"
#include "collection/RowSink.h"
#include "host/model/RowWriter.h"
#include "platform/zhb.h"
#include "runtime/reference/AttributeGroupMeta.h"

namespace {

namespace host = almanac::host;

constexpr int kColumns = 20;

class Source : public ResultsManager {
  public:
    explicit Source(int rows) : ResultsManager("BNC", "Bench", VX_SHELL), rows_(rows) {
        for (int i = 0; i < kColumns; ++i) {
            auto* metric = new Metric;
            metric->setQMPVName(("M" + std::to_string(i)).c_str());
            metric->setRawMetricType(i % 3 == 0 ? STRING_DATA : NUMERIC_DATA);
            metric->setIsKey(i == 0);
            addMetricObject(metric);
        }
    }
    void internalCollectData(const char*) override {
        for (int r = 0; r < rows_; ++r) {
            auto* row = new ResultInstance("", kColumns);
            int i = 0;
            for (Metric* m = getMetricList(); m; m = static_cast<Metric*>(m->getNextElement()), ++i) {
                if (m->getRawMetricType() == STRING_DATA) {
                    auto* text = new UTF8String;
                    text->initFromUTF8String(("/usr/lib/unit-" + std::to_string(r)).c_str());
                    row->addMetric(new ResultMetric(m, text));
                } else if (i % 2 == 0) {
                    row->addMetric(new ResultMetric(m, static_cast<long long>(r) * 1000003));
                } else {
                    row->addMetric(new ResultMetric(m, r));
                }
            }
            addResultInstance(row);
        }
    }
    void printResults() override {}
    const char* getPerfObjectName() override { return "bench"; }
    int getPerfObjectStatus() override { return 0; }
    int getPerfErrorCode() override { return 0; }

  private:
    int rows_;
};

std::unique_ptr<AttributeGroupMeta> metadata() {
    auto meta = std::make_unique<AttributeGroupMeta>("BNC", "Bench");
    List attributes;
    attributes.add(new AttributeMeta("ORIGINNODE", nullptr, 1, 32, 0));
    int offset = 32;
    const auto place = [&](const char* name, int type, int length) {
        auto* attribute = new AttributeMeta(name, nullptr, type, length);
        placeAttribute(attribute, "", &offset);
        attributes.add(attribute);
    };
    place("Timestamp", 1, 16);
    for (int i = 0; i < kColumns; ++i) {
        const bool text = i % 3 == 0;
        place(("M" + std::to_string(i)).c_str(), text ? 2 : i % 2 == 0 ? 7 : 0, text ? 32 : i % 2 == 0 ? 8 : 4);
    }
    meta->setRowSize(offset);
    meta->updateColumns(attributes);
    return meta;
}

std::shared_ptr<const host::TableLayout> layoutOf(const AttributeGroupMeta& meta) {
    auto layout = std::make_shared<host::TableLayout>();
    layout->name = meta.tableName();
    for (int i = 0; i < meta.noOfColumns(); ++i) {
        const AttributeMeta* a = meta.columnAt(i);
        host::Column column;
        column.name = a->name();
        column.offset = static_cast<std::uint32_t>(a->offset());
        column.length = static_cast<std::uint32_t>(a->length());
        column.type = a->isText() ? HBX_UTF8 : a->length() == 8 ? HBX_INT64 : HBX_INT32;
        if (!a->isText()) column.kind = a->length() == 8 ? host::ColumnKind::Int64 : host::ColumnKind::Int32;
        layout->columns.push_back(column);
    }
    layout->rowSize = static_cast<std::uint32_t>(meta.rowSize());
    return layout;
}

class BatchSink : public RowSink {
  public:
    BatchSink(AttributeGroupMeta* meta, std::shared_ptr<const host::TableLayout> layout) : meta_(meta), batch(std::move(layout)) {}
    int AddData(char* row, int size) override {
        batch.append(row, static_cast<std::size_t>(size));
        return 0;
    }
    AttributeGroupMeta* attributeGroupMeta() override { return meta_; }

  private:
    AttributeGroupMeta* meta_;

  public:
    host::Batch batch;
};

void cachedRowsToJson(benchmark::State& state) {
    const auto meta = metadata();
    const auto layout = layoutOf(*meta);
    const int rows = static_cast<int>(state.range(0));
    Source source(rows);
    source.collectData("bench");
    const host::RowWriter writer(*layout, {});
    for (auto _ : state) {
        BatchSink sink(meta.get(), layout);
        source.sendDataToHBX(&sink, "node");
        std::string text;
        writer.appendRows(&text, sink.batch, host::RowFormat::Json);
        benchmark::DoNotOptimize(text.data());
    }
    state.counters["cells/s"] = benchmark::Counter(static_cast<double>(rows) * (kColumns + 2), benchmark::Counter::kIsIterationInvariantRate);
}
BENCHMARK(cachedRowsToJson)->Arg(100)->Arg(10000)->Unit(benchmark::kMillisecond);

}  // namespace
