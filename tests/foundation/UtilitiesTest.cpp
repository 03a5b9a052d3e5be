#include <gtest/gtest.h>
#include <sys/resource.h>

#include <climits>
#include <cstring>
#include <string>

#include "foundation/Clock.h"
#include "foundation/Corrections.h"
#include "foundation/HostName.h"
#include "foundation/Utilities.h"

TEST(Utilities, NumbersFromTexts) {
    struct Case {
        const char* text;
        long long want;
    } cases[] = {{"42", 42},     {" -7", -7}, {"12abc", 12}, {"abc", 0},
                 {"", 0},        {nullptr, 0}, {"99999999999999999999", LLONG_MAX}, {"-99999999999999999999", LLONG_MIN}};
    for (const Case& c : cases) EXPECT_EQ(factory_atoll(c.text), c.want) << (c.text ? c.text : "null");
}

TEST(Utilities, TrimsBothEndsInPlace) {
    struct Case {
        std::string text;
        const char* want;
    } cases[] = {{" \t a b\r\n", "a b"}, {"  \t\r\n", ""}, {"", ""}, {"a", "a"}, {"\n a", "a"}, {"\va ", "\va"}};
    for (Case& c : cases) {
        trim_string(c.text.data());
        EXPECT_STREQ(c.text.c_str(), c.want);
    }
    trim_string(nullptr);
}

TEST(Utilities, OnlyThePathsOfTheAgentAreSubstituted) {
    EXPECT_TRUE(isSubstituteAllowed("AGENT_BIN_DIR"));
    EXPECT_TRUE(isSubstituteAllowed("VELMARHOME"));
    EXPECT_FALSE(isSubstituteAllowed("PATH"));
    EXPECT_FALSE(isSubstituteAllowed("AGENT_BIN_DIR2"));
    EXPECT_FALSE(isSubstituteAllowed(nullptr));
}

TEST(Utilities, TheAverageIsItsOwnFormula) {
    EXPECT_DOUBLE_EQ(Utilities::calculateAverage(-1.0, 8.0, 3), 8.0);
    EXPECT_DOUBLE_EQ(Utilities::calculateAverage(4.0, 8.0, 0), 8.0);
    EXPECT_DOUBLE_EQ(Utilities::calculateAverage(4.0, 8.0, 2), (4.0 + 4.0) / 1.5);
}

TEST(Utilities, PriorityReachesTheProcess) {
    const int before = getpriority(PRIO_PROCESS, 0);
    Utilities::setPriority(before + 1);
    EXPECT_EQ(getpriority(PRIO_PROCESS, 0), before + 1);
}

TEST(HostName, TheQuestionOfAReply) {
    const std::string header("\x12\x34\x81\x80\x00\x01\x00\x00\x00\x00\x00\x00", 12);
    const std::string name("\x04host\x07""example\x00\x00\x01\x00\x01", 18);
    const auto ask = [](const std::string& reply, char* out, int size) {
        return questionNameOfReply(reinterpret_cast<const unsigned char*>(reply.data()), static_cast<int>(reply.size()), out, size);
    };
    char out[64];
    EXPECT_EQ(ask(header + name, out, sizeof out), 0);
    EXPECT_STREQ(out, "host.example");
    EXPECT_EQ(ask(header + name, out, 5), -2) << "a name that does not fit";
    EXPECT_EQ(ask(header + std::string("\xc0\x0c", 2), out, sizeof out), -2) << "a pointer to itself";
    std::string two = header;
    two[5] = 2;
    EXPECT_EQ(ask(two + name, out, sizeof out), -1);
    for (std::size_t n = 0; n < header.size() + 13; ++n) {
        EXPECT_NE(ask((header + name).substr(0, n), out, sizeof out), 0) << "cut at " << n;
    }
}

TEST(HostName, AnUnknownHostGivesAnEmptyText) {
    char out[256] = "old";
    EXPECT_EQ(getfqhostname("", out), 0);
    EXPECT_STREQ(out, "");
    std::strcpy(out, "old");
    EXPECT_EQ(getfqhostname(nullptr, out), 0);
    EXPECT_STREQ(out, "");
}

TEST(Timestamp, SubtractsWithABorrow) {
    Timestamp later, earlier;
    later.seconds = 10, later.microseconds = 200000;
    earlier.seconds = 7, earlier.microseconds = 900000;
    later -= earlier;
    EXPECT_EQ(later.seconds, 2);
    EXPECT_EQ(later.microseconds, 300000);
    EXPECT_EQ(later.timeInMilliseconds(), 2300);
    Timestamp now;
    now.now();
    now.seconds -= 100;
    EXPECT_GE(now.elapsedTimeMS(), 100000);
    EXPECT_LT(now.elapsedTimeMS(), 160000);
}

TEST(Clock, WholeSecondsAndStamps) {
    EXPECT_EQ(Clock::wholeSecondsBetween({5, 900}, {8, 899}), 2);
    EXPECT_EQ(Clock::wholeSecondsBetween({5, 900}, {8, 900}), 3);
    const char* before = getenv("TZ");
    const std::string zone = before ? before : "";
    setenv("TZ", "UTC0", 1);
    tzset();
    char stamp[17];
    Clock::formatTimeStamp(951782400, stamp);  // the leap day of a century
    EXPECT_STREQ(stamp, "1000229000000000");
    Clock::formatTimeStamp(0, stamp);
    EXPECT_STREQ(stamp, "0700101000000000");
    Clock::formatTimeStamp(LONG_MAX, stamp);
    EXPECT_EQ(std::strlen(stamp), 16u);
    before ? setenv("TZ", zone.c_str(), 1) : unsetenv("TZ");
    tzset();
}

TEST(Corrections, AreNamedInTheEnvironment) {
    struct Case {
        const char* text;
        bool on;
    } cases[] = {{"", false},          {"all", true},   {"event-console", true}, {"unknown, event-console", true},
                 {"event-con", false}, {",,", false},   {"event-console-2", false}};
    for (const Case& c : cases) {
        ZSV1_PutEnv((std::string("CDP_CORRECTIONS=") + c.text).c_str());
        reloadCorrections();
        EXPECT_EQ(correctionIsOn("event-console"), c.on) << c.text;
        EXPECT_FALSE(correctionIsOn("unknown"));
    }
    ZSV1_UnsetEnv("CDP_CORRECTIONS");
    reloadCorrections();
    for (const Correction* c = corrections(); c->name; ++c) EXPECT_STRNE(c->changes, "") << c->name;
}
