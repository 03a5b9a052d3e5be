// The provider over a fake root: what each figure shows, which files it takes, rates on a stepped clock, the reference
// file's section.
#include "providers/local/process/ProcessQueryClass.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <memory>
#include <thread>

#include "collection/TestClass.h"
#include "host/base/TestClock.h"
#include "providers/local/proctable/FakeProc.h"
#include "runtime/reference/Parser.h"
#include "runtime/reference/XMLConfigParser.h"

namespace {

using namespace almanac::test;
using almanac::host::test::Variable;
using std::chrono::seconds;
using testing::HasSubstr;
namespace testclock = almanac::host::testclock;

class Processes : public ProcessQueryClass {
  public:
    explicit Processes(const FakeProc& proc, std::initializer_list<int> figures)
        : ProcessQueryClass("ZZ", "Processes", "object", proc.root().c_str()) {
        for (const int figure : figures) column(figure);
    }
    Metric* column(int figure, RAW_METRIC_TYPE type = NUMERIC_64BIT_DATA) {
        const std::string name = "M" + std::to_string(figure);
        auto* metric = new ProcessQueryMetric(name.c_str(), figure);
        metric->setQMPVName(name.c_str());
        metric->setMetricName(name.c_str());
        metric->setRawMetricType(type);
        addMetricObject(metric);
        return metric;
    }
};

std::string valueOf(const ResultMetric* cell) {
    switch (cell->form()) {
        case FORM_INT: return "i" + std::to_string(cell->getMetricValue());
        case FORM_UINT64: return "u" + std::to_string(static_cast<long long>(cell->getMetricValueU64()));
        case FORM_STRING: return cell->getStringValue();
        default: return "?";
    }
}

// The rows of a collection, ordered, cells with commas between, and gone.
std::string collect(ProcessQueryClass& processes) {
    processes.internalCollectData("request");
    std::vector<std::string> rows;
    for (ListCursor c = processes.getNewResultInstanceListCursor(); c.hasMoreElements(); c.setToNext()) {
        const auto* row = static_cast<ResultInstance*>(c.getCurrentElement());
        std::string text;
        for (const ResultMetric* cell = row->firstCell(); cell; cell = nextCell(cell)) {
            text += (text.empty() ? "" : ",") + valueOf(cell);
        }
        EXPECT_EQ(row->getActualMetricCount(), row->getExpectedMetricCount());
        rows.push_back(text);
    }
    processes.clearNewResultSet(true);
    std::sort(rows.begin(), rows.end());
    std::string all;
    for (const std::string& row : rows) all += row + ";";
    return all;
}

FakeProcess process(int pid) {
    FakeProcess p;
    p.pid = pid;
    return p;
}

}  // namespace

