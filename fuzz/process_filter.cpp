// Command lines, which any user of the machine can write, against a filter. The input: argument, value and command line, ended by
// line feeds but for the last, which may hold any byte. Arguments found in place must be those that the tokenizer cuts.
#include <strings.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "foundation/StringTokenizer.h"
#include "host/base/Trace.h"
#include "providers/local/availability/ProcessListElement.h"
#include "providers/local/proctable/ProcList.h"

namespace {

std::string take(std::string* input) {
    const std::size_t end = std::min(input->find('\n'), input->size());
    const std::string part = input->substr(0, end);
    input->erase(0, end + 1);
    return part.c_str();  // up to a zero byte, as the texts of the reference file
}

bool modelOfArgument(const std::string& commandLine, const std::string& argument) {
    StringTokenizer tokens(commandLine.c_str(), " \t\r\n", true);
    while (const char* token = tokens.next()) {
        if (strcasecmp(token, argument.c_str()) == 0) return true;
    }
    return false;
}

bool modelOfValue(const std::string& commandLine, const std::string& argument, const std::string& value) {
    StringTokenizer tokens(commandLine.c_str(), " \t\r\n=", true);
    while (const char* token = tokens.next()) {
        if (strcasecmp(token, argument.c_str()) != 0) continue;
        const char* next = tokens.next();
        if (next && strcasecmp(next, value.c_str()) == 0) return true;
    }
    return false;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    almanac::host::configureTrace("NONE", nullptr);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string input(reinterpret_cast<const char*>(data), std::min<std::size_t>(size, kCommandLineSize - 1));
    const std::string argument = take(&input);
    const std::string value = take(&input);
    for (char& c : input) c = c == '\0' ? ' ' : c;  // as the process table's reader gives it
    char fullName[kFullNameSize];
    getFullName(input.c_str(), fullName);
    const std::string baseName = getBaseName(fullName);
    if (hasArgument(folded(input), folded(argument)) != modelOfArgument(input, argument)) std::abort();
    if (hasArgumentWithValue(folded(input), folded(argument), folded(value)) != modelOfValue(input, argument, value)) std::abort();
    for (unsigned flags = 0; flags < 16; ++flags) {
        ProcessFilter filter;
        filter.applicationComponent = "Component";
        filter.baseName = flags & 8 ? "Worker" : baseName.c_str();
        filter.fullName = value.c_str();
        filter.arg = argument.c_str();
        filter.value = value.c_str();
        filter.useFullName = flags & 1;
        filter.useArg = flags & 2;
        filter.useArgWithValue = flags & 4;
        const bool matched = ProcessListElement(filter).isEqual(baseName.c_str(), fullName, input.c_str());
        const bool plain = baseName.find("${") == std::string::npos && baseName.find('\n') == std::string::npos;
        if (flags == 0 && plain && !matched) std::abort();
    }
    return 0;
}
