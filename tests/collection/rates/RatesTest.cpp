// Rates and deltas: every type on every form of value, and which history a row finds.
#include <gtest/gtest.h>

#include <climits>
#include <functional>

#include "collection/TestClass.h"
#include "collection/rates/RateDelta.h"
#include "foundation/Convert.h"
#include "host/base/TestClock.h"

namespace {

using namespace std::chrono_literals;
using almanac::test::Group;
using almanac::test::TestClass;
namespace testclock = almanac::host::testclock;

constexpr int kNotCounter = 0;
constexpr int kCounter = 1;

// A cell as its form and value: "i5" int, "l5" 64-bit, "u5" unsigned, "d5" double, "s…" text, "x…" UTF-8.
ResultMetric* cellOf(const Metric& metric, const std::string& text) {
    const char* value = text.c_str() + 1;
    switch (text[0]) {
        case 'i':
            return new ResultMetric(&metric, std::atoi(value));
        case 'l':
            return new ResultMetric(&metric, std::atoll(value));
        case 'u':
            return new ResultMetric(&metric, std::strtoull(value, nullptr, 10));
        case 'd':
            return new ResultMetric(&metric, std::atof(value));
        case 's':
            return new ResultMetric(&metric, value);
        default: {
            auto* utf8 = new UTF8String;
            utf8->initFromUTF8String(value);
            return new ResultMetric(&metric, utf8);
        }
    }
}

std::string textOf(const ResultMetric& cell) {
    char number[64];
    switch (cell.form()) {
        case FORM_INT:
            return "i" + std::to_string(cell.getMetricValue());
        case FORM_INT64:
            return "l" + std::to_string(cell.getMetricValue64());
        case FORM_UINT64:
            return "u" + std::to_string(cell.getMetricValueU64());
        case FORM_DOUBLE:
            std::snprintf(number, sizeof number, "d%g", cell.getMetricValueDouble());
            return number;
        case FORM_STRING:
            return std::string("s") + cell.getStringValue();
        default:
            return std::string("x") + cell.getUTF8StringData()->getUTF8Value();
    }
}

// The value shown for `current` when the collection before, so many seconds ago, had `before`.
std::string shown(RAW_METRIC_TYPE type, int counter, const std::string& before, const std::string& current, long seconds = 10) {
    Metric metric;
    metric.setQMPVName("M");
    metric.setRawMetricType(type);
    metric.setIsCounter(counter == kCounter);
    PrevResultInstance row("row");
    const std::unique_ptr<ResultMetric> first(cellOf(metric, before)), second(cellOf(metric, current));
    rates::compute(rates::previousOf(*first, &row, 1000), first.get(), 1000);
    PrevResult* history = rates::previousOf(*second, &row, 1000 + seconds);
    rates::compute(history, second.get(), 1000 + seconds);
    return textOf(*second);
}

struct Case {
    RAW_METRIC_TYPE type;
    int counter;
    const char* before;
    const char* current;
    const char* result;
};

void expectAll(const std::vector<Case>& cases) {
    for (const Case& c : cases) {
        EXPECT_EQ(shown(c.type, c.counter, c.before, c.current), c.result)
            << rawMetricTypeText(c.type) << (c.counter ? " counter " : " ") << c.before << " -> " << c.current;
    }
}

TEST(Rates, DeltasOfEachForm) {
    expectAll({
        {DELTA_DATA, kNotCounter, "i100", "i140", "i40"},
        {DELTA_DATA, kNotCounter, "i100", "i40", "i-60"},
        {DELTA_DATA, kCounter, "i100", "i40", "i0"},
        {DELTA_DATA, kNotCounter, "l5", "l4294967306", "i5"},  // 2^32 + 5 over: the low half
        {DELTA_DATA, kNotCounter, "u5", "u4294967306", "i2147483647"},
        {DELTA_DATA, kNotCounter, "l4294967306", "l5", "i-2147483648"},
        {DELTA_DATA, kNotCounter, "u4294967306", "u5", "i-2147483648"},
        {DELTA_DATA, kNotCounter, "u1", "u9223372036854775809", "i-2147483648"},  // 2^63 and more counts as negative
        {DELTA_DATA, kNotCounter, "i-2147483648", "i2147483647", "i-1"},
        {DELTA_DATA, kNotCounter, "d1.5", "d4.5", "i0"},  // the integer delta of a double is not computed
        {DELTA_DATA, kNotCounter, "d0", "d1e10", "i2147483647"},
        {DELTA_DATA, kNotCounter, "d0", "d-1e10", "i0"},
        {DELTA_64BIT_DATA, kCounter, "i100", "i40", "l-60"},
        {DELTA_64BIT_DATA, kCounter, "u100", "u40", "l-60"},
        {DELTA_64BIT_DATA, kNotCounter, "l0", "l5000000000", "l5000000000"},
        {DELTA_64BIT_DATA, kNotCounter, "l9223372036854775807", "l-9223372036854775807", "l2"},
        {DELTA_64BIT_DATA, kNotCounter, "d1.5", "d4.75", "d3.25"},
        {DELTA_64BIT_DATA, kCounter, "d5", "d4", "d0"},
        {DELTA_64BIT_DATA, kNotCounter, "d0", "d-1e10", "d-1e+10"},  // limits are for the narrow types
    });
}

TEST(Rates, RatesOfEachFormOverTenSeconds) {
    expectAll({
        {RATE_DATA, kNotCounter, "i100", "i145", "i4"},
        {RATE_DATA, kNotCounter, "i145", "i100", "i-4"},  // toward zero
        {RATE_DATA, kCounter, "i145", "i100", "i0"},
        {RATE_DATA, kNotCounter, "l0", "l42949672960", "i2147483647"},
        {RATE_DATA, kNotCounter, "l42949672960", "l0", "i-2147483648"},
        {RATE_DATA, kNotCounter, "u0", "u42949672960", "i2147483647"},
        {RATE_DATA, kNotCounter, "u42949672960", "u0", "i-2147483648"},
        {RATE_64BIT_DATA, kNotCounter, "l0", "l42949672960", "l4294967296"},
        {RATE_64BIT_DATA, kCounter, "u100", "u40", "l0"},
        {RATE_64BIT_DATA, kNotCounter, "u100", "u40", "l-6"},
        {RATE_64BIT_DATA, kNotCounter, "i100", "i200", "l10"},
        {RATE_DATA, kNotCounter, "d1", "d2.5", "d0.15"},
        {RATE_DATA, kCounter, "d5", "d1", "d0"},
        {RATE_DATA, kNotCounter, "d0", "d-1e11", "d-2.14748e+08"},  // the minimum limits a narrow double
        {RATE_DATA, kNotCounter, "d0", "d1e11", "d1e+10"},          // the maximum does not
        {RATE_64BIT_DATA, kNotCounter, "d0", "d-1e11", "d-1e+10"},
        {PREVIOUS_STRING_DATA, kNotCounter, "i0", "i50", "i5"},  // on a number it is a rate
    });
}

TEST(Rates, PercentagesRoundUpwardsOnlyAndPreviousValuesNarrow) {
    expectAll({
        {PERCENT_DELTA_DATA, kNotCounter, "i200", "i100", "i-49"},
        {PERCENT_DELTA_DATA, kNotCounter, "i100", "i150", "i50"},
        {PERCENT_DELTA_DATA, kNotCounter, "i0", "i100", "i0"},
        {PERCENT_DELTA_DATA, kNotCounter, "i3", "i5", "i67"},
        {PERCENT_DELTA_DATA, kCounter, "i200", "i100", "i-49"},  // a wrap does not zero it
        {PERCENT_DELTA_DATA, kNotCounter, "u18446744073709551615", "u18446744073709551614", "i0"},
        {PERCENT_DELTA_DATA, kNotCounter, "i1", "i2000000000", "i-2147483648"},  // out of range: the minimum
        {PERCENT_DELTA_64BIT_DATA, kNotCounter, "i1", "i2000000000", "l199999999900"},
        {PERCENT_DELTA_64BIT_DATA, kNotCounter, "d2", "d3", "l50"},
        {PERCENT_DELTA_DATA, kCounter, "d3", "d2", "i0"},
        {PERCENT_DELTA_DATA, kNotCounter, "dnan", "d2", "i-2147483648"},
        {PREVIOUS_NUMERIC_DATA, kNotCounter, "i7", "i9", "i7"},
        {PREVIOUS_NUMERIC_DATA, kNotCounter, "l5000000000", "l9", "i2147483647"},
        {PREVIOUS_NUMERIC_DATA, kNotCounter, "l-5000000000", "l9", "i-2147483648"},
        {PREVIOUS_NUMERIC_DATA, kNotCounter, "u5000000000", "u9", "i2147483647"},
        {PREVIOUS_NUMERIC_DATA, kNotCounter, "d7.25", "d9", "d7.25"},
    });
}

TEST(Rates, TextsAndChangedFlags) {
    expectAll({
        {VALUE_CHANGED, kNotCounter, "i1", "i2", "i1"},
        {VALUE_CHANGED, kNotCounter, "i2", "i2", "i0"},
        {VALUE_CHANGED, kCounter, "i2", "i1", "i0"},
        {VALUE_CHANGED, kNotCounter, "l0", "l4294967296", "i0"},  // only the low half is looked at
        {VALUE_CHANGED, kNotCounter, "u0", "u4294967296", "i1"},
        {VALUE_CHANGED, kNotCounter, "d1", "d2", "i0"},
        {VALUE_CHANGED, kNotCounter, "d1", "d1e10", "i1"},
        {VALUE_CHANGED, kNotCounter, "sa", "sb", "i1"},
        {VALUE_CHANGED, kNotCounter, "sa", "sa", "i0"},
        {VALUE_CHANGED, kNotCounter, "xä", "xö", "i1"},
        {VALUE_CHANGED, kNotCounter, "xä", "xä", "i0"},
        {PREVIOUS_STRING_DATA, kNotCounter, "sold", "snew", "sold"},
        {PREVIOUS_STRING_DATA, kNotCounter, "xold", "xnew", "xold"},
        {RATE_DATA, kNotCounter, "sold", "snew", "snew"},
        {DELTA_DATA, kNotCounter, "xold", "xnew", "xnew"},
        // A value of another form has a memory of its own, which has seen nothing yet.
        {PREVIOUS_NUMERIC_DATA, kNotCounter, "u7", "i9", "i0"},
        {PREVIOUS_NUMERIC_DATA, kNotCounter, "i7", "l9", "i7"},  // but int and 64-bit share one
        {PREVIOUS_STRING_DATA, kNotCounter, "sold", "xnew", "xnew"},
    });
}

TEST(Rates, TheFirstTimeACellComparesWithItself) {
    for (const auto& [type, value, result] : std::vector<std::tuple<RAW_METRIC_TYPE, const char*, const char*>>{
             {DELTA_DATA, "i5", "i0"}, {RATE_64BIT_DATA, "u5", "l0"}, {PERCENT_DELTA_DATA, "l5", "i0"},
             {VALUE_CHANGED, "sx", "i0"}, {PREVIOUS_NUMERIC_DATA, "d5.5", "d5.5"}, {PREVIOUS_STRING_DATA, "xa", "xa"}}) {
        Metric metric;
        metric.setQMPVName("M");
        metric.setRawMetricType(type);
        PrevResultInstance row("row");
        const std::unique_ptr<ResultMetric> cell(cellOf(metric, value));
        rates::compute(rates::previousOf(*cell, &row, 5), cell.get(), 5);
        EXPECT_EQ(textOf(*cell), result) << value;
    }
}

TEST(Rates, TheIntervalIsAtLeastASecondAndRunsFromTheLastRate) {
    EXPECT_EQ(shown(RATE_DATA, kNotCounter, "i0", "i50", 0), "i50");
    EXPECT_EQ(shown(RATE_DATA, kNotCounter, "i0", "i50", -7), "i50");
    Metric metric;
    metric.setQMPVName("M");
    metric.setRawMetricType(RATE_DATA);
    metric.setIsCounter(true);
    PrevResultInstance row("row");
    const auto at = [&](int value, time_t now) {
        const std::unique_ptr<ResultMetric> cell(cellOf(metric, "i" + std::to_string(value)));
        rates::compute(rates::previousOf(*cell, &row, now), cell.get(), now);
        return textOf(*cell);
    };
    at(1000, 100);
    EXPECT_EQ(at(10, 110), "i0");   // wrapped, and yet the time went on
    EXPECT_EQ(at(110, 120), "i10");
}

TEST(Convert, EveryDoubleHasAnInteger) {
    EXPECT_EQ(convert::toInt32(-2147483648.9), INT_MIN);
    EXPECT_EQ(convert::toInt32(2147483647.9), INT_MAX);
    EXPECT_EQ(convert::toInt32(2147483648.0), INT_MIN);
    EXPECT_EQ(convert::toInt64(9223372036854775808.0), LLONG_MIN);
    EXPECT_EQ(convert::toInt64(__builtin_nan("")), LLONG_MIN);
    EXPECT_EQ(convert::toUInt64(9223372036854775808.0), 9223372036854775808ULL);
    EXPECT_EQ(convert::toUInt64(-1.0), ULLONG_MAX);
    EXPECT_EQ(convert::toUInt64(1e30), 9223372036854775808ULL);
}

// A class with a key and one delta, collected row by row.
class Histories : public testing::Test {
  protected:
    using Rows = std::vector<std::pair<const char*, int>>;

