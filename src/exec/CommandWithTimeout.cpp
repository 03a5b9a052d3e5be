#include "exec/CommandWithTimeout.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string_view>
#include <utility>

#include "exec/ChildProcess.h"
#include "foundation/Corrections.h"
#include "foundation/Trace.h"

namespace {

constexpr std::size_t kFirstCapacity = 16384;
// The worker reads and waits; its deepest frame is the formatting of a trace line.
constexpr std::size_t kWorkerStack = 256 * 1024;

// Bits 8 to 15 of a wait status. Kept: a child that a signal killed counts as 0, a wait that failed as 255.
int exitCode(int waitStatus) { return (waitStatus & 0xff00) >> 8; }

// A name of POSIX.1-2017, 3.235: what a shell lets stand in front of a '='.
bool isShellName(std::string_view name) {
    const auto isWordByte = [](char c) {
        return c == '_' || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
    };
    return !name.empty() && (name[0] < '0' || name[0] > '9') && std::all_of(name.begin(), name.end(), isWordByte);
}

// In single quotes, as one word of sh(1).
std::string shellQuoted(const char* text) {
    std::string quoted = "'";
    for (; *text; ++text) {
        if (*text == '\'') {
            quoted += "'\\''";
        } else {
            quoted += *text;
        }
    }
    return quoted + '\'';
}

// Reads on, so that the command does not wait for its reader for ever.
void leaveOutRest(ChildProcess& child, const std::string& command, std::size_t kept) {
    TRACE_MESSAGES();
    char dropped[4096];
    for (bool told = false; child.read(dropped, sizeof dropped) > 0; told = true) {
        if (told) continue;
        trace_error("The output of '%s' is longer than %zu bytes; the rest is left out", command.c_str(), kept);
    }
}

}  // namespace

void CommandWithTimeout::Free::operator()(char* text) const { std::free(text); }

CommandWithTimeout::CommandWithTimeout(const char* cmd, int timeout, const char* env)
    : CommandWithTimeout(nullptr, cmd, timeout, env) {}

CommandWithTimeout::CommandWithTimeout(std::shared_ptr<RemoteExecutor> connector, const char* cmd, int timeout,
                                       const char* env)
    : timeout_(timeout), command_(cmd ? cmd : ""), environment_(env ? env : ""), connector_(std::move(connector)) {
    // The deadline is on the monotonic clock: a step of the wall clock neither cuts a wait nor stretches it.
    pthread_condattr_t attributes;
    pthread_condattr_init(&attributes);
    pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
    pthread_cond_init(&condition_, &attributes);
    pthread_condattr_destroy(&attributes);
}

CommandWithTimeout::~CommandWithTimeout() {
    pthread_cond_destroy(&condition_);
    pthread_mutex_destroy(&commandMutex_);
    pthread_mutex_destroy(&statusMutex_);
}

_CWTStatus CommandWithTimeout::getStatus() {
    TRACE_MESSAGES();
    if (pthread_mutex_lock(&statusMutex_) != 0) {
        trace_detail("Error, could not lock status Mutex");
        return CWT_FAILED;
    }
    const _CWTStatus status = status_;
    pthread_mutex_unlock(&statusMutex_);
    return status;
}

void CommandWithTimeout::setStatus(_CWTStatus status) {
    TRACE_MESSAGES();
    if (pthread_mutex_lock(&statusMutex_) != 0) {
        trace_detail("Error, could not lock status Mutex");
        return;
    }
    status_ = status;
    pthread_mutex_unlock(&statusMutex_);
}

void CommandWithTimeout::signal() {
    TRACE_MESSAGES();
    if (pthread_mutex_lock(&commandMutex_) != 0) {
        trace_detail("Error, could not lock command Mutex");
        return;
    }
    finished_ = true;
    pthread_mutex_unlock(&commandMutex_);
    // Outside the lock, so that the caller does not wake only to wait for it; the object outlives its worker.
    pthread_cond_signal(&condition_);
}

int CommandWithTimeout::join() {
    if (!joinable_) return ESRCH;
    joinable_ = false;
    return pthread_join(thread_, nullptr);
}

// With the command mutex held, so that the worker's signal() finds the caller in its wait.
int CommandWithTimeout::startWorker() {
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_JOINABLE);
    pthread_attr_setstacksize(&attributes, kWorkerStack);
    const int error = pthread_create(&thread_, &attributes, threadEntry, this);
    pthread_attr_destroy(&attributes);
    joinable_ = error == 0;
    return error;
}

// With the command mutex held. 0 once the worker has signalled, else the error of the wait.
int CommandWithTimeout::waitForWorker() {
    // The clock of the condition itself, not the one that tests can step.
    timespec deadline;
    clock_gettime(CLOCK_MONOTONIC, &deadline);
    deadline.tv_sec += timeout_;
    int error = 0;
    while (!finished_ && error == 0) error = pthread_cond_timedwait(&condition_, &commandMutex_, &deadline);
    return finished_ ? 0 : error;
}

int CommandWithTimeout::runCommand() {
    TRACE_FUNCTION();
    if (getStatus() != CWT_NOT_STARTED) return -1;
    if (pthread_mutex_lock(&commandMutex_) != 0) return -1;
    if (startWorker() != 0) {
        pthread_mutex_unlock(&commandMutex_);
        return -1;
    }
    const int error = waitForWorker();
    pthread_mutex_unlock(&commandMutex_);
    if (error == ETIMEDOUT) {
        trace_detail("Timeout waiting for command to complete");
        return 1;
    }
    join();
    return error == 0 && getRC() != -1 ? 0 : -1;
}

