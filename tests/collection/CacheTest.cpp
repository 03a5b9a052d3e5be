// When a class collects, what its results are afterwards, and what requests see of it.
#include <gtest/gtest.h>

#include <thread>

#include "collection/TestClass.h"
#include "foundation/Clock.h"
#include "host/Scratch.h"
#include "host/base/TestClock.h"

namespace {

using namespace std::chrono_literals;
using namespace almanac::test;
using almanac::host::test::Variable;
namespace testclock = almanac::host::testclock;

// Rows of the names given, in order, at each collection.
TestClass::Collector names(const std::vector<const char*>& of) {
    return [of](TestClass& c) {
        for (const char* name : of) c.addResultInstance(c.named(name, c.collections));
    };
}

TEST(TimeToLive, HasADefaultAndAFloor) {
    EXPECT_EQ(TestClass("G").getTimeToLive(), 30);
    const struct {
        const char* value;
        int seconds;
    } cases[] = {{"45", 45}, {"2", 2}, {"1", 1}, {"0", 1}, {"-7", 1}, {"", 1}, {"soon", 1}};
    for (const auto& c : cases) {
        Variable set("CDP_DP_CACHE_TTL", c.value);
        EXPECT_EQ(TestClass("G").getTimeToLive(), c.seconds) << c.value;
    }
}

TEST(TimeToLive, RefreshIntervalIsNamedAfterTheGroup) {
    Variable set("CDP_DISK_USAGE_REFRESH_INTERVAL", "75");
    TestClass disk("Disk_Usage");
    EXPECT_EQ(disk.getRefreshInterval(), 75);
    EXPECT_EQ(TestClass("Disk").getRefreshInterval(), 0);
    EXPECT_EQ(TestClass(&disk, "key").getRefreshInterval(), 75);
    Variable negative("CDP_DISK_REFRESH_INTERVAL", "-5");
    EXPECT_EQ(TestClass("Disk").getRefreshInterval(), 0);  // none, also where it is shown
}

TEST(Cache, IsAskedUntilTheTimeIsOverOnTheMonotonicClock) {
    Group group("CACHE", nameAndNumber());
    testclock::Guard clock;
    TestClass c("CACHE", names({"a"}));
    c.withNameAndNumber();
    EXPECT_TRUE(c.isExpired());
    c.collectDataIfNeeded("1");
    const struct {
        std::chrono::seconds wall, monotonic;
        int collections;
    } steps[] = {{0s, 0s, 1}, {-3600s, 29s, 1}, {7200s, 0s, 1}, {0s, 1s, 2}, {-86400s, 30s, 3}};
    int requests = 1;
    for (const auto& s : steps) {
        testclock::advanceWall(s.wall);
        testclock::advanceMonotonic(s.monotonic);
        c.collectDataIfNeeded("2");
        ++requests;
        EXPECT_EQ(c.collections.load(), s.collections) << requests;
    }
    const PerfStats stats = c.getPerfstats();
    EXPECT_EQ(stats.collections, 3);  // requests that missed the cache
    EXPECT_EQ(stats.cacheHits, 3);
    EXPECT_EQ(stats.collectionCount, 3);
    c.collectData("forced");
    EXPECT_EQ(c.getPerfstats().collections, 3);  // a collection that nobody's request asked for is no miss
    EXPECT_EQ(c.getPerfstats().collectionCount, 4);
}

TEST(Cache, DurationsAreMeasuredAndAveragedByTheirFormula) {
    Group group("CACHEDUR", nameAndNumber());
    testclock::Guard clock;
    std::chrono::seconds takes = 2s;
    TestClass c("CACHEDUR", [&takes](TestClass&) {
        testclock::advanceWall(-100s);  // durations do not look at it
        testclock::advanceMonotonic(takes);
    });
    EXPECT_DOUBLE_EQ(c.getPerfstats().averageDuration, -1.0);
    c.collectData("1");
    EXPECT_DOUBLE_EQ(c.getPerfstats().lastDuration, 2.0);
    EXPECT_DOUBLE_EQ(c.getPerfstats().averageDuration, 2.0);
    takes = 4s;
    c.collectData("2");
    EXPECT_DOUBLE_EQ(c.getPerfstats().lastDuration, 4.0);
    EXPECT_DOUBLE_EQ(c.getPerfstats().averageDuration, 3.0);  // (4 / 1 + 2) / 2
    const TestClass copy(&c, "key");
    EXPECT_EQ(const_cast<TestClass&>(copy).getPerfstats().collectionCount, 0);
    EXPECT_DOUBLE_EQ(const_cast<TestClass&>(copy).getPerfstats().averageDuration, -1.0);
}

TEST(Collection, ASecondCollectorGivesUpAndLeavesTheRowsAlone) {
    Group group("COLL", nameAndNumber());
    std::atomic<bool> inside{false}, leave{false};
    TestClass c("COLL", [&](TestClass& self) {
        self.addResultInstance(self.named("a", 1));
        inside = true;
        while (!leave) std::this_thread::sleep_for(1ms);
        self.addResultInstance(self.named("b", 2));
    });
    c.withNameAndNumber();
    std::thread first([&c] { c.collectData("first"); });
    while (!inside) std::this_thread::sleep_for(1ms);
    EXPECT_TRUE(c.isCollecting());
    c.collectDataIfNeeded("second");  // returns at once
    EXPECT_EQ(c.lastRequest(), "first");
    EXPECT_EQ(namesOf(c), "");  // half a collection is not published
    leave = true;
    first.join();
    EXPECT_FALSE(c.isCollecting());
    EXPECT_EQ(c.collections.load(), 1);
    EXPECT_EQ(namesOf(c), "a,b,");
}

TEST(Collection, OneThatBringsNothingEmptiesTheResults) {
    Group group("EMPTY", nameAndNumber());
    TestClass c("EMPTY", [](TestClass& self) {
        if (self.collections == 1) self.addResultInstance(self.named("a", 1));
    });
    c.withNameAndNumber();
    c.collectData("1");
    EXPECT_EQ(namesOf(c), "a,");
    c.collectData("2");
    EXPECT_EQ(namesOf(c), "");
}

TEST(Collection, RowsCanBePutInFrontRemovedAndAddedDirectly) {
    Group group("ROWS", nameAndNumber());
    TestClass c("ROWS", [](TestClass& self) {
        for (const char* name : {"a", "b", "c"}) self.addResultInstance(self.named(name, 1));
        self.addHeadResultInstance(self.named("head", 1));
        self.addResultInstance(nullptr);
        ListCursor rows = self.getNewResultInstanceListCursor();
        rows.setToNext();  // "a"
        self.removeNewResultInstance(static_cast<ResultInstance*>(rows.getCurrentElement()), true);
    });
    c.withNameAndNumber();
    c.collectData("1");
    EXPECT_EQ(namesOf(c), "head,b,c,");
    c.addResultInstanceDirectly(c.named("late", 1));
    EXPECT_EQ(c.getResultInstanceCount(), 4);
    c.removeResultInstance(static_cast<ResultInstance*>(c.getResultInstanceListCursor().getCurrentElement()));
    EXPECT_EQ(namesOf(c), "b,c,late,");
    EXPECT_EQ(c.getResultInstanceCount(), 3);
}

TEST(Aggregate, KeepsRowsUnderTheirNamesUntilAHistoricalRequest) {
    Variable set("CDP_AGGR_AGGREGATE_RESULTS", "Yes");
    Group group("aggr", nameAndNumber());
    std::vector<const char*> rows;
    TestClass c("aggr", [&rows](TestClass& self) { names(rows)(self); });
    c.withNameAndNumber();
    ASSERT_TRUE(c.isAggregatingData());
    const struct {
        std::vector<const char*> rows;
        bool historical;
        const char* names;
        const char* numbers;  // the collection that each row came from
        int count;
    } steps[] = {
        {{"a", "b", "c"}, false, "a,b,c,", "1,1,1,", 3},
        {{"c", "d", "a"}, false, "a,b,c,d,", "2,1,2,2,", 4},      // in the old rows' places, new ones behind
        {{"e", "b", "e"}, false, "a,b,c,d,e,", "2,3,2,2,3,", 5},  // the later of two equals stays
        {{}, false, "a,b,c,d,e,", "2,3,2,2,3,", 5},
        {{"b"}, true, "b,", "5,", 1},
        {{"a"}, false, "b,a,", "5,6,", 2},  // the purge was for one collection
    };
    for (const auto& step : steps) {
        rows = step.rows;
        if (step.historical) c.setLastRequestWasHistorical();
        c.collectData("x");
        RecordingSink sink(group.meta);
        c.sendDataToHBX(&sink, "node");
        EXPECT_EQ(sink.names(), step.names);
        EXPECT_EQ(sink.names("N"), step.numbers) << step.names;
        EXPECT_EQ(c.getResultInstanceCount(), step.count);
    }
}

TEST(Aggregate, IsOnForWordsThatBeginWithY) {
    const struct {
        const char* value;
        bool on;
    } cases[] = {{"y", true}, {"Yes", true}, {"yellow", true}, {"true", false}, {"1", false}, {"", false}};
    for (const auto& c : cases) {
        Variable set("CDP_G_AGGREGATE_RESULTS", c.value);
        EXPECT_EQ(TestClass("g").isAggregatingData(), c.on) << c.value;
    }
}

TEST(Metrics, DerivedOnesStandInTheOrderOnlyAndKnowTheirOperands) {
    TestClass c("DERIVED");
    c.metric("A");
    auto* sum = new Metric;
    sum->setQMPVName("SUM");
    sum->setComputation("A", '+', "-12x");
    c.addMetricObject(sum);
    auto* forward = new Metric;
    forward->setQMPVName("FORWARD");
    forward->setComputation("LATER", '*', "+7");
    c.addMetricObject(forward);
    EXPECT_FALSE(c.doesMetricListContainRatesOrDeltas());
    c.metric("LATER", DELTA_DATA);
    EXPECT_TRUE(c.doesMetricListContainRatesOrDeltas());
    EXPECT_EQ(c.getMetricCount(), 2);
    EXPECT_TRUE(sum->operand1.isAttribute);
    EXPECT_EQ(sum->operand2.constant, -12);
    EXPECT_FALSE(forward->operand1.isAttribute);  // known attributes so far only
    EXPECT_EQ(forward->operand2.constant, 7);
    std::string order;
    for (ListIterator i = c.getOrderedMetricListIterator(); i.hasNext();) order += static_cast<Metric*>(i.next())->getQMPVMetricName();
    EXPECT_EQ(order, "ASUMFORWARDLATER");
}

TEST(ClassList, KeepsDuplicatesInOrderAndFindsTheLater) {
    TestClass a("X"), b("X"), c("Y");
    VXClientClassList list;
    for (TestClass* each : {&a, &b, &c}) list.addClientClass(each);
    EXPECT_EQ(list.getClientClass("X"), &b);
    list.removeClientClass(nullptr);
    list.removeClientClass(&a);
    std::string left;
    for (ListCursor i = list.getClassListCursor(); i.hasMoreElements(); i.setToNext()) {
        left += static_cast<VXClientClass*>(i.getCurrentElement())->getAttributeGroup();
    }
    EXPECT_EQ(left, "XY");
    list.removeClientClass(&c);
    list.removeClientClass(&b);
    EXPECT_FALSE(list.getClassListCursor().hasMoreElements());
    EXPECT_EQ(list.getClientClass("Y"), nullptr);
}

TEST(TimeStamp, IsTheEndOfTheLastCollectionInLocalTime) {
    testclock::Guard clock;
    TestClass c("STAMP");
    c.collectData("x");
    const time_t now = Clock::wall().tv_sec;
    testclock::advance(90s);
    tm local;
    localtime_r(&now, &local);
    char expected[32], stamp[32];
    std::snprintf(expected, sizeof expected, "%03d%02d%02d%02d%02d%02d000", local.tm_year % 1000, (local.tm_mon + 1) % 100,
                  local.tm_mday % 100, local.tm_hour % 100, local.tm_min % 100, local.tm_sec % 100);
    c.getTimeStamp(stamp);
    EXPECT_STREQ(stamp, expected);
    EXPECT_EQ(std::strlen(stamp), 16u);
}

}  // namespace
