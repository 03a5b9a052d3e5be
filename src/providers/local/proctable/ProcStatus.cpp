// The `status` file by its two rules.
#include "foundation/Trace.h"
#include "providers/local/proctable/ProcText.h"
#include "providers/local/proctable/TextScan.h"

namespace {

bool ids(std::string_view line, std::string_view name, int& real, int& effective, int& saved, int& fileSystem) {
    TextScan scan(line);
    return scan.literal(name) && scan.number(real) && scan.number(effective) && scan.number(saved) &&
           scan.number(fileSystem);
}

template <class Number>
bool figure(std::string_view line, std::string_view name, Number& out) {
    TextScan scan(line);
    return scan.literal(name) && scan.number(out);
}

void name(std::string_view line, procstat* r) {
    TextScan scan(line);
    static_cast<void>(scan.literal("Name:") && scan.word(r->cmd, sizeof r->cmd));
}

void state(std::string_view line, procstat* r) {
    TextScan scan(line);
    static_cast<void>(scan.literal("State:") && scan.blanks() && scan.character(r->state));
}

void userIds(std::string_view line, procstat* r) { ids(line, "Uid:", r->ruid, r->euid, r->suid, r->fsuid); }
void groupIds(std::string_view line, procstat* r) { ids(line, "Gid:", r->rgid, r->egid, r->sgid, r->fsgid); }

struct MemoryLine {
    std::string_view name;
    unsigned long procstat::*value;
};
constexpr MemoryLine kMemory[] = {{"VmSize:", &procstat::vm_size}, {"VmLck:", &procstat::vm_lock},
                                  {"VmRSS:", &procstat::vm_rss},   {"VmData:", &procstat::vm_data},
                                  {"VmStk:", &procstat::vm_stack}, {"VmExe:", &procstat::vm_exe}};
constexpr std::string_view kLib = "VmLib:";
constexpr std::string_view kThreads = "Threads:";

// Reads line after line by the rule of order.
class OrderedStatus {
  public:
    explicit OrderedStatus(procstat* record) : r_(record) {}
    bool isSettled() const { return memory_ && threads_; }
    // The end of what can be read; false if it came too early.
    bool end() {
        TRACE_MESSAGES();
        if (!givenUp_) return false;
        trace_detail("No Process thread count - pre-2.6 kernel");
        r_->nlwp = -1;
        threads_ = true;
        return true;
    }
    void take(std::string_view line) {
        if (givenUp_) {
            threadCount(line);
        } else if (identified_ < kIdentifying) {
            if (identifies(line)) ++identified_;
        } else if (!figures(line)) {
            other();
        }
    }

  private:
    static constexpr int kIdentifying = 6;
    static constexpr int kMostOthers = 6;

    static bool holds(std::string_view line, std::string_view text) { return line.find(text) != std::string_view::npos; }

    bool identifies(std::string_view line) {
        if (holds(line, "Name:")) {
            name(line, r_);
        } else if (holds(line, "State:")) {
            state(line, r_);
        } else if (line.starts_with("Pid:")) {
            figure(line, "Pid:", r_->pid);
        } else if (holds(line, "PPid:")) {
            figure(line, "PPid:", r_->ppid);
        } else if (holds(line, "Uid:")) {
            userIds(line, r_);
        } else if (line.starts_with("Gid")) {
            groupIds(line, r_);
        } else {
            return false;
        }
        return true;
    }

    bool figures(std::string_view line) {
        for (const MemoryLine& m : kMemory) {
            if (!holds(line, m.name)) continue;
            if (figure(line, m.name, r_->*m.value)) supplied_ |= bitOf(m);
            return true;
        }
        if (line.starts_with(kLib)) {
            figure(line, kLib, r_->vm_lib);
            memory_ = true;
            return true;
        }
        return threadCount(line);
    }

    bool threadCount(std::string_view line) {
        if (!line.starts_with(kThreads)) return false;
        figure(line, kThreads, r_->nlwp);
        threads_ = true;
        return true;
    }

    void other() {
        TRACE_MESSAGES();
        if (others_ <= kMostOthers) {
            ++others_;
            trace_detail("Line skipped count: %d\n", others_);
            return;
        }
        if (!memory_) {
            trace_detail("Kernel thread - no VM data");
            for (const MemoryLine& m : kMemory) {
                // Kept: vm_data stays as it is.
                if (m.value != &procstat::vm_data && !(supplied_ & bitOf(m))) r_->*m.value = 0;
            }
            r_->vm_lib = 0;
            memory_ = true;
        }
        givenUp_ = !threads_;  // which stand behind the memory, and are still looked for
    }

    static unsigned bitOf(const MemoryLine& m) { return 1u << (&m - kMemory); }

    procstat* r_;
    int identified_ = 0;
    int others_ = 0;
    unsigned supplied_ = 0;  // bits of the memory lines of this file
    bool memory_ = false;
    bool threads_ = false;
    bool givenUp_ = false;  // on all but the thread count
};

// One line by its name; whether it has one of those that are read.
bool named(std::string_view line, procstat* r) {
    switch (line.empty() ? '\0' : line.front()) {
        case 'N':
            if (!line.starts_with("Name:")) return false;
            name(line, r);
            return true;
        case 'S':
            if (!line.starts_with("State:")) return false;
            state(line, r);
            return true;
        case 'P':
            return figure(line, "Pid:", r->pid) || figure(line, "PPid:", r->ppid);
        case 'U':
            if (!line.starts_with("Uid:")) return false;
            userIds(line, r);
            return true;
        case 'G':
            if (!line.starts_with("Gid:")) return false;
            groupIds(line, r);
            return true;
        case 'V':
            for (const MemoryLine& m : kMemory) {
                if (figure(line, m.name, r->*m.value)) return true;
            }
            return figure(line, kLib, r->vm_lib);
        case 'T':
            return figure(line, kThreads, r->nlwp);
        default:
            return false;
    }
}

constexpr int kNamedLines = 6 + static_cast<int>(std::size(kMemory)) + 2;

void byName(std::string_view text, procstat* r) {
    for (const MemoryLine& m : kMemory) r->*m.value = 0;
    r->vm_lib = 0;
    r->nlwp = -1;
    for (int found = 0; found < kNamedLines && !text.empty();) {
        const std::size_t end = text.find('\n');
        if (named(text.substr(0, end), r)) ++found;
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    }
}

}  // namespace

const char* parseStatus(std::string_view text, StatusRule rule, procstat* record) {
    constexpr const char* kFailed = "Warn - getline failed for status file";
    if (rule == StatusRule::Names) {
        if (text.empty()) return kFailed;
        byName(text, record);
        return nullptr;
    }
    OrderedStatus status(record);
    std::string_view line;
    while (!status.isSettled()) {
        if (!nextProcLine(text, line)) return status.end() ? nullptr : kFailed;
        if (!line.empty()) status.take(line);
    }
    return nullptr;
}
