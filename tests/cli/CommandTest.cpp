// The almanac command against the real daemon: every command as a user types it.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "cli/CommandKit.h"

namespace {

using namespace almanac::test;

// Discovery from the configuration and one script table for each section of the type NODE.
const char kNodesFile[] = R"(<agent>
<repeatable_section name="NODE"/>
<appl name="TST" nodeType="TS" affinity="T" agentVersion="01" version="01" service="s" internalAgentVersion="01"/>
<metadata>
<ag table="Found" name="Found" discovery_attribute_group="true"><attr name="Timestamp" type="1" size="16"/>
<attr name="Subnode_Affinity" type="2" size="16"/><attr name="Subnode_Type" type="2" size="8"/>
<attr name="Subnode_Version" type="2" size="8"/><attr name="Subnode_Key" type="2" size="32"/>
<attr name="Subnode_MSN" type="2" size="32"/></ag>
<ag table="Web" name="Web" subnode_type="NODE"><attr name="Timestamp" type="1" size="16"/><attr name="Host" type="2" size="32"/></ag>
</metadata>
<config_discovery app="TST" ag="Found" subnode_type="NODE" subnode_affinity_value="%T">
<metric name="Subnode_Affinity" type="STRING_DATA" visible="true"/><metric name="Subnode_Type" type="STRING_DATA" visible="true"/>
<metric name="Subnode_Version" type="STRING_DATA" visible="true"/>
<metric name="Subnode_Key" type="STRING_DATA" key="true" visible="true"/>
<metric name="Subnode_MSN" type="STRING_DATA" visible="true"/></config_discovery>
<script app="TST" ag="Web" name="web" command="echo $HOST" separator=",">
<metric name="Host" type="STRING_DATA" key="true" visible="true"/></script>
</agent>
)";

TEST_F(Command, SectionsOfTheConfigurationAreManagedSystems) {
    std::filesystem::create_directories(data_.path("data/config"));
    ASSERT_EQ(shell("chmod 700 '" + data_.path("data") + "'").status, 0);
    writeFile(data_.path("data/config/st.toml"), "[[NODE]]\nid = \"one\"\nHOST = \"first.example\"\n"
                                                "[[NODE]]\nid = \"tw/o\"\nHOST = \"second.example\"\n");
    writeFile(data_.path("nodes.xml"), kNodesFile);
    const Outcome check = almanac("check '" + data_.path("nodes.xml") + "'");
    EXPECT_EQ(check.status, 0) << check.err;
    ASSERT_EQ(almanac("run --daemon '" + data_.path("nodes.xml") + "'", "ALMANAC_ORIGINNODE=own:TS ").status, 0);
    Outcome nodes;
    for (int i = 0; i < 200 && nodes.out.find("ST:two:NOD") == std::string::npos; ++i) {
        nodes = almanac("nodes");
        usleep(20000);
    }
    std::istringstream lines(nodes.out);
    std::string line, names;
    while (std::getline(lines, line)) names += line.substr(0, line.find(' ')) + ",";
    EXPECT_EQ(names, "NODE,own:TS,ST:one:NOD,ST:two:NOD,") << nodes.out;
    EXPECT_NE(almanac("nodes -o json").out.find("\"name\":\"ST:one:NOD\",\"type\":\"NOD\",\"application\":\"ST\",\"version\":"
                                                "\"01\",\"affinity\":\"%T\",\"subnode\":true,"), std::string::npos);

    const std::string csv = " -o csv -c ORIGINNODE,Host";
    const std::string title = "ORIGINNODE,Host\r\n", one = "ST:one:NOD,first.example\r\n", two = "ST:two:NOD,second.example\r\n";
    EXPECT_EQ(almanac("show Web --node ST:two:NOD" + csv).out, title + two);
    EXPECT_EQ(almanac("show Web --node ST:two:NOD --node ST:one:NOD" + csv).out, title + two + one);
    EXPECT_EQ(almanac("show Web -n ST:two:NOD,ST:one:NOD,ST:two:NOD" + csv).out, title + two + one);
    EXPECT_EQ(almanac("show Web --node '*'" + csv).out, title + one + two);
    EXPECT_EQ(almanac("show Web" + csv).out, title + one + two);
    EXPECT_EQ(almanac("show Web --node own:TS" + csv).out, title);
    EXPECT_NE(almanac("show Web").out.find("ST:one:NOD"), std::string::npos) << "rows of several nodes show whose they are";
    EXPECT_NE(almanac("show Found --node own:TS").out.find("ST:two:NOD"), std::string::npos);
    const std::pair<const char*, const char*> wrong[] = {
        {"show Web --node ST:none:NOD", "no managed system has the name 'ST:none:NOD'"},
        {"show Web --node ST:one:NOD,x", "no managed system has the name 'x'"},
        {"show Found --node ST:one:NOD", "table 'Found' has rows of 'own:TS' alone"},
    };
    for (const auto& [arguments, says] : wrong) {
        const Outcome o = almanac(arguments);
        EXPECT_EQ(o.status, 1) << arguments;
        EXPECT_NE(o.err.find(says), std::string::npos) << o.err;
    }
    EXPECT_EQ(almanac("stop").status, 0);
}

