#include "host/base/Paths.h"

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <mutex>
#include <vector>

#include "platform/zsb.h"

namespace almanac::host {
namespace {

// Taken before main, which may change the working directory. "/" where it cannot be told.
const std::string& startDirectory = *new std::string([] {
    char path[PATH_MAX];
    return std::string(getcwd(path, sizeof path) ? path : "/");
}());

std::string processValue(const char* name) {
    const char* const value = ZSV1_GetProcessEnv(name);
    return value ? value : "";
}

std::string withoutTrailingSlash(std::string path) {
    while (path.size() > 1 && path.back() == '/') path.pop_back();
    return path;
}

std::string homeDirectory() {
    const std::string home = processValue("HOME");
    if (!home.empty() && home.front() == '/') return home;
    passwd entry{};
    passwd* found = nullptr;
    std::vector<char> buffer(16 * 1024);
    if (getpwuid_r(geteuid(), &entry, buffer.data(), buffer.size(), &found) == 0 && found && found->pw_dir) {
        return found->pw_dir;
    }
    return "/";
}

bool fail(std::string* error, const std::string& text) {
    if (error) *error = text;
    return false;
}

// Makes every missing directory of the path with mode 0700.
bool makeDirectories(const std::string& path, std::string* error) {
    for (std::size_t end = path.find('/', 1);; end = path.find('/', end + 1)) {
        const std::string part = path.substr(0, end);
        struct stat info {};
        if (::stat(part.c_str(), &info) != 0 && ::mkdir(part.c_str(), 0700) != 0 && errno != EEXIST) {
            return fail(error,
                        "cannot make data directory " + path + ": " + part + ": " + std::strerror(errno));
        }
        if (end == std::string::npos) return true;
    }
}

struct ProgramName {
    std::mutex mutex;
    std::string text = "almanac";
};

ProgramName& program() {
    static ProgramName* const one = new ProgramName;  // outlives static destruction
    return *one;
}

}  // namespace

std::string fromStart(const std::string& path) {
    return path.empty() || path.front() == '/' ? path : startDirectory + (startDirectory == "/" ? "" : "/") + path;
}

std::string dataDirectory() {
    const std::string chosen = processValue("ALMANAC_DATA_DIR");
    if (!chosen.empty()) return withoutTrailingSlash(fromStart(chosen));
    if (geteuid() == 0) return "/var/lib/almanac";
    const std::string state = processValue("XDG_STATE_HOME");
    if (!state.empty() && state.front() == '/') return withoutTrailingSlash(state) + "/almanac";
    return withoutTrailingSlash(homeDirectory()) + "/.local/state/almanac";
}

bool prepareDataDirectory(std::string* error) {
    const std::string path = dataDirectory();
    if (!makeDirectories(path, error)) return false;
    struct stat info {};
    if (::stat(path.c_str(), &info) != 0) {
        return fail(error, "cannot read data directory " + path + ": " + std::strerror(errno));
    }
    if (!S_ISDIR(info.st_mode)) return fail(error, "data directory " + path + " is no directory");
    if (info.st_uid != geteuid()) return fail(error, "data directory " + path + " belongs to another user");
    if ((info.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
        return fail(error, "data directory " + path + " can be written by group or others");
    }
    if (::access(path.c_str(), W_OK | X_OK) != 0) {
        return fail(error, "data directory " + path + " cannot be written: " + std::strerror(errno));
    }
    return true;
}

std::string hostConfigurationFile() {
    const std::string chosen = processValue("ALMANAC_CONFIG");
    return chosen.empty() ? dataDirectory() + "/almanac.toml" : fromStart(chosen);
}

void setProgramName(const std::string& name) {
    const std::lock_guard<std::mutex> hold(program().mutex);
    if (!name.empty()) program().text = name;
}

std::string programName() {
    const std::lock_guard<std::mutex> hold(program().mutex);
    return program().text;
}

}  // namespace almanac::host
