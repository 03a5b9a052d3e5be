// The daemon as a process: how it starts, what it says of a bad start, and how it ends.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <thread>

#include "host/Scratch.h"
#include "host/server/Client.h"

extern char** environ;

namespace {

using namespace std::chrono_literals;
using almanac::host::test::Client;
using almanac::host::test::readFile;
using almanac::host::test::Scratch;
using almanac::host::test::writeFile;
using testing::HasSubstr;

class Daemon {
  public:
    explicit Daemon(const std::vector<std::string>& settings, const std::vector<std::string>& arguments = {}) {
        std::vector<std::string> environment = settings;  // of two of one name the first counts
        environment.push_back("ALMANAC_DATA_DIR=" + directory());
        environment.push_back("TSAN_OPTIONS=atexit_sleep_ms=0");  // else that build sleeps a second in every exit
        for (char** one = environ; *one; ++one) {
            const std::string_view name(*one);
            if (name.substr(0, 8) != "ALMANAC_" && name.substr(0, 4) != "CDP_" && name.substr(0, 14) != "AGENT_REF_FILE") {
                environment.emplace_back(name);
            }
        }
        const char* folder = std::getenv("ALMANAC_BIN_DIR");
        std::vector<std::string> line = {std::string(folder ? folder : ".") + "/almanacd"};
        line.insert(line.end(), arguments.begin(), arguments.end());
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, 2, errorFile().c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        auto argv = pointers(line), env = pointers(environment);
        EXPECT_EQ(posix_spawn(&pid_, line[0].c_str(), &actions, nullptr, argv.data(), env.data()), 0);
        posix_spawn_file_actions_destroy(&actions);
    }
    ~Daemon() {
        if (pid_ <= 0) return;
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    Daemon(const Daemon&) = delete;
    Daemon& operator=(const Daemon&) = delete;

    bool ready() {
        for (int i = 0; i < 4000; ++i) {
            Client client(directory() + "/almanac.sock");
            if (client.connected() && client.get("/readyz").status == 200) return true;
            std::this_thread::sleep_for(5ms);
        }
        return false;
    }
    auto get(const std::string& target) { return Client(directory() + "/almanac.sock").get(target); }
    void signal(int number) { kill(pid_, number); }
    // The exit status, -1 for a death by signal, -2 if it does not end in 20 seconds.
    int end(int signal = 0) {
        if (signal) kill(pid_, signal);
        for (int i = 0; i < 4000; ++i) {
            int status = 0;
            if (waitpid(pid_, &status, WNOHANG) == pid_) {
                pid_ = -1;
                return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
            }
            std::this_thread::sleep_for(5ms);
        }
        return -2;
    }
    std::string errors() { return readFile(errorFile()); }
    std::string directory() const { return scratch_.path("data"); }

  private:
    static std::vector<char*> pointers(std::vector<std::string>& texts) {
        std::vector<char*> result;
        for (std::string& t : texts) result.push_back(t.data());
        result.push_back(nullptr);
        return result;
    }
    std::string errorFile() const { return scratch_.path("stderr"); }
    Scratch scratch_;
    pid_t pid_ = -1;
};

std::string reference(const std::string& command, const std::string& appl = "affinity=\"X\" internalAgentVersion=\"01\"") {
    return "<agent><appl name=\"TST\" nodeType=\"TS\" " + appl + "/>"
           "<metadata><ag table=\"T\" name=\"T\"><attr name=\"TS\" type=\"1\" size=\"16\"/><attr name=\"V\" type=\"2\" size=\"8\"/></ag>"
           "</metadata><script app=\"TST\" ag=\"T\" name=\"t\" command=\"" + command + "\" separator=\",\">"
           "<metric name=\"V\" type=\"STRING_DATA\" visible=\"true\" size=\"8\"/></script></agent>";
}

class Reference {
  public:
    explicit Reference(const std::string& text) : path_(scratch_.path("reference.xml")) { writeFile(path_, text); }
    std::string setting() const { return "AGENT_REF_FILE=" + path_; }

