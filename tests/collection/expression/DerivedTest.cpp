// Derived metrics of a query class: from the reference file's attributes to the cells of its rows.
#include <thread>

#include "collection/TestClass.h"
#include "collection/expression/FormulaRow.h"
#include "host/Scratch.h"
#include "runtime/reference/XMLConfigParser.h"

namespace almanac::test {
namespace {

class Attributes {
  public:
    explicit Attributes(const std::vector<std::pair<const char*, const char*>>& pairs) {
        for (const auto& p : pairs) map.put(p.first, p.second);
    }
    HashMap map;
};

Metric* metricOf(const std::vector<std::pair<const char*, const char*>>& pairs) {
    auto* metric = new Metric;
    const Attributes attributes(pairs);
    XMLConfigParser::initializeMetric(metric, &attributes.map);
    return metric;
}

void derive(TestClass& c, const char* name, const char* formula, const char* type = "NUMERIC_DATA") {
    c.addMetricObject(metricOf({{"name", name}, {"type", type}, {"formula", formula}}));
}

// The derived cells of a row, in their order.
std::string derivedCells(const ResultInstance& row) {
    std::string all;
    for (ListIterator i = row.getDerivedIterator(); i.hasNext();) {
        const auto* cell = static_cast<const ResultMetric*>(i.next());
        all += std::string(cell->getQMPVMetricName()) + "=" + shown(cell) + " ";
    }
    return all;
}

TEST(Derived, FormulaOfTheReferenceFile) {
    std::unique_ptr<Metric> good(metricOf({{"name", "X"}, {"type", "RATE_DATA"}, {"formula", "A + 1"}}));
    EXPECT_TRUE(good->isDerived());
    EXPECT_STREQ(good->getExpressionFormula(), "A + 1");
    EXPECT_EQ(FormulaRow().with("A", 2).compute(*good), "l 3");

    Traces traces("ERROR");
    std::unique_ptr<Metric> wrong(metricOf({{"name", "Busy"}, {"type", "NUMERIC_DATA"}, {"formula", "1 + * 2"}}));
    EXPECT_STREQ(wrong->getExpressionFormula(), "-1");
    EXPECT_EQ(FormulaRow().compute(*wrong), "i -1");
    EXPECT_EQ(traces.count("Error found: parse error"), 1);
    EXPECT_EQ(traces.count("Error parsing expression for metric Busy:"), 1) << traces.text();
    EXPECT_NE(traces.text().find("1 + * 2\\n    ^"), std::string::npos) << traces.text();
    EXPECT_EQ(traces.count("Due to the expression parsing error, this metric's value will be set to -1."), 1);

    const Traces quiet("NONE");
    std::unique_ptr<Metric> plain(metricOf({{"name", "Busy"}, {"type", "NUMERIC_DATA"}, {"formula", "1 + * 2"}}));
    EXPECT_FALSE(plain->isDerived());
    EXPECT_EQ(plain->getExpressionFormula(), nullptr);
}

TEST(Derived, InDeclarationOrder) {
    const Group group("FORMULAS", {{"A", 0, 4}});
    TestClass c("FORMULAS");
    derive(c, "EARLY", "A + LATE");
    c.metric("A");
    derive(c, "LATE", "A * 10");
    derive(c, "LATER", "LATE + EARLY");
    c.addMetricObject(metricOf({{"name", "SIMPLE"}, {"type", "NUMERIC_DATA"}, {"arg1", "LATE"}, {"op", "-"}, {"arg2", "+1"}}));
    c.addMetricObject(metricOf({{"name", "AHEAD"}, {"type", "NUMERIC_DATA"}, {"arg1", "B"}, {"op", "+"}, {"arg2", "2"}}));
    c.metric("B");
    EXPECT_EQ(c.getMetricCount(), 2);

    auto* row = new ResultInstance("r", 2);
    row->addMetric(new ResultMetric(c.findMetric("A"), 3));
    row->addMetric(new ResultMetric(c.findMetric("B"), 100));
    c.addResultInstance(row);
    auto* incomplete = new ResultInstance("half", 2);
    incomplete->addMetric(new ResultMetric(c.findMetric("A"), 4));
    c.addResultInstance(incomplete);
    c.calculateDerived();
    // LATE is not there yet for EARLY; B is declared behind AHEAD, so there it is a text that counts as 0.
    EXPECT_EQ(derivedCells(*row), "EARLY=l 3 LATE=l 30 LATER=l 33 SIMPLE=l 29 AHEAD=i 2 ");
    EXPECT_EQ(derivedCells(*incomplete), "");
    c.setSkipIncompleteRows(false);
    c.internalCalculateDerived(incomplete);
    EXPECT_EQ(derivedCells(*incomplete), "EARLY=l 4 LATE=l 40 LATER=l 44 SIMPLE=l 39 AHEAD=i 2 ");
}

TEST(Derived, CollectionsKeepTheirSamples) {
    const Group group("SAMPLES", nameAndNumber());
    TestClass c("SAMPLES", [](TestClass& t) { t.addResultInstance(t.named("x", t.collections * 10)); });
    c.withNameAndNumber();
    derive(c, "TREND", "trend(last(N, 5))");
    derive(c, "COUNT", "count(0)");
    // A copy for a subnode shares the formulas and has samples of its own.
    TestClass copy(&c, "node1");
    const auto latest = [](TestClass& t) {
        return derivedCells(*static_cast<ResultInstance*>(t.getResultInstanceListCursor().getCurrentElement()));
    };
    c.collectAnew(nullptr);
    c.collectAnew(nullptr);
    EXPECT_EQ(latest(c), "TREND=d 30 COUNT=l 2 ");
    copy.collectAnew(nullptr);
    EXPECT_EQ(latest(copy), "TREND=d 0 COUNT=l 1 ");
    c.collectAnew(nullptr);
    EXPECT_EQ(latest(c), "TREND=d 40 COUNT=l 3 ");
    c.deleteDerivedMetricStorage();
    c.collectAnew(nullptr);
    EXPECT_EQ(latest(c), "TREND=d 0 COUNT=l 1 ");
}

TEST(Derived, AHistoricalRequestEndsTheMemoryOfAnAggregatingClass) {
    const Group group("KEPT", nameAndNumber());
    for (const bool aggregates : {true, false}) {
        const host::test::Variable set("CDP_KEPT_AGGREGATE_RESULTS", aggregates ? "yes" : "no");
        TestClass c("KEPT", [](TestClass& t) { t.addResultInstance(t.named("x", 1)); });
        c.withNameAndNumber();
        derive(c, "COUNT", "count(0)");
        std::string counted;
        for (int i = 0; i < 5; ++i) {
            if (i == 2) c.setLastRequestWasHistorical();  // heard of when the third collection is published
            c.collectData(nullptr);
            counted += shown(static_cast<ResultInstance*>(c.getResultInstanceListCursor().getCurrentElement())->getMetric("COUNT")) + " ";
        }
        EXPECT_EQ(counted, aggregates ? "l 1 l 2 l 3 l 1 l 2 " : "l 1 l 2 l 3 l 4 l 5 ");
    }
}

// Events and collections compute the same metrics at once, each on rows of its own, some of one name.
TEST(Derived, ManyThreadsOneMetric) {
    const Traces quiet("NONE");
    const Group group("THREADS", nameAndNumber());
    TestClass c("THREADS");
    c.withNameAndNumber();
    derive(c, "TEXT", "NAME + \"/\" + itoa(N) + getenv(\"FORMULA_TEST_NOT_SET\")", "STRING_DATA");
    derive(c, "SUM", "N + N * 2");
    derive(c, "SAME", "max(last(N, 3)) - min(last(N, 3))");
    derive(c, "COUNT", "count(0)");
    constexpr int kThreads = 4;
    constexpr int kRows = 500;
    std::atomic<long long> highest{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < kRows; ++i) {
                const std::unique_ptr<ResultInstance> row(c.named(i % 2 ? "shared" : std::to_string(t).c_str(), t));
                c.internalCalculateDerived(row.get());
                ASSERT_EQ(shown(row->getMetric("TEXT")), "t " + std::string(i % 2 ? "shared" : std::to_string(t)) + "/" + std::to_string(t));
                ASSERT_EQ(row->getMetric("SUM")->getMetricValue64(), 3LL * t);
                const double spread = row->getMetric("SAME")->getMetricValueDouble();
                ASSERT_TRUE(i % 2 ? spread >= 0 && spread < kThreads : spread == 0.0) << spread;
                const long long counted = row->getMetric("COUNT")->getMetricValue64();
                if (i % 2 == 0) {
                    ASSERT_EQ(counted, i / 2 + 1);
                } else {
                    for (long long seen = highest; counted > seen && !highest.compare_exchange_weak(seen, counted);) {
                    }
                }
            }
        });
    }
    for (std::thread& t : threads) t.join();
    EXPECT_EQ(highest, kThreads * kRows / 2);  // none was lost
}

}  // namespace
}  // namespace almanac::test
