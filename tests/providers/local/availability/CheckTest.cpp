// What the check of a reference file tells of the sections of the availability table.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "providers/local/availability/AvailabilityList.h"
#include "runtime/check/ReferenceCheck.h"

namespace {

using testing::HasSubstr;

// A file with the table's metadata and these sections, which stand from line 4 on.
std::string fileWith(const std::string& sections, const std::string& group = "Availability") {
    std::string text = "<agent>\n<appl name=\"TST\" affinity=\"X\"/>\n<metadata><ag table=\"AV\" name=\"" + group +
                       "\"><attr name=\"TIMESTAMP\" type=\"1\" size=\"16\"/>";
    for (const FixedMetric* m = AVAIL_METRICS; m->name; ++m) {
        text += std::string("<attr name=\"") + m->name + "\" type=\"" + (m->rawType == STRING_DATA ? "2" : "0") + "\" size=\"" +
                std::to_string(m->size) + "\"/>";
    }
    return text + "</ag></metadata>\n" + sections + "\n</agent>\n";
}

std::string changed(std::string text, const std::string& from, const std::string& to) {
    const std::size_t at = text.find(from);
    EXPECT_NE(at, std::string::npos) << from;
    return text.replace(at, from.size(), to);
}

std::string report(const std::string& text) {
    std::string all;
    for (const Problem& p : checkReferenceText(text)) all += formatProblem("f", text, p);
    return all;
}

const std::string kProcesses =
    "<process_list><process name=\"A\" procname=\"a\" matcharg=\"true\" arg=\"${ANY}\"/></process_list>";
const std::string kTests =
    "<app_ping_list><app_ping name=\"P\" script=\"x\"><rc rc=\"0\" msg=\"m\" type=\"Success\"/></app_ping></app_ping_list>";

}  // namespace

TEST(AvailabilityCheck, WholeSectionsHaveNoProblems) {
    EXPECT_EQ(report(fileWith(kProcesses)), "");
    EXPECT_EQ(report(fileWith(kTests)), "");
    EXPECT_EQ(report(fileWith(kTests + kProcesses + kProcesses)), "");
}

TEST(AvailabilityCheck, TypesOfReturnCodes) {
    EXPECT_THAT(report(fileWith(changed(kTests, "Success", "timedout"))),
                HasSubstr("f:4:71: warning: type 'timedout' is unknown and has no meaning of its own; did you mean 'TIMED_OUT'?"));
    EXPECT_THAT(report(fileWith(changed(kTests, " type=\"Success\"", ""))), HasSubstr("error: 'rc' needs the attribute 'type'"));
    EXPECT_THAT(report(fileWith(changed(kTests, "rc=\"0\"", "rc=\"zero\""))), HasSubstr("'zero' is no number"));
}

TEST(AvailabilityCheck, FaultsOfFiltersAndScripts) {
    EXPECT_THAT(report(fileWith(changed(kProcesses, "procname", "procnam"))), HasSubstr("did you mean 'procname'?"));
    EXPECT_THAT(report(fileWith(changed(kProcesses, "=\"true\"", "=\"yes\""))), HasSubstr("'yes' counts as false"));
    EXPECT_THAT(report(fileWith(changed(kProcesses, " arg=", " value="))), HasSubstr("'matcharg' compares nothing without the attribute 'arg'"));
    EXPECT_THAT(report(fileWith(changed(kProcesses, "procname=\"a\"", "procname=\"*\""))), HasSubstr("warning: 'matcharg' plays no part"));
    const std::string rc = "<rc rc=\"0\" type=\"OK\"/>";
    const std::string test = "<app_ping name=\"P\" script=\"x\"/>";
    EXPECT_EQ(report(fileWith("<app_ping_list>" + test + rc + "</app_ping_list>")), "") << "it belongs to the test before";
    const std::string wrong = report(fileWith("<app_ping_list>" + rc + test + test + rc + test + "</app_ping_list>"));
    EXPECT_THAT(wrong, HasSubstr("f:4:16: error: the rc stands in no app_ping"));
    EXPECT_THAT(wrong, HasSubstr("f:4:38: warning: the test has no rc element"));
    EXPECT_THAT(wrong, HasSubstr("f:4:122: warning: the test has no rc element"));
    EXPECT_EQ(std::count(wrong.begin(), wrong.end(), '\n'), 3 * 3);
    EXPECT_THAT(report(fileWith(changed(kTests, "\"x\"", "\"${HOME}/x\""))), HasSubstr("'${HOME}' may not be substituted"));
}

