// The readings of a process's files as sscanf and a line reader give them: what the parsers are held against, by the tests
// and by the fuzz target.
#pragma once

#include <cstddef>
#include <cstdio>
#include <cstring>
#include <sstream>
#include <string>

#include "providers/local/proctable/ProcList.h"

namespace almanac::test {

// A record in which each figure has a value of its own, so that it shows what carries over.
inline procstat patternRecord() {
    procstat r;
    auto* bytes = reinterpret_cast<unsigned char*>(&r);
    for (std::size_t i = 0; i < sizeof r; ++i) bytes[i] = static_cast<unsigned char>(i * 7 + 1);
    std::strcpy(r.cmd, "before");
    r.cmdline = nullptr;
    return r;
}

inline bool sameFigures(const procstat& a, const procstat& b) {
    return std::strcmp(a.cmd, b.cmd) == 0 && std::memcmp(&a, &b, offsetof(procstat, cmd)) == 0 &&
           std::memcmp(&a.ruid, &b.ruid, offsetof(procstat, cmdline) - offsetof(procstat, ruid)) == 0;
}

// The lines of a text through the stream that files are read with.
class ModelLines {
  public:
    explicit ModelLines(const std::string& text) : stream_(text) {}
    bool next() {
        stream_.getline(line, sizeof line);
        return stream_.good();
    }
    char line[1024] = "";

