// SubnodeDirectory: what requests, status tables, derived tables and configuration changes ask of the keeper of
// subnodes. An agent without one has no subnodes: a group with a subnode type then has no query classes.
//
// Lookups take a leaf mutex only, never the subnode lock, so a request is not held up by a slow discovery; what they
// return is pinned against deletion.
#pragma once

#include "collection/VXClientClass.h"

class AttributeGroupMeta;

class SubnodeDirectory {
  public:
    virtual ~SubnodeDirectory() = default;
    // The subnode lock: recursive, the outermost of all locks. For discovery, adding, removing and zombies.
    virtual void acquireLock() = 0;
    virtual void releaseLock() = 0;
    virtual bool isManagingSubnode(const char* msn) = 0;
    // The clone of the group's query class in that subnode, or an empty pin.
    virtual ClassPin getSubnodeQueryClass(const char* msn, const AttributeGroupMeta* meta) = 0;
    // The same for the subnode with this key and the group's application and subnode type.
    virtual ClassPin getSubnodeQueryClassByKey(const char* key, const AttributeGroupMeta* meta) = 0;
    // All clones of the group's query class, in order of creation; empty if there are none.
    virtual ClassPins getAllSubnodeQueryClasses(const char* attributeGroup) = 0;
    virtual ClassPins getAllSubnodeQueryClasses(const AttributeGroupMeta* meta) = 0;
    // The classes of one subnode, in the order of the list of all classes.
    virtual ClassPins getAllSubnodeQueryClasses(const char* appl, const char* key, const char* type) = 0;
    // Compares what the discovery class reports with what it announced before. The caller holds the subnode lock.
    virtual void discoveryAttributeGroupWasUpdated(VXClientClass* discovery) = 0;
    // Collects the class that announced the subnode anew and acts on what it reports. Takes the subnode lock.
    virtual void updateDiscoveryAttributeGroupForSubnode(const char* msn) = 0;
};

// The registered directory, or null. Registered once, before the loader has returned.
SubnodeDirectory* subnodeDirectory();
void registerSubnodeDirectory(SubnodeDirectory* directory);

// Holds the subnode lock, if there is a directory.
class SubnodeGuard {
  public:
    SubnodeGuard() : SubnodeGuard(subnodeDirectory()) {}
    explicit SubnodeGuard(SubnodeDirectory* directory) : directory_(directory) {
        if (directory_) directory_->acquireLock();
    }
    ~SubnodeGuard() {
        if (directory_) directory_->releaseLock();
    }
    SubnodeGuard(const SubnodeGuard&) = delete;
    SubnodeGuard& operator=(const SubnodeGuard&) = delete;

  private:
    SubnodeDirectory* directory_;
};