TEST(ProcessQueryClass, WhatEachFigureShows) {
    const WithCorrections corrections("all");
    FakeProc proc;
    FakeProcess p = process(12);
    p.ppid = 3;
    p.vmSize = (5ul << 20) + 1;  // 5 GB and 1 KB
    p.vmRss = 777;
    p.threads = 9;
    p.startTime = (1000 - 90) * 100 + 99;
    proc.uptime("180245.7 1.0\n");
    proc.put(p);
    struct Case {
        int figure;
        RAW_METRIC_TYPE type;
        const char* value;
    } cases[] = {
        {kBaseName, STRING_DATA, "worker"},
        {kFullName, STRING_DATA, "/usr/bin/worker"},
        {kCommandLine, STRING_DATA, "/usr/bin/worker -v"},
        {kPid, NUMERIC_DATA, "i12"},
        {kParentPid, NUMERIC_DATA, "i3"},
        {kVirtualBytes, NUMERIC_DATA, "i1073742848"},
        {kVirtualKilobytes, NUMERIC_64BIT_DATA, "u5242881"},
        {kPages, NUMERIC_64BIT_DATA, "u1310720"},
        {kCpuPercent, NUMERIC_DATA, "i0"},
        {kUserPercent, NUMERIC_64BIT_DATA, "u0"},
        {kSystemPercent, NUMERIC_DATA, "i0"},
        {kTotalIORate, NUMERIC_64BIT_DATA, "u0"},
        {kPageFaultRate, NUMERIC_64BIT_DATA, "u0"},
        {kThreadCount, NUMERIC_64BIT_DATA, "u9"},
        {kResidentKilobytes, NUMERIC_64BIT_DATA, "u777"},
        {kDescriptorCount, NUMERIC_64BIT_DATA, "u0"},
        {16, NUMERIC_64BIT_DATA, "i0"},
        {17, STRING_DATA, "NOT_COLLECTED"},
        {19, NUMERIC_DATA, "i0"},
        {kPrivateBytes, NUMERIC_64BIT_DATA, "u0"},
        {kReadRate, NUMERIC_64BIT_DATA, "u0"},
        {kWriteRate, NUMERIC_64BIT_DATA, "u0"},
        {kElapsedText, STRING_DATA, "  2d 1:48:55"},
        {kElapsedSeconds, NUMERIC_64BIT_DATA, "u179335"},
        {kStartTime, STRING_DATA, "10909090909090909"},
        {26, STRING_DATA, "NOT_COLLECTED"},
        {-3, STRING_DATA, "NOT_COLLECTED"},
    };
    Processes all(proc, {});
    std::string row;
    for (const Case& c : cases) {
        Processes one(proc, {});
        one.column(c.figure, c.type);
        const Traced traced("ERROR");
        EXPECT_EQ(collect(one), std::string(c.value) + ";") << c.figure << ": read alone, from the files it needs";
        all.column(c.figure, c.type);
        row += (row.empty() ? "" : ",") + std::string(c.value);
    }
    const Traced traced("ERROR");
    EXPECT_EQ(collect(all), row + ";");
    EXPECT_THAT(traced.text(), HasSubstr("Process metric M17, index 17 does not exist"));
    EXPECT_STREQ(all.getClassName(), "Process");
    EXPECT_STREQ(all.getPerfObjectName(), "object");
    EXPECT_EQ(all.getPerfObjectStatus(), PERF_OBJECT_ACTIVE);
    EXPECT_EQ(all.getPerfErrorCode(), 0);
    EXPECT_EQ(all.getObjectType(), VX_PROCESS);
}

TEST(ProcessQueryClass, AProcessThatStartsBehindTheReadingOfUptime) {
    const WithCorrections corrections("all");
    FakeProc proc;
    FakeProcess p = process(1);
    proc.uptime("1000.99 1.0\n");
    p.startTime = 100100;
    proc.put(p);
    Processes processes(proc, {kElapsedSeconds, kElapsedText});
    EXPECT_EQ(collect(processes), "u-1,  0d 0: 0:-1;");
}

TEST(ProcessQueryClass, AttributesWithoutAnIndexKeepTheirPlace) {
    FakeProc proc;
    proc.put(process(1));
    Processes processes(proc, {kPid});
    auto* plain = new Metric;
    plain->setQMPVName("Plain");
    plain->setRawMetricType(STRING_DATA);
    processes.addMetricObject(plain);
    processes.column(kPid);
    const Traced traced("NONE");
    EXPECT_EQ(collect(processes), "i1,NOT_COLLECTED,i1;");
}

// A file that is a directory does not read: if it is needed, the process is left out, or the trace tells of `io`.
TEST(ProcessQueryClass, OnlyTheFilesThatAreNeededAreRead) {
    struct Case {
        const char* corrections;
        std::initializer_list<int> figures;
        const char* files;
    } cases[] = {
        {"all", {kBaseName, kPid, kStartTime, kPrivateBytes}, ""},
        {"all", {kParentPid}, "stat "},
        {"all", {kParentPid, kThreadCount}, "status "},
        {"proc-status", {kParentPid}, "stat status "},
        {"all", {kPages}, "statm "},
        {"all", {kCpuPercent}, "stat "},
        {"all", {kElapsedText}, "stat "},
        {"all", {kWriteRate}, "io "},
        {"all", {kPageFaultRate, kVirtualBytes}, "stat status "},
        {"proc-times", {kPid}, "status "},
        {"", {kPid}, "stat status "},
    };
    for (const Case& c : cases) {
        const WithCorrections corrections(c.corrections);
        std::string needed;
        for (const char* file : {"stat", "statm", "status", "io"}) {
            FakeProc proc;
            proc.put(process(1));
            proc.remove(1, file);
            std::filesystem::create_directories(proc.path(1, file));
            Processes processes(proc, c.figures);
            const Traced traced("NONE (UNIT:ProcText DETAIL)");
            if (collect(processes).empty() || traced.has("getline failed for io file")) needed += std::string(file) + " ";
        }
        EXPECT_EQ(needed, c.files) << c.corrections;
    }
}

