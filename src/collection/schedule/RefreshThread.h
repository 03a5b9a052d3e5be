// RefreshThread: triggers the collection of each attribute group on its own fixed schedule, so that data is ready
// before it is asked for. The schedule is touched by this thread alone.
#pragma once

#include <map>

#include "foundation/StopSignal.h"

class VXClientClass;

class RefreshThread {
  public:
    // Schedules the classes of the global list; `interval` (seconds) is for those without one of their own.
    explicit RefreshThread(int interval);
    virtual ~RefreshThread() = default;
    RefreshThread(const RefreshThread&) = delete;
    RefreshThread& operator=(const RefreshThread&) = delete;

    // Until a stop; returns at once with an empty schedule.
    void run();
    // Moves the class's next refresh on by its interval and puts it back in order.
    void addToSchedQueue(VXClientClass* queryClass);
    void startJob(VXClientClass* queryClass);
    int getRefreshInterval() const { return refreshInterval_; }
    // Starts the thread on this object: 0, or the error number.
    int start();
    // Asks the thread to end; true if it ended in time.
    bool stop(long milliseconds);
    // The last thing the thread does with this object.
    void threadEnded() { stop_.threadEnded(); }

  private:
    void schedule(VXClientClass* queryClass, long now, bool delaySet, long delay);
    void insert(VXClientClass* queryClass);
    void startJobs(VXClientClass* queryClass);

    int refreshInterval_;
    unsigned nextJobId_ = 0;
    std::multimap<long, VXClientClass*> schedule_;  // by next refresh, monotonic seconds
    StopSignal stop_;
};

// Thread body: traces, calls run.
void* startRefreshThread(void* refreshThread);

// The refresh thread of the process, or null. Set by the loader.
extern RefreshThread* refreshThread;
