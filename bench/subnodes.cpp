// Subnodes with three tables each: a pass of discovery that finds them all, one that finds nothing new, their end, and
// requests through the framework for one of them and for all. Each table has three rows a subnode.
#include <benchmark/benchmark.h>
#include <malloc.h>

#include <future>
#include <memory>
#include <string>
#include <vector>

#include "collection/ResultsManager.h"
#include "config/subnodes/SubnodeManager.h"
#include "foundation/UTF8String.h"
#include "host/base/Trace.h"
#include "host/framework/Framework.h"
#include "host/model/RowWriter.h"
#include "runtime/binding/GenericAgent.h"
#include "runtime/reference/AttributeGroupMeta.h"

namespace {

using namespace almanac::host;

constexpr int kTables = 3;
constexpr int kRows = 3;

AttributeGroupMeta* makeMeta(const char* name, const std::vector<const char*>& texts, const char* subnodeType) {
    auto* meta = new AttributeGroupMeta("BENCH", name);
    List list;
    int offset = 32;
    list.add(new AttributeMeta("ORIGINNODE", nullptr, 1, 32, 0));
    auto* stamp = new AttributeMeta("Timestamp", nullptr, 1, 16);
    placeAttribute(stamp, "", &offset);
    list.add(stamp);
    for (const char* text : texts) {
        auto* attribute = new AttributeMeta(text, nullptr, 2, 32);
        placeAttribute(attribute, "", &offset);
        list.add(attribute);
    }
    meta->setRowSize(offset);
    meta->updateColumns(list);
    if (subnodeType) meta->setSubnodeType(strdup(subnodeType));
    metaMap.put(strdup(name), meta);
    return meta;
}

// Rows of texts that cost nothing to get.
class Texts : public ResultsManager {
  public:
    Texts(const char* group, const std::vector<const char*>& texts) : ResultsManager("BNC", group, VX_SHELL) {
        for (const char* text : texts) {
            auto* metric = new Metric;
            metric->setQMPVName(text);
            metric->setMetricName(text);
            metric->setRawMetricType(STRING_DATA);
            addMetricObject(metric);
        }
    }
    Texts(const Texts* source, const char* key) : ResultsManager(source, key) {}
    VXClientClass* subnodeCopy(const char* key, VXClientClassList*) override { return new Texts(this, key); }
    void internalCollectData(const char*) override {
        for (int i = 0; i < kRows; ++i) addTexts({getSubnodeKey(), "/dev/sda1", "/var/lib/mysql", "ext4", "rw,relatime"});
    }
    void printResults() override {}
    const char* getPerfObjectName() override { return ""; }
    int getPerfObjectStatus() override { return 0; }
    int getPerfErrorCode() override { return 0; }

