// The provider on the machine it runs on: against ps, and against a child of known load.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <ctime>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "foundation/Clock.h"
#include "providers/local/process/ProcessQueryClass.h"
#include "providers/local/proctable/FakeProc.h"

namespace {

using namespace almanac::test;

using Row = std::vector<long long>;
using Figures = std::map<int, Row>;

class Live : public ProcessQueryClass {
  public:
    explicit Live(std::initializer_list<int> figures) : ProcessQueryClass("ZZ", "Processes", "object") {
        for (const int figure : figures) {
            auto* metric = new ProcessQueryMetric("", figure);
            metric->setQMPVName(std::to_string(figure).c_str());
            addMetricObject(metric);
        }
    }
    // By the first column, a pid.
    Figures collect() {
        internalCollectData("request");
        Figures rows;
        for (ListCursor c = getNewResultInstanceListCursor(); c.hasMoreElements(); c.setToNext()) {
            Row row;
            const auto* instance = static_cast<ResultInstance*>(c.getCurrentElement());
            for (const ResultMetric* cell = instance->firstCell(); cell; cell = nextCell(cell)) {
                row.push_back(cell->isNumber() ? cell->getMetricValue() : cell->getMetricValue64());
            }
            rows[static_cast<int>(row.at(0))] = row;
        }
        clearNewResultSet(true);
        return rows;
    }
};

Figures ps() {
    Figures rows;
    FILE* const out = popen("ps -eo pid=,ppid=,vsz=,nlwp=,etimes=", "r");
    Row row(5);
    while (out && std::fscanf(out, "%lld %lld %lld %lld %lld", &row[0], &row[1], &row[2], &row[3], &row[4]) == 5) {
        rows[static_cast<int>(row[0])] = row;
    }
    if (out) pclose(out);
    return rows;
}

// A child that burns so much CPU and writes so many bytes, then tells so and waits.
class Load {
  public:
    Load(const std::string& file, long bytes) {
        int ready[2], go[2];
        if (pipe(ready) != 0 || pipe(go) != 0) return;
        pid_ = fork();
        if (pid_ == 0) {
            char byte = 0;
            if (::read(go[0], &byte, 1) == 1) work(file.c_str(), bytes);
            static_cast<void>(::write(ready[1], &byte, 1) + pause());
            _exit(0);
        }
        go_ = go[1];
        ready_ = ready[0];
        ::close(ready[1]);
        ::close(go[0]);
    }
    ~Load() {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
        ::close(go_);
        ::close(ready_);
    }
    pid_t pid() const { return pid_; }
    bool run() const {
        char byte = 'g';
        return ::write(go_, &byte, 1) == 1 && ::read(ready_, &byte, 1) == 1;
    }

  private:
    static void work(const char* file, long bytes) {
        const int out = ::open(file, O_WRONLY | O_CREAT | O_TRUNC, 0600);
        static const char block[4096] = {1};
        for (; bytes > 0 && out >= 0; bytes -= ::write(out, block, sizeof block)) {}
        timespec used{};
        while (used.tv_sec * 100 + used.tv_nsec / 10000000 < 120) clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &used);
    }
    pid_t pid_ = -1;
    int go_ = -1;
    int ready_ = -1;
};

time_t secondsNow() { return Clock::monotonic().tv_sec; }

// What the kernel says that a process has written to disks.
long long writtenBy(pid_t pid) {
    const std::string io = almanac::host::test::readFile("/proc/" + std::to_string(pid) + "/io");
    const std::size_t at = io.find("\nwrite_bytes: ");
    return at == std::string::npos ? 0 : std::atoll(io.c_str() + at + 14);
}

}  // namespace

namespace {

constexpr int kNoRow = -1;

// Process and column where a table differs from ps before and after it; what changes between the two is left out.
std::set<std::pair<int, int>> differences(Live& live, int* compared) {
    const Figures first = ps();
    const Figures ours = live.collect();
    const Figures last = ps();
    std::set<std::pair<int, int>> found;
    for (const auto& [pid, before] : first) {
        const auto after = last.find(pid), row = ours.find(pid);
        if (after == last.end()) continue;
        if (row == ours.end()) {
            // Has memory before and after, so is no zombie meanwhile, and is not being started.
            if (before[2] > 0 && before[4] > 2 && after->second[2] > 0) found.insert({pid, kNoRow});
            continue;
        }
        ++*compared;
        for (int column = 1; column < 4; ++column) {
            const auto c = static_cast<std::size_t>(column);
            if (before[c] == after->second[c] && row->second[c] != before[c]) found.insert({pid, column});
        }
        if (row->second[4] < before[4] - 1 || row->second[4] > after->second[4] + 1) found.insert({pid, 4});
    }
    return found;
}

}  // namespace

TEST(LiveProcesses, ShowWhatPsShows) {
    const WithCorrections corrections("all");
    Live live({kPid, kParentPid, kVirtualKilobytes, kThreadCount, kElapsedSeconds});
    ASSERT_TRUE(live.collect().count(getpid())) << "the test itself";
    int compared = 0;
    std::set<std::pair<int, int>> wrong = differences(live, &compared);
    EXPECT_GT(compared, 0);
    // What differs because a process moved there and back just then does not differ every time.
    for (int again = 0; again < 5 && !wrong.empty(); ++again) {
        const auto now = differences(live, &compared);
        std::erase_if(wrong, [&now](const auto& w) { return now.count(w) == 0; });
    }
    for (const auto& [pid, column] : wrong) ADD_FAILURE() << "column " << column << " of " << pid;
}

TEST(LiveProcesses, RatesOfAChildOfKnownLoad) {
    const WithCorrections corrections("all");
    const almanac::host::test::Scratch scratch;
    const Load load(scratch.path("file"), 8 << 20);
    Live live({kPid, kCpuPercent, kUserPercent, kSystemPercent, kWriteRate, kTotalIORate});
    const time_t beforeFirst = secondsNow();
    ASSERT_TRUE(live.collect().count(load.pid()));
    const time_t afterFirst = secondsNow();
    const long long writtenBefore = writtenBy(load.pid());
    ASSERT_TRUE(load.run());
    const time_t beforeSecond = secondsNow();
    const Figures rows = live.collect();
    const Row& row = rows.at(load.pid());
    // The whole seconds that count lie between these, however long the machine takes.
    const time_t most = secondsNow() - beforeFirst, least = beforeSecond - afterFirst;
    ASSERT_GE(least, 1) << "1.2 seconds of CPU take longer";
    EXPECT_GE(row[1], 119 / most / numcpus());
    EXPECT_LE(row[1], 140 / least / numcpus());
    EXPECT_LE(std::abs(row[1] - row[2] - row[3]), 2) << "user and system time are all of it";
    EXPECT_GE(row[2] + row[3], row[1] - 2);
    // Where the file system tells of nothing written, nothing is.
    const long long written = writtenBy(load.pid()) - writtenBefore;
    EXPECT_GE(row[4], written / most);
    EXPECT_LE(row[4], written / least);
    EXPECT_GE(row[5], row[4]);
}