TEST_F(Command, OutputsAndFilters) {
    const std::string file = oneTable("printf 'a,1\\nb &quot;q&quot;,22\\nc,-3\\n'");
    ASSERT_EQ(almanac("run --daemon '" + file + "'").status, 0);
    EXPECT_EQ(almanac("show One -o csv -c Name,Number").out, "Name,Number\r\na,1\r\n\"b \"\"q\"\"\",22\r\nc,-3\r\n");
    EXPECT_EQ(almanac("show One -o ndjson -c Number --filter \"Number > 1 OR Name = 'c'\"").out, "{\"Number\":22}\n{\"Number\":-3}\n");
    EXPECT_EQ(almanac("show One -o ndjson -c Name --filter \"SCAN(Name,'q')\" ").out, "{\"Name\":\"b \\\"q\\\"\"}\n");
    EXPECT_EQ(almanac("show One -o ndjson -c Name --limit 1").out, "{\"Name\":\"a\"}\n");
    const Outcome table = almanac("show One");
    EXPECT_EQ(table.out, "Name   Number\na           1\nb \"q\"      22\nc          -3\n");
    EXPECT_NE(table.err.find("3 rows"), std::string::npos);
    EXPECT_EQ(table.out.find('\033'), std::string::npos) << "no escapes but to a terminal";

    EXPECT_EQ(almanac("show One -c Number,name --limit 1").out, "Number  Name\n     1  a\n") << "the order asked for";
    EXPECT_EQ(almanac("show One -c Number --filter 'Number > 99'").out, "Number\n") << "the header of no rows";
    EXPECT_EQ(almanac("tables -o json").out.find("\n\n"), std::string::npos);
    const Outcome full = almanac("show One >/dev/full");
    EXPECT_EQ(full.status, 1);
    EXPECT_NE(full.err.find("standard output: No space left on device"), std::string::npos) << full.err;

    const Outcome badFilter = almanac("show One --filter 'Nme = 1'");
    EXPECT_EQ(badFilter.status, 2);
    EXPECT_NE(badFilter.err.find("Name"), std::string::npos) << badFilter.err;
    EXPECT_EQ(badFilter.out, "");
    EXPECT_EQ(almanac("show Nothing").status, 1);
    EXPECT_EQ(almanac("show One --watch soon").status, 2);
    EXPECT_EQ(almanac("show").status, 2);
    const Outcome unknown = almanac("frobnicate");
    EXPECT_EQ(unknown.status, 2);
    EXPECT_EQ(unknown.err.rfind("almanac: no command or option 'frobnicate'; the commands are run, stop", 0), 0u) << unknown.err;
    EXPECT_EQ(almanac("--data-dir").err, "almanac: --data-dir: 1 required TEXT missing\nSee almanac --help\n");
    EXPECT_EQ(almanac("show One --limit 0").err, "almanac: --limit: '0' is no number of at least 1\nSee almanac show --help\n");
    EXPECT_EQ(almanac("show One -o xml").status, 2);
    EXPECT_EQ(almanac("--help").status, 0);
}

TEST_F(Command, TheHostsConfigurationGoesBeforeTheDefaultsOfRun) {
    writeFile(data_.path("host.toml"), "[environment]\nAGENT_BIN_DIR = \"/from/file\"\nAGENT_LIB_DIR = \"/lib\"\n");
    const std::string file = oneTable("echo ${AGENT_BIN_DIR}${AGENT_LIB_DIR},1",
                                      "<env_variable name=\"AGENT_BIN_DIR\"/><env_variable name=\"AGENT_LIB_DIR\"/>\n");
    const std::string configuration = "ALMANAC_CONFIG='" + data_.path("host.toml") + "' ";
    ASSERT_EQ(almanac("run --daemon --set AGENT_LIB_DIR=/set '" + file + "'", configuration).status, 0);
    EXPECT_EQ(almanac("show One -o ndjson -c Name").out, "{\"Name\":\"/from/file/set\"}\n");
}

