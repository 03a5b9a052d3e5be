// Metrics of arg1, op and arg2: the kind of each pair of operands, the operators, what is missing.
#include <climits>

#include "collection/expression/FormulaRow.h"

namespace almanac::test {
namespace {

// "@NAME" is an attribute, digits a constant, anything else an unknown name.
void setOperand(Metric::Operand* operand, std::string& text) {
    operand->isAttribute = text[0] == '@';
    if (operand->isAttribute) text.erase(0, 1);
    operand->constant = std::atoi(text.c_str());
}

std::string compute(FormulaRow& row, std::string a, char op, std::string b) {
    Metric metric;
    setOperand(&metric.operand1, a);
    setOperand(&metric.operand2, b);
    metric.setComputation(a.c_str(), op, b.c_str());
    return row.compute(metric);
}

FormulaRow& fill(FormulaRow& row) {
    return row.with("I", 7).with("Z", 0).with("MAX", INT_MAX).with("MIN", INT_MIN).with("J", 10000000000LL).with("U", ~0ULL)
        .with("LMIN", LLONG_MIN).with("D", 2.75).with("Z0", 0.0).with("S", "text").withUtf8("T", "\xC3\xA9");
}

TEST(SimpleForm, KindOfEachPair) {
    const Traces quiet("NONE");
    FormulaRow row;
    fill(row);
    // A constant or unknown name, 32-bit, 64-bit, unsigned, double, text, UTF-8 text, an attribute that is missing.
    const char* const operands[] = {"2", "@I", "@J", "@U", "@D", "@S", "@T", "@Gone"};
    const char* const kinds[] = {"iilldsti", "iilldiii", "llllllll", "llllllll", "dddddddd", "ssssssss", "tttttttt", "iilldiii"};
    for (std::size_t a = 0; a < 8; ++a) {
        std::string found;
        for (const char* b : operands) found += compute(row, operands[a], '+', b)[0];
        EXPECT_EQ(found, kinds[a]) << operands[a];
    }
}

TEST(SimpleForm, Values) {
    const Traces quiet("NONE");
    FormulaRow row;
    fill(row);
    const struct {
        const char* a;
        char op;
        const char* b;
        const char* value;
    } cases[] = {
        {"@I", '+', "3", "i 10"},
        {"3", '-', "@I", "i -4"},
        {"@MAX", '+', "1", "i -2147483648"},
        {"@MAX", '*', "@MAX", "i 1"},
        {"@I", '/', "2", "i 3"},
        {"-7", '/', "2", "i -3"},
        {"@I", '/', "0", "i 0"},
        {"@MIN", '/', "-1", "i -2147483648"},
        {"1", '%', "3", "i 33"},
        {"2", '%', "3", "i 67"},
        {"299", '%', "3", "i 9967"},  // rounded above 100 too
        {"1", '%', "8", "i 12"},      // 12.5 is not above the half
        {"-2", '%', "3", "i -66"},    // nothing is added to a negative fraction
        {"@I", '%', "@Z", "i -2147483648"},
        {"@I", '?', "3", "i 0"},
        {"NoSuchName", '+', "5", "i 5"},
        {"@J", '+', "@I", "l 10000000007"},
        {"@I", '+', "@J", "l 10000000007"},
        {"@I", '+', "@U", "l 6"},
        {"@LMIN", '/', "-1", "l -9223372036854775808"},
        {"@J", '/', "3", "l 3333333333"},
        {"@J", '%', "3", "l 333333333333"},
        {"@J", '%', "0", "l -9223372036854775808"},
        {"@J", '+', "@D", "l 10000000002"},
        {"@D", '+', "@I", "d 9.75"},
        {"@I", '-', "@D", "d 4.25"},
        {"@D", '/', "@Z0", "d 0"},
        {"@D", '%', "4", "d 69"},  // 68.75
        {"@D", '%', "@Z0", "d inf"},
        {"@D", '?', "1", "d 0"},
        {"@S", '+', "port", "s text@port"},
        {"@S", '*', "@S", "s text@text"},
        {"node", '+', "@S", "s node@text"},
        {"@S", '+', "@T", "s Cannot concatenate string and UTF8"},
        {"@T", '+', "@S", "t Cannot concatenate string and UTF8"},
        {"@T", '+', "x", "t \xC3\xA9@x"},
        {"x", '+', "@T", "t x@\xC3\xA9"},
        {"@S", '+', "@I", "s text@7"},
        {"@S", '+', "@Gone", "s text@Gone"},
        {"@I", '+', "@S", "i 7"},
    };
    for (const auto& c : cases) EXPECT_EQ(compute(row, c.a, c.op, c.b), c.value) << c.a << c.op << c.b;
}

TEST(SimpleForm, TellsWhatIsMissing) {
    FormulaRow row;
    fill(row);
    Traces traces("ALL");
    EXPECT_EQ(compute(row, "@Gone", '+', "@Lost"), "i 0");
    EXPECT_EQ(compute(row, "1", '!', "2"), "i 0");
    EXPECT_EQ(traces.count("metric1 Gone not found in result instance"), 1);
    EXPECT_EQ(traces.count("metric2 Lost not found in result instance"), 1);
    EXPECT_EQ(traces.count("Unknown operation !"), 1);
}

}  // namespace
}  // namespace almanac::test
