// ZBT::String with the oddities its callers build on, List, HashMap, ListCursor.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "foundation/HashMap.h"
#include "foundation/List.h"
#include "foundation/ZbtString.h"

using ZBT::String;

TEST(ZbtString, ABoundedTextShowsItsBytesButCountsNone) {
    const String whole("abcdef");
    const String part = whole.substr(0, 3);
    EXPECT_STREQ(part.c_str(), "abc");
    EXPECT_EQ(part.size(), 0);
    EXPECT_TRUE(part.empty());

    String taken("hello", 2);
    EXPECT_STREQ(taken.c_str(), "he");
    taken.append("X");
    EXPECT_STREQ(taken.c_str(), "X") << "an append starts at the counted length";
    EXPECT_STREQ(String(nullptr, 5).c_str(), "");
    EXPECT_EQ(String(nullptr, 5).capacity(), 0);
}

TEST(ZbtString, CopyOfNullKeepsTheBytes) {
    String s("old");
    s.copy(nullptr);
    EXPECT_EQ(s.size(), 0);
    EXPECT_STREQ(s.c_str(), "old");
    s.copy(nullptr, 3);
    EXPECT_STREQ(s.c_str(), "");
}

TEST(ZbtString, CapacityFollowsItsRules) {
    EXPECT_EQ(String().capacity(), 31);
    EXPECT_EQ(String("abc").capacity(), 3);
    String s("abc");
    s.append('d');
    EXPECT_EQ(s.capacity(), 35) << "a byte that does not fit grows by 32";
    String t(4);
    t.append("abcd");
    EXPECT_EQ(t.capacity(), 8) << "reaching the capacity grows by the appended length";
    t.reserve(6);
    EXPECT_EQ(t.capacity(), 8);
    t.reserve(20);
    EXPECT_EQ(t.capacity(), 20);
    String wide("a long text with a wide buffer");
    wide = String("ab");
    EXPECT_EQ(wide.capacity(), 2) << "the source's capacity is taken over though it is the smaller";
    EXPECT_STREQ(wide.c_str(), "ab");
    wide.append(" and more than that");
    EXPECT_STREQ(wide.c_str(), "ab and more than that");
}

TEST(ZbtString, AppendsPastTheSourceAndFromItself) {
    String s("ab");
    s.append("c", 3);
    EXPECT_EQ(s.size(), 5);
    EXPECT_STREQ(s.c_str(), "abc");
    EXPECT_EQ(std::memcmp(s.c_str(), "abc\0\0", 6), 0);
    String own("abc");
    own.append(own.c_str());
    EXPECT_STREQ(own.c_str(), "abcabc");
    own.copy(own.c_str() + 4);
    EXPECT_STREQ(own.c_str(), "bc");
    own.append(static_cast<const char*>(nullptr));
    own.appendItoa(-12);
    own.appendXtoa(0xaf);
    EXPECT_STREQ(own.c_str(), "bc-12AF");
}

TEST(ZbtString, SearchesStayInside) {
    const String s("a=b;c=d");
    struct Case {
        int got, want;
    } cases[] = {
        {s.indexOf('='), 1},      {s.indexOf('=', 2), 5},        {s.indexOf('x'), -1},       {s.indexOf('a', -1), -1},
        {s.indexOf('\0', 7), -1}, {s.indexOf("c=d"), 4},         {s.indexOf("c=d", 5), -1},  {s.findFirstOf(";="), 1},
        {s.findFirstOf("xy"), -1}, {s.findFirstNotOf("ab="), 3}, {s.findFirstNotOf("a", 7), -1},
    };
    int i = 0;
    for (const Case& c : cases) EXPECT_EQ(c.got, c.want) << "case " << i++;
    EXPECT_STREQ(s.substr(4).c_str(), "c=d");
    EXPECT_STREQ(s.substr(7).c_str(), "");
    String upper("az-\xe4");
    upper.toUpper();
    EXPECT_STREQ(upper.c_str(), "AZ-\xe4");
}

// Whatever is appended and cut, the text equals that of a plain model.
TEST(ZbtString, AgreesWithAModel) {
    std::mt19937 random(7);
    String s;
    std::string model;
    for (int i = 0; i < 20000; ++i) {
        const std::string piece(random() % 40, static_cast<char>('a' + random() % 26));
        switch (random() % 6) {
            case 0: s.append(piece.c_str()), model += piece; break;
            case 1: s.append('x'), model += 'x'; break;
            case 2: s.copy(piece.c_str()), model = piece; break;
            case 3: s.append(piece.c_str(), 2), model += piece.substr(0, 2), model.resize(model.size() + 2 - std::min<std::size_t>(2, piece.size())); break;
            case 4: { const String other(s); s = other; break; }
            default: s.setLength(s.size() / 2), model.resize(model.size() / 2);
        }
        if (model.find('\0') != std::string::npos) s.copy(""), model.clear();
        ASSERT_EQ(static_cast<std::size_t>(s.size()), model.size());
        ASSERT_STREQ(s.c_str(), model.c_str());
    }
}

