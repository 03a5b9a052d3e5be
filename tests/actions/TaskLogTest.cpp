#include "actions/TaskLog.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "actions/OPXEmitter.h"
#include "platform/rnq.h"
#include "platform/zsb.h"

namespace {

constexpr const char* kVariables[] = {"ZSB_ZTR1", "ZSB_ZTR1_LOG", "ZSB_VARPREFIX", "AGHBX_LOG_PATH",
                                      "CDP_ACTION_LOG_APPEND_TIMESTAMP", "TASKLOGNAME"};

void put(const char* name, const std::string& value) { ZSV1_PutEnv((std::string(name) + "=" + value).c_str()); }

std::string env(const char* name) {
    const char* value = ZSV1_GetProcessEnv(name);
    return value ? value : "<unset>";
}

class TaskLogTest : public testing::Test {
  protected:
    TaskLogTest() { clear(); }
    ~TaskLogTest() override { clear(); }
    static void clear() {
        for (const char* name : kVariables) ZSV1_UnsetEnv(name);
    }
};

}  // namespace

TEST_F(TaskLogTest, TakesTheLogVariableApart) {
    struct Case {
        const char* log;
        const char *path, *base, *separator, *limit, *count, *maxfiles;
    } cases[] = {
        {"/var/log/x/host_zz_agent_5f2c-.log COUNT=05 LIMIT=7 PRESERVE=0 MAXFILES=20", "/var/log/x", "host_zz", "/", "7", "05", "20"},
        {"\"/a b/host_zz_agent_5f2c-.log LIMIT=7 MAXFILES=20\"", "/a b", "host_zz", "/", "7", "03", "20"},
        {"C:\\logs\\h_p_a_1-.log", "C:\\logs", "h_p", "\\", "1", "03", "10"},
        {"/l/plain-.log", "/l", "plain", "/", "1", "03", "10"},
        {"/l/one_token-.log", "/l", "one_token", "/", "1", "03", "10"},
        {"/l/_token-.log", "/l", "_token", "/", "1", "03", "10"},
        {"a_b_c-.log", "", "a", "", "1", "03", "10"},
        {"/ACCOUNTS/a_b_c-.log COUNT==9", "/ACCOUNTS", "a", "/", "1", "9", "10"},
        {"/l/no_mark.log COUNT=9", "", "", "", "1", "03", "10"},
    };
    for (const Case& c : cases) {
        put("ZSB_ZTR1_LOG", c.log);
        std::string path = "old";
        getLogPath(path);
        const TaskLogState s = taskLogState();
        EXPECT_EQ(path, c.path) << c.log;
        EXPECT_EQ(s.ztr1_base_name, c.base) << c.log;
        EXPECT_EQ(s.ztr1_path_separator, c.separator) << c.log;
        EXPECT_EQ(s.ztr1_limit, c.limit) << c.log;
        EXPECT_EQ(s.ztr1_count, c.count) << c.log;
        EXPECT_EQ(s.ztr1_maxfiles, c.maxfiles) << c.log;
    }
    ZSV1_UnsetEnv("ZSB_ZTR1_LOG");
    put("AGHBX_LOG_PATH", "/var/log/agent");
    std::string path;
    getLogPath(path);
    EXPECT_EQ(path, "/var/log/agent");
}

TEST_F(TaskLogTest, ChildrenInheritALogOfTheirOwn) {
    put("ZSB_ZTR1_LOG", "\"/l/h_p_a_1-.log COUNT=05 LIMIT=7 MAXFILES=20\"");
    put("ZSB_ZTR1", "error (unit:x all)");
    setZsbZtr1EnvironmentVariable("zzenv");
    EXPECT_EQ(env("ZSB_ZTR1_LOG"),
              "\"/l/h_p(systask)_(sysutcstart)-.log INVENTORY=/l/h_p(systask).inv COUNT=05 PRESERVE=0 LIMIT=7 MAXFILES=20\"");
    EXPECT_EQ(env("ZSB_ZTR1"), "error (unit:x all)");
    EXPECT_EQ(env("ZSB_VARPREFIX"), "<unset>");

    clear();
    put("ZSB_ZTR1_LOG", "/l/no mark");
    setZsbZtr1EnvironmentVariable("zzenv");
    EXPECT_EQ(env("ZSB_ZTR1_LOG"), "/l/no mark");
    ZSV1_UnsetEnv("ZSB_ZTR1_LOG");
    setTaskLogEnvVariables();
    EXPECT_EQ(env("ZSB_ZTR1_LOG"), "<unset>");
    put("AGHBX_LOG_PATH", "/d");
    setTaskLogEnvVariables();
    EXPECT_EQ(env("ZSB_ZTR1_LOG"),
              "/d/(systask)_(sysutcstart)-.log INVENTORY=/d/(systask).inv COUNT=03 PRESERVE=0 LIMIT=1 MAXFILES=10");
}

