// Clones of derived tables under the real keeper of subnodes: what they find, and how they end.
#include "SubnodeKit.h"
#include "collection/status/StatusTables.h"
#include "providers/derived/filter/FilterQueryClass.h"
#include "providers/derived/join/Join2VXClientClasses.h"
#include "providers/derived/rollup/RollupClass.h"

namespace {

using namespace almanac::test;

// Beside the groups of Subnodes: Joined, Filtered and Summed, of type SUB. What they read is the test's.
class DerivedClones : public Subnodes {
  protected:
    ~DerivedClones() override {
        for (const auto& made : made_) classes.removeClientClass(made.get());
    }
    void join(const char* one, const char* other) {
        enter(&joined, new Join2VXClientClasses("APP", "Joined", new JoinQuery(one, nullptr, true), new JoinQuery(other, nullptr, true), &classes, false));
    }
    void filter(const char* groups) {
        auto* filter = new FilterQueryClass("APP", "Filtered", groups, "NAME NE 'x'");
        auto* metric = new FilterQueryMetric;
        metric->init("NAME");
        metric->setQMPVName("NAME");
        filter->addMetricObject(metric);
        enter(&filtered, filter);
    }
    void statusTable() { enter(&status, new PerfObjectStatus("APP", "Status", &classes, status.meta)); }
    void rollup(const char* group) {
        auto* rollup = new RollupClass("APP", "Summed", group, "N", &classes);
        auto* metric = new Metric;
        metric->setQMPVName("Total");
        rollup->addMetricObject(metric);
        enter(&summed, rollup);
    }
    // A collection of all clones of a group, and those clones.
    ClassPins collect(const Group& group) {
        ClassPins clones = manager->getAllSubnodeQueryClasses(group.meta);
        for (const ClassPin& clone : clones) clone->collectData("r");
        return clones;
    }
    static ResultsManager& rowsOf(const ClassPin& clone) { return static_cast<ResultsManager&>(*clone.get()); }

    Group joined{"Joined", nameAndNumber(), "SUB"};
    Group filtered{"Filtered", nameAndNumber(), "SUB"};
    Group status{"Status", {{"ATTRGRP", 2, 16}}, "SUB"};
    Group summed{"Summed", {{"Total", 0, 4}}, "SUB"};

  private:
    void enter(Group* group, ResultsManager* made) {
        made_.emplace_back(made);
        group->meta->setQuery(made);
        made->setAttributeGroupMeta(group->meta);
        classes.addClientClass(made);
    }
    std::vector<std::unique_ptr<ResultsManager>> made_;
};

// A subnode is registered under the type as its row writes it, which may differ in case from that of each group.
TEST_F(DerivedClones, FindTheirOwnSubnodeWhateverTheCaseOfItsType) {
    join("Web", "Db");
    filter("Db");
    rollup("Web");
    statusTable();
    find({{"one", "Sub"}, {"two", "SUB"}});
    ASSERT_EQ(registered(), "PP:one:Sub,PP:two:SUB,");
    for (const auto& [group, rows] : {std::pair<Group*, const char*>{&joined, "one,two,"}, {&filtered, "one,two,"}}) {
        std::string names;
        for (const ClassPin& clone : collect(*group)) {
            EXPECT_EQ(clone->getPerfErrorCode(), OBJECT_ACTIVE) << clone->getAttributeGroup();
            for (ListCursor c = rowsOf(clone).getResultInstanceListCursor(); c.hasMoreElements(); c.setToNext()) {
                names += static_cast<ResultInstance*>(c.getCurrentElement())->getMetric("NAME")->getStringValue() + std::string(",");
            }
        }
        EXPECT_EQ(names, rows);
    }
    for (const ClassPin& clone : collect(summed)) EXPECT_EQ(rowsOf(clone).getResultInstanceCount(), 1);
    for (const ClassPin& clone : collect(status)) EXPECT_EQ(rowsOf(clone).getResultInstanceCount(), 5) << "all but itself";
}

TEST_F(DerivedClones, ReadAClassOutsideOfSubnodesWithoutAWordOfError) {
    Group plainGroup("Plain", nameAndNumber());
    SubnodeClass plain("Plain");
    classes.addClientClass(&plain);
    join("Web", "Plain");
    filter("Plain");
    rollup("Plain");
    find({{"one"}});
    EXPECT_EQ(errorsOf([&] {
                  for (const Group* group : {&joined, &filtered, &summed}) {
                      for (const ClassPin& clone : collect(*group)) EXPECT_EQ(rowsOf(clone).getResultInstanceCount(), 1);
                  }
              }), "");
    EXPECT_EQ(plain.collections, 1);
    manager.reset();
    classes.removeClientClass(&plain);
}

// The join reads the filter, the filter the rollup, the rollup the join; and the join a table beside the ring.
class DerivedRings : public DerivedClones {
  protected:
    DerivedRings() {
        almanac::host::configureTrace("NONE", nullptr);
        join("Filtered", "Web");
        filter("Summed,Summed");  // twice: it holds it twice
        rollup("Joined");
    }
};

TEST_F(DerivedRings, LeaveNothingBehind) {
    const int before = Join2VXClientClasses::count();
    for (int round = 0; round < 10; ++round) {
        find({{"one"}, {"two"}});
        collect(joined);
        find({});
        EXPECT_EQ(manager->zombieCount(), 10);
        EXPECT_EQ(manager->collectGarbage(), 10);
        EXPECT_EQ(Join2VXClientClasses::count(), before);
        EXPECT_EQ(SubnodeClass::live.load(), 0);
    }
}

TEST_F(DerivedRings, StayWhileSomebodyHoldsAnyOfThem) {
    find({{"one"}, {"two"}});
    collect(joined);
    for (const Group* group : {&joined, &filtered, &summed}) {
        ClassPin held = manager->getSubnodeQueryClass("PP:one:SUB", group->meta);
        find({{"two"}});
        EXPECT_EQ(manager->collectGarbage(), 1) << "what stands beside the ring and is not read";
        EXPECT_EQ(manager->zombieCount(), 4);
        rowsOf(held).setOnQueue(true);
        VXClientClass* queued = held.get();
        held.reset();
        EXPECT_EQ(manager->collectGarbage(), 0);
        const std::unique_ptr<List> references(queued->getQueryReferences());
        ASSERT_NE(references, nullptr) << "it still has what it reads";
        queued->setOnQueue(false);
        EXPECT_EQ(manager->collectGarbage(), 4);
        find({{"one"}, {"two"}});
        collect(joined);
    }
}

TEST_F(DerivedRings, EndWithTheManager) {
    find({{"one"}, {"two"}});
    collect(joined);
    find({{"two"}});
    manager.reset();
    EXPECT_EQ(SubnodeClass::live.load(), 0);
    EXPECT_EQ(Join2VXClientClasses::count(), 1) << "the template";
}

}  // namespace
