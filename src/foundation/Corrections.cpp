#include "foundation/Corrections.h"

#include <atomic>
#include <cstring>
#include <string_view>

#include "foundation/Trace.h"
#include "platform/zsb.h"

namespace {

constexpr Correction kCorrections[] = {
    {"event-console", "the host is told to answer the event console's calls itself; the working calls come with the log source"},
    {"env-quoting", "a subnode's values in front of a script's command are quoted, so blanks and shell characters in them are harmless"},
    {"proc-times", "user and system times of a process come from fields 14 to 17 of its stat line, not from the line's end, whatever its name holds"},
    {"proc-status", "the lines of a process's status file are found by their names wherever they stand, so memory and threads are there"},
    {"proc-io", "the I/O figures of a process have 64 bits, and one whose io file is closed to the agent shows 0, not its neighbour's"},
    {"task-quoting", "a quoted value of a task's parameter is literal: the shell expands nothing in it, and no parameter's name is looked for"},
    {nullptr, nullptr},
};
constexpr int kCount = static_cast<int>(std::size(kCorrections)) - 1;
static_assert(kCount < 31);
constexpr unsigned kLoaded = 1u << 31;

constinit std::atomic<unsigned> state{0};  // one bit for each correction, kLoaded once the environment was read

unsigned bitOf(std::string_view name) {
    for (int i = 0; i < kCount; ++i) {
        if (name == kCorrections[i].name) return 1u << i;
    }
    return 0;
}

unsigned load() {
    TRACE_FUNCTION();
    unsigned bits = kLoaded;
    const char* text = ZSV1_GetEnv("CDP_CORRECTIONS");
    std::string_view rest = text ? text : "";
    while (!rest.empty()) {
        const std::size_t comma = rest.find(',');
        std::string_view name = rest.substr(0, comma);
        rest = comma == std::string_view::npos ? std::string_view{} : rest.substr(comma + 1);
        while (!name.empty() && name.front() == ' ') name.remove_prefix(1);
        while (!name.empty() && name.back() == ' ') name.remove_suffix(1);
        if (name.empty()) continue;
        if (name == "all") {
            bits |= (1u << kCount) - 1;
        } else if (const unsigned bit = bitOf(name)) {
            bits |= bit;
        } else {
            trace_error("CDP_CORRECTIONS names an unknown correction: %.*s", static_cast<int>(name.size()), name.data());
        }
    }
    state.store(bits);
    return bits;
}

}  // namespace

const Correction* corrections() { return kCorrections; }

bool correctionIsOn(const char* name) {
    unsigned bits = state.load();
    if (!(bits & kLoaded)) bits = load();
    return name && (bits & bitOf(name)) != 0;
}

void reloadCorrections() { load(); }
