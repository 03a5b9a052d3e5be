// A subnode's life: announced, registered, cloned, asked for, announced no longer.
#include <gmock/gmock.h>

#include <thread>

#include "collection/ManagedSystemName.h"
#include "config/subnodes/DiscoveryPass.h"
#include "config/subnodes/PureEventLock.h"
#include "host/base/TestClock.h"
#include "platform/zsb.h"
#include "SubnodeKit.h"

namespace {

using namespace almanac::test;
using namespace std::chrono_literals;
using testing::HasSubstr;
using testing::Not;

TEST_F(Subnodes, TheirNamesComeFromClassesAndGiveTheKeyBack) {
    find({{"one"}});
    char name[MANAGED_SYSTEM_NAME_SIZE];
    EXPECT_STREQ(SubnodeManager::generateSubnodeManagedSystemName(webOf("PP:one:SUB").get(), name), "PP:one:SUB");
    almanac::host::configureTrace("NONE", nullptr);
    EXPECT_EQ(SubnodeManager::generateSubnodeManagedSystemName(&web, name), nullptr);  // a template has no key
    const std::pair<const char*, const char*> keys[] = {
        {"PP:one:SUB", "one"}, {"PP::SUB", ""}, {"PP:a:b:c:SUB", "a:b:c"}, {"::", ""}, {"PP:one", nullptr},
        {"plain", nullptr}, {"", nullptr}, {nullptr, nullptr}};
    for (const auto& [msn, key] : keys) {
        const char* result = SubnodeManager::getSubnodeKeyFromManagedSystemName(msn, name);
        EXPECT_STREQ(result ? result : "(null)", key ? key : "(null)") << (msn ? msn : "null");
    }
    const std::string endless = "PP:" + std::string(10000, 'k') + ":SUB";
    EXPECT_EQ(std::string(SubnodeManager::getSubnodeKeyFromManagedSystemName(endless.c_str(), name)), std::string(32, 'k'));
    almanac::host::configureTrace("ERROR", nullptr);
    EXPECT_THAT(errorsOf([] { SubnodeManager::getSubnodeKeyFromManagedSystemName("PP:one", nullptr); }),
                HasSubstr("Failed due to malformed msn=\"PP:one\", keyEnd=2, keyStart=3"));
}

TEST_F(Subnodes, AreRegisteredClonedAndFound) {
    find({{"One", "SUB", "%AFF", "v1"}, {"two", "sub", "AFF", "v2"}, {"three", "OTH", "&AFF", "v3"}});
    EXPECT_EQ(registered(), "PP:One:SUB,PP:three:OTH,PP:two:sub,");
    const auto all = registry().list();
    const std::vector<std::string> given = {"AFF_FEAT_DM_PARITY", "AFF_FEAT_AGENT_MGMT", "AFF_FEAT_INTERNATIONALIZATION"};
    const char* versions[] = {"AFF_V7", "AFF_V7", "07"};  // by number for % and &, as text for a name
    for (std::size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(all[i].application, "PP");  // without its first character
        std::vector<std::string> features = {versions[i]};
        features.insert(features.end(), given.begin(), given.end());
        EXPECT_EQ(all[i].features, features) << all[i].name;
    }
    EXPECT_EQ(all[0].affinity + all[0].version, "%AFFv1");

    EXPECT_TRUE(manager->isManagingSubnode("PP:One:SUB"));
    EXPECT_FALSE(manager->isManagingSubnode("PP:one:SUB"));  // names keep their case
    EXPECT_FALSE(manager->isManagingSubnode(nullptr));
    const ClassPin clone = webOf("PP:two:sub");
    ASSERT_TRUE(clone);  // the type is matched in any case
    EXPECT_EQ(clone->getManagedSystemName(), "PP:two:sub");
    EXPECT_STREQ(clone->getSubnodeKey(), "two");
    EXPECT_TRUE(clone->isHeld());
    EXPECT_FALSE(manager->getSubnodeQueryClass("PP:two:sub", otherGroup.meta));
    EXPECT_FALSE(manager->getSubnodeQueryClass("PP:two:sub", nullptr));
    EXPECT_FALSE(manager->getSubnodeQueryClass("PP:none:SUB", webGroup.meta));
    EXPECT_EQ(manager->getSubnodeQueryClassByKey("One", webGroup.meta).get(), webOf("PP:One:SUB").get());
    const ClassPins webs = manager->getAllSubnodeQueryClasses(webGroup.meta);
    ASSERT_EQ(webs.size(), 2u);
    EXPECT_STREQ(webs[0]->getSubnodeKey(), "One");  // in order of creation
    EXPECT_EQ(manager->getAllSubnodeQueryClasses("Other").size(), 1u);
    EXPECT_TRUE(manager->getAllSubnodeQueryClasses("Found").empty());
    const ClassPins ofTwo = manager->getAllSubnodeQueryClasses("APP", "two", "sub");
    ASSERT_EQ(ofTwo.size(), 2u);
    EXPECT_STREQ(ofTwo[1]->getAttributeGroup(), "Db");
    EXPECT_TRUE(manager->getAllSubnodeQueryClasses("APP", "none", "sub").empty());

    RecordingSink sink(dagGroup.meta);
    dag.sendDataToHBX(&sink, "node");
    EXPECT_EQ(sink.names(SUBNODE_MSN_QMPV_NAME), "PP:One:SUB,PP:two:sub,PP:three:OTH,");
}

TEST_F(Subnodes, EndWithTheLastPassThatListsThem) {
    find({{"one"}, {"two"}});
    ClassPin one = webOf("PP:one:SUB");
    VXClientClass* const first = one.get();
    find({{"two"}});
    EXPECT_EQ(registered(), "PP:two:SUB,");
    EXPECT_FALSE(webOf("PP:one:SUB"));
    EXPECT_EQ(manager->getAllSubnodeQueryClasses("Web").size(), 1u);
    EXPECT_TRUE(first->isZombie());
    first->collectDataIfNeeded("late");  // a request under way is still answered
    EXPECT_EQ(namesOf(static_cast<ResultsManager&>(*first)), "one,");
    find({{"one"}, {"two"}});
    EXPECT_NE(webOf("PP:one:SUB").get(), first);  // fresh, without history
    EXPECT_EQ(webOf("PP:one:SUB")->getPerfstats().collectionCount, 0);
    EXPECT_EQ(manager->collectGarbage(), 1);  // the other clone of the old one
    one.reset();
    EXPECT_EQ(manager->collectGarbage(), 1);
    EXPECT_EQ(SubnodeClass::live.load(), 4);
    find({});
    EXPECT_EQ(registered(), "");
}

TEST_F(Subnodes, RowsThatLackCellsAreTakenForAbsent) {
    find({{"whole"}, {"goes"}});
    std::string errors;
    const Found lacking[] = {{"-"}, {"goes", "-"}, {"goes", "SUB", "-"}, {"goes", "SUB", "%X", "-"}};
    for (const Found& row : lacking) {
        errors = errorsOf([&] { find({{"whole"}, row}); });
        EXPECT_THAT(errors, HasSubstr("DAG row is missing a metric, skipping: key = "));
        EXPECT_EQ(registered(), "PP:whole:SUB,");
        almanac::host::configureTrace("ERROR", nullptr);
        find({{"whole"}, {"goes"}});
    }
    EXPECT_THAT(errors, HasSubstr("ver = 00000000"));
    EXPECT_THAT(errors, Not(HasSubstr("key = 00000000")));
}

TEST_F(Subnodes, NamesThatCollideAreManagedOnce) {
    const std::string stem(25, 'k');
    const std::string errors = errorsOf([&] {
        find({{stem + "a"}, {stem + "b"}, {"x", "SUBA"}, {"x", "SUBB"}, {"same"}, {"same"}});
    });
    EXPECT_EQ(registered(), "PP:" + stem + ":SUB,PP:same:SUB,PP:x:SUB,");
    EXPECT_THAT(errors, HasSubstr("Failed for msn=\"PP:x:SUB\" because SubnodeManager already manages it"));
    EXPECT_EQ(webOf("PP:same:SUB")->getManagedSystemName(), "PP:same:SUB");
    EXPECT_EQ(errorsOf([&] { pass(); }), "");  // known by now
    EXPECT_THAT(errorsOf([&] { manager->addSubnode("PP:x:SUB", "x", "SUB", "%X", "1", &other); }), HasSubstr("already manages"));
    EXPECT_THAT(errorsOf([&] { manager->addSubnode("PP:y:SUB", nullptr, "SUB", "%X", "1", &dag); }),
                HasSubstr("key=(nil), type="));
    find({});
    EXPECT_EQ(registered(), "");
    EXPECT_THAT(errorsOf([&] { EXPECT_FALSE(manager->removeSubnode(nullptr)); }), HasSubstr("Failed due to NULL msn"));
    EXPECT_FALSE(manager->removeSubnode("PP:none:SUB"));
}

TEST_F(Subnodes, KeysMayHoldAnyBytes) {
    std::vector<Found> odd = {{""}, {std::string(10240, 'x')}, {"%s%n%d"}, {"a:b"}, {"a,b"}, {"\xff\xfe"}, {"K\xc3\xb6ln"}};
    for (int byte = 1; byte < 256; ++byte) odd.push_back({"byte" + std::string(1, static_cast<char>(byte)) + std::to_string(byte)});
    find(odd);
    EXPECT_EQ(registry().size(), odd.size());
    for (const Found& f : odd) {
        const ClassPin its = manager->getSubnodeQueryClassByKey(f.key.c_str(), webGroup.meta);
        ASSERT_TRUE(its) << f.key;
        EXPECT_EQ(its->getSubnodeKey(), f.key);  // the clone has the whole key
    }
    find({});
    EXPECT_EQ(registry().size(), 0u);
}

TEST_F(Subnodes, AreTriedAgainWhereTheFrameworkRefused) {
    registry().setRefusing(true);
    EXPECT_THAT(errorsOf([&] { find({{"one"}}); }),
                HasSubstr("Registration failed for msn=\"PP:one:SUB\", affinity=\"%X\", type=\"SUB\", version=\"01\""));
    EXPECT_FALSE(manager->isManagingSubnode("PP:one:SUB"));
    EXPECT_EQ(SubnodeClass::live.load(), 0);
    registry().setRefusing(false);
    pass();
    EXPECT_EQ(registered(), "PP:one:SUB,");

    registry().setAway(true);  // the monitoring server is away: built and collected all the same
    EXPECT_THAT(errorsOf([&] { find({{"one"}, {"two"}}); }),
                HasSubstr("Registration SendRequest failed for msn=\"PP:two:SUB\", affinity=\"%X\", type=\"SUB\", version=\"01\". "
                          "The request will be sent when communication with the QMSV is restored."));
    EXPECT_TRUE(webOf("PP:two:SUB"));
    EXPECT_TRUE(registry().list()[1].pending);
    EXPECT_THAT(errorsOf([&] { find({{"one"}}); }), HasSubstr("Deregistration SendRequest failed for msn=\"PP:two:SUB\"."));
    EXPECT_FALSE(webOf("PP:two:SUB"));
    registry().setAway(false);

    registry().setRefusing(true);
    const VXClientClass* const clone = webOf("PP:one:SUB").get();
    EXPECT_THAT(errorsOf([&] { find({}); }), HasSubstr("Deregistration failed for msn=\"PP:one:SUB\""));
    EXPECT_EQ(webOf("PP:one:SUB").get(), clone);
    registry().setRefusing(false);
    pass();
    EXPECT_EQ(registered(), "");
}

TEST_F(Subnodes, StayWhereACollectionTellsNothing) {
    find({{"one"}});
    dag.errorCode = TIMEOUT;
    find({});
    EXPECT_EQ(registered(), "PP:one:SUB,");
    find({{"two"}});  // rows count, whatever the code
    EXPECT_EQ(registered(), "PP:two:SUB,");
    dag.errorCode = NO_INSTANCES_RETURNED;
    find({});
    EXPECT_EQ(registered(), "");
}

TEST_F(Subnodes, AGroupThatAggregatesForgetsWhatAPassDoesNotRepeat) {
    almanac::host::configureTrace("NONE", nullptr);
    ZSV1_PutEnv("CDP_FOUND_AGGREGATE_RESULTS=yes");
    DiscoveryClass aggregating("Found", &world);
    ZSV1_UnsetEnv("CDP_FOUND_AGGREGATE_RESULTS");
    ASSERT_TRUE(aggregating.isAggregatingData());
    const auto passOver = [&](std::vector<Found> found) {
        world.found = std::move(found);
        const SubnodeGuard guard(manager.get());
        ASSERT_TRUE(aggregating.collectAnew("x"));
        manager->discoveryAttributeGroupWasUpdated(&aggregating);
    };
    passOver({{"one"}});
    passOver({{"two"}});
    EXPECT_EQ(registered(), "PP:two:SUB,");
    passOver({});
    EXPECT_EQ(registered(), "");
}

// Holds a collection of the discovery class until it is let go.
class HeldCollection {
  public:
    HeldCollection(DiscoveryClass::World* world, TestClass* dag) : world_(world) {
        const int before = dag->collections;
        world_->held = true;
        thread_ = std::thread([dag] { dag->collectData("held"); });
        while (dag->collections == before) std::this_thread::sleep_for(1ms);
    }
    ~HeldCollection() { letGo(); }
    void letGo() {
        world_->held = false;
        if (thread_.joinable()) thread_.join();
    }

