#include "config/ConfigFile.h"

#include <cstdlib>
#include <cstring>

#include "foundation/Trace.h"
#include "platform/zcp.h"
#include "platform/zsb.h"
#include "runtime/reference/Application.h"

ConfigFile::ConfigFile() {
    char code[sizeof shortProductCode];
    std::memcpy(code, shortProductCode, sizeof code);
    ZSV1_ToLower(code);
    productCode_ = code;
}

ConfigFile::~ConfigFile() {
    encryptedProperties_.foreach ([](const char* key, const void*, void*) { std::free(const_cast<char*>(key)); },
                                  nullptr);
}

bool ConfigFile::parseConfig() {
    TRACE_FUNCTION();
    auto config = std::make_unique<ZCF::AgentConfig>();
    ZCF::ConfigParser parser;
    if (!parser.parseConfig(instanceName.c_str(), productCode_, config.get())) {
        error_ = parser.getError().c_str();
        trace_error("Error reading agent configuration file: %s\n", error_.c_str());
        return false;
    }
    agentConfig_ = std::move(config);
    return true;
}

bool ConfigFile::writeConfig() {
    TRACE_FUNCTION();
    if (!isLoaded()) return false;
    ZCF::ConfigWriter writer(false);
    if (writer.writeConfig(agentConfig_.get(), productCode_, instanceName.c_str())) return true;
    error_ = writer.getError().c_str();
    trace_error("Error writing agent configuration file: %s\n", error_.c_str());
    return false;
}

bool ConfigFile::loadConfigInstance() {
    if (instanceConfig_) return true;
    if (!agentConfig_) return false;
    const auto names = agentConfig_->getInstanceNames();
    if (names.size() == 0) return false;
    instanceConfig_ = agentConfig_->getInstance(names[0]);
    return instanceConfig_ != nullptr;
}

std::string ConfigFile::getInstanceName() { return loadConfigInstance() ? instanceConfig_->getName().c_str() : ""; }

int ConfigFile::getNumSections() { return loadConfigInstance() ? instanceConfig_->getNumSections() : 0; }

ZCF::ConfigSection ConfigFile::getSection(int index) {
    return loadConfigInstance() ? instanceConfig_->getSection(index) : ZCF::ConfigSection();
}

ZCF::ConfigSection ConfigFile::findSection(const char* name, const char* id) {
    ZCF::ConfigSection found;
    const int count = getNumSections();
    for (int i = 0; i < count; ++i) {
        const ZCF::ConfigSection section = getSection(i);
        const auto entries = section.getEntryNames();
        for (int e = 0; e < entries.size(); ++e) {
            ZCF::String value;
            if (!section.getEntryValue(entries[e], &value)) continue;
            if (std::strncmp(value.c_str(), ENCRYPTED_PREFIX, std::strlen(ENCRYPTED_PREFIX)) != 0) continue;
            if (!encryptedProperties_.contains(entries[e].c_str())) {
                char* key = strdup(entries[e].c_str());
                encryptedProperties_.put(key, key);
            }
        }
        if (found.isNull() && section.getName() == ZCF::String(name) && section.getID() == ZCF::String(id)) found = section;
    }
    return found;
}

ZCF::ConfigSection ConfigFile::addSection(const char* name, const char* id) {
    if (!loadConfigInstance()) return ZCF::ConfigSection();
    ZCF::ConfigSection section = instanceConfig_->addSection(name);
    if (id && *id && !section.isNull()) section.setID(id);
    return section;
}

bool ConfigFile::removeSection(const char* name, const char* id) {
    return loadConfigInstance() && instanceConfig_->removeSection(name, id);
}

bool ConfigFile::isPropertyEncrypted(const char* name) const { return encryptedProperties_.contains(name); }

bool ConfigFile::setProperty(ZCF::ConfigSection section, const char* name, const char* value, bool encrypted) {
    TRACE_FUNCTION();
    if (section.isNull()) return false;
    if (!encrypted) return section.writeEntry(name, value);
    char* cipher = nullptr;
    if (ZCP_Encrypt(value, "AES256", "keyfile", &cipher) != ZCP_OK) {
        trace_error("The value of %s could not be encrypted", name);
        return false;
    }
    const bool written = section.writeEntry(name, cipher);
    ZCP_Free(cipher);
    return written;
}

bool decryptConfigValue(const char* value, std::string* out) {
    char* plain = nullptr;
    int length = 0;
    if (ZCP_Decrypt(value, &plain, &length) != ZCP_OK) return false;
    out->assign(plain, static_cast<std::size_t>(length));
    ZCP_Free(plain);
    return true;
}
