// Everything at once: subnodes come and go while requests read them, events arrive and are joined, the pool and the
// refresh thread collect, and retired clones are deleted. Its worth is under the thread and address sanitizers.
#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <thread>

#include "collection/TestClass.h"
#include "collection/expression/ExpressionParser.h"
#include "collection/schedule/RefreshThread.h"
#include "collection/schedule/ThreadPool.h"
#include "config/subnodes/DiscoveryPass.h"
#include "config/subnodes/PureEventLock.h"
#include "config/subnodes/SubnodeManager.h"
#include "host/framework/Framework.h"
#include "platform/zsb.h"
#include "providers/derived/filter/FilterQueryClass.h"
#include "providers/derived/join/Join2VXClientClasses.h"
#include "runtime/reference/Application.h"

namespace {

using namespace std::chrono_literals;
using almanac::test::Attr;
using almanac::test::Group;
using almanac::test::RecordingSink;
using almanac::test::TestClass;

constexpr int kSubnodes = 40;

// What the discovery class announces now.
class World {
  public:
    void choose(std::mt19937& random) {
        std::vector<std::string> keys;
        for (int i = 0; i < kSubnodes; ++i) {
            if (random() % 3 != 0) keys.push_back("node" + std::to_string(i));
        }
        const std::lock_guard guard(mutex_);
        keys_ = std::move(keys);
    }
    void clear() {
        const std::lock_guard guard(mutex_);
        keys_.clear();
    }
    std::vector<std::string> keys() {
        const std::lock_guard guard(mutex_);
        return keys_;
    }

  private:
    std::mutex mutex_;
    std::vector<std::string> keys_;
};

std::vector<Attr> tableAttributes() { return {{"NAME", 2, 16}, {"N", 7, 8}, {"COUNTED", 7, 8}, {"TREND", 7, 8}}; }

// A join without metrics of its own has all those of both sources.
std::vector<Attr> joinedAttributes() {
    std::vector<Attr> all = tableAttributes();
    for (const Attr& a : {Attr{"NAME2", 2, 16}, Attr{"N2", 7, 8}, Attr{"COUNTED2", 7, 8}, Attr{"TREND2", 7, 8}}) all.push_back(a);
    return all;
}

// A table with a rate and two derived columns, one of which remembers. Clones share its metrics.
class Table : public TestClass {
  public:
    explicit Table(const char* group) : TestClass(group, fill) {
        metric("NAME", STRING_DATA, true);
        metric("N", RATE_64BIT_DATA)->setIsCounter(true);
        derive("COUNTED", "count(0) + N");
        derive("TREND", "round(trend(last(N, 5)) / 2)");
    }
    Table(const Table* source, const char* key) : TestClass(source, key) { ++live; }
    ~Table() override {
        if (getSubnodeKey()) --live;
    }
    VXClientClass* subnodeCopy(const char* key, VXClientClassList*) override { return new Table(this, key); }
    static inline std::atomic<int> live{0};

