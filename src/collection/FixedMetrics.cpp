#include "collection/FixedMetrics.h"

#include "collection/ResultsManager.h"
#include "runtime/reference/AttributeGroupMeta.h"

void addFixedMetrics(ResultsManager* query, const FixedMetric* metrics, const AttributeGroupMeta* meta, FirstMetric first) {
    for (const FixedMetric* m = metrics; m->name; ++m) {
        if (m->column && (!meta || !meta->findAttribute(m->column))) continue;
        auto* metric = new Metric;
        metric->setQMPVName(m->name);
        metric->setMetricName(m->name);
        metric->setRawMetricType(static_cast<RAW_METRIC_TYPE>(m->rawType));
        metric->setSize(m->size);
        metric->setIsKey(first == FirstMetric::Key && query->getMetricCount() == 0);
        query->addMetricObject(metric);
    }
}
