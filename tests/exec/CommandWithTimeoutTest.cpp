// Real shells under a bounded wait.
#include "exec/CommandWithTimeout.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>

#include "exec/CommandWithTimeoutList.h"
#include "foundation/Corrections.h"
#include "platform/zsb.h"

namespace {

using Seconds = std::chrono::duration<double>;

class Stopwatch {
  public:
    double seconds() const { return Seconds(std::chrono::steady_clock::now() - start_).count(); }

  private:
    std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

long openDescriptors() {
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return std::distance(begin(all), end(all));
}

bool hasNoChild() {
    siginfo_t info;
    return waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT) == -1 && errno == ECHILD;
}

std::string outputOf(const char* command) {
    CommandWithTimeout run(command, 20);
    EXPECT_EQ(run.runCommand(), 0) << command;
    return run.getStdout() ? run.getStdout() : "<null>";
}

// Cleans the list until it is empty, for at most five seconds.
void drain(CommandWithTimeoutList& list) {
    const Stopwatch watch;
    for (list.cleanupFinishedCommands(); list.getCount() > 0 && watch.seconds() < 5; list.cleanupFinishedCommands()) usleep(10000);
    EXPECT_EQ(list.getCount(), 0);
}

}  // namespace

TEST(CommandWithTimeout, DiscardedOutputIsReadAllTheSame) {
    CommandWithTimeout run("head -c 1000000 /dev/zero && exit 7", 20);
    run.discardOutput();
    EXPECT_EQ(run.runCommand(), 0);
    EXPECT_EQ(run.getRC(), 7) << "the command could write all it had";
    EXPECT_STREQ(run.getStdout(), "");
}

TEST(CommandWithTimeout, ReturnCodes) {
    struct Case {
        const char* command;
        int rc;
    } cases[] = {
        {"true", 0},      {"exit 3", 3},         {"exit 255", 255}, {"/no/such/command 2>/dev/null", 127},
        {"kill -9 $$", 0}, {"kill -TERM $$", 0}, {"", 0},
    };
    for (const Case& c : cases) {
        CommandWithTimeout run(c.command, 20);
        EXPECT_EQ(run.getStatus(), CWT_NOT_STARTED);
        EXPECT_EQ(run.getRC(), -1);
        EXPECT_EQ(run.runCommand(), 0) << c.command;
        EXPECT_EQ(run.getRC(), c.rc) << c.command;
        EXPECT_EQ(run.getStatus(), CWT_COMPLETE);
        char line[8] = "";
        EXPECT_EQ(run.getNextLineFromStdout(line, 7), nullptr) << "no output, no line";
        EXPECT_EQ(run.runCommand(), -1) << "one object is one run";
    }
    EXPECT_TRUE(hasNoChild());
}

TEST(CommandWithTimeout, OutputIsWhole) {
    struct Case {
        const char* command;
        std::size_t size;
    } cases[] = {
        {"head -c 16382 /dev/zero | tr '\\0' x", 16382},  {"head -c 16383 /dev/zero | tr '\\0' x", 16383},
        {"head -c 16384 /dev/zero | tr '\\0' x", 16384},  {"head -c 32767 /dev/zero | tr '\\0' x", 32767},
        {"head -c 104857600 /dev/zero | tr '\\0' x", 104857600},
    };
    for (const Case& c : cases) {
        CommandWithTimeout run(c.command, 60);
        ASSERT_EQ(run.runCommand(), 0);
        EXPECT_EQ(std::strlen(run.getStdout()), c.size);
        EXPECT_EQ(std::strspn(run.getStdout(), "x"), c.size);
    }
    EXPECT_EQ(outputOf("printf 'no line feed'"), "no line feed");
    EXPECT_EQ(outputOf("printf 'before\\0after'"), "before");
    EXPECT_EQ(outputOf("echo out; echo lost 2>&1 >/dev/null"), "out\n");
    EXPECT_EQ(outputOf("echo err >&2; echo out"), "out\n") << "standard error is the agent's own";
}

