// ConfigMap: the agent's run-time configuration as flat name-value pairs. A naming rule lets one key say product,
// subnode type, variable and subnode index:
//   VAR                          a property of a section without subnodes
//   PC_SECTION_IDLABEL_N         the key of subnode N, through validCharFilter
//   PC_SECTION_SECTIONID_N       the section ID as written, only where filtering changed it
//   PC_SECTION_COUNT             the highest index given so far (0: a known type without an instance)
//   PC_SECTION_VAR_N, …_DEFAULT  a property of subnode N, or of the section without ID
// A secret has a companion NAME_ZBT_TRACE, which traces print in its place.
//
// The operations of the class do not lock; callers hold lock(). The free functions lock by themselves and return
// copies that the caller frees, unless told otherwise.
#pragma once

#include <mutex>

#include "config/ConfigIndex.h"
#include "foundation/HashMap.h"

class ConfigMap {
  public:
    static constexpr const char* productCodeVariable = "ZBT_PRODUCT_CODE";

    ConfigMap() = default;
    ~ConfigMap();
    ConfigMap(const ConfigMap&) = delete;
    ConfigMap& operator=(const ConfigMap&) = delete;

    void lock() { mutex_.lock(); }
    void unlock() { mutex_.unlock(); }

    void initializeLocalMap();
    bool usingLocalMap() const { return localMap_ != nullptr; }
    // With a map only the map is asked, without one the process environment. Valid until the entry changes.
    const char* get(const char* name) const;
    const char* getTraceableValue(const char* name, const char* value) const;
    void setTraceableValue(const char* name, bool secret);
    void put(const char* name, const char* value);  // copies both
    void remove(const char* name);
    void setConfigurationProperty(const char* name, const char* value);
    // Into the environment and, if `local`, into the map; `secret` adds the companion. A null value does nothing.
    void setEnvProperty(const char* name, const char* value, bool local, bool secret);
    void setSubnodeProperty(const char* section, int index, const char* name, const char* value, bool secret);
    // Removes what starts with PC_SECTION_ and ends with _index (_DEFAULT below 1), secrets' companions too; the
    // environment forgets them as well. Kept: a type whose name continues this one's after an '_' is hit too.
    void removeSubnodeProperties(const char* section, int index);
    HashMapIterator iterator() const;  // only with a local map
    const ConfigIndex& index() const { return index_; }  // of the local map

    // Index of the section: -1 no subnode section, 0 the defaults section, above 0 a subnode; -2 the ID has an index
    // already, -3 nothing of the ID is valid.
    int addSection(const char* section, const char* id);
    // Removes key and section ID properties; the index, or 0 if the key is unknown.
    int removeSection(const char* section, const char* id);
    const char* getSectionID(const char* section, int index) const;  // as written, else the key; null if unknown
    int getHighestSubnodeIndex(const char* section) const;           // -1 for an unknown type
    void setHighestSubnodeIndex(const char* section, int index);
    // malloc'd text of the index, null if the type or the key is unknown.
    char* getSubnodeIndex(const char* pc, const char* key, const char* section) const;
    const char* getSubnodeKey(const char* pc, const char* section, int index) const;
    static char* mallocSubnodeKeyVarName(const char* pc, const char* section, int index);
    static char* mallocSectionIDVarName(const char* pc, const char* section, int index);
    // The subnode's own value, else the type's default, else the plain property; the first that is not empty.
    const char* getSubnodeConfigurationVariable(const char* pc, const char* section, const char* var,
                                                const char* index) const;
    void trace() const;

  private:
    int indexFromEnvironment(const char* pc, const char* section, const char* filtered, int highest) const;

    std::mutex mutex_;
    HashMap* localMap_ = nullptr;
    ConfigIndex index_;
};

extern ConfigMap& configMap;

// Holds configMap's lock.
class ConfigMapGuard {
  public:
    ConfigMapGuard() { configMap.lock(); }
    ~ConfigMapGuard() { configMap.unlock(); }
    ConfigMapGuard(const ConfigMapGuard&) = delete;
    ConfigMapGuard& operator=(const ConfigMapGuard&) = delete;
};

// Loads the instance's configuration file into the map and the environment. A missing or broken file is traced and
// survived: the agent then runs on environment values alone.
void loadAgentConfig();

char* getConfigurationProperty(const char* name);
const char* getConfigurationPropertyInternal(const char* name);  // under the lock, no copy
char* getSubnodeConfigurationProperty(const char* var, const char* section, const char* key);
const char* getSubnodeConfigurationPropertyInternal(const char* var, const char* section, const char* key);
char* getSubnodeConfigurationVariable(const char* pc, const char* section, const char* var, const char* index);
char* getSubnodeKey(const char* pc, const char* section, int index);
char* getSubnodeIndex(const char* pc, const char* key, const char* section);
// All keys of a type in index order, gaps closed; a malloc'd array of malloc'd texts, never null.
char** getSubnodeKeys(const char* section, int* count);
// Variable to value for one subnode, own values before defaults; released with freeSubnodeInstanceEnv.
HashMap* getSubnodeInstanceEnv(const char* key, const char* section);
void freeSubnodeInstanceEnv(HashMap* env);
// Copies an environment value into the map.
void loadAgentEnvironmentVariable(const char* name);
// The configuration value, else the environment value, else the default; empty counts as missing. Never null but for
// a null default.
char* getConfigProperty(const char* name, const char* defaultValue);

// Only letters, digits, '_', '-' and '.'.
char* validCharFilter(const char* text);
// Without one leading and one trailing quote, single or double.
char* stripValueQuotes(const char* text);
