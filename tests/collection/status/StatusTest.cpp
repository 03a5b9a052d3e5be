// The tables about the agent itself.
#include <gtest/gtest.h>

#include "collection/TestClass.h"
#include "collection/TestDirectory.h"
#include "collection/status/StatusTables.h"
#include "host/base/TestClock.h"

namespace {

using namespace std::chrono_literals;
using namespace almanac::test;
namespace testclock = almanac::host::testclock;

const std::vector<Attr> kStatus = {
    {"ATTRGRP", 2, 16}, {"OBJNAME", 2, 16}, {"OBJTYPE", 0, 4}, {"OBJSTTS", 0, 4}, {"ERRCODE", 0, 4},
    {"COLSTRT", 1, 16}, {"COLFINI", 1, 16}, {"COLDURA", 0, 4}, {"COLAVGD", 0, 4}, {"REFRINT", 0, 4},
    {"NUMCOLL", 0, 4},  {"CACHEHT", 0, 4},  {"CACHEMS", 0, 4}, {"CACHPCT", 0, 4}, {"INTSKIP", 0, 4}};

// The rows of a table, collected anew.
RecordingSink collected(ResultsManager& table, AttributeGroupMeta* meta) {
    table.setAttributeGroupMeta(meta);
    table.collectDataIfNeeded("x");
    RecordingSink sink(meta);
    table.sendDataToHBX(&sink, "node");
    return sink;
}

std::string columns(const RecordingSink& sink, const std::vector<const char*>& names, std::size_t row = 0) {
    std::string all;
    for (const char* name : names) all += sink.column(row, name) + ",";
    return all;
}

std::string stampOf(long seconds) {
    char text[32];
    formatTimeStamp(seconds, text);
    return text;
}

TEST(PerfObjectStatus, TellsOfEachClassWhatItKnows) {
    Group group("POS", kStatus), templates("TEMPL", nameAndNumber(), "SUB");
    testclock::Guard clock;
    TestClass idle("IDLE"), busy("BUSY", [](TestClass&) { testclock::advance(1250ms); }, VX_CIM);
    TestClass templ("TEMPL"), clone(&templ, "key"), availability("AVAIL", nullptr, VX_AVAILABILITY), old("OLD", nullptr, VX_AVAILABILITY_OLD);
    busy.errorCode = 46;
    busy.setRefreshInterval(77);
    VXClientClassList list;
    PerfObjectStatus table("ZAG", "POS", &list, group.meta);
    for (VXClientClass* c : std::initializer_list<VXClientClass*>{&idle, &table, &busy, &templ, &clone, &availability, &old}) {
        list.addClientClass(c);
    }
    busy.collectDataIfNeeded("x");
    const long ended = static_cast<long>(busy.getPerfstats().lastTime.tv_sec), started = busy.getPerfstats().startTime.tv_sec;
    busy.collectDataIfNeeded("x");
    busy.collectDataIfNeeded("x");
    busy.countSkippedInterval();
    const RecordingSink sink = collected(table, group.meta);
    EXPECT_EQ(sink.names("ATTRGRP"), "IDLE,BUSY,TEMPL,");  // no template, no status table, no availability
    EXPECT_EQ(columns(sink, {"OBJNAME", "OBJTYPE", "OBJSTTS", "ERRCODE"}, 1), "object,7,1,46,");
    EXPECT_EQ(columns(sink, {"COLSTRT", "COLFINI"}, 1), stampOf(started) + "," + stampOf(ended) + ",");
    EXPECT_EQ(columns(sink, {"COLDURA", "COLAVGD", "REFRINT", "NUMCOLL"}, 1), "125,125,77,1,");
    EXPECT_EQ(columns(sink, {"CACHEHT", "CACHEMS", "CACHPCT", "INTSKIP"}, 1), "2,1,6666,1,");
    // Never collected.
    EXPECT_EQ(columns(sink, {"COLSTRT", "COLFINI"}, 0), stampOf(0) + "," + stampOf(0) + ",");
    EXPECT_EQ(columns(sink, {"COLDURA", "COLAVGD", "REFRINT", "NUMCOLL", "CACHPCT"}, 0), "0,-100,0,0,0,");

    EXPECT_TRUE(table.isExpired());  // never answered from a cache
    EXPECT_FALSE(table.isThreadPoolEligible());
    idle.collectData("x");
    EXPECT_EQ(collected(table, group.meta).column(0, "NUMCOLL"), "1");
    for (int i = 0; i < 10; ++i) idle.collectDataIfNeeded("x");
    EXPECT_EQ(collected(table, group.meta).column(0, "CACHPCT"), "10000");
    list.removeClientClass(&table);  // it goes before the list does
}

TEST(PerfObjectStatus, HasTheColumnsThatTheMetadataNames) {
    Group group("POSFEW", {{"ATTRGRP", 2, 16}, {"NUMCOLL", 0, 4}, {"-INTSKIP", 0, 4}});
    TestClass c("SOME");
    c.collectData("x");
    VXClientClassList list;
    list.addClientClass(&c);
    PerfObjectStatus table("ZAG", "POSFEW", &list, group.meta);
    EXPECT_EQ(table.getMetricCount(), 3);
    EXPECT_TRUE(table.getMetricList()->getIsKey());
    const RecordingSink sink = collected(table, group.meta);
    EXPECT_EQ(columns(sink, {"ATTRGRP", "NUMCOLL", "INTSKIP"}), "SOME,1,(none),");
}

// Reports on the classes of one subnode.
class Directory : public almanac::test::TestDirectory {
  public:
    explicit Directory(VXClientClassList* classes) : classes_(classes) {}
    using TestDirectory::getAllSubnodeQueryClasses;
    ClassPins getAllSubnodeQueryClasses(const char* appl, const char* key, const char* type) override {
        asked = std::string(appl) + ":" + key + ":" + type;
        ClassPins all;
        for (ListCursor c = classes_->getClassListCursor(); c.hasMoreElements(); c.setToNext()) {
            all.emplace_back(static_cast<VXClientClass*>(c.getCurrentElement()));
        }
        return all;
    }
    std::string asked;

