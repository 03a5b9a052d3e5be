// A keeper of subnodes that knows what a test tells it, and nothing of locks: derived tables must not need the subnode
// lock, so taking it fails the test.
#pragma once

#include <gtest/gtest.h>

#include "collection/TestDirectory.h"
#include "providers/derived/SourceTable.h"

namespace almanac::test {

class FakeDirectory : public TestDirectory {
  public:
    ~FakeDirectory() override {
        registerSubnodeDirectory(nullptr);
        // As the collector of retired classes does: what is pinned waits for the class that pins it.
        while (!clones_.empty()) {
            const std::size_t before = clones_.size();
            for (std::size_t i = clones_.size(); i-- > 0;) {
                if (clones_[i]->isHeld()) continue;
                clones_.erase(clones_.begin() + static_cast<std::ptrdiff_t>(i));
            }
            if (clones_.size() < before) continue;
            ADD_FAILURE() << "a clone stays pinned";
            for (auto& kept : clones_) static_cast<void>(kept.release());
            clones_.clear();
        }
    }
    template <class T>
    T* add(T* clone) {
        clones_.emplace_back(clone);
        return clone;
    }

    void acquireLock() override { ADD_FAILURE() << "the subnode lock was taken"; }
    void releaseLock() override {}
    ClassPin getSubnodeQueryClassByKey(const char* key, const AttributeGroupMeta* meta) override {
        for (const auto& c : clones_) {
            if (c->getAttributeGroupMeta() == meta && std::strcmp(c->getSubnodeKey(), key) == 0) return ClassPin(c.get());
        }
        return ClassPin();
    }
    using TestDirectory::getAllSubnodeQueryClasses;
    ClassPins getAllSubnodeQueryClasses(const char* attributeGroup) override {
        ClassPins pins;
        for (const auto& c : clones_) {
            if (std::strcmp(c->getAttributeGroup(), attributeGroup) == 0) pins.emplace_back(c.get());
        }
        return pins;
    }

  private:
    std::vector<std::unique_ptr<VXClientClass>> clones_;
};

}  // namespace almanac::test
