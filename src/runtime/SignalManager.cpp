#include "runtime/SignalManager.h"

#include <csignal>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <sys/wait.h>

#include "foundation/FatalExit.h"
#include "foundation/Trace.h"
#include "platform/zhb.h"

int Stat_daemon_PID = -1;

namespace {

sigset_t managedSignals() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGINT);
    sigaddset(&set, SIGTERM);
    sigaddset(&set, SIGPIPE);
    return set;
}

const char* errorText(int code) {
    const char* text = std::strerror(code);
    return text ? text : "Unknown error";
}

}  // namespace

SignalManager::SignalManager() {
    Stat_daemon_PID = -1;
    blockSignals();
    startManagerThread();
}

SignalManager::~SignalManager() {
    TRACE_FUNCTION();
    trace_detail("Shutdown commencing.");
    stopManagerThread();
}

void SignalManager::blockSignals() {
    const sigset_t set = managedSignals();
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
}

void SignalManager::startManagerThread() {
    TRACE_FUNCTION();
    pthread_attr_t attributes;
    int rc = pthread_attr_init(&attributes);
    if (rc != 0) {
        trace_error("Error initializing signal manager thread attribute object. Return code = %d; %s.  Use the return code "
                    "and message to investigate the failure.  Agent is terminating.", rc, errorText(rc));
        std::exit(-1);
    }
    rc = pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_JOINABLE);
    if (rc != 0) {
        trace_error("Error making signal manager thread attribute object joinable. Return code = %d; %s.  Continuing.", rc,
                    errorText(rc));
    }
    rc = pthread_create(&thread_, &attributes, threadMain, this);
    if (rc != 0) {
        trace_error("Error starting signal manager thread.  Return code = %d; %s.  Use the return code and message to "
                    "investigate the failure.  Agent is terminating.", rc, errorText(rc));
        std::exit(-1);
    }
    rc = pthread_attr_destroy(&attributes);
    if (rc != 0) {
        trace_error("Error destroying signal manager thread attribute object. Return code = %d; %s.  Use the return code "
                    "and message to investigate the failure.  Agent is terminating.", rc, errorText(rc));
        std::exit(-1);
    }
}

void SignalManager::stopManagerThread() {
    TRACE_FUNCTION();
    if (pthread_equal(pthread_self(), thread_)) return;
    trace_detail("Termination pending cancellation of manager thread.");
    int rc = pthread_cancel(thread_);
    if (rc != 0) trace_error("Error canceling manager thread. Return code = %d; %s", rc, errorText(rc));
    rc = pthread_join(thread_, nullptr);
    if (rc != 0) {
        trace_error("Error joining with manager thread.  Return code = %d; %s", rc, errorText(rc));
    } else {
        trace_detail("Manager thread terminated.");
    }
}

void* SignalManager::threadMain(void* self) {
    TRACE_FUNCTION();
    auto* manager = static_cast<SignalManager*>(self);
    trace_detail("Log manager thread successfully started.");
    manager->waitForSignal();
    manager->shutDown();
    return nullptr;
}

void SignalManager::waitForSignal() {
    TRACE_FUNCTION();
    const sigset_t set = managedSignals();
    trace_detail("Manager thread waiting for a signal.");
    for (;;) {
        int signal = 0;
        const int rc = sigwait(&set, &signal);
        if (rc != 0) {
            trace_error("Error while manager waiting for a signal. errno = %d; %s", rc, errorText(rc));
            continue;
        }
        if (signal == SIGTERM || signal == SIGINT) {
            trace_detail("Stop signal received.");
            return;
        }
        if (signal == SIGCHLD) {  // kept ready: the waited set does not hold it
            const pid_t child = waitpid(-1, nullptr, WNOHANG);
            if (child > 0 && child == Stat_daemon_PID) {
                trace_error("Collection Daemon stat_daemon has died. Collection of data has stopped. Please restart the "
                            "agent to resume\n");
            }
            continue;
        }
        trace_detail("Manager received unexpected signal.  Signal = %d", signal);
    }
}

void SignalManager::shutDown() {
    TRACE_FUNCTION();
    trace_detail("Termination signal received.  Exiting.");
    HBX_Shutdown(1);
    if (Stat_daemon_PID != -1) kill(Stat_daemon_PID, SIGTERM);
    if (!claimExit()) parkForEver();  // main is on its way out already
    std::exit(0);
}
