// Cells into row buffers.
#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <limits>

#include "collection/TestClass.h"
#include "collection/VXClientClass.h"
#include "foundation/Locale.h"
#include "platform/zlc.h"

namespace {

using namespace almanac::test;

ResultMetric* utf8Cell(const Metric* metric, const char* text) {
    auto* value = new UTF8String;
    value->initFromUTF8String(text);
    return new ResultMetric(metric, value);
}

// What one cell of a metric becomes in one attribute.
std::string written(const Attr& attribute, const std::function<ResultMetric*(Metric*)>& cell, int scale = 0) {
    Group group("WRITE", {attribute});
    TestClass c("WRITE", [&](TestClass& self) {
        ResultInstance* row = self.row();
        row->addMetric(cell(self.findMetric("V")));
        self.addResultInstance(row);
    });
    c.metric("V")->setScale(scale);
    c.collectData("x");
    RecordingSink sink(group.meta);
    c.sendDataToHBX(&sink, "node");
    return sink.column(0, "V");
}

TEST(RowWriting, EveryNumberFormIntoEveryNumberType) {
    const long long big = 5000000000LL;
    const struct {
        int type, length;
        long long value;
        const char* fromInt;    // of the value's low 32 bits
        const char* fromInt64;
    } cases[] = {
        {0, 4, -7, "-7", "-7"},
        {3, 4, 1234567, "1234567", "1234567"},
        {4, 2, 40000, "-25536", "-25536"},       // low bytes, no clamp at 16 bits
        {5, 4, big, "705032704", "2147483647"},  // only the 64-bit form clamps
        {0, 4, -big, "-705032704", "-2147483648"},
        {4, 2, big, "-3584", "-1"},              // clamped to 32 bits, then cut to its low bytes
        {6, 8, -1, "-1", "-1"},                  // widened with its sign
        {6, 8, big, "705032704", "5000000000"},
        {7, 8, LLONG_MIN, "0", "-9223372036854775808"},
        {9, 8, LLONG_MAX, "4294967295", "9223372036854775807"},  // 4 bytes of the value and zeros behind
    };
    for (const auto& c : cases) {
        const Attr attribute{"V", c.type, c.length};
        const std::string what = std::to_string(c.type) + "/" + std::to_string(c.length) + " " + std::to_string(c.value);
        EXPECT_EQ(written(attribute, [&](Metric* m) { return new ResultMetric(m, static_cast<int>(c.value)); }), c.fromInt) << what;
        EXPECT_EQ(written(attribute, [&](Metric* m) { return new ResultMetric(m, c.value); }), c.fromInt64) << what;
        EXPECT_EQ(written(attribute, [&](Metric* m) { return new ResultMetric(m, static_cast<unsigned long long>(c.value)); }),
                  c.fromInt64) << what;
    }
}

TEST(RowWriting, DoublesAreScaledRoundedAndSaturate) {
    const double nan = std::nan(""), inf = std::numeric_limits<double>::infinity();
    const struct {
        double value;
        int scale;
        const char* wide;
        const char* narrow;
    } cases[] = {
        {5.0, 2, "500", "500"},   {0.5, 0, "1", "1"},  {-0.5, 0, "-1", "-1"}, {1.494, 2, "149", "149"}, {-1.496, 2, "-150", "-150"},
        {1250, -2, "13", "13"},   {nan, 2, "0", "0"},  {0.4, 0, "0", "0"},
        {1e10, 0, "10000000000", "2147483647"},
        {-1e10, 0, "-10000000000", "-2147483648"},
        {1e300, 5, "9223372036854775807", "2147483647"},
        {-inf, 0, "-9223372036854775808", "-2147483648"},
    };
    for (const auto& c : cases) {
        const auto cell = [&](Metric* m) { return new ResultMetric(m, c.value); };
        EXPECT_EQ(written({"V", 7, 8}, cell, c.scale), c.wide) << c.value;
        EXPECT_EQ(written({"V", 0, 4}, cell, c.scale), c.narrow) << c.value;
    }
}

TEST(RowWriting, TextsAreCutAndPaddedAndOnlyStringsTakeHints) {
    const struct {
        const char* text;
        const char* hint;
        const char* string;
        const char* utf8;
    } cases[] = {
        {"abc", nullptr, "abc", "abc"},
        {"abcdefghij", nullptr, "abcdefgh", "abcdefgh"},
        {"", "1x:", "", ""},
        {"7F8A", "1x:", "7F:8A", "7F8A"},
        {"ab", "2a", "ab", "ab"},
    };
    for (const auto& c : cases) {
        const Attr attribute{"V", 2, 8, c.hint};
        EXPECT_EQ(written(attribute, [&](Metric* m) { return new ResultMetric(m, c.text); }), c.string) << c.text;
        EXPECT_EQ(written(attribute, [&](Metric* m) { return utf8Cell(m, c.text); }), c.utf8) << c.text;
    }
    EXPECT_EQ(written({"V", 2, 8}, [](Metric* m) { return new ResultMetric(m, static_cast<const char*>(nullptr)); }), "No value");
    // Text into a number column: its first bytes, no more than the column has.
    EXPECT_EQ(written({"V", 0, 4}, [](Metric* m) { return new ResultMetric(m, "ABCDEFGH"); }), std::to_string(0x44434241));
    EXPECT_EQ(written({"V", 2, 8}, [](Metric* m) { return new ResultMetric(m, 0x44434241); }).substr(0, 4), "ABCD");
}

TEST(RowWriting, AStringIsCutAtTheColumnAlsoInsideACharacter) {
    ZLC2_Locale const before = applicationLocale;
    applicationLocale = ZLC2_GetLocale();
    const std::string text = written({"V", 2, 5}, [](Metric* m) { return new ResultMetric(m, "\xC3\xA9\xC3\xA9\xC3\xA9\xC3\xA9"); });
    applicationLocale = before;
    EXPECT_EQ(text.substr(0, 4), "\xC3\xA9\xC3\xA9");  // what fits is there
}

TEST(RowWriting, HiddenMetricsAndHiddenAttributesDifferAndMissingCellsShift) {
    Group group("SHIFT", {{"-DASH", 0, 4}, {"A", 0, 4}, {"B", 0, 4}, {"C", 0, 4}});
    int cells = 5;
    TestClass c("SHIFT", [&cells](TestClass& self) {
        ResultInstance* row = self.row();
        const char* names[] = {"DASH", "A", "HIDDEN", "B", "C"};
        for (int i = 0; i < cells; ++i) row->addMetric(new ResultMetric(self.findMetric(names[i]), 10 + i));
        self.addResultInstance(row);
    });
    c.metric("DASH");
    c.metric("A");
    c.metric("HIDDEN", NUMERIC_DATA, false, true);
    c.metric("B");
    c.metric("C");
    const auto row = [&] {
        c.collectData("x");
        RecordingSink sink(group.meta);
        c.sendDataToHBX(&sink, "node");
        return sink.rows.empty() ? std::string("none") : sink.column(0, "A") + "," + sink.column(0, "B") + "," + sink.column(0, "C");
    };
    EXPECT_EQ(row(), "11,13,14");  // the `-` attribute took a cell, the hidden metric took no attribute
    cells = 4;
    EXPECT_EQ(row(), "none");      // strict: the whole row is left out
    c.setSkipIncompleteRows(false);
    EXPECT_EQ(row(), "11,13,0");   // a column that is never written is zero
    c.setSkipIncompleteRows(true);
    cells = 5;
    c.metric("MORE");
    c.setSkipIncompleteRows(false);
    EXPECT_EQ(row(), "11,13,14");
}

TEST(RowWriting, MoreCellsThanAttributesEndTheRow) {
    Group group("MANY", {{"A", 0, 4}});
    TestClass c("MANY", [](TestClass& self) {
        ResultInstance* row = self.row();
        for (const char* name : {"A", "B", "C"}) row->addMetric(new ResultMetric(self.findMetric(name), 9));
        self.addResultInstance(row);
    });
    for (const char* name : {"A", "B", "C"}) c.metric(name);
    c.collectData("x");
    RecordingSink sink(group.meta);
    EXPECT_TRUE(c.sendDataToHBX(&sink, "node"));
    EXPECT_EQ(sink.names("A"), "9,");
}

TEST(RowWriting, TheBufferKeepsTheRowBeforesBytes) {
    Group group("KEEP", {{"A", 0, 4}, {"B", 0, 4}});
    TestClass c("KEEP", [](TestClass& self) {
        for (int i = 1; i <= 3; ++i) {
            ResultInstance* row = self.row();
            row->addMetric(new ResultMetric(self.findMetric("A"), i));
            if (i != 2) row->addMetric(new ResultMetric(self.findMetric("B"), 100 * i));
            self.addResultInstance(row);
        }
    });
    c.setSkipIncompleteRows(false);
    c.metric("A");
    c.metric("B");
    c.collectData("x");
    RecordingSink sink(group.meta);
    c.sendDataToHBX(&sink, "origin name that is longer than its column of 32 bytes");
    EXPECT_EQ(sink.names("A"), "1,2,3,");
    EXPECT_EQ(sink.names("B"), "100,100,300,");
    EXPECT_EQ(sink.column(0, "ORIGINNODE"), "origin name that is longer than");
}

TEST(RowWriting, InstanceNamesHaveAColumnIfTheClassReturnsThem) {
    Group group("INST", {{"INSTANCE", 1, 8}, {"NAME", 2, 8}, {"N", 0, 4}});
    TestClass c("INST", [](TestClass& self) { self.addResultInstance(self.named("key", 4)); });
    c.withNameAndNumber();
    c.setReturnsInstanceName(true);
    c.collectData("x");
    RecordingSink sink(group.meta);
    c.sendDataToHBX(&sink, "node");
    EXPECT_EQ(sink.column(0, "INSTANCE") + sink.column(0, "NAME") + sink.column(0, "N"), "keykey4");
    c.setSendingEnabled(false);
    RecordingSink none(group.meta);
    EXPECT_TRUE(c.sendDataToHBX(&none, "node"));
    EXPECT_TRUE(none.rows.empty());
}

}  // namespace
