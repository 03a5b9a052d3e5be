#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <string>
#include <thread>

#include "foundation/FatalExit.h"

namespace {

struct Ended {
    int status;
    std::string text;
};

// Runs `body` in a child of its own and gives its wait status and what it wrote to standard error.
template <class Body>
Ended inChild(Body body) {
    int pipes[2];
    if (pipe(pipes) != 0) return {-1, ""};
    const pid_t child = fork();
    if (child == 0) {
        alarm(20);
        dup2(pipes[1], STDERR_FILENO);
        close(pipes[0]);
        close(pipes[1]);
        body();
        _exit(99);
    }
    close(pipes[1]);
    Ended ended{0, ""};
    char buffer[256];
    for (ssize_t n; (n = read(pipes[0], buffer, sizeof buffer)) > 0;) ended.text.append(buffer, static_cast<std::size_t>(n));
    close(pipes[0]);
    waitpid(child, &ended.status, 0);
    return ended;
}

void blockStopSignals() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
}

}  // namespace

TEST(FatalExit, BeforeTheSignalThreadTheCodeIsTheStatus) {
    const Ended ended = inChild([] { exit_with_notification(7); });
    EXPECT_EQ(ended.text, "Fatal Error (7) Detected. Exiting\n");
    ASSERT_TRUE(WIFEXITED(ended.status));
    EXPECT_EQ(WEXITSTATUS(ended.status), 7);
}

TEST(FatalExit, WithASignalThreadTheStopIsHandedOverAndTheCallerParks) {
    const Ended ended = inChild([] {
        blockStopSignals();
        setsignalThread(pthread_self());
        std::thread([] {
            struct Unwound {
                ~Unwound() { _exit(50); }
            } guard;
            exit_with_notification(-99);
        }).detach();
        sigset_t set;
        sigemptyset(&set);
        sigaddset(&set, SIGTERM);
        int signal = 0;
        sigwait(&set, &signal);
        usleep(50000);  // time for a caller that would go on
        if (claimExit()) _exit(signal == SIGTERM ? 0 : 51);
    });
    EXPECT_EQ(ended.text, "Fatal Error (-99) Detected. Exiting\n");
    ASSERT_TRUE(WIFEXITED(ended.status));
    EXPECT_EQ(WEXITSTATUS(ended.status), 0);
}

TEST(FatalExit, OnTheSignalThreadItselfTheStatusIsZero) {
    const Ended ended = inChild([] {
        setsignalThread(pthread_self());
        exit_with_notification(5);
    });
    ASSERT_TRUE(WIFEXITED(ended.status));
    EXPECT_EQ(WEXITSTATUS(ended.status), 0);
}

TEST(FatalExit, ManyThreadsAtOnceEndOnce) {
    const Ended ended = inChild([] {
        for (int i = 0; i < 8; ++i) std::thread([] { exit_with_notification(3); }).detach();
        parkForEver();
    });
    ASSERT_TRUE(WIFEXITED(ended.status));
    EXPECT_EQ(WEXITSTATUS(ended.status), 3);
}

TEST(FatalExit, WithinExitItselfNothingHangs) {
    const Ended ended = inChild([] {
        std::atexit([] { exit_with_notification(9); });
        exit_with_notification(4);
    });
    ASSERT_TRUE(WIFEXITED(ended.status));
    EXPECT_EQ(WEXITSTATUS(ended.status), 9);
}
