// What the check of a reference file tells of a `process` section.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "runtime/check/ReferenceCheck.h"

namespace {

using testing::HasSubstr;
using testing::Not;

std::string report(const std::string& index) {
    const std::string text = "<agent>\n<appl name=\"TST\" affinity=\"X\"/>\n<metadata><ag table=\"P\" name=\"P\">"
                             "<attr name=\"Timestamp\" type=\"1\" size=\"16\"/><attr name=\"A\" type=\"0\" size=\"4\"/></ag></metadata>\n"
                             "<process app=\"TST\" ag=\"P\" name=\"p\">\n"
                             "<metric name=\"A\" type=\"NUMERIC_DATA\" key=\"true\" visible=\"true\" index=\"" + index + "\"/>\n"
                             "</process>\n</agent>\n";
    std::string all;
    for (const Problem& p : checkReferenceText(text)) all += formatProblem("f", text, p);
    return all;
}

}  // namespace

TEST(ProcessCheck, FiguresThatThereAre) {
    for (const char* index : {"0", "3", "15", "20", "25"}) EXPECT_EQ(report(index), "") << index;
    for (const char* index : {"16", "19", "26", "-1"}) {
        EXPECT_THAT(report(index), HasSubstr(std::string("warning: index '") + index + "' is unknown"));
        EXPECT_THAT(report(index), Not(HasSubstr("did you mean"))) << "a number near it is another figure";
    }
    EXPECT_THAT(report("three"), HasSubstr("error: 'three' is no number; it would count as 0"));
    EXPECT_THAT(report("three"), Not(HasSubstr("is unknown"))) << "told once";
}