TEST_F(Command, RelativePathsAreMeantFromTheStart) {
    writeFile(data_.path("host.toml"), "[environment]\nALM_X = 1\n");
    const std::string file = oneTable("echo a,1");
    const std::string at = "cd '" + data_.path("") + "' && ALMANAC_CONFIG=host.toml ALMANAC_SOCKET=api ";
    // The agent's working directory is the folder of its file, here another one than the start's.
    ASSERT_EQ(shell("mkdir -p '" + data_.path("elsewhere") + "' && mv '" + file + "' '" + data_.path("elsewhere") + "'").status, 0);
    const Outcome run = almanac("--data-dir data run -d elsewhere/one.xml", at);
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(almanac("--data-dir data show One -o ndjson -c Name", at).out, "{\"Name\":\"a\"}\n");
    EXPECT_EQ(shell("ls '" + data_.path("elsewhere") + "'").out, "one.xml\n");
}

TEST_F(Command, TraceIsSetWhileTheAgentRuns) {
    ASSERT_EQ(almanac("run --daemon '" + oneTable("echo a,1") + "'").status, 0);
    EXPECT_EQ(almanac("trace").out, "ERROR\n");
    EXPECT_EQ(almanac("trace ALL").status, 0);
    almanac("show One");
    EXPECT_NE(readFile(data_.path("data/almanacd.log")).find("Calling collectDataIfNeeded on"), std::string::npos);
    EXPECT_EQ(almanac("trace '(UNIT'").status, 2);
}

TEST_F(Command, AnEncryptedValueIsReadAndShownNowhere) {
    const Outcome secret = almanac("encrypt", "printf 'canary-4711' | ");
    ASSERT_EQ(secret.status, 0) << secret.err;
    ASSERT_EQ(secret.out.rfind("{AES256:keyfile:a}", 0), 0u);
    EXPECT_EQ(almanac("encrypt", "printf '' | ").status, 2);
    ASSERT_EQ(shell("mkdir -p '" + data_.path("data/config") + "'").status, 0);
    writeFile(data_.path("data/config/st.toml"),
              "[PATHS]\nAGENT_LIB_DIR = \"" + secret.out.substr(0, secret.out.size() - 1) + "\"\n");
    // The script receives the plain value through the configuration.
    const std::string file = oneTable("test ${AGENT_LIB_DIR} = canary-4711 &amp;&amp; echo right,1; true");
    ASSERT_EQ(almanac("run --daemon '" + file + "'", "ZSB_ZTR1=ALL ").status, 0);
    EXPECT_EQ(almanac("show One -o ndjson -c Name").out, "{\"Name\":\"right\"}\n");
    EXPECT_EQ(readFile(data_.path("data/almanacd.log")).find("canary"), std::string::npos);
}

TEST_F(Command, FaultsOfTheStartAreOneLineAndAnExitCode) {
    EXPECT_EQ(almanac("run '" + data_.path("missing.xml") + "'").status, 78);
    const std::string broken = data_.path("broken.xml");
    writeFile(broken, "<agent>\n  <appl name='X'/>\n</agent>\n");
    const Outcome checked = almanac("check '" + broken + "'");
    EXPECT_EQ(checked.status, 1);
    EXPECT_EQ(checked.out.rfind(broken + ":2:3: error: Attribute value does not start with quote", 0), 0u) << checked.out;
    EXPECT_EQ(almanac("run '" + broken + "'").status, 78);
    const Outcome forced = almanac("run --daemon --no-check '" + broken + "'");
    EXPECT_EQ(forced.status, 78);
    EXPECT_NE(forced.err.find("Fatal XML error: Attribute value does not start with quote"), std::string::npos) << forced.err;
    writeFile(data_.path("host.toml"), "[environment]\nA = [1]\n");
    const Outcome unread = almanac("run --no-check '" + example() + "'", "ALMANAC_CONFIG='" + data_.path("host.toml") + "' ");
    EXPECT_EQ(unread.status, 78);
    EXPECT_EQ(unread.err, "almanac: " + data_.path("host.toml") + ":2:5: environment.A is no text, number or boolean\n");
    EXPECT_EQ(almanac("check '" + data_.path("missing.xml") + "'").status, 78);
    EXPECT_EQ(almanac("check /").status, 78);
    EXPECT_EQ(almanac("check '" + example() + "'").status, 0);
    EXPECT_NE(almanac("corrections").out.find("event-console"), std::string::npos);
}

