#include <gtest/gtest.h>
#include <malloc.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "foundation/Locale.h"
#include "foundation/UTF8String.h"

namespace {

// Runs with the application's locale set to a character set, and puts the old one back.
class UTF8StringTest : public testing::Test {
  protected:
    ~UTF8StringTest() override { applicationLocale = before_; }
    void use(const char* characterSet) {
        applicationLocale = ZLC2_LocaleFor(characterSet);
        ASSERT_NE(applicationLocale, nullptr) << characterSet;
    }
    ZLC2_Locale before_ = applicationLocale;
};

}  // namespace

TEST_F(UTF8StringTest, ConvertsFromTheLocale) {
    struct Case {
        const char* characterSet;
        const char* text;
        const char* want;
    } cases[] = {
        {"UTF-8", "plain", "plain"},
        {"UTF-8", "", ""},
        {"UTF-8", "Stra\xc3\x9f"
                  "e \xf0\x9f\x98\x80",
         "Stra\xc3\x9f"
         "e \xf0\x9f\x98\x80"},
        {"ISO-8859-1", "Stra\xdf"
                       "e",
         "Stra\xc3\x9f"
         "e"},
        {"ISO-8859-1", "plain", "plain"},
        // One byte that is no text of the character set replaces the whole text.
        {"UTF-8", "Stra\xdf"
                  "e",
         "<UNABLE TO CONVERT TO UTF8>"},
        {"UTF-8", "cut \xe2\x82", "<UNABLE TO CONVERT TO UTF8>"},
        // A character set whose lower half is not ASCII.
        {"IBM037", "\xc1\xc2\xc3", "ABC"},
        {"IBM037", "AB", "\xc2\xa0\xc3\xa2"},
    };
    for (const Case& c : cases) {
        use(c.characterSet);
        UTF8String s;
        EXPECT_EQ(s.initFromASCIIString(c.text), 0);
        EXPECT_STREQ(s.getUTF8Value(), c.want) << c.characterSet;
        EXPECT_EQ(s.getLength(), static_cast<int>(std::strlen(c.want)));
        EXPECT_STREQ(s.getSource(), c.text) << "the source is kept as it came";
    }
}

TEST_F(UTF8StringTest, LongTextsConvertToo) {
    use("ISO-8859-1");
    UTF8String s;
    s.initFromASCIIString(std::string(100000, '\xe4').c_str());
    EXPECT_EQ(s.getLength(), 200000);
    EXPECT_EQ(std::string(s.getUTF8Value(), 4), "\xc3\xa4\xc3\xa4");
}

TEST_F(UTF8StringTest, NullTexts) {
    UTF8String s;
    EXPECT_EQ(s.getUTF8Value(), nullptr);
    EXPECT_EQ(s.getEBCDICValue(), nullptr);
    s.initFromASCIIString(nullptr);
    EXPECT_STREQ(s.getUTF8Value(), "<NULL>");
    s.initFromUTF8String(nullptr);
    EXPECT_STREQ(s.getUTF8Value(), "NULL");
    s.initFromUTF8String(nullptr, 77);
    EXPECT_EQ(s.getLength(), 4);
    s.initFromEBCDICString(nullptr);
    EXPECT_STREQ(s.getUTF8Value(), "<NULL>");
}

TEST_F(UTF8StringTest, ComparesConcatenatesAndCopies) {
    use("ISO-8859-1");
    UTF8String fromLocal, fromUtf8;
    fromLocal.initFromASCIIString("\xe4");
    fromUtf8.initFromUTF8String("\xc3\xa4");
    EXPECT_TRUE(fromLocal.isEqual(&fromUtf8)) << "same value from different sources";
    EXPECT_STREQ(fromLocal.getEBCDICValue(), "\x43");
    fromLocal.concat(&fromUtf8);
    EXPECT_STREQ(fromLocal.getUTF8Value(), "\xc3\xa4\xc3\xa4");
    EXPECT_EQ(fromLocal.getLength(), 4);
    EXPECT_STREQ(fromLocal.getSource(), "\xe4");
    EXPECT_EQ(fromLocal.getEBCDICLength(), 2) << "the form made before the concatenation is made again";
    fromUtf8.concat(&fromUtf8);
    EXPECT_STREQ(fromUtf8.getSource(), "\xc3\xa4");
    EXPECT_TRUE(fromLocal.isEqual(&fromUtf8));
    EXPECT_FALSE(fromLocal.isEqual(nullptr));

    const std::unique_ptr<UTF8String> copy(fromUtf8.getDeepCopy());
    EXPECT_TRUE(copy->isEqual(&fromUtf8));
    EXPECT_EQ(copy->getSource(), nullptr);
    const std::unique_ptr<UTF8String> ofNothing(UTF8String().getDeepCopy());
    EXPECT_STREQ(ofNothing->getUTF8Value(), "<NULL>");
}

