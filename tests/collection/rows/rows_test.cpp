#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "collection/rows/NumericText.h"
#include "collection/rows/PerfObject.h"
#include "collection/rows/ResultMetric.h"
#include "foundation/FatalExit.h"

namespace {

struct FatalEnd {
    int code;
};

// Fatal ends become exceptions for the length of a test.
class FatalExits {
  public:
    FatalExits() {
        setFatalExitHook([](int code) { throw FatalEnd{code}; });
    }
    ~FatalExits() { setFatalExitHook(nullptr); }
};

struct MetricOptions {
    RAW_METRIC_TYPE type = NUMERIC_DATA;
    const char* map = nullptr;
    int scale = 0;
    bool transparent = false;
    bool key = false;
};

std::unique_ptr<Metric> metric(const char* name, const MetricOptions& o = {}) {
    auto m = std::make_unique<Metric>();
    m->setQMPVName(name);
    m->setRawMetricType(o.type);
    m->setMapSourceData(o.map);
    m->setScale(o.scale);
    m->setScaleTransparent(o.transparent);
    m->setIsKey(o.key);
    return m;
}

TEST(Map, IsAnEqualityTable) {
    const struct {
        const char* map;
        int value;
        int mapped;
    } cases[] = {
        {"7", 1, 7},
        {"0 0 1 10 0 2 20", 1, 10},
        {"0 0 1 10 0 2 20", 2, 20},
        {"0 0 1 10 0 2 20", 3, 0},
        {"0 1 5 9", 5, 9},   // kept: the operator "not equal" is not applied
        {"0 1 5 9", 6, 0},
        {"  -3   2  8  4 ", 8, 4},
        {"0 0 1 10 0 1 20", 1, 10},  // the first entry wins
    };
    for (const auto& c : cases) {
        const auto m = metric("M", {.map = c.map});
        EXPECT_EQ(m->findMappedValue(c.value), c.mapped) << c.map << " of " << c.value;
    }
}

TEST(Map, AWrongOneEndsTheAgent) {
    const FatalExits exits;
    const struct {
        const char* map;
        int code;
    } cases[] = {{"", -4191}, {"   ", -4191}, {"0 0 1", -4192}, {"0 0", -4192}, {"0 6 1 1", -4192}, {"0 -1 1 1", -4192}, {"0 0 1 2 3", -4192}};
    for (const auto& c : cases) {
        int code = 0;
        try {
            metric("M", {.map = c.map});
        } catch (const FatalEnd& end) {
            code = end.code;
        }
        EXPECT_EQ(code, c.code) << "'" << c.map << "'";
    }
    EXPECT_FALSE(metric("M", {.type = STRING_DATA, .map = "0 0 1"})->hasMap()) << "only numbers have maps";
}

TEST(Cell, FormFollowsNumberScaleAndMap) {
    const auto plain = metric("P");
    EXPECT_TRUE(ResultMetric(plain.get(), 5).isNumber());
    EXPECT_TRUE(ResultMetric(plain.get(), 5LL).isNumber64());
    EXPECT_TRUE(ResultMetric(plain.get(), 5ULL).isNumberU64());
    EXPECT_TRUE(ResultMetric(plain.get(), 5.0).isNumberDouble());
    const auto scaled = metric("S", {.scale = 2, .transparent = true});
    EXPECT_TRUE(ResultMetric(scaled.get(), 5).isNumberDouble());
    EXPECT_EQ(ResultMetric(scaled.get(), 7ULL).getMetricValueDouble(), 7.0);
    const auto opaque = metric("O", {.scale = 2});
    EXPECT_TRUE(ResultMetric(opaque.get(), 5LL).isNumber64());
    const auto mapped = metric("M", {.map = "0 0 5 50", .scale = 2, .transparent = true});
    const ResultMetric cell(mapped.get(), 5LL);
    EXPECT_TRUE(cell.isNumber64());
    EXPECT_EQ(cell.getMetricValue64(), 50);
    EXPECT_EQ(cell.getRawMetricValue(), 5);
    EXPECT_TRUE(cell.isMappedData());
    const ResultMetric wide(mapped.get(), (1LL << 32) + 5);
    EXPECT_EQ(wide.getMetricValue64(), 50) << "the low 32 bits are looked up";
    const ResultMetric fraction(mapped.get(), 5.9);
    EXPECT_EQ(fraction.getMetricValueDouble(), 50.0);
    EXPECT_EQ(fraction.getRawMetricValue(), 5);
    EXPECT_STREQ(ResultMetric(plain.get(), static_cast<const char*>(nullptr)).getStringValue(), "No value");
}

TEST(Cell, CopiesDropMapAndCounterFlags) {
    auto m = metric("M", {.map = "0 0 5 50", .key = true});
    m->setIsCounter(true);
    const ResultMetric cell(m.get(), 5);
    const std::unique_ptr<ResultMetric> copy(cell.getDeepCopy("metric", "attribute"));
    EXPECT_EQ(copy->getMetricValue(), 50);
    EXPECT_EQ(copy->getRawMetricValue(), 5);
    EXPECT_TRUE(copy->isKey());
    EXPECT_FALSE(copy->isMappedData());
    EXPECT_FALSE(copy->isCounter());
    EXPECT_STREQ(copy->getQMPVMetricName(), "attribute");
}

TEST(Cell, EqualityNeedsTheSameForm) {
    const auto m = metric("M");
    const ResultMetric five(m.get(), 5);
    const ResultMetric alsoFive(m.get(), 5);
    const ResultMetric wide(m.get(), 5LL);
    EXPECT_TRUE(five.areValuesEqual(&alsoFive));
    EXPECT_FALSE(five.areValuesEqual(&wide));
    const ResultMetric nan(m.get(), std::strtod("nan", nullptr));
    EXPECT_FALSE(nan.areValuesEqual(&nan));
    const ResultMetric text(m.get(), "x");
    const ResultMetric sameText(m.get(), "x");
    EXPECT_TRUE(text.areValuesEqual(&sameText));
}

TEST(Row, NameIsMadeOfItsKeys) {
    const auto key = metric("K", {.key = true});
    const auto key2 = metric("K2", {.key = true});
    const auto other = metric("O");
    ResultInstance row("stand-by", 3);
    EXPECT_STREQ(row.getInstanceName(), "stand-by");
    row.addMetric(new ResultMetric(other.get(), 1));
    EXPECT_STREQ(row.getInstanceName(), "stand-by");
    row.addMetric(new ResultMetric(key.get(), "a"));
    row.addMetric(new ResultMetric(key2.get(), 5));
    EXPECT_STREQ(row.getInstanceName(), "a|5");
    EXPECT_EQ(row.getActualMetricCount(), 3);

    ResultInstance doubled("name", 1);
    doubled.addMetric(new ResultMetric(key.get(), 1.5));
    EXPECT_STREQ(doubled.getInstanceName(), "name") << "a double is no part of a name";

    ResultInstance longName("", 2);
    const std::string big(5000, 'x');
    longName.addMetric(new ResultMetric(key.get(), big.c_str()));
    longName.addMetric(new ResultMetric(key2.get(), -7LL));
    EXPECT_EQ(longName.getInstanceName(), big + "|-7");
}

TEST(Row, CellsAreFoundByNameNarrowOrWide) {
    for (const int width : {3, 40}) {
        std::vector<std::unique_ptr<Metric>> metrics;
        ResultInstance row("", width);
        for (int i = 0; i < width; ++i) {
            metrics.push_back(metric(("M" + std::to_string(i)).c_str()));
            row.addMetric(new ResultMetric(metrics.back().get(), i));
        }
        const auto again = metric("M1");
        row.addMetric(new ResultMetric(again.get(), 100));
        const auto derived = metric("D");
        row.addDerivedMetric(new ResultMetric(derived.get(), 200));
        EXPECT_EQ(row.getMetric("M0")->getMetricValue(), 0);
        EXPECT_EQ(row.getMetric("M1")->getMetricValue(), 100) << "the later of two";
        EXPECT_EQ(row.getMetric("D")->getMetricValue(), 200);
        EXPECT_EQ(row.getMetric("none"), nullptr);
        EXPECT_EQ(row.getActualMetricCount(), width + 1) << "derived cells do not count";

        row.setTimestamp("1");
        const std::unique_ptr<ResultInstance> copy(row.getDeepCopy());
        EXPECT_EQ(copy->getMetric("D")->getMetricValue(), 200);
        EXPECT_EQ(copy->getMetric("M1")->getMetricValue(), 100);
        EXPECT_STREQ(copy->getTimestamp(), "1");
        EXPECT_EQ(copy->getActualMetricCount(), width + 1);
    }
}

TEST(NumericText, FollowsStrtollThenStrtod) {
    const auto plain = metric("P");
    const auto scaled = metric("S", {.scale = 2, .transparent = true});
    const struct {
        const Metric* metric;
        const char* text;
        ValueForm form;
        double value;
    } cases[] = {
        {plain.get(), "12", FORM_INT64, 12},        {plain.get(), "-9223372036854775808", FORM_INT64, -9223372036854775808.0},
        {plain.get(), "", FORM_INT64, 0},           {plain.get(), " 7", FORM_INT64, 7},
        {plain.get(), "12.5", FORM_DOUBLE, 12.5},   {plain.get(), "12abc", FORM_DOUBLE, 12},
        {plain.get(), "abc", FORM_DOUBLE, 0},       {plain.get(), "7 ", FORM_DOUBLE, 7},
        {plain.get(), nullptr, FORM_INT, 0},        {scaled.get(), "5", FORM_DOUBLE, 5},
        {plain.get(), "99999999999999999999", FORM_INT64, 9223372036854775807.0},
    };
    for (const auto& c : cases) {
        const std::unique_ptr<ResultMetric> cell(parseNumericString(c.metric, c.text));
        EXPECT_EQ(cell->form(), c.form) << (c.text ? c.text : "null");
        const double value = c.form == FORM_DOUBLE ? cell->getMetricValueDouble()
                             : c.form == FORM_INT  ? cell->getMetricValue()
                                                   : static_cast<double>(cell->getMetricValue64());
        EXPECT_EQ(value, c.value) << (c.text ? c.text : "null");
    }
}

TEST(ErrorCodes, KeepTheirNumbers) {
    EXPECT_EQ(PERF_OBJECT_ERROR_CODE_COUNT, 60);
    EXPECT_EQ(SUBNODE_UNAVAILABLE, 33);
    EXPECT_STREQ(PERF_OBJECT_ERROR_CODE_STRING[46], "TIMEOUT");
    EXPECT_STREQ(PERF_OBJECT_ERROR_CODE_STRING[59], "FORMAT_FILE_SYNTAX_ERROR");
    EXPECT_STREQ(perfObjectErrorCodeName(60), "?");
}

}  // namespace
