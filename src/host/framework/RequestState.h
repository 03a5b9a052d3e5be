// What stands behind a request object: what was asked, what has been inserted, who still refers to it.
// Internal to the framework; the agent sees RequestDetail and ContextInfo as opaque.
#pragma once

#include <atomic>
#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "host/model/Batch.h"
#include "host/model/Filter.h"
#include "platform/zhb.h"

namespace almanac::host {

// What is asked of a table. Immutable once a request has been made with it.
struct RequestSpec {
    HBX_SampleType type = HBX_DEMAND;
    std::string application;
    std::string table;
    std::shared_ptr<const TableLayout> layout;  // null for a probe, which stores no rows
    std::shared_ptr<const Filter> filter;       // null passes every row
    std::vector<std::string> subnodes;
    std::string situation;
    std::string destination;  // the managed system that a command is sent to
    std::string originNode;   // ORIGINNODE of the data row that comes with a command; empty: no row
    std::size_t limit = SIZE_MAX;   // rows of one sample, and of one event delivery
    long intervalMilliseconds = 0;  // of exception and interval samples
    int history = 0;                // as IsHistoryRequest
    bool allSubnodes = false;       // QueryState(HBX_STATE_ALL_SUBNODES)
};

// Takes the rows of one event delivery; called on the event's thread, with the table locked: it must only
// queue.
using EventRows = std::function<void(Batch&&)>;

}  // namespace almanac::host

class RequestDetail {
  public:
    explicit RequestDetail(std::shared_ptr<const almanac::host::RequestSpec> spec_)
        : spec(std::move(spec_)) {}
    std::shared_ptr<const almanac::host::RequestSpec> spec;
};

class ContextInfo {
  public:
    almanac::host::EventRows onEvents;
    std::function<void(aghbx*)> onLastDrop;  // the last foreign reference to a retired request is gone
};

struct aghbx::State {
    std::shared_ptr<const almanac::host::RequestSpec> spec;
    TableManager* table = nullptr;
    unsigned handle = 0;
    almanac::host::EventRows onEvents;
    std::function<void(aghbx*)> onLastDrop;
    std::vector<ZFL1_FILTERINFO>
        elements;  // this request's copy, which the agent may get to see as non-const
    std::atomic<std::size_t> nextElement{0};
    std::atomic<std::size_t> nextSubnode{0};
    std::atomic<unsigned> rowSize{0};
    std::atomic<unsigned> allocationDefault{0};
    std::atomic<bool> stopInserting{false};
    std::atomic<std::thread::id>
        samplingThread{};  // whose rows belong to the sample; other threads bring events

    std::mutex mutex;  // guards what follows; held for moments, never while the agent is called
    almanac::host::Batch sample;
    almanac::host::Batch events;
    bool full = false;  // a row of the present sample was refused
    int references = 0;
    bool retired = false;

    // True if nobody refers to the request, which may then be deleted; else the last Drop calls onLastDrop.
    bool retire();
};