  private:
    Scratch scratch_;
    std::string path_;
};

TEST(Daemon, ABadReferenceFileIsToldAndEndsWith255) {
    Scratch place;
    writeFile(place.path("broken.xml"), "<agent><a></agent>");
    writeFile(place.path("map.xml"), reference("x") + "<script ag=\"T\"><metric type=\"X\" map=\"\" name=\"V\"/></script>");
    struct Case {
        std::vector<std::string> settings;
        std::string says;
        std::string then;
    };
    std::vector<Case> cases = {
        {{}, "Error opening file", "ERROR: agent ref loading error"},
        {{"AGENT_REF_FILE=" + place.path("none.xml")}, "Error opening file " + place.path("none.xml"), "Fatal Error (-1)"},
        {{"AGENT_REF_FILE=" + place.path()}, "Error opening file " + place.path(), "ERROR: agent ref loading error"},
        {{"AGENT_REF_FILE=" + place.path("broken.xml")}, "Fatal XML error: Mismatched end tag found: agent != a", "Fatal Error (-1)"},
    };
    if (geteuid() != 0) {  // root reads every file
        writeFile(place.path("shut.xml"), reference("x"));
        std::filesystem::permissions(place.path("shut.xml"), std::filesystem::perms::none);
        cases.push_back({{"AGENT_REF_FILE=" + place.path("shut.xml")}, "Error opening file", "ERROR: agent ref loading error"});
    }
    for (const Case& c : cases) {
        Daemon daemon(c.settings);
        EXPECT_EQ(daemon.end(), 255) << c.says;
        EXPECT_THAT(daemon.errors(), HasSubstr(c.says));
        EXPECT_THAT(daemon.errors(), HasSubstr(c.then));
    }
    Daemon map({"AGENT_REF_FILE=" + place.path("map.xml")});
    EXPECT_EQ(map.end(), 256 - 4191 % 256);  // a wrong map has a code of its own, of which a status keeps the low byte
}

TEST(Daemon, AnInstanceArgumentNeedsASeparator) {
    Daemon daemon({"AGENT_REF_FILE=/none"}, {"prod"});
    EXPECT_EQ(daemon.end(), 1);
    EXPECT_THAT(daemon.errors(), HasSubstr("Instance value is null-Not able to find the separator"));
    EXPECT_THAT(daemon.errors(), testing::Not(HasSubstr("Error opening file")));  // the file is not even tried
}

TEST(Daemon, ServesAndEndsAtOnceOnSigterm) {
    Reference file(reference("echo one"));
    Daemon daemon({file.setting()}, {"host_prod"});
    ASSERT_TRUE(daemon.ready());
    EXPECT_THAT(daemon.get("/api/v1/tables/T/rows").body, HasSubstr("one"));
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(daemon.end(SIGTERM), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - start, 1s);
}

TEST(Daemon, SurvivesSigpipe) {
    Reference file(reference("echo one"));
    Daemon daemon({file.setting()});
    ASSERT_TRUE(daemon.ready());
    daemon.signal(SIGPIPE);
    EXPECT_THAT(daemon.get("/api/v1/tables/T/rows").body, HasSubstr("one"));
    EXPECT_EQ(daemon.end(SIGINT), 0);
}

TEST(Daemon, EndsInTimeWhileAScriptHangs) {
    Reference file(reference("sleep 60"));
    Daemon daemon({file.setting(), "CDP_DP_THREAD_POOL_SIZE=2", "CDP_DP_REFRESH_INTERVAL=1"});
    ASSERT_TRUE(daemon.ready());
    daemon.get("/api/v1/tables/T/rows?deadline=300ms");
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(daemon.end(SIGTERM), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - start, 10s);
}

TEST(Daemon, AFatalExitAfterTheStartHasStatusZero) {
    Reference file(reference("x", "affinity=\"%X\" internalAgentVersion=\"13\""));
    Daemon daemon({file.setting()});
    EXPECT_EQ(daemon.end(), 0);
    EXPECT_THAT(daemon.errors(), HasSubstr("Unsupported agent version used: 13"));
    EXPECT_THAT(daemon.errors(), HasSubstr("Fatal Error (-99) Detected. Exiting"));
}

TEST(Daemon, ADataDirectoryOrSocketThatCannotBeUsedIs78) {
    Scratch place;
    writeFile(place.path("file"), "");
    Reference file(reference("x"));
    for (const char* name : {"ALMANAC_DATA_DIR", "ALMANAC_SOCKET"}) {
        Daemon daemon({std::string(name) + "=" + place.path("file"), file.setting()});
        EXPECT_EQ(daemon.end(), 78) << name;
        EXPECT_THAT(daemon.errors(), HasSubstr(place.path("file")));
    }
}

TEST(Daemon, WithoutAnApplTheTablesAreThereAllTheSame) {
    std::string text = reference("echo one");
    text.erase(text.find("<appl"), text.find("<metadata") - text.find("<appl"));
    Reference file(text);
    Daemon daemon({file.setting()});
    ASSERT_TRUE(daemon.ready());
    EXPECT_THAT(daemon.get("/api/v1/tables/T/rows").body, HasSubstr("one"));
    EXPECT_EQ(daemon.end(SIGTERM), 0);
    EXPECT_THAT(daemon.errors(), HasSubstr("no appl element"));
}

}  // namespace
