// Sections of the configuration as rows of a discovery group, and all the way to managed systems: declared in a
// reference file, changed while the agent runs.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <memory>

#include "collection/TestClass.h"
#include "config/ConfigMap.h"
#include "config/subnodes/ConfigSections.h"
#include "config/subnodes/SubnodeManager.h"
#include "host/Scratch.h"
#include "host/base/Trace.h"
#include "host/framework/Framework.h"
#include "providers/derived/config_discovery/ConfigDiscoveryQueryClass.h"
#include "runtime/AgentEntry.h"
#include "runtime/reference/Application.h"
#include "runtime/reference/Parser.h"
#include "runtime/reference/XMLConfigParser.h"

namespace {

using namespace almanac::test;
using almanac::host::test::readFile;
using almanac::host::test::Scratch;
using almanac::host::test::Variable;
using almanac::host::test::writeFile;
using testing::HasSubstr;

constexpr const char* kColumns[] = {SUBNODE_AFFINITY_QMPV_NAME, SUBNODE_TYPE_QMPV_NAME, SUBNODE_RESOURCE_NAME_QMPV_NAME,
                                    SUBNODE_VERSION_QMPV_NAME, SUBNODE_KEY_QMPV_NAME, SUBNODE_MSN_QMPV_NAME, "Colour"};

// A reference file's discovery section over the columns; `extra` stands behind its metrics.
std::string section(const std::string& type, const std::string& extra = "") {
    std::string text = "<agent><config_discovery app=\"TSTAPP\" ag=\"Conf\" subnode_type=\"" + type +
                       "\" subnode_affinity_value=\"%AFF\">";
    for (const char* column : kColumns) text += std::string("<metric name=\"") + column + "\" type=\"STRING_DATA\" visible=\"true\"/>";
    return text + extra + "</config_discovery></agent>";
}

// Product TSTAPP with a configuration file of its own, one discovery group Conf and one group Web of type SNODE.
class ConfigDiscovery : public testing::Test {
  protected:
    ConfigDiscovery() : data_("ALMANAC_DATA_DIR", scratch_.path("data")), before_(queryClassList) {
        std::filesystem::create_directories(scratch_.path("data/config"));
        ::chmod(scratch_.path("data").c_str(), 0700);
        setProductCodes("TSTAPP");
        applicationName.copy("TSTAPP");
        agentVersion.copy("0123");
        agentInfo[3] = agentVersion.c_str();
        queryClassList = &classes_;
        conf.meta->setIsDiscoveryAttributeGroup(true);
        web.meta->setQuery(&webClass);
        classes_.addClientClass(&webClass);
    }
    ~ConfigDiscovery() override {
        manager.reset();
        auto& registry = almanac::host::framework().subnodes;
        for (const std::string& name : registry.names()) registry.remove(name);
        if (discovery) {
            classes_.removeClientClass(discovery);
            delete discovery;
        }
        queryClassList = before_;
        agentInfo[3] = "";
        almanac::host::configureTrace("ERROR", nullptr);
    }
    void load(const std::string& text) {
        writeFile(file(), text);
        loadAgentConfig();
    }
    // What the section parser makes of the text.
    void parse(std::string text) {
        ConfigXMLParser handler;
        Parser parser(&handler);
        ASSERT_TRUE(parser.parse(text.data()));
        discovery = static_cast<ConfigDiscoveryQueryClass*>(classes_.getClientClass("Conf"));
        ASSERT_TRUE(discovery);
        conf.meta->setQuery(discovery);
        discovery->setAttributeGroupMeta(conf.meta);
    }
    void makeManager() {
        manager = std::make_unique<SubnodeManager>(SubnodeManager::ZombieThread::None);
        registerSubnodeDirectory(manager.get());
    }
    // All rows, cells with commas between.
    std::string rows() {
        RecordingSink sink(conf.meta);
        discovery->sendDataToHBX(&sink, "node");
        std::string all;
        for (std::size_t i = 0; i < sink.rows.size(); ++i) {
            for (const char* column : kColumns) all += sink.column(i, column) + ",";
            all += ";";
        }
        return all;
    }
    static std::string registered() {
        std::string all;
        for (const std::string& name : almanac::host::framework().subnodes.names()) all += name + ",";
        return all;
    }
    std::string file() const { return scratch_.path("data/config/st.toml"); }

    Scratch scratch_;
    Variable data_;
    Group conf{"Conf",
               {{kColumns[0], 2, 16}, {kColumns[1], 2, 16}, {kColumns[2], 2, 32}, {kColumns[3], 2, 8}, {kColumns[4], 2, 32},
                {kColumns[5], 2, 32}, {kColumns[6], 2, 8}}};
    Group web{"Web", nameAndNumber(), "SNODE"};
    TestClass webClass{"Web"};
    ConfigDiscoveryQueryClass* discovery = nullptr;
    std::unique_ptr<SubnodeManager> manager;

