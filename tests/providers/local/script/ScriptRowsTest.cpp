// Lines into rows, without a shell.
#include "providers/local/script/ScriptRows.h"

#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <string>
#include <vector>

#include "foundation/StringTokenizer.h"
#include "host/base/Trace.h"

namespace {

// Keeps the error lines of thousands of skipped lines out of the test's log.
class Quiet {
  public:
    Quiet() { almanac::host::configureTrace("NONE", nullptr); }
    ~Quiet() { almanac::host::configureTrace(before_, nullptr); }

  private:
    std::string before_ = almanac::host::traceSpec();
};

// A chain of text metrics named A, B, C …
class TextMetrics {
  public:
    explicit TextMetrics(int count) {
        for (int i = 0; i < count; ++i) {
            metrics_.push_back(std::make_unique<Metric>());
            metrics_.back()->setQMPVName(std::string(1, static_cast<char>('A' + i)).c_str());
            metrics_.back()->setRawMetricType(STRING_DATA);
            if (i > 0) metrics_[metrics_.size() - 2]->setNextElement(metrics_.back().get());
        }
    }
    Metric* first() { return metrics_[0].get(); }
    Metric* at(std::size_t i) { return metrics_[i].get(); }

  private:
    std::vector<std::unique_ptr<Metric>> metrics_;
};

using Fields = std::vector<std::string>;

Fields fieldsOf(const ResultInstance* row) {
    Fields fields;
    for (const ResultMetric* c = row ? row->firstCell() : nullptr; c; c = static_cast<const ResultMetric*>(c->getNextElement())) {
        fields.emplace_back(c->getUTF8StringData()->getUTF8Value());
    }
    return fields;
}

Fields cut(const std::string& line, const char* separator, int count) {
    TextMetrics metrics(count);
    return fieldsOf(ScriptRows(metrics.first(), count, separator, true).row(line).get());
}

// The rule by its steps: strip, append the separator to a line of usual length, let the tokenizer cut.
Fields model(std::string line, const char* separator, int count) {
    for (int n = 0; n < 2 && line.size() > 1 && (line.back() == '\r' || line.back() == '\n'); ++n) line.pop_back();
    if (line.size() < 10238) line += separator;
    StringTokenizer tokens(line.c_str(), separator, true);
    Fields fields;
    while (static_cast<int>(fields.size()) < count) {
        const char* token = tokens.next();
        if (!token) return {};
        fields.emplace_back(token);
    }
    return fields;
}

}  // namespace

TEST(ScriptRows, FieldsOfALine) {
    struct Case {
        const char* line;
        const char* separator;
        Fields want;  // as many as there are metrics
    } cases[] = {
        {"a,,c", ",", {"a", "", "c"}},
        {"a,b,", ",", {"a", "b", ""}},
        {",,", ",", {"", "", ""}},
        {"a;b|c", "|;", {"a", "b", "c"}},
        {"a,b,c,d", ",", {"a", "b"}},
        {"whole line", ",", {"whole line"}},
        {"a,b", "", {"a,b"}},
        // The whole separator stands behind the line: its second byte makes one field more.
        {"a,b", ",;", {"a", "b", ""}},
        {"a", ",;|", {"a", "", ""}},
        {"a,b\r", ",", {"a", "b"}},
        {"a,b\n\r\r", ",", {"a", "b\n"}},
        {"\r", ",", {"\r"}},
    };
    for (const Case& c : cases) EXPECT_EQ(cut(c.line, c.separator, static_cast<int>(c.want.size())), c.want) << c.line;
    EXPECT_EQ(cut("a,b", ",", 3), Fields{}) << "too few fields";
    EXPECT_EQ(cut("a,b", ",;", 4), Fields{});
    EXPECT_EQ(cut("a,b", "", 2), Fields{});
}

