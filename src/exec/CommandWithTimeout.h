// One shell command (or one remote command) on a thread of its own, and a bounded wait for it. A command that outlives
// its time-out is abandoned, never killed: the object keeps running and is parked in a CommandWithTimeoutList.
#pragma once

#include <pthread.h>

#include <atomic>
#include <memory>
#include <string>

#include "exec/OutputLines.h"
#include "exec/RemoteExecutor.h"
#include "foundation/HashMap.h"

enum _CWTStatus {
    CWT_NOT_STARTED = 0,
    CWT_RUNNING = 1,
    CWT_FAILED = 3,         // no memory, a read error on the pipe, or a non-zero result of the connector
    CWT_LAUNCH_FAILED = 4,  // the shell could not be started
    CWT_NOT_FOUND = 5,      // reserved: readers know it, nothing sets it
    CWT_ACCESS_DENIED = 6,  // reserved likewise
    CWT_COMPLETE = 7,
};

class CommandWithTimeout {
  public:
    // Local. `timeout` is in whole seconds; `env` is shell text put directly in front of the command, or null.
    CommandWithTimeout(const char* cmd, int timeout, const char* env = nullptr);
    // Remote; the connector is kept alive as long as the worker may be inside it. `env` is stored and ignored.
    CommandWithTimeout(std::shared_ptr<RemoteExecutor> connector, const char* cmd, int timeout, const char* env = nullptr);
    CommandWithTimeout(const CommandWithTimeout&) = delete;
    CommandWithTimeout& operator=(const CommandWithTimeout&) = delete;
    // Neither joins nor looks at the status: destroying a running object is the caller's error.
    virtual ~CommandWithTimeout();

    // Before runCommand: the local command's output is read and dropped, so that it takes no memory whatever is written.
    void discardOutput() { discardsOutput_ = true; }
    // Before runCommand: how much of a local command's output is kept, kLongestOutput bytes if nothing is said.
    void keepOutput(std::size_t bytes) { longestOutput_ = bytes; }
    // Starts the worker and waits, once for an object. 0: finished with a known return code, worker joined. 1: timed
    // out, the worker goes on and the object must live on (see CommandWithTimeoutList). -1: no usable result, worker
    // joined; the caller destroys the object.
    int runCommand();

    // Bits 8 to 15 of the wait status, so 0 after a death by signal; the connector's result for a remote command; -1
    // while nothing is known.
    int getRC() const { return returnCode_.load(); }
    // The standard output, as much as is kept of it, terminated, owned by the object; null until the command has finished
    // well and its worker is joined.
    char* getStdout() const { return joinable_ ? nullptr : stdout_.get(); }
    const char* getStderr() const { return joinable_ ? nullptr : stderr_.get(); }  // remote commands only
    const char* getCmd() const { return command_.c_str(); }

    // The next line of the output into `buf`, or null at the end or at an empty line. Kept: a line of `size` bytes or
    // more is cut at `size` without a terminator, so a buffer is one byte longer and zeroed by its owner.
    char* getNextLineFromStdout(char* buf, int size);
    // What is left of the output as a walk in place, for readers of whole outputs.
    OutputLines lines();

    _CWTStatus getStatus();
    void setStatus(_CWTStatus status);
    void signal();  // tells the waiting caller that the worker is done
    int join();     // pthread_join on the worker; ESRCH if there is none

    // Gives up the object: a finished one is joined and destroyed now, a running one by its own worker when it ends.
    static void letGo(CommandWithTimeout* command);

    static void* threadEntry(void* object);

    // Seconds from a setting: null gives 30, a number (atoi) below 11 gives 10, any other stands.
    static int timeoutFromText(const char* text);
    static constexpr int kDefaultTimeout = 30;
    // Bytes that are kept of a local command's output; the rest is left out, traced.
    static constexpr std::size_t kLongestOutput = std::size_t{1} << 30;
    static constexpr int kShortestTimeout = 10;

    // "A=1 export A;B=2 export B;" in the map's order, to stand in front of a command. Kept: values are neither quoted
    // nor escaped, unless the correction "env-quoting" is on; then names that are none for the shell are left out too, for
    // they would be run as part of a command. The caller frees the text.
    static char* buildEnvString(const HashMap* variables);
    // Whether the map holds the name in front of the first '=' of the text.
    static bool containsVariable(const HashMap* variables, const char* text);

  private:
    struct Free {
        void operator()(char* text) const;
    };
    using Text = std::unique_ptr<char, Free>;

    void threadMain();
    void runRemote();
    void runLocal();
    void end(_CWTStatus status);
    int startWorker();
    int waitForWorker();
    bool takeLeave();

    _CWTStatus status_ = CWT_NOT_STARTED;
    std::atomic<int> returnCode_{-1};
    const int timeout_;
    const std::string command_;
    const std::string environment_;
    bool discardsOutput_ = false;
    std::size_t longestOutput_ = kLongestOutput;
    Text stdout_;
    std::size_t stdoutSize_ = 0;
    Text stderr_;
    OutputLines lines_;
    bool linesStarted_ = false;
    pthread_t thread_{};
    bool joinable_ = false;
    bool finished_ = false;  // under the command mutex
    bool letGo_ = false;     // under the command mutex
    pthread_cond_t condition_;
    pthread_mutex_t commandMutex_ = PTHREAD_MUTEX_INITIALIZER;
    pthread_mutex_t statusMutex_ = PTHREAD_MUTEX_INITIALIZER;
    std::shared_ptr<RemoteExecutor> connector_;
};
