#include "host/model/RowWriter.h"

#include <gtest/gtest.h>

#include <climits>

#include "host/FakeAgent.h"
#include "host/framework/TableCatalog.h"
#include "host/model/Json.h"

namespace almanac::host {
namespace {

using test::FakeRow;
using test::FakeTable;

Batch batchOf(const std::vector<FakeRow>& rows) {
    FakeTable table("WRITTEN");
    TableEntry entry(&table);
    EXPECT_TRUE(entry.learn());
    Batch batch(entry.layout());
    for (const FakeRow& row : rows) EXPECT_TRUE(batch.append(row.bytes().data(), FakeRow::kBytes));
    return batch;
}

std::string written(const std::vector<FakeRow>& rows, RowFormat format,
                    const std::vector<std::string>& names = {}) {
    const Batch batch = batchOf(rows);
    std::vector<const Column*> columns;
    for (const std::string& name : names) columns.push_back(batch.layout()->find(name));
    std::string out;
    RowWriter(*batch.layout(), columns).appendRows(&out, batch, format);
    return out;
}

TEST(RowWriter, WritesEachFormat) {
    const std::vector<FakeRow> rows = {{"n", "a b", 1, INT64_MIN, 5, -3},
                                       {"n", "", -2147483648, INT64_MAX, -12345, 0}};
    EXPECT_EQ(written(rows, RowFormat::Json),
              "[{\"ORIGINNODE\":\"n\",\"NAME\":\"a "
              "b\",\"CPU\":1,\"SIZE\":-9223372036854775808,\"LOAD\":0.05,\"SMALL\":-3},"
              "{\"ORIGINNODE\":\"n\",\"NAME\":\"\",\"CPU\":-2147483648,\"SIZE\":9223372036854775807,\"LOAD\":"
              "-123.45,"
              "\"SMALL\":0}]");
    EXPECT_EQ(written(rows, RowFormat::Ndjson, {"LOAD", "name"}),
              "{\"LOAD\":0.05,\"NAME\":\"a b\"}\n{\"LOAD\":-123.45,\"NAME\":\"\"}\n");
    EXPECT_EQ(written(rows, RowFormat::Csv, {"NAME", "CPU"}), "NAME,CPU\r\na b,1\r\n,-2147483648\r\n");
    EXPECT_EQ(written({}, RowFormat::Json), "[]");
    EXPECT_EQ(written({}, RowFormat::Ndjson), "");
    EXPECT_EQ(written({}, RowFormat::Csv, {"CPU"}), "CPU\r\n");
}

TEST(RowWriter, TextsAreCleanWhateverTheRowHolds) {
    const struct {
        std::string cell, json, csv;
    } cases[] = {
        {"say \"hi\", \\", "\"say \\\"hi\\\", \\\\\"", "\"say \"\"hi\"\", \\\""},
        {"a\nb\tc\r\x01\x7f", "\"a\\nb\\tc\\r\\u0001\\u007f\"", "\"a\nb\tc\r\x01\x7f\""},
        {std::string("a\0b\0\0", 5), "\"a\\u0000b\"", std::string("\"a\0b\"", 5)},
        {"  lead", "\"  lead\"", "\"  lead\""},
        {"\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80", "\"\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80\"",
         "\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80"},
        // Lone continuation, overlong form, surrogate, above the range, cut at the end.
        {"\x80x", "\"\xEF\xBF\xBDx\"", "\xEF\xBF\xBDx"},
        {"\xC0\xAF", "\"\xEF\xBF\xBD\xEF\xBF\xBD\"", "\xEF\xBF\xBD\xEF\xBF\xBD"},
        {"\xED\xA0\x80", "\"\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\"", "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD"},
        {"\xF4\x90\x80\x80", "\"\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\"",
         "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD"},
        {"ab\xE2\x82", "\"ab\xEF\xBF\xBD\"", "ab\xEF\xBF\xBD"},
    };
    for (const auto& c : cases) {
        FakeRow row;
        row.name = c.cell;
        EXPECT_EQ(written({row}, RowFormat::Ndjson, {"NAME"}), "{\"NAME\":" + c.json + "}\n") << c.json;
        EXPECT_EQ(written({row}, RowFormat::Csv, {"NAME"}), "NAME\r\n" + c.csv + "\r\n") << c.json;
    }
}

TEST(RowWriter, DecimalsComeFromTheHint) {
    const struct {
        const char* hint;
        int decimals;
    } hints[] = {{"d-2", 2}, {"D-0", 0}, {"d-18", 18}, {"d-19", 0}, {"d", 0},
                 {"x-2", 0}, {"d-", 0},  {"d-2x", 0},  {"", 0}};
    for (const auto& h : hints) EXPECT_EQ(hintDecimals(h.hint), h.decimals) << h.hint;
    const struct {
        long long number;
        int decimals;
        const char* text;
    } numbers[] = {{12345, 2, "123.45"},
                   {-5, 2, "-0.05"},
                   {0, 3, "0.000"},
                   {100, 2, "1.00"},
                   {7, 0, "7"},
                   {LLONG_MIN, 18, "-9.223372036854775808"},
                   {LLONG_MIN, 0, "-9223372036854775808"}};
    for (const auto& n : numbers) {
        std::string out;
        appendDecimal(&out, n.number, n.decimals);
        EXPECT_EQ(out, n.text);
    }
}

TEST(RowWriter, JsonHasNoNumberThatIsNone) {
    std::string out;
    JsonWriter json(&out);
    json.beginArray().value(0.0 / 0.0).value(1.0 / 0.0).value(1e300).value(-0.25).value(true).endArray();
    EXPECT_EQ(out, "[null,null,null,-0.250000,true]");
}

TEST(Batch, CutsAndFillsRowsToTheLayout) {
    Batch batch = batchOf({});
    const std::size_t size = batch.layout()->rowSize;
    EXPECT_EQ(size, 66u);
    EXPECT_TRUE(batch.append("short", 5));
    EXPECT_TRUE(batch.append(std::string(200, 'x').data(), 200));
    ASSERT_EQ(batch.count(), 2u);
    EXPECT_EQ(std::string(batch.row(0), size), "short" + std::string(size - 5, '\0'));
    EXPECT_EQ(std::string(batch.row(1), size), std::string(size, 'x'));
    EXPECT_FALSE(Batch().append("x", 1));
}

}  // namespace
}  // namespace almanac::host
