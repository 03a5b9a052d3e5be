#include "host/model/Filter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/FakeAgent.h"
#include "host/framework/TableCatalog.h"

namespace almanac::host {
namespace {

using test::FakeRequest;
using test::FakeRow;
using test::FakeTable;

std::shared_ptr<const TableLayout> fakeLayout() {
    FakeTable table("FILTERED");
    TableEntry entry(&table);
    EXPECT_TRUE(entry.learn());
    return entry.layout();
}

std::shared_ptr<const Filter> compile(const std::string& text, std::string* error = nullptr) {
    FilterError wrong;
    auto filter = Filter::compile(text, *fakeLayout(), &wrong);
    if (error) *error = filter ? "" : std::to_string(wrong.position) + ": " + wrong.message;
    return filter;
}

// Whether the row passes, asked the way the agent is asked: comparison by comparison through
// ColumnIsException.
bool passes(const std::string& text, const FakeRow& row) {
    std::string error;
    auto spec = std::make_shared<RequestSpec>();
    spec->filter = compile(text, &error);
    EXPECT_EQ(error, "") << text;
    FakeTable table("FILTERED");
    RequestDetail detail(spec);
    ContextInfo context;
    FakeRequest request(&detail, &context, &table);
    std::vector<char> bytes = row.bytes();
    return request.CheckForException(bytes.data()) == 1;
}

const FakeRow kRow = {"node", "java -jar x", 80, 5000000000LL, 125, -7};

TEST(Filter, PassesAndRefusesRows) {
    const struct {
        const char* text;
        bool passes;
    } cases[] = {
        {"CPU = 80", true},
        {"CPU == 80", true},
        {"CPU != 80", false},
        {"CPU <> 80", false},
        {"CPU < 80", false},
        {"CPU <= 80", true},
        {"CPU > 79", true},
        {"CPU >= 81", false},
        {"cpu=80", true},  // a column's name in another case
        {"SMALL = -7", true},
        {"SMALL > -8", true},
        // AND binds tighter than OR, whatever comes first.
        {"CPU = 80 OR CPU = 1 AND CPU = 2", true},
        {"CPU = 2 AND CPU = 1 OR CPU = 80", true},
        {"(CPU = 80 OR CPU = 1) AND CPU = 2", false},
        {"CPU = 1 or cpu = 80 aNd name = 'java -jar x'", true},
        // NOT reaches the whole of what follows.
        {"NOT CPU = 80", false},
        {"NOT (CPU = 1 OR SMALL = 2)", true},
        {"NOT (CPU = 80 AND SMALL = 2)", true},
        {"NOT NOT CPU = 80", true},
        {"NOT SCAN(NAME,'perl')", true},
        // Texts: padding never counts, order is by bytes.
        {"NAME = 'java -jar x'", true},
        {"NAME = 'java -jar x   '", true},
        {"NAME = 'java'", false},
        {"NAME > 'java'", true},
        {"NAME < 'java -k'", true},
        {"NAME != ''", true},
        {"SCAN(NAME, '-jar')", true},
        {"scan(NAME,'')", true},
        {"SCAN(NAME,'jar  ')", false},
        {"SUBSTR(NAME, 'java')", true},
        {"SUBSTR(NAME, 2, 'ava')", true},
        {"SUBSTR(NAME, 99, 'a')", false},
        {"SUBSTR(NAME, 'ava')", false},
        {"NOT SUBSTR(NAME, 'ava')", true},
        // Decimals are scaled by the column's hint; what lies between two stored numbers equals neither.
        {"LOAD = 1.25", true},
        {"LOAD = 1.250", true},
        {"LOAD > 1.2", true},
        {"LOAD < 1.255", true},
        {"LOAD >= 1.255", false},
        {"LOAD = 1.255", false},
        {"LOAD != 1.255", true},
        {"LOAD < 1", false},
        {"CPU > 79.5", true},
        {"CPU < 79.5", false},
        {"SMALL < -6.5", true},
        {"SMALL > -6.5", false},
        {"SMALL >= -7.5", true},
        // Wide columns are compared clamped to 32 bits.
        {"SIZE = 2147483647", true},
        {"SIZE > 2147483646", true},
        {"SIZE = 5000000000", false},
        {"SIZE < 5000000000", true},
        // A parameter is no comparison.
        {"PARMA('KEY','v') AND CPU = 80", true},
        {"CPU = 1 AND PARMA('KEY','v')", false},
        {"\"CPU\" = 80", true},
    };
    for (const auto& c : cases) EXPECT_EQ(passes(c.text, kRow), c.passes) << c.text;
    FakeRow quoted;
    quoted.name = "it's";
    EXPECT_TRUE(passes("NAME = 'it''s'", quoted));
}

TEST(Filter, ErrorsSayWhereAndWhat) {
    const struct {
        const char* text;
        const char* error;
    } cases[] = {
        {"", "1: expected a column name, NOT or '(', found the end of the filter"},
        {"CPU", "4: expected a comparison (= != < <= > >=), found the end of the filter"},
        {"CPU >", "6: expected a number, because CPU is a number column, found the end of the filter"},
        {"CPU > 'x'", "7: expected a number, because CPU is a number column, found ''x''"},
        {"NAME = 5", "8: expected a text in single quotes, because NAME is a text column, found '5'"},
        {"CPU > 1 CPU", "9: expected AND, OR or the end, found 'CPU'"},
        {"(CPU > 1", "9: expected AND, OR or ')', found the end of the filter"},
        {"CPU > 1)", "8: expected AND, OR or the end, found ')'"},
        {"CPU ! 1",
         "5: expected a comparison (= != < <= > >=), found '!' (a character that has no meaning here)"},
        {"CPU > 1x",
         "7: expected a number, because CPU is a number column, found '1x' (a number that cannot be read)"},
        {"CPU > 1.",
         "7: expected a number, because CPU is a number column, found '1.' (a number that cannot be read)"},
        {"NAME = 'x",
         "8: expected a text in single quotes, because NAME is a text column, found ''x' (a quote that is "
         "never closed)"},
        {"CPI > 1", "1: table FILTERED has no column 'CPI', did you mean 'CPU'?"},
        {"WHATEVER > 1", "1: table FILTERED has no column 'WHATEVER'"},
        {"CPU > 99999999999999999999", "7: the number '99999999999999999999' needs more than 64 bits"},
        {"SCAN(CPU,'x')", "6: CPU is a number column; SCAN and SUBSTR look into texts"},
        {"SUBSTR(NAME, 0, 'x')", "14: expected a position from 1 on, found '0'"},
        {"FIND(NAME,'x')", "1: no function has the name 'FIND'; there are SCAN, SUBSTR and PARMA"},
        {"NOT PARMA('a','b')", "5: a parameter cannot stand under NOT"},
    };
    for (const auto& c : cases) {
        std::string error;
        EXPECT_FALSE(compile(c.text, &error)) << c.text;
        EXPECT_EQ(error, c.error) << c.text;
    }
}

TEST(Filter, IsBoundedBeforeItIsBuilt) {
    std::string error;
    std::string product = "(CPU = 0 OR CPU = 1)";
    for (int i = 0; i < 40; ++i)
        product += " AND (CPU = 0 OR CPU = 1)";  // 2^41 conjunctions if multiplied out
    EXPECT_FALSE(compile(product, &error));
    EXPECT_THAT(error, testing::HasSubstr("more than 1000 comparisons"));

    std::string sum = "CPU = 0";
    for (int i = 1; i < 1000; ++i) sum += " OR CPU = 0";
    EXPECT_TRUE(compile(sum, &error)) << error;
    EXPECT_FALSE(compile(sum + " OR CPU = 0", &error));

    EXPECT_FALSE(compile(std::string(5000, '(') + "CPU = 0", &error));
    EXPECT_THAT(error, testing::HasSubstr("nested too deep"));
    std::string nots;
    for (int i = 0; i < 2000; ++i) nots += "NOT ";
    EXPECT_FALSE(compile(nots + "CPU = 0", &error));
    EXPECT_FALSE(compile(std::string(Filter::kMaxText + 1, ' '), &error));
}

TEST(Filter, ElementsAreWhatTheAgentReads) {
    const auto filter =
        compile("(CPU > 80 OR SIZE <= 5) AND SCAN(NAME,'ab ') OR PARMA('KEY','v') AND LOAD = 1.5");
    ASSERT_TRUE(filter);
    auto spec = std::make_shared<RequestSpec>();
    spec->filter = filter;
    FakeTable table("FILTERED");
    RequestDetail detail(spec);
    FakeRequest request(&detail, nullptr, &table);
    std::vector<std::string> seen;
    ZFL1_FILTERINFO* info = nullptr;
    while (request.GetFilterInfo(&info) == 0) {
        std::string value;
        if (info->dataType == HBX_DATA_INT32)
            value = std::to_string(*static_cast<const int*>(info->value));
        else if (info->dataType == HBX_DATA_INT64)
            value = std::to_string(*static_cast<const long long*>(info->value));
        else
            value.assign(static_cast<const char*>(info->value), static_cast<std::size_t>(info->valueLength));
        seen.push_back(std::string(info->column) + " f" + std::to_string(info->function) + " o" +
                       std::to_string(info->oper) + " c" + std::to_string(info->oper2) + " t" +
                       std::to_string(info->dataType) + " " + value +
                       (info->hasName ? std::string(" ") + info->name : ""));
    }
    EXPECT_EQ(info, nullptr);
    EXPECT_EQ(seen, (std::vector<std::string>{"CPU f0 o6 c8 t496 80", "NAME f6 o1 c7 t452 ab ",
                                              "SIZE f0 o4 c8 t492 5", "NAME f6 o1 c7 t452 ab ",
                                              "PARMA f1 o1 c8 t452 v KEY", "LOAD f0 o1 c0 t496 150"}));
    EXPECT_EQ(request.GetFilterInfo(&info), 1);
    request.ResetFilterIndex();
    EXPECT_EQ(request.GetFilterInfo(&info), 0);
}

TEST(Filter, NearestNameIsShortAndClose) {
    const std::vector<std::string_view> names = {"CPU", "MEMORY", "DISK_USED"};
    EXPECT_EQ(nearestName("MEMROY", names), "MEMORY");  // one swap
    EXPECT_EQ(nearestName("disk_use", names), "DISK_USED");
    EXPECT_EQ(nearestName("XYZ", names), "");
    EXPECT_EQ(nearestName(std::string(100000, 'x'), names), "");
}

}  // namespace
}  // namespace almanac::host