TEST_F(TaskLogTest, ATaskHasItsOwnLogName) {
    struct Case {
        const char *log, *append, *want;
    } cases[] = {
        {"/l/h_p_a_1-.log", nullptr, "/l/h_ptask.log"}, {"/l/h_p_a_1-.log", "Y", "/l/h_ptask_0A.log"},
        {"/l/h_p_a_1-.log", "yes", "/l/h_ptask_0A.log"}, {"/l/h_p_a_1-.log", "no", "/l/h_ptask.log"},
        {"/l/h_p_a_1-.log", "Yes", "/l/h_ptask.log"},   {"/l/no mark", "YES", ""},
    };
    for (const Case& c : cases) {
        clear();
        put("ZSB_ZTR1_LOG", c.log);
        if (c.append) put("CDP_ACTION_LOG_APPEND_TIMESTAMP", c.append);
        setEnvVarForBat("TASKLOGNAME", "task", "0A");
        EXPECT_EQ(env("TASKLOGNAME"), c.want) << c.log << " append " << (c.append ? c.append : "unset");
    }
}

TEST_F(TaskLogTest, CollectorPathComesFirst) {
    const std::string before = env("PATH");
    ZSV1_UnsetEnv("COLL_BINPATH");
    exportCollBinPath();
    EXPECT_EQ(env("PATH"), before);
    put("COLL_BINPATH", "/opt/coll");
    exportCollBinPath();
    EXPECT_EQ(env("PATH"), "/opt/coll:" + before);
    put("PATH", before);
    ZSV1_UnsetEnv("COLL_BINPATH");
}

TEST_F(TaskLogTest, ManyThreadsSeeWholeNames) {
    put("ZSB_ZTR1_LOG", "/l/h_p_a_1-.log COUNT=05");
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([i] {
            const std::string name = "task" + std::to_string(i);
            for (int n = 0; n < 200; ++n) ASSERT_EQ(setTaskLogEnvVarsForBat(name.c_str(), "1"), "/l/h_p" + name + ".log");
        });
    }
    for (std::thread& t : threads) t.join();
}

TEST(OPXEmitter, WithoutTheProtocolEveryEmitterFails) {
    struct Case {
        int rnqErrno, error;
    } cases[] = {{0, 4}, {1, 4}, {2, 1}, {3, 2}, {4, 3}, {5, 4}};
    rnq_enable(false);
    for (const Case& c : cases) {
        rnq_errno = c.rnqErrno;
        OPXEmitter emitter("/no/such/file");
        EXPECT_EQ(emitter.getError(), c.error) << c.rnqErrno;
        EXPECT_STREQ(emitter.getConfFile(), "/no/such/file");
        EXPECT_EQ(emitter.sendEvent("text"), 0);
        EXPECT_EQ(emitter.sendEvent(nullptr), -1);
        EXPECT_EQ(emitter.getenv("LogSources"), nullptr);
        EXPECT_EQ(emitter.preFilter(nullptr, 0, nullptr, nullptr), 0);
    }
    rnq_errno = 2;
    OPXEmitter null(nullptr);
    EXPECT_EQ(null.getConfFile(), nullptr);
    EXPECT_EQ(null.getError(), 1) << "from the failed handle";
    rnq_errno = 0;
    EXPECT_EQ(OPXEmitter(nullptr).getError(), 4);
}