TEST(ScriptRows, LongLinesLoseAnEmptyLastField) {
    const Quiet quiet;
    const std::string usual = std::string(10236, 'x') + ",";
    const std::string longer = std::string(10237, 'x') + ",";
    EXPECT_EQ(cut(usual, ",", 2).size(), 2u);
    EXPECT_EQ(cut(longer, ",", 2).size(), 0u);
    EXPECT_EQ(cut(std::string(10237, 'x') + ",y", ",", 2).size(), 2u);

    TextMetrics metrics(1);
    std::vector<std::size_t> sizes;
    const std::string output = std::string(10300, 'x') + "\nlast\n";
    ScriptRows(metrics.first(), 1, ",", true).read(OutputLines(output), [&](ResultInstance* row) {
        const std::unique_ptr<ResultInstance> owned(row);
        sizes.push_back(fieldsOf(row)[0].size());
    });
    EXPECT_EQ(sizes, (std::vector<std::size_t>{10240, 59, 4})) << "a cut line goes on as a further one, less one byte";
}

TEST(ScriptRows, AgreesWithTheTokenizerOnRandomLines) {
    const Quiet quiet;
    std::mt19937 random(17);
    for (int i = 0; i < 30000; ++i) {
        std::string line, separator;
        for (unsigned long n = 1 + random() % 10; n > 0; --n) line += "ab,;|\r"[random() % 6];
        for (unsigned long n = random() % 4; n > 0; --n) separator += ",;|"[random() % 3];
        const int count = 1 + static_cast<int>(random() % 5);
        ASSERT_EQ(cut(line, separator.c_str(), count), model(line, separator.c_str(), count))
            << testing::PrintToString(line) << " at " << separator << " into " << count;
    }
}

TEST(ScriptRows, CellsByTypeAndRowsByKey) {
    TextMetrics metrics(4);
    metrics.at(1)->setRawMetricType(NUMERIC_DATA);
    metrics.at(2)->setRawMetricType(PREVIOUS_STRING_DATA);
    metrics.at(3)->setRawMetricType(RATE_DATA);
    metrics.at(0)->setIsKey(true);
    metrics.at(1)->setIsKey(true);
    const auto row = ScriptRows(metrics.first(), 4, ",", true).row("disk,7,text,12abc");
    ASSERT_NE(row, nullptr);
    EXPECT_STREQ(row->getInstanceName(), "disk|7");
    EXPECT_EQ(row->getExpectedMetricCount(), 4);
    const ResultMetric* number = row->getMetric("B");
    EXPECT_TRUE(number->isNumber64());
    EXPECT_EQ(number->getMetricValue64(), 7);
    EXPECT_TRUE(row->getMetric("C")->isUTF8String());
    EXPECT_TRUE(row->getMetric("D")->isNumberDouble());
    EXPECT_EQ(row->getMetric("D")->getMetricValueDouble(), 12.0);
    const auto empty = ScriptRows(metrics.first(), 4, ",", true).row(",,,");
    EXPECT_EQ(empty->getMetric("B")->getMetricValue64(), 0) << "an empty number is 0, an empty text empty";
    EXPECT_EQ(empty->getMetric("A")->getUTF8StringData()->getLength(), 0);
}

// An output cut at any byte gives the same rows as far as its lines are whole.
TEST(ScriptRows, ACutOutputGivesTheRowsBeforeTheCut) {
    const Quiet quiet;
    TextMetrics metrics(3);
    ScriptRows reader(metrics.first(), 3, ",", true);
    const auto rowsOf = [&](const std::string& output) {
        std::vector<Fields> rows;
        reader.read(OutputLines(output), [&](ResultInstance* row) {
            const std::unique_ptr<ResultInstance> owned(row);
            rows.push_back(fieldsOf(row));
        });
        return rows;
    };
    const std::string output = "a,b,c\nshort\nd,,f\r\ng,h,i,j\n";
    const std::vector<Fields> whole = rowsOf(output);
    ASSERT_EQ(whole.size(), 3u);
    for (std::size_t n = 0; n < output.size(); ++n) {
        const std::vector<Fields> part = rowsOf(output.substr(0, n));
        ASSERT_LE(part.size(), whole.size());
        for (std::size_t i = 0; i + 1 < part.size(); ++i) EXPECT_EQ(part[i], whole[i]) << "cut at " << n;
    }
}
