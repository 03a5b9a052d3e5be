// Tasks from the reference file to their result: the command, its return code, its time-out, and who else may run it.
#include "actions/TaskDeclarations.h"
#include "actions/TaskLibrary.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <thread>

#include "config/ConfigMap.h"
#include "host/Scratch.h"
#include "host/base/Trace.h"
#include "host/framework/Framework.h"
#include "runtime/reference/Parser.h"
#include "runtime/reference/SectionSchema.h"
#include "runtime/reference/XMLConfigParser.h"

namespace {

using almanac::host::test::readFile;
using almanac::host::test::Scratch;
using almanac::host::test::Variable;
using almanac::host::test::writeFile;

// The agent's library while a test runs, with the tasks of a text.
class Library {
  public:
    explicit Library(std::string tasks = "") : own_(new TaskLibrary("HBX")) {
        almanac::host::configureTrace("NONE", nullptr);  // commands of 200 KB are errors here
        taskLibrary = own_.get();
        ConfigXMLParser handler;
        Parser parser(&handler);
        tasks = "<agent>" + tasks + "</agent>";
        EXPECT_TRUE(parser.parse(tasks.data()));
    }
    ~Library() {
        taskLibrary = nullptr;
        almanac::host::configureTrace("ERROR", nullptr);
    }
    TaskLibrary* operator->() const { return own_.get(); }

    // "task: message (code, application code) output,…"
    std::string run(const std::string& command) {
        const std::unique_ptr<TaskResult> result = own_->executeTaskRequest(command.c_str(), nullptr, nullptr, nullptr);
        std::string text = std::string(result->getTaskName()) + ": " + result->getMessage() + " (" +
                           std::to_string(result->getReturnCode()) + ", " +
                           std::to_string(result->getApplicationReturnCode()) + ")";
        for (int i = 0; i < result->getOutput()->getCount(); ++i) {
            text += std::string(i ? "," : " ") + static_cast<char*>(result->getInstances()->get(i)) + "=" +
                    static_cast<char*>(result->getOutput()->get(i));
        }
        return text;
    }

