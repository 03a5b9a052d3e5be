// SignalManager: one thread takes the process's signals. It is made before any other thread, so that all of them inherit
// the blocked mask, and is never destroyed by main.
#pragma once

#include <pthread.h>

class SignalManager {
  public:
    SignalManager();   // blocks the signals and starts the thread; a failure exits with -1
    ~SignalManager();  // stops the thread unless it is the calling one
    SignalManager(const SignalManager&) = delete;
    SignalManager& operator=(const SignalManager&) = delete;

    pthread_t thread() const { return thread_; }

  private:
    static void* threadMain(void* self);
    static void blockSignals();
    void startManagerThread();
    void stopManagerThread();
    void waitForSignal();
    void shutDown();

    pthread_t thread_{};
};

// The collection daemon's process, -1 until one runs.
extern int Stat_daemon_PID;
