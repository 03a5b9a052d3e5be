#include "foundation/Utilities.h"

#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "foundation/Trace.h"

long long factory_atoll(const char* text) {
    TRACE_MESSAGES();
    if (!text) {
        trace_detail("NULL string provided for numeric conversion");
        return 0;
    }
    char* rest = nullptr;
    errno = 0;
    const long long number = std::strtoll(text, &rest, 10);
    if (errno == EINVAL) {
        trace_detail("Invalid value provided for numeric conversion: %s", text);
        return 0;
    }
    if (errno == ERANGE) trace_detail("Out of range error for numeric conversion: %s", text);
    if (*rest) {
        trace_detail("Invalid characters %s found getting numeric value from %s, returning %lld", rest, text, number);
    }
    return number;
}

void trim_string(char* text) {
    if (!text) return;
    constexpr const char* kBlanks = " \t\r\n";
    const char* start = text + std::strspn(text, kBlanks);
    std::size_t length = std::strlen(start);
    while (length > 0 && std::strchr(kBlanks, start[length - 1])) --length;
    std::memmove(text, start, length);
    text[length] = '\0';
}

bool isSubstituteAllowed(const char* name) {
    static constexpr const char* kAllowed[] = {"AGENT_BIN_DIR", "AGENT_ETC_DIR", "AGENT_LIB_DIR", "VELMAR_HOME",
                                               "VELMARHOME"};
    if (!name) return false;
    for (const char* allowed : kAllowed) {
        if (std::strcmp(name, allowed) == 0) return true;
    }
    return false;
}

void Utilities::setPriority(int priority) {
    TRACE_FUNCTION();
    if (setpriority(PRIO_PROCESS, static_cast<id_t>(getpid()), priority) == 0) {
        trace_detail("Successfully set process priority to %08x", static_cast<unsigned>(priority));
    } else {
        trace_detail("Could not set process priority to %08x, error was %d", static_cast<unsigned>(priority), errno);
    }
}

double Utilities::calculateAverage(double average, double value, int count) {
    // -1.0 is the mark of "no average yet", set as that very value.
    if (average == -1.0 || count == 0) return value;
    return (value / count + average) / (1.0 + 1.0 / count);
}