TEST_F(Command, FormulasAtThePromptAndInATable) {
    const struct {
        const char* arguments;
        int status;
        const char* out;
        const char* err;  // is part of what is told
    } cases[] = {
        {"'A / B * 100' --set A=1 --set B=8", 0, "12.5 (double)\n", ""},
        {"'A + 1' -s A=2147483647", 0, "2147483648 (64-bit integer)\n", ""},
        {"'A - 1' -s A=0u", 0, "18446744073709551615 (unsigned 64-bit integer)\n", ""},
        {"'A + \"!\"' -s A=1.x", 0, "1.x! (text)\n", ""},
        {"'A + \"!\"' -s 'A=\"42\"'", 0, "42! (text)\n", ""},
        {"-- '-A' -s", 2, "", "--help"},
        {"'trend(last(A, 5))' -s A=10 -s A=20 -s A=30", 0, "0 (double)\n30 (double)\n40 (double)\n", ""},
        {"'count(0)' --repeat 2", 0, "1 (64-bit integer)\n2 (64-bit integer)\n", ""},
        {"'A' --type STRING_DATA", 0, "A (text)\n", "warning: 'A' is no attribute of the row; it counts as its own name\n    A\n    ^\n"},
        {"'maks(1)'", 0, "0 (32-bit integer)\n", "did you mean 'max'?"},
        {"'1 + (2 * '", 1, "", "almanac: formula: parse error (the formula ends too early)\n    1 + (2 * \n             ^\n"},
        {"'1' --type RATE_DATE", 2, "", "unknown type 'RATE_DATE'; did you mean 'RATE_DATA'?"},
        {"'1' --set A", 2, "", "--set takes NAME=VALUE, not 'A'"},
    };
    for (const auto& c : cases) {
        const Outcome o = almanac(std::string("eval ") + c.arguments);
        EXPECT_EQ(o.status, c.status) << c.arguments;
        EXPECT_EQ(o.out, c.out) << c.arguments;
        EXPECT_NE(o.err.find(c.err), std::string::npos) << c.arguments << " tells\n" << o.err;
        if (!*c.err) {
            EXPECT_EQ(o.err, "") << c.arguments;
        }
    }
    const std::string file = oneTable("echo a,5; echo b,-7");
    std::string text = readFile(file);
    text.replace(text.find("</ag>"), 5,
                 "<attr name=\"Half\" type=\"7\" size=\"8\" hint=\"d-1\"/><attr name=\"Label\" type=\"2\" size=\"16\"/></ag>");
    text.replace(text.find("</script>"), 9,
                 "<metric name=\"Half\" type=\"NUMERIC_64BIT_DATA\" visible=\"true\" scale=\"1\" scaleTransparent=\"true\" "
                 "formula=\"Number / 2\"/>\n<metric name=\"Label\" type=\"STRING_DATA\" visible=\"true\" "
                 "formula=\"Name + &quot;=&quot; + itoa(Number)\"/></script>");
    writeFile(file, text);
    EXPECT_EQ(almanac("check '" + file + "'").out, "");
    ASSERT_EQ(almanac("run --daemon '" + file + "'").status, 0);
    EXPECT_EQ(almanac("show One -o ndjson -c Name,Half,Label").out,
              "{\"Name\":\"a\",\"Half\":2.5,\"Label\":\"a=5\"}\n{\"Name\":\"b\",\"Half\":-3.5,\"Label\":\"b=-7\"}\n");
}

TEST_F(Command, ScriptsThatMisbehaveKeepToTheirTable) {
    const std::string bad = data_.path("bad.sh");
    writeFile(bad, "#!/bin/sh\nprintf 'a,1\\n'; kill -9 $$\n");
    const std::string file = oneTable("sh " + bad);
    ASSERT_EQ(almanac("run --daemon '" + file + "'").status, 0);
    EXPECT_EQ(almanac("show One -o ndjson -c Name").out, "{\"Name\":\"a\"}\n") << "death by a signal keeps the rows";
    const std::string pid = shell("cat '" + data_.path("data/almanac.lock") + "'").out;
    EXPECT_EQ(shell("ps -o stat= --ppid " + std::to_string(std::atol(pid.c_str())) + " | grep -c Z").out, "0\n");
}

}  // namespace