TEST(HashMap, GrowsAtThreeQuartersAndKeepsTheFirstKey) {
    HashMap map(1);
    EXPECT_EQ(map.getCapacity(), 32);
    EXPECT_EQ(map.getThreshold(), 24);
    std::vector<std::string> keys;
    for (int i = 0; i < 25; ++i) keys.push_back("key" + std::to_string(i));
    for (int i = 0; i < 24; ++i) map.put(keys[static_cast<std::size_t>(i)].c_str(), &keys);
    EXPECT_EQ(map.getCapacity(), 32);
    map.put(keys[24].c_str(), &map);
    EXPECT_EQ(map.getCapacity(), 64);
    EXPECT_EQ(map.getThreshold(), 48);
    for (const std::string& key : keys) EXPECT_TRUE(map.contains(key.c_str())) << key;

    const std::string again = "key3";
    map.put(again.c_str(), nullptr);
    EXPECT_EQ(map.getCount(), 25);
    EXPECT_TRUE(map.contains("key3"));
    EXPECT_EQ(map.get("key3"), nullptr);
    const char* old = "unset";
    map.remove("key3", &old);
    EXPECT_EQ(old, keys[3].c_str());
    EXPECT_EQ(map.remove("absent", &old), nullptr);
    EXPECT_EQ(old, nullptr);
    EXPECT_EQ(map.getCount(), 24);
    HashMap bigger(100);
    EXPECT_EQ(bigger.getCapacity(), 128);
}

TEST(HashMap, HashTakesBytesAsSigned) {
    EXPECT_EQ(hash_function(""), 5381u);
    EXPECT_EQ(hash_function("a"), 5381u * 33 + 97);
    EXPECT_EQ(hash_function("\xff"), 5381u * 33 - 1);
}

TEST(HashMap, IteratorGoesInTheOrderOfForeach) {
    HashMap map(32);
    std::vector<std::string> keys;
    for (int i = 0; i < 200; ++i) keys.push_back(std::to_string(i * 7919));
    for (const std::string& key : keys) map.put(key.c_str(), key.c_str());
    std::vector<const char*> byForeach;
    map.foreach ([](const char* key, const void*, void* arg) { static_cast<std::vector<const char*>*>(arg)->push_back(key); },
                 &byForeach);
    std::vector<const char*> byIterator;
    HashMapIterator it = map.iterator();
    EXPECT_EQ(it.getKey(), nullptr);
    while (it.hasNext()) {
        it.next();
        EXPECT_EQ(it.getData(), it.getKey());
        byIterator.push_back(it.getKey());
    }
    it.next();
    EXPECT_EQ(byIterator.size(), 200u);
    EXPECT_EQ(byForeach, byIterator);
    map.clear();
    EXPECT_FALSE(map.iterator().hasNext());
    EXPECT_EQ(map.getCapacity(), 512);
}

TEST(List, FindsInsertsAndRemoves) {
    int items[25];
    List list;
    list.clear();
    EXPECT_EQ(list.peek(), nullptr);
    EXPECT_EQ(list.pop(), nullptr);
    for (int& item : items) EXPECT_EQ(list.add(&item), &item);
    EXPECT_EQ(list.find(&items[7], nullptr), 7);
    const auto later = [](const void* item, const void* what) { return item > what ? 0 : 1; };
    EXPECT_EQ(list.find(&items[3], later), 4) << "the item is the first argument; the first 0 ends the search";
    list.insert(2, items + 20);
    list.insert(-1, items);
    list.insert(99, items);
    EXPECT_EQ(list.getCount(), 27);
    EXPECT_EQ(list.get(2), items + 20);
    EXPECT_EQ(list.get(3), items + 2);
    EXPECT_EQ(list.peek(), items);
    EXPECT_EQ(list.remove(2), items + 20);
    EXPECT_EQ(list.remove(-1), nullptr);
    EXPECT_EQ(list.remove(26), nullptr);
    List shallow(&list);
    list.clear();
    EXPECT_EQ(shallow.getCount(), 26);
    EXPECT_EQ(shallow.get(2), items + 2);
    int walked = 0;
    for (ListIterator it = shallow.iterator(); it.hasNext(); it.next()) ++walked;
    EXPECT_EQ(walked, 26);
}

TEST(ListCursor, WalksAndReturnsToItsHead) {
    ListElement a, b;
    a.setNextElement(&b);
    ListCursor cursor(&a);
    cursor.setToNext();
    EXPECT_EQ(cursor.getCurrentElement(), &b);
    cursor.setToNext();
    cursor.setToNext();
    EXPECT_FALSE(cursor.hasMoreElements());
    cursor.setToFirst();
    EXPECT_EQ(cursor.getCurrentElement(), &a);
    const ListElement copy(a);
    EXPECT_EQ(copy.getNextElement(), nullptr) << "a copy stands in no chain";
}