  private:
    std::istringstream stream_;
};

inline bool modelStat(const std::string& text, procstat* r) {
    ModelLines lines(text);
    if (!lines.next()) return false;
    char* const bracket = std::strrchr(lines.line, ')');
    if (!bracket) return false;
    *bracket = ' ';
    r->processor = -1;
    char name[1024];
    std::strcpy(name, r->cmd);
    unsigned long tail[4];
    const int converted = std::sscanf(
        lines.line,
        "%d (%s  %c %d %d %d %d %d %lu %lu %lu %lu %lu %lu %lu %ld %ld %ld %ld %ld %ld %lu %lu %ld %lu %lu %lu %lu %lu %lu "
        "%*s %*s %*s %*s %lu %lu %lu %*d %d%*d %*d %lu %lu %lu %lu",
        &r->pid, name, &r->state, &r->ppid, &r->pgrp, &r->session, &r->tty, &r->tpgid, &r->flags, &r->min_flt, &r->cmin_flt,
        &r->maj_flt, &r->cmaj_flt, &r->utime, &r->stime, &r->cutime, &r->cstime, &r->priority, &r->nice, &r->timeout,
        &r->it_real_value, &r->start_time, &r->vsize, &r->rss, &r->rss_rlim, &r->start_code, &r->end_code, &r->start_stack,
        &r->kstk_esp, &r->kstk_eip, &r->wchan, &r->nswap, &r->cnswap, &r->processor, &tail[0], &tail[1], &tail[2], &tail[3]);
    std::snprintf(r->cmd, sizeof r->cmd, "%.*s", static_cast<int>(sizeof r->cmd) - 1, name);
    if (converted != 38) return true;
    r->utime = tail[0];
    r->stime = tail[1];
    r->cutime = static_cast<long>(tail[2]);
    r->cstime = static_cast<long>(tail[3]);
    return true;
}

inline bool modelStatM(const std::string& text, procstat* r) {
    ModelLines lines(text);
    if (!lines.next()) return false;
    std::sscanf(lines.line, "%ld %ld %ld %ld %ld %ld %ld", &r->statm_size, &r->statm_resident, &r->statm_share, &r->statm_text,
                &r->statm_lib, &r->statm_data, &r->statm_dirty);
    return true;
}

inline void modelIdentify(const char* line, procstat* r, int* identified) {
    char name[1024];
    if (std::strstr(line, "Name:")) {
        if (std::sscanf(line, "Name: %s", name) == 1) {
            std::snprintf(r->cmd, sizeof r->cmd, "%.*s", static_cast<int>(sizeof r->cmd) - 1, name);
        }
    } else if (std::strstr(line, "State:")) {
        std::sscanf(line, "State: %c ", &r->state);
    } else if (std::strncmp(line, "Pid:", 4) == 0) {
        std::sscanf(line, "Pid:\t%d", &r->pid);
    } else if (std::strstr(line, "PPid:")) {
        std::sscanf(line, "PPid:\t%d", &r->ppid);
    } else if (std::strstr(line, "Uid:")) {
        std::sscanf(line, "Uid:\t%d\t%d\t%d\t%d", &r->ruid, &r->euid, &r->suid, &r->fsuid);
    } else if (std::strncmp(line, "Gid", 3) == 0) {
        std::sscanf(line, "Gid:\t%d\t%d\t%d\t%d", &r->rgid, &r->egid, &r->sgid, &r->fsgid);
    } else {
        return;
    }
    ++*identified;
}

inline bool modelStatus(const std::string& text, procstat* r) {
    const struct {
        const char* name;
        const char* format;
        unsigned long* value;
    } memory[] = {{"VmSize:", "VmSize: %lu ", &r->vm_size}, {"VmLck:", "VmLck: %lu ", &r->vm_lock},
                  {"VmRSS:", "VmRSS: %lu ", &r->vm_rss},    {"VmData:", "VmData: %lu ", &r->vm_data},
                  {"VmStk:", "VmStk: %lu ", &r->vm_stack},  {"VmExe:", "VmExe: %lu ", &r->vm_exe}};
    ModelLines lines(text);
    bool haveMemory = false, haveThreads = false, givenUp = false;
    bool supplied[6] = {};
    int identified = 0, skipped = 0;
    while (!haveMemory || !haveThreads) {
        if (!lines.next()) {
            if (givenUp) r->nlwp = -1;
            return givenUp;
        }
        const char* const line = lines.line;
        if (!*line) continue;
        if (givenUp) {
            haveThreads = std::strncmp(line, "Threads:", 8) == 0;
            if (haveThreads) std::sscanf(line, "Threads: %ld", &r->nlwp);
            continue;
        }
        if (identified < 6) {
            modelIdentify(line, r, &identified);
            continue;
        }
        bool known = false;
        for (const auto& m : memory) {
            if (known || !std::strstr(line, m.name)) continue;
            if (std::sscanf(line, m.format, m.value) == 1) supplied[&m - memory] = true;
            known = true;
        }
        if (known) continue;
        if (std::strncmp(line, "VmLib:", 6) == 0) {
            std::sscanf(line, "VmLib: %lu ", &r->vm_lib);
            haveMemory = true;
        } else if (std::strncmp(line, "Threads:", 8) == 0) {
            std::sscanf(line, "Threads: %ld", &r->nlwp);
            haveThreads = true;
        } else if (skipped > 6) {
            for (const auto& m : memory) {
                if (!haveMemory && m.value != &r->vm_data && !supplied[&m - memory]) *m.value = 0;
            }
            if (!haveMemory) r->vm_lib = 0;
            haveMemory = true;
            givenUp = !haveThreads;
        } else {
            ++skipped;
        }
    }
    return true;
}

inline void modelIO(const std::string& text, procstat* r) {
    const struct {
        const char* name;
        const char* format;
        long long* value;
    } items[] = {{"rchar:", "rchar: %d", &r->rchar},   {"wchar:", "wchar: %d ", &r->wchar},
                 {"syscr:", "syscr: %d ", &r->syscr},  {"syscw:", "syscw: %d", &r->syscw},
                 {"read_bytes:", "read_bytes: %d", &r->read_bytes}, {"write_bytes", "write_bytes: %d", &r->write_bytes}};
    ModelLines lines(text);
    for (int found = 0; found < 6;) {
        if (!lines.next()) return;
        for (const auto& item : items) {
            if (!std::strstr(lines.line, item.name)) continue;
            int value;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
            if (std::sscanf(lines.line, item.format, &value) == 1) *item.value = value;
#pragma GCC diagnostic pop
            ++found;
            break;
        }
    }
}

}  // namespace almanac::test
