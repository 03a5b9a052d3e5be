#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <thread>
#include <vector>

#include "host/Scratch.h"
#include "platform/zlc.h"

namespace almanac::host::test {
namespace {

struct Result {
    int status = 0;
    std::string text;
    bool operator==(const Result&) const = default;
};

Result toUtf8(const char* set, const std::string& in, int room = 64) {
    std::string out(static_cast<std::size_t>(room) + 1, '#');
    int length = -1;
    Result result;
    result.status =
        ZLC2_toUTF8(ZLC2_LocaleFor(set), in.data(), static_cast<int>(in.size()), out.data(), room, &length);
    EXPECT_EQ(out.back(), '#') << "written beyond the room";
    result.text = out.substr(0, static_cast<std::size_t>(length));
    return result;
}

std::string bytes(std::initializer_list<int> list) {
    std::string out;
    for (const int b : list) out += static_cast<char>(b);
    return out;
}

TEST(Locale, ConvertsChecksAndNeverCutsACharacter) {
    const std::string euro = "\xE2\x82\xAC";
    EXPECT_EQ(toUtf8("ISO-8859-15", bytes({0xA4, 'x'})), (Result{ZLC2_OK, euro + "x"}));
    EXPECT_EQ(toUtf8("iso-8859-15", bytes({0xA4, 0xA4}), 5), (Result{ZLC2_NO_ROOM, euro}));
    EXPECT_EQ(toUtf8("ISO-8859-1", "plain", 3), (Result{ZLC2_NO_ROOM, "pla"}));
    EXPECT_EQ(toUtf8("UTF-8", "a" + euro, 3), (Result{ZLC2_NO_ROOM, "a"}));
    EXPECT_EQ(toUtf8("utf8", "a" + euro, 4), (Result{ZLC2_OK, "a" + euro}));
    EXPECT_EQ(toUtf8("UTF-8", euro.substr(0, 2)), (Result{ZLC2_ILLEGAL, ""}));  // ends inside a character
    EXPECT_EQ(toUtf8("EUC-JP", bytes({'a', 0xA4})), (Result{ZLC2_ILLEGAL, "a"}));
    EXPECT_EQ(toUtf8("EUC-JP", bytes({0xA4, 0xA2})), (Result{ZLC2_OK, "\xE3\x81\x82"}));
    // A set with shift states begins anew with each text.
    const std::string shifted = "\x1B$B$\"";
    EXPECT_EQ(toUtf8("ISO-2022-JP", shifted), (Result{ZLC2_OK, "\xE3\x81\x82"}));
    EXPECT_EQ(toUtf8("ISO-2022-JP", "$\""), (Result{ZLC2_OK, "$\""}));
    EXPECT_EQ(toUtf8("UTF-16LE", std::string("a\0\xE4\0", 4)), (Result{ZLC2_OK, "a\xC3\xA4"}));
    EXPECT_EQ(toUtf8("UTF-8", std::string("a\0b\0", 4)), (Result{ZLC2_OK, std::string("a\0b\0", 4)}));
    EXPECT_EQ(toUtf8("ANSI_X3.4-1968", bytes({'a', 0xE4})), (Result{ZLC2_ILLEGAL, "a"}));
    EXPECT_EQ(toUtf8("UTF-8", "", 0), (Result{ZLC2_OK, ""}));
    EXPECT_EQ(toUtf8("no-such-set", "a").status, ZLC2_NO_LOCALE);
    EXPECT_EQ(ZLC2_LocaleFor("ASCII//IGNORE"), nullptr);
}

TEST(Locale, RefusesMalformedUtf8) {
    const std::string wrong[] = {bytes({0x80}),
                                 bytes({0xC0, 0xAF}),
                                 bytes({0xC1, 0xBF}),
                                 bytes({0xE0, 0x9F, 0xBF}),
                                 bytes({0xED, 0xA0, 0x80}),
                                 bytes({0xF0, 0x8F, 0xBF, 0xBF}),
                                 bytes({0xF4, 0x90, 0x80, 0x80}),
                                 bytes({0xF5, 0x80, 0x80, 0x80}),
                                 bytes({0xFF}),
                                 bytes({0xE2, 0x28, 0xA1}),
                                 bytes({0xF0, 0x9F, 0x98})};
    for (const std::string& text : wrong) {
        const std::string padded = "12345678901234567" + text;
        EXPECT_EQ(toUtf8("UTF-8", padded), (Result{ZLC2_ILLEGAL, "12345678901234567"}));
    }
    for (const char* right :
         {"\xED\x9F\xBF", "\xEE\x80\x80", "\xF4\x8F\xBF\xBF", "\xF0\x90\x80\x80", "\xE0\xA0\x80"}) {
        EXPECT_EQ(toUtf8("UTF-8", right), (Result{ZLC2_OK, right}));
    }
}

TEST(Locale, TranslatesAnyMessage) {
    const struct {
        const char* set;
        const char* in;
        const char* out;
    } cases[] = {{"ISO-8859-1", "gr\xFC\xDF", "gr\xC3\xBC\xC3\x9F"},
                 {"UTF-8", "a\xFF\xC3\xA4", "a?\xC3\xA4"},
                 {"EUC-JP", "x\xA4", "x?"},
                 {"UTF-8", "", ""},
                 {"none", "a\xFF", "a?"}};
    for (const auto& c : cases) {
        char* const text = ZLC2_TranslateString(ZLC2_LocaleFor(c.set), c.in);
        EXPECT_STREQ(text, c.out);
        std::free(text);
    }
    EXPECT_EQ(ZLC2_TranslateString(ZLC2_LocaleFor("UTF-8"), nullptr), nullptr);
}

// The locale is chosen once, so each environment needs a process of its own, and
// nothing else in this program may ask for it.
std::string characterSetWith(const char* lang) {
    int ends[2];
    if (::pipe(ends) != 0) return "pipe";
    const pid_t child = ::fork();
    if (child == 0) {
        for (const char* name : {"LC_ALL", "LC_CTYPE", "LANG", "LC_NUMERIC"}) ::unsetenv(name);
        if (lang) ::setenv("LC_ALL", lang, 1);
        std::string text = ZLC2_CharacterSet(ZLC2_GetLocale());
        text += std::strtod("1.5", nullptr) == 1.5 ? "" : " LC_NUMERIC";
        const bool written = ::write(ends[1], text.data(), text.size()) == static_cast<ssize_t>(text.size());
        ::_exit(written ? 0 : 1);
    }
    ::close(ends[1]);
    char text[64] = "";
    const ssize_t got = ::read(ends[0], text, sizeof text - 1);
    ::close(ends[0]);
    ::waitpid(child, nullptr, 0);
    return got > 0 ? text : "";
}

TEST(Locale, ComesFromTheEnvironment) {
    EXPECT_EQ(characterSetWith("C.UTF-8"), "UTF-8");
    EXPECT_EQ(characterSetWith("C"), "ANSI_X3.4-1968");
    EXPECT_EQ(characterSetWith(nullptr), "UTF-8");
    EXPECT_EQ(characterSetWith("xx_YY.ISO-8859-2"), "ISO-8859-2");  // not installed here, but it says so
    EXPECT_EQ(characterSetWith("xx_YY@euro"), "UTF-8");
}

TEST(Locale, ConvertsOnManyThreads) {
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([] {
            for (int i = 0; i < 100; ++i) {
                // More sets than a thread keeps descriptors for.
                for (const char* set : {"ISO-8859-1", "ISO-8859-2", "ISO-8859-3", "ISO-8859-4", "ISO-8859-9",
                                        "ISO-8859-10", "ISO-8859-15", "CP1252", "CP1250", "CP1257"}) {
                    EXPECT_EQ(toUtf8(set, bytes({'a', 0xE4})), (Result{ZLC2_OK, "a\xC3\xA4"}));
                }
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
}

}  // namespace
}  // namespace almanac::host::test