  private:
    VXClientClassList classes_;
    VXClientClassList* before_;
};

TEST_F(ConfigDiscovery, GivesARowForEachSectionOfItsType) {
    load("[[RNODE]]\nid = \"one\"\n[[RNODE]]\nid = \"a b/c\"\n[[ROTHER]]\nid = \"not mine\"\n");
    parse(section("RNODE"));
    EXPECT_STREQ(discovery->getClassName(), "Conf");
    EXPECT_STREQ(discovery->getPerfObjectName(), "Conf");
    EXPECT_EQ(discovery->getObjectType(), VX_CONFIG_DISCOVERY);
    discovery->collectData("x");
    EXPECT_EQ(rows(), "%AFF,RNODE,one,0123,one,one,,;%AFF,RNODE,abc,0123,abc,abc,,;");
    EXPECT_EQ(discovery->getPerfErrorCode(), OBJECT_ACTIVE);
}

TEST_F(ConfigDiscovery, WithoutSectionsItsCodeSaysSoAndStays) {
    almanac::host::configureTrace("NONE", nullptr);
    load("");
    parse(section("ENODE"));
    discovery->collectData("x");
    EXPECT_EQ(rows(), "");
    EXPECT_EQ(discovery->getPerfErrorCode(), NO_INSTANCES_RETURNED);
    const std::unique_ptr<ConfigOpStatus> status(addAgentConfigSection("ENODE", "one", nullptr));
    EXPECT_STREQ(status->text, "Section successfully added.");
    discovery->collectData("x");
    EXPECT_EQ(rows(), "%AFF,ENODE,one,0123,one,one,,;");
    EXPECT_EQ(discovery->getPerfErrorCode(), NO_INSTANCES_RETURNED);
    EXPECT_EQ(discovery->getPerfObjectStatus(), PERF_OBJECT_ACTIVE);
}

TEST_F(ConfigDiscovery, AMetricThatIsNoTextCostsAllRows) {
    load("[[NNODE]]\nid = \"one\"\n");
    parse(section("NNODE", "<metric name=\"Number\" type=\"NUMERIC_DATA\" visible=\"true\"/>"));
    testing::internal::CaptureStderr();
    discovery->collectData("x");
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("Missing metrics. Skipping row. expected 8 tokens, parsed 7."));
    EXPECT_EQ(discovery->getResultInstanceCount(), 0);
}

TEST_F(ConfigDiscovery, WhatIsMissingInItsSectionIsTold) {
    load("");
    ZSV1_UnsetEnv("ZBT_PRODUCT_CODE");
    testing::internal::CaptureStderr();
    parse("<agent><config_discovery ag=\"Conf\"><metric name=\"Subnode_Key\" type=\"STRING_DATA\"/></config_discovery></agent>");
    const std::string errors = testing::internal::GetCapturedStderr();
    EXPECT_THAT(errors, HasSubstr("attribute subnode_type is missing for attribute group Conf"));
    EXPECT_THAT(errors, HasSubstr("ZBT_PRODUCT_CODE not set in environment-- unable to collect subnode discovery data"));
    discovery->collectData("x");  // and goes on
    EXPECT_EQ(discovery->getPerfErrorCode(), NO_INSTANCES_RETURNED);
}

TEST_F(ConfigDiscovery, SectionsAddedAndRemovedAreManagedSystemsAtOnce) {
    almanac::host::configureTrace("NONE", nullptr);
    load("[[SNODE]]\nid = \"one\"\n");
    parse(section("SNODE"));
    makeManager();
    updateDiscoveryAttributeGroups();
    EXPECT_EQ(registered(), "PP:one:SNO,");
    const char* const properties[] = {"HOST=h", nullptr};
    std::unique_ptr<ConfigOpStatus> status(addAgentConfigSection("SNODE", "t/wo", properties));
    EXPECT_EQ(status->code, CONFIG_OK);
    EXPECT_EQ(registered(), "PP:one:SNO,PP:two:SNO,");
    EXPECT_TRUE(manager->getSubnodeQueryClass("PP:two:SNO", web.meta));
    EXPECT_THAT(rows(), HasSubstr("two,PP:two:SNO"));
    status.reset(removeAgentConfigSection("SNODE", "one"));
    EXPECT_EQ(registered(), "PP:two:SNO,");
    status.reset(removeAgentConfigSection("SNODE", "two"));
    EXPECT_EQ(registered(), "");
    EXPECT_EQ(readFile(file()).find("two"), std::string::npos);
    EXPECT_EQ(manager->zombieCount(), 2);
}

}  // namespace
