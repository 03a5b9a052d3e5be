#include "collection/QueryClassXMLConfigParser.h"

#include <cstring>

#include "foundation/HashMap.h"
#include "foundation/Trace.h"

QueryClassXMLConfigParser::QueryClassXMLConfigParser(const char* section) : section_(section) {
    registerXMLConfigParser(section, this);
}

Metric* QueryClassXMLConfigParser::makeMetric(const HashMap*) { return new Metric; }

void QueryClassXMLConfigParser::startOther(const char*, const HashMap*, VXClientClass*) {}

void QueryClassXMLConfigParser::require(const HashMap* attributes, std::initializer_list<const char*> names) const {
    TRACE_FUNCTION();
    const char* group = getText(attributes, "ag");
    for (const char* name : names) {
        if (getText(attributes, name)) continue;
        trace_error("%s: attribute %s is missing for attribute group %s; it counts as empty", section_, name, group ? group : "");
    }
}

void QueryClassXMLConfigParser::startElement(const char* name, HashMap* attributes) {
    TRACE_FUNCTION();
    trace_detail("Tag: %s\n", name);
    if (std::strcmp(name, section_) == 0) {
        query_.reset(makeQueryClass(attributes));
    } else if (!query_) {
        return;
    } else if (std::strcmp(name, "metric") == 0) {
        std::unique_ptr<Metric> metric(makeMetric(attributes));
        initializeMetric(metric.get(), attributes);
        query_->addMetricObject(metric.release());
    } else {
        startOther(name, attributes, query_.get());
    }
}

void QueryClassXMLConfigParser::endElement(const char* name) {
    TRACE_FUNCTION();
    if (std::strcmp(name, section_) != 0 || !query_ || !getGlobalQueryClassList()) return;
    getGlobalQueryClassList()->addClientClass(query_.release());
}
