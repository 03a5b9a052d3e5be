#include <gtest/gtest.h>

#include <cstdlib>
#include <random>
#include <string>

#include "foundation/DisplayHint.h"

namespace {

std::string shown(const char* hint, const std::string& value) {
    char* text = DisplayHint::stringFromHint(hint, value.data(), static_cast<int>(value.size()));
    std::string result(text);
    std::free(text);
    return result;
}

std::string shownNumber(const char* hint, int value) {
    char* text = DisplayHint::stringFromHint(hint, value);
    std::string result(text);
    std::free(text);
    return result;
}

using std::string_literals::operator""s;

}  // namespace

TEST(DisplayHint, OctetStrings) {
    struct Case {
        const char* hint;
        std::string value;
        const char* want;
    } cases[] = {
        // A dump of octets.
        {"1x:", "0x0a0b0c", "0a:0b:0c"},
        {"1d.", "0xc0a80101", "192.168.1.1"},
        {"2d-1d-1d,1d:1d:1d.1d,1a1d:1d", "0x07c8051a0d1e0f00", "1992-5-26,13:30:15.0"},
        {"4d", "0xffffffff", "-1"},
        {"1d", "0x", ""},
        // The look ahead of one octet lets a separator follow the last group of two.
        {"2x:", "0x0a0b0c0d", "0a0b:0c0d:"},
        // Octets themselves: digits of hexadecimal come in pairs of characters, decimal groups are text.
        {"1x:", "abcd", "ab:cd"},
        {"1d.1d", "78", "7.8"},
        {"255a", "Hello", "Hello"},
        {"3a", "Hello", "Hello"},
        {"3a-2t", "Hello", "Hel-lo"},
        {"1o:", "\x08\x10\x20", "10:20:40"},
        {"2o", "\x01\x02\xff", "402377"},
        // A leading count, also as a signed byte, and the separator behind the repeated groups.
        {"*1a:/1a", "\x02xyz", "x:y:/z"},
        {"*1a./1a", "\x00z"s, "/z"},
        {"*1a./1a", "\xffz"s, "/z"},
        {"*1a.", "\x05xy", "x.y"},
        // A part that cannot be read ends the walk; octets left over are dropped.
        {"", "abc", ""},
        {"q", "abc", ""},
        {"1q", "abc", ""},
        {"*", "abc", ""},
        {"1a:zz", "abc", "a:"},
        {"0a[1d", "*", ""},
        // Digits alone take over the format before them.
        {"1a:2", "abcde", "a:bcde"},
        {"255", "abc", ""},
        {"99999999999999999999a", "abc", "abc"},
    };
    for (const Case& c : cases) EXPECT_EQ(shown(c.hint, c.value), c.want) << c.hint << " on " << c.value;
    EXPECT_EQ(shown("255a", std::string(300, 'x')).size(), 300u) << "the last part is applied again";
}

TEST(DisplayHint, Integers) {
    struct Case {
        const char* hint;
        int value;
        const char* want;
    } cases[] = {
        {"d", -5, "-5"},      {"D", 7, "7"},          {"o", 8, "10"},      {"x", 255, "ff"},  {"b", 5, "101"},
        {"b", 0, "0"},        {"x", -1, "ffffffff"},  {"d-2", 1234, "12.34"}, {"d-2", -1234, "-12.34"},
        {"D-2", 5, "0.05"},   {"d-0", 42, "42"},      {"2d-1", 42, ""},    {"d--1", 42, ""},  {"d-", 42, ""},
        {"q", 42, ""},        {"", 42, ""},           {nullptr, 42, ""},
    };
    for (const Case& c : cases) EXPECT_EQ(shownNumber(c.hint, c.value), c.want) << (c.hint ? c.hint : "null") << " on " << c.value;
}

TEST(SeqInfo, ReadsPartsAndComesBackToTheFirst) {
    const ZBT::String hint("*2x:/1A");
    SeqInfo part(hint);
    EXPECT_TRUE(part.isSeqRepeated());
    EXPECT_EQ(part.length(), 2);
    EXPECT_TRUE(part.isSeqHex());
    EXPECT_EQ(part.displaySepChar(), ':');
    EXPECT_EQ(part.repeatSepChar(), '/');
    EXPECT_TRUE(part.isThereMore(hint));
    EXPECT_TRUE(part.nextInfo(hint, true));
    EXPECT_TRUE(part.isSeqAsc());
    EXPECT_FALSE(part.isSeqRepeated());
    EXPECT_FALSE(part.isDisplaySepChar());
    EXPECT_FALSE(part.isRepeatSepChar());
    EXPECT_FALSE(part.isThereMore(hint));
    EXPECT_TRUE(part.nextInfo(hint, true)) << "the end is reported as a success";
    EXPECT_EQ(part.length(), 1);
    EXPECT_TRUE(part.nextInfo(hint, false));
    EXPECT_EQ(part.length(), 2);
}

// A reply cut at any octet gives a prefix of the whole text, but for the separator and the group at the cut.
TEST(DisplayHint, ACutValueGivesTheSameBeginning) {
    std::mt19937 random(3);
    std::string octets;
    for (int i = 0; i < 60; ++i) octets += static_cast<char>('a' + random() % 26);
    const std::string whole = shown("3a-2a:", octets);
    for (std::size_t n = 0; n < octets.size(); ++n) {
        const std::string cut = shown("3a-2a:", octets.substr(0, n));
        EXPECT_EQ(whole.compare(0, cut.size(), cut), 0) << n;
    }
}
