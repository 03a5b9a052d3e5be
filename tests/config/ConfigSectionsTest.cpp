// The instance's file: read at start, changed while the agent runs.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <filesystem>
#include <memory>

#include "config/ConfigFile.h"
#include "config/ConfigMap.h"
#include "config/subnodes/ConfigSections.h"
#include "host/Scratch.h"
#include "host/base/Trace.h"
#include "platform/zcp.h"
#include "runtime/reference/Application.h"

namespace {

using almanac::host::test::readFile;
using almanac::host::test::Scratch;
using almanac::host::test::Variable;
using almanac::host::test::writeFile;

std::string encrypted(const char* plain) {
    char* cipher = nullptr;
    EXPECT_EQ(ZCP_Encrypt(plain, "AES256", "keyfile", &cipher), ZCP_OK);
    const std::string text = cipher ? cipher : "";
    ZCP_Free(cipher);
    return text;
}

std::string value(const char* name) {
    char* text = getConfigurationProperty(name);
    const std::string result = text ? text : "(null)";
    std::free(text);
    return result;
}

std::string subnodeValue(const char* var, const char* section, const char* key) {
    char* text = getSubnodeConfigurationProperty(var, section, key);
    const std::string result = text ? text : "(null)";
    std::free(text);
    return result;
}

// Product TSTAPP: long code TST, short code st. Each test has a data directory of its own; the map is the process's.
class Sections : public testing::Test {
  protected:
    Sections() : data_("ALMANAC_DATA_DIR", scratch_.path("data")) {
        std::filesystem::create_directories(scratch_.path("data/config"));
        ::chmod(scratch_.path("data").c_str(), 0700);
        setProductCodes("TSTAPP");
        applicationName.copy("TSTAPP");
        almanac::host::configureTrace("NONE", nullptr);
    }
    ~Sections() override {
        almanac::host::configureTrace("ERROR", nullptr);
        instanceName.copy("");
        repeatableSections.clear();
    }
    std::string file() const { return scratch_.path(std::string("data/config/st") + suffix + ".toml"); }
    void load(const std::string& text) {
        writeFile(file(), text);
        loadAgentConfig();
    }
    static std::string add(const char* section, const char* id, const std::vector<const char*>& properties = {}) {
        std::vector<const char*> all(properties);
        all.push_back(nullptr);
        const std::unique_ptr<ConfigOpStatus> status(addAgentConfigSection(section, id, all.data()));
        return std::to_string(status->code) + " " + status->text;
    }
    static std::string remove(const char* section, const char* id) {
        const std::unique_ptr<ConfigOpStatus> status(removeAgentConfigSection(section, id));
        return std::to_string(status->code) + " " + status->text;
    }

