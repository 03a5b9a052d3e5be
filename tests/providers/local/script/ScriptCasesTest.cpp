// Data-only cases: each folder of tests/cases/script holds a reference file with one script section, whose command
// prints output.txt, and what must come of it in expected.txt.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "foundation/Locale.h"
#include "platform/zsb.h"
#include "providers/local/script/ShellQueryClass.h"
#include "runtime/reference/XMLConfigParser.h"

namespace fs = std::filesystem;

namespace {

std::string contents(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

std::string valueOf(const ResultMetric* cell) {
    char text[64];
    switch (cell->form()) {
        case FORM_UTF8:
            return std::string("text <") + cell->getUTF8StringData()->getUTF8Value() + ">";
        case FORM_DOUBLE:
            std::snprintf(text, sizeof text, "double %g", cell->getMetricValueDouble());
            return text;
        case FORM_INT64:
            std::snprintf(text, sizeof text, "integer %lld", cell->getMetricValue64());
            return text;
        default:
            return "form " + std::to_string(cell->form());
    }
}

std::string report(ShellQueryClass& script) {
    std::string text = std::string(perfObjectStatusName(script.getPerfObjectStatus())) + " " +
                       perfObjectErrorCodeName(script.getPerfErrorCode()) + "\n";
    for (ListCursor r = script.getNewResultInstanceListCursor(); r.hasMoreElements(); r.setToNext()) {
        const auto* row = static_cast<ResultInstance*>(r.getCurrentElement());
        text += std::string("row <") + row->getInstanceName() + ">\n";
        for (const ResultMetric* c = row->firstCell(); c; c = nextCell(c)) {
            text += std::string("  ") + c->getQMPVMetricName() + " " + valueOf(c) + "\n";
        }
    }
    return text;
}

std::vector<std::string> caseNames() {
    const char* root = getenv("ALMANAC_SOURCE_DIR");
    std::vector<std::string> names;
    std::error_code missing;
    for (const auto& entry : fs::directory_iterator(fs::path(root ? root : ".") / "tests/cases/script", missing)) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

class ScriptCase : public testing::TestWithParam<std::string> {};

}  // namespace

TEST_P(ScriptCase, GivesWhatIsExpected) {
    const fs::path folder = fs::path(getenv("ALMANAC_SOURCE_DIR")) / "tests/cases/script" / GetParam();
    ZSV1_PutEnv(("CASE_DIR=" + folder.string()).c_str());
    applicationLocale = ZLC2_LocaleFor("ISO-8859-1");
    VXClientClassList list;
    queryClassList = &list;
    ASSERT_TRUE(initFromFile((folder / "ref.xml").c_str()));
    const std::unique_ptr<VXClientClass> query(list.getClientClass("Group"));
    queryClassList = nullptr;
    ASSERT_NE(query, nullptr) << "the section's end adds the class";
    list.removeClientClass(query.get());
    auto* script = static_cast<ShellQueryClass*>(query.get());
    script->internalCollectData("");
    EXPECT_EQ(report(*script), contents(folder / "expected.txt"));
    applicationLocale = nullptr;
    ZSV1_UnsetEnv("CASE_DIR");
}

INSTANTIATE_TEST_SUITE_P(Script, ScriptCase, testing::ValuesIn(caseNames()), [](const auto& info) {
    std::string name = info.param;
    std::replace(name.begin(), name.end(), '-', '_');
    return name;
});

TEST(ScriptCases, AreThere) { EXPECT_GE(caseNames().size(), 5u); }
