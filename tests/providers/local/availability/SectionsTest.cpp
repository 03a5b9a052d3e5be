// The sections `process_list` and `app_ping_list`: one table, whichever comes first and however many there are.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "config/ConfigMap.h"
#include "host/Scratch.h"
#include "providers/local/availability/AvailabilityList.h"
#include "providers/local/proctable/FakeProc.h"
#include "runtime/reference/Application.h"
#include "runtime/reference/XMLConfigParser.h"

namespace {

class Sections : public testing::Test {
  protected:
    Sections() {
        configMap.initializeLocalMap();
        queryClassList = &classes_;
        applicationName.copy("KIT");
    }
    ~Sections() override {
        if (availList) {
            classes_.removeClientClass(availList);
            delete availList;
        }
        queryClassList = nullptr;
        applicationName.copy("");
    }
    static void read(const std::string& sections) {
        const almanac::host::test::Scratch scratch;
        almanac::host::test::writeFile(scratch.path("file.xml"), "<agent>" + sections + "</agent>");
        ASSERT_TRUE(initFromFile(scratch.path("file.xml").c_str()));
    }
    static std::vector<const ReturnCodeListElement*> codesOf(const ApplicationPingListElement* test) {
        std::vector<const ReturnCodeListElement*> codes;
        for (ListCursor c = test->getReturnCodeListCursor(); c.hasMoreElements(); c.setToNext()) {
            codes.push_back(static_cast<const ReturnCodeListElement*>(c.getCurrentElement()));
        }
        return codes;
    }

  private:
    VXClientClassList classes_;
};

}  // namespace

TEST_F(Sections, NoneMakesNoTable) {
    read("<process_list></process_list><app_ping_list></app_ping_list>");
    EXPECT_EQ(availList, nullptr);
}

TEST_F(Sections, AllOfThemFillOneTable) {
    read("<app_ping_list><app_ping name=\"Ping\" script=\"exit 1\">"
         "<rc rc=\"0\" msg=\"fine\" type=\"ok\"/><rc rc=\"1\" msg=\"late\" type=\"TIMED_OUT\"/>"
         "<rc rc=\"2\" msg=\"?\"/></app_ping>"
         "<app_ping name=\"Other\" script=\"true\"/></app_ping_list>"
         "<process_list><process name=\"A\" procname=\"a\"/></process_list>"
         "<process_list><process name=\"B\" procname=\"*\" includeChildProcesses=\"true\""
         " childApplicationCompName=\"Kids\"/></process_list>");
    ASSERT_NE(availList, nullptr);
    EXPECT_EQ(queryClassList->getClientClass("Availability"), availList);
    EXPECT_STREQ(availList->getProductCode(), "KIT");
    EXPECT_EQ(availList->getObjectType(), VX_AVAILABILITY);
    EXPECT_STREQ(availList->getPerfObjectName(), "Availability");
    ListCursor all = queryClassList->getClassListCursor();
    all.setToNext();
    EXPECT_FALSE(all.hasMoreElements()) << "there is one table";

    const ProcessListElement* a = availList->firstProcessFilter();
    ASSERT_NE(a, nullptr);
    const auto* b = static_cast<const ProcessListElement*>(a->getNextElement());
    ASSERT_NE(b, nullptr);
    EXPECT_EQ(b->getNextElement(), nullptr);
    EXPECT_STREQ(a->getApplicationComponent(), "A");
    EXPECT_FALSE(a->shouldIncludeChildProcesses());
    EXPECT_TRUE(b->isWildcard() && b->shouldIncludeChildProcesses());
    EXPECT_STREQ(b->getChildApplicationCompName(), "Kids");

    const ApplicationPingListElement* ping = availList->firstFunctionalityTest();
    ASSERT_NE(ping, nullptr);
    const auto codes = codesOf(ping);
    ASSERT_EQ(codes.size(), 3u);
    EXPECT_EQ(codes[0]->getMappedReturnCode(), RC_OK);
    EXPECT_EQ(codes[1]->getMappedReturnCode(), RC_TIMED_OUT);
    EXPECT_STREQ(codes[1]->getMessage(), "late");
    EXPECT_EQ(codes[2]->getMappedReturnCode(), RC_NOT_RUN) << "without a type none is set";
    EXPECT_TRUE(codesOf(static_cast<const ApplicationPingListElement*>(ping->getNextElement())).empty());
}

TEST_F(Sections, FlagsAreExactAndDecideWhatIsCompared) {
    read("<process_list>"
         "<process name=\"1\" procname=\"a\" matcharg=\"TRUE\" arg=\"-x\"/>"
         "<process name=\"2\" procname=\"a\" matcharg=\"true\" arg=\"-x\"/>"
         "<process name=\"3\" procname=\"a\" matchfullarg=\"true\" arg=\"-x\"/>"
         "<process name=\"4\" procname=\"a\" matchargwithvalue=\"true\" arg=\"-x\" value=\"1\"/>"
         "<process name=\"5\" procname=\"a\" matchfullname=\"true\" fullname=\"/bin/\"/>"
         "</process_list>");
    ASSERT_NE(availList, nullptr);
    const auto matching = [](const char* full, const char* commandLine) {
        std::string names;
        for (auto* f = availList->firstProcessFilter(); f; f = static_cast<ProcessListElement*>(f->getNextElement())) {
            if (f->isEqual("a", full, commandLine)) names += f->getApplicationComponent();
        }
        return names;
    };
    EXPECT_EQ(matching("a", "a"), "1");
    EXPECT_EQ(matching("a", "a -xy"), "12");
    EXPECT_EQ(matching("a", "a -x"), "123");
    EXPECT_EQ(matching("a", "a -x=1"), "124");
    EXPECT_EQ(matching("/bin/a", "/bin/a"), "15");
}

TEST_F(Sections, FaultsAreToldAndNothingElseIsLost) {
    const almanac::test::Traced traced("ERROR");
    read("<process_list><process procname=\"a\" matcharg=\"true\"/><process name=\"B\" procname=\"b\"/></process_list>"
         "<app_ping_list><rc rc=\"5\" type=\"OK\"/><app_ping name=\"P\" script=\"true\"/></app_ping_list>"
         "<app_ping_list><rc rc=\"6\" type=\"OK\"/></app_ping_list>");
    EXPECT_TRUE(traced.has("process_list: attribute name is missing for process ; it counts as empty"));
    EXPECT_TRUE(traced.has("process_list: attribute arg is missing for process ; it counts as empty"));
    EXPECT_TRUE(traced.has("app_ping_list: rc 5 stands in no app_ping; it is left out"));
    EXPECT_TRUE(traced.has("app_ping_list: rc 6 stands in no app_ping; it is left out")) << "the section before has ended";
    ASSERT_NE(availList, nullptr);
    const ProcessListElement* first = availList->firstProcessFilter();
    ASSERT_TRUE(first && first->getNextElement());
    EXPECT_TRUE(codesOf(availList->firstFunctionalityTest()).empty());
}
