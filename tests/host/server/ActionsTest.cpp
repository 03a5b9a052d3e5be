// The route of actions: who may use it, what it lets through, what it answers, and what it leaves in the log.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <thread>

#include "host/FakeAgent.h"
#include "host/base/HostConfiguration.h"
#include "host/base/Secrets.h"
#include "host/framework/AgentCall.h"
#include "host/server/Api.h"
#include "host/server/Client.h"
#include "host/server/HttpServer.h"

namespace almanac::host {
namespace {

using namespace std::chrono_literals;
using nlohmann::json;
using test::Answer;
using test::Client;

int echoCommand(AghbxAutomationCapsule* capsule) {
    if (std::strncmp(capsule->Command(), "hang", 4) == 0) std::this_thread::sleep_for(300ms);
    const std::string text = std::string(capsule->Command()) + "|" + (capsule->User() ? capsule->User() : "-") + "|" +
                             capsule->Request()->TableName() + "|" + capsule->Request()->DestinationNode();
    capsule->SetMessage(text.c_str());
    capsule->SetResults(capsule->Command() == std::string("STOP") ? 0 : 3);
    capsule->Request()->FinishedAutomationCommand(capsule);
    return 0;
}

// "restart(a)(b)"; a value with a bracket cannot be carried.
char* composeText(const char* name, const char* const* values, int count, char** why) {
    std::string text = name;
    for (int i = 0; i < count; ++i) {
        const std::string value = values[i] ? values[i] : "";
        if (value.find(')') != std::string::npos) {
            *why = strdup("a value holds its end delimiter");
            return nullptr;
        }
        text += "(" + value + ")";
    }
    return strdup(text.c_str());
}

class ActionsRoute : public testing::Test {
  protected:
    void SetUp() override {
        setenv("ALMANAC_CONFIG", (directory_.path() + "/almanac.toml").c_str(), 1);
        forgetHostConfiguration();
        framework_.commands.declare({"restart", HBX_COMMAND_WORD, "Restarts", {{"SERVICE", "all"}, {"HOW", "now"}}});
        framework_.commands.declare({"STOP", HBX_COMMAND_WHOLE, "Stops", {}});
        framework_.commands.setComposer(composeText);
        framework_.agent.setCallback(echoCommand);
        framework_.loaderReturned();
        std::string error;
        ASSERT_TRUE(server_.listenUnix(path(), &error)) << error;
        ASSERT_TRUE(server_.listenTcp(0, &error)) << error;
        ASSERT_TRUE(server_.start(&error)) << error;
    }
    void TearDown() override {
        server_.stop(std::chrono::steady_clock::now() + 5s);
        unsetenv("ALMANAC_CONFIG");
        forgetHostConfiguration();
    }
    std::string path() const { return directory_.path() + "/s.sock"; }
    void write(const std::string& name, const std::string& text) const {
        std::ofstream(directory_.path() + "/" + name) << text;
        chmod((directory_.path() + "/" + name).c_str(), 0600);
    }
    std::string log() const {
        std::stringstream text;
        text << std::ifstream(directory_.path() + "/actions.log").rdbuf();
        return text.str();
    }
    static Answer post(Client& client, const std::string& body, const std::string& fields = "") {
        client.send("POST /api/v1/actions HTTP/1.1\r\nHost: localhost\r\n" + fields +
                    "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body);
        return client.read();
    }
    Answer post(const std::string& body) const {
        Client client(path());
        return post(client, body);
    }
    Answer postOverTcp(const std::string& body, const std::string& token) const {
        Client client(server_.tcpPort());
        return post(client, body, token.empty() ? "" : "Authorization: Bearer " + token + "\r\n");
    }

    test::TemporaryDirectory directory_;
    Framework framework_;
    Api api_{framework_, directory_.path()};
    HttpServer server_{[this](const ApiRequest& request, Respond respond) { return api_.handle(request, std::move(respond)); }};
};

TEST_F(ActionsRoute, ListsWhatIsDeclared) {
    const json list = json::parse(Client(path()).get("/api/v1/actions").body);
    EXPECT_EQ(list["free_text"], false);
    EXPECT_NE(list["free_text_why"].get<std::string>().find("almanac.toml"), std::string::npos);
    ASSERT_EQ(list["actions"].size(), 2u);
    EXPECT_EQ(list["actions"][0]["parameters"][1], (json{{"name", "HOW"}, {"default", "now"}}));
    EXPECT_EQ(list["actions"][1]["built_in"], true);
    EXPECT_EQ(Client(path()).get("/api/v1/actions?x=1").status, 400);
}

TEST_F(ActionsRoute, RunsATaskForItsCaller) {
    const Answer answer = post(R"({"task": "Restart", "parameters": {"HOW": "a \"b\"", "SERVICE": 7}})");
    ASSERT_EQ(answer.status, 200) << answer.body;
    const json done = json::parse(answer.body);
    EXPECT_EQ(done["command"], "restart(7)(a \"b\")");
    EXPECT_EQ(done["return_code"], 3);
    EXPECT_EQ(done["rows"], json::array());
    const std::string message = done["message"];
    EXPECT_EQ(message.find("restart(7)(a \"b\")|"), 0u);
    EXPECT_NE(message.find("|CLACTRMT|"), std::string::npos);
    if (geteuid() == 0) {
        EXPECT_NE(message.find("|root|"), std::string::npos);
    }
    EXPECT_EQ(json::parse(post(R"({"task": "restart", "parameters": [null, "x"]})").body)["command"], "restart()(x)");
    EXPECT_EQ(json::parse(post(R"({"task": "stop"})").body)["return_code"], 0);
    EXPECT_EQ(json::parse(post(R"x({"command": "restart (x)(y)"})x").body)["command"], "restart (x)(y)");
    EXPECT_EQ(post(R"x({"task": "restart", "parameters": {"HOW": ")"}})x").status, 400);
    // Each stands in the log: who asked, and what came of it.
    EXPECT_NE(log().find(R"("event":"asked","number":1,"who":")"), std::string::npos) << log();
    EXPECT_NE(log().find(R"("values":["7","a \"b\""])"), std::string::npos);
    EXPECT_NE(log().find(R"x("event":"finished","number":1,"command":"restart(7)(a \"b\")","return_code":3)x"), std::string::npos);
    EXPECT_NE(log().find(R"("event":"failed","number":5)"), std::string::npos);
    struct stat status {};
    ASSERT_EQ(stat((directory_.path() + "/actions.log").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0600u);
}

TEST_F(ActionsRoute, SaysWhatIsWrong) {
    const std::string deep = R"({"task": "restart", "parameters": )" + std::string(30000, '[') + std::string(30000, ']') + "}";
    const struct {
        const char* body;
        int status;
        const char* says;
    } cases[] = {
        {"", 400, "the body must be"},
        {"[]", 400, "the body must be"},
        {deep.c_str(), 400, "deeper"},
        {"{}", 400, "one of 'task' and 'command'"},
        {R"({"task": "restart", "command": "x"})", 400, "one of 'task' and 'command'"},
        {R"({"task": "restrat"})", 404, "did you mean 'restart'"},
        {R"({"task": 1})", 400, "task: a text"},
        {R"({"task": "restart", "parameters": {"SERVIC": "x"}})", 400, "did you mean 'SERVICE'"},
        {R"({"task": "restart", "parameters": {"HOW": ["x"]}})", 400, "HOW: a value is"},
        {R"({"task": "restart", "parameters": {"HOW": "a\u0000b"}})", 400, "no NUL"},
        {R"({"task": "restart", "parameters": ["a", "b", "c"]})", 400, "takes 2 parameters, not 3"},
        {R"({"task": "STOP", "parameters": {"A": "x"}})", 400, "has no parameter 'A'"},
        {R"({"task": "restart", "mode": "x"})", 400, "no member has the name 'mode'"},
        {R"({"task": "restart", "node": "nowhere"})", 404, "no managed system"},
        {R"({"task": "restart", "deadline": "soon"})", 400, "deadline"},
        {R"({"command": "  "})", 400, "nothing to run"},
        {R"({"command": "rm -rf /"})", 403, "free_text = true"},
        {R"({"command": "restarted"})", 403, "free_text = true"},
        {R"({"command": "stop now"})", 403, "free_text = true"},
    };
    for (const auto& c : cases) {
        const Answer answer = post(c.body);
        EXPECT_EQ(answer.status, c.status) << c.body << answer.body;
        EXPECT_TRUE(answer.has(c.says)) << c.body << answer.body;
    }
    EXPECT_EQ(log().find("finished"), std::string::npos) << log();
    EXPECT_NE(log().find(R"(agent's next start on","command":"rm -rf /")"), std::string::npos) << log();
    EXPECT_EQ(post(R"({"task": "restart", "parameters": {"HOW": ")" + std::string(70000, 'x') + "\"}}").status, 413);
}

TEST_F(ActionsRoute, FreeTextRunsWhereTheConfigurationAllowsIt) {
    write("almanac.toml", "[actions]\nfree_text = true\n");
    forgetHostConfiguration();
    EXPECT_EQ(json::parse(post(R"({"command": "uptime -p"})").body)["command"], "uptime -p");
    EXPECT_FALSE(json::parse(Client(path()).get("/api/v1/actions").body).contains("free_text_why"));
    for (const char* broken : {"[actions]\nfree_text = 1\n", "[actions]\nfree_texts = true\n", "actions = true\n"}) {
        write("almanac.toml", broken);
        forgetHostConfiguration();
        std::string error;
        EXPECT_FALSE(loadHostConfiguration(&error));
        EXPECT_NE(error.find("almanac.toml"), std::string::npos) << error;
        EXPECT_NE(error.find("actions"), std::string::npos) << error;
        EXPECT_EQ(post(R"({"command": "uptime -p"})").status, 403) << broken;  // a broken file allows nothing
    }
}

TEST_F(ActionsRoute, OverTcpATokenWithTheRightIsNeeded) {
    const std::string body = R"({"task": "restart"})";
    write("token",
          "aaaaaaaaaaaaaaaaaaaaaaaa\nbbbbbbbbbbbbbbbbbbbbbbbb name=robot actions\ncccccccccccccccccccccccc trace\n"
          "dddddddddddddddddddddddd action\neeeeeeeeeeeeeeeeeeeeeeee commands\nshort\n");
    EXPECT_EQ(postOverTcp(body, "").status, 401);
    EXPECT_EQ(postOverTcp(body, "short").status, 401);
    EXPECT_EQ(postOverTcp(body, std::string(24, 'a')).status, 200);
    const Answer robot = postOverTcp(body, std::string(24, 'b'));
    ASSERT_EQ(robot.status, 200);
    EXPECT_TRUE(robot.has("|token robot|")) << robot.body;
    EXPECT_TRUE(postOverTcp(body, std::string(24, 'c')).has("no right 'actions'"));
    EXPECT_EQ(postOverTcp(body, std::string(24, 'd')).status, 403);  // an unknown right is none
    // The agent's own commands and free text need more.
    for (const char* own : {R"({"task": "stop"})", R"({"command": "stop"})"}) {
        EXPECT_TRUE(postOverTcp(own, std::string(24, 'b')).has("no right 'commands'")) << own;
        EXPECT_EQ(postOverTcp(own, std::string(24, 'e')).status, 200) << own;
    }
    EXPECT_EQ(postOverTcp(body, std::string(24, 'e')).status, 200);
    EXPECT_EQ(Client(server_.tcpPort()).get("/api/v1/actions").status, 401);
    EXPECT_EQ(Client(server_.tcpPort()).get("/api/v1/actions", "Authorization: Bearer " + std::string(24, 'b') + "\r\n").status, 200);
    EXPECT_NE(log().find(R"("event":"refused")"), std::string::npos);
}

TEST_F(ActionsRoute, CallersWithoutATokenCannotFillTheLog) {
    for (int i = 0; i < 50; ++i) EXPECT_EQ(postOverTcp(R"({"task": "restart"})", "").status, 401);
    EXPECT_EQ(post(R"({"command": "id"})").status, 403);
    const std::string text = log();
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 2) << text;
}

// Two are inside the agent, the third waits behind them.
TEST_F(ActionsRoute, AtTheEndThoseThatWaitAreToldAndLogged) {
    framework_.commands.declare({"hang", HBX_COMMAND_WORD, "", {}});
    const std::string body = R"({"task": "hang"})";
    const std::string request =
        "POST /api/v1/actions HTTP/1.1\r\nHost: x\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
    std::vector<std::unique_ptr<Client>> clients;
    for (int i = 0; i < 3; ++i) {
        clients.push_back(std::make_unique<Client>(path()));
        clients.back()->send(request);
    }
    const auto begun = [&] { return framework_.actions.unfinished() == 3 && AgentCall::running() >= 2; };
    for (int i = 0; i < 2000 && !begun(); ++i) std::this_thread::sleep_for(1ms);
    framework_.broker.refuse();
    int statuses[2] = {0, 0};
    for (const auto& client : clients) ++statuses[client->read().status == 503];
    EXPECT_GE(statuses[1], 1);  // all, where the machine was slow and they were not begun in time
    EXPECT_NE(log().find(R"("message":"the agent shuts down")"), std::string::npos) << log();
    ASSERT_TRUE(framework_.broker.drain(std::chrono::steady_clock::now() + 20s));
}

TEST_F(ActionsRoute, ADeadlineEndsTheWaitAndNotTheAction) {
    framework_.commands.declare({"hang", HBX_COMMAND_WORD, "", {}});
    EXPECT_EQ(post(R"({"task": "hang", "deadline": "20ms"})").status, 504);
    ASSERT_TRUE(framework_.broker.drain(std::chrono::steady_clock::now() + 20s));
    EXPECT_NE(log().find(R"("event":"finished","number":1)"), std::string::npos) << log();
}

TEST_F(ActionsRoute, TheLogHoldsNoSecrets) {
    registerSecret("pass\"word\\");
    registerSecret("\"number\"");
    EXPECT_EQ(post(R"({"task": "restart", "parameters": {"HOW": "pass\"word\\"}})").status, 200);
    EXPECT_EQ(log().find("word"), std::string::npos) << log();
    std::istringstream lines(log());
    int count = 0;
    for (std::string line; std::getline(lines, line); ++count) EXPECT_EQ(json::parse(line)["number"], 1) << line;
    EXPECT_EQ(count, 2);
}

TEST_F(ActionsRoute, TheLogIsTurnedOverAndIsNoLink) {
    write("actions.log", std::string(ActionLog::kMaxBytes, 'x'));
    EXPECT_EQ(post(R"({"task": "restart"})").status, 200);
    struct stat status {};
    ASSERT_EQ(stat((directory_.path() + "/actions.log.1").c_str(), &status), 0);
    EXPECT_EQ(status.st_size, ActionLog::kMaxBytes);
    EXPECT_LT(log().size(), 1000u);
    std::remove((directory_.path() + "/actions.log").c_str());
    ASSERT_EQ(symlink("/dev/null", (directory_.path() + "/actions.log").c_str()), 0);
    EXPECT_EQ(post(R"({"task": "restart"})").status, 200);  // not written, but done
}

}  // namespace
}  // namespace almanac::host
