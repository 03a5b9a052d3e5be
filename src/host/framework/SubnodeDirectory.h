// The managed systems that the agent has registered. Every operation may be called from any thread.
#pragma once

#include <cstdint>
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
    std::int64_t since = 0;  // wall time of the registration, milliseconds since 1970
    bool pending = false;    // registered while nothing could be delivered
};

// "TTT" of a managed system name AA:KEY:TTT, "" where there is none.
std::string subnodeTypeOf(const std::string& name);

class SubnodeDirectory {
  public:
    static constexpr std::size_t kMaxName = 32;

    // HBX_OK or HBX_SUBNODE_FAILED; see zhb.h.
    int enroll(Subnode subnode);
    int remove(const std::string& name);
    int flush();

    std::vector<Subnode> list() const;  // by name
    std::vector<std::string> names() const;
    bool knows(const std::string& name) const;
    std::size_t size() const;

    // What deliveries meet: while away, nothing can be flushed and registrations stay pending.
    void setAway(bool away);
    // While refusing, nobody new is taken and nobody is let go.
    void setRefusing(bool refusing);

  private:
    mutable std::mutex mutex_;
    std::map<std::string, Subnode> subnodes_;
    std::size_t pending_ = 0;
    bool away_ = false;
    bool refusing_ = false;
};

}  // namespace almanac::host
