// The provider with real scripts: status words, time-outs, environments, the seam for remote running.
#include "providers/local/script/ShellQueryClass.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "config/ConfigMap.h"
#include "platform/zsb.h"
#include "runtime/reference/AttributeGroupMeta.h"

namespace {

class Script : public ShellQueryClass {
  public:
    explicit Script(const char* command, bool ssh = false) : ShellQueryClass("ZZ", "Group", command, ",", "object", true, ssh) {
        for (const char* name : {"Name", "Size"}) {
            auto* metric = new Metric;
            metric->setQMPVName(name);
            metric->setRawMetricType(std::strcmp(name, "Name") == 0 ? STRING_DATA : NUMERIC_DATA);
            addMetricObject(metric);
        }
    }
};

// Rows of a collection as "name=size;", and gone.
std::string collect(ShellQueryClass& script) {
    script.internalCollectData("request");
    std::string rows;
    for (ListCursor c = script.getNewResultInstanceListCursor(); c.hasMoreElements(); c.setToNext()) {
        const auto* row = static_cast<ResultInstance*>(c.getCurrentElement());
        rows += std::string(row->getMetric("Name")->getUTF8StringData()->getUTF8Value()) + "=" +
                std::to_string(row->getMetric("Size")->getMetricValue64()) + ";";
    }
    script.clearNewResultSet(true);
    return rows;
}

std::string words(ShellQueryClass& script) {
    return std::string(perfObjectStatusName(script.getPerfObjectStatus())) + "/" + perfObjectErrorCodeName(script.getPerfErrorCode());
}

// Waits until every child of the process has ended and been reaped, for ten seconds at most. Reaps none itself.
bool allChildrenAreGone() {
    siginfo_t info;
    for (int i = 0; i < 100; ++i) {
        if (waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT) == -1 && errno == ECHILD) return true;
        usleep(100000);
    }
    return false;
}

}  // namespace

TEST(ShellQueryClass, RowsAndStatusWords) {
    struct Case {
        const char* command;
        const char* rows;
        PERF_OBJECT_ERROR_CODE error;
    } cases[] = {
        {"printf 'a,1\\nb,2\\n'", "a=1;b=2;", OBJECT_ACTIVE},
        {"printf 'a,1'", "a=1;", OBJECT_ACTIVE},
        {"printf 'a,1\\n'; exit 4", "a=1;", SCRIPT_NONZERO_RETURN},
        {"printf 'a,1\\n'; kill -9 $$", "a=1;", OBJECT_ACTIVE},
        {"true", "", NO_INSTANCES_RETURNED},
        {"echo too-few", "", NO_INSTANCES_RETURNED},
        {"exec 2>/dev/null; /no/such/script", "", SCRIPT_NONZERO_RETURN},
        {"printf 'a,1\\n\\nb,2\\n'", "a=1;", OBJECT_ACTIVE},
        {"printf 'a,1\\0\\nb,2\\n'", "a=1;", OBJECT_ACTIVE},
        {"printf 'a,x\\nshort\\nb,2,more\\n'", "a=0;b=2;", OBJECT_ACTIVE},
    };
    for (const Case& c : cases) {
        Script script(c.command);
        EXPECT_EQ(collect(script), c.rows) << c.command;
        EXPECT_EQ(script.getPerfObjectStatus(), PERF_OBJECT_ACTIVE);
        EXPECT_EQ(script.getPerfErrorCode(), c.error) << c.command << " gave " << words(script);
        EXPECT_STREQ(script.getPerfObjectName(), "object");
        EXPECT_EQ(script.getObjectType(), VX_SHELL);
    }
}

TEST(ShellQueryClass, TimeoutSetting) {
    struct Case {
        const char* text;
        int seconds;
    } cases[] = {{nullptr, 30}, {"10", 10}, {"11", 11}, {"5", 10}, {"abc", 10}, {"-3", 10}, {"90", 90}};
    for (const Case& c : cases) {
        if (c.text) {
            ZSV1_PutEnv((std::string("CDP_DP_SCRIPT_TIMEOUT=") + c.text).c_str());
        } else {
            ZSV1_UnsetEnv("CDP_DP_SCRIPT_TIMEOUT");
        }
        EXPECT_EQ(Script("true").getTimeout(), c.seconds) << (c.text ? c.text : "unset");
    }
    ZSV1_UnsetEnv("CDP_DP_SCRIPT_TIMEOUT");
}

TEST(ShellQueryClass, TenOutstandingCommandsStopTheEleventh) {
    Script script("test -e $MARK && printf 'a,1\\n' && exit; sleep 1");
    ZSV1_PutEnv("MARK=/no/such/file");
    script.setTimeout(0);
    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(collect(script), "");
        EXPECT_EQ(words(script), "PERF_OBJECT_INACTIVE/TIMEOUT");
    }
    ZSV1_PutEnv("MARK=/");
    script.setTimeout(20);
    EXPECT_EQ(collect(script), "") << "not started";
    EXPECT_EQ(words(script), "PERF_OBJECT_INACTIVE/TIMEOUT") << "the last time-out's words stand";
    std::string rows;
    for (int i = 0; i < 50 && rows.empty(); ++i) {
        usleep(100000);
        rows = collect(script);
    }
    EXPECT_EQ(rows, "a=1;") << "collection resumes once commands have ended";
    EXPECT_EQ(words(script), "PERF_OBJECT_ACTIVE/OBJECT_ACTIVE");
    EXPECT_TRUE(allChildrenAreGone());
    ZSV1_UnsetEnv("MARK");
}

