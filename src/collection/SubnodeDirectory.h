// SubnodeDirectory: what requests, status tables and configuration changes ask of the keeper of subnodes. An agent
// without one has no subnodes: a group with a subnode type then has no query classes.
#pragma once

class AttributeGroupMeta;
class List;
class VXClientClass;
class VXClientClassList;

class SubnodeDirectory {
  public:
    virtual ~SubnodeDirectory() = default;
    // The subnode lock: recursive, the outermost of all locks.
    virtual void acquireLock() = 0;
    virtual void releaseLock() = 0;
    virtual bool isManagingSubnode(const char* msn) = 0;
    // The clone of the group's query class in that subnode, or null.
    virtual VXClientClass* getSubnodeQueryClass(const char* msn, const AttributeGroupMeta* meta) = 0;
    // All clones of the group's query class; the directory's own list, or null. Only under the lock.
    virtual List* getAllSubnodeQueryClasses(const AttributeGroupMeta* meta) = 0;
    // The classes of one subnode; the directory's own list, or null. Only under the lock.
    virtual VXClientClassList* getAllSubnodeQueryClasses(const char* appl, const char* key, const char* type) = 0;
    // Compares what the discovery class reports with what it announced before. The caller holds the lock.
    virtual void discoveryAttributeGroupWasUpdated(VXClientClass* discovery) = 0;
    virtual void updateDiscoveryAttributeGroupForSubnode(const char* msn) = 0;
};

// The registered directory, or null. Registered once, before the loader has returned.
SubnodeDirectory* subnodeDirectory();
void registerSubnodeDirectory(SubnodeDirectory* directory);

// Holds the subnode lock, if there is a directory.
class SubnodeGuard {
  public:
    SubnodeGuard() : directory_(subnodeDirectory()) {
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
