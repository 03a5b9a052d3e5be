// ConfigFile: the instance's configuration file through the host's store. A value on the stack of whoever needs it.
#pragma once

#include <memory>
#include <string>

#include "foundation/HashMap.h"
#include "platform/zcf.h"

// An encrypted value begins so.
inline constexpr const char* ENCRYPTED_PREFIX = "{AES256:keyfile:a}";

class ConfigFile {
  public:
    ConfigFile();
    ~ConfigFile();
    ConfigFile(const ConfigFile&) = delete;
    ConfigFile& operator=(const ConfigFile&) = delete;

    // Reads the file of the present instance. On false isLoaded() is false and error() tells why.
    bool parseConfig();
    bool writeConfig();
    bool isLoaded() const { return agentConfig_ != nullptr; }
    bool loadConfigInstance();  // the file's first instance
    std::string getInstanceName();
    int getNumSections();
    ZCF::ConfigSection getSection(int index);
    // By name and ID (as written); notes on its way which properties have encrypted values. Null handle if absent.
    ZCF::ConfigSection findSection(const char* name, const char* id);
    ZCF::ConfigSection addSection(const char* name, const char* id);
    bool removeSection(const char* name, const char* id);
    bool isPropertyEncrypted(const char* name) const;
    // Writes an entry; a secret value is encrypted first. False if that or the entry's name fails.
    bool setProperty(ZCF::ConfigSection section, const char* name, const char* value, bool encrypted);
    const std::string& error() const { return error_; }

  private:
    std::string productCode_;  // shortProductCode in lower case
    std::unique_ptr<ZCF::AgentConfig> agentConfig_;
    ZCF::InstanceConfig* instanceConfig_ = nullptr;
    HashMap encryptedProperties_;
    std::string error_;
};

// Decrypts a value that begins with ENCRYPTED_PREFIX. False if it cannot be read.
bool decryptConfigValue(const char* value, std::string* out);