TEST(CommandWithTimeout, LinesComeWithTheirOddities) {
    CommandWithTimeout run("printf 'short\\n12345678\\n123456789abc\\n\\nunseen\\n'", 20);
    ASSERT_EQ(run.runCommand(), 0);
    char line[9];
    const auto next = [&] {
        std::memset(line, 0, sizeof line);
        return run.getNextLineFromStdout(line, 8) ? std::string(line) : "<null>";
    };
    EXPECT_EQ(next(), "short");
    EXPECT_EQ(next(), "12345678");
    EXPECT_EQ(next(), "12345678");
    EXPECT_EQ(next(), "abc");
    EXPECT_EQ(next(), "<null>");
    EXPECT_EQ(next(), "unseen") << "the walk has stepped over the empty line";
    std::memset(line, '#', sizeof line);
    CommandWithTimeout full("printf 12345678", 20);
    ASSERT_EQ(full.runCommand(), 0);
    full.getNextLineFromStdout(line, 8);
    EXPECT_EQ(line[8], '#') << "a line of the buffer's size is not terminated";
}

TEST(CommandWithTimeout, AChildGetsThreeDescriptorsAndNoBlockedSignals) {
    int open[5];
    for (int& fd : open) fd = ::open("/dev/null", O_RDONLY);  // NOLINT: inheritable on purpose
    sigset_t blocked, before;
    sigemptyset(&blocked);
    for (int s : {SIGINT, SIGTERM, SIGPIPE}) sigaddset(&blocked, s);
    pthread_sigmask(SIG_BLOCK, &blocked, &before);
    const auto pipeBefore = std::signal(SIGPIPE, SIG_IGN);
    EXPECT_EQ(outputOf("ls /proc/$$/fd; :"), "0\n1\n2\n");
    EXPECT_EQ(outputOf("exec grep -c 'SigBlk:\t0000000000000000' /proc/self/status"), "1\n");
    const std::string ignored = outputOf("exec sed -n 's/SigIgn:\t//p' /proc/self/status");
    EXPECT_EQ(std::strtoull(ignored.c_str(), nullptr, 16) & 1ull << (SIGPIPE - 1), 0u) << ignored;
    std::signal(SIGPIPE, pipeBefore);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    for (int fd : open) close(fd);
}

TEST(CommandWithTimeout, ManyRunsLeaveNothingBehind) {
    const long before = openDescriptors();
    for (int i = 0; i < 100; ++i) {
        CommandWithTimeout run(i % 3 ? "echo x" : "kill -9 $$", 20);
        ASSERT_EQ(run.runCommand(), 0);
    }
    EXPECT_EQ(openDescriptors(), before);
    EXPECT_TRUE(hasNoChild());
}

TEST(CommandWithTimeout, ATimedOutCommandGoesOnAndIsReaped) {
    CommandWithTimeoutList list;
    const Stopwatch watch;
    // The shell ends at once in the second, a grandchild holds the pipe.
    for (const char* command : {"sleep 1.6; echo late", "sleep 2.6 & echo early"}) {
        auto* run = new CommandWithTimeout(command, 1);
        EXPECT_EQ(run->runCommand(), 1) << command;
        EXPECT_EQ(run->getStatus(), CWT_RUNNING);
        EXPECT_EQ(run->getRC(), -1);
        EXPECT_EQ(run->getStdout(), nullptr);
        list.add(run);
    }
    EXPECT_GE(watch.seconds(), 2.0);
    EXPECT_LT(watch.seconds(), 3.0);
    drain(list);
    EXPECT_TRUE(hasNoChild());
}

