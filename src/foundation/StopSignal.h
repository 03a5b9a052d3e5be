// StopSignal: lets background threads sleep until a stop is asked for, and lets the one who stops them wait for their
// end with a bound.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

class StopSignal {
  public:
    // Sleeps; false as soon as a stop is asked for.
    bool sleepFor(long milliseconds) {
        std::unique_lock lock(mutex_);
        return !changed_.wait_for(lock, std::chrono::milliseconds(milliseconds), [this] { return stopped_; });
    }
    bool isStopped() {
        std::lock_guard lock(mutex_);
        return stopped_;
    }
    void stop() {
        std::lock_guard lock(mutex_);
        stopped_ = true;
        changed_.notify_all();
    }
    void threadStarted() {
        std::lock_guard lock(mutex_);
        ++running_;
    }
    // The last thing a thread does with this object.
    void threadEnded() {
        std::lock_guard lock(mutex_);
        --running_;
        changed_.notify_all();
    }
    // True if all threads have ended in time.
    bool waitForEnd(long milliseconds) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, std::chrono::milliseconds(milliseconds), [this] { return running_ == 0; });
    }

  private:
    std::mutex mutex_;
    std::condition_variable changed_;
    bool stopped_ = false;
    int running_ = 0;
};
