// Requests that stay open: events to each of them, samples at an interval, closing at any moment.
#include <gtest/gtest.h>

#include <condition_variable>
#include <thread>

#include "host/FakeAgent.h"
#include "host/framework/Framework.h"

namespace almanac::host {
namespace {

using namespace std::chrono_literals;
using test::FakeRequest;
using test::FakeRow;
using test::FakeTable;
using test::Gate;

// A sink that remembers the CPU value of each row.
class Sink {
  public:
    RowSink take(Delivery::Kind kind) {
        return [this, kind](Delivery&& delivery) {
            const std::lock_guard guard(mutex_);
            EXPECT_EQ(delivery.kind, kind);
            for (std::size_t i = 0; i < delivery.rows.count(); ++i)
                values_.push_back(static_cast<int>(readInteger(*delivery.rows.layout()->find("CPU"), delivery.rows.row(i))));
            ++deliveries_;
            changed_.notify_all();
        };
    }
    bool waitForDeliveries(int count) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, 20s, [&] { return deliveries_ >= count; });
    }
    std::vector<int> values() {
        const std::lock_guard guard(mutex_);
        return values_;
    }

  private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<int> values_;
    int deliveries_ = 0;
};

// A table's entry that is given up only when nothing calls the table any more.
struct BoundEntry {
    RequestBroker& broker;
    const std::shared_ptr<TableEntry> entry;

    ~BoundEntry() { EXPECT_TRUE(broker.drain(std::chrono::steady_clock::now() + 20s)); }
    operator const std::shared_ptr<TableEntry>&() const { return entry; }
    TableEntry* operator->() const { return entry.get(); }
    TableEntry& operator*() const { return *entry; }
};

class OpenRequests : public testing::Test {
  protected:
    OpenRequests() { broker.setReady(); }
    BoundEntry entryOf(FakeTable& table) {
        auto entry = std::make_shared<TableEntry>(&table);
        EXPECT_TRUE(entry->learn());
        return {broker, entry};
    }
    RequestSpec spec(HBX_SampleType type, const TableEntry& entry, const char* filter = nullptr, long interval = 0) {
        RequestSpec result;
        result.type = type;
        result.intervalMilliseconds = interval;
        FilterError error;
        if (filter) result.filter = Filter::compile(filter, *entry.layout(), &error);
        EXPECT_EQ(filter != nullptr, result.filter != nullptr);
        return result;
    }
    // Until every request made so far is on its table's list.
    void settle() { ASSERT_TRUE(broker.drain(std::chrono::steady_clock::now() + 20s)); }

    RequestBroker broker;
};

FakeRow rowWith(int cpu) {
    FakeRow row;
    row.cpu = cpu;
    return row;
}

TEST_F(OpenRequests, AnEventReachesEveryOneThroughItsOwnFilter) {
    FakeTable table("EVENTS");
    const auto entry = entryOf(table);
    Sink all, high, closed;
    const auto first = broker.open(entry, spec(HBX_EVENT, *entry), all.take(Delivery::Kind::Event));
    const auto second = broker.open(entry, spec(HBX_EVENT, *entry, "CPU > 50"), high.take(Delivery::Kind::Event));
    const auto third = broker.open(entry, spec(HBX_EVENT, *entry), closed.take(Delivery::Kind::Event));
    settle();
    table.event(rowWith(10));
    third->close();
    settle();
    table.event(rowWith(90));
    EXPECT_EQ(all.values(), (std::vector<int>{10, 90}));
    EXPECT_EQ(high.values(), std::vector<int>{90});
    EXPECT_EQ(closed.values(), std::vector<int>{10});
    EXPECT_EQ(table.samples.load(), 0);  // an event request is never sampled
    EXPECT_EQ(broker.openRequests(), 2u);
}

TEST_F(OpenRequests, ADemandRequestTakesNoEvents) {
    Gate gate;
    FakeTable table("EVENTS", [&gate](FakeRequest& r) { return gate.pass(), r.add(rowWith(1)); });
    const auto entry = entryOf(table);
    std::atomic<std::size_t> rows{99};
    SampleQuery query;
    query.table = entry.entry;
    ASSERT_EQ(broker.sample(query, [&rows](SampleResult&& r) { rows = r.rows.count(); }), SampleStatus::Ok);
    ASSERT_TRUE(gate.arrived(1));
    table.event(rowWith(2));
    gate.open();
    settle();
    EXPECT_EQ(rows.load(), 1u);
}

TEST_F(OpenRequests, SamplesComeAtTheIntervalFromOneRequest) {
    std::atomic<int> count{0};
    FakeTable table("TIMED", [&count](FakeRequest& r) {
        r.add(rowWith(1));
        r.add(rowWith(100));
        ++count;
        return 0;
    });
    const auto entry = entryOf(table);
    Sink sink;
    auto open = broker.open(entry, spec(HBX_EXCEPTION, *entry, "CPU > 50", 5), sink.take(Delivery::Kind::Sample));
    ASSERT_TRUE(sink.waitForDeliveries(3));
    open.reset();  // dropping it closes it
    settle();
    EXPECT_EQ(table.made.load(), 2);  // the probe and one request for all samples
    EXPECT_EQ(table.deleted.load(), 2);
    for (const int value : sink.values()) EXPECT_EQ(value, 100);
    const int at = count.load();
    std::this_thread::sleep_for(30ms);
    EXPECT_EQ(count.load(), at);
}

