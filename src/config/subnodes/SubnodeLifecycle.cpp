// Adding and removing one subnode.
#include <cstdlib>
#include <strings.h>

#include "collection/ResultsManager.h"
#include "config/subnodes/DiscoveryCells.h"
#include "config/subnodes/PureEventLock.h"
#include "config/subnodes/SubnodeManager.h"
#include "foundation/Trace.h"
#include "platform/zhb.h"
#include "runtime/reference/Application.h"
#include "runtime/reference/AttributeGroupMeta.h"

namespace {

constexpr const char* kFeatures[] = {"AFF_FEAT_DM_PARITY", "AFF_FEAT_AGENT_MGMT", "AFF_FEAT_INTERNATIONALIZATION"};
constexpr int kFeatureCount = 3;

const char* withoutFirst(const char* text) { return text && *text ? text + 1 : ""; }

bool isDiscovery(const VXClientClass* queryClass) {
    const AttributeGroupMeta* meta = queryClass->getAttributeGroupMeta();
    return meta && meta->isDiscoveryAttributeGroup();
}

int enroll(const char* msn, const char* appl, const char* affinity, const char* version) {
    if (*affinity == '%' || *affinity == '&') {
        return HBX_Subnode_RegisterEx(msn, appl, version, affinity, std::atoi(getAffinityVersion()), kFeatureCount, kFeatures);
    }
    return HBX_Subnode_Register_nAff(msn, appl, version, kFeatureCount, affinity, getAffinityVersion(), kFeatures[0],
                                     kFeatures[1], kFeatures[2]);
}

}  // namespace

bool SubnodeManager::registerSubnode(const char* msn, const char* type, const char* affinity, const char* version,
                                     const VXClientClass* dag) {
    TRACE_FUNCTION();
    trace_state("Registering subnode with msn=\"%s\", affinity=\"%s\", type=\"%s\", version=\"%s\"", msn, affinity, type,
                version);
    const AttributeGroupMeta* meta = dag->getAttributeGroupMeta();
    if (enroll(msn, withoutFirst(meta ? meta->applName() : nullptr), affinity, version) == HBX_SUBNODE_FAILED) {
        trace_error("Registration failed for msn=\"%s\", affinity=\"%s\", type=\"%s\", version=\"%s\"", msn, affinity, type,
                    version);
        return false;
    }
    if (HBX_Subnode_SendRequest() == HBX_SUBNODE_FAILED) {
        trace_error("Registration SendRequest failed for msn=\"%s\", affinity=\"%s\", type=\"%s\", version=\"%s\". The "
                    "request will be sent when communication with the QMSV is restored.", msn, affinity, type, version);
    }
    return true;
}

bool SubnodeManager::addSubnode(const char* msn, const char* key, const char* type, const char* affinity,
                                const char* version, VXClientClass* dag) {
    TRACE_FUNCTION();
    if (!msn || !key || !type || !affinity || !version || !dag) {
        const auto address = [](const void* p) { return p; };
        trace_error("Failed due to NULL args: msn=%p, key=%p, type=%p, affinity=%p, version=%p, dag=%p", address(msn),
                    address(key), address(type), address(affinity), address(version), address(dag));
        return false;
    }
    const SubnodeGuard locked(this);
    if (isManagingSubnode(msn)) {
        trace_error("Failed for msn=\"%s\" because SubnodeManager already manages it", msn);
        return false;
    }
    if (!registerSubnode(msn, type, affinity, version, dag)) return false;
    auto entry = std::make_unique<_MSNToQueriesEntry>();
    entry->dag = dag;
    entry->depth = depthOf(dag) + 1;
    cloneClasses(entry.get(), msn, key, type);
    std::vector<VXClientClass*> discoveries;
    for (ListCursor c = entry->classes.getClassListCursor(); c.hasMoreElements(); c.setToNext()) {
        auto* clone = static_cast<VXClientClass*>(c.getCurrentElement());
        if (isDiscovery(clone)) discoveries.push_back(clone);
    }
    publish(msn, std::move(entry));
    char announcer[20];
    dagToMSNs_[generatePointerString(dag, announcer)].names.add(msn);
    discoverWithin(discoveries);
    return true;
}

// Makes the clones, which nobody else sees yet: a constructor may take its time.
void SubnodeManager::cloneClasses(_MSNToQueriesEntry* entry, const char* msn, const char* key, const char* type) {
    TRACE_FUNCTION();
    if (!queryClassList) return;
    for (ListCursor c = queryClassList->getClassListCursor(); c.hasMoreElements(); c.setToNext()) {
        auto* queryClass = static_cast<VXClientClass*>(c.getCurrentElement());
        const AttributeGroupMeta* meta = queryClass->getAttributeGroupMeta();
        if (!meta || !meta->subnodeType() || strcasecmp(meta->subnodeType(), type) != 0) continue;
        VXClientClass* clone = queryClass->subnodeCopy(key, &entry->classes);
        if (!clone) continue;
        clone->setManagedSystemName(msn);
        entry->classes.addClientClass(clone);
    }
}

