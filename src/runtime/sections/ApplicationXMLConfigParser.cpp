#include "runtime/sections/ApplicationXMLConfigParser.h"

#include <cstring>
#include <string>

#include "config/ConfigMap.h"
#include "foundation/HashMap.h"
#include "foundation/Trace.h"
#include "platform/zsb.h"
#include "runtime/reference/Application.h"

namespace {

ApplicationXMLConfigParser& applicationParser = *new ApplicationXMLConfigParser;
AgentEnvironmentXMLConfigParser& environmentParser = *new AgentEnvironmentXMLConfigParser;
RuntimeConfigXMLConfigParser& runtimeConfigParser = *new RuntimeConfigXMLConfigParser;

bool is(const char* a, const char* b) { return std::strcmp(a, b) == 0; }

void take(ZBT::String& target, const HashMap* attributes, const char* name) {
    const char* value = XMLConfigParser::getText(attributes, name);
    target.copy(value ? value : "");
}

void readTexts(const HashMap* attributes) {
    take(applicationName, attributes, "name");
    take(nodeType, attributes, "nodeType");
    take(hostName, attributes, "hostName");
    take(hostType, attributes, "hostType");
    take(affinity, attributes, "affinity");
    take(agentVersion, attributes, "agentVersion");
    take(version, attributes, "version");
    take(serviceName, attributes, "service");
    take(internalAgentVersion, attributes, "internalAgentVersion");
    setProductCodes(applicationName.c_str());
}

}  // namespace

ApplicationXMLConfigParser::ApplicationXMLConfigParser() { registerXMLConfigParser("appl", this); }

void ApplicationXMLConfigParser::startElement(const char* name, HashMap* attributes) {
    TRACE_FUNCTION();
    if (!is(name, "appl")) return;
    readTexts(attributes);
    const std::string instance = instanceName.c_str();
    if (!instance.empty()) {
        ZSV1_PutEnv(("AGHBX_SUBSYSTEM_ID=" + instance).c_str());
        serviceName.append("_");
        serviceName.append(instance.c_str());
        trace_detail("Returning service name = %s\n", serviceName.c_str());
    }
    const ZBT::String* texts[] = {&applicationName, &nodeType,    &affinity,    &agentVersion,
                                  &version,         &serviceName, &instanceName};
    for (int i = 0; i < 7; ++i) agentInfo[i] = texts[i]->c_str();
    loadAgentConfig();
}

AgentEnvironmentXMLConfigParser::AgentEnvironmentXMLConfigParser() { registerXMLConfigParser("env_variable", this); }

void AgentEnvironmentXMLConfigParser::startElement(const char* name, HashMap* attributes) {
    if (is(name, "env_variable")) loadAgentEnvironmentVariable(getText(attributes, "name"));
}

RuntimeConfigXMLConfigParser::RuntimeConfigXMLConfigParser() { registerXMLConfigParser("repeatable_section", this); }

void RuntimeConfigXMLConfigParser::startElement(const char* name, HashMap* attributes) {
    TRACE_FUNCTION();
    const char* section = getText(attributes, "name");
    if (!is(name, "repeatable_section") || !section) return;
    repeatableSections.add(strdup(section));
    trace_detail("Found repeatable section %s", section);
    if (!applicationName.empty()) {
        trace_error("repeatable_section %s stands behind appl, which has loaded the configuration already", section);
    }
}
