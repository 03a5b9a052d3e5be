// A root of proc(5) in a scratch directory, with processes as the kernel shows them.
#pragma once

#include <sys/stat.h>

#include <filesystem>
#include <iterator>
#include <string>

#include "foundation/Corrections.h"
#include "host/Scratch.h"
#include "host/base/Trace.h"

namespace almanac::test {

// What one process shows; each text may be replaced as a whole.
struct FakeProcess {
    int pid = 1;
    std::string name = "worker";
    int ppid = 1;
    unsigned long utime = 0, stime = 0;           // fields 14 and 15
    unsigned long tailUser = 0, tailSystem = 0;   // fields 42 and 43
    unsigned long majorFaults = 0;
    unsigned long startTime = 0;                  // ticks since boot
    long threads = 1;
    unsigned long vmSize = 4096, vmRss = 1024;    // KB
    long long readBytes = 0, writeBytes = 0;
    std::string commandLine = std::string("/usr/bin/worker\0-v\0", 19);

    std::string stat() const {
        const auto n = [](auto v) { return std::to_string(v) + " "; };
        return n(pid) + "(" + name + ") S " + n(ppid) + "5 6 7 8 4194304 100 200 " + n(majorFaults) + "0 " + n(utime) + n(stime) +
               "3 4 20 0 " + n(threads) + "0 " + n(startTime) + n(vmSize * 1024) + n(vmRss / 4) +
               "18446744073709551615 11 12 13 14 15 0 0 0 0 16 17 18 17 3 0 0 " + n(tailUser) + n(tailSystem) +
               "0 94076736891952 94076736893568 94077285003264 1 2 3 4 0\n";
    }
    std::string statm() const { return std::to_string(vmSize / 4) + " 420 392 5 0 123 0\n"; }
    // As Linux 6 writes it; the lines between the ids and the memory in `between`.
    std::string status(const std::string& between = "FDSize:\t64\nGroups:\t0 \nNStgid:\t1\nNSpid:\t1\nNSpgid:\t1\nNSsid:\t1\n"
                                                    "Kthread:\t0\nVmPeak:\t    9999 kB\n") const {
        const auto kb = [](const char* label, unsigned long v) { return std::string(label) + "\t" + std::to_string(v) + " kB\n"; };
        return "Name:\t" + name + "\nUmask:\t0022\nState:\tS (sleeping)\nTgid:\t1\nNgid:\t0\nPid:\t" + std::to_string(pid) + "\nPPid:\t" +
               std::to_string(ppid) + "\nTracerPid:\t0\nUid:\t0\t1\t2\t7654321\nGid:\t0\t1\t2\t7654321\n" + between +
               kb("VmSize:", vmSize) + kb("VmLck:", 1) + "VmPin:\t0 kB\nVmHWM:\t1 kB\n" + kb("VmRSS:", vmRss) + "RssAnon:\t1 kB\n" +
               kb("VmData:", 2) + kb("VmStk:", 3) + kb("VmExe:", 4) + kb("VmLib:", 5) + "VmPTE:\t1 kB\nThreads:\t" +
               std::to_string(threads) + "\nSigQ:\t0/1\n";
    }
    std::string io() const {
        return "rchar: 1\nwchar: 2\nsyscr: 3\nsyscw: 4\nread_bytes: " + std::to_string(readBytes) + "\nwrite_bytes: " +
               std::to_string(writeBytes) + "\ncancelled_write_bytes: 9\n";
    }
};

class FakeProc {
  public:
    FakeProc() { uptime("1000.99 5.00\n"); }
    std::string root() const { return scratch_.path(); }
    std::string path(int pid, const std::string& file = "") const {
        return scratch_.path(std::to_string(pid)) + (file.empty() ? "" : "/" + file);
    }
    void uptime(const std::string& text) const { host::test::writeFile(scratch_.path("uptime"), text); }
    void put(const FakeProcess& p) const {
        std::filesystem::create_directories(path(p.pid));
        put(p.pid, "stat", p.stat());
        put(p.pid, "statm", p.statm());
        put(p.pid, "status", p.status());
        put(p.pid, "io", p.io());
        put(p.pid, "cmdline", p.commandLine);
    }
    void put(int pid, const std::string& file, const std::string& text) const { host::test::writeFile(path(pid, file), text); }
    void remove(int pid, const std::string& file = "") const {
        std::error_code ignored;
        std::filesystem::remove_all(path(pid, file), ignored);
    }

  private:
    host::test::Scratch scratch_;
};

// Threads of this process; a sanitizer may have one of its own.
inline long ownThreads() {
    const std::filesystem::directory_iterator tasks("/proc/self/task");
    return static_cast<long>(std::distance(begin(tasks), end(tasks)));
}

// Corrections as named while it lives.
class WithCorrections {
  public:
    explicit WithCorrections(const std::string& names) : variable_("CDP_CORRECTIONS", names) { reloadCorrections(); }
    ~WithCorrections() {
        ZSV1_PutEnv("CDP_CORRECTIONS=");
        reloadCorrections();
    }

  private:
    host::test::Variable variable_;
};

// What is traced while it lives.
class Traced {
  public:
    explicit Traced(const std::string& selection) {
        host::configureTraceLog(scratch_.path("trace-.log"));
        host::configureTrace(selection, nullptr);
    }
    ~Traced() {
        host::configureTrace("ERROR", nullptr);
        host::configureTraceLog("");
    }
    std::string text() const {
        std::string all;
        for (const auto& entry : std::filesystem::directory_iterator(scratch_.path())) all += host::test::readFile(entry.path());
        return all;
    }
    bool has(const std::string& part) const { return text().find(part) != std::string::npos; }

  private:
    host::test::Scratch scratch_;
};

}  // namespace almanac::test