    Histories() : group_("RATES", {{"NAME", 2, 8}, {"N", 0, 4}}), class_("RATES", [this](TestClass& c) { fill(c); }) {
        class_.metric("NAME", STRING_DATA, true);
        class_.metric("N", DELTA_DATA);
    }
    void fill(TestClass& c) {
        for (const auto& [name, value] : rows_) c.addResultInstance(c.named(name, value));
    }
    std::string collect(Rows rows) {
        rows_ = std::move(rows);
        class_.collectData("test");
        std::string all;
        for (ListCursor c = class_.getResultInstanceListCursor(); c.hasMoreElements(); c.setToNext()) {
            all += textOf(*static_cast<ResultInstance*>(c.getCurrentElement())->getMetric("N")) + ",";
        }
        return all;
    }

    Group group_;
    TestClass class_;
    Rows rows_;
};

TEST_F(Histories, ARowThatMissesACollectionStartsAgain) {
    EXPECT_EQ(collect({{"a", 1}, {"b", 1}}), "i0,i0,");
    EXPECT_EQ(collect({{"b", 5}, {"a", 3}, {"c", 9}}), "i4,i2,i0,");
    EXPECT_EQ(collect({{"a", 4}}), "i1,");
    EXPECT_EQ(collect({{"a", 6}, {"b", 9}}), "i2,i0,");
}

TEST_F(Histories, RowsOfOneNameSwapHistoriesAtEachCollection) {
    EXPECT_EQ(collect({{"a", 10}, {"a", 100}}), "i0,i0,");
    EXPECT_EQ(collect({{"a", 110}, {"a", 20}}), "i10,i10,");   // the one pushed last is met first
    EXPECT_EQ(collect({{"a", 30}, {"a", 120}}), "i10,i10,");
    EXPECT_EQ(collect({{"a", 30}}), "i-90,");
    EXPECT_EQ(collect({{"a", 35}, {"a", 7}}), "i5,i0,");
}

TEST_F(Histories, PreservedRowsKeepTheirsAndRepeatedOnesBeginAnew) {
    class_.setPreserveUnchangedInstances(true);
    EXPECT_EQ(collect({{"a", 1}, {"b", 1}}), "i0,i0,");
    EXPECT_EQ(collect({{"c", 1}}), "i0,");            // a and b are kept, being among the old rows
    EXPECT_EQ(collect({{"a", 3}, {"b", 6}}), "i2,i5,");  // and c is, being one now
    EXPECT_EQ(collect({{"a", 4}}), "i0,");            // a is kept beyond reach, and begins anew
}

TEST_F(Histories, ManyRowsFindTheirOwn) {
    std::vector<std::string> names;
    for (int i = 0; i < 5000; ++i) names.push_back("row" + std::to_string(i));
    for (int round = 0; round < 3; ++round) {
        Rows rows;
        for (std::size_t i = 0; i < names.size(); ++i) {
            const std::size_t at = round % 2 ? names.size() - 1 - i : i;
            rows.emplace_back(names[at].c_str(), static_cast<int>(at) * round);
        }
        collect(std::move(rows));
        int number = 0;
        for (ListCursor c = class_.getResultInstanceListCursor(); c.hasMoreElements(); c.setToNext(), ++number) {
            const int at = round % 2 ? 4999 - number : number;
            const int expected = round == 0 ? 0 : at;
            ASSERT_EQ(static_cast<ResultInstance*>(c.getCurrentElement())->getMetric("N")->getMetricValue(), expected);
        }
    }
}

TEST(ManyRateColumns, EachKeepsItsOwnMemoryInAnyOrder) {
    PrevResultInstance row("row");
    std::vector<std::unique_ptr<Metric>> metrics;
    for (int i = 0; i < 40; ++i) {
        metrics.push_back(std::make_unique<Metric>());
        metrics.back()->setQMPVName(("M" + std::to_string(i)).c_str());
        metrics.back()->setRawMetricType(PREVIOUS_NUMERIC_DATA);
    }
    for (int round = 0; round < 3; ++round) {
        for (int k = 0; k < 40; ++k) {
            const int i = k * 7 % 40;
            ResultMetric cell(metrics[static_cast<std::size_t>(i)].get(), round * 100 + i);
            rates::compute(rates::previousOf(cell, &row, 1), &cell, 1);
            EXPECT_EQ(cell.getMetricValue(), (round ? round - 1 : 0) * 100 + i);
        }
    }
}

}  // namespace
