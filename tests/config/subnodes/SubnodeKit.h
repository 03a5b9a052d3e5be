// What the subnode tests share: a discovery class whose rows are the test's, classes of a subnode type that count
// themselves, and a manager without its thread.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <map>
#include <memory>
#include <thread>

#include "collection/TestClass.h"
#include "config/subnodes/SubnodeManager.h"
#include "host/base/Trace.h"
#include "host/framework/Framework.h"
#include "runtime/reference/Application.h"

namespace almanac::test {

struct Found {
    std::string key;
    std::string type = "SUB";
    std::string affinity = "%X";
    std::string version = "01";
};

inline std::vector<Attr> discoveryAttributes() {
    return {{SUBNODE_KEY_QMPV_NAME, 2, 64}, {SUBNODE_TYPE_QMPV_NAME, 2, 16}, {SUBNODE_AFFINITY_QMPV_NAME, 2, 16},
            {SUBNODE_VERSION_QMPV_NAME, 2, 8}, {SUBNODE_MSN_QMPV_NAME, 2, 32}};
}

// A row of the discovery group; a text of "-" leaves the cell out.
inline ResultInstance* discoveryRow(const TestClass& c, const Found& found) {
    auto* row = new ResultInstance("", 5);
    const std::pair<const char*, std::string> cells[] = {{SUBNODE_KEY_QMPV_NAME, found.key},
                                                         {SUBNODE_TYPE_QMPV_NAME, found.type},
                                                         {SUBNODE_AFFINITY_QMPV_NAME, found.affinity},
                                                         {SUBNODE_VERSION_QMPV_NAME, found.version},
                                                         {SUBNODE_MSN_QMPV_NAME, found.key}};
    for (const auto& [name, value] : cells) {
        if (value == "-") continue;
        auto* text = new UTF8String;
        text->initFromUTF8String(value.c_str());
        row->addMetric(new ResultMetric(c.findMetric(name), text));
    }
    return row;
}

// Announces what the test puts into `found` (for a clone: `foundBy` under its key).
class DiscoveryClass : public TestClass {
  public:
    struct World {
        std::mutex mutex;
        std::atomic<bool> held{false};  // a collection that begins now waits
        std::vector<Found> found;
        std::map<std::string, std::vector<Found>> foundBy;
        std::function<void()> during;  // what else happens in a collection
    };
    DiscoveryClass(const char* group, World* world) : TestClass(group, collectorOf(world)) {
        for (const Attr& a : discoveryAttributes()) metric(a.name, STRING_DATA);
    }

  private:
    static Collector collectorOf(World* world) {
        return [world](TestClass& self) {
            if (world->during) world->during();
            while (world->held) std::this_thread::sleep_for(std::chrono::milliseconds(1));
            const std::lock_guard guard(world->mutex);
            const char* key = self.getSubnodeKey();
            for (const Found& f : key ? world->foundBy[key] : world->found) self.addResultInstance(discoveryRow(self, f));
        };
    }
};

// A class of a subnode type. Knows how many clones live, who became a zombie in which order, and what it refers to.
class SubnodeClass : public TestClass {
  public:
    explicit SubnodeClass(const char* group)
        : TestClass(group, [](TestClass& self) {
              self.addResultInstance(self.named(self.getSubnodeKey() ? self.getSubnodeKey() : "template", 1));
          }) {
        withNameAndNumber();
    }
    SubnodeClass(const SubnodeClass* source, const char* key) : TestClass(source, key) { ++live; }
    ~SubnodeClass() override {
        if (getSubnodeKey()) --live;
    }
    VXClientClass* subnodeCopy(const char* key, VXClientClassList*) override { return new SubnodeClass(this, key); }
    List* getQueryReferences() override {
        if (references.empty()) return nullptr;
        auto* list = new List;
        for (VXClientClass* one : references) list->add(one);
        return list;
    }
    void setZombie(bool on) override {
        retired += getManagedSystemName() + ",";
        TestClass::setZombie(on);
    }
    std::vector<VXClientClass*> references;
    static inline std::atomic<int> live{0};
    static inline std::string retired;
};

// Groups Found (discovery), Web and Db (type SUB), Other (type OTH), with a class each in the agent's list.
class Subnodes : public testing::Test {
  protected:
    Subnodes() : before_(queryClassList) {
        queryClassList = &classes;
        dagGroup.meta->setIsDiscoveryAttributeGroup(true);
        std::pair<Group*, TestClass*> all[] = {{&dagGroup, &dag}, {&webGroup, &web}, {&dbGroup, &db}, {&otherGroup, &other}};
        for (auto& [group, queryClass] : all) {
            group->meta->setQuery(queryClass);
            classes.addClientClass(queryClass);
        }
        SubnodeClass::retired.clear();
        internalAgentVersion.copy("07");
        manager = std::make_unique<SubnodeManager>(SubnodeManager::ZombieThread::None);
        registerSubnodeDirectory(manager.get());
    }
    // Before any class of a derived fixture goes.
    void TearDown() override {
        registry().setRefusing(false);
        registry().setAway(false);
        manager.reset();
        EXPECT_EQ(SubnodeClass::live.load(), 0);
        for (const std::string& name : registry().names()) registry().remove(name);
        queryClassList = before_;
        host::configureTrace("ERROR", nullptr);
    }
    static host::SubnodeDirectory& registry() { return host::framework().subnodes; }
    // One pass over the discovery class.
    void pass() {
        const SubnodeGuard guard(manager.get());
        dag.collectAnew("test");
        manager->discoveryAttributeGroupWasUpdated(&dag);
    }
    void find(std::vector<Found> found) {
        {
            const std::lock_guard guard(world.mutex);
            world.found = std::move(found);
        }
        pass();
    }
    std::string registered() {
        std::string all;
        for (const std::string& name : registry().names()) all += name + ",";
        return all;
    }
    ClassPin webOf(const std::string& msn) { return manager->getSubnodeQueryClass(msn.c_str(), webGroup.meta); }
    // What is traced of errors while `f` runs.
    template <class F>
    static std::string errorsOf(F f) {
        testing::internal::CaptureStderr();
        f();
        return testing::internal::GetCapturedStderr();
    }

    Group dagGroup{"Found", discoveryAttributes()};
    Group webGroup{"Web", nameAndNumber(), "SUB"};
    Group dbGroup{"Db", nameAndNumber(), "sub"};
    Group otherGroup{"Other", nameAndNumber(), "OTH"};
    DiscoveryClass::World world;
    DiscoveryClass dag{"Found", &world};
    SubnodeClass web{"Web"}, db{"Db"}, other{"Other"};
    VXClientClassList classes;
    std::unique_ptr<SubnodeManager> manager;

  private:
    VXClientClassList* before_;
};

}  // namespace almanac::test
