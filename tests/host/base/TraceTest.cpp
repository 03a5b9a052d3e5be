#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <thread>
#include <vector>

#include "host/Scratch.h"
#include "host/base/HostTrace.h"
#include "host/base/Secrets.h"
#include "host/base/Trace.h"
#include "host/base/TraceLog.h"
#include "host/base/TraceSelection.h"
#include "platform/rnq.h"

namespace almanac::host::test {
namespace {

constexpr unsigned kAll = ZTR1_ERROR | ZTR1_FLOW | ZTR1_STATE | ZTR1_DETAIL;

TEST(TraceSelection, MasksByGrammar) {
    const struct {
        const char* text;
        unsigned parser, other;  // masks of src/x/Parser.cpp parse() and src/x/Rows.cpp add()
    } cases[] = {
        {"", ZTR1_ERROR, ZTR1_ERROR},
        {"error state", ZTR1_ERROR | ZTR1_STATE, ZTR1_ERROR | ZTR1_STATE},
        {"NONE", 0, 0},
        {"ALL", kAll, kAll},
        {"(UNIT:Parser DETAIL)", ZTR1_ERROR | ZTR1_DETAIL, ZTR1_ERROR},
        {"ERROR (unit:parser.cpp ALL)", kAll, ZTR1_ERROR},
        {"NONE (UNIT:par FLOW STATE)", ZTR1_FLOW | ZTR1_STATE, 0},
        {"NONE (UNIT:parse FLOW)", ZTR1_FLOW, 0},
        {"NONE (UNIT:PARSE FLOW) (UNIT:add STATE)", ZTR1_FLOW, ZTR1_STATE},
        {"ALL (UNIT:Rows NONE)", kAll, 0},
        {"ALL (UNIT:Rows NONE STATE)\t(UNIT:Rows.cpp ERROR)", kAll, ZTR1_STATE | ZTR1_ERROR},
        {"STATE (UNIT:arser DETAIL)", ZTR1_STATE, ZTR1_STATE},  // a prefix, no part
    };
    for (const auto& c : cases) {
        TraceSelection selection;
        std::string error;
        ASSERT_TRUE(TraceSelection::parse(c.text, &selection, &error)) << c.text << ": " << error;
        EXPECT_EQ(selection.maskFor("src/x/Parser.cpp", "parse"), c.parser) << c.text;
        EXPECT_EQ(selection.maskFor("src/x/Rows.cpp", "add"), c.other) << c.text;
    }
    for (const char* wrong : {"EROR", "(UNIT:x)", "(UNIT:x ALL", "(x ALL)", "(UNIT: ALL)", "ERROR )", "(",
                              "(UNIT:a (UNIT:b ALL))"}) {
        TraceSelection selection;
        std::string error;
        EXPECT_FALSE(TraceSelection::parse(wrong, &selection, &error)) << wrong;
        EXPECT_NE(error, "") << wrong;
    }
}

TEST(TraceLogSettings, ReadsTheWholeForm) {
    const auto settings = TraceLogSettings::parse(
        "\"/var/log/a b/base_x-.log INVENTORY=/var/log/base.inv COUNT=05 LIMIT=2 PRESERVE=1 MAXFILES=12\"");
    EXPECT_EQ(settings.fileName(3), "/var/log/a b/base_x-03.log");
    EXPECT_EQ(settings.inventory, "/var/log/base.inv");
    EXPECT_EQ(settings.count, 5);
    EXPECT_EQ(settings.limit, 2);
    EXPECT_EQ(settings.preserve, 1);
    EXPECT_EQ(settings.maxFiles, 12);
    const auto odd = TraceLogSettings::parse("/tmp/x.y/plain COUNT=0 LIMIT=abc MAXFILES=99999 PRESERVE=7");
    EXPECT_EQ(odd.fileName(1), "/tmp/x.y/plain-01");
    EXPECT_EQ(odd.count, 3);
    EXPECT_EQ(odd.limit, 1);
    EXPECT_EQ(odd.maxFiles, 10);
    EXPECT_EQ(odd.preserve, 2);  // at least one file turns
    EXPECT_TRUE(TraceLogSettings::parse("").stem.empty());
    EXPECT_EQ(TraceLogSettings::parse("/tmp/a(systask)_(sysutcstart)-.log").stem.find('('),
              std::string::npos);
}

class TraceOutput : public ::testing::Test {
  protected:
    ~TraceOutput() override {
        configureTraceLog("");
        configureTrace("ERROR", nullptr);
    }
    std::string log(int number = 1) {
        return readFile(scratch_.path("t-0" + std::to_string(number) + ".log"));
    }
    void start(const std::string& options = "", std::int64_t size = 0) {
        configureTraceLog(scratch_.path("t-.log") + " " + options, size);
    }
    Scratch scratch_;
};

void traced(const char* text) {
    HOST_TRACE_FUNCTION();
    host_trace_error("e %s", text);
    host_trace_detail("d %s", text);
}

TEST_F(TraceOutput, MasksChangeWhileTheProgramRuns) {
    start();
    int evaluated = 0;
    const auto count = [&] { return ++evaluated; };
    ASSERT_TRUE(configureTrace("ERROR", nullptr));
    traced("one");
    {
        HOST_TRACE_FUNCTION();
        host_trace_state("%d", count());
        ASSERT_TRUE(configureTrace("NONE (UNIT:TraceTest DETAIL FLOW)", nullptr));
        host_trace_state("%d", count());
    }
    traced("two");
    std::string error;
    EXPECT_FALSE(configureTrace("NOISE", &error));
    EXPECT_EQ(traceSpec(), "NONE (UNIT:TraceTest DETAIL FLOW)");
    const std::string text = log();
    EXPECT_EQ(evaluated, 0);  // arguments of a class that is off
    EXPECT_NE(text.find(" traced E e one\n"), std::string::npos) << text;
    EXPECT_EQ(text.find("d one"), std::string::npos);
    EXPECT_EQ(text.find("e two"), std::string::npos);
    EXPECT_NE(text.find(" D d two\n"), std::string::npos);
    EXPECT_NE(text.find(" F Entry\n"), std::string::npos);
    EXPECT_NE(text.find(" F Exit\n"), std::string::npos);
    EXPECT_EQ(text.find(" TestBody F "), std::string::npos) << "an exit without its entry";
    EXPECT_NE(text.find(" TraceTest.cpp:"), std::string::npos);
    EXPECT_EQ(modeOf(scratch_.path("t-01.log")), 0600u);
}

TEST_F(TraceOutput, LinesStayLinesAndBounded) {
    start();
    HOST_TRACE_FUNCTION();
    host_trace_error("a\nb\r\t\x1b[0m\xC2\x9B\xC3\xA4\n");
    EXPECT_NE(log().find("E a\\nb\\r\\t\\x1b[0m\\x9b\xC3\xA4\n"), std::string::npos) << log();
    host_trace_error("%s", std::string(200000, 'x').c_str());
    host_trace_error("%s", std::string(200000, '\1').c_str());
    unsigned char data[5000] = {0xAB};
    ZTR1_Dump(&hostTraceUnit_, __LINE__, ZTR1_ERROR, "dump", data, sizeof data);
    std::istringstream lines(log());
    int count = 0;
    for (std::string line; std::getline(lines, line); ++count) {
        EXPECT_LT(line.size(), static_cast<std::size_t>(kTraceLineLimit));
    }
    EXPECT_EQ(count, 4);
    EXPECT_NE(log().find("dump: 5000 bytes ab 00"), std::string::npos);
}

TEST_F(TraceOutput, SecretsAreMasked) {
    start();
    registerSecret("hunter2-long");
    registerSecret("hunter2");
    registerSecret("abc");  // too short to mask
    HOST_TRACE_FUNCTION();
    host_trace_error("pw=hunter2 long=hunter2-long! abc");
    // A secret across the place where the line is cut.
    host_trace_error("%s",
                     (std::string(static_cast<std::size_t>(kTraceLineLimit) - 4, '-') + "hunter2").c_str());
    ZTR1_Dump(&hostTraceUnit_, __LINE__, ZTR1_ERROR, "dump", "hunter2", 7);
    const std::string text = log();
    EXPECT_NE(text.find("pw=xxx long=xxx! abc\n"), std::string::npos) << text;
    EXPECT_EQ(text.find("hunt"), std::string::npos);
    EXPECT_EQ(text.find("68 75 6e"), std::string::npos);
}

TEST_F(TraceOutput, TurnsOverFilesAndPreservesTheFirst) {
    start("COUNT=3 PRESERVE=1", 1000);
    for (int i = 0; i < 60; ++i) traced(("line" + std::to_string(i) + ".").c_str());
    EXPECT_NE(log(1).find("line0."), std::string::npos);
    EXPECT_NE((log(2) + log(3)).find("line59."), std::string::npos);
    EXPECT_EQ(log(4), "");
    for (int number = 1; number <= 3; ++number) EXPECT_LE(log(number).size(), 1000u);
    // A restart goes on in the newest file and loses nothing of it.
    const std::string newest = log(2).find("line59.") != std::string::npos ? log(2) : log(3);
    start("COUNT=3 PRESERVE=1", 100000);
    traced("again");
    EXPECT_EQ(((log(2) + log(3)).find(newest) != std::string::npos), true);
}

TEST_F(TraceOutput, InventoryKeepsMaxFilesAcrossRuns) {
    const std::string inventory = scratch_.path("t.inv");
    writeFile(scratch_.path("precious.log"), "keep");
    writeFile(inventory, scratch_.path("precious.log") + "\n/etc/hostname\n");
    for (int run = 1; run <= 6; ++run) {
        configureTraceLog(scratch_.path("r" + std::to_string(run) + "-.log") +
                          " COUNT=1 MAXFILES=3 INVENTORY=" + inventory);
        traced("x");
    }
    EXPECT_EQ(readFile(inventory),
              scratch_.path("r4-01.log\n") + scratch_.path("r5-01.log\n") + scratch_.path("r6-01.log\n"));
    EXPECT_FALSE(std::filesystem::exists(scratch_.path("r3-01.log")));
    EXPECT_TRUE(std::filesystem::exists(scratch_.path("r4-01.log")));
    EXPECT_EQ(readFile(scratch_.path("precious.log")), "keep");  // listed, but no log of ours
}

TEST_F(TraceOutput, UnwritableLogFallsBackToStandardErrorOnce) {
    for (const std::string& target :
         {scratch_.path("no/such/t-.log"), scratch_.path("fifo-.log"), scratch_.path("link-.log")}) {
        ::mkfifo(scratch_.path("fifo-01.log").c_str(), 0600);
        static_cast<void>(!::symlink("/etc/hostname", scratch_.path("link-01.log").c_str()));
        ::testing::internal::CaptureStderr();
        configureTraceLog(target);
        traced("one");
        traced("two");
        const std::string text = ::testing::internal::GetCapturedStderr();
        EXPECT_NE(text.find("e one"), std::string::npos);
        EXPECT_NE(text.find("e two"), std::string::npos);
        EXPECT_EQ(text.find("cannot write trace log"), text.rfind("cannot write trace log")) << text;
        EXPECT_NE(text.find("cannot write trace log"), std::string::npos);
    }
}

// In a child, because the limit of a file's size cannot be raised again by everybody.
TEST_F(TraceOutput, FullDiskCountsWhatIsLostAndGoesOn) {
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        ::signal(SIGXFSZ, SIG_IGN);
        start("", 1 << 20);
        const rlimit soft{2000, RLIM_INFINITY};
        if (::setrlimit(RLIMIT_FSIZE, &soft) != 0) ::_exit(2);
        for (int i = 0; i < 100; ++i) traced("some text of a line");
        if (traceLinesDropped() == 0) ::_exit(3);
        const rlimit wide{RLIM_INFINITY, RLIM_INFINITY};
        if (::setrlimit(RLIMIT_FSIZE, &wide) != 0) ::_exit(4);
        traced("after");
        ::_exit(0);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_NE(log().find("trace lines were lost here)\n"), std::string::npos);
    EXPECT_NE(log().find("e after\n"), std::string::npos);
}

// Nobody reads the pipe; the agent goes on all the same.
TEST_F(TraceOutput, FullPipeDoesNotBlock) {
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        int ends[2];
        if (::pipe(ends) != 0 || ::dup2(ends[1], STDERR_FILENO) < 0) ::_exit(2);
        ::alarm(20);
        configureTraceLog("");
        const std::string text(1000, 'x');
        for (int i = 0; i < 300; ++i) traced(text.c_str());
        ::_exit(traceLinesDropped() > 100 ? 0 : 3);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}

TEST_F(TraceOutput, ThreadsAndReconfigurationTogether) {
    start("COUNT=2", 20000);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([t] {
            for (int i = 0; i < 200; ++i) {
                traced("thread");
                if (t == 0) configureTrace(i % 2 ? "ALL" : "ERROR", nullptr);
                if (t == 1) registerSecret("secret" + std::to_string(i));
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    std::istringstream lines(log(1) + log(2));
    for (std::string line; std::getline(lines, line);) {
        EXPECT_TRUE(line.ends_with("thread") || line.ends_with("Entry") || line.ends_with("Exit")) << line;
    }
}

TEST_F(TraceOutput, EventConsoleCallsLeaveTheirLine) {
    start();
    configureTrace("DETAIL", nullptr);
    char text[] = "x";
    EXPECT_EQ(rnq_create_OPX_handle(text, 0, 0), 0);
    EXPECT_EQ(rnq_put_event(0, text), 0);
    EXPECT_EQ(rnq_agent_getenv_r(0, text), 0);
    EXPECT_EQ(rnq_destroy_handle(0), 0);
    for (const char* name : {"rnq_create_OPX_handle", "rnq_put_event", "rnq_agent_getenv_r"}) {
        const std::string line = std::string("No OPX support on this platform, ") + name + " doing nothing\n";
        EXPECT_NE(log().find(line), std::string::npos) << log();
    }
}

}  // namespace
}  // namespace almanac::host::test
