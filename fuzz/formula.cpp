// A formula of any bytes: parsed, evaluated twice on a row with cells of every form under each kind of metric, destroyed.
// The first byte chooses the metric's raw type.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "collection/expression/DerivedCell.h"
#include "collection/expression/DerivedStorage.h"
#include "collection/expression/ExpressionParser.h"

namespace {

class Row {
  public:
    Row() : row("name|1", 0) {
        add<0>("A", 2147483647);
        add<1>("B", 9223372036854775807LL);
        add<2>("C", 18446744073709551615ULL);
        add<3>("D", -1.5e300);
        add<4>("E", "local text");
        auto* text = new UTF8String;
        text->initFromUTF8String("a,b;\xC3\xA9,,d");
        add<5>("F", text);
    }
    ResultInstance row;

  private:
    template <int Index, class Value>
    void add(const char* name, Value value) {
        metrics_[Index].setQMPVName(name);
        row.addMetric(new ResultMetric(&metrics_[Index], value));
    }
    Metric metrics_[6];
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 1) return 0;
    const std::string formula(reinterpret_cast<const char*>(data) + 1, size - 1);
    ParsedFormula parsed = parseFormula(formula.c_str());
    const std::size_t length = std::strlen(formula.c_str());
    if (!parsed.tree == parsed.message.empty()) std::abort();
    if (parsed.stopOffset < 0 || static_cast<std::size_t>(parsed.stopOffset) > length) std::abort();
    if (parsed.expressionColumn < 1 || static_cast<std::size_t>(parsed.expressionColumn) > length + 1) std::abort();
    if (!parsed.tree) return 0;
    static const Row row;
    Metric metric;
    metric.setQMPVName("RESULT");
    metric.setRawMetricType(static_cast<RAW_METRIC_TYPE>(data[0] % 13));
    metric.setExpression(parsed.tree.release());
    DerivedStorage storage;
    for (int i = 0; i < 2; ++i) {
        const std::unique_ptr<ResultMetric> cell(computeDerivedCell(&metric, &row.row, &storage));
        if (!cell) std::abort();
        if (cell->isUTF8String() && static_cast<int>(std::strlen(cell->getUTF8StringData()->getUTF8Value())) !=
                                        cell->getUTF8StringData()->getLength()) {
            std::abort();
        }
    }
    return 0;
}
