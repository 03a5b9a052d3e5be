// Derived tables in subnodes: which class a clone reads, what it shares with its prototype, and what it keeps alive.
// Also what a filter does about groups that come later, and its settings.
#include <gtest/gtest.h>

#include "host/Scratch.h"
#include "providers/derived/FakeDirectory.h"
#include "providers/derived/filter/FilterQueryClass.h"
#include "providers/derived/join/Join2VXClientClasses.h"
#include "providers/derived/rollup/RollupClass.h"

namespace {

using namespace almanac::test;
using almanac::host::test::Variable;

// A group SUB with clones in the subnodes k1 and k2, and a group PLAIN outside of them.
class Subnodes : public testing::Test {
  public:
    Subnodes() {
        sub = table("SUB", "*k=s:template v=i:0");
        plain = table("PLAIN", "*k=s:1 x=i:5");
        for (const char* key : {"k1", "k2"}) {
            auto* clone = directory.add(new SourceTable(sub, key));
            clone->add(std::string("*k=s:1 v=i:") + (key + 1)).add(std::string("*k=s:2 v=i:1") + (key + 1));
        }
    }
    SourceTable* table(const char* name, const char* row) {
        auto* made = classes.add(new SourceTable(name));
        made->add(row);
        made->setAttributeGroupMeta(findAttributeGroupMeta(name));
        return made;
    }
    // The clone of a derived class in a subnode.
    template <class T>
    T* clone(T* prototype, const char* key) {
        prototype->setAttributeGroupMeta(derived.meta);
        classes.add(prototype);
        auto* made = static_cast<T*>(prototype->subnodeCopy(key, nullptr));
        return directory.add(made);
    }
    Join2VXClientClasses* join(const char* one, const char* other) {
        return new Join2VXClientClasses("ZZ", "DERIVED", new JoinQuery(one, "k", false), new JoinQuery(other, "k", false), &classes.list, false);
    }
    FilterQueryClass* filter(const char* groups) {
        auto* made = new FilterQueryClass("ZZ", "DERIVED", groups, "k NE 'x'");
        auto* metric = new FilterQueryMetric;
        metric->init("k");
        metric->setQMPVName("K");
        made->addMetricObject(metric);
        return made;
    }
    RollupClass* rollup(const char* group) {
        auto* made = new RollupClass("ZZ", "DERIVED", group, "v", &classes.list);
        auto* metric = new Metric;
        metric->setQMPVName("Total");
        made->addMetricObject(metric);
        return made;
    }
    static std::string collected(ResultsManager* c, const char* name) {
        c->collectData("r");
        return statusOf(*c) + ": " + column(*c, name);
    }

