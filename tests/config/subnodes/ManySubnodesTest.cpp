// Many subnodes that come and go while requests run: nobody waits long, nothing is left, the order of locks holds.
#include <malloc.h>

#include <chrono>
#include <future>
#include <thread>

#include "SubnodeKit.h"
#include "config/subnodes/DiscoveryPass.h"
#include "host/framework/RequestBroker.h"
#include "host/framework/TableCatalog.h"
#include "runtime/binding/GenericAgent.h"

namespace {

using namespace almanac::test;
using namespace almanac::host;
using namespace std::chrono_literals;
using Stopwatch = std::chrono::steady_clock;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr int kSubnodes = 300;
constexpr bool kMeasuresMemory = false;  // the allocator is the sanitizer's
#else
constexpr int kSubnodes = 10000;
constexpr bool kMeasuresMemory = true;
#endif

class ManySubnodes : public Subnodes {
  protected:
    ManySubnodes() : table_("APP", "Web", webGroup.meta), dagTable_("APP", "Found", dagGroup.meta) {
        almanac::host::configureTrace("NONE", nullptr);
        webGroup.meta->setTableManager(&table_);
        broker_.setReady();
        for (auto& [entry, manager] : {std::pair{&web_, &table_}, std::pair{&found_, &dagTable_}}) {
            *entry = std::make_shared<TableEntry>(manager);
            EXPECT_TRUE((*entry)->learn());
        }
    }
    void TearDown() override {
        broker_.refuse();
        EXPECT_TRUE(broker_.drain(Stopwatch::now() + 60s));
        broker_.stop();
        Subnodes::TearDown();
    }
    // The rows that a request through the framework gets.
    SampleResult ask(const std::shared_ptr<TableEntry>& entry, std::vector<std::string> nodes) {
        SampleQuery query;
        query.table = entry;
        query.subnodes = std::move(nodes);
        auto promise = std::make_shared<std::promise<SampleResult>>();
        auto future = promise->get_future();
        const SampleStatus status = broker_.sample(query, [promise](SampleResult&& r) { promise->set_value(std::move(r)); });
        return status == SampleStatus::Ok ? future.get() : SampleResult();
    }
    static std::vector<Found> many(int count) {
        std::vector<Found> all;
        for (int i = 0; i < count; ++i) all.push_back({"node" + std::to_string(i)});
        return all;
    }
    static std::string msnOf(int i) { return "PP:node" + std::to_string(i) + ":SUB"; }

    std::shared_ptr<TableEntry> web_, found_;

  private:
    GenericAgentManager table_, dagTable_;
    RequestBroker broker_;
};

std::size_t bytesInUse() {
    malloc_trim(0);
    return mallinfo2().uordblks;
}

TEST_F(ManySubnodes, ComeAndGoWhileRequestsRun) {
    std::atomic<long> longest{0}, answered{0};
    std::atomic<bool> done{false};
    const auto requests = [&](unsigned seed) {
        while (!done) {
            seed = seed * 1664525u + 1013904223u;
            const std::string msn = msnOf(static_cast<int>(seed >> 8) % kSubnodes);
            const auto start = Stopwatch::now();
            const SampleResult result = ask(web_, {msn});
            const long took = std::chrono::duration_cast<std::chrono::milliseconds>(Stopwatch::now() - start).count();
            for (long seen = longest; took > seen && !longest.compare_exchange_weak(seen, took);) {
            }
            if (result.rows.count() == 1) ++answered;
            EXPECT_LE(result.rows.count(), 1u);
        }
    };
    const auto run = [&](int passes) {
        done = false;
        std::thread first(requests, 1), second(requests, 2);
        for (int pass = 0; pass < passes; ++pass) {
            find(pass % 2 == 0 ? many(kSubnodes) : std::vector<Found>());
            EXPECT_EQ(registry().size(), pass % 2 == 0 ? kSubnodes : 0u);
            if (pass % 2 == 1) manager->collectGarbage();
        }
        done = true;
        first.join();
        second.join();
        manager->collectGarbage();
        EXPECT_EQ(manager->zombieCount(), 0);
        EXPECT_EQ(SubnodeClass::live.load(), 0);
    };
    run(2);  // grows what stays: threads, their caches, tables of hashes
    const std::size_t before = bytesInUse();
    run(10);
    EXPECT_GT(answered.load(), 0);
    EXPECT_LT(longest.load(), 1000) << "milliseconds";
    if (kMeasuresMemory) {
        // Four megabytes for what the allocator keeps aside for threads: still less than a hundred bytes for each of the
        // 50,000 subnodes that came and went.
        EXPECT_LT(static_cast<double>(bytesInUse()), static_cast<double>(before) * 1.05 + (4 << 20));
    }
}

TEST_F(ManySubnodes, AllThreadsThatMeetAtTheManagerGetThrough) {
    // Periodic passes, changes, requests to the discovery table and to subnodes, unavailable subnodes, garbage.
    std::atomic<bool> done{false};
    std::vector<std::thread> threads;
    const auto again = [&](auto body) {
        threads.emplace_back([&done, body] {
            for (int i = 0; !done; ++i) body(i);
        });
    };
    const auto id = [] { return std::string("id"); };
    again([&](int) { updateDiscoveryClasses(id, WhenCollecting::Skip); });
    again([&](int i) {
        {
            const std::lock_guard guard(world.mutex);
            world.found = many(i % 40);
        }
        updateDiscoveryClasses(id, WhenCollecting::Wait);
    });
    again([&](int) { ask(found_, {}); });
    again([&](int i) {
        web.errorCode = i % 2 ? SUBNODE_UNAVAILABLE : OBJECT_ACTIVE;
        ask(web_, {msnOf(i % 40), msnOf(i % 7)});
    });
    again([&](int i) {
        manager->updateDiscoveryAttributeGroupForSubnode(msnOf(i % 40).c_str());
        manager->getAllSubnodeQueryClasses("Web");
    });
    again([&](int) {
        manager->collectGarbage();
        std::this_thread::sleep_for(1ms);
    });
    std::this_thread::sleep_for(1500ms);
    done = true;
    for (std::thread& t : threads) t.join();
    find({});
    manager->collectGarbage();
    EXPECT_EQ(SubnodeClass::live.load(), 0);
    EXPECT_EQ(registered(), "");
}

}  // namespace
