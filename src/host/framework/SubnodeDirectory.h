// The managed systems that the agent has registered. Every operation may be called from any thread.
#pragma once

#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace almanac::host {

struct Subnode {
    std::string name;
    std::string application;
    std::string version;
    std::string affinity;
    std::vector<std::string> features;
};

class SubnodeDirectory {
  public:
    static constexpr std::size_t kMaxName = 32;

    // HBX_OK or HBX_SUBNODE_FAILED; see zhb.h.
    int enroll(const Subnode& subnode);
    int remove(const std::string& name);
    int flush() const;

    std::vector<Subnode> list() const;
    bool knows(const std::string& name) const;
    std::size_t size() const;

    // What deliveries meet: while away, nothing can be flushed and nobody new is taken.
    void setAway(bool away);

  private:
    mutable std::mutex mutex_;
    std::map<std::string, Subnode> subnodes_;
    bool away_ = false;
};

}  // namespace almanac::host
