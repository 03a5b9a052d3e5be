#include "providers/local/proctable/ProcList.h"

#include <dirent.h>
#include <fcntl.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <new>

#include "foundation/Trace.h"
#include "providers/local/proctable/CommandText.h"
#include "providers/local/proctable/FileProc.h"
#include "providers/local/proctable/ProcReader.h"

namespace {

constexpr std::size_t kPerBlock = MappedBlocks::kBlockSize / sizeof(procstat);

struct CloseDirectory {
    void operator()(DIR* directory) const { ::closedir(directory); }
};

}  // namespace

ProcList::ProcList(const char* root, StatType type)
    : type_(type), root_(root), rootDescriptor_(::open(root, O_PATH | O_DIRECTORY | O_CLOEXEC)) {
    TRACE_FUNCTION();
    FileProc uptime(root_ + "/uptime");
    char line[kLongestProcLine + 1];
    if (uptime.GetNextLine(line)) parseUptime(line, &secondsSinceBoot_);
}

ProcList::ProcList(StatType type, unsigned figures, const char* root) : ProcList(root, type) {
    ProcReader reader(root_.c_str(), rootDescriptor_.get(), figures);
    createDataList([&](const char* pid) { return takeProcess(reader, pid); });
}

ProcList::ProcList(unsigned figures, const char* root, ProcVisitor& visitor) : ProcList(root, kFullRecord) {
    TRACE_MESSAGES();
    ProcReader reader(root_.c_str(), rootDescriptor_.get(), figures);
    const auto commandLine = std::make_unique_for_overwrite<char[]>(kCommandLineSize);
    visitor.secondsSinceBoot = secondsSinceBoot_;
    bool any = false;
    createDataList([&](const char* pid) {
        any = visitProcess(reader, pid, visitor, commandLine.get()) || any;
        return true;
    });
    if (!any) trace_error("Cannot retrieve ProcList rows - error in setting up list\n");
}

ProcList::~ProcList() = default;

// Calls `take` with the name of each process until it returns false.
template <class Take>
void ProcList::createDataList(const Take& take) {
    TRACE_FUNCTION();
    const std::unique_ptr<DIR, CloseDirectory> directory(::opendir(root_.c_str()));
    if (!directory || !rootDescriptor_.isOpen()) {
        trace_error("Error in opendir of %s\n", root_.c_str());
        std::perror("Error: opendir /proc");
        return;
    }
    while (const dirent* entry = ::readdir(directory.get())) {
        if (entry->d_name[0] < '0' || entry->d_name[0] > '9') continue;
        if (!take(entry->d_name)) break;
    }
}

// Whether the process was read as a whole.
bool ProcList::readProcess(ProcReader& reader, const char* pid) {
    TRACE_MESSAGES();
    try {
        if (type_ == kFullRecord) {
            reader.retrieveStatusInfo(pid);
        } else if (type_ == kMemoryRecord) {
            reader.retrieveMemInfo(pid);
        } else {
            trace_error("ProcList: Incorrectly called\n");
            return false;
        }
        trace_detail("completiing < %s >\n", reader.pathOf(pid).c_str());
        return true;
    } catch (const CException& failure) {
        if (failure.getErrorNo() > 1) {
            trace_error("Error - cannot retrieve data for < %s >\n", reader.pathOf(pid).c_str());
            trace_error("Error - %s ...continuing\n", failure.getErrorMessage());
        }
        return false;
    }
}

// False if no further one can be taken.
bool ProcList::takeProcess(ProcReader& reader, const char* pid) {
    TRACE_MESSAGES();
    if (!readProcess(reader, pid) || append(reader)) return true;
    trace_error("No memory for the records of processes; the list ends with %d", count_);
    return false;
}

// Whether the process would be in the list.
bool ProcList::visitProcess(ProcReader& reader, const char* pid, ProcVisitor& visitor, char* commandLine) {
    if (reader.commandLineDecides()) {
        if (!readCommandLine(rootDescriptor_.get(), root_.c_str(), pid, commandLine)) {
            reader.readCarriedOver(pid);
        } else if (readProcess(reader, pid)) {
            visitor.visit(reader.scratch(), commandLine);
        }
        return true;
    }
    if (!readProcess(reader, pid)) return false;
    if (reader.wants(kCmdLine)) visitor.lookAt(reader.scratchWithCommandLine());
    if (readCommandLine(rootDescriptor_.get(), root_.c_str(), pid, commandLine)) {
        visitor.visit(reader.scratch(), commandLine);
    }
    return true;
}

bool ProcList::append(const ProcReader& reader) {
    static_assert(MappedBlocks::kBlockSize % alignof(procstat) == 0 && sizeof(procstat) % alignof(procstat) == 0);
    char* const place = records_.take(sizeof(procstat));
    if (!place) return false;
    auto* record = new (place) procstat(reader.scratch());
    const std::string_view commandLine = reader.commandLine();
    char* const text = commandLine.empty() ? nullptr : commandLines_.take(commandLine.size() + 1);
    if (text) std::memcpy(text, commandLine.data(), commandLine.size() + 1);
    record->cmdline = text ? text : "";
    ++count_;
    return true;
}

procstat* ProcList::at(unsigned index) const {
    return std::launder(reinterpret_cast<procstat*>(records_.block(index / kPerBlock)) + index % kPerBlock);
}

procstat* ProcList::getNextEntry() {
    TRACE_MESSAGES();
    if (count_ == 0) {
        trace_error("Cannot retrieve ProcList rows - error in setting up list\n");
        return nullptr;
    }
    return cursor_ < static_cast<unsigned>(count_) ? at(cursor_++) : nullptr;
}

procstat* ProcList::getEntry(int pid) {
    TRACE_MESSAGES();
    if (count_ == 0) {
        trace_error("Cannot retrieve ProcList rows - error in setting up list\n");
        return nullptr;
    }
    for (unsigned i = 0; i < static_cast<unsigned>(count_); ++i) {
        ++cursor_;
        if (at(i)->pid == pid) return at(i);
    }
    return nullptr;
}

char* ProcList::getCommandLine(const procstat* process, char* buffer) const {
    return readCommandLine(rootDescriptor_.get(), root_.c_str(), std::to_string(process->pid).c_str(), buffer);
}