  private:
    DiscoveryClass::World* world_;
    std::thread thread_;
};

TEST_F(Subnodes, APassLeavesARunningCollectionAloneAndAChangeWaitsForIt) {
    const auto id = [] { return std::string("id"); };
    find({{"one"}});
    const int before = dag.collections;
    {
        HeldCollection held(&world, &dag);
        updateDiscoveryClasses(id, WhenCollecting::Skip);
        EXPECT_EQ(dag.collections, before + 1);
        EXPECT_EQ(registered(), "PP:one:SUB,");
        std::thread change([&] { updateDiscoveryClasses(id, WhenCollecting::Wait); });
        std::this_thread::sleep_for(20ms);
        world.found.push_back({"two"});
        held.letGo();
        change.join();
    }
    EXPECT_EQ(dag.collections, before + 2);
    EXPECT_EQ(dag.lastRequest(), "id");
    EXPECT_EQ(registered(), "PP:one:SUB,PP:two:SUB,");
}

TEST_F(Subnodes, ThatAreUnavailableHaveTheirAnnouncerAskedOnceASecond) {
    const almanac::host::testclock::Guard clock;
    find({{"one"}, {"two"}});
    const int before = dag.collections;
    manager->updateDiscoveryAttributeGroupForSubnode("PP:none:SUB");
    manager->updateDiscoveryAttributeGroupForSubnode(nullptr);
    EXPECT_EQ(dag.collections, before);
    world.found.pop_back();
    manager->updateDiscoveryAttributeGroupForSubnode("PP:two:SUB");
    char id[20];
    EXPECT_EQ(dag.lastRequest(), SubnodeManager::generatePointerString(&dag, id));
    EXPECT_EQ(registered(), "PP:one:SUB,");
    manager->updateDiscoveryAttributeGroupForSubnode("PP:one:SUB");
    EXPECT_EQ(dag.collections, before + 1);
    almanac::host::testclock::advance(1s);
    manager->updateDiscoveryAttributeGroupForSubnode("PP:one:SUB");
    EXPECT_EQ(dag.collections, before + 2);
}

TEST_F(Subnodes, LookupsDoNotWaitForTheSubnodeLockNorEventsForACollection) {
    find({{"one"}});
    HeldCollection held(&world, &dag);
    std::atomic<bool> holds{false}, done{false};
    std::thread holder([&] {
        const SubnodeGuard guard(manager.get());
        holds = true;
        while (!done) std::this_thread::sleep_for(1ms);
    });
    while (!holds) std::this_thread::sleep_for(1ms);
    {
        const PureEventGuard outer;
        const PureEventGuard inner;  // recursive
        EXPECT_TRUE(manager->isManagingSubnode("PP:one:SUB"));
        EXPECT_TRUE(webOf("PP:one:SUB"));
        EXPECT_EQ(manager->getAllSubnodeQueryClasses("Web").size(), 1u);
        EXPECT_EQ(manager->getAllSubnodeQueryClasses("APP", "one", "SUB").size(), 2u);
    }
    done = true;
    holder.join();
}

}  // namespace