    Group subGroup{"SUB", {}, "type"}, derived{"DERIVED", {}, "type"}, plainGroup{"PLAIN", {}};
    AllClasses classes;
    FakeDirectory directory;
    SourceTable* sub;
    SourceTable* plain;
};

TEST_F(Subnodes, ReadTheirOwnClonesAndOtherwiseTheTemplate) {
    EXPECT_EQ(collected(clone(join("SUB", "PLAIN"), "k1"), "v"), "PERF_OBJECT_ACTIVE OBJECT_ACTIVE: integer 1, ");
    EXPECT_EQ(collected(clone(join("PLAIN", "SUB"), "k2"), "v"), "PERF_OBJECT_ACTIVE OBJECT_ACTIVE: integer 2, ");
    EXPECT_EQ(collected(clone(rollup("SUB"), "k1"), "Total"), "PERF_OBJECT_ACTIVE OBJECT_ACTIVE: integer 12, ");
    EXPECT_EQ(collected(clone(filter("SUB"), "k2"), "K"), "PERF_OBJECT_ACTIVE OBJECT_ACTIVE: text <1>, text <2>, ");
    EXPECT_EQ(collected(clone(filter("PLAIN,SUB"), "k2"), "K"), "PERF_OBJECT_ACTIVE OBJECT_ACTIVE: text <1>, text <1>, text <2>, ");
}

TEST_F(Subnodes, WithoutACloneJoinsAndRollupsRefuseAndFiltersTakeTheTemplate) {
    EXPECT_EQ(collected(clone(join("SUB", "PLAIN"), "gone"), "v"), "PERF_OBJECT_INACTIVE CANNOT_FIND_JOINED_QUERY: ");
    EXPECT_EQ(collected(clone(rollup("SUB"), "gone"), "Total"), "PERF_OBJECT_INACTIVE CANNOT_FIND_ROLLUP_AG: ");
    EXPECT_EQ(collected(clone(filter("SUB"), "gone"), "K"), "PERF_OBJECT_ACTIVE OBJECT_ACTIVE: text <template>, ");
    EXPECT_EQ(collected(clone(rollup("NOWHERE"), "k1"), "Total"), "PERF_OBJECT_INACTIVE CANNOT_FIND_ROLLUP_AG: ");
}

TEST_F(Subnodes, ShareListsOnlyWhereTheFileGaveThem) {
    auto* own = join("SUB", "PLAIN");
    auto* one = clone(own, "k1");
    auto* two = clone(join("SUB", "PLAIN"), "k2");
    one->collectData("r");
    EXPECT_EQ(one->getOrderedMetricCount(), 4) << "k, v, k, x";
    EXPECT_EQ(own->getOrderedMetricCount(), 0) << "nothing that others read was changed";
    EXPECT_EQ(two->getOrderedMetricCount(), 0);

    auto* fromFile = join("SUB", "PLAIN");
    auto* metric = new JoinQueryMetric;
    metric->init("PLAIN");
    metric->setQMPVName("X");
    metric->setMetricName("x");
    fromFile->addMetricObject(metric);
    auto* sharing = clone(fromFile, "k1");
    EXPECT_EQ(collected(sharing, "X"), "PERF_OBJECT_ACTIVE OBJECT_ACTIVE: integer 5, ");
    EXPECT_EQ(sharing->getOrderedMetricCount(), 1);
}

TEST_F(Subnodes, PinWhatTheyReadUntilTheyGo) {
    const ClassPins sources = directory.getAllSubnodeQueryClasses("SUB");
    VXClientClass* source = sources[0].get();
    const auto pins = [source] {  // beside the one of this test
        source->unhold();
        const bool held = source->isHeld();
        source->hold();
        return held;
    };
    for (ResultsManager* prototype : {static_cast<ResultsManager*>(join("SUB", "PLAIN")), static_cast<ResultsManager*>(rollup("SUB")),
                                      static_cast<ResultsManager*>(filter("SUB"))}) {
        prototype->setAttributeGroupMeta(derived.meta);
        classes.add(prototype);
        std::unique_ptr<ResultsManager> copy(static_cast<ResultsManager*>(prototype->subnodeCopy("k1", nullptr)));
        EXPECT_EQ(copy->getQueryReferences(), nullptr) << "nothing is resolved before the first collection";
        EXPECT_FALSE(pins());
        copy->collectData("r");
        EXPECT_TRUE(pins());
        const std::unique_ptr<List> references(copy->getQueryReferences());
        ASSERT_NE(references, nullptr);
        EXPECT_EQ(references->get(0), source);
        copy.reset();
        EXPECT_FALSE(pins());
    }
}

// A clone that is among its own sources does not keep itself.
TEST_F(Subnodes, ReadingThemselvesAreNotKeptByThat) {
    for (ResultsManager* c : {static_cast<ResultsManager*>(clone(join("DERIVED", "DERIVED"), "k1")),
                              static_cast<ResultsManager*>(clone(rollup("DERIVED"), "k2"))}) {
        c->collectData("r");
        EXPECT_FALSE(c->isHeld());
        EXPECT_EQ(c->getQueryReferences(), nullptr);
    }
}

TEST_F(Subnodes, EventsReachEveryPureCloneThatNamesTheGroup) {
    sub->setPureEventBased(true);
    auto* pure = new Join2VXClientClasses("ZZ", "DERIVED", new JoinQuery("SUB", nullptr, true), new JoinQuery("PLAIN", nullptr, true), &classes.list, true);
    ResultsManager* one = clone(pure, "k1");
    ResultsManager* two = directory.add(static_cast<ResultsManager*>(pure->subnodeCopy("k2", nullptr)));
    const ClassPins sources = directory.getAllSubnodeQueryClasses("SUB");
    for (const ClassPin& source : sources) source.get()->setPureEventBased(true);
    auto* source = static_cast<SourceTable*>(sources[0].get());
    source->sendEventData(source->makeRow("*k=s:event").release());
    for (ResultsManager* c : {one, two}) EXPECT_EQ(collected(c, "x"), "PERF_OBJECT_ACTIVE OBJECT_ACTIVE: integer 5, ");
    EXPECT_EQ(collected(pure, "x"), "PERF_OBJECT_ACTIVE OBJECT_ACTIVE: ") << "the template hears of nothing";
}

TEST(Filter, LooksForAMissingGroupAgain) {
    AllClasses classes;
    classes.add(new SourceTable("A"))->add("k=s:a");
    auto* filter = classes.add(new FilterQueryClass("ZZ", "F", "A,B", "k NE 'x'"));
    auto* metric = new FilterQueryMetric;
    metric->init("k");
    metric->setQMPVName("K");
    filter->addMetricObject(metric);
    filter->collectData("r");
    EXPECT_EQ(report(*filter), "PERF_OBJECT_INACTIVE OBJECT_NOT_FOUND\n");
    EXPECT_EQ(filter->getQueryReferences(), nullptr) << "the part that was found is dropped";
    classes.add(new SourceTable("B"))->add("k=s:b");
    filter->collectData("r");
    EXPECT_EQ(column(*filter, "K"), "text <a>, text <b>, ");
    EXPECT_EQ(statusOf(*filter), "PERF_OBJECT_INACTIVE OBJECT_NOT_FOUND") << "and that stays";
}

TEST(Filter, MayUseThePoolIfToldSo) {
    const struct {
        const char* value;
        bool eligible;
    } cases[] = {{"yes", true}, {"Y", true}, {"no", false}, {"", false}, {"1", false}};
    EXPECT_FALSE(FilterQueryClass("ZZ", "F", "A", "a EQ b").isThreadPoolEligible());
    for (const auto& each : cases) {
        const Variable set("CDP_FILTER_CLASS_USE_THREAD_POOL", each.value);
        EXPECT_EQ(FilterQueryClass("ZZ", "F", "A", "a EQ b").isThreadPoolEligible(), each.eligible) << each.value;
    }
    AllClasses classes;
    EXPECT_FALSE(RollupClass("ZZ", "U", "A", "v", &classes.list).isThreadPoolEligible());
    EXPECT_FALSE(Join2VXClientClasses("ZZ", "J", new JoinQuery("A", "k", false), new JoinQuery("B", "k", false), &classes.list, false).isThreadPoolEligible());
}

TEST(DerivedTables, AreNamedInTheStatusTable) {
    AllClasses classes;
    EXPECT_STREQ(FilterQueryClass("ZZ", "F", "A", "a EQ b").getPerfObjectName(), "F");
    EXPECT_STREQ(RollupClass("ZZ", "U", "A", "v", &classes.list).getPerfObjectName(), "A:v");
    EXPECT_STREQ(Join2VXClientClasses("ZZ", "J", new JoinQuery("A", "k", false), new JoinQuery("B", "k", false), &classes.list, false).getPerfObjectName(),
                 "Joined Queries: A and B");
}

}  // namespace
