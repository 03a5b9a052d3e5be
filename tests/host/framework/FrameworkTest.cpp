// The rest of the framework: catalog, subnodes, actions, names, stages of the process.
#include "host/framework/Framework.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <future>
#include <set>
#include <thread>

#include "host/FakeAgent.h"
#include "host/framework/AgentCall.h"

namespace almanac::host {
namespace {

using namespace std::chrono_literals;
using test::FakeRequest;
using test::FakeRow;
using test::FakeTable;

TEST(Catalog, FindsTablesByNameAndKeepsTheFirstOfTwo) {
    TableCatalog catalog;
    FakeTable disk("DISK"), second("DISK"), lower("disk"), net("NET");
    const auto first = catalog.add(&disk);
    catalog.add(&second);
    catalog.add(&net);
    EXPECT_EQ(catalog.list().size(), 2u);
    EXPECT_EQ(catalog.find("DISK"), first);
    EXPECT_EQ(catalog.find("dIsK"), first);
    EXPECT_EQ(catalog.find("DISC"), nullptr);
    EXPECT_EQ(catalog.nearest("DISC"), "DISK");
    EXPECT_EQ(catalog.findManager("FAKE", "DISK"), &disk);
    EXPECT_EQ(catalog.findManager("OTHER", "DISK"), nullptr);
    catalog.add(&lower);
    EXPECT_EQ(catalog.find("disk")->manager(), &lower);
    EXPECT_EQ(catalog.find("Disk"), nullptr);  // two names differ by case alone
}

TEST(Catalog, LearnsColumnsAndRefusesPlacesThatCannotBe) {
    struct Odd : FakeTable {
        using FakeTable::FakeTable;
        struct Request : FakeRequest {
            using FakeRequest::FakeRequest;
            int NumColumns() override { return 7; }
            int GetColumnInfo(ColumnInfo* info, int column) override {
                const ColumnInfo columns[] = {{"A", "d-3", 0, 4, HBX_INT32},
                                              {"NEGATIVE", nullptr, -1, 4, HBX_INT32},
                                              {"EMPTY", nullptr, 4, 0, HBX_TEXT},
                                              {nullptr, nullptr, 4, 4, HBX_INT32},
                                              {"HUGE", nullptr, 1 << 30, 4, HBX_INT32},
                                              {"WRONG", nullptr, 8, 4, HBX_INT64},
                                              {"B", "d-3", 10, 3, HBX_TEXT}};
                *info = columns[column];
                return 0;
            }
        };
        aghbx* CreateAghbx(RequestDetail* d, ContextInfo* c) override { return new Request(d, c, this); }
    } table("ODD");
    TableEntry entry(&table);
    ASSERT_TRUE(entry.learn());
    const auto layout = entry.layout();
    ASSERT_EQ(layout->columns.size(), 2u);
    EXPECT_EQ(layout->columns[0].decimals, 3);
    EXPECT_EQ(layout->columns[1].decimals, 0);  // a text's hint is the agent's business
    EXPECT_EQ(layout->rowSize, 13u);
}

TEST(Catalog, RegisteredTablesAreFoundThroughTheRemoteManager) {
    EXPECT_EQ(RemoteManager::RegisterClass(nullptr), 1);
    {
        FakeTable table("REMOTE");
        EXPECT_EQ(RemoteManager::RegisterClass(&table), 0);
        RemoteManager* manager = RemoteManager::GetManager();
        ASSERT_NE(manager, nullptr);
        EXPECT_EQ(manager->FindTableManager("FAKE", "REMOTE"), &table);
        EXPECT_EQ(manager->FindTableManager("FAKE", nullptr), nullptr);
        manager->Drop();
    }
    EXPECT_EQ(framework().catalog.find("REMOTE"), nullptr);
}

TEST(Requests, AnAddressIsNotTheNextRequestsOwn) {
    FakeTable table("T");
    std::set<void*> seen;
    for (int i = 0; i < 32; ++i) {
        auto* request = new FakeRequest(nullptr, nullptr, &table);
        EXPECT_TRUE(seen.insert(request).second);
        delete request;
    }
}

TEST(Requests, WithoutDetailAreWholeAndEmpty) {
    FakeTable table("T");
    FakeRequest request(nullptr, nullptr, &table);
    EXPECT_STREQ(request.GetSubnode(), "");
    EXPECT_STREQ(request.SituationName(), "");
    EXPECT_STREQ(request.TableName(), "T");
    EXPECT_EQ(request.CheckForException(nullptr), 1);
    EXPECT_EQ(request.InsertRow(nullptr), 1);
    ColumnInfo info;
    EXPECT_EQ(request.GetColumnInfoByName(&info, "SIZE"), 0);
    EXPECT_EQ(info.offset, 52);
    EXPECT_EQ(request.GetColumnInfoByName(&info, "NONE"), HBX_BAD_COLUMN);
    EXPECT_EQ(request.IsException(INTF_EQ, 5, nullptr), 0);
}

TEST(Subnodes, NamesAreUniqueShortAndDeliverable) {
    SubnodeDirectory directory;
    EXPECT_EQ(directory.enroll({"AA:one:TT", "AA", "1", "%X", {}, 0, false}), HBX_OK);
    EXPECT_EQ(directory.enroll({"AA:one:TT", "AA", "1", "%X", {}, 0, false}), HBX_SUBNODE_FAILED);
    EXPECT_EQ(directory.enroll({"", "AA", "1", "%X", {}, 0, false}), HBX_SUBNODE_FAILED);
    EXPECT_EQ(directory.enroll({std::string(33, 'x'), "AA", "1", "%X", {}, 0, false}), HBX_SUBNODE_FAILED);
    EXPECT_EQ(directory.enroll({std::string(32, 'x'), "AA", "1", "%X", {}, 0, false}), HBX_OK);
    directory.setAway(true);
    EXPECT_EQ(directory.flush(), HBX_SUBNODE_FAILED);
    EXPECT_EQ(directory.enroll({"AA:two:TT", "AA", "1", "%X", {}, 0, false}), HBX_OK);
    EXPECT_FALSE(directory.list()[0].pending);
    EXPECT_TRUE(directory.list()[1].pending);
    directory.setAway(false);
    EXPECT_FALSE(directory.list()[1].pending);
    directory.setRefusing(true);
    EXPECT_EQ(directory.enroll({"AA:three:TT", "AA", "1", "%X", {}, 0, false}), HBX_SUBNODE_FAILED);
    EXPECT_EQ(directory.remove("AA:one:TT"), HBX_SUBNODE_FAILED);
    directory.setRefusing(false);
    EXPECT_EQ(directory.remove("AA:one:TT"), HBX_OK);
    EXPECT_EQ(directory.remove("AA:one:TT"), HBX_SUBNODE_FAILED);
    EXPECT_EQ(directory.size(), 2u);
    EXPECT_EQ(subnodeTypeOf("AA:k:e:y:TT") + subnodeTypeOf("AA:TT") + subnodeTypeOf("host"), "TT");

    const char* features[] = {"F1", "F2"};
    EXPECT_EQ(HBX_Subnode_RegisterEx(nullptr, "a", "v", "%X", 3, 2, features), HBX_SUBNODE_FAILED);
    EXPECT_EQ(HBX_Subnode_RegisterEx("AA:ex:TT", "a", "v", "%X", 3, 2, features), HBX_OK);
    EXPECT_EQ(HBX_Subnode_Register_nAff("AA:ex:TT", "a", "v", 1, "%X", "V", "F", "", ""), HBX_SUBNODE_FAILED);
    EXPECT_EQ(HBX_Subnode_SendRequest(), HBX_OK);
    EXPECT_EQ(HBX_Subnode_Deregister("AA:ex:TT"), HBX_OK);
}

std::atomic<AghbxAutomationCapsule*> heldCapsule{nullptr};

int runCommand(AghbxAutomationCapsule* capsule) {
    const std::string command = capsule->Command();
    if (command == "throw") throw 1;
    if (command == "later") {
        heldCapsule = capsule;
        return 0;
    }
    const std::string text = command + "/" + (capsule->User() ? capsule->User() : "-") + "/" +
                             capsule->Request()->TableName() + "/" + capsule->Request()->GetSubnode();
    capsule->SetMessage(text.c_str());
    capsule->SetResults(4);
    capsule->Request()->FinishedAutomationCommand(capsule);
    return 0;
}

class Actions : public testing::Test {
  protected:
    Actions() {
        broker.setReady();
        agent.setCallback(runCommand);
    }
    std::future<ActionResult> run(const ActionQuery& query) {
        auto promise = std::make_shared<std::promise<ActionResult>>();
        EXPECT_EQ(actions.run(query, [promise](ActionResult&& r) { promise->set_value(std::move(r)); }),
                  SampleStatus::Ok);
        return promise->get_future();
    }
    RequestBroker broker;
    AgentInfo agent;
    TableCatalog catalog;
    CommandCatalog commands;
    ActionBroker actions{broker, agent, catalog, commands};
};

TEST_F(Actions, RunThroughTheCallbackAndReport) {
    const ActionResult result = run({"DO IT", "root", "DISK", "AA:one:TT", ""}).get();
    EXPECT_EQ(result.status, SampleStatus::Ok);
    EXPECT_EQ(result.returnCode, 4);
    EXPECT_EQ(result.message, "DO IT/root/DISK/AA:one:TT");
    EXPECT_EQ(run({"X", "", "", "", ""}).get().message, "X/-/CLACTRMT/");
    EXPECT_EQ(run({"throw", "", "", "", ""}).get().status, SampleStatus::Failed);
    agent.setCallback(nullptr);
    EXPECT_EQ(actions.run({}, nullptr), SampleStatus::NotReady);
}

char* composeCommand(const char* name, const char* const* values, int count, char** why) {
    if (count != 2 || !values[0]) {
        *why = strdup("the first value is missing");
        return nullptr;
    }
    return strdup((std::string(name) + " (" + values[0] + ")(" + (values[1] ? values[1] : "") + ")").c_str());
}

TEST_F(Actions, MakeTheTextOfADeclaredCommandThroughTheAgent) {
    commands.setComposer(composeCommand);
    ActionQuery query{"", "root", "", "", ""};
    query.task = "restart";
    query.values = {"a b", std::nullopt};
    const ActionResult done = run(query).get();
    EXPECT_EQ(done.command, "restart (a b)()");
    EXPECT_EQ(done.message, "restart (a b)()/root/CLACTRMT/");
    query.subnode = "AA:one:TT";
    EXPECT_EQ(run(query).get().message, "restart (a b)()/root/SNACTRMT/AA:one:TT");
    query.values = {std::nullopt, "x"};
    const ActionResult refused = run(query).get();
    EXPECT_EQ(refused.status, SampleStatus::Failed);
    EXPECT_EQ(refused.refusal, "the first value is missing");
}

TEST(Commands, AreKnownByTheirForm) {
    CommandCatalog commands;
    EXPECT_TRUE(commands.declare({"restart", HBX_COMMAND_WORD, "", {}}));
    EXPECT_FALSE(commands.declare({"RESTART", HBX_COMMAND_WORD, "", {}}));
    EXPECT_TRUE(commands.declare({"ADD", HBX_COMMAND_BRACKETS, "", {}}));
    EXPECT_TRUE(commands.declare({"STOP", HBX_COMMAND_WHOLE, "", {}}));
    for (const char* text : {"restart", "Restart now", "ADD", "ADD[x]", "ADD x", "stop"}) EXPECT_TRUE(commands.formOf(text)) << text;
    for (const char* text : {"restarted", "restart;x", " restart", "add[x]", "ADDED", "stop now", "", "rm"}) {
        EXPECT_FALSE(commands.formOf(text)) << text;
    }
    EXPECT_EQ(commands.formOf("stop"), HBX_COMMAND_WHOLE);
    EXPECT_EQ(commands.nearest("restrat"), "restart");
    EXPECT_EQ(commands.find("Add")->name, "ADD");
}

TEST_F(Actions, MayBeFinishedLaterOnAnotherThread) {
    auto future = run({"later", "", "", "", ""});
    while (!heldCapsule) std::this_thread::sleep_for(1ms);
    ASSERT_TRUE(broker.drain(std::chrono::steady_clock::now() + 20s));
    EXPECT_EQ(actions.unfinished(), 1u);
    AghbxAutomationCapsule* capsule = heldCapsule.exchange(nullptr);
    capsule->SetMessage("done");
    capsule->Request()->FinishedAutomationCommand(capsule);
    EXPECT_EQ(future.get().message, "done");
    EXPECT_EQ(actions.unfinished(), 0u);
}

TEST(AgentNames, OriginNodeFitsInto32Bytes) {
    EXPECT_EQ(makeOriginNode("", "host.example.org", "LZ"), "host:LZ");
    EXPECT_EQ(makeOriginNode("inst", "host", "LZ"), "inst:host:LZ");
    EXPECT_EQ(makeOriginNode(std::string(40, 'i'), std::string(70, 'h'), std::string(20, 't')),
              std::string(16, 'i') + ":" + std::string(6, 'h') + ":" + std::string(8, 't'));
    AgentInfo agent;
    const char* before = agent.originNode();
    agent.setNodeType("ZZ");
    EXPECT_THAT(agent.originNode(), testing::EndsWith(":ZZ"));
    EXPECT_EQ(std::string(before).find(":ZZ"), std::string::npos);  // what was given out stays
}

TEST(AgentNames, InstanceComesFromTheCommandLine) {
    const auto instance = [](std::vector<const char*> argv, const char* host) {
        return instanceFromArguments(static_cast<int>(argv.size()), argv.data(), host);
    };
    EXPECT_EQ(instance({"a", "one", "TEST"}, nullptr), "one");
    EXPECT_EQ(instance({"a", "one", "two"}, nullptr), "");
    EXPECT_EQ(instance({"a", "myhost_a_b"}, "myhost"), "a_b");
    EXPECT_EQ(instance({"a", "myhost_a_b"}, nullptr), "b");
    EXPECT_EQ(instance({"a", "myhost_"}, "myhost"), "");
    EXPECT_EQ(instance({"a", "plain"}, nullptr), "");
    EXPECT_EQ(instance({"/x_1/Agent_Inst.bin"}, nullptr), "Inst");
    EXPECT_EQ(instance({"/agent_no/daemon"}, nullptr), "");
}

TEST(AgentNames, VersionFitsTheCallersBuffer) {
    char text[9] = "xxxxxxxx";
    EXPECT_EQ(HBX_SetVersionUsingProduct("P", text, 9), 0);
    EXPECT_EQ(std::string(text).size(), 8u);
    EXPECT_EQ(HBX_SetVersionUsingProduct("P", text, 3), 0);
    EXPECT_EQ(std::string(text).size(), 2u);
    EXPECT_EQ(HBX_RegisterCommandCallback("other", runCommand), 1);
}

TEST(Stages, ShutdownWaitsForTheMainThreadButNeverForItself) {
    Lifecycle before;
    before.shutDown(1);  // nothing has started: returns at once
    EXPECT_TRUE(before.asked());

    Lifecycle stages;
    ASSERT_TRUE(stages.enterMain());
    EXPECT_FALSE(stages.enterMain());
    std::atomic<bool> returned{false};
    std::thread other([&] {
        stages.shutDown(7);
        returned = true;
    });
    stages.waitAsked();
    stages.shutDown(8);  // on the main thread: no wait, and the first reason stays
    EXPECT_EQ(stages.reason(), 7);
    std::thread request([&] {
        const AgentCall inside;  // a request that asks for the end must not wait for its own
        stages.shutDown(9);
    });
    request.join();
    EXPECT_FALSE(returned.load());
    stages.end();
    stages.leaveMain();
    other.join();
    EXPECT_TRUE(returned.load());
    EXPECT_TRUE(stages.ended());

    Lifecycle hanging;
    std::thread main([&] { hanging.enterMain(); });
    main.join();
    const auto start = std::chrono::steady_clock::now();
    hanging.shutDown(1, 20ms);
    EXPECT_GE(std::chrono::steady_clock::now() - start, 20ms);
}

}  // namespace
}  // namespace almanac::host
