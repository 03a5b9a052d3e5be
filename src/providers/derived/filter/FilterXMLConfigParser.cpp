#include "providers/derived/filter/FilterXMLConfigParser.h"

#include <cstring>

#include "foundation/HashMap.h"
#include "foundation/Trace.h"

namespace {

[[maybe_unused]] FilterXMLConfigParser& filterParser = *new FilterXMLConfigParser;

bool is(const char* a, const char* b) { return std::strcmp(a, b) == 0; }

}  // namespace

FilterXMLConfigParser::FilterXMLConfigParser() { registerXMLConfigParser("filter", this); }

void FilterXMLConfigParser::startFilter(const HashMap* attributes) {
    TRACE_FUNCTION();
    const char* group = getText(attributes, "ag");
    for (const char* required : {"raw_attribute_group_name", "filter"}) {
        if (getText(attributes, required)) continue;
        trace_error("filter: attribute %s is missing for attribute group %s; it counts as empty", required, group ? group : "");
    }
    query_ = std::make_unique<FilterQueryClass>(getText(attributes, "app"), group,
                                                getText(attributes, "raw_attribute_group_name"), getText(attributes, "filter"));
}

void FilterXMLConfigParser::addMetric(const HashMap* attributes) {
    std::unique_ptr<Metric> metric;
    if (const char* source = getText(attributes, "metric_name")) {
        auto ofSource = std::make_unique<FilterQueryMetric>();
        ofSource->init(source);
        metric = std::move(ofSource);
    } else {
        metric = std::make_unique<Metric>();  // for derived attributes; any other gets no value
    }
    initializeMetric(metric.get(), attributes);
    query_->addMetricObject(metric.release());
}

void FilterXMLConfigParser::startElement(const char* name, HashMap* attributes) {
    TRACE_FUNCTION();
    if (is(name, "filter")) {
        startFilter(attributes);
    } else if (is(name, "metric") && query_) {
        addMetric(attributes);
    }
}

void FilterXMLConfigParser::endElement(const char* name) {
    TRACE_FUNCTION();
    if (!is(name, "filter") || !query_ || !getGlobalQueryClassList()) return;
    getGlobalQueryClassList()->addClientClass(query_.release());
}
