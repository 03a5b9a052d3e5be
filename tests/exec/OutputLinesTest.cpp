#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "exec/OutputLines.h"

namespace {

std::vector<std::string> linesOf(const std::string& output, std::size_t size) {
    OutputLines lines(output);
    std::vector<std::string> all;
    std::string_view line;
    while (lines.next(size, line)) all.emplace_back(line);
    return all;
}

// The rule byte by byte: copy until a line feed, the end, or `size` bytes; step over what stopped it.
std::vector<std::string> model(const std::string& output, std::size_t size) {
    const std::string text(output.c_str());
    std::vector<std::string> all;
    for (std::size_t at = 0;;) {
        std::string line;
        while (at < text.size() && text[at] != '\n' && line.size() < size) line += text[at++];
        if (at < text.size()) ++at;
        if (line.empty()) return all;
        all.push_back(line);
    }
}

using Lines = std::vector<std::string>;
using std::string_literals::operator""s;

}  // namespace

TEST(OutputLines, Table) {
    struct Case {
        std::string output;
        Lines want;
    } cases[] = {
        {"", {}},
        {"one", {"one"}},
        {"one\ntwo\n", {"one", "two"}},
        {"one\n\ntwo\n", {"one"}},
        {"\none\n", {}},
        {"one\r\n\r\ntwo\n", {"one\r", "\r", "two"}},
        {"one\0two\nthree\n"s, {"one"}},
        // Eight bytes at most: the ninth of a longer line is lost.
        {"12345678\nnext\n", {"12345678", "next"}},
        {"123456789abc\nnext\n", {"12345678", "abc", "next"}},
        {"123456789\nnext\n", {"12345678"}},
        {"12345678", {"12345678"}},
    };
    for (const Case& c : cases) EXPECT_EQ(linesOf(c.output, 8), c.want) << c.output;
}

TEST(OutputLines, ALineOverTheBufferLosesOneByte) {
    const Lines lines = linesOf(std::string(10300, 'x') + "\nlast\n", 10240);
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[0].size(), 10240u);
    EXPECT_EQ(lines[1].size(), 59u);
    EXPECT_EQ(lines[2], "last");
}

TEST(OutputLines, AgreesWithTheRuleOnRandomBytes) {
    std::mt19937 random(5);
    for (int i = 0; i < 20000; ++i) {
        std::string output;
        for (unsigned long n = random() % 30; n > 0; --n) output += "abcd\n\r\0x"[random() % 8];
        const std::size_t size = 1 + random() % 8;
        ASSERT_EQ(linesOf(output, size), model(output, size)) << testing::PrintToString(output) << " by " << size;
    }
}
