// Requests of the host through the binding to query classes and back.
#include <gtest/gtest.h>

#include <condition_variable>
#include <future>
#include <map>
#include <thread>

#include "collection/ManagedSystemName.h"
#include "collection/TestClass.h"
#include "collection/TestDirectory.h"
#include "collection/schedule/ThreadPool.h"
#include "host/framework/Framework.h"
#include "host/framework/RequestBroker.h"
#include "platform/zsb.h"
#include "runtime/binding/GenericAgent.h"

namespace {

using namespace std::chrono_literals;
using namespace almanac::host;
using almanac::test::Attr;
using almanac::test::Group;
using almanac::test::TestClass;

const std::vector<Attr> kAttributes = {{"NAME", 2, 8}, {"N", 0, 4}, {"-GONE", 0, 4}, {"SMALL", 4, 2}, {"BIG", 7, 8}};

// Waits in collections until the test opens it.
class Door {
  public:
    void pass() {
        std::unique_lock lock(mutex_);
        ++arrived_;
        changed_.notify_all();
        changed_.wait_for(lock, 20s, [this] { return open_; });
    }
    void open() {
        const std::lock_guard guard(mutex_);
        open_ = true;
        changed_.notify_all();
    }
    bool waitForOne() {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, 20s, [this] { return arrived_ > 0; });
    }

  private:
    std::mutex mutex_;
    std::condition_variable changed_;
    int arrived_ = 0;
    bool open_ = false;
};

// One table with a query class, asked through the host's broker.
class Table {
  public:
    explicit Table(const char* name, TestClass::Collector collector = nullptr, const char* subnodeType = nullptr)
        : group(name, kAttributes, subnodeType), queryClass(name, std::move(collector)), manager("APP", name, group.meta) {
        queryClass.withNameAndNumber();
        queryClass.metric("GONE");
        queryClass.metric("SMALL");
        queryClass.metric("BIG");
        group.meta->setQuery(&queryClass);
        group.meta->setTableManager(&manager);
        broker.setReady();
    }
    ~Table() {
        broker.refuse();
        broker.drain(std::chrono::steady_clock::now() + 30s);
    }

    static ResultInstance* row(TestClass& c, const char* name, int n, long long big) {
        ResultInstance* r = c.named(name, n);
        r->addMetric(new ResultMetric(c.findMetric("GONE"), 7));
        r->addMetric(new ResultMetric(c.findMetric("SMALL"), n));
        r->addMetric(new ResultMetric(c.findMetric("BIG"), big));
        return r;
    }
    std::shared_ptr<TableEntry> learned() {
        if (!entry_) {
            entry_ = std::make_shared<TableEntry>(&manager);
            EXPECT_TRUE(entry_->learn());
        }
        return entry_;
    }
    std::shared_ptr<const Filter> filter(const std::string& text) {
        FilterError error;
        auto compiled = Filter::compile(text, *learned()->layout(), &error);
        EXPECT_TRUE(compiled) << text << ": " << error.message;
        return compiled;
    }
    std::future<SampleResult> ask(const std::string& text = "", std::vector<std::string> subnodes = {}) {
        SampleQuery query;
        query.table = learned();
        if (!text.empty()) query.filter = filter(text);
        query.subnodes = std::move(subnodes);
        auto promise = std::make_shared<std::promise<SampleResult>>();
        EXPECT_EQ(broker.sample(query, [promise](SampleResult&& r) { promise->set_value(std::move(r)); }), SampleStatus::Ok);
        return promise->get_future();
    }
    static std::string namesIn(const Batch& rows, const char* column = "NAME") {
        std::string names;
        for (std::size_t i = 0; i < rows.count(); ++i) {
            names += std::string(readText(*rows.layout()->find(column), rows.row(i))) + ",";
        }
        return names;
    }
    std::string names(const std::string& filterText = "") { return namesIn(ask(filterText).get().rows); }
    // The rows of the first sample of a request that is not a demand.
    std::string firstSample(RequestSpec spec) {
        auto promise = std::make_shared<std::promise<std::string>>();
        auto told = std::make_shared<std::atomic<bool>>(false);
        auto open = broker.open(learned(), std::move(spec), [promise, told](Delivery&& d) {
            if (!told->exchange(true)) promise->set_value(namesIn(d.rows));
        });
        auto future = promise->get_future();
        if (!open || future.wait_for(20s) != std::future_status::ready) return "(nothing)";
        return future.get();
    }

