// loadAgentConfig: from the instance's file into the flat map and the environment.
#include <cstring>
#include <string>

#include "config/ConfigFile.h"
#include "config/ConfigMap.h"
#include "foundation/Trace.h"
#include "platform/zsb.h"
#include "runtime/reference/Application.h"

namespace {

void loadEntries(const ZCF::ConfigSection& section, int index) {
    TRACE_FUNCTION();
    const std::string sectionName = section.getName().c_str();
    const auto names = section.getEntryNames();
    for (int i = 0; i < names.size(); ++i) {
        const char* name = names[i].c_str();
        ZCF::String read;
        if (!section.getEntryValue(names[i], &read)) {
            trace_error("Error getting value for property: %s\n", name);
            continue;
        }
        std::string value = read.c_str();
        bool secret = false;
        if (std::strncmp(value.c_str(), ENCRYPTED_PREFIX, std::strlen(ENCRYPTED_PREFIX)) == 0) {
            trace_detail("Unscrambling property: %s", name);
            if (!decryptConfigValue(read.c_str(), &value)) {
                trace_error("Error getting value for property: %s\n", name);
                continue;
            }
            secret = true;
        }
        if (index == -1) {
            configMap.setEnvProperty(name, value.c_str(), true, secret);
        } else {
            configMap.setSubnodeProperty(sectionName.c_str(), index, name, value.c_str(), secret);
        }
    }
}

void loadSections(ConfigFile& file) {
    TRACE_FUNCTION();
    const std::string fileInstance = file.getInstanceName();
    if (!fileInstance.empty()) {
        configMap.setEnvProperty((std::string(longProductCode) + "_INSTANCE_NAME").c_str(), fileInstance.c_str(), true, false);
    }
    for (int i = 0; i < repeatableSections.getCount(); ++i) {
        const char* type = static_cast<const char*>(repeatableSections.get(i));
        if (configMap.getHighestSubnodeIndex(type) >= 0) continue;
        configMap.setHighestSubnodeIndex(type, 0);
        trace_detail("repeatable section type %s identified", type);
    }
    const int count = file.getNumSections();
    for (int i = 0; i < count; ++i) {
        const ZCF::ConfigSection section = file.getSection(i);
        const std::string name = section.getName().c_str();
        const std::string id = section.getID().c_str();
        const int index = configMap.addSection(name.c_str(), id.c_str());
        if (index == -3) {
            trace_error("section ID %s is not valid, skipping", id.c_str());
        } else if (index == -2) {
            trace_error("section %s ID %s is a duplicate, skipping", name.c_str(), id.c_str());
        } else {
            loadEntries(section, index);
        }
    }
}

}  // namespace

void loadAgentConfig() {
    TRACE_FUNCTION();
    ConfigFile file;
    file.parseConfig();
    ConfigMapGuard guard;
    configMap.setEnvProperty(ConfigMap::productCodeVariable, longProductCode, true, false);
    // Makes a setting of the host's own configuration file visible in the plain environment.
    const char* reference = ZSV1_GetEnv("AGENT_REF_FILE");
    const char* name = "AGENT_REF_FILE";
    if (!reference || !*reference) {
        name = "CDP_CONFIG_FILE";
        reference = ZSV1_GetEnv(name);
    }
    if (reference && *reference) configMap.setEnvProperty(name, reference, false, false);
    if (file.isLoaded()) loadSections(file);
    configMap.trace();
}