TEST(AvailabilityCheck, FiltersThatDoNotWhatTheySay) {
    const auto process = [](const std::string& attributes) {
        return report(fileWith("<process_list><process name=\"A\" " + attributes + "/></process_list>"));
    };
    const struct {
        const char* attributes;
        const char* warning;
    } cases[] = {
        {"procname=\"/bin/a\"", "f:4:43: warning: no base name holds a '/' or a blank: nothing matches"},
        {"procname=\"a -x\"", "no base name holds a '/' or a blank"},
        {"procname=\"http*\"", "'http*' is compared as it is"},
        {"procname=\"\"", "an empty 'procname' is not '*'"},
        {"procname=\"a\" fullname=\"/bin\"", "'fullname' plays no part: 'matchfullname' is not \"true\""},
        {"procname=\"a\" matchfullname=\"true\" fullname=\"/a b\"", "'/a b' never matches: 'matchfullname' cuts"},
        {"procname=\"a\" arg=\"-x\" matcharg=\"false\"",
         "'arg' plays no part: none of 'matcharg', 'matchfullarg', 'matchargwithvalue' is \"true\""},
        {"procname=\"a\" arg=\"-x\" matcharg=\"true\" value=\"1\"", "'value' plays no part"},
        {"procname=\"a\" arg=\"-x y\" matchfullarg=\"true\"", "'-x y' never matches: 'matchfullarg' cuts"},
        {"procname=\"a\" arg=\"-x=1\" value=\"1\" matchargwithvalue=\"true\"", "'-x=1' never matches"},
        {"procname=\"a\" arg=\"-x\" value=\"a=b\" matchargwithvalue=\"true\"", "'a=b' never matches"},
        {"procname=\"a\" childApplicationCompName=\"Kids\"", "'childApplicationCompName' plays no part"},
    };
    for (const auto& c : cases) {
        const std::string told = process(c.attributes);
        EXPECT_THAT(told, HasSubstr(c.warning)) << c.attributes;
        EXPECT_EQ(std::count(told.begin(), told.end(), '\n'), 3) << told;
    }
    for (const char* fine : {"procname=\"${DIR}/a\"", "procname=\"a\" arg=\"-x=1 y\" matcharg=\"true\"",
                             "procname=\"a\" arg=\"-x=1\" matchfullarg=\"true\"",
                             "procname=\"a\" includeChildProcesses=\"true\" childApplicationCompName=\"Kids\""}) {
        EXPECT_EQ(process(fine), "");
    }
}

TEST(AvailabilityCheck, ReturnCodesThatCountOtherwise) {
    const auto section = [](const std::string& content) {
        return report(fileWith("<app_ping_list>" + content + "</app_ping_list>"));
    };
    const std::string test = "<app_ping name=\"P\" script=\"x\">";
    const std::string rc = "<rc rc=\"1\" type=\"OK\"/>";
    EXPECT_THAT(section(test + rc + rc + "</app_ping>"), HasSubstr("return code 1 has a meaning already; the last one counts"));
    EXPECT_EQ(section(test + rc + "</app_ping>" + test + rc + "</app_ping>"), "") << "each test has codes of its own";
    EXPECT_THAT(section(test + "<rc rc=\"256\" type=\"OK\"/></app_ping>"), HasSubstr("no command ends with 256"));
    EXPECT_THAT(section(test + "<rc rc=\"-1\" type=\"OK\"/></app_ping>"), HasSubstr("no command ends with -1"));
    EXPECT_THAT(section("<app_ping name=\"P\" script=\"\">" + rc + "</app_ping>"), HasSubstr("an empty script always ends with"));
    // The code behind the inner test is the inner test's.
    EXPECT_THAT(section(test + test + "</app_ping>" + rc + "</app_ping>"), HasSubstr("f:4:16: warning: the test has no rc element"));
}

TEST(AvailabilityCheck, TheAttributeGroupAndItsSections) {
    EXPECT_THAT(report(fileWith("")), HasSubstr("attribute group 'Availability' has no data source"));
    EXPECT_THAT(report(fileWith("<process_list></process_list>")), HasSubstr("f:4:1: warning: the section is empty"));
    EXPECT_THAT(report(fileWith(kTests, "Available")),
                HasSubstr("f:4:1: error: attribute group 'Availability', which this section fills, is not declared"));
    const std::string script = "<script app=\"TST\" ag=\"Availability\" name=\"s\" command=\"x\" separator=\",\">"
                               "<metric name=\"Name\" type=\"STRING_DATA\"/></script>";
    EXPECT_THAT(report(fileWith(script + kTests)), HasSubstr("attribute group 'Availability' has a data source already"));
}

TEST(AvailabilityCheck, CellsMatchAttributesByPosition) {
    const std::string good = fileWith(kTests);
    EXPECT_THAT(report(changed(good, "\"Virtual_Size\"", "\"Working_Set_Size\"")),
                HasSubstr("'Working_Set_Size' meets the column 'Virtual_Size'"));
    EXPECT_THAT(report(changed(good, "name=\"PID\" type=\"0\"", "name=\"PID\" type=\"2\"")), HasSubstr("the column 'PID' is a number"));
    EXPECT_THAT(report(changed(good, "</ag>", "<attr name=\"More\" type=\"0\" size=\"4\"/></ag>")),
                HasSubstr("attribute 'More' gets no value: the table has no column left"));
    EXPECT_EQ(report(changed(good, "\"Name\"", "\"What\"")), "") << "an attribute may have a name of its own";
}