    Group group;
    TestClass queryClass;
    GenericAgentManager manager;
    RequestBroker broker;

  private:
    std::shared_ptr<TableEntry> entry_;
};

void threeRows(TestClass& c) {
    c.addResultInstance(Table::row(c, "a", -2, -5000000000LL));
    c.addResultInstance(Table::row(c, "b", 3, 7));
    c.addResultInstance(Table::row(c, "c", 40000, 6000000000LL));
}

TEST(Binding, ColumnsAreTheAttributesWithAPlace) {
    Table table("BINDCOL");
    const auto layout = table.learned()->layout();
    const struct {
        const char* name;
        std::size_t offset, length;
    } expected[] = {{"ORIGINNODE", 0, 32}, {"TIMESTAMP", 32, 16}, {"NAME", 48, 8}, {"N", 56, 4}, {"SMALL", 60, 2}, {"BIG", 64, 8}};
    ASSERT_EQ(layout->columns.size(), 6u);
    for (std::size_t i = 0; i < 6; ++i) {
        EXPECT_EQ(layout->columns[i].name, expected[i].name);
        EXPECT_EQ(layout->columns[i].offset, expected[i].offset) << expected[i].name;
        EXPECT_EQ(layout->columns[i].length, expected[i].length) << expected[i].name;
    }
    GenericAgent request(nullptr, nullptr, &table.manager);
    ColumnInfo info;
    EXPECT_EQ(request.GetColumnInfo(&info, -1), HBX_BAD_COLUMN);
    EXPECT_EQ(request.GetColumnInfo(&info, 6), HBX_BAD_COLUMN);
    EXPECT_EQ(request.GetColumnInfoByName(&info, "GONE"), HBX_BAD_COLUMN);
    const int types[] = {HBX_TEXT, HBX_TEXT, HBX_UTF8, HBX_INT32, HBX_INT16, HBX_INT64};
    for (int i = 0; i < 6; ++i) {
        ASSERT_EQ(request.GetColumnInfo(&info, i), 0);
        EXPECT_EQ(info.type, types[i]) << i;
    }
    char row[128] = {}, column[] = "NOWHERE";
    EXPECT_EQ(request.ColumnIsException(row, column, INTF_EQ, nullptr), 0);
}

