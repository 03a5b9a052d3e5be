// One shell command whose standard output is read through a pipe.
//
// It keeps what popen(3) in read mode promises (the command runs under "/bin/sh -c", standard input and standard
// error are the agent's own), and adds what a daemon with many threads needs: the child gets no descriptor but 0, 1
// and 2, no blocked signal, SIGPIPE at its default, and an environment taken under the environment's lock. It is made
// by posix_spawn(3), which shares the parent's memory until exec, so its cost does not depend on the heap.
#pragma once

#include <sys/types.h>

#include <cstddef>

class ChildProcess {
  public:
    ChildProcess() = default;
    ~ChildProcess() { finish(); }
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    // Starts the command line. Returns 0, or the errno of what failed (no descriptor, no memory, no process).
    int start(const char* commandLine);

    // Up to `size` bytes of the child's output; 0 at its end, -1 with errno on a failure.
    ssize_t read(char* buffer, std::size_t size);

    // Closes the pipe, waits for the shell to end, without a bound, and gives its wait status (waitpid(2)); -1 if there
    // is none. Later calls give the same.
    int finish();

  private:
    int output_ = -1;
    pid_t pid_ = -1;
    int status_ = -1;
};
