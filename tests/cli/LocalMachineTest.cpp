// The example's processes, its availability table and its actions, as an operator uses them.
#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <thread>
#include <vector>

#include "cli/CommandKit.h"

namespace {

using namespace almanac::test;
using namespace std::chrono_literals;

// The example, collecting every second.
class LocalMachine : public Command {
  protected:
    void SetUp() override {
        Command::SetUp();
        namespace fs = std::filesystem;
        for (const char* directory : {"data", "data/config", "files"}) {
            fs::create_directory(data_.path(directory));
            fs::permissions(data_.path(directory), fs::perms::owner_all);
        }
        writeFile(data_.path("data/config/ho.toml"),
                  "[AGENT]\nCDP_DP_CACHE_TTL = 1\n[[DIR]]\nid = \"one\"\nDIRECTORY = \"" + data_.path("files") + "\"\n");
        writeFile(data_.path("files/small"), "1");
        writeFile(data_.path("files/large one"), std::string(5000, 'x'));
        writeFile(data_.path("files/middle"), std::string(300, 'x'));
        ASSERT_TRUE(startExample());
    }
    std::string rowOf(pid_t pid) {
        const Outcome o = almanac("show Processes -o json --filter 'PID = " + std::to_string(pid) + "'");
        EXPECT_EQ(o.status, 0) << o.err;
        return o.out;
    }
};

// A child that burns a processor and writes to a file, until it is told to end.
class Load {
  public:
    explicit Load(const std::string& file) : pid_(fork()) {
        if (pid_ != 0) return;
        const int fd = open(file.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
        const std::vector<char> block(1 << 20, 'x');
        for (;;) {
            if (pwrite(fd, block.data(), block.size(), 0) < 0) _exit(1);
            fdatasync(fd);
            for (volatile long i = 0; i < 20000000;) {
                const long next = i + 1;
                i = next;
            }
        }
    }
    ~Load() {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    pid_t pid() const { return pid_; }

  private:
    pid_t pid_;
};

// What the kernel has counted of a process: ticks in user and system mode, and bytes written.
long ticksOf(pid_t pid) {
    const std::string stat = readFile("/proc/" + std::to_string(pid) + "/stat");
    long user = 0, system = 0;
    std::sscanf(stat.c_str() + stat.rfind(')') + 2, "%*c %*d %*d %*d %*d %*d %*u %*u %*u %*u %*u %ld %ld", &user, &system);
    return user + system;
}

TEST_F(LocalMachine, RatesOfAProcessFollowItsLoad) {
    const Load load(data_.path("written"));
    rowOf(load.pid());  // the first collection, from which rates count
    const long ticks = ticksOf(load.pid());
    const long written = numberBehind(readFile("/proc/" + std::to_string(load.pid()) + "/io"), "\nwrite_bytes: ");
    const auto start = std::chrono::steady_clock::now();
    std::this_thread::sleep_for(3200ms);
    const std::string row = rowOf(load.pid());
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    const double percent = static_cast<double>(ticksOf(load.pid()) - ticks) / seconds / static_cast<double>(sysconf(_SC_NPROCESSORS_ONLN));
    // Whole seconds divide the growth, so a rate may be off by the part of a second at each end.
    EXPECT_GT(percent, 10.0);
    EXPECT_NEAR(static_cast<double>(numberBehind(row, "\"CPU_Percent\":")), percent, percent * 0.4 + 2) << row;
    const double rate = static_cast<double>(numberBehind(readFile("/proc/" + std::to_string(load.pid()) + "/io"), "\nwrite_bytes: ") - written) / seconds;
    EXPECT_NEAR(static_cast<double>(numberBehind(row, "\"Written_Bytes_Per_Second\":")), rate, rate * 0.4 + 1) << row;
    EXPECT_EQ(numberBehind(row, "\"Parent_PID\":"), getpid());
    EXPECT_EQ(numberBehind(row, "\"Threads\":"), numberBehind(readFile("/proc/" + std::to_string(load.pid()) + "/status"), "\nThreads:"));
    EXPECT_GT(numberBehind(row, "\"Resident_KB\":"), 0);
}

TEST_F(LocalMachine, AvailabilityTellsWhatRunsAndWhatWorks) {
    const std::string rows = almanac("show Availability -o json").out;
    const std::size_t test = rows.find("\"Application_Component\":\"Name resolution\"");
    const std::size_t agent = rows.find("\"Application_Component\":\"Agent\"");
    ASSERT_NE(test, std::string::npos) << rows;
    ASSERT_NE(agent, std::string::npos) << rows;
    EXPECT_LT(test, agent);
    EXPECT_NE(rows.substr(test, agent - test).find("\"Functionality_Test_Message\":\"Names are resolved.\""), std::string::npos) << rows;
    EXPECT_EQ(numberBehind(rows.substr(test), "\"Status\":"), 4);
    const std::string row = rows.substr(agent);
    EXPECT_EQ(numberBehind(row, "\"Status\":"), 1);
    EXPECT_NE(row.find("\"Full_Name\":\"almanacd\""), std::string::npos) << row;
}

TEST_F(LocalMachine, ActionsRunAndLeaveTheirRows) {
    const Outcome list = almanac("actions");
    EXPECT_NE(list.out.find("largest_files"), std::string::npos) << list.out;
    EXPECT_NE(list.out.find("SHUTDOWN"), std::string::npos);
    EXPECT_NE(list.err.find("free_text = true"), std::string::npos) << list.err;

    const std::string files = data_.path("files");
    const Outcome two = almanac("act Largest_Files DIRECTORY='" + files + "' COUNT=2");
    EXPECT_EQ(two.status, 0) << two.err;
    EXPECT_EQ(two.out, "5000 " + files + "/large one\n300 " + files + "/middle\n");
    EXPECT_EQ(two.err, "return code 0: Done.\n");
    const std::string table = almanac("show Take_Action_Status -o csv -c TSKNAME,TSKINST,TSKOUTP,TSKID,TSKAPRC,TSKMSGE,TSKSBND,TSKOWNR").out;
    EXPECT_NE(table.find("Largest files,1,5000 " + files + "/large one,"), std::string::npos) << table;
    EXPECT_NE(table.find("Largest files,2,300 " + files + "/middle,"), std::string::npos) << table;
    EXPECT_NE(table.find(",0,Done.,No value,"), std::string::npos) << table;

    const Outcome nowhere = almanac("act largest_files DIRECTORY=/no/such/place");
    EXPECT_EQ(nowhere.status, 1);
    EXPECT_EQ(nowhere.err, "return code 9: There is no such directory.\n");
    for (const char* literal : {"$(touch made)", "`touch made`", "\"; touch made; \"", "COUNT", "${HOME}", "\\"}) {
        const Outcome o = almanac("act largest_files COUNT='; touch made;' DIRECTORY='" + files + "/" + literal + "'");
        EXPECT_EQ(o.status, 1) << literal;
        EXPECT_NE(o.err.find("There is no such directory."), std::string::npos) << literal << o.err;
    }
    EXPECT_FALSE(std::filesystem::exists(source_ + "/examples/host/made"));
    const Outcome bracket = almanac("act largest_files 'DIRECTORY=a]b'");
    EXPECT_EQ(bracket.status, 2);
    EXPECT_NE(bracket.err.find("DIRECTORY"), std::string::npos) << bracket.err;

    const Outcome text = almanac("act -c 'touch made'");
    EXPECT_EQ(text.status, 1);
    EXPECT_NE(text.err.find("free_text"), std::string::npos) << text.err;
    EXPECT_EQ(almanac("act largest_flies").err, "almanac: no action has the name 'largest_flies', did you mean 'largest_files'?\n");
    EXPECT_NE(readFile(data_.path("data/actions.log")).find("\"event\":\"finished\",\"number\":1,"), std::string::npos);
}

TEST_F(LocalMachine, TheAgentsOwnCommandsComeThroughTheSameDoor) {
    const Outcome added = almanac("act watch_directory NAME=two PLACE='" + data_.path("files") + "'");
    EXPECT_EQ(added.status, 0) << added.err;
    EXPECT_NE(almanac("nodes").out.find("HO:two:DIR"), std::string::npos);
    EXPECT_NE(readFile(data_.path("data/config/ho.toml")).find("id = \"two\""), std::string::npos);
    const Outcome again = almanac("act -c 'ADDCONFIG[DIR:two][DIRECTORY=/tmp]'");
    EXPECT_EQ(again.status, 1);
    EXPECT_NE(again.err.find("return code 31"), std::string::npos) << again.err;
    EXPECT_EQ(almanac("act -c 'REMOVECONFIG[DIR:two]'").status, 0);
    EXPECT_EQ(almanac("nodes").out.find("HO:two:DIR"), std::string::npos);
    const Outcome bare = almanac("act ADDCONFIG");
    EXPECT_NE(bare.err.find("return code 38: No command arguments were specified."), std::string::npos) << bare.err;
    const Outcome node = almanac("act largest_files COUNT=1 --node HO:one:DIR -o json");
    EXPECT_EQ(node.status, 0) << node.err;
    EXPECT_NE(almanac("show Take_Action_Status -o csv -c TSKORGN,TSKSBND").out.find("HO:one:DIR,one"), std::string::npos);

    EXPECT_EQ(almanac("act shutdown").err, "return code 0: Shutting down...\n");
    const auto start = std::chrono::steady_clock::now();
    while (almanac("tables").status == 0 && std::chrono::steady_clock::now() - start < 20s) std::this_thread::sleep_for(100ms);
    const auto took = std::chrono::steady_clock::now() - start;
    EXPECT_GT(took, 4s);
    EXPECT_LT(took, 12s);
}

}  // namespace
