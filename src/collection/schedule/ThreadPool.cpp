#include "collection/schedule/ThreadPool.h"

#include <pthread.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "collection/VXClientClass.h"
#include "foundation/Clock.h"
#include "foundation/Trace.h"
#include "foundation/Utilities.h"

ThreadPool* threadPool = nullptr;
int impatientCollectorTimeout = 0;

CollectDataJob::CollectDataJob(VXClientClass* queryClass, const char* requestId)
    : queryClass_(queryClass), requestId_(strdup(requestId ? requestId : "")) {
    queryClass_->hold();
    queryClass_->jobMade();
}

CollectDataJob::~CollectDataJob() {
    queryClass_->jobGone();
    queryClass_->unhold();
    std::free(requestId_);
}

void CollectDataJob::setTimeOnQueue(const timespec& time) {
    IThreadPoolJob::setTimeOnQueue(time);
    queryClass_->setOnQueue(true);
}

void CollectDataJob::execute() {
    TRACE_FUNCTION();
    if (queryClass_->getObjectType() == VX_EVENT_LOG) {
        trace_error("Can't execute WinLogQueryList on non-Windows system");
    } else if (useCache_) {
        queryClass_->collectDataIfNeeded(requestId_);
    } else {
        queryClass_->collectData(requestId_);
    }
    queryClass_->setOnQueue(false);
}

ThreadPool::ThreadPool(int size) {
    TRACE_FUNCTION();
    statistics_.poolSize = size;
    // Kept: both minima start at the size of the pool and can report nothing above it.
    statistics_.minActiveThreads = size;
    statistics_.minQueueLength = size;
    for (int i = 0; i < size; ++i) {
        pthread_t thread;
        threads_.threadStarted();
        const int rc = pthread_create(&thread, nullptr, startPoolThread, this);
        if (rc == 0) {
            pthread_detach(thread);
        } else {
            threads_.threadEnded();
            trace_error("Failed to start pool thread #%d, rc = %d", i, rc);
        }
    }
}

ThreadPool::~ThreadPool() {
    stop(24L * 3600 * 1000);
    for (IThreadPoolJob* job : queue_) delete job;
}

bool ThreadPool::stop(long milliseconds) {
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
        workAvailable_.notify_all();
    }
    return threads_.waitForEnd(milliseconds);
}

void ThreadPool::submitJob(IThreadPoolJob* job) {
    std::lock_guard lock(mutex_);
    job->setTimeOnQueue(Clock::monotonic());
    queue_.push_back(job);
    workAvailable_.notify_one();
}

void ThreadPool::submitJobs(List* jobs) {
    std::lock_guard lock(mutex_);
    const timespec now = Clock::monotonic();
    while (auto* job = static_cast<IThreadPoolJob*>(jobs->pop())) {
        job->setTimeOnQueue(now);
        queue_.push_back(job);
    }
    workAvailable_.notify_all();
}

ThreadPoolStatistics ThreadPool::getTPStatistics() {
    std::lock_guard lock(mutex_);
    statistics_.queueLength = static_cast<int>(queue_.size());
    return statistics_;
}

void* ThreadPool::startPoolThread(void* pool) {
    static_cast<ThreadPool*>(pool)->workerThreadMain();
    return nullptr;
}

void ThreadPool::countStart(int queueLength, const IThreadPoolJob* job) {
    ThreadPoolStatistics& s = statistics_;
    s.averageActiveThreads = Utilities::calculateAverage(s.averageActiveThreads, s.activeThreads, s.totalJobs);
    s.minActiveThreads = std::min(s.minActiveThreads, s.activeThreads);
    s.maxActiveThreads = std::max(s.maxActiveThreads, s.activeThreads);
    s.averageQueueLength = Utilities::calculateAverage(s.averageQueueLength, queueLength, s.totalJobs);
    s.minQueueLength = std::min(s.minQueueLength, queueLength);
    s.maxQueueLength = std::max(s.maxQueueLength, queueLength);
    const double wait = Clock::seconds(Clock::monotonic()) - Clock::seconds(job->getTimeOnQueue());
    s.averageJobWait = Utilities::calculateAverage(s.averageJobWait, wait, s.totalJobs);
}

void ThreadPool::workerThreadMain() {
    TRACE_FUNCTION();
    std::unique_lock lock(mutex_);
    while (!stopping_) {
        const int length = static_cast<int>(queue_.size());
        if (length < 1) {
            trace_detail("There is no work on the queue, sleeping until needed");
            workAvailable_.wait(lock);
            continue;
        }
        IThreadPoolJob* job = queue_.front();
        queue_.pop_front();
        ++statistics_.activeThreads;
        countStart(length, job);
        lock.unlock();
        job->execute();
        delete job;
        lock.lock();
        --statistics_.activeThreads;
        ++statistics_.totalJobs;
    }
    lock.unlock();
    threads_.threadEnded();
}
