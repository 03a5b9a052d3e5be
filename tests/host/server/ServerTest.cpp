// The server and its routes in this process, over fake tables.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <thread>

#include "host/FakeAgent.h"
#include "host/base/Trace.h"
#include "host/server/Api.h"
#include "host/server/Client.h"
#include "host/server/HttpServer.h"

namespace almanac::host {
namespace {

using namespace std::chrono_literals;
using nlohmann::json;
using test::Answer;
using test::Client;
using test::FakeRequest;
using test::FakeRow;
using test::FakeTable;
using test::Gate;

class Server : public testing::Test {
  protected:
    void SetUp() override { start(HttpLimits()); }

    void start(const HttpLimits& limits) {
        server_.reset();
        server_ = std::make_unique<HttpServer>(
            [this](const ApiRequest& request, Respond respond) {
                return api_.handle(request, std::move(respond));
            },
            limits);
        std::string error;
        ASSERT_TRUE(server_->listenUnix(path(), &error)) << error;
        ASSERT_TRUE(server_->listenTcp(0, &error)) << error;
        ASSERT_TRUE(server_->start(&error)) << error;
    }
    void TearDown() override {
        gate_.open();
        server_->stop(std::chrono::steady_clock::now() + 5s);
    }
    void ready() {
        for (FakeTable* table : {&small_, &big_, &hung_}) framework_.catalog.add(table);
        framework_.loaderReturned();
    }
    std::string path() const { return directory_.path() + "/s.sock"; }
    Answer get(const std::string& target, const std::string& fields = "") {
        return Client(path()).get(target, fields);
    }

    static int rows(FakeRequest& request, int count) {
        for (int i = 0; i < count; ++i) {
            FakeRow row;
            row.name = i == 1 ? "a,\"b\"" : "row" + std::to_string(i);
            row.cpu = i;
            row.load = i * 5;
            if (request.add(row) == 1) break;
        }
        return 0;
    }

