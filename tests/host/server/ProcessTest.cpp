// The assembled host as a process: one agent for a data directory, leftovers of a dead one, and an end in
// bounded time whatever hangs.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include "host/server/Client.h"

extern char** environ;

namespace almanac::host {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using test::Client;
using testing::HasSubstr;

// One run of the test agent in a data directory.
class Agent {
  public:
    Agent(const std::string& directory, const std::vector<std::string>& more = {},
          const std::string& argument = "")
        : directory_(directory), errors_(directory + "-stderr" + std::to_string(++runs)) {
        std::vector<std::string> environment = {"ALMANAC_DATA_DIR=" + directory};
        environment.insert(environment.end(), more.begin(), more.end());
        for (char** one = environ; *one; ++one) {
            if (std::string_view(*one).substr(0, 8) != "ALMANAC_") environment.emplace_back(*one);
        }
        std::vector<char*> pointers;
        for (std::string& one : environment) pointers.push_back(one.data());
        pointers.push_back(nullptr);
        const char* folder = std::getenv("ALMANAC_BIN_DIR");
        std::string program = std::string(folder ? folder : ".") + "/host_agent";
        std::string second = argument;
        char* argv[] = {program.data(), argument.empty() ? nullptr : second.data(), nullptr};
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addclosefrom_np(&actions, 3);
        posix_spawn_file_actions_addopen(&actions, 2, errors_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        EXPECT_EQ(posix_spawn(&pid_, program.c_str(), &actions, nullptr, argv, pointers.data()), 0);
        posix_spawn_file_actions_destroy(&actions);
    }
    ~Agent() {
        if (pid_ > 0) {
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
        }
        unlink(errors_.c_str());
    }
    Agent(const Agent&) = delete;
    Agent& operator=(const Agent&) = delete;

    bool becomes(const std::string& target, int status) {
        for (int i = 0; i < 4000; ++i) {
            Client client(socket());
            if (client.connected() && client.get(target).status == status) return true;
            std::this_thread::sleep_for(5ms);
        }
        return false;
    }
    void signal(int number) { kill(pid_, number); }
    // The exit status, or -1 if a signal ended it.
    int wait() {
        int status = 0;
        waitpid(pid_, &status, 0);
        pid_ = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    std::string errors() {
        std::ostringstream text;
        text << std::ifstream(errors_).rdbuf();
        return text.str();
    }
    std::string socket() const { return directory_ + "/almanac.sock"; }
    pid_t pid() const { return pid_; }

  private:
    static inline int runs = 0;
    const std::string directory_, errors_;
    pid_t pid_ = -1;
};

TEST(Process, ASecondAgentOnADataDirectoryEndsAndSaysWhoIsThere) {
    test::TemporaryDirectory place;
    const std::string directory = place.path() + "/data";
    Agent first(directory);
    ASSERT_TRUE(first.becomes("/readyz", 200));
    {
        Agent second(directory);
        EXPECT_EQ(second.wait(), 78);
        EXPECT_THAT(second.errors(),
                    HasSubstr("almanacd: another agent (pid " + std::to_string(first.pid()) + ")"));
        EXPECT_THAT(second.errors(), HasSubstr("terminated"));
    }
    EXPECT_TRUE(first.becomes("/healthz", 200));  // unharmed
    first.signal(SIGTERM);
    EXPECT_EQ(first.wait(), 0);
    EXPECT_THAT(first.errors(), HasSubstr("terminated, 0 inside\n"));
    EXPECT_FALSE(std::filesystem::exists(first.socket()));
}

TEST(Process, WhatAKilledAgentLeftIsCleared) {
    test::TemporaryDirectory place;
    const std::string directory = place.path() + "/data";
    {
        Agent killed(directory);
        ASSERT_TRUE(killed.becomes("/readyz", 200));
        killed.signal(SIGKILL);
        killed.wait();
    }
    Agent next(directory, {"ALMANAC_HTTP_PORT=0"});
    ASSERT_TRUE(next.becomes("/readyz", 200));
    unsigned short port = 0;
    std::ifstream(directory + "/port") >> port;
    EXPECT_EQ(Client(port).get("/healthz").status, 200);
    // No child of the agent would get any of its descriptors.
    for (const auto& entry :
         std::filesystem::directory_iterator("/proc/" + std::to_string(next.pid()) + "/fdinfo")) {
        if (std::stoi(entry.path().filename()) <= 2) continue;
        std::string line;
        std::ifstream info(entry.path());
        while (std::getline(info, line) && line.rfind("flags:", 0) != 0) {
        }
        ASSERT_THAT(line, HasSubstr("flags:"));
        EXPECT_TRUE(std::stol(line.substr(6), nullptr, 8) & O_CLOEXEC) << entry.path() << " " << line;
    }
    next.signal(SIGTERM);
    EXPECT_EQ(next.wait(), 0);
    EXPECT_FALSE(std::filesystem::exists(directory + "/port"));
}

TEST(Process, FaultsOfTheInstallationAreOneLineAnd78) {
    test::TemporaryDirectory place;
    std::ofstream(place.path() + "/file") << "x";
    const struct {
        std::string directory;
        std::vector<std::string> environment;
        const char* says;
    } cases[] = {
        {place.path() + "/file", {}, "/file"},
        {place.path() + "/a", {"ALMANAC_HTTP_PORT=99999"}, "ALMANAC_HTTP_PORT: '99999' is no port number"},
        {place.path() + "/b", {"ALMANAC_HTTP_PORT=http"}, "is no port number"},
        {place.path() + "/c", {"ALMANAC_SOCKET=" + place.path() + "/file"}, "is no socket"},
    };
    for (const auto& c : cases) {
        Agent agent(c.directory, c.environment);
        EXPECT_EQ(agent.wait(), 78) << c.says;
        EXPECT_THAT(agent.errors(), HasSubstr("almanacd: "));
        EXPECT_THAT(agent.errors(), HasSubstr(c.says));
    }
}

TEST(Process, EndsInTimeWhateverHangs) {
    test::TemporaryDirectory place;
    Agent requested(place.path() + "/request");
    Agent loading(place.path() + "/loading", {}, "hang-loader");
    Agent ending(place.path() + "/ending", {}, "hang-end");
    ASSERT_TRUE(requested.becomes("/readyz", 200));
    ASSERT_TRUE(loading.becomes("/readyz", 503));
    ASSERT_TRUE(ending.becomes("/readyz", 200));
    EXPECT_EQ(Client(requested.socket()).get("/api/v1/tables/HUNG/rows?deadline=20ms").status, 504);
    const auto start = Clock::now();
    for (Agent* agent : {&requested, &loading, &ending}) agent->signal(SIGTERM);
    for (Agent* agent : {&requested, &loading, &ending}) EXPECT_EQ(agent->wait(), 0);
    EXPECT_LT(Clock::now() - start, 11s);
    EXPECT_THAT(requested.errors(), HasSubstr("terminated, 1 inside\n"));
    EXPECT_THAT(loading.errors(), HasSubstr("terminated, 1 inside\n"));
    EXPECT_THAT(ending.errors(), HasSubstr("almanacd: the agent did not end in time"));
}

}  // namespace
}  // namespace almanac::host
