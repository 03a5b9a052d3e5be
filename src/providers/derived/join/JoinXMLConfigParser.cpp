#include "providers/derived/join/JoinXMLConfigParser.h"

#include <cstring>

#include "foundation/HashMap.h"
#include "foundation/Trace.h"

namespace {

[[maybe_unused]] JoinXMLConfigParser& joinParser = *new JoinXMLConfigParser;

bool is(const char* a, const char* b) { return std::strcmp(a, b) == 0; }

}  // namespace

JoinXMLConfigParser::JoinXMLConfigParser() { registerXMLConfigParser("join", this); }

void JoinXMLConfigParser::startJoin(const HashMap* attributes) {
    TRACE_FUNCTION();
    const char* group = getText(attributes, "ag");
    const bool both = getBoolean(attributes, "singleton");
    const auto side = [&](const char* name, const char* attribute, const char* singleton) {
        if (!getText(attributes, name)) {
            trace_error("join: attribute %s is missing for attribute group %s; it counts as empty", name, group ? group : "");
        }
        return new JoinQuery(getText(attributes, name), getText(attributes, attribute), both || getBoolean(attributes, singleton));
    };
    JoinQuery* first = side("class1", "class1Attr", "class1Singleton");
    JoinQuery* second = side("class2", "class2Attr", "class2Singleton");
    query_ = std::make_unique<Join2VXClientClasses>(getText(attributes, "app"), group, first, second,
                                                    getGlobalQueryClassList(), getBoolean(attributes, "pure"));
}

void JoinXMLConfigParser::addMetric(const HashMap* attributes) {
    TRACE_FUNCTION();
    std::unique_ptr<Metric> metric;
    if (const char* source = getText(attributes, "ag")) {
        auto ofSource = std::make_unique<JoinQueryMetric>();
        ofSource->init(source);
        metric = std::move(ofSource);
    } else {
        metric = std::make_unique<Metric>();  // for derived attributes; any other gets no value
    }
    initializeMetric(metric.get(), attributes);
    query_->addMetricObject(metric.release());
}

void JoinXMLConfigParser::startElement(const char* name, HashMap* attributes) {
    TRACE_FUNCTION();
    if (is(name, "join")) {
        startJoin(attributes);
    } else if (is(name, "metric") && query_) {
        addMetric(attributes);
    }
}

void JoinXMLConfigParser::endElement(const char* name) {
    TRACE_FUNCTION();
    if (!is(name, "join") || !query_ || !getGlobalQueryClassList()) return;
    getGlobalQueryClassList()->addClientClass(query_.release());
}
