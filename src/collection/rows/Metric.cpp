#include "collection/rows/Metric.h"

#include <cstdlib>
#include <cstring>
#include <vector>

#include "foundation/FatalExit.h"
#include "foundation/StringTokenizer.h"
#include "foundation/Trace.h"

namespace {

void replace(char*& held, const char* text) {
    char* copy = text ? strdup(text) : nullptr;
    std::free(held);
    held = copy;
}

bool eq(int a, int b) { return a == b; }
bool ne(int a, int b) { return a != b; }
bool lt(int a, int b) { return a < b; }
bool gt(int a, int b) { return a > b; }
bool lte(int a, int b) { return a <= b; }
bool gte(int a, int b) { return a >= b; }

enum { kMapFatal = -4191, kMapEntryFatal = -4192, kMapMemoryFatal = -30 };

}  // namespace

bool (*const Metric::comparisonFunctions[6])(int, int) = {eq, ne, lt, gt, lte, gte};

ParsedMap parseMapText(const char* text) {
    ParsedMap map;
    std::vector<int> numbers;
    StringTokenizer tokens(text, " ", true);
    while (const char* token = tokens.next()) {
        if (*token) numbers.push_back(std::atoi(token));
    }
    if (numbers.empty()) {
        map.fault = ParsedMap::Empty;
        return map;
    }
    map.defaultValue = numbers[0];
    const std::size_t triples = (numbers.size() - 1) / 3;
    for (std::size_t i = 0; i <= triples && map.fault == ParsedMap::None; ++i) {
        const std::size_t at = 1 + 3 * i;
        if (at >= numbers.size()) break;
        if (at + 2 >= numbers.size() || numbers[at] < 0 || numbers[at] > 5) map.fault = ParsedMap::BadEntry;
    }
    if (map.fault != ParsedMap::None || triples == 0) return map;
    map.values = static_cast<map_value*>(std::malloc(triples * sizeof(map_value)));
    if (!map.values) {
        map.fault = ParsedMap::NoMemory;
        return map;
    }
    for (std::size_t i = 0; i < triples; ++i) {
        map.values[i] = map_value{numbers[1 + 3 * i], numbers[2 + 3 * i], numbers[3 + 3 * i]};
    }
    map.count = static_cast<int>(triples);
    return map;
}

Metric::Metric() = default;

Metric::~Metric() {
    deleteMappedValues();
    std::free(mapSource_);
    std::free(metricName_);
    std::free(attributeName_);
    std::free(arg1_);
    std::free(arg2_);
    std::free(expressionFormula_);
}

void Metric::setQMPVName(const char* name) {
    TRACE_FUNCTION();
    if (!name) trace_error("error: Passed in null qmpv metric name. exiting\n");
    replace(attributeName_, name ? name : "Unknown QMPV Name");
}

void Metric::setMetricName(const char* name) {
    TRACE_FUNCTION();
    if (!name) trace_error("Error: Passed in null metric name\n");
    replace(metricName_, name ? name : "Unknown Metric Name");
}

void Metric::setExpressionFormula(const char* formula) { replace(expressionFormula_, formula); }

void Metric::setComputation(const char* arg1, char op, const char* arg2) {
    replace(arg1_, arg1);
    replace(arg2_, arg2);
    op_ = op;
}

void Metric::setMapSourceData(const char* text) {
    TRACE_FUNCTION();
    if (!text) return;
    if (rawMetricType_ != NUMERIC_DATA) {
        trace_error("Error: metric is not of numeric type: %s %d\n", attributeName_ ? attributeName_ : "", rawMetricType_);
        return;
    }
    parseMapArgs(text);
    replace(mapSource_, text);
}

void Metric::parseMapArgs(const char* text) {
    TRACE_FUNCTION();
    deleteMappedValues();
    const ParsedMap map = parseMapText(text);
    if (map.fault == ParsedMap::Empty) {
        trace_error("Error in reading Mapped Data input: %s", text);
        exit_with_notification(kMapFatal);
    }
    if (map.fault == ParsedMap::BadEntry) {
        trace_error("Error in converting map data input: %s", text);
        exit_with_notification(kMapEntryFatal);
    }
    if (map.fault == ParsedMap::NoMemory) {
        trace_error("Could not allocate memory for mapped values");
        exit_with_notification(kMapMemoryFatal);
    }
    defaultMappedValue_ = map.defaultValue;
    mappedValues_ = map.values;
    mappedValueCount_ = map.count;
}

int Metric::findMappedValue(int value) const {
    TRACE_MESSAGES();
    if (rawMetricType_ != NUMERIC_DATA || !mapSource_) {
        trace_detail("error: calling findMappedValue on a non-MAP_DATA item\n");
        return defaultMappedValue_;
    }
    for (int i = 0; i < mappedValueCount_; ++i) {
        if (comparisonFunctions[0](mappedValues_[i].value, value)) return mappedValues_[i].mapped;
    }
    return defaultMappedValue_;
}

void Metric::deleteMappedValues() {
    std::free(mappedValues_);
    mappedValues_ = nullptr;
    mappedValueCount_ = 0;
}
