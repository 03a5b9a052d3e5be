#include "config/ConfigMap.h"

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "foundation/OwnedMap.h"
#include "foundation/Trace.h"
#include "platform/zsb.h"

ConfigMap& configMap = *new ConfigMap;

namespace {

constexpr const char* kTraceSuffix = "_ZBT_TRACE";
constexpr const char* kHidden = "xxx";

std::string text(const char* t) { return t ? t : ""; }

std::string joined(const char* pc, const char* section, const char* middle, int index) {
    return text(pc) + "_" + text(section) + "_" + middle + "_" + std::to_string(index);
}

std::string suffixOf(int index) { return index < 1 ? "_DEFAULT" : "_" + std::to_string(index); }

bool startsWith(const std::string& t, const std::string& prefix) { return t.compare(0, prefix.size(), prefix) == 0; }

bool endsWith(const std::string& t, const std::string& suffix) {
    return t.size() >= suffix.size() && t.compare(t.size() - suffix.size(), suffix.size(), suffix) == 0;
}

}  // namespace

ConfigMap::~ConfigMap() {
    if (!localMap_) return;
    freeKeysAndValues(*localMap_);
    delete localMap_;
}

void ConfigMap::initializeLocalMap() {
    if (!localMap_) localMap_ = new HashMap(256);
}

const char* ConfigMap::get(const char* name) const {
    if (!name) return nullptr;
    return localMap_ ? static_cast<const char*>(localMap_->get(name)) : ZSV1_GetProcessEnv(name);
}

const char* ConfigMap::getTraceableValue(const char* name, const char* value) const {
    const char* companion = name ? get((text(name) + kTraceSuffix).c_str()) : nullptr;
    return companion ? companion : value;
}

void ConfigMap::setTraceableValue(const char* name, bool secret) {
    if (secret) setConfigurationProperty((text(name) + kTraceSuffix).c_str(), kHidden);
}

void ConfigMap::put(const char* name, const char* value) {
    initializeLocalMap();
    char* key = strdup(name);
    char* copy = strdup(value);  // before remove: either may be the very entry that is replaced
    remove(key);
    localMap_->put(key, copy);
    index_.entered(key, copy);
}

void ConfigMap::remove(const char* name) {
    if (!localMap_) return;
    const char* oldKey = nullptr;
    void* oldValue = localMap_->remove(name, &oldKey);
    if (oldKey) index_.leaves(oldKey, static_cast<const char*>(oldValue));
    std::free(const_cast<char*>(oldKey));
    std::free(oldValue);
}

void ConfigMap::setConfigurationProperty(const char* name, const char* value) {
    if (name && value) put(name, value);
}

void ConfigMap::setEnvProperty(const char* name, const char* value, bool local, bool secret) {
    TRACE_MESSAGES();
    if (!name || !value) return;
    const std::string copied = value;  // the value may be the very entry that put replaces
    if (local) setConfigurationProperty(name, copied.c_str());
    ZSV1_PutEnv((text(name) + "=" + copied).c_str());
    setTraceableValue(name, secret);
    trace_detail("%s=%s", name, getTraceableValue(name, copied.c_str()));
}

void ConfigMap::setSubnodeProperty(const char* section, int index, const char* name, const char* value, bool secret) {
    const std::string full = text(get(productCodeVariable)) + "_" + text(section) + "_" + text(name) + suffixOf(index);
    setEnvProperty(full.c_str(), value, true, secret);
}

void ConfigMap::removeSubnodeProperties(const char* section, int index) {
    TRACE_FUNCTION();
    if (!localMap_) return;
    const std::string prefix = text(get(productCodeVariable)) + "_" + text(section) + "_";
    const std::string suffix = suffixOf(index);
    std::vector<std::string> doomed;
    HashMapIterator it = iterator();
    while (it.hasNext()) {
        it.next();
        const std::string name = it.getKey();
        if (!startsWith(name, prefix)) continue;
        if (endsWith(name, suffix) || endsWith(name, suffix + kTraceSuffix)) doomed.push_back(name);
    }
    for (const std::string& name : doomed) {
        trace_detail("removing property %s", name.c_str());
        remove(name.c_str());
        ZSV1_UnsetEnv(name.c_str());
    }
}

HashMapIterator ConfigMap::iterator() const { return localMap_->iterator(); }

