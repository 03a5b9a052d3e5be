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

using Values = std::map<std::string, std::string, std::less<>>;

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

// What the file says; `error` is left empty if nothing is wrong.
Values readValues(std::string* error) {
    Values values;
    const std::string path = hostConfigurationFile();
    TomlValue root;
    if (readTomlFile(path, &root, error) != TomlRead::Ok) return values;
    const TomlValue* const table = root.member("environment");
    if (!table) return values;
    if (table->kind != TomlValue::Kind::Table) {
        *error = path + ": environment is no table";
        return values;
    }
    for (const auto& [name, value] : table->members) {
        if (!value.isScalar() || value.text.find('\0') != std::string::npos) {
            *error = path + value.place() + ": environment." + name + " is no text, number or boolean";
            return {};
        }
        values.emplace(name, value.text);
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
        if (ensureRead(one) && !one.error.empty()) std::fprintf(stderr, "%s\n", one.error.c_str());
        const auto found = one.values->find(name);
        return found == one.values->end() ? nullptr : found->second.c_str();
    } catch (...) {
        return nullptr;
    }
}

void forgetHostConfiguration() {
    Store& one = store();
    const std::lock_guard<std::mutex> hold(one.mutex);
    one.values = nullptr;
}

}  // namespace almanac::host
