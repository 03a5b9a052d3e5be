// Demand requests: bounds, hangs, deadlines, limits.
#include <gtest/gtest.h>

#include <future>
#include <stdexcept>
#include <thread>

#include "host/FakeAgent.h"
#include "host/framework/AgentCall.h"
#include "host/framework/Framework.h"

namespace almanac::host {
namespace {

using namespace std::chrono_literals;
using test::FakeRequest;
using test::FakeRow;
using test::FakeTable;
using test::Gate;

int manyRows(FakeRequest& request, int count) {
    int refused = 0;
    for (int i = 0; i < count && refused == 0; ++i) {
        FakeRow row;
        row.name = "r" + std::to_string(i);
        row.cpu = i;
        refused = request.add(row);
    }
    return refused;
}

std::shared_ptr<TableEntry> entryOf(FakeTable& table) {
    auto entry = std::make_shared<TableEntry>(&table);
    EXPECT_TRUE(entry->learn());
    return entry;
}

// A broker that serves, with answers as futures.
class Client {
  public:
    explicit Client(const RequestPool::Limits& limits = RequestPool::Limits()) : broker(limits) {
        broker.setReady();
    }

    std::future<SampleResult> ask(SampleQuery query, SampleStatus want = SampleStatus::Ok,
                                  std::shared_ptr<SampleTicket>* ticket = nullptr) {
        auto promise = std::make_shared<std::promise<SampleResult>>();
        auto future = promise->get_future();
        EXPECT_EQ(broker.sample(
                      query, [promise](SampleResult&& r) { promise->set_value(std::move(r)); }, ticket),
                  want);
        return future;
    }
    std::future<SampleResult> ask(const std::shared_ptr<TableEntry>& table) {
        SampleQuery query;
        query.table = table;
        return ask(query);
    }

