// The routine behind every pass of discovery: the periodic one, and the one after a change of the configuration.
#pragma once

#include <functional>
#include <string>

// What to do about a class that somebody else is collecting: leave it for this time, or wait for the end of that
// collection, a bounded time, and collect again, because what it reads may be older than the change.
enum class WhenCollecting { Skip, Wait };

// Collects every discovery class of the agent anew and tells the directory of subnodes, all under the subnode lock. Of
// a group with a subnode type the clones are collected, not the template. `requestId` is asked once for each class.
void updateDiscoveryClasses(const std::function<std::string()>& requestId, WhenCollecting whenCollecting);
