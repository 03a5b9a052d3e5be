// The availability table over a root of proc(5) of the test's own: which rows come, in which order, with which figures.
#include "providers/local/availability/UnixAvailabilityList.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <map>
#include <string>
#include <vector>

#include "host/base/TestClock.h"
#include "providers/local/proctable/FakeProc.h"

namespace {

using almanac::test::FakeProc;
using almanac::test::FakeProcess;
using std::chrono::seconds;
using testing::ElementsAre;
using testing::UnorderedElementsAre;

std::string arguments(const std::string& text) {  // with NULs, as the kernel shows them
    std::string line = text + " ";
    for (char& c : line) c = c == ' ' ? '\0' : c;
    return line;
}

class Availability : public testing::Test {
  protected:
    using Row = std::map<std::string, std::string>;

    FakeProcess process(int pid, const std::string& commandLine, int ppid = 1) {
        FakeProcess p;
        p.pid = pid;
        p.ppid = ppid;
        p.name = "task" + std::to_string(pid);
        p.commandLine = commandLine.empty() ? "" : arguments(commandLine);
        proc.put(p);
        return p;
    }
    ProcessFilter filter(const char* component, const char* baseName) {
        ProcessFilter f;
        f.applicationComponent = component;
        f.baseName = baseName;
        return f;
    }
    ProcessFilter withChildren(ProcessFilter f, const char* childComponent = nullptr) {
        f.includeChildProcesses = true;
        f.childApplicationComponent = childComponent;
        return f;
    }
    void useTicks(FakeProcess p, unsigned long user, unsigned long system) {
        p.utime = p.tailUser = user;
        p.stime = p.tailSystem = system;
        proc.put(p);
    }

    std::vector<Row> collect() {
        list.internalCollectData("request");
        std::vector<Row> rows;
        for (ListCursor c = list.getNewResultInstanceListCursor(); c.hasMoreElements(); c.setToNext()) {
            const auto* instance = static_cast<const ResultInstance*>(c.getCurrentElement());
            EXPECT_EQ(instance->getActualMetricCount(), 16);
            EXPECT_EQ(instance->getExpectedMetricCount(), 16);
            Row row;
            for (const ResultMetric* cell = instance->firstCell(); cell; cell = nextCell(cell)) {
                row[cell->getQMPVMetricName()] =
                    cell->isUTF8String() ? cell->getUTF8StringData()->getUTF8Value() : std::to_string(cell->getMetricValue());
            }
            EXPECT_EQ(row["Application_Component"], instance->getInstanceName());
            rows.push_back(row);
        }
        list.clearNewResultSet(true);
        return rows;
    }
    using Columns = std::vector<const char*>;
    static std::string shown(Row row, const Columns& columns = {"Application_Component", "Name", "PID", "Status"}) {
        std::string text;
        for (const char* column : columns) text += (text.empty() ? "" : "|") + row[column];
        return text;
    }
    std::vector<std::string> collectShown() {
        std::vector<std::string> all;
        for (const Row& row : collect()) all.push_back(shown(row));
        return all;
    }

    const almanac::test::WithCorrections corrections{"all"};  // the figures as they are
    FakeProc proc;
    UnixAvailabilityList list{"APP", proc.root().c_str()};
};

}  // namespace

TEST_F(Availability, ColumnsOfAProcess) {
    FakeProcess p = process(77, "/usr/sbin/Httpd -k start");
    p.threads = 9;
    p.vmSize = 5 * 1024 + 1023;
    p.vmRss = 3 * 1024;
    proc.put(p);
    list.addProcess(filter("Web", "httpd"));
    const auto rows = collect();
    ASSERT_EQ(rows.size(), 1u);
    const Row expected = {{"Application_Component", "Web"},
                          {"Name", "httpd"},
                          {"Status", "1"},
                          {"Full_Name", "/usr/sbin/Httpd"},
                          {"Type", "0"},
                          {"Virtual_Size", "5"},
                          {"Page_Faults_per_Sec", "0"},
                          {"Working_Set_Size", "3"},
                          {"Thread_Count", "9"},
                          {"PID", "77"},
                          {"Percent_Privileged_Time", "0"},
                          {"Percent_User_Mode_Time", "0"},
                          {"Percent_Processor_Time", "0"},
                          {"Command_Line", "/usr/sbin/Httpd -k start"},
                          {"Functionality_Test_Status", "1"},
                          {"Functionality_Test_Message", "N/A"}};
    EXPECT_EQ(rows[0], expected);
    EXPECT_TRUE(list.findMetric("Application_Component")->getIsKey());
    EXPECT_EQ(list.getMetricCount(), 16);
}

