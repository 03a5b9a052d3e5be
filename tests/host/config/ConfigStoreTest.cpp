#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

#include "host/Scratch.h"
#include "host/config/TomlDocument.h"
#include "platform/zcf.h"

namespace almanac::host::test {
namespace {

const char* const kFile =
    "# The agent's settings, by hand.\n"
    "instance = \"prod\"   # which one\n"
    "unknown = [1,\n"
    "  2] # kept\n"
    "\n"
    "# How to reach it\n"
    "[SSH]\n"
    "SSH_HOST = 'a host'  # the host\n"
    "  SSH_PORT=22\n"
    "FLAG = true\n"
    "RATE = 1.50\n"
    "WHEN = 1979-05-27 07:32:00\n"
    "\"odd name\" = \"\"\"\n"
    "two\n"
    "lines\"\"\"\n"
    "# tail of SSH\n"
    "\n"
    "# defaults\n"
    "[[NODE]]\n"
    "TIMEOUT = \"5\"\n"
    "\n"
    "[[NODE]]\n"
    "id = \"a b/c\"\n"
    "HOST = \"x\"\n"
    "[NODE.extra]\n"
    "nested = 1\n"
    "# the last\n"
    "[[NODE]]\n"
    "HOST = \"y\"\n"
    "id = 5";

class ConfigStore : public ::testing::Test {
  protected:
    ConfigStore() : data_("ALMANAC_DATA_DIR", scratch_.path("data")) {
        std::filesystem::create_directories(scratch_.path("data/config"));
        ::chmod(scratch_.path("data").c_str(), 0700);
        put(kFile);
    }
    void put(const std::string& text) { writeFile(path_ = ZCF::ConfigParser::path("", "xy").c_str(), text); }
    std::string get() const { return readFile(path_); }
    ZCF::InstanceConfig* load(ZCF::AgentConfig* config) {
        if (!parser_.parseConfig("", "xy", config)) return nullptr;
        return config->getInstance(config->getInstanceNames()[0]);
    }
    bool save(ZCF::AgentConfig* config, bool backup = false) {
        ZCF::ConfigWriter writer(backup);
        const bool done = writer.writeConfig(config, "xy", "");
        error_ = writer.getError().c_str();
        return done;
    }