void* CommandWithTimeout::threadEntry(void* object) {
    auto* command = static_cast<CommandWithTimeout*>(object);
    command->threadMain();
    if (command->takeLeave()) delete command;
    return nullptr;
}

// The worker's last look at the object: true if its owner has given it up.
bool CommandWithTimeout::takeLeave() {
    pthread_mutex_lock(&commandMutex_);
    const bool given = letGo_;
    letGo_ = true;
    pthread_mutex_unlock(&commandMutex_);
    return given;
}

void CommandWithTimeout::letGo(CommandWithTimeout* command) {
    if (!command) return;
    bool ended = true;
    if (command->joinable_) {
        pthread_mutex_lock(&command->commandMutex_);
        // From here on either this thread or the worker destroys the object, whichever comes second.
        ended = command->letGo_;
        command->letGo_ = true;
        const pthread_t thread = command->thread_;
        if (!ended) pthread_detach(thread);
        pthread_mutex_unlock(&command->commandMutex_);
    }
    if (!ended) return;
    command->join();
    delete command;
}

void CommandWithTimeout::threadMain() {
    TRACE_FUNCTION();
    returnCode_ = -1;
    setStatus(CWT_RUNNING);
    stdout_.reset();
    stderr_.reset();
    if (connector_) {
        runRemote();
    } else {
        runLocal();
    }
}

void CommandWithTimeout::end(_CWTStatus status) {
    setStatus(status);
    signal();
}

void CommandWithTimeout::runRemote() {
    char* out = nullptr;
    char* err = nullptr;
    // Kept: the environment prefix does not reach a remote command, and the connector's result stands for the
    // command's own exit status, which is never asked for.
    const int rc = connector_->executeScript(ZBT::String(command_.c_str()), &out, &err);
    stdout_.reset(out);
    stdoutSize_ = out ? std::strlen(out) : 0;
    stderr_.reset(err);
    setStatus(rc != 0 ? CWT_FAILED : CWT_COMPLETE);
    returnCode_ = rc;
    signal();
}

void CommandWithTimeout::runLocal() {
    TRACE_FUNCTION();
    std::size_t capacity = kFirstCapacity;
    std::size_t used = 0;
    Text buffer(static_cast<char*>(std::malloc(capacity)));
    if (!buffer) {
        trace_detail("malloc failed");
        return end(CWT_FAILED);
    }
    ChildProcess child;
    if (child.start((environment_ + command_).c_str()) != 0) {
        trace_detail("popen failed");
        return end(CWT_LAUNCH_FAILED);
    }
    for (;;) {
        const ssize_t n = child.read(buffer.get() + used, capacity - used - 1);
        if (n == 0) break;
        if (n < 0) {
            const int error = errno;
            trace_detail("Error on pipe read");
            trace_detail("errno = %d, \"%s\"", error, strerrordesc_np(error));
            child.finish();
            return end(CWT_FAILED);
        }
        if (discardsOutput_) continue;
        used += static_cast<std::size_t>(n);
        if (used < capacity - 1) continue;
        if (capacity > longestOutput_) {
            leaveOutRest(child, command_, longestOutput_);
            break;
        }
        capacity = std::min(capacity * 2, longestOutput_ + 1);
        char* larger = static_cast<char*>(std::realloc(buffer.get(), capacity));
        if (!larger) {
            trace_detail("realloc failed");
            return end(CWT_FAILED);  // the child is waited for after the signal
        }
        static_cast<void>(buffer.release());
        buffer.reset(larger);
    }
    returnCode_ = exitCode(child.finish());
    buffer.get()[used] = '\0';
    stdout_ = std::move(buffer);
    stdoutSize_ = used;
    end(CWT_COMPLETE);
}

OutputLines CommandWithTimeout::lines() {
    if (joinable_) return OutputLines();
    if (!linesStarted_) {
        lines_ = getStdout() ? OutputLines(std::string_view(getStdout(), stdoutSize_)) : OutputLines();
        linesStarted_ = true;
    }
    return lines_;
}

char* CommandWithTimeout::getNextLineFromStdout(char* buf, int size) {
    if (!getStdout() || size <= 0) return nullptr;
    lines();
    std::string_view line;
    const bool more = lines_.next(static_cast<std::size_t>(size), line);
    std::memcpy(buf, line.data(), line.size());
    if (line.size() < static_cast<std::size_t>(size)) buf[line.size()] = '\0';
    return more ? buf : nullptr;
}

int CommandWithTimeout::timeoutFromText(const char* text) {
    if (!text) return kDefaultTimeout;
    const long long seconds = std::strtoll(text, nullptr, 10);
    return static_cast<int>(std::clamp<long long>(seconds, kShortestTimeout, INT_MAX));
}

char* CommandWithTimeout::buildEnvString(const HashMap* variables) {
    TRACE_MESSAGES();
    const bool quoting = correctionIsOn("env-quoting");
    std::string text;
    for (HashMapIterator it = variables->iterator(); it.hasNext();) {
        it.next();
        const std::string name = it.getKey();
        const char* value = static_cast<const char*>(it.getData());
        if (quoting && !isShellName(name)) {
            trace_detail("'%s' cannot name a variable of the shell, it is left out", name.c_str());
            continue;
        }
        text += name + '=';
        if (quoting) {
            text += shellQuoted(value ? value : "");
        } else if (value) {
            text += value;
        }
        text += " export " + name.substr(0, name.find('=')) + ';';
    }
    return strdup(text.c_str());
}

bool CommandWithTimeout::containsVariable(const HashMap* variables, const char* text) {
    if (!variables || !text) return false;
    return variables->contains(std::string(text, std::strcspn(text, "=")).c_str());
}
