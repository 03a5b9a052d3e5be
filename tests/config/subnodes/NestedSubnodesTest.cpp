// Subnodes that announce subnodes, and the end of retired clones.
#include <gmock/gmock.h>

#include <thread>

#include "SubnodeKit.h"
#include "config/subnodes/DiscoveryPass.h"
#include "host/Scratch.h"
#include "platform/zhb.h"

namespace {

using namespace almanac::test;
using namespace std::chrono_literals;
using almanac::host::test::Variable;
using testing::HasSubstr;

// Beside the groups of Subnodes: Inner, of type SUB, announces subnodes itself.
class NestedSubnodes : public Subnodes {
  protected:
    NestedSubnodes() {
        innerGroup.meta->setIsDiscoveryAttributeGroup(true);
        innerGroup.meta->setQuery(&inner);
        classes.addClientClass(&inner);
        almanac::host::configureTrace("NONE", nullptr);
    }
    ~NestedSubnodes() override { classes.removeClientClass(&inner); }
    Group innerGroup{"Inner", discoveryAttributes(), "SUB"};
    DiscoveryClass inner{"Inner", &world};
};

TEST_F(NestedSubnodes, ComeWithTheirParentAndGoBeforeIt) {
    world.foundBy["one"] = {{"a", "OTH"}, {"b", "OTH"}};
    find({{"one"}, {"two"}});
    EXPECT_EQ(registered(), "PP:a:OTH,PP:b:OTH,PP:one:SUB,PP:two:SUB,");
    EXPECT_EQ(inner.collections, 0);  // the template is never collected
    world.foundBy["one"] = {{"b", "OTH"}, {"c", "OTH"}};
    world.foundBy["two"] = {{"d", "OTH"}};
    int number = 0;
    updateDiscoveryClasses([&] { return std::to_string(number++); }, WhenCollecting::Skip);
    EXPECT_EQ(number, 3);  // the outer class and two clones
    EXPECT_EQ(registered(), "PP:b:OTH,PP:c:OTH,PP:d:OTH,PP:one:SUB,PP:two:SUB,");
    SubnodeClass::retired.clear();
    find({{"two"}});
    EXPECT_EQ(SubnodeClass::retired, "PP:b:OTH,PP:c:OTH,PP:one:SUB,PP:one:SUB,");
    EXPECT_EQ(registered(), "PP:d:OTH,PP:two:SUB,");
    manager->collectGarbage();
    EXPECT_EQ(manager->zombieCount(), 0);
}

TEST_F(NestedSubnodes, AlsoThoseThatTheRowsDoNotShowAnyMore) {
    world.foundBy["one"] = {{"a", "OTH"}};
    find({{"one"}});
    const ClassPin clone = manager->getSubnodeQueryClass("PP:one:SUB", innerGroup.meta);
    world.foundBy["one"] = {};
    clone->collectData("request");  // its rows have gone, and no pass has seen that
    find({});
    EXPECT_EQ(registered(), "");
    // A request that still holds the clone announces nothing any more.
    world.foundBy["one"] = {{"late", "OTH"}};
    clone->collectData("request");
    const SubnodeGuard guard(manager.get());
    manager->discoveryAttributeGroupWasUpdated(clone.get());
    EXPECT_EQ(registered(), "");
}

TEST_F(NestedSubnodes, AnothersSubnodeInARowStays) {
    world.foundBy["one"] = {{"two", "SUB"}};
    find({{"two"}, {"one"}});
    EXPECT_EQ(registered(), "PP:one:SUB,PP:two:SUB,");
    const VXClientClass* const clone = webOf("PP:two:SUB").get();
    find({{"two"}});
    EXPECT_EQ(webOf("PP:two:SUB").get(), clone);
}

TEST_F(NestedSubnodes, ThatCouldNotBeDeregisteredAreTriedAgain) {
    world.foundBy["one"] = {{"a", "OTH"}};
    find({{"one"}});
    registry().remove("PP:a:OTH");  // so that its deregistration fails while the parent's does not
    find({});
    EXPECT_TRUE(manager->isManagingSubnode("PP:a:OTH"));
    EXPECT_FALSE(manager->isManagingSubnode("PP:one:SUB"));
    manager->collectGarbage();  // its announcer is deleted
    manager->updateDiscoveryAttributeGroupForSubnode("PP:a:OTH");
    EXPECT_TRUE(manager->isManagingSubnode("PP:a:OTH"));
    EXPECT_EQ(registry().enroll({"PP:a:OTH", "PP", "1", "%X", {}, 0, false}), HBX_OK);
    pass();
    EXPECT_FALSE(manager->isManagingSubnode("PP:a:OTH"));
    EXPECT_EQ(registered(), "");
}

TEST_F(NestedSubnodes, EndSomewhere) {
    for (int i = 0; i < 40; ++i) world.foundBy["k" + std::to_string(i)] = {{"k" + std::to_string(i + 1)}};
    almanac::host::configureTrace("ERROR", nullptr);
    EXPECT_THAT(errorsOf([&] { find({{"k0"}}); }), HasSubstr("nested more than 16 deep"));
    EXPECT_EQ(registry().size(), 16u);
    almanac::host::configureTrace("NONE", nullptr);
    for (int i = 0; i < 3; ++i) updateDiscoveryClasses([] { return std::string("later"); }, WhenCollecting::Skip);
    EXPECT_EQ(registry().size(), 16u) << "a later pass begins where they ended";
    find({});
    EXPECT_EQ(registered(), "");
}

// A pass over many clones is broken off by the agent's end; so is the discovery within a new subnode.
TEST_F(NestedSubnodes, AreNotAskedAnyMoreOnceTheAgentEnds) {
    Group secondGroup("Second", discoveryAttributes(), "SUB");
    DiscoveryClass second("Second", &world);
    secondGroup.meta->setIsDiscoveryAttributeGroup(true);
    secondGroup.meta->setQuery(&second);
    classes.addClientClass(&second);
    find({{"one"}, {"two"}, {"three"}});
    int asked = 0, stopAt = 0;
    world.during = [&] {
        if (++asked == stopAt) HBX_Shutdown(1);
    };
    const auto askedIn = [&](int at, auto pass) {
        asked = 0;
        stopAt = at;
        pass();
        std::_Exit(asked);
    };
    // The first to be asked is the outer class; then come clones.
    EXPECT_EXIT(askedIn(3, [] { updateDiscoveryClasses([] { return std::string("id"); }, WhenCollecting::Skip); }),
                testing::ExitedWithCode(3), "");
    EXPECT_EXIT(askedIn(2, [&] { find({{"one"}, {"two"}, {"three"}, {"four"}}); }), testing::ExitedWithCode(2), "");
    world.during = nullptr;
    manager.reset();
    classes.removeClientClass(&second);
}

// Zombies, as many as there are keys, of the groups Web and Db.
class Zombies : public Subnodes {
  protected:
    void retire(std::vector<Found> found) {
        find(found);
        for (const Found& f : found) {
            const std::string msn = "PP:" + f.key + ":SUB";
            webs.push_back(static_cast<SubnodeClass*>(webOf(msn).get()));
            dbs.push_back(static_cast<SubnodeClass*>(manager->getSubnodeQueryClass(msn.c_str(), dbGroup.meta).get()));
        }
        find({});
    }
    std::vector<SubnodeClass*> webs, dbs;
};

TEST_F(Zombies, LiveWhileSomebodyUsesThem) {
    retire({{"one"}});
    dbs[0]->setOnQueue(true);
    {
        const ClassPin held(webs[0]);
        EXPECT_EQ(manager->collectGarbage(), 0);
    }
    EXPECT_EQ(manager->collectGarbage(), 1);
    dbs[0]->setOnQueue(false);
    EXPECT_EQ(manager->collectGarbage(), 1);
    EXPECT_EQ(manager->zombieCount(), 0);
    EXPECT_EQ(manager->collectGarbage(), 0);
}

TEST_F(Zombies, LiveWhileSomebodyRefersToThem) {
    retire({{"one"}, {"two"}});
    webs[0]->references = {dbs[0], webs[0]};  // itself does not count
    dbs[0]->references = {webs[1]};
    webs[1]->references = {dbs[1]};
    dbs[1]->hold();
    EXPECT_EQ(manager->collectGarbage(), 3);  // one after the other, in one go
    EXPECT_EQ(manager->zombieCount(), 1);
    other.references = {dbs[1]};  // a live class that has not let go yet
    dbs[1]->unhold();
    EXPECT_EQ(manager->collectGarbage(), 0);
    find({{"live"}});
    auto* live = static_cast<SubnodeClass*>(webOf("PP:live:SUB").get());
    live->references.swap(other.references);  // so also a clone
    EXPECT_EQ(manager->collectGarbage(), 0);
    live->references.clear();
    EXPECT_EQ(manager->collectGarbage(), 1);
}

TEST_F(Zombies, EndWithTheManagerEvenIfTheyReferToEachOther) {
    retire({{"one"}});
    webs[0]->references = {dbs[0]};
    dbs[0]->references = {webs[0]};
    EXPECT_EQ(manager->collectGarbage(), 0);
    manager.reset();
    EXPECT_EQ(SubnodeClass::live.load(), 0);
}

TEST_F(Zombies, AreCollectedByTheThreadUntilItIsStopped) {
    const Variable interval("CDP_DP_GARBAGE_COLLECTION_INTERVAL", "0");
    manager = std::make_unique<SubnodeManager>();
    registerSubnodeDirectory(manager.get());
    find({{"one"}});
    find({});
    for (int i = 0; i < 1000 && SubnodeClass::live > 0; ++i) std::this_thread::sleep_for(5ms);
    EXPECT_EQ(SubnodeClass::live.load(), 0);
    EXPECT_TRUE(manager->stopZombieKiller(5000));
    EXPECT_TRUE(manager->stopZombieKiller(0));  // again is harmless
    retire({{"two"}});
    std::this_thread::sleep_for(300ms);
    EXPECT_EQ(manager->zombieCount(), 2);
}

}  // namespace
