// Snapshots of a fake root: what is taken, what carries over, what vanishes on the way.
#include "providers/local/proctable/ProcList.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <thread>
#include <vector>

#include "providers/local/proctable/FakeProc.h"

namespace {

using namespace almanac::test;
using testing::HasSubstr;

std::string text16(const char (&field)[16]) { return {field, strnlen(field, sizeof field)}; }

// The processes of a snapshot by their numbers.
std::string pids(ProcList& list) {
    std::vector<int> all;
    for (list.resetCursor(); const procstat* p = list.getNextEntry();) all.push_back(p->pid);
    std::sort(all.begin(), all.end());
    std::string text;
    for (const int pid : all) text += std::to_string(pid) + ",";
    return text;
}

FakeProcess process(int pid) {
    FakeProcess p;
    p.pid = pid;
    return p;
}

}  // namespace

TEST(ProcList, TakesEveryFigureOfAProcess) {
    const WithCorrections corrections("all");
    FakeProc proc;
    FakeProcess p = process(42);
    p.utime = 1234;
    p.stime = 567;
    p.tailUser = 99;
    p.startTime = 4200;
    p.readBytes = -1;
    p.writeBytes = 4294967297;
    proc.put(p);
    ProcList list(ProcList::kFullRecord, ProcList::kAll, proc.root().c_str());
    EXPECT_EQ(list.getSecondsSinceBoot(), 1000u);
    ASSERT_EQ(list.count(), 1);
    const procstat* r = list.getNextEntry();
    ASSERT_TRUE(r);
    EXPECT_EQ(list.getNextEntry(), nullptr);
    EXPECT_EQ(list.getEntry(42), r);
    EXPECT_EQ(list.getEntry(41), nullptr);
    EXPECT_EQ(r->pid, 42);
    EXPECT_EQ(r->ppid, 1);
    EXPECT_STREQ(r->cmd, "worker");
    EXPECT_EQ(r->state, 'S');
    EXPECT_EQ(r->tpgid, 8);
    EXPECT_EQ(r->min_flt, 100u);
    EXPECT_EQ(r->cmin_flt, 200u);
    EXPECT_EQ(r->utime, 1234u);
    EXPECT_EQ(r->stime, 567u);
    EXPECT_EQ(r->cutime, 3);
    EXPECT_EQ(r->cstime, 4);
    EXPECT_EQ(r->start_time, 4200u);
    EXPECT_EQ(r->vsize, 4096u * 1024);
    EXPECT_EQ(r->rss, 256);
    EXPECT_EQ(r->rss_rlim, ~0ul);
    EXPECT_EQ(r->kstk_eip, 15u);
    EXPECT_EQ(r->wchan, 16u);
    EXPECT_EQ(r->cnswap, 18u);
    EXPECT_EQ(r->processor, 3);
    EXPECT_EQ(r->statm_size, 1024);
    EXPECT_EQ(r->statm_data, 123);
    EXPECT_EQ(r->vm_size, 4096u);
    EXPECT_EQ(r->vm_rss, 1024u);
    EXPECT_EQ(r->vm_lib, 5u);
    EXPECT_EQ(r->nlwp, 1);
    EXPECT_EQ(r->euid, 1);
    EXPECT_EQ(r->fsgid, 7654321);
    EXPECT_EQ(text16(r->ruser), "root");
    EXPECT_EQ(text16(r->rgroup), "root");
    EXPECT_EQ(text16(r->fsuser), "7654321") << "an id without a name";
    EXPECT_EQ(text16(r->fsgroup), "7654321");
    EXPECT_EQ(r->syscw, 4);
    EXPECT_EQ(r->read_bytes, -1);
    EXPECT_EQ(r->write_bytes, 4294967297) << "64 bits";
    EXPECT_STREQ(r->cmdline, "/usr/bin/worker -v ");
}

