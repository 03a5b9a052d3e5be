#include "providers/local/proctable/ProcText.h"

#include <cstdlib>

#include "foundation/Trace.h"
#include "providers/local/proctable/TextScan.h"

bool nextProcLine(std::string_view& text, std::string_view& line) {
    const std::size_t end = text.substr(0, kLongestProcLine + 1).find('\n');
    if (end == std::string_view::npos) return false;
    line = text.substr(0, end);
    text.remove_prefix(end + 1);
    if (const void* nul = std::memchr(line.data(), '\0', line.size())) {
        line = line.substr(0, static_cast<std::size_t>(static_cast<const char*>(nul) - line.data()));
    }
    return true;
}

namespace {

// What stands behind the name, field 3 and on. True if all of it is there.
bool behindName(TextScan& scan, procstat* r, unsigned long (&tail)[4]) {
    return scan.blanks() && scan.character(r->state) && scan.number(r->ppid) && scan.number(r->pgrp) &&
           scan.number(r->session) && scan.number(r->tty) && scan.number(r->tpgid) && scan.number(r->flags) &&
           scan.number(r->min_flt) && scan.number(r->cmin_flt) && scan.number(r->maj_flt) && scan.number(r->cmaj_flt) &&
           scan.number(r->utime) && scan.number(r->stime) && scan.number(r->cutime) && scan.number(r->cstime) &&
           scan.number(r->priority) && scan.number(r->nice) && scan.number(r->timeout) && scan.number(r->it_real_value) &&
           scan.number(r->start_time) && scan.number(r->vsize) && scan.number(r->rss) && scan.number(r->rss_rlim) &&
           scan.number(r->start_code) && scan.number(r->end_code) && scan.number(r->start_stack) &&
           scan.number(r->kstk_esp) && scan.number(r->kstk_eip) && scan.skipWord() && scan.skipWord() && scan.skipWord() &&
           scan.skipWord() && scan.number(r->wchan) && scan.number(r->nswap) && scan.number(r->cnswap) &&
           scan.skipNumber() && scan.number(r->processor) && scan.skipNumber() && scan.skipNumber() &&
           scan.number(tail[0]) && scan.number(tail[1]) && scan.number(tail[2]) && scan.number(tail[3]);
}

bool pidAndName(TextScan& scan, procstat* r) {
    return scan.number(r->pid) && scan.blanks() && scan.literal("(") && scan.word(r->cmd, sizeof r->cmd);
}

constexpr const char* kNoBracket = "Warn - strrchr failed - buffer format unknown";

}  // namespace

const char* parseStat(std::string_view text, StatRule rule, procstat* record) {
    unsigned long tail[4] = {};
    if (rule == StatRule::Fields) {
        if (text.empty()) return "Warn - getline failed for stat file";
        const std::size_t bracket = text.rfind(')');
        if (bracket == std::string_view::npos) return kNoBracket;
        record->processor = -1;
        TextScan name(text.substr(0, bracket));
        pidAndName(name, record);
        TextScan rest(text.substr(bracket + 1));
        behindName(rest, record, tail);
        return nullptr;
    }
    std::string_view line;
    if (!nextProcLine(text, line)) return "Warn - getline failed for stat file";
    const std::size_t bracket = line.rfind(')');
    if (bracket == std::string_view::npos) return kNoBracket;
    char copy[kLongestProcLine];
    std::memcpy(copy, line.data(), line.size());
    copy[bracket] = ' ';
    record->processor = -1;
    TextScan scan(std::string_view(copy, line.size()));
    // Kept: a name with a blank in it ends the conversions there; what stands behind it keeps its values.
    if (pidAndName(scan, record) && behindName(scan, record, tail)) {
        record->utime = tail[0];
        record->stime = tail[1];
        record->cutime = static_cast<long>(tail[2]);
        record->cstime = static_cast<long>(tail[3]);
    }
    return nullptr;
}

const char* parseStatM(std::string_view text, procstat* r) {
    std::string_view line;
    if (!nextProcLine(text, line)) return "Warn - getline failed for statm file";
    TextScan scan(line);
    static_cast<void>(scan.number(r->statm_size) && scan.number(r->statm_resident) && scan.number(r->statm_share) &&
                      scan.number(r->statm_text) && scan.number(r->statm_lib) && scan.number(r->statm_data) &&
                      scan.number(r->statm_dirty));
    return nullptr;
}

void parseIO(std::string_view text, IoRule rule, procstat* r) {
    TRACE_MESSAGES();
    const struct {
        std::string_view test;     // anywhere in the line
        std::string_view literal;  // at its start
        long long* value;
    } items[] = {{"rchar:", "rchar:", &r->rchar},          {"wchar:", "wchar:", &r->wchar},
                 {"syscr:", "syscr:", &r->syscr},          {"syscw:", "syscw:", &r->syscw},
                 {"read_bytes:", "read_bytes:", &r->read_bytes}, {"write_bytes", "write_bytes:", &r->write_bytes}};
    constexpr int kItems = 6;
    if (rule == IoRule::Wide) {
        for (const auto& item : items) *item.value = 0;
    }
    std::string_view line;
    for (int found = 0; found < kItems;) {
        if (!nextProcLine(text, line)) {
            trace_detail("Warn - getline failed for io file");
            return;
        }
        if (line.empty()) {
            trace_detail("Skipping empty line\n");
            continue;
        }
        for (const auto& item : items) {
            if (line.find(item.test) == std::string_view::npos) continue;
            TextScan scan(line);
            static_cast<void>(scan.literal(item.literal) &&
                              (rule == IoRule::Wide ? scan.number(*item.value) : scan.number32(*item.value)));
            ++found;
            break;
        }
    }
}

bool parseUptime(const char* text, unsigned long* seconds) {
    char* end = nullptr;
    const double value = std::strtod(text, &end);
    if (end == text || !(value >= 0) || !(value < 1e18)) return false;
    *seconds = static_cast<unsigned long>(value);
    return true;
}
