// The check of a reference file: each fault at its place, all faults of a file, and no text that breaks it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <random>

#include "host/Scratch.h"
#include "runtime/check/ReferenceCheck.h"

namespace {

using almanac::host::test::readFile;
using testing::HasSubstr;

// A file without a fault, a line each.
const std::vector<std::string> kGood = {
    "<agent>",                                                                                            // 1
    "  <appl name=\"TST\" nodeType=\"TS\" affinity=\"X\" internalAgentVersion=\"01\"/>",                  // 2
    "  <metadata>",                                                                                       // 3
    "    <ag table=\"T\" name=\"G\">",                                                                    // 4
    "      <attr name=\"TS\" type=\"1\" size=\"16\"/>",                                                   // 5
    "      <attr name=\"A\" type=\"2\" size=\"8\"/>",                                                     // 6
    "      <attr name=\"B\" type=\"0\" size=\"4\"/>",                                                     // 7
    "    </ag>",                                                                                          // 8
    "  </metadata>",                                                                                      // 9
    "  <script app=\"TST\" ag=\"G\" name=\"s\" command=\"x\" separator=\",\">",                           // 10
    "    <metric name=\"A\" type=\"STRING_DATA\" visible=\"true\" size=\"8\"/>",                          // 11
    "    <metric name=\"B\" type=\"NUMERIC_DATA\" visible=\"true\" size=\"4\"/>",                         // 12
    "  </script>",                                                                                        // 13
    "</agent>",                                                                                           // 14
};

std::string fileWith(std::size_t line, const std::string& from, const std::string& to) {
    std::string text;
    for (std::size_t i = 0; i < kGood.size(); ++i) {
        std::string one = kGood[i];
        if (i + 1 == line) {
            const std::size_t at = one.find(from);
            EXPECT_NE(at, std::string::npos) << line << " " << from;
            one.replace(at, from.size(), to);
        }
        text += one + "\n";
    }
    return text;
}

std::string report(const std::string& text) {
    std::string all;
    for (const Problem& p : checkReferenceText(text)) all += formatProblem("f", text, p);
    return all;
}

TEST(Check, FindsEachFaultAtItsPlace) {
    const struct {
        std::size_t line;
        const char* from;
        const char* to;
        const char* place;  // line:column and severity
        const char* says;
    } cases[] = {
        {2, "name=\"TST\"", "name='TST'", "2:3: error", "Attribute value does not start with quote (values stand in double quotes)"},
        {2, "nodeType", "nodetype", "2:20: error", "unknown attribute 'nodetype' of 'appl'; did you mean 'nodeType'?"},
        {2, "nodeType=\"TS\"", "nodeType=\"A & B; C\"", "2:32: error", "Unrecognized entity"},
        {2, "affinity=\"X\" internalAgentVersion=\"01\"", "affinity=\"%X\" internalAgentVersion=\"13\"", "2:70: error", "must be 1 to 12"},
        {3, "<metadata>", "<metdata>", "9:3: error", "Mismatched end tag found: metadata != metdata"},
        {5, "type=\"1\" ", "type=\"1\"\n", "5:31: error", "goes over two lines"},
        {5, "name=\"TS\" ", "", "5:7: error", "'attr' needs the attribute 'name'"},
        {6, "name=\"A\"", "name=\"B\"", "7:19: error", "attribute 'B' is declared twice in this group"},
        {6, "type=\"2\"", "type=\"x\"", "6:28: error", "'x' is no number; it would count as 0"},
        {7, "type=\"0\"", "type=\"11\"", "7:28: error", "type 11 is none"},
        {7, "size=\"4\"", "size=\"3\"", "7:37: error", "has size 2 or 4, not 3"},
        {8, "</ag>", "</ag >", "8:5: error", "Element ending tags cannot have attributes"},
        {10, "ag=\"G\"", "ag=\"GG\"", "10:25: error", "attribute group 'GG' is not declared in the metadata; did you mean 'G'?"},
        {10, "script", "scrpt", "13:3: error", "Mismatched end tag found: script != scrpt"},
        {11, "name=\"A\"", "name=\"C\"", "11:", "C"},
        {11, "STRING_DATA", "NUMERIC_DATA", "11:28: error", "a number meets an attribute of type 2, which is for texts"},
        {12, "<metric ", "<metrik ", "12:5: error", "unknown element 'metrik' in section 'script'; did you mean 'metric'?"},
        {12, "name=\"B\"", "name=\"A\"", "12:19: error", "metric 'A' is declared twice"},
        {14, "</agent>", "", "1:1: error", "Missing end tag for element: agent"},
        {14, "</agent>", "</agent></b>", "14:9: error", "Unbalanced end tag found:"},
        {9, "</metadata>", "</metadata><ag/>", "9:", "unknown section 'ag'"},
    };
    EXPECT_EQ(report(fileWith(1, "<agent>", "<agent>")), "");
    for (const auto& c : cases) {
        const std::string found = report(fileWith(c.line, c.from, c.to));
        const std::size_t at = found.find(std::string("f:") + c.place);
        EXPECT_NE(at, std::string::npos) << c.to << " is told as\n" << found;
        if (at != std::string::npos) {
            EXPECT_THAT(found.substr(at, found.find('\n', at) - at), HasSubstr(c.says)) << found;
        }
    }
}

TEST(Check, OrderOfSectionsCounts) {
    const std::string late = "<a><metadata></metadata><appl name=\"X\"/><repeatable_section name=\"S\"/></a>";
    EXPECT_THAT(report(late), HasSubstr("f:1:25: error: appl must stand before metadata"));
    EXPECT_THAT(report(late), HasSubstr("f:1:41: warning: repeatable_section stands behind appl"));
    EXPECT_THAT(report("<a/>"), HasSubstr("no appl element"));
    EXPECT_THAT(report(""), HasSubstr("the file holds no element"));
}

TEST(Check, VariablesOfCommands) {
    const auto withCommand = [](const std::string& command, const std::string& ahead = "") {
        std::string text = fileWith(10, "command=\"x\"", "command=\"" + command + "\"");
        return text.insert(text.find("  <script"), ahead);
    };
    const std::string variable = "<env_variable name=\"AGENT_BIN_DIR\"/>\n";
    // What the shell replaces, and what no brace closes, is none of the agent's business.
    EXPECT_EQ(report(withCommand("$HOME/x $(date) ${ {", variable)), "");
    EXPECT_EQ(report(withCommand("${AGENT_BIN_DIR}/x ${AGENT_BIN_DIR}", variable)), "");
    EXPECT_THAT(report(withCommand("${AGENT_BIN_DIR}/x")), HasSubstr("f:10:46: warning: no env_variable element takes 'AGENT_BIN_DIR'"));
    std::string late = withCommand("${AGENT_BIN_DIR}/x");
    late.insert(late.find("</agent>"), variable);
    EXPECT_THAT(report(late), HasSubstr("warning: the env_variable element of 'AGENT_BIN_DIR' stands behind this section"));
    const std::string two = report(withCommand("${AGENT_BIN_DIR}/x ${HOME:-/} ${AGENT_BIN_DIR }", variable));
    EXPECT_THAT(two, HasSubstr("f:11:46: error: '${HOME:-/}' may not be substituted and disappears; write $HOME"));
    EXPECT_THAT(two, HasSubstr("error: '${AGENT_BIN_DIR }' may not be substituted"));
    EXPECT_THAT(report(fileWith(11, "size=\"8\"", "size=\"8\" metricName=\"${X}\"")), HasSubstr("f:11:77: error: '${X}'"));
}

// A computed metric in the place of B, with its formula at column 66 of line 12, and one more behind it.
TEST(Check, FormulasAtTheirPlace) {
    const struct {
        const char* formula;
        const char* says;  // with line:column and severity; "" for no problem
    } cases[] = {
        {"A + 1.5 * min(H, 2) % 3", ""},
        {"trend(last(H, 5), 2) - count(0)", ""},
        {"1 + * 2", "12:70: error: formula: parse error; the metric would be -1"},
        {"&quot;a&quot; + &lt;", "12:82: error: formula: parse error"},
        {"1 + 2)", "12:71: error: formula: parse error, expecting `$' (the formula could end here)"},
        {"min(1", "12:71: error: formula: parse error, expecting `)' (the formula ends too early)"},
        {"1e5", "12:67: error: formula: parse error, expecting `$' (write 1.0e5 for 1e5)"},
        {"count()", "12:72: error: formula: parse error (a function takes at least one argument, such as count(0))"},
        {"H + 'x'", "12:70: error: formula: parse error (texts stand in double quotes"},
        {"&quot;x", "12:66: error: formula: parse error (the text is not closed)"},
        {"", "12:66: error: formula: parse error (the formula ends too early)"},
        {"H + Aa", "12:70: warning: 'Aa' is no attribute of the row; it counts as 0; did you mean 'A'?"},
        {"H + B", "12:70: warning: 'B' is computed behind this metric; here it is missing and counts as 0"},
        {"H + Late", "12:70: warning: 'Late' is computed behind this metric"},
        {"avrage(H)", "12:66: warning: unknown function 'avrage' has no value; did you mean 'average'?"},
        {"1 + round(1, 2)", "12:70: warning: round takes 1 argument, not 2"},
        {"trend(1, 2, 3)", "12:66: warning: trend takes 1 to 2 arguments, not 3"},
        {"atoi(tokenize(A, &quot;,&quot;))", "12:71: warning: tokenize takes 3 arguments, not 2"},
        {"min(last(H, 1))", "12:70: warning: last keeps at least 2 samples; for 1 it keeps 10"},
        {"min(last(H, H))", "12:70: warning: only a plain number sets the samples of last"},
        {"min(last(H, 2), last(H, 2))", "12:82: warning: all calls of last in a formula share"},
        {"last(H, 5)", "12:66: warning: a list is no value, the metric would be 0"},
        {"itoa(H)", "12:66: warning: the formula gives a text, and the metric's type is one of numbers"},
        {"&quot;x&quot;", "12:66: warning: the formula gives a text"},
        {"H + 3000000000", "12:70: warning: 3000000000 does not fit 32 bits and counts as -1294967296; write 3000000000.0"},
        {"H \xC3\xA9 + 1", "12:68: warning: a byte above 0x7F ends the formula"},
    };
    for (const auto& c : cases) {
        const std::string found = report(fileWith(
            12, "name=\"B\" type=\"NUMERIC_DATA\" visible=\"true\" size=\"4\"/>",
            std::string("name=\"B\" type=\"NUMERIC_DATA\" visible=\"true\" formula=\"") + c.formula +
                "\"/><metric name=\"H\" type=\"NUMERIC_DATA\"/><metric name=\"Late\" type=\"NUMERIC_DATA\" formula=\"B\"/>"));
        if (*c.says) {
            EXPECT_EQ(found.rfind(std::string("f:") + c.says, 0), 0u) << c.formula << " is told as\n" << found;
        } else {
            EXPECT_EQ(found, "") << c.formula;
        }
    }
}

TEST(Check, ComputedMetrics) {
    const auto with = [](const char* attributes) {
        return report(fileWith(12, "size=\"4\"/>", std::string("size=\"4\" ") + attributes + "/>"));
    };
    const std::string text = report(fileWith(11, "size=\"8\"", "size=\"8\" formula=\"B / 2\""));
    EXPECT_THAT(text, HasSubstr("warning: the formula gives a number, and the metric's type is one of texts"));
    EXPECT_EQ(with("arg1=\"A\" op=\"-\" arg2=\"+3\""), "");
    EXPECT_THAT(with("arg1=\"A\""), HasSubstr("error: arg1 needs arg2 and op beside it"));
    EXPECT_THAT(with("arg1=\"C\" op=\"-\" arg2=\"A\""), HasSubstr("warning: 'C' is no metric declared ahead of this one"));
    EXPECT_THAT(with("arg1=\"A\" op=\"x\" arg2=\"A\""), HasSubstr("error: 'x' is no operator; there are + - * / %"));
    EXPECT_THAT(with("arg1=\"A\" op=\"+\" arg2=\"1\" formula=\"1\""), HasSubstr("warning: the metric has a formula"));
}

TEST(Check, TellsAllFaultsOfAFile) {
    std::string text;
    for (const std::string& line : kGood) text += line + "\n";
    const auto replace = [&text](const char* from, const char* to) { text.replace(text.find(from), std::strlen(from), to); };
    replace("nodeType=\"TS\"", "nodeType='TS'");
    replace("type=\"0\"", "type=\"12\"");
    replace("</ag>", "</ag >");
    replace("ag=\"G\"", "ag=\"H\"");
    const auto problems = checkReferenceText(text);
    std::string all;
    for (const Problem& p : problems) all += formatProblem("f", text, p);
    for (const char* place : {"f:2:", "f:7:", "f:8:", "f:10:"}) EXPECT_THAT(all, HasSubstr(place));
    for (std::size_t i = 1; i < problems.size(); ++i) EXPECT_LE(problems[i - 1].offset, problems[i].offset);
}

TEST(Check, ShowsTheLineWithACaret) {
    const std::string text = "first\n\t\xC3\xA9 x\x01y\nlast";
    EXPECT_EQ(formatProblem("a.xml", text, {10, Problem::Error, "text"}), "a.xml:2:5: error: text\n    \t\xC3\xA9 x?y\n    \t  ^\n");
    EXPECT_EQ(formatProblem("a.xml", text, {0, Problem::Warning, "w"}), "a.xml:1:1: warning: w\n    first\n    ^\n");
    EXPECT_EQ(formatProblem("a.xml", text, {999, Problem::Error, "end"}), "a.xml:3:5: error: end\n    last\n        ^\n");
}

TEST(Check, TheExampleHasNoFault) {
    const char* source = std::getenv("ALMANAC_SOURCE_DIR");
    const std::string text = readFile(std::string(source ? source : ".") + "/examples/host/host.xml");
    ASSERT_FALSE(text.empty());
    EXPECT_EQ(report(text), "");
}

// A file with a script that fills G with A and B, and one derived section behind it.
std::string derivedFile(const std::string& section) {
    std::string text;
    for (const std::string& line : kGood) {
        if (line == "</agent>") text += section;
        text += line + "\n";
    }
    return text;
}

TEST(Check, DerivedTables) {
    const std::string group = "<metadata><ag table=\"D\" name=\"D\"><attr name=\"TS\" type=\"1\" size=\"16\"/></ag></metadata>\n";
    const std::string join = group + "<join app=\"T\" ag=\"D\" class1=\"G\" class2=\"G\" class1Attr=\"A\" class2Attr=\"A\"/>\n";
    const std::string rollup = group + "<rollup app=\"T\" ag=\"D\" rollupAg=\"G\" rollupAttr=\"B\"><metric name=\"Average\" type=\"N\"/></rollup>\n";
    const std::string filter = group + "<filter app=\"T\" ag=\"D\" raw_attribute_group_name=\"G\" filter=\"A EQ &apos;x&apos; AND A NE 'y'\">"
                                       "<metric name=\"M\" type=\"STRING_DATA\" metric_name=\"A\"/></filter>\n";
    const struct {
        const std::string& section;
        const char* from;
        const char* to;
        const char* says;
    } cases[] = {
        {join, "class1=\"G\"", "class1=\"Gg\"", "15:30: error: no section fills attribute group 'Gg'; did you mean 'G'?"},
        {join, "class2=\"G\"", "class2=\"D\"", "15:41: error: a join cannot read its own rows"},
        {join, "class1Attr=\"A\"", "class1Attr=\"C\"", "15:56: error: attribute group 'G' has no attribute 'C'; did you mean"},
        {join, " class2Attr=\"A\"", "", "error: 'class2Attr' is missing: without it"},
        {join, "/>\n", "><metric name=\"A\" type=\"N\" ag=\"X\" metricName=\"A\"/></join>", "error: 'X' is no side of this join"},
        {join, "/>\n", "><metric name=\"A\" type=\"N\" ag=\"G\"/></join>", "error: the metric gets no value: it needs the attribute 'metricName'"},
        {join, "/>\n", "><metric name=\"A\" type=\"N\" ag=\"G\" metricName=\"Z\"/></join>", "error: attribute group 'G' has no attribute 'Z'"},
        {rollup, "rollupAg=\"G\"", "rollupAg=\"Q\"", "error: no section fills attribute group 'Q'"},
        {rollup, "rollupAttr=\"B\"", "rollupAttr=\"BB\"", "error: attribute group 'G' has no attribute 'BB'; did you mean 'B'?"},
        {rollup, "rollupAttr=\"B\"", "rollupAttr=\"A\"", "warning: 'A' is a text: its values count as 0"},
        {rollup, "\"Average\"", "\"Averge\"", "error: 'Averge' is no statistic, and the rollup gives no row; did you mean 'Average'?"},
        {rollup, "\"Average\"", "\"Standard_Deviation\"", "warning: 'Average' must stand ahead"},
        {filter, "name=\"G\"", "name=\"G,H\"", "15:52: error: no section fills attribute group 'H'"},
        {filter, " AND", " UND", "15:80: error: AND or OR must stand here"},
        {filter, " NE 'y'", "", "error: the filter ends where a term or an operator must stand"},
        {filter, "A NE", "B NE", "15:84: error: 'B' is a number; a filter compares texts alone"},
        {filter, "A NE", "C NE", "15:84: error: attribute group 'G' has no attribute 'C'"},
        {filter, "metric_name=\"A\"", "metric_name=\"AA\"", "error: attribute group 'G' has no attribute 'AA'; did you mean 'A'?"},
        {filter, " metric_name=\"A\"", "", "error: the metric gets no value, and the filter no row"},
    };
    for (const auto& each : cases) {
        std::string section = each.section;
        const std::size_t at = section.rfind(each.from);
        ASSERT_NE(at, std::string::npos) << each.from;
        section.replace(at, std::strlen(each.from), each.to);
        EXPECT_THAT(report(derivedFile(section)), HasSubstr(each.says));
    }
    // None of these is told of a file that has none of them; the group's own columns are another matter.
    EXPECT_EQ(report(derivedFile(join)), "");
    for (const std::string* good : {&rollup, &filter}) {
        const std::string told = report(derivedFile(*good));
        for (const char* word : {"no section", "has no attribute", "cannot read", "is missing", "gets no value: it", "statistic", "filter"}) {
            EXPECT_EQ(told.find(word), std::string::npos) << told;
        }
    }
}

TEST(Check, NoTextBreaksIt) {
    std::string good;
    for (const std::string& line : kGood) good += line + "\n";
    for (std::size_t cut = 0; cut <= good.size(); ++cut) checkReferenceText(good.substr(0, cut));
    std::mt19937 random(7);
    const std::string alphabet = "<>/=\"'&;!-? \n\t\x80" + std::string(1, '\0') + "aagmt";
    for (int i = 0; i < 500; ++i) {
        std::string text = i % 2 ? good : std::string();
        for (int n = 0; n < 20; ++n) {
            const std::size_t at = text.empty() ? 0 : random() % text.size();
            text.insert(at, 1, alphabet[random() % alphabet.size()]);
        }
        for (const Problem& p : checkReferenceText(text)) EXPECT_FALSE(formatProblem("f", text, p).empty());
    }
    std::string open, closed;
    for (int i = 0; i < 100000; ++i) {
        closed += "<a>";
        if (i < 3000) open += "<a>";
    }
    EXPECT_THAT(report(open + "<"), HasSubstr("error"));
    for (int i = 0; i < 100000; ++i) closed += "</a>";
    EXPECT_THAT(report(closed), HasSubstr("elements nest too deep"));
}

constexpr const char* kTask =
    "<task name=\"Restart it\" key=\"RESTART\" command=\"systemctl restart UNIT ${AGENT_BIN_DIR}\">\n"
    "<param name=\"UNIT\" startDelim=\"[\" endDelim=\"]\" overlapDelim=\"false\"/>\n"
    "<rc rc=\"0\" msg=\"done\" type=\"success\"/>\n"
    "<rc rc=\"5\" msg=\"no such unit\" type=\"DOESNT_EXIST\"/>\n"
    "</task>\n"
    "<task key=\"TWO\" command=\"x\"/>\n";

std::string withTask(const std::string& from, const std::string& to) {
    std::string text = fileWith(14, "</agent>", "");
    std::string task = kTask;
    const std::size_t at = task.find(from);
    EXPECT_NE(at, std::string::npos) << from;
    return text + task.replace(at, from.size(), to) + "</agent>";
}

TEST(Check, TellsWhatATaskDoesNotMean) {
    EXPECT_EQ(report(withTask("", "")), "");
    for (const char* good : {"restart 'a' \\'UNIT", "restart &quot;'\\&quot;&quot; '\\' UNIT"}) {
        EXPECT_EQ(report(withTask("restart UNIT", good)), "") << good;
    }
    const struct {
        const char *from, *to, *place, *says;
    } cases[] = {
        {"key=\"RESTART\" ", "", "15:1: error", "'task' needs the attribute 'key'"},
        {"key=\"TWO\"", "key=\"restart\"", "20:12: error", "another one ahead has the key 'restart'"},
        {"key=\"TWO\"", "key=\"a b\"", "20:12: error", "no command reaches this task"},
        {"key=\"TWO\"", "name=\"x\" key=\"\"", "20:21: error", "no command reaches this task"},
        {"${AGENT_BIN_DIR}", "${HOME}", "15:71: error", "'${HOME}' may not be substituted"},
        {"name=\"UNIT\"", "name=\"unit\"", "16:14: warning", "the task's command does not hold 'unit'"},
        {"startDelim=\"[\" ", "", "16:1: warning", "without a start delimiter"},
        {"endDelim=\"]\"", "endDelim=\"\"", "16:45: warning", "without an end delimiter"},
        {"\"false\"", "\"no\"", "16:62: warning", "only the exact text \"false\""},
        {"<param", "<parm", "16:1: error", "did you mean 'param'?"},
        {"key=\"TWO\"", "key=\"shutdown\"", "20:12: warning", "own command SHUTDOWN stands in front"},
        // The value's own quotes would end those of the command.
        {"restart UNIT", "restart 'a UNIT'", "15:69: warning", "'UNIT' stands within quotes"},
        {"restart UNIT", "restart UNIT &quot;'UNIT&quot;", "15:78: warning", "'UNIT' stands within quotes"},
        {"overlapDelim=\"false\"", "quote=\"yes\"", "16:55: warning", "put in as shell text"},
        {"rc=\"5\"", "rc=\"0\"", "18:9: warning", "return code 0 has a meaning already"},
        {"rc=\"5\"", "rc=\"five\"", "18:9: error", "'five' is no number"},
        {"\"success\"", "\"succes\"", "17:", "'succes' is no type of a return code; it counts as 10; did you mean 'SUCCESS'?"},
        {" type=\"DOESNT_EXIST\"", "", "18:1: warning", "without a type the status is 10"},
    };
    for (const auto& c : cases) {
        const std::string all = report(withTask(c.from, c.to));
        EXPECT_THAT(all, HasSubstr(std::string("f:") + c.place)) << c.to;
        EXPECT_THAT(all, HasSubstr(c.says)) << c.to;
    }
}

TEST(Check, KnowsTheTableOfActions) {
    const std::string group = "<ag table=\"ACT\" name=\"Take_Action_Status\"><attr name=\"TS\" type=\"1\" size=\"16\"/>"
                              "<attr name=\"TSKNAME\" type=\"1\" size=\"256\"/><attr name=\"TSKID\" type=\"0\" size=\"4\"/></ag>";
    EXPECT_EQ(report(fileWith(9, "</metadata>", group + "</metadata>")), "");
    std::string wrong = group;
    wrong.replace(wrong.find("TSKID"), 5, "TSKIDS");
    EXPECT_THAT(report(fileWith(9, "</metadata>", wrong + "</metadata>")), HasSubstr("no column of this table; did you mean 'TSKID'?"));
}

}  // namespace
