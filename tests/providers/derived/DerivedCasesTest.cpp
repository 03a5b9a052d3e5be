// Data-only cases: each folder of tests/cases/{join,rollup,filter} holds the tables to read in sources.txt (its form is
// told in SourceTable.h), a reference file with the derived groups, and in expected.txt what the attribute group "Group"
// must show after one collection.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "host/Scratch.h"
#include "providers/derived/SourceTable.h"
#include "runtime/reference/XMLConfigParser.h"

namespace fs = std::filesystem;

namespace {

using namespace almanac::test;
using almanac::host::test::readFile;

fs::path root() {
    const char* source = std::getenv("ALMANAC_SOURCE_DIR");
    return fs::path(source ? source : ".") / "tests/cases";
}

std::vector<std::string> caseNames() {
    std::vector<std::string> names;
    for (const char* kind : {"join", "rollup", "filter"}) {
        std::error_code missing;
        for (const auto& entry : fs::directory_iterator(root() / kind, missing)) {
            names.push_back(std::string(kind) + "/" + entry.path().filename().string());
        }
    }
    std::sort(names.begin(), names.end());
    return names;
}

class DerivedCase : public testing::TestWithParam<std::string> {};

TEST_P(DerivedCase, GivesWhatIsExpected) {
    const std::string folder = (root() / GetParam()).string();
    AllClasses classes;
    for (auto& table : tablesOf(readFile(folder + "/sources.txt"))) classes.add(table.release());
    ASSERT_TRUE(initFromFile((folder + "/ref.xml").c_str()));
    auto* group = static_cast<ResultsManager*>(classes.list.getClientClass("Group"));
    ASSERT_NE(group, nullptr) << "the section's end adds the class";
    group->collectDataIfNeeded("request");
    EXPECT_EQ(report(*group), readFile(folder + "/expected.txt"));
}

INSTANTIATE_TEST_SUITE_P(Derived, DerivedCase, testing::ValuesIn(caseNames()), [](const auto& info) {
    std::string name = info.param;
    std::replace_if(name.begin(), name.end(), [](char c) { return c == '-' || c == '/'; }, '_');
    return name;
});

TEST(DerivedCases, AreThere) { EXPECT_GE(caseNames().size(), 30u); }

}  // namespace
