#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "runtime/reference/Application.h"
#include "runtime/reference/AttributeGroupMeta.h"
#include "runtime/reference/Parser.h"
#include "runtime/reference/XMLConfigParser.h"

namespace {

class Metadata : public testing::Test {
  protected:
    void TearDown() override { deleteAllMetadata(); }
    static AttributeGroupMeta* load(const std::string& attributes, const char* group = "G") {
        std::string text = std::string("<any><metadata><ag table=\"T\" name=\"") + group + "\" pure=\"true\">" + attributes +
                           "</ag></metadata></any>";
        ConfigXMLParser handler;
        Parser parser(&handler);
        EXPECT_TRUE(parser.parse(text.data()));
        return findAttributeGroupMeta(group);
    }
};

std::vector<int> offsets(const AttributeGroupMeta* meta) {
    std::vector<int> found;
    for (int i = 0; i < meta->noOfAttributes(); ++i) found.push_back(meta->attrInfo(i)->offset());
    return found;
}

TEST_F(Metadata, RowLayoutIsTheFrameworks) {
    const struct {
        const char* attributes;
        std::vector<int> offsets;
        int rowSize;
    } cases[] = {
        {"", {0}, 32},
        {"<attr name=\"A\" type=\"0\" size=\"4\"/>", {0, 32}, 36},
        {"<attr name=\"A\" type=\"1\" size=\"3\"/><attr name=\"B\" type=\"0\" size=\"4\"/>", {0, 32, 36}, 40},
        {"<attr name=\"A\" type=\"1\" size=\"1\"/><attr name=\"B\" type=\"5\" size=\"2\"/>", {0, 32, 34}, 36},
        // 8-byte values are aligned to 4 and never to 8
        {"<attr name=\"A\" type=\"0\" size=\"4\"/><attr name=\"B\" type=\"7\" size=\"8\"/><attr name=\"C\" type=\"0\" "
         "size=\"4\"/><attr name=\"D\" type=\"9\" size=\"8\"/>",
         {0, 32, 36, 44, 48}, 56},
        {"<attr name=\"-A\" type=\"0\" size=\"4\"/><attr name=\"B\" type=\"0\" size=\"4\"/>", {0, -1, 32}, 36},
        // an odd length or type is warned of and still gets its place
        {"<attr name=\"A\" type=\"0\" size=\"3\"/><attr name=\"B\" type=\"77\" size=\"5\"/>", {0, 32, 35}, 40},
        {"<attr name=\"A\" type=\"1\" size=\"-5\"/><attr name=\"B\" type=\"1\" size=\"2000000000\"/>", {0, -1, -1}, 32},
    };
    for (const auto& c : cases) {
        const AttributeGroupMeta* meta = load(c.attributes);
        ASSERT_NE(meta, nullptr);
        EXPECT_EQ(offsets(meta), c.offsets) << c.attributes;
        EXPECT_EQ(meta->rowSize(), c.rowSize) << c.attributes;
        deleteAllMetadata();
    }
}

TEST_F(Metadata, HiddenAttributesAreNoColumns) {
    const AttributeGroupMeta* meta =
        load("<attr name=\"-Hidden\" type=\"0\" size=\"4\"/><attr name=\"Seen\" hint=\"1x:\" type=\"1\" size=\"8\"/>");
    EXPECT_EQ(meta->noOfAttributes(), 3);
    EXPECT_EQ(meta->noOfColumns(), 2);
    EXPECT_NE(meta->findAttribute("Hidden"), nullptr);
    EXPECT_EQ(meta->findColumn("Hidden"), nullptr);
    EXPECT_STREQ(meta->findColumn("Seen")->hint(), "1x:");
    int offset = 7;
    int length = 7;
    int type = 7;
    EXPECT_FALSE(meta->columnInfo("Hidden", &offset, &length, &type));
    EXPECT_EQ(offset + length + type, 21) << "outputs stay untouched";
    EXPECT_TRUE(meta->columnInfo("Seen", &offset, &length, &type));
    EXPECT_EQ(length, 8);
    EXPECT_TRUE(meta->pureEventBased());
}

TEST_F(Metadata, RequestInfoKeepsOneEntryForAName) {
    const AttributeGroupMeta* meta = load("<receive_req name=\"_FILTER\"/><receive_req name=\"_FILTER\"/>");
    ASSERT_NE(meta->getRequestInfoMap(), nullptr);
    EXPECT_EQ(meta->getRequestInfoMap()->getCount(), 1);
}

TEST_F(Metadata, ADeclarationOfTheSameNameReplacesTheEarlierOne) {
    load("<attr name=\"A\" type=\"0\" size=\"4\"/>");
    const AttributeGroupMeta* second = load("");
    EXPECT_EQ(second->noOfColumns(), 1);
    EXPECT_EQ(metaMap.getCount(), 1);
}

TEST(Dispatcher, SectionsAreFoundAtAnyDepthAndEndWithTheirName) {
    struct Section : XMLConfigParser {
        void startElement(const char* name, HashMap*) override { seen += std::string(name) + " "; }
        std::string seen;
    };
    static auto& outer = *new Section;
    static auto& inner = *new Section;
    registerXMLConfigParser("test_outer", &outer);
    registerXMLConfigParser("test_inner", &inner);
    std::string text =
        "<x><y><test_outer><test_inner/><z/></test_outer></y><test_inner/>"
        "<test_outer><test_outer/><test_inner/></test_outer></x>";
    ConfigXMLParser handler;
    Parser parser(&handler);
    ASSERT_TRUE(parser.parse(text.data()));
    // inside a section a registered name opens nothing; a nested element of the section's own name ends it early
    EXPECT_EQ(outer.seen, "test_outer test_inner z test_outer test_outer ");
    EXPECT_EQ(inner.seen, "test_inner test_inner ");
}

TEST(Application, ProductCodesTakeWhatExists) {
    const struct {
        const char* name;
        const char* shortCode;
        const char* longCode;
    } cases[] = {{"KZB", "ZB", "KZB"}, {"ABCDEF", "BC", "ABC"}, {"AB", "B", "AB"}, {"A", "", "A"}, {"", "", ""}};
    for (const auto& c : cases) {
        setProductCodes(c.name);
        EXPECT_STREQ(shortProductCode, c.shortCode) << c.name;
        EXPECT_STREQ(longProductCode, c.longCode) << c.name;
    }
    setProductCodes("");
}

}  // namespace
