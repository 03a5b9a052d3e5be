// The stages of the process: before zhbmain, running, shutdown asked for, ended.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

namespace almanac::host {

class Lifecycle {
  public:
    static constexpr std::chrono::seconds kShutdownWait{10};

    // zhbmain starts on this thread. False if it has started before.
    bool enterMain();
    // Asks for the shutdown. Waits until leaveMain has been called, `wait` at most, unless zhbmain has not
    // started, or the caller is zhbmain's own thread or a thread inside a request (which the end waits for).
    void shutDown(int reason, std::chrono::nanoseconds wait = kShutdownWait);
    bool asked() const;
    int reason() const;
    // Sleeps until the shutdown is asked for.
    void waitAsked();
    // When the shutdown was asked for, or now if it was not.
    std::chrono::steady_clock::time_point askedAt() const;
    // The tables are gone: RemoteManager::GetManager gives null from now on.
    void end();
    bool ended() const;
    // zhbmain has done all it does; whoever waits in shutDown goes on.
    void leaveMain();

  private:
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::thread::id mainThread_;
    std::chrono::steady_clock::time_point askedAt_;
    int reason_ = 0;
    bool started_ = false, asked_ = false, ended_ = false, left_ = false;
};

}  // namespace almanac::host
