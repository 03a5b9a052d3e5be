#include "host/framework/SubnodeDirectory.h"

#include "host/framework/Framework.h"
#include "platform/zhb.h"
#include "platform/zsb.h"

namespace almanac::host {

std::string subnodeTypeOf(const std::string& name) {
    const std::size_t last = name.rfind(':');
    return last == std::string::npos || last == name.find(':') ? "" : name.substr(last + 1);
}

int SubnodeDirectory::enroll(Subnode subnode) {
    if (subnode.name.empty() || subnode.name.size() > kMaxName) return HBX_SUBNODE_FAILED;
    timespec now{};
    ZSV1_GetTime(&now);
    subnode.since = static_cast<std::int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
    const std::lock_guard guard(mutex_);
    if (refusing_) return HBX_SUBNODE_FAILED;
    subnode.pending = away_;
    std::string name = subnode.name;
    if (!subnodes_.emplace(std::move(name), std::move(subnode)).second) return HBX_SUBNODE_FAILED;
    if (away_) ++pending_;
    return HBX_OK;
}

int SubnodeDirectory::remove(const std::string& name) {
    const std::lock_guard guard(mutex_);
    const auto found = subnodes_.find(name);
    if (refusing_ || found == subnodes_.end()) return HBX_SUBNODE_FAILED;
    if (found->second.pending) --pending_;
    subnodes_.erase(found);
    return HBX_OK;
}

int SubnodeDirectory::flush() {
    const std::lock_guard guard(mutex_);
    if (away_) return HBX_SUBNODE_FAILED;
    if (pending_ > 0) {
        for (auto& [name, subnode] : subnodes_) subnode.pending = false;
        pending_ = 0;
    }
    return HBX_OK;
}

std::vector<Subnode> SubnodeDirectory::list() const {
    std::vector<Subnode> all;
    const std::lock_guard guard(mutex_);
    all.reserve(subnodes_.size());
    for (const auto& [name, subnode] : subnodes_) all.push_back(subnode);
    return all;
}

std::vector<std::string> SubnodeDirectory::names() const {
    std::vector<std::string> all;
    const std::lock_guard guard(mutex_);
    all.reserve(subnodes_.size());
    for (const auto& [name, subnode] : subnodes_) all.push_back(name);
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
    {
        const std::lock_guard guard(mutex_);
        away_ = away;
    }
    flush();  // what has waited goes out as soon as it can
}

void SubnodeDirectory::setRefusing(bool refusing) {
    const std::lock_guard guard(mutex_);
    refusing_ = refusing;
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
    Subnode subnode{orEmpty(msn), orEmpty(appl), orEmpty(version), orEmpty(affinity), {}, 0, false};
    if (affinityVersion && *affinityVersion) subnode.features.emplace_back(affinityVersion);
    const char* const features[] = {feature1, feature2, feature3};
    for (int i = 0; i < count && i < 3; ++i) subnode.features.push_back(orEmpty(features[i]));
    return framework().subnodes.enroll(std::move(subnode));
}

int HBX_Subnode_RegisterEx(const char* msn, const char* appl, const char* version, const char* affinity,
                           int affinityVersion, int count, const char* const* features) {
    Subnode subnode{orEmpty(msn), orEmpty(appl), orEmpty(version), orEmpty(affinity), {}, 0, false};
    subnode.features.push_back("AFF_V" + std::to_string(affinityVersion));
    for (int i = 0; features && i < count; ++i) subnode.features.push_back(orEmpty(features[i]));
    return framework().subnodes.enroll(std::move(subnode));
}

int HBX_Subnode_Deregister(const char* msn) { return framework().subnodes.remove(orEmpty(msn)); }

int HBX_Subnode_SendRequest() { return framework().subnodes.flush(); }
