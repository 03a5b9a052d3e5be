// The pool of collection threads.
#include <gtest/gtest.h>

#include <condition_variable>
#include <thread>

#include "collection/TestClass.h"
#include "collection/schedule/ThreadPool.h"
#include "host/base/TestClock.h"

namespace {

using namespace std::chrono_literals;
using almanac::test::TestClass;
namespace testclock = almanac::host::testclock;

class Log {
  public:
    void add(const std::string& text) {
        const std::lock_guard guard(mutex_);
        text_ += text + ",";
        ++count_;
        changed_.notify_all();
    }
    void wait(int count) {
        std::unique_lock lock(mutex_);
        changed_.wait_for(lock, 20s, [&] { return count_ >= count; });
    }
    std::string text() {
        const std::lock_guard guard(mutex_);
        return text_;
    }

  private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::string text_;
    int count_ = 0;
};

class Job : public IThreadPoolJob {
  public:
    Job(Log* log, std::string name, std::atomic<bool>* gate = nullptr, int* deleted = nullptr)
        : log_(log), name_(std::move(name)), gate_(gate), deleted_(deleted) {}
    ~Job() override {
        if (deleted_) ++*deleted_;
    }
    void execute() override {
        log_->add(name_);
        while (gate_ && !*gate_) std::this_thread::sleep_for(1ms);
    }

  private:
    Log* log_;
    std::string name_;
    std::atomic<bool>* gate_;
    int* deleted_;
};

void waitForTotal(ThreadPool& pool, int jobs) {
    for (int i = 0; i < 20000 && pool.getTPStatistics().totalJobs < jobs; ++i) std::this_thread::sleep_for(1ms);
}

TEST(ThreadPool, RunsFirstInFirstOutAndListsInTheirPopOrder) {
    Log log;
    ThreadPool pool(1);
    std::atomic<bool> gate{false};
    pool.submitJob(new Job(&log, "a", &gate));
    log.wait(1);
    pool.submitJob(new Job(&log, "b"));
    List jobs;
    for (const char* name : {"e", "d", "c"}) jobs.add(new Job(&log, name));
    pool.submitJobs(&jobs);
    EXPECT_EQ(jobs.getCount(), 0);
    EXPECT_EQ(pool.getTPStatistics().queueLength, 4);
    EXPECT_EQ(pool.getTPStatistics().activeThreads, 1);
    gate = true;
    waitForTotal(pool, 5);
    EXPECT_EQ(log.text(), "a,b,c,d,e,");
}

TEST(ThreadPool, KeepsItsStatistics) {
    testclock::Guard clock;
    ThreadPool pool(2);
    ThreadPoolStatistics s = pool.getTPStatistics();
    EXPECT_EQ(s.poolSize, 2);
    EXPECT_EQ(s.minActiveThreads, 2);
    EXPECT_EQ(s.minQueueLength, 2);
    EXPECT_EQ(s.maxActiveThreads + s.maxQueueLength + s.totalJobs, 0);
    EXPECT_DOUBLE_EQ(s.averageJobWait, -1.0);
    Log log;
    std::atomic<bool> gate{false};
    pool.submitJob(new Job(&log, "a", &gate));
    log.wait(1);
    pool.submitJob(new Job(&log, "b", &gate));
    log.wait(2);
    for (const char* name : {"c", "d", "e"}) pool.submitJob(new Job(&log, name));
    testclock::advance(6s);  // c to e wait so long
    gate = true;
    waitForTotal(pool, 5);
    s = pool.getTPStatistics();
    EXPECT_EQ(s.activeThreads, 0);
    EXPECT_EQ(s.queueLength, 0);
    EXPECT_EQ(s.minActiveThreads, 1);
    EXPECT_EQ(s.maxActiveThreads, 2);
    EXPECT_EQ(s.minQueueLength, 1);
    EXPECT_EQ(s.maxQueueLength, 3);
    EXPECT_GT(s.averageJobWait, 0.0);
    EXPECT_LE(s.averageJobWait, 6.0);
    EXPECT_GE(s.averageQueueLength, 1.0);
}

TEST(ThreadPool, StopsInBoundedTimeWhateverHangsAndRunsNothingAfterwards) {
    Log log;
    std::atomic<bool> gate{false};
    int deleted = 0;
    {
        ThreadPool pool(2);
        pool.submitJob(new Job(&log, "hung", &gate));
        log.wait(1);
        const auto start = std::chrono::steady_clock::now();
        EXPECT_FALSE(pool.stop(50));
        EXPECT_LT(std::chrono::steady_clock::now() - start, 5s);
        pool.submitJob(new Job(&log, "late", nullptr, &deleted));
        gate = true;
        EXPECT_TRUE(pool.stop(20000));
        EXPECT_EQ(deleted, 0);
    }
    EXPECT_EQ(deleted, 1);
    EXPECT_EQ(log.text(), "hung,");
}

TEST(CollectDataJob, MarksHoldsAndCollectsItsClass) {
    testclock::Guard clock;
    TestClass c("JOB"), events("JOBEV", nullptr, VX_EVENT_LOG);
    {
        CollectDataJob always(&c, "1"), cached(&c, "2"), none(&events, nullptr);
        EXPECT_TRUE(c.isHeld());
        EXPECT_FALSE(c.isOnQueue());
        always.setTimeOnQueue(timespec{5, 0});
        EXPECT_TRUE(c.isOnQueue());
        EXPECT_EQ(always.getTimeOnQueue().tv_sec, 5);
        always.execute();
        EXPECT_FALSE(c.isOnQueue());
        always.execute();
        EXPECT_EQ(c.collections.load(), 2);
        cached.setUseCache(true);
        cached.execute();
        EXPECT_EQ(c.collections.load(), 2);
        testclock::advance(31s);
        cached.execute();
        EXPECT_EQ(c.collections.load(), 3);
        EXPECT_EQ(c.lastRequest(), "2");
        none.setTimeOnQueue(timespec{});
        none.execute();
        EXPECT_EQ(events.collections.load(), 0);
        EXPECT_FALSE(events.isOnQueue());
    }
    EXPECT_FALSE(c.isHeld());
}

}  // namespace
