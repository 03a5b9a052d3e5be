// One agent for one data directory: "<data directory>/almanac.lock", locked with flock(2) for the life of the
// process and carrying its pid as text.
#pragma once

#include <string>

namespace almanac::host {

class InstanceLock {
  public:
    InstanceLock() = default;
    ~InstanceLock();
    InstanceLock(const InstanceLock&) = delete;
    InstanceLock& operator=(const InstanceLock&) = delete;

    // False with one line in `error`, which names the pid of the agent that holds the lock.
    bool take(const std::string& dataDirectory, std::string* error);
    // Gives the lock back; the file stays.
    void release();

  private:
    int fd_ = -1;
};

}  // namespace almanac::host
