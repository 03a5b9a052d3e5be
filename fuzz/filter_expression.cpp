// Any bytes as a filter: read, and evaluated twice against a row.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>

#include "host/base/Trace.h"
#include "providers/derived/filter/FilterExpression.h"

namespace {

std::unique_ptr<ResultInstance> rowOf(const FilterExpression& filter) {
    static Metric* const number = [] {
        auto* metric = new Metric;
        metric->setQMPVName("n");
        return metric;
    }();
    auto row = std::make_unique<ResultInstance>("", 0);
    row->addMetric(new ResultMetric(number, 1));
    // Every other name that the filter reads is there.
    bool there = true;
    for (const FilterExpression::Name& name : filter.names()) {
        if (there) row->addMetric(new ResultMetric(name.name.c_str(), name.name.c_str(), STRING_DATA, name.name.c_str()));
        there = !there;
    }
    return row;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    almanac::host::configureTrace("NONE", nullptr);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    const FilterExpression filter(text.c_str());
    const std::size_t length = std::char_traits<char>::length(text.c_str());
    if (!filter.isValid() && (filter.errorText().empty() || filter.errorOffset() > length)) std::abort();
    for (const FilterExpression::Name& name : filter.names()) {
        if (text.compare(name.offset, name.name.size(), name.name) != 0) std::abort();
    }
    PERF_OBJECT_ERROR_CODE code = OBJECT_ACTIVE;
    const std::unique_ptr<ResultInstance> row = rowOf(filter);
    const bool answer = filter.evaluate(row.get(), &code);
    if (answer && !filter.isValid()) std::abort();
    if (code != OBJECT_ACTIVE && code != FILTER_SYNTAX_ERROR) std::abort();
    PERF_OBJECT_ERROR_CODE again = OBJECT_ACTIVE;
    if (filter.evaluate(row.get(), &again) != answer || again != code) std::abort();
    return 0;
}