TEST(ProcList, OnlyDirectoriesOfDigitsAndTheSetOfFiguresAsked) {
    const WithCorrections corrections("all");
    FakeProc proc;
    proc.put(process(7));
    std::filesystem::create_directories(proc.root() + "/self");
    for (const char* file : {"stat", "status", "io", "statm", "cmdline"}) proc.remove(7, file);
    ProcList none(ProcList::kFullRecord, 0, proc.root().c_str());
    ASSERT_EQ(none.count(), 1) << "no file is needed for the number alone";
    EXPECT_EQ(none.getNextEntry()->pid, 7);
    const Traced traced("NONE");
    for (const unsigned figure : {ProcList::kStat, ProcList::kStatm, ProcList::kStatus, ProcList::kNames, ProcList::kCmdLine}) {
        EXPECT_EQ(ProcList(ProcList::kFullRecord, figure, proc.root().c_str()).count(), 0) << figure;
    }
    EXPECT_EQ(ProcList(ProcList::kFullRecord, ProcList::kIo, proc.root().c_str()).count(), 1) << "io may be closed";
    EXPECT_EQ(ProcList(ProcList::kMemoryRecord, ProcList::kIo | ProcList::kCmdLine, proc.root().c_str()).count(), 1);
}

TEST(ProcList, WithoutARoot) {
    const Traced traced("ERROR");
    ProcList list(ProcList::kFullRecord, ProcList::kAll, "/no/such/root");
    EXPECT_EQ(list.getSecondsSinceBoot(), 0u);
    EXPECT_EQ(list.getNextEntry(), nullptr);
    EXPECT_EQ(list.getEntry(1), nullptr);
    EXPECT_THAT(traced.text(), HasSubstr("Error in opendir of /no/such/root"));
    EXPECT_THAT(traced.text(), HasSubstr("Cannot retrieve ProcList rows - error in setting up list"));
}

TEST(ProcList, OfTheLiveMachine) {
    for (const char* corrections : {"", "all"}) {
        const WithCorrections names(corrections);
        ProcList list(ProcList::kFullRecord);
        const procstat* self = list.getEntry(getpid());
        ASSERT_TRUE(self);
        EXPECT_EQ(self->ppid, getppid());
        EXPECT_EQ(self->ruid, static_cast<int>(getuid()));
        EXPECT_STREQ(self->cmd, "test_proctable");
        EXPECT_EQ(self->nlwp, ownThreads());
        EXPECT_GT(list.getSecondsSinceBoot(), 0u);
    }
}

// The process ends while one of its files is read; the one that is read next finds it gone.
TEST(ProcList, AProcessThatEndsAtEachOfTheReads) {
    const WithCorrections corrections("all");
    struct Case {
        const char* readWhileItEnds;
        const char* text;
        const char* message;  // null: it is taken all the same
    };
    const FakeProcess p = process(100);
    const std::string stat = p.stat(), statm = p.statm(), status = p.status(), io = p.io();
    const Case cases[] = {{"stat", stat.c_str(), "Error - Warn - stat failed; directory may no longer exist ...continuing"},
                          {"statm", statm.c_str(), "Error - Warn - stat failed; directory may no longer exist ...continuing"},
                          {"status", status.c_str(), "Error - Warn - stat failed; directory may no longer exist ...continuing"},
                          {"io", io.c_str(), "Error - Warn - process does not exist ...continuing"},
                          {"cmdline", "x", nullptr}};
    for (const Case& c : cases) {
        FakeProc proc;
        proc.put(p);
        proc.put(process(200));
        proc.remove(100, c.readWhileItEnds);
        const std::string fifo = proc.path(100, c.readWhileItEnds);
        ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
        std::thread kernel([&] {
            const int writer = ::open(fifo.c_str(), O_WRONLY);  // waits for the reader
            proc.remove(100);
            EXPECT_GT(::write(writer, c.text, std::strlen(c.text)), 0);
            ::close(writer);
        });
        const Traced traced("ERROR");
        ProcList list(ProcList::kFullRecord, ProcList::kAll, proc.root().c_str());
        kernel.join();
        EXPECT_EQ(pids(list), c.message ? "200," : "100,200,") << c.readWhileItEnds;
        if (c.message) {
            EXPECT_THAT(traced.text(), HasSubstr("Error - cannot retrieve data for < " + proc.path(100) + " >")) << c.readWhileItEnds;
            EXPECT_THAT(traced.text(), HasSubstr(c.message)) << c.readWhileItEnds;
        } else {
            EXPECT_EQ(traced.text(), "");
        }
    }
}

