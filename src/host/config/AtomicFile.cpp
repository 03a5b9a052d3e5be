#include "host/config/AtomicFile.h"

#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace almanac::host {
namespace {

bool failWithErrno(std::string* error, const std::string& path) {
    if (error) *error = path + ": " + std::strerror(errno);
    return false;
}

struct CloseFolder {
    void operator()(DIR* folder) const { ::closedir(folder); }
};

// Names beside the file are ".<name>.<process>.<number>"; those of processes that are gone are swept.
void sweep(const std::string& folder, const std::string& prefix) {
    const std::unique_ptr<DIR, CloseFolder> open(::opendir(folder.c_str()));
    if (!open) return;
    while (const dirent* const entry = ::readdir(open.get())) {
        if (std::strncmp(entry->d_name, prefix.c_str(), prefix.size()) != 0) continue;
        char* end = nullptr;
        const long process = std::strtol(entry->d_name + prefix.size(), &end, 10);
        if (process <= 0 || *end != '.' || process == ::getpid()) continue;
        if (::kill(static_cast<pid_t>(process), 0) == 0 || errno != ESRCH) continue;
        ::unlink((folder + "/" + entry->d_name).c_str());
    }
}

bool writeAll(int fd, const std::string& content) {
    for (std::size_t put = 0; put < content.size();) {
        const ssize_t count = ::write(fd, content.data() + put, content.size() - put);
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) return false;
        put += static_cast<std::size_t>(count);
    }
    return ::fsync(fd) == 0;
}

bool writeNewFile(const std::string& path, const std::string& content) {
    ::unlink(path.c_str());  // ours by its number: an earlier process of this number may have left it
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (fd < 0) return false;
    const bool written = writeAll(fd, content);
    const int kept = errno;
    const bool closed = ::close(fd) == 0;  // some file systems tell of a full disk only now
    if (!written) errno = kept;
    return written && closed;
}

}  // namespace

bool replaceFile(const std::string& path, const std::string& content, std::string* error) {
    static std::atomic<unsigned> number{0};
    const std::size_t slash = path.rfind('/');
    const std::string folder = slash == std::string::npos ? "." : path.substr(0, slash + 1);
    const std::string prefix = "." + path.substr(slash == std::string::npos ? 0 : slash + 1) + ".";
    sweep(folder, prefix);
    const std::string beside =
        folder + "/" + prefix + std::to_string(::getpid()) + "." + std::to_string(number.fetch_add(1));
    if (!writeNewFile(beside, content) || ::rename(beside.c_str(), path.c_str()) != 0) {
        failWithErrno(error, path);
        ::unlink(beside.c_str());
        return false;
    }
    const int directory = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (directory >= 0) {
        ::fsync(directory);
        ::close(directory);
    }
    return true;
}

}  // namespace almanac::host