TEST(CommandWithTimeoutList, KeepsFailedLaunchesAndCountsToTen) {
    CommandWithTimeoutList list;
    for (int i = 0; i < 9; ++i) list.add(new CommandWithTimeout("true", 1));
    EXPECT_FALSE(list.tooManyOutstanding("true"));
    list.add(new CommandWithTimeout("true", 1));
    EXPECT_TRUE(list.tooManyOutstanding("true"));
    for (int i = 0; i < 10; ++i) static_cast<CommandWithTimeout*>(list.get(i))->setStatus(CWT_LAUNCH_FAILED);
    static_cast<CommandWithTimeout*>(list.get(3))->setStatus(CWT_FAILED);
    static_cast<CommandWithTimeout*>(list.get(4))->setStatus(CWT_COMPLETE);
    list.cleanupFinishedCommands();
    EXPECT_EQ(list.getCount(), 8);
    list.letGoOfAll();
    EXPECT_EQ(list.getCount(), 0);
}

TEST(CommandWithTimeout, KeepsNoEndlessOutput) {
    constexpr std::size_t most = 5'000'000;
    const struct {
        std::size_t written, kept;
    } cases[] = {{most, most}, {most + 1, most}, {most + 3'000'000, most}};
    for (const auto& c : cases) {
        CommandWithTimeout run(("head -c " + std::to_string(c.written) + " /dev/zero | tr '\\0' x; exit 4").c_str(), 60);
        run.keepOutput(most);
        ASSERT_EQ(run.runCommand(), 0);
        EXPECT_EQ(run.getRC(), 4);  // it was read to its end
        EXPECT_EQ(std::strlen(run.getStdout()), c.kept) << c.written;
    }
}

TEST(CommandWithTimeout, EnvironmentPrefix) {
    HashMap map(32);
    char one[] = "1", words[] = "two words";
    map.put("A", one);
    char* prefix = CommandWithTimeout::buildEnvString(&map);
    EXPECT_STREQ(prefix, "A=1 export A;");
    std::free(prefix);
    map.put("B", one);
    prefix = CommandWithTimeout::buildEnvString(&map);
    CommandWithTimeout run("echo \"$A-$B-$C\"; sh -c 'echo \"$A\"'", 20, prefix);
    std::free(prefix);
    ZSV1_PutEnv("C=from the agent");
    ASSERT_EQ(run.runCommand(), 0);
    EXPECT_STREQ(run.getStdout(), "1-1-from the agent\n1\n");
    ZSV1_UnsetEnv("C");

    // An unprotected value with a blank breaks the shell line.
    map.put("A", words);
    prefix = CommandWithTimeout::buildEnvString(&map);
    CommandWithTimeout broken("echo \"$A\"", 20, (std::string("exec 2>/dev/null;") + prefix).c_str());
    std::free(prefix);
    ASSERT_EQ(broken.runCommand(), 0);
    EXPECT_STRNE(broken.getStdout(), "two words\n");
    ZSV1_PutEnv("CDP_CORRECTIONS=env-quoting");
    reloadCorrections();
    char odd[] = "it's $HOME; `false` \"x\"\n\\";
    map.put("A", odd);
    // Names come from the configuration as well, and so from whoever may change it: none of these is one.
    for (const char* name : {"X;echo run;Y", "X Y", "1X", "$(echo run)", "X-Y", "X\n"}) map.put(name, one);
    prefix = CommandWithTimeout::buildEnvString(&map);
    ZSV1_UnsetEnv("CDP_CORRECTIONS");
    reloadCorrections();
    CommandWithTimeout corrected("printf '%s' \"$A\"", 20, prefix);
    std::free(prefix);
    ASSERT_EQ(corrected.runCommand(), 0);
    EXPECT_STREQ(corrected.getStdout(), odd);

    EXPECT_TRUE(CommandWithTimeout::containsVariable(&map, "A=x=y"));
    EXPECT_TRUE(CommandWithTimeout::containsVariable(&map, "B"));
    EXPECT_FALSE(CommandWithTimeout::containsVariable(&map, "AB=1"));
    EXPECT_FALSE(CommandWithTimeout::containsVariable(&map, "=A"));
    HashMap empty(32);
    prefix = CommandWithTimeout::buildEnvString(&empty);
    EXPECT_STREQ(prefix, "");
    std::free(prefix);
}
