#include "host/base/HostConfiguration.h"

#include <cstdio>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include "host/base/Paths.h"
#include "host/base/TomlFile.h"

namespace almanac::host {
namespace {

struct Values {
    std::map<std::string, std::string, std::less<>> environment;
    bool freeText = false;
};

struct Store {
    std::mutex mutex;
    const Values* values = nullptr;                   // null until read
    std::string error;                                // of the last read
    std::vector<std::unique_ptr<const Values>> kept;  // every set ever read: texts of all may be in use
};

Store& store() {
    static Store* const one = new Store;  // outlives static destruction
    return *one;
}

bool readEnvironment(const TomlValue& table, const std::string& path, Values* values, std::string* error) {
    for (const auto& [name, value] : table.members) {
        if (!value.isScalar() || value.text.find('\0') != std::string::npos) {
            *error = path + value.place() + ": environment." + name + " is no text, number or boolean";
            return false;
        }
        values->environment.emplace(name, value.text);
    }
    return true;
}

bool readActions(const TomlValue& table, const std::string& path, Values* values, std::string* error) {
    for (const auto& [name, value] : table.members) {
        if (name != "free_text") {
            *error = path + value.place() + ": actions." + name + " is not known; there is actions.free_text";
        } else if (value.kind != TomlValue::Kind::Boolean) {
            *error = path + value.place() + ": actions.free_text is neither true nor false";
        } else {
            values->freeText = value.text == "true";
            continue;
        }
        return false;
    }
    return true;
}

// What the file says; `error` is left empty if nothing is wrong.
Values readValues(std::string* error) {
    constexpr struct {
        const char* table;
        bool (*read)(const TomlValue&, const std::string&, Values*, std::string*);
    } kTables[] = {{"environment", readEnvironment}, {"actions", readActions}};
    const std::string path = hostConfigurationFile();
    TomlValue root;
    if (readTomlFile(path, &root, error) != TomlRead::Ok) return {};
    Values values;
    for (const auto& [name, read] : kTables) {
        const TomlValue* const table = root.member(name);
        if (!table) continue;
        if (table->kind != TomlValue::Kind::Table) {
            *error = path + ": " + name + " is no table";
            return {};
        }
        if (!read(*table, path, &values, error)) return {};
    }
    return values;
}

// Reads the file if that has not happened; the lock is held. True if it was read now.
bool ensureRead(Store& one) {
    if (one.values) return false;
    one.error.clear();
    one.kept.push_back(std::make_unique<const Values>(readValues(&one.error)));
    one.values = one.kept.back().get();
    return true;
}

const Values& valuesNow(Store& one) {
    if (ensureRead(one) && !one.error.empty()) std::fprintf(stderr, "%s\n", one.error.c_str());
    return *one.values;
}

}  // namespace

bool loadHostConfiguration(std::string* error) {
    try {
        Store& one = store();
        const std::lock_guard<std::mutex> hold(one.mutex);
        ensureRead(one);
        if (error) *error = one.error;
        return one.error.empty();
    } catch (...) {
        return false;
    }
}

const char* hostConfigurationValue(const char* name) {
    try {
        Store& one = store();
        const std::lock_guard<std::mutex> hold(one.mutex);
        const auto& environment = valuesNow(one).environment;
        const auto found = environment.find(name);
        return found == environment.end() ? nullptr : found->second.c_str();
    } catch (...) {
        return nullptr;
    }
}

bool hostConfigurationAllowsFreeText() {
    try {
        Store& one = store();
        const std::lock_guard<std::mutex> hold(one.mutex);
        return valuesNow(one).freeText;
    } catch (...) {
        return false;
    }
}

void forgetHostConfiguration() {
    Store& one = store();
    const std::lock_guard<std::mutex> hold(one.mutex);
    one.values = nullptr;
}

}  // namespace almanac::host
