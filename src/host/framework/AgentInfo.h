// What the agent has said of itself.
#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "platform/zhb.h"

namespace almanac::host {

class AgentInfo {
  public:
    struct Values {
        std::string product;
        std::string version;
        std::string nodeType;
        std::string instance;
        std::vector<std::string> affinities;
    };

    void setProduct(const std::string& product, const std::string& version);
    void setNodeType(const std::string& nodeType);
    void addAffinity(const std::string& affinity);
    void setInstance(const std::string& instance);
    Values values() const;

    // The agent's managed system name, 32 bytes at most: "[instance:]host:type". ALMANAC_ORIGINNODE replaces it.
    // The text stays valid for the life of the process, also when a later answer differs.
    const char* originNode() const;

    void setLoader(HBX_AgentLoader loader);
    void setCallback(HBX_CommandCallback callback);
    HBX_AgentLoader loader() const;
    HBX_CommandCallback callback() const;

  private:
    mutable std::mutex mutex_;
    Values values_;
    HBX_AgentLoader loader_ = nullptr;
    HBX_CommandCallback callback_ = nullptr;
};

// The instance that the agent's command line names (see the program's usage), or "". `hostName` may be null.
std::string instanceFromArguments(int argc, const char* const* argv, const char* hostName);

// "[instance:]host:type" in at most 32 bytes: the host name loses its domain, and its end if it must.
std::string makeOriginNode(const std::string& instance, const std::string& host, const std::string& nodeType);

}  // namespace almanac::host