TEST(Binding, FiltersWorkOnEveryTypeInEverySample) {
    Table table("BINDFLT", threeRows);
    const struct {
        const char* filter;
        const char* names;
    } cases[] = {
        {"NAME = 'b'", "b,"},
        {"NAME > 'a'", "b,c,"},
        {"N < 0", "a,"},
        {"N >= 3 AND NAME != 'c'", "b,"},
        {"SMALL = -2 OR BIG = 7", "a,b,"},
        {"SMALL = -25536", "c,"},           // the low bytes of 40000
        {"BIG > 7", "c,"},
        {"BIG = 2147483647", "c,"},         // kept: 64-bit columns are compared clamped to 32 bits
        {"BIG <= -2147483648", "a,"},
        {"SCAN(NAME,'c') OR N = 3", "b,c,"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(table.names(c.filter), c.names) << "demand " << c.filter;
        for (const HBX_SampleType type : {HBX_INTERVAL, HBX_EXCEPTION}) {
            RequestSpec spec;
            spec.type = type;
            spec.intervalMilliseconds = 3600 * 1000;
            spec.filter = table.filter(c.filter);
            EXPECT_EQ(table.firstSample(spec), c.names) << type << " " << c.filter;
        }
    }
    EXPECT_EQ(table.names(), "a,b,c,");
    EXPECT_EQ(table.queryClass.collections.load(), 1);  // all the rest came from the cache
    EXPECT_GT(table.queryClass.getPerfstats().cacheHits, 20);
}

TEST(Binding, RowsLeftOutByTheFilterGiveStatusTwo) {
    Table table("BINDST", threeRows);
    for (const HBX_SampleType type : {HBX_INTERVAL, HBX_DEMAND}) {
        auto spec = std::make_shared<RequestSpec>();
        spec->type = type;
        spec->layout = table.learned()->layout();
        spec->filter = table.filter("N = 1");
        RequestDetail detail(spec);
        GenericAgent request(&detail, nullptr, &table.manager);
        std::vector<char> row(static_cast<std::size_t>(table.group.meta->rowSize()), '\0');
        EXPECT_EQ(request.AddData(row.data(), table.group.meta->rowSize()), type == HBX_DEMAND ? 0 : 2);
    }
}

TEST(Binding, EventsReachOpenRequestsThroughTheirFilters) {
    Table table("BINDEVT");
    framework().catalog.add(&table.manager);
    std::mutex mutex;
    std::map<std::string, std::string> seen;
    std::vector<std::shared_ptr<OpenRequest>> open;
    for (const char* text : {"", "N > 5"}) {
        RequestSpec spec;
        spec.type = HBX_EVENT;
        if (*text) spec.filter = table.filter(text);
        open.push_back(table.broker.open(table.learned(), spec, [&, key = std::string(text)](Delivery&& d) {
            const std::lock_guard guard(mutex);
            seen[key] += Table::namesIn(d.rows);
        }));
    }
    ASSERT_TRUE(table.broker.drain(std::chrono::steady_clock::now() + 20s));  // both stand on the table's list
    for (const int n : {4, 6}) {
        std::unique_ptr<ResultInstance> row(Table::row(table.queryClass, n == 4 ? "low" : "high", n, 0));
        table.queryClass.sendEventData(row.get());
    }
    open.clear();
    framework().catalog.forget(&table.manager);
    const std::lock_guard guard(mutex);
    EXPECT_EQ(seen[""], "low,high,");
    EXPECT_EQ(seen["N > 5"], "high,");
    EXPECT_EQ(table.queryClass.collections.load(), 0);
}

TEST(Binding, RequestsSayWhatAGroupAsksFor) {
    Table table("BINDINFO", threeRows);
    std::string told;
    table.queryClass.onRequestInfo = [&told](const char*, const List* info) {
        if (!info) {
            told += "end";
            return;
        }
        for (int i = 0; i < info->getCount(); ++i) {
            const auto* e = static_cast<const RequestInfoEntry*>(info->get(i));
            told += std::string(e->name) + "=" + e->value + "/" + (e->firstOperator ? e->firstOperator : "-") + "/" +
                    (e->secondOperator ? e->secondOperator : "-") + ";";
        }
    };
    table.ask("N > 1").get();
    EXPECT_EQ(told, "");  // the group asks for nothing
    for (const char* name : {"_REQ_TYPE", "_FILTER", "NAME", "N", "limit"}) table.group.meta->setRequestInfo(name);
    table.ask("N > 1 AND NAME = 'b c' OR PARMA('limit','12')").get();
    ASSERT_TRUE(table.broker.drain(std::chrono::steady_clock::now() + 20s));
    EXPECT_EQ(told, "_REQ_TYPE=DEMAND/-/-;_FILTER=((N GT 1)  AND (NAME EQ 'b c') )/-/-;N=1/GT/AND;NAME=b c/EQ/OR;limit=12/EQ/None;end");

    const struct {
        HBX_SampleType type;
        int history;
        const char* text;
    } types[] = {{HBX_INTERVAL, 0, "DEMAND"}, {HBX_EXCEPTION, 0, "NON_HISTORICAL_SITUATION"},
                 {HBX_EVENT, 1, "HISTORICAL_SITUATION"}, {HBX_EXCEPTION, 2, "HISTORICAL_SITUATION"}, {HBX_DEMAND, 1, "DEMAND"}};
    for (const auto& t : types) {
        told.clear();
        auto spec = std::make_shared<RequestSpec>();
        spec->type = t.type;
        spec->history = t.history;
        RequestDetail detail(spec);
        { GenericAgent request(&detail, nullptr, &table.manager); }
        EXPECT_EQ(told, std::string("_REQ_TYPE=") + t.text + "/-/-;_FILTER=()/-/-;end");
    }
}

TEST(Binding, TwoRequestsOnAnExpiredClassBothGetFreshRowsQuickly) {
    Door door;
    Table table("BINDTWO", [&door](TestClass& c) {
        door.pass();
        threeRows(c);
    });
    auto first = table.ask();
    ASSERT_TRUE(door.waitForOne());
    auto second = table.ask();  // finds a collection under way
    EXPECT_EQ(second.wait_for(100ms), std::future_status::timeout);
    door.open();
    const auto opened = std::chrono::steady_clock::now();
    EXPECT_EQ(first.get().rows.count(), 3u);
    EXPECT_EQ(second.get().rows.count(), 3u);
    EXPECT_LT(std::chrono::steady_clock::now() - opened, 900ms);  // woken, not polled for
    EXPECT_EQ(table.queryClass.collections.load(), 1);
}

TEST(Binding, ShutdownEndsARequestWhoseCollectionElsewhereHangs) {
    // A process of its own, because a shutdown is for ever.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            Door door;
            Table table("BINDEND", [&door](TestClass&) { door.pass(); });
            auto first = table.ask();
            door.waitForOne();
            auto second = table.ask();
            if (second.wait_for(50ms) == std::future_status::ready) _exit(1);
            HBX_Shutdown(1);
            _exit(second.wait_for(5s) == std::future_status::ready ? 0 : 2);
        },
        testing::ExitedWithCode(0), "");
}

