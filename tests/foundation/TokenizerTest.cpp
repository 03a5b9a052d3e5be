#include <gtest/gtest.h>

#include <optional>
#include <random>
#include <string>
#include <vector>

#include "foundation/StringTokenizer.h"

namespace {

std::vector<std::string> split(const std::string& text, const char* delimiters, bool anyOf) {
    StringTokenizer tokens(text.c_str(), delimiters, anyOf);
    std::vector<std::string> all;
    while (const char* token = tokens.next()) all.emplace_back(token);
    return all;
}

// The rule as a sentence: cut at the first delimiter until nothing is left.
std::vector<std::string> model(std::string rest, const std::string& delimiters, bool anyOf) {
    std::vector<std::string> all;
    while (!rest.empty()) {
        const std::size_t at = anyOf ? rest.find_first_of(delimiters) : rest.find(delimiters);
        all.push_back(rest.substr(0, at));
        if (at == std::string::npos) break;
        rest = rest.substr(at + (anyOf ? 1 : delimiters.size()));
    }
    return all;
}

using Tokens = std::vector<std::string>;

}  // namespace

TEST(StringTokenizer, Table) {
    struct Case {
        const char* text;
        const char* delimiters;
        bool anyOf;
        Tokens want;
    } cases[] = {
        {"a,,b", ",", false, {"a", "", "b"}},
        {"a,", ",", false, {"a"}},
        {"", ",", false, {}},
        {",", ",", true, {""}},
        {"a;b,c", ",;", true, {"a", "b", "c"}},
        {"a;b,;c", ",;", false, {"a;b", "c"}},
        {"a,,;", ",;", true, {"a", "", ""}},
        {"whole", "", true, {"whole"}},
        {"whole", "", false, {"whole"}},
        {"aab", "ab", false, {"a"}},
    };
    for (const Case& c : cases) EXPECT_EQ(split(c.text, c.delimiters, c.anyOf), c.want) << c.text << " at " << c.delimiters;
    EXPECT_EQ(StringTokenizer(nullptr, ",", true).next(), nullptr);
}

TEST(StringTokenizer, ATokenStaysUntilTheNextCallAndTheEndStays) {
    StringTokenizer tokens("one,two", ",", true);
    const char* first = tokens.next();
    EXPECT_STREQ(first, "one");
    EXPECT_STREQ(tokens.next(), "two");
    EXPECT_EQ(tokens.next(), nullptr);
    EXPECT_EQ(tokens.next(), nullptr);
}

TEST(StringTokenizer, AgreesWithTheRuleOnRandomTexts) {
    std::mt19937 random(11);
    for (int i = 0; i < 20000; ++i) {
        std::string text, delimiters;
        for (unsigned long n = random() % 12; n > 0; --n) text += "ab,;"[random() % 4];
        for (unsigned long n = 1 + random() % 2; n > 0; --n) delimiters += ",;a"[random() % 3];
        const bool anyOf = random() % 2 == 1;
        ASSERT_EQ(split(text, delimiters.c_str(), anyOf), model(text, delimiters, anyOf)) << text << " at " << delimiters;
    }
}