    test::TemporaryDirectory directory_;
    Gate gate_;
    FakeTable small_{"SMALL", [](FakeRequest& r) { return rows(r, 3); }};
    FakeTable big_{"BIG", [](FakeRequest& r) { return rows(r, 20000); }};
    FakeTable hung_{"HUNG", [this](FakeRequest&) { return gate_.pass(), 0; }};
    Framework framework_;
    Api api_{framework_, directory_.path()};
    std::unique_ptr<HttpServer> server_;
};

TEST_F(Server, ServesTablesColumnsAndRows) {
    ready();
    const json tables = json::parse(get("/api/v1/tables").body);
    ASSERT_EQ(tables["tables"].size(), 3u);
    EXPECT_EQ(tables["tables"][0]["name"], "SMALL");
    EXPECT_EQ(tables["tables"][0]["columns"], 6);
    EXPECT_TRUE(tables["tables"][0]["last_rows"].is_null());
    const json columns = json::parse(get("/api/v1/tables/small").body)["columns"];
    EXPECT_EQ(columns[4], json({{"name", "LOAD"},
                                {"type", "int32"},
                                {"length", 4},
                                {"offset", 60},
                                {"hint", "d-2"},
                                {"decimals", 2}}));
    const json rows = json::parse(get("/api/v1/tables/SMALL/rows?columns=NAME,LOAD&filter=CPU%3E0").body);
    EXPECT_EQ(rows["count"], 2);
    EXPECT_EQ(rows["rows"], json::parse(R"([{"NAME":"a,\"b\"","LOAD":0.05},{"NAME":"row2","LOAD":0.10}])"));
    const Answer csv = get("/api/v1/tables/SMALL/rows?columns=NAME,CPU&limit=2", "Accept: text/csv\r\n");
    EXPECT_EQ(csv.body, "NAME,CPU\r\nrow0,0\r\n\"a,\"\"b\"\"\",1\r\n");
    EXPECT_TRUE(csv.has("Content-Type: text/csv")) << csv.header;
    EXPECT_TRUE(csv.has("Almanac-Truncated: true")) << csv.header;
    EXPECT_EQ(get("/api/v1/tables/SMALL/rows?format=ndjson&columns=CPU").body,
              "{\"CPU\":0}\n{\"CPU\":1}\n{\"CPU\":2}\n");
    const json status = json::parse(get("/api/v1/status").body)["tables"][0];
    EXPECT_EQ(status["answered"], 3);
    EXPECT_EQ(status["last_rows"], 3);
    const json agent = json::parse(get("/api/v1/agent").body);
    EXPECT_EQ(agent["name"], "FAKE");
    EXPECT_EQ(agent["pid"], getpid());
}

TEST_F(Server, ShowsManagedSystemsTheAgentsOwnFirst) {
    ready();
    framework_.subnodes.setAway(true);
    EXPECT_EQ(framework_.subnodes.enroll({"AA:b,c:TT", "AA", "02", "%X", {}, 0, false}), HBX_OK);
    framework_.subnodes.setAway(false);
    EXPECT_EQ(framework_.subnodes.enroll({"AA:a:TT", "AA", "01", "%X", {}, 0, false}), HBX_OK);
    framework_.subnodes.setAway(true);
    EXPECT_EQ(framework_.subnodes.enroll({"AA:d:TT", "AA", "03", "", {}, 0, false}), HBX_OK);
    const json nodes = json::parse(get("/api/v1/nodes").body)["nodes"];
    ASSERT_EQ(nodes.size(), 4u);
    EXPECT_EQ(nodes[0]["name"], json::parse(get("/api/v1/agent").body)["origin_node"]);
    EXPECT_EQ(nodes[0]["subnode"], false);
    EXPECT_EQ(nodes[1]["name"], "AA:a:TT");
    EXPECT_EQ(nodes[1]["state"], "registered");
    EXPECT_EQ(nodes[2]["state"], "registered");
    EXPECT_EQ(nodes[3]["state"], "pending");
    EXPECT_EQ(nodes[3]["type"], "TT");
    EXPECT_GE(nodes[1]["since_ms"], nodes[0]["since_ms"]);
    // A comma may stand in a name; elsewhere it divides names.
    for (const char* good : {"AA:b,c:TT", "AA:a:TT,AA:d:TT", "*", "AA:d:TT&node=AA:b,c:TT", ""}) {
        EXPECT_EQ(get(std::string("/api/v1/tables/SMALL/rows?node=") + good).status, 200) << good;
    }
    for (const char* bad : {"AA:b", "AA:a:TT,AA:no:TT", ",", "*,x"}) {
        EXPECT_EQ(get(std::string("/api/v1/tables/SMALL/rows?node=") + bad).status, 404) << bad;
    }
    EXPECT_EQ(get("/api/v1/nodes?x=1").status, 400);
}

TEST_F(Server, RefusesWithAReason) {
    ready();
    const struct {
        const char *method, *target, *fields;
        int status;
        const char* contains;
    } cases[] = {
        {"GET", "/", "", 404, "problem+json"},
        {"GET", "/api/v1/tables/", "", 404, ""},
        {"GET", "/api/v1/tables/SMALL/rows/more", "", 404, ""},
        {"GET", "/api/v1/tables/SMAL", "", 404, "did you mean 'SMALL'?"},
        {"GET", "/api/v1/tables/SMALL/rows?node=AA:no:TT", "", 404, "no managed system has the name 'AA:no:TT'"},
        {"GET", "/api/v1/tables/SMALL/rows?subnode=AA:no:TT", "", 400, "node"},
        {"GET", "/api/v1/tables/SMALL/rows?filter=CPU%20%3E%20x", "", 400, "\"position\":7"},
        {"GET", "/api/v1/tables/SMALL/rows?limits=1", "", 400, "limits"},
        {"GET", "/api/v1/tables?x=1", "", 400, "'x'"},
        {"GET", "/api/v1/tables/%", "", 400, "percent"},
        {"GET", "/api/v1/tables/SMALL/rows", "Accept: text/html\r\n", 406, "text/csv"},
        {"POST", "/api/v1/tables", "", 405, "Allow: GET, HEAD, OPTIONS"},
        {"DELETE", "/api/v1/trace", "", 405, "Allow: GET, HEAD, PUT, OPTIONS"},
        {"BREW", "/healthz", "", 405, "Allow: GET"},
        {"OPTIONS", "/api/v1/trace", "", 204, "Allow: GET, HEAD, PUT, OPTIONS"},
        {"OPTIONS", "*", "", 204, "Allow"},
        {"PUT", "/api/v1/trace", "", 400, "spec"},
        {"GET", "http://elsewhere/healthz", "", 200, "ok"},
    };
    Client client(path());
    for (const auto& c : cases) {
        client.send(std::string(c.method) + " " + c.target + " HTTP/1.1\r\nHost: x\r\n" + c.fields + "\r\n");
        const Answer answer = client.read();
        EXPECT_EQ(answer.status, c.status) << c.method << " " << c.target << answer.body;
        EXPECT_TRUE(answer.has(c.contains)) << c.target << answer.header << answer.body;
        if (answer.status >= 400) {
            EXPECT_EQ(json::parse(answer.body)["status"], c.status);
        }
    }
    client.send("HEAD /api/v1/tables HTTP/1.1\r\nHost: x\r\n\r\nGET /healthz HTTP/1.1\r\nHost: x\r\n\r\n");
    const Answer head = client.read(true);
    EXPECT_EQ(head.status, 200);
    EXPECT_FALSE(head.has("Content-Length: 0"));
    EXPECT_EQ(client.read().body, "ok\n");
}

TEST_F(Server, IsNotReadyBeforeTheLoaderReturns) {
    framework_.catalog.add(&small_);
    EXPECT_EQ(get("/readyz").status, 503);
    EXPECT_EQ(get("/healthz").status, 200);
    EXPECT_EQ(get("/api/v1/tables/SMALL/rows").status, 503);
    EXPECT_EQ(small_.made.load(), 0);
    framework_.loaderReturned();
    EXPECT_EQ(get("/readyz").status, 200);
    EXPECT_EQ(get("/api/v1/tables/SMALL/rows").status, 200);
}

TEST_F(Server, AClientsDeadlineIsItsOwn) {
    ready();
    Client waiting(path());
    const auto start = std::chrono::steady_clock::now();
    const Answer answer = waiting.get("/api/v1/tables/HUNG/rows?deadline=50ms");
    EXPECT_EQ(answer.status, 504);
    EXPECT_LT(std::chrono::steady_clock::now() - start, 5s);
    EXPECT_EQ(json::parse(get("/api/v1/status").body)["tables"][2]["timeouts"], 1);
    // The connection goes on, and the late answer is not taken for the next one.
    gate_.open();
    ASSERT_TRUE(framework_.broker.drain(std::chrono::steady_clock::now() + 20s));
    EXPECT_EQ(waiting.get("/healthz").body, "ok\n");
    EXPECT_EQ(waiting.get("/api/v1/tables/HUNG/rows").status, 200);
}

TEST_F(Server, AHungTableHoldsUpNeitherOthersNorTheStop) {
    ready();
    std::vector<std::unique_ptr<Client>> waiting;
    for (int i = 0; i < 4; ++i) {
        waiting.push_back(std::make_unique<Client>(path()));
        waiting.back()->send("GET /api/v1/tables/HUNG/rows HTTP/1.1\r\nHost: x\r\n\r\n");
    }
    ASSERT_TRUE(gate_.arrived(2));
    EXPECT_EQ(get("/api/v1/tables/SMALL/rows").status, 200);
    const auto start = std::chrono::steady_clock::now();
    server_->stop(start + 50ms);
    EXPECT_LT(std::chrono::steady_clock::now() - start, 5s);
    // Who still waits at the end is told so.
    const Answer last = waiting[0]->read();
    EXPECT_EQ(last.status, 503);
    EXPECT_TRUE(last.has("shuts down")) << last.body;
    EXPECT_NE(access(path().c_str(), F_OK), 0);
}

TEST_F(Server, SurvivesWhatIsNoHttp) {
    const std::pair<std::string, int> cases[] = {
        {"\r\n\r\nHELLO\r\n\r\n", 400},
        {std::string("\0\xff\xfe\x01\r\n\r\n", 8), 400},
        {"GET / HTTP/9.9\r\n\r\n", 505},
        {"GET / HTTP/1.1\r\n\r\n", 400},  // no Host
        {"GET / HTTP/1.1\r\nHost: a\r\nHost: b\r\n\r\n", 400},
        {"GET / HTTP/1.1\r\nHost: a\r\nContent-Length: x\r\n\r\n", 400},
        {"GET / HTTP/1.1\r\nHost: a\r\nBad Field: 1\r\n\r\n", 400},
        {"GET /\x01 HTTP/1.1\r\nHost: a\r\n\r\n", 400},
        {"GET / HTTP/1.1\r\nHost: a\r\nX: " + std::string(20000, 'x') + "\r\n\r\n", 431},
        {"PUT /api/v1/trace HTTP/1.1\r\nHost: a\r\nContent-Length: 70000\r\n\r\n", 413},
        {"PUT /api/v1/trace HTTP/1.1\r\nHost: a\r\nTransfer-Encoding: chunked\r\n\r\nzz\r\n", 400},
        {"GET / HTTP/1.1\r\nHost: a", 0},  // cut off
        {"", 0},
    };
    for (const auto& [bytes, status] : cases) {
        Client client(path());
        client.send(bytes);
        client.endSending();
        const Answer answer = client.read();
        EXPECT_EQ(answer.status, status) << bytes.substr(0, 60);
        EXPECT_TRUE(client.closed()) << bytes.substr(0, 60);
    }
    EXPECT_EQ(get("/healthz").status, 200);
}

TEST_F(Server, KeepsPipelinedRequestsInOrder) {
    ready();
    Client client(path());
    std::string requests;
    for (int i = 0; i < 50; ++i)
        requests += "GET " +
                    std::string(i % 2 ? "/healthz" : "/api/v1/tables/SMALL/rows?format=csv&columns=CPU") +
                    " HTTP/1.1\r\nHost: x\r\n\r\n";
    client.send(requests + "GET /healthz HTTP/1.0\r\n\r\n");
    for (int i = 0; i < 50; ++i) EXPECT_EQ(client.read().body, i % 2 ? "ok\n" : "CPU\r\n0\r\n1\r\n2\r\n");
    EXPECT_EQ(client.read().body, "ok\n");
    EXPECT_TRUE(client.closed());  // HTTP/1.0 does not keep the connection
}

TEST_F(Server, LargeAnswersComeWholeAndSlowReadersAreGivenUp) {
    ready();
    const Answer whole = get("/api/v1/tables/BIG/rows");
    EXPECT_EQ(json::parse(whole.body)["rows"].size(), 20000u);
    HttpLimits limits;
    limits.idle = 50ms;
    limits.request = 50ms;
    start(limits);
    Client slow(path());
    slow.send("GET /api/v1/tables/BIG/rows HTTP/1.1\r\nHost: x\r\n\r\n");
    Client loris(path());
    loris.send("GET /healthz HT");
    Client silent(path());
    EXPECT_TRUE(loris.closed());
    EXPECT_TRUE(silent.closed());
    for (int i = 0; i < 2000 && server_->connections() > 0; ++i) std::this_thread::sleep_for(5ms);
    EXPECT_EQ(server_->connections(), 0u);
    EXPECT_EQ(slow.read().status, 0);  // cut short
}

TEST_F(Server, ConnectionsAreBounded) {
    HttpLimits limits;
    limits.connections = 3;
    start(limits);
    std::vector<std::unique_ptr<Client>> clients;
    for (int i = 0; i < 3; ++i) {
        clients.push_back(std::make_unique<Client>(path()));
        EXPECT_EQ(clients.back()->get("/healthz").status, 200);
    }
    Client refused(path());
    const Answer answer = refused.read();
    EXPECT_EQ(answer.status, 503);
    EXPECT_EQ(json::parse(answer.body)["status"], 503);
    clients.pop_back();
    for (int i = 0; i < 2000 && server_->connections() > 2; ++i) std::this_thread::sleep_for(1ms);
    EXPECT_EQ(get("/healthz").status, 200);
}

TEST_F(Server, OverTcpAChangeNeedsTheTokenAndTheRightHost) {
    const std::string before = traceSpec();
    std::string error;
    const auto put = [this](const std::string& host, const std::string& fields) {
        const std::string body = "{\"spec\":\"ERROR\"}";
        Client client(server_->tcpPort());
        client.send("PUT /api/v1/trace HTTP/1.1\r\nHost: " + host + "\r\n" + fields +
                    "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body);
        return client.read();
    };
    const std::string host = "127.0.0.1:" + std::to_string(server_->tcpPort());
    EXPECT_EQ(put(host, "Authorization: Bearer \r\n").status, 401);  // there is no token yet
    ASSERT_TRUE(prepareToken(directory_.path(), &error)) << error;
    struct stat status {};
    ASSERT_EQ(stat((directory_.path() + "/token").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0600u);
    std::string token;
    std::ifstream(directory_.path() + "/token") >> token;
    EXPECT_EQ(token.size(), 64u);
    ASSERT_TRUE(prepareToken(directory_.path(), &error));  // kept at the second start
    EXPECT_TRUE(tokenHolder(directory_.path(), token));

    const std::string right = "Authorization: Bearer " + token + "\r\n";
    EXPECT_EQ(put(host, right).status, 200);
    EXPECT_EQ(put(host, "authorization: bearer " + token + "\r\n").status, 200);
    EXPECT_TRUE(put(host, "").has("WWW-Authenticate: Bearer"));
    EXPECT_EQ(put(host, "Authorization: Bearer " + token.substr(1) + "0\r\n").status, 401);
    EXPECT_EQ(put(host, "Authorization: Basic " + token + "\r\n").status, 401);
    EXPECT_EQ(put("evil.example", right).status, 421);
    EXPECT_EQ(put(host, right + "Origin: http://evil.example\r\n").status, 403);
    EXPECT_EQ(put(host, right + "Origin: null\r\n").status, 403);
    EXPECT_EQ(put(host, right + "Origin: http://" + host + "\r\n").status, 200);
    EXPECT_EQ(put(host, right + "Sec-Fetch-Site: cross-site\r\n").status, 403);
    Client reader(server_->tcpPort());
    EXPECT_EQ(reader.get("/healthz").status, 200);  // reading needs no token
    Client rebound(server_->tcpPort());
    rebound.send("GET /api/v1/agent HTTP/1.1\r\nHost: evil.example\r\n\r\n");
    EXPECT_EQ(rebound.read().status, 421);
    chmod((directory_.path() + "/token").c_str(), 0644);
    EXPECT_EQ(put(host, right).status, 401);  // a token that others can read is none
    configureTrace(before, &error);
}

TEST_F(Server, TraceIsShownAndChanged) {
    const std::string before = traceSpec();
    const auto put = [this](const std::string& body) {
        Client client(path());
        client.send("PUT /api/v1/trace HTTP/1.1\r\nHost: x\r\nContent-Length: " +
                    std::to_string(body.size()) + "\r\n\r\n" + body);
        return client.read();
    };
    EXPECT_EQ(put("{\"spec\":\"ERROR STATE\"}").status, 200);
    EXPECT_EQ(json::parse(get("/api/v1/trace").body)["spec"], traceSpec());
    for (const char* bad : {"", "{}", "[]", "{\"spec\":1}", "{\"spec\":\"ERROR\",\"more\":1}",
                            "{\"spec\":\"ERROR\"", "{\"spec\":\"NONSENSE(((\"}"})
        EXPECT_EQ(put(bad).status, 400) << bad;
    std::string error;
    EXPECT_TRUE(configureTrace(before, &error)) << error;
}

TEST_F(Server, EventsAreFollowedFromTheFirstQuestionOn) {
    ready();
    EXPECT_EQ(json::parse(get("/api/v1/events?table=SMALL").body)["events"].size(), 0u);
    ASSERT_TRUE(framework_.broker.drain(std::chrono::steady_clock::now() + 20s));
    FakeRow row;
    row.cpu = 42;
    small_.event(row);
    const json events = json::parse(get("/api/v1/events?table=small&after=0").body);
    ASSERT_EQ(events["events"].size(), 1u);
    EXPECT_EQ(events["events"][0]["row"]["CPU"], 42);
    EXPECT_EQ(get("/api/v1/events?after=x").status, 400);
    EXPECT_EQ(json::parse(get("/api/v1/events?after=1").body)["events"].size(), 0u);
    framework_.events.unfollowAll();
}

TEST_F(Server, ASocketThatIsAliveOrNoSocketStays) {
    std::string error;
    HttpServer second([](const ApiRequest&, Respond) { return std::nullopt; });
    EXPECT_FALSE(second.listenUnix(path(), &error));
    EXPECT_NE(error.find("in use"), std::string::npos) << error;
    const std::string file = directory_.path() + "/file";
    std::ofstream(file) << "precious";
    EXPECT_FALSE(second.listenUnix(file, &error));
    EXPECT_EQ(access(file.c_str(), F_OK), 0);
    EXPECT_FALSE(second.listenUnix(directory_.path() + "/" + std::string(120, 'x'), &error));
    EXPECT_FALSE(second.listenUnix(directory_.path() + "/no/such/place", &error));
    EXPECT_FALSE(second.listenTcp(server_->tcpPort(), &error));
    struct stat status {};
    ASSERT_EQ(stat(path().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600u);
}

}  // namespace
}  // namespace almanac::host