TEST_F(UTF8StringTest, ATakenOverValueLeavesTheOldOneToItsHolder) {
    UTF8String s;
    s.initFromUTF8String("first");
    char* held = strdup("a text held by its maker");
    s.setUTF8Value(held, static_cast<int>(std::strlen(held)));
    EXPECT_EQ(s.getUTF8Value(), held);
    char* second = strdup("second");
    s.setUTF8Value(second, 6);
    EXPECT_STREQ(s.getUTF8Value(), "second");
    EXPECT_STREQ(s.getSource(), "first");
    EXPECT_STREQ(held, "a text held by its maker");
    std::free(held);
    s.setUTF8Value(nullptr, 5);
    std::free(second);
    EXPECT_EQ(s.getLength(), 0);
    s.initFromUTF8String("third");
    EXPECT_STREQ(s.getSource(), "third");
}

// Every length around the room in the object, through every change of form.
TEST_F(UTF8StringTest, ShortAndLongTextsBehaveAlike) {
    use("ISO-8859-1");
    for (std::size_t n = 0; n < 40; ++n) {
        const std::string text(n, 'a');
        UTF8String plain, converted;
        plain.initFromASCIIString(text.c_str());
        converted.initFromASCIIString((text + "\xe4").c_str());
        EXPECT_EQ(plain.getUTF8Value(), text);
        EXPECT_EQ(converted.getUTF8Value(), text + "\xc3\xa4");
        EXPECT_EQ(converted.getSource(), text + "\xe4");
        EXPECT_EQ(plain.getEBCDICValue(), std::string(n, '\x81'));
        EXPECT_EQ(plain.getUTF8Value(), text);
        EXPECT_EQ(plain.getSource(), text);
        std::unique_ptr<UTF8String> copy(plain.getDeepCopy());
        copy->concat(&converted);
        EXPECT_EQ(copy->getUTF8Value(), text + text + "\xc3\xa4");
        EXPECT_EQ(copy->getSource(), nullptr);
        plain.concat(&plain);
        EXPECT_EQ(plain.getUTF8Value(), text + text);
        EXPECT_EQ(plain.getSource(), text);
    }
}

TEST_F(UTF8StringTest, EveryEbcdicByteComesBack) {
    std::string all;
    for (int i = 1; i < 256; ++i) all += static_cast<char>(i);
    UTF8String s;
    s.initFromEBCDICString(all.c_str());
    EXPECT_STREQ(s.getSource(), all.c_str());
    EXPECT_EQ(s.getEBCDICLength(), 255);
    EXPECT_EQ(s.getEBCDICValue(), all);
    UTF8String beyond;
    beyond.initFromUTF8String("A\xe2\x82\xac\xff\xc2Z");
    EXPECT_STREQ(beyond.getEBCDICValue(), "\xc1\x6f\x6f\x6f\xe9") << "what the code page lacks becomes a question mark";
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
TEST_F(UTF8StringTest, AShortTextIsCheap) {
    EXPECT_EQ(sizeof(UTF8String), 24u);
    use("UTF-8");
    constexpr std::size_t kCount = 10000;
    auto texts = std::make_unique<UTF8String[]>(kCount);
    const std::size_t before = mallinfo2().uordblks;
    for (std::size_t i = 0; i < kCount; ++i) texts[i].initFromASCIIString("twenty-two bytes......");
    EXPECT_LE(mallinfo2().uordblks - before, 1000u) << "a short text has its room in the object";
    for (std::size_t i = 0; i < kCount; ++i) texts[i].initFromASCIIString("twenty-three bytes.....");
    EXPECT_LE((mallinfo2().uordblks - before) / kCount, 32u) << "one block for value and source";
}
#endif
