#include "providers/local/script/ScriptXMLConfigParser.h"

#include <cstring>

#include "foundation/HashMap.h"
#include "foundation/Trace.h"

namespace {

[[maybe_unused]] ScriptXMLConfigParser& scriptParser = *new ScriptXMLConfigParser;

bool is(const char* a, const char* b) { return std::strcmp(a, b) == 0; }

}  // namespace

ScriptXMLConfigParser::ScriptXMLConfigParser() { registerXMLConfigParser("script", this); }

void ScriptXMLConfigParser::startScript(const HashMap* attributes) {
    TRACE_FUNCTION();
    const char* group = getText(attributes, "ag");
    for (const char* required : {"command", "separator", "name"}) {
        if (getText(attributes, required)) continue;
        trace_error("script: attribute %s is missing for attribute group %s; it counts as empty", required, group ? group : "");
    }
    query_ = std::make_unique<ShellQueryClass>(getText(attributes, "app"), group, getText(attributes, "command"),
                                               getText(attributes, "separator"), getText(attributes, "name"),
                                               getBoolean(attributes, "utf8_input"), getBoolean(attributes, "ssh"));
}

void ScriptXMLConfigParser::startElement(const char* name, HashMap* attributes) {
    TRACE_FUNCTION();
    if (is(name, "script")) {
        trace_detail("Tag: %s\n", name);
        startScript(attributes);
    } else if (is(name, "metric")) {
        trace_detail("Tag: %s\n", name);
        if (!query_) return;
        auto metric = std::make_unique<Metric>();
        initializeMetric(metric.get(), attributes);
        query_->addMetricObject(metric.release());
    } else if (is(name, "File")) {
        trace_detail("Tag: %s\n", name);
        if (query_) query_->addCommandFile(getText(attributes, "Name"));
    }
}

void ScriptXMLConfigParser::endElement(const char* name) {
    TRACE_FUNCTION();
    if (!is(name, "script") || !query_ || !getGlobalQueryClassList()) return;
    getGlobalQueryClassList()->addClientClass(query_.release());
}
