#include "config/subnodes/ConfigSections.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <vector>

#include "collection/SubnodeDirectory.h"
#include "config/ConfigFile.h"
#include "config/ConfigMap.h"
#include "config/subnodes/DiscoveryPass.h"
#include "foundation/Trace.h"

namespace {

// One change at a time, of file and map together. configMap's lock is taken under it and never the other way round; the
// subnode lock is not taken under it.
std::mutex& fileChange = *new std::mutex;

std::atomic<unsigned> updateCount{0};

struct Property {
    std::string name;
    std::string value;
    bool secret;
};

ConfigOpStatus* failed(ConfigOpStatus* status) {
    TRACE_FUNCTION();
    trace_error("%s", status->text);
    return status;
}

ConfigOpStatus* noFile(ConfigOpStatus* status) {
    status->set(CONFIG_NO_FILE, "Configuration file could not be opened.");
    return failed(status);
}

bool readProperty(const ConfigFile& file, const char* text, Property* property) {
    const char* equals = std::strchr(text, '=');
    if (!equals || equals == text) return false;
    property->name.assign(text, equals);
    const char* value = equals + 1;
    while (*value == ' ') ++value;
    property->value = value;
    property->secret = file.isPropertyEncrypted(property->name.c_str());
    return *value != '\0';
}

// Writes the properties into the new section of the file; the result is what the map is to take.
std::vector<Property> writeProperties(ConfigFile& file, ZCF::ConfigSection target, bool plain,
                                      const char* const* properties) {
    TRACE_FUNCTION();
    std::vector<Property> written;
    for (; properties && *properties; ++properties) {
        Property property;
        if (!readProperty(file, *properties, &property)) continue;
        const char* name = property.name.c_str();
        const auto isSame = [&](const Property& other) { return other.name == property.name; };
        if (plain && (configMap.get(name) || std::any_of(written.begin(), written.end(), isSame))) {
            trace_detail("Property %s already exists, not overwriting it", name);
        } else if (!file.setProperty(target, name, property.value.c_str(), property.secret)) {
            trace_error("Property %s cannot be written to the configuration file, it is left out", name);
        } else {
            written.push_back(std::move(property));
        }
    }
    return written;
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

// The index of a subnode section, 0 if there is none.
int indexOf(const char* section, const char* id) {
    char* text = configMap.getSubnodeIndex(configMap.get(ConfigMap::productCodeVariable), id, section);
    const int index = text ? std::atoi(text) : 0;
    std::free(text);
    return index;
}

// The file first: what it does not take leaves no trace in the map. Map and file agree again before the next change.
bool addToFileAndMap(const char* section, const char* id, const char* const* properties, ConfigOpStatus* status) {
    const std::lock_guard change(fileChange);
    ConfigFile file;
    if (!file.parseConfig() || !file.loadConfigInstance()) return noFile(status), false;
    const bool inFile = !file.findSection(section, id).isNull();
    std::vector<Property> written;
    {
        ConfigMapGuard guard;
        // Another ID that is the same once filtered exists as well.
        if (inFile || (*id && indexOf(section, id) > 0)) return setExists(status, section, id), failed(status), false;
        const bool plain = !*id && configMap.getHighestSubnodeIndex(section) < 0;
        written = writeProperties(file, file.addSection(section, id), plain, properties);
    }
    if (!file.writeConfig()) return noFile(status), false;
    ConfigMapGuard guard;
    const int index = configMap.addSection(section, id);
    for (const Property& property : written) {
        if (index == -1) {
            configMap.setEnvProperty(property.name.c_str(), property.value.c_str(), true, property.secret);
        } else {
            configMap.setSubnodeProperty(section, index, property.name.c_str(), property.value.c_str(), property.secret);
        }
    }
    return true;
}

bool removeFromFileAndMap(const char* section, const char* id, ConfigOpStatus* status) {
    const std::lock_guard change(fileChange);
    ConfigFile file;
    if (!file.parseConfig() || !file.loadConfigInstance()) return noFile(status), false;
    int index = 0;
    std::string writtenId = id;
    {
        ConfigMapGuard guard;
        index = indexOf(section, id);
        if (const char* asWritten = index > 0 ? configMap.getSectionID(section, index) : nullptr) writtenId = asWritten;
    }
    if (index == 0) {
        status->set(CONFIG_SECTION_NOT_FOUND, "Section %s:%s not found.", section ? section : "", id);
        return failed(status), false;
    }
    // One that somebody took out of the file by hand is only forgotten.
    const bool inFile = !file.findSection(section, writtenId.c_str()).isNull();
    if (inFile && (!file.removeSection(section, writtenId.c_str()) || !file.writeConfig())) return noFile(status), false;
    ConfigMapGuard guard;
    configMap.removeSection(section, id);
    configMap.removeSubnodeProperties(section, index);
    return true;
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
    if (!addToFileAndMap(section, id, properties, status)) return status;
    updateSubnodes(section);
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
    if (!removeFromFileAndMap(section, id, status)) return status;
    updateSubnodes(section);
    status->set(CONFIG_OK, "Section successfully removed.");
    return status;
}

void updateSubnodes(const char* section) {
    TRACE_FUNCTION();
    trace_detail("updating subnodes after a change of section %s", section ? section : "");
    if (!subnodeDirectory()) return;
    updateDiscoveryClasses(
        [] {
            char id[16];
            std::snprintf(id, sizeof id, "ta%06x", updateCount++ & 0xFFFFFFu);
            return std::string(id);
        },
        WhenCollecting::Wait);
}