int ConfigMap::addSection(const char* section, const char* id) {
    TRACE_FUNCTION();
    const int highest = getHighestSubnodeIndex(section);
    if (!id || !*id) {
        if (highest < 0) {
            trace_detail("Section %s does not appear to be a subnode section", section);
            return -1;
        }
        trace_detail("Defaults section %s found", section);
        return 0;
    }
    const int index = highest < 0 ? 1 : highest + 1;
    if (highest < 0) {
        trace_detail("Adding section %s ID %s with number 1 (new subnode type)", section, id);
    } else {
        trace_detail("Adding section %s ID %s with number %d (new subnode)", section, id, index);
    }
    char* filtered = validCharFilter(id);
    if (!*filtered) {
        trace_error("Invalid subnode id %s, ignoring", id);
        std::free(filtered);
        return -3;
    }
    const char* pc = get(productCodeVariable);
    char* present = getSubnodeIndex(pc, filtered, section);
    if (present) {
        std::free(present);
        std::free(filtered);
        return -2;
    }
    char* keyName = mallocSubnodeKeyVarName(pc, section, index);
    setEnvProperty(keyName, filtered, true, false);
    std::free(keyName);
    if (std::strcmp(filtered, id) != 0) {
        char* idName = mallocSectionIDVarName(pc, section, index);
        setEnvProperty(idName, id, true, false);
        std::free(idName);
    }
    std::free(filtered);
    setHighestSubnodeIndex(section, index);
    return index;
}

int ConfigMap::removeSection(const char* section, const char* id) {
    const char* pc = get(productCodeVariable);
    char* indexText = getSubnodeIndex(pc, id, section);
    if (!indexText) return 0;
    const int index = std::atoi(indexText);
    std::free(indexText);
    char* names[] = {mallocSubnodeKeyVarName(pc, section, index), mallocSectionIDVarName(pc, section, index)};
    for (char* name : names) {
        remove(name);
        ZSV1_UnsetEnv(name);
        std::free(name);
    }
    return index;
}

const char* ConfigMap::getSectionID(const char* section, int index) const {
    const char* pc = get(productCodeVariable);
    char* name = mallocSectionIDVarName(pc, section, index);
    const char* id = get(name);
    std::free(name);
    return id ? id : getSubnodeKey(pc, section, index);
}

int ConfigMap::getHighestSubnodeIndex(const char* section) const {
    const char* count = get((text(get(productCodeVariable)) + "_" + text(section) + "_COUNT").c_str());
    return count ? std::atoi(count) : -1;
}

void ConfigMap::setHighestSubnodeIndex(const char* section, int index) {
    const std::string name = text(get(productCodeVariable)) + "_" + text(section) + "_COUNT";
    setEnvProperty(name.c_str(), std::to_string(index).c_str(), true, false);
}

char* ConfigMap::getSubnodeIndex(const char* pc, const char* key, const char* section) const {
    TRACE_MESSAGES();
    if (!key) return nullptr;
    const int highest = getHighestSubnodeIndex(section);
    if (highest < 0) return nullptr;
    char* filtered = validCharFilter(key);
    const int index = localMap_ ? index_.lowestIndex(text(pc) + "_" + text(section), filtered, highest)
                                : indexFromEnvironment(pc, section, filtered, highest);
    std::free(filtered);
    char* result = index > 0 ? strdup(std::to_string(index).c_str()) : nullptr;
    trace_detail("Returning index = %s for subnode key %s", result ? result : "(none)", key);
    return result;
}

// Without a map the names stand in the environment, which has no index.
int ConfigMap::indexFromEnvironment(const char* pc, const char* section, const char* filtered, int highest) const {
    for (int i = 1; i <= highest; ++i) {
        const char* present = getSubnodeKey(pc, section, i);
        if (present && std::strcmp(present, filtered) == 0) return i;
    }
    return 0;
}

const char* ConfigMap::getSubnodeKey(const char* pc, const char* section, int index) const {
    return get(joined(pc, section, "IDLABEL", index).c_str());
}

char* ConfigMap::mallocSubnodeKeyVarName(const char* pc, const char* section, int index) {
    return strdup(joined(pc, section, "IDLABEL", index).c_str());
}

char* ConfigMap::mallocSectionIDVarName(const char* pc, const char* section, int index) {
    return strdup(joined(pc, section, "SECTIONID", index).c_str());
}

const char* ConfigMap::getSubnodeConfigurationVariable(const char* pc, const char* section, const char* var,
                                                       const char* index) const {
    TRACE_MESSAGES();
    const std::string stem = text(pc) + "_" + text(section) + "_" + text(var) + "_";
    const std::string names[] = {index ? stem + index : std::string(), stem + "DEFAULT", text(var)};
    for (const std::string& name : names) {
        const char* value = name.empty() ? nullptr : get(name.c_str());
        const bool last = &name == &names[2];
        if (value && (*value || last)) {
            trace_detail("found variable %s from property %s=%s", var, name.c_str(), getTraceableValue(name.c_str(), value));
            return value;
        }
    }
    trace_detail("did not find variable %s", var);
    return nullptr;
}

void ConfigMap::trace() const {
    TRACE_FUNCTION();
    if (!localMap_ || !trace_is_on(ZTR1_DETAIL)) return;
    HashMapIterator it = iterator();
    while (it.hasNext()) {
        it.next();
        trace_detail("%s=%s", it.getKey(), getTraceableValue(it.getKey(), static_cast<const char*>(it.getData())));
    }
}
