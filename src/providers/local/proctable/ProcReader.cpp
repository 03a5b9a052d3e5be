#include "providers/local/proctable/ProcReader.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "foundation/Corrections.h"
#include "foundation/Trace.h"
#include "providers/local/proctable/CommandText.h"
#include "providers/local/proctable/FileDescriptor.h"

namespace {

constexpr const char* kDirectoryGone = "Warn - stat failed; directory may no longer exist";

}  // namespace

// Each rule of its own is read once, so one snapshot keeps to it. Without the corrections `stat` and `status` can each
// leave a process out, and are read for that.
ProcReader::ProcReader(const char* root, int rootDescriptor, unsigned figures)
    : root_(root),
      rootDescriptor_(rootDescriptor),
      figures_(figures),
      statRule_(correctionIsOn("proc-times") ? StatRule::Fields : StatRule::Tail),
      statusRule_(correctionIsOn("proc-status") ? StatusRule::Names : StatusRule::Order),
      ioRule_(correctionIsOn("proc-io") ? IoRule::Wide : IoRule::Narrow),
      buffer_(new char[kFirstBuffer]) {
    if (statRule_ == StatRule::Tail) figures_ |= ProcList::kStat;
    if (statusRule_ == StatusRule::Order || (figures_ & ProcList::kNames)) figures_ |= ProcList::kStatus;
}

void ProcReader::start(const char* pid) {
    pid_ = pid;
    anythingRead_ = false;
    scratch_.pid = std::atoi(pid);
}

// Reads a file of the process, `limit` bytes of it at most. A read that does not fill the buffer has shown all there is.
ProcReader::Fetch ProcReader::fetch(const char* file, std::size_t limit) {
    size_ = 0;
    const ProcessPath path(pid_, file);
    const FileDescriptor descriptor(::openat(rootDescriptor_, path.text, O_RDONLY | O_CLOEXEC));
    if (!descriptor.isOpen()) return Fetch::NotOpened;
    for (;;) {
        const std::size_t room = std::min(capacity_, limit) - size_;
        const ssize_t got = readOnce(descriptor.get(), buffer_.get() + size_, room);
        if (got < 0) return Fetch::NotRead;
        anythingRead_ = true;
        size_ += static_cast<std::size_t>(got);
        if (static_cast<std::size_t>(got) < room || size_ == limit) return Fetch::Done;
        auto larger = std::make_unique<char[]>(capacity_ * 2);
        std::memcpy(larger.get(), buffer_.get(), size_);
        buffer_ = std::move(larger);
        capacity_ *= 2;
    }
}

bool ProcReader::isGone() const {
    struct stat info;
    return ::fstatat(rootDescriptor_, pid_, &info, 0) != 0;
}

// The reason why a file of the process does not read: the process has ended, or something else.
void ProcReader::fail(const char* gone, const char* failed) const {
    TRACE_MESSAGES();
    if (!isGone()) throw CException(failed, 2);
    if (anythingRead_) throw CException(gone, 2);
    if (memoryRecord_) {
        trace_state("Warn - stat(%s) failed; directory may not exit\n", pathOf(pid_).c_str());
        throw CException(gone, 2);
    }
    trace_flow("Warn - Directory no longer exists < %s >\n", pathOf(pid_).c_str());
    throw CException("Dir no longer exists", 1);
}

// The rules of order leave figures of the process before where a name or a file is unusual; so does an `io` that does not
// read, unless a correction is on.
bool ProcReader::commandLineDecides() const {
    return statRule_ == StatRule::Fields && statusRule_ == StatusRule::Names && !wants(ProcList::kCmdLine);
}

void ProcReader::readCarriedOver(const char* pid) {
    start(pid);
    if (!wants(ProcList::kIo) || ioRule_ == IoRule::Wide) return;
    if (fetch("io", kLargestFile) == Fetch::Done) parseIO(text(), ioRule_, &scratch_);
}

void ProcReader::readStat() {
    if (fetch("stat", kLargestFile) != Fetch::Done) fail(kDirectoryGone, "Warn - getline failed for stat file");
    if (const char* error = parseStat(text(), statRule_, &scratch_)) throw CException(error, 2);
}

void ProcReader::readStatM() {
    if (fetch("statm", kLargestFile) != Fetch::Done) fail(kDirectoryGone, "Warn - getline failed for statm file");
    if (const char* error = parseStatM(text(), &scratch_)) throw CException(error, 2);
}

void ProcReader::readStatus() {
    if (fetch("status", kLargestFile) != Fetch::Done) fail(kDirectoryGone, "Warn - getline failed for status file");
    if (const char* error = parseStatus(text(), statusRule_, &scratch_)) throw CException(error, 2);
    if (!(figures_ & ProcList::kNames)) return;
    names_.user(scratch_.ruid, scratch_.ruser);
    names_.user(scratch_.euid, scratch_.euser);
    names_.user(scratch_.suid, scratch_.suser);
    names_.user(scratch_.fsuid, scratch_.fsuser);
    names_.group(scratch_.rgid, scratch_.rgroup);
    names_.group(scratch_.egid, scratch_.egroup);
    names_.group(scratch_.sgid, scratch_.sgroup);
    names_.group(scratch_.fsgid, scratch_.fsgroup);
}

// Kept: a file that does not read, as that of another user's process, leaves the figures of the process before, unless
// the correction is on.
void ProcReader::readIO() {
    const Fetch outcome = fetch("io", kLargestFile);
    // Where it is closed to the agent, the process is there.
    if (outcome == Fetch::NotOpened && errno != EACCES && isGone()) fail(kDirectoryGone, kDirectoryGone);
    if (outcome != Fetch::Done) size_ = 0;  // no line, which is traced
    parseIO(text(), ioRule_, &scratch_);
}

void ProcReader::readCmdLine() {
    commandLineSize_ = 0;
    commandLine_[0] = '\0';
    const Fetch outcome = fetch("cmdline", kCommandLine + 1);
    if (outcome == Fetch::NotOpened) fail("Warn - process does not exist", "Warn - failed to open cmdline");
    if (outcome == Fetch::Done && size_ > 0) {
        commandLineSize_ = std::min(size_, kCommandLine);
        std::replace_copy(buffer_.get(), buffer_.get() + commandLineSize_, commandLine_, '\0', ' ');
        commandLine_[commandLineSize_] = '\0';
    } else {
        const std::string name = std::string("[") + scratch_.cmd + "]";
        commandLineSize_ = name.copy(commandLine_, kCommandLine);
        commandLine_[commandLineSize_] = '\0';
    }
}

void ProcReader::retrieveStatusInfo(const char* pid) {
    start(pid);
    if (figures_ & ProcList::kStat) readStat();
    if (figures_ & ProcList::kStatm) readStatM();
    if (figures_ & ProcList::kStatus) readStatus();
    if (figures_ & ProcList::kIo) readIO();
    if (figures_ & ProcList::kCmdLine) readCmdLine();
}

void ProcReader::retrieveMemInfo(const char* pid) {
    memoryRecord_ = true;
    start(pid);
    if (figures_ & ProcList::kStat) readStat();
    if (figures_ & ProcList::kStatus) readStatus();
}