    Scratch scratch_;
    Variable data_;
    std::string suffix;
};

TEST_F(Sections, AreLoadedIntoMapAndEnvironment) {
    suffix = "_prod";
    instanceName.copy("prod");
    repeatableSections.add("LDECL");
    load("[LSSH]\nLS_HOST = \"h\"\nLS_PORT = 22\nLS_TWICE = \"first\"\n"
         "[LLATER]\nLS_TWICE = \"second\"\n"
         "[LDECL]\nV = \"default\"\n"
         "[[LNODE]]\nid = \"one\"\nV = \"1\"\nPASS = \"" + encrypted("open sesame") + "\"\n"
         "[[LNODE]]\nid = \"//\"\nV = \"bad\"\n"
         "[[LNODE]]\nid = \"o ne\"\nV = \"duplicate\"\n"
         "[[LNODE]]\nid = \"two\"\nBROKEN = \"{AES256:keyfile:a}AAAA\"\nV = \"2\"\n");
    EXPECT_EQ(value("ZBT_PRODUCT_CODE"), "TST");
    EXPECT_EQ(value("TST_INSTANCE_NAME"), "prod");
    EXPECT_EQ(value("LS_HOST") + value("LS_PORT") + value("LS_TWICE"), "h22second");
    EXPECT_STREQ(ZSV1_GetProcessEnv("LS_PORT"), "22");
    EXPECT_EQ(value("TST_LDECL_COUNT") + value("TST_LDECL_V_DEFAULT"), "0default");
    EXPECT_EQ(value("TST_LNODE_COUNT"), "2");
    EXPECT_EQ(subnodeValue("V", "LNODE", "one") + subnodeValue("V", "LNODE", "two"), "12");
    EXPECT_EQ(subnodeValue("PASS", "LNODE", "one"), "open sesame");
    EXPECT_EQ(value("TST_LNODE_PASS_1_ZBT_TRACE"), "xxx");
    EXPECT_STREQ(ZSV1_GetProcessEnv("TST_LNODE_PASS_1"), "open sesame");
    EXPECT_EQ(value("TST_LNODE_BROKEN_2"), "(null)");  // a bad entry loses itself only
}

TEST_F(Sections, AMissingOrBrokenFileIsSurvived) {
    load("[broken\n");
    EXPECT_EQ(value("ZBT_PRODUCT_CODE"), "TST");
    EXPECT_EQ(add("X", "one"), "37 Configuration file could not be opened.");
    EXPECT_EQ(remove("X", "one"), "37 Configuration file could not be opened.");
    EXPECT_EQ(readFile(file()), "[broken\n");
}

TEST_F(Sections, TheReferenceFilesNameReachesThePlainEnvironment) {
    Variable cleared("AGENT_REF_FILE", ""), other("CDP_CONFIG_FILE", "/some/file");
    load("");
    EXPECT_STREQ(ZSV1_GetProcessEnv("CDP_CONFIG_FILE"), "/some/file");
    EXPECT_EQ(value("CDP_CONFIG_FILE"), "(null)");  // not local
}

TEST_F(Sections, AreAddedAndRemovedInMapEnvironmentAndFile) {
    load("# mine\n[[ANODE]]\nid = \"one\"\nPASS = \"" + encrypted("first secret") + "\"\n");
    const std::string before = readFile(file());
    EXPECT_EQ(add("", "x"), "33 Section name was not specified.");
    EXPECT_EQ(add(nullptr, "x"), "33 Section name was not specified.");
    EXPECT_EQ(add("ANODE", "/*"), "34 Section ID /* is not valid.");
    EXPECT_EQ(add("ANODE", "one"), "31 Section ANODE:one already exists.");
    EXPECT_EQ(add("ANODE", "o/ne"), "31 Section ANODE:o/ne already exists.");
    EXPECT_EQ(remove("ANODE", ""), "35 Section ID not specified.");
    EXPECT_EQ(remove("ANODE", "none"), "32 Section ANODE:none not found.");
    EXPECT_EQ(remove("UNKNOWN", "one"), "32 Section UNKNOWN:one not found.");
    EXPECT_EQ(readFile(file()), before);

    EXPECT_EQ(add("ANODE", "a b/c", {"HOST=  h", "EMPTY=", "NOVALUE", "=x", "EQ=a=b", "PASS=second secret"}),
              "0 Section successfully added.");
    EXPECT_EQ(value("TST_ANODE_IDLABEL_2") + value("TST_ANODE_SECTIONID_2"), "abca b/c");
    EXPECT_EQ(value("TST_ANODE_HOST_2") + value("TST_ANODE_EQ_2") + value("TST_ANODE_EMPTY_2"), "ha=b(null)");
    EXPECT_EQ(value("TST_ANODE_PASS_2") + value("TST_ANODE_PASS_2_ZBT_TRACE"), "second secretxxx");
    const std::string after = readFile(file());
    EXPECT_EQ(after.compare(0, before.size(), before), 0) << after;
    EXPECT_EQ(after.find("second secret"), std::string::npos);  // secret because another PASS of the file is
    EXPECT_NE(after.find("id = \"a b/c\""), std::string::npos) << after;
    ConfigFile reread;
    ASSERT_TRUE(reread.parseConfig() && reread.loadConfigInstance());
    ZCF::String cipher;
    std::string plain;
    ASSERT_TRUE(reread.findSection("ANODE", "a b/c").getEntryValue("PASS", &cipher));
    EXPECT_TRUE(decryptConfigValue(cipher.c_str(), &plain));
    EXPECT_EQ(plain, "second secret");

    EXPECT_EQ(remove("ANODE", "abc"), "0 Section successfully removed.");  // by the filtered key too
    EXPECT_EQ(readFile(file()).find("a b/c"), std::string::npos) << readFile(file());
    EXPECT_NE(readFile(file()).find("id = \"one\""), std::string::npos);
    for (const char* name : {"TST_ANODE_HOST_2", "TST_ANODE_PASS_2", "TST_ANODE_IDLABEL_2", "TST_ANODE_SECTIONID_2"}) {
        EXPECT_EQ(value(name), "(null)") << name;
        EXPECT_EQ(ZSV1_GetProcessEnv(name), nullptr) << name;
    }
    EXPECT_EQ(remove("ANODE", "abc"), "32 Section ANODE:abc not found.");
    EXPECT_EQ(add("ANODE", "again", {"HOST=h3"}), "0 Section successfully added.");
    EXPECT_EQ(value("TST_ANODE_HOST_3"), "h3");  // the index is a new one
}

// Files above a small size cannot be written while it lives.
class FullDisk {
  public:
    FullDisk() {
        handler_ = ::signal(SIGXFSZ, SIG_IGN);
        ::getrlimit(RLIMIT_FSIZE, &before_);
        rlimit small = before_;
        small.rlim_cur = 16;
        ::setrlimit(RLIMIT_FSIZE, &small);
    }
    ~FullDisk() {
        ::setrlimit(RLIMIT_FSIZE, &before_);
        ::signal(SIGXFSZ, handler_);
    }