  private:
    VXClientClassList* classes_;
};

TEST(PerfObjectStatus, OfASubnodeReportsOnItsOwnClasses) {
    Group group("SUBPOS", kStatus, "SUB");
    TestClass everyone("EVERYONE"), its("ITS");
    VXClientClassList all, own;
    all.addClientClass(&everyone);
    own.addClientClass(&its);
    PerfObjectStatus source("ZAG", "SUBPOS", &all, group.meta);
    source.setAttributeGroupMeta(group.meta);
    const std::unique_ptr<VXClientClass> copy(source.subnodeCopy("key", &all));
    EXPECT_FALSE(copy->isThreadPoolEligible());
    auto& table = static_cast<PerfObjectStatus&>(*copy);
    EXPECT_EQ(collected(table, group.meta).names("ATTRGRP"), "");  // no directory
    Directory directory(&own);
    EXPECT_EQ(collected(table, group.meta).names("ATTRGRP"), "ITS,");
    EXPECT_EQ(directory.asked, "APP:key:SUB");
}

TEST(ThreadPoolStatus, ShowsThePoolOrThatThereIsNone) {
    std::vector<Attr> attributes;
    for (const FixedMetric* m = TP_METRICS; m->name; ++m) attributes.push_back({m->column, 0, 4});
    Group group("TPS", attributes);
    ThreadPool pool(3);
    ThreadPoolStatus with("ZAG", "TPS", &pool, group.meta), without("ZAG", "TPS", nullptr, group.meta);
    EXPECT_TRUE(with.isExpired());
    const std::vector<const char*> names = {"THPSIZE", "TPMAXSZ", "TPACTTH", "TPAVGAT", "TPMINAT", "TPMAXAT",
                                            "TPQLGTH", "TPAVGQL", "TPMINQL", "TPMAXQL", "TPAVJBW", "TPTJOBS"};
    EXPECT_EQ(columns(collected(with, group.meta), names), "3,3,0,-100,3,0,0,-100,3,0,-100,0,");
    EXPECT_EQ(columns(collected(without, group.meta), names), "-1,-1,-1,-100,-1,-1,-1,-100,-1,-1,-100,-1,");
}

TEST(Enumerations, AreKnownOnceDeclaredAndTheLastOneCounts) {
    EXPECT_FALSE(VXClientClass::isAgentPerfObjEnum("MINE"));
    VXClientClass::addPerfObjEnum("MINE", "100");
    VXClientClass::addPerfObjEnum("MINE", "101");
    VXClientClass::addPerfObjEnum(nullptr, "1");
    EXPECT_TRUE(VXClientClass::isAgentPerfObjEnum("MINE"));
    EXPECT_FALSE(VXClientClass::isAgentPerfObjEnum("mine"));
}

}  // namespace
