// A keeper of subnodes that has none, registered while it lives; a test overrides what it is about.
#pragma once

#include <mutex>

#include "collection/SubnodeDirectory.h"

namespace almanac::test {

class TestDirectory : public SubnodeDirectory {
  public:
    TestDirectory() { registerSubnodeDirectory(this); }
    ~TestDirectory() override { registerSubnodeDirectory(nullptr); }
    void acquireLock() override { lock_.lock(); }
    void releaseLock() override { lock_.unlock(); }
    bool isManagingSubnode(const char*) override { return false; }
    ClassPin getSubnodeQueryClass(const char*, const AttributeGroupMeta*) override { return {}; }
    ClassPin getSubnodeQueryClassByKey(const char*, const AttributeGroupMeta*) override { return {}; }
    ClassPins getAllSubnodeQueryClasses(const char*) override { return {}; }
    ClassPins getAllSubnodeQueryClasses(const AttributeGroupMeta*) override { return {}; }
    ClassPins getAllSubnodeQueryClasses(const char*, const char*, const char*) override { return {}; }
    void discoveryAttributeGroupWasUpdated(VXClientClass*) override {}
    void updateDiscoveryAttributeGroupForSubnode(const char*) override {}

  private:
    std::recursive_mutex lock_;
};

}  // namespace almanac::test
