// ProcReader: reads the files of one process after the other into a scratch record.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "providers/local/proctable/IdNames.h"
#include "providers/local/proctable/ProcList.h"
#include "providers/local/proctable/ProcText.h"

class ProcReader {
  public:
    static constexpr std::size_t kCommandLine = 2047;

    // `root` as text and open; both outlive this. `figures` as wanted; what the rules need is added.
    ProcReader(const char* root, int rootDescriptor, unsigned figures);

    // Each throws a CException where a read fails, and leaves in the record what was read until then.
    void retrieveStatusInfo(const char* pid);
    void retrieveMemInfo(const char* pid);

    // Whether nothing that shows is lost where the files of a process without a command line, but for those that
    // readCarriedOver reads, are left alone.
    bool commandLineDecides() const;
    // Reads what a process that is not shown may leave to the next one.
    void readCarriedOver(const char* pid);
    bool wants(unsigned figure) const { return (figures_ & figure) != 0; }

    const procstat& scratch() const { return scratch_; }
    const procstat& scratchWithCommandLine() {
        scratch_.cmdline = commandLine_;
        return scratch_;
    }
    // Of the process just read, terminated; empty unless asked for.
    std::string_view commandLine() const { return {commandLine_, commandLineSize_}; }
    std::string pathOf(const char* pid) const { return std::string(root_) + "/" + pid; }

  private:
    static constexpr std::size_t kFirstBuffer = 16ul * 1024;
    static constexpr std::size_t kLargestFile = 1024ul * 1024;
    enum class Fetch { Done, NotOpened, NotRead };

    void start(const char* pid);
    Fetch fetch(const char* file, std::size_t limit);
    bool isGone() const;
    [[noreturn]] void fail(const char* gone, const char* failed) const;
    void readStat();
    void readStatM();
    void readStatus();
    void readIO();
    void readCmdLine();
    std::string_view text() const { return {buffer_.get(), size_}; }

    const char* root_;
    int rootDescriptor_;
    unsigned figures_;
    StatRule statRule_;
    StatusRule statusRule_;
    IoRule ioRule_;
    procstat scratch_{};
    IdNames names_;
    std::unique_ptr<char[]> buffer_;
    std::size_t capacity_ = kFirstBuffer;
    std::size_t size_ = 0;
    const char* pid_ = "";
    bool memoryRecord_ = false;
    bool anythingRead_ = false;  // of this process
    char commandLine_[kCommandLine + 1] = "";
    std::size_t commandLineSize_ = 0;
};
