// Base services the agent asks of its host: environment, clock, sleep, text case, locks, run-once.
// Every operation may be called from any thread; none throws.
#pragma once

#include <ctime>

// Start-up. Takes main's arguments (which it may shorten) and the program's fixed name; must be the first
// call besides ZLC2_GetLocale. Returns 0.
int ZSV1_Main(int* argc, char** argv, const char* program);

// The value of an environment variable, or, where the environment has none, of the host's own configuration
// file behind it; null if neither knows the name. The text is never freed nor changed and stays valid for
// the life of the process.
const char* ZSV1_GetEnv(const char* name);

// As ZSV1_GetEnv, but the environment of the process alone.
const char* ZSV1_GetProcessEnv(const char* name);

// Puts "NAME=value" into the environment; the text is copied and the copy is never freed.
// Returns 0, or -1 if the text has no '=' or an empty name.
int ZSV1_PutEnv(const char* assignment);

// Takes a variable out of the environment. Returns 0, or -1 for an empty name.
int ZSV1_UnsetEnv(const char* name);

// A null-terminated array of all "NAME=value" texts of the environment, taken under the lock of the
// environment. The caller frees the array with free(), not the texts.
char** ZSV1_CopyEnv();

// Wall clock (CLOCK_REALTIME): what is shown to people.
void ZSV1_GetTime(timespec* out);

// Monotonic clock (CLOCK_MONOTONIC): what intervals, expiry and waits are measured on.
void ZSV1_GetMonotonicTime(timespec* out);

void ZSV1_Sleep(unsigned seconds);
void ZSV1_MilliSleep(unsigned milliseconds);

// The kernel's id of the calling thread.
unsigned long ZSV1_ThreadID();

// Fold ASCII letters in place; other bytes stay.
void ZSV1_ToLower(char* text);
void ZSV1_ToUpper(char* text);

// One line on the host itself ("almanac host 0.1.0"); static text.
const char* ZSV1_Info();

// Run-once control block; all zero before first use (static storage is).
struct ZSV1_Once {
    void* state;
};
// Runs `routine(argument)` exactly once for this block, whichever thread comes first; the others wait for it.
void ZSV1_InitializeOnce(ZSV1_Once* once, void (*routine)(void*), void* argument);

// A recursive lock; all zero before ZSV1_InitializeLock. The operations return 0, or -1 on a lock that has
// not been initialised (or, for release, is not held by the calling thread).
struct ZSV1_Lock {
    void* state;
};
int ZSV1_InitializeLock(ZSV1_Lock* lock);
int ZSV1_GetLock(ZSV1_Lock* lock);
int ZSV1_ReleaseLock(ZSV1_Lock* lock);
int ZSV1_DestroyLock(ZSV1_Lock* lock);

// Releases a resource through its own release routine; a null resource or routine is ignored.
void ZRS1_Drop(void* resource, void (*release)(void*));

// The name of a signal ("SIGTERM"), or "signal N" in a per-thread buffer for a number without a name.
const char* ZSG1_SignalName(int signal);
