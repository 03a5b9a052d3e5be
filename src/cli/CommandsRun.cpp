// run, stop, check, corrections, eval: the commands that work with processes.
#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "cli/ApiClient.h"
#include "cli/Commands.h"
#include "host/base/HostConfiguration.h"
#include "host/base/Paths.h"

namespace almanac::cli {

namespace {

constexpr int kStartSeconds = 15;
constexpr int kStopSeconds = 12;
constexpr useconds_t kPollMicroseconds = 20000;

std::string directoryOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? "." : path.substr(0, slash);
}

// A value of the host's configuration file stays what it is there.
void setDefault(const char* name, const std::string& value) {
    if (!host::hostConfigurationValue(name)) setenv(name, value.c_str(), 0);
}

// What the agent's own command line does not say. kDone or the exit status, with one line.
int prepareEnvironment(const RunOptions& options, const std::string& file) {
    setenv("AGENT_REF_FILE", file.c_str(), 1);
    for (const std::string& setting : options.settings) {
        const std::size_t equals = setting.find('=');
        if (equals == std::string::npos || equals == 0) {
            complain("--set takes NAME=VALUE, not '" + setting + "'");
            return kUsage;
        }
        setenv(setting.substr(0, equals).c_str(), setting.substr(equals + 1).c_str(), 1);
    }
    std::string error;
    if (!host::loadHostConfiguration(&error)) {
        complain(error);
        return kConfiguration;
    }
    setDefault("CDP_BINPATH", directoryOf(file));
    setDefault("AGENT_BIN_DIR", directoryOf(file) + "/bin");
    setDefault("CDP_CORRECTIONS", "all");
    if (!std::getenv("LC_ALL") && !std::getenv("LC_CTYPE") && !std::getenv("LANG")) setenv("LC_ALL", "C.UTF-8", 1);
    return kDone;
}

[[noreturn]] void execAgent(const RunOptions& options) {
    const std::string program = siblingProgram("almanacd");
    std::vector<char*> arguments = {const_cast<char*>("almanacd")};
    std::string instance = options.instance;
    std::string marker = "TEST";
    if (!instance.empty()) {
        arguments.push_back(instance.data());
        arguments.push_back(marker.data());
    }
    arguments.push_back(nullptr);
    execvp(program.c_str(), arguments.data());
    complain(program + ": " + std::strerror(errno));
    _exit(kFailed);
}

// Standard input from nothing, both outputs to the log file of the data directory.
bool redirectToLog(const std::string& logPath) {
    const int none = open("/dev/null", O_RDONLY | O_CLOEXEC);
    const int log = open(logPath.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (none < 0 || log < 0) {
        complain(logPath + ": " + std::strerror(errno));
        return false;
    }
    return dup2(none, 0) == 0 && dup2(log, 1) == 1 && dup2(log, 2) == 2;
}

std::string lastLines(const std::string& path, off_t from) {
    std::ifstream file(path, std::ios::binary);
    file.seekg(from);
    const std::string text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    return text.size() > 4000 ? text.substr(text.size() - 4000) : text;
}

// An agent that has ended normally gives 1: it was to stay.
int endStatus(int status) {
    if (WIFSIGNALED(status)) return kFailed;
    return WEXITSTATUS(status) == kDone ? kFailed : WEXITSTATUS(status) == 255 ? kConfiguration : WEXITSTATUS(status);
}

int waitUntilReady(pid_t child, const std::string& logPath, off_t logStart) {
    const ApiClient api(apiSocket());
    for (int i = 0; i < kStartSeconds * 50; ++i) {
        int status = 0;
        if (waitpid(child, &status, WNOHANG) == child) {
            complain("the agent ended at its start:");
            std::fputs(lastLines(logPath, logStart).c_str(), stderr);
            return endStatus(status);
        }
        if (api.call("/readyz", "text/plain", nullptr, 2).status == 200) {
            std::fprintf(stderr, "The agent runs (pid %d); its messages go to %s\n", static_cast<int>(child), logPath.c_str());
            return kDone;
        }
        usleep(kPollMicroseconds);
    }
    complain("the agent runs (pid " + std::to_string(child) + ") but is not ready yet; see " + logPath);
    return kFailed;
}

// The pid in the lock file of the data directory while an agent holds its lock (flock(2)); 0 if none does.
pid_t runningAgent() {
    const std::string path = host::dataDirectory() + "/almanac.lock";
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
    if (fd < 0) return 0;
    const bool free = flock(fd, LOCK_SH | LOCK_NB) == 0;  // given back by close
    char text[32] = "";
    const ssize_t got = free ? 0 : read(fd, text, sizeof text - 1);
    close(fd);
    const pid_t pid = got > 0 ? static_cast<pid_t>(std::atoi(text)) : 0;
    return pid > 1 ? pid : 0;
}

// False, with one line, if the data directory cannot be used or another agent uses it.
bool dataDirectoryIsFree() {
    std::string error;
    if (!host::prepareDataDirectory(&error)) {
        complain(error);
        return false;
    }
    const pid_t pid = runningAgent();
    if (pid != 0) complain("an agent runs already in " + host::dataDirectory() + " (pid " + std::to_string(pid) + ")");
    return pid == 0;
}

// Settings that come with a reference file, in config/ beside it, become the data directory's where that has none yet.
bool bringSettings(const std::string& file) {
    namespace fs = std::filesystem;
    std::error_code error;
    const fs::path target = fs::path(host::dataDirectory()) / "config";
    for (const fs::directory_entry& entry : fs::directory_iterator(fs::path(file).parent_path() / "config", error)) {
        if (entry.path().extension() != ".toml") continue;
        const fs::path copy = target / entry.path().filename();
        if (fs::exists(fs::symlink_status(copy, error))) continue;
        const fs::path unfinished = copy.string() + ".new";
        if (!fs::exists(target, error) && fs::create_directory(target, error)) {
            fs::permissions(target, fs::perms::owner_all, error);
        }
        if (!error) fs::copy_file(entry.path(), unfinished, fs::copy_options::overwrite_existing, error);
        if (!error) fs::permissions(unfinished, fs::perms::owner_read | fs::perms::owner_write, error);
        if (!error) fs::rename(unfinished, copy, error);
        if (error) {
            complain(copy.string() + ": " + error.message());
            fs::remove(unfinished, error);
            return false;
        }
        std::fprintf(stderr, "The settings %s were copied to %s\n", entry.path().c_str(), target.c_str());
    }
    return true;  // a reference file without settings of its own is nothing to tell
}

int runDaemon(const RunOptions& options) {
    const std::string logPath = host::dataDirectory() + "/almanacd.log";
    struct stat info;
    const off_t logStart = stat(logPath.c_str(), &info) == 0 ? info.st_size : 0;
    const pid_t child = fork();
    if (child < 0) {
        complain(std::string("fork: ") + std::strerror(errno));
        return kFailed;
    }
    if (child == 0) {
        setsid();
        if (!redirectToLog(logPath)) _exit(kConfiguration);
        execAgent(options);
    }
    return waitUntilReady(child, logPath, logStart);
}

int runProgram(const std::string& program, std::vector<std::string> arguments) {
    std::vector<char*> words = {const_cast<char*>(program.c_str())};
    for (std::string& a : arguments) words.push_back(a.data());
    words.push_back(nullptr);
    const pid_t child = fork();
    if (child < 0) return kFailed;
    if (child == 0) {
        execvp(program.c_str(), words.data());
        complain(program + ": " + std::strerror(errno));
        _exit(127);
    }
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFEXITED(status) && WEXITSTATUS(status) != 127 ? WEXITSTATUS(status) : kFailed;
}

}  // namespace

std::string siblingProgram(const char* name) {
    char self[PATH_MAX];
    const ssize_t n = readlink("/proc/self/exe", self, sizeof self - 1);
    if (n <= 0) return name;
    const std::string path = directoryOf(std::string(self, static_cast<std::size_t>(n))) + "/" + name;
    return access(path.c_str(), X_OK) == 0 ? path : name;
}

int runAgent(const RunOptions& options) {
    char path[PATH_MAX];
    if (!realpath(options.file.c_str(), path)) {
        complain(options.file + ": " + std::strerror(errno));
        return kConfiguration;
    }
    if (options.check) {
        const std::string checker = siblingProgram("almanac-check");
        const int found = runProgram(checker, {path});
        if (found == 1) complain("the reference file has errors; mend them, or run it as it is with --no-check");
        if (found != kDone) return kConfiguration;
    }
    const int prepared = prepareEnvironment(options, path);
    if (prepared != kDone) return prepared;
    if (!dataDirectoryIsFree() || !bringSettings(path)) return kConfiguration;
    if (options.daemon) return runDaemon(options);
    execAgent(options);
}

int stopAgent() {
    const pid_t pid = runningAgent();
    if (pid == 0) {
        complain("no agent runs in " + host::dataDirectory());
        return kFailed;
    }
    if (kill(pid, SIGTERM) != 0) {
        complain("pid " + std::to_string(pid) + ": " + std::strerror(errno));
        return kFailed;
    }
    for (int i = 0; i < kStopSeconds * 50; ++i) {
        if (runningAgent() == 0) return kDone;
        usleep(kPollMicroseconds);
    }
    complain("the agent (pid " + std::to_string(pid) + ") has not ended in " + std::to_string(kStopSeconds) + " seconds");
    return kFailed;
}

int checkFile(const std::string& file) { return runProgram(siblingProgram("almanac-check"), {file}); }

int listCorrections() { return runProgram(siblingProgram("almanac-check"), {"--corrections"}); }

int evaluateFormula(const EvalOptions& options) {
    std::vector<std::string> arguments = {"--eval", options.formula, options.type, std::to_string(options.repeat)};
    arguments.insert(arguments.end(), options.settings.begin(), options.settings.end());
    return runProgram(siblingProgram("almanac-check"), std::move(arguments));
}

}  // namespace almanac::cli
