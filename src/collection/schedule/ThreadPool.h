// ThreadPool: collection jobs on a fixed number of worker threads, first in, first out. All state under one mutex; a
// job runs without it, so collections of different classes run side by side.
#pragma once

#include <condition_variable>
#include <ctime>
#include <deque>
#include <mutex>

#include "foundation/List.h"
#include "foundation/StopSignal.h"

class VXClientClass;

class IThreadPoolJob {
  public:
    virtual ~IThreadPoolJob() = default;
    virtual void execute() = 0;
    virtual void setTimeOnQueue(const timespec& time) { timeOnQueue_ = time; }  // monotonic
    const timespec& getTimeOnQueue() const { return timeOnQueue_; }

  private:
    timespec timeOnQueue_{};
};

// Collects one class's data.
class CollectDataJob : public IThreadPoolJob {
  public:
    // The class is not owned, but held against deletion until the job is gone. The identity is copied.
    CollectDataJob(VXClientClass* queryClass, const char* requestId);
    ~CollectDataJob() override;
    void execute() override;
    void setTimeOnQueue(const timespec& time) override;
    // Collect only if the data has expired.
    void setUseCache(bool on) { useCache_ = on; }

  private:
    VXClientClass* queryClass_;
    char* requestId_;
    bool useCache_ = false;
};

struct ThreadPoolStatistics {
    int poolSize = 0;
    int activeThreads = 0;
    int totalJobs = 0;
    double averageActiveThreads = -1.0;
    int minActiveThreads = 0;
    int maxActiveThreads = 0;
    int queueLength = 0;
    double averageQueueLength = -1.0;
    int minQueueLength = 0;
    int maxQueueLength = 0;
    double averageJobWait = -1.0;  // seconds
};

class ThreadPool {
  public:
    // Starts `size` threads; one that cannot start is traced and still counted in the size.
    explicit ThreadPool(int size);
    virtual ~ThreadPool();  // stops, waits, deletes the jobs still queued
    ThreadPool(const ThreadPool&) = delete;
    ThreadPool& operator=(const ThreadPool&) = delete;

    void submitJob(IThreadPoolJob* job);  // takes over
    void submitJobs(List* jobs);          // empties the list, in its pop order
    ThreadPoolStatistics getTPStatistics();
    // Takes no further job and waits for the running ones. True if all threads ended in time.
    bool stop(long milliseconds);

  private:
    static void* startPoolThread(void* pool);
    void workerThreadMain();
    void countStart(int queueLength, const IThreadPoolJob* job);

    std::deque<IThreadPoolJob*> queue_;
    std::mutex mutex_;
    std::condition_variable workAvailable_;
    bool stopping_ = false;
    ThreadPoolStatistics statistics_;
    StopSignal threads_;
};

// The pool of the process, or null. Set by the loader.
extern ThreadPool* threadPool;
// Seconds a request waits for fresh data; 0: no impatient collection.
extern int impatientCollectorTimeout;
