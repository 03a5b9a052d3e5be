// What the host's tests share: a folder that goes away, files in it, and variables set for a while.
#pragma once

#include <stdlib.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "platform/zsb.h"

namespace almanac::host::test {

class Scratch {
  public:
    Scratch() {
        std::string name = (std::filesystem::temp_directory_path() / "almanac-test-XXXXXX").string();
        path_ = ::mkdtemp(name.data());
    }
    ~Scratch() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    Scratch(const Scratch&) = delete;
    Scratch& operator=(const Scratch&) = delete;

    std::string path(const std::string& name = "") const { return name.empty() ? path_ : path_ + "/" + name; }

  private:
    std::string path_;
};

inline std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

inline void writeFile(const std::string& path, const std::string& text) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
}

inline unsigned modeOf(const std::string& path) {
    struct stat info {};
    return ::stat(path.c_str(), &info) == 0 ? info.st_mode & 07777u : 0u;
}

class Variable {
  public:
    Variable(const std::string& name, const std::string& value) : name_(name) {
        const char* const before = ZSV1_GetProcessEnv(name.c_str());
        had_ = before != nullptr;
        before_ = before ? before : "";
        ZSV1_PutEnv((name + "=" + value).c_str());
    }
    ~Variable() {
        if (had_) {
            ZSV1_PutEnv((name_ + "=" + before_).c_str());
        } else {
            ZSV1_UnsetEnv(name_.c_str());
        }
    }
    Variable(const Variable&) = delete;
    Variable& operator=(const Variable&) = delete;

  private:
    std::string name_;
    std::string before_;
    bool had_ = false;
};

}  // namespace almanac::host::test
