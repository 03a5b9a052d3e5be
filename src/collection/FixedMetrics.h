// The metrics of a table whose shape is the agent's own, not the reference file's.
#pragma once

class AttributeGroupMeta;
class ResultsManager;

// One possible column: metric name, the attribute's name in the metadata, raw type (RAW_METRIC_TYPE), size in bytes.
struct FixedMetric {
    const char* name;    // null ends a list
    const char* column;  // null: not asked of the metadata
    int rawType;
    int size;
};

enum class FirstMetric { Key, Plain };

// Adds a metric, with the name as both names, for each row of the list whose column the metadata declares, in the order
// of the list; without metadata none. Where a row has no column the metadata plays no part.
void addFixedMetrics(ResultsManager* query, const FixedMetric* metrics, const AttributeGroupMeta* meta, FirstMetric first);
