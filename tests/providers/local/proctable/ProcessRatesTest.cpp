// The memory of rates on a stepped clock.
#include "providers/local/proctable/ProcessRates.h"

#include <gtest/gtest.h>

#include <climits>

#include "host/base/TestClock.h"
#include "providers/local/proctable/FakeProc.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
namespace testclock = almanac::host::testclock;
using almanac::test::Traced;

}  // namespace

TEST(ProcessRates, GrowthBySeconds) {
    const testclock::Guard frozen;
    testclock::advanceMonotonic(seconds(5));
    struct Case {
        long long before, after;
        int seconds;
        long long rate;
    } cases[] = {
        {0, 100, 10, 10},         {5, 5, 3, 0},        {0, 99, 10, 9},
        {100, 99, 10, 0},         {0, 100, 0, 0},      {-50, 50, 1, 100},
        {0, 3000000000, 1, INT_MAX}, {0, 3000000000, 2, INT_MAX / 2}, {LLONG_MIN, LLONG_MAX, 1, INT_MAX},
        {LLONG_MAX, LLONG_MIN, 1, 0},
    };
    for (const Case& c : cases) {
        ProcessRates rates;
        EXPECT_EQ(rates.getRateAsPercent(1, ProcessRates::ReadIO, c.before), 0) << "the first call";
        testclock::advance(seconds(c.seconds));
        EXPECT_EQ(rates.getRateAsPercent(1, ProcessRates::ReadIO, c.after), c.rate) << c.before << " to " << c.after;
        testclock::advance(seconds(1));
        EXPECT_EQ(rates.getRateAsPercent(1, ProcessRates::ReadIO, c.after), 0) << "the value and the time were remembered";
    }
}

TEST(ProcessRates, ItemsAndProcessesApart) {
    const testclock::Guard frozen;
    ProcessRates rates;
    for (int pid = 1; pid <= 3; ++pid) {
        for (int item = 0; item < ProcessRates::kItems; ++item) {
            rates.getRateAsPercent(pid, static_cast<ProcessRates::Item>(item), pid * 1000 + item * 100);
        }
    }
    testclock::advance(seconds(1));
    const Traced traced("NONE (UNIT:ProcessRates DETAIL)");
    for (int pid = 1; pid <= 3; ++pid) {
        for (int item = 0; item < ProcessRates::kItems; ++item) {
            EXPECT_EQ(rates.getRateAsPercent(pid, static_cast<ProcessRates::Item>(item), pid * 1000 + item * 100 + pid + item), pid + item);
        }
    }
    EXPECT_TRUE(traced.has("Calculating Rate: 2/page_faults: metricVal=2406 prevVal=2400 now="));
    EXPECT_TRUE(traced.has("Saving Previous: 3/totalIO: time="));
}

TEST(ProcessRates, OnlyProcessesWithSystemTimeOfThisCollectionStay) {
    const testclock::Guard frozen;
    ProcessRates rates;
    rates.collectionStarts();
    for (const int pid : {1, 2, 3}) rates.getRateAsPercent(pid, ProcessRates::SystemTime, 1);
    rates.purgePreviousCpuResults();
    EXPECT_EQ(rates.count(), 3u);
    // Within the same second nothing is old.
    rates.collectionStarts();
    rates.purgePreviousCpuResults();
    EXPECT_EQ(rates.count(), 3u);
    testclock::advance(seconds(1));
    rates.collectionStarts();
    rates.getRateAsPercent(2, ProcessRates::SystemTime, 1);
    rates.getRateAsPercent(3, ProcessRates::UserTime, 1);  // of an old process, but no system time
    rates.getRateAsPercent(4, ProcessRates::UserTime, 1);
    {
        const Traced traced("NONE (UNIT:ProcessRates DETAIL)");
        rates.purgePreviousCpuResults();
        EXPECT_TRUE(traced.has("Purging previous results for process 3, last updated "));
        EXPECT_FALSE(traced.has("process 2,"));
    }
    EXPECT_EQ(rates.count(), 1u);
    testclock::advance(seconds(1));
    EXPECT_EQ(rates.getRateAsPercent(2, ProcessRates::SystemTime, 11), 10) << "what stays keeps its values";
}

TEST(ProcessRates, PercentOfTheProcessors) {
    const testclock::Guard frozen;
    ProcessRates rates;
    EXPECT_EQ(cpuPercent(rates, 1, 1000, 500).cpu, 0);
    testclock::advance(seconds(2) + milliseconds(1));
    const auto ticks = static_cast<unsigned long>(200 * numcpus());
    const CpuPercent all = cpuPercent(rates, 1, 1000 + ticks, 500 + ticks / 2);
    EXPECT_EQ(all.user, 100);
    EXPECT_EQ(all.system, 50);
    EXPECT_EQ(all.cpu, 150);
    // Times that are no times, as the end of a line gives them, wrap without harm.
    testclock::advance(seconds(1));
    cpuPercent(rates, 1, ULONG_MAX, ULONG_MAX / 2);
    EXPECT_EQ(cpuPercent(rates, 1, 94076736891952, 0).user, 0) << "within one second";
}
