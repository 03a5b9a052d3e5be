// The process environment behind one lock, and the host's configuration file behind the environment.
// getenv(3) and putenv(3) are only safe against each other when all callers share a lock; here they do.
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <set>
#include <string>

#include "host/base/HostConfiguration.h"
#include "platform/zsb.h"

extern char** environ;

namespace {

struct Environment {
    std::mutex mutex;
    // Every text ever put. The environment points into them and readers keep the pointers, so none is erased;
    // equal assignments share one, which bounds the set by the distinct values.
    std::set<std::string> texts;
};

Environment& environment() {
    static Environment* const one = new Environment;  // outlives static destruction
    return *one;
}

bool usableName(const char* name) { return name && *name && !std::strchr(name, '='); }

}  // namespace

const char* ZSV1_GetProcessEnv(const char* name) {
    if (!usableName(name)) return nullptr;
    const std::lock_guard<std::mutex> hold(environment().mutex);
    return std::getenv(name);
}

const char* ZSV1_GetEnv(const char* name) {
    if (!usableName(name)) return nullptr;
    if (const char* value = ZSV1_GetProcessEnv(name)) return value;
    return almanac::host::hostConfigurationValue(name);
}

int ZSV1_PutEnv(const char* assignment) {
    if (!assignment || *assignment == '=' || !std::strchr(assignment, '=')) return -1;
    try {
        Environment& one = environment();
        const std::lock_guard<std::mutex> hold(one.mutex);
        const std::string& text = *one.texts.emplace(assignment).first;
        return ::putenv(const_cast<char*>(text.c_str())) == 0 ? 0 : -1;
    } catch (...) {
        return -1;
    }
}

int ZSV1_UnsetEnv(const char* name) {
    if (!usableName(name)) return -1;
    const std::lock_guard<std::mutex> hold(environment().mutex);
    return ::unsetenv(name) == 0 ? 0 : -1;
}

char** ZSV1_CopyEnv() {
    const std::lock_guard<std::mutex> hold(environment().mutex);
    std::size_t count = 0;
    while (environ && environ[count]) ++count;
    auto** const copy = static_cast<char**>(std::malloc((count + 1) * sizeof(char*)));
    if (!copy) return nullptr;
    for (std::size_t i = 0; i < count; ++i) copy[i] = environ[i];
    copy[count] = nullptr;
    return copy;
}
