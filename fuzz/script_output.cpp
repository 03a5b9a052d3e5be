// Any bytes as the output of a script. First byte: number of metrics and whether texts are UTF-8; second: length of the
// separator, which follows.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "foundation/Locale.h"
#include "host/base/Trace.h"
#include "providers/local/script/ScriptRows.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    almanac::host::configureTrace("NONE", nullptr);
    applicationLocale = ZLC2_LocaleFor("UTF-8");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 2) return 0;
    const int count = 1 + (data[0] & 7);
    const std::size_t separatorSize = std::min<std::size_t>(data[1] & 3, size - 2);
    const std::string separator(reinterpret_cast<const char*>(data) + 2, separatorSize);
    const std::string output(reinterpret_cast<const char*>(data) + 2 + separatorSize, size - 2 - separatorSize);

    std::vector<std::unique_ptr<Metric>> metrics;
    for (int i = 0; i < count; ++i) {
        metrics.push_back(std::make_unique<Metric>());
        metrics.back()->setQMPVName(std::to_string(i).c_str());
        metrics.back()->setRawMetricType(i % 2 ? NUMERIC_DATA : STRING_DATA);
        metrics.back()->setIsKey(i < 2);
        if (i > 0) metrics[metrics.size() - 2]->setNextElement(metrics.back().get());
    }
    int taken = 0;
    ScriptRows rows(metrics[0].get(), count, separator.c_str(), data[0] & 8);
    const int told = rows.read(OutputLines(output), [&](ResultInstance* row) {
        const std::unique_ptr<ResultInstance> owned(row);
        if (row->getActualMetricCount() != count) std::abort();
        ++taken;
    });
    if (taken != told) std::abort();
    return 0;
}
