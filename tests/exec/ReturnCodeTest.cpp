// What an exit code means: the numbers are a contract with the reference file's enumerations.
#include <gtest/gtest.h>

#include "exec/ReturnCodeListElement.h"

TEST(ReturnCode, TypesInAnyCase) {
    const struct {
        const char* type;
        int code;
    } cases[] = {
        {"OK", 0},
        {"success", 0},
        {"GENERAL_ERROR", 2},
        {"Warning", 3},
        {"NOT_RUNNING", 4},
        {"DEPENDENT_NOT_RUNNING", 5},
        {"ALREADY_RUNNING", 6},
        {"PREREQ_NOT_RUNNING", 7},
        {"TIMED_OUT", 8},
        {"DOESNT_EXIST", 9},
        {"TIMEOUT", 10},
        {"OK ", 10},
        {"", 10},
        {nullptr, 10},
        {"DEPENDENT_STILL_RUNNING", 11},
        {"insufficient_user_authority", 12},
    };
    for (const auto& c : cases) EXPECT_EQ(returnCodeOfType(c.type), c.code) << (c.type ? c.type : "null");
    for (const char* const* type = returnCodeTypes; *type; ++type) {
        EXPECT_NE(returnCodeOfType(*type), RC_UNKNOWN_TYPE) << *type << " is listed, but has no code";
    }
}

TEST(ReturnCode, AnElementStandsForNoTestUntilItsTypeIsSet) {
    const struct {
        const char* rc;
        int code;
    } cases[] = {{"3", 3}, {"-1", -1}, {"12x", 12}, {"x", 0}, {nullptr, 0}};
    for (const auto& c : cases) EXPECT_EQ(ReturnCodeListElement(c.rc, "m").getApplicationReturnCode(), c.code);
    ReturnCodeListElement element("1", nullptr);
    EXPECT_EQ(element.getMappedReturnCode(), RC_NOT_RUN);
    EXPECT_STREQ(element.getMessage(), "");
    element.setMappedReturnCode("warning");
    EXPECT_EQ(element.getMappedReturnCode(), RC_WARNING);
}