TEST(ProcessQueryClass, RatesOverASteppedClock) {
    const WithCorrections corrections("all");
    const testclock::Guard frozen;
    FakeProc proc;
    FakeProcess p = process(5);
    p.readBytes = 1000;
    proc.put(p);
    Processes processes(proc, {kPid, kCpuPercent, kUserPercent, kSystemPercent, kTotalIORate, kPageFaultRate, kReadRate, kWriteRate});
    EXPECT_EQ(collect(processes), "i5,i0,u0,i0,u0,u0,u0,u0;");
    const int n = numcpus();
    const auto row = [](int cpu, int user, int system, int total, int faults, int read, int write) {
        return "i5,i" + std::to_string(cpu) + ",u" + std::to_string(user) + ",i" + std::to_string(system) + ",u" +
               std::to_string(total) + ",u" + std::to_string(faults) + ",u" + std::to_string(read) + ",u" +
               std::to_string(write) + ";";
    };
    // Ten seconds with 600 + 200 ticks, 50 faults, 10,000 bytes read and 999 written.
    testclock::advance(seconds(10));
    p.utime = 600;
    p.stime = 200;
    p.majorFaults = 50;
    p.readBytes += 10000;
    p.writeBytes += 999;
    proc.put(p);
    EXPECT_EQ(collect(processes), row(80 / n, 60 / n, 20 / n, 1099, 5, 1000, 99));
    // Within the same second: rates of 0, and the values move on.
    p.utime += 100;
    proc.put(p);
    EXPECT_EQ(collect(processes), row(0, 0, 0, 0, 0, 0, 0));
    testclock::advance(seconds(1));
    p.utime += 100;
    proc.put(p);
    EXPECT_EQ(collect(processes), row(100 / n, 100 / n, 0, 0, 0, 0, 0));
    // Counters that start again (a pid reused), and the wall clock an hour back: 0 once, then rates again.
    testclock::advanceWall(-seconds(3600));
    testclock::advanceMonotonic(seconds(1));
    p.utime = p.stime = p.majorFaults = 0;
    p.readBytes = p.writeBytes = 0;
    proc.put(p);
    EXPECT_EQ(collect(processes), row(0, 0, 0, 0, 0, 0, 0));
    testclock::advance(seconds(2));
    p.stime = 100;
    proc.put(p);
    EXPECT_EQ(collect(processes), row(50 / n, 0, 50 / n, 0, 0, 0, 0));
}

// Both the rates of the table's own columns and the sign that a process is there count for what is remembered.
TEST(ProcessQueryClass, HistoryFollowsTheProcesses) {
    const WithCorrections corrections("all");
    for (const int figure : {static_cast<int>(kCpuPercent), static_cast<int>(kReadRate)}) {
        const testclock::Guard frozen;
        FakeProc proc;
        for (int pid = 1; pid <= 3; ++pid) proc.put(process(pid));
        Processes processes(proc, {figure});
        collect(processes);
        EXPECT_EQ(processes.rememberedProcesses(), 3u);
        testclock::advance(seconds(1));
        proc.remove(2);
        proc.put(3, "cmdline", "");  // as a kernel thread: no row, no history
        const std::string rows = collect(processes);
        EXPECT_EQ(std::count(rows.begin(), rows.end(), ';'), 1) << rows;
        EXPECT_EQ(processes.rememberedProcesses(), 1u);
        const std::unique_ptr<VXClientClass> copy(processes.subnodeCopy("sub", nullptr));
        EXPECT_EQ(static_cast<ProcessQueryClass*>(copy.get())->rememberedProcesses(), 0u) << "a history of its own";
    }
}

TEST(ProcessQueryClass, AnyLimitLeavesOutProcessesWithoutCpu) {
    const WithCorrections corrections("all");
    const testclock::Guard frozen;
    FakeProc proc;
    FakeProcess busy = process(1), idle = process(2);
    for (const char* limit : {"5", "0", "text"}) {
        const Variable variable("CDP_PROCESS_COUNT_LIMIT", limit);
        busy.utime = 0;
        proc.put(busy);
        proc.put(idle);
        const Traced traced("STATE");
        Processes limited(proc, {kPid, kCpuPercent});
        EXPECT_TRUE(traced.has("Limiting number of processes to " + std::to_string(std::atoi(limit)) + " by filtering out"));
        Processes withoutCpu(proc, {kPid});
        EXPECT_FALSE(limited.hasNoLimit());
        EXPECT_EQ(limited.limit(), std::atoi(limit));
        EXPECT_EQ(collect(limited), "") << "the first rates are 0";
        testclock::advance(seconds(1));
        busy.utime = static_cast<unsigned long>(100 * numcpus());
        proc.put(busy);
        EXPECT_EQ(collect(limited), "i1,i100;") << limit;
        EXPECT_EQ(collect(withoutCpu), "i1;i2;") << "no CPU is shown";
    }
    const Variable variable("CDP_PROCESS_COUNT_LIMIT", "NO_LIMIT");
    const Processes unlimited(proc, {});
    EXPECT_TRUE(unlimited.hasNoLimit());
    EXPECT_EQ(unlimited.limit(), -1);
}