// Subnodes one, two and three of a group, with a clone of the class each.
class Directory : public almanac::test::TestDirectory {
  public:
    explicit Directory(Table& table) : table_(table) {
        for (const char* key : {"one", "two", "three"}) {
            auto* clone = static_cast<TestClass*>(table.queryClass.subnodeCopy(key, nullptr));
            clones[nameOf(key)] = clone;
            clone->setManagedSystemName(nameOf(key).c_str());
            order_.push_back(clone);
        }
    }
    ~Directory() override {
        registerSubnodeDirectory(nullptr);
        for (auto& c : clones) delete c.second;
    }
    static std::string nameOf(const char* key) {
        char name[MANAGED_SYSTEM_NAME_SIZE];
        return generateSubnodeManagedSystemName("APP", key, "SUB", name);
    }
    bool isManagingSubnode(const char* msn) override { return clones.count(msn) > 0; }
    ClassPin getSubnodeQueryClass(const char* msn, const AttributeGroupMeta*) override { return ClassPin(clones.at(msn)); }
    using TestDirectory::getAllSubnodeQueryClasses;
    ClassPins getAllSubnodeQueryClasses(const AttributeGroupMeta* meta) override {
        ClassPins all;
        if (meta != table_.group.meta) return all;
        for (TestClass* clone : order_) all.emplace_back(clone);
        return all;
    }
    void discoveryAttributeGroupWasUpdated(VXClientClass*) override { ++discoveries; }
    void updateDiscoveryAttributeGroupForSubnode(const char* msn) override { unavailable += msn; }

    std::map<std::string, TestClass*> clones;
    int discoveries = 0;
    std::string unavailable;

  private:
    Table& table_;
    std::vector<TestClass*> order_;
};

void ownName(TestClass& c) { c.addResultInstance(Table::row(c, c.getSubnodeKey() ? c.getSubnodeKey() : "template", 1, 1)); }

