#include "host/assembly/InstanceLock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace almanac::host {

InstanceLock::~InstanceLock() { release(); }

bool InstanceLock::take(const std::string& dataDirectory, std::string* error) {
    const std::string path = dataDirectory + "/almanac.lock";
    const int fd = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (fd < 0) {
        *error = path + ": " + std::strerror(errno);
        return false;
    }
    if (flock(fd, LOCK_EX | LOCK_NB) != 0) {
        const int reason = errno;
        char pid[24] = "";
        const ssize_t length = reason == EWOULDBLOCK ? pread(fd, pid, sizeof pid - 1, 0) : -1;
        close(fd);
        if (reason != EWOULDBLOCK) {
            *error = path + ": " + std::strerror(reason);
            return false;
        }
        pid[length > 0 ? length : 0] = '\0';
        pid[std::strspn(pid, "0123456789")] = '\0';
        *error = "another agent (pid " + std::string(*pid ? pid : "unknown") + ") uses the data directory " +
                 dataDirectory;
        return false;
    }
    const std::string pid = std::to_string(getpid()) + "\n";
    if (ftruncate(fd, 0) != 0 || pwrite(fd, pid.data(), pid.size(), 0) != static_cast<ssize_t>(pid.size())) {
        *error = path + ": " + std::strerror(errno);
        close(fd);
        return false;
    }
    fd_ = fd;
    return true;
}

void InstanceLock::release() {
    if (fd_ < 0) return;
    (void)!ftruncate(fd_, 0);
    close(fd_);
    fd_ = -1;
}

}  // namespace almanac::host
