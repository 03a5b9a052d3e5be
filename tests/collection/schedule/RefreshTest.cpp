// The schedule of the refresh thread.
#include <gtest/gtest.h>

#include <thread>

#include "collection/TestClass.h"
#include "collection/TestDirectory.h"
#include "collection/schedule/RefreshThread.h"
#include "collection/schedule/ThreadPool.h"
#include "foundation/Clock.h"
#include "host/Scratch.h"
#include "host/base/TestClock.h"

namespace {

using namespace std::chrono_literals;
using almanac::host::test::Variable;
using almanac::test::Group;
using almanac::test::nameAndNumber;
using almanac::test::TestClass;
namespace testclock = almanac::host::testclock;

// The agent's list of classes for a test, and what they note when they are collected.
class Refresh : public testing::Test {
  protected:
    Refresh() { queryClassList = &list_; }
    ~Refresh() override {
        while (list_.getClassListCursor().hasMoreElements()) {
            list_.removeClientClass(static_cast<VXClientClass*>(list_.getClassListCursor().getCurrentElement()));
        }
        queryClassList = nullptr;
    }
    TestClass* add(const char* name, int interval) {
        classes_.push_back(std::make_unique<TestClass>(name, [this, name](TestClass&) {
            const std::lock_guard guard(mutex_);
            order_ += std::string(name) + ",";
        }));
        classes_.back()->setRefreshInterval(interval);
        list_.addClientClass(classes_.back().get());
        return classes_.back().get();
    }
    std::string order() {
        const std::lock_guard guard(mutex_);
        return order_;
    }
    static long now() { return static_cast<long>(Clock::monotonic().tv_sec); }

