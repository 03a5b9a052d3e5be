// Commands from the framework: what they are, for whom, and what the table of actions shows of them.
#include "actions/ActionCallback.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <set>
#include <thread>

#include "actions/TakeActionStatus.h"
#include "actions/TaskLibrary.h"
#include "collection/TestClass.h"
#include "config/ConfigMap.h"
#include "config/ConfigOpStatus.h"
#include "host/Scratch.h"
#include "host/base/TestClock.h"
#include "host/base/Trace.h"
#include "host/framework/RequestState.h"
#include "platform/zhb.h"
#include "runtime/reference/Application.h"
#include "runtime/reference/EventSink.h"

namespace {

using namespace std::chrono_literals;
using almanac::host::RequestSpec;
using almanac::host::test::readFile;
using almanac::host::test::Scratch;
using almanac::host::test::Variable;
using almanac::host::test::writeFile;
using almanac::test::Attr;
using almanac::test::Group;
using almanac::test::RecordingSink;
namespace testclock = almanac::host::testclock;

class Request : public aghbx {
  public:
    explicit Request(RequestSpec spec) : Request(std::make_shared<RequestSpec>(std::move(spec))) {}
    int TakeSample() override { return 0; }
    int NumColumns() override { return 0; }
    int GetColumnInfo(ColumnInfo*, int) override { return HBX_BAD_COLUMN; }
    int ColumnIsException(char*, char*, _IntfOper, char*) override { return 0; }

