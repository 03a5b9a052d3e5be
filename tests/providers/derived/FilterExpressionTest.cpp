// The filter language: what is read as what, what is refused and where, and texts that try to break it.
#include <gtest/gtest.h>

#include "providers/derived/SourceTable.h"
#include "providers/derived/filter/FilterExpression.h"

namespace {

using namespace almanac::test;

// The tree with all its brackets.
std::string shape(const FilterExpressionNode* node) {
    switch (node->getType()) {
        case FILTER_NODE_METRIC:
            return node->getMetric();
        case FILTER_NODE_STRING:
            return std::string("'") + node->getStringConstant() + "'";
        case FILTER_NODE_COMPARISON:
            return shape(node->getFirstChild()) + (node->getComparisonOp() == FILTER_EQ ? "=" : "!=") + shape(node->getSecondChild());
        default:
            return "(" + shape(node->getFirstChild()) + (node->getBooleanOp() == FILTER_AND ? " & " : " | ") +
                   shape(node->getSecondChild()) + ")";
    }
}

TEST(FilterExpression, ReadsTerms) {
    const struct {
        const char* text;
        const char* shape;
    } cases[] = {
        {"Status EQ 'running' AND Host NE 'a\\'b'", "(Status='running' & Host!='a'b')"},
        {"a EQ b", "a=b"},
        {"\t a\nEQ\v'b'\r ", "a='b'"},
        {"a EQ b AND c EQ d AND e EQ f OR g EQ h", "(a=b & (c=d & (e=f | g=h)))"},
        {"a EQ b OR c EQ d AND e EQ f", "(a=b | (c=d & e=f))"},
        {"a EQUALS AND b EQ c", "(a=UALS & b=c)"},
        {"a EQ b ANDc EQ d ORe NEf", "(a=b & (c=d | e!=f))"},
        {"a EQ ''", "a='''"},  // the second quote is content, and no third one ends it
        {"a EQ '' OR b EQ ' OR c EQ d", "(a='' OR b EQ ' | c=d)"},
        {"a EQ '", "a=''"},
        {"a EQ '\\", "a='\\'"},
        {"a EQ 'open", "a='open'"},
        {"a EQ 'x\\\\' OR b EQ '", "a='x\\' OR b EQ '"},  // a backslash shields the quote, whatever stands before it
        {"a EQ 'x\\ny\\\\z'", "a='x\\ny\\z'"},
        {"a'b EQ 'c'", "a'b='c'"},
        {"\xff\xfe EQ '\x80'", "\xff\xfe='\x80'"},
    };
    FilterExpression reader("a EQ b");
    for (const auto& each : cases) {
        const std::unique_ptr<FilterExpressionNode> tree(reader.parse(each.text));
        EXPECT_EQ(tree ? shape(tree.get()) : "(refused) " + reader.errorText(), each.shape) << each.text;
    }
}

TEST(FilterExpression, RefusesAtThePlace) {
    const struct {
        const char* text;
        std::size_t offset;
        const char* says;
    } cases[] = {
        {"", 0, "ends where"},          {"   ", 3, "ends where"},         {"A", 1, "ends where"},
        {"A EQ", 4, "ends where"},      {"A EQ  ", 6, "ends where"},      {"A eq 'x'", 2, "EQ or NE"},
        {"A = 'x'", 2, "EQ or NE"},     {"A EQ 'x' B EQ 'y'", 9, "AND or OR"}, {"A EQ 'x' and B EQ 'y'", 9, "AND or OR"},
        {"A EQ 'x' AND", 12, "ends where"}, {"A EQ 'x' AND B", 14, "ends where"}, {"A EQ 'x' OR B LT 'y'", 14, "EQ or NE"},
        {"(A EQ 'x')", 9, "AND or OR"},
    };
    for (const auto& each : cases) {
        const FilterExpression filter(each.text);
        EXPECT_FALSE(filter.isValid()) << each.text;
        EXPECT_EQ(filter.errorOffset(), each.offset) << each.text;
        EXPECT_NE(filter.errorText().find(each.says), std::string::npos) << each.text << ": " << filter.errorText();
        PERF_OBJECT_ERROR_CODE code = OBJECT_ACTIVE;
        EXPECT_FALSE(filter.evaluate(nullptr, &code));
        EXPECT_EQ(code, OBJECT_ACTIVE);
    }
    EXPECT_FALSE(FilterExpression(nullptr).isValid());
}

TEST(FilterExpression, TracesWhatIsWrong) {
    const struct {
        const char* text;
        const char* line;
    } cases[] = {
        {"A EQ", "ERROR: Empty subexpression string"},
        {"A is 'x'", "ERROR: invalid comparison operator in expression, expected EQ or NE, got: is 'x'"},
        {"A EQ 'x' B EQ 'y'", "ERROR: invalid boolean operator in expression, expected AND or OR, got: B EQ 'y'"},
        {"A EQ 'x' B EQ 'y'", "ERROR: failed to parse expected boolean operator"},
        {"A EQ 'x' AND B", "ERROR: right side of boolean expression missing"},
        {"", "parse() method returned NULL-- invalid expression."},
    };
    for (const auto& each : cases) {
        testing::internal::CaptureStderr();
        const FilterExpression filter(each.text);
        EXPECT_NE(testing::internal::GetCapturedStderr().find(each.line), std::string::npos) << each.text;
    }
}

TEST(FilterExpression, SurvivesLongTexts) {
    SourceTable table("T");
    const auto row = table.makeRow("a=s:x b=s:y");
    const auto evaluated = [&row](const std::string& text) {
        const FilterExpression filter(text.c_str());
        PERF_OBJECT_ERROR_CODE code = OBJECT_ACTIVE;
        return std::to_string(filter.isValid()) + std::to_string(filter.evaluate(row.get(), &code)) + std::to_string(code);
    };
    constexpr int kLinks = 100000;
    std::string ands = "a EQ 'x'", ors = "a EQ 'y'";
    for (int i = 1; i < kLinks; ++i) {
        ands += " AND a EQ 'x'";
        ors += " OR a EQ 'y'";
    }
    EXPECT_EQ(evaluated(ands), "110");
    EXPECT_EQ(evaluated(ands + " AND a EQ b"), "100");
    EXPECT_EQ(evaluated(ors), "100");
    EXPECT_EQ(evaluated(ors + " OR b EQ 'y'"), "110");
    EXPECT_EQ(evaluated(ands + " AND"), "000");
    const std::string megabyte(1 << 20, 'z');
    EXPECT_EQ(evaluated("a NE '" + megabyte + "'"), "110");
    EXPECT_EQ(evaluated("a NE '" + megabyte), "110");
    EXPECT_EQ(evaluated(megabyte), "000");
    EXPECT_EQ(evaluated("a EQ '" + std::string(1 << 20, '\\')), "100");
    EXPECT_EQ(evaluated(std::string(1 << 20, ' ')), "000");
}

// Trees that no text gives: made by hand, they are answered with the code and not with a crash.
TEST(FilterExpression, AnswersMalformedTreesWithTheCode) {
    using Node = FilterExpressionNode;
    const auto text = [](const char* t) { return new Node(FILTER_NODE_STRING, t); };
    const auto equal = [&] { return new Node(FILTER_EQ, text("x"), text("x")); };
    const auto differ = [&] { return new Node(FILTER_NE, text("x"), text("x")); };
    SourceTable table("T");
    const auto row = table.makeRow("a=s:x num=d:1");
    struct Case {
        std::unique_ptr<Node> tree;
        bool answer;
        PERF_OBJECT_ERROR_CODE code;
    };
    std::vector<Case> cases;
    const auto add = [&cases](Node* n, bool answer, PERF_OBJECT_ERROR_CODE code) { cases.push_back({std::unique_ptr<Node>(n), answer, code}); };
    add(text("x"), false, FILTER_SYNTAX_ERROR);
    add(new Node(FILTER_NODE_METRIC, "a"), false, FILTER_SYNTAX_ERROR);
    add(new Node(FILTER_EQ, text("x"), nullptr), false, FILTER_SYNTAX_ERROR);
    add(new Node(FILTER_EQ, text("x"), equal()), false, FILTER_SYNTAX_ERROR);
    add(new Node(FILTER_EQ, text("1"), new Node(FILTER_NODE_METRIC, "num")), false, FILTER_SYNTAX_ERROR);
    add(new Node(FILTER_NE, new Node(FILTER_NODE_METRIC, "gone"), text("x")), false, FILTER_SYNTAX_ERROR);
    add(new Node(FILTER_AND, equal(), text("x")), false, FILTER_SYNTAX_ERROR);
    add(new Node(FILTER_OR, equal(), nullptr), false, FILTER_SYNTAX_ERROR);  // looked at before the first child answers
    add(new Node(FILTER_AND, new Node(FILTER_OR, differ(), equal()), new Node(FILTER_AND, equal(), equal())), true, OBJECT_ACTIVE);
    add(new Node(FILTER_OR, new Node(FILTER_AND, equal(), differ()), differ()), false, OBJECT_ACTIVE);
    for (std::size_t i = 0; i < cases.size(); ++i) {
        PERF_OBJECT_ERROR_CODE code = OBJECT_ACTIVE;
        EXPECT_EQ(cases[i].tree->evaluate(row.get(), &code), cases[i].answer) << i;
        EXPECT_EQ(code, cases[i].code) << i;
    }
}

}  // namespace
