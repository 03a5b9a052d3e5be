// The configuration store (zcf.h) over TomlDocument: one file for each instance of the agent.
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <unordered_map>

#include "host/base/Paths.h"
#include "host/base/TomlFile.h"
#include "host/config/AtomicFile.h"
#include "host/config/TomlDocument.h"
#include "platform/zcf.h"

using almanac::host::TomlDocument;
using almanac::host::TomlSection;

namespace ZCF {

// What a handle points to. It outlives the section's removal; then it is as good as null.
struct SectionData {
    TomlSection* section = nullptr;
    bool removed = false;
};

struct InstanceData {
    bool loaded = false;
    std::string name;
    std::string path;
    std::string original;  // the text that was read
    TomlDocument document;
    std::unordered_map<TomlSection*, SectionData> handles;  // its elements stay where they are

    // The document's sections; listed once between two changes, for those who walk them by index.
    const std::vector<TomlSection*>& sections() {
        if (!listed) order = document.sections();
        listed = true;
        return order;
    }
    std::vector<TomlSection*> order;
    bool listed = false;

    SectionData* handleFor(TomlSection* section) {
        SectionData& handle = handles[section];
        handle.section = section;
        return &handle;
    }
};

struct AgentData {
    InstanceData instance;
    InstanceConfig config{&instance};
};

namespace {

TomlSection* live(const SectionData* data) { return data && !data->removed ? data->section : nullptr; }

std::string fileNamePart(const char* text) {
    std::string part(text);
    for (char& c : part) {
        const bool kept = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                          c == '_' || c == '-' || c == '.';
        if (!kept) c = '_';
    }
    return part;
}

std::string configFolder() { return almanac::host::dataDirectory() + "/config"; }

std::string filePath(const String& instanceName, const String& productCode) {
    std::string name = fileNamePart(productCode.c_str());
    if (!instanceName.empty()) name += "_" + fileNamePart(instanceName.c_str());
    return configFolder() + "/" + name + ".toml";
}

bool makeFolder(std::string* error) {
    if (!almanac::host::prepareDataDirectory(error)) return false;
    const std::string folder = configFolder();
    if (::mkdir(folder.c_str(), 0700) == 0 || errno == EEXIST) return true;
    *error = folder + ": " + std::strerror(errno);
    return false;
}

bool readInstance(const String& instanceName, const String& productCode, InstanceData* instance,
                  std::string* error) {
    using almanac::host::TomlRead;
    instance->path = filePath(instanceName, productCode);
    const TomlRead result = almanac::host::readTextFile(instance->path, &instance->original, error);
    if (result == TomlRead::Missing) *error = instance->path + ": no such file";
    if (result != TomlRead::Ok) return false;
    if (!instance->document.parse(instance->original, instance->path, error)) return false;
    instance->name =
        instance->document.instance().empty() ? instanceName.c_str() : instance->document.instance();
    return true;
}

// False if somebody has changed the file since it was read: what they wrote must not be lost.
bool unchangedOnDisk(const InstanceData& instance, const std::string& path, std::string* error) {
    if (path != instance.path) return true;
    std::string present;
    if (almanac::host::readTextFile(path, &present, error) == almanac::host::TomlRead::Broken) return false;
    if (present == instance.original) return true;
    *error = path + ": changed by somebody else since it was read";
    return false;
}

bool writeInstance(InstanceData* instance, const std::string& path, bool keepBackup, std::string* error) {
    const std::string text = instance->document.render();
    if (!instance->document.readsBackFrom(text, error)) {
        *error = path + ": not written: " + *error;
        return false;
    }
    if (!makeFolder(error) || !unchangedOnDisk(*instance, path, error)) return false;
    if (keepBackup && !almanac::host::replaceFile(path + "~", instance->original, error)) return false;
    if (!almanac::host::replaceFile(path, text, error)) return false;
    instance->original = text;
    return true;
}

}  // namespace

// ---- sections ----

String ConfigSection::getName() const {
    const TomlSection* const section = live(data_);
    return section ? String(section->name()) : String();
}

String ConfigSection::getID() const {
    const TomlSection* const section = live(data_);
    return section ? String(section->id()) : String();
}

void ConfigSection::setID(const String& id) {
    if (TomlSection* const section = live(data_)) section->setID(id.c_str());
}

Array<String> ConfigSection::getEntryNames() const {
    Array<String> names;
    if (const TomlSection* const section = live(data_)) {
        for (const std::string& name : section->entryNames()) names.add(String(name));
    }
    return names;
}

bool ConfigSection::getEntryValue(const String& name, String* out) const {
    const TomlSection* const section = live(data_);
    const almanac::host::TomlLine* const entry = section ? section->entry(name.c_str()) : nullptr;
    if (!entry || !entry->scalar) return false;
    if (out) *out = String(entry->value);
    return true;
}

bool ConfigSection::writeEntry(const String& name, const String& value) {
    TomlSection* const section = live(data_);
    return section && section->setEntry(name.c_str(), value.c_str());
}

// ---- an instance ----

int ConfigBase::getNumSections() const {
    return data_ ? static_cast<int>(data_->sections().size()) : 0;
}

ConfigSection ConfigBase::getSection(int index) const {
    if (!data_) return ConfigSection();
    const std::vector<TomlSection*>& sections = data_->sections();
    if (index < 0 || static_cast<std::size_t>(index) >= sections.size()) return ConfigSection();
    return ConfigSection(data_->handleFor(sections[static_cast<std::size_t>(index)]));
}

ConfigSection ConfigBase::addSection(const String& name) {
    if (data_) data_->listed = false;
    TomlSection* const section = data_ ? data_->document.addSection(name.c_str()) : nullptr;
    return section ? ConfigSection(data_->handleFor(section)) : ConfigSection();
}

bool ConfigBase::removeSection(const String& name, const String& id) {
    if (!data_) return false;
    data_->listed = false;
    for (TomlSection* const section : data_->document.sections()) {
        if (section->name() != name.c_str() || section->id() != id.c_str()) continue;
        data_->handleFor(section)->removed = true;
        return data_->document.removeSection(name.c_str(), id.c_str());
    }
    return false;
}

String InstanceConfig::getName() const { return data_ ? String(data_->name) : String(); }

// ---- a file ----

AgentConfig::AgentConfig() : data_(std::make_unique<AgentData>()) {}
AgentConfig::~AgentConfig() = default;

Array<String> AgentConfig::getInstanceNames() const {
    Array<String> names;
    if (data_->instance.loaded) names.add(String(data_->instance.name));
    return names;
}

InstanceConfig* AgentConfig::getInstance(const String& name) {
    return data_->instance.loaded && data_->instance.name == name.c_str() ? &data_->config : nullptr;
}

String ConfigParser::path(const String& instanceName, const String& productCode) {
    return String(filePath(instanceName, productCode));
}

bool ConfigParser::parseConfig(const String& instanceName, const String& productCode, AgentConfig* config) {
    error_ = String();
    if (!config) return false;
    try {
        InstanceData& instance = config->data()->instance;
        if (instance.loaded) {
            error_ = String("this configuration has been read already");
            return false;
        }
        std::string error;
        instance.loaded = readInstance(instanceName, productCode, &instance, &error);
        error_ = String(error);
        return instance.loaded;
    } catch (...) {
        error_ = String("out of memory");
        return false;
    }
}

bool ConfigWriter::writeConfig(AgentConfig* config, const String& productCode, const String& instanceName) {
    error_ = String();
    try {
        if (!config || !config->data()->instance.loaded) {
            error_ = String("nothing has been read that could be written");
            return false;
        }
        std::string error;
        const bool written = writeInstance(&config->data()->instance, filePath(instanceName, productCode),
                                           keepBackup_, &error);
        error_ = String(error);
        return written;
    } catch (...) {
        error_ = String("out of memory");
        return false;
    }
}

}  // namespace ZCF
