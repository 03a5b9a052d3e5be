// ProcList: one snapshot of the Linux process table (proc(5)), taken at construction. The base of the sources that show
// processes. Nothing is kept between snapshots; histories live in ProcessRates.
//
// Kept: the scratch record is never cleared between processes, so what one process does not supply (an `io` file that
// cannot be read, say) is the value of the process read before it. The first process of a snapshot starts from zeros.
#pragma once

#include <string>

#include "providers/local/proctable/FileDescriptor.h"
#include "providers/local/proctable/MappedBlocks.h"

class ProcReader;
class ProcVisitor;

// One process. The texts may lack a terminator where their width is used up.
struct procstat {
    long cutime;  // ticks, as cstime, utime, stime
    long cstime;
    long priority;
    long timeout;
    long nice;
    long rss;  // pages
    long it_real_value;
    long statm_size;  // pages, as the other statm figures
    long statm_resident;
    long statm_share;
    long statm_text;
    long statm_lib;
    long statm_data;
    long nlwp;  // threads; -1: the kernel gives none
    long statm_dirty;
    unsigned long vm_size;  // KB, as the other vm figures
    unsigned long vm_lock;
    unsigned long vm_rss;
    unsigned long vm_data;
    unsigned long vm_stack;
    unsigned long vm_exe;
    unsigned long vm_lib;
    unsigned long vsize;  // bytes
    unsigned long rss_rlim;
    unsigned long flags;
    unsigned long min_flt;
    unsigned long maj_flt;
    unsigned long cmin_flt;
    unsigned long cmaj_flt;
    unsigned long nswap;
    unsigned long cnswap;
    unsigned long utime;
    unsigned long stime;
    unsigned long start_code;
    unsigned long end_code;
    unsigned long start_stack;
    unsigned long kstk_esp;
    unsigned long kstk_eip;
    unsigned long start_time;  // ticks since boot
    unsigned long wchan;
    int processor;  // -1: the line does not reach it
    char ruser[16], euser[16], suser[16], fsuser[16];
    char rgroup[16], egroup[16], sgroup[16], fsgroup[16];
    char cmd[64];  // terminated
    int ruid, rgid, euid, egid, suid, sgid, fsuid, fsgid;
    int pid;
    int ppid;
    int pgrp;
    int session;
    int tty;
    int tpgid;
    char state;
    // Read as signed 32-bit values, which wrap past 2 GB. With a figure past that the sign is extended.
    long long rchar, wchar, syscr, syscw, read_bytes, write_bytes;
    // Blanks for the NULs between arguments, 2,047 bytes at most; "[name]" for a process without a command line. Only
    // where the snapshot was asked for it. Kept by the ProcList.
    const char* cmdline;
};

// A failure out of one process's reads. 1: the process is gone. Greater: a read failed.
class CException {
  public:
    CException(const char* message, int number) : message_(message), number_(number) {}
    const char* getErrorMessage() const { return message_; }  // a literal
    int getErrorNo() const { return number_; }

  private:
    const char* message_;
    int number_;
};

class ProcList {
  public:
    enum StatType { kFullRecord = 0, kMemoryRecord = 1 };
    // What a reader of the records wants; a file is read only for figures that are wanted, or for a rule that shows in
    // which processes are taken. The process's number is always there.
    enum Figures : unsigned {
        kStat = 1,      // the figures of `stat`
        kStatm = 2,     // of `statm`
        kStatus = 4,    // of `status`
        kNames = 8,     // the names of users and groups (implies kStatus)
        kIo = 16,       // of `io`
        kCmdLine = 32,  // cmdline
        kAll = 63,
    };

    // Takes the snapshot; never throws. `root` is where proc(5) is mounted, without a slash at its end.
    explicit ProcList(StatType type, unsigned figures = kAll, const char* root = "/proc");
    // Keeps no record, but hands that of each process with a command line to the visitor as it is read.
    ProcList(unsigned figures, const char* root, ProcVisitor& visitor);
    ProcList(const ProcList&) = delete;
    ProcList& operator=(const ProcList&) = delete;
    ~ProcList();

    // Whole seconds; 0 if `uptime` did not read.
    unsigned long getSecondsSinceBoot() const { return secondsSinceBoot_; }
    void resetCursor() { cursor_ = 0; }
    // The next record, or null past the end. With no records at all an error is traced.
    procstat* getNextEntry();
    // The record of that process, null if there is none. Moves the cursor on for each record looked at.
    procstat* getEntry(int pid);
    int count() const { return count_; }
    // As the free function, below the root of this snapshot, which is open already.
    char* getCommandLine(const procstat* process, char* buffer) const;

  private:
    ProcList(const char* root, StatType type);
    template <class Take>
    void createDataList(const Take& take);
    bool takeProcess(ProcReader& reader, const char* pid);
    bool readProcess(ProcReader& reader, const char* pid);
    bool visitProcess(ProcReader& reader, const char* pid, ProcVisitor& visitor, char* commandLine);
    bool append(const ProcReader& reader);
    procstat* at(unsigned index) const;

    StatType type_;
    int count_ = 0;
    unsigned cursor_ = 0;
    unsigned long secondsSinceBoot_ = 0;
    std::string root_;
    FileDescriptor rootDescriptor_;
    MappedBlocks records_;
    MappedBlocks commandLines_;
};

// Takes records as they are read. They are the reader's, and good until the operation returns.
class ProcVisitor {
  public:
    virtual ~ProcVisitor() = default;
    // A record, in front of its command line; called for a process without one too. Only with kCmdLine.
    virtual void lookAt(const procstat&) {}
    // A record and the command line as getCommandLine gives it, in a buffer of kCommandLineSize.
    virtual void visit(const procstat& record, char* commandLine) = 0;
    unsigned long secondsSinceBoot = 0;  // set before the first of them
};

// /proc/<pid>/cmdline, read afresh, 32,767 bytes at most, into a buffer of kCommandLineSize. NULs in front of the last
// byte become blanks; the text is terminated. Returns the buffer, or null, traced, if the file cannot be opened or is empty.
inline constexpr int kCommandLineSize = 32768;
char* getCommandLine(const procstat* process, char* buffer, const char* root = "/proc");
// What stands in front of the first blank, 1,023 bytes at most, into a buffer of kFullNameSize; returns the buffer.
inline constexpr int kFullNameSize = 1024;
char* getFullName(const char* commandLine, char* buffer);
// Behind the last '/' in front of the first blank, or of the end; the text itself if there is no '/' there.
char* getBaseName(char* text);
