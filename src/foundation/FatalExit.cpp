#include "foundation/FatalExit.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>

#include <unistd.h>

#include <atomic>

namespace {

constexpr pthread_t kNoThread = ~static_cast<pthread_t>(0);

constinit std::atomic<pthread_t> signalThread{kNoThread};
constinit std::atomic<pthread_t> exitClaimant{kNoThread};
constinit std::atomic<void (*)(int)> exitHook{nullptr};

[[noreturn]] void endProcess(int code) {
    if (void (*hook)(int) = exitHook.load()) {
        hook(code);
        std::abort();  // a hook must not return
    }
    if (claimExit()) std::exit(code);
    // A fatal condition met inside exit(3) itself: waiting for its end here would wait for ever.
    if (exitClaimant.load() == pthread_self()) _exit(code);
    parkForEver();
}

}  // namespace

void setsignalThread(pthread_t thread) { signalThread.store(thread); }

bool claimExit() {
    pthread_t nobody = kNoThread;
    return exitClaimant.compare_exchange_strong(nobody, pthread_self());
}

void parkForEver() {
    for (;;) pause();
}

void setFatalExitHook(void (*hook)(int code)) { exitHook.store(hook); }

void exit_with_notification(int code) {
    char text[64];
    const int n = std::snprintf(text, sizeof text, "Fatal Error (%d) Detected. Exiting\n", code);
    // Straight to the descriptor: the thread may hold the lock of stderr's stream.
    if (write(STDERR_FILENO, text, static_cast<std::size_t>(n)) < 0) {
        // Nobody left to tell.
    }
    const pthread_t manager = signalThread.load();
    if (manager == kNoThread) endProcess(code);
    // Kept: once the manager thread takes the stop, the exit status is 0, not the code.
    if (manager == pthread_self()) endProcess(0);
    pthread_kill(manager, SIGTERM);
    parkForEver();
}
