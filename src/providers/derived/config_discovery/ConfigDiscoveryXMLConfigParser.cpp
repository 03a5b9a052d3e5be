#include "providers/derived/config_discovery/ConfigDiscoveryXMLConfigParser.h"

#include <cstring>

#include "foundation/HashMap.h"
#include "foundation/Trace.h"

namespace {

constexpr const char* kSection = "config_discovery";

[[maybe_unused]] ConfigDiscoveryXMLConfigParser& configDiscoveryParser = *new ConfigDiscoveryXMLConfigParser;

}  // namespace

ConfigDiscoveryXMLConfigParser::ConfigDiscoveryXMLConfigParser() { registerXMLConfigParser(kSection, this); }

void ConfigDiscoveryXMLConfigParser::startElement(const char* name, HashMap* attributes) {
    TRACE_FUNCTION();
    if (std::strcmp(name, kSection) == 0) {
        const char* group = getText(attributes, "ag");
        for (const char* required : {"ag", "subnode_type", "subnode_affinity_value"}) {
            if (getText(attributes, required)) continue;
            trace_error("config_discovery: attribute %s is missing for attribute group %s; it counts as empty", required,
                        group ? group : "");
        }
        query_ = std::make_unique<ConfigDiscoveryQueryClass>(getText(attributes, "app"), group,
                                                             getText(attributes, "subnode_type"),
                                                             getText(attributes, "subnode_affinity_value"));
    } else if (std::strcmp(name, "metric") == 0 && query_) {
        auto metric = std::make_unique<Metric>();
        initializeMetric(metric.get(), attributes);
        query_->addMetricObject(metric.release());
    }
}

void ConfigDiscoveryXMLConfigParser::endElement(const char* name) {
    TRACE_FUNCTION();
    if (std::strcmp(name, kSection) != 0 || !query_ || !getGlobalQueryClassList()) return;
    getGlobalQueryClassList()->addClientClass(query_.release());
}
