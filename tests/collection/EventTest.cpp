// Event rows: at once to the table, kept in the cache of a pure class, handed to joins; and names of subnodes.
#include <gtest/gtest.h>

#include <thread>

#include "collection/JoinedEventRouter.h"
#include "collection/ManagedSystemName.h"
#include "collection/TestClass.h"
#include "host/Scratch.h"
#include "host/base/TestClock.h"
#include "platform/zhb.h"
#include "runtime/reference/EventSink.h"

namespace {

using namespace std::chrono_literals;
using namespace almanac::test;  // classes lie on the heap: the thread sanitizer takes mutexes of one stack place for one
using almanac::host::test::Variable;
namespace testclock = almanac::host::testclock;

class Events : public EventSink {
  public:
    explicit Events(AttributeGroupMeta* meta) : rows(meta) { meta->setTableManager(this); }
    int EventArrived(char* row, int size) override { return rows.AddData(row, size); }
    RecordingSink rows;
};

// A pure class that has been given events of these names.
void send(TestClass& c, const std::vector<const char*>& names) {
    int number = 0;
    for (const char* name : names) c.sendEventData(c.named(name, ++number));
}

TEST(PureEvents, AreKeptNewestFirstUpToTheCapacity) {
    const struct {
        const char* capacity;
        const char* names;
    } cases[] = {{"0", ""}, {"-1", ""}, {"1", "c,"}, {"2", "c,b,"}, {"3", "c,b,a,"}, {"many", ""}};
    for (const auto& each : cases) {
        Variable set("CDP_PURE_EVENT_CACHE_SIZE", each.capacity);
        Group group("PURE", nameAndNumber());
        Events events(group.meta);
        const auto own = std::make_unique<TestClass>("PURE");
        TestClass& c = *own;
        c.withNameAndNumber();
        c.setPureEventBased(true);
        send(c, {"a", "b", "c"});
        EXPECT_EQ(events.rows.names(), "a,b,c,");
        c.collectDataIfNeeded("1");
        c.collectDataIfNeeded("2");  // answered from the cache of events again, never doubled
        EXPECT_EQ(namesOf(c), each.names) << each.capacity;
        EXPECT_EQ(c.collections.load(), 0);
        EXPECT_EQ(c.getPerfstats().collectionCount, 0);
        c.clearPureCache();
        c.collectDataIfNeeded("3");
        EXPECT_EQ(namesOf(c), "");
    }
}

TEST(PureEvents, CarryTheTimeOfTheEvent) {
    Group group("PURETIME", nameAndNumber());
    Events events(group.meta);
    testclock::Guard clock;
    const auto own = std::make_unique<TestClass>("PURETIME");
    TestClass& c = *own;
    c.withNameAndNumber();
    c.setPureEventBased(true);
    send(c, {"a"});
    testclock::advance(3s);
    send(c, {"b"});
    testclock::advance(3s);
    c.collectDataIfNeeded("x");
    RecordingSink sink(group.meta);
    c.sendDataToHBX(&sink, "node");
    EXPECT_EQ(sink.column(0, "TIMESTAMP"), events.rows.column(1, "TIMESTAMP"));
    EXPECT_EQ(sink.column(1, "TIMESTAMP"), events.rows.column(0, "TIMESTAMP"));
    EXPECT_NE(sink.column(0, "TIMESTAMP"), sink.column(1, "TIMESTAMP"));
}

TEST(PureEvents, RequestsAtOnceNeverDoubleRows) {
    Group group("PUREMANY", nameAndNumber());
    const auto own = std::make_unique<TestClass>("PUREMANY");
    TestClass& c = *own;
    c.withNameAndNumber();
    c.setPureEventBased(true);
    send(c, {"a", "b", "c"});
    std::atomic<int> wrong{0};
    std::vector<std::thread> requests;
    for (int t = 0; t < 4; ++t) {
        requests.emplace_back([&] {
            for (int i = 0; i < 200; ++i) {
                c.collectDataIfNeeded("x");
                wrong += namesOf(c) != "c,b,a,";
            }
        });
    }
    for (std::thread& t : requests) t.join();
    EXPECT_EQ(wrong.load(), 0);
}

TEST(Events, AreSentOnceWithoutHintsAndOnlyWhole) {
    Group group("EVENT", {{"NAME", 2, 8, "1x:"}, {"N", 0, 4}});
    Events events(group.meta);
    const auto own = std::make_unique<TestClass>("EVENT");
    TestClass& c = *own;
    c.withNameAndNumber();
    std::unique_ptr<ResultInstance> whole(c.named("7F8A", 5));
    c.sendEventData(whole.get());  // stays the caller's
    ASSERT_EQ(events.rows.rows.size(), 1u);
    EXPECT_EQ(events.rows.column(0, "NAME"), "7F8A");
    EXPECT_EQ(events.rows.column(0, "ORIGINNODE"), HBX_GetOriginnode());
    std::unique_ptr<ResultInstance> half(c.row());
    half->addMetric(new ResultMetric(c.findMetric("NAME"), "x"));
    c.sendEventData(half.get());
    c.setSendingEnabled(false);
    c.sendEventData(whole.get());
    EXPECT_EQ(events.rows.rows.size(), 1u);
}

TEST(Events, OfASubnodeCarryItsName) {
    Group group("EVENTSUB", nameAndNumber(), "SUB");
    Events events(group.meta);
    const auto own = std::make_unique<TestClass>("EVENTSUB");
    TestClass& c = *own;
    c.withNameAndNumber();
    TestClass clone(&c, "host1");
    std::unique_ptr<ResultInstance> row(c.named("a", 1));
    clone.sendEventData(row.get());
    EXPECT_EQ(events.rows.column(0, "ORIGINNODE"), "PP:host1:SUB");
}

TEST(Events, BeforeTheTableExistsAreCachedAllTheSame) {
    Group group("EARLY", nameAndNumber());
    const auto own = std::make_unique<TestClass>("EARLY"), other = std::make_unique<TestClass>("NO SUCH GROUP");
    TestClass &c = *own, &unknown = *other;
    for (TestClass* each : {&c, &unknown}) {
        each->withNameAndNumber();
        each->setPureEventBased(true);
        send(*each, {"a"});
    }
    c.collectDataIfNeeded("x");
    EXPECT_EQ(namesOf(c), "a,");
    unknown.collectDataIfNeeded("x");
    EXPECT_EQ(unknown.getResultInstanceCount(), 1);
}

TEST(Events, GoToJoinsAsARowThatCannotBeEvicted) {
    struct Router : JoinedEventRouter {
        void routeEvent(VXClientClass* source, ResultInstance* row) override {
            // Meanwhile another event pushes the row out of the cache of one.
            auto* c = static_cast<TestClass*>(source);
            registerJoinedEventRouter(nullptr);
            if (c->isPureEventBased()) send(*c, {"next"});
            registerJoinedEventRouter(this);
            seen += std::string(row->getInstanceName()) + ",";
        }
        std::string seen;
    } router;
    Variable set("CDP_PURE_EVENT_CACHE_SIZE", "1");
    Group group("ROUTED", nameAndNumber());
    const auto own = std::make_unique<TestClass>("ROUTED"), second = std::make_unique<TestClass>("ROUTED"),
               third = std::make_unique<TestClass>("ROUTED", nullptr, VX_JOIN);
    TestClass &pure = *own, &plain = *second, &join = *third;
    for (TestClass* c : {&pure, &plain, &join}) c->withNameAndNumber();
    pure.setPureEventBased(true);
    registerJoinedEventRouter(&router);
    send(pure, {"pure"});
    std::unique_ptr<ResultInstance> row(plain.named("plain", 1)), joined(join.named("join", 1));
    plain.sendEventData(row.get());
    join.sendEventData(joined.get());  // a join's own events go to no join
    registerJoinedEventRouter(nullptr);
    EXPECT_EQ(router.seen, "pure,plain,");
    pure.collectDataIfNeeded("x");
    EXPECT_EQ(namesOf(pure), "next,");
}

TEST(ManagedSystemName, IsCutToItsPartsAndFoldedInFront) {
    const struct {
        const char* appl;
        const char* key;
        const char* type;
        const char* name;
    } cases[] = {
        {"kab", "key", "SUB", "AB:key:SUB"},
        {"ab", "Key", "sub", "AB:Key:sub"},
        {"x", "k", "t", "X:k:t"},
        {"K1z9", "k", "TYPE", "1Z:k:TYP"},
        {"kab", "1234567890123456789012345678", "SUBTYPE", "AB:1234567890123456789012345:SUB"},
    };
    for (const auto& c : cases) {
        char name[MANAGED_SYSTEM_NAME_SIZE];
        EXPECT_STREQ(generateSubnodeManagedSystemName(c.appl, c.key, c.type, name), c.name);
        char* own = generateSubnodeManagedSystemName(c.appl, c.key, c.type, nullptr);
        EXPECT_STREQ(own, c.name);
        std::free(own);
        EXPECT_LE(std::strlen(c.name), 32u);
    }
    char name[MANAGED_SYSTEM_NAME_SIZE];
    EXPECT_EQ(generateSubnodeManagedSystemName("kab", nullptr, "SUB", name), nullptr);
}

}  // namespace
