#include "runtime/reference/Application.h"

#include <cstring>

// References to objects that are never destroyed: threads may still read them while the process ends.
ZBT::String& applicationName = *new ZBT::String;
ZBT::String& instanceName = *new ZBT::String;
ZBT::String& nodeType = *new ZBT::String;
ZBT::String& hostName = *new ZBT::String;
ZBT::String& hostType = *new ZBT::String;
ZBT::String& affinity = *new ZBT::String;
ZBT::String& agentVersion = *new ZBT::String;
ZBT::String& version = *new ZBT::String;
ZBT::String& serviceName = *new ZBT::String;
ZBT::String& internalAgentVersion = *new ZBT::String;

char shortProductCode[3] = "";
char longProductCode[4] = "";
const char* agentInfo[7] = {};
List& repeatableSections = *new List;

void setProductCodes(const char* name) {
    std::memset(shortProductCode, 0, sizeof shortProductCode);
    std::memset(longProductCode, 0, sizeof longProductCode);
    const std::size_t n = std::strlen(name);
    std::memcpy(longProductCode, name, n < 3 ? n : 3);
    if (n > 1) std::memcpy(shortProductCode, name + 1, n - 1 < 2 ? n - 1 : 2);
}

const char* getAffinityVersion() { return internalAgentVersion.c_str(); }
