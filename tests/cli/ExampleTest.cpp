// The example agent: its tables against the machine it runs on.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <sstream>
#include <thread>
#include <vector>

#include "cli/CommandKit.h"

namespace {

using namespace almanac::test;
using namespace std::chrono_literals;

class Example : public Command {};

TEST_F(Example, TellsTheTruthAboutThisMachine) {
    ASSERT_TRUE(startExample());
    const Outcome tables = almanac("tables");
    for (const char* table : {"File_Systems", "Memory", "Load", "Network_Interfaces", "Sockets", "Packages", "Performance_Object_Status"}) {
        EXPECT_NE(tables.out.find(table), std::string::npos) << table;
    }
    const Outcome memory = almanac("show memory --output json");
    ASSERT_EQ(memory.status, 0) << memory.err;
    EXPECT_EQ(numberBehind(memory.out, "\"Total_KB\":"), numberBehind(readFile("/proc/meminfo"), "MemTotal:"));
    const Outcome root = almanac("show File_Systems --filter \"Mount_Point = '/'\" --columns Mount_Point,Size_KB --output csv");
    ASSERT_EQ(root.status, 0) << root.err;
    const long size = std::atol(shell("df -k --output=size / | tail -n 1").out.c_str());
    if (root.out.find("\n/,") != std::string::npos) {  // a container's root may be no local file system
        EXPECT_EQ(numberBehind(root.out, "\n/,"), size);
    }
    const Outcome status = almanac("status");
    EXPECT_NE(status.out.find("OBJECT_ACTIVE"), std::string::npos) << status.out;
    EXPECT_NE(status.out.find("never"), std::string::npos) << "Packages has not been asked for";
    for (const char* how : {"run --daemon '", "run --set A=1 '"}) {
        const Outcome again = almanac(how + example() + "'");
        EXPECT_EQ(again.status, 78) << "a second agent in the same data directory";
        EXPECT_NE(again.err.find("\nalmanac: an agent runs already in " + data_.path("data") + " (pid "), std::string::npos) << again.err;
    }
    EXPECT_EQ(almanac("stop").status, 0);
    EXPECT_EQ(almanac("stop").status, 1);
    EXPECT_EQ(almanac("tables").status, 1);
    ASSERT_TRUE(startExample()) << "the data directory of the first one serves the second";
}

TEST_F(Example, ReadsOddFileSystems) {
    writeFile(data_.path("df"), "#!/bin/sh\ncat <<'E'\n"
                                "Filesystem     Type  1K-blocks Used Avail Use%   Inodes IUse% Mounted on\n"
                                "/dev/sda1      ext4        400   40   360  10%      100   25% /\n"
                                "dev  name      tmpfs      4096    0  4096   0%      -       - /mnt/two  blanks|bar 9 9 9 9% 9 9% x\n"
                                "host:/b        vfat          0    0     0    -       0      - /empty\nE\n");
    ASSERT_EQ(shell("chmod +x '" + data_.path("df") + "'").status, 0);
    const Outcome o = shell("PATH='" + data_.path("") + "':$PATH sh '" + source_ + "/examples/host/bin/filesystems.sh'");
    EXPECT_EQ(o.out, "/|/dev/sda1|ext4|400|40|360|10|100|25\n"
                     "/mnt/two  blanks?bar 9 9 9 9% 9 9% x|dev  name|tmpfs|4096|0|4096|0||\n");
}

// Sends so many bytes over the loopback interface, to a listener of its own that stays open.
class Loopback {
  public:
    Loopback() : listener_(socket(AF_INET, SOCK_STREAM, 0)), out_(socket(AF_INET, SOCK_STREAM, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        auto* name = reinterpret_cast<sockaddr*>(&address);
        if (bind(listener_, name, size) != 0 || listen(listener_, 1) != 0 || getsockname(listener_, name, &size) != 0 ||
            connect(out_, name, size) != 0) {
            ADD_FAILURE() << "no loopback connection";
        }
        in_ = accept(listener_, nullptr, nullptr);
    }
    ~Loopback() {
        for (const int fd : {listener_, out_, in_}) close(fd);
    }
    void send(std::size_t bytes) {
        std::thread reader([this, bytes] {
            std::vector<char> buffer(1 << 16);
            for (std::size_t got = 0; got < bytes;) {
                const ssize_t n = ::recv(in_, buffer.data(), buffer.size(), 0);
                if (n <= 0) return;
                got += static_cast<std::size_t>(n);
            }
        });
        const std::vector<char> block(1 << 16, 'x');
        for (std::size_t sent = 0; sent < bytes;) {
            const ssize_t n = ::send(out_, block.data(), std::min(block.size(), bytes - sent), 0);
            if (n <= 0) break;
            sent += static_cast<std::size_t>(n);
        }
        reader.join();
    }

  private:
    int listener_;
    int out_;
    int in_ = -1;
};

// The example with two threads that collect every second, and two directories of the test to watch.
class DerivedExample : public Example {
  protected:
    void SetUp() override {
        Example::SetUp();
        namespace fs = std::filesystem;
        for (const char* directory : {"data", "data/config", "one", "two it's"}) {
            fs::create_directory(data_.path(directory));
            fs::permissions(data_.path(directory), fs::perms::owner_all);
        }
        for (const char* file : {"one/a", "two it's/a", "two it's/b"}) writeFile(data_.path(file), "12345");
        writeFile(data_.path("data/config/ho.toml"),
                  "[AGENT]\nCDP_DP_THREAD_POOL_SIZE = 2\nCDP_DP_REFRESH_INTERVAL = 1\nCDP_DP_INITIAL_COLLECTION_DELAY = 0\n"
                  "[[DIR]]\nid = \"one\"\nDIRECTORY = \"" + data_.path("one") + "\"\n"
                  "[[DIR]]\nid = \"two\"\nDIRECTORY = \"" + data_.path("two it's") + "\"\n");
        ASSERT_TRUE(startExample());
    }
    std::string show(const std::string& arguments) {
        const Outcome o = almanac("show " + arguments);
        EXPECT_EQ(o.status, 0) << arguments << ": " << o.err;
        return o.out;
    }
    std::vector<long> numbers(const std::string& arguments) {
        std::istringstream lines(show(arguments + " -o csv"));
        std::vector<long> found;
        std::string line;
        std::getline(lines, line);
        while (std::getline(lines, line)) found.push_back(std::atol(line.c_str()));
        return found;
    }
};

TEST_F(DerivedExample, RatesFollowAKnownLoad) {
    const std::string columns = "Network_Interfaces --filter \"Interface = 'lo'\" -o json";
    const long before = numberBehind(show(columns), "\"Received_Bytes\":");
    Loopback loopback;
    long sent = 0;
    long rate = 0;
    const auto start = std::chrono::steady_clock::now();
    while (rate < 1000000 && std::chrono::steady_clock::now() - start < 20s) {
        loopback.send(4000000);
        sent += 4000000;
        const std::string row = show(columns);
        rate = numberBehind(row, "\"Received_Bytes_Per_Second\":");
        EXPECT_EQ(numberBehind(row, "\"Bytes_Per_Second\":"), rate + numberBehind(row, "\"Sent_Bytes_Per_Second\":")) << row;
        std::this_thread::sleep_for(100ms);
    }
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now() - start).count();
    EXPECT_GE(rate, 1000000);
    std::this_thread::sleep_for(1500ms);
    const long moved = numberBehind(show(columns), "\"Received_Bytes\":") - before;
    EXPECT_GE(moved, sent);
    EXPECT_LE(rate, moved) << "no second moved more than all " << seconds << " of them";
}

TEST_F(DerivedExample, DerivedTablesAgreeWithTheirSources) {
    const std::vector<long> used = numbers("File_Systems -c Used_Percent");
    ASSERT_FALSE(used.empty());
    EXPECT_EQ(numbers("File_System_Summary -c Maximum"), std::vector<long>{*std::max_element(used.begin(), used.end())});
    EXPECT_EQ(numbers("File_System_Summary -c Minimum"), std::vector<long>{*std::min_element(used.begin(), used.end())});
    const std::string machine = show("Machine -o json");
    EXPECT_EQ(numberBehind(machine, "\"Total_KB\":"), numberBehind(readFile("/proc/meminfo"), "MemTotal:"));
    const double perGb = std::atof(machine.c_str() + machine.find("\"Threads_Per_GB\":") + 17);
    EXPECT_NEAR(perGb, static_cast<double>(numberBehind(machine, "\"Threads\":")) * 1048576 /
                           static_cast<double>(numberBehind(machine, "\"Total_KB\":")), 0.006) << machine;
    Loopback listener;
    std::string listening, filtered;
    for (int i = 0; i < 50 && (i == 0 || listening != filtered || listening.find("tcp,") == std::string::npos); ++i) {
        std::this_thread::sleep_for(100ms);  // sockets of others come and go
        listening = show("Listening_Sockets -o csv -c Protocol,Sockets");
        filtered = show("Sockets -o csv -c Protocol,Sockets --filter \"State = 'LISTEN'\"");
    }
    EXPECT_EQ(listening, filtered);
    EXPECT_NE(listening.find("tcp,"), std::string::npos) << listening;
    const std::string pool = show("Thread_Pool_Status -o json");
    EXPECT_EQ(numberBehind(pool, "\"THPSIZE\":"), 2);
    EXPECT_GT(numberBehind(pool, "\"TPTJOBS\":"), 0);
}

TEST_F(DerivedExample, EachDirectoryIsAManagedSystem) {
    EXPECT_EQ(show("Watched_Directories -o csv -c Subnode_Key,Subnode_MSN"), "Subnode_Key,Subnode_MSN\r\none,HO:one:DIR\r\ntwo,HO:two:DIR\r\n");
    EXPECT_EQ(numbers("Directory_Contents -c Entries"), (std::vector<long>{1, 2}));
    EXPECT_EQ(numbers("Directory_Contents -c Entries --node HO:two:DIR"), std::vector<long>{2});
    EXPECT_EQ(numbers("Directory_Contents -c File_Bytes --node HO:two:DIR"), std::vector<long>{10});
    const std::string nodes = almanac("nodes").out;
    EXPECT_NE(nodes.find("HO:one:DIR"), std::string::npos) << nodes;
    EXPECT_NE(nodes.find("HO:two:DIR"), std::string::npos) << nodes;
}

}  // namespace