TEST_F(OpenRequests, EventsDuringASampleStayApartFromIt) {
    Gate gate;
    FakeTable table("TIMED", [&gate](FakeRequest& r) {
        r.add(rowWith(1));
        gate.pass();
        r.add(rowWith(2));
        r.Dispatch();
        return 0;
    });
    const auto entry = entryOf(table);
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<std::pair<Delivery::Kind, std::size_t>> seen;
    const auto open = broker.open(entry, spec(HBX_INTERVAL, *entry, nullptr, 3600000), [&](Delivery&& d) {
        const std::lock_guard guard(mutex);
        seen.emplace_back(d.kind, d.rows.count());
        changed.notify_all();
    });
    ASSERT_TRUE(gate.arrived(1));
    table.event(rowWith(7));
    gate.open();
    std::unique_lock lock(mutex);
    ASSERT_TRUE(changed.wait_for(lock, 20s, [&] { return seen.size() == 2; }));
    EXPECT_EQ(seen[0], std::make_pair(Delivery::Kind::Event, std::size_t{1}));
    EXPECT_EQ(seen[1], std::make_pair(Delivery::Kind::Sample, std::size_t{2}));
}

TEST_F(OpenRequests, ClosingWhileASampleHangsEndsTheRequestAfterIt) {
    Gate gate;
    FakeTable table("TIMED", [&gate](FakeRequest&) { return gate.pass(), 0; });
    const auto entry = entryOf(table);
    std::atomic<int> delivered{0};
    auto open = broker.open(entry, spec(HBX_INTERVAL, *entry, nullptr, 1), [&](Delivery&&) { ++delivered; });
    ASSERT_TRUE(gate.arrived(1));
    open->close();
    EXPECT_EQ(table.deleted.load(), 1);  // the probe's alone
    gate.open();
    settle();
    EXPECT_EQ(table.deleted.load(), 2);
    EXPECT_EQ(delivered.load(), 0);
}

TEST_F(OpenRequests, AReferenceKeepsARequestAliveBeyondItsEnd) {
    FakeTable table("EVENTS");
    const auto entry = entryOf(table);
    auto open = broker.open(entry, spec(HBX_EVENT, *entry), nullptr);
    settle();
    table.lock();
    AghbxListIter iter(table.Requests());
    aghbx* held = iter.Next();
    ASSERT_NE(held, nullptr);
    held->UseHandle(held->Handle());
    table.unlock();
    open.reset();
    settle();
    EXPECT_EQ(table.deleted.load(), 1);
    EXPECT_STREQ(held->TableName(), "EVENTS");
    held->Drop();
    settle();
    EXPECT_EQ(table.deleted.load(), 2);
}

TEST_F(OpenRequests, OpeningAndClosingUnderAStormOfEventsIsSafe) {
    FakeTable table("EVENTS", [](FakeRequest& r) { return r.add(rowWith(3)), 0; });
    const auto entry = entryOf(table);
    std::atomic<bool> stop{false};
    std::atomic<int> delivered{0};
    std::vector<std::thread> providers;
    for (int t = 0; t < 2; ++t) {
        providers.emplace_back([&] {
            while (!stop) table.event(rowWith(5));
        });
    }
    for (int i = 0; i < 60; ++i) {
        std::vector<std::shared_ptr<OpenRequest>> open;
        for (int k = 0; k < 4; ++k) {
            const auto type = k % 2 ? HBX_EVENT : HBX_INTERVAL;
            open.push_back(broker.open(entry, spec(type, *entry, nullptr, 1), [&](Delivery&&) { ++delivered; }));
        }
        if (i % 3 == 0) std::this_thread::sleep_for(1ms);
        if (i % 2 && open[0]) open[0]->close();  // null while the table is busy
    }
    stop = true;
    for (std::thread& thread : providers) thread.join();
    settle();
    EXPECT_GT(delivered.load(), 0);
    EXPECT_EQ(table.made.load(), table.deleted.load());
    EXPECT_EQ(broker.openRequests(), 0u);
}

TEST_F(OpenRequests, TheFeedKeepsTheLastEvents) {
    FakeTable table("EVENTS");
    const auto entry = entryOf(table);
    EventFeed feed(3);
    ASSERT_TRUE(feed.follow(broker, entry));
    ASSERT_TRUE(feed.follow(broker, entry));  // once is enough
    settle();
    EXPECT_EQ(table.made.load(), 2);
    for (int i = 1; i <= 5; ++i) table.event(rowWith(i));
    EXPECT_EQ(feed.lastNumber(), 5u);
    const auto kept = feed.since(0, 100);
    ASSERT_EQ(kept.size(), 3u);
    EXPECT_EQ(kept[0]->number, 3u);
    EXPECT_EQ(readInteger(*entry->layout()->find("CPU"), kept[0]->row.row(0)), 3);
    EXPECT_EQ(feed.since(4, 100).size(), 1u);
    EXPECT_EQ(feed.since(0, 2).size(), 2u);
    feed.unfollowAll();
    settle();
    table.event(rowWith(6));
    EXPECT_EQ(feed.lastNumber(), 5u);
    EventFeed small(100, entry->layout()->rowSize * 2);
    Batch rows(entry->layout());
    for (int i = 0; i < 4; ++i) rows.append(rowWith(i).bytes().data(), FakeRow::kBytes);
    small.publish("EVENTS", rows);
    EXPECT_EQ(small.since(0, 100).size(), 2u);
}

}  // namespace
}  // namespace almanac::host
