// Joins beyond one collection of plain tables: rows known by instance name, events, classes that come too late, rings.
#include <gtest/gtest.h>

#include <future>
#include <random>
#include <thread>

#include "collection/JoinedEventRouter.h"
#include "host/Scratch.h"
#include "providers/derived/SourceTable.h"
#include "providers/derived/filter/FilterQueryClass.h"
#include "providers/derived/join/Join2VXClientClasses.h"
#include "providers/derived/rollup/RollupClass.h"
#include "runtime/reference/EventSink.h"

namespace {

using namespace almanac::test;
using almanac::host::test::Variable;

JoinQuery* side(const char* name, const char* attribute = nullptr) { return new JoinQuery(name, attribute, attribute == nullptr); }

Join2VXClientClasses* newJoin(AllClasses& classes, const char* group, JoinQuery* one, JoinQuery* other, bool pure = false) {
    auto* join = new Join2VXClientClasses("ZZ", group, one, other, &classes.list, pure);
    join->setAttributeGroupMeta(findAttributeGroupMeta(group));
    return classes.add(join);
}

Metric* addColumn(ResultsManager* join, const char* name, const char* group, const char* source) {
    auto* metric = new JoinQueryMetric;
    metric->init(group);
    metric->setQMPVName(name);
    metric->setMetricName(source);
    join->addMetricObject(metric);
    return metric;
}

// A table of type 1 whose rows have their names from keys.
SourceTable* namedTable(AllClasses& classes, const char* group, std::initializer_list<const char*> lines, bool column) {
    auto* table = classes.add(new SourceTable(group, VX_PROCESS));
    table->setReturnsInstanceName(column);
    for (const char* line : lines) table->add(line);
    return table;
}

TEST(Join, MatchesRowsByTheirInstanceName) {
    const struct {
        bool firstNamed, secondNamed;
        const char* cells;  // the joined rows' values of `v`
    } cases[] = {
        {true, true, "integer 20, integer 30, "},
        {true, false, "integer 20, integer 30, "},
        {false, true, "integer 20, integer 30, "},
    };
    for (const auto& each : cases) {
        AllClasses classes;
        SourceTable* first = each.firstNamed ? namedTable(classes, "A", {"*k=s:a", "*k=u:b", "*k=s:c"}, true)
                                             : classes.add(new SourceTable("A"));
        if (!each.firstNamed) first->add("Name=s:a").add("Name=u:b").add("Name=i:7").add("Name=s:c");
        SourceTable* second = each.secondNamed ? namedTable(classes, "B", {"*k=s:b v=i:20", "*k=s:c v=i:30", "*k=s:b v=i:40", "*k=i:7 v=i:50"}, true)
                                               : classes.add(new SourceTable("B"));
        if (!each.secondNamed) second->add("Name=u:b v=i:20").add("Name=s:c v=i:30").add("Name=s:b v=i:40").add("Name=i:7 v=i:50");
        auto* join = newJoin(classes, "J", side("A", "Name"), side("B", "Name"));
        join->collectDataIfNeeded("r");
        EXPECT_EQ(column(*join, "v"), each.cells);
        // A table with the column of names gives it to a join without metrics of its own.
        EXPECT_NE(report(*join).find("  Name text <b>\n"), std::string::npos);
    }
}

TEST(Join, TakesTheInstanceNameAsAColumnOnlyWhereTheTableHasOne) {
    for (const bool has : {true, false}) {
        AllClasses classes;
        namedTable(classes, "A", {"*k=s:a"}, has);
        classes.add(new SourceTable("B"))->add("x=i:1");
        auto* join = newJoin(classes, "J", side("A"), side("B"));
        addColumn(join, "Process", "A", "Name");
        addColumn(join, "X", "B", "x");
        join->collectDataIfNeeded("r");
        EXPECT_EQ(column(*join, "X"), "integer 1, ");
        EXPECT_EQ(column(*join, "Name"), has ? "text <a>, " : "none, ");
    }
}

// The index gives the very row that a walk with the cells' own comparison finds.
TEST(Join, FindsTheFirstEqualRow) {
    const std::vector<std::string> values = {"s:x", "s:", "s:xy", "u:x", "u:", "u:\xc3\xbc", "i:0", "i:-1", "i:1", "l:0", "l:-1", "l:1", "l:4294967295",
                                             "q:1", "q:18446744073709551615", "d:0", "d:-0.0", "d:1", "d:nan", "d:inf", "d:-inf"};
    std::mt19937 random(7);
    for (int round = 0; round < 50; ++round) {
        SourceTable left("L"), right("R");
        for (std::size_t i = 0; i < 2 * values.size(); ++i) {
            right.addResultInstanceDirectly(right.makeRow("k=" + values[random() % values.size()]).release());
            left.addResultInstanceDirectly(left.makeRow("k=" + values[i % values.size()]).release());
        }
        JoinQuery one("L", "k", false), other("R", "k", false);
        one.setClientClass(SourceClass(&left));
        other.setClientClass(SourceClass(&right));
        JoinRows first(&one), second(&other);
        ASSERT_EQ(first.initQueryData(nullptr), OBJECT_ACTIVE);
        ASSERT_EQ(second.initQueryData(nullptr), OBJECT_ACTIVE);
        int matches = 0;
        for (int i = 0; i < first.getInstanceCount(); ++i) {
            const ResultInstance* row = first.getIndexedResultInstance(i);
            const ResultInstance* expected = nullptr;
            for (ListCursor c = second.getInstanceList(); c.hasMoreElements() && !expected; c.setToNext()) {
                const auto* candidate = static_cast<ResultInstance*>(c.getCurrentElement());
                if (row->firstCell()->areValuesEqual(candidate->firstCell())) expected = candidate;
            }
            EXPECT_EQ(second.getMatchingResultInstance(first, row), expected) << values[static_cast<std::size_t>(i) % values.size()];
            matches += expected ? 1 : 0;
        }
        EXPECT_GT(matches, 0);
        EXPECT_EQ(first.getIndexedResultInstance(first.getInstanceCount()), nullptr);
        EXPECT_EQ(first.getIndexedResultInstance(1), nextRow(first.getIndexedResultInstance(0))) << "and back";
    }
}

TEST(Join, StaysDeadWhenASourceComesTooLate) {
    AllClasses classes;
    SourceTable* a = classes.add(new SourceTable("A"));
    a->add("k=i:1");
    auto* join = newJoin(classes, "J", side("A", "k"), side("B", "k"));
    const Variable noCache("CDP_DP_CACHE_TTL", "1");
    join->internalCollectData("r");
    EXPECT_EQ(statusOf(*join), "PERF_OBJECT_INACTIVE CANNOT_FIND_JOINED_QUERY");
    EXPECT_EQ(a->collections, 0);
    classes.add(new SourceTable("B"))->add("k=i:1");
    join->internalCollectData("r");
    join->updateResults();
    EXPECT_EQ(report(*join), "PERF_OBJECT_INACTIVE CANNOT_FIND_JOINED_QUERY\n");
    EXPECT_EQ(join->getQueryReferences(), nullptr);
}

TEST(Join, EmptySidesComeAndGo) {
    AllClasses classes;
    auto* a = classes.add(new SourceTable("A"));
    auto* b = classes.add(new SourceTable("B"));
    auto* join = newJoin(classes, "J", side("A", "k"), side("B", "k"));
    const auto collect = [&] {
        a->collectData("r");
        b->collectData("r");
        join->collectData("r");
        return report(*join);
    };
    EXPECT_EQ(collect(), "PERF_OBJECT_ACTIVE NO_INSTANCES_RETURNED_IN_QUERY_1\n");
    a->add("k=i:1");
    EXPECT_EQ(collect(), "PERF_OBJECT_ACTIVE NO_INSTANCES_RETURNED_IN_QUERY_2\n");
    b->add("k=i:1 v=i:2");
    EXPECT_EQ(collect(), "PERF_OBJECT_ACTIVE OBJECT_ACTIVE\nrow <DO_NOT_NEED_A_NAME>\n  k integer 1\n  k integer 1\n  v integer 2\n");
    b->clear();
    EXPECT_EQ(collect(), "PERF_OBJECT_ACTIVE NO_INSTANCES_RETURNED_IN_QUERY_2\n");
    const std::unique_ptr<List> references(join->getQueryReferences());
    ASSERT_NE(references, nullptr);
    EXPECT_EQ(references->getCount(), 2);
    EXPECT_EQ(references->get(1), static_cast<VXClientClass*>(b));
}

// With an empty first side the second is not even collected.
TEST(Join, DoesNotCollectTheSecondSideForAnEmptyFirst) {
    AllClasses classes;
    classes.add(new SourceTable("A"));
    auto* b = classes.add(new SourceTable("B"));
    b->add("k=i:1");
    newJoin(classes, "J", side("A", "k"), side("B", "k"))->collectDataIfNeeded("r");
    EXPECT_EQ(b->collections, 0);
}

class Events : public EventSink {
  public:
    explicit Events(AttributeGroupMeta* meta) : rows(meta) { meta->setTableManager(this); }
    int EventArrived(char* row, int size) override {
        const std::lock_guard guard(mutex_);
        return rows.AddData(row, size);
    }
    RecordingSink rows;

