// The functions: values, wrong calls, and what is kept from one collection to the next.
#include <algorithm>
#include <cstdlib>

#include "collection/expression/ExpressionFunctions.h"
#include "collection/expression/FormulaRow.h"
#include "platform/zsb.h"

namespace almanac::test {
namespace {

TEST(Functions, Values) {
    const Traces quiet("NONE");
    FormulaRow row("srv|1");
    row.with("A", 4).with("U", 18446744073709551615ULL).with("D", -2.75).with("S", "x").with("BIG", 1e300);
    ZSV1_PutEnv("FORMULA_TEST=from the environment");
    const struct {
        const char* formula;
        const char* value;
    } cases[] = {
        {"min(3, A, 2.5)", "d 2.5"},
        {"min(7)", "d 7"},
        {"min(3, \"text\")", "d 0"},
        {"max(-3, -A)", "d -3"},
        {"sum(1, 2, U)", "d 1.84467440737096e+19"},
        {"average(1, 2, 6)", "d 3"},
        {"average(5, nosuch(1))", "d 2.5"},
        {"stddev(1, 2, 3)", "d 1"},
        {"stddev(5)", "d 0"},
        {"stddev(2, 4, 6)", "d 2"},
        {"stddev100(1, 2, 3)", "d 100"},
        {"round(2.5)", "d 3"},
        {"round(-2.5)", "d -3"},
        {"round(0.49)", "d 0"},
        {"round(3000000000.0)", "d -2147483648"},
        {"round(\"x\")", "d 0"},
        {"abs(D)", "d 2.75"},
        {"abs(-7)", "d 7"},
        {"sqrt(2.25)", "d 1.5"},
        {"sqrt(-1)", "d 0"},
        {"atof(\" 2.5e3x\")", "d 2500"},
        {"atof(\"x\")", "d 0"},
        {"atof(\"\")", "d 0"},
        {"atoi(\"  -42 apples\")", "l -42"},
        {"atoi(\"9000000000\")", "l 9000000000"},
        {"atoi(\"x\")", "l 0"},
        {"htoi(\"ff\")", "l 255"},
        {"htoi(\"0x10\")", "l 16"},
        {"htoi(\"ffffffffffffffff\")", "l -1"},
        {"htoi(\"\")", "l 0"},
        {"itoa(42)", "t 42"},
        {"itoa(D)", "t -2"},
        {"itoa(U)", "t -1"},
        {"itoa(BIG)", "t -9223372036854775808"},
        {"itoa(S)", "t "},
        {"itoa(1 + 2) + \"%\"", "t 3%"},
        {"getenv(\"FORMULA_TEST\")", "t from the environment"},
        {"getenv(\"FORMULA_TEST_NOT_SET\")", "t "},
        {"getenv(\"\")", "t "},
        {"instanceName(0)", "t srv|1"},
        {"tokenize(\"a,b,,c\", \",\", 2)", "t c"},
        {"tokenize(\",,a;b,c\", \",;\", 0)", "t a"},
        {"tokenize(\"a,b\", \",\", \"LAST\")", "t b"},
        {"tokenize(\"a,b,\", \",\", \"LAST\")", "t b"},
        {"tokenize(\"\", \",\", \"LAST\")", "t "},
        {"tokenize(\",,\", \",\", 0)", "t "},
        {"tokenize(\"a,b\", \",\", 5)", "t "},
        {"tokenize(\"a,b\", \",\", -1)", "t "},
        {"tokenize(\"a,b\", \",\", \"1\")", "t b"},
        {"tokenize(\"a,b\", \",\", \"last\")", "t a"},  // no field: the first
        {"tokenize(\"a,b\", \"\", 0)", "t a,b"},
        {"tokenize(tokenize(\"a=1;b=2\", \";\", 1), \"=\", 1)", "t 2"},
    };
    for (const auto& c : cases) EXPECT_EQ(row(c.formula), c.value) << c.formula;
    ZSV1_UnsetEnv("FORMULA_TEST");
    EXPECT_EQ(std::size(functions), 19u);
    EXPECT_TRUE(std::all_of(std::begin(functions), std::end(functions), [](const auto& f) { return findExpressionFunction(f.name) == &f; }));
    EXPECT_EQ(findExpressionFunction("Min"), nullptr);
    EXPECT_EQ(FormulaRow("")("instanceName(0)"), "t ");
}

TEST(Functions, WrongCalls) {
    FormulaRow row("");
    row.with("A", 4);
    const struct {
        const char* formula;
        const char* value;
        const char* trace;
    } cases[] = {
        {"round(1, 2)", "d 0", "Wrong number of arguments for round() function"},
        {"round(last(A, 2))", "d 0", "List result is not supported"},
        {"abs(1, 2)", "d 0", "Wrong number of arguments for abs() function"},
        {"abs(last(A, 2))", "d 0", "List result is not supported"},
        {"sqrt(1, 2)", "d 0", "Wrong number of arguments for sqrt() function"},
        {"sqrt(-4)", "d 0", "sqrt() called on negative number -4"},
        {"atof(1)", "d 0", "Non-String result is not supported"},
        {"atof(\"1\", 2)", "d 0", "Wrong number of arguments for atof() function"},
        {"atof(\" \")", "d 0", "atof() failed - number   converted to 0"},
        {"atoi(1)", "l 0", "Non-String result is not supported"},
        {"htoi(\"1\", 2)", "l 0", "Wrong number of arguments for string to number conversion function"},
        {"atoi(\" \")", "l 0", "ntoi() failed - number   converted to"},
        {"itoa(1, 2)", "t ", "Wrong number of arguments for itoa() function"},
        {"itoa(\"1\")", "t ", "Non Integer input value is not supported"},
        {"getenv(1)", "t ", "Non-String result is not supported"},
        {"getenv(\"A\", 1)", "t ", "Wrong number of arguments for getenv() function"},
        {"tokenize(\"a\", \",\")", "t ",
         "Wrong number of arguments for Tokenize() function-- requires String, token character, field number"},
        {"tokenize(1, \",\", 0)", "t ", "Wrong argument types for Tokenize() function-- requires String, token character, field number"},
        {"tokenize(\"a\", \",\", 0 + 0)", "t ", "Wrong argument types for Tokenize()"},  // a sum is 64 bits wide
        {"tokenize(\"a\", \",\", \"x\")", "t a", "Invalid field argument x: Must be a number or the literal LAST"},
        {"tokenize(\"a\", \",\", 3)", "t ", "No field 3 in string a with tok ,"},
        {"trend(1)", "d 0", "First argument to trend() is not of list type"},
        {"trend(last(A, 2), 1, 1)", "d 0", ""},
        {"last(A)", "d 0", ""},
        {"last(A, 2, 3)", "d 0", ""},
        {"min(last(A, 1))", "d 4", "Error on last function: invalid number of samples passed 1, using 10 instead"},
        {"instanceName(1)", "t ", "Derived function instanceName() called in an instance which has no name"},
        {"Gone", "i 0", "instance->getMetric for Gone returned NULL"},
    };
    for (const auto& c : cases) {
        Traces traces("ALL");
        EXPECT_EQ(row(c.formula), c.value) << c.formula;
        if (*c.trace) {
            EXPECT_EQ(traces.count(c.trace), 1) << c.formula;
        }
    }
}

// One formula over several collections of a row.
class Collections {
  public:
    explicit Collections(const char* formula) {
        metric.setQMPVName("RESULT");
        metric.setExpression(parseFormula(formula).tree.release());
    }
    std::string next(double value, const char* name = "row") {
        FormulaRow row(name);
        row.with("A", value);
        const std::unique_ptr<ResultMetric> cell(computeDerivedCell(&metric, &row.row, &storage));
        return shown(cell.get());
    }
    // The values after each of several collections.
    std::string all(const std::vector<double>& values) {
        std::string text;
        for (const double v : values) text += next(v) + "; ";
        return text;
    }
    Metric metric;
    DerivedStorage storage;
};

TEST(Functions, Memory) {
    const struct {
        const char* formula;
        std::vector<double> values;
        const char* results;
    } cases[] = {
        {"sum(last(A, 2))", {1, 2, 3, 10}, "d 1; d 3; d 5; d 13; "},
        {"min(last(A, 3))", {5, 1, 7, 8, 9}, "d 5; d 1; d 1; d 1; d 7; "},
        {"sum(last(A, 1))", {1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1}, "d 1; d 2; d 3; d 4; d 5; d 6; d 7; d 8; d 9; d 10; d 10; d 10; "},
        {"sum(last(1, A))", {3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3}, "d 1; d 2; d 3; d 4; d 5; d 6; d 7; d 8; d 9; d 10; d 10; d 10; "},
        {"sum(last(A, 2.9))", {1, 2, 3}, "d 1; d 3; d 5; "},
        {"sum(last(A, -(0 - 2)))", {1, 2, 3}, "d 1; d 3; d 6; "},  // no literal: ten samples
        {"trend(last(A, 5))", {10, 20, 30}, "d 0; d 30; d 40; "},
        {"trend(last(A, 5), 3)", {10, 20, 30}, "d 0; d 50; d 60; "},
        {"trend(last(A, 5))", {1, 2, 2}, "d 0; d 3; d 2.5; "},  // through the newest point, not the mean
        {"trend(last(A, 2))", {1, 2, 4, 8}, "d 0; d 3; d 6; d 12; "},
        {"average(last(A, 3), 10)", {1, 2, 3, 4}, "d 5.5; d 4.33333333333333; d 4; d 4.75; "},
        {"stddev(last(A, 3))", {1, 2, 3, 4}, "d 0; d 0.707106781186548; d 1; d 1; "},
        {"stddev(last(A, 3), 5)", {1, 2}, "d 2.82842712474619; d 1.82002747232013; "},  // 5 counts as the second value, not the third
        {"count(0)", {0, 0, 0}, "l 1; l 2; l 3; "},
        {"count(0) + count(0)", {0, 0}, "l 3; l 7; "},
        // Arguments are computed before the function, and both lists are the one of the row.
        {"sum(last(A, 4), last(A, 4))", {1, 2}, "d 4; d 12; "},
        // Other numbers of samples stay inside the first one's room.
        {"sum(last(A, 2), last(A, 9))", {1, 2, 3}, "d 4; d 8; d 12; "},
        {"min(last(A, 9)) + sum(last(A, 2)) * 0", {5, 6, 7, 8}, "d 5; d 5; d 5; d 6; "},
        {"count(0) + sum(last(A, 2))", {1, 2, 3}, "l 2; l 5; l 8; "},
    };
    for (const auto& c : cases) {
        Collections collections(c.formula);
        EXPECT_EQ(collections.all(c.values), c.results) << c.formula;
    }
}

TEST(Functions, MemoryIsOfMetricAndRow) {
    Collections c("sum(last(A, 5))");
    EXPECT_EQ(c.next(1, "a"), "d 1");
    EXPECT_EQ(c.next(10, "b"), "d 10");
    EXPECT_EQ(c.next(2, "a"), "d 3");  // the row comes back after a collection without it
    c.metric.setQMPVName("OTHER");
    EXPECT_EQ(c.next(5, "a"), "d 5");
    c.metric.setQMPVName("RESULT");
    EXPECT_EQ(c.next(3, "a"), "d 6");
    c.storage.clear();
    EXPECT_EQ(c.next(4, "a"), "d 4");
}

TEST(Functions, WithoutStorage) {
    FormulaRow row;
    Metric metric;
    metric.setExpression(parseFormula("count(0)").tree.release());
    const std::unique_ptr<ResultMetric> counted(computeDerivedCell(&metric, &row.row, nullptr));
    EXPECT_EQ(shown(counted.get()), "d 0");
    metric.setExpression(parseFormula("last(1, 5)").tree.release());
    const std::unique_ptr<ResultMetric> sampled(computeDerivedCell(&metric, &row.row, nullptr));
    EXPECT_EQ(shown(sampled.get()), "d 0");
}

TEST(Functions, NumberOfSamplesIsBounded) {
    std::vector<double> list;
    DerivedStorage storage;
    storage.addSample("m", "r", 2147483647, 1.0, &list);
    storage.addSample("m", "r", 2147483647, 2.0, &list);
    EXPECT_EQ(list, (std::vector<double>{1.0, 2.0}));
}

}  // namespace
}  // namespace almanac::test
