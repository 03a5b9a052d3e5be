// The configuration store: the sections and entries of one instance of the agent, read and rewritten.
// The host keeps one TOML file for each instance; comments, order and unknown content survive a rewrite, and
// the file is replaced atomically (write beside it, fsync, rename). No operation throws.
#pragma once

#include <memory>
#include <string>
#include <vector>

namespace ZCF {

typedef const char* CharStar;

class String {
  public:
    String() = default;
    String(const char* text) : text_(text ? text : "") {}
    String(std::string text) : text_(std::move(text)) {}
    const char* c_str() const { return text_.c_str(); }
    bool empty() const { return text_.empty(); }
    int length() const { return static_cast<int>(text_.size()); }
    bool operator==(const String& other) const { return text_ == other.text_; }

  private:
    std::string text_;
};

template <class T>
class Array {
  public:
    int size() const { return static_cast<int>(items_.size()); }
    const T& operator[](int i) const { return items_[static_cast<std::size_t>(i)]; }
    void add(T item) { items_.push_back(std::move(item)); }

  private:
    std::vector<T> items_;
};

struct SectionData;
struct InstanceData;
struct AgentData;

// One section: a name, an ID (empty if it has none) and entries in file order. A handle: cheap to copy, valid
// as long as the AgentConfig it came from.
class ConfigSection {
  public:
    explicit ConfigSection(SectionData* data = nullptr) : data_(data) {}
    bool isNull() const { return data_ == nullptr; }
    String getName() const;
    String getID() const;
    void setID(const String& id);
    Array<String> getEntryNames() const;
    // False if there is no such entry, or if its value is no text, number or boolean.
    bool getEntryValue(const String& name, String* out) const;
    // Replaces or appends the entry. False for a name that is empty or holds a control byte.
    bool writeEntry(const String& name, const String& value);

  private:
    SectionData* data_;
};

class ConfigBase {
  public:
    virtual ~ConfigBase() = default;
    int getNumSections() const;
    ConfigSection getSection(int index) const;       // a null handle if the index is out of range
    ConfigSection addSection(const String& name);    // appended; the ID is set with ConfigSection::setID
    // Removes the first section of that name and ID; false if there is none.
    bool removeSection(const String& name, const String& id);

  protected:
    InstanceData* data_ = nullptr;
};

class InstanceConfig : public ConfigBase {
  public:
    explicit InstanceConfig(InstanceData* data) { data_ = data; }
    String getName() const;  // may be empty
};

// All instances of one file; the host's files hold exactly one.
class AgentConfig {
  public:
    AgentConfig();
    ~AgentConfig();
    AgentConfig(const AgentConfig&) = delete;
    AgentConfig& operator=(const AgentConfig&) = delete;
    Array<String> getInstanceNames() const;
    InstanceConfig* getInstance(const String& name);  // owned by this object; null if there is none

    AgentData* data() { return data_.get(); }

  private:
    std::unique_ptr<AgentData> data_;
};

class ConfigParser {
  public:
    // Reads the instance's file into `config`. False if it does not exist, cannot be read or is broken; then
    // getError() is one line, with file:line:column where there is a place. `productCode` is in lower case.
    bool parseConfig(const String& instanceName, const String& productCode, AgentConfig* config);
    const String& getError() const { return error_; }
    // The path parseConfig reads and ConfigWriter replaces.
    static String path(const String& instanceName, const String& productCode);

  private:
    String error_;
};

class ConfigWriter {
  public:
    // With `keepBackup` the file before the change stays beside the new one with "~" appended.
    explicit ConfigWriter(bool keepBackup) : keepBackup_(keepBackup) {}
    // Replaces the instance's file. On false the old file stands as it was and getError() tells why.
    bool writeConfig(AgentConfig* config, const String& productCode, const String& instanceName);
    const String& getError() const { return error_; }

  private:
    bool keepBackup_;
    String error_;
};

}  // namespace ZCF
