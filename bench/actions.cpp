// What an action costs beside the process it starts: finding and expanding its task, reading its output, its rows.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <memory>
#include <string>

#include "actions/TakeActionStatus.h"
#include "actions/TaskLibrary.h"
#include "actions/TaskOutput.h"
#include "host/base/Trace.h"
#include "runtime/reference/AttributeGroupMeta.h"

static void FindTask(benchmark::State& state) {
    TaskLibrary library("HBX");
    for (long i = 0; i < state.range(0); ++i) {
        library.addTaskElement(new TaskElement(("task" + std::to_string(i)).c_str(), "true", nullptr));
    }
    const std::string last = "TASK" + std::to_string(state.range(0) - 1);
    for (auto _ : state) benchmark::DoNotOptimize(library.findTaskElement(last));
}
BENCHMARK(FindTask)->Arg(10)->Arg(10000);

// Five quoted parameters; the argument is the length of each value.
static void ExpandTask(benchmark::State& state) {
    TaskElement task("key", "/bin/tool --a P1 --b P2 --c P3 --d P4 --e P5", nullptr);
    std::string request = "key";
    for (const char* name : {"P1", "P2", "P3", "P4", "P5"}) {
        task.addParameter(std::make_unique<TaskParameter>(name, nullptr, "true", "[", "]", nullptr));
        request += " [" + std::string(static_cast<std::size_t>(state.range(0)), '"') + "]";
    }
    for (auto _ : state) benchmark::DoNotOptimize(task.getTaskCommand(request));
    state.SetBytesProcessed(state.iterations() * static_cast<long>(request.size()));
}
BENCHMARK(ExpandTask)->Arg(20)->Arg(40000);

static void ReadOutput(benchmark::State& state) {
    std::string output;
    for (int i = 0; i < 100000; ++i) output += "line " + std::to_string(i) + "\n";
    for (auto _ : state) {
        TaskResult result("task", "", RC_OK, 0);
        readTaskOutput(output, TaskEvents::OneForEachLine, result.getInstances(), result.getOutput());
        benchmark::DoNotOptimize(result.getOutput()->getCount());
    }
    state.SetItemsProcessed(state.iterations() * 100000);
}
BENCHMARK(ReadOutput)->Unit(benchmark::kMillisecond);

// One row for each line of output, into the cache; the argument is the number of lines.
static void SendRows(benchmark::State& state) {
    auto* meta = new AttributeGroupMeta("APP", "Take_Action_Status");
    List list;
    int offset = 0;
    for (const FixedMetric* m = TS_METRICS; m->name; ++m) {
        auto* attribute = new AttributeMeta(m->column, nullptr, m->rawType == STRING_DATA ? 2 : 0, m->size);
        placeAttribute(attribute, "", &offset);
        list.add(attribute);
    }
    meta->setRowSize(offset);
    meta->updateColumns(list);
    TakeActionStatus status("ZAG", "Take_Action_Status", meta);
    TaskResult result("task", "", RC_OK, 0);
    std::string output;
    for (long i = 0; i < state.range(0); ++i) output += "line " + std::to_string(i) + "\n";
    readTaskOutput(output, TaskEvents::OneForEachLine, result.getInstances(), result.getOutput());
    for (auto _ : state) status.sendTaskEvent("command", &result, 1, "node", nullptr, "owner");
    state.SetItemsProcessed(state.iterations() * state.range(0));
    delete meta;
}
BENCHMARK(SendRows)->Arg(1000)->Arg(100000)->Unit(benchmark::kMillisecond);

static void RunAction(benchmark::State& state) {
    TaskLibrary library("HBX");
    library.addTaskElement(new TaskElement("tsk", "echo a", nullptr));
    for (auto _ : state) benchmark::DoNotOptimize(library.executeTaskRequest("tsk", nullptr, nullptr, nullptr));
}
BENCHMARK(RunAction)->UseRealTime()->Unit(benchmark::kMicrosecond);
