#include "config/subnodes/ConfigSections.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>

#include "collection/SubnodeDirectory.h"
#include "collection/VXClientClass.h"
#include "config/ConfigFile.h"
#include "config/ConfigMap.h"
#include "foundation/Trace.h"
#include "runtime/reference/AttributeGroupMeta.h"

namespace {

// One change of the file at a time, from parse to write; never taken while configMap's lock is held.
std::mutex& fileChange = *new std::mutex;

std::atomic<unsigned> updateCount{0};

ConfigOpStatus* failed(ConfigOpStatus* status) {
    TRACE_FUNCTION();
    trace_error("%s", status->text);
    return status;
}

ConfigOpStatus* noFile(ConfigOpStatus* status) {
    status->set(CONFIG_NO_FILE, "Configuration file could not be opened.");
    return failed(status);
}

void addProperty(ConfigFile& file, ZCF::ConfigSection target, const char* section, int index, const char* property) {
    TRACE_FUNCTION();
    const char* equals = std::strchr(property, '=');
    if (!equals || equals == property) return;
    const std::string name(property, equals);
    const char* value = equals + 1;
    while (*value == ' ') ++value;
    if (!*value) return;
    const bool secret = file.isPropertyEncrypted(name.c_str());
    if (index != -1) {
        configMap.setSubnodeProperty(section, index, name.c_str(), value, secret);
    } else if (configMap.get(name.c_str())) {
        trace_detail("Property %s already exists, not overwriting it", name.c_str());
        return;
    } else {
        configMap.setEnvProperty(name.c_str(), value, true, secret);
    }
    file.setProperty(target, name.c_str(), value, secret);
}

void setExists(ConfigOpStatus* status, const char* section, const char* id) {
    if (*id) {
        status->set(CONFIG_SECTION_EXISTS, "Section %s:%s already exists.", section, id);
    } else {
        status->set(CONFIG_SECTION_EXISTS, "Section %s already exists.", section);
    }
}

bool isValidId(const char* id) {
    char* filtered = validCharFilter(id);
    const bool valid = *filtered != '\0';
    std::free(filtered);
    return valid;
}

}  // namespace

ConfigOpStatus* addAgentConfigSection(const char* section, const char* id, const char* const* properties) {
    TRACE_FUNCTION();
    auto* status = new ConfigOpStatus;
    if (!id) id = "";
    if (!section || !*section) {
        status->set(CONFIG_NO_SECTION_NAME, "Section name was not specified.");
        return failed(status);
    }
    if (*id && !isValidId(id)) {
        status->set(CONFIG_BAD_SECTION_ID, "Section ID %s is not valid.", id);
        return failed(status);
    }
    std::lock_guard change(fileChange);
    ConfigFile file;
    if (!file.parseConfig() || !file.loadConfigInstance()) return noFile(status);
    if (!file.findSection(section, id).isNull()) {
        setExists(status, section, id);
        return failed(status);
    }
    {
        ConfigMapGuard guard;
        const int index = configMap.addSection(section, id);
        if (index < -1) {  // another ID that is the same once filtered
            setExists(status, section, id);
            return failed(status);
        }
        ZCF::ConfigSection added = file.addSection(section, id);
        for (; properties && *properties; ++properties) addProperty(file, added, section, index, *properties);
    }
    updateSubnodes(section);
    if (!file.writeConfig()) return noFile(status);
    status->set(CONFIG_OK, "Section successfully added.");
    return status;
}

ConfigOpStatus* removeAgentConfigSection(const char* section, const char* id) {
    TRACE_FUNCTION();
    auto* status = new ConfigOpStatus;
    if (!id || !*id) {
        status->set(CONFIG_NO_SECTION_ID, "Section ID not specified.");
        return failed(status);
    }
    std::lock_guard change(fileChange);
    ConfigFile file;
    if (!file.parseConfig() || !file.loadConfigInstance()) return noFile(status);
    std::string writtenId;
    {
        ConfigMapGuard guard;
        char* indexText = configMap.getSubnodeIndex(configMap.get(ConfigMap::productCodeVariable), id, section);
        if (!indexText) {
            status->set(CONFIG_SECTION_NOT_FOUND, "Section %s:%s not found.", section ? section : "", id);
            return failed(status);
        }
        const int index = std::atoi(indexText);
        std::free(indexText);
        const char* asWritten = configMap.getSectionID(section, index);
        writtenId = asWritten ? asWritten : id;
        configMap.removeSection(section, id);
        configMap.removeSubnodeProperties(section, index);
    }
    updateSubnodes(section);
    if (!file.removeSection(section, writtenId.c_str()) || !file.writeConfig()) return noFile(status);
    status->set(CONFIG_OK, "Section successfully removed.");
    return status;
}

void updateSubnodes(const char* section) {
    TRACE_FUNCTION();
    trace_detail("updating subnodes after a change of section %s", section);
    SubnodeDirectory* directory = subnodeDirectory();
    if (!directory || !queryClassList) return;
    SubnodeGuard guard;
    for (ListCursor c = queryClassList->getClassListCursor(); c.hasMoreElements(); c.setToNext()) {
        auto* queryClass = static_cast<VXClientClass*>(c.getCurrentElement());
        const AttributeGroupMeta* meta = queryClass->getAttributeGroupMeta();
        if (!meta || !meta->isDiscoveryAttributeGroup()) continue;
        char id[16];
        std::snprintf(id, sizeof id, "ta%06x", updateCount++ & 0xFFFFFFu);
        queryClass->collectData(id);
        directory->discoveryAttributeGroupWasUpdated(queryClass);
    }
}