  private:
    static void fill(TestClass& self) {
        for (int i = 0; i < 5; ++i) {
            ResultInstance* row = self.row();
            row->addMetric(new ResultMetric(self.findMetric("NAME"), ("row" + std::to_string(i)).c_str()));
            row->addMetric(new ResultMetric(self.findMetric("N"), static_cast<long long>(self.collections) * i));
            self.addResultInstance(row);
        }
    }
    void derive(const char* name, const char* formula) {
        auto* derived = new Metric;
        derived->setQMPVName(name);
        derived->setExpression(parseFormula(formula).tree.release());
        addMetricObject(derived);
    }
};

ResultInstance* eventOf(TestClass& c, int number) {
    ResultInstance* row = c.row();
    row->addMetric(new ResultMetric(c.findMetric("NAME"), "event"));
    row->addMetric(new ResultMetric(c.findMetric("N"), static_cast<long long>(number)));
    return row;
}

class Churn : public testing::Test {
  protected:
    Churn() : discovery_("CHDISC", [this](TestClass& c) { announce(c); }), before_(queryClassList) {
        queryClassList = &classes_;
        ZSV1_PutEnv("CDP_PURE_EVENT_CACHE_SIZE=8");
        for (const char* name : {SUBNODE_KEY_QMPV_NAME, SUBNODE_TYPE_QMPV_NAME, SUBNODE_AFFINITY_QMPV_NAME,
                                 SUBNODE_VERSION_QMPV_NAME, SUBNODE_MSN_QMPV_NAME}) {
            discovery_.metric(name, STRING_DATA);
        }
        discoveryGroup_.meta->setIsDiscoveryAttributeGroup(true);
        const auto enter = [this](Group& group, ResultsManager* c) {
            group.meta->setQuery(c);
            c->setAttributeGroupMeta(group.meta);
            classes_.addClientClass(c);
        };
        enter(discoveryGroup_, &discovery_);
        enter(tableGroup_, &table_);
        events_ = std::make_unique<Table>("CHEV");
        events_->setPureEventBased(true);
        enter(eventGroup_, events_.get());
        join_ = std::make_unique<Join2VXClientClasses>("APP", "CHJOIN", new JoinQuery("CHEV", nullptr, true),
                                                       new JoinQuery("CHTAB", nullptr, true), &classes_, true);
        enter(joinGroup_, join_.get());
        // Two that read each other, and a table beside: what is retired of them is held by nothing but itself.
        ring_ = std::make_unique<Join2VXClientClasses>("APP", "CHRING", new JoinQuery("CHFILT", nullptr, true),
                                                       new JoinQuery("CHTAB", nullptr, true), &classes_, false);
        enter(ringGroup_, ring_.get());
        filter_ = std::make_unique<FilterQueryClass>("APP", "CHFILT", "CHTAB,CHRING", "NAME NE 'row3'");
        auto* name = new FilterQueryMetric;
        name->init("NAME");
        name->setQMPVName("NAME");
        filter_->addMetricObject(name);
        enter(filterGroup_, filter_.get());
        table_.setRefreshInterval(1);
        manager_ = std::make_unique<SubnodeManager>(SubnodeManager::ZombieThread::None);
        registerSubnodeDirectory(manager_.get());
    }
    ~Churn() override {
        manager_.reset();
        for (VXClientClass* c : {static_cast<VXClientClass*>(&discovery_), static_cast<VXClientClass*>(&table_),
                                 static_cast<VXClientClass*>(events_.get()), static_cast<VXClientClass*>(join_.get()),
                                 static_cast<VXClientClass*>(ring_.get()), static_cast<VXClientClass*>(filter_.get())}) {
            classes_.removeClientClass(c);
        }
        ring_.reset();
        join_.reset();
        auto& registry = almanac::host::framework().subnodes;
        for (const std::string& name : registry.names()) registry.remove(name);
        queryClassList = before_;
    }

    void announce(TestClass& c) {
        for (const std::string& key : world_.keys()) {
            auto* row = new ResultInstance("", 5);
            for (const auto& [name, value] : std::vector<std::pair<const char*, const char*>>{
                     {SUBNODE_KEY_QMPV_NAME, key.c_str()}, {SUBNODE_TYPE_QMPV_NAME, "CHU"},
                     {SUBNODE_AFFINITY_QMPV_NAME, "X"}, {SUBNODE_VERSION_QMPV_NAME, "1"}, {SUBNODE_MSN_QMPV_NAME, ""}}) {
                row->addMetric(new ResultMetric(c.findMetric(name), value));
            }
            c.addResultInstance(row);
        }
    }

    void discover(unsigned seed) {
        std::mt19937 random(seed);
        while (!stop_) {
            world_.choose(random);
            updateDiscoveryClasses([] { return std::string("churn"); }, WhenCollecting::Skip);
            deleted_ += manager_->collectGarbage();
        }
    }
    // As a request does: the clones of some subnodes, or of all.
    void request(unsigned seed) {
        std::mt19937 random(seed);
        Group* groups[] = {&tableGroup_, &eventGroup_, &joinGroup_, &ringGroup_, &filterGroup_};
        while (!stop_) {
            Group& group = *groups[random() % 5];
            ClassPins pins;
            if (random() % 10 == 0) {
                pins = manager_->getAllSubnodeQueryClasses(group.meta);
            } else {
                const std::string key = "node" + std::to_string(random() % kSubnodes);
                if (ClassPin one = manager_->getSubnodeQueryClassByKey(key.c_str(), group.meta)) pins.push_back(std::move(one));
            }
            for (const ClassPin& clone : pins) {
                RecordingSink sink(group.meta);
                clone->collectDataIfNeeded("request");
                clone->sendDataToHBX(&sink, clone->getManagedSystemName().c_str());
                rows_ += sink.rows.size();
            }
        }
    }
    // As the server of client programs does.
    void sendEvents(unsigned seed) {
        std::mt19937 random(seed);
        int number = 0;
        while (!stop_) {
            const std::string key = "node" + std::to_string(random() % kSubnodes);
            ClassPin clone;
            {
                const PureEventGuard guard;
                clone = manager_->getSubnodeQueryClassByKey(key.c_str(), eventGroup_.meta);
            }
            if (!clone) continue;
            auto* c = static_cast<TestClass*>(clone.get());
            c->sendEventData(eventOf(*c, ++number));
            ++sent_;
        }
    }
    void submitJobs() {
        while (!stop_) {
            for (const ClassPin& clone : manager_->getAllSubnodeQueryClasses(tableGroup_.meta)) {
                if (!clone->isOnQueue()) threadPool->submitJob(new CollectDataJob(clone.get(), "job"));
            }
            std::this_thread::sleep_for(1ms);
        }
    }

