// Functionality tests with real commands: outcomes, time-outs, the rule of ten.
#include "providers/local/availability/ApplicationPingListElement.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <string>

#include "config/ConfigMap.h"
#include "host/Scratch.h"

namespace {

using almanac::host::test::readFile;
using almanac::host::test::Scratch;
using almanac::host::test::Variable;
using almanac::host::test::writeFile;

constexpr const char* kUnexpected = "There was an unexpected return code received from the functionality test.";

void add(ApplicationPingListElement& test, const char* rc, const char* type, const char* message) {
    auto* code = new ReturnCodeListElement(rc, message);
    code->setMappedReturnCode(type);
    test.addReturnCode(code);
}

// Asks again for ten seconds at most.
template <class Condition>
bool becomesTrue(Condition condition) {
    for (int i = 0; i < 1000; ++i) {
        if (condition()) return true;
        usleep(10000);
    }
    return false;
}

// Whether every child of the process has ended and been reaped. Reaps none itself.
bool noChildIsLeft() {
    siginfo_t info;
    return waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT) == -1 && errno == ECHILD;
}

// A command that ends, with exit code 0, when the folder has a gate, or is gone.
std::string untilGate(const Scratch& scratch) {
    return "while test -d '" + scratch.path() + "' && ! test -e '" + scratch.path("gate") + "'; do sleep 0.02; done";
}

// A test that leaves a line for each start, and ends when its gate is there.
class Gated {
  public:
    Gated() {
        const std::string script = "echo >>'" + scratch.path("starts") + "'; " + untilGate(scratch);
        test = std::make_unique<ApplicationPingListElement>("Gated", script.c_str());
        add(*test, "0", "OK", "fine");
        test->setTimeout(0);
    }
    bool startsBecome(std::size_t count) const {
        return becomesTrue([&] { return readFile(scratch.path("starts")).size() == count; });
    }
    // Lets all commands end; they have once this gives true.
    bool open() {
        writeFile(scratch.path("gate"), "");
        return becomesTrue(noChildIsLeft);
    }

    Scratch scratch;
    std::unique_ptr<ApplicationPingListElement> test;
};

}  // namespace

TEST(ApplicationPing, OutcomeOfAnExitCode) {
    const struct {
        const char* script;
        int available;
        RETURN_CODE code;
        const char* message;
    } cases[] = {
        {"exit 0", 1, RC_OK, "works"},
        {"echo ignored; exit 3", 0, RC_WARNING, "slow"},
        {"exit 4", 0, RC_UNKNOWN_TYPE, "timed out"},
        {"exit 5", 0, RC_NOT_RUNNING, "the last one"},  // of two with one exit code
        {"exit 6", 2, RC_GENERAL_ERROR, kUnexpected},
        {"exec 2>/dev/null; /no/such/test", 2, RC_GENERAL_ERROR, kUnexpected},
        {"kill -9 $$", 1, RC_OK, "works"},
        {"exit 255", 2, RC_GENERAL_ERROR, kUnexpected},  // -1 is not what a shell gives
    };
    for (const auto& c : cases) {
        ApplicationPingListElement test("Component", c.script);
        add(test, "0", "success", "works");
        add(test, "3", "WARNING", "slow");
        add(test, "4", "TIMEOUT", "timed out");
        add(test, "5", "OK", "the first one");
        add(test, "5", "NOT_RUNNING", "the last one");
        add(test, "-1", "OK", "never");
        EXPECT_EQ(test.isApplicationAvailable(), c.available) << c.script;
        EXPECT_EQ(test.getLastReturnCode(), c.code) << c.script;
        EXPECT_STREQ(test.getLastMessage(), c.message) << c.script;
    }
}

TEST(ApplicationPing, ExitCodeZeroIsNoSuccessUnlessItIsListed) {
    ApplicationPingListElement test("Component", "true");
    EXPECT_EQ(test.getLastReturnCode(), RC_OK);
    EXPECT_EQ(test.getLastMessage(), nullptr);
    EXPECT_EQ(test.isApplicationAvailable(), 2);
    EXPECT_EQ(test.getLastReturnCode(), RC_GENERAL_ERROR);
}