  private:
    std::mutex mutex_;
};

TEST(JoinedEvents, CarryTheEventAndTheTablesFirstRow) {
    Group group("J", {{"E", 2, 8}, {"V", 0, 4}}), other("PLAIN", {{"E", 2, 8}});
    Events events(group.meta), none(other.meta);
    AllClasses classes;
    auto* pure = classes.add(new SourceTable("EV"));
    pure->setPureEventBased(true);
    pure->makeRow("e=s:");
    auto* table = classes.add(new SourceTable("T"));
    table->add("v=i:7").add("v=i:8");
    auto* join = newJoin(classes, "J", side("T"), side("EV"), true);
    addColumn(join, "E", "EV", "e");
    addColumn(join, "V", "T", "v");
    auto* notPure = newJoin(classes, "PLAIN", side("EV"), side("T"));
    auto* foreign = newJoin(classes, "FOREIGN", side("T"), side("X"), true);
    pure->sendEventData(pure->makeRow("e=s:one").release());
    pure->sendEventData(pure->makeRow("e=s:two").release());
    EXPECT_EQ(events.rows.names("E"), "one,two,");
    EXPECT_EQ(events.rows.names("V"), "7,7,");
    EXPECT_EQ(table->collections, 1) << "the table's cache serves further events";
    EXPECT_EQ(none.rows.rows.size(), 0u);
    EXPECT_EQ(statusOf(*notPure), "PERF_OBJECT_ACTIVE OBJECT_ACTIVE");
    EXPECT_EQ(statusOf(*foreign), "PERF_OBJECT_ACTIVE OBJECT_ACTIVE") << "it does not read this source";
    // Requests on the join are answered from its own cache of events.
    join->collectDataIfNeeded("r");
    EXPECT_EQ(column(*join, "E"), "text <two>, text <one>, ");
}

TEST(JoinedEvents, WithoutATableRowAreNotSent) {
    Group group("J", {{"E", 2, 8}});
    Events events(group.meta);
    AllClasses classes;
    auto* pure = classes.add(new SourceTable("EV"));
    pure->setPureEventBased(true);
    classes.add(new SourceTable("T"));
    auto* join = newJoin(classes, "J", side("EV"), side("T"), true);
    pure->sendEventData(pure->makeRow("e=s:one").release());
    EXPECT_EQ(statusOf(*join), "PERF_OBJECT_ACTIVE NO_INSTANCES_RETURNED_IN_QUERY_2");
    EXPECT_TRUE(events.rows.rows.empty());
}

TEST(JoinedEvents, CostNothingWhereThereIsNoJoin) {
    JoinedEventRouter* router = joinedEventRouter();
    ASSERT_NE(router, nullptr) << "the join room registers one before main";
    EXPECT_TRUE(router->isIdle());
    AllClasses classes;
    newJoin(classes, "J", side("A"), side("B"));
    EXPECT_FALSE(router->isIdle());
}

// Events of several threads at once, into a join that builds its columns from its sources meanwhile, while the table
// side is collected anew all the time.
TEST(JoinedEvents, ComeFromManyThreadsAtOnce) {
    Group group("J", {{"E", 2, 8}, {"V", 0, 4}});
    Events events(group.meta);
    AllClasses classes;
    auto* pure = classes.add(new SourceTable("EV"));
    pure->setPureEventBased(true);
    pure->makeRow("e=s:");
    auto* table = classes.add(new SourceTable("T"));
    table->add("v=i:7");
    table->collectData("r");  // an event that comes during a table's very first collection meets no rows
    auto* join = newJoin(classes, "J", side("EV"), side("T"), true);
    std::vector<std::thread> threads;
    constexpr int kThreads = 4, kEvents = 200;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < kEvents; ++i) {
                auto row = std::make_unique<ResultInstance>("", 0);
                row->addMetric(new ResultMetric(pure->findMetric("e"), "x"));
                pure->sendEventData(row.release());
                table->collectData("r");
                join->collectDataIfNeeded("r");
            }
        });
    }
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(events.rows.rows.size(), static_cast<std::size_t>(kThreads * kEvents));
    EXPECT_EQ(events.rows.column(17, "V"), "7");
    EXPECT_EQ(join->getOrderedMetricCount(), 2);
}