void SubnodeManager::publish(const char* msn, std::unique_ptr<_MSNToQueriesEntry> entry) {
    const std::lock_guard guard(leaf_);
    for (ListCursor c = entry->classes.getClassListCursor(); c.hasMoreElements(); c.setToNext()) {
        auto* clone = static_cast<VXClientClass*>(c.getCurrentElement());
        Clones& clones = agToQueries_[clone->getAttributeGroup()];
        entry->listed.emplace_back(clone, clones.insert(clones.end(), clone));
    }
    msnToQueries_.emplace(msn, std::move(entry));
}

std::unique_ptr<SubnodeManager::_MSNToQueriesEntry> SubnodeManager::withdraw(const char* msn) {
    const std::lock_guard guard(leaf_);
    const auto found = msnToQueries_.find(msn);
    std::unique_ptr<_MSNToQueriesEntry> entry = std::move(found->second);
    msnToQueries_.erase(found);
    for (const auto& [clone, place] : entry->listed) removeAGToQueriesEntry(clone, place);
    entry->listed.clear();
    return entry;
}

void SubnodeManager::removeAGToQueriesEntry(const VXClientClass* clone, Clones::iterator place) {
    const auto clones = agToQueries_.find(clone->getAttributeGroup());
    clones->second.erase(place);
    if (clones->second.empty()) agToQueries_.erase(clones);
}

// The clones that discover themselves, of a subnode that stands. One that a nested change has retired is still pinned.
void SubnodeManager::discoverWithin(const std::vector<VXClientClass*>& clones) {
    TRACE_FUNCTION();
    ClassPins pins;
    for (VXClientClass* clone : clones) pins.emplace_back(clone);
    for (const ClassPin& clone : pins) {
        if (HBX_QueryShutdown()) return;
        if (clone->isZombie()) continue;
        trace_error("Processing attribute group \"%s\", which is both a DAG and a SAG. This code path isn't tested",
                    clone->getAttributeGroup());
        char id[20];
        if (!static_cast<ResultsManager*>(clone.get())->collectAnew(generatePointerString(clone.get(), id))) continue;
        discoveryAttributeGroupWasUpdated(clone.get());
    }
}

bool SubnodeManager::removeSubnode(const char* msn) {
    TRACE_FUNCTION();
    if (!msn) {
        trace_error("Failed due to NULL msn");
        return false;
    }
    const SubnodeGuard locked(this);
    if (!isManagingSubnode(msn)) {
        trace_detail("Subnode %s is not managed", msn);
        return false;
    }
    const std::string name = msn;  // the text may be the very one that is removed
    trace_state("Deregistering subnode %s", name.c_str());
    if (HBX_Subnode_Deregister(name.c_str()) == HBX_SUBNODE_FAILED) {
        trace_error("Deregistration failed for msn=\"%s\"", name.c_str());
        return false;
    }
    if (HBX_Subnode_SendRequest() == HBX_SUBNODE_FAILED) {
        trace_error("Deregistration SendRequest failed for msn=\"%s\". The request will be sent when communication with the "
                    "QMSV is restored.", name.c_str());
    }
    const std::unique_ptr<_MSNToQueriesEntry> entry = withdraw(name.c_str());
    for (ListCursor c = entry->classes.getClassListCursor(); c.hasMoreElements(); c.setToNext()) {
        auto* clone = static_cast<VXClientClass*>(c.getCurrentElement());
        if (isDiscovery(clone)) removeAnnouncedBy(clone);
    }
    retire(entry.get());
    removeDAGToMSNsEntry(entry->dag, name.c_str());
    return true;
}

void SubnodeManager::retire(_MSNToQueriesEntry* entry) {
    const PureEventGuard events;
    for (ListCursor c = entry->classes.getClassListCursor(); c.hasMoreElements();) {
        auto* clone = static_cast<VXClientClass*>(c.getCurrentElement());
        c.setToNext();
        entry->classes.removeClientClass(clone);
        clone->setZombie(true);
        zombies_.push_back(clone);
    }
}

// The subnodes that a clone has announced, in the order of its rows, then those that its rows do not show any more. What
// cannot be deregistered now has lost its announcer and is tried again at the next discovery.
void SubnodeManager::removeAnnouncedBy(VXClientClass* dag) {
    TRACE_FUNCTION();
    char announcer[20], none[20];
    const std::string id = generatePointerString(dag, announcer);
    std::vector<std::string> names = DiscoveryCells::managedSystemNames(static_cast<ResultsManager*>(dag));
    for (std::string& name : announcedBy(dag)) names.push_back(std::move(name));
    for (const std::string& name : names) {
        const auto announced = dagToMSNs_.find(id);
        // A row that names somebody else's subnode has added nothing and takes nothing away.
        if (announced != dagToMSNs_.end() && announced->second.names.contains(name)) removeSubnode(name.c_str());
    }
    for (const std::string& name : announcedBy(dag)) {
        msnToQueries_.at(name)->dag = nullptr;
        dagToMSNs_[generatePointerString(nullptr, none)].names.add(name);
    }
    dagToMSNs_.erase(id);
}

void SubnodeManager::removeDAGToMSNsEntry(const VXClientClass* dag, const char* msn) {
    char announcer[20];
    const auto announced = dagToMSNs_.find(generatePointerString(dag, announcer));
    if (announced == dagToMSNs_.end()) return;
    announced->second.names.remove(msn);
    // The time of a forced collection is forgotten with the last name, which only allows the next one sooner.
    if (announced->second.names.empty()) dagToMSNs_.erase(announced);
}