// Collections of different tables run on threads of their own.
TEST(ProcessQueryClass, TablesCollectAtOnce) {
    const WithCorrections corrections("all");
    FakeProc proc;
    for (int pid = 1; pid <= 50; ++pid) proc.put(process(pid));
    Processes first(proc, {kPid, kCpuPercent, kElapsedText, kWriteRate});
    const std::unique_ptr<VXClientClass> copy(first.subnodeCopy("sub", nullptr));
    std::string rows[2];
    const auto collectOften = [](ProcessQueryClass& table, std::string& last) {
        for (int i = 0; i < 20; ++i) last = collect(table);
    };
    std::thread other(collectOften, std::ref(*static_cast<ProcessQueryClass*>(copy.get())), std::ref(rows[1]));
    collectOften(first, rows[0]);
    other.join();
    EXPECT_EQ(std::count(rows[0].begin(), rows[0].end(), ';'), 50);
    EXPECT_EQ(rows[1], rows[0]);
}

// Without the correction a closed `io` shows the figures of a neighbour; with it none, and the trace tells of it once.
TEST(ProcessQueryClass, AnIoThatIsClosed) {
    const WithCorrections corrections("all");
    const testclock::Guard frozen;
    FakeProc proc;
    FakeProcess p = process(1);
    proc.put(p);
    proc.put(process(2));
    proc.remove(2, "io");
    Processes processes(proc, {kPid, kWriteRate});
    EXPECT_EQ(collect(processes), "i1,u0;i2,u0;");
    testclock::advance(seconds(1));
    p.writeBytes = 5000;
    proc.put(p);
    const Traced traced("NONE (UNIT:ProcReader DETAIL) (UNIT:ProcText DETAIL)");
    EXPECT_EQ(collect(processes), "i1,u5000;i2,u0;");
    const std::string text = traced.text();
    const std::size_t told = text.find("Warn - getline failed for io file");
    EXPECT_NE(told, std::string::npos);
    EXPECT_EQ(text.find("Warn - getline failed for io file", told + 1), std::string::npos) << text;
}

TEST(ProcessQueryClass, TheSumOfTheLargestIOFigures) {
    const WithCorrections corrections("all");
    const testclock::Guard frozen;
    FakeProc proc;
    FakeProcess p = process(1);
    p.readBytes = p.writeBytes = std::numeric_limits<long long>::max() / 2;
    proc.put(p);
    Processes processes(proc, {kTotalIORate});
    collect(processes);
    testclock::advance(seconds(1));
    p.readBytes = p.writeBytes = std::numeric_limits<long long>::max();
    proc.put(p);
    EXPECT_EQ(collect(processes), "u0;") << "wraps, as a counter that fell";
}

TEST(ProcessQueryClass, NoProcessTableNoRows) {
    const Traced traced("NONE");
    class Rootless : public ProcessQueryClass {
      public:
        Rootless() : ProcessQueryClass("ZZ", "Processes", nullptr, "/no/such/root") {}
    } processes;
    EXPECT_EQ(collect(processes), "");
    EXPECT_EQ(processes.getPerfObjectStatus(), PERF_OBJECT_ACTIVE);
}

