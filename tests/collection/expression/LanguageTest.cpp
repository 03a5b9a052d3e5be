// The language: tokens, precedence, what is wrong and where, and formulas of any length and depth.
#include <random>

#include "collection/expression/ExpressionScanner.h"
#include "collection/expression/FormulaRow.h"

namespace almanac::test {
namespace {

std::string tokens(const char* formula) {
    static const char* const names[] = {"", "ID", "NUM", "FLOAT", "STR", "ADD", "MIN", "MULT", "DIV", "PERC", "BYTE"};
    ExpressionScanner scanner(formula);
    std::string all;
    for (ScannedToken t = scanner.next(); t.kind != TOKEN_END; t = scanner.next()) {
        all += std::string(names[t.kind]) + ":" + std::string(t.text) + " ";
    }
    return all;
}

TEST(Language, Tokens) {
    const struct {
        const char* formula;
        const char* tokens;
    } cases[] = {
        {" a\t_b9\n+-*/% ", "ID:a ID:_b9 ADD:+ MIN:- MULT:* DIV:/ PERC:% "},
        {"12 0.5 1.25e3 1.5E-07 2.5e+1x", "NUM:12 FLOAT:0.5 FLOAT:1.25e3 FLOAT:1.5E-07 FLOAT:2.5e+1 ID:x "},
        {"1e5", "NUM:1 ID:e5 "},
        {"5. .5 1.5e 1.5e+ 1..2", "NUM:5 BYTE:. BYTE:. NUM:5 FLOAT:1.5 ID:e FLOAT:1.5 ID:e ADD:+ NUM:1 BYTE:. BYTE:. NUM:2 "},
        {"\"a b\" \"\" \"q\\\"q\" \"\xC3\xA9\n\"", "STR:\"a b\" STR:\"\" STR:\"q\\\"q\" STR:\"\xC3\xA9\n\" "},
        {"\"open", "BYTE:\" ID:open "},
        {"\"a\\\nb\"", "BYTE:\" ID:a BYTE:\\ ID:b BYTE:\" "},
        {"\"a\\", "BYTE:\" ID:a BYTE:\\ "},
        {"(a,b)\r", "BYTE:( ID:a BYTE:, ID:b BYTE:) BYTE:\r "},
        {"a \xC3\xA9 + b", "ID:a "},  // ends like the text itself
    };
    for (const auto& c : cases) EXPECT_EQ(tokens(c.formula), c.tokens) << c.formula;
}

TEST(Language, PrecedenceAndOrder) {
    FormulaRow row;
    const struct {
        const char* formula;
        const char* value;
    } cases[] = {
        {"10 - 4 - 3", "i 3"},
        {"10 - (4 - 3)", "i 9"},
        {"2 + 3 * 4", "l 14"},
        {"(2 + 3) * 4", "l 20"},
        {"2 * 3 + 4 * 5", "l 26"},
        {"24 / 4 / 3", "d 2"},
        {"1 % 2 * 3", "l 150"},   // (1 % 2) * 3
        {"3 * 1 % 2", "l 150"},   // (3 * 1) % 2, rounded only below 100
        {"-2 * 3", "l -6"},
        {"2 - -3", "i 5"},
        {"- - 3", "i 3"},
        {"-(2 + 3) - 1", "l -6"},
        {"2 * -3 - 1", "l -7"},
        {"min(5, 1 + 1, (3)) * 2", "d 4"},
        {"max(min(4, 5), -min(7))", "d 4"},
        {"((((7))))", "i 7"},
        {"5\xC3\xA9 nothing behind counts (", "i 5"},
    };
    for (const auto& c : cases) EXPECT_EQ(row(c.formula), c.value) << c.formula;
}

TEST(Language, LiteralsAndNames) {
    FormulaRow row;
    row.with("A", 1).with("a", 2).with("_x1", 3);
    const struct {
        const char* formula;
        const char* value;
    } cases[] = {
        {"A", "i 1"},
        {"a", "i 2"},
        {"_x1", "i 3"},
        {"007", "i 7"},
        {"2147483647", "i 2147483647"},
        {"2147483648", "i -2147483648"},  // the low 32 bits
        {"9999999999", "i 1410065407"},
        {"99999999999999999999", "i -1"},
        {"1.5e2", "d 150"},
        {"1.0e999", "d inf"},
        {"1.0e-999", "d 0"},
        {"\"plain 'text'\"", "t plain 'text'"},
        {R"("tab\tline\nreturn\rquote\"backslash\\other\x")", "t tab\tline\nreturn\rquote\"backslash\\otherx"},
        {"\"\"", "t "},
        {"\"\xC3\xA9\"", "t \xC3\xA9"},
        {"min", "i 0"},  // without a parenthesis an attribute
    };
    for (const auto& c : cases) EXPECT_EQ(row(c.formula), c.value) << c.formula;
}

TEST(Language, ErrorsAndTheirPlace) {
    const struct {
        const char* formula;
        const char* message;
        std::size_t blanks;  // before the caret
        int offset;          // of the token that does not fit
    } cases[] = {
        {"", "parse error", 0, 0},
        {"5 +", "parse error", 3, 3},
        {"5 )", "parse error, expecting `$'", 2, 2},
        {"1e5", "parse error, expecting `$'", 3, 1},
        {"a b c", "parse error, expecting `$'", 3, 2},
        {"5.", "parse error, expecting `$'", 2, 1},
        {".5", "parse error", 0, 0},
        {"5 + * 3", "parse error", 4, 4},
        {"(5 5)", "parse error", 4, 3},
        {"(5", "parse error", 2, 2},
        {"count()", "parse error", 6, 6},
        {"f(1 2)", "parse error, expecting `)'", 5, 4},
        {"f(1, 2", "parse error, expecting `)'", 6, 6},
        {"f(1,)", "parse error", 4, 4},
        {"(1, 2)", "parse error", 2, 2},
        {"a, b", "parse error, expecting `$'", 1, 1},
        {"\"abc", "parse error", 4, 0},  // all was read in search of the other quote
        {"1 + \xC3\xA9", "parse error", 4, 4},
        {"a = b", "parse error, expecting `$'", 2, 2},
    };
    for (const auto& c : cases) {
        const ParsedFormula parsed = parseFormula(c.formula);
        EXPECT_EQ(parsed.tree, nullptr) << c.formula;
        EXPECT_EQ(parsed.message, c.message) << c.formula;
        EXPECT_EQ(caretLine(parsed), std::string(c.blanks, ' ') + "^") << c.formula;
        EXPECT_EQ(parsed.stopOffset, c.offset) << c.formula;
    }
}

std::string repeat(const std::string& text, int n) {
    std::string all;
    for (int i = 0; i < n; ++i) all += text;
    return all;
}

TEST(Language, LongAndDeepFormulas) {
    FormulaRow row;
    row.with("A", 1).with("S", "x");
    EXPECT_EQ(row("A" + repeat("+A", 100000)), "l 100001");
    EXPECT_EQ(row("A" + repeat("-A", 100000)), "i -99999");
    EXPECT_EQ(row("S" + repeat("+S", 50000)).size(), 2u + 50001u);
    // The parse stack holds 10,000 entries: the start, what is open, and the operand in reading.
    const struct {
        const char* open;
        const char* close;
        int most;
        const char* value;
    } cases[] = {
        {"(", ")", 9997, "i 1"},       // the closing parenthesis is one more
        {"-", "", 9998, "i 1"},
        {"1+(", ")", 3332, "l 3333"},  // three entries each
        {"min(", ")", 4998, "d 1"},    // two
    };
    for (const auto& c : cases) {
        EXPECT_EQ(row(repeat(c.open, c.most) + "1" + repeat(c.close, c.most)), c.value) << c.open;
        EXPECT_EQ(row(repeat(c.open, c.most + 1) + "1" + repeat(c.close, c.most + 1)), "syntax: parser stack overflow") << c.open;
    }
    EXPECT_EQ(row(repeat("(", 10000) + "1" + repeat(")", 10000)), "syntax: parser stack overflow");
    EXPECT_EQ(row(repeat("(", 1000000)), "syntax: parser stack overflow");
    // Arguments stay on the parse stack until the parenthesis closes.
    EXPECT_EQ(row("sum(1" + repeat(",1", 4997) + ")"), "d 4998");
    EXPECT_EQ(row("sum(1" + repeat(",1", 4998) + ")"), "syntax: parser stack overflow");
}

// Any text either parses or is told wrong; the caret never leaves the formula by more than its end.
TEST(Language, RandomTexts) {
    const Traces quiet("NONE");
    static const char* const pieces[] = {"a", "1", "2.5", "\"s\"", "+", "-", "*", "/", "%", "(", ")", ",", "min(", "last(", " ", "\"", "\\", "$", "\xFF", "e", "."};
    std::mt19937 random(7);
    FormulaRow row;
    int parsedOnes = 0;
    for (int i = 0; i < 20000; ++i) {
        std::string text;
        for (auto n = random() % 9; n > 0; --n) text += pieces[random() % std::size(pieces)];
        const ParsedFormula parsed = parseFormula(text.c_str());
        EXPECT_NE(parsed.tree == nullptr, parsed.message.empty()) << text;
        EXPECT_LE(caretLine(parsed).size(), text.size() + 1) << text;
        EXPECT_LE(static_cast<std::size_t>(parsed.stopOffset), text.size()) << text;
        parsedOnes += parsed.tree != nullptr;
        row(text);
    }
    EXPECT_GT(parsedOnes, 100);
}

}  // namespace
}  // namespace almanac::test
