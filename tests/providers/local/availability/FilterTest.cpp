// Which processes a filter takes, and that the index gives what a walk over all filters would.
#include <gtest/gtest.h>

#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "config/ConfigMap.h"
#include "foundation/StringTokenizer.h"
#include "providers/local/availability/ElementChain.h"
#include "providers/local/availability/FilterIndex.h"
#include "providers/local/availability/ServiceListElement.h"

namespace {

ProcessFilter filterOf(const char* baseName) {
    ProcessFilter filter;
    filter.applicationComponent = "Component";
    filter.baseName = baseName;
    return filter;
}

enum Flags : unsigned { kNone = 0, kFullName = 1, kArg = 2, kFullArg = 4, kArgWithValue = 8 };

bool matches(const char* baseName, unsigned flags, const char* fullName, const char* arg, const char* value,
             const char* commandLine) {
    ProcessFilter filter = filterOf(baseName);
    filter.useFullName = flags & kFullName;
    filter.useArg = flags & kArg;
    filter.useFullArg = flags & kFullArg;
    filter.useArgWithValue = flags & kArgWithValue;
    filter.fullName = fullName;
    filter.arg = arg;
    filter.value = value;
    const std::string full = std::string(commandLine).substr(0, std::string(commandLine).find(' '));
    const std::string base = full.substr(full.rfind('/') + 1);
    return ProcessListElement(filter).isEqual(base.c_str(), full.c_str(), commandLine);
}

}  // namespace

TEST(ProcessFilter, Matching) {
    const struct {
        const char* baseName;
        unsigned flags;
        const char* fullName;
        const char* arg;
        const char* value;
        const char* commandLine;
        bool match;
    } cases[] = {
        {"sshd", kNone, "/other", "other", "x", "/usr/sbin/sshd -D", true},  // without flags only the base name counts
        {"SSHD", kNone, nullptr, nullptr, nullptr, "/usr/sbin/sshd", true},
        {"ssh", kNone, nullptr, nullptr, nullptr, "/usr/sbin/sshd", false},
        {"sshd", kNone, nullptr, nullptr, nullptr, "sshd: /usr/sbin/sshd -D [listener] 0 of 10-100 startups", false},
        {"sshd:", kArg, nullptr, "[listener]", nullptr, "sshd: /usr/sbin/sshd -D [listener] 0 of 10-100 startups", true},
        {"*", kFullName | kArg | kFullArg | kArgWithValue, "no", "no", "no", "/bin/a", true},
        {"**", kNone, nullptr, nullptr, nullptr, "/bin/a", false},
        {"a", kFullName, "/OPT/A", nullptr, nullptr, "/opt/app/bin/a", true},
        {"a", kFullName, "/opt/b", nullptr, nullptr, "/opt/app/bin/a /opt/b", false},  // the command's own path alone
        {"a", kArg, nullptr, "PORT", nullptr, "a --port=8080", true},
        {"a", kArg, nullptr, "A --port", nullptr, "a --port=8080", true},
        {"a", kFullArg, nullptr, "port", nullptr, "a --port=8080", false},
        {"a", kFullArg, nullptr, "--PORT=8080", nullptr, "a --port=8080", true},
        {"a", kFullArg, nullptr, "-x", nullptr, "a b\t-x", true},
        {"a", kArgWithValue, nullptr, "--port", "8080", "a --port=8080", true},
        {"a", kArgWithValue, nullptr, "--PORT", "8080", "a --port 8080", true},
        {"a", kArgWithValue, nullptr, "--port", "8080", "a --port  8080", false},  // an empty token stands between
        {"a", kArgWithValue, nullptr, "--port", "8080", "a --port=80 --port=8080", true},
        {"a", kArgWithValue, nullptr, "x", "y", "a x x y", false},  // the scan goes on behind the value
        {"a", kArgWithValue, nullptr, "--port", "8080", "a 8080 --port", false},
        {"a", kArgWithValue, nullptr, "--port", "", "a --port= b", true},
        {"a", kArgWithValue, nullptr, "--port", "", "a --port=", false},  // no token behind the last delimiter
        {"a", kArg | kFullArg | kFullName, "bin", "-v", nullptr, "/bin/a -v", true},
        {"a", kArg | kFullArg | kFullName, "sbin", "-v", nullptr, "/bin/a -v", false},
        {"a", kArg | kFullArg, nullptr, "-v", nullptr, "a -vv", false},
        {"a", kArg | kArgWithValue, nullptr, "-p", "1", "a -p 2", false},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(matches(c.baseName, c.flags, c.fullName, c.arg, c.value, c.commandLine), c.match)
            << c.baseName << " flags " << c.flags << " on " << c.commandLine;
    }
}