  private:
    rlimit before_{};
    void (*handler_)(int) = nullptr;
};

TEST_F(Sections, AFileThatCannotBeWrittenLeavesTheMapAsItWas) {
    load("[FIRST]\nA = \"stays in the file\"\n[[FNODE]]\nid = \"one\"\nHOST = \"h1\"\n");
    const std::string before = readFile(file());
    {
        const FullDisk full;
        EXPECT_EQ(add("FNODE", "two", {"HOST=h2"}), "37 Configuration file could not be opened.");
        EXPECT_EQ(add("FPLAIN", "", {"FP_A=a"}), "37 Configuration file could not be opened.");
        EXPECT_EQ(remove("FNODE", "one"), "37 Configuration file could not be opened.");
    }
    EXPECT_EQ(readFile(file()), before);
    EXPECT_EQ(value("TST_FNODE_COUNT") + value("TST_FNODE_HOST_1") + value("TST_FNODE_IDLABEL_1"), "1h1one");
    for (const char* name : {"TST_FNODE_IDLABEL_2", "TST_FNODE_HOST_2", "FP_A"}) {
        EXPECT_EQ(value(name), "(null)") << name;
        EXPECT_EQ(ZSV1_GetProcessEnv(name), nullptr) << name;
    }
    EXPECT_EQ(add("FNODE", "two", {"HOST=h2", "BAD\nNAME=x"}), "0 Section successfully added.");
    EXPECT_EQ(value("TST_FNODE_HOST_2"), "h2");
    EXPECT_EQ(value("TST_FNODE_BAD\nNAME_2"), "(null)");  // the file does not take it, so the map does not
    writeFile(file(), "");
    EXPECT_EQ(remove("FNODE", "two"), "0 Section successfully removed.");  // taken out by hand before
    EXPECT_EQ(value("TST_FNODE_HOST_2"), "(null)");
}

TEST_F(Sections, WithoutAnIdArePlainOrDefaults) {
    load("[PTAKEN]\nPT_A = \"old\"\n");
    EXPECT_EQ(add("PTAKEN", ""), "31 Section PTAKEN already exists.");
    EXPECT_EQ(add("PNEW", "", {"PT_A=new", "PT_B=b"}), "0 Section successfully added.");
    EXPECT_EQ(value("PT_A") + value("PT_B"), "oldb");  // a plain name is not overwritten
    EXPECT_EQ(readFile(file()).find("new"), std::string::npos);
    EXPECT_EQ(add("PTYPE", "one"), "0 Section successfully added.");
    EXPECT_EQ(add("PTYPE", nullptr, {"V=default"}), "0 Section successfully added.");
    EXPECT_EQ(subnodeValue("V", "PTYPE", "one"), "default");
}

}  // namespace
