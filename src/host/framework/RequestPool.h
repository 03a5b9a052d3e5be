// The request threads: made on demand, bounded, and without any timer. Jobs carry a key (a table); only a few
// of one key run at once, so that a table that hangs never takes all threads.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>

namespace almanac::host {

class RequestPool {
  public:
    struct Limits {
        std::size_t threads = 16;
        std::size_t queue = 256;  // jobs that wait, of all keys
        std::size_t runningPerKey = 2;
        std::size_t queuePerKey = 64;
        std::size_t idleThreads = 2;  // threads that stay when there is nothing to do
    };
    enum class Submitted { Accepted, Busy, Stopped };

    // `run` is true on a request thread; false if the job is dropped because the pool stops, on the stopping
    // thread. Exactly one call comes for each accepted job.
    using Job = std::function<void(bool run)>;

    explicit RequestPool(const Limits& limits);
    // Stops taking jobs and drops those that wait; threads that are inside a job end when it returns.
    ~RequestPool();
    RequestPool(const RequestPool&) = delete;
    RequestPool& operator=(const RequestPool&) = delete;

    Submitted submit(const void* key, Job job);
    // For the framework's own short work (deleting a request): runs whatever the bounds say, until stop().
    bool submitHousekeeping(Job job);

    // Refuses jobs from now on and drops those that wait.
    void refuse();
    // Waits until no job runs or waits, housekeeping included. False if `deadline` came first.
    bool drain(std::chrono::steady_clock::time_point deadline);
    // Ends the idle threads; later jobs are refused.
    void stop();

    std::size_t threads() const;

  private:
    struct Shared;
    std::shared_ptr<Shared> shared_;
};

}  // namespace almanac::host
