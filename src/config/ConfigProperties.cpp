// The free functions over configMap: each takes its lock and returns copies.
#include <cstdlib>
#include <cstring>
#include <string>

#include "config/ConfigMap.h"
#include "foundation/OwnedMap.h"
#include "foundation/Trace.h"
#include "platform/zsb.h"

namespace {

char* copyOf(const char* text) { return text ? strdup(text) : nullptr; }

bool isValid(char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_' || c == '-' || c == '.';
}

// Of each property that begins with "PC_SECTION_" and whose last part is `part` (`byPrefix`: begins with it), the variable
// between the two with its value, unless it is there already.
int collectEnv(HashMap* env, const std::string& prefix, const char* part, bool byPrefix) {
    int found = 0;
    configMap.index().forEachEndingWith(part, byPrefix, [&](const std::string& name) {
        const std::size_t last = name.rfind('_');
        if (name.compare(0, prefix.size(), prefix) != 0 || last < prefix.size()) return;
        const std::string variable = name.substr(prefix.size(), last - prefix.size());
        if (env->contains(variable.c_str())) return;
        env->put(strdup(variable.c_str()), copyOf(configMap.get(name.c_str())));
        ++found;
    });
    return found;
}

}  // namespace

char* getConfigurationProperty(const char* name) {
    TRACE_MESSAGES();
    ConfigMapGuard guard;
    const char* value = getConfigurationPropertyInternal(name);
    if (!value) trace_error("Configuration property %s not found", name ? name : "");
    return copyOf(value);
}

const char* getConfigurationPropertyInternal(const char* name) { return configMap.get(name); }

char* getSubnodeConfigurationProperty(const char* var, const char* section, const char* key) {
    ConfigMapGuard guard;
    return copyOf(getSubnodeConfigurationPropertyInternal(var, section, key));
}

const char* getSubnodeConfigurationPropertyInternal(const char* var, const char* section, const char* key) {
    const char* pc = configMap.get(ConfigMap::productCodeVariable);
    char* index = configMap.getSubnodeIndex(pc, key, section);
    const char* value = configMap.getSubnodeConfigurationVariable(pc, section, var, index);
    std::free(index);
    return value;
}

char* getSubnodeConfigurationVariable(const char* pc, const char* section, const char* var, const char* index) {
    ConfigMapGuard guard;
    return copyOf(configMap.getSubnodeConfigurationVariable(pc, section, var, index));
}

char* getSubnodeKey(const char* pc, const char* section, int index) {
    ConfigMapGuard guard;
    return copyOf(configMap.getSubnodeKey(pc, section, index));
}

char* getSubnodeIndex(const char* pc, const char* key, const char* section) {
    ConfigMapGuard guard;
    return configMap.getSubnodeIndex(pc, key, section);
}

char** getSubnodeKeys(const char* section, int* count) {
    ConfigMapGuard guard;
    const char* pc = configMap.get(ConfigMap::productCodeVariable);
    const int highest = configMap.getHighestSubnodeIndex(section);
    auto** keys = static_cast<char**>(std::calloc(static_cast<std::size_t>(highest > 0 ? highest : 0) + 1, sizeof(char*)));
    *count = 0;
    for (int i = 1; i <= highest; ++i) {
        if (const char* key = configMap.getSubnodeKey(pc, section, i)) keys[(*count)++] = strdup(key);
    }
    return keys;
}

HashMap* getSubnodeInstanceEnv(const char* key, const char* section) {
    TRACE_FUNCTION();
    auto* env = new HashMap;
    ConfigMapGuard guard;
    if (!configMap.usingLocalMap() || !section) return env;
    const char* pc = configMap.get(ConfigMap::productCodeVariable);
    const std::string prefix = std::string(pc ? pc : "") + "_" + section + "_";
    char* index = configMap.getSubnodeIndex(pc, key, section);
    const int own = index ? collectEnv(env, prefix, index, false) : 0;
    const int defaults = collectEnv(env, prefix, "DEFAULT", true);
    trace_detail("Found %d+%d variables for subnode %s:%s:%s", own, defaults, pc ? pc : "", key ? key : "", section);
    std::free(index);
    return env;
}

void freeSubnodeInstanceEnv(HashMap* env) {
    if (!env) return;
    freeKeysAndValues(*env);
    delete env;
}

void loadAgentEnvironmentVariable(const char* name) {
    TRACE_FUNCTION();
    if (!name) return;
    const char* value = ZSV1_GetEnv(name);
    if (!value) {
        trace_error("Could not find any value for the variable %s\n", name);
        return;
    }
    ConfigMapGuard guard;
    configMap.setConfigurationProperty(name, value);
}

char* getConfigProperty(const char* name, const char* defaultValue) {
    {
        ConfigMapGuard guard;
        const char* value = configMap.get(name);
        if (value && *value) return strdup(value);
    }
    const char* value = ZSV1_GetEnv(name);
    return copyOf(value && *value ? value : defaultValue);
}

char* validCharFilter(const char* text) {
    std::string kept;
    for (; text && *text; ++text) {
        if (isValid(*text)) kept += *text;
    }
    return strdup(kept.c_str());
}

char* stripValueQuotes(const char* text) {
    if (!text) return nullptr;
    std::string value = text;
    const auto isQuote = [](char c) { return c == '"' || c == '\''; };
    if (!value.empty() && isQuote(value.front())) value.erase(0, 1);
    if (!value.empty() && isQuote(value.back())) value.pop_back();
    return strdup(value.c_str());
}