TEST(ShellQueryClass, DestroyedWithRunningCommands) {
    {
        Script script("sleep 0.3");
        script.setTimeout(0);
        collect(script);
        collect(script);
    }
    EXPECT_TRUE(allChildrenAreGone()) << "the workers left behind reap their children";
}

TEST(ShellQueryClass, OnlyPathsOfTheAgentAreSubstituted) {
    ZSV1_PutEnv("AGENT_BIN_DIR=/opt/bin");
    Script script("${AGENT_BIN_DIR}/x ${HOME} $PLAIN");
    EXPECT_STREQ(script.getClassName(), "/opt/bin/x  $PLAIN");
    ZSV1_UnsetEnv("AGENT_BIN_DIR");
}

TEST(ShellQueryClass, ASubnodeRunsWithItsOwnVariables) {
    configMap.initializeLocalMap();
    configMap.put(ConfigMap::productCodeVariable, "ZZ");
    const int index = configMap.addSection("DEV", "router1");
    ASSERT_GT(index, 0);
    configMap.setSubnodeProperty("DEV", index, "SIZE", "42", false);
    configMap.setSubnodeProperty("DEV", 0, "SIZE", "1", false);
    configMap.setSubnodeProperty("DEV", 0, "LABEL", "common", false);
    AttributeGroupMeta meta("ZZ", "GROUP");
    meta.setSubnodeType(strdup("DEV"));

    Script source("echo \"$LABEL,$SIZE\"");
    source.setAttributeGroupMeta(&meta);
    EXPECT_EQ(collect(source), "=0;") << "no prefix for the class of the reference file";
    const std::unique_ptr<VXClientClass> copy(source.subnodeCopy("router1", nullptr));
    auto* script = static_cast<ShellQueryClass*>(copy.get());
    EXPECT_EQ(collect(*script), "common=42;");
    EXPECT_STREQ(script->getSubnodeKey(), "router1");
    EXPECT_STREQ(script->getPerfObjectName(), "object");
    EXPECT_TRUE(script->getIsUTF8Input());
}

namespace {

// Answers what the test says.
class Connector : public RemoteExecutor {
  public:
    int executeScript(const ZBT::String&, char** out, char**) override {
        if (text) *out = strdup(text);
        return result;
    }
    int status() const override { return state; }
    int errorCode() const override { return result == -1 ? static_cast<int>(CONNECTION_FAILURE) : result; }
    void addCommandFile(const char* name) override { files.add(name); }
    void addCommandFileList(List& others) override {
        for (int i = 0; i < others.getCount(); ++i) files.add(others.get(i));
    }
    List& commandFileList() override { return files; }
    int disconnect() override { return 0; }

    static const char* text;
    static int result;
    static int state;
    static std::string subnode;
    static int made;
    List files;
};
const char* Connector::text = nullptr;
int Connector::result = 0;
int Connector::state = 0;
std::string Connector::subnode;
int Connector::made = 0;

std::shared_ptr<RemoteExecutor> makeConnector(VXClientClass*, const char* subnode) {
    ++Connector::made;
    Connector::subnode = subnode ? subnode : "<none>";
    return std::make_shared<Connector>();
}

}  // namespace

TEST(ShellQueryClass, RemoteStatusWords) {
    registerRemoteExecutorFactory(makeConnector);
    struct Case {
        int result;
        const char* text;
        const char* rows;
        const char* words;
    } cases[] = {
        {0, "a,1\n", "a=1;", "PERF_OBJECT_ACTIVE/OBJECT_ACTIVE"},
        {0, nullptr, "", "PERF_OBJECT_ACTIVE/OBJECT_ACTIVE"},
        {AUTHENTICATION_FAILED, nullptr, "", "PERF_OBJECT_ACTIVE/AUTHENTICATION_FAILED"},
        {-1, nullptr, "", "PERF_OBJECT_ACTIVE/CONNECTION_FAILURE"},
    };
    for (const Case& c : cases) {
        Connector::result = c.result;
        Connector::text = c.text;
        Script script("remote command", true);
        EXPECT_TRUE(script.usesSsh());
        EXPECT_EQ(collect(script), c.rows);
        EXPECT_EQ(words(script), c.words);
    }
    Connector::result = 0;
    Script source("remote", true);
    source.addCommandFile("check.sh");
    const std::unique_ptr<VXClientClass> copy(source.subnodeCopy("router2", nullptr));
    EXPECT_EQ(Connector::subnode, "router2");
    EXPECT_TRUE(static_cast<ShellQueryClass*>(copy.get())->usesSsh());
    registerRemoteExecutorFactory(nullptr);
}

TEST(ShellQueryClass, WithoutAConnectorTheCommandRunsLocally) {
    Script none("echo local,1", true);
    EXPECT_FALSE(none.usesSsh());
    EXPECT_EQ(collect(none), "local=1;");
    registerRemoteExecutorFactory(makeConnector);
    Connector::state = 1;
    Script failed("echo local,2", true);
    EXPECT_FALSE(failed.usesSsh());
    EXPECT_EQ(collect(failed), "local=2;");
    failed.addCommandFile("ignored");
    const int made = Connector::made;
    const std::unique_ptr<VXClientClass> copy(failed.subnodeCopy("router3", nullptr));
    EXPECT_EQ(Connector::made, made) << "a copy of a class that dropped to local running makes no attempt";
    Connector::state = 0;
    registerRemoteExecutorFactory(nullptr);
}
