// Adding and removing configuration sections while the agent runs. A change reaches the map, the subnodes and the file;
// the file is written last, once everything has succeeded.
#pragma once

#include "config/ConfigOpStatus.h"

// Adds a section with "NAME=value" properties (a null-terminated array, or null). The caller deletes the result.
ConfigOpStatus* addAgentConfigSection(const char* section, const char* id, const char* const* properties);
// Removes a section by ID. The caller deletes the result.
ConfigOpStatus* removeAgentConfigSection(const char* section, const char* id);
// Collects every discovery class anew and tells the subnode directory, under the subnode lock.
void updateSubnodes(const char* section);