TEST_F(Availability, SizesWrapAtTwoGigabytes) {
    const struct {
        unsigned long kilobytes;
        const char* megabytes;
    } cases[] = {{2 * 1024 * 1024 - 1, "2047"},
                 {2 * 1024 * 1024, "-2048"},
                 {3 * 1024 * 1024, "-1024"},
                 {4 * 1024 * 1024 - 1, "0"},
                 {5 * 1024 * 1024, "1024"}};
    list.addProcess(filter("Web", "a"));
    for (const auto& c : cases) {
        FakeProcess p = process(5, "a");
        p.vmSize = p.vmRss = c.kilobytes;
        proc.put(p);
        const auto rows = collect();
        ASSERT_EQ(rows.size(), 1u);
        EXPECT_EQ(shown(rows[0], {"Virtual_Size", "Working_Set_Size"}), std::string(c.megabytes) + "|" + c.megabytes);
    }
}

TEST_F(Availability, RowsStandByTestsThenFiltersThenChildren) {
    process(10, "/bin/a");
    process(11, "/bin/a -x");
    process(12, "/bin/b");
    process(13, "/bin/child", 12);
    auto* test = new ApplicationPingListElement("Check", "exit 7");
    auto* code = new ReturnCodeListElement("7", "not well");
    code->setMappedReturnCode("NOT_RUNNING");
    test->addReturnCode(code);
    list.addProcess(withChildren(filter("B", "B"), "Kids"));
    list.addProcess(filter("Gone", "gone"));
    list.addProcess(filter("A", "a"));
    list.addFunctionalityTest(test);
    auto rows = collectShown();
    ASSERT_EQ(rows.size(), 6u);
    EXPECT_THAT(std::vector(rows.begin(), rows.begin() + 3), ElementsAre("Check|exit 7|0|5", "B|B|12|1", "Gone|gone|0|0"));
    EXPECT_THAT(std::vector(rows.begin() + 3, rows.begin() + 5), UnorderedElementsAre("A|a|10|1", "A|a|11|1"));
    EXPECT_EQ(rows[5], "Kids|task13|13|1");
}

TEST_F(Availability, RowsOfTestsAndOfFiltersWithoutAMatch) {
    list.addFunctionalityTest(new ApplicationPingListElement("Check", "exit 7"));
    list.addProcess(filter("Gone", "gone"));
    const auto rows = collect();
    ASSERT_EQ(rows.size(), 2u);
    const std::vector<const char*> columns = {"Status", "Type", "Full_Name", "Command_Line", "Functionality_Test_Status",
                                              "Functionality_Test_Message"};
    EXPECT_EQ(shown(rows[0], columns),
              "3|2|N/A|N/A|2|There was an unexpected return code received from the functionality test.");
    EXPECT_EQ(shown(rows[1], columns), "0|0|N/A|N/A|1|N/A");
}

TEST_F(Availability, WildcardsAndKernelThreads) {
    process(10, "/bin/a");
    process(2, "");  // a kernel thread
    list.addProcess(filter("All", "*"));
    list.addProcess(filter("Kernel", "task2"));
    EXPECT_THAT(collectShown(), ElementsAre("All|*|10|1", "Kernel|task2|0|0"));
}

TEST_F(Availability, TheSecondRowOfAProcessHasNoRates) {
    const almanac::host::testclock::Guard clock;
    const auto p = process(10, "/bin/a");
    useTicks(p, 100, 50);
    list.addProcess(filter("First", "a"));
    list.addProcess(filter("All", "*"));
    const std::vector<const char*> columns = {"Application_Component", "Percent_Privileged_Time", "Percent_User_Mode_Time",
                                              "Percent_Processor_Time"};
    EXPECT_EQ(shown(collect().at(0), columns), "First|0|0|0") << "no rate without a value before";
    almanac::host::testclock::advance(seconds(10));
    const unsigned long share = 1000ul * static_cast<unsigned long>(numcpus());  // a tenth of all processors
    useTicks(p, 100 + 2 * share, 50 + share);
    const auto rows = collect();
    ASSERT_EQ(rows.size(), 2u);
    EXPECT_EQ(shown(rows[0], columns), "First|100|200|300");
    EXPECT_EQ(shown(rows[1], columns), "All|0|0|0");
}

