// Operators: the type of each pair of operands, and the values at the edges.
#include "collection/expression/FormulaRow.h"

namespace almanac::test {
namespace {

// By row the left operand, by column the right one: 32-bit, 64-bit, unsigned, double, text, UTF-8 text, an unknown
// function, a list. The result: i 32-bit, l 64-bit, u unsigned, d double, t text, - the metric's default.
TEST(Operators, ResultTypeOfEachPair) {
    const char* const operands[] = {"I", "J", "U", "D", "S", "T", "nosuch(1)", "last(I, 2)"};
    const struct {
        char op;
        const char* types[8];
    } tables[] = {
        {'+', {"llud----", "llulllll", "uuuuuuuu", "dluddddd", "-ludtt--", "-ludtt--", "-lud----", "-lud----"}},
        {'-', {"ilud----", "llulllll", "uuuuuuuu", "dluddddd", "-lud----", "-lud----", "-lud----", "-lud----"}},
        {'*', {"llud----", "llulllll", "uuuuuuuu", "dluddddd", "-lud----", "-lud----", "-lud----", "-lud----"}},
        {'%', {"ilud----", "llulllll", "uuuuuuuu", "dluddddd", "-lud----", "-lud----", "-lud----", "-lud----"}},
        {'/', {"dddddddd", "dddddddd", "dddddddd", "dddddddd", "dddddddd", "dddddddd", "dddddddd", "dddddddd"}},
    };
    const Traces quiet("NONE");
    FormulaRow row;
    row.with("I", 7).with("J", 7LL).with("U", 7ULL).with("D", 7.5).with("S", "7").withUtf8("T", "7");
    for (const auto& table : tables) {
        for (std::size_t a = 0; a < 8; ++a) {
            std::string types;
            for (const char* right : operands) {
                const std::string value = row(std::string(operands[a]) + table.op + right, STRING_DATA);
                types += value == "t " ? '-' : value[0];
            }
            EXPECT_EQ(types, table.types[a]) << operands[a] << " " << table.op;
        }
    }
}

TEST(Operators, Values) {
    const Traces quiet("NONE");
    FormulaRow row;
    row.with("MAX", 2147483647).with("MIN", -2147483647 - 1).with("I", -7);
    row.with("L", 9223372036854775807LL).with("LMIN", -9223372036854775807LL - 1).with("J", 3LL);
    row.with("U", 18446744073709551615ULL).with("U2", 2ULL).with("NEG", -1.0).with("BIG", 1e19).with("D", 1.5);
    row.with("S", "12").withUtf8("T", "\xC3\xA9");
    const struct {
        const char* formula;
        const char* value;
    } cases[] = {
        {"MAX + MAX", "l 4294967294"},
        {"MAX * MAX", "l 4611686014132420609"},
        {"MIN - 1", "i 2147483647"},
        {"MAX - -1", "i -2147483648"},
        {"L + J", "l -9223372036854775806"},
        {"L * J", "l 9223372036854775805"},
        {"LMIN - J", "l 9223372036854775805"},
        {"U + U2", "u 1"},
        {"U2 - J", "u 18446744073709551615"},
        {"U * U2", "u 18446744073709551614"},
        {"U2 + D", "u 3"},  // 1.5 counts as 1
        {"J + D", "l 4"},
        {"I + U2", "u 18446744073709551611"},
        {"NEG + U2", "u 1"},
        {"BIG + U2", "u 10000000000000000002"},
        {"BIG + J", "l -9223372036854775805"},  // too large for 64 bits: their minimum
        {"I + D", "d -5.5"},
        {"D * D", "d 2.25"},
        {"S + J", "l 3"},  // a text beside a number counts as 0
        {"S + D", "d 1.5"},
        {"\"a\" + \"b\" + T + S", "t ab\xC3\xA9" "12"},
        {"\"a\" + (\"b\" + T) + \"\"", "t ab\xC3\xA9"},
        {"T + T", "t \xC3\xA9\xC3\xA9"},
        {"7 / 2", "d 3.5"},
        {"7 / 0", "d 0"},
        {"7 / 0.0", "d 0"},
        {"U / 1", "d 1.84467440737096e+19"},
        {"\"a\" / 2", "d 0"},
        {"2 / \"a\"", "d 0"},
        {"-MIN", "i -2147483648"},
        {"-LMIN", "l -9223372036854775808"},
        {"-U2", "u 18446744073709551614"},
        {"-D", "d -1.5"},
        {"-\"a\"", "i 0"},
        {"-nosuch(1)", "i 0"},
        {"-last(I, 2) + J", "l 3"},
    };
    for (const auto& c : cases) EXPECT_EQ(row(c.formula), c.value) << c.formula;
}

TEST(Operators, Percentage) {
    FormulaRow row;
    row.with("J", 3LL).with("U", 3ULL).with("HUGE", 18446744073709551615ULL);
    const struct {
        const char* formula;
        const char* value;
    } cases[] = {
        {"1 % 3", "i 33"},
        {"2 % 3", "i 67"},
        {"299 % 3", "i 9966"},  // 9966.67: no rounding from 100 up
        {"7 % 0", "i 0"},
        {"-1 % 8", "i -12"},    // -12.5 + 0.5
        {"-2 % 3", "i -66"},
        {"2 % J", "l 67"},
        {"2 % U", "u 67"},
        {"HUGE % U", "u 9223372036854775808"},   // 6.1e20 is no 64-bit number
        {"HUGE % 200", "u 9223372036854775808"},  // 9.2e18 is
        {"2147483647 % 1", "i -2147483648"},
        {"1.0 % 3", "d 33.3333333333333"},
        {"1.0 % 0", "d 0"},
        {"7.0 % J", "l 233"},
    };
    for (const auto& c : cases) EXPECT_EQ(row(c.formula), c.value) << c.formula;
}

TEST(Operators, Cells) {
    FormulaRow row;
    row.with("I", -1).with("MAPPED", 5, "9 0 5 50").with("J", -2LL).with("U", 18446744073709551615ULL).with("D", 0.25);
    row.with("S", "local").withUtf8("T", "\xC3\xA9").with("I", 4);
    EXPECT_EQ(row("I"), "i 4");  // the last cell of the name
    EXPECT_EQ(row("MAPPED"), "i 50");
    EXPECT_EQ(row("J"), "l -2");
    EXPECT_EQ(row("U"), "u 18446744073709551615");
    EXPECT_EQ(row("D"), "d 0.25");
    EXPECT_EQ(row("S"), "t local");
    EXPECT_EQ(row("T"), "t \xC3\xA9");
    EXPECT_EQ(row("Missing"), "i 0");
    EXPECT_EQ(row("Missing", RATE_DATA), "i 0");
    EXPECT_EQ(row("Missing", PREVIOUS_STRING_DATA), "i 0");
    EXPECT_EQ(row("Missing", STRING_DATA), "t Missing");
    EXPECT_EQ(row("Missing + \"!\"", STRING_DATA), "t Missing!");
}

TEST(Operators, DefaultOfEachRawType) {
    const Traces quiet("NONE");
    FormulaRow row;
    for (int type = NUMERIC_DATA; type <= PERCENT_DELTA_64BIT_DATA; ++type) {
        const char* expected = type == STRING_DATA || type == PREVIOUS_STRING_DATA ? "t " : type == DELTA_DATA || type == RATE_DATA ? "l 0" : "i 0";
        EXPECT_EQ(row("\"a\" - \"b\"", static_cast<RAW_METRIC_TYPE>(type)), expected) << type;
        EXPECT_EQ(row("-\"a\"", static_cast<RAW_METRIC_TYPE>(type)), expected) << type;
    }
}

TEST(Operators, ResultsThatAreNoCell) {
    FormulaRow row;
    row.with("I", 1);
    Traces traces("ERROR");
    EXPECT_EQ(row("nosuch(I)"), "i 0");
    EXPECT_EQ(row("last(I, 3)", STRING_DATA), "i 0");
    EXPECT_EQ(row("\"a\" - 1"), "i 0");
    EXPECT_EQ(row("-\"a\""), "i 0");
    EXPECT_EQ(traces.count("Unknown function nosuch"), 1);
    EXPECT_EQ(traces.count("Unknown result type: 0"), 1);
    EXPECT_EQ(traces.count("Unknown result type: 6"), 1);
    EXPECT_EQ(traces.count("Error: unsupported type combination: exp1=4 exp2=%3"), 1);
    EXPECT_EQ(traces.count("Error: unsupported type: exp1=4"), 1);
}

}  // namespace
}  // namespace almanac::test