// Through the section parser, the live process table, the cache and the row buffer; then as a subnode's table.
TEST(ProcessQueryClass, ASectionOfTheReferenceFile) {
    const WithCorrections corrections("all");
    VXClientClassList classes;
    VXClientClassList* const before = std::exchange(queryClassList, &classes);
    const Group group("Procs", {{"Name", 2, 32}, {"Pid", 0, 4}, {"Threads", 7, 8}, {"Twice", 0, 4}});
    std::string text = "<agent><process app=\"ZZ\" ag=\"Procs\" name=\"table\">"
                       "<metric name=\"Name\" type=\"STRING_DATA\" visible=\"true\" size=\"32\" index=\"0\"/>"
                       "<metric name=\"Pid\" type=\"NUMERIC_DATA\" key=\"true\" visible=\"true\" index=\"3\"/>"
                       "<metric name=\"Threads\" type=\"NUMERIC_64BIT_DATA\" visible=\"true\" index=\"13\"/>"
                       "<metric name=\"Twice\" type=\"NUMERIC_DATA\" visible=\"true\" arg1=\"Pid\" op=\"*\" arg2=\"2\"/>"
                       "</process></agent>";
    ConfigXMLParser handler;
    Parser parser(&handler);
    ASSERT_TRUE(parser.parse(text.data()));
    auto* processes = dynamic_cast<ProcessQueryClass*>(classes.getClientClass("Procs"));
    ASSERT_TRUE(processes);
    const std::unique_ptr<VXClientClass> owned(processes);
    EXPECT_STREQ(processes->getPerfObjectName(), "table");
    EXPECT_EQ(processes->getMetricCount(), 3);
    const auto* first = dynamic_cast<const ProcessQueryMetric*>(processes->getMetricList());
    ASSERT_TRUE(first);
    EXPECT_STREQ(first->getName(), "Name");
    const std::unique_ptr<VXClientClass> subnodes(processes->subnodeCopy("sub", &classes));
    for (VXClientClass* table : {static_cast<VXClientClass*>(processes), subnodes.get()}) {
        table->setAttributeGroupMeta(group.meta);
        table->collectDataIfNeeded("request");
        RecordingSink sink(group.meta);
        table->sendDataToHBX(&sink, "node");
        std::size_t self = 0;
        const std::string pid = std::to_string(getpid());
        while (self < sink.rows.size() && sink.column(self, "Pid") != pid) ++self;
        EXPECT_EQ(sink.column(self, "Name"), "test_process");
        EXPECT_EQ(sink.column(self, "Threads"), std::to_string(ownThreads()));
        EXPECT_EQ(sink.column(self, "Twice"), std::to_string(2 * getpid()));
    }
    classes.removeClientClass(processes);
    queryClassList = before;
}

// Reading the command line first saves the other files of processes without one. Traced in detail, all is read in order;
// the rows are the same.
TEST(ProcessQueryClass, TheOrderOfReadingDoesNotShow) {
    // With the second of them, the `io` of a process that is not shown is still read: it may be the next one's.
    for (const char* names : {"all", "proc-times,proc-status", ""}) {
        const WithCorrections corrections(names);
        FakeProc proc;
        for (int pid = 1; pid <= 40; ++pid) {
            FakeProcess p = process(pid);
            p.vmSize = static_cast<unsigned>(pid) * 100;
            if (pid % 3 == 0) p.commandLine = "";
            proc.put(p);
            if (pid % 4 == 0) proc.remove(pid, "io");
            if (pid % 7 == 0 && pid % 3 != 0) proc.remove(pid, "status");
        }
        const auto haveRead = [&proc](int each) {
            for (int pid = 1; pid <= 40; ++pid) {
                FakeProcess p = process(pid);
                p.readBytes = pid * each;
                if (pid % 4 != 0) proc.put(pid, "io", p.io());
            }
        };
        const auto rows = [&] {
            const testclock::Guard frozen;
            Processes processes(proc, {kPid, kParentPid, kReadRate, kTotalIORate, kVirtualKilobytes, kThreadCount, kElapsedSeconds});
            haveRead(100);
            collect(processes);
            testclock::advance(seconds(1));
            haveRead(200);
            return collect(processes);
        };
        std::string quick;
        {
            const Traced traced("NONE");
            quick = rows();
        }
        EXPECT_EQ(std::count(quick.begin(), quick.end(), ';'), 40 - 13 - 5 + 1);
        EXPECT_THAT(quick, HasSubstr("i1,i1,u100,u100,u")) << "each has a rate of its own";
        const Traced traced("NONE (UNIT:ProcessQueryClass DETAIL)");
        EXPECT_EQ(rows(), quick);
        EXPECT_TRUE(traced.has("Looking at process - cmd=worker, cmdline=[worker]"));
        EXPECT_TRUE(traced.has("Looking at process - cmd=worker, cmdline=/usr/bin/worker -v"));
    }
}