TEST(ProcessFilter, TextsAndTheirVariables) {
    configMap.initializeLocalMap();
    configMap.put("SERVER_HOME", "/srv/Web");
    ProcessFilter filter;
    filter.applicationComponent = "Web ${SERVER_HOME}";
    filter.baseName = "Httpd${NOT_SET}";
    filter.fullName = "${SERVER_HOME}";
    filter.useFullName = true;
    filter.includeChildProcesses = true;
    const ProcessListElement web(filter);
    EXPECT_STREQ(web.getApplicationComponent(), "Web /srv/Web");
    EXPECT_STREQ(web.getProcessName(), "Httpd") << "as written, not as compared";
    EXPECT_STREQ(web.getChildApplicationCompName(), "Subprocess of Web /srv/Web");
    EXPECT_TRUE(web.isEqual("httpd", "/srv/web/httpd", "/srv/web/httpd"));
    EXPECT_FALSE(web.isEqual("httpd", "/srv/httpd", "/srv/httpd"));
    filter.childApplicationComponent = "Workers";
    EXPECT_STREQ(ProcessListElement(filter).getChildApplicationCompName(), "Workers");
}

TEST(ProcessFilter, TokensAreThoseOfTheTokenizer) {
    std::mt19937 random(7);
    const char alphabet[] = "ab =\t\n";
    for (int round = 0; round < 2000; ++round) {
        std::string text;
        for (std::size_t length = random() % 12; length > 0; --length) text += alphabet[random() % (sizeof alphabet - 1)];
        TokenWalk walk(text, " =\t");
        StringTokenizer tokenizer(text.c_str(), " =\t", true);
        while (const char* expected = tokenizer.next()) {
            std::string_view token;
            ASSERT_TRUE(walk.next(&token)) << "'" << text << "'";
            EXPECT_EQ(token, expected) << "'" << text << "'";
        }
        std::string_view token;
        EXPECT_FALSE(walk.next(&token)) << "'" << text << "'";
    }
}

TEST(ProcessFilter, TheIndexFindsWhatAWalkFinds) {
    std::mt19937 random(11);
    const char* const names[] = {"a", "B", "*", "c", "A"};
    const char* const arguments[] = {"x", "y", "-X"};
    ElementChain<ProcessListElement> chain;
    for (int i = 0; i < 40; ++i) {
        ProcessFilter filter = filterOf(names[random() % 5]);
        filter.arg = arguments[random() % 3];
        filter.useArg = random() % 2 == 0;
        filter.useFullArg = random() % 3 == 0;
        chain.append(new ProcessListElement(filter));
    }
    FilterIndex index(chain.first());
    ASSERT_EQ(index.count(), 40u);
    const char* const processes[] = {"a", "b", "c", "d", "C"};
    std::size_t found = 0;
    for (const char* name : processes) {
        for (const char* argument : {"", " -x", " x", " y z", " -xy"}) {
            const std::string commandLine = std::string(name) + argument;
            std::vector<std::size_t> expected;
            for (std::size_t i = 0; i < index.count(); ++i) {
                if (index.filter(i).isEqual(name, name, commandLine.c_str())) expected.push_back(i);
            }
            ProcessText text;
            text.set(name, name, commandLine.c_str());
            EXPECT_EQ(index.matching(text), expected) << commandLine;
            found += expected.size();
        }
    }
    EXPECT_GT(found, 200u) << "the filters must match to tell anything";
}

TEST(ServiceFilter, NameOrPartOfTheFullName) {
    const ServiceListElement byName("C", "Spooler", "Print", false, false, nullptr);
    EXPECT_TRUE(byName.isEqual("SPOOLER"));
    EXPECT_FALSE(byName.isEqual("Spoole"));
    EXPECT_FALSE(byName.isEqual(nullptr));
    const ServiceListElement byFullName("C", "Spooler", "Print", true, false, nullptr);
    EXPECT_TRUE(byFullName.isEqual("The PRINT service"));
    EXPECT_FALSE(byFullName.isEqual("Spooler"));
    EXPECT_TRUE(byFullName.isFullnameDisplayname());
}