    RequestBroker broker;
};

TEST(Broker, AnswersWithTheRowsOfOneRequest) {
    FakeTable table("T", [](FakeRequest& r) { return manyRows(r, 5); });
    const auto entry = entryOf(table);
    {
        Client client;
        const SampleResult result = client.ask(entry).get();
        EXPECT_EQ(result.status, SampleStatus::Ok);
        EXPECT_EQ(result.rows.count(), 5u);
        EXPECT_FALSE(result.truncated);
        EXPECT_EQ(entry->statistics().lastRows, 5u);
    }
    EXPECT_EQ(table.made.load(), table.deleted.load());
    EXPECT_EQ(table.samples.load(), 1);
}

TEST(Broker, AppliesTheFilterOfADemandRequestAndTheLimit) {
    FakeTable table("T", [](FakeRequest& r) { return manyRows(r, 100); });
    const auto entry = entryOf(table);
    Client client;
    SampleQuery query;
    query.table = entry;
    FilterError error;
    query.filter = Filter::compile("CPU >= 10", *entry->layout(), &error);
    query.limit = 3;
    const SampleResult limited = client.ask(query).get();
    ASSERT_EQ(limited.rows.count(), 3u);
    EXPECT_EQ(readInteger(*entry->layout()->find("CPU"), limited.rows.row(0)), 10);
    EXPECT_TRUE(limited.truncated);
    EXPECT_EQ(limited.returnCode, 1);  // the agent was told to stop
    query.limit = SIZE_MAX;
    EXPECT_EQ(client.ask(query).get().rows.count(), 90u);
    query.limit = 0;
    EXPECT_EQ(client.ask(query).get().rows.count(), 0u);
}

TEST(Broker, GivesTheSubnodesToTheAgent) {
    std::string seen;
    FakeTable table("T", [&seen](FakeRequest& r) {
        for (int pass = 0; pass < 2; ++pass, r.ResetGetSubnode()) {
            for (std::string name = r.GetSubnode(); !name.empty(); name = r.GetSubnode()) seen += name + ",";
            seen += std::string(r.GetSubnode()) + ";";
        }
        return 0;
    });
    Client client;
    SampleQuery query;
    query.table = entryOf(table);
    query.subnodes = {"AA:one:TT", "AA:two:TT"};
    client.ask(query).get();
    EXPECT_EQ(seen, "AA:one:TT,AA:two:TT,;AA:one:TT,AA:two:TT,;");
}

TEST(Broker, AHungTableTakesTwoThreadsAndDelaysNobody) {
    Gate gate;
    FakeTable hung("HUNG", [&gate](FakeRequest&) { return gate.pass(), 0; });
    FakeTable quick("QUICK", [](FakeRequest& r) { return manyRows(r, 1); });
    const auto hungEntry = entryOf(hung), quickEntry = entryOf(quick);
    RequestPool::Limits limits;
    limits.queuePerKey = 8;
    Client client(limits);
    std::vector<std::future<SampleResult>> waiting;
    for (int i = 0; i < 10; ++i) waiting.push_back(client.ask(hungEntry));
    ASSERT_TRUE(gate.arrived(2));
    EXPECT_EQ(hungEntry->statistics().running, 2);
    SampleQuery query;
    query.table = hungEntry;
    client.ask(query, SampleStatus::Busy);  // two run, eight wait
    EXPECT_EQ(hungEntry->statistics().refused, 1u);
    for (int i = 0; i < 20; ++i) EXPECT_EQ(client.ask(quickEntry).get().rows.count(), 1u);
    EXPECT_EQ(hungEntry->statistics().running, 2);  // those that wait got no thread meanwhile
    gate.open();
    for (auto& future : waiting) EXPECT_EQ(future.get().status, SampleStatus::Ok);
}

TEST(Broker, TheQueueOfAllTablesIsBoundedAndThreadsAre) {
    Gate gate;
    std::vector<std::unique_ptr<FakeTable>> tables;
    std::vector<std::shared_ptr<TableEntry>> entries;
    for (int i = 0; i < 6; ++i) {
        tables.push_back(std::make_unique<FakeTable>("T", [&gate](FakeRequest&) { return gate.pass(), 0; }));
        entries.push_back(entryOf(*tables.back()));
    }
    RequestPool::Limits limits;
    limits.threads = 3;
    limits.queue = 4;
    Client client(limits);
    std::vector<std::future<SampleResult>> waiting;
    for (int i = 0; i < 3; ++i) waiting.push_back(client.ask(entries[static_cast<std::size_t>(i)]));
    ASSERT_TRUE(gate.arrived(3));
    for (int i = 0; i < 4; ++i) waiting.push_back(client.ask(entries[static_cast<std::size_t>(i)]));
    SampleQuery query;
    query.table = entries[5];
    client.ask(query, SampleStatus::Busy);
    EXPECT_EQ(client.broker.pool().threads(), 3u);
    gate.open();
    for (auto& future : waiting) EXPECT_EQ(future.get().status, SampleStatus::Ok);
}

TEST(Broker, AnAbandonedRequestStopsInsertingOrNeverStarts) {
    Gate gate;
    std::atomic<int> status{0};
    FakeTable table("T", [&](FakeRequest& r) {
        gate.pass();
        status = manyRows(r, 5);
        return 0;
    });
    const auto entry = entryOf(table);
    RequestPool::Limits limits;
    limits.runningPerKey = 1;
    Client client(limits);
    std::shared_ptr<SampleTicket> first, second;
    SampleQuery query;
    query.table = entry;
    auto running = client.ask(query, SampleStatus::Ok, &first);
    ASSERT_TRUE(gate.arrived(1));
    auto queued = client.ask(query, SampleStatus::Ok, &second);
    first->abandon();
    second->abandon();
    gate.open();
    EXPECT_EQ(running.get().rows.count(), 0u);
    EXPECT_EQ(queued.get().status, SampleStatus::Abandoned);
    EXPECT_EQ(status.load(), 1);
    EXPECT_EQ(table.samples.load(), 1);
}

TEST(Broker, AnAgentThatThrowsOrRefusesFailsItsRequestOnly) {
    struct Refusing : FakeTable {
        using FakeTable::FakeTable;
        aghbx* CreateAghbx(RequestDetail* d, ContextInfo* c) override {
            return refuse ? nullptr : FakeTable::CreateAghbx(d, c);
        }
        bool refuse = false;
    };
    Refusing table("T", [](FakeRequest&) -> int { throw std::runtime_error("fault"); });
    const auto entry = entryOf(table);
    Client client;
    EXPECT_EQ(client.ask(entry).get().status, SampleStatus::Failed);
    table.refuse = true;
    EXPECT_EQ(client.ask(entry).get().status, SampleStatus::Failed);
    EXPECT_EQ(entry->statistics().failed, 2u);
    EXPECT_EQ(entry->statistics().running, 0);
    EXPECT_EQ(AgentCall::running(), 0);
}

TEST(Broker, NothingIsServedBeforeTheLoaderReturnsNorAfterTheStop) {
    FakeTable table("T", [](FakeRequest& r) { return manyRows(r, 1); });
    SampleQuery query;
    query.table = entryOf(table);
    RequestBroker early;
    EXPECT_EQ(early.sample(query, [](SampleResult&&) { FAIL(); }), SampleStatus::NotReady);
    EXPECT_EQ(early.open(query.table, RequestSpec(), nullptr), nullptr);

    Gate gate;
    FakeTable hung("HUNG", [&gate](FakeRequest&) { return gate.pass(), 0; });
    SampleQuery slow;
    slow.table = entryOf(hung);
    Client client;
    std::vector<std::future<SampleResult>> waiting;
    for (int i = 0; i < 4; ++i) waiting.push_back(client.ask(slow));
    ASSERT_TRUE(gate.arrived(2));
    client.broker.refuse();
    client.ask(query, SampleStatus::Stopping);
    EXPECT_FALSE(client.broker.drain(std::chrono::steady_clock::now() + 20ms));
    EXPECT_EQ(AgentCall::running(), 2);
    // Those that waited were told; those that run end in their own time.
    int stopped = 0;
    for (auto& future : waiting) {
        if (future.wait_for(0ms) == std::future_status::ready)
            stopped += future.get().status == SampleStatus::Stopping;
    }
    EXPECT_EQ(stopped, 2);
    gate.open();
    EXPECT_TRUE(client.broker.drain(std::chrono::steady_clock::now() + 20s));
    EXPECT_EQ(AgentCall::running(), 0);
}

TEST(Broker, RequestsOfManyClientsAtOnceLoseNothing) {
    FakeTable a("A", [](FakeRequest& r) { return manyRows(r, 7); });
    FakeTable b("B", [](FakeRequest& r) { return manyRows(r, 3); });
    const auto entryA = entryOf(a), entryB = entryOf(b);
    std::atomic<std::size_t> rows{0};
    {
        RequestPool::Limits limits;
        limits.queue = limits.queuePerKey = 1000;
        Client client(limits);
        std::vector<std::thread> clients;
        for (int t = 0; t < 4; ++t) {
            clients.emplace_back([&] {
                for (int i = 0; i < 100; ++i) rows += client.ask(i % 2 ? entryA : entryB).get().rows.count();
            });
        }
        for (std::thread& thread : clients) thread.join();
    }
    EXPECT_EQ(rows.load(), 4u * (50 * 7 + 50 * 3));
    EXPECT_EQ(a.made.load(), a.deleted.load());
    EXPECT_EQ(b.made.load(), b.deleted.load());
}

TEST(Broker, IdleThreadsStayFew) {
    FakeTable table("T", [](FakeRequest& r) { return manyRows(r, 1); });
    std::vector<std::shared_ptr<TableEntry>> entries;
    for (int i = 0; i < 8; ++i) entries.push_back(entryOf(table));
    Client client;
    std::vector<std::future<SampleResult>> waiting;
    for (int i = 0; i < 64; ++i) waiting.push_back(client.ask(entries[static_cast<std::size_t>(i % 8)]));
    for (auto& future : waiting) future.get();
    ASSERT_TRUE(client.broker.drain(std::chrono::steady_clock::now() + 20s));
    for (int i = 0; i < 2000 && client.broker.pool().threads() > 2; ++i) std::this_thread::sleep_for(1ms);
    EXPECT_LE(client.broker.pool().threads(), 2u);
    EXPECT_EQ(client.ask(entries[0]).get().status, SampleStatus::Ok);
}

}  // namespace
}  // namespace almanac::host