  private:
    explicit Request(std::shared_ptr<RequestSpec> spec) : Request(RequestDetail(std::move(spec)), ContextInfo()) {}
    Request(RequestDetail detail, ContextInfo context) : aghbx(&detail, &context, nullptr) {}
};

RequestSpec agentAction() {
    RequestSpec spec;
    spec.table = HBX_ACTION_TABLE;
    return spec;
}

RequestSpec subnodeAction(const char* destination, const std::vector<std::string>& subnodes = {}) {
    RequestSpec spec;
    spec.table = HBX_SUBNODE_ACTION_TABLE;
    spec.destination = destination;
    spec.subnodes = subnodes;
    return spec;
}

RequestSpec situationAction(const char* situation, const char* node) {
    RequestSpec spec;
    spec.table = "ANYTABLE";
    spec.situation = situation;
    spec.originNode = node;
    return spec;
}

// "code message" of one command, finished.
std::string act(const std::string& command, const RequestSpec& spec = agentAction(), const char* user = nullptr) {
    Request request(spec);
    AghbxAutomationCapsule capsule(command.c_str(), user, &request);
    EXPECT_EQ(actionCallback(&capsule), 0);
    EXPECT_TRUE(capsule.Finished()) << command;
    return std::to_string(capsule.Results()) + " " + capsule.Message();
}

TEST(CommandName, EndsAtABlankABracketOrTheEnd) {
    for (const char* is : {"ADD", "ADD ", "ADD[x]"}) EXPECT_TRUE(commandNameIs(is, "ADD")) << is;
    for (const char* isNot : {"", "AD", "ADDS", "add", "ADD\t", " ADD", "ADD:"}) EXPECT_FALSE(commandNameIs(isNot, "ADD")) << isNot;
    EXPECT_FALSE(commandNameIs(nullptr, "ADD"));
}

std::string bracketsOf(const char* command) {
    const BracketArguments a = parseBracketArguments(command);
    std::string text = a.present ? "<" + a.first + ">" : "none";
    if (a.hasSecond) text += "<" + a.second + ">";
    for (const std::string& more : a.rest) text += "(" + more + ")";
    return text;
}

TEST(Brackets, HoldNameIdentityAndProperties) {
    const struct {
        const char* command;
        const char* arguments;
    } cases[] = {
        {"ADDCONFIG", "none"},
        {"ADDCONFIG a]", "none"},
        {"ADDCONFIG[a]", "<a>"},
        {"ADDCONFIG  [ a : b ] text [ C=1:2 ][D= x y ]", "<a><b>(C=1:2)(D= x y)"},
        {"ADDCONFIG[a:]", "<a><>"},
        {"ADDCONFIG[:b]", "<><b>"},
        {"ADDCONFIG[]", "<>"},
        {"ADDCONFIG[a:b:c]", "<a><b:c>"},
        {"ADDCONFIG[a][]", "<a>()"},
        {"ADDCONFIG[a][C=[1]]", "<a>(C=[1)"},
        {"ADDCONFIG[a][C=1", "<a>(C=1)"},  // not closed: to the end
        {"ADDCONFIG[", "<>"},
    };
    for (const auto& c : cases) EXPECT_EQ(bracketsOf(c.command), c.arguments) << c.command;
    EXPECT_EQ(bracketsOf(nullptr), "none");
}

TEST(Configuration, IsChangedByCommands) {
    Scratch scratch;
    const Variable data("ALMANAC_DATA_DIR", scratch.path());
    std::filesystem::create_directories(scratch.path("config"));
    setProductCodes("TSTAPP");
    applicationName.copy("TSTAPP");
    almanac::host::configureTrace("NONE", nullptr);
    const std::string file = scratch.path("config/st.toml");
    writeFile(file, "[NODE]\nid = \"old\"\n");
    loadAgentConfig();
    const std::string added = act("ADDCONFIG[NODE: new ][PORT=80]");
    const std::string text = readFile(file);
    const std::string again = act("ADDCONFIG [NODE:new]"), removed = act("REMOVECONFIG[NODE:new]");
    const std::string gone = act("REMOVECONFIG[NODE:new]"), nameless = act("REMOVECONFIG[NODE]");
    almanac::host::configureTrace("ERROR", nullptr);
    EXPECT_EQ(added, "0 Section successfully added.");
    EXPECT_NE(text.find("PORT"), std::string::npos) << text;
    EXPECT_EQ(again, "31 Section NODE:new already exists.");
    EXPECT_EQ(removed, "0 Section successfully removed.");
    EXPECT_EQ(gone, "32 Section NODE:new not found.");
    EXPECT_EQ(nameless, "35 Section ID not specified.");
    EXPECT_EQ(act("ADDCONFIG"), "38 No command arguments were specified.");
    EXPECT_EQ(handleConfigUpdates("addconfig[NODE:x]"), nullptr);  // in this case of letters alone
    EXPECT_EQ(handleConfigUpdates("ADDCONFIGS[NODE:x]"), nullptr);
}

std::string nameOf(RequestSpec spec) {
    Request request(std::move(spec));
    char* name = nullptr;
    const bool isSubnode = determineName(&request, 0, &name);
    const std::string text = std::string(isSubnode ? "subnode " : "") + (name ? name : "(null)");
    std::free(name);
    return text;
}

TEST(Name, ComesFromTheDestinationTheSubnodesOrTheRow) {
    EXPECT_EQ(nameOf(subnodeAction("A:k:T", {"A:other:T"})), "subnode A:k:T");
    EXPECT_EQ(nameOf(subnodeAction("", {"A:first:T", "A:second:T"})), "subnode A:first:T");
    EXPECT_EQ(nameOf(subnodeAction("")), "subnode (null)");
    EXPECT_EQ(nameOf(situationAction("S", "host:TS")), "host:TS");
    EXPECT_EQ(nameOf(situationAction("S", std::string(32, 'n').c_str())), std::string(32, 'n'));
    EXPECT_EQ(nameOf(situationAction("S", "  ")), "(null)");
    EXPECT_EQ(nameOf(agentAction()), "(null)");
}

std::vector<Attr> columns(const char* without = "") {
    std::vector<Attr> attributes;
    for (const FixedMetric* m = TS_METRICS; m->name; ++m) {
        if (std::string(m->column) != without) attributes.push_back({m->column, m->rawType == STRING_DATA ? 2 : 0, m->size});
    }
    return attributes;
}

// The agent with a task library and the table of actions.
class Agent {
  public:
    explicit Agent(const char* without = "")
        : group("Take_Action_Status", columns(without)),
          status(new TakeActionStatus("ZAG", "Take_Action_Status", group.meta)) {
        taskLibrary = &library;
        status->setAttributeGroupMeta(group.meta);
        library.setTakeActionStatus(status.get());
    }
    ~Agent() { taskLibrary = nullptr; }
    // The rows that a request gets, newest first.
    const RecordingSink& ask() {
        rows.rows.clear();
        status->collectDataIfNeeded("1");
        status->sendDataToHBX(&rows, "node");
        return rows;
    }
    std::string row(std::size_t i) {
        std::string text;
        for (const FixedMetric* m = TS_METRICS; m->name; ++m) {
            if (std::string(m->column) != "TSKID") text += (text.empty() ? "" : "|") + rows.column(i, m->column);
        }
        return text;
    }