    VXClientClassList list_;
    std::vector<std::unique_ptr<TestClass>> classes_;
    std::mutex mutex_;
    std::string order_;
};

TEST_F(Refresh, ClassesGetTheirTimesAtTheStart) {
    Group discovery("RDISC", nameAndNumber()), plain("RPLAIN", nameAndNumber());
    discovery.meta->setIsDiscoveryAttributeGroup(true);
    testclock::Guard clock;
    TestClass* own = add("ROWN", 7);
    TestClass* common = add("RPLAIN", 0);
    TestClass* discovered = add("RDISC", 5);
    TestClass* shut = add("RSHUT", 9);
    shut->setThreadPoolEligible(false);
    {
        RefreshThread refresh(60);
        EXPECT_EQ(own->getNextRefresh(), now() + 7);
        EXPECT_EQ(common->getNextRefresh(), now() + 60);
        EXPECT_EQ(common->getRefreshInterval(), 60);  // the class keeps what it is refreshed by
        EXPECT_EQ(discovered->getNextRefresh(), 0);
        EXPECT_EQ(shut->getNextRefresh(), 0);
        refresh.addToSchedQueue(own);
        EXPECT_EQ(own->getNextRefresh(), now() + 14);  // from when it was due, not from now
    }
    Variable delay("CDP_DP_INITIAL_COLLECTION_DELAY", "0");
    RefreshThread at_once(60);
    EXPECT_EQ(own->getNextRefresh(), now());
    EXPECT_EQ(common->getNextRefresh(), now());
}

TEST_F(Refresh, AnEmptyScheduleEndsTheThread) {
    add("RNONE", 0);
    RefreshThread refresh(0);
    refresh.run();
    EXPECT_EQ(refresh.start(), 0);
    EXPECT_TRUE(refresh.stop(20000));
}

TEST_F(Refresh, ALateThreadCatchesUpInOrderAndTiesRunNewestFirst) {
    testclock::Guard clock;
    // All were due while the thread had not started: A at 2, B and C at 3. A's next time, 4, has not come.
    for (const char* name : {"A", "B", "C"}) {
        TestClass* c = add(name, *name == 'A' ? 2 : 3);
        c->setThreadPoolEligible(true);
    }
    RefreshThread refresh(0);
    testclock::advance(3s);
    ThreadPool pool(1);
    threadPool = &pool;  // jobs of a pool always collect, whatever the cache says
    ASSERT_EQ(refresh.start(), 0);
    for (int i = 0; i < 20000 && order().size() < 6; ++i) std::this_thread::sleep_for(1ms);
    EXPECT_EQ(order(), "A,C,B,");
    EXPECT_TRUE(refresh.stop(20000));
    threadPool = nullptr;
    EXPECT_TRUE(pool.stop(20000));
    EXPECT_EQ(classes_[0]->getNextRefresh(), now() + 1);
    EXPECT_EQ(classes_[0]->lastRequest() + classes_[1]->lastRequest(), "0000000000000002");
}

TEST_F(Refresh, WithoutAPoolTheThreadAsksTheCacheItself) {
    TestClass* c = add("RCACHE", 5);
    RefreshThread refresh(0);
    refresh.startJob(c);
    refresh.startJob(c);
    EXPECT_EQ(c->collections.load(), 1);
    EXPECT_EQ(c->getPerfstats().cacheHits, 1);
}

TEST_F(Refresh, AnIntervalIsSkippedWhileTheClassIsOnTheQueue) {
    TestClass* c = add("RSKIP", 5);
    RefreshThread refresh(0);
    c->setOnQueue(true);
    refresh.startJob(c);
    refresh.startJob(c);
    c->setOnQueue(false);
    refresh.startJob(c);
    EXPECT_EQ(c->getPerfstats().skippedIntervals, 2);
    EXPECT_EQ(c->collections.load(), 1);
    EXPECT_EQ(c->lastRequest(), "00000000");  // skipped ones take no number
}

TEST_F(Refresh, AFullPoolGathersOneJobOfAClassHoweverOftenItIsRequested) {
    std::atomic<bool> gate{false};
    TestClass hung("RHUNG", [&gate](TestClass&) {
        while (!gate) std::this_thread::sleep_for(1ms);
    });
    TestClass* asked = add("RASKED", 5);
    RefreshThread refresh(0);
    ThreadPool pool(1);
    threadPool = &pool;
    refresh.startJob(&hung);
    for (int i = 0; i < 20000 && hung.collections == 0; ++i) std::this_thread::sleep_for(1ms);
    for (int i = 0; i < 3; ++i) {
        refresh.startJob(asked);
        asked->setOnQueue(false);  // a request ends
    }
    EXPECT_EQ(pool.getTPStatistics().queueLength, 1);
    EXPECT_EQ(asked->getPerfstats().skippedIntervals, 2);
    gate = true;
    for (int i = 0; i < 20000 && asked->hasJob(); ++i) std::this_thread::sleep_for(1ms);
    EXPECT_EQ(asked->collections.load(), 1);
    refresh.startJob(asked);
    EXPECT_TRUE(asked->hasJob() || asked->collections > 1);  // the next interval is served again
    EXPECT_TRUE(pool.stop(20000));
    threadPool = nullptr;
}

TEST_F(Refresh, ATableHungForAnHourDelaysNeitherTheOthersNorTheStop) {
    testclock::Guard clock;
    std::atomic<bool> gate{false};
    TestClass hung("RHUNG", [&gate](TestClass&) {
        while (!gate) std::this_thread::sleep_for(1ms);
    });
    hung.setRefreshInterval(60);
    list_.addClientClass(&hung);
    TestClass* other = add("ROTHER", 60);
    RefreshThread refresh(0);
    ThreadPool pool(2);
    threadPool = &pool;
    testclock::advance(1h);  // sixty intervals of each class fall due, one after the other
    ASSERT_EQ(refresh.start(), 0);
    for (int i = 0; i < 20000 && hung.getPerfstats().skippedIntervals < 59; ++i) std::this_thread::sleep_for(1ms);
    EXPECT_EQ(hung.getPerfstats().skippedIntervals, 59);
    for (int i = 0; i < 20000 && other->isOnQueue(); ++i) std::this_thread::sleep_for(1ms);
    EXPECT_EQ(other->collections.load() + other->getPerfstats().skippedIntervals, 60);
    EXPECT_GE(other->collections.load(), 1);
    EXPECT_EQ(hung.getNextRefresh(), now() + 60);  // it has caught up
    const auto start = std::chrono::steady_clock::now();
    EXPECT_TRUE(refresh.stop(20000));
    EXPECT_FALSE(pool.stop(50));
    EXPECT_LT(std::chrono::steady_clock::now() - start, 5s);
    gate = true;
    EXPECT_TRUE(pool.stop(20000));
    threadPool = nullptr;
    EXPECT_EQ(hung.collections.load(), 1);
    list_.removeClientClass(&hung);
}

// Answers with the clones it is given.
class Directory : public almanac::test::TestDirectory {
  public:
    using TestDirectory::getAllSubnodeQueryClasses;
    ClassPins getAllSubnodeQueryClasses(const AttributeGroupMeta*) override {
        ClassPins all;
        for (VXClientClass* clone : clones) all.emplace_back(clone);
        return all;
    }
    std::vector<VXClientClass*> clones;
};

TEST_F(Refresh, ATemplateIsScheduledAndItsClonesCollect) {
    testclock::Guard clock;
    Group group("RSUB", nameAndNumber(), "SUB");
    TestClass* all = add("RSUB", 30);
    std::atomic<bool> lockFree{true};
    Directory directory;
    TestClass one("RSUB", [&](TestClass&) {
        std::thread([&] {  // the subnode lock is not held while a clone collects
            SubnodeGuard guard;
            lockFree = true;
        }).join();
    });
    TestClass two("RSUB");
    directory.clones = {&one, &two};
    RefreshThread refresh(0);
    EXPECT_EQ(one.getRefreshInterval(), 30);  // the clones keep what they are refreshed by
    lockFree = false;
    testclock::advance(30s);
    ASSERT_EQ(refresh.start(), 0);
    for (int i = 0; i < 20000 && two.collections == 0; ++i) std::this_thread::sleep_for(1ms);
    EXPECT_TRUE(refresh.stop(20000));
    EXPECT_EQ(all->collections.load(), 0);
    EXPECT_EQ(one.collections.load(), 1);
    EXPECT_EQ(two.collections.load(), 1);
    EXPECT_TRUE(lockFree.load());
    EXPECT_FALSE(one.isHeld());
}

TEST_F(Refresh, ClonesBehindASlowOneAreNotCollectedOnceTheyAreRetiredOrAStopIsAsked) {
    testclock::Guard clock;
    Group group("RSLOW", nameAndNumber(), "SUB");
    add("RSLOW", 30);
    Directory directory;
    RefreshThread* refresh = nullptr;
    TestClass retired("RSLOW"), behind("RSLOW");
    TestClass first("RSLOW", [&](TestClass&) { retired.setZombie(true); });
    TestClass stopping("RSLOW", [&](TestClass&) { refresh->stop(0); });
    directory.clones = {&first, &retired, &stopping, &behind};
    RefreshThread thread(0);
    refresh = &thread;
    testclock::advance(30s);
    thread.run();
    EXPECT_EQ(first.collections + stopping.collections, 2);
    EXPECT_EQ(retired.collections.load(), 0);
    EXPECT_EQ(behind.collections.load(), 0);
}

}  // namespace