// Classes that read each other, collected from both ends by several threads: everybody comes back.
TEST(DerivedTables, InARingNeverLockUp) {
    const Variable expired("CDP_DP_CACHE_TTL", "1");
    AllClasses classes;
    for (const char* name : {"A", "B"}) {
        auto* table = classes.add(new SourceTable(name));
        for (int i = 0; i < 50; ++i) table->add("*k=s:" + std::to_string(i) + " v=i:1");
    }
    std::vector<ResultsManager*> readers;
    const auto keep = [&](ResultsManager* c) { readers.push_back(c); };
    keep(newJoin(classes, "AB", side("A", "k"), side("B", "k")));
    keep(newJoin(classes, "BA", side("B", "k"), side("A", "k")));
    keep(newJoin(classes, "R1", side("R2", "k"), side("A", "k")));
    keep(newJoin(classes, "R2", side("R1", "k"), side("B", "k")));
    keep(newJoin(classes, "SELF", side("SELF", "k"), side("SELF", "k")));
    keep(classes.add(new FilterQueryClass("ZZ", "F1", "F2,AB", "k NE 'x'")));
    keep(classes.add(new FilterQueryClass("ZZ", "F2", "F1,BA", "k NE 'x'")));
    keep(classes.add(new RollupClass("ZZ", "U1", "U2", "v", &classes.list)));
    keep(classes.add(new RollupClass("ZZ", "U2", "U1", "v", &classes.list)));
    auto work = std::async(std::launch::async, [&] {
        std::vector<std::thread> threads;
        for (std::size_t t = 0; t < 4; ++t) {
            threads.emplace_back([&, t] {
                for (std::size_t i = 0; i < 60; ++i) {
                    ResultsManager* reader = readers[(t % 2 ? i : readers.size() * 60 - i) % readers.size()];
                    reader->collectData("r");
                    static_cast<ResultsManager*>(classes.list.getClientClass(i % 2 ? "A" : "B"))->collectData("r");
                    delete reader->getQueryReferences();
                }
            });
        }
        for (auto& thread : threads) thread.join();
    });
    if (work.wait_for(std::chrono::seconds(60)) != std::future_status::ready) {
        std::fprintf(stderr, "the ring is locked up\n");
        std::abort();
    }
    for (ResultsManager* c : readers) c->collectData("r");
    EXPECT_EQ(readers[0]->getResultInstanceCount(), 50);
    EXPECT_EQ(statusOf(*readers[2]), "PERF_OBJECT_ACTIVE NO_INSTANCES_RETURNED_IN_QUERY_1");
    EXPECT_EQ(statusOf(*readers[4]), "PERF_OBJECT_ACTIVE NO_INSTANCES_RETURNED_IN_QUERY_1");
    EXPECT_EQ(statusOf(*readers[7]), "PERF_OBJECT_ACTIVE CANNOT_FIND_ROLLUP_ATTRIBUTE");
}

}  // namespace
