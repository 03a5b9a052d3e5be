#include "providers/derived/rollup/RollupXMLConfigParser.h"

#include <cstring>

#include "foundation/HashMap.h"
#include "foundation/Trace.h"

namespace {

[[maybe_unused]] RollupXMLConfigParser& rollupParser = *new RollupXMLConfigParser;

bool is(const char* a, const char* b) { return std::strcmp(a, b) == 0; }

}  // namespace

RollupXMLConfigParser::RollupXMLConfigParser() { registerXMLConfigParser("rollup", this); }

void RollupXMLConfigParser::startElement(const char* name, HashMap* attributes) {
    TRACE_FUNCTION();
    if (is(name, "rollup")) {
        const char* group = getText(attributes, "ag");
        for (const char* required : {"rollupAg", "rollupAttr"}) {
            if (getText(attributes, required)) continue;
            trace_error("rollup: attribute %s is missing for attribute group %s; it counts as empty", required, group ? group : "");
        }
        query_ = std::make_unique<RollupClass>(getText(attributes, "app"), group, getText(attributes, "rollupAg"),
                                               getText(attributes, "rollupAttr"), getGlobalQueryClassList());
    } else if (is(name, "metric") && query_) {
        auto metric = std::make_unique<Metric>();
        initializeMetric(metric.get(), attributes);
        query_->addMetricObject(metric.release());
    }
}

void RollupXMLConfigParser::endElement(const char* name) {
    TRACE_FUNCTION();
    if (!is(name, "rollup") || !query_ || !getGlobalQueryClassList()) return;
    getGlobalQueryClassList()->addClientClass(query_.release());
}