TEST(ApplicationPing, OutputTakesNoMemory) {
    constexpr long kMegabytes = 256;
    const auto largestResidentKilobytes = [] {
        rusage usage{};
        getrusage(RUSAGE_SELF, &usage);
        return usage.ru_maxrss;
    };
    const std::string script = "head -c " + std::to_string(kMegabytes << 20) + " /dev/zero";
    ApplicationPingListElement test("Component", script.c_str());
    add(test, "0", "OK", "works");
    const long before = largestResidentKilobytes();
    EXPECT_EQ(test.isApplicationAvailable(), 1);
    EXPECT_LT(largestResidentKilobytes() - before, (kMegabytes << 10) / 4);
}

TEST(ApplicationPing, LaunchFailure) {
    rlimit before;
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
    ApplicationPingListElement test("Component", "true");
    add(test, "0", "OK", "works");
    rlimit none = before;
    none.rlim_cur = 3;  // standard streams alone: there is no descriptor for the pipe
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
    const int available = test.isApplicationAvailable();
    setrlimit(RLIMIT_NOFILE, &before);
    EXPECT_EQ(available, 2);
    EXPECT_EQ(test.getLastReturnCode(), RC_GENERAL_ERROR);
    EXPECT_STREQ(test.getLastMessage(), kUnexpected);
    EXPECT_EQ(test.isApplicationAvailable(), 1) << "the next run is a new command";
}

TEST(ApplicationPing, TimeoutSetting) {
    const struct {
        const char* text;
        int seconds;
    } cases[] = {{"10", 10}, {"11", 11}, {"5", 10}, {"-3", 10}, {"abc", 10}, {"90", 90}};
    for (const auto& c : cases) {
        const Variable set("CDP_DP_PING_TIMEOUT", c.text);
        EXPECT_EQ(ApplicationPingListElement("C", "true").getTimeout(), c.seconds) << c.text;
    }
    EXPECT_EQ(ApplicationPingListElement("C", "true").getTimeout(), 30) << "unset";
}

TEST(ApplicationPing, ATestThatEndsLaterDoesNotStandInTheWayOfTheNext) {
    Gated gated;
    EXPECT_EQ(gated.test->isApplicationAvailable(), 2);
    EXPECT_EQ(gated.test->getLastReturnCode(), RC_TIMED_OUT);
    EXPECT_STREQ(gated.test->getLastMessage(), kUnexpected);
    EXPECT_TRUE(gated.startsBecome(1));
    EXPECT_TRUE(gated.open());
    gated.test->setTimeout(20);
    EXPECT_EQ(gated.test->isApplicationAvailable(), 1);
    EXPECT_TRUE(gated.startsBecome(2));
    EXPECT_STREQ(gated.test->getLastMessage(), "fine");
}

TEST(ApplicationPing, TenOutstandingTestsStopTheEleventh) {
    Gated gated;
    for (int i = 0; i < 10; ++i) EXPECT_EQ(gated.test->isApplicationAvailable(), 2);
    gated.test->setTimeout(20);
    EXPECT_EQ(gated.test->isApplicationAvailable(), 2) << "at once, and without a command";
    EXPECT_EQ(gated.test->getLastReturnCode(), RC_TIMED_OUT) << "as before";
    EXPECT_TRUE(gated.startsBecome(10));
    EXPECT_TRUE(gated.open());
    // A worker may still be on its way out when its child is gone.
    EXPECT_TRUE(becomesTrue([&] { return gated.test->isApplicationAvailable() == 1; })) << "tests resume";
    EXPECT_TRUE(gated.startsBecome(11));
}

TEST(ApplicationPing, DestroyedWithRunningTests) {
    Gated gated;
    gated.test->isApplicationAvailable();
    gated.test->isApplicationAvailable();
    EXPECT_TRUE(gated.startsBecome(2));
    gated.test.reset();
    EXPECT_TRUE(gated.open()) << "the workers left behind reap their children";
}

TEST(ApplicationPing, OnlyPathsOfTheAgentAreSubstituted) {
    configMap.initializeLocalMap();
    configMap.put("AGENT_BIN_DIR", "/opt/bin");
    configMap.put("HOME", "/root");
    const ApplicationPingListElement test("C", "${AGENT_BIN_DIR}/x ${HOME} $PLAIN");
    EXPECT_STREQ(test.getScriptName(), "/opt/bin/x  $PLAIN");
}