TEST(ProcList, AProcessThatIsGoneBeforeItsFirstReadIsLeftOutQuietly) {
    FakeProc proc;
    proc.put(process(200));
    std::filesystem::create_symlink(proc.path(999), proc.path(100));  // a name that leads nowhere
    for (const char* corrections : {"", "all"}) {
        const WithCorrections names(corrections);
        {
            const Traced traced("ERROR");
            ProcList list(ProcList::kFullRecord, ProcList::kAll, proc.root().c_str());
            EXPECT_EQ(pids(list), "200,");
            EXPECT_EQ(traced.text(), "");
        }
        const Traced traced("ERROR STATE FLOW");
        ProcList list(ProcList::kMemoryRecord, ProcList::kAll, proc.root().c_str());
        EXPECT_EQ(pids(list), "200,");
        EXPECT_THAT(traced.text(), HasSubstr("Warn - stat(" + proc.path(100) + ") failed; directory may not exit"));
        EXPECT_THAT(traced.text(), HasSubstr("Error - Warn - stat failed; directory may no longer exist ...continuing"));
        ProcList full(ProcList::kFullRecord, ProcList::kAll, proc.root().c_str());
        EXPECT_THAT(traced.text(), HasSubstr("Warn - Directory no longer exists < " + proc.path(100) + " >"));
    }
}

// Kept: what a process does not supply is the value of the one read before it.
TEST(ProcList, FiguresCarryOver) {
    FakeProc proc;
    for (const int pid : {1, 2, 3}) {
        FakeProcess p = process(pid);
        p.readBytes = 1000;
        p.utime = p.tailUser = 77;
        if (pid == 2) p.name = "a b";
        proc.put(p);
        if (pid == 2) proc.remove(pid, "io");
    }
    for (const char* corrections : {"", "all"}) {
        const WithCorrections names(corrections);
        ProcList list(ProcList::kFullRecord, ProcList::kAll, proc.root().c_str());
        ASSERT_EQ(list.count(), 3);
        const procstat* before = nullptr;
        for (const procstat* p = list.getNextEntry(); p; before = p, p = list.getNextEntry()) {
            if (p->pid != 2) continue;
            EXPECT_EQ(p->read_bytes, before && !*corrections ? 1000 : 0);
            EXPECT_EQ(p->utime, *corrections ? 77u : before ? 77u : 0u);
            EXPECT_STREQ(p->cmd, "a");
        }
    }
}

TEST(ProcList, CommandLinesOfTheSnapshot) {
    const WithCorrections corrections("all");
    FakeProc proc;
    struct Case {
        std::string bytes, text;
    } cases[] = {{"", "[worker]"},
                 {std::string("a\0b\0", 4), "a b "},
                 {std::string(2048, 'x'), std::string(2047, 'x')},
                 {std::string(65536, 'x'), std::string(2047, 'x')}};
    for (const Case& c : cases) {
        FakeProcess p = process(8);
        p.commandLine = c.bytes;
        proc.put(p);
        ProcList list(ProcList::kFullRecord, ProcList::kAll, proc.root().c_str());
        EXPECT_EQ(std::string(list.getNextEntry()->cmdline), c.text);
    }
    for (int pid = 100; pid < 1000; ++pid) {
        FakeProcess p = process(pid);
        p.commandLine = std::string(2000, 'c') + std::to_string(pid);
        proc.put(p);
    }
    ProcList many(ProcList::kFullRecord, ProcList::kAll, proc.root().c_str());
    ASSERT_EQ(many.count(), 901);
    for (const procstat* p = many.getNextEntry(); p; p = many.getNextEntry()) {
        if (p->pid < 100) continue;
        EXPECT_EQ(std::string(p->cmdline), std::string(2000, 'c') + std::to_string(p->pid));
    }
    EXPECT_EQ(many.getEntry(999)->pid, 999);
}

// Many groups make a line that no buffer of usual size holds.
TEST(ProcList, AStatusFileThatGrows) {
    FakeProc proc;
    const FakeProcess p = process(9);
    proc.put(p);
    proc.put(9, "status", p.status("Groups:\t" + std::string(200000, '8') + "\n"));
    {
        const WithCorrections corrections("all");
        ProcList list(ProcList::kFullRecord, ProcList::kStatus, proc.root().c_str());
        ASSERT_EQ(list.count(), 1);
        EXPECT_EQ(list.getNextEntry()->vm_size, 4096u);
    }
    const WithCorrections none("");
    const Traced traced("ERROR");
    EXPECT_EQ(ProcList(ProcList::kFullRecord, 0, proc.root().c_str()).count(), 0) << "dropped, whatever is asked for";
    EXPECT_THAT(traced.text(), HasSubstr("Error - Warn - getline failed for status file ...continuing"));
}
