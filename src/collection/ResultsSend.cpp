// Where a row becomes bytes.
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <vector>

#include "collection/RowSink.h"
#include "collection/ResultsManager.h"
#include "foundation/DisplayHint.h"
#include "foundation/Trace.h"
#include "runtime/reference/AttributeGroupMeta.h"

long long scaledToInteger(double value, int scale) {
    static constexpr double kPowers[] = {1, 1e1, 1e2, 1e3, 1e4, 1e5, 1e6, 1e7, 1e8, 1e9, 1e10, 1e11, 1e12};
    const bool tabled = scale >= 0 && scale < static_cast<int>(sizeof kPowers / sizeof kPowers[0]);
    double scaled = value * (tabled ? kPowers[scale] : std::pow(10.0, scale));
    if (std::isnan(scaled)) return 0;
    scaled += scaled < 0 ? -0.5 : 0.5;
    if (scaled >= 9223372036854775808.0) return std::numeric_limits<long long>::max();
    if (scaled < -9223372036854775808.0) return std::numeric_limits<long long>::min();
    return static_cast<long long>(scaled);
}

bool ResultsManager::rowIsComplete(const ResultInstance* row) const {
    TRACE_MESSAGES();
    if (!skipIncompleteRows_ || row->getExpectedMetricCount() == row->getActualMetricCount()) return true;
    trace_error("Expected %d metrics and got %d.  Skipping row.", row->getExpectedMetricCount(),
                row->getActualMetricCount());
    return false;
}

void ResultsManager::writeCell(char* row, const AttributeMeta* attribute, const Metric* metric, const ResultMetric* cell,
                               HintUse hints) {
    TRACE_MESSAGES();
    switch (cell->form()) {
        case FORM_INT:
            putInt(row, attribute, cell->getMetricValue());
            break;
        case FORM_INT64:
        case FORM_UINT64:
            putInt64(row, attribute, cell->getMetricValue64());
            break;
        case FORM_DOUBLE:
            putInt64(row, attribute, scaledToInteger(cell->getMetricValueDouble(), metric->getScale()));
            break;
        case FORM_UTF8:
            putUTF8String(row, attribute, cell->getUTF8StringData());
            break;
        case FORM_STRING: {
            const char* text = cell->getStringValue();
            if (hints == HintUse::Ignore || !attribute->hint() || !text || !*text) {
                putString(row, attribute, text, true);
                break;
            }
            trace_detail("Processing display hint %s for value %s", attribute->hint(), text);
            char* shown = DisplayHint::stringFromHint(attribute->hint(), text, static_cast<int>(std::strlen(text)));
            putString(row, attribute, shown, true);
            std::free(shown);
            break;
        }
    }
}

void ResultsManager::writeRow(char* row, const AttributeGroupMeta* meta, const ResultInstance* instance,
                              const char* originNode, const char* timestamp, HintUse hints) {
    TRACE_MESSAGES();
    const int attributes = meta->noOfAttributes();
    int column = 0;
    if (column < attributes) putString(row, meta->attrInfo(column++), originNode, false);
    if (hasTimestampColumn_ && column < attributes) putString(row, meta->attrInfo(column++), timestamp, false);
    if (returnsInstanceName_ && column < attributes) {
        putString(row, meta->attrInfo(column++), instance->getInstanceName(), false);
    }
    // Kept: cells match metrics by position alone, collected ones in the chain, derived ones in their own list.
    const ResultMetric* nextCollected = instance->firstCell();
    ListIterator nextDerived = instance->getDerivedIterator();
    for (int i = 0; i < orderedMetrics_->getCount(); ++i) {
        const auto* metric = static_cast<const Metric*>(orderedMetrics_->get(i));
        const ResultMetric* cell = nullptr;
        if (metric->isDerived()) {
            trace_detail("sending derived metric %s", metric->getQMPVMetricName());
            if (nextDerived.hasNext()) cell = static_cast<const ResultMetric*>(nextDerived.next());
        } else {
            trace_detail("sending metric %s", metric->getQMPVMetricName());
            cell = nextCollected;
            if (cell) nextCollected = nextCell(cell);
        }
        if (metric->getIsHidden()) {
            trace_detail("Metric %s is hidden", metric->getQMPVMetricName());
        } else if (!cell) {
            trace_detail("Metric %s is missing", metric->getQMPVMetricName());
        } else if (column >= attributes) {
            trace_error("Metric %s has no attribute in table %s; the row ends here", metric->getQMPVMetricName(),
                        meta->tableName());
            break;
        } else {
            writeCell(row, meta->attrInfo(column++), metric, cell, hints);
        }
    }
}

bool ResultsManager::sendDataToHBX(RowSink* agent, const char* originNode) {
    TRACE_FUNCTION();
    if (!sendingEnabled_) return true;
    const AttributeGroupMeta* meta = getAttrGroupMeta(agent);
    if (!meta) return true;
    std::lock_guard guard(resultsMutex_);
    // Kept: one buffer for all rows, zero at first and never cleared between rows, so a column that a row does not
    // write holds the row before's bytes.
    std::vector<char> row(static_cast<std::size_t>(meta->rowSize()) + 1, '\0');
    char timestamp[32];
    getTimeStamp(timestamp);
    for (const ResultInstance* instance = current_.first(); instance; instance = nextRow(instance)) {
        if (!rowIsComplete(instance)) continue;
        const char* own = isPureEventBased() ? instance->getTimestamp() : nullptr;
        writeRow(row.data(), meta, instance, originNode, own ? own : timestamp, HintUse::Apply);
        sendRowToHBX(agent, row.data(), meta->rowSize());
    }
    return true;
}
