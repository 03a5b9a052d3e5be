// The small services of zsb.h: start-up, thread id, text case, release routines, names of signals.
#include <sys/syscall.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstring>

#include "host/base/Paths.h"
#include "platform/zsb.h"

namespace {

extern "C" void ignoreSignal(int) {}

// A handler that does nothing, in place of SIG_IGN, because exec gives a child its default action back. A
// signal whose action somebody has chosen already is left alone.
void makeHarmless(int signal) {
    struct sigaction present {};
    if (sigaction(signal, nullptr, &present) != 0 || present.sa_handler != SIG_DFL) return;
    struct sigaction harmless {};
    harmless.sa_handler = ignoreSignal;
    harmless.sa_flags = SA_RESTART;
    sigemptyset(&harmless.sa_mask);
    sigaction(signal, &harmless, nullptr);
}

}  // namespace

int ZSV1_Main(int* /*argc*/, char** /*argv*/, const char* program) {
    almanac::host::setProgramName(program ? program : "");
    // A reader that went away and a file that may not grow are failed writes, not the end of the agent.
    makeHarmless(SIGPIPE);
    makeHarmless(SIGXFSZ);
    return 0;
}

unsigned long ZSV1_ThreadID() { return static_cast<unsigned long>(syscall(SYS_gettid)); }

void ZSV1_ToLower(char* text) {
    for (; text && *text; ++text) {
        if (*text >= 'A' && *text <= 'Z') *text = static_cast<char>(*text - 'A' + 'a');
    }
}

void ZSV1_ToUpper(char* text) {
    for (; text && *text; ++text) {
        if (*text >= 'a' && *text <= 'z') *text = static_cast<char>(*text - 'a' + 'A');
    }
}

const char* ZSV1_Info() { return "almanac host 0.1.0"; }

void ZRS1_Drop(void* resource, void (*release)(void*)) {
    if (resource && release) release(resource);
}

const char* ZSG1_SignalName(int signal) {
    static const struct {
        int number;
        const char* name;
    } kNames[] = {
        {SIGHUP, "SIGHUP"},   {SIGINT, "SIGINT"},       {SIGQUIT, "SIGQUIT"}, {SIGILL, "SIGILL"},
        {SIGTRAP, "SIGTRAP"}, {SIGABRT, "SIGABRT"},     {SIGBUS, "SIGBUS"},   {SIGFPE, "SIGFPE"},
        {SIGKILL, "SIGKILL"}, {SIGUSR1, "SIGUSR1"},     {SIGSEGV, "SIGSEGV"}, {SIGUSR2, "SIGUSR2"},
        {SIGPIPE, "SIGPIPE"}, {SIGALRM, "SIGALRM"},     {SIGTERM, "SIGTERM"}, {SIGSTKFLT, "SIGSTKFLT"},
        {SIGCHLD, "SIGCHLD"}, {SIGCONT, "SIGCONT"},     {SIGSTOP, "SIGSTOP"}, {SIGTSTP, "SIGTSTP"},
        {SIGTTIN, "SIGTTIN"}, {SIGTTOU, "SIGTTOU"},     {SIGURG, "SIGURG"},   {SIGXCPU, "SIGXCPU"},
        {SIGXFSZ, "SIGXFSZ"}, {SIGVTALRM, "SIGVTALRM"}, {SIGPROF, "SIGPROF"}, {SIGWINCH, "SIGWINCH"},
        {SIGIO, "SIGIO"},     {SIGPWR, "SIGPWR"},       {SIGSYS, "SIGSYS"},
    };
    for (const auto& entry : kNames) {
        if (entry.number == signal) return entry.name;
    }
    thread_local char text[32];
    std::snprintf(text, sizeof text, "signal %d", signal);
    return text;
}
