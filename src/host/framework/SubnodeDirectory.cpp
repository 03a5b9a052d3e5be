#include "host/framework/SubnodeDirectory.h"

#include "host/framework/Framework.h"
#include "platform/zhb.h"

namespace almanac::host {

int SubnodeDirectory::enroll(const Subnode& subnode) {
    if (subnode.name.empty() || subnode.name.size() > kMaxName) return HBX_SUBNODE_FAILED;
    const std::lock_guard guard(mutex_);
    return !away_ && subnodes_.emplace(subnode.name, subnode).second ? HBX_OK : HBX_SUBNODE_FAILED;
}

int SubnodeDirectory::remove(const std::string& name) {
    const std::lock_guard guard(mutex_);
    return subnodes_.erase(name) == 1 ? HBX_OK : HBX_SUBNODE_FAILED;
}

int SubnodeDirectory::flush() const {
    const std::lock_guard guard(mutex_);
    return away_ ? HBX_SUBNODE_FAILED : HBX_OK;
}

std::vector<Subnode> SubnodeDirectory::list() const {
    std::vector<Subnode> all;
    const std::lock_guard guard(mutex_);
    for (const auto& [name, subnode] : subnodes_) all.push_back(subnode);
    return all;
}

bool SubnodeDirectory::knows(const std::string& name) const {
    const std::lock_guard guard(mutex_);
    return subnodes_.count(name) == 1;
}

std::size_t SubnodeDirectory::size() const {
    const std::lock_guard guard(mutex_);
    return subnodes_.size();
}

void SubnodeDirectory::setAway(bool away) {
    const std::lock_guard guard(mutex_);
    away_ = away;
}

}  // namespace almanac::host

using almanac::host::framework;
using almanac::host::Subnode;

namespace {

std::string orEmpty(const char* text) { return text ? text : ""; }

}  // namespace

int HBX_Subnode_Register_nAff(const char* msn, const char* appl, const char* version, int count,
                              const char* affinity, const char* affinityVersion, const char* feature1,
                              const char* feature2, const char* feature3) {
    Subnode subnode{orEmpty(msn), orEmpty(appl), orEmpty(version), orEmpty(affinity), {}};
    if (affinityVersion && *affinityVersion) subnode.features.emplace_back(affinityVersion);
    const char* const features[] = {feature1, feature2, feature3};
    for (int i = 0; i < count && i < 3; ++i) subnode.features.push_back(orEmpty(features[i]));
    return framework().subnodes.enroll(subnode);
}

int HBX_Subnode_RegisterEx(const char* msn, const char* appl, const char* version, const char* affinity,
                           int affinityVersion, int count, const char* const* features) {
    Subnode subnode{orEmpty(msn), orEmpty(appl), orEmpty(version), orEmpty(affinity), {}};
    subnode.features.push_back("AFF_V" + std::to_string(affinityVersion));
    for (int i = 0; features && i < count; ++i) subnode.features.push_back(orEmpty(features[i]));
    return framework().subnodes.enroll(subnode);
}

int HBX_Subnode_Deregister(const char* msn) { return framework().subnodes.remove(orEmpty(msn)); }

int HBX_Subnode_SendRequest() { return framework().subnodes.flush(); }
