// The flat map: sections into indexes, layers of a subnode's variables, substitution, and readers beside writers.
#include <gtest/gtest.h>

#include <cstdio>
#include <map>

#include <thread>
#include <vector>

#include "config/ConfigMap.h"
#include "foundation/Utilities.h"
#include "host/Scratch.h"
#include "host/base/Trace.h"
#include "runtime/reference/Application.h"

namespace {

using almanac::host::test::Variable;

std::string taken(char* text) {
    std::string result = text ? text : "(null)";
    std::free(text);
    return result;
}

std::string shown(const char* text) { return text ? text : "(null)"; }

// A map of its own, with the product code PC.
class Map : public ConfigMap {
  public:
    Map() { put(productCodeVariable, "PC"); }
    std::string index(const char* key, const char* section) { return taken(getSubnodeIndex("PC", key, section)); }
    std::string variable(const char* section, const char* var, const char* index) {
        return shown(getSubnodeConfigurationVariable("PC", section, var, index));
    }
};

TEST(ConfigMap, SectionsGetIndexesByTheirIds) {
    Map map;
    map.setHighestSubnodeIndex("DECLARED", 0);
    const struct {
        const char* section;
        const char* id;
        int index;
    } steps[] = {
        {"PLAIN", "", -1},        {"PLAIN", nullptr, -1}, {"NEW", "one", 1},    {"NEW", "", 0},      {"NEW", "two", 2},
        {"NEW", "one", -2},       {"NEW", "o/n/e", -2},   {"NEW", "/ *", -3},   {"NEW", "three", 3}, {"DECLARED", "", 0},
        {"DECLARED", "a b/c", 1}, {"DECLARED", "abc", -2}, {"OTHER", "\xC3\xA9", -3}, {"OTHER", "", -1},
    };
    for (const auto& s : steps) EXPECT_EQ(map.addSection(s.section, s.id), s.index) << s.section << ":" << shown(s.id);
    EXPECT_EQ(map.getHighestSubnodeIndex("NEW"), 3);
    EXPECT_EQ(map.getHighestSubnodeIndex("PLAIN"), -1);
    EXPECT_STREQ(map.get("PC_DECLARED_IDLABEL_1"), "abc");
    EXPECT_STREQ(map.get("PC_DECLARED_SECTIONID_1"), "a b/c");
    EXPECT_EQ(map.get("PC_NEW_SECTIONID_1"), nullptr);  // only where filtering changed it
    EXPECT_STREQ(map.getSectionID("DECLARED", 1), "a b/c");
    EXPECT_STREQ(map.getSectionID("NEW", 2), "two");
    EXPECT_EQ(map.index("a b/c", "DECLARED") + map.index("abc", "DECLARED") + map.index("a", "DECLARED"), "11(null)");
    EXPECT_EQ(map.index(nullptr, "NEW") + map.index("one", "PLAIN"), "(null)(null)");
}

TEST(ConfigMap, IndexesAreNeverUsedAgain) {
    Map map;
    for (const char* id : {"one", "two", "three"}) map.addSection("GAP", id);
    EXPECT_EQ(map.removeSection("GAP", "none"), 0);
    EXPECT_EQ(map.removeSection("GAP", "three"), 3);
    EXPECT_EQ(map.addSection("GAP", "three"), 4);
    EXPECT_EQ(map.removeSection("GAP", "two"), 2);
    EXPECT_EQ(map.index("three", "GAP") + map.index("two", "GAP"), "4(null)");
}

TEST(ConfigMap, AKeysIndexIsTheLowestHoweverTheEntriesCameAndWent) {
    ConfigMap map;
    map.put(ConfigMap::productCodeVariable, "PC");
    map.setHighestSubnodeIndex("TYPE", 20);
    const std::string keys[] = {"a", "b", "c_IDLABEL_3", ""};
    std::map<std::string, std::string> model;
    unsigned seed = 7;
    for (int step = 0; step < 4000; ++step) {
        seed = seed * 1664525u + 1013904223u;
        // Also names that only look like labels, and indexes beyond the highest.
        const char* forms[] = {"PC_TYPE_IDLABEL_%u", "PC_TYPE_IDLABEL_0%u", "PC_TYPE_IDLABEL_%ux", "PC_TYPE_X_IDLABEL_%u"};
        char name[64];
        std::snprintf(name, sizeof name, forms[(seed >> 28) % 4], (seed >> 8) % 25);
        const std::string& value = keys[(seed >> 16) % 4];
        switch ((seed >> 20) % 4) {
            case 0:
                map.remove(name);
                model.erase(name);
                break;
            case 1:
                map.setEnvProperty(name, value.c_str(), true, false);
                model[name] = value;
                break;
            default:
                map.put(name, value.c_str());
                model[name] = value;
        }
        for (const std::string& key : keys) {
            int expected = 0;
            for (int i = 20; i >= 1; --i) {
                const auto found = model.find("PC_TYPE_IDLABEL_" + std::to_string(i));
                if (found != model.end() && found->second == key) expected = i;
            }
            char* index = map.getSubnodeIndex("PC", key.c_str(), "TYPE");
            ASSERT_EQ(index ? std::atoi(index) : 0, expected) << "step " << step << " key " << key;
            std::free(index);
        }
    }
}

TEST(ConfigMap, RemovingASubnodesPropertiesTakesSecretsAndLeavesTheRest) {
    Map map;
    for (const char* id : {"one", "two"}) map.addSection("REM", id);
    for (const int index : {0, 1, 2, 11}) {
        map.setSubnodeProperty("REM", index, "HOST", "h", false);
        map.setSubnodeProperty("REM", index, "PASS", "secret word", true);
    }
    EXPECT_STREQ(map.get("PC_REM_PASS_1_ZBT_TRACE"), "xxx");
    map.removeSubnodeProperties("REM", 1);
    for (const char* name : {"PC_REM_HOST_1", "PC_REM_PASS_1", "PC_REM_PASS_1_ZBT_TRACE"}) {
        EXPECT_EQ(map.get(name), nullptr) << name;
        EXPECT_EQ(ZSV1_GetProcessEnv(name), nullptr) << name;
    }
    for (const char* name : {"PC_REM_HOST_DEFAULT", "PC_REM_HOST_2", "PC_REM_PASS_11_ZBT_TRACE", "PC_REM_COUNT"}) {
        EXPECT_NE(map.get(name), nullptr) << name;
    }
    EXPECT_STREQ(ZSV1_GetProcessEnv("PC_REM_HOST_2"), "h");
    map.removeSubnodeProperties("REM", 0);
    EXPECT_EQ(map.get("PC_REM_PASS_DEFAULT_ZBT_TRACE"), nullptr);
    EXPECT_STREQ(map.get("PC_REM_HOST_2"), "h");
}

TEST(ConfigMap, TheFirstLayerThatIsNotEmptyWins) {
    const struct {
        const char* own;
        const char* defaults;
        const char* plain;
        const char* value;
    } cases[] = {
        {"o", "d", "p", "o"}, {"", "d", "p", "d"}, {"", "", "p", "p"}, {nullptr, "d", "p", "d"},
        {nullptr, nullptr, "p", "p"}, {"", "", "", ""}, {"", "", nullptr, "(null)"},
    };
    for (const auto& c : cases) {
        Map map;
        map.addSection("LAY", "one");
        map.setConfigurationProperty("PC_LAY_V_1", c.own);
        map.setConfigurationProperty("PC_LAY_V_DEFAULT", c.defaults);
        map.setConfigurationProperty("V", c.plain);
        EXPECT_EQ(map.variable("LAY", "V", "1"), c.value);
        EXPECT_EQ(map.variable("LAY", "V", nullptr), c.defaults && *c.defaults ? c.defaults : shown(c.plain));
    }
}

TEST(ConfigMap, WithoutAMapTheEnvironmentIsAsked) {
    Variable set("ALMANAC_TEST_PLAIN", "from the environment");
    ConfigMap empty;
    EXPECT_STREQ(empty.get("ALMANAC_TEST_PLAIN"), "from the environment");
    EXPECT_EQ(empty.get(nullptr), nullptr);
    Map map;
    EXPECT_EQ(map.get("ALMANAC_TEST_PLAIN"), nullptr);
}

TEST(ConfigMap, AValueMayReplaceItself) {
    Map map;
    map.setEnvProperty("SELF", "value", true, false);
    map.setEnvProperty("SELF", map.get("SELF"), true, false);
    map.put("SELF2", "x");
    EXPECT_STREQ(map.get("SELF"), "value");
}

TEST(ConfigMap, SecretsAreTracedAsXxx) {
    testing::internal::CaptureStderr();
    almanac::host::configureTrace("ALL", nullptr);
    {
        Map map;
        map.setSubnodeProperty("SEC", 1, "PASS", "opensesame", true);
        map.setEnvProperty("PASS", "opensesame", true, true);
        map.setEnvProperty("USER", "visible", true, false);
        map.variable("SEC", "PASS", "1");
        map.trace();
        map.removeSubnodeProperties("SEC", 1);
    }
    almanac::host::configureTrace("ERROR", nullptr);
    const std::string traced = testing::internal::GetCapturedStderr();
    EXPECT_EQ(traced.find("opensesame"), std::string::npos);
    EXPECT_NE(traced.find("PC_SEC_PASS_1=xxx"), std::string::npos);
    EXPECT_NE(traced.find("USER=visible"), std::string::npos);
}

TEST(Texts, IdsAreFilteredAndQuotesStripped) {
    EXPECT_EQ(taken(validCharFilter("aZ0_-. /\\:\xC3\xA9\tb")), "aZ0_-.b");
    EXPECT_EQ(taken(validCharFilter(nullptr)), "");
    const struct {
        const char* text;
        const char* stripped;
    } cases[] = {{"\"a\"", "a"}, {"'a\"", "a"}, {"a", "a"}, {"\"", ""}, {"''", ""}, {"\"\"a\"\"", "\"a\""}, {"", ""}, {"a'", "a"}};
    for (const auto& c : cases) EXPECT_EQ(taken(stripValueQuotes(c.text)), c.stripped);
    EXPECT_EQ(stripValueQuotes(nullptr), nullptr);
}

// The free functions work on the process's map.
class FreeFunctions : public testing::Test {
  protected:
    FreeFunctions() {
        ConfigMapGuard guard;
        configMap.put(ConfigMap::productCodeVariable, "PC");
    }
    static void put(const char* name, const char* value) {
        ConfigMapGuard guard;
        configMap.put(name, value);
    }
    static int add(const char* section, const char* id) {
        ConfigMapGuard guard;
        return configMap.addSection(section, id);
    }
};

TEST_F(FreeFunctions, ValuesFallBackToTheEnvironmentAndTheDefault) {
    Variable one("FF_ENV", "env"), empty("FF_EMPTY", "");
    put("FF_MAP", "map");
    put("FF_ENV2", "");
    Variable two("FF_ENV2", "env2");
    EXPECT_EQ(taken(getConfigProperty("FF_MAP", "def")), "map");
    EXPECT_EQ(taken(getConfigProperty("FF_ENV", "def")), "env");
    EXPECT_EQ(taken(getConfigProperty("FF_ENV2", "def")), "env2");
    EXPECT_EQ(taken(getConfigProperty("FF_EMPTY", "def")), "def");
    EXPECT_EQ(getConfigProperty("FF_NONE", nullptr), nullptr);
    EXPECT_EQ(taken(getConfigurationProperty("FF_ENV")), "(null)");
    loadAgentEnvironmentVariable("FF_ENV");
    loadAgentEnvironmentVariable("FF_NONE");
    EXPECT_EQ(taken(getConfigurationProperty("FF_ENV")), "env");
}

TEST_F(FreeFunctions, KeysAndTheEnvironmentOfASubnode) {
    for (const char* id : {"one", "two", "three"}) add("ENVT", id);
    {
        ConfigMapGuard guard;
        configMap.setSubnodeProperty("ENVT", 1, "HOST", "own", false);
        configMap.setSubnodeProperty("ENVT", 0, "HOST", "default", false);
        configMap.setSubnodeProperty("ENVT", 0, "PORT", "80", false);
        configMap.setSubnodeProperty("ENVT", 11, "HOST", "eleven", false);
        configMap.setSubnodeProperty("ENVTX", 1, "NOT", "mine", false);
        configMap.removeSection("ENVT", "two");
    }
    int count = 0;
    char** keys = getSubnodeKeys("ENVT", &count);
    std::string all;
    for (int i = 0; i < count; ++i) all += taken(keys[i]) + ",";
    std::free(keys);
    EXPECT_EQ(all, "one,three,");
    std::free(getSubnodeKeys("UNKNOWN", &count));
    EXPECT_EQ(count, 0);
    HashMap* env = getSubnodeInstanceEnv("one", "ENVT");
    EXPECT_EQ(shown(static_cast<const char*>(env->get("HOST"))), "own");
    EXPECT_EQ(shown(static_cast<const char*>(env->get("PORT"))), "80");
    EXPECT_EQ(shown(static_cast<const char*>(env->get("IDLABEL"))), "one");
    EXPECT_EQ(env->getCount(), 3);
    freeSubnodeInstanceEnv(env);
    env = getSubnodeInstanceEnv("unknown", "ENVT");
    EXPECT_EQ(shown(static_cast<const char*>(env->get("HOST"))), "default");
    EXPECT_EQ(env->getCount(), 2);
    freeSubnodeInstanceEnv(env);
}

TEST_F(FreeFunctions, ReferencesInTextsAreReplaced) {
    put("A", "1");
    put("NESTED", "${A}");
    add("SUBST", "one");
    {
        ConfigMapGuard guard;
        configMap.setSubnodeProperty("SUBST", 1, "A", "own", false);
    }
    const struct {
        const char* text;
        const char* type;
        const char* id;
        const char* result;
    } cases[] = {
        {"", nullptr, nullptr, ""},
        {"x${A}y${A}", nullptr, nullptr, "x1y1"},
        {"${A", nullptr, nullptr, "${A"},
        {"$A {A} }${", nullptr, nullptr, "$A {A} }${"},
        {"x${NO_SUCH}y${}z", nullptr, nullptr, "xyz"},
        {"${NESTED}", nullptr, nullptr, "${A}"},          // a value is not read again
        {"${${A}}", nullptr, nullptr, "}"},               // the name ends at the first brace
        {"a\n${A}", nullptr, nullptr, "a\n1\n"},          // with a line feed at all, one behind each line
        {"a${A\n}b", nullptr, nullptr, "a${A\n}b\n"},     // a reference stands on one line
        {"${A}", "SUBST", "one", "own"},
        {"${A}", "SUBST", "two", "1"},
        {"${A}", "SUBST", nullptr, "1"},
    };
    for (const auto& c : cases) EXPECT_EQ(taken(Utilities::substituteEnvVars(c.text, c.type, c.id, true)), c.result) << c.text;
    EXPECT_EQ(taken(Utilities::substituteEnvVars("x${PATH}y", nullptr, nullptr, false)), "xy");
    EXPECT_EQ(Utilities::substituteEnvVars(nullptr, nullptr, nullptr, true), nullptr);
}

TEST_F(FreeFunctions, ReadersSeeWholeValuesBesideChanges) {
    std::atomic<bool> stop{false};
    std::atomic<int> wrong{0};
    std::vector<std::thread> readers;
    for (int t = 0; t < 3; ++t) {
        readers.emplace_back([&] {
            while (!stop) {
                const std::string value = taken(getSubnodeConfigurationProperty("V", "RACE", "id"));
                if (value != "(null)" && value != std::string(200, 'v')) ++wrong;
                freeSubnodeInstanceEnv(getSubnodeInstanceEnv("id", "RACE"));
                int count = 0;
                char** keys = getSubnodeKeys("RACE", &count);
                for (int i = 0; i < count; ++i) std::free(keys[i]);
                std::free(keys);
            }
        });
    }
    for (int i = 0; i < 100; ++i) {
        const int index = add("RACE", "id");
        ConfigMapGuard guard;
        configMap.setSubnodeProperty("RACE", index, "V", std::string(200, 'v').c_str(), false);
        configMap.removeSection("RACE", "id");
        configMap.removeSubnodeProperties("RACE", index);
    }
    stop = true;
    for (std::thread& t : readers) t.join();
    EXPECT_EQ(wrong.load(), 0);
}

}  // namespace
