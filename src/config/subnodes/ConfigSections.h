// Adding and removing configuration sections while the agent runs. The file is written first; the map follows once that
// has succeeded, so that the two always agree, and then the subnodes.
#pragma once

#include "config/ConfigOpStatus.h"

// Adds a section with "NAME=value" properties (a null-terminated array, or null). A property that the file does not take
// is left out. The caller deletes the result.
ConfigOpStatus* addAgentConfigSection(const char* section, const char* id, const char* const* properties);
// Removes a section by ID. The caller deletes the result.
ConfigOpStatus* removeAgentConfigSection(const char* section, const char* id);
// A pass over all discovery classes that waits, a bounded time, for collections that run: what has changed shows at once.
// Must not be called while a collection of a discovery class waits for the caller.
void updateSubnodes(const char* section);