TEST(Binding, SubnodeGroupsAreAnsweredByTheirClones) {
    Table table("BINDSUB", ownName, "SUB");
    EXPECT_EQ(table.names(), "");  // no directory, no subnodes: at once, without rows
    Directory directory(table);
    EXPECT_EQ(table.names(), "");  // none named
    directory.clones[Directory::nameOf("two")]->errorCode = SUBNODE_UNAVAILABLE;
    const Batch rows =
        table.ask("", {Directory::nameOf("two"), "ZZ:unknown:SUB", Directory::nameOf("one")}).get().rows;
    EXPECT_EQ(Table::namesIn(rows), "two,one,");
    EXPECT_EQ(Table::namesIn(rows, "ORIGINNODE"), "PP:two:SUB,PP:one:SUB,");
    EXPECT_EQ(directory.unavailable, "PP:two:SUB");
    EXPECT_EQ(table.queryClass.collections.load(), 0);
    for (auto& c : directory.clones) {
        EXPECT_FALSE(c.second->isHeld()) << c.first;
        EXPECT_FALSE(c.second->isOnQueue()) << c.first;
    }
    RequestSpec history;
    history.type = HBX_INTERVAL;
    history.history = 1;
    history.allSubnodes = true;
    history.intervalMilliseconds = 3600 * 1000;
    EXPECT_EQ(table.firstSample(history), "one,two,three,");
    EXPECT_EQ(directory.discoveries, 0);
    table.group.meta->setIsDiscoveryAttributeGroup(true);
    table.ask("", {Directory::nameOf("three")}).get();
    EXPECT_EQ(directory.discoveries, 1);
}

TEST(Binding, AClassThatExpiresWhileOthersCollectIsSentAllTheSame) {
    ZSV1_PutEnv("CDP_DP_CACHE_TTL=1");
    Table table("BINDTTL", [](TestClass& c) {
        if (std::strcmp(c.getSubnodeKey(), "two") == 0) std::this_thread::sleep_for(1200ms);
        ownName(c);
    }, "SUB");
    ZSV1_UnsetEnv("CDP_DP_CACHE_TTL");
    Directory directory(table);
    auto answer = table.ask("", {Directory::nameOf("one"), Directory::nameOf("two")});
    if (answer.wait_for(10s) != std::future_status::ready) {
        ADD_FAILURE() << "the request waits for ever";
        directory.clones[Directory::nameOf("one")]->collectData("rescue");
    }
    EXPECT_EQ(Table::namesIn(answer.get().rows), "one,two,");
}

TEST(Binding, AnImpatientRequestSendsWhatTheCacheHolds) {
    Door door;
    std::atomic<int> collection{0};
    Table table("BINDIMP", [&](TestClass& c) {
        if (++collection == 2) door.pass();
        c.addResultInstance(Table::row(c, collection == 1 ? "old" : "new", 1, 1));
    });
    table.queryClass.collectData("before");
    ThreadPool pool(1);
    threadPool = &pool;
    impatientCollectorTimeout = 1;
    EXPECT_EQ(table.names(), "old,");  // still current: at once
    auto* refresh = new CollectDataJob(&table.queryClass, "refresh");
    pool.submitJob(refresh);
    ASSERT_TRUE(door.waitForOne());
    // A class that has data but collects again is current until its time is over: answered from the cache.
    EXPECT_EQ(table.names(), "old,");
    door.open();
    threadPool = nullptr;

    Table never("BINDNEV", threeRows);  // nobody collects it: the request has set the on-queue flag itself
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(never.ask().get().rows.count(), 0u);
    const auto took = std::chrono::steady_clock::now() - start;
    impatientCollectorTimeout = 0;
    EXPECT_GE(took, 900ms);
    EXPECT_LT(took, 4s);
    EXPECT_EQ(never.queryClass.collections.load(), 0);
    EXPECT_TRUE(pool.stop(20000));
}

TEST(Binding, ATableNeedsANameButNoApplication) {
    Group group("BINDNEW", almanac::test::nameAndNumber());
    EXPECT_EQ(newGenericAgent("APP", nullptr, group.meta), nullptr);
    EXPECT_EQ(newGenericAgent("APP", "", group.meta), nullptr);
    EXPECT_EQ(newGenericAgent(nullptr, "BINDNEW", group.meta), nullptr);
    EXPECT_EQ(group.meta->getManager(), nullptr);
    GenericAgentManager* unnamed = newGenericAgent("", "BINDNEW", group.meta);
    ASSERT_NE(unnamed, nullptr);
    EXPECT_EQ(framework().catalog.findManager("", "BINDNEW"), unnamed);
    framework().catalog.forget(unnamed);
    delete unnamed;
}

}  // namespace
