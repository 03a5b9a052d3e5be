// A row to compute on, and the value of a derived metric as text: "i 5" 32-bit, "l 5" 64-bit, "u 5" unsigned, "d 0.5"
// double, "s text" plain text, "t text" UTF-8 text.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "collection/expression/DerivedCell.h"
#include "collection/expression/DerivedStorage.h"
#include "collection/expression/ExpressionParser.h"
#include "collection/rows/ResultMetric.h"
#include "host/base/Trace.h"

namespace almanac::test {

// Selects what is traced while it lives, and keeps the lines.
class Traces {
  public:
    explicit Traces(const char* selection) {
        testing::internal::CaptureStderr();
        almanac::host::configureTrace(selection, nullptr);
    }
    ~Traces() { text(); }
    std::string text() {
        if (!done_) {
            done_ = true;
            text_ = testing::internal::GetCapturedStderr();
            almanac::host::configureTrace(before_, nullptr);
        }
        return text_;
    }
    // How often a message was traced.
    int count(const std::string& message) {
        int found = 0;
        const std::string all = text();
        for (std::size_t at = all.find(message); at != std::string::npos; at = all.find(message, at + 1)) ++found;
        return found;
    }

  private:
    std::string before_ = almanac::host::traceSpec();
    std::string text_;
    bool done_ = false;
};

inline std::string shown(const ResultMetric* cell) {
    if (!cell) return "(none)";
    char text[64] = "";
    switch (cell->form()) {
        case FORM_INT: std::snprintf(text, sizeof text, "i %d", cell->getMetricValue()); break;
        case FORM_INT64: std::snprintf(text, sizeof text, "l %lld", cell->getMetricValue64()); break;
        case FORM_UINT64: std::snprintf(text, sizeof text, "u %llu", cell->getMetricValueU64()); break;
        case FORM_DOUBLE: std::snprintf(text, sizeof text, "d %.15g", cell->getMetricValueDouble()); break;
        case FORM_STRING: return std::string("s ") + cell->getStringValue();
        case FORM_UTF8: return std::string("t ") + cell->getUTF8StringData()->getUTF8Value();
    }
    return text;
}

class FormulaRow {
  public:
    explicit FormulaRow(const char* name = "row") : row(name, 0) {}

    template <class Value>
    FormulaRow& with(const char* name, Value value, const char* map = nullptr) {
        metrics_.push_back(std::make_unique<Metric>());
        metrics_.back()->setQMPVName(name);
        metrics_.back()->setMapSourceData(map);
        row.addMetric(new ResultMetric(metrics_.back().get(), value));
        return *this;
    }
    FormulaRow& withUtf8(const char* name, const char* value) {
        auto* text = new UTF8String;
        text->initFromUTF8String(value);
        return with(name, text);
    }
    std::string compute(Metric& metric) {
        const std::unique_ptr<ResultMetric> cell(computeDerivedCell(&metric, &row, &storage));
        return shown(cell.get());
    }
    // Of a formula; "syntax: …" if it has none.
    std::string operator()(const std::string& formula, RAW_METRIC_TYPE type = NUMERIC_DATA) {
        ParsedFormula parsed = parseFormula(formula.c_str());
        if (!parsed.tree) return "syntax: " + parsed.message;
        Metric metric;
        metric.setQMPVName("RESULT");
        metric.setRawMetricType(type);
        metric.setExpression(parsed.tree.release());
        return compute(metric);
    }

    ResultInstance row;
    DerivedStorage storage;

  private:
    std::vector<std::unique_ptr<Metric>> metrics_;
};

}  // namespace almanac::test