    Scratch scratch_;
    Variable data_;
    ZCF::ConfigParser parser_;
    std::string path_;
    std::string error_;
};

std::string value(const ZCF::ConfigSection& section, const char* name) {
    ZCF::String out("untouched");
    return section.getEntryValue(name, &out) ? out.c_str() : "<none>";
}

TEST_F(ConfigStore, ReadsSectionsInFileOrder) {
    ZCF::AgentConfig config;
    ZCF::InstanceConfig* const instance = load(&config);
    ASSERT_NE(instance, nullptr) << parser_.getError().c_str();
    EXPECT_STREQ(instance->getName().c_str(), "prod");
    ASSERT_EQ(instance->getNumSections(), 4);
    const char* const ids[] = {"", "", "a b/c", "5"};
    for (int i = 0; i < 4; ++i) {
        EXPECT_STREQ(instance->getSection(i).getName().c_str(), i == 0 ? "SSH" : "NODE");
        EXPECT_STREQ(instance->getSection(i).getID().c_str(), ids[i]);
    }
    EXPECT_TRUE(instance->getSection(4).isNull());
    EXPECT_TRUE(instance->getSection(-1).isNull());
    const ZCF::ConfigSection ssh = instance->getSection(0);
    const ZCF::Array<ZCF::String> names = ssh.getEntryNames();
    ASSERT_EQ(names.size(), 6);
    EXPECT_STREQ(names[0].c_str(), "SSH_HOST");
    EXPECT_STREQ(names[5].c_str(), "odd name");
    EXPECT_EQ(value(ssh, "SSH_HOST"), "a host");
    EXPECT_EQ(value(ssh, "SSH_PORT"), "22");
    EXPECT_EQ(value(ssh, "FLAG"), "true");
    EXPECT_EQ(value(ssh, "RATE"), "1.50");
    EXPECT_EQ(value(ssh, "WHEN"), "<none>");  // listed, but no text
    EXPECT_EQ(value(ssh, "odd name"), "two\nlines");
    EXPECT_EQ(instance->getSection(2).getEntryNames().size(), 1);  // the ID is no entry
}

TEST_F(ConfigStore, RewriteTouchesOnlyWhatChanged) {
    ZCF::AgentConfig config;
    ZCF::InstanceConfig* const instance = load(&config);
    ASSERT_NE(instance, nullptr);
    ZCF::ConfigSection ssh = instance->getSection(0);
    EXPECT_TRUE(ssh.writeEntry("SSH_HOST", "b\"\\\n\x01\x7F\xC3\xA4"));
    EXPECT_TRUE(ssh.writeEntry("SSH_PORT", "2222"));
    EXPECT_TRUE(ssh.writeEntry("FLAG", "maybe"));
    EXPECT_TRUE(ssh.writeEntry("RATE", "1.50"));
    EXPECT_TRUE(ssh.writeEntry("NEW.KEY", "v"));
    EXPECT_FALSE(ssh.writeEntry("", "v"));
    EXPECT_FALSE(ssh.writeEntry("a\nb", "v"));
    EXPECT_FALSE(ssh.writeEntry("id", "v"));
    EXPECT_FALSE(ssh.writeEntry("X", "\xFF"));
    EXPECT_TRUE(instance->getSection(3).writeEntry("MORE", "1"));  // where the file lacks its last line feed
    ASSERT_TRUE(save(&config, true)) << error_;
    std::string expected = kFile;
    const auto change = [&](const std::string& from, const std::string& to) {
        const std::size_t at = expected.find(from);
        ASSERT_NE(at, std::string::npos) << from;
        expected.replace(at, from.size(), to);
    };
    change("'a host'", "\"b\\\"\\\\\\n\\u0001\\u007F\xC3\xA4\"");
    change("=22\n", "=2222\n");
    change("FLAG = true", "FLAG = \"maybe\"");
    change("lines\"\"\"\n", "lines\"\"\"\n\"NEW.KEY\" = \"v\"\n");
    change("id = 5", "id = 5\nMORE = \"1\"\n");
    EXPECT_EQ(get(), expected);
    EXPECT_EQ(readFile(path_ + "~"), kFile);
    EXPECT_EQ(modeOf(path_), 0600u);
    ZCF::AgentConfig again;
    ZCF::InstanceConfig* const read = load(&again);
    ASSERT_NE(read, nullptr);
    EXPECT_EQ(value(read->getSection(0), "SSH_HOST"), "b\"\\\n\x01\x7F\xC3\xA4");
}

TEST_F(ConfigStore, RemovesASectionWithWhatBelongsToIt) {
    ZCF::AgentConfig config;
    ZCF::InstanceConfig* const instance = load(&config);
    ASSERT_NE(instance, nullptr);
    const ZCF::ConfigSection handle = instance->getSection(2);
    EXPECT_FALSE(instance->removeSection("NODE", "abc"));
    EXPECT_TRUE(instance->removeSection("NODE", "a b/c"));
    EXPECT_FALSE(instance->removeSection("NODE", "a b/c"));
    EXPECT_EQ(handle.getEntryNames().size(), 0);  // a handle of a removed section is harmless
    EXPECT_STREQ(handle.getName().c_str(), "");
    EXPECT_TRUE(instance->removeSection("SSH", ""));
    ASSERT_TRUE(save(&config)) << error_;
    EXPECT_EQ(
        get(),
        "# The agent's settings, by hand.\ninstance = \"prod\"   # which one\nunknown = [1,\n  2] # kept\n\n"
        "# defaults\n[[NODE]]\nTIMEOUT = \"5\"\n\n# the last\n[[NODE]]\nHOST = \"y\"\nid = 5");
}

TEST_F(ConfigStore, AddsSectionsBesideOldOnes) {
    put("[A]  # alone so far\r\nX = 1\r\n");
    ZCF::AgentConfig config;
    ZCF::InstanceConfig* const instance = load(&config);
    ASSERT_NE(instance, nullptr);
    ZCF::ConfigSection node = instance->addSection("A");
    node.setID("n 1");
    EXPECT_TRUE(node.writeEntry("Y", "2"));
    EXPECT_TRUE(instance->addSection("B C").writeEntry("Z", ""));
    EXPECT_TRUE(instance->addSection("").isNull());
    ZCF::ConfigSection gone = instance->addSection("D");
    EXPECT_TRUE(instance->removeSection("D", ""));
    EXPECT_FALSE(gone.writeEntry("Q", "q"));
    ASSERT_TRUE(save(&config)) << error_;
    EXPECT_EQ(get(),
              "[[A]]  # alone so far\r\nX = 1\r\n\r\n[[A]]\r\nid = \"n 1\"\r\nY = \"2\"\r\n\r\n[\"B "
              "C\"]\r\nZ = \"\"\r\n");
    ZCF::AgentConfig again;
    ZCF::InstanceConfig* const read = load(&again);
    ASSERT_NE(read, nullptr) << parser_.getError().c_str();
    EXPECT_STREQ(read->getSection(1).getID().c_str(), "n 1");
}

TEST_F(ConfigStore, SeesDuplicatesAsTwo) {
    put("[[N]]\nid = \"a\"\nX = 1\n[[N]]\nid = \"a\"\nX = 2\n");
    ZCF::AgentConfig config;
    ZCF::InstanceConfig* const instance = load(&config);
    ASSERT_NE(instance, nullptr);
    EXPECT_EQ(instance->getNumSections(), 2);
    EXPECT_TRUE(instance->removeSection("N", "a"));
    EXPECT_EQ(value(instance->getSection(0), "X"), "2");
}

TEST_F(ConfigStore, RefusesABrokenFileWithItsPlace) {
    const struct {
        const char* text;
        const char* place;
    } cases[] = {{"[A]\nX = 1\nX = 2\n", ":3:"},
                 {"[A]\nX = \n", ":2:"},
                 {"[A]\nX = \"a\n[B]\n", ":2:"},
                 {"[A]\n[A]\n", ":2:"},
                 {"[A\n", ":1:"},
                 {"[A]\nid = [1]\n", ":2:"},
                 {"instance = { a = 1 }\n", ":1:"},
                 {"[A]\nX = \"\\q\"\n", ":2:"},
                 {"[A]\n\xFF = 1\n", ":2:"}};
    for (const auto& c : cases) {
        put(c.text);
        ZCF::AgentConfig config;
        EXPECT_EQ(load(&config), nullptr) << c.text;
        const std::string error = parser_.getError().c_str();
        EXPECT_EQ(error.rfind(path_ + c.place, 0), 0u) << error;
        EXPECT_EQ(error.find('\n'), std::string::npos);
        EXPECT_EQ(config.getInstanceNames().size(), 0);
        EXPECT_FALSE(save(&config));
        EXPECT_EQ(get(), c.text);
    }
    ::unlink(path_.c_str());
    ZCF::AgentConfig config;
    EXPECT_EQ(load(&config), nullptr);
    EXPECT_NE(std::string(parser_.getError().c_str()).find("no such file"), std::string::npos);
}

TEST_F(ConfigStore, NamesStayInTheFolder) {
    EXPECT_EQ(std::string(ZCF::ConfigParser::path("../../x y", "k/q").c_str()),
              scratch_.path("data/config/k_q_.._.._x_y.toml"));
}

TEST_F(ConfigStore, DoesNotOverwriteAnOperatorsEdit) {
    ZCF::AgentConfig config;
    ZCF::InstanceConfig* const instance = load(&config);
    ASSERT_NE(instance, nullptr);
    EXPECT_TRUE(instance->getSection(0).writeEntry("FLAG", "false"));
    put("[MINE]\n");
    EXPECT_FALSE(save(&config));
    EXPECT_EQ(get(), "[MINE]\n");
}

TEST_F(ConfigStore, FullDiskLeavesTheOldFileAndNothingBeside) {
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        ::signal(SIGXFSZ, SIG_IGN);
        ZCF::AgentConfig config;
        ZCF::InstanceConfig* const instance = load(&config);
        const rlimit limit{600, 600};
        if (!instance || ::setrlimit(RLIMIT_FSIZE, &limit) != 0) ::_exit(2);
        instance->getSection(0).writeEntry("BIG", std::string(1000, 'x'));
        ::_exit(save(&config) ? 3 : (error_.empty() ? 4 : 0));
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(get(), kFile);
    int files = 0;
    for (const auto& entry : std::filesystem::directory_iterator(scratch_.path("data/config")))
        files += entry.exists();
    EXPECT_EQ(files, 1);
}

// Killed at any moment of many rewrites, the file is always one that was meant.
TEST_F(ConfigStore, KillDuringRewriteNeverTears) {
    const std::string big(20000, 'z');
    int rewritten = 0;
    for (int round = 0; round < 15; ++round) {
        const pid_t child = ::fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            for (int i = 0;; ++i) {
                ZCF::AgentConfig config;
                ZCF::InstanceConfig* const instance = load(&config);
                if (!instance) ::_exit(1);
                instance->getSection(0).writeEntry("BIG", std::to_string(i) + big);
                instance->getSection(0).writeEntry("SMALL", std::to_string(i));
                if (!save(&config)) ::_exit(1);
            }
        }
        // The first is killed once it has rewritten the file, however slow it is.
        for (int i = 0; round == 0 && i < 3000 && get() == kFile; ++i) ZSV1_MilliSleep(10);
        ZSV1_MilliSleep(static_cast<unsigned>(10 + 7 * round));
        ::kill(child, SIGKILL);
        int status = 0;
        ASSERT_EQ(::waitpid(child, &status, 0), child);
        ASSERT_TRUE(WIFSIGNALED(status)) << "the writer gave up";
        ZCF::AgentConfig config;
        ZCF::InstanceConfig* const instance = load(&config);
        ASSERT_NE(instance, nullptr) << parser_.getError().c_str();
        const std::string small = value(instance->getSection(0), "SMALL");
        if (small == "<none>") continue;
        ++rewritten;
        EXPECT_EQ(value(instance->getSection(0), "BIG"), small + big);
    }
    EXPECT_GT(rewritten, 0);
    ZCF::AgentConfig config;
    ASSERT_NE(load(&config), nullptr);
    ASSERT_TRUE(save(&config));
    int files = 0;
    for (const auto& entry : std::filesystem::directory_iterator(scratch_.path("data/config")))
        files += entry.exists();
    EXPECT_EQ(files, 1) << "what killed writers left is swept by the next";
}

TEST(TomlDocument, UnchangedTextStaysByteByByte) {
    for (const std::string& text :
         {std::string(kFile), std::string("\xEF\xBB\xBF# mark\r\n[A]\r\nx=1\r\n"), std::string(""),
          std::string("\n\n"),
          std::string(
              "[ 'a b' ] # c\n\"\\u0041\" = 1\nk.l = 2\n[x.y]\nz = { a = [ '#', \"]\" ] }\n[[x.w]]\n")}) {
        TomlDocument document;
        std::string error;
        ASSERT_TRUE(document.parse(text, "f", &error)) << error;
        EXPECT_EQ(document.render(), text);
    }
}

}  // namespace
}  // namespace almanac::host::test
