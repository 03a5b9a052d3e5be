// The process environment behind one lock, and the host's configuration file behind the environment.
// getenv(3) and putenv(3) are only safe against each other when all callers share a lock; here they do.
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "host/base/HostConfiguration.h"
#include "platform/zsb.h"

extern char** environ;

namespace {

struct TextHash {
    using is_transparent = void;
    std::size_t operator()(std::string_view text) const { return std::hash<std::string_view>()(text); }
};

// All operations with the mutex held. An agent may have tens of thousands of variables (each property of each subnode is
// one), and getenv and putenv walk them all: an index by name stands beside `environ`, and is made again whenever
// somebody else has changed what it was made from.
class Environment {
  public:
    std::mutex mutex;

    const char* get(std::string_view name) {
        char** const slot = find(name);
        return slot ? *slot + name.size() + 1 : nullptr;
    }

    void put(const char* assignment) {
        const std::string_view name(assignment, static_cast<std::size_t>(std::strchr(assignment, '=') - assignment));
        char** const slot = find(name);
        char* const text = const_cast<char*>(texts_.emplace(assignment).first->c_str());
        if (slot) {
            *slot = text;
        } else {
            append(name, text);
        }
        if (count_ > 0) last_ = environ[count_ - 1];
    }

    int unset(const char* name) {
        seen_ = nullptr;
        return ::unsetenv(name);
    }

  private:
    // The slot of a variable, null if there is none. The index is fresh afterwards.
    char** find(std::string_view name) {
        if (!isFresh()) index();
        auto found = slots_.find(name);
        if (found != slots_.end() && !holds(found->second, name)) {
            index();
            found = slots_.find(name);
        }
        return found == slots_.end() ? nullptr : environ + found->second;
    }

    static bool holds(std::size_t slot, std::string_view name) {
        return std::strncmp(environ[slot], name.data(), name.size()) == 0 && environ[slot][name.size()] == '=';
    }

    // Adding and removing variables moves the array, its end or its last text.
    bool isFresh() const {
        return environ && environ == seen_ && !environ[count_] && (count_ == 0 || environ[count_ - 1] == last_);
    }

    void index() {
        slots_.clear();
        count_ = 0;
        for (; environ && environ[count_]; ++count_) {
            const char* const equals = std::strchr(environ[count_], '=');
            if (!equals) continue;
            slots_.emplace(std::string(environ[count_], static_cast<std::size_t>(equals - environ[count_])), count_);  // the first of two of one name counts
        }
        seen_ = environ;
        last_ = count_ > 0 ? environ[count_ - 1] : nullptr;
    }

    void append(std::string_view name, char* text) {
        if (arrays_.empty() || environ != arrays_.back().get() || count_ + 2 > capacity_) {
            const std::size_t capacity = 2 * (count_ + 2);
            auto larger = std::make_unique<char*[]>(capacity);
            for (std::size_t i = 0; i < count_; ++i) larger[i] = environ[i];
            slots_.emplace(name, count_);
            arrays_.push_back(std::move(larger));
            capacity_ = capacity;
            environ = arrays_.back().get();
        } else {
            slots_.emplace(name, count_);
        }
        environ[count_ + 1] = nullptr;
        environ[count_++] = text;
        seen_ = environ;
    }

    // Every text ever put. The environment points into them and readers keep the pointers, so none is erased;
    // equal assignments share one, which bounds the set by the distinct values.
    std::set<std::string> texts_;
    // What `environ` has been; the last one may be it still. None is freed: somebody may be reading it.
    std::vector<std::unique_ptr<char*[]>> arrays_;
    std::size_t capacity_ = 0;  // of the last one
    std::unordered_map<std::string, std::size_t, TextHash, std::equal_to<>> slots_;
    char** seen_ = nullptr;  // what the index was made from: the array, its length and its last text
    std::size_t count_ = 0;
    char* last_ = nullptr;
};

Environment& environment() {
    static Environment* const one = new Environment;  // outlives static destruction
    return *one;
}

bool usableName(const char* name) { return name && *name && !std::strchr(name, '='); }

}  // namespace

const char* ZSV1_GetProcessEnv(const char* name) {
    if (!usableName(name)) return nullptr;
    try {
        const std::lock_guard<std::mutex> hold(environment().mutex);
        return environment().get(name);
    } catch (...) {  // no memory for the index
        return nullptr;
    }
}

const char* ZSV1_GetEnv(const char* name) {
    if (!usableName(name)) return nullptr;
    if (const char* value = ZSV1_GetProcessEnv(name)) return value;
    return almanac::host::hostConfigurationValue(name);
}

int ZSV1_PutEnv(const char* assignment) {
    if (!assignment || *assignment == '=' || !std::strchr(assignment, '=')) return -1;
    try {
        const std::lock_guard<std::mutex> hold(environment().mutex);
        environment().put(assignment);
        return 0;
    } catch (...) {
        return -1;
    }
}

int ZSV1_UnsetEnv(const char* name) {
    if (!usableName(name)) return -1;
    const std::lock_guard<std::mutex> hold(environment().mutex);
    return environment().unset(name);
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
