// From arguments and a parsed file to live tables, and their end. What changes the process for good runs in a child.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <thread>

#include "actions/ActionCallback.h"
#include "actions/TaskLibrary.h"
#include "collection/StartHooks.h"
#include "collection/TestClass.h"
#include "collection/schedule/RefreshThread.h"
#include "collection/schedule/ThreadPool.h"
#include "collection/status/StatusTables.h"
#include "host/Scratch.h"
#include "host/framework/AgentCall.h"
#include "host/framework/Framework.h"
#include "runtime/AgentEntry.h"
#include "runtime/binding/GenericAgent.h"
#include "runtime/reference/Parser.h"
#include "runtime/reference/XMLConfigParser.h"

namespace {

using namespace std::chrono_literals;
using almanac::host::framework;
using almanac::host::test::Variable;
using almanac::test::TestClass;

TEST(InstanceName, ComesFromArgumentsHostAndProgram) {
    const struct {
        std::vector<const char*> arguments;
        const char* host;
        const char* instance;  // null: the derivation fails
    } cases[] = {
        {{"agent", "inst", "TEST"}, nullptr, "inst"},
        {{"agent", "inst", "test"}, nullptr, "(none)"},
        {{"agent", "a", "b", "c"}, nullptr, "(none)"},
        {{"agent", "inst", "TEST", "more"}, nullptr, "inst"},
        {{"agent", "TEST"}, nullptr, nullptr},
        {{"agent", "myhost_a_b"}, "myhost", "a_b"},
        {{"agent", "myhost_a_b"}, nullptr, "b"},
        {{"agent", "myhost:a_b"}, "myhost", "a_b"},
        {{"agent", "myhost"}, "myhost", nullptr},
        {{"agent", "myhost_"}, "myhost", ""},
        {{"agent", "other_x"}, "myhost", "x"},
        {{"agent", "plain"}, nullptr, nullptr},
        {{"/opt/bin/kxxagent_Prod.exe"}, nullptr, "Prod"},
        {{"/opt/bin/KXXAGENT_Prod_2.x.y"}, nullptr, "Prod_2"},
        {{"agent_prod"}, nullptr, "prod"},  // no '.': to the end
        {{"/opt/agent_x/almanacd"}, nullptr, ""},
        {{"almanacd"}, "myhost", ""},
    };
    for (const auto& c : cases) {
        char* instance = nullptr;
        const bool derived = deriveInstanceName(static_cast<int>(c.arguments.size()), c.arguments.data(), c.host, &instance);
        EXPECT_EQ(derived, c.instance != nullptr) << c.arguments.back();
        if (c.instance) {
            EXPECT_STREQ(instance ? instance : "(none)", c.instance) << c.arguments.back();
        }
        std::free(instance);
    }
}

void parse(std::string text) {
    ConfigXMLParser handler;
    Parser parser(&handler);
    EXPECT_TRUE(parser.parse(text.data()));
}

std::string group(const std::string& name, const std::string& more = "", const std::string& inner = "") {
    return "<ag table=\"" + name + "\" name=\"" + name + "\" " + more +
           "><attr name=\"TS\" type=\"1\" size=\"16\"/><attr name=\"NAME\" type=\"2\" size=\"8\"/>"
           "<attr name=\"N\" type=\"0\" size=\"4\"/>" + inner + "</ag>";
}

std::string statusGroup(const std::string& name, const std::string& column) {
    return "<ag table=\"" + name + "\" name=\"" + name + "\"><attr name=\"TS\" type=\"1\" size=\"16\"/><attr name=\"" + column +
           "\" type=\"0\" size=\"4\"/></ag>";
}

TestClass* add(const char* name) {
    auto* c = (new TestClass(name, [](TestClass& self) { self.addResultInstance(self.named("a", 1)); }))->withNameAndNumber();
    queryClassList->addClientClass(c);
    return c;
}

// Children are fresh processes: this one may have threads.
class Loader : public testing::Test {
  protected:
    Loader() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

// Ends a child: with 0 if no expectation failed.
[[noreturn]] void leave() { _exit(testing::Test::HasFailure() ? 1 : 0); }

void loadsTables() {
    queryClassList = new VXClientClassList;
    parse("<metadata>" + group("Twice") + group("Info", "", "<receive_req name=\"X\"/>") + group("Pure", "pure=\"true\"") +
          statusGroup("Thread_Pool_Status", "THPSIZE") + statusGroup("Sub_Performance_Object_Status", "OBJTYPE") +
          statusGroup("Sub_Performance_Object_Status", "NUMCOLL") + "</metadata>");
    TestClass* first = add("Twice");
    TestClass* second = add("Twice");
    TestClass* orphan = add("Orphan");
    TestClass* info = add("Info");
    TestClass* pure = add("Pure");
    pure->setPureEventBased(true);
    bool started = false;
    registerStart([&started] { started = framework().catalog.find("Pure") != nullptr; });
    EXPECT_EQ(load_agents(), 0);
    EXPECT_TRUE(started);
    EXPECT_EQ(findAttributeGroupMeta("Twice")->query(), first);
    EXPECT_NE(second->getAttributeGroupMeta(), nullptr);
    EXPECT_TRUE(first->isThreadPoolEligible());
    EXPECT_FALSE(info->isThreadPoolEligible());
    EXPECT_TRUE(pure->isPureEventBased());
    EXPECT_EQ(framework().catalog.find("Orphan"), nullptr);
    EXPECT_EQ(orphan->getAttributeGroupMeta(), nullptr);
    EXPECT_EQ(threadPool, nullptr);
    EXPECT_EQ(impatientCollectorTimeout, 0);
    EXPECT_EQ(refreshThread, nullptr);
    EXPECT_NE(framework().catalog.find("Thread_Pool_Status"), nullptr);  // also without a pool
    auto* status = findAttributeGroupMeta("Sub_Performance_Object_Status")->query();
    EXPECT_TRUE(status && status->getObjectType() == VX_STATUS);
    int classes = 0;
    for (ListCursor c = queryClassList->getClassListCursor(); c.hasMoreElements(); c.setToNext()) {
        auto* queryClass = static_cast<VXClientClass*>(c.getCurrentElement());
        const AttributeGroupMeta* meta = queryClass->getAttributeGroupMeta();
        EXPECT_TRUE(!meta || meta->rowSize() > 0);  // none points to metadata that was replaced
        ++classes;
    }
    EXPECT_EQ(classes, 8);
    leave();
}

// A task of the reference file, run as an action, and its row in the table of actions.
void runsTasks() {
    taskLibrary = new TaskLibrary("HBX");
    queryClassList = new VXClientClassList;
    parse("<metadata>" + statusGroup("Take_Action_Status", "TSKAPRC") +
          "</metadata><task name=\"End\" key=\"END\" command=\"exit 3\"><rc rc=\"3\" msg=\"three\" type=\"WARNING\"/></task>");
    load_agents();
    EXPECT_NE(framework().catalog.find("Take_Action_Status"), nullptr);
    AghbxAutomationCapsule capsule("end", nullptr, nullptr);
    EXPECT_EQ(actionCallback(&capsule), 0);
    EXPECT_STREQ(capsule.Message(), "three");
    AttributeGroupMeta* meta = findAttributeGroupMeta("Take_Action_Status");
    EXPECT_EQ(meta->query()->getObjectType(), VX_STATUS);
    EXPECT_TRUE(meta->query()->isPureEventBased());
    almanac::test::RecordingSink sink(meta);
    meta->query()->collectDataIfNeeded("1");
    meta->query()->sendDataToHBX(&sink, "node");
    EXPECT_EQ(sink.names("TSKAPRC"), "3,");
    AgTerminate();
    EXPECT_EQ(taskLibrary, nullptr);
    leave();
}

TEST_F(Loader, RunsTheTasksOfTheFile) { EXPECT_EXIT(runsTasks(), testing::ExitedWithCode(0), ""); }

TEST_F(Loader, MakesOneTableForEachClassWithMetadata) { EXPECT_EXIT(loadsTables(), testing::ExitedWithCode(0), ""); }

void readsPoolAndRefresh(const char* size, const char* impatient, const char* refresh, bool pool, int timeout, bool thread) {
    Variable a("CDP_DP_THREAD_POOL_SIZE", size), b("CDP_DP_IMPATIENT_COLLECTOR_TIMEOUT", impatient);
    if (refresh) ZSV1_PutEnv((std::string("CDP_DP_REFRESH_INTERVAL=") + refresh).c_str());
    queryClassList = new VXClientClassList;
    parse("<metadata>" + group("P") + "</metadata>");
    add("P");
    load_agents();
    EXPECT_EQ(threadPool != nullptr, pool);
    EXPECT_EQ(impatientCollectorTimeout, timeout);
    EXPECT_EQ(refreshThread != nullptr, thread);
    EXPECT_TRUE(stopBackgroundThreads(5000));
    EXPECT_EQ(threadPool, nullptr);
    leave();
}

TEST_F(Loader, ReadsPoolAndRefreshFromTheEnvironment) {
    EXPECT_EXIT(readsPoolAndRefresh("0", "5", nullptr, false, 0, false), testing::ExitedWithCode(0), "");
    EXPECT_EXIT(readsPoolAndRefresh("2", "5", nullptr, true, 5, false), testing::ExitedWithCode(0), "");
    EXPECT_EXIT(readsPoolAndRefresh("-1", "5", "60", false, 0, true), testing::ExitedWithCode(0), "");
    EXPECT_EXIT(readsPoolAndRefresh("1", "x", "soon", true, 0, true), testing::ExitedWithCode(0), "");
}

void updatesDiscovery() {
    queryClassList = new VXClientClassList;
    parse("<metadata>" + group("D1", "discovery_attribute_group=\"true\"") + group("Other") +
          group("D2", "discovery_attribute_group=\"true\"") + "</metadata>");
    TestClass* d1 = add("D1");
    TestClass* other = add("Other");
    TestClass* d2 = add("D2");
    updateDiscoveryAttributeGroups();
    updateDiscoveryAttributeGroups();
    EXPECT_EQ(d1->collections.load(), 2);  // always, whatever the cache says
    EXPECT_EQ(other->collections.load(), 0);
    EXPECT_EQ(d1->lastRequest() + d2->lastRequest(), "pudag0pudag1");
    leave();
}

TEST_F(Loader, CollectsDiscoveryGroupsAnewInEachPass) { EXPECT_EXIT(updatesDiscovery(), testing::ExitedWithCode(0), ""); }

// The whole life of subnodes in one agent: found by the discovery thread, deleted with the agent.
void managesSubnodes() {
    Variable interval("CDP_DISCOVERY_ATTRIBUTE_GROUP_UPDATE_INTERVAL", "1");
    queryClassList = new VXClientClassList;
    std::string cells;
    for (const char* name : {"Subnode_Key", "Subnode_Type", "Subnode_Affinity", "Subnode_Version"}) {
        cells += std::string("<attr name=\"") + name + "\" type=\"2\" size=\"8\"/>";
    }
    parse("<metadata><ag table=\"D\" name=\"D\" discovery_attribute_group=\"true\">" + cells + "</ag>" +
          group("S", "subnode_type=\"TYP\"") + "</metadata>");
    auto* d = new TestClass("D", [](TestClass& self) {
        ResultInstance* row = self.row();
        for (ListCursor c = self.getMetricCursor(); c.hasMoreElements(); c.setToNext()) {
            const auto* metric = static_cast<Metric*>(c.getCurrentElement());
            const bool isType = std::strcmp(metric->getQMPVMetricName(), "Subnode_Type") == 0;
            row->addMetric(new ResultMetric(metric, isType ? "TYP" : "k"));
        }
        self.addResultInstance(row);
    });
    for (const char* name : {"Subnode_Key", "Subnode_Type", "Subnode_Affinity", "Subnode_Version"}) d->metric(name, STRING_DATA);
    queryClassList->addClientClass(d);
    add("S");
    EXPECT_EQ(load_agents(), 0);
    EXPECT_NE(subnodeDirectory(), nullptr);  // as soon as the loader has returned
    for (int i = 0; i < 2000 && framework().subnodes.size() == 0; ++i) std::this_thread::sleep_for(5ms);
    EXPECT_EQ(framework().subnodes.size(), 1u);
    AgTerminate();
    EXPECT_EQ(subnodeDirectory(), nullptr);
    EXPECT_EQ(queryClassList, nullptr);
    leave();
}

TEST_F(Loader, AnAgentWithDiscoveryManagesSubnodesUntilItEnds) { EXPECT_EXIT(managesSubnodes(), testing::ExitedWithCode(0), ""); }

void stopsWhatHangs() {
    const Variable refresh("CDP_DP_REFRESH_INTERVAL", "60"), delay("CDP_DP_INITIAL_COLLECTION_DELAY", "0");
    queryClassList = new VXClientClassList;
    parse("<metadata>" + group("D", "discovery_attribute_group=\"true\"") + group("R") + "</metadata>");
    std::atomic<int> hung{0};
    for (const char* name : {"D", "R"}) {
        queryClassList->addClientClass(new TestClass(name, [&hung](TestClass&) {
            for (++hung;;) std::this_thread::sleep_for(1h);
        }));
    }
    load_agents();
    while (hung < 2) std::this_thread::sleep_for(1ms);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(stopBackgroundThreads(1000));
    EXPECT_LT(std::chrono::steady_clock::now() - start, 1900ms);  // both in the time of one
    EXPECT_NE(refreshThread, nullptr);
    leave();
}

TEST_F(Loader, ThreadsThatHangShareTheTimeOfTheStop) { EXPECT_EXIT(stopsWhatHangs(), testing::ExitedWithCode(0), ""); }

// Counts its deletions.
class Counted : public TestClass {
  public:
    using TestClass::TestClass;
    ~Counted() override { ++deleted; }
    static inline int deleted = 0;
};

void terminates(bool requestRuns) {
    const Variable pool("CDP_DP_THREAD_POOL_SIZE", "2");
    queryClassList = new VXClientClassList;
    parse("<metadata>" + group("A") + group("B") + "</metadata>");
    for (const char* name : {"A", "B"}) {
        auto* c = new Counted(name, [](TestClass& self) { self.addResultInstance(self.named("a", 1)); });
        c->withNameAndNumber();
        queryClassList->addClientClass(c);
        c->addPerfObjEnum("E", "1");
    }
    load_agents();
    std::atomic<bool> inside{false}, goOn{false};
    std::thread request([&] {
        if (!requestRuns) return;
        almanac::host::callAgent([&] {
            ThreadPool* its = threadPool;
            inside = true;
            while (!goOn) std::this_thread::sleep_for(1ms);
            EXPECT_EQ(its->getTPStatistics().poolSize, 2);  // the table of the pool's figures has kept the pool
        });
    });
    while (requestRuns && !inside) std::this_thread::sleep_for(1ms);
    AgTerminate();
    EXPECT_EQ(Counted::deleted, requestRuns ? 0 : 2);
    EXPECT_EQ(queryClassList == nullptr, !requestRuns);
    EXPECT_EQ(threadPool == nullptr, !requestRuns);  // the request may be on its way to the pool
    EXPECT_EQ(metaMap.getCount(), requestRuns ? 2 : 0);
    goOn = true;
    request.join();
    leave();
}

TEST_F(Loader, TerminateDeletesAllUnlessARequestStillRuns) {
    EXPECT_EXIT(terminates(false), testing::ExitedWithCode(0), "");
    EXPECT_EXIT(terminates(true), testing::ExitedWithCode(0), "");
}

}  // namespace