    World world_;
    Group discoveryGroup_{"CHDISC", {{SUBNODE_KEY_QMPV_NAME, 2, 32}}};
    Group tableGroup_{"CHTAB", tableAttributes(), "CHU"};
    Group eventGroup_{"CHEV", tableAttributes(), "CHU"};
    Group joinGroup_{"CHJOIN", joinedAttributes(), "CHU"};
    TestClass discovery_;
    Table table_{"CHTAB"};
    std::unique_ptr<Table> events_;
    Group ringGroup_{"CHRING", joinedAttributes(), "CHU"};
    Group filterGroup_{"CHFILT", {{"NAME", 2, 16}}, "CHU"};
    std::unique_ptr<Join2VXClientClasses> join_;
    std::unique_ptr<Join2VXClientClasses> ring_;
    std::unique_ptr<FilterQueryClass> filter_;
    VXClientClassList classes_;
    std::unique_ptr<SubnodeManager> manager_;
    std::atomic<bool> stop_{false};
    std::atomic<int> deleted_{0};
    std::atomic<int> sent_{0};
    std::atomic<std::size_t> rows_{0};

  private:
    VXClientClassList* before_;
};

TEST_F(Churn, SubnodesRequestsEventsAndThePoolAtOnce) {
    std::mt19937 random(1);
    world_.choose(random);
    updateDiscoveryClasses([] { return std::string("first"); }, WhenCollecting::Skip);
    ThreadPool pool(3);
    threadPool = &pool;
    RefreshThread refresh(0);
    ASSERT_EQ(refresh.start(), 0);
    std::vector<std::thread> threads;
    threads.emplace_back([this] { discover(2); });
    threads.emplace_back([this] { request(3); });
    threads.emplace_back([this] { request(4); });
    threads.emplace_back([this] { sendEvents(5); });
    threads.emplace_back([this] { sendEvents(6); });
    threads.emplace_back([this] { submitJobs(); });
    std::this_thread::sleep_for(3s);
    stop_ = true;
    for (std::thread& t : threads) t.join();
    EXPECT_TRUE(refresh.stop(20000));
    EXPECT_GT(pool.getTPStatistics().totalJobs, 0);
    EXPECT_TRUE(pool.stop(20000));
    threadPool = nullptr;
    EXPECT_GT(deleted_, 0);
    EXPECT_GT(sent_, 0);
    EXPECT_GT(rows_, 0u);
}

TEST_F(Churn, NothingIsLeftOfThemInTheEnd) {
    std::mt19937 random(7);
    for (int round = 0; round < 20; ++round) {
        world_.choose(random);
        updateDiscoveryClasses([] { return std::string("round"); }, WhenCollecting::Skip);
        for (const Group* group : {&joinGroup_, &ringGroup_}) {
            for (const ClassPin& clone : manager_->getAllSubnodeQueryClasses(group->meta)) clone->collectDataIfNeeded("r");
        }
        manager_->collectGarbage();
    }
    EXPECT_EQ(Table::live, 2 * static_cast<int>(world_.keys().size()));
    EXPECT_EQ(almanac::host::framework().subnodes.names().size(), world_.keys().size());
    world_.clear();
    updateDiscoveryClasses([] { return std::string("last"); }, WhenCollecting::Skip);
    manager_->collectGarbage();
    EXPECT_EQ(manager_->zombieCount(), 0);
    EXPECT_EQ(Table::live, 0);
    EXPECT_TRUE(almanac::host::framework().subnodes.names().empty());
}

}  // namespace