TEST_F(Availability, ChildrenOfMatchingProcesses) {
    process(20, "/bin/parent");
    process(21, "/bin/kid -q", 20);
    process(22, "/bin/grandkid", 21);
    process(23, "/bin/parent", 20);  // reported by its filter alone
    process(24, "/bin/kid", 23);
    process(25, "", 20);  // a kernel thread
    list.addProcess(withChildren(filter("P", "parent")));
    EXPECT_THAT(collectShown(), UnorderedElementsAre("P|parent|20|1", "P|parent|23|1", "Subprocess of P|task21|21|1",
                                                     "Subprocess of P|task24|24|1"));
    list.addProcess(withChildren(filter("Late", "PARENT"), "Latecomers"));
    list.addProcess(filter("Kids", "kid"));
    const auto rows = collectShown();
    EXPECT_EQ(std::count_if(rows.begin(), rows.end(), [](const auto& r) { return r.find("Latecomers|") == 0; }), 2)
        << "of two filters with children the last one names them";
    EXPECT_EQ(std::count_if(rows.begin(), rows.end(), [](const auto& r) { return r.find("Subprocess") == 0; }), 0);
    EXPECT_EQ(std::count(rows.begin(), rows.end(), "Kids|kid|21|1"), 1) << "a child has a row of its own filter as well";
    EXPECT_EQ(rows.size(), 8u);
}

TEST_F(Availability, NamesOfChildrenComeFromTheKernelsName) {
    process(20, "/bin/parent");
    FakeProcess child = process(21, "/bin/python3 /opt/x.py", 20);
    child.name = "dir/job:1";
    proc.put(child);
    list.addProcess(withChildren(filter("P", "parent")));
    const auto rows = collect();
    ASSERT_EQ(rows.size(), 2u);
    EXPECT_EQ(shown(rows[1], {"Name", "Full_Name", "Command_Line"}), "job:1|/bin/python3|/bin/python3 /opt/x.py");
}

TEST_F(Availability, AVanishedProcessHasNoRowAndNoMemory) {
    process(10, "/bin/a");
    process(11, "/bin/a");
    list.addProcess(withChildren(filter("A", "a")));
    EXPECT_EQ(collect().size(), 2u);
    EXPECT_EQ(list.rememberedProcesses(), 2u);
    const almanac::host::testclock::Guard clock;
    almanac::host::testclock::advance(seconds(5));
    proc.remove(10, "cmdline");  // in the snapshot, but gone when the command line is read
    EXPECT_THAT(collectShown(), ElementsAre("A|a|11|1"));
    EXPECT_EQ(list.rememberedProcesses(), 1u);
    proc.remove(11, "cmdline");
    EXPECT_THAT(collectShown(), ElementsAre("A|a|0|0")) << "it was the only match";
}

TEST_F(Availability, WithoutProcessesEveryFilterIsDown) {
    UnixAvailabilityList blind("APP", "/no/such/root");
    blind.addProcess(filter("A", "a"));
    blind.addProcess(filter("All", "*"));
    blind.internalCollectData("request");
    std::vector<std::string> rows;
    for (ListCursor c = blind.getNewResultInstanceListCursor(); c.hasMoreElements(); c.setToNext()) {
        const auto* row = static_cast<const ResultInstance*>(c.getCurrentElement());
        EXPECT_EQ(row->getMetric("Status")->getMetricValue(), APP_STATUS_DOWN);
        rows.push_back(row->getInstanceName());
    }
    EXPECT_THAT(rows, ElementsAre("A", "All"));
    EXPECT_EQ(blind.getPerfObjectStatus(), 0);
    EXPECT_EQ(blind.getPerfErrorCode(), 0);
    EXPECT_EQ(blind.subnodeCopy("key", nullptr), nullptr);
}

TEST_F(Availability, LongAndOddCommandLinesAreWhole) {
    const std::string longest = "/bin/a " + std::string(40000, 'x');
    process(10, longest);
    process(11, "/bin/A\xff\xfe --port=8080");
    ProcessFilter port = filter("Port", "a\xff\xfe");
    port.useArgWithValue = true;
    port.arg = "--PORT";
    port.value = "8080";
    list.addProcess(filter("Long", "a"));
    list.addProcess(port);
    const auto rows = collect();
    ASSERT_EQ(rows.size(), 2u);
    EXPECT_EQ(rows[0].at("Command_Line"), longest.substr(0, 32767));
    EXPECT_EQ(rows[1].at("PID"), "11");
}