  private:
    std::unique_ptr<TaskLibrary> own_;
};

constexpr const char* kTasks =
    "<task name=\"Say it\" key=\"SAY\" command=\"printf '%s\\n' WORDS\">"
    "<param name=\"WORDS\" startDelim=\"[\" endDelim=\"]\" default=\"nothing\"/></task>"
    "<task name=\"Ends with a code\" key=\"end\" command=\"exit CODE\"><param name=\"CODE\" quote=\"false\" startDelim=\" \" "
    "endDelim=\" \"/><rc rc=\"3\" msg=\"three\" type=\"warning\"/><rc rc=\"3\" msg=\"never\" type=\"OK\"/>"
    "<rc rc=\"0\" msg=\"fine\" type=\"SUCCESS\"/><rc rc=\"4\" msg=\"four\" type=\"strange\"/><rc rc=\"5\"/></task>"
    "<task name=\"Elsewhere\" key=\"other\" command=\"&lt;Task Not Defined for Interp&gt;\"/>"
    "<task name=\"Second\" key=\"say\" command=\"echo second\"/>"
    "<task key=\"named\" command=\"echo ${AGENT_BIN_DIR}-${HOME}-VALUE\"><param name=\"VALUE\" quote=\"false\" startDelim=\" \" "
    "endDelim=\" \"/></task>"
    "<task name=\"No key\" command=\"echo none\"/>"
    "<task key=\"add\" command=\"ADDCONFIG\"><rc rc=\"0\" msg=\"added\" type=\"OK\"/></task>";

TEST(Tasks, AreFoundByNameAndUnderstoodByReturnCode) {
    const Variable home("AGENT_BIN_DIR", "/bin/dir");
    Library library(kTasks);
    const struct {
        const char* command;
        const char* result;
    } cases[] = {
        {"say [hello]", "Say it:  (0, 0) 1=hello"},
        {"Say []", "Say it:  (0, 0) 1=nothing"},
        {"say [a\"b\\c]", "Say it:  (0, 0) 1=a\"b\\c"},
        {"say", "Say it: KXX9999E There was an internal error with the task request.  The task will not be run. (1, -1)"},
        {"OTHER x", "Elsewhere: KXX9998E This task is not supported on this platform.  The task will not be run. (1, -1)"},
        {"end 3", "Ends with a code: three (3, 3)"},
        {"end 0", "Ends with a code: fine (0, 0)"},
        {"end 4", "Ends with a code: four (10, 4)"},
        {"end 5", "Ends with a code:  (10, 5)"},
        {"end 6", "Ends with a code: Error running command (6, 6)"},
        {"sayso", "sayso: Error running command (127, 127)"},
        {"echo a; exit 7", "echo: Error running command (7, 7) 1=a"},
        {"printf 'a\\n\\nb'", "printf:  (0, 0) 1=a,2=,3=b"},
        {"", ":  (0, 0)"},  // not the task without a key
        {"add", "add: No command arguments were specified. (38, 38)"},
    };
    for (const auto& c : cases) EXPECT_EQ(library.run(c.command), c.result) << c.command;
    const Variable single("CDP_ACTION_SINGLE_EVENT", "");
    EXPECT_EQ(library.run("echo a; echo b"), "echo:  (0, 0) 2=a\nb");
}

TEST(Tasks, ReplaceOnlyAllowedReferencesWhoeverWritesThem) {
    Scratch scratch;
    const Variable data("ALMANAC_DATA_DIR", scratch.path());
    configMap.setEnvProperty("AGENT_BIN_DIR", "/bin/dir", true, false);
    configMap.setEnvProperty("SECRET", "hidden", true, false);
    Library library(kTasks);
    EXPECT_EQ(library.run("named ${SECRET}${AGENT_BIN_DIR}"), "named:  (0, 0) 1=/bin/dir--/bin/dir");
}

TEST(Tasks, CarryTheNameOfTheirLog) {
    const Variable log("ZSB_ZTR1_LOG", "/l/h_p_a_1-.log"), name("TASKLOGNAME", "");
    Library library(kTasks);
    EXPECT_EQ(library.run("echo $TASKLOGNAME"), "echo:  (0, 0) 1=/l/h_pecho.log");
    EXPECT_EQ(library.run("/bin/echo $TASKLOGNAME"), "/bin/echo:  (0, 0) 1=/l/h_p_bin_echo.log");
    // A first word without end is too long for the kernel, and must not be for all commands that follow.
    const std::string endless(200'000, 'x');
    EXPECT_EQ(library.run(endless), endless + ": Error running command (-1, -1)");
    EXPECT_EQ(library.run("say [x]"), "Say it:  (0, 0) 1=x");
}

class Handler : public TaskHandler {
  public:
    int handleTaskRequest(TaskRequestInfo info, List* instances, List* output) override {
        instances->add(strdup("object"));
        output->add(strdup((info.name + "|" + info.user + "|" + info.command + "|" + info.subnode).c_str()));
        return result;
    }
    int result = 3;
};

TEST(Tasks, GoToTheHandlerOfTheirName) {
    Handler handler;
    registerTaskHandler("END", &handler);
    registerTaskHandler("free", &handler);
    registerTaskHandler(nullptr, &handler);
    Library library(kTasks);
    const auto result = library->executeTaskRequest("End 3", "A:k:T", "k", "ann");
    EXPECT_STREQ(result->getTaskName(), "Ends with a code");
    EXPECT_STREQ(result->getMessage(), "three");
    ASSERT_EQ(result->getOutput()->getCount(), 1);
    EXPECT_STREQ(static_cast<char*>(result->getOutput()->get(0)), "end|ann|exit 3|k");
    EXPECT_EQ(library.run("free text"), "free: Error running command (3, 3) object=free||free text|");
    handler.result = TASK_TIMED_OUT;
    EXPECT_EQ(library.run("end 3"), "Ends with a code: Take Action did not complete in allowed time. (-2, -2) object=end||exit 3|");
    handler.result = TASK_FAILED;
    EXPECT_EQ(library.run("end 3"), "Ends with a code: Error running command (-1, -1) object=end||exit 3|");
    registerTaskHandler("end", nullptr);
    registerTaskHandler("free", nullptr);
    EXPECT_EQ(library.run("end 3"), "Ends with a code: three (3, 3)");
}

TEST(Tasks, OutlivingTheirTimeOutAreCountedAndEndByThemselves) {
    Scratch scratch;
    const std::string gate = scratch.path("gate");
    Library library;
    library->setTimeout(0);
    writeFile(gate, "");
    const std::string hanging = "while [ -e " + gate + " ]; do sleep 0.05; done";
    const std::string timedOut = "while: Take Action did not complete in allowed time. (-2, -2)";
    for (int i = 0; i < 10; ++i) EXPECT_EQ(library.run(hanging), timedOut);
    library->setTimeout(30);
    // The eleventh is not started at all.
    EXPECT_EQ(library.run("echo x > " + scratch.path("started")), "echo: Take Action did not complete in allowed time. (-2, -2)");
    EXPECT_EQ(readFile(scratch.path("started")), "");
    std::filesystem::remove(gate);
    std::string result;
    for (int i = 0; i < 2000; ++i) {
        result = library.run("echo on");
        if (result == "echo:  (0, 0) 1=on") break;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    EXPECT_EQ(result, "echo:  (0, 0) 1=on");
    library->setTimeout(0);
    library.run("sleep 0.2");  // left to itself at the library's end
}

TEST(Tasks, OfManyThreadsKeepTheirValuesApart) {
    Library library(kTasks);
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 6; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < 10; ++i) {
                const std::string word = std::to_string(t * 100 + i);
                wrong += library.run("say [" + word + "]") != "Say it:  (0, 0) 1=" + word;
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(wrong.load(), 0);
}

TEST(TaskTimeOut, ComesFromTheEnvironment) {
    EXPECT_EQ(TaskLibrary("HBX").getTimeout(), 20);
    const struct {
        const char* text;
        int seconds;
    } cases[] = {{"10", 10}, {"11", 11}, {"-5", 10}, {"soon", 10}, {"600", 600}, {"99999999999999999999", 2147483647}};
    for (const auto& c : cases) {
        const Variable set("CDP_DP_ACTION_TIMEOUT", c.text);
        EXPECT_EQ(TaskLibrary("HBX").getTimeout(), c.seconds) << c.text;
    }
}

// Its text would not begin with it: the shell would get what a caller has written.
TEST(TaskDeclarations, LeaveOutWhatNoCommandReaches) {
    Library library(std::string(kTasks) + "<task key=\"two words\" command=\"echo A\"><param name=\"A\" startDelim=\"[\" "
                    "endDelim=\"]\"/></task>");
    declareTasks();
    auto& commands = almanac::host::framework().commands;
    std::string names;
    for (const auto& c : commands.list()) names += c.name + (c.title == "Second" ? " twice" : "") + ";";
    EXPECT_EQ(names, "ADDCONFIG;REMOVECONFIG;SHUTDOWN;SAY;end;other;named;add;");
    EXPECT_FALSE(commands.formOf("two words [; id;]"));
    const char* value = "; id;";
    char* why = nullptr;
    const std::unique_ptr<char, decltype(&std::free)> made(commands.composer()("two words", &value, 1, &why), &std::free);
    EXPECT_STREQ(made.get(), nullptr);
}

TEST(TaskSection, WithoutALibraryIsPassedOver) {
    ASSERT_EQ(taskLibrary, nullptr);
    std::string text = std::string("<agent>") + kTasks + "<param name=\"stray\"/></agent>";
    ConfigXMLParser handler;
    Parser parser(&handler);
    EXPECT_TRUE(parser.parse(text.data()));
    ASSERT_NE(findSectionSchema("task"), nullptr);
    EXPECT_FALSE(findSectionSchema("task")->makesQueryClass);
}

}  // namespace
