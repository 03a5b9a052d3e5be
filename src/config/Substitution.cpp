// Utilities::substituteEnvVars: ${NAME} in texts of the reference file, from the configuration.
#include <cstdlib>
#include <cstring>
#include <string>

#include "config/ConfigMap.h"
#include "foundation/StringTokenizer.h"
#include "foundation/Trace.h"
#include "foundation/Utilities.h"

namespace {

struct Subnode {
    const char* type;
    const char* id;
};

void appendVariable(std::string* result, const std::string& name, const Subnode& subnode, bool allowAll) {
    TRACE_FUNCTION();
    if (!allowAll && !isSubstituteAllowed(name.c_str())) {
        trace_error("Substitution of environment variable %s not allowed", name.c_str());
        return;
    }
    trace_detail("Getting environment variable %s", name.c_str());
    char* value = subnode.type && subnode.id ? getSubnodeConfigurationProperty(name.c_str(), subnode.type, subnode.id)
                                             : getConfigurationProperty(name.c_str());
    if (value) result->append(value);
    std::free(value);
}

void appendLine(std::string* result, const char* line, const Subnode& subnode, bool allowAll) {
    for (;;) {
        const char* open = std::strstr(line, "${");
        const char* close = open ? std::strchr(open, '}') : nullptr;
        if (!close) break;
        result->append(line, static_cast<std::size_t>(open - line));
        appendVariable(result, std::string(open + 2, close), subnode, allowAll);
        line = close + 1;
    }
    result->append(line);
}

}  // namespace

char* Utilities::substituteEnvVars(const char* text, const char* subnodeType, const char* subnodeId, bool allowAll) {
    TRACE_FUNCTION();
    if (!text) return nullptr;
    trace_detail("Prior to substituting variables: %s", text);
    const bool hasLineFeed = std::strchr(text, '\n') != nullptr;
    std::string result;
    StringTokenizer lines(text, "\n", true);
    while (const char* line = lines.next()) {
        appendLine(&result, line, Subnode{subnodeType, subnodeId}, allowAll);
        if (hasLineFeed) result += '\n';
    }
    trace_detail("Result after substituting variables: %s", result.c_str());
    return strdup(result.c_str());
}