    Group group;
    RecordingSink rows{group.meta};
    std::unique_ptr<TakeActionStatus> status;
    TaskLibrary library{"HBX"};
};

TEST(Actions, ShowAsRows) {
    Agent agent;
    auto* task = new TaskElement("tsk", "exit 3", "A task");
    auto code = std::make_unique<ReturnCodeListElement>("3", "three");
    code->setMappedReturnCode("WARNING");
    task->addReturnCode(std::move(code));
    agent.library.addTaskElement(task);
    EXPECT_EQ(act("tsk", agentAction(), "ann"), "3 three");
    EXPECT_EQ(act("TSK x", subnodeAction("A:key:TYP"), "ann"), "3 three");
    EXPECT_EQ(act("exit 9", situationAction("Full", "host:TS"), "ann"), "9 Error running command");
    EXPECT_EQ(act("true", subnodeAction("malformed")), "0 ");
    ASSERT_EQ(agent.ask().rows.size(), 4u);
    EXPECT_EQ(agent.row(3), "A task|3|3|three|||tsk|No value|No value|1|ann");
    EXPECT_EQ(agent.row(2), "A task|3|3|three|||TSK x|A:key:TYP|key|1|");
    EXPECT_EQ(agent.row(1), "exit|9|9|Error running command|||exit 9|host:TS|No value|1|Full");
    EXPECT_EQ(agent.row(0), "true|0|0||||true|malformed|No value|1|");
    EXPECT_EQ(std::stoi(agent.rows.column(0, "TSKID")), std::stoi(agent.rows.column(3, "TSKID")) + 3);
}

TEST(Actions, OfThreeLinesAreThreeRowsOfOneNumber) {
    Agent agent;
    EXPECT_EQ(act("printf 'a\\nb\\nc\\n'"), "0 ");
    ASSERT_EQ(agent.ask().rows.size(), 3u);
    for (std::size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(agent.rows.column(i, "TSKINST"), std::string(1, "321"[i]));
        EXPECT_EQ(agent.rows.column(i, "TSKOUTP"), std::string(1, "cba"[i]));
        EXPECT_EQ(agent.rows.column(i, "TSKID"), agent.rows.column(0, "TSKID"));
    }
}

TEST(Actions, WithoutAColumnOfTheMetadataShowTheOthers) {
    Agent agent("TSKCMND");
    EXPECT_EQ(agent.status->getMetricCount(), 11);
    EXPECT_EQ(act("echo x"), "0 ");
    ASSERT_EQ(agent.ask().rows.size(), 1u);
    EXPECT_EQ(agent.row(0), "echo|0|0||1|x|(none)|No value|No value|1|No value");
}

TEST(Actions, OfVeryManyLinesKeepTheLatest) {
    Agent agent;
    EXPECT_EQ(act("seq 100000"), "0 ");
    ASSERT_EQ(agent.ask().rows.size(), 100u);
    EXPECT_EQ(agent.rows.column(0, "TSKOUTP"), "100000");
    EXPECT_EQ(agent.rows.column(99, "TSKOUTP"), "99901");
    // One of a megabyte, by a command of its own length, is cut to the columns.
    const Variable single("CDP_ACTION_SINGLE_EVENT", "1");
    EXPECT_EQ(act("seq 200000 #" + std::string(100'000, 'x')), "0 ");
    ASSERT_EQ(agent.ask().rows.size(), 100u);
    EXPECT_EQ(agent.rows.column(0, "TSKINST"), "200000");
    EXPECT_EQ(agent.rows.column(0, "TSKOUTP").substr(0, 6), "1\n2\n3\n");
    EXPECT_EQ(agent.rows.column(0, "TSKOUTP").size(), 1024u);
    EXPECT_EQ(agent.rows.column(0, "TSKCMND").size(), 512u);
}

TEST(Actions, WithoutLibraryTableOrRequestEndAllTheSame) {
    ASSERT_EQ(taskLibrary, nullptr);
    EXPECT_EQ(act("anything"), "-1 N/A");
    EXPECT_EQ(act("REMOVECONFIG"), "38 No command arguments were specified.");
    TaskLibrary library("HBX");
    taskLibrary = &library;
    EXPECT_EQ(act("exit 2"), "2 Error running command");
    AghbxAutomationCapsule capsule("exit 4", "ann", nullptr);
    EXPECT_EQ(actionCallback(&capsule), 0);
    EXPECT_EQ(capsule.Results(), 4);
    taskLibrary = nullptr;
}

TEST(Actions, OfManyThreadsHaveNumbersOfTheirOwn) {
    Agent agent;
    std::vector<std::thread> threads;
    for (int t = 0; t < 5; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 6; ++i) EXPECT_EQ(act("echo x", subnodeAction("A:k:T")), "0 ");
        });
    }
    for (int i = 0; i < 20; ++i) agent.ask();
    for (std::thread& t : threads) t.join();
    ASSERT_EQ(agent.ask().rows.size(), 30u);
    std::set<std::string> numbers;
    for (std::size_t i = 0; i < 30; ++i) numbers.insert(agent.rows.column(i, "TSKID"));
    EXPECT_EQ(numbers.size(), 30u);
}

// In a child: it ends the agent for good.
void shutsDownOnceAfterFiveSeconds() {
    const testclock::Guard clock;
    Agent agent;
    EXPECT_EQ(act("shutdown"), "0 Shutting down...");
    EXPECT_EQ(act("SHUTDOWN"), "0 Shutting down...");
    EXPECT_NE(act("SHUTDOWN now"), "0 Shutting down...");  // a text for the shell
    EXPECT_EQ(agent.ask().rows.size(), 3u);
    const auto sleeping = [] {
        for (int i = 0; i < 4000 && testclock::sleepers() == 0; ++i) std::this_thread::sleep_for(1ms);
        return testclock::sleepers();
    };
    EXPECT_EQ(sleeping(), 1);  // not two
    testclock::advance(4900ms);
    EXPECT_EQ(sleeping(), 1);
    EXPECT_EQ(HBX_QueryShutdown(), 0);
    testclock::advance(101ms);
    for (int i = 0; i < 4000 && !HBX_QueryShutdown(); ++i) std::this_thread::sleep_for(1ms);
    EXPECT_EQ(HBX_QueryShutdown(), 1);
    _exit(testing::Test::HasFailure() ? 1 : 0);
}

TEST(Shutdown, ComesFiveSecondsAfterTheReply) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(shutsDownOnceAfterFiveSeconds(), testing::ExitedWithCode(0), "");
}

}  // namespace
