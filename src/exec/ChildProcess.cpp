#include "exec/ChildProcess.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <memory>

#include "platform/zsb.h"

namespace {

constexpr const char* kShell = "/bin/sh";
constexpr int kFirstHiddenDescriptor = 3;

struct FreeArray {
    void operator()(char** array) const { std::free(array); }
};

// The attributes and file actions of one spawn.
class SpawnPlan {
  public:
    SpawnPlan() {
        error_ = posix_spawnattr_init(&attributes_);
        haveAttributes_ = error_ == 0;
        if (error_ == 0) error_ = posix_spawn_file_actions_init(&actions_);
        haveActions_ = haveAttributes_ && error_ == 0;
    }
    ~SpawnPlan() {
        if (haveActions_) posix_spawn_file_actions_destroy(&actions_);
        if (haveAttributes_) posix_spawnattr_destroy(&attributes_);
    }
    SpawnPlan(const SpawnPlan&) = delete;
    SpawnPlan& operator=(const SpawnPlan&) = delete;

    int describe(int outputOfChild) {
        sigset_t none;
        sigset_t defaults;
        sigemptyset(&none);
        sigemptyset(&defaults);
        sigaddset(&defaults, SIGPIPE);
        step(posix_spawnattr_setsigmask(&attributes_, &none));
        step(posix_spawnattr_setsigdefault(&attributes_, &defaults));
        step(posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF));
        step(posix_spawn_file_actions_adddup2(&actions_, outputOfChild, STDOUT_FILENO));
        step(posix_spawn_file_actions_addclosefrom_np(&actions_, kFirstHiddenDescriptor));
        return error_;
    }

    int run(const char* commandLine, char** environment, pid_t* pid) {
        const char* arguments[] = {"sh", "-c", commandLine, nullptr};
        return posix_spawn(pid, kShell, &actions_, &attributes_, const_cast<char**>(arguments), environment);
    }

    int error() const { return error_; }

  private:
    void step(int error) {
        if (error_ == 0) error_ = error;
    }

    posix_spawnattr_t attributes_;
    posix_spawn_file_actions_t actions_;
    bool haveAttributes_ = false;
    bool haveActions_ = false;
    int error_ = 0;
};

}  // namespace

int ChildProcess::start(const char* commandLine) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) return errno;
    int error = ENOMEM;
    if (const std::unique_ptr<char*, FreeArray> environment{ZSV1_CopyEnv()}) {
        SpawnPlan plan;
        error = plan.error();
        if (error == 0) error = plan.describe(ends[1]);
        if (error == 0) error = plan.run(commandLine, environment.get(), &pid_);
    }
    close(ends[1]);
    if (error != 0) {
        close(ends[0]);
        pid_ = -1;
        return error;
    }
    output_ = ends[0];
    return 0;
}

ssize_t ChildProcess::read(char* buffer, std::size_t size) {
    ssize_t n = 0;
    do {
        n = ::read(output_, buffer, size);
    } while (n < 0 && errno == EINTR);
    return n;
}

int ChildProcess::finish() {
    if (output_ >= 0) close(output_);
    output_ = -1;
    if (pid_ > 0) {
        pid_t ended = 0;
        do {
            ended = waitpid(pid_, &status_, 0);
        } while (ended < 0 && errno == EINTR);
        if (ended < 0) status_ = -1;
        pid_ = -1;
    }
    return status_;
}
