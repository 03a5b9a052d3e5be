#include "host/server/HttpTarget.h"

#include <gtest/gtest.h>

#include "host/model/Table.h"
#include "host/server/RowsQuery.h"

namespace almanac::host {
namespace {

// "path|path?name=value&..." of a target, or "!" and the reason.
std::string read(const std::string& target) {
    std::string error;
    const auto parsed = parseTarget(target, &error);
    if (!parsed) return "!" + error;
    if (parsed->asterisk) return "*";
    std::string text;
    for (const std::string& segment : parsed->path) text += "|" + segment;
    for (const auto& [name, value] : parsed->query) text += "?" + name + "=" + value;
    return text;
}

TEST(HttpTarget, ReadsWhatTheStandardAllowsAndNothingElse) {
    const std::pair<const char*, const char*> cases[] = {
        {"/", ""},
        {"/a/b", "|a|b"},
        {"/a/", "|a|"},
        {"//a", "||a"},
        {"*", "*"},
        {"/a?x=1&y=&z&&x=2", "|a?x=1?y=?z=?x=2"},
        {"/a?x=1+2%2B3%26", "|a?x=1 2+3&"},
        {"/a%2Fb/c%20d+e", "|a/b|c d+e"},
        {"/a?x=b=c?d", "|a?x=b=c?d"},
        {"http://host/a?x=1", "|a?x=1"},
        {"HTTPS://host", ""},
        {"http://h?x=1", "?x=1"},
        {"/a%2", "!the path has a broken percent escape"},
        {"/a%zz", "!the path has a broken percent escape"},
        {"/%00", "!the path has a broken percent escape"},
        {"/a?x=%0", "!the query has a broken percent escape"},
        {"/a?%=1", "!the query has a broken percent escape"},
        {"a/b", "!the request target is neither a path nor an http address"},
        {"", "!the request target is neither a path nor an http address"},
        {"ftp://x/a", "!the request target is neither a path nor an http address"},
        {"http:///a", "!the request target has no host"},
        {"/a#b", "!the request target has a fragment"},
    };
    for (const auto& [target, expected] : cases) EXPECT_EQ(read(target), expected) << target;
    std::string many = "/a?";
    for (int i = 0; i < 65; ++i) many += "x=1&";
    EXPECT_EQ(read(many), "!the query has more than 64 parameters");
}

TEST(HttpTarget, AcceptIsWeighed) {
    const std::vector<std::string_view> offers = {"application/json", "application/x-ndjson", "text/csv"};
    const std::pair<const char*, int> cases[] = {
        {"", 0},
        {"*/*", 0},
        {"text/csv", 2},
        {"TEXT/CSV", 2},
        {"text/*", 2},
        {"application/*", 0},
        {"application/x-ndjson, application/json;q=0.9", 1},
        {"application/json;q=0.1, text/csv;q=0.2", 2},
        // The exact name counts more than the pattern, wherever it stands.
        {"*/*, application/json;q=0", 1},
        {"application/json;q=0.1, */*;q=0.5", 1},
        {"text/html", -1},
        {"text/html, */*;q=0.1", 0},
        {"text/csv;q=0", -1},
        {"image/*;q=1, text/csv ; q=0.001", 2},
        {"text/csv;charset=utf-8", 2},
        {"text/csv;q=2, application/json", 0},
        {"text/csv;q=x", -1},
        {"*/csv", -1},
        {",,;q=1,/", -1},
        {"   ", 0},
        {"text/csv;q=1.0000", -1},
    };
    for (const auto& [accept, expected] : cases) EXPECT_EQ(negotiate(accept, offers), expected) << accept;
}

TEST(HttpTarget, OnlyLoopbackNamesAreThisMachine) {
    for (const char* good :
         {"localhost", "LocalHost:80", "127.0.0.1", "127.0.0.1:65535", "[::1]", "[::1]:8080"})
        EXPECT_TRUE(isLoopbackAuthority(good)) << good;
    for (const char* bad : {"", "evil.example", "localhost.evil.example", "127.0.0.1.evil", "localhost:80x",
                            "127.0.0.1:123456", "[::1]x", "user@localhost", "::1"})
        EXPECT_FALSE(isLoopbackAuthority(bad)) << bad;
}

TEST(RowsQuery, IsReadStrictly) {
    TableLayout layout;
    layout.name = "T";
    layout.columns = {{"NAME", "", 0, 8, HBX_TEXT, ColumnKind::Text, 0},
                      {"CPU", "", 8, 4, HBX_INT32, ColumnKind::Int32, 0}};
    layout.rowSize = 12;
    const auto parse = [&layout](const std::string& query, ApiResponse* wrong, const char* accept = "") {
        std::string error;
        return parseRowsQuery(*parseTarget("/r?" + query, &error), accept, layout, wrong);
    };
    ApiResponse wrong;
    const auto good = parse(
        "filter=CPU>1&columns=CPU,NAME&columns=cpu&node=a,b&node=c&limit=7&deadline=1.5&format=csv",
        &wrong, "text/html");
    ASSERT_TRUE(good);
    EXPECT_TRUE(good->filter);
    EXPECT_EQ(good->columns.size(), 3u);
    EXPECT_EQ(good->nodes, (std::vector<std::string>{"a,b", "c"}));
    EXPECT_EQ(good->limit, 7u);
    EXPECT_EQ(good->deadline.count(), 1500);
    EXPECT_EQ(good->format, RowFormat::Csv);
    EXPECT_EQ(parse("deadline=250ms", &wrong)->deadline.count(), 250);
    EXPECT_EQ(parse("deadline=2s", &wrong)->deadline.count(), 2000);
    EXPECT_EQ(parse("filter=", &wrong)->filter, nullptr);
    EXPECT_EQ(parse("", &wrong, "application/x-ndjson")->format, RowFormat::Ndjson);
    EXPECT_FALSE(parse("", &wrong, "text/html"));
    EXPECT_EQ(wrong.status, 406);
    for (const char* bad :
         {"limit=-1", "limit=", "limit=1x", "limit=2147483648", "limit=1&limit=2", "deadline=0",
          "deadline=nan", "deadline=inf", "deadline=3601", "deadline=1m", "deadline=", "deadline=-5",
          "format=xml", "columns=CPX", "filter=CPU>", "nothing=1", "=1"}) {
        EXPECT_FALSE(parse(bad, &wrong)) << bad;
        EXPECT_EQ(wrong.status, 400) << bad;
    }
}

}  // namespace
}  // namespace almanac::host