  protected:
    void addTexts(const std::vector<const char*>& texts) {
        auto* row = new ResultInstance("", getMetricCount());
        std::size_t next = 0;
        for (ListCursor c = getMetricCursor(); c.hasMoreElements(); c.setToNext()) {
            auto* text = new UTF8String;
            text->initFromUTF8String(texts[next++]);
            row->addMetric(new ResultMetric(static_cast<const Metric*>(c.getCurrentElement()), text));
        }
        addResultInstance(row);
    }
};

class Discovery : public Texts {
  public:
    using Texts::Texts;
    void internalCollectData(const char*) override {
        for (int i = 0; i < count; ++i) addTexts({("node" + std::to_string(i)).c_str(), "SUB", "%AFF", "01", ""});
    }
    int count = 0;
};

const std::vector<const char*> kFound = {SUBNODE_KEY_QMPV_NAME, SUBNODE_TYPE_QMPV_NAME, SUBNODE_AFFINITY_QMPV_NAME,
                                         SUBNODE_VERSION_QMPV_NAME, SUBNODE_MSN_QMPV_NAME};
const std::vector<const char*> kColumns = {"Key", "Device", "Mount", "Type", "Options"};

// The agent, made once; a manager for each benchmark.
struct Agent {
    Agent() {
        configureTrace("NONE", nullptr);
        queryClassList = new VXClientClassList;
        setenv("CDP_DP_CACHE_TTL", "100000", 1);
        AttributeGroupMeta* meta = makeMeta("Found", kFound, nullptr);
        meta->setIsDiscoveryAttributeGroup(true);
        discovery = new Discovery("Found", kFound);
        enter(discovery, meta);
        for (int i = 0; i < kTables; ++i) {
            const std::string name = "Table" + std::to_string(i);
            AttributeGroupMeta* table = makeMeta(name.c_str(), kColumns, "SUB");
            enter(new Texts(name.c_str(), kColumns), table);
            if (i > 0) continue;
            entry = std::make_shared<TableEntry>(new GenericAgentManager("BENCH", "Table0", table));
            entry->learn();
        }
        broker.setReady();
    }
    static void enter(ResultsManager* queryClass, AttributeGroupMeta* meta) {
        meta->setQuery(queryClass);
        queryClass->setAttributeGroupMeta(meta);
        queryClassList->addClientClass(queryClass);
    }
    void pass(SubnodeManager& manager, int count) {
        discovery->count = count;
        const SubnodeGuard guard(&manager);
        discovery->collectAnew("bench");
        manager.discoveryAttributeGroupWasUpdated(discovery);
    }
    std::size_t ask(const std::vector<std::string>& nodes, std::string* json) {
        SampleQuery query;
        query.table = entry;
        query.subnodes = nodes;
        std::promise<std::size_t> rows;
        broker.sample(query, [&](SampleResult&& result) {
            json->clear();
            RowWriter(*result.rows.layout(), {}).appendRows(json, result.rows, RowFormat::Json);
            rows.set_value(result.rows.count());
        });
        return rows.get_future().get();
    }
    Discovery* discovery;
    std::shared_ptr<TableEntry> entry;
    RequestBroker broker;
};

Agent& agent() {
    static Agent* const one = new Agent;
    return *one;
}

std::size_t bytesInUse() {
    const auto info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

void FindAll(benchmark::State& state) {
    const int count = static_cast<int>(state.range(0));
    double bytes = 0;
    for (auto _ : state) {
        state.PauseTiming();
        agent().pass(*std::make_unique<SubnodeManager>(SubnodeManager::ZombieThread::None), 0);
        auto manager = std::make_unique<SubnodeManager>(SubnodeManager::ZombieThread::None);
        registerSubnodeDirectory(manager.get());
        const std::size_t before = bytesInUse();
        state.ResumeTiming();
        agent().pass(*manager, count);
        state.PauseTiming();
        bytes = static_cast<double>(bytesInUse() - before) / count;
        agent().pass(*manager, 0);
        manager.reset();
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * count);
    state.counters["bytes_per_subnode"] = bytes;
}

// Everything that needs `count` subnodes that stand.
class Standing {
  public:
    explicit Standing(int count) : manager(SubnodeManager::ZombieThread::None) {
        registerSubnodeDirectory(&manager);
        agent().pass(manager, count);
    }
    ~Standing() { agent().pass(manager, 0); }
    SubnodeManager manager;
};

void FindNothingNew(benchmark::State& state) {
    Standing standing(static_cast<int>(state.range(0)));
    for (auto _ : state) agent().pass(standing.manager, static_cast<int>(state.range(0)));
}

void LoseAll(benchmark::State& state) {
    const int count = static_cast<int>(state.range(0));
    Standing standing(count);
    for (auto _ : state) {
        agent().pass(standing.manager, 0);
        standing.manager.collectGarbage();
        state.PauseTiming();
        agent().pass(standing.manager, count);
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * count);
}

void AskOne(benchmark::State& state) {
    Standing standing(static_cast<int>(state.range(0)));
    std::string json;
    const std::vector<std::string> node = {"EN:node" + std::to_string(state.range(0) / 2) + ":SUB"};
    for (auto _ : state) {
        if (agent().ask(node, &json) != kRows) state.SkipWithError("rows are missing");
    }
}

void AskAll(benchmark::State& state) {
    Standing standing(static_cast<int>(state.range(0)));
    const std::vector<std::string> nodes = framework().subnodes.names();
    std::string json;
    for (auto _ : state) {
        if (agent().ask(nodes, &json) != nodes.size() * kRows) state.SkipWithError("rows are missing");
    }
    state.SetItemsProcessed(state.iterations() * state.range(0) * kRows);
}

}  // namespace

BENCHMARK(FindAll)->RangeMultiplier(10)->Range(100, 10000)->Unit(benchmark::kMillisecond);
BENCHMARK(FindNothingNew)->RangeMultiplier(10)->Range(100, 10000)->Unit(benchmark::kMillisecond);
BENCHMARK(LoseAll)->RangeMultiplier(10)->Range(100, 10000)->Unit(benchmark::kMillisecond);
BENCHMARK(AskOne)->RangeMultiplier(10)->Range(100, 10000)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(AskAll)->RangeMultiplier(10)->Range(100, 10000)->Unit(benchmark::kMillisecond)->UseRealTime();
