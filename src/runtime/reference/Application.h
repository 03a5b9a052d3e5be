// The application's texts, filled by the `appl` element of the reference file (instanceName by the start of the
// process). Written on the main thread before other threads exist, read without locks afterwards.
#pragma once

#include "foundation/List.h"
#include "foundation/ZbtString.h"

extern ZBT::String& applicationName;
extern ZBT::String& instanceName;
extern ZBT::String& nodeType;
extern ZBT::String& hostName;
extern ZBT::String& hostType;
extern ZBT::String& affinity;
extern ZBT::String& agentVersion;
extern ZBT::String& version;
extern ZBT::String& serviceName;
extern ZBT::String& internalAgentVersion;

extern char shortProductCode[3];  // two characters of the name from position 1
extern char longProductCode[4];   // three characters of the name from position 0

// Application name, node type, affinity, agent version, version, service name, instance name.
extern const char* agentInfo[7];

// strdup'ed names of the `repeatable_section` elements.
extern List& repeatableSections;

// Takes the two product codes from a name, what exists of it.
void setProductCodes(const char* name);

// The text of internalAgentVersion.
const char* getAffinityVersion();
