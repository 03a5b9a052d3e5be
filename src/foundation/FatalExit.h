// The fatal exit, the only way the agent ends itself: it never unwinds, because the calling thread may hold locks
// that an orderly stop needs.
#pragma once

#include <pthread.h>

// Writes "Fatal Error (code) Detected. Exiting" to standard error. Before a signal thread is known the process
// exits with `code`; after that the stop is handed to the signal thread (exit status 0) and the caller is parked
// for ever; on the signal thread itself the process exits with 0.
[[noreturn]] void exit_with_notification(int code);

// Names the thread that takes the process's signals.
void setsignalThread(pthread_t thread);

// Of all threads that want to end the process the first one gets true; the others must park with parkForEver.
bool claimExit();
[[noreturn]] void parkForEver();

// Tests replace what ends the process; null restores exit(3). The hook must not return.
void setFatalExitHook(void (*hook)(int code));
